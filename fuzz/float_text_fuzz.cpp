// The exact floating text against the C library: every symbol, '#', and
// precisions past the last digit of any double.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "format/engine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char kSyms[] = "fFeEgG";
  static char ours[1500], glibc[1500];  // 1 + 309 + 1 + 1100 at most
  for (; size >= 11; data += 11, size -= 11) {
    const char sym = kSyms[data[0] % 6];
    const bool alt = data[0] & 0x80;
    const int precision = data[1] < 200 ? data[1] % 48 : (data[1] - 200) * 20;  // up to 1100
    const int shift = data[2] & 0x3F;  // a short mantissa now and then: ties
    uint64_t bits;
    std::memcpy(&bits, data + 3, sizeof bits);
    if (data[2] & 0x40) bits = (bits & 0xFFF0000000000000u) | ((bits & 0xFFFFFFFFFFFFFu) >> shift << shift);
    double v;
    std::memcpy(&v, &bits, sizeof v);
    const long n = nuv::format_double_exact(ours, sizeof ours, sym, precision, alt, v);
    if (n < 0) continue;  // infinities and NaN stay with the C library
    const char fmt[6] = {'%', alt ? '#' : '%', '.', '*', sym, 0};
    const int m = std::snprintf(glibc, sizeof glibc, alt ? fmt : fmt + 1, precision, v);
    if (n != m || std::strcmp(ours, glibc) != 0) __builtin_trap();
  }
  return 0;
}
