// Exact conversion of short decimal texts.  Up to 15 significant digits and a
// power of ten up to 1e22 are both exact doubles, so one multiplication or
// division rounds correctly: the very result strtod gives, without its
// multi-precision work.
#pragma once

#include <cstdint>

namespace nuv {

inline constexpr int kExactDigits = 15;
inline constexpr int kMaxExactPower = 22;
inline constexpr double kExactPowers[kMaxExactPower + 1] = {
    1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// mantissa (below 10^15) times 10^e10; false when that is not exact.
inline bool exact_scale(std::uint64_t mantissa, std::int64_t e10, double* out) {
  if (mantissa == 0) {
    *out = 0.0;
    return true;
  }
  if (e10 < -kMaxExactPower || e10 > kMaxExactPower) return false;
  const double v = static_cast<double>(mantissa);
  *out = e10 >= 0 ? v * kExactPowers[e10] : v / kExactPowers[-e10];
  return true;
}

// The whole of [p, end) as digits, an optional point (dp) and digits, and an
// optional exponent; false when it is not such a text or not exact.
inline bool exact_decimal(const char* p, const char* end, char dp, double* out) {
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  std::uint64_t m = 0;
  int digits = 0, fraction = 0;
  bool any = false;
  for (; p < end && *p == '0'; ++p) any = true;
  for (; p < end && digit(*p); ++p, any = true) {
    if (++digits > kExactDigits) return false;
    m = m * 10 + static_cast<unsigned>(*p - '0');
  }
  if (p < end && *p == dp) {
    ++p;
    if (digits == 0)
      for (; p < end && *p == '0'; ++p, ++fraction) any = true;
    for (; p < end && digit(*p); ++p, ++fraction, any = true) {
      if (++digits > kExactDigits) return false;
      m = m * 10 + static_cast<unsigned>(*p - '0');
    }
  }
  if (!any) return false;
  std::int64_t e = 0;
  if (p < end && (*p == 'e' || *p == 'E')) {
    ++p;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
    if (p == end || !digit(*p)) return false;
    for (; p < end && digit(*p); ++p)
      if ((e = e * 10 + (*p - '0')) > 100000) return false;
    if (negative) e = -e;
  }
  return p == end && exact_scale(m, e - fraction, out);
}

}  // namespace nuv
