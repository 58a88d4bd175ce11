// libc entries the temporary-file code reaches, interposed by this test
// program: a clock that can be held still, and open64 that counts calls and
// can answer EEXIST for every name.
#include "platform/tempfile_interpose.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

extern "C" int gettimeofday(struct timeval* tv, void* tz) {
  if (nuvtest::Interpose::clock_fixed && tv) {
    *tv = nuvtest::Interpose::clock;
    return 0;
  }
  return static_cast<int>(syscall(SYS_gettimeofday, tv, tz));
}

extern "C" int open64(const char* path, int flags, ...) {
  mode_t mode = 0;
  if (flags & (O_CREAT | O_TMPFILE)) {
    va_list ap;
    va_start(ap, flags);
    mode = static_cast<mode_t>(va_arg(ap, int));
    va_end(ap);
  }
  if (nuvtest::Interpose::count_opens) ++nuvtest::Interpose::opens;
  if (nuvtest::Interpose::always_exists) {
    errno = EEXIST;
    return -1;
  }
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
