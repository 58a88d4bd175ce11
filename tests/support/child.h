// Child processes: a body run in a forked child, and the test program started
// again as a helper that writes back the argument and environment bytes it
// got ("A" + argument + NUL each, then "E" + entry + NUL each).
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace nuvtest {

inline constexpr char kHelperOutVar[] = "NUVTEST_HELPER_OUT";  // names the helper's output file

// The body's wait status; a body that returns exits with 0.
inline int run_in_child(const std::function<void()>& body) {
  const pid_t pid = fork();
  if (pid == 0) body(), _exit(0);
  int status = -1;
  waitpid(pid, &status, 0);
  return status;
}

inline std::string self_exe() {
  char buf[4096];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf);
  return std::string(buf, n > 0 ? static_cast<std::size_t>(n) : 0);
}

struct HelperReport {
  std::vector<std::string> argv, env;
};

inline HelperReport read_helper_report(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  HelperReport r;
  for (std::size_t at = 0, end; (end = all.find('\0', at)) != std::string::npos; at = end + 1)
    (all[at] == 'A' ? r.argv : r.env).push_back(all.substr(at + 1, end - at - 1));
  return r;
}

// For a constructor of the test program: as the helper, report and exit.
inline void helper_main_if_asked(char** argv, char** envp) {
  const std::string key = std::string(kHelperOutVar) + "=";
  const char* out = nullptr;
  for (char** e = envp; *e; ++e)
    if (std::string(*e).rfind(key, 0) == 0) out = *e + key.size();
  if (!out) return;
  std::ofstream o(out, std::ios::binary);
  for (char** a = argv; *a; ++a) o << 'A' << *a << '\0';
  for (char** e = envp; *e; ++e) o << 'E' << *e << '\0';
  o.close();
  _exit(0);
}

}  // namespace nuvtest
