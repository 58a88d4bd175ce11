// Mixed-text kernel of the UTF-16 to UTF-8 block writer: sixteen units per
// step, each widened to a 32-bit lane holding its 1 to 3 UTF-8 bytes, then
// packed together with one byte shuffle per four lanes.  Reached only after
// the run-time AVX2 check (it needs the byte shuffle and blend).
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "common/nuv_internal.h"
#include "stream/output.h"

namespace {

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
constexpr PackTable kPack;

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
constexpr PackTable2 kPack2;

// The two register widths the steps are written for: X (four 32-bit or
// eight 16-bit lanes) and Y (twice that, each 128-bit half packed by its own
// table entry).  store() packs w by the entries of its halves and stores the
// results back to back; it returns the bytes that count.
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
  static unsigned store(T w, const Pack& lo, const Pack&, char* out) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_shuffle_epi8(w, _mm_load_si128(reinterpret_cast<const __m128i*>(lo.shuffle))));
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
  // packs works per half: the low half's eight bits, then (at 16) the high half's.
  static unsigned mask16(T m) {
    const unsigned b = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(m, m)));
    return (b & 0xFF) | ((b >> 8) & 0xFF00);
  }
  static unsigned store(T w, const Pack& lo, const Pack& hi, char* out) {
    const __m256i shuf = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(lo.shuffle))),
        _mm_load_si128(reinterpret_cast<const __m128i*>(hi.shuffle)), 1);
    const __m256i packed = _mm256_shuffle_epi8(w, shuf);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + lo.length), _mm256_extracti128_si256(packed, 1));
    return lo.length + hi.length;
  }
};

// Units all below 0x800 in 16-bit lanes: each lane becomes its one or two
// bytes in place, packed by one table entry per eight lanes.
template <class V>
inline unsigned encode_short(typename V::T v, char* out) {
  const auto m2 = V::gt16(v, 0x7F);
  const auto lead = V::or_(V::template srl16<6>(v), V::set16(0xC0));
  const auto tail = V::template sll16<8>(V::or_(V::and_(v, V::set16(0x3F)), V::set16(0x80)));
  const unsigned bits = V::mask16(m2);
  return V::store(V::blend(v, V::or_(lead, tail), m2), kPack2.e[bits & 0xFF], kPack2.e[bits >> 8], out);
}

// Units (none a surrogate) in 32-bit lanes, each made its 1 to 3 bytes in
// place and packed by one table entry per four lanes.
template <class V>
inline unsigned encode_wide(typename V::T u, char* out) {
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

// Sixteen lanes of ones then sixteen of zeros: loaded at 16 - n, the first n
// lanes are kept.
alignas(64) constexpr std::uint16_t kPrefixLanes[32] = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF,
                                                        0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF,
                                                        0xFFFF, 0xFFFF};

// Whether any of sixteen units is a surrogate (D800..DFFF moved to 0..7FF).
inline bool any_surrogate(__m256i v) {
  const __m256i shifted = _mm256_add_epi16(v, _mm256_set1_epi16(0x2800));
  const __m256i high5 = _mm256_and_si256(shifted, _mm256_set1_epi16(static_cast<short>(0xF800)));
  return _mm256_movemask_epi8(_mm256_cmpeq_epi16(high5, _mm256_setzero_si256())) != 0;
}

// Sixteen units, none a surrogate; stores up to 52 bytes past out and
// returns how many count.
inline unsigned encode16(__m256i v, char* out) {
  const __m128i a = _mm256_castsi256_si128(v), b = _mm256_extracti128_si256(v, 1);
  if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80)))) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(a, b));
    return 16;
  }
  if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800)))) return encode_short<Y>(v, out);
  const unsigned n = encode_wide<Y>(_mm256_cvtepu16_epi32(a), out);
  return n + encode_wide<Y>(_mm256_cvtepu16_epi32(b), out + n);
}

}  // namespace

namespace nuv {

std::size_t encode_units_fit_avx2(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                  std::size_t* bytes, bool* hit_surrogate) {
  std::size_t i = 0, o = 0;
  // Sixteen units need at most 48 bytes; the last 16-byte store may start 36 in.
  while (n - i >= 16 && cap - o >= 52) {
    // Large blocks stream from memory; fetch ahead across page boundaries,
    // where the hardware prefetcher stops.
    _mm_prefetch(reinterpret_cast<const char*>(src + i) + 1024, _MM_HINT_T0);
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    if (any_surrogate(v)) break;  // scalar steps stop there
    o += encode16(v, dst + o);
    i += 16;
  }
  // One block of eight for what is left.
  if (n - i >= 8 && cap - o >= 28) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i shifted = _mm_add_epi16(v, _mm_set1_epi16(0x2800));
    const __m128i high5 = _mm_and_si128(shifted, _mm_set1_epi16(static_cast<short>(0xF800)));
    if (!_mm_movemask_epi8(_mm_cmpeq_epi16(high5, _mm_setzero_si128()))) {
      if (_mm_testz_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80)))) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + o), _mm_packus_epi16(v, v));
        o += 8;
      } else if (_mm_testz_si128(v, _mm_set1_epi16(static_cast<short>(0xF800)))) {
        o += encode_short<X>(v, dst + o);
      } else {
        o += encode_wide<X>(_mm_unpacklo_epi16(v, _mm_setzero_si128()), dst + o);
        o += encode_wide<X>(_mm_unpackhi_epi16(v, _mm_setzero_si128()), dst + o);
      }
      i += 8;
    }
  }
  // The last few units of a call, and the end of the stream buffer: the
  // SSE2 kernel's unit steps.
  *hit_surrogate = false;
  if (i == n) {
    *bytes = o;
    return i;
  }
  std::size_t tail_bytes;
  const std::size_t k = encode_units_fit_sse2(src + i, n - i, dst + o, cap - o, &tail_bytes, hit_surrogate);
  *bytes = o + tail_bytes;
  return i + k;
}

}  // namespace nuv

namespace nuv {

// Blocks of sixteen up to the terminator; a block may load units past it,
// never past the page that holds it.  The block with the terminator is
// finished by the counted kernel.
NUV_NO_ASAN std::size_t encode_text_fit_avx2(const NUV_UTF16* src, char* dst, std::size_t cap, std::size_t* bytes) {
  std::size_t i = 0, o = 0;
  for (;;) {
    const NUV_UTF16* s = src + i;
    if (4096 - (reinterpret_cast<std::uintptr_t>(s) & 4095) < 32 || cap - o < 52) break;
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
    const __m256i surrogate = _mm256_cmpeq_epi16(
        _mm256_and_si256(_mm256_add_epi16(v, _mm256_set1_epi16(0x2800)), _mm256_set1_epi16(static_cast<short>(0xF800))),
        _mm256_setzero_si256());
    const unsigned stop = static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_or_si256(_mm256_cmpeq_epi16(v, _mm256_setzero_si256()), surrogate)));
    if (stop) {
      // The units in front of the terminator or surrogate; the lanes from it
      // on become zeros, one byte each, which are not counted.
      const unsigned n = static_cast<unsigned>(__builtin_ctz(stop)) / 2;
      const __m256i keep = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(kPrefixLanes + 16 - n));
      o += encode16(_mm256_and_si256(v, keep), dst + o) - (16 - n);
      i += n;
      break;
    }
    o += encode16(v, dst + o);
    i += 16;
  }
  *bytes = o;
  return i;
}

}  // namespace nuv
