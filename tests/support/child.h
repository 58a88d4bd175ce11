// Child processes for tests that must not touch the test process or the
// machine: a forked child, optionally in fresh namespaces with the caller
// mapped to root, and a re-run of this test binary with extra environment
// (for LD_PRELOAD interposers such as nss_wrapper).
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
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

}  // namespace nuvtest
