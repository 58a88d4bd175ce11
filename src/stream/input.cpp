// Character, block and line readers over UTF-8 streams (fgetsU16 has its own
// file: it carries the vectorised ASCII path).
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "common/nuv_internal.h"
#include "stream/utf8_decode.h"

namespace {

constexpr int kLineFgetcReport = 217;
constexpr int kLineFgetcTooMany = 223;
constexpr int kLineFgetcReset = 228;
constexpr int kLineGetsSReport = 414;

// no_fgetcU_errors and last_fgetcU_error: updated without the stream lock;
// concurrent readers may miscount by a few.
std::atomic<std::int32_t> g_fgetc_errors{0};
std::atomic<std::int64_t> g_last_fgetc_error{0};

void fgetc_throttle(FILE* f, const unsigned char* rec) {
  const std::int32_t n = g_fgetc_errors.fetch_add(1, std::memory_order_relaxed) + 1;
  const std::int32_t max = nuv::load_relaxed(no_fgetcU_errors_max);
  const std::int32_t interval = nuv::load_relaxed(fgetcU_errors_interval);
  char text[160];
  if (n < max) {
    std::snprintf(text, sizeof text, "Invalid UTF-8 encountered by fgetcU16 (fileno 0x%x)",
                  static_cast<unsigned>(fileno(f)));
    u16_traceMsg(text, nuv::kSrcGet, kLineFgetcReport, 0);
    u16_rawDump(rec + 1, rec[0] > 4 ? 4 : rec[0]);
    u16_rawFileDumpOpt(f);
    u16_endTraceMsg();
  } else if (n == max) {
    std::snprintf(text, sizeof text,
                  "Too many invalid UTF-8 in fgetcU16, no more error message will be written for %d seconds",
                  interval);
    u16_traceMsg(text, nuv::kSrcGet, kLineFgetcTooMany, 1);
    g_last_fgetc_error.store(static_cast<std::int64_t>(std::time(nullptr)), std::memory_order_relaxed);
  } else if (static_cast<std::int64_t>(std::time(nullptr)) >
             g_last_fgetc_error.load(std::memory_order_relaxed) + interval) {
    u16_traceMsg("fgetcU16 error counter reset", nuv::kSrcGet, kLineFgetcReset, 1);
    g_fgetc_errors.store(0, std::memory_order_relaxed);
  }
}

// A character beyond the BMP cannot be one unit and no state is kept for a
// second call: it becomes U+FFFD and is reported like bad input.
int finish_fgetc(FILE* stream, std::int32_t c, int status, unsigned char* rec) {
  bool dropped = false;
  if (c > 0xFFFF) {
    nuv::record_of(c, rec);
    c = 0xFFFD;
    dropped = true;
  }
  if ((status == nuv::kBadUtf8Status || dropped) && nuv::load_relaxed(u16_trace_level) != 0)
    fgetc_throttle(stream, rec);
  return c;
}

}  // namespace

namespace nuv {

int fgetc_u16_held(FILE* stream) {
  unsigned char rec[5];
  int status;
  const std::int32_t c = getc_unlockedU16_errno(stream, rec, &status);
  return finish_fgetc(stream, c, status, rec);
}

FgetcThrottle fgetc_throttle_state() {
  return {g_fgetc_errors.load(std::memory_order_relaxed), g_last_fgetc_error.load(std::memory_order_relaxed)};
}

void set_fgetc_throttle_state(FgetcThrottle s) {
  g_fgetc_errors.store(s.errors, std::memory_order_relaxed);
  g_last_fgetc_error.store(s.last_error, std::memory_order_relaxed);
}

}  // namespace nuv

extern "C" {

NUV_API int getc_unlockedU16_errno(FILE* stream, unsigned char* bad_bytes, int* status) {
  nuv::DirectBytes next{stream};
  return nuv::decode_one(next, bad_bytes, status);
}

NUV_API int getc_unlockedU16(FILE* stream, unsigned char* bad_bytes) {
  int status;
  return getc_unlockedU16_errno(stream, bad_bytes, &status);
}

NUV_API int fgetcU16(FILE* stream) {
  if (!stream) {
    errno = EBADF;
    return -1;
  }
  unsigned char rec[5];
  int status;
  std::int32_t c;
  {
    nuv::StreamLock lock(stream);
    c = getc_unlockedU16_errno(stream, rec, &status);
  }
  return finish_fgetc(stream, c, status, rec);
}

NUV_API size_t freadU16(NUV_UTF16* buffer, size_t size, size_t count, FILE* stream) {
  if (size == 0 || !stream) return 0;
  const size_t total = size * count;
  size_t n = 0;
  unsigned char rec[5];
  int status;
  nuv::StreamLock lock(stream);
  nuv::CachedBytes next(stream);
  while (n < total) {
    std::int32_t c = nuv::decode_one(next, rec, &status);
    if (c < 0) break;
    if (c < 0x10000) {
      buffer[n++] = static_cast<NUV_UTF16>(c);
    } else {
      buffer[n++] = nuv::high_surrogate(c);
      if (n == total) break;  // the low half has no room and is lost
      buffer[n++] = nuv::low_surrogate(c);
    }
  }
  next.sync();
  return n / size;
}

NUV_API NUV_UTF16* getsU16(NUV_UTF16* buffer) {
  FILE* f = stdin;
  if (!f) return nullptr;
  unsigned char rec[5];
  int status;
  size_t n = 0;
  bool any = false;
  flockfile(f);
  nuv::CachedBytes next(f);
  for (;;) {
    std::int32_t c = nuv::decode_one(next, rec, &status);
    if (c < 0) break;
    any = true;
    if (c == '\n') break;
    if (c < 0x10000) {
      buffer[n++] = static_cast<NUV_UTF16>(c);
    } else {
      buffer[n++] = nuv::high_surrogate(c);
      buffer[n++] = nuv::low_surrogate(c);
    }
  }
  next.sync();
  const bool failed = ferror_unlocked(f) != 0;
  funlockfile(f);
  if (!any) return nullptr;
  buffer[n] = 0;
  return failed ? nullptr : buffer;
}

NUV_API NUV_UTF16* gets_sU16(NUV_UTF16* buffer, size_t capacity) {
  FILE* f = stdin;
  if (capacity == 0 || !f) return nullptr;
  const size_t limit = capacity - 1;
  unsigned char rec[5];
  int status;
  size_t n = 0;
  bool at_eof = false, last_bad = false;
  flockfile(f);
  nuv::CachedBytes next(f);
  while (n < limit) {
    std::int32_t c = nuv::decode_one(next, rec, &status);
    if (c < 0) {
      at_eof = true;
      break;
    }
    if (c == '\n') break;
    last_bad = status == nuv::kBadUtf8Status;
    if (c < 0x10000) {
      buffer[n++] = static_cast<NUV_UTF16>(c);
    } else {
      buffer[n++] = nuv::high_surrogate(c);
      if (n == limit) break;
      buffer[n++] = nuv::low_surrogate(c);
    }
  }
  next.sync();
  const bool failed = ferror_unlocked(f) != 0;
  funlockfile(f);
  if ((at_eof && n == 0) || failed) {
    buffer[0] = 0;
    return nullptr;
  }
  buffer[n] = 0;
  if (n == limit && last_bad && nuv::load_relaxed(u16_trace_level) != 0) {
    u16_traceMsg("Invalid UTF-8 encountered by getsU16", nuv::kSrcGet, kLineGetsSReport, 0);
    u16_rawAndCharDump(rec, buffer, buffer + n);
    u16_endTraceMsg();
  }
  return buffer;
}

NUV_API char* gets_sRFB(char* buffer, size_t capacity) {
  FILE* f = stdin;
  if (capacity == 0 || !f) return nullptr;
  size_t n = 0;
  bool at_eof = false;
  while (n + 1 < capacity) {
    int c = getc(f);
    if (c == EOF) {
      at_eof = true;
      break;
    }
    if (c == '\n') break;
    buffer[n++] = static_cast<char>(c);
  }
  if ((at_eof && n == 0) || ferror(f)) {
    buffer[0] = 0;
    return nullptr;
  }
  buffer[n] = 0;
  return buffer;
}

}  // extern "C"

NUV_FORWARD(fgetcU, fgetcU16);
NUV_FORWARD(freadU, freadU16);
NUV_FORWARD(getsU, getsU16);
