// The block decoder of fgetsU16, written once over a small vector layer and
// compiled per instruction set in one-line files (line_ssse3.cpp,
// line_avx2.cpp, line_avx512vbmi2.cpp); fgets.cpp chooses one by the CPU level.
//
// A run decodes whole blocks of the FILE buffer in place while both the
// buffer and the destination hold a block: 64 bytes of ASCII are only
// widened; a block of ASCII and valid two- and three-byte characters (not
// overlong) is decoded without a branch per character, up to and including
// a newline (then true: the line is complete), less a character its end
// cuts off.  Other blocks store their ASCII prefix and decode one character
// the plain way; anything else (four-byte or bad sequences, the buffer's
// end) is left to the caller.  Loads stay inside [p, e).
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "stream/utf8_decode.h"

namespace nuv {

using LineRun = bool (*)(CachedBytes&, NUV_UTF16*&, NUV_UTF16*);
bool line_run_ssse3(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit);
bool line_run_avx2(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit);
bool line_run_avx512(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit);  // with VBMI2

inline bool utf8_cont(unsigned char b) { return (b & 0xC0) == 0x80; }

// One stop inside a block whose bytes in front of it are ASCII and stored
// already: decodes a valid two- or three-byte character in place; false
// sends the caller to the general path.  Overlong forms (C0, C1, E0 80..9F)
// can spell a newline, so they take the general path too.
__attribute__((always_inline)) inline bool step_at_stop(const char*& p, const char* e, NUV_UTF16*& o,
                                                        std::uint64_t stop) {
  const unsigned k = static_cast<unsigned>(__builtin_ctzll(stop));
  p += k;
  o += k;
  const auto* q = reinterpret_cast<const unsigned char*>(p);
  const unsigned b = q[0];
  if (e - p >= 3) {
    if ((b & 0xE0) == 0xC0 && b >= 0xC2 && utf8_cont(q[1])) {
      *o++ = static_cast<NUV_UTF16>(((b & 0x1F) << 6) | (q[1] & 0x3F));
      p += 2;
      return true;
    }
    if ((b & 0xF0) == 0xE0 && utf8_cont(q[1]) && utf8_cont(q[2]) && (b != 0xE0 || q[1] >= 0xA0)) {
      *o++ = static_cast<NUV_UTF16>(((b & 0x0F) << 12) | ((q[1] & 0x3F) << 6) | (q[2] & 0x3F));
      p += 3;
      return true;
    }
  }
  return false;
}

// The layer V gives: B bytes a block, `need` bytes readable from a block's
// start, block type I, mask type M; load; byte masks (bit i for byte i); widen (B units
// of an ASCII block); ascii64 (64 bytes all ASCII: widened and stored, the
// newline mask returned); decode (the units of a valid block whose first
// `take` bytes are kept, packed to o; returns how many).
template <class V>
bool line_run(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) {
  using M = typename V::M;  // one bit a byte of the block
  constexpr unsigned B = V::B;
  const char* p = in.p;
  const char* const e = in.e;
  NUV_UTF16* o = out;
  const V c{};
  while (e - p >= V::need && limit - o >= static_cast<long>(B)) {
    // The test is on 64 bytes so that it is rarely true on text that has a
    // few non-ASCII characters, and then the branch predicts well either way.
    if (e - p >= 64 && limit - o >= 64) {
      std::uint64_t nl64;
      if (c.ascii64(p, o, &nl64)) {
        if (nl64) {
          const unsigned k = static_cast<unsigned>(__builtin_ctzll(nl64)) + 1;
          in.p = const_cast<char*>(p + k);
          out = o + k;
          return true;
        }
        p += 64;
        o += 64;
        continue;
      }
    }
    const auto v = c.load(p);
    const M newline = c.eq(v, '\n');
    const M high = c.high(v);
    // A character its last bytes start is cut off and waits for the next
    // block; found from two bytes so that the next block's address does not
    // wait for the vector masks.
    const auto* q = reinterpret_cast<const unsigned char*>(p);
    unsigned take = B - (q[B - 1] >= 0xC0) - 2 * (q[B - 2] >= 0xE0);
    if (newline) take = static_cast<unsigned>(__builtin_ctzll(newline)) + 1;
    const M span = take >= 8 * sizeof(M) ? ~M{0} : (M{1} << take) - 1;
    const M conts = c.masked_eq(v, 0xC0, 0x80) & span;
    const M lead2 = c.masked_eq(v, 0xE0, 0xC0) & span;
    const M lead3 = c.masked_eq(v, 0xF0, 0xE0) & span;
    const M overlong = c.masked_eq(v, 0xFE, 0xC0) | ((c.eq(v, 0xE0) << 1) & c.masked_eq(v, 0xE0, 0x80));
    // Valid when every byte >= 0x80 is a lead or a continuation and the
    // continuations are exactly those the leads call for.
    if ((high & span & ~(conts | lead2 | lead3)) == 0 && (overlong & span) == 0 &&
        conts == ((lead2 << 1) | (lead3 << 1) | (lead3 << 2))) {
      o += c.decode(p, v, ~conts & span, o);
      p += take;
      if (newline) {
        in.p = const_cast<char*>(p);
        out = o;
        return true;
      }
      continue;
    }
    c.widen(v, o);
    if (!step_at_stop(p, e, o, high | newline)) break;
  }
  in.p = const_cast<char*>(p);
  out = o;
  return false;
}

// The 16-bit lanes of a block's characters, each computed at its lead byte
// (a lone byte, or lead, second and third): ASCII as it is, two bytes as
// 5 + 6 bits, three as 4 + 6 + 6 (the shift by 12 drops the rest).  W::eq
// gives what W::blend takes: a vector, or a mask register.
template <class W>
inline typename W::T utf8_lanes(const W& w, typename W::T a, typename W::T b, typename W::T c3) {
  b = W::and_(b, w.x3f);
  c3 = W::and_(c3, w.x3f);
  const auto t2 = W::or_(W::slli(W::and_(a, w.x1f), 6), b);
  const auto t3 = W::or_(W::or_(W::slli(a, 12), W::slli(b, 6)), c3);
  const auto is2 = W::eq(W::and_(a, w.xe0), w.xc0);
  const auto is3 = W::eq(W::and_(a, w.xf0), w.xe0);
  return W::blend(W::blend(a, t2, is2), t3, is3);
}

// pshufb patterns that pack the kept 16-bit lanes of an 8-lane half to the front.
struct HalfPackTable {
  alignas(16) unsigned char shuffle[256][16];
  constexpr HalfPackTable() : shuffle{} {
    for (int m = 0; m < 256; ++m) {
      int j = 0;
      for (int lane = 0; lane < 8; ++lane)
        if (m & (1 << lane)) {
          shuffle[m][2 * j] = static_cast<unsigned char>(2 * lane);
          shuffle[m][2 * j + 1] = static_cast<unsigned char>(2 * lane + 1);
          ++j;
        }
      for (; j < 8; ++j) shuffle[m][2 * j] = shuffle[m][2 * j + 1] = 0x80;
    }
  }
};
inline constexpr HalfPackTable kHalfPack;

}  // namespace nuv

namespace {

#ifdef __SSSE3__
// 16-bit lanes of SSE registers, for the lane arithmetic.
struct W128 {
  using T = __m128i;
  const T x1f = _mm_set1_epi16(0x1F), x3f = _mm_set1_epi16(0x3F), xc0 = _mm_set1_epi16(0xC0),
          xe0 = _mm_set1_epi16(0xE0), xf0 = _mm_set1_epi16(0xF0);
  static T and_(T a, T b) { return _mm_and_si128(a, b); }
  static T or_(T a, T b) { return _mm_or_si128(a, b); }
  static T eq(T a, T b) { return _mm_cmpeq_epi16(a, b); }
  static T slli(T a, int n) { return _mm_slli_epi16(a, n); }
  static T blend(T a, T b, T m) { return _mm_or_si128(_mm_and_si128(m, b), _mm_andnot_si128(m, a)); }
};

inline void pack_half(NUV_UTF16*& o, __m128i lanes, unsigned keep8) {
  const __m128i shuf = _mm_load_si128(reinterpret_cast<const __m128i*>(nuv::kHalfPack.shuffle[keep8]));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_shuffle_epi8(lanes, shuf));
  o += __builtin_popcount(keep8);
}

// SSSE3: 16-byte blocks; the bytes after each lead come from shifts of the
// block (the last two are never leads of a kept character).
struct Line128 {
  using I = __m128i;
  using M = std::uint32_t;
  static constexpr unsigned B = 16;
  static constexpr long need = 16;
  const W128 w{};
  const __m128i zero = _mm_setzero_si128();
  static I load(const char* p) { return _mm_loadu_si128(reinterpret_cast<const I*>(p)); }
  static std::uint32_t high(I v) { return static_cast<unsigned>(_mm_movemask_epi8(v)); }
  static std::uint32_t eq(I v, int b) {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(b)))));
  }
  static std::uint32_t masked_eq(I v, int m, int b) {
    return eq(_mm_and_si128(v, _mm_set1_epi8(static_cast<char>(m))), b);
  }
  void widen(I v, NUV_UTF16* o) const {
    _mm_storeu_si128(reinterpret_cast<I*>(o), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<I*>(o + 8), _mm_unpackhi_epi8(v, zero));
  }
  bool ascii64(const char* p, NUV_UTF16* o, std::uint64_t* nl) const {
    const I q[4] = {load(p), load(p + 16), load(p + 32), load(p + 48)};
    if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(q[0], q[1]), _mm_or_si128(q[2], q[3])))) return false;
    std::uint64_t m = 0;
    for (int i = 0; i < 4; ++i) {
      widen(q[i], o + 16 * i);
      m |= static_cast<std::uint64_t>(eq(q[i], '\n')) << (16 * i);
    }
    *nl = m;
    return true;
  }
  unsigned decode(const char*, I v, std::uint32_t keep, NUV_UTF16* o) const {
    const I n1 = _mm_srli_si128(v, 1), n2 = _mm_srli_si128(v, 2);
    const I lo = nuv::utf8_lanes(w, _mm_unpacklo_epi8(v, zero), _mm_unpacklo_epi8(n1, zero), _mm_unpacklo_epi8(n2, zero));
    const I hi = nuv::utf8_lanes(w, _mm_unpackhi_epi8(v, zero), _mm_unpackhi_epi8(n1, zero), _mm_unpackhi_epi8(n2, zero));
    NUV_UTF16* const start = o;
    pack_half(o, lo, keep & 0xFF);
    pack_half(o, hi, keep >> 8);
    return static_cast<unsigned>(o - start);
  }
};
#endif

#ifdef __AVX2__
struct W256 {
  using T = __m256i;
  const T x1f = _mm256_set1_epi16(0x1F), x3f = _mm256_set1_epi16(0x3F), xc0 = _mm256_set1_epi16(0xC0),
          xe0 = _mm256_set1_epi16(0xE0), xf0 = _mm256_set1_epi16(0xF0);
  static T and_(T a, T b) { return _mm256_and_si256(a, b); }
  static T or_(T a, T b) { return _mm256_or_si256(a, b); }
  static T eq(T a, T b) { return _mm256_cmpeq_epi16(a, b); }
  static T slli(T a, int n) { return _mm256_slli_epi16(a, n); }
  static T blend(T a, T b, T m) { return _mm256_blendv_epi8(a, b, m); }
};

inline __m256i widen16(const char* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// AVX2: 64-byte blocks in two registers; each quarter of sixteen lanes is
// computed from three widened loads and packed by 8-lane pieces through the
// pshufb table.
struct Line256 {
  struct I {
    __m256i a, b;
  };
  using M = std::uint64_t;
  static constexpr unsigned B = 64;
  static constexpr long need = 66;  // p + 1 and p + 2 are loaded too
  const W256 w{};
  static __m256i load32(const char* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
  static I load(const char* p) { return {load32(p), load32(p + 32)}; }
  static M join(__m256i x, __m256i y) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(x)) |
           static_cast<M>(static_cast<std::uint32_t>(_mm256_movemask_epi8(y))) << 32;
  }
  static M high(I v) { return join(v.a, v.b); }
  static M eq(I v, int b) {
    const __m256i c = _mm256_set1_epi8(static_cast<char>(b));
    return join(_mm256_cmpeq_epi8(v.a, c), _mm256_cmpeq_epi8(v.b, c));
  }
  static M masked_eq(I v, int m, int b) {
    const __m256i k = _mm256_set1_epi8(static_cast<char>(m));
    return eq({_mm256_and_si256(v.a, k), _mm256_and_si256(v.b, k)}, b);
  }
  static void widen32(__m256i v, NUV_UTF16* o) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o), _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + 16), _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
  }
  static void widen(I v, NUV_UTF16* o) {
    widen32(v.a, o);
    widen32(v.b, o + 32);
  }
  static bool ascii64(const char* p, NUV_UTF16* o, std::uint64_t* nl) {
    const I v = load(p);
    if (_mm256_movemask_epi8(_mm256_or_si256(v.a, v.b))) return false;
    widen(v, o);
    *nl = eq(v, '\n');
    return true;
  }
  unsigned decode(const char* p, I, M keep, NUV_UTF16* o) const {
    NUV_UTF16* const start = o;
    for (int h = 0; h < 4; ++h) {
      const char* q = p + 16 * h;
      const __m256i r = nuv::utf8_lanes(w, widen16(q), widen16(q + 1), widen16(q + 2));
      pack_half(o, _mm256_castsi256_si128(r), (keep >> (16 * h)) & 0xFF);
      pack_half(o, _mm256_extracti128_si256(r, 1), (keep >> (16 * h + 8)) & 0xFF);
    }
    return static_cast<unsigned>(o - start);
  }
};
#endif

#ifdef __AVX512VBMI2__
struct W512 {
  using T = __m512i;
  const T x1f = _mm512_set1_epi16(0x1F), x3f = _mm512_set1_epi16(0x3F), xc0 = _mm512_set1_epi16(0xC0),
          xe0 = _mm512_set1_epi16(0xE0), xf0 = _mm512_set1_epi16(0xF0);
  static T and_(T a, T b) { return _mm512_and_si512(a, b); }
  static T or_(T a, T b) { return _mm512_or_si512(a, b); }
  static __mmask32 eq(T a, T b) { return _mm512_cmpeq_epi16_mask(a, b); }
  static T slli(T a, int n) { return _mm512_slli_epi16(a, static_cast<unsigned>(n)); }
  static T blend(T a, T b, __mmask32 m) { return _mm512_mask_mov_epi16(a, m, b); }
};

// AVX-512 (BW, VBMI2): 64-byte blocks, each half widened to one register of
// 32 lanes and its kept lanes packed by one compress.
struct Line512 {
  using I = __m512i;
  using M = std::uint64_t;
  static constexpr unsigned B = 64;
  static constexpr long need = 66;
  const W512 w{};
  static I load(const char* p) { return _mm512_loadu_si512(p); }
  static M high(I v) { return _mm512_movepi8_mask(v); }
  static M eq(I v, int b) { return _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(b))); }
  static M masked_eq(I v, int m, int b) { return eq(_mm512_and_si512(v, _mm512_set1_epi8(static_cast<char>(m))), b); }
  static __m512i widen32(const char* p) {
    return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
  }
  static void widen(I v, NUV_UTF16* o) {
    _mm512_storeu_si512(o, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v)));
    _mm512_storeu_si512(o + 32, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v, 1)));
  }
  static bool ascii64(const char* p, NUV_UTF16* o, std::uint64_t* nl) {
    const I z = load(p);
    if (high(z)) return false;
    widen(z, o);
    *nl = eq(z, '\n');
    return true;
  }
  unsigned decode(const char* p, I, M keep, NUV_UTF16* o) const {
    NUV_UTF16* const start = o;
    for (int h = 0; h < 2; ++h) {
      const char* q = p + 32 * h;
      const auto k = static_cast<std::uint32_t>(keep >> (32 * h));
      const __m512i r = nuv::utf8_lanes(w, widen32(q), widen32(q + 1), widen32(q + 2));
      _mm512_storeu_si512(o, _mm512_maskz_compress_epi16(k, r));
      o += __builtin_popcount(k);
    }
    return static_cast<unsigned>(o - start);
  }
};
#endif

}  // namespace
