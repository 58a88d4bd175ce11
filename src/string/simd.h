// Vector shapes for the unit-scanning kernels.  scan_kernels.h is written once
// against these and compiled twice: SSE2 (every x86-64) and AVX2 (its own TU,
// chosen at run time).
#pragma once

#include <immintrin.h>
#include <cstddef>
#include <cstdint>

namespace {

struct V128 {
  using T = __m128i;
  static constexpr std::size_t B = 16;
  __attribute__((no_sanitize_address)) static T load(const void* p) { return _mm_load_si128(static_cast<const T*>(p)); }
  static T loadu(const void* p) { return _mm_loadu_si128(static_cast<const T*>(p)); }
  static void storeu(void* p, T v) { _mm_storeu_si128(static_cast<T*>(p), v); }
  static T set1(std::uint16_t c) { return _mm_set1_epi16(static_cast<short>(c)); }
  static T zero() { return _mm_setzero_si128(); }
  static T eq(T a, T b) { return _mm_cmpeq_epi16(a, b); }
  static T or_(T a, T b) { return _mm_or_si128(a, b); }
  static T and_(T a, T b) { return _mm_and_si128(a, b); }
  // Two mask bits per unit.
  static std::uint64_t mask(T a) { return static_cast<std::uint32_t>(_mm_movemask_epi8(a)); }
  static constexpr std::uint64_t all = 0xFFFF;
};

#ifdef __AVX2__
struct V256 {
  using T = __m256i;
  static constexpr std::size_t B = 32;
  __attribute__((no_sanitize_address)) static T load(const void* p) { return _mm256_load_si256(static_cast<const T*>(p)); }
  static T loadu(const void* p) { return _mm256_loadu_si256(static_cast<const T*>(p)); }
  static void storeu(void* p, T v) { _mm256_storeu_si256(static_cast<T*>(p), v); }
  static T set1(std::uint16_t c) { return _mm256_set1_epi16(static_cast<short>(c)); }
  static T zero() { return _mm256_setzero_si256(); }
  static T eq(T a, T b) { return _mm256_cmpeq_epi16(a, b); }
  static T or_(T a, T b) { return _mm256_or_si256(a, b); }
  static T and_(T a, T b) { return _mm256_and_si256(a, b); }
  static std::uint64_t mask(T a) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(a)); }
  static constexpr std::uint64_t all = 0xFFFFFFFFu;
};
#endif

}  // namespace
