// One UTF-8 character from a stdio stream, read straight out of the FILE
// buffer.  Written once as a template over the byte source so that the block
// readers (fgetsU16, freadU16) get their own inlined copy while
// getc_unlockedU16_errno stays a plain function.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "nuvu16.h"
#include "stream/stream_lock.h"

namespace nuv {

inline constexpr const char kSrcGet[] = "i18n/nuvu16/u16_get";
inline constexpr int kBadUtf8Status = EILSEQ;  // 84
inline constexpr std::int32_t kBadUtf8Char = '#';

// getc_unlocked without the per-call function: take from the buffer while
// there is something, else let the library refill (-1: end of file or error).
inline int stream_byte(FILE* f) {
  if (__builtin_expect(f->_IO_read_ptr < f->_IO_read_end, 1))
    return *reinterpret_cast<unsigned char*>(f->_IO_read_ptr++);
  return __uflow(f);
}

// A byte source that keeps the buffer pointers in registers for a whole block
// read; sync() hands the position back to the FILE.
struct CachedBytes {
  FILE* f;
  char* p;
  char* e;
  explicit CachedBytes(FILE* file) : f(file), p(file->_IO_read_ptr), e(file->_IO_read_end) {}
  int operator()() {
    if (__builtin_expect(p < e, 1)) return *reinterpret_cast<unsigned char*>(p++);
    f->_IO_read_ptr = p;
    int c = __uflow(f);
    p = f->_IO_read_ptr;
    e = f->_IO_read_end;
    return c;
  }
  void sync() { f->_IO_read_ptr = p; }
};

struct DirectBytes {
  FILE* f;
  int operator()() { return stream_byte(f); }
};

namespace detail {
inline std::int32_t reject(unsigned char* rec, int* status, int n, int b0, int b1 = 0, int b2 = 0, int b3 = 0) {
  rec[0] = static_cast<unsigned char>(n);
  rec[1] = static_cast<unsigned char>(b0);
  if (n > 1) rec[2] = static_cast<unsigned char>(b1);
  if (n > 2) rec[3] = static_cast<unsigned char>(b2);
  if (n > 3) rec[4] = static_cast<unsigned char>(b3);
  errno = EILSEQ;
  *status = kBadUtf8Status;
  return kBadUtf8Char;
}
inline bool cont(int b) { return (b & 0xC0) == 0x80; }
}  // namespace detail

// The rest of a character whose lead byte b (0..255) has already been read.
// Bytes that break a sequence are consumed with it; nothing is pushed back.
template <class Bytes>
inline std::int32_t decode_after_lead(Bytes& next, int b, unsigned char* rec, int* status) {
  using detail::cont;
  using detail::reject;
  if (b < 0x80) return b;
  if ((b & 0xE0) == 0xC0) {
    int b2 = next();
    if (b2 < 0) return reject(rec, status, 1, b);
    if (!cont(b2)) return reject(rec, status, 2, b, b2);
    return ((b & 0x1F) << 6) | (b2 & 0x3F);
  }
  if ((b & 0xF0) == 0xE0) {
    int b2 = next();
    if (b2 < 0) return reject(rec, status, 1, b);
    if (!cont(b2)) return reject(rec, status, 2, b, b2);
    int b3 = next();
    if (b3 < 0) return reject(rec, status, 2, b, b2);
    if (!cont(b3)) return reject(rec, status, 3, b, b2, b3);
    return ((b & 0x0F) << 12) | ((b2 & 0x3F) << 6) | (b3 & 0x3F);
  }
  if ((b & 0xF8) == 0xF0) {
    int b2 = next();
    if (b2 < 0) return reject(rec, status, 1, b);
    if (!cont(b2)) return reject(rec, status, 2, b, b2);
    int b3 = next();
    if (b3 < 0) return reject(rec, status, 2, b, b2);
    if (!cont(b3)) return reject(rec, status, 3, b, b2, b3);
    int b4 = next();
    if (b4 < 0) return reject(rec, status, 3, b, b2, b3);
    std::int32_t v = ((b & 7) << 18) | ((b2 & 0x3F) << 12) | ((b3 & 0x3F) << 6) | (b4 & 0x3F);
    if (cont(b4) && v < 0x110000) return v;
    return reject(rec, status, 4, b, b2, b3, b4);
  }
  return reject(rec, status, 1, b);
}

// One character: code point, '#' for a rejected sequence, -1 at end of file.
template <class Bytes>
inline std::int32_t decode_one(Bytes& next, unsigned char* rec, int* status) {
  *status = 0;
  int b = next();
  if (b < 0) return -1;
  if (b < 0x80) return b;
  return decode_after_lead(next, b, rec, status);
}

// The four UTF-8 bytes of a character beyond U+FFFF as a failing-bytes record,
// for the report about a character that fgetcU16 has to drop.
inline void record_of(std::int32_t c, unsigned char* rec) {
  rec[0] = 4;
  rec[1] = static_cast<unsigned char>(0xF0 | (c >> 18));
  rec[2] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
  rec[3] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
  rec[4] = static_cast<unsigned char>(0x80 | (c & 0x3F));
}

inline NUV_UTF16 high_surrogate(std::int32_t c) { return static_cast<NUV_UTF16>(0xD800 + ((c - 0x10000) >> 10)); }
inline NUV_UTF16 low_surrogate(std::int32_t c) { return static_cast<NUV_UTF16>(0xDC00 + (c & 0x3FF)); }

// Throttle state of fgetcU16 (hidden process-wide; relaxed atomics).
struct FgetcThrottle {
  std::int32_t errors;       // no_fgetcU_errors
  std::int64_t last_error;   // last_fgetcU_error, seconds
};
FgetcThrottle fgetc_throttle_state();
// Test hook: the block path of fgetsU16, 0 none (scalar), 1 SSE2, 2 SSSE3,
// 3 AVX2, 4 AVX-512 VBMI2; negative: the automatic choice.  False when the
// CPU (at its NUV_CPU level) lacks it.
bool use_fgets_kernel_for_tests(int kernel);
void set_fgetc_throttle_state(FgetcThrottle s);

}  // namespace nuv
