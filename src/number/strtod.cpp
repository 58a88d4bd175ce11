// strtodU16: our own scanner bounds and normalises the UTF-16 number into a
// short narrow text, and the C library's strtod does the correctly rounded
// binary conversion of that text (short numbers with small exponents are
// converted exactly here, with the same result).
#include <langinfo.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "common/nuv_internal.h"
#include "ctype/ctype_tables.h"
#include "number/exact_decimal.h"

namespace {

constexpr const char kSrcTod[] = "i18n/nuvu16/u16_tod";
constexpr int kLineLengthMismatch = 357;
constexpr int kMaxSignificant = 24;
constexpr int kMaxPlainExponentDigits = 4;
constexpr std::uint32_t kMaxCorrectedExponent = 65535;
constexpr long kDumpUnits = 80;
using nuv::kExactDigits;

inline char16_t at(const NUV_UTF16* p) { return nuv::unit_at(p); }
inline bool is_digit(char16_t u) { return u >= '0' && u <= '9'; }

// The current locale's decimal point, when it is one ASCII byte.
inline char16_t decimal_point() {
  unsigned char c = static_cast<unsigned char>(nl_langinfo(RADIXCHAR)[0]);
  return c != 0 && c < 128 ? c : '.';
}

bool match(const NUV_UTF16* p, const char16_t* word) {
  for (; *word; ++p, ++word)
    if (at(p) != *word) return false;
  return true;
}

// Writes v in decimal at out, returns the count written.
int put_decimal(char* out, std::int64_t v) {
  char tmp[24];
  int n = 0;
  std::uint64_t m = v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
  do {
    tmp[n++] = static_cast<char>('0' + m % 10);
    m /= 10;
  } while (m);
  int k = 0;
  if (v < 0) out[k++] = '-';
  while (n) out[k++] = tmp[--n];
  return k;
}

void report_length_mismatch(const NUV_UTF16* text, long accepted, long expected) {
  char msg[80];
  std::snprintf(msg, sizeof msg, "strtod accepted %d characters (expected %d)", static_cast<int>(accepted),
                static_cast<int>(expected));
  u16_traceMsg(msg, kSrcTod, kLineLengthMismatch, 0);
  long n = 0;
  while (n < kDumpUnits && at(text + n) != 0) ++n;
  u16_charDump(text, n);
  u16_endTraceMsg();
}

}  // namespace

extern "C" NUV_API double strtodU16(const NUV_UTF16* text, NUV_UTF16** end) {
  const char16_t dp = decimal_point();
  const NUV_UTF16* s = text;
  while (nuv::is_space_unit(at(s))) ++s;
  // sign + 24 digits + "0." + "e-" + a 64-bit exponent + NUL fits easily
  char narrow[64];
  int n = 0;
  bool negative = false;
  char16_t u = at(s);
  if (u == '-' || u == '+') {
    negative = u == '-';
    if (negative) narrow[n++] = '-';
    ++s;
    u = at(s);
  }

  if (!is_digit(u) && !(u == dp && is_digit(at(s + 1)))) {
    if (u == 'I' || u == 'i') {
      const NUV_UTF16* stop = nullptr;
      if (match(s + 1, u"nfinity") || match(s + 1, u"NFINITY"))
        stop = s + 8;
      else if (match(s + 1, u"nf") || match(s + 1, u"NF"))
        stop = s + 3;
      if (stop) {
        if (end) *end = const_cast<NUV_UTF16*>(stop);
        return negative ? -HUGE_VAL : HUGE_VAL;
      }
    } else if ((u == 'N' || u == 'n') && (match(s + 1, u"aN") || match(s + 1, u"AN") || match(s + 1, u"an"))) {
      for (int k = 0; k < 3; ++k) narrow[n++] = static_cast<char>(at(s + k));
      narrow[n] = 0;
      if (end) *end = const_cast<NUV_UTF16*>(s + 3);
      return std::strtod(narrow, nullptr);
    }
    if (end) *end = const_cast<NUV_UTF16*>(text);
    return 0.0;
  }

  // Mantissa: at most 24 significant digits; what is dropped moves the exponent.
  // The value of the first digits is kept as well, for the exact fast path below.
  int significant = 0, fraction_copied = 0;
  std::uint64_t mantissa = 0;
  std::int64_t correction = 0;
  bool nonzero = false;
  while (at(s) == '0') ++s;
  for (; is_digit(u = at(s)); ++s) {
    nonzero = true;
    if (significant < kMaxSignificant) {
      narrow[n++] = static_cast<char>(u);
      if (significant < kExactDigits) mantissa = mantissa * 10 + (u - '0');
      ++significant;
    } else {
      ++correction;
    }
  }
  if (significant == 0) narrow[n++] = '0';
  if (at(s) == dp) {
    ++s;
    narrow[n++] = static_cast<char>(dp);
    if (significant == 0)
      for (; at(s) == '0'; ++s) --correction;
    for (; is_digit(u = at(s)); ++s) {
      if (significant < kMaxSignificant) {
        narrow[n++] = static_cast<char>(u);
        if (significant < kExactDigits) mantissa = mantissa * 10 + (u - '0');
        ++significant;
        ++fraction_copied;
        if (u != '0') nonzero = true;
      }
    }
  }

  // Exponent, taken only when digits follow the 'e' and its sign.
  bool have_exponent = false;
  std::int64_t exponent = correction;  // the exponent the narrow text ends up with
  if (at(s) == 'e' || at(s) == 'E') {
    const NUV_UTF16* p = s + 1;
    bool exp_negative = false;
    if (at(p) == '+' || at(p) == '-') {
      exp_negative = at(p) == '-';
      ++p;
    }
    if (is_digit(at(p))) {
      have_exponent = true;
      while (at(p) == '0') ++p;
      const NUV_UTF16* first = p;
      std::uint32_t value = 0;
      int count = 0;
      for (; is_digit(at(p)); ++p, ++count)
        if (value <= kMaxCorrectedExponent) value = value * 10 + (at(p) - '0');
      s = p;
      const bool overflow = correction == 0 ? count > kMaxPlainExponentDigits : value > kMaxCorrectedExponent;
      if (overflow) {
        if (end) *end = const_cast<NUV_UTF16*>(s);
        if (!nonzero) return negative ? -0.0 : 0.0;
        errno = ERANGE;
        if (exp_negative) return 0.0;  // the number's sign is not kept here
        return negative ? -HUGE_VAL : HUGE_VAL;
      }
      narrow[n++] = 'e';
      exponent = correction + (exp_negative ? -static_cast<std::int64_t>(value) : value);
      if (correction == 0) {
        if (exp_negative) narrow[n++] = '-';
        if (count == 0) narrow[n++] = '0';
        for (const NUV_UTF16* q = first; q < p; ++q) narrow[n++] = static_cast<char>(at(q));
      } else {
        n += put_decimal(narrow + n, exponent);
      }
    }
  }
  if (!have_exponent && correction != 0) {
    narrow[n++] = 'e';
    n += put_decimal(narrow + n, correction);
  }
  narrow[n] = 0;

  double exact;
  if (significant <= kExactDigits && nuv::exact_scale(mantissa, exponent - fraction_copied, &exact)) {
    if (end) *end = const_cast<NUV_UTF16*>(s);
    return negative ? -exact : exact;
  }

  char* narrow_end;
  const double v = std::strtod(narrow, &narrow_end);
  if (narrow_end == narrow) {
    if (end) *end = const_cast<NUV_UTF16*>(text);
    return 0.0;
  }
  if (narrow_end - narrow != n && nuv::load_relaxed(u16_trace_level) != 0)
    report_length_mismatch(text, narrow_end - narrow, n);
  if (end) *end = const_cast<NUV_UTF16*>(s);
  return v;
}

NUV_FORWARD(strtodU, strtodU16);
