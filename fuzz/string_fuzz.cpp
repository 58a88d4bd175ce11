// Vector scan kernels against their scalar references, and the bounded
// copies and invalid-UTF-8 report on arbitrary input.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nuvu16.h"
#include "string/scan.h"

static int quiet(const char*, int len) { return len; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const unsigned offset = data[0] % 16;
  const char16_t needle = static_cast<char16_t>(data[1] | (data[2] << 8));
  const size_t max = data[3];
  const size_t count = data[0] >> 2;
  data += 4;
  size -= 4;
  // Units after an arbitrary offset inside an aligned buffer, terminated.
  const size_t n = size / 2;
  std::vector<char16_t> buf(n + offset + 1 + 32);
  std::memcpy(buf.data() + offset, data, n * 2);
  buf[offset + n] = 0;
  const char16_t* s = buf.data() + offset;

  for (int level = nuv::kCpuSse2; level <= nuv::cpu().level; ++level) {
    const nuv::ScanKernels* k = nuv::scan_kernels_for(level);
    if (k->strlen(s) != nuv::strlen_ref(s)) abort();
    if (k->strchrnul(s, needle) != nuv::strchrnul_ref(s, needle)) abort();
    if (max && k->strnlen(s, max) != nuv::strnlen_ref(s, max)) abort();
    if (k->strchr(s, needle) != nuv::strchr_ref(s, needle)) abort();
    if (k->memchr(s, needle, n) != nuv::memchr_ref(s, needle, n)) abort();
    const char16_t* t = reinterpret_cast<const char16_t*>(buf.data()) + (offset ^ 1);
    size_t m = n ? n - 1 : 0;
    int a = k->memcmp(s, t, m), b = nuv::memcmp_ref(s, t, m);
    if (a != b) abort();
  }

  std::vector<char16_t> dest(max + 2, u'~');
  strcpy_sU16(dest.data(), max, s);
  strncpy_sU16(dest.data(), max, s, count);
  if (max) dest[max - 1] = 0;
  strcat_sU16(dest.data(), max, s);
  strncat_sU16(dest.data(), max, s, count);
  if (dest[max] != u'~' || dest[max + 1] != u'~') abort();

  std::vector<char> narrow(reinterpret_cast<const char*>(data), reinterpret_cast<const char*>(data) + size);
  narrow.push_back(0);
  uint32_t level = u16_trace_level;
  u16_set_trace_func(quiet);
  u16_trace_level = 1;
  std::vector<NUV_UTF16> target(max + 1);
  u16_utf8conv_error(target.data(), narrow.data(), static_cast<long>(max), "fuzz", 1, "fuzz");
  u16_utf8conv_error(nullptr, narrow.data(), 0, "fuzz", 1, "fuzz");
  u16_trace_level = level;
  return 0;
}
