#include "platform/gmon.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<int> g_done{0};

constexpr char kVariable[] = "GMON_OUT_PREFIX";

// The program name: what follows the last "/" of the first argument of the
// process's command line, or "unknown".
void program_name(char* out, size_t size) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%lu/cmdline", static_cast<unsigned long>(getpid()));
  char cmdline[513] = {};
  ssize_t n = -1;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    n = read(fd, cmdline, 512);
    close(fd);
  }
  if (n <= 0 || cmdline[0] == 0) {
    snprintf(out, size, "unknown");
    return;
  }
  const char* slash = strrchr(cmdline, '/');
  snprintf(out, size, "%s", slash ? slash + 1 : cmdline);
}

}  // namespace

extern "C" int Linux_initialize_gmon(void) {
  if (g_done.exchange(1, std::memory_order_relaxed)) return 0;
  const char* old = getenv(kVariable);
  if (!old) return 0;
  char program[513];
  program_name(program, sizeof program);
  char value[257];
  snprintf(value, sizeof value, "%s_%s", old, program);
  char assignment[513];
  snprintf(assignment, sizeof assignment, "%s=%s", kVariable, value);
  char* kept = strdup(assignment);
  return kept ? putenv(kept) : -1;
}

namespace nuv {
void reset_gmon_once_for_tests() { g_done.store(0, std::memory_order_relaxed); }
}  // namespace nuv
