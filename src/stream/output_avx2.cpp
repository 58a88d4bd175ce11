// Mixed-text kernel of the UTF-16 to UTF-8 block writer: sixteen units per
// step by the converter's encode steps (utf8_pack_avx2.h).  Reached only
// after the run-time AVX2 check.
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "common/nuv_internal.h"
#include "convert/utf8_pack_avx2.h"
#include "stream/output.h"

namespace {

using nuv::rscp::encode16;
using nuv::rscp::encode_short;
using nuv::rscp::encode_wide;
using nuv::rscp::X;

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
