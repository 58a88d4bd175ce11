// The '%'-or-end scan of format literals, 32 units per test.  Reached only
// after the run-time AVX2 check.
#include <immintrin.h>

#include <cstdint>

#include "common/nuv_internal.h"

namespace {

// May read past the terminator inside its aligned block.
NUV_NO_ASAN inline __m256i hits(const NUV_UTF16* q, __m256i pct, __m256i zero) {
  const __m256i v = _mm256_load_si256(reinterpret_cast<const __m256i*>(q));
  return _mm256_or_si256(_mm256_cmpeq_epi16(v, pct), _mm256_cmpeq_epi16(v, zero));
}

}  // namespace

namespace nuv {

// p is even-aligned.  Whole aligned blocks never cross a page; they may read
// past the terminator inside their own block.
NUV_NO_ASAN const NUV_UTF16* find_directive_avx2(const NUV_UTF16* p) {
  while (reinterpret_cast<std::uintptr_t>(p) & 31) {
    if (*p == '%' || *p == 0) return p;
    ++p;
  }
  const __m256i pct = _mm256_set1_epi16('%');
  const __m256i zero = _mm256_setzero_si256();
  if (reinterpret_cast<std::uintptr_t>(p) & 63) {
    const unsigned m = static_cast<unsigned>(_mm256_movemask_epi8(hits(p, pct, zero)));
    if (m) return p + (__builtin_ctz(m) >> 1);
    p += 16;
  }
  for (;; p += 32) {
    const __m256i a = hits(p, pct, zero), b = hits(p + 16, pct, zero);
    if (_mm256_testz_si256(_mm256_or_si256(a, b), _mm256_or_si256(a, b))) continue;
    const unsigned ma = static_cast<unsigned>(_mm256_movemask_epi8(a));
    if (ma) return p + (__builtin_ctz(ma) >> 1);
    return p + 16 + (__builtin_ctz(static_cast<unsigned>(_mm256_movemask_epi8(b))) >> 1);
  }
}

}  // namespace nuv
