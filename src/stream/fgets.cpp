// fgetsU16: the line reader.  Whole blocks of the FILE buffer are decoded in
// place (SSE2 for ASCII; the block decoder of line_kernels.h for one- to
// three-byte text at the SSSE3, AVX2 and AVX-512 levels); four-byte, overlong
// and bad sequences, and the ends of the buffers, go through the line
// reader's own inlined copy of the decoder.
#include <immintrin.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "common/cpu.h"
#include "common/nuv_internal.h"
#include "stream/line_kernels.h"
#include "stream/utf8_decode.h"

namespace {

constexpr int kLineFgetsReport = 285;

enum class End { Newline, Eof, Full };

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
    if (!nuv::step_at_stop(p, e, o, stop)) break;
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
    case 2: return nuv::cpu_has_ssse3() ? nuv::line_run_ssse3 : nullptr;
    case 3: return nuv::cpu_has_avx2() ? nuv::line_run_avx2 : nullptr;
    case 4: return nuv::cpu_has_avx512_vbmi2() ? nuv::line_run_avx512 : nullptr;
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
