// Runs a check in a forked child (fresh process-wide state, its own TZ) and
// brings back what it found wrong; an empty string means all was well.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

namespace nuvtest {

struct ChildReport {
  std::string text;
  int failures = 0;
  // Records a failure; the first few are kept in full.
  bool check(bool ok, const std::string &what) {
    if (!ok && failures++ < 12) text += what + "\n";
    return ok;
  }
};

inline std::string in_child(const std::function<void(ChildReport &)> &body) {
  int fd[2];
  if (pipe(fd) != 0) return "pipe failed";
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    close(fd[0]);
    ChildReport r;
    body(r);
    if (r.failures > 12) r.text += "... " + std::to_string(r.failures - 12) + " more\n";
    for (std::size_t at = 0; at < r.text.size();) {
      ssize_t n = write(fd[1], r.text.data() + at, r.text.size() - at);
      if (n <= 0) break;
      at += std::size_t(n);
    }
    _exit(0);
  }
  close(fd[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fd[0], buf, sizeof buf)) > 0;) out.append(buf, std::size_t(n));
  close(fd[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) out += "child ended with status " + std::to_string(status) + "\n";
  return out;
}

}  // namespace nuvtest
