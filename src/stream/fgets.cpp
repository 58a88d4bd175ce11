// fgetsU16: the line reader.  Runs of ASCII are widened sixteen bytes at a
// time straight out of the FILE buffer and common two- and three-byte
// characters are decoded in place; everything else goes through its own
// inlined copy of the decoder.
#include <immintrin.h>

#include <cerrno>
#include <cstdio>

#include "common/nuv_internal.h"
#include "stream/utf8_decode.h"

namespace {

constexpr int kLineFgetsReport = 285;

enum class End { Newline, Eof, Full };

inline bool cont(unsigned char b) { return (b & 0xC0) == 0x80; }

// One stop inside a 16-byte block: the bytes in front of it are ASCII and
// have been stored already.  Decodes a valid two- or three-byte character in
// place; false sends the caller to the general path.
__attribute__((always_inline)) inline bool step_at_stop(const char*& p, const char* e, NUV_UTF16*& o,
                                                        unsigned stop) {
  const unsigned k = static_cast<unsigned>(__builtin_ctz(stop));
  p += k;
  o += k;
  const auto* q = reinterpret_cast<const unsigned char*>(p);
  const unsigned b = q[0];
  if (e - p >= 3) {  // at least 16 - k >= 1 bytes remain; a three-byte form needs 3
    if ((b & 0xE0) == 0xC0 && cont(q[1])) {
      *o++ = static_cast<NUV_UTF16>(((b & 0x1F) << 6) | (q[1] & 0x3F));
      p += 2;
      return true;
    }
    if ((b & 0xF0) == 0xE0 && cont(q[1]) && cont(q[2])) {
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

// With SSSE3: blocks of ASCII and valid two-byte characters (most European
// text) are decoded whole, without a branch per character, up to and
// including a newline (true: the line is complete); other blocks go the
// SSE2 way.
__attribute__((target("ssse3,popcnt"))) bool fast_run_ssse3(nuv::CachedBytes& in, NUV_UTF16*& out,
                                                             NUV_UTF16* limit) {
  const __m128i nl = _mm_set1_epi8('\n');
  const __m128i zero = _mm_setzero_si128();
  const __m128i c0 = _mm_set1_epi8(static_cast<char>(0xC0));
  const __m128i c80 = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i e0 = _mm_set1_epi8(static_cast<char>(0xE0));
  const __m128i w1f = _mm_set1_epi16(0x1F), w3f = _mm_set1_epi16(0x3F), we0 = _mm_set1_epi16(0xE0),
                wc0 = _mm_set1_epi16(0xC0);
  const char* p = in.p;
  const char* const e = in.e;
  NUV_UTF16* o = out;
  while (e - p >= 16 && limit - o >= 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    unsigned high = static_cast<unsigned>(_mm_movemask_epi8(v));
    const unsigned newline = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, nl)));
    unsigned conts = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, c0), c80)));
    unsigned leads = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, e0), c0)));
    // Up to and including a newline, or the whole block; a lead in the last
    // byte of a whole block waits for the next one.
    const unsigned span = newline ? (2u << __builtin_ctz(newline)) - 1 : 0xFFFFu;
    high &= span;
    conts &= span;
    leads &= span;
    const unsigned last_lead = leads >> 15;
    leads &= 0x7FFF;
    if ((high & ~(conts | leads | (last_lead << 15))) == 0 && conts == (leads << 1)) {
      const __m128i next = _mm_srli_si128(v, 1);
      __m128i a0 = _mm_unpacklo_epi8(v, zero), a1 = _mm_unpackhi_epi8(v, zero);
      __m128i n0 = _mm_unpacklo_epi8(next, zero), n1 = _mm_unpackhi_epi8(next, zero);
      __m128i l0 = _mm_cmpeq_epi16(_mm_and_si128(a0, we0), wc0), l1 = _mm_cmpeq_epi16(_mm_and_si128(a1, we0), wc0);
      __m128i t0 = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(a0, w1f), 6), _mm_and_si128(n0, w3f));
      __m128i t1 = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(a1, w1f), 6), _mm_and_si128(n1, w3f));
      a0 = _mm_or_si128(_mm_and_si128(l0, t0), _mm_andnot_si128(l0, a0));
      a1 = _mm_or_si128(_mm_and_si128(l1, t1), _mm_andnot_si128(l1, a1));
      const unsigned keep = ~conts & span & (last_lead ? 0x7FFFu : 0xFFFFu);
      const unsigned k0 = keep & 0xFF, k1 = keep >> 8;
      a0 = _mm_shuffle_epi8(a0, _mm_load_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[k0])));
      a1 = _mm_shuffle_epi8(a1, _mm_load_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[k1])));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o), a0);
      o += __builtin_popcount(k0);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o), a1);
      o += __builtin_popcount(k1);
      p += 16 - last_lead;
      if (newline) {
        p = p - 16 + __builtin_ctz(newline) + 1;
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

using FastRun = bool (*)(nuv::CachedBytes&, NUV_UTF16*&, NUV_UTF16*);

FastRun choose_fast_run() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("popcnt") ? fast_run_ssse3 : fast_run_sse2;
}

}  // namespace

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
  static const FastRun fast_run = choose_fast_run();
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
