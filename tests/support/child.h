// Child processes for tests that must not touch the test process or the
// machine: a forked child that reports back a failure text, the same inside
// fresh user, UTS and mount namespaces, and a re-run of the test binary itself
// with extra environment (for LD_PRELOAD interposers such as nss_wrapper).
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace nuvtest {

struct ChildResult {
  int status = -1;     // exit code, 128 + signal, or -1 when it could not run
  std::string output;  // what the child wrote to the report pipe or its stdout/stderr
};

inline std::string read_all(int fd) {
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<std::size_t>(n));
  return out;
}

inline int decode_status(int st) { return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st); }

// Runs fn in a forked child; fn returns "" when all went well, else what
// failed.  Namespace flags (CLONE_NEWUSER | ...) are entered first, with the
// caller mapped to root inside; status 77 means they were refused.
inline ChildResult run_forked(const std::function<std::string()>& fn, int unshare_flags = 0) {
  int p[2];
  ChildResult r;
  if (pipe(p) != 0) return r;
  std::fflush(nullptr);
  const uid_t uid = getuid();
  const gid_t gid = getgid();
  const pid_t pid = fork();
  if (pid < 0) return r;
  if (pid == 0) {
    close(p[0]);
    if (unshare_flags) {
      if (unshare(unshare_flags) != 0) _exit(77);
      if (unshare_flags & CLONE_NEWUSER) {
        auto put = [](const char* file, const std::string& text) {
          const int fd = open(file, O_WRONLY);
          const bool ok = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
          if (fd >= 0) close(fd);
          return ok;
        };
        put("/proc/self/setgroups", "deny");
        if (!put("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
            !put("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
          _exit(77);
      }
    }
    const std::string failure = fn();
    if (!failure.empty() && write(p[1], failure.data(), failure.size()) < 0) _exit(2);
    _exit(failure.empty() ? 0 : 1);
  }
  close(p[1]);
  r.output = read_all(p[0]);
  close(p[0]);
  int st = 0;
  waitpid(pid, &st, 0);
  r.status = decode_status(st);
  return r;
}

// Runs this test binary again on the tests that `filter` selects, with env
// added to the environment; its stdout and stderr are returned.
inline ChildResult rerun_self(const std::string& filter, const std::vector<std::pair<std::string, std::string>>& env) {
  int p[2];
  ChildResult r;
  if (pipe(p) != 0) return r;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) return r;
  if (pid == 0) {
    close(p[0]);
    dup2(p[1], 1);
    dup2(p[1], 2);
    for (auto& [k, v] : env) setenv(k.c_str(), v.c_str(), 1);
    const std::string f = "--gtest_filter=" + filter;
    execl("/proc/self/exe", "self", f.c_str(), "--gtest_also_run_disabled_tests", static_cast<char*>(nullptr));
    _exit(126);
  }
  close(p[1]);
  r.output = read_all(p[0]);
  close(p[0]);
  int st = 0;
  waitpid(pid, &st, 0);
  r.status = decode_status(st);
  return r;
}

}  // namespace nuvtest
