// A readable, writable page followed by one the process can neither read nor
// write: data placed at its end shows any access past it as a fault.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "nuvu16.h"

namespace nuvtest {

class PageEnd {
 public:
  PageEnd() {
    page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    map_ = static_cast<char*>(mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (map_ != MAP_FAILED) mprotect(map_ + page_, page_, PROT_NONE);
  }
  ~PageEnd() {
    if (map_ != MAP_FAILED) munmap(map_, 2 * page_);
  }
  PageEnd(const PageEnd&) = delete;
  PageEnd& operator=(const PageEnd&) = delete;
  bool ok() const { return map_ != MAP_FAILED; }
  // n bytes copied so that they end `gap` bytes before the unreadable page.
  char* place(const void* bytes, std::size_t n, std::size_t gap) {
    char* at = map_ + page_ - gap - n;
    if (n) std::memcpy(at, bytes, n);
    return at;
  }
  // Terminated text whose terminator ends `gap` bytes before the page.
  const NUV_UTF16* place(const std::u16string& text, std::size_t gap) {
    return reinterpret_cast<const NUV_UTF16*>(place(text.c_str(), 2 * (text.size() + 1), gap));
  }
  const char* place_bytes(const std::string& text, std::size_t gap) { return place(text.c_str(), text.size() + 1, gap); }
  // Room for n items of T that ends at the unreadable page, and n items copied there.
  template <class T>
  T* tail(std::size_t n) const { return end<T>() - n; }
  template <class T>
  T* place_tail(const T* data, std::size_t n) { return reinterpret_cast<T*>(place(static_cast<const void*>(data), n * sizeof(T), 0)); }
  // Data that ends at end<T>() ends where reading on would fault.
  template <class T = char>
  T* end() const { return reinterpret_cast<T*>(map_ + page_); }
  char* guard() const { return map_ + page_; }

 private:
  std::size_t page_;
  char* map_;
};

}  // namespace nuvtest
