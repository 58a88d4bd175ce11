// The clock of the temporary-file seed, held still while fixed_clock is set.
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

timeval* fixed_clock = nullptr;

extern "C" int gettimeofday(struct timeval* tv, void* tz) {
  if (fixed_clock && tv) return *tv = *fixed_clock, 0;
  return static_cast<int>(syscall(SYS_gettimeofday, tv, tz));
}
