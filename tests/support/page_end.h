// Text placed so that it ends right before an unreadable page: a read past
// its end faults, so vector paths that stop early are proven to stop.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "nuvu16.h"

namespace nuvtest {

// Terminated text whose terminator is the last unit of a readable page.
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
  bool ok() const { return map_ != MAP_FAILED; }
  // The text and its terminator end `gap` bytes before the unreadable page.
  const NUV_UTF16* place(const std::u16string& text, std::size_t gap) {
    char* at = map_ + page_ - gap - 2 * (text.size() + 1);
    std::memcpy(at, text.c_str(), 2 * (text.size() + 1));
    return reinterpret_cast<const NUV_UTF16*>(at);
  }
  // The same for bytes and their terminator.
  const char* place_bytes(const std::string& text, std::size_t gap) {
    char* at = map_ + page_ - gap - (text.size() + 1);
    std::memcpy(at, text.c_str(), text.size() + 1);
    return at;
  }

 private:
  std::size_t page_;
  char* map_;
};

}  // namespace nuvtest
