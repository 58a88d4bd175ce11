// Dispatch of the unit-scanning kernels, and the plain scalar references that
// tests and fuzzers hold the vector kernels against.
#pragma once

#include <cstddef>

namespace nuv {

struct ScanKernels {
  std::size_t (*strlen)(const char16_t*);           // even start
  std::size_t (*strnlen)(const char16_t*, std::size_t);  // even start, max > 0
  const char16_t* (*strchr)(const char16_t*, char16_t);  // even start
  const char16_t* (*memchr)(const char16_t*, char16_t, std::size_t);
  int (*memcmp)(const char16_t*, const char16_t*, std::size_t);
};

extern const ScanKernels kScanSse2;
extern const ScanKernels kScanAvx2;  // only valid when the CPU has AVX2
bool cpu_has_avx2();
const ScanKernels& scan_kernels();  // the best for this CPU

// Scalar references: the word-at-a-time zero test on aligned 64-bit words.
std::size_t strlen_ref(const char16_t* s);
std::size_t strnlen_ref(const char16_t* s, std::size_t max);
const char16_t* strchr_ref(const char16_t* s, char16_t c);
const char16_t* memchr_ref(const char16_t* s, char16_t c, std::size_t n);
int memcmp_ref(const char16_t* a, const char16_t* b, std::size_t n);

}  // namespace nuv
