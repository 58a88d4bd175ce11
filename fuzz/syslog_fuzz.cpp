// The system-log line on arbitrary texts and parameter records: never more
// than 192 printable characters, no blank runs, no trailing blank; template
// expansion never writes past the caller's buffer.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "syslog/syslog.h"

// The log calls are caught here: nothing reaches the machine's log.
static char g_sent[1024];
static int g_sends = 0;
extern "C" {
void openlog(const char*, int, int) {}
void closelog(void) {}
static void keep(const char* fmt, const char* line) {
  if (std::strcmp(fmt, "%s") != 0) abort();
  std::strncpy(g_sent, line, sizeof g_sent - 1);
  ++g_sends;
}
void syslog(int, const char* fmt, ...) {
  __builtin_va_list ap;
  __builtin_va_start(ap, fmt);
  keep(fmt, __builtin_va_arg(ap, const char*));
  __builtin_va_end(ap);
}
void __syslog_chk(int, int, const char* fmt, ...) {
  __builtin_va_list ap;
  __builtin_va_start(ap, fmt);
  keep(fmt, __builtin_va_arg(ap, const char*));
  __builtin_va_end(ap);
}
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const SyslogSeverity& row = syslog_severity[data[0] % syslog_severity_count];
  const int out_units = data[1];
  const bool record_first = data[2] & 1;
  data += 3;
  size -= 3;
  std::vector<NUV_UTF16> text(size / 2 + 1, 0);
  std::memcpy(text.data(), data, size / 2 * 2);

  static bool started = false;
  if (!started) {
    static const NUV_UTF16 fac[] = {'L', 'O', 'G', '_', 'U', 'S', 'E', 'R', 0}, on[] = {'1', 0};
    if (SyslInit(nullptr, nullptr, fac, on) != 0) abort();
    started = true;
  }
  if (record_first) {
    static const NUV_UTF16 e0a[] = {'E', '0', 'A', 0};
    char none[4];
    if (FormatSyslogMsg(e0a, text.data(), 6, none, sizeof none) != 0) abort();
    WriteSyslog(e0a, text.data(), 6);  // fills slots for the event below
  }
  char line[SYSL_LINE_MAX + 1];
  const int n = FormatSyslogMsg(row.id, text.data(), 4, line, sizeof line);
  if (n > SYSL_LINE_MAX) abort();
  if (n > 0) {
    if (static_cast<int>(std::strlen(line)) != n || line[n - 1] == ' ') abort();
    for (int i = 0; i < n; ++i) {
      const unsigned char c = line[i];
      if (c < 0x20 || c > 0x7E) abort();
      if (i > 0 && c == ' ' && line[i - 1] == ' ') abort();
    }
  }
  // What is sent is what the formatter showed.
  const int before = g_sends;
  WriteSyslog(row.id, text.data(), 4);
  if ((g_sends != before) != (n > 0)) abort();
  if (n > 0 && std::strcmp(g_sent, line) != 0) abort();
  // Expansion into an exact-size heap buffer, every insert the same text.
  std::vector<const NUV_UTF16*> inserts(SYSL_INSERTS, text.data());
  NUV_UTF16* out = out_units ? new NUV_UTF16[out_units] : nullptr;
  const int len = SimpleFormatMessage(row.id, out, out_units, inserts.data());
  if (len < 0 || (out_units && len >= out_units) || (out && out[len] != 0)) abort();
  delete[] out;
  return 0;
}
