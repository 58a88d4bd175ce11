// ecvtU16: the decimal digits of a double as UTF-16, in one static buffer
// shared by all calls (each call overwrites the last result).
#include <cstdio>
#include <cstdlib>

#include "common/nuv_internal.h"

namespace {

constexpr int kMaxDigits = 128;
NUV_UTF16 g_digits[kMaxDigits + 1];

}  // namespace

extern "C" NUV_API NUV_UTF16* ecvtU16(int ndigit, int* decpt, int* sign, double value) {
  const int n = ndigit < 1 ? 1 : ndigit > kMaxDigits ? kMaxDigits : ndigit;
  // "+d.ddde+xx": sign, first digit, point, n - 1 digits, exponent.
  char text[kMaxDigits + 32];
  std::snprintf(text, sizeof text, "%-+#*.*e", n + 7, n - 1, value);
  *sign = text[0] == '-' ? 1 : 0;
  // The digits sit at fixed positions: 1, then 3 .. n + 1 behind the point.
  g_digits[0] = static_cast<unsigned char>(text[1]);
  for (int i = 1; i < n; ++i) g_digits[i] = static_cast<unsigned char>(text[i + 2]);
  g_digits[n] = 0;
  const char* e = text[1] >= '0' && text[1] <= '9' ? text + n + 2 : nullptr;
  if (e && *e == 'e')
    *decpt = value == 0.0 ? 0 : std::atoi(e + 1) + 1;
  else
    *decpt = 0;  // infinity or NaN: letters, no exponent
  return g_digits;
}

NUV_FORWARD(ecvtU, ecvtU16);
