// UTF-8 encode steps for units in AVX2 registers, shared by the converter's
// and the stream writer's encoders: byte-shuffle tables keyed by the lengths
// of the lanes, a small register layer for 128- and 256-bit widths, and the
// steps over units below U+0800 (16-bit lanes), over units of the BMP
// (32-bit lanes) and over sixteen units without surrogates.  Only for files
// compiled for AVX2.
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

inline __m128i load_shuffle(const Pack& p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p.shuffle)); }

// Packs each 128-bit half of w by its table entry and stores the two results
// back to back; returns the bytes that count.
inline unsigned store_halves(__m256i w, const Pack& lo, const Pack& hi, void* dst) {
  const __m256i shuf = _mm256_inserti128_si256(_mm256_castsi128_si256(load_shuffle(lo)), load_shuffle(hi), 1);
  const __m256i packed = _mm256_shuffle_epi8(w, shuf);
  auto* out = static_cast<unsigned char*>(dst);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + lo.length), _mm256_extracti128_si256(packed, 1));
  return lo.length + hi.length;
}

// The two register widths the steps are written for: X (four 32-bit or
// eight 16-bit lanes) and Y (twice that, each 128-bit half packed by its own
// table entry).  mask16 gives the low half's eight lane bits at 0 and the
// high half's at 16; store() packs by the entries of the halves.
struct X {
  using T = __m128i;
  static T set16(int c) { return _mm_set1_epi16(static_cast<short>(c)); }
  static T set32(int c) { return _mm_set1_epi32(c); }
  static T and_(T a, T b) { return _mm_and_si128(a, b); }
  static T or_(T a, T b) { return _mm_or_si128(a, b); }
  static T blend(T a, T b, T m) { return _mm_blendv_epi8(a, b, m); }
  static T gt16(T a, int c) { return _mm_cmpgt_epi16(a, set16(c)); }
  static T gt32(T a, int c) { return _mm_cmpgt_epi32(a, set32(c)); }
  template <int N> static T srl16(T a) { return _mm_srli_epi16(a, N); }
  template <int N> static T sll16(T a) { return _mm_slli_epi16(a, N); }
  template <int N> static T srl32(T a) { return _mm_srli_epi32(a, N); }
  template <int N> static T sll32(T a) { return _mm_slli_epi32(a, N); }
  static unsigned mask32(T m) { return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(m))); }
  static unsigned mask16(T m) { return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(m, m))) & 0xFF; }
  static unsigned store(T w, const Pack& lo, const Pack&, void* out) {
    _mm_storeu_si128(static_cast<__m128i*>(out), _mm_shuffle_epi8(w, load_shuffle(lo)));
    return lo.length;
  }
};

struct Y {
  using T = __m256i;
  static T set16(int c) { return _mm256_set1_epi16(static_cast<short>(c)); }
  static T set32(int c) { return _mm256_set1_epi32(c); }
  static T and_(T a, T b) { return _mm256_and_si256(a, b); }
  static T or_(T a, T b) { return _mm256_or_si256(a, b); }
  static T blend(T a, T b, T m) { return _mm256_blendv_epi8(a, b, m); }
  static T gt16(T a, int c) { return _mm256_cmpgt_epi16(a, set16(c)); }
  static T gt32(T a, int c) { return _mm256_cmpgt_epi32(a, set32(c)); }
  template <int N> static T srl16(T a) { return _mm256_srli_epi16(a, N); }
  template <int N> static T sll16(T a) { return _mm256_slli_epi16(a, N); }
  template <int N> static T srl32(T a) { return _mm256_srli_epi32(a, N); }
  template <int N> static T sll32(T a) { return _mm256_slli_epi32(a, N); }
  static unsigned mask32(T m) { return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(m))); }
  // packs works per half, so the halves' bits land at 0 and 16.
  static unsigned mask16(T m) { return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(m, m))); }
  static unsigned store(T w, const Pack& lo, const Pack& hi, void* out) { return store_halves(w, lo, hi, out); }
};

// Units all below 0x800 in 16-bit lanes: each lane becomes its one or two
// bytes in place, packed by one table entry per eight lanes.
template <class V>
inline unsigned encode_short(typename V::T v, void* out) {
  const auto m2 = V::gt16(v, 0x7F);
  const auto lead = V::or_(V::template srl16<6>(v), V::set16(0xC0));
  const auto tail = V::template sll16<8>(V::or_(V::and_(v, V::set16(0x3F)), V::set16(0x80)));
  const unsigned bits = V::mask16(m2);
  return V::store(V::blend(v, V::or_(lead, tail), m2), kPack2.e[bits & 0xFF], kPack2.e[(bits >> 16) & 0xFF], out);
}

// Units (none a surrogate) in 32-bit lanes, each made its 1 to 3 bytes in
// place and packed by one table entry per four lanes.
template <class V>
inline unsigned encode_wide(typename V::T u, void* out) {
  const auto m2 = V::gt32(u, 0x7F), m3 = V::gt32(u, 0x7FF);
  const auto six = V::set32(0x3F), cont = V::set32(0x80);
  const auto last = V::or_(V::and_(u, six), cont);
  const auto mid = V::or_(V::and_(V::template srl32<6>(u), six), cont);
  const auto w3 = V::or_(V::or_(V::template srl32<12>(u), V::set32(0xE0)),
                         V::or_(V::template sll32<8>(mid), V::template sll32<16>(last)));
  const auto w2 = V::or_(V::or_(V::template srl32<6>(u), V::set32(0xC0)), V::template sll32<8>(last));
  const unsigned b2 = V::mask32(m2), b3 = V::mask32(m3);
  return V::store(V::blend(V::blend(u, w2, m2), w3, m3), kPack.e[(b2 & 15) | ((b3 & 15) << 4)],
                  kPack.e[(b2 >> 4) | ((b3 >> 4) << 4)], out);
}

// Three-byte forms of the units in 32-bit lanes (lead byte lowest).
inline __m256i three_byte_forms(__m256i u) {
  const __m256i cont = _mm256_set1_epi32(0x80), six = _mm256_set1_epi32(0x3F);
  return _mm256_or_si256(
      _mm256_or_si256(_mm256_or_si256(_mm256_set1_epi32(0xE0), _mm256_srli_epi32(u, 12)),
                      _mm256_slli_epi32(_mm256_or_si256(cont, _mm256_and_si256(_mm256_srli_epi32(u, 6), six)), 8)),
      _mm256_slli_epi32(_mm256_or_si256(cont, _mm256_and_si256(u, six)), 16));
}

// Sixteen units of any length (none a surrogate) without widening: each
// 16-bit lane gets its first two bytes in one register and its third in
// another; interleaving the two gives 32-bit lanes of four units per half,
// each four packed by one table entry.  Stores at most 52 bytes past out.
inline unsigned encode16_mixed(__m256i v, unsigned char* d) {
  const __m256i six = _mm256_set1_epi16(0x3F), cont = _mm256_set1_epi16(0x80);
  const __m256i ascii = _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80))),
                                           _mm256_setzero_si256());
  const __m256i below800 = _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800))),
                                              _mm256_setzero_si256());
  const __m256i last = _mm256_or_si256(_mm256_and_si256(v, six), cont);
  const __m256i v6 = _mm256_srli_epi16(v, 6);
  const __m256i two = _mm256_or_si256(_mm256_or_si256(v6, _mm256_set1_epi16(0xC0)), _mm256_slli_epi16(last, 8));
  const __m256i three = _mm256_or_si256(
      _mm256_or_si256(_mm256_srli_epi16(v, 12), _mm256_set1_epi16(0xE0)),
      _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(v6, six), cont), 8));
  const __m256i first = _mm256_blendv_epi8(_mm256_blendv_epi8(three, two, below800), v, ascii);
  const __m256i lo = _mm256_unpacklo_epi16(first, last);  // units 0-3 | 8-11
  const __m256i hi = _mm256_unpackhi_epi16(first, last);  // units 4-7 | 12-15
  // Per half, the packed bytes hold eight lanes of two-or-more, then eight
  // of three; reordered so that each byte of the mask is one table key.
  const __m256i keys = _mm256_shuffle_epi8(
      _mm256_packs_epi16(_mm256_xor_si256(ascii, _mm256_set1_epi8(-1)), _mm256_xor_si256(below800, _mm256_set1_epi8(-1))),
      _mm256_setr_epi8(0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15, 0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12,
                       13, 14, 15));
  const unsigned m = static_cast<unsigned>(_mm256_movemask_epi8(keys));
  const Pack& p0 = kPack.e[m & 0xFF];
  const Pack& p1 = kPack.e[(m >> 8) & 0xFF];
  const Pack& p2 = kPack.e[(m >> 16) & 0xFF];
  const Pack& p3 = kPack.e[m >> 24];
  const __m256i a = _mm256_shuffle_epi8(lo, _mm256_inserti128_si256(_mm256_castsi128_si256(load_shuffle(p0)), load_shuffle(p2), 1));
  const __m256i b = _mm256_shuffle_epi8(hi, _mm256_inserti128_si256(_mm256_castsi128_si256(load_shuffle(p1)), load_shuffle(p3), 1));
  const unsigned n0 = p0.length, n1 = n0 + p1.length, n2 = n1 + p2.length;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(a));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n0), _mm256_castsi256_si128(b));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n1), _mm256_extracti128_si256(a, 1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n2), _mm256_extracti128_si256(b, 1));
  return n2 + p3.length;
}

// Sixteen units without surrogates; stores at most 52 bytes past out and
// returns how many count.  ASCII, all three-byte (CJK) and all below 0x800
// each take one short step.
__attribute__((always_inline)) inline unsigned encode16(__m256i v, void* out) {
  auto* d = static_cast<unsigned char*>(out);
  const __m128i a = _mm256_castsi256_si128(v), b = _mm256_extracti128_si256(v, 1);
  if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80)))) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(a, b));
    return 16;
  }
  const __m256i top5 = _mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800)));
  const __m256i below800 = _mm256_cmpeq_epi16(top5, _mm256_setzero_si256());
  if (_mm256_testz_si256(below800, below800)) {
    alignas(16) static constexpr std::uint8_t kPack3[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14,
                                                            0x80, 0x80, 0x80, 0x80};
    const __m256i pack3 = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kPack3)));
    const __m256i p = _mm256_shuffle_epi8(three_byte_forms(_mm256_cvtepu16_epi32(a)), pack3);
    const __m256i q = _mm256_shuffle_epi8(three_byte_forms(_mm256_cvtepu16_epi32(b)), pack3);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(p));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 12), _mm256_extracti128_si256(p, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 24), _mm256_castsi256_si128(q));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 36), _mm256_extracti128_si256(q, 1));
    return 48;
  }
  if (_mm256_testz_si256(top5, top5)) return encode_short<Y>(v, d);
  return encode16_mixed(v, d);
}

}  // namespace nuv::rscp
