// AVX-512 kernels (with VBMI and VBMI2) of the checking UTF-8 <-> UTF-16
// converters, chosen at run time.  Every byte or unit position computes the
// output it would give and compress instructions keep the ones that count,
// so mixed text needs no tables and no walk from character to character.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "convert/utf16_bmp_avx512.h"
#include "convert/utf_simd.h"

namespace nuv::rscp {

namespace {

// ---- UTF-8 -> UTF-16 ------------------------------------------------------
// A block of up to 64 bytes starting at a character: the masks prove every
// sequence (structure, overlong forms, range), then each position yields the
// unit of the character ending there (or, for a four-byte character, the
// high surrogate at its third byte and the low one at its last byte).
NUV_VBMI2 void utf8_to_utf16_avx512(const rscpUtf8** sp, const rscpUtf8* se, NUV_UTF16** dp, NUV_UTF16* de) {
  const rscpUtf8* s = *sp;
  NUV_UTF16* d = *dp;
  alignas(64) static constexpr uint8_t kBack1[64] = {
      0,  0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20,
      21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42,
      43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62};
  const __m512i back1 = _mm512_load_si512(kBack1);
  const __m512i back2 = _mm512_permutexvar_epi8(back1, back1);
  // Leads at bytes 0, 3, ..., 60 (bit 63, the start of the next character, is ignored).
  constexpr uint64_t kEvery3 = 0x1249249249249249ull;
  struct Three {
    __m512i lastMid, lead;
  } three;
  {
    alignas(64) static constexpr struct Idx {
      uint8_t lastMid[64], lead[64];
      constexpr Idx() : lastMid(), lead() {
        for (int j = 0; j < 32; ++j) {
          const int c = j < 21 ? j : 20;
          lastMid[2 * j] = static_cast<uint8_t>(3 * c + 2), lastMid[2 * j + 1] = static_cast<uint8_t>(3 * c + 1);
          lead[2 * j] = static_cast<uint8_t>(3 * c), lead[2 * j + 1] = static_cast<uint8_t>(3 * c);
        }
      }
    } kIdx{};
    three.lastMid = _mm512_load_si512(kIdx.lastMid);
    three.lead = _mm512_load_si512(kIdx.lead);
  }
  for (;;) {
    // A block is at most as many bytes as there are units of room (no byte
    // gives more than one unit); a short block is loaded masked and the
    // bytes past it read as zeros, which end any character cut there.
    const std::size_t left = std::min<std::size_t>(std::min(se - s, de - d), 64);
    if (left == 0) break;
    const bool whole = left == 64;
    const uint64_t avail = _bzhi_u64(~0ull, static_cast<unsigned>(left));
    const __m512i v = whole ? _mm512_loadu_si512(s) : _mm512_maskz_loadu_epi8(avail, s);
    const uint64_t high = _mm512_movepi8_mask(v);
    if (high == 0) {
      const __m512i w0 = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v));
      const __m512i w1 = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v, 1));
      if (whole) {
        _mm512_storeu_si512(d, w0), _mm512_storeu_si512(d + 32, w1);
      } else {
        _mm512_mask_storeu_epi16(d, static_cast<__mmask32>(avail), w0);
        _mm512_mask_storeu_epi16(d + 32, static_cast<__mmask32>(avail >> 32), w1);
      }
      s += left, d += left;
      continue;
    }
    const uint64_t geC0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xC0)));
    const uint64_t geE0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const uint64_t geF0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
    const uint64_t geF5 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF5)));
    const uint64_t cont = high & ~geC0;
    const uint64_t lead2 = geC0 & ~geE0, lead3 = geE0 & ~geF0, lead4 = geF0 & ~geF5;
    const uint64_t predicted = ((lead2 | lead3 | lead4) << 1) | ((lead3 | lead4) << 2) | (lead4 << 3);
    // Overlong and out-of-range forms: leads 0xC0, 0xC1 and 0xF5..0xFF,
    // 0xE0 then 0x80..0x9F, 0xF0 then 0x80..0x8F, 0xF4 then 0x90..0xBF.
    const uint64_t c0c1 = _mm512_cmpeq_epi8_mask(_mm512_and_si512(v, _mm512_set1_epi8(static_cast<char>(0xFE))),
                                                 _mm512_set1_epi8(static_cast<char>(0xC0)));
    const uint64_t e0 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const uint64_t f0 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
    const uint64_t f4 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF4)));
    const uint64_t below90 = _mm512_cmplt_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0x90)));
    const uint64_t belowA0 = _mm512_cmplt_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xA0)));
    const uint64_t err = geF5 | (predicted ^ cont) | c0c1 | ((e0 << 1) & belowA0) | ((f0 << 1) & below90) |
                         ((f4 << 1) & cont & ~below90);
    // Ends are known up to byte 62; before an error at byte q only
    // characters ending at q - 2 or earlier are sound.
    uint64_t ends = (~cont >> 1) & (whole ? ~0ull >> 1 : avail);
    if (err) {
      const unsigned q = static_cast<unsigned>(__builtin_ctzll(err));
      ends &= q >= 2 ? (1ull << (q - 1)) - 1 : 0;
    }
    if (ends == 0) break;
    if (whole && (err | (lead3 ^ kEvery3)) << 1 == 0) {
      // 21 three-byte characters (the usual run of CJK text): lead, middle
      // and last bytes gathered into 16-bit lanes, no compress.
      const __m512i lm = _mm512_permutexvar_epi8(three.lastMid, v), ld = _mm512_permutexvar_epi8(three.lead, v);
      const __m512i val = _mm512_ternarylogic_epi32(
          _mm512_slli_epi16(ld, 12), _mm512_srli_epi16(_mm512_and_si512(lm, _mm512_set1_epi16(0x3F00)), 2),
          _mm512_and_si512(lm, _mm512_set1_epi16(0x3F)), 0xFE);
      _mm512_storeu_si512(d, val);
      s += 63, d += 21;
      continue;
    }
    const unsigned taken = 64 - static_cast<unsigned>(__builtin_clzll(ends));
    const uint64_t keep = taken == 64 ? ~0ull : (1ull << taken) - 1;
    const uint64_t mLo4 = lead4 << 3, mHi4 = lead4 << 2;
    const uint64_t emit = (~high | (lead2 << 1) | (lead3 << 2) | mLo4 | mHi4) & keep;
    const __m512i v1 = _mm512_permutexvar_epi8(back1, v), v2 = _mm512_permutexvar_epi8(back2, v);
    const int halves = left > 32 ? 2 : 1;
    for (int half = 0; half < halves; ++half) {
      const __m512i b0 = _mm512_cvtepu8_epi16(half ? _mm512_extracti64x4_epi64(v, 1) : _mm512_castsi512_si256(v));
      const __m512i b1 = _mm512_cvtepu8_epi16(half ? _mm512_extracti64x4_epi64(v1, 1) : _mm512_castsi512_si256(v1));
      const __m512i b2 = _mm512_cvtepu8_epi16(half ? _mm512_extracti64x4_epi64(v2, 1) : _mm512_castsi512_si256(v2));
      const __m512i k3f = _mm512_set1_epi16(0x3F);
      const __m512i low6 = _mm512_and_si512(b0, k3f);
      const __m512i mid6 = _mm512_slli_epi16(_mm512_and_si512(b1, k3f), 6);
      const unsigned sh = 32 * static_cast<unsigned>(half);
      const __mmask32 m2 = static_cast<__mmask32>((lead2 << 1) >> sh), m3 = static_cast<__mmask32>((lead3 << 2) >> sh);
      const __mmask32 mlo = static_cast<__mmask32>(mLo4 >> sh), mhi = static_cast<__mmask32>(mHi4 >> sh);
      __m512i val = b0;
      val = _mm512_mask_mov_epi16(val, m2, _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(b1, _mm512_set1_epi16(0x1F)), 6), low6));
      val = _mm512_mask_mov_epi16(
          val, m3, _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(b2, 12), mid6), low6));
      val = _mm512_mask_mov_epi16(
          val, mlo, _mm512_or_si512(_mm512_set1_epi16(static_cast<short>(0xDC00)),
                                    _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(b1, _mm512_set1_epi16(0xF)), 6), low6)));
      const __m512i hiBits = _mm512_or_si512(
          _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(b2, _mm512_set1_epi16(7)), 8),
                          _mm512_slli_epi16(_mm512_and_si512(b1, k3f), 2)),
          _mm512_srli_epi16(low6, 4));
      val = _mm512_mask_mov_epi16(val, mhi, _mm512_add_epi16(hiBits, _mm512_set1_epi16(static_cast<short>(0xD7C0))));
      const __mmask32 e = static_cast<__mmask32>(emit >> sh);
      const unsigned n = static_cast<unsigned>(__builtin_popcount(e));
      if (whole)
        _mm512_storeu_si512(d, _mm512_maskz_compress_epi16(e, val));
      else
        _mm512_mask_storeu_epi16(d, _bzhi_u32(~0u, n), _mm512_maskz_compress_epi16(e, val));
      d += n;
    }
    s += taken;
    if (err) break;  // the scalar code converts or reports what stopped the run
  }
  *sp = s, *dp = d;
}

// ---- UTF-16 -> UTF-8 ------------------------------------------------------
// Runs without surrogates go through the BMP step (utf16_bmp_avx512.h); runs
// with pairs through the steps below: sixteen units in 32-bit lanes, each in
// its one- to three-byte form, the two halves of a surrogate pair two bytes
// each; a byte mask keeps the bytes in use and a compress packs them.

// Sixteen units in 32-bit lanes to their bytes: one- to three-byte forms,
// and two bytes for each half of a surrogate pair (the low half takes two
// bits of the unit before it).  Returns the bytes written.
NUV_VBMI2 __attribute__((always_inline)) inline unsigned pairs_half(__m256i h, __m256i before, __mmask16 hs, __mmask16 ls,
                                                                    __mmask16 use, rscpUtf8* d) {
  const __m512i u = _mm512_cvtepu16_epi32(h);
  const __m512i prev = _mm512_cvtepu16_epi32(before);
  const __m512i k3f = _mm512_set1_epi32(0x3F), k80 = _mm512_set1_epi32(0x80);
  const __m512i lastByte = _mm512_or_si512(k80, _mm512_and_si512(u, k3f));
  const __mmask16 one = _mm512_cmplt_epu32_mask(u, _mm512_set1_epi32(0x80));
  const __mmask16 two = _mm512_cmplt_epu32_mask(u, _mm512_set1_epi32(0x800)) & ~one;
  __m512i bytes = _mm512_or_si512(
      _mm512_or_si512(_mm512_or_si512(_mm512_set1_epi32(0xE0), _mm512_srli_epi32(u, 12)),
                      _mm512_slli_epi32(_mm512_or_si512(k80, _mm512_and_si512(_mm512_srli_epi32(u, 6), k3f)), 8)),
      _mm512_slli_epi32(lastByte, 16));
  bytes = _mm512_mask_mov_epi32(
      bytes, two, _mm512_or_si512(_mm512_or_si512(_mm512_set1_epi32(0xC0), _mm512_srli_epi32(u, 6)), _mm512_slli_epi32(lastByte, 8)));
  bytes = _mm512_mask_mov_epi32(bytes, one, u);
  const __m512i chi = _mm512_add_epi32(_mm512_and_si512(u, _mm512_set1_epi32(0x3FF)), _mm512_set1_epi32(0x40));
  bytes = _mm512_mask_mov_epi32(
      bytes, hs,
      _mm512_or_si512(_mm512_or_si512(_mm512_set1_epi32(0xF0), _mm512_srli_epi32(chi, 8)),
                      _mm512_slli_epi32(_mm512_or_si512(k80, _mm512_and_si512(_mm512_srli_epi32(chi, 2), k3f)), 8)));
  bytes = _mm512_mask_mov_epi32(
      bytes, ls,
      _mm512_or_si512(_mm512_or_si512(k80, _mm512_or_si512(_mm512_slli_epi32(_mm512_and_si512(prev, _mm512_set1_epi32(3)), 4),
                                                           _mm512_and_si512(_mm512_srli_epi32(u, 6), _mm512_set1_epi32(0xF)))),
                      _mm512_slli_epi32(lastByte, 8)));
  // Bytes per lane: 1, 2 (two-byte forms and pair halves) or 3; 0 when unused.
  __m512i len = _mm512_set1_epi32(0x03030303);
  len = _mm512_mask_mov_epi32(len, two | hs | ls, _mm512_set1_epi32(0x02020202));
  len = _mm512_mask_mov_epi32(len, one, _mm512_set1_epi32(0x01010101));
  len = _mm512_maskz_mov_epi32(use, len);
  const uint64_t keep = _mm512_cmplt_epu8_mask(_mm512_set1_epi32(0x03020100), len);
  _mm512_storeu_si512(d, _mm512_maskz_compress_epi8(keep, bytes));
  return static_cast<unsigned>(__builtin_popcountll(keep));
}

// One step over up to thirty-two units (128 bytes of room): returns the
// units taken, 0 at a lone surrogate in front.  A short step is loaded
// masked; a high surrogate as its last unit waits for the next step.
NUV_VBMI2 __attribute__((always_inline)) inline unsigned pairs_step(const NUV_UTF16*& s, const NUV_UTF16* se, rscpUtf8*& d) {
  alignas(64) static constexpr uint16_t kBack[32] = {0,  0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                                                     15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30};
  const unsigned left = se - s >= 32 ? 32u : static_cast<unsigned>(se - s);
  const uint32_t avail = _bzhi_u32(~0u, left);
  const __m512i h = _mm512_maskz_loadu_epi16(avail, s);
  const __m512i top6 = _mm512_and_si512(h, _mm512_set1_epi16(static_cast<short>(0xFC00)));
  const uint32_t hs = _mm512_cmpeq_epi16_mask(top6, _mm512_set1_epi16(static_cast<short>(0xD800)));
  const uint32_t ls = _mm512_cmpeq_epi16_mask(top6, _mm512_set1_epi16(static_cast<short>(0xDC00)));
  unsigned lanes;
  if (((hs << 1) & avail) == ls) {
    lanes = hs >> (left - 1) & 1 ? left - 1 : left;  // a pair across the end waits for the next step
  } else {
    lanes = static_cast<unsigned>(__builtin_ctz(hs | ls));  // plain units before a lone surrogate
  }
  if (lanes == 0) return 0;
  const uint32_t use = _bzhi_u32(~0u, lanes);
  const __m512i before = _mm512_permutexvar_epi16(_mm512_load_si512(kBack), h);
  d += pairs_half(_mm512_castsi512_si256(h), _mm512_castsi512_si256(before), static_cast<__mmask16>(hs),
                  static_cast<__mmask16>(ls), static_cast<__mmask16>(use), d);
  if (lanes > 16)
    d += pairs_half(_mm512_extracti64x4_epi64(h, 1), _mm512_extracti64x4_epi64(before, 1), static_cast<__mmask16>(hs >> 16),
                    static_cast<__mmask16>(ls >> 16), static_cast<__mmask16>(use >> 16), d);
  s += lanes;
  return lanes;
}

}  // namespace

// Steps while the text holds surrogates; returns the units taken (0 at a
// lone surrogate in front).
NUV_VBMI2 unsigned encode_pairs16_avx512(const NUV_UTF16*& s, const NUV_UTF16* se, rscpUtf8*& d, rscpUtf8* de) {
  const NUV_UTF16* start = s;
  while (s < se && de - d >= 128) {
    if (!pairs_step(s, se, d)) break;
    const unsigned left = se - s >= 16 ? 16u : static_cast<unsigned>(se - s);
    if (left == 0) break;
    const __m256i next = _mm256_maskz_loadu_epi16(static_cast<__mmask16>(_bzhi_u32(~0u, left)), s);
    const __mmask16 sur = _mm256_cmpeq_epi16_mask(_mm256_and_si256(next, _mm256_set1_epi16(static_cast<short>(0xF800))),
                                                  _mm256_set1_epi16(static_cast<short>(0xD800)));
    if (!sur) break;  // the BMP steps are quicker without surrogates
  }
  return static_cast<unsigned>(s - start);
}

namespace {

// Runs without surrogates through the step above, runs with pairs through
// the pair steps; a lone surrogate or a short end is left to the scalar code.
NUV_VBMI2 void utf16_to_utf8_avx512(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  const NUV_UTF16* s = *sp;
  rscpUtf8* d = *dp;
  // Long texts: the AVX2 steps (64 ASCII units a round, 16-unit BMP steps)
  // measured faster here than the BMP step, surrogate pairs through ours.
  if (se - s >= 64) utf16_to_utf8_avx2_pairs512(&s, se, &d, de);
  for (;;) {
    utf16_bmp_to_utf8_avx512<true>(&s, se, &d, de);
    if (s == se) break;
    if (se - s <= 32) {  // the last units of a text with surrogates: the AVX2 16-bit steps measured quicker
      utf16_to_utf8_avx2_tiny(&s, se, &d, de);
      break;
    }
    if (!encode_pairs16_avx512(s, se, d, de)) break;
  }
  *sp = s, *dp = d;
}

}  // namespace

const UtfKernels kUtfAvx512{"avx512", utf8_to_utf16_avx512, utf16_to_utf8_avx512};

}  // namespace nuv::rscp
