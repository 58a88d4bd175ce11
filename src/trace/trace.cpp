// Trace level, hook and the framed message writer.  Everything is built in
// stack buffers: reports must work when the heap is exhausted.
#include "trace/trace.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "common/nuv_internal.h"

extern "C" {
NUV_API uint32_t u16_trace_level = U16_TRACE_MEDIUM;
NUV_API NUV_TRACE_FUNC u16_trace_func = u16_trace_to_stderr;
NUV_API char u16_cmdline[257] = "";
NUV_API int32_t u16_cmdline_traced = 0;
NUV_API int32_t nlsui_init_trace_level = 1;
NUV_API int32_t no_fgetcU_errors_max = 100;
NUV_API int32_t fgetcU_errors_interval = 3600;
}

namespace nuv {

const char* trace_level_name(std::uint32_t level) {
  switch (level) {
    case U16_TRACE_NONE: return "none";
    case U16_TRACE_LOW: return "low";
    case U16_TRACE_MEDIUM: return "medium";
    case U16_TRACE_HIGH: return "high";
    default: return "";
  }
}

}  // namespace nuv

namespace {

constexpr std::size_t kMaxWithEnd = 968;   // text limit of a message that gets the end line
constexpr std::size_t kMaxNoEnd = 1020;    // text limit of one without it
constexpr int kLineLevelSet = 91;

}  // namespace

extern "C" {

NUV_API int u16_trace_to_stderr(const char* text, int length) {
  if (length > 0) std::fwrite(text, 1, static_cast<std::size_t>(length), stderr);
  return std::fputc('\n', stderr);
}

NUV_API int u16_traceMsg(const char* message, const char* source_file, int line, int with_end_line) {
  char buf[1100];
  if (!source_file) source_file = "";
  std::size_t plen = std::strlen(source_file);
  const char* dots = "";
  if (plen > 60) {
    dots = "...";
    source_file += plen - 57;
  }
  int n = std::snprintf(buf, sizeof buf, "--- Unicode interface [%s%.60s line %d] pid = %d time = %ld:\n", dots,
                        source_file, line, static_cast<int>(getpid()), static_cast<long>(std::time(nullptr)));
  std::size_t len = static_cast<std::size_t>(n);
  if (nuv::load_relaxed(u16_cmdline_traced) == 0) {
    nuv::store_relaxed(u16_cmdline_traced, 1);
    n = std::snprintf(buf + len, sizeof buf - len, "Cmdline : %.256s\n", u16_cmdline);
    len += static_cast<std::size_t>(n);
  }
  const std::size_t limit = with_end_line ? kMaxWithEnd : kMaxNoEnd;
  if (message && len < limit) {
    std::size_t take = strnlen(message, limit - len);
    std::memcpy(buf + len, message, take);
    len += take;
  }
  if (with_end_line) {
    buf[len++] = '\n';
    std::memcpy(buf + len, nuv::kEndLine, sizeof nuv::kEndLine - 1);
    len += sizeof nuv::kEndLine - 1;
  }
  buf[len] = 0;
  NUV_TRACE_FUNC hook = nuv::load_relaxed(u16_trace_func);
  return hook ? hook(buf, static_cast<int>(len)) : 0;
}

NUV_API int u16_endTraceMsg(void) {
  NUV_TRACE_FUNC hook = nuv::load_relaxed(u16_trace_func);
  return hook ? hook(nuv::kEndLine, static_cast<int>(sizeof nuv::kEndLine - 1)) : 0;
}

NUV_API void u16_set_trace(NUV_TRACE_FUNC func, uint32_t level) {
  const uint32_t old = nuv::load_relaxed(u16_trace_level);
  nuv::store_relaxed(u16_trace_level, level);
  if (func) nuv::store_relaxed(u16_trace_func, func);
  // Switching off from "medium" or below is silent; from higher it is announced.
  if (level == 0 && old <= U16_TRACE_MEDIUM) return;
  char text[64];
  std::snprintf(text, sizeof text, "U16 trace level set to %s", nuv::trace_level_name(level));
  u16_traceMsg(text, nuv::kSrcAux, kLineLevelSet, 1);
}

NUV_API void setTraceLibu16U16(NUV_TRACE_FUNC func, uint32_t level) { u16_set_trace(func, level); }
NUV_API void nlsui_set_trace(NUV_TRACE_FUNC func, uint32_t level) { u16_set_trace(func, level); }

NUV_API void u16_set_trace_func(NUV_TRACE_FUNC func) {
  if (func) nuv::store_relaxed(u16_trace_func, func);
}
NUV_API void nlsui_set_trace_func(NUV_TRACE_FUNC func) { u16_set_trace_func(func); }

NUV_API void u16_set_cmdline(const char* text) {
  if (!text) text = "";
  std::size_t n = strnlen(text, sizeof u16_cmdline - 1);
  std::memcpy(u16_cmdline, text, n);
  u16_cmdline[n] = 0;
}

NUV_API void u16_set_fgetcU_error_parameters(int32_t max_count, int32_t interval_seconds) {
  if (max_count >= 0) nuv::store_relaxed(no_fgetcU_errors_max, max_count);
  if (interval_seconds >= 0) nuv::store_relaxed(fgetcU_errors_interval, interval_seconds);
}

}  // extern "C"
