// %e %f %g text of a finite double from its exact decimal expansion.  A
// double is m * 2^e; for e < 0 that is (m * 5^-e) / 10^-e, so the expansion
// is finite (at most 767 significant digits) and rounding it half to even at
// any digit gives exactly what the C library prints.
#include <cstdint>
#include <cstring>

#include "format/engine.h"

namespace {

constexpr uint32_t kLimbBase = 1000000000;  // base 10^9 limbs, lowest first
constexpr int kMaxLimbs = 100;              // 900 digits
constexpr int kMaxDigits = kMaxLimbs * 9;

struct Big {
  uint32_t limb[kMaxLimbs];
  int n;
};

void mul_small(Big& b, uint32_t factor) {
  uint64_t carry = 0;
  for (int i = 0; i < b.n; ++i) {
    const uint64_t t = static_cast<uint64_t>(b.limb[i]) * factor + carry;
    b.limb[i] = static_cast<uint32_t>(t % kLimbBase);
    carry = t / kLimbBase;
  }
  while (carry) {
    b.limb[b.n++] = static_cast<uint32_t>(carry % kLimbBase);
    carry /= kLimbBase;
  }
}

// The decimal digits of m * 2^e (e >= 0) or m * 5^-e (e < 0, the point then
// -e places from the right).  Returns the digit count; *scale gets -e or 0.
int exact_digits(uint64_t m, int e, char* out, int* scale) {
  Big b;
  b.n = 0;
  for (uint64_t v = m; v; v /= kLimbBase) b.limb[b.n++] = static_cast<uint32_t>(v % kLimbBase);
  if (e >= 0) {
    *scale = 0;
    for (; e >= 28; e -= 28) mul_small(b, uint32_t{1} << 28);
    if (e) mul_small(b, uint32_t{1} << e);
  } else {
    *scale = -e;
    int k = -e;
    for (; k >= 13; k -= 13) mul_small(b, 1220703125u);  // 5^13
    uint32_t p = 1;
    for (; k; --k) p *= 5;
    if (p != 1) mul_small(b, p);
  }
  char* o = out;
  uint32_t top = b.limb[b.n - 1];
  char tmp[10];
  int t = 0;
  do {
    tmp[t++] = static_cast<char>('0' + top % 10);
    top /= 10;
  } while (top);
  while (t) *o++ = tmp[--t];
  for (int i = b.n - 2; i >= 0; --i) {
    uint32_t v = b.limb[i];
    for (int j = 8; j >= 0; --j) {
      o[j] = static_cast<char>('0' + v % 10);
      v /= 10;
    }
    o += 9;
  }
  return static_cast<int>(o - out);
}

// The leading digits of m * 2^e for -124 <= e <= 10 (below 2^64), in the
// form exact_digits gives, with 128-bit arithmetic: the integer part, then
// fraction digits one multiplication by ten each.  It stops once it has
// `sig` significant digits or `frac` fraction digits; *sticky tells whether
// nonzero digits were left.
int leading_digits(uint64_t m, int e, int sig, int frac, char* out, int* scale, bool* sticky) {
  using u128 = unsigned __int128;
  int len = 0;
  *scale = 0;
  if (e >= 0) {
    len = exact_digits(m, e, out, scale);
    *sticky = false;
    return len;
  }
  const int k = -e;
  const uint64_t ip = k >= 64 ? 0 : m >> k;
  const u128 mask = (static_cast<u128>(1) << k) - 1;
  u128 f = static_cast<u128>(m) & mask;
  if (ip) {
    char tmp[20];
    int t = 0;
    for (uint64_t v = ip; v; v /= 10) tmp[t++] = static_cast<char>('0' + v % 10);
    while (t) out[len++] = tmp[--t];
  }
  while (f && len < sig && *scale < frac) {
    f *= 10;
    const int digit = static_cast<int>(f >> k);
    f &= mask;
    ++*scale;
    if (len || digit) out[len++] = static_cast<char>('0' + digit);
  }
  *sticky = f != 0;
  return len;
}

// The first `keep` digits of d (length len, implicit zeros after it),
// rounded half to even on what follows.  The kept digits are d[0..rlen)
// followed by zeros; *carried is set when rounding turned them into 1 and
// zeros, one digit longer.
struct Rounded {
  const char* digits;
  int rlen;     // stored digits; the rest up to total are zeros
  int total;    // digits of the rounded integer
  bool carried;
};

// `sticky`: nonzero digits follow d that were not produced; the producer
// always gives at least keep + 1 digits then.
Rounded round_digits(char* d, int len, int keep, bool sticky = false) {
  if (keep >= len) return {d, len, keep, false};
  if (keep < 0) return {d, 0, 0, false};
  bool up = false;
  const char r = d[keep];
  if (r > '5') {
    up = true;
  } else if (r == '5') {
    bool rest = sticky;
    for (int i = keep + 1; i < len && !rest; ++i) rest = d[i] != '0';
    up = rest || (keep > 0 && ((d[keep - 1] - '0') & 1));
  }
  if (!up) return {d, keep, keep, false};
  int i = keep - 1;
  while (i >= 0 && d[i] == '9') d[i--] = '0';
  if (i >= 0) {
    ++d[i];
    return {d, keep, keep, false};
  }
  d[0] = '1';
  return {d, 1, keep + 1, true};
}

struct Writer {
  char* out;
  std::size_t size;
  std::size_t n = 0;
  void put(char c) {
    if (n < size) out[n] = c;
    ++n;
  }
};

inline char digit_at(const Rounded& r, long i) { return i < r.rlen ? r.digits[i] : '0'; }

void write_exponent(Writer& w, char e, int x) {
  w.put(e);
  w.put(x < 0 ? '-' : '+');
  const unsigned a = static_cast<unsigned>(x < 0 ? -x : x);
  if (a >= 100) w.put(static_cast<char>('0' + a / 100));
  w.put(static_cast<char>('0' + a / 10 % 10));
  w.put(static_cast<char>('0' + a % 10));
}

// %.Pe: rounded to P + 1 significant digits.
void write_e(Writer& w, char* d, int len, bool sticky, int x, long p, bool alt, bool strip, char e) {
  Rounded r = len ? round_digits(d, len, static_cast<int>(p + 1 > kMaxDigits ? kMaxDigits + 1 : p + 1), sticky)
                  : Rounded{d, 0, 0, false};
  if (r.carried) ++x;
  if (!len) x = 0;
  w.put(digit_at(r, 0));
  long frac = p;
  if (strip) {
    while (frac > 0 && digit_at(r, frac) == '0') --frac;
  }
  if (frac > 0 || alt) w.put('.');
  for (long i = 1; i <= frac; ++i) w.put(digit_at(r, i));
  write_exponent(w, e, x);
}

// %.Pf: the digits at or above 10^-P.  d holds the integer whose value is
// scaled by 10^-scale.
void write_f(Writer& w, char* d, int len, bool sticky, int scale, long p, bool alt, bool strip) {
  const long keepl = static_cast<long>(len) - scale + p;
  // Every digit kept: the rest up to 10^-P are zeros.
  const Rounded r = keepl > len ? Rounded{d, len, len, false} : round_digits(d, len, static_cast<int>(keepl), sticky);
  // Digits of the rounded value scaled by 10^-P.
  const long total = keepl > len ? keepl : r.total;
  const long intDigits = total - p;
  if (intDigits > 0) {
    for (long i = 0; i < intDigits; ++i) w.put(digit_at(r, i));
  } else {
    w.put('0');
  }
  long frac = p;
  auto frac_digit = [&](long j) {  // j-th digit after the point, from 0
    const long i = intDigits + j;
    return i < 0 ? '0' : digit_at(r, i);
  };
  if (strip) {
    while (frac > 0 && frac_digit(frac - 1) == '0') --frac;
  }
  if (frac > 0 || alt) w.put('.');
  for (long j = 0; j < frac; ++j) w.put(frac_digit(j));
}

}  // namespace

namespace nuv {

long format_double_exact(char* out, std::size_t size, char sym, long precision, bool alt, double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  const int biased = static_cast<int>((bits >> 52) & 0x7FF);
  if (biased == 0x7FF) return -1;
  uint64_t m = bits & ((uint64_t{1} << 52) - 1);
  int e = biased ? biased - 1075 : -1074;
  if (biased) m |= uint64_t{1} << 52;
  if (precision < 0) precision = 6;
  char d[kMaxDigits + 2];
  int len = 0, scale = 0;
  bool sticky = false;
  const bool fixed = sym == 'f' || sym == 'F';
  if (m && e >= -124 && e <= 10 && precision <= 40) {
    // Enough digits for any cut these forms make, the rest as one bit.
    const int p = static_cast<int>(precision);
    len = leading_digits(m, e, fixed ? kMaxDigits : p + 2, fixed ? p + 1 : kMaxDigits, d, &scale, &sticky);
  } else if (m) {
    const int tz = __builtin_ctzll(m);
    // Trailing zero bits of m are powers of two taken out of 5^-e's work.
    const int shift = e < 0 ? (tz < -e ? tz : -e) : 0;
    len = exact_digits(m >> shift, e + shift, d, &scale);
  }
  Writer w{out, size};
  if (bits >> 63) w.put('-');
  const char echar = (sym == 'E' || sym == 'G') ? 'E' : 'e';
  const int x = len - 1 - scale;  // decimal exponent of the first digit
  switch (sym) {
    case 'f':
    case 'F':
      write_f(w, d, len, sticky, scale, precision, alt, false);
      break;
    case 'e':
    case 'E':
      write_e(w, d, len, sticky, x, precision, alt, false, echar);
      break;
    case 'g':
    case 'G': {
      const long p = precision == 0 ? 1 : precision;
      int xr = 0;
      bool carried = false;
      if (len) {
        char probe[kMaxDigits + 2];
        std::memcpy(probe, d, static_cast<std::size_t>(len));
        carried = round_digits(probe, len, static_cast<int>(p > kMaxDigits ? kMaxDigits + 1 : p), sticky).carried;
        xr = x + (carried ? 1 : 0);
      }
      if (p > xr && xr >= -4) write_f(w, d, len, sticky, scale, p - 1 - xr, alt, !alt);
      // A value whose fixed form had no fraction digits and that rounds up
      // into the exponent form keeps none there either ("%#.2g" of 99.5 is
      // "1.e+02").
      else if (carried && x == p - 1) write_e(w, d, len, sticky, x, 0, alt, !alt, echar);
      else write_e(w, d, len, sticky, x, p - 1, alt, !alt, echar);
      break;
    }
    default:
      return -1;
  }
  if (w.n < size) out[w.n] = 0;
  return static_cast<long>(w.n);
}

}  // namespace nuv
