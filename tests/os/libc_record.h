// The test program defines the libc functions the wrappers call, records the
// byte arguments they receive and forwards to the real ones, so a test sees
// exactly what libc was given.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ostest {

struct Call {
  std::string function;
  std::vector<std::optional<std::string>> args;  // nullopt: a null pointer
};

struct LibcRecorder {
  static inline bool on = false;
  static inline std::vector<Call> calls;
  LibcRecorder() {
    calls.clear();
    on = true;
  }
  ~LibcRecorder() { on = false; }
  LibcRecorder(const LibcRecorder&) = delete;
  LibcRecorder& operator=(const LibcRecorder&) = delete;
};

// What the rexec stand-in answers.
struct RexecStandIn {
  static inline std::string official = "host.example";
  static inline bool official_null = false;
  static inline int result = 42;
};

void record(const char* function, std::initializer_list<const char*> args);

}  // namespace ostest
