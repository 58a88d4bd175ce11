// The scratch folder (scratch.h); UTF-8 test text as UTF-16 through glibc
// iconv; arrays of UTF-16 texts.
#pragma once

#include <iconv.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "support/scratch.h"

namespace nuvtest {

inline std::u16string utf16(const std::string& s) {
  std::u16string out(s.size() + 1, u'\0');
  iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
  char *in = const_cast<char*>(s.data()), *op = reinterpret_cast<char*>(out.data());
  size_t il = s.size(), ol = out.size() * 2;
  iconv(cd, &in, &il, &op, &ol);
  iconv_close(cd);
  out.resize(out.size() - ol / 2);
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
