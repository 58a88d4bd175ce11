// Mixed-text kernel of the UTF-16 to UTF-8 block writer: sixteen units per
// step, each widened to a 32-bit lane holding its 1 to 3 UTF-8 bytes, then
// packed together with one byte shuffle per four lanes.  Reached only after
// the run-time AVX2 check (it needs the byte shuffle and blend).
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "convert/utf8_pack_avx2.h"
#include "stream/output.h"

namespace {

using nuv::rscp::encode16_short;
using nuv::rscp::encode8;
using nuv::rscp::kPack;
using nuv::rscp::kPack2;
using nuv::rscp::Pack;

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
    const __m256i shifted = _mm256_add_epi16(v, _mm256_set1_epi16(0x2800));  // surrogates to 0..0x7FF
    const __m256i high5 = _mm256_and_si256(shifted, _mm256_set1_epi16(static_cast<short>(0xF800)));
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi16(high5, _mm256_setzero_si256()))) break;  // scalar steps stop there
    const __m128i a = _mm256_castsi256_si128(v), b = _mm256_extracti128_si256(v, 1);
    if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80)))) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + o), _mm_packus_epi16(a, b));
      i += 16;
      o += 16;
      continue;
    }
    if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800)))) {
      o += encode16_short(v, dst + o);
      i += 16;
      continue;
    }
    o += encode8(_mm256_cvtepu16_epi32(a), dst + o);
    o += encode8(_mm256_cvtepu16_epi32(b), dst + o);
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
