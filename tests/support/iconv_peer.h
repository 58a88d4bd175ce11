// glibc iconv as the peer: the converted bytes and, when it stops on bad or
// cut input, the input offset it stopped at.
#pragma once

#include <iconv.h>

#include <string>

namespace nuvtest {

struct IconvResult {
  bool ok = false;
  std::string out;       // everything converted before the stop
  std::size_t stop = 0;  // input offset of the stop (the input size when ok)
};

inline IconvResult iconv_peer(const char* to, const char* from, const std::string& in) {
  IconvResult r;
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return r;
  r.out.assign(in.size() * 4 + 16, '\0');
  char *ip = const_cast<char*>(in.data()), *op = r.out.data();
  std::size_t il = in.size(), ol = r.out.size();
  r.ok = iconv(cd, &ip, &il, &op, &ol) != static_cast<std::size_t>(-1);
  iconv_close(cd);
  r.out.resize(r.out.size() - ol);
  r.stop = in.size() - il;
  return r;
}

}  // namespace nuvtest
