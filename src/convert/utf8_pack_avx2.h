// Packing of UTF-8 forms built in AVX2 lanes, shared by the converter's and
// the stream writer's encoders: byte-shuffle tables keyed by the lengths of
// the lanes, and the steps over 16 units below U+0800 and over 8 units of
// the BMP.  Only for files compiled for AVX2.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace nuv::rscp {

struct Pack {
  alignas(16) std::uint8_t shuffle[16];
  std::uint8_t length;
};

// Index: bit j set for a lane of two or more bytes, bit 4 + j for three.
struct PackTable {
  Pack e[256];
  constexpr PackTable() : e() {
    for (int key = 0; key < 256; ++key) {
      int pos = 0;
      for (int lane = 0; lane < 4; ++lane) {
        const int len = 1 + ((key >> lane) & 1) + ((key >> (4 + lane)) & 1);
        for (int b = 0; b < len; ++b) e[key].shuffle[pos++] = static_cast<std::uint8_t>(4 * lane + b);
      }
      e[key].length = static_cast<std::uint8_t>(pos);
      for (; pos < 16; ++pos) e[key].shuffle[pos] = 0x80;
    }
  }
};
inline constexpr PackTable kPack;

// Index: bit j set when unit j of eight takes two bytes (16-bit lanes).
struct PackTable2 {
  Pack e[256];
  constexpr PackTable2() : e() {
    for (int key = 0; key < 256; ++key) {
      int pos = 0;
      for (int unit = 0; unit < 8; ++unit) {
        e[key].shuffle[pos++] = static_cast<std::uint8_t>(2 * unit);
        if ((key >> unit) & 1) e[key].shuffle[pos++] = static_cast<std::uint8_t>(2 * unit + 1);
      }
      e[key].length = static_cast<std::uint8_t>(pos);
      for (; pos < 16; ++pos) e[key].shuffle[pos] = 0x80;
    }
  }
};
inline constexpr PackTable2 kPack2;

// Packs each 128-bit half of w by its table entry and stores the two results
// back to back; returns the bytes that count.
inline unsigned store_halves(__m256i w, const Pack& lo, const Pack& hi, void* dst) {
  const __m256i shuf = _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(lo.shuffle))),
      _mm_load_si128(reinterpret_cast<const __m128i*>(hi.shuffle)), 1);
  const __m256i packed = _mm256_shuffle_epi8(w, shuf);
  auto* out = static_cast<unsigned char*>(dst);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + lo.length), _mm256_extracti128_si256(packed, 1));
  return lo.length + hi.length;
}

// Sixteen units all below 0x800: each 16-bit lane becomes its one or two
// bytes in place, and each half is packed by one table entry.  Stores at
// most 16 + 16 bytes past out.
inline unsigned encode16_short(__m256i v, void* dst) {
  const __m256i m2 = _mm256_cmpgt_epi16(v, _mm256_set1_epi16(0x7F));
  const __m256i lead = _mm256_or_si256(_mm256_srli_epi16(v, 6), _mm256_set1_epi16(0xC0));
  const __m256i tail =
      _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(v, _mm256_set1_epi16(0x3F)), _mm256_set1_epi16(0x80)), 8);
  const __m256i w = _mm256_blendv_epi8(v, _mm256_or_si256(lead, tail), m2);
  const unsigned bits = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(m2, m2)));
  const Pack& lo = kPack2.e[bits & 0xFF];
  const Pack& hi = kPack2.e[(bits >> 16) & 0xFF];
  return store_halves(w, lo, hi, dst);
}

// Eight units (32-bit lanes, none a surrogate) to UTF-8.  Each 128-bit half
// holds four lanes and is packed by its own table entry; stores 32 bytes at
// most 24 + 16 past out, returns how many count.
inline unsigned encode8(__m256i u, void* dst) {
  const __m256i m2 = _mm256_cmpgt_epi32(u, _mm256_set1_epi32(0x7F));
  const __m256i m3 = _mm256_cmpgt_epi32(u, _mm256_set1_epi32(0x7FF));
  const __m256i six = _mm256_set1_epi32(0x3F);
  const __m256i cont = _mm256_set1_epi32(0x80);
  const __m256i last = _mm256_or_si256(_mm256_and_si256(u, six), cont);
  const __m256i mid = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(u, 6), six), cont);
  const __m256i w3 = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(u, 12), _mm256_set1_epi32(0xE0)),
                                     _mm256_or_si256(_mm256_slli_epi32(mid, 8), _mm256_slli_epi32(last, 16)));
  const __m256i w2 =
      _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0xC0)), _mm256_slli_epi32(last, 8));
  const __m256i w = _mm256_blendv_epi8(_mm256_blendv_epi8(u, w2, m2), w3, m3);
  const unsigned b2 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(m2)));
  const unsigned b3 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(m3)));
  const Pack& lo = kPack.e[(b2 & 15) | ((b3 & 15) << 4)];
  const Pack& hi = kPack.e[(b2 >> 4) | ((b3 >> 4) << 4)];
  return store_halves(w, lo, hi, dst);
}

}  // namespace nuv::rscp
