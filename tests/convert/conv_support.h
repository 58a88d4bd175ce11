// Shared helpers of the converter tests: a recording error hook, glibc iconv
// as the reference, and seeded random valid text over all planes.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "convert/converters.h"
#include "support/iconv_peer.h"

namespace convtest {

using Bytes = std::vector<unsigned char>;
using Units = std::u16string;

struct Report {
  rscpStatus status;
  int32_t c79, cMinus1;
  std::u16string id;
  int32_t err, line;
  std::u16string msg;
  bool zeros;
};

// Installs itself as the hook for its lifetime and records every call.
struct HookRecorder {
  static inline std::vector<Report> reports;
  static inline rscpStatus answer = -1;  // -1: return the status passed in
  static rscpStatus hook(rscpStatus status, int32_t c79, int32_t cm1, const NUV_UTF16* id, int32_t err, int32_t line,
                         const NUV_UTF16* msg, void* z1, void* z2, int32_t z3, void* z4, int32_t z5) {
    reports.push_back({status, c79, cm1, id ? std::u16string(id) : u"", err, line, msg ? std::u16string(msg) : u"",
                       !z1 && !z2 && !z3 && !z4 && !z5});
    return answer < 0 ? status : answer;
  }
  explicit HookRecorder(rscpStatus ret = -1) {
    reports.clear();
    answer = ret;
    rscpSetHook_rscpe__error(hook);
  }
  ~HookRecorder() { rscpSetHook_rscpe__error(nullptr); }
};

// One report as a converter's site makes it: the fixed arguments, the
// version id, and the site's number, line (0: not checked) and message.
inline void expect_site(const Report& rep, rscpStatus status, int32_t err, int32_t line, const char16_t* msg) {
  EXPECT_EQ(rep.status, status);
  EXPECT_EQ(rep.c79, 79);
  EXPECT_EQ(rep.cMinus1, -1);
  EXPECT_EQ(rep.id.rfind(u"$Id:", 0), 0u);
  EXPECT_EQ(rep.err, err);
  if (line) EXPECT_EQ(rep.line, line);
  EXPECT_EQ(rep.msg, msg);
  EXPECT_TRUE(rep.zeros);
}

inline std::string narrow(const std::u16string& s) {
  std::string r;
  for (char16_t c : s) r.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  return r;
}

// Converts with glibc iconv; false on any failure.
inline bool iconv_convert(const char* to, const char* from, const void* in, std::size_t inBytes, std::string& out) {
  auto r = nuvtest::iconv_peer(to, from, std::string(static_cast<const char*>(in), inBytes));
  out = std::move(r.out);
  return r.ok;
}

template <class T>
inline std::vector<T> from_bytes(const std::string& b) {
  std::vector<T> v(b.size() / sizeof(T));
  if (!v.empty()) std::memcpy(v.data(), b.data(), v.size() * sizeof(T));
  return v;
}

// Random scalar values: ASCII, two-byte, BMP (no surrogates) and all
// supplementary planes, in proportions that give every shape often.
inline std::u32string random_text(std::mt19937& rng, std::size_t n) {
  std::u32string s;
  std::uniform_int_distribution<int> kind(0, 9);
  for (std::size_t i = 0; i < n; ++i) {
    char32_t c;
    switch (kind(rng)) {
      case 0: case 1: case 2: c = std::uniform_int_distribution<char32_t>(1, 0x7F)(rng); break;
      case 3: case 4: c = std::uniform_int_distribution<char32_t>(0x80, 0x7FF)(rng); break;
      case 5: case 6: case 7:
        do c = std::uniform_int_distribution<char32_t>(0x800, 0xFFFF)(rng);
        while (c >= 0xD800 && c <= 0xDFFF);
        break;
      default: c = std::uniform_int_distribution<char32_t>(0x10000, 0x10FFFF)(rng);
    }
    s.push_back(c);
  }
  return s;
}

inline std::string to_iconv(const char* to, const std::u32string& text) {
  std::string out;
  EXPECT_TRUE(iconv_convert(to, "UTF-32LE", text.data(), text.size() * 4, out)) << to;
  return out;
}

inline char16_t swap16(char16_t u) { return static_cast<char16_t>(__builtin_bswap16(u)); }

}  // namespace convtest
