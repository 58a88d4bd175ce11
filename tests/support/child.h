// Child processes for tests that must not touch the test process or the
// machine: a forked child, optionally in fresh namespaces with the caller
// mapped to root; a re-run of this test binary with extra environment (for
// LD_PRELOAD interposers such as nss_wrapper); and the test program started
// again as a helper that writes back the argument and environment bytes it
// got ("A" + argument + NUL each, then "E" + entry + NUL each).
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace nuvtest {


struct ChildResult {
  int status = -1;  // exit code or 128 + signal; 77: namespaces refused
  std::string output;
};

inline std::string read_all(int fd) {
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<std::size_t>(n));
  return out;
}

// body runs in a child, writing to `out`; what it writes is returned.
inline ChildResult in_child(const std::function<void(int out)>& body) {
  int p[2];
  ChildResult r;
  std::fflush(nullptr);
  const pid_t pid = pipe(p) == 0 ? fork() : -1;
  if (pid == 0) close(p[0]), body(p[1]), _exit(126);
  if (pid < 0) return r;
  close(p[1]);
  r.output = read_all(p[0]);
  close(p[0]);
  int st = 0;
  if (waitpid(pid, &st, 0) == pid) r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  return r;
}

// fn returns "" or what failed.
inline ChildResult run_forked(const std::function<std::string()>& fn, int unshare_flags = 0) {
  const std::string ids[2] = {std::to_string(getuid()), std::to_string(getgid())};
  return in_child([&](int out) {
    auto put = [](const char* file, const std::string& text) {
      const int fd = open(file, O_WRONLY);
      return fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && !close(fd);
    };
    if (unshare_flags && unshare(unshare_flags) != 0) _exit(77);
    if ((unshare_flags & CLONE_NEWUSER) && !(put("/proc/self/setgroups", "deny") &&
                                             put("/proc/self/uid_map", "0 " + ids[0] + " 1") &&
                                             put("/proc/self/gid_map", "0 " + ids[1] + " 1")))
      _exit(77);
    const std::string failure = fn();
    _exit(write(out, failure.data(), failure.size()) < 0 || !failure.empty());
  });
}

// This binary again on the tests `filter` selects, disabled ones included.
inline ChildResult rerun_self(const std::string& filter, const std::vector<std::pair<std::string, std::string>>& env) {
  return in_child([&](int out) {
    dup2(out, 1), dup2(out, 2);
    for (auto& [k, v] : env) setenv(k.c_str(), v.c_str(), 1);
    execl("/proc/self/exe", "self", ("--gtest_filter=" + filter).c_str(), "--gtest_also_run_disabled_tests", nullptr);
  });
}


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
