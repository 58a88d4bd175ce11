// Dispatch of the unit-scanning kernels, and the plain scalar references that
// tests and fuzzers hold the vector kernels against.
#pragma once

#include <cstddef>

#include "common/cpu.h"
#include "common/nuv_internal.h"

namespace nuv {

struct ScanKernels {
  std::size_t (*strlen)(const char16_t*);           // even start
  std::size_t (*strnlen)(const char16_t*, std::size_t);  // even start, max > 0
  const char16_t* (*strchr)(const char16_t*, char16_t);  // even start
  const char16_t* (*strchrnul)(const char16_t*, char16_t);  // even start; the unit or the terminator
  const char16_t* (*memchr)(const char16_t*, char16_t, std::size_t);
  int (*memcmp)(const char16_t*, const char16_t*, std::size_t);
};

extern const ScanKernels kScanScalar;  // the references below
extern const ScanKernels kScanSse2;
extern const ScanKernels kScanAvx2;    // only valid at the avx2 level
extern const ScanKernels kScanAvx512;  // only valid at the avx512 level
// The table for a CPU level (cpu.h).
const ScanKernels* scan_kernels_for(int level);
// The one for this CPU's level; chosen before main, SSE2 until then.
extern const ScanKernels* g_scan;
inline const ScanKernels& scan_kernels() { return *g_scan; }

// Scalar references: the word-at-a-time zero test on aligned 64-bit words.
std::size_t strlen_ref(const char16_t* s);
std::size_t strnlen_ref(const char16_t* s, std::size_t max);

inline const char16_t* strchr_ref(const char16_t* s, char16_t c) {
  for (;; ++s) {
    char16_t u = unit_at(s);
    if (u == c) return s;
    if (u == 0) return nullptr;
  }
}

inline const char16_t* strchrnul_ref(const char16_t* s, char16_t c) {
  for (;; ++s) {
    char16_t u = unit_at(s);
    if (u == c || u == 0) return s;
  }
}

inline const char16_t* memchr_ref(const char16_t* s, char16_t c, std::size_t n) {
  for (; n; --n, ++s)
    if (unit_at(s) == c) return s;
  return nullptr;
}

inline int memcmp_ref(const char16_t* a, const char16_t* b, std::size_t n) {
  for (; n; --n, ++a, ++b) {
    char16_t x = unit_at(a), y = unit_at(b);
    if (x != y) return int(x) - int(y);
  }
  return 0;
}


}  // namespace nuv
