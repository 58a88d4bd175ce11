// Hexadecimal dumps, one hook call per line.
#include <cstdio>
#include <cstdlib>

#include "common/nuv_internal.h"

namespace {

constexpr int kRawPerLine = 16;
constexpr int kCharPerLine = 8;

int call_hook(const char* text, int len) {
  NUV_TRACE_FUNC hook = nuv::load_relaxed(u16_trace_func);
  return hook ? hook(text, len) : 0;
}

// " xx" per byte, " |", 16 characters, "|": 67 characters.
void raw_line(const unsigned char* b, int count) {
  static const char hex[] = "0123456789abcdef";
  char line[3 * kRawPerLine + 2 + kRawPerLine + 1 + 1];
  char* p = line;
  for (int i = 0; i < kRawPerLine; ++i) {
    *p++ = ' ';
    *p++ = i < count ? hex[b[i] >> 4] : ' ';
    *p++ = i < count ? hex[b[i] & 15] : ' ';
  }
  *p++ = ' ';
  *p++ = '|';
  for (int i = 0; i < kRawPerLine; ++i)
    *p++ = i >= count ? ' ' : (b[i] >= 0x21 && b[i] <= 0x7E) ? static_cast<char>(b[i]) : '.';
  *p++ = '|';
  *p = 0;
  call_hook(line, static_cast<int>(p - line));
}

// " xxxx" per unit, "  |", 8 characters, "|": 52 characters.
void char_line(const NUV_UTF16* u, int count) {
  char line[5 * kCharPerLine + 3 + kCharPerLine + 1 + 1];
  char* p = line;
  for (int i = 0; i < kCharPerLine; ++i) {
    if (i < count)
      p += std::snprintf(p, 6, " %04x", static_cast<unsigned>(u[i]));
    else
      for (int k = 0; k < 5; ++k) *p++ = ' ';
  }
  *p++ = ' ';
  *p++ = ' ';
  *p++ = '|';
  for (int i = 0; i < kCharPerLine; ++i)
    *p++ = i >= count ? ' ' : (u[i] >= 0x20 && u[i] <= 0x7F) ? static_cast<char>(u[i]) : '.';
  *p++ = '|';
  *p = 0;
  call_hook(line, static_cast<int>(p - line));
}

}  // namespace

extern "C" {

NUV_API void u16_rawDump(const void* bytes, long count) {
  const auto* b = static_cast<const unsigned char*>(bytes);
  for (long i = 0; i < count; i += kRawPerLine)
    raw_line(b + i, static_cast<int>(count - i < kRawPerLine ? count - i : kRawPerLine));
}

NUV_API void u16_rawStrDump(const char* text) {
  if (!text) return;
  u16_rawDump(text, static_cast<long>(strnlen(text, 80)));
}

NUV_API void u16_charDump(const NUV_UTF16* units, long count) {
  for (long i = 0; i < count; i += kCharPerLine)
    char_line(units + i, static_cast<int>(count - i < kCharPerLine ? count - i : kCharPerLine));
}

// Record: a count byte (1..4) and the bytes of the rejected sequence.
NUV_API void u16_rawAndCharDump(const unsigned char* bad_bytes_record, const NUV_UTF16* buffer_start,
                                const NUV_UTF16* buffer_position) {
  if (bad_bytes_record) {
    int n = bad_bytes_record[0];
    u16_rawDump(bad_bytes_record + 1, n > 4 ? 4 : n);
  }
  static const char kPrev[] = "Characters previously read:";
  call_hook(kPrev, sizeof kPrev - 1);
  if (buffer_start && buffer_position > buffer_start) {
    long n = buffer_position - buffer_start;
    if (n > 80) {
      buffer_start = buffer_position - 80;
      n = 80;
    }
    u16_charDump(buffer_start, n);
  }
}

NUV_API void u16_rawFileDumpOpt(FILE* stream) {
  const char* v = std::getenv("NLSUI_FILE_TRACE");
  if (!v || !*v || (v[0] == '0' && v[1] == 0) || !stream) return;
  unsigned char bytes[80];
  int n = 0;
  for (int c; n < 80 && (c = getc(stream)) != EOF;) bytes[n++] = static_cast<unsigned char>(c);
  u16_rawDump(bytes, n);
}

}  // extern "C"
