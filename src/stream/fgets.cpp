// fgetsU16: the line reader.  Whole blocks of the FILE buffer are decoded in
// place (SSE2 for ASCII; SSSE3 or AVX-512 for one- to three-byte text, chosen
// at run time); four-byte, overlong and bad sequences, and the ends of the
// buffers, go through the line reader's own inlined copy of the decoder.
#include <immintrin.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "common/cpu.h"
#include "common/nuv_internal.h"
#include "stream/utf8_decode.h"

namespace {

constexpr int kLineFgetsReport = 285;

enum class End { Newline, Eof, Full };

inline bool cont(unsigned char b) { return (b & 0xC0) == 0x80; }

// One stop inside a block: the bytes in front of it are ASCII and
// have been stored already.  Decodes a valid two- or three-byte character in
// place; false sends the caller to the general path.
__attribute__((always_inline)) inline bool step_at_stop(const char*& p, const char* e, NUV_UTF16*& o,
                                                        unsigned stop) {
  const unsigned k = static_cast<unsigned>(__builtin_ctz(stop));
  p += k;
  o += k;
  const auto* q = reinterpret_cast<const unsigned char*>(p);
  const unsigned b = q[0];
  // Overlong forms (C0, C1, E0 80..9F) can spell a newline; they take the
  // general path, which ends the line on any decoded newline.
  if (e - p >= 3) {  // a three-byte form needs 3
    if ((b & 0xE0) == 0xC0 && b >= 0xC2 && cont(q[1])) {
      *o++ = static_cast<NUV_UTF16>(((b & 0x1F) << 6) | (q[1] & 0x3F));
      p += 2;
      return true;
    }
    if ((b & 0xF0) == 0xE0 && cont(q[1]) && cont(q[2]) && (b != 0xE0 || q[1] >= 0xA0)) {
      *o++ = static_cast<NUV_UTF16>(((b & 0x0F) << 12) | ((q[1] & 0x3F) << 6) | (q[2] & 0x3F));
      p += 3;
      return true;
    }
  }
  return false;
}

// The hot loop, plain SSE2: while both the stream buffer and the destination
// hold at least 16 more, widens ASCII sixteen bytes at a time and decodes
// valid two- and three-byte characters in place.  Stops in front of a
// newline, a four-byte or bad sequence, or when either side runs short.
// Loads stay inside [p, e), so nothing past the stream buffer is touched.
bool fast_run_sse2(nuv::CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) {
  const __m128i nl = _mm_set1_epi8('\n');
  const __m128i zero = _mm_setzero_si128();
  const char* p = in.p;
  const char* const e = in.e;
  NUV_UTF16* o = out;
  while (e - p >= 16 && limit - o >= 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    unsigned stop = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(v, _mm_cmpeq_epi8(v, nl))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 8), _mm_unpackhi_epi8(v, zero));
    if (stop == 0) {
      p += 16;
      o += 16;
      continue;
    }
    if (!step_at_stop(p, e, o, stop)) break;
  }
  in.p = const_cast<char*>(p);
  out = o;
  return false;
}

// pshufb patterns that pack the kept 16-bit lanes of an 8-lane half to the front.
struct PackTable {
  alignas(16) unsigned char shuffle[256][16];
  constexpr PackTable() : shuffle{} {
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
constexpr PackTable kPack;

// With SSSE3: blocks of ASCII and valid two- and three-byte characters (not
// overlong) are
// decoded whole, without a branch per character, up to and including a
// newline (true: the line is complete); other blocks go the SSE2 way.
__attribute__((target("ssse3,popcnt"))) bool fast_run_ssse3(nuv::CachedBytes& in, NUV_UTF16*& out,
                                                             NUV_UTF16* limit) {
  const __m128i nl = _mm_set1_epi8('\n');
  const __m128i zero = _mm_setzero_si128();
  const __m128i c0 = _mm_set1_epi8(static_cast<char>(0xC0));
  const __m128i c80 = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i e0 = _mm_set1_epi8(static_cast<char>(0xE0));
  const __m128i f0 = _mm_set1_epi8(static_cast<char>(0xF0));
  const __m128i fe = _mm_set1_epi8(static_cast<char>(0xFE));
  const __m128i w1f = _mm_set1_epi16(0x1F), w3f = _mm_set1_epi16(0x3F), we0 = _mm_set1_epi16(0xE0),
                wc0 = _mm_set1_epi16(0xC0), wf0 = _mm_set1_epi16(0xF0);
  const char* p = in.p;
  const char* const e = in.e;
  NUV_UTF16* o = out;
  while (e - p >= 16 && limit - o >= 16) {
    // 64 bytes of plain ASCII (perhaps up to a newline) are only widened.  The
    // test is on 64 bytes so that it is rarely true on text that has a few
    // non-ASCII characters, and then the branch predicts well either way.
    if (e - p >= 64 && limit - o >= 64) {
      const __m128i q0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      const __m128i q1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
      const __m128i q2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 32));
      const __m128i q3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 48));
      if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(q0, q1), _mm_or_si128(q2, q3))) == 0) {
        const __m128i q[4] = {q0, q1, q2, q3};
        std::uint64_t nl64 = 0;
        for (int i = 0; i < 4; ++i) {
          _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 16 * i), _mm_unpacklo_epi8(q[i], zero));
          _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 16 * i + 8), _mm_unpackhi_epi8(q[i], zero));
          nl64 |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(q[i], nl))))
                  << (16 * i);
        }
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
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    unsigned high = static_cast<unsigned>(_mm_movemask_epi8(v));
    const unsigned newline = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, nl)));
    unsigned conts = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, c0), c80)));
    unsigned lead2 = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, e0), c0)));
    unsigned lead3 = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, f0), e0)));
    // Up to and including a newline; or else the whole block less a character
    // that it cuts off at its end, which waits for the next block.
    unsigned span = 0xFFFFu, take;
    if (newline) {
      take = static_cast<unsigned>(__builtin_ctz(newline)) + 1;
      span = (2u << (take - 1)) - 1;
    } else {
      const unsigned cut = (lead2 & 0x8000u) | (lead3 & 0xC000u);
      take = cut ? static_cast<unsigned>(__builtin_ctz(cut)) : 16;
      span = (1u << take) - 1;
    }
    high &= span;
    conts &= span;
    lead2 &= span;
    lead3 &= span;
    // Valid when every byte >= 0x80 is a lead or a continuation and the
    // continuations are exactly those the leads call for.
    const unsigned overlong =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, fe), c0))) |
        ((static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, e0))) << 1) &
         static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, e0), c80))));
    if ((high & ~(conts | lead2 | lead3)) == 0 && (overlong & span) == 0 &&
        conts == ((lead2 << 1) | (lead3 << 1) | (lead3 << 2))) {
      const __m128i next1 = _mm_srli_si128(v, 1), next2 = _mm_srli_si128(v, 2);
      __m128i a0 = _mm_unpacklo_epi8(v, zero), a1 = _mm_unpackhi_epi8(v, zero);
      const __m128i b0 = _mm_and_si128(_mm_unpacklo_epi8(next1, zero), w3f);
      const __m128i b1 = _mm_and_si128(_mm_unpackhi_epi8(next1, zero), w3f);
      const __m128i c0w = _mm_and_si128(_mm_unpacklo_epi8(next2, zero), w3f);
      const __m128i c1w = _mm_and_si128(_mm_unpackhi_epi8(next2, zero), w3f);
      const __m128i is2_0 = _mm_cmpeq_epi16(_mm_and_si128(a0, we0), wc0);
      const __m128i is2_1 = _mm_cmpeq_epi16(_mm_and_si128(a1, we0), wc0);
      const __m128i is3_0 = _mm_cmpeq_epi16(_mm_and_si128(a0, wf0), we0);
      const __m128i is3_1 = _mm_cmpeq_epi16(_mm_and_si128(a1, wf0), we0);
      // Two-byte: lead bits 5, then 6.  Three-byte: lead bits 4 (the shift by
      // 12 drops the rest), then 6 and 6.
      const __m128i t2_0 = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(a0, w1f), 6), b0);
      const __m128i t2_1 = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(a1, w1f), 6), b1);
      const __m128i t3_0 = _mm_or_si128(_mm_or_si128(_mm_slli_epi16(a0, 12), _mm_slli_epi16(b0, 6)), c0w);
      const __m128i t3_1 = _mm_or_si128(_mm_or_si128(_mm_slli_epi16(a1, 12), _mm_slli_epi16(b1, 6)), c1w);
      a0 = _mm_or_si128(_mm_and_si128(is2_0, t2_0), _mm_andnot_si128(is2_0, a0));
      a1 = _mm_or_si128(_mm_and_si128(is2_1, t2_1), _mm_andnot_si128(is2_1, a1));
      a0 = _mm_or_si128(_mm_and_si128(is3_0, t3_0), _mm_andnot_si128(is3_0, a0));
      a1 = _mm_or_si128(_mm_and_si128(is3_1, t3_1), _mm_andnot_si128(is3_1, a1));
      const unsigned keep = ~conts & span;
      const unsigned k0 = keep & 0xFF, k1 = keep >> 8;
      a0 = _mm_shuffle_epi8(a0, _mm_load_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[k0])));
      a1 = _mm_shuffle_epi8(a1, _mm_load_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[k1])));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o), a0);
      o += __builtin_popcount(k0);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o), a1);
      o += __builtin_popcount(k1);
      p += take;
      if (newline) {
        in.p = const_cast<char*>(p);
        out = o;
        return true;
      }
      continue;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 8), _mm_unpackhi_epi8(v, zero));
    if (!step_at_stop(p, e, o, high | newline)) break;
  }
  in.p = const_cast<char*>(p);
  out = o;
  return false;
}

#define NUV_AVX2 __attribute__((target("avx2,bmi,bmi2,popcnt"), always_inline)) inline
NUV_AVX2 void avx2_widen_store(NUV_UTF16* o, __m128i bytes, int at) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + at), _mm256_cvtepu8_epi16(bytes));
}
NUV_AVX2 void avx2_pack_store(NUV_UTF16*& o, __m128i lanes, unsigned k) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o),
                   _mm_shuffle_epi8(lanes, _mm_load_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[k]))));
  o += __builtin_popcount(k);
}
NUV_AVX2 std::uint32_t avx2_mask(__m256i m) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(m)); }
#undef NUV_AVX2

// With AVX2: the SSSE3 decoding 32 bytes at a time; the packing still goes
// by 8-lane pieces through the pshufb table.
__attribute__((target("avx2,bmi,bmi2,popcnt"))) bool fast_run_avx2(nuv::CachedBytes& in, NUV_UTF16*& out,
                                                                    NUV_UTF16* limit) {
  const __m256i nl = _mm256_set1_epi8('\n');
  const __m256i c0 = _mm256_set1_epi8(static_cast<char>(0xC0));
  const __m256i c80 = _mm256_set1_epi8(static_cast<char>(0x80));
  const __m256i e0 = _mm256_set1_epi8(static_cast<char>(0xE0));
  const __m256i f0 = _mm256_set1_epi8(static_cast<char>(0xF0));
  const __m256i fe = _mm256_set1_epi8(static_cast<char>(0xFE));
  const __m256i w1f = _mm256_set1_epi16(0x1F), w3f = _mm256_set1_epi16(0x3F), we0 = _mm256_set1_epi16(0xE0),
                wc0 = _mm256_set1_epi16(0xC0), wf0 = _mm256_set1_epi16(0xF0);
  const char* p = in.p;
  const char* const e = in.e;
  NUV_UTF16* o = out;
  // p + 1 and p + 2 are loaded too, so 34 bytes must be there.
  while (e - p >= 34 && limit - o >= 32) {
    // 64 bytes of plain ASCII (perhaps up to a newline) are only widened; see
    // the SSSE3 path for why the test is on 64 bytes.
    if (e - p >= 64 && limit - o >= 64) {
      const __m256i y0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
      const __m256i y1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
      if (_mm256_movemask_epi8(_mm256_or_si256(y0, y1)) == 0) {
        avx2_widen_store(o, _mm256_castsi256_si128(y0), 0);
        avx2_widen_store(o, _mm256_extracti128_si256(y0, 1), 16);
        avx2_widen_store(o, _mm256_castsi256_si128(y1), 32);
        avx2_widen_store(o, _mm256_extracti128_si256(y1, 1), 48);
        const std::uint64_t nl64 =
            static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(y0, nl))) |
            static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(y1, nl))))
                << 32;
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
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const std::uint32_t newline = avx2_mask(_mm256_cmpeq_epi8(v, nl));
    std::uint32_t high = avx2_mask(v);
    std::uint32_t conts = avx2_mask(_mm256_cmpeq_epi8(_mm256_and_si256(v, c0), c80));
    std::uint32_t lead2 = avx2_mask(_mm256_cmpeq_epi8(_mm256_and_si256(v, e0), c0));
    std::uint32_t lead3 = avx2_mask(_mm256_cmpeq_epi8(_mm256_and_si256(v, f0), e0));
    unsigned take;
    std::uint32_t span;
    if (newline) {
      take = static_cast<unsigned>(__builtin_ctz(newline)) + 1;
      span = take == 32 ? 0xFFFFFFFFu : (1u << take) - 1;
    } else {
      const std::uint32_t cut = (lead2 & 0x80000000u) | (lead3 & 0xC0000000u);
      take = cut ? static_cast<unsigned>(__builtin_ctz(cut)) : 32;
      span = take == 32 ? 0xFFFFFFFFu : (1u << take) - 1;
    }
    high &= span;
    conts &= span;
    lead2 &= span;
    lead3 &= span;
    const std::uint32_t overlong = avx2_mask(_mm256_cmpeq_epi8(_mm256_and_si256(v, fe), c0)) |
                                   ((avx2_mask(_mm256_cmpeq_epi8(v, e0)) << 1) &
                                    avx2_mask(_mm256_cmpeq_epi8(_mm256_and_si256(v, e0), c80)));
    if ((high & ~(conts | lead2 | lead3)) == 0 && (overlong & span) == 0 &&
        conts == ((lead2 << 1) | (lead3 << 1) | (lead3 << 2))) {
      __m256i r[2];
      for (int h = 0; h < 2; ++h) {
        const __m256i a = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * h)));
        const __m256i b = _mm256_and_si256(
            _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * h + 1))), w3f);
        const __m256i c = _mm256_and_si256(
            _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * h + 2))), w3f);
        const __m256i t2 = _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(a, w1f), 6), b);
        const __m256i t3 = _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(a, 12), _mm256_slli_epi16(b, 6)), c);
        const __m256i is2 = _mm256_cmpeq_epi16(_mm256_and_si256(a, we0), wc0);
        const __m256i is3 = _mm256_cmpeq_epi16(_mm256_and_si256(a, wf0), we0);
        r[h] = _mm256_blendv_epi8(_mm256_blendv_epi8(a, t2, is2), t3, is3);
      }
      const std::uint32_t keep = ~conts & span;
      avx2_pack_store(o, _mm256_castsi256_si128(r[0]), keep & 0xFF);
      avx2_pack_store(o, _mm256_extracti128_si256(r[0], 1), (keep >> 8) & 0xFF);
      avx2_pack_store(o, _mm256_castsi256_si128(r[1]), (keep >> 16) & 0xFF);
      avx2_pack_store(o, _mm256_extracti128_si256(r[1], 1), keep >> 24);
      p += take;
      if (newline) {
        in.p = const_cast<char*>(p);
        out = o;
        return true;
      }
      continue;
    }
    // Something else in the block: the ASCII in front of it, then one
    // character the plain way.
    avx2_widen_store(o, _mm256_castsi256_si128(v), 0);
    avx2_widen_store(o, _mm256_extracti128_si256(v, 1), 16);
    if (!step_at_stop(p, e, o, avx2_mask(v) | newline)) break;
  }
  in.p = const_cast<char*>(p);
  out = o;
  return false;
}

// With AVX-512 (BW and VBMI2): the same decoding 32 bytes at a time, with
// every block through it (no branch on whether a block is ASCII) and the
// characters packed by one compress.
__attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi2,bmi,bmi2,popcnt"))) bool fast_run_avx512(
    nuv::CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) {
  const __m256i nl = _mm256_set1_epi8('\n');
  const __m256i c0 = _mm256_set1_epi8(static_cast<char>(0xC0));
  const __m256i c80 = _mm256_set1_epi8(static_cast<char>(0x80));
  const __m256i e0 = _mm256_set1_epi8(static_cast<char>(0xE0));
  const __m256i f0 = _mm256_set1_epi8(static_cast<char>(0xF0));
  const __m256i fe = _mm256_set1_epi8(static_cast<char>(0xFE));
  const __m512i w1f = _mm512_set1_epi16(0x1F), w3f = _mm512_set1_epi16(0x3F);
  const char* p = in.p;
  const char* const e = in.e;
  NUV_UTF16* o = out;
  // p + 1 and p + 2 are loaded too, so 34 bytes must be there.
  while (e - p >= 34 && limit - o >= 32) {
    // 64 bytes of plain ASCII (perhaps up to a newline) are only widened.  The
    // test is on 64 bytes so that it is rarely true on text that has a few
    // non-ASCII characters, and then the branch predicts well either way.
    if (e - p >= 64 && limit - o >= 64) {
      const __m512i z = _mm512_loadu_si512(p);
      if (_mm512_movepi8_mask(z) == 0) {
        _mm512_storeu_si512(o, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(z)));
        _mm512_storeu_si512(o + 32, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(z, 1)));
        const std::uint64_t nl64 = _mm512_cmpeq_epi8_mask(z, _mm512_set1_epi8('\n'));
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
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const std::uint32_t newline = _mm256_cmpeq_epi8_mask(v, nl);
    std::uint32_t high = _mm256_movepi8_mask(v);
    std::uint32_t conts = _mm256_cmpeq_epi8_mask(_mm256_and_si256(v, c0), c80);
    std::uint32_t lead2 = _mm256_cmpeq_epi8_mask(_mm256_and_si256(v, e0), c0);
    std::uint32_t lead3 = _mm256_cmpeq_epi8_mask(_mm256_and_si256(v, f0), e0);
    unsigned take;
    std::uint32_t span;
    if (newline) {
      take = static_cast<unsigned>(__builtin_ctz(newline)) + 1;
      span = take == 32 ? 0xFFFFFFFFu : (1u << take) - 1;
    } else {
      const std::uint32_t cut = (lead2 & 0x80000000u) | (lead3 & 0xC0000000u);
      take = cut ? static_cast<unsigned>(__builtin_ctz(cut)) : 32;
      span = take == 32 ? 0xFFFFFFFFu : (1u << take) - 1;
    }
    high &= span;
    conts &= span;
    lead2 &= span;
    lead3 &= span;
    const std::uint32_t overlong =
        _mm256_cmpeq_epi8_mask(_mm256_and_si256(v, fe), c0) |
        ((_mm256_cmpeq_epi8_mask(v, e0) << 1) & _mm256_cmpeq_epi8_mask(_mm256_and_si256(v, e0), c80));
    if ((high & ~(conts | lead2 | lead3)) == 0 && (overlong & span) == 0 &&
        conts == ((lead2 << 1) | (lead3 << 1) | (lead3 << 2))) {
      const __m512i a = _mm512_cvtepu8_epi16(v);
      const __m512i b = _mm512_and_si512(
          _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 1))), w3f);
      const __m512i c = _mm512_and_si512(
          _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 2))), w3f);
      const __m512i t2 = _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(a, w1f), 6), b);
      const __m512i t3 = _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(a, 12), _mm512_slli_epi16(b, 6)), c);
      __m512i r = _mm512_mask_mov_epi16(a, lead2, t2);
      r = _mm512_mask_mov_epi16(r, lead3, t3);
      const std::uint32_t keep = ~conts & span;
      _mm512_storeu_si512(o, _mm512_maskz_compress_epi16(keep, r));
      o += __builtin_popcount(keep);
      p += take;
      if (newline) {
        in.p = const_cast<char*>(p);
        out = o;
        return true;
      }
      continue;
    }
    // Something else in the block: the ASCII in front of it, then one
    // character the plain way.
    const std::uint32_t stop = _mm256_movepi8_mask(v) | newline;
    _mm512_storeu_si512(o, _mm512_cvtepu8_epi16(v));
    if (!step_at_stop(p, e, o, stop)) break;
  }
  in.p = const_cast<char*>(p);
  out = o;
  return false;
}

using FastRun = bool (*)(nuv::CachedBytes&, NUV_UTF16*&, NUV_UTF16*);

// The scalar level: every byte through the plain decoder.
bool fast_run_none(nuv::CachedBytes&, NUV_UTF16*&, NUV_UTF16*) { return false; }

// Index: 0 scalar, 1 SSE2, 2 SSSE3, 3 AVX2, 4 AVX-512 VBMI2; null when this
// machine (at its NUV_CPU level) has not got it.
FastRun fast_run_at(int kernel) {
  switch (kernel) {
    case 0: return fast_run_none;
    case 1: return nuv::cpu_has_sse2() ? fast_run_sse2 : nullptr;
    case 2: return nuv::cpu_has_ssse3() ? fast_run_ssse3 : nullptr;
    case 3: return nuv::cpu_has_avx2() ? fast_run_avx2 : nullptr;
    case 4: return nuv::cpu_has_avx512_vbmi2() ? fast_run_avx512 : nullptr;
    default: return nullptr;
  }
}

FastRun choose_fast_run() {
  for (int k = 4;; --k)
    if (FastRun f = fast_run_at(k)) return f;
}

std::atomic<FastRun> g_fast_run{nullptr};

inline FastRun fast_run_kernel() {
  FastRun f = g_fast_run.load(std::memory_order_relaxed);
  if (__builtin_expect(f == nullptr, 0)) {
    f = choose_fast_run();
    g_fast_run.store(f, std::memory_order_relaxed);
  }
  return f;
}

}  // namespace

namespace nuv {

bool use_fgets_kernel_for_tests(int kernel) {
  if (kernel < 0) {
    g_fast_run.store(nullptr, std::memory_order_relaxed);
    return true;
  }
  const FastRun f = fast_run_at(kernel);
  if (f) g_fast_run.store(f, std::memory_order_relaxed);
  return f != nullptr;
}

}  // namespace nuv

extern "C" NUV_API NUV_UTF16* fgetsU16(NUV_UTF16* buffer, int capacity, FILE* stream) {
  if (capacity <= 1) {
    buffer[0] = 0;
    return buffer;
  }
  if (!stream) {
    errno = EBADF;
    return nullptr;
  }
  NUV_UTF16* out = buffer;
  NUV_UTF16* const limit = buffer + capacity - 1;
  unsigned char rec[5];
  int status = 0;
  bool last_bad = false;
  End how;
  const FastRun fast_run = fast_run_kernel();
  bool failed;
  {
  nuv::StreamLock lock(stream);
  nuv::CachedBytes next(stream);
  for (;;) {
    NUV_UTF16* const before = out;
    const bool line_done = fast_run(next, out, limit);
    if (out != before) last_bad = false;
    if (line_done) {
      how = End::Newline;
      break;
    }
    if (out == limit) {
      how = End::Full;
      break;
    }
    int b = next();
    if (b < 0) {
      how = End::Eof;
      break;
    }
    if (b < 0x80) {
      *out++ = static_cast<NUV_UTF16>(b);
      last_bad = false;
      if (b == '\n') {
        how = End::Newline;
        break;
      }
      continue;
    }
    status = 0;
    std::int32_t c = nuv::decode_after_lead(next, b, rec, &status);
    last_bad = status == nuv::kBadUtf8Status;
    if (c < 0x10000) {
      *out++ = static_cast<NUV_UTF16>(c);
      if (c == '\n') {  // an overlong form of it
        how = End::Newline;
        break;
      }
      continue;
    }
    *out++ = nuv::high_surrogate(c);
    if (out == limit) {  // no room for the low half: it is dropped and the line ends
      how = End::Full;
      break;
    }
    *out++ = nuv::low_surrogate(c);
  }
  next.sync();
  failed = ferror_unlocked(stream) != 0;
  }
  if (how == End::Eof && out == buffer) return nullptr;
  *out = 0;
  if (how == End::Full && last_bad && nuv::load_relaxed(u16_trace_level) != 0) {
    char text[80];
    std::snprintf(text, sizeof text, "Invalid UTF-8 encountered by fgetsU16 (fileno 0x%x)",
                  static_cast<unsigned>(fileno(stream)));
    u16_traceMsg(text, nuv::kSrcGet, kLineFgetsReport, 0);
    u16_rawAndCharDump(rec, buffer, out);
    u16_endTraceMsg();
  }
  return failed ? nullptr : buffer;
}

NUV_FORWARD(fgetsU, fgetsU16);
