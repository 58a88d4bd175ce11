// A trace hook that records every line handed to it, for byte-exact checks.
#pragma once

#include <string>
#include <vector>

#include "nuvu16.h"

namespace nuvtest {

struct RecordingTrace {
  static inline std::vector<std::string> lines;
  static int hook(const char* text, int len) {
    lines.emplace_back(text, static_cast<std::size_t>(len));
    return len;
  }
  uint32_t saved_level;
  NUV_TRACE_FUNC saved_func;
  int32_t saved_cmdline_traced;
  explicit RecordingTrace(uint32_t level = U16_TRACE_MEDIUM)
      : saved_level(u16_trace_level), saved_func(u16_trace_func), saved_cmdline_traced(u16_cmdline_traced) {
    lines.clear();
    u16_trace_func = hook;
    u16_trace_level = level;
    u16_cmdline_traced = 1;  // tests of the first-message line set it back to 0 themselves
  }
  ~RecordingTrace() {
    u16_trace_func = saved_func;
    u16_trace_level = saved_level;
    u16_cmdline_traced = saved_cmdline_traced;
  }
};

inline const std::string kEndLine = "--- Unicode interface ------ End of message ------";

// The header line carries pid and time; strip it to compare the rest.
inline std::string after_header(const std::string& msg) {
  auto nl = msg.find('\n');
  return nl == std::string::npos ? std::string() : msg.substr(nl + 1);
}
inline std::vector<std::string> recorded_bodies() {
  std::vector<std::string> out;
  for (const auto& l : RecordingTrace::lines) out.push_back(after_header(l));
  return out;
}

inline std::u16string u16(const char* ascii) {
  std::u16string s;
  for (; *ascii; ++ascii) s.push_back(static_cast<unsigned char>(*ascii));
  return s;
}

}  // namespace nuvtest
