// Kernel choice and the SSE2 kernels (ASCII runs; every x86-64 has them).
#include "convert/utf_simd.h"

#include <emmintrin.h>

#include <atomic>

#include "common/cpu.h"

namespace nuv::rscp {

namespace {

void ascii8_to_16_sse2(const rscpUtf8** sp, const rscpUtf8* se, NUV_UTF16** dp, NUV_UTF16* de) {
  const rscpUtf8* s = *sp;
  NUV_UTF16* d = *dp;
  const __m128i zero = _mm_setzero_si128();
  while (se - s >= 16 && de - d >= 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 8), _mm_unpackhi_epi8(v, zero));
    if (high) {  // the units past the ASCII prefix are left for the scalar code
      const unsigned k = static_cast<unsigned>(__builtin_ctz(high));
      s += k, d += k;
      break;
    }
    s += 16, d += 16;
  }
  *sp = s, *dp = d;
}

void ascii16_to_8_sse2(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  const NUV_UTF16* s = *sp;
  rscpUtf8* d = *dp;
  const __m128i hi = _mm_set1_epi16(static_cast<short>(0xFF80));
  while (se - s >= 16 && de - d >= 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 8));
    const __m128i nonAscii = _mm_or_si128(_mm_and_si128(a, hi), _mm_and_si128(b, hi));
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(nonAscii, _mm_setzero_si128())) != 0xFFFF) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(a, b));
    s += 16, d += 16;
  }
  *sp = s, *dp = d;
}

// Null at the scalar level: the base routines alone.
const UtfKernels* choose() {
  if (cpu_has_avx512_vbmi2()) return &kUtfAvx512;
  if (nuv::cpu_has_avx2()) return &kUtfAvx2;
  return nuv::cpu_has_sse2() ? &kUtfSse2 : nullptr;
}

std::atomic<const UtfKernels*> g_override{nullptr};
std::atomic<bool> g_overridden{false};

}  // namespace

const UtfKernels kUtfSse2{"sse2", ascii8_to_16_sse2, ascii16_to_8_sse2};

bool cpu_has_avx512_vbmi2() { return nuv::cpu_has_avx512_vbmi2(); }

const UtfKernels* best_utf_kernels() {
  static const UtfKernels* const k = choose();
  return k;
}

const UtfKernels* utf_kernels() {
  if (g_overridden.load(std::memory_order_relaxed)) return g_override.load(std::memory_order_relaxed);
  return best_utf_kernels();
}

void set_utf_kernels(const UtfKernels* k) {
  g_override.store(k, std::memory_order_relaxed);
  g_overridden.store(true, std::memory_order_relaxed);
}

}  // namespace nuv::rscp
