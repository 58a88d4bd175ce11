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

// Packs each 128-bit half of w by its table entry and stores the two results
// back to back; returns the bytes that count.
inline unsigned store_halves(__m256i w, const Pack& lo, const Pack& hi, char* out) {
  const __m256i shuf = _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(lo.shuffle))),
      _mm_load_si128(reinterpret_cast<const __m128i*>(hi.shuffle)), 1);
  const __m256i packed = _mm256_shuffle_epi8(w, shuf);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + lo.length), _mm256_extracti128_si256(packed, 1));
  return lo.length + hi.length;
}

// Sixteen units all below 0x800: each 16-bit lane becomes its one or two
// bytes in place, and each half is packed by one table entry.  Stores at
// most 16 + 16 bytes past out.
inline unsigned encode16_short(__m256i v, char* out) {
  const __m256i m2 = _mm256_cmpgt_epi16(v, _mm256_set1_epi16(0x7F));
  const __m256i lead = _mm256_or_si256(_mm256_srli_epi16(v, 6), _mm256_set1_epi16(0xC0));
  const __m256i tail =
      _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(v, _mm256_set1_epi16(0x3F)), _mm256_set1_epi16(0x80)), 8);
  const __m256i w = _mm256_blendv_epi8(v, _mm256_or_si256(lead, tail), m2);
  const unsigned bits = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(m2, m2)));
  const Pack& lo = kPack2.e[bits & 0xFF];
  const Pack& hi = kPack2.e[(bits >> 16) & 0xFF];
  return store_halves(w, lo, hi, out);
}

// Eight units (32-bit lanes, none a surrogate) to UTF-8.  Each 128-bit half
// holds four lanes and is packed by its own table entry; stores 32 bytes at
// most 24 + 16 past out, returns how many count.
inline unsigned encode8(__m256i u, char* out) {
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
  return store_halves(w, lo, hi, out);
}

// Four units (32-bit lanes, none a surrogate) to UTF-8; stores 16 bytes,
// returns how many of them count.
inline unsigned encode4(__m128i u, char* out) {
  const __m128i m2 = _mm_cmpgt_epi32(u, _mm_set1_epi32(0x7F));
  const __m128i m3 = _mm_cmpgt_epi32(u, _mm_set1_epi32(0x7FF));
  const __m128i six = _mm_set1_epi32(0x3F);
  const __m128i cont = _mm_set1_epi32(0x80);
  const __m128i last = _mm_or_si128(_mm_and_si128(u, six), cont);
  const __m128i mid = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(u, 6), six), cont);
  const __m128i w3 = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 12), _mm_set1_epi32(0xE0)),
                                  _mm_or_si128(_mm_slli_epi32(mid, 8), _mm_slli_epi32(last, 16)));
  const __m128i w2 = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0xC0)), _mm_slli_epi32(last, 8));
  const __m128i w = _mm_blendv_epi8(_mm_blendv_epi8(u, w2, m2), w3, m3);
  const int key = _mm_movemask_ps(_mm_castsi128_ps(m2)) | (_mm_movemask_ps(_mm_castsi128_ps(m3)) << 4);
  const Pack& p = kPack.e[key];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                   _mm_shuffle_epi8(w, _mm_load_si128(reinterpret_cast<const __m128i*>(p.shuffle))));
  return p.length;
}

// Eight units all below 0x800, as encode16_short; stores 16 bytes.
inline unsigned encode8_short(__m128i v, char* out) {
  const __m128i m2 = _mm_cmpgt_epi16(v, _mm_set1_epi16(0x7F));
  const __m128i lead = _mm_or_si128(_mm_srli_epi16(v, 6), _mm_set1_epi16(0xC0));
  const __m128i tail = _mm_slli_epi16(_mm_or_si128(_mm_and_si128(v, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80)), 8);
  const __m128i w = _mm_blendv_epi8(v, _mm_or_si128(lead, tail), m2);
  const Pack& p = kPack2.e[_mm_movemask_epi8(_mm_packs_epi16(m2, m2)) & 0xFF];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                   _mm_shuffle_epi8(w, _mm_load_si128(reinterpret_cast<const __m128i*>(p.shuffle))));
  return p.length;
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
  if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800)))) return encode16_short(v, out);
  const unsigned n = encode8(_mm256_cvtepu16_epi32(a), out);
  return n + encode8(_mm256_cvtepu16_epi32(b), out + n);
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
        o += encode8_short(v, dst + o);
      } else {
        o += encode4(_mm_unpacklo_epi16(v, _mm_setzero_si128()), dst + o);
        o += encode4(_mm_unpackhi_epi16(v, _mm_setzero_si128()), dst + o);
      }
      i += 8;
    }
  }
  // The last few units of a call: one four-byte store each while room lasts.
  *hit_surrogate = false;
  for (; i < n && cap - o >= 4; ++i) {
    std::uint16_t u;
    std::memcpy(&u, src + i, sizeof u);
    if (is_surrogate_unit(u)) {
      *hit_surrogate = true;
      *bytes = o;
      return i;
    }
    unsigned len;
    const std::uint32_t w = packed_utf8(u, &len);
    std::memcpy(dst + o, &w, 4);
    o += len;
  }
  if (i == n) {
    *bytes = o;
    return i;
  }
  // The end of the stream buffer: the exact steps.
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
