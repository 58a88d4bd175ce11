// A readable, writable block followed by a page that is neither: data placed
// at the end of the block shows any read or write past it as a fault.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace testsupport {

class GuardedPage {
 public:
  explicit GuardedPage(std::size_t pages = 1) {
    page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    size_ = pages * page_;
    map_ = static_cast<char*>(mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (map_ != MAP_FAILED && mprotect(map_ + size_, page_, PROT_NONE) != 0) {
      munmap(map_, size_ + page_);
      map_ = static_cast<char*>(MAP_FAILED);
    }
  }
  ~GuardedPage() {
    if (map_ != MAP_FAILED) munmap(map_, size_ + page_);
  }
  GuardedPage(const GuardedPage&) = delete;
  GuardedPage& operator=(const GuardedPage&) = delete;

  bool ok() const { return map_ != MAP_FAILED; }
  // Room for n items of T that ends where the readable block ends.
  template <class T>
  T* tail(std::size_t n) {
    return reinterpret_cast<T*>(map_ + size_ - n * sizeof(T));
  }
  // n items copied so that they end where the readable block ends.
  template <class T>
  T* place(const T* data, std::size_t n) {
    T* at = tail<T>(n);
    if (n) std::memcpy(at, data, n * sizeof(T));
    return at;
  }

 private:
  std::size_t page_ = 0, size_ = 0;
  char* map_;
};

}  // namespace testsupport
