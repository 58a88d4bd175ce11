// A private folder under the temporary directory, removed with everything in
// it when the object goes away.
#pragma once

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

namespace nuvtest {

class ScratchDir {
 public:
  ScratchDir() {
    char tmpl[] = "/tmp/nuvtest.XXXXXX";
    const char* p = mkdtemp(tmpl);
    path_ = p ? p : "";
  }
  ~ScratchDir() {
    if (!path_.empty())
      nftw(path_.c_str(), [](const char* f, const struct stat*, int, struct FTW*) { return ::remove(f); }, 16,
           FTW_DEPTH | FTW_PHYS);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// UTF-8 text to UTF-16 (valid input only; for test names and paths).
inline std::u16string utf16(const std::string& s) {
  std::u16string out;
  for (std::size_t i = 0; i < s.size();) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    unsigned v;
    std::size_t n;
    if (b < 0x80) v = b, n = 1;
    else if (b < 0xE0) v = b & 0x1F, n = 2;
    else if (b < 0xF0) v = b & 0x0F, n = 3;
    else v = b & 0x07, n = 4;
    for (std::size_t k = 1; k < n; ++k) v = v << 6 | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += n;
    if (v >= 0x10000) {
      out.push_back(static_cast<char16_t>(0xD800 + ((v - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(v));
    }
  }
  return out;
}

}  // namespace nuvtest
