// The scratch folder, UTF-8 test text as UTF-16 through glibc iconv, and
// arrays of UTF-16 texts.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "support/iconv_peer.h"
#include "support/scratch.h"

namespace nuvtest {

inline std::u16string utf16(const std::string& s) {
  const std::string le = iconv_peer("UTF-16LE", "UTF-8", s).out;
  std::u16string out(le.size() / 2, u'\0');
  std::memcpy(out.data(), le.data(), 2 * out.size());
  return out;
}

// A null-terminated array of pointers into v (which must outlive it).
inline std::vector<char16_t*> array_of(const std::vector<std::u16string>& v) {
  std::vector<char16_t*> a;
  for (auto& s : v) a.push_back(const_cast<char16_t*>(s.c_str()));
  a.push_back(nullptr);
  return a;
}

}  // namespace nuvtest
