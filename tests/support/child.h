// Child processes for tests: run a body in a forked child and collect how it
// ended, and re-execute the test binary as a helper that writes back the
// argument and environment bytes it was started with.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace nuvtest {

// The helper mode is chosen by this variable, which names the output file.
inline constexpr char kHelperOutVar[] = "NUVTEST_HELPER_OUT";

// Runs body in a child; returns the wait status.
inline int run_in_child(const std::function<void()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(0);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status;
}

inline std::string self_exe() {
  char buf[4096];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  return n > 0 ? std::string(buf, static_cast<std::size_t>(n)) : std::string();
}

// What the helper saw.
struct HelperReport {
  std::vector<std::string> argv;
  std::vector<std::string> env;
};

// The helper writes "A" + argument + NUL for each argument, then "E" + entry
// + NUL for each environment entry.
inline HelperReport read_helper_report(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string all = ss.str();
  HelperReport r;
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = all.find('\0', at);
    if (end == std::string::npos) break;
    (all[at] == 'A' ? r.argv : r.env).push_back(all.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return r;
}

// Call from a constructor of the test program: when started as the helper,
// writes the report and ends the process before any test runs.
inline void helper_main_if_asked(char** argv, char** envp) {
  const char* out = nullptr;
  for (char** e = envp; e && *e; ++e)
    if (std::string(*e).rfind(std::string(kHelperOutVar) + "=", 0) == 0) out = *e + sizeof kHelperOutVar;
  if (!out) return;
  const int fd = open(out, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  auto put = [fd](char tag, const char* s) {
    std::string rec = std::string(1, tag) + s;
    rec.push_back('\0');
    if (write(fd, rec.data(), rec.size()) < 0) _exit(3);
  };
  for (char** a = argv; *a; ++a) put('A', *a);
  for (char** e = envp; e && *e; ++e) put('E', *e);
  close(fd);
  _exit(0);
}

}  // namespace nuvtest
