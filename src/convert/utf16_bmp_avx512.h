// One AVX-512 (VBMI, VBMI2) step of UTF-16 -> UTF-8 encoding over units of
// the BMP, shared by the checking converter and the stream writer.  A step
// takes up to 32 units, stops before the first surrogate, and takes only the
// units whose bytes fit in the room it is given.  Loads are masked, so it
// reads no unit it was not offered; it writes nothing past the room (but may
// write past the bytes it reports, inside the room).  Only reached after the run-time VBMI2 check.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "nuvu16.h"

#define NUV_VBMI2 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,avx2,bmi,bmi2,lzcnt,popcnt")))

namespace nuv::rscp {

struct BmpStep {
  unsigned units, bytes;
};

// Units 0..15 (or 16..31) of a and lo gathered four bytes per unit:
// a's two bytes, then lo's low byte, then a byte never kept.
struct BmpGather {
  alignas(64) std::uint8_t idx[2][64];
  constexpr BmpGather() : idx() {
    for (int half = 0; half < 2; ++half)
      for (int j = 0; j < 16; ++j) {
        const int unit = 16 * half + j;
        idx[half][4 * j] = static_cast<std::uint8_t>(2 * unit);
        idx[half][4 * j + 1] = static_cast<std::uint8_t>(2 * unit + 1);
        idx[half][4 * j + 2] = static_cast<std::uint8_t>(64 + 2 * unit);
        idx[half][4 * j + 3] = static_cast<std::uint8_t>(64 + 2 * unit + 1);
      }
  }
};
inline constexpr BmpGather kBmpGather{};

// Lanes of the first units of a half that fit in room bytes, given the
// bytes each unit keeps (four mask bits per unit).
NUV_VBMI2 inline unsigned bmp_units_fitting(std::uint64_t keep, std::size_t room) {
  const std::uint64_t first_out = _pdep_u64(1ull << room, keep);  // the first byte that does not fit
  return static_cast<unsigned>(__builtin_ctzll(first_out)) / 4;
}

// The step's constants, loaded once per call of a kernel.
struct BmpConstTable {
  alignas(64) std::uint16_t w[11][32];
  constexpr BmpConstTable() : w() {
    const std::uint16_t v[8] = {0x2800, 0x800, 0xFF80, 0xF800, 0x3F, 0x80, 0x40, 0xE0};
    for (int i = 0; i < 8; ++i)
      for (int j = 0; j < 32; ++j) w[i][j] = v[i];
    for (int j = 0; j < 32; ++j) w[8][j] = j % 2 ? 0xFF : 0;  // 0xFF at the third byte of each unit's four
    for (int j = 0; j < 32; ++j) w[9][j] = 0xC0, w[10][j] = 0xFF;
  }
};
inline constexpr BmpConstTable kBmpConsts{};

struct BmpConsts {
  __m512i k2800, k800, kFF80, kF800, k3f, k80, k40, kE0, kLast, kC0, kLead, gather0, gather1;
  NUV_VBMI2 BmpConsts()
      : k2800(_mm512_load_si512(kBmpConsts.w[0])),
        k800(_mm512_load_si512(kBmpConsts.w[1])),
        kFF80(_mm512_load_si512(kBmpConsts.w[2])),
        kF800(_mm512_load_si512(kBmpConsts.w[3])),
        k3f(_mm512_load_si512(kBmpConsts.w[4])),
        k80(_mm512_load_si512(kBmpConsts.w[5])),
        k40(_mm512_load_si512(kBmpConsts.w[6])),
        kE0(_mm512_load_si512(kBmpConsts.w[7])),
        kLast(_mm512_load_si512(kBmpConsts.w[8])),
        kC0(_mm512_load_si512(kBmpConsts.w[9])),
        kLead(_mm512_load_si512(kBmpConsts.w[10])),
        gather0(_mm512_load_si512(kBmpGather.idx[0])),
        gather1(_mm512_load_si512(kBmpGather.idx[1])) {}
};

// v holds 32 units; the run ends before the first lane set in stop (or a
// surrogate).  Writes the bytes of the units taken at d, at most room.
// Narrow: a step of units below U+0800 only goes in 16-bit lanes, one
// compress for all 32 (worth it where such runs are long; a branch that
// mispredicts on text that mixes in three-byte units).
template <bool Narrow>
NUV_VBMI2 __attribute__((always_inline)) inline BmpStep bmp_step(const BmpConsts& c, __m512i v, std::uint32_t stop,
                                                                  unsigned char* d, std::size_t room) {
  const std::uint32_t sur = _mm512_cmplt_epu16_mask(_mm512_add_epi16(v, c.k2800), c.k800);
  unsigned units = static_cast<unsigned>(_tzcnt_u64(static_cast<std::uint64_t>(stop | sur) | (1ull << 32)));
  const __mmask32 ge80 = _mm512_test_epi16_mask(v, c.kFF80);
  if (units == 32 && ge80 == 0) {  // 32 ASCII units: tested only on whole steps, where it predicts well
    if (room >= 32) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm512_cvtepi16_epi8(v));
      return {32, 32};
    }
    _mm256_mask_storeu_epi8(d, _bzhi_u32(~0u, static_cast<unsigned>(room)), _mm512_cvtepi16_epi8(v));
    return {static_cast<unsigned>(room), static_cast<unsigned>(room)};
  }
  const __mmask32 ge800 = _mm512_test_epi16_mask(v, c.kF800);
  if constexpr (Narrow) {
    if (room >= 64 && (ge800 & _bzhi_u32(~0u, units)) == 0) {
      // Lead byte low, the other high; an ASCII unit stays itself.  A lead
      // byte is never 0xFF, and the high byte is 0 just for ASCII.
      const __m512i two = _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi16(v, 6), c.kC0),
                                          _mm512_slli_epi16(_mm512_ternarylogic_epi32(v, c.k3f, c.k80, 0xEA), 8));
      const __m512i w = _mm512_mask_mov_epi16(v, ge80, two);
      const std::uint64_t k = _mm512_mask_cmpneq_epi8_mask(_bzhi_u64(~0ull, 2 * units), w, c.kLead);
      _mm512_storeu_si512(d, _mm512_maskz_compress_epi8(k, w));
      const unsigned n = static_cast<unsigned>(__builtin_popcountll(k));
      return {units, n};
    }
  }
  // Per unit, in 16-bit lanes: lo is the last byte (the unit itself when
  // ASCII); a holds the lead byte of a three-byte form (else 0) and the
  // byte before the last (0xC0 | u >> 6 for a two-byte form; 0 for ASCII).
  // So the bytes kept are the non-zero ones of a, and lo (never 0xFF).
  const __m512i lo = _mm512_mask_mov_epi16(v, ge80, _mm512_ternarylogic_epi32(v, c.k3f, c.k80, 0xEA));
  const __m512i mid3 = _mm512_ternarylogic_epi32(_mm512_srli_epi16(v, 6), c.k3f, c.k80, 0xEA);
  const __m512i mid = _mm512_maskz_mov_epi16(ge80, _mm512_mask_add_epi16(mid3, ge80 & ~ge800, mid3, c.k40));
  const __m512i mid8 = _mm512_slli_epi16(mid, 8);
  const __m512i a = _mm512_mask_mov_epi16(mid8, ge800, _mm512_ternarylogic_epi32(_mm512_srli_epi16(v, 12), mid8, c.kE0, 0xFE));
  const __m512i w0 = _mm512_permutex2var_epi8(a, c.gather0, lo);
  const __m512i w1 = _mm512_permutex2var_epi8(a, c.gather1, lo);
  const unsigned u0 = units < 16 ? units : 16, u1 = units - u0;
  std::uint64_t k0 = _mm512_mask_cmpneq_epi8_mask(_bzhi_u64(~0ull, 4 * u0), w0, c.kLast);
  std::uint64_t k1 = _mm512_mask_cmpneq_epi8_mask(_bzhi_u64(~0ull, 4 * u1), w1, c.kLast);
  unsigned n0 = static_cast<unsigned>(__builtin_popcountll(k0)), n1 = static_cast<unsigned>(__builtin_popcountll(k1));
  if (__builtin_expect(room >= 112, 1)) {  // whole stores: at most 48 + 64 bytes
    _mm512_storeu_si512(d, _mm512_maskz_compress_epi8(k0, w0));
    _mm512_storeu_si512(d + n0, _mm512_maskz_compress_epi8(k1, w1));
    return {units, n0 + n1};
  }
  if (n0 + n1 > room) {  // the end of the room: whole units only
    if (n0 > room) {
      units = bmp_units_fitting(k0, room);
      k0 &= _bzhi_u64(~0ull, 4 * units);
      n0 = static_cast<unsigned>(__builtin_popcountll(k0));
      k1 = 0, n1 = 0;
    } else {
      const unsigned more = bmp_units_fitting(k1, room - n0);
      units = 16 + more;
      k1 &= _bzhi_u64(~0ull, 4 * more);
      n1 = static_cast<unsigned>(__builtin_popcountll(k1));
    }
  }
  _mm512_mask_storeu_epi8(d, _bzhi_u64(~0ull, n0), _mm512_maskz_compress_epi8(k0, w0));
  if (n1) _mm512_mask_storeu_epi8(d + n0, _bzhi_u64(~0ull, n1), _mm512_maskz_compress_epi8(k1, w1));
  return {units, n0 + n1};
}

// Encodes [*src, srcEnd) while no surrogate comes and each unit's bytes fit
// before destEnd; both pointers are left past what was converted.
template <bool Narrow>
NUV_VBMI2 inline void utf16_bmp_to_utf8_avx512(const NUV_UTF16** src, const NUV_UTF16* srcEnd, unsigned char** dest,
                                               unsigned char* destEnd) {
  const NUV_UTF16* s = *src;
  unsigned char* d = *dest;
  const BmpConsts c;
  while (s < srcEnd) {
    // Large blocks stream from memory: fetch a page ahead, across the page
    // boundaries where the hardware prefetcher stops.
    _mm_prefetch(reinterpret_cast<const char*>(s) + 4096, _MM_HINT_T0);
    const std::size_t left = static_cast<std::size_t>(srcEnd - s);
    const std::uint32_t avail = left >= 32 ? ~0u : _bzhi_u32(~0u, static_cast<unsigned>(left));
    const BmpStep st =
        bmp_step<Narrow>(c, _mm512_maskz_loadu_epi16(avail, s), ~avail, d, static_cast<std::size_t>(destEnd - d));
    s += st.units, d += st.bytes;
    if (st.units < 32) break;
  }
  *src = s, *dest = d;
}

}  // namespace nuv::rscp
