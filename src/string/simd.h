// Vector shapes for the unit-scanning kernels.  scan_kernels.h is written once
// against these and compiled per instruction set in its own translation unit
// (SSE2 for every x86-64; AVX2 and AVX-512BW chosen at run time).
//
// eqmask() gives UPB bits per 16-bit lane, lowest address first.
#pragma once

#include <immintrin.h>

#include "common/nuv_internal.h"
#include <cstddef>
#include <cstdint>

namespace {

struct V128 {
  using T = __m128i;
  static constexpr std::size_t B = 16;
  static constexpr unsigned UPB = 2;
  static constexpr std::uint64_t all = 0xFFFF;
  static constexpr bool has_min = false;  // no unsigned 16-bit minimum in SSE2
  NUV_NO_ASAN static T load(const void* p) { return _mm_load_si128(static_cast<const T*>(p)); }
  static T loadu(const void* p) { return _mm_loadu_si128(static_cast<const T*>(p)); }
  static T set1(std::uint16_t c) { return _mm_set1_epi16(static_cast<short>(c)); }
  static T zero() { return _mm_setzero_si128(); }
  static T or_(T a, T b) { return _mm_or_si128(a, b); }
  static T xor_(T a, T b) { return _mm_xor_si128(a, b); }
  static T min(T a, T) { return a; }
  static T eq(T a, T b) { return _mm_cmpeq_epi16(a, b); }
  static std::uint64_t eqmask(T a, T b) { return static_cast<std::uint32_t>(_mm_movemask_epi8(eq(a, b))); }
  static bool nonzero(T t) { return _mm_movemask_epi8(_mm_cmpeq_epi8(t, zero())) != 0xFFFF; }
};

#ifdef __AVX2__
struct V256 {
  using T = __m256i;
  static constexpr std::size_t B = 32;
  static constexpr unsigned UPB = 2;
  static constexpr std::uint64_t all = 0xFFFFFFFFu;
  static constexpr bool has_min = true;
  NUV_NO_ASAN static T load(const void* p) { return _mm256_load_si256(static_cast<const T*>(p)); }
  static T loadu(const void* p) { return _mm256_loadu_si256(static_cast<const T*>(p)); }
  static T set1(std::uint16_t c) { return _mm256_set1_epi16(static_cast<short>(c)); }
  static T zero() { return _mm256_setzero_si256(); }
  static T or_(T a, T b) { return _mm256_or_si256(a, b); }
  static T xor_(T a, T b) { return _mm256_xor_si256(a, b); }
  static T min(T a, T b) { return _mm256_min_epu16(a, b); }
  static T eq(T a, T b) { return _mm256_cmpeq_epi16(a, b); }
  static std::uint64_t eqmask(T a, T b) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(eq(a, b))); }
  static bool nonzero(T t) { return !_mm256_testz_si256(t, t); }
};
#endif

#ifdef __AVX512BW__
struct V512 {
  using T = __m512i;
  static constexpr std::size_t B = 64;
  static constexpr unsigned UPB = 1;
  static constexpr std::uint64_t all = 0xFFFFFFFFu;
  static constexpr bool has_min = true;
  NUV_NO_ASAN static T load(const void* p) { return _mm512_load_si512(p); }
  static T loadu(const void* p) { return _mm512_loadu_si512(p); }
  static T set1(std::uint16_t c) { return _mm512_set1_epi16(static_cast<short>(c)); }
  static T zero() { return _mm512_setzero_si512(); }
  static T or_(T a, T b) { return _mm512_or_si512(a, b); }
  static T xor_(T a, T b) { return _mm512_xor_si512(a, b); }
  static T min(T a, T b) { return _mm512_min_epu16(a, b); }
  static std::uint64_t eqmask(T a, T b) { return _mm512_cmpeq_epi16_mask(a, b); }
  static bool nonzero(T t) { return _mm512_test_epi16_mask(t, t) != 0; }
};
#endif

}  // namespace
