// The test program defines the libc entries the wrappers call: each records
// the texts it was handed (nullopt for null) and forwards to libc, so tests
// see exactly what libc got.  rexec is answered by a stand-in, never sent.
#pragma once

#include <stdio.h>

#include <optional>
#include <string>
#include <vector>

namespace ostest {

using Texts = std::vector<std::optional<std::string>>;
struct Call {
  std::string function;
  Texts args;
};

struct LibcRecorder {
  static inline bool on = false;
  static inline std::vector<Call> calls;
  LibcRecorder() { calls.clear(), on = true; }
  ~LibcRecorder() { on = false; }
};

// freopen keeps its FILE even when it fails (closed, not freed), so tests
// that make it fail hand over this one stream again and again.
inline FILE* freopen_target() {
  static FILE* f = tmpfile();
  return f;
}

struct RexecStandIn {  // what the rexec stand-in answers
  static inline std::string official = "host.example";
  static inline bool official_null = false;
};

}  // namespace ostest
