// The scanf family on arbitrary formats and inputs, over strings and over
// fmemopen files.  Destinations are large enough for every directive the
// harness lets through (widths up to 99, inputs up to 200 units).
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "nuvu16.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  u16_trace_level = 0;
  const uint8_t* split = static_cast<const uint8_t*>(std::memchr(data, 0, size));
  if (!split) return 0;
  std::vector<NUV_UTF16> format(data, split);
  format.push_back(0);
  const uint8_t* in = split + 1;
  size_t in_size = static_cast<size_t>(data + size - in);
  if (in_size > 200) return 0;
  // Pointer arguments are limited: at most 6 directives, no width from the arguments.
  int percents = 0, run = 0;
  for (size_t i = 0; format[i]; ++i) {
    if (format[i] == '%') ++percents;
    if (format[i] == '*' && format[i + 1] == '*') return 0;
    run = format[i] >= '0' && format[i] <= '9' ? run + 1 : 0;
    if (run > 2) return 0;
  }
  if (percents > 6) return 0;
  std::vector<NUV_UTF16> text(in, in + in_size);  // bytes as units
  text.push_back(0);
  alignas(16) static unsigned char dest[8][1024];
  sscanfU16(text.data(), format.data(), dest[0], dest[1], dest[2], dest[3], dest[4], dest[5], dest[6], dest[7]);
  // The same input as UTF-8 bytes in a file.
  static const uint8_t empty = 0;
  FILE* f = fmemopen(const_cast<uint8_t*>(in_size ? in : &empty), in_size ? in_size : 1, "r");
  if (f) {
    fscanfU16(f, format.data(), dest[0], dest[1], dest[2], dest[3], dest[4], dest[5], dest[6], dest[7]);
    std::fclose(f);
  }
  return 0;
}
