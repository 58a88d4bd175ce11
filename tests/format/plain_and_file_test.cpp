// Plain directives (no flags, width or precision) held against glibc, and
// file output held against writing each piece with its own fwriteU16 call.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>

#include "nuvu16.h"

namespace {

std::u16string widen(const std::string& s) { return std::u16string(s.begin(), s.end()); }

uint64_t random_bits(std::mt19937_64& g) { return g() >> (g() % 64); }

struct Plain {
  const char* directive;
  char kind;  // i: int, l: long long, u: unsigned, U: unsigned long long, s: string
};
const Plain kPlain[] = {{"%d", 'i'},  {"%i", 'i'},  {"%ld", 'l'},  {"%lld", 'l'}, {"%lli", 'l'}, {"%u", 'u'},
                        {"%x", 'u'},  {"%X", 'u'},  {"%lu", 'U'},  {"%lx", 'U'},  {"%llX", 'U'}, {"%s", 's'},
                        {"%ls", 's'}, {"%lls", 's'}};

TEST(PlainDirectives, MatchGlibcWholeAndCut) {
  std::mt19937_64 g(16);
  const char* const words[] = {"", "id=", "x", " | ", "count: ", "0x"};
  for (int n = 0; n < 40000; ++n) {
    const Plain& p = kPlain[g() % std::size(kPlain)];
    const std::string pre = words[g() % 6], post = words[g() % 6];
    const std::string fmt = pre + p.directive + post;
    const uint64_t v = random_bits(g);
    std::string text(g() % 40, 'a');
    for (char& c : text) c = static_cast<char>('a' + g() % 26);
    const std::u16string text16 = widen(text);
    const size_t limit = 1 + g() % 48;
    char want[128];
    char16_t got[128], cut[128];
    int w = 0, r = 0, k = 0;
    const std::u16string f16 = widen(fmt);
    // The same call on both sides, with the argument in the directive's type.
    auto run = [&](const std::string& narrow, auto ours, auto theirs) {
      w = std::snprintf(want, sizeof want, narrow.c_str(), theirs);
      r = sprintfU16(got, f16.c_str(), ours);
      k = snprintfU16(cut, limit, f16.c_str(), ours);
    };
    const bool null = g() % 8 == 0;  // a null string prints "(null)"
    switch (p.kind) {
      case 'i': run(fmt, static_cast<int>(v), static_cast<int>(v)); break;
      case 'l': run(fmt, static_cast<long long>(v), static_cast<long long>(v)); break;
      case 'u': run(fmt, static_cast<unsigned>(v), static_cast<unsigned>(v)); break;
      case 'U': run(fmt, static_cast<unsigned long long>(v), static_cast<unsigned long long>(v)); break;
      default: run(pre + "%s" + post, null ? nullptr : text16.c_str(), null ? "(null)" : text.c_str());
    }
    ASSERT_EQ(std::u16string(got), widen(want)) << fmt << " " << v;
    ASSERT_EQ(r, w) << fmt;
    // A cut text is the whole one's start and the count is the limit.
    const size_t len = static_cast<size_t>(w);
    ASSERT_EQ(k, static_cast<int>(std::min(len, limit))) << fmt << " limit " << limit;
    ASSERT_EQ(std::u16string(cut), std::u16string(got).substr(0, std::min(len, limit - 1))) << fmt;
  }
}

TEST(PlainDirectives, OddAddressString) {
  alignas(2) char raw[128];
  auto* odd = reinterpret_cast<char16_t*>(raw + 1);
  for (int len : {0, 3, 23, 24, 25, 50}) {
    std::u16string want(static_cast<size_t>(len), u'q');
    for (int i = 0; i < len; ++i) std::memcpy(raw + 1 + 2 * i, u"q", 2);
    std::memset(raw + 1 + 2 * len, 0, 2);
    char16_t got[80];
    EXPECT_EQ(sprintfU16(got, u"<%s>", odd), len + 2);
    EXPECT_EQ(std::u16string(got), u"<" + want + u">");
  }
}

std::string slurp(FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string s;
  for (int c; (c = std::fgetc(f)) != EOF;) s.push_back(static_cast<char>(c));
  return s;
}

// Units from a mix that includes lone and paired surrogates; never '%'.
std::u16string random_units(std::mt19937_64& g, size_t max) {
  const char16_t pool[] = {u'a', u'Z', u' ', u'\u00e9', u'\u4e2d', u'\u20ac', 0xD83D, 0xDE00, 0xDBFF, 0xDC00};
  std::u16string s(g() % (max + 1), u'a');
  for (char16_t& u : s) u = g() % 4 ? pool[g() % 6] : pool[g() % std::size(pool)];
  return s;
}

TEST(FileOutput, SameBytesAsOneWritePerPiece) {
  std::mt19937_64 g(1616);
  for (int n = 0; n < 3000; ++n) {
    std::u16string lit[5];
    for (auto& l : lit) l = random_units(g, g() % 4 ? 12 : 300);
    const std::u16string s1 = random_units(g, g() % 4 ? 20 : 400), s2 = random_units(g, 40);
    const char16_t c = random_units(g, 1).append(u"x")[0];
    const int width = static_cast<int>(g() % 600);
    const std::u16string fmt = lit[0] + u"%s" + lit[1] + u"%c" + lit[2] + u"%*s" + lit[3] + u"%s" + lit[4];

    FILE* ours = std::tmpfile();
    const int r = fprintfU16(ours, fmt.c_str(), s1.c_str(), c, width, u"", s2.c_str());
    FILE* ref = std::tmpfile();
    auto piece = [&](const std::u16string& p) { fwriteU16(p.data(), 1, p.size(), ref); };
    piece(lit[0]), piece(s1), piece(lit[1]), piece(std::u16string(1, c)), piece(lit[2]);
    for (int i = 0; i < width; ++i) piece(u" ");
    piece(lit[3]), piece(s2), piece(lit[4]);
    size_t units = s1.size() + 1 + static_cast<size_t>(width) + s2.size();
    for (const auto& l : lit) units += l.size();
    ASSERT_EQ(r, static_cast<int>(units)) << n;
    ASSERT_EQ(slurp(ours), slurp(ref)) << n;
    std::fclose(ours);
    std::fclose(ref);
  }
}

}  // namespace
