// The canned error reports.  The nlsui_ names are how the wrapper layer
// reaches the same reports.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"
#include "trace/trace.h"

namespace {

bool reports_on() { return nuv::load_relaxed(u16_trace_level) != 0; }

constexpr int kLineCastShort = 1654;
int g_align_check_busy = 0;  // only guards against recursion

}  // namespace

extern "C" {

NUV_API void u16_internalErrorMsg(const char* source_file, int line) {
  if (reports_on()) u16_traceMsg("Internal error", source_file, line, 1);
}

NUV_API void u16_array_short(const char* length_name, const char* function_name, const char* array_name,
                             const char* source_file, int line) {
  if (!reports_on()) return;
  char text[200];
  std::snprintf(text, sizeof text, "Function %.64s :\nArray %.32s length %.32s is too small.", function_name,
                array_name, length_name);
  u16_traceMsg(text, source_file, line, 1);
}

NUV_API void u16_malloc_error(const char* function_name, const char* source_file, int line) {
  if (reports_on()) {
    char text[100];
    std::snprintf(text, sizeof text, "%.64s : malloc : Out of memory.", function_name ? function_name : "");
    std::fprintf(stderr, "%s\n", text);
    u16_traceMsg(text, source_file, line, 1);
  }
  errno = ENOMEM;
}

NUV_API void u16_utf8conv_error(NUV_UTF16* target, const char* source, long target_length,
                                const char* source_file, int line, const char* function_name) {
  if (!reports_on()) return;
  char text[128];
  int tl = std::snprintf(text, sizeof text, "%.50s encountered invalid UTF-8", function_name ? function_name : "");

  // Decode again from the start to find the failing sequence, keeping the
  // last 80 units for the dump.
  const auto* s = reinterpret_cast<const unsigned char*>(source ? source : "");
  NUV_UTF16 recent[80];
  long decoded = 0;
  const unsigned char* fail = nullptr;
  int fail_len = 0;
  for (std::size_t i = 0;;) {
    if (target && decoded >= target_length) break;
    const unsigned char b = s[i];
    NUV_UTF16 u;
    if (b < 0x80) {
      u = b;
      i += 1;
    } else if ((b & 0xE0) == 0xC0) {
      if ((s[i + 1] & 0xC0) != 0x80) {
        fail = s + i, fail_len = 2;
        break;
      }
      u = static_cast<NUV_UTF16>(((b & 0x1F) << 6) | (s[i + 1] & 0x3F));
      i += 2;
    } else if ((b & 0xF0) == 0xE0) {
      if (s[i + 1] == 0) {
        fail = s + i, fail_len = 2;
        break;
      }
      if ((s[i + 1] & 0xC0) != 0x80 || (s[i + 2] & 0xC0) != 0x80) {
        fail = s + i, fail_len = 3;
        break;
      }
      u = static_cast<NUV_UTF16>(((b & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F));
      i += 3;
    } else {
      fail = s + i, fail_len = 1;
      break;
    }
    if (target) target[decoded] = u;
    recent[decoded % 80] = u;
    ++decoded;
    if (u == 0) break;
  }
  if (!fail) std::snprintf(text + tl, sizeof text - static_cast<std::size_t>(tl), " (but where?)");
  u16_traceMsg(text, source_file, line, 0);

  u16_rawDump(fail, fail ? fail_len : 0);
  static const char kPrev[] = "Characters previously read:";
  NUV_TRACE_FUNC hook = nuv::load_relaxed(u16_trace_func);
  if (hook) hook(kPrev, sizeof kPrev - 1);
  NUV_UTF16 ordered[80];
  long shown = decoded < 80 ? decoded : 80;
  for (long k = 0; k < shown; ++k) ordered[k] = recent[(decoded - shown + k) % 80];
  u16_charDump(ordered, shown);
  static const char kAll[] = "All bytes to process";
  if (hook) hook(kAll, sizeof kAll - 1);
  u16_rawStrDump(reinterpret_cast<const char*>(s));
  u16_endTraceMsg();
}

NUV_API void u16_unknownFormatStr(const NUV_UTF16* format, NUV_UTF16 ch, const char* source_file, int line) {
  if (nuv::load_relaxed(u16_trace_level) <= 3) return;
  static const char kHead[] = "Error in format string at or near '";
  char text[128];
  std::size_t n = sizeof kHead - 1;
  std::memcpy(text, kHead, n);
  text[n++] = static_cast<char>(ch & 0xFF);  // one byte; a zero byte ends the text there
  text[n++] = '\'';
  text[n++] = ':';
  text[n++] = '\n';
  for (; format && n < 127; ++format) {
    const char b = static_cast<char>(*format & 0xFF);
    if (b == 0) break;
    text[n++] = b;
  }
  text[n] = 0;
  u16_traceMsg(text, source_file, line, 1);
}

NUV_API void u16_traceFopen(const char* path, int fd, const char* opener, const char* source_file, int line) {
  if (!path) path = "";
  std::size_t len = std::strlen(path);
  const char* dots = "";
  if (len > 80) {
    dots = "...";
    path += len - 80;
  }
  char text[160];
  std::snprintf(text, sizeof text, "%.10s \"%s%s\" (fileno 0x%x)", opener ? opener : "", dots, path,
                static_cast<unsigned>(fd));
  u16_traceMsg(text, source_file, line, 1);
}

NUV_API void nlsui_traceFopen(const NUV_UTF16* path, int fd, const char* opener, const char* source_file,
                              int line) {
  char narrow[81];
  std::size_t len = path ? static_cast<std::size_t>(strlenU16(path)) : 0;
  if (len > 80) {
    path += len - 80;  // only the tail is passed on, so no "..." appears
    len = 80;
  }
  for (std::size_t i = 0; i < len; ++i) narrow[i] = static_cast<char>(path[i] & 0xFF);
  narrow[len] = 0;
  u16_traceFopen(narrow, fd, opener, source_file, line);
}

NUV_API const NUV_UTF16* dbgAlignCheckStringU16(const NUV_UTF16* s) {
  if (!(reinterpret_cast<std::uintptr_t>(s) & 1) || nuv::load_relaxed(g_align_check_busy)) return s;
  nuv::store_relaxed(g_align_check_busy, 1);
  static const char kHead[] = "dbgAlignCheckStringU16(): ERROR: The following string is unaligned:\n";
  char text[sizeof kHead + 40];
  std::memcpy(text, kHead, sizeof kHead - 1);
  const char* raw = reinterpret_cast<const char*>(s);
  std::size_t n = strnlen(raw, 40);
  std::memcpy(text + sizeof kHead - 1, raw, n);
  text[sizeof kHead - 1 + n] = 0;
  u16_traceMsg(text, "<unknown>", 0, 1);
  nuv::store_relaxed(g_align_check_busy, 0);
  return s;
}

NUV_API NUV_UTF16* nlsui_cast_raw2uc(const void* p, const NUV_UTF16* file_name, int line) {
  if (!(reinterpret_cast<std::uintptr_t>(p) & 1)) return static_cast<NUV_UTF16*>(const_cast<void*>(p));
  char fileC[512];
  static const NUV_UTF16 kEmpty[1] = {0};
  std::size_t n = U16s_To_Utf8s_U16(fileC, file_name ? file_name : kEmpty, sizeof fileC);
  if (n >= sizeof fileC - 1) {
    fileC[sizeof fileC - 1] = 0;
    u16_array_short("MAX_FILENAME_LN", "nlsui_cast_raw2uc", "fileC", nuv::kSrcNlsui1, kLineCastShort);
    errno = ENAMETOOLONG;
  }
  char msg[612];
  int m = std::snprintf(msg, sizeof msg, "ERROR: Casting an odd adress to NUV_UTF16* in file %s, line %d\n", fileC,
                        line);
  if (m > static_cast<int>(sizeof msg) - 1) m = sizeof msg - 1;
  std::fwrite(msg, 1, static_cast<std::size_t>(m), stderr);
  const char* chk = std::getenv("NUVCASTRAW2UCCHK");
  if (!(chk && chk[0] == '0' && chk[1] == 0)) std::abort();
  return static_cast<NUV_UTF16*>(const_cast<void*>(p));
}

}  // extern "C"

NUV_FORWARD(nlsui_internalErrorMsg, u16_internalErrorMsg);
NUV_FORWARD(nlsui_array_short, u16_array_short);
NUV_FORWARD(nlsui_malloc_error, u16_malloc_error);
NUV_FORWARD(nlsui_utf8conv_error, u16_utf8conv_error);
