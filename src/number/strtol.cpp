// strtolU16, strtollU16, strtoulU16, strtoullU16: one template, four
// instances.  The library's own parser (no narrow copy), so white space is
// the Unicode set of isspaceU16.
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>

#include "common/nuv_internal.h"
#include "ctype/ctype_tables.h"

namespace {

constexpr const char kSrcTol[] = "i18n/nuvu16/u16_tol";
constexpr int kLineIllegalBase = 32;

inline unsigned digit_value(char16_t u) {
  if (u >= '0' && u <= '9') return u - '0';
  if (u >= 'a' && u <= 'z') return u - 'a' + 10;
  if (u >= 'A' && u <= 'Z') return u - 'A' + 10;
  return 99;
}

template <class R, bool Signed>
R parse_integer(const NUV_UTF16* text, NUV_UTF16** end, int base) {
  const unsigned ubase = static_cast<unsigned>(base);
  if (ubase == 1 || ubase > 36) {
    if (nuv::load_relaxed(u16_trace_level) > 15) {
      char msg[64];
      std::snprintf(msg, sizeof msg, "Illegal base %d in strtolU16", base);
      u16_traceMsg(msg, kSrcTol, kLineIllegalBase, 1);
    }
    if (end) *end = const_cast<NUV_UTF16*>(text);
    errno = EINVAL;
    return 0;
  }
  const NUV_UTF16* s = text;
  while (nuv::is_space_unit(nuv::unit_at(s))) ++s;
  bool negative = false;
  if (nuv::unit_at(s) == u'-') {
    negative = true;
    ++s;
  } else if (nuv::unit_at(s) == u'+') {
    ++s;
  }
  unsigned b = ubase;
  const NUV_UTF16* bare_zero_end = nullptr;  // where a "0x" without digits ends
  if (nuv::unit_at(s) == u'0') {
    if ((b == 0 || b == 16) && (nuv::unit_at(s + 1) == u'x' || nuv::unit_at(s + 1) == u'X')) {
      bare_zero_end = s + 1;
      s += 2;
      b = 16;
    } else if (b == 0) {
      b = 8;
    }
  } else if (b == 0) {
    b = 10;
  }
  const std::uint64_t cutoff = UINT64_MAX / b;
  const unsigned cutlim = static_cast<unsigned>(UINT64_MAX % b);
  std::uint64_t acc = 0;
  bool overflow = false;
  const NUV_UTF16* digits = s;
  for (;; ++s) {
    unsigned d = digit_value(nuv::unit_at(s));
    if (d >= b) break;
    if (acc > cutoff || (acc == cutoff && d > cutlim)) {
      overflow = true;
      continue;  // keep going so that end lands behind every digit
    }
    acc = acc * b + d;
  }
  if (s == digits) {
    if (end) *end = const_cast<NUV_UTF16*>(bare_zero_end ? bare_zero_end : text);
    return 0;
  }
  if (end) *end = const_cast<NUV_UTF16*>(s);
  if constexpr (Signed) {
    constexpr std::uint64_t kMinMagnitude = std::uint64_t{1} << 63;
    if (overflow) {
      errno = ERANGE;
      return negative ? INT64_MIN : INT64_MAX;
    }
    if (negative) {
      if (acc > kMinMagnitude) {
        errno = ERANGE;
        return INT64_MIN;
      }
      return static_cast<R>(0 - acc);
    }
    if (acc > kMinMagnitude - 1) {
      errno = ERANGE;
      return INT64_MAX;
    }
    return static_cast<R>(acc);
  } else {
    if (overflow) {
      errno = ERANGE;
      return UINT64_MAX;
    }
    return negative ? static_cast<R>(0 - acc) : static_cast<R>(acc);
  }
}

}  // namespace

extern "C" {

NUV_API long strtolU16(const NUV_UTF16* text, NUV_UTF16** end, int base) {
  return parse_integer<long, true>(text, end, base);
}
NUV_API long long strtollU16(const NUV_UTF16* text, NUV_UTF16** end, int base) {
  return parse_integer<long long, true>(text, end, base);
}
NUV_API unsigned long strtoulU16(const NUV_UTF16* text, NUV_UTF16** end, int base) {
  return parse_integer<unsigned long, false>(text, end, base);
}
NUV_API unsigned long long strtoullU16(const NUV_UTF16* text, NUV_UTF16** end, int base) {
  return parse_integer<unsigned long long, false>(text, end, base);
}

}  // extern "C"

NUV_FORWARD(strtolU, strtolU16);
NUV_FORWARD(strtollU, strtollU16);
NUV_FORWARD(strtoulU, strtoulU16);
NUV_FORWARD(strtoullU, strtoullU16);
