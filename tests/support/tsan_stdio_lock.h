// ThreadSanitizer does not model flockfile/funlockfile, so it sees the
// buffer writes of two threads that took turns under the stream lock as a
// race.  Included by a test program that shares a stream between threads,
// these definitions take the place of the C library's for that program and
// tell the sanitizer the lock orders the writes.
#pragma once

#if defined(__SANITIZE_THREAD__)
#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

#include <cstdio>

extern "C" void flockfile(FILE* f) noexcept {
  static const auto real = reinterpret_cast<void (*)(FILE*)>(dlsym(RTLD_NEXT, "flockfile"));
  real(f);
  __tsan_acquire(f);
}

extern "C" void funlockfile(FILE* f) noexcept {
  static const auto real = reinterpret_cast<void (*)(FILE*)>(dlsym(RTLD_NEXT, "funlockfile"));
  __tsan_release(f);
  real(f);
}
#endif
