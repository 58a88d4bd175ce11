// The stream lock for one whole call.  While the process has a single thread
// nobody can contend for it, so it is skipped, as the C library does for its
// own stdio calls; a thread can only appear between calls.
#pragma once

#include <sys/single_threaded.h>

#include <cstdio>

namespace nuv {

class StreamLock {
 public:
  explicit StreamLock(FILE* f) : f_(f), taken_(!__libc_single_threaded) {
    if (taken_) flockfile(f_);
  }
  ~StreamLock() {
    if (taken_) funlockfile(f_);
  }
  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

 private:
  FILE* f_;
  bool taken_;
};

}  // namespace nuv
