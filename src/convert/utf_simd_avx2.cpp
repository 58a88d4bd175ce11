// AVX2 kernels of the checking UTF-8 <-> UTF-16 converters (chosen at run
// time).  Runs of ASCII go 64 at a time; mixed text goes in steps of 16
// bytes or 16 units, packed by shuffle tables built at compile time; short
// texts are converted from registers or from a copy padded with zeros.
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "convert/utf8_pack_avx2.h"
#include "convert/utf_simd.h"

namespace nuv::rscp {

namespace {

// Copies n bytes with loads and stores that stay inside both ranges
// (overlapping at the end); short texts need no call.
inline void copy_bytes(void* dst, const void* src, std::size_t n) {
  auto* o = static_cast<unsigned char*>(dst);
  const auto* i = static_cast<const unsigned char*>(src);
  if (n >= 32) {
    for (std::size_t k = 0; k + 32 < n; k += 32)
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + k), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(i + k)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + n - 32), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(i + n - 32)));
  } else if (n >= 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(i + n - 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), a), _mm_storeu_si128(reinterpret_cast<__m128i*>(o + n - 16), b);
  } else {
    for (std::size_t k = 0; k < n; ++k) o[k] = i[k];
  }
}

// The first r < 32 bytes at p, zeros after them, read without touching a
// byte past p + r (overlapping loads, put in place in registers).
inline __m256i load_partial32(const unsigned char* p, std::size_t r) {
  alignas(16) static constexpr uint8_t kSlide[48] = {0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,
                                                     12,   13,   14,   15,   0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                                     0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                                     0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
  if (r >= 16) {  // the last 16 bytes moved down to start at byte 16
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i hi = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + r - 16)),
                                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(kSlide + 32 - r)));
    return _mm256_set_m128i(hi, lo);
  }
  uint64_t lo = 0, hi = 0;
  if (r >= 8) {
    uint64_t tail;
    std::memcpy(&lo, p, 8), std::memcpy(&tail, p + r - 8, 8);
    hi = r > 8 ? tail >> (8 * (16 - r)) : 0;
  } else if (r >= 4) {
    uint32_t a, b;
    std::memcpy(&a, p, 4), std::memcpy(&b, p + r - 4, 4);
    lo = a | static_cast<uint64_t>(b) << (8 * (r - 4));
  } else if (r > 0) {
    lo = p[0] | static_cast<uint64_t>(p[r / 2]) << (8 * (r / 2)) | static_cast<uint64_t>(p[r - 1]) << (8 * (r - 1));
  }
  return _mm256_castsi128_si256(_mm_set_epi64x(static_cast<long long>(hi), static_cast<long long>(lo)));
}

// n bytes at p into buf (32-byte aligned) followed by at least 64 zeros,
// written in whole aligned blocks so that later loads find them forwarded.
inline void copy_padded(unsigned char* buf, const unsigned char* p, std::size_t n) {
  std::size_t k = 0;
  for (; k + 32 <= n; k += 32)
    _mm256_store_si256(reinterpret_cast<__m256i*>(buf + k), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + k)));
  if (k < n) _mm256_store_si256(reinterpret_cast<__m256i*>(buf + k), load_partial32(p + k, n - k)), k += 32;
  _mm256_store_si256(reinterpret_cast<__m256i*>(buf + k), _mm256_setzero_si256());
  _mm256_store_si256(reinterpret_cast<__m256i*>(buf + k + 32), _mm256_setzero_si256());
}

// ---- UTF-8 -> UTF-16 ------------------------------------------------------
// Blocks of 64 bytes are checked with bit masks, independently of the walk
// (a few bits carry over to the next block): structure of every sequence,
// overlong forms, the range of four-byte forms.  A walk then converts the
// characters proved valid, one block behind the check.  Bit i of the end
// mask is set when a character ends at byte i.  A step takes the whole
// characters of 16 bytes: each byte computes, in a 16-bit lane, the unit a
// character ending there gives, and a table per eight lanes packs the lanes
// at character ends (no step depends on a table load for where the next one
// starts).  Runs of ASCII, of two-byte and of three-byte characters take
// shortcuts.

// Packs the 16-bit lanes of eight whose bit is set in the key to the front.
struct PackLanes {
  alignas(16) uint8_t shuf[16];
};
struct PackLanesTable {
  PackLanes e[256];
  constexpr PackLanesTable() : e() {
    for (unsigned key = 0; key < 256; ++key) {
      unsigned n = 0;
      for (unsigned j = 0; j < 8; ++j)
        if (key >> j & 1) e[key].shuf[2 * n] = static_cast<uint8_t>(2 * j), e[key].shuf[2 * n + 1] = static_cast<uint8_t>(2 * j + 1), ++n;
      for (unsigned k = 2 * n; k < 16; ++k) e[key].shuf[k] = 0x80;
    }
  }
};
constexpr PackLanesTable kPackLanes;

inline uint64_t mask64(__m256i lo, __m256i hi) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(lo)) | static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(hi))) << 32;
}
inline uint64_t gt64(__m256i a0, __m256i a1, char c) {
  const __m256i k = _mm256_set1_epi8(c);
  return mask64(_mm256_cmpgt_epi8(a0, k), _mm256_cmpgt_epi8(a1, k));
}
inline uint64_t lt64(__m256i a0, __m256i a1, char c) {
  const __m256i k = _mm256_set1_epi8(c);
  return mask64(_mm256_cmpgt_epi8(k, a0), _mm256_cmpgt_epi8(k, a1));
}
inline uint64_t eq64(__m256i a0, __m256i a1, char c) {
  const __m256i k = _mm256_set1_epi8(c);
  return mask64(_mm256_cmpeq_epi8(a0, k), _mm256_cmpeq_epi8(a1, k));
}

// Three-byte forms in 32-bit lanes (last byte lowest) to code points.
inline __m256i three_byte_values(__m256i x) {
  return _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(x, _mm256_set1_epi32(0x7F)),
                                         _mm256_and_si256(_mm256_srli_epi32(x, 2), _mm256_set1_epi32(0xFC0))),
                         _mm256_and_si256(_mm256_srli_epi32(x, 4), _mm256_set1_epi32(0xF000)));
}

inline void widen32(const __m256i v, NUV_UTF16* d) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 16), _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
}

// Bits that a block hands to the next: continuations still expected, and
// leads whose second byte has a restricted range.
struct Carry {
  uint64_t cont, e0, f0, f4;
};

struct Checked {
  uint64_t high, start, err;  // bytes >= 0x80, starts of characters, errors
  unsigned longest;           // longest form a lead byte announces (1 to 4)
};

__attribute__((always_inline)) inline Checked check_vectors(const __m256i v0, const __m256i v1, Carry& c) {
  const uint64_t high = mask64(v0, v1);
  if ((high | c.cont) == 0) {
    c = {};
    return {0, ~0ull, 0, 1};
  }
  // Signed compares: ASCII bytes are positive, so each mask is cut to bytes >= 0x80.
  const uint64_t geC0 = gt64(v0, v1, -65) & high, geE0 = gt64(v0, v1, -33) & high;
  const uint64_t geF0 = gt64(v0, v1, -17) & high, geF8 = gt64(v0, v1, -9) & high;
  const uint64_t cont = high & ~geC0;
  const uint64_t lead2 = geC0 & ~geE0, lead3 = geE0 & ~geF0, lead4 = geF0 & ~geF8;
  const uint64_t l234 = lead2 | lead3 | lead4, l34 = lead3 | lead4;
  const uint64_t predicted = (l234 << 1) | (l34 << 2) | (lead4 << 3) | c.cont;
  // Overlong forms: leads 0xC0 and 0xC1, 0xE0 followed by 0x80..0x9F.
  const __m256i fe = _mm256_set1_epi8(-2), c0 = _mm256_set1_epi8(-64);
  const uint64_t c0c1 = mask64(_mm256_cmpeq_epi8(_mm256_and_si256(v0, fe), c0), _mm256_cmpeq_epi8(_mm256_and_si256(v1, fe), c0));
  const uint64_t e0 = eq64(v0, v1, -32);
  uint64_t err = geF8 | (predicted ^ cont) | c0c1 | (((e0 << 1) | c.e0) & lt64(v0, v1, -96));
  Carry next{(l234 >> 63) | (l34 >> 62) | (lead4 >> 61), e0 >> 63, 0, 0};
  if (lead4 | c.f0 | c.f4) {
    // Four-byte forms: 0xF0 needs 0x90..0xBF next (else overlong), 0xF4 needs
    // 0x80..0x8F (else past U+10FFFF), 0xF5..0xF7 are past it.
    const uint64_t f0 = eq64(v0, v1, -16), f4 = eq64(v0, v1, -12);
    const uint64_t below90 = lt64(v0, v1, -112);
    err |= (gt64(v0, v1, -12) & lead4) | (((f0 << 1) | c.f0) & below90) | (((f4 << 1) | c.f4) & cont & ~below90);
    next.f0 = f0 >> 63, next.f4 = f4 >> 63;
  }
  c = next;
  return {high, ~cont, err, geF0 ? 4u : geE0 ? 3u : geC0 ? 2u : 1u};
}

inline Checked check_block(const rscpUtf8* p, Carry& c) {
  return check_vectors(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)),
                       _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32)), c);
}

// Keeps the ends that an error at bit q of the second word still allows
// (characters ending two bytes before it or earlier).
inline void cut_at_error(uint64_t& e0, uint64_t& e1, unsigned q) {
  if (q >= 2) {
    e1 &= (1ull << (q - 1)) - 1;
  } else {
    e1 = 0;
    if (q == 0) e0 &= ~(1ull << 63);
  }
}

// One step of the walk at w: e has bit i set when a proved character ends
// at w[i], h when w[i] >= 0x80.  Reads up to 52 bytes at w, writes up to 32
// units at d.  Returns the bytes consumed and units written (0: nothing
// proved at w).
struct Walked {
  unsigned consumed, produced;
};
// Stores the lanes of val set in emit below consumed, in order, at d (writes
// 16 units).
__attribute__((always_inline)) inline Walked pack_lanes(__m256i val, unsigned emit, unsigned consumed, NUV_UTF16* d) {
  emit &= (2u << (consumed - 1)) - 1;
  const PackLanes& p0 = kPackLanes.e[emit & 0xFF];
  const PackLanes& p1 = kPackLanes.e[emit >> 8 & 0xFF];
  const __m256i packed = _mm256_shuffle_epi8(
      val, _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(p0.shuf))),
                                   _mm_load_si128(reinterpret_cast<const __m128i*>(p1.shuf)), 1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
  // Counts from the mask, not the table: the next step's stores need not
  // wait for a load.
  const unsigned n0 = static_cast<unsigned>(__builtin_popcount(emit & 0xFF));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n0), _mm256_extracti128_si256(packed, 1));
  return {consumed, static_cast<unsigned>(__builtin_popcount(emit))};
}

// Four-byte forms over the other lanes: the high surrogate where the lead
// is two bytes back (b2), the low one where it is three back (b3).
__attribute__((always_inline)) inline __m256i with_pairs(__m256i val, __m256i b1, __m256i b2, __m256i b3, __m256i low6) {
  const __m256i k3f = _mm256_set1_epi16(0x3F);
  const auto ge = [](__m256i v, short c) { return _mm256_cmpgt_epi16(v, _mm256_set1_epi16(static_cast<short>(c - 1))); };
  const __m256i hiBits = _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(b2, _mm256_set1_epi16(7)), 8),
                                                         _mm256_slli_epi16(_mm256_and_si256(b1, k3f), 2)),
                                         _mm256_srli_epi16(low6, 4));
  val = _mm256_blendv_epi8(val, _mm256_add_epi16(hiBits, _mm256_set1_epi16(static_cast<short>(0xD7C0))), ge(b2, 0xF0));
  return _mm256_blendv_epi8(
      val,
      _mm256_or_si256(_mm256_set1_epi16(static_cast<short>(0xDC00)),
                      _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(b1, _mm256_set1_epi16(0xF)), 6), low6)),
      ge(b3, 0xF0));
}

__attribute__((always_inline)) inline Walked walk_step(const rscpUtf8* w, uint64_t e, uint64_t h, NUV_UTF16* d,
                                                       __m256i three) {
  if (static_cast<uint32_t>(h) == 0 && (e & 1)) {  // 32 bytes of ASCII (shorter runs go by 16-byte steps)
    unsigned run = ~e ? static_cast<unsigned>(__builtin_ctzll(~e)) : 64;
    if (h) run = std::min(run, static_cast<unsigned>(__builtin_ctzll(h)));
    run = std::min(run, 32u);
    widen32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(w)), d);
    return {run, run};
  }
  if ((e & 0xFFFFFFFFFFFF) == 0x924924924924) {  // sixteen three-byte characters
    for (int half = 0; half < 2; ++half) {
      const rscpUtf8* x24 = w + 24 * half;
      const __m256i x = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(x24 + 12), reinterpret_cast<const __m128i*>(x24));
      const __m256i vals = three_byte_values(_mm256_shuffle_epi8(x, three));
      const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(vals, vals), 0x08);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 8 * half), _mm256_castsi256_si128(packed));
    }
    return {48, 16};
  }
  if ((e & 0xFFFFFF) == 0x924924) {  // eight three-byte characters
    const __m256i x = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(w + 12), reinterpret_cast<const __m128i*>(w));
    const __m256i vals = three_byte_values(_mm256_shuffle_epi8(x, three));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(vals, vals), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
    return {24, 8};
  }
  if ((e & 0xFFFF) == 0xAAAA) {  // eight two-byte characters
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(w));
    const __m128i vals = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(x, _mm_set1_epi16(0x1F)), 6),
                                      _mm_and_si128(_mm_srli_epi16(x, 8), _mm_set1_epi16(0x3F)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), vals);
    return {16, 8};
  }
  // Sixteen bytes: every byte computes the unit of a character ending there
  // (or, in a four-byte form, the high surrogate at its third byte and the
  // low one at its last), and a table per eight lanes packs the ones kept.
  const unsigned ends = static_cast<unsigned>(e & 0xFFFF);
  if (ends == 0) return {0, 0};  // nothing proved here
  const unsigned consumed = 32 - static_cast<unsigned>(__builtin_clz(ends));
  const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(w));
  const __m256i b0 = _mm256_cvtepu8_epi16(x), b1 = _mm256_cvtepu8_epi16(_mm_slli_si128(x, 1));
  const __m256i k3f = _mm256_set1_epi16(0x3F), low6 = _mm256_and_si256(b0, k3f);
  const auto ge = [](__m256i v, short c) { return _mm256_cmpgt_epi16(v, _mm256_set1_epi16(static_cast<short>(c - 1))); };
  const __m256i two = _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(b1, _mm256_set1_epi16(0x1F)), 6), low6);
  const __m128i kE0 = _mm_set1_epi8(static_cast<char>(0xE0));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_max_epu8(x, kE0), x)) == 0) {  // one- and two-byte characters only
    const __m256i val = _mm256_blendv_epi8(b0, two, ge(b1, 0xC0));
    return pack_lanes(val, ends, consumed, d);
  }
  const __m256i b2 = _mm256_cvtepu8_epi16(_mm_slli_si128(x, 2)), b3 = _mm256_cvtepu8_epi16(_mm_slli_si128(x, 3));
  const __m256i mid6 = _mm256_slli_epi16(_mm256_and_si256(b1, k3f), 6);
  // Each later form overrides the earlier ones where both apply; lanes that
  // end no character are not kept.
  __m256i val = _mm256_blendv_epi8(b0, two, ge(b1, 0xC0));
  val = _mm256_blendv_epi8(val, _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(b2, 12), mid6), low6), ge(b2, 0xE0));
  val = with_pairs(val, b1, b2, b3, low6);
  const unsigned lead4 = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(x, _mm_set1_epi8(static_cast<char>(0xF0))), _mm_set1_epi8(static_cast<char>(0xF0)))));
  return pack_lanes(val, ends | lead4 << 2, consumed, d);
}

// Sixteen bytes x0 in registers, each such step on its own: x1, x2, x3
// are the same bytes one, two and three places later (the bytes before x0
// moved in).  Every byte computes the unit of a character ending there, a
// four-byte form the high surrogate at its third byte and the low one at
// its last; e has bit i set when a proved character ends at byte i.  Writes
// 16 units at d, returns the units that count.
// Longest: the longest form the bytes hold (2: no byte from 0xE0 up, 3: none
// from 0xF0 up, 4: any); the shorter kinds skip the forms that cannot occur.
template <int Longest>
__attribute__((always_inline)) inline unsigned chunk16(__m128i x0, __m128i x1, __m128i x2, __m128i x3, uint64_t e,
                                                       NUV_UTF16* d) {
  const __m256i b0 = _mm256_cvtepu8_epi16(x0), b1 = _mm256_cvtepu8_epi16(x1);
  const __m256i k3f = _mm256_set1_epi16(0x3F), low6 = _mm256_and_si256(b0, k3f);
  const auto ge = [](__m256i v, short c) { return _mm256_cmpgt_epi16(v, _mm256_set1_epi16(static_cast<short>(c - 1))); };
  __m256i val = _mm256_blendv_epi8(b0, _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(b1, _mm256_set1_epi16(0x1F)), 6), low6),
                                   ge(b1, 0xC0));
  if constexpr (Longest == 2) return pack_lanes(val, static_cast<unsigned>(e & 0xFFFF), 16, d).produced;
  const __m256i b2 = _mm256_cvtepu8_epi16(x2);
  const __m256i mid6 = _mm256_slli_epi16(_mm256_and_si256(b1, k3f), 6);
  val = _mm256_blendv_epi8(val, _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(b2, 12), mid6), low6), ge(b2, 0xE0));
  if constexpr (Longest == 3) return pack_lanes(val, static_cast<unsigned>(e & 0xFFFF), 16, d).produced;
  const __m128i kF0 = _mm_set1_epi8(static_cast<char>(0xF0));
  const unsigned third = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(x2, kF0), kF0)));
  const unsigned emit = static_cast<unsigned>((e | (third & (e >> 1))) & 0xFFFF);
  const __m256i b3 = _mm256_cvtepu8_epi16(x3);
  val = with_pairs(val, b1, b2, b3, low6);
  return pack_lanes(val, emit, 16, d).produced;
}

void long_utf8_to_utf16(const rscpUtf8** sp, const rscpUtf8* se, NUV_UTF16** dp, NUV_UTF16* de) {
  const rscpUtf8* s = *sp;
  NUV_UTF16* d = *dp;
  // Plain ASCII needs no walk.
  while (se - s >= 64 && de - d >= 64) {
    const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
    const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32));
    if (!_mm256_testz_si256(_mm256_or_si256(v0, v1), _mm256_set1_epi8(-128))) break;
    widen32(v0, d), widen32(v1, d + 32);
    s += 64, d += 64;
  }
  if (se - s < 128 || de - d < 160) {
    *sp = s, *dp = d;
    return;
  }
  alignas(16) static constexpr uint8_t kThree[16] = {2, 1, 0, 0x80, 5, 4, 3, 0x80, 8, 7, 6, 0x80, 11, 10, 9, 0x80};
  const __m256i three = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kThree)));
  constexpr uint64_t kNo63 = ~0ull >> 1;
  // Two checked blocks, [base, base + 128) in bounds: E0/H0 the first, E1/H1
  // the second (E1 bit 63 waits for the block after it).
  const rscpUtf8* base = s;
  Carry carry{};
  const Checked a = check_block(base, carry), b = check_block(base + 64, carry);
  uint64_t E0 = (a.start >> 1) | (b.start << 63), E1 = (b.start >> 1) & kNo63, H0 = a.high, H1 = b.high;
  unsigned L0 = a.longest, L1 = b.longest;
  bool stop = false;  // an error was found: check no further
  if (a.err) {
    const unsigned q = static_cast<unsigned>(__builtin_ctzll(a.err));
    E0 &= q >= 2 ? (1ull << (q - 1)) - 1 : 0, E1 = 0, stop = true;
  } else if (b.err) {
    cut_at_error(E0, E1, static_cast<unsigned>(__builtin_ctzll(b.err))), stop = true;
  }
  unsigned pos = 0;
  for (;;) {
    // Blocks of one- and two-byte forms, or with four-byte ones: four 16-byte
    // steps at fixed places, independent of each other, take the characters
    // that end in the block; the walk goes on from there.  (Three-byte text
    // keeps the walk, whose shortcuts take its runs faster.)
    if ((L0 == 2 || L0 == 4) && pos < 16) {
      if (const uint64_t E = E0 & (~0ull << pos)) {
        __m128i prev = base == s ? _mm_setzero_si128() : _mm_loadu_si128(reinterpret_cast<const __m128i*>(base - 16));
        const auto steps = [&](auto longest) {
          for (unsigned k = 0; k < 4; ++k) {
            const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + 16 * k));
            d += chunk16<decltype(longest)::value>(x, _mm_alignr_epi8(x, prev, 15), _mm_alignr_epi8(x, prev, 14),
                                                   _mm_alignr_epi8(x, prev, 13), E >> (16 * k), d);
            prev = x;
          }
        };
        if (L0 == 2)
          steps(std::integral_constant<int, 2>{});
        else
          steps(std::integral_constant<int, 4>{});
        pos = 64 - static_cast<unsigned>(__builtin_clzll(E));
      }
    }
    while (pos < 64) {
      const uint64_t e = pos ? (E0 >> pos) | (E1 << (64 - pos)) : E0;
      const uint64_t h = pos ? (H0 >> pos) | (H1 << (64 - pos)) : H0;
      const Walked st = walk_step(base + pos, e, h, d, three);
      if (st.consumed == 0) goto done;  // nothing proved here: the scalar code goes on
      pos += st.consumed, d += st.produced;
    }
    // On to the next block: the one after it must be in bounds and checked.
    base += 64, pos -= 64;
    if (se - base < 128 || de - d < 160) break;
    if (stop) {
      E0 = E1, E1 = 0, H0 = H1, H1 = 0, L0 = L1;
    } else {
      const Checked c = check_block(base + 64, carry);
      E0 = E1 | (c.start << 63), E1 = (c.start >> 1) & kNo63, H0 = H1, H1 = c.high, L0 = L1, L1 = c.longest;
      if (c.err) cut_at_error(E0, E1, static_cast<unsigned>(__builtin_ctzll(c.err))), stop = true;
    }
  }
done:
  s = base + pos;
  *sp = s, *dp = d;
}


// Texts below 128 bytes (and the ends of longer ones): the bytes are copied
// into a block of zeros, which ends any character cut at the end, so the
// same check and walk run without reading past the source.
constexpr std::size_t kShortBytes = 127;

void short_utf8_to_utf16(const rscpUtf8** sp, const rscpUtf8* se, NUV_UTF16** dp, NUV_UTF16* de) {
  const std::size_t room = static_cast<std::size_t>(de - *dp);  // a byte gives at most one unit
  const std::size_t n = std::min({static_cast<std::size_t>(se - *sp), room, kShortBytes});
  if (n == 0) return;
  alignas(32) rscpUtf8 buf[kShortBytes + 1 + 64];
  Carry carry{};
  Checked a, b{0, ~0ull, 0, 1};
  if (n <= 32) {  // in registers: the check, then two steps of 16 bytes
    const __m256i v0 = n == 32 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(*sp)) : load_partial32(*sp, n);
    a = check_vectors(v0, _mm256_setzero_si256(), carry);
    if (a.high == 0 && room >= 32) {  // ASCII
      widen32(v0, *dp);
      *sp += n, *dp += n;
      return;
    }
    uint64_t E = (a.start >> 1) & ((1ull << n) - 1);
    if (a.err) {
      const unsigned q = static_cast<unsigned>(__builtin_ctzll(a.err));
      E &= q >= 2 ? (1ull << (q - 1)) - 1 : 0;
    }
    if (E == 0) return;
    alignas(32) NUV_UTF16 tmp[32 + 16];
    NUV_UTF16* const d0 = room >= 48 ? *dp : tmp;  // each step writes 16 units
    const __m128i x0 = _mm256_castsi256_si128(v0), x1 = _mm256_extracti128_si256(v0, 1), z = _mm_setzero_si128();
    const __m256i kE0 = _mm256_set1_epi8(static_cast<char>(0xE0)), kF0 = _mm256_set1_epi8(static_cast<char>(0xF0));
    NUV_UTF16* d = d0;
    const auto steps = [&](auto longest) {
      constexpr int N = decltype(longest)::value;
      d += chunk16<N>(x0, _mm_alignr_epi8(x0, z, 15), _mm_alignr_epi8(x0, z, 14), _mm_alignr_epi8(x0, z, 13), E, d);
      if (E >> 16)
        d += chunk16<N>(x1, _mm_alignr_epi8(x1, x0, 15), _mm_alignr_epi8(x1, x0, 14), _mm_alignr_epi8(x1, x0, 13), E >> 16, d);
    };
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(v0, kE0), v0)) == 0)
      steps(std::integral_constant<int, 2>{});
    else if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(v0, kF0), v0)) == 0)
      steps(std::integral_constant<int, 3>{});
    else
      steps(std::integral_constant<int, 4>{});
    if (d0 == tmp) copy_bytes(*dp, tmp, static_cast<std::size_t>(d - tmp) * 2);
    *sp += 64 - __builtin_clzll(E), *dp += d - d0;
    return;
  } else {
    copy_padded(buf, *sp, n);
    a = check_block(buf, carry);
    if (n >= 64) b = check_block(buf + 64, carry);
  }
  // Ends below n (bit 127 would need the byte after the second block).
  uint64_t E0 = (a.start >> 1) | (b.start << 63), E1 = (b.start >> 1) & (~0ull >> 1);
  if (n < 64) {
    E0 &= (1ull << n) - 1, E1 = 0;
  } else {
    E1 &= (1ull << (n - 64)) - 1;
  }
  if (a.err) {
    const unsigned q = static_cast<unsigned>(__builtin_ctzll(a.err));
    E0 &= q >= 2 ? (1ull << (q - 1)) - 1 : 0, E1 = 0;
  } else if (b.err) {
    cut_at_error(E0, E1, static_cast<unsigned>(__builtin_ctzll(b.err)));
  }
  if ((E0 | E1) == 0) return;
  alignas(32) NUV_UTF16 tmp[kShortBytes + 1 + 32];
  NUV_UTF16* const d0 = room >= n + 32 ? *dp : tmp;  // each step may write 32 units
  NUV_UTF16* d = d0;
  if (const unsigned longest = std::max(a.longest, b.longest); longest == 2 || longest == 4) {
    // Independent 16-byte steps over every character proved, as for blocks
    // of long texts.
    const unsigned taken = E1 ? 128 - static_cast<unsigned>(__builtin_clzll(E1)) : 64 - static_cast<unsigned>(__builtin_clzll(E0));
    const auto steps = [&](auto kind) {
      __m128i prev = _mm_setzero_si128();
      for (unsigned pos = 0; pos < taken; pos += 16) {
        const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(buf + pos));
        const uint64_t e = pos == 0 ? E0 : pos < 64 ? (E0 >> pos) | (E1 << (64 - pos)) : E1 >> (pos - 64);
        d += chunk16<decltype(kind)::value>(x, _mm_alignr_epi8(x, prev, 15), _mm_alignr_epi8(x, prev, 14),
                                            _mm_alignr_epi8(x, prev, 13), e, d);
        prev = x;
      }
    };
    if (longest == 2)
      steps(std::integral_constant<int, 2>{});
    else
      steps(std::integral_constant<int, 4>{});
    if (d0 == tmp) copy_bytes(*dp, tmp, static_cast<std::size_t>(d - tmp) * 2);
    *sp += taken, *dp += d - d0;
    return;
  }
  alignas(16) static constexpr uint8_t kThree[16] = {2, 1, 0, 0x80, 5, 4, 3, 0x80, 8, 7, 6, 0x80, 11, 10, 9, 0x80};
  const __m256i three = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kThree)));
  unsigned pos = 0;
  for (;;) {
    const uint64_t e = pos == 0 ? E0 : pos < 64 ? (E0 >> pos) | (E1 << (64 - pos)) : E1 >> (pos - 64);
    if (e == 0) break;
    const uint64_t h = pos == 0 ? a.high : pos < 64 ? (a.high >> pos) | (b.high << (64 - pos)) : b.high >> (pos - 64);
    const Walked st = walk_step(buf + pos, e, h, d, three);
    if (st.consumed == 0) break;
    pos += st.consumed, d += st.produced;
  }
  if (d0 == tmp) copy_bytes(*dp, tmp, static_cast<std::size_t>(d - tmp) * 2);
  *sp += pos, *dp += d - d0;
}

void utf8_to_utf16_avx2(const rscpUtf8** sp, const rscpUtf8* se, NUV_UTF16** dp, NUV_UTF16* de) {
  long_utf8_to_utf16(sp, se, dp, de);
  if (se - *sp <= static_cast<std::ptrdiff_t>(kShortBytes) || de - *dp < 160) short_utf8_to_utf16(sp, se, dp, de);
}

// ---- UTF-16 -> UTF-8 ------------------------------------------------------
// Units are built in 16- or 32-bit lanes in their one- to three-byte forms
// and packed by the shared tables (utf8_pack_avx2.h).

// Eight units in 32-bit lanes to their bytes: one- to three-byte forms, and
// two bytes for each half of a surrogate pair (the low half takes two bits
// of the unit before it, prev8 holds each lane's previous unit).  hsm/lsm:
// the lanes with high/low halves.  Counts the bytes of the first `lanes`
// lanes (4, 7 or 8; a seventh lane's high half waits for its low one).
__attribute__((always_inline)) inline unsigned encode8_pairs(__m128i v8, __m128i prev8, unsigned hsm, unsigned lsm,
                                                             unsigned lanes, rscpUtf8* d) {
  const __m256i u = _mm256_cvtepu16_epi32(v8);
  const __m256i prev = _mm256_cvtepu16_epi32(prev8);
  const __m256i lt80 = _mm256_cmpgt_epi32(_mm256_set1_epi32(0x80), u);
  const __m256i lt800 = _mm256_cmpgt_epi32(_mm256_set1_epi32(0x800), u);
  const __m256i lanebit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
  const __m256i hs32 = _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(static_cast<int>(hsm)), lanebit), lanebit);
  const __m256i ls32 = _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(static_cast<int>(lsm)), lanebit), lanebit);
  const __m256i six = _mm256_set1_epi32(0x3F), mark = _mm256_set1_epi32(0x80);
  const __m256i two = _mm256_or_si256(_mm256_or_si256(_mm256_set1_epi32(0xC0), _mm256_srli_epi32(u, 6)),
                                      _mm256_slli_epi32(_mm256_or_si256(mark, _mm256_and_si256(u, six)), 8));
  const __m256i chi = _mm256_add_epi32(_mm256_and_si256(u, _mm256_set1_epi32(0x3FF)), _mm256_set1_epi32(0x40));
  const __m256i high = _mm256_or_si256(
      _mm256_or_si256(_mm256_set1_epi32(0xF0), _mm256_srli_epi32(chi, 8)),
      _mm256_slli_epi32(_mm256_or_si256(mark, _mm256_and_si256(_mm256_srli_epi32(chi, 2), six)), 8));
  const __m256i low = _mm256_or_si256(
      _mm256_or_si256(_mm256_or_si256(mark, _mm256_slli_epi32(_mm256_and_si256(prev, _mm256_set1_epi32(3)), 4)),
                      _mm256_and_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0xF))),
      _mm256_slli_epi32(_mm256_or_si256(mark, _mm256_and_si256(u, six)), 8));
  __m256i bytes = _mm256_blendv_epi8(_mm256_blendv_epi8(three_byte_forms(u), two, lt800), u, lt80);
  bytes = _mm256_blendv_epi8(_mm256_blendv_epi8(bytes, high, hs32), low, ls32);
  const unsigned one = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lt80)));
  const unsigned upto2 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lt800)));
  // Units of two or more bytes (pair halves take two), of three.  A waiting
  // high half is packed as one byte that is not counted.
  const unsigned surr = hsm | lsm, skip = lanes == 7 ? 0x80u : 0u;
  const unsigned twoPlus = (~one & 0xFF) & ~skip, three = ~upto2 & ~surr & 0xFF;
  const Pack& p0 = kPack.e[(twoPlus & 0xF) | (three & 0xF) << 4];
  const Pack& p1 = lanes > 4 ? kPack.e[(twoPlus >> 4) | (three >> 4) << 4] : kPack.e[0];
  return store_halves(bytes, p0, p1, d) - (lanes > 4 ? 8 - lanes : 4);
}

struct Encoded {
  unsigned units, bytes;
};

// Sixteen units none of which takes three bytes: ASCII, two-byte forms and
// surrogate pairs, each half of a pair two bytes (the low half takes two
// bits of the unit before it), all in 16-bit lanes and packed by one table
// entry per eight lanes.  A high half in the last lane waits for the next
// step.  {0, 0} when a unit takes three bytes or a surrogate is lone.
__attribute__((always_inline)) inline Encoded encode16_narrow_pairs(const __m256i v, rscpUtf8* d) {
  const __m256i top5 = _mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800)));
  const __m256i narrow = _mm256_or_si256(_mm256_cmpeq_epi16(top5, _mm256_setzero_si256()),
                                         _mm256_cmpeq_epi16(top5, _mm256_set1_epi16(static_cast<short>(0xD800))));
  if (!_mm256_testc_si256(narrow, _mm256_set1_epi8(-1))) return {0, 0};
  const __m256i top6 = _mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xFC00)));
  const __m256i hs = _mm256_cmpeq_epi16(top6, _mm256_set1_epi16(static_cast<short>(0xD800)));
  const __m256i ls = _mm256_cmpeq_epi16(top6, _mm256_set1_epi16(static_cast<short>(0xDC00)));
  // Pairs: a low half exactly where the lane before holds a high half.
  const __m256i hsBefore = _mm256_alignr_epi8(hs, _mm256_permute2x128_si256(hs, hs, 0x08), 14);
  if (!_mm256_testz_si256(_mm256_xor_si256(hsBefore, ls), _mm256_xor_si256(hsBefore, ls))) return {0, 0};
  const __m256i prev = _mm256_alignr_epi8(v, _mm256_permute2x128_si256(v, v, 0x08), 14);
  const __m256i k3f = _mm256_set1_epi16(0x3F), k80 = _mm256_set1_epi16(0x80);
  const __m256i last = _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(v, k3f), k80), 8);
  const __m256i ascii = _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80))),
                                           _mm256_setzero_si256());
  const __m256i chi = _mm256_add_epi16(_mm256_and_si256(v, _mm256_set1_epi16(0x3FF)), _mm256_set1_epi16(0x40));
  const __m256i high = _mm256_or_si256(
      _mm256_or_si256(_mm256_srli_epi16(chi, 8), _mm256_set1_epi16(0xF0)),
      _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(chi, 2), k3f), k80), 8));
  const __m256i low = _mm256_or_si256(
      _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(prev, _mm256_set1_epi16(3)), 4),
                      _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(v, 6), _mm256_set1_epi16(0xF)), k80)),
      last);
  __m256i w = _mm256_blendv_epi8(_mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(v, 6), _mm256_set1_epi16(0xC0)), last),
                                 v, ascii);
  w = _mm256_blendv_epi8(_mm256_blendv_epi8(w, high, hs), low, ls);
  // The last lane's high half waits: packed as one byte that is not counted.
  const unsigned wait = static_cast<unsigned>(_mm256_movemask_epi8(hs)) >> 31;
  const unsigned two = ~static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(ascii, ascii))) & ~(wait << 23);  // lane 15 is bit 23
  return {16 - wait, store_halves(w, kPack2.e[two & 0xFF], kPack2.e[two >> 16 & 0xFF], d) - wait};
}

// Sixteen units whose surrogates all pair up (a high half in the last lane
// waits for the next step); {0, 0} when one does not.
__attribute__((always_inline)) inline Encoded encode_pairs16(const __m256i v, rscpUtf8* d) {
  const __m256i top6 = _mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xFC00)));
  const __m256i hs = _mm256_cmpeq_epi16(top6, _mm256_set1_epi16(static_cast<short>(0xD800)));
  const __m256i ls = _mm256_cmpeq_epi16(top6, _mm256_set1_epi16(static_cast<short>(0xDC00)));
  const unsigned hsm = static_cast<unsigned>(_pext_u32(static_cast<unsigned>(_mm256_movemask_epi8(hs)), 0x55555555u));
  const unsigned lsm = static_cast<unsigned>(_pext_u32(static_cast<unsigned>(_mm256_movemask_epi8(ls)), 0x55555555u));
  if (((hsm << 1) & 0xFFFF) != lsm) return {0, 0};
  const unsigned lanes = 16 - (hsm >> 15);
  const __m256i prev = _mm256_alignr_epi8(v, _mm256_permute2x128_si256(v, v, 0x08), 14);
  const unsigned n = encode8_pairs(_mm256_castsi256_si128(v), _mm256_castsi256_si128(prev), hsm & 0xFF, lsm & 0xFF, 8, d);
  return {lanes, n + encode8_pairs(_mm256_extracti128_si256(v, 1), _mm256_extracti128_si256(prev, 1), hsm >> 8, lsm >> 8,
                                   lanes - 8, d + n)};
}

// Pairs512: steps over surrogates go to the AVX-512 kernel's pair steps.
template <bool Pairs512>
void long_utf16_to_utf8(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  const NUV_UTF16* s = *sp;
  rscpUtf8* d = *dp;
  const __m256i asciiBits = _mm256_set1_epi16(static_cast<short>(0xFF80));
  while (se - s >= 32 && de - d >= 64) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
    // ASCII paths only from 32 ASCII units: shorter runs go by the mixed
    // steps, which predicts better where ASCII alternates with other text.
    if (_mm256_testz_si256(_mm256_or_si256(v, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 16))), asciiBits)) {
      // Long ASCII runs: 64 units a round.
      while (se - s >= 64 && de - d >= 64) {
        const __m256i a0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
        const __m256i a1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 16));
        const __m256i a2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32));
        const __m256i a3 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 48));
        if (!_mm256_testz_si256(_mm256_or_si256(_mm256_or_si256(a0, a1), _mm256_or_si256(a2, a3)), asciiBits)) break;
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_permute4x64_epi64(_mm256_packus_epi16(a0, a1), 0xD8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 32), _mm256_permute4x64_epi64(_mm256_packus_epi16(a2, a3), 0xD8));
        s += 64, d += 64;
      }
      if (se - s < 32 || de - d < 64) break;
      const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
      if (!_mm256_testz_si256(v1, asciiBits)) continue;
      const __m256i v2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 16));
      const __m128i lo = _mm_packus_epi16(_mm256_castsi256_si128(v1), _mm256_extracti128_si256(v1, 1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), lo);
      if (_mm256_testz_si256(v2, asciiBits)) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16),
                         _mm_packus_epi16(_mm256_castsi256_si128(v2), _mm256_extracti128_si256(v2, 1)));
        s += 32, d += 32;
      } else {
        s += 16, d += 16;
      }
      continue;
    }
    // Surrogates: pairs go sixteen units a step; a lone one stops the run
    // after the units before it.
    const __m256i sur = _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800))),
                                           _mm256_set1_epi16(static_cast<short>(0xD800)));
    const unsigned surMask = static_cast<unsigned>(_mm256_movemask_epi8(sur));
    const unsigned take = surMask ? static_cast<unsigned>(__builtin_ctz(surMask)) / 2 : 16;
    if (take == 16) {
      d += encode16(v, d);
      s += 16;
      continue;
    }
    if (const Encoded e = encode16_narrow_pairs(v, d); e.units) {
      s += e.units, d += e.bytes;
      continue;
    }
    if constexpr (Pairs512) {
      if (!encode_pairs16_avx512(s, se, d, de)) break;
      continue;
    }
    if (const Encoded e = encode_pairs16(v, d); e.units) {
      s += e.units, d += e.bytes;
      continue;
    }
    // A lone surrogate among the sixteen: eight or four units before it.
    const __m128i v8 = _mm256_castsi256_si128(v);
    const __m128i top6 = _mm_and_si128(v8, _mm_set1_epi16(static_cast<short>(0xFC00)));
    const __m128i hs = _mm_cmpeq_epi16(top6, _mm_set1_epi16(static_cast<short>(0xD800)));
    const __m128i ls = _mm_cmpeq_epi16(top6, _mm_set1_epi16(static_cast<short>(0xDC00)));
    const unsigned hsm = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(hs, _mm_setzero_si128())));
    const unsigned lsm = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(ls, _mm_setzero_si128())));
    if (((hsm << 1) & 0xFF) != lsm) {
      // A lone surrogate: write the plain units before it, then stop.
      if (take < 4) {
        for (unsigned i = 0; i < take; ++i) {
          const unsigned c = s[i];
          if (c < 0x80) {
            *d++ = static_cast<rscpUtf8>(c);
          } else if (c < 0x800) {
            *d++ = static_cast<rscpUtf8>(0xC0 | c >> 6), *d++ = static_cast<rscpUtf8>(0x80 | (c & 0x3F));
          } else {
            *d++ = static_cast<rscpUtf8>(0xE0 | c >> 12), *d++ = static_cast<rscpUtf8>(0x80 | (c >> 6 & 0x3F));
            *d++ = static_cast<rscpUtf8>(0x80 | (c & 0x3F));
          }
        }
        s += take;
        break;
      }
    }
    const bool crossing = (hsm & 0x80) != 0 && ((hsm << 1) & 0xFF) == lsm;  // its low half comes next time
    const unsigned lanes = ((hsm << 1) & 0xFF) == lsm ? (crossing ? 7 : 8) : (take >= 8 ? 8 : 4);
    d += encode8_pairs(v8, _mm_slli_si128(v8, 2), hsm, lsm, lanes, d);
    s += lanes;
  }
  *sp = s, *dp = d;
}

// Texts below 64 units (and the ends of longer ones) are copied into a
// block with 32 zero units after them and converted there; each zero unit
// the steps took past the text gave one byte at the end of the output.
constexpr std::size_t kShortUnits = 64;

void short_utf16_to_utf8(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  const std::size_t n = std::min(static_cast<std::size_t>(se - *sp), kShortUnits);
  if (n == 0) return;
  alignas(32) NUV_UTF16 buf[kShortUnits + 32];
  copy_padded(reinterpret_cast<unsigned char*>(buf), reinterpret_cast<const unsigned char*>(*sp), 2 * n);
  alignas(32) rscpUtf8 out[3 * (kShortUnits + 32)];
  const NUV_UTF16* s = buf;
  rscpUtf8* d = out;
  long_utf16_to_utf8<false>(&s, buf + n + 32, &d, out + sizeof out);
  std::size_t taken = static_cast<std::size_t>(s - buf), bytes = static_cast<std::size_t>(d - out);
  if (taken > n) bytes -= taken - n, taken = n;
  if (bytes > static_cast<std::size_t>(de - *dp)) return;  // the scalar code fills the room and reports
  copy_bytes(*dp, out, bytes);
  *sp += taken, *dp += bytes;
}

// Texts of up to 32 units in two registers, zero units after them (each
// gives one byte at the end of its step's output, taken off again).
void tiny_utf16_to_utf8(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  const unsigned n = static_cast<unsigned>(se - *sp);
  const auto* p = reinterpret_cast<const unsigned char*>(*sp);
  __m256i v[2];
  v[0] = n >= 16 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)) : load_partial32(p, 2 * n);
  v[1] = n >= 32 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32))
       : n > 16  ? load_partial32(p + 32, 2 * (n - 16))
                 : _mm256_setzero_si256();
  alignas(32) rscpUtf8 tmp[2 * 48 + 32];
  const std::size_t room = static_cast<std::size_t>(de - *dp);
  rscpUtf8* const d0 = room >= sizeof tmp ? *dp : tmp;
  rscpUtf8* d = d0;
  unsigned taken = 0;
  for (unsigned k = 0; k < 2 && taken < n; ++k) {
    const unsigned real = std::min(n - 16 * k, 16u);
    const __m256i sur = _mm256_cmpeq_epi16(_mm256_and_si256(v[k], _mm256_set1_epi16(static_cast<short>(0xF800))),
                                           _mm256_set1_epi16(static_cast<short>(0xD800)));
    Encoded e{16, 0};
    if (_mm256_testz_si256(sur, sur))
      e.bytes = encode16(v[k], d);
    else if (e = encode16_narrow_pairs(v[k], d); !e.units)
      e = encode_pairs16(v[k], d);
    if (e.units == 0) break;  // a lone surrogate: the scalar code takes it from here
    d += e.bytes - (16 - real);
    taken += e.units < real ? e.units : real;
    if (e.units < 16) break;  // a high half waits for its low one
  }
  if (static_cast<std::size_t>(d - d0) > room) return;  // the scalar code fills the room and reports
  if (d0 == tmp) copy_bytes(*dp, tmp, static_cast<std::size_t>(d - tmp));
  *sp += taken, *dp += d - d0;
}

void utf16_to_utf8_avx2(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  if (se - *sp <= 32) return tiny_utf16_to_utf8(sp, se, dp, de);
  long_utf16_to_utf8<false>(sp, se, dp, de);
  if (se - *sp < 32 || de - *dp < 64) short_utf16_to_utf8(sp, se, dp, de);
}

}  // namespace

void utf16_to_utf8_avx2_pairs512(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  long_utf16_to_utf8<true>(sp, se, dp, de);
}

void utf16_to_utf8_avx2_tiny(const NUV_UTF16** sp, const NUV_UTF16* se, rscpUtf8** dp, rscpUtf8* de) {
  tiny_utf16_to_utf8(sp, se, dp, de);
}

const UtfKernels kUtfAvx2{"avx2", utf8_to_utf16_avx2, utf16_to_utf8_avx2};

}  // namespace nuv::rscp
