// fgetsU16: the line reader.  Runs of ASCII are widened sixteen bytes at a
// time straight out of the FILE buffer; everything else goes through its own
// inlined copy of the decoder.
#include <emmintrin.h>

#include <cerrno>
#include <cstdio>

#include "common/nuv_internal.h"
#include "stream/utf8_decode.h"

namespace {

constexpr int kLineFgetsReport = 285;

enum class End { Newline, Eof, Full };

// Widens bytes while both the stream buffer and the destination hold at least
// 16 more; stops in front of the first newline or byte >= 0x80.  Loads stay
// inside [p, e), so nothing past the stream buffer is touched.
inline void ascii_run(nuv::CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) {
  const __m128i nl = _mm_set1_epi8('\n');
  const __m128i zero = _mm_setzero_si128();
  while (in.e - in.p >= 16 && limit - out >= 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in.p));
    unsigned stop = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(v, _mm_cmpeq_epi8(v, nl))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(v, zero));
    if (stop == 0) {
      in.p += 16;
      out += 16;
      continue;
    }
    unsigned k = static_cast<unsigned>(__builtin_ctz(stop));
    in.p += k;
    out += k;
    return;
  }
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
  flockfile(stream);
  nuv::CachedBytes next(stream);
  for (;;) {
    ascii_run(next, out, limit);
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
  const bool failed = ferror_unlocked(stream) != 0;
  funlockfile(stream);
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
