// Start-up trace: lines written straight to stderr while ICU is bound, and
// the reading of the trace levels from the environment.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "common/nuv_internal.h"
#include "trace/trace.h"

namespace {

// Line numbers of the start-up lines this file writes.
constexpr int kLineInitHigh = 212;
constexpr int kLineLoadCalled = 231;

int g_init_level_read = 0;
int g_trace_level_read = 0;

// "none" 0, "low" 1, "medium" 4, "high" 16; -1 for anything else.
int parse_level(const char* v) {
  if (!v) return -1;
  if (!std::strcmp(v, "none")) return 0;
  if (!std::strcmp(v, "low")) return 1;
  if (!std::strcmp(v, "medium")) return 4;
  if (!std::strcmp(v, "high")) return 16;
  return -1;
}

}  // namespace

namespace nuv {

void startup_line(int threshold, int line, const char* fmt, ...) {
  const int level = load_relaxed(nlsui_init_trace_level);
  if (level < threshold) return;
  char text[1024];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  if (level >= 4)
    std::fprintf(stderr, "\n%-79s [%s %d] pid = %d\n", text, kSrcNlsui0, line, static_cast<int>(getpid()));
  else
    std::fprintf(stderr, "\n%s [%s %d] pid = %d\n", text, kSrcNlsui0, line, static_cast<int>(getpid()));
}

void read_init_trace_level() {
  if (load_relaxed(g_init_level_read)) return;
  store_relaxed(g_init_level_read, 1);
  const int v = parse_level(std::getenv("NLSUI_INIT_TRACE_LEVEL"));
  if (v < 0) return;
  store_relaxed(nlsui_init_trace_level, static_cast<std::int32_t>(v));
  if (v == 16) startup_line(16, kLineInitHigh, "NLSUI_INIT_TRACE_LEVEL set to 'high'");
}

void read_trace_levels_for_icu_load() {
  read_init_trace_level();
  if (!load_relaxed(g_trace_level_read)) {
    store_relaxed(g_trace_level_read, 1);
    if (const char* v = std::getenv("NLSUI_TRACE_LEVEL")) {
      const int parsed = parse_level(v);
      const std::uint32_t level = parsed < 0 ? load_relaxed(u16_trace_level) : static_cast<std::uint32_t>(parsed);
      // Forced to 0 first so that "none" is applied silently and every other
      // value is announced.
      store_relaxed(u16_trace_level, 0u);
      nlsui_set_trace(nullptr, level);
    }
  }
  startup_line(16, kLineLoadCalled, "loadIcuDo() is called");
}

void reset_env_levels_read_for_tests() {
  store_relaxed(g_init_level_read, 0);
  store_relaxed(g_trace_level_read, 0);
}

}  // namespace nuv
