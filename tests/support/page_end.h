// A readable page followed by one mapped without access: data that ends at
// end<T>() ends where reading on would fault, and guard() reads nothing.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

namespace nuvtest {

struct PageEnd {
  long page = sysconf(_SC_PAGESIZE);
  char* mem = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  PageEnd() {
    if (mem != MAP_FAILED && mprotect(mem + page, page, PROT_NONE) != 0) munmap(mem, 2 * page), mem = nullptr;
  }
  ~PageEnd() {
    if (ok()) munmap(mem, 2 * page);
  }
  bool ok() const { return mem && mem != MAP_FAILED; }
  template <class T = char>
  T* end() const { return reinterpret_cast<T*>(mem + page); }
  char* guard() const { return mem + page; }
};

}  // namespace nuvtest
