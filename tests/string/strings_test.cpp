// String functions against a naive model, on generated strings, plus the
// cases whose behaviour differs from the narrow C library on purpose.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <random>
#include <string>

#include "nuvu16.h"
#include "support/recording_trace.h"

using nuvtest::u16;

namespace {

std::u16string random_text(std::mt19937& rng, std::size_t max_len) {
  // A small alphabet makes matches and repeats likely; 0xFFFF and 0x8000
  // catch signed comparisons.
  static const char16_t alphabet[] = {u'a', u'b', u',', 0x8000, 0xFFFF, 0x00E9};
  std::u16string s(rng() % (max_len + 1), u'a');
  for (auto& u : s) u = alphabet[rng() % 6];
  return s;
}

int sign(long v) { return (v > 0) - (v < 0); }

TEST(Strings, AgreeWithAModelOnRandomStrings) {
  std::mt19937 rng(42);
  for (int iter = 0; iter < 3000; ++iter) {
    std::u16string a = random_text(rng, 40), b = random_text(rng, 40), set = random_text(rng, 3);
    SCOPED_TRACE(iter);
    EXPECT_EQ(strlenU16(a.c_str()), long(a.size()));
    EXPECT_EQ(sign(strcmpU16(a.c_str(), b.c_str())), sign(a.compare(b)));
    std::size_t n = rng() % 45;
    EXPECT_EQ(sign(strncmpU16(a.c_str(), b.c_str(), n)), sign(a.substr(0, n).compare(b.substr(0, n))));
    const char16_t c = set.empty() ? u'a' : set[0];
    auto pos = a.find(c);
    EXPECT_EQ(strchrU16(a.c_str(), c), pos == a.npos ? nullptr : a.c_str() + pos);
    auto rpos = a.rfind(c);
    EXPECT_EQ(strrchrU16(a.c_str(), c), rpos == a.npos ? nullptr : a.c_str() + rpos);
    auto span = a.find_first_not_of(set);
    EXPECT_EQ(strspnU16(a.c_str(), set.c_str()), set.empty() ? 0 : span == a.npos ? a.size() : span);
    auto cspan = a.find_first_of(set);
    EXPECT_EQ(strcspnU16(a.c_str(), set.c_str()), cspan == a.npos ? a.size() : cspan);
    EXPECT_EQ(strpbrkU16(a.c_str(), set.c_str()), cspan == a.npos ? nullptr : a.c_str() + cspan);
    auto hit = a.find(b.substr(0, rng() % 4));
    std::u16string needle = b.substr(0, rng() % 4);
    hit = a.find(needle);
    EXPECT_EQ(strstrU16(a.c_str(), needle.c_str()), hit == a.npos ? nullptr : a.c_str() + hit);

    std::u16string dest(100, u'#');
    strcpyU16(dest.data(), a.c_str());
    strcatU16(dest.data(), b.c_str());
    EXPECT_EQ(std::u16string(dest.c_str()), a + b);
    strcpyU16(dest.data(), a.c_str());
    strncatU16(dest.data(), b.c_str(), n);
    EXPECT_EQ(std::u16string(dest.c_str()), a + b.substr(0, n));
  }
}

long at(const NUV_UTF16* p, const char16_t* base) { return p ? p - base : -1; }

// What a call returned and what it must return: offsets for pointers, -1 for null.
TEST(Strings, EdgeResults) {
  const char16_t *s = u"abc", *h = u"abab", *k = u"xxaaab", m[] = {1, 2, 0, 0x1234, 5};
  const long rows[][2] = {
      {strcmpU16(u"\xFFFF", u"A") > 0, 1},  // units compare unsigned
      {strcmpU16(u"A", u"A\xFFFF"), -0xFFFF},  // a ends first: -b[i]
      {strncmpU16(u"abc", u"abd", 2), 0},
      {strncmpU16(u"abc", u"abd", 0), 0},
      {at(strchrU16(s, 0), s), 3},
      {at(strrchrU16(s, 0), s), 3},
      {at(strchrU16(s, 0x10061), s), 0},  // only the low 16 bits count
      {at(strstrU16(h, u""), h), 0},
      {at(strstrU16(h, u"ababa"), h), -1},
      {at(strstrU16(h, u"bab"), h), 1},
      {at(strstrU16(k, u"aab"), k), 3},
      {strlenU(u"abc"), 3},
      {memcmpU(u"ab", u"ac", 2), u'b' - u'c'},
      {memcmpU16(u"\xFFFF", u"\x0001", 1), 0xFFFE},
      {memcmpU16(u"abc", u"xyz", 0), 0},
      {memcmpU16(u"a\0b", u"a\0c", 3), u'b' - u'c'},  // zeros are data
      {at(memchrU16(m, 0x51234, 5), m), 3},
      {at(memchrU16(m, 0, 5), m), 2},
      {at(memchrU16(m, 5, 4), m), -1},
      {at(memchrU16(m, 1, 0), m), -1},
      {long(strnlenRFB("abc", 2)), 2},
      {long(strnlenRFB("abc", 9)), 3},
      {long(strnlenRFB("abc", 0)), 0},
      {mblenU(nullptr, 3), 0},
  };
  for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i][0], rows[i][1]) << "row " << i;
  char16_t d[4];
  EXPECT_EQ(strcpyU(d, u"xy"), d);
}

TEST(Strings, StrncpyPadsWithZeros) {
  char16_t d[8];
  for (auto& u : d) u = u'#';
  strncpyU16(d, u"ab", 6);
  EXPECT_EQ(std::u16string(d, 8), (std::u16string{u'a', u'b', 0, 0, 0, 0, u'#', u'#'}));
  strncpyU16(d, u"abcdef", 3);
  EXPECT_EQ(std::u16string(d, 4), (std::u16string{u'a', u'b', u'c', 0}));
}

TEST(Strings, StrdupCopiesIntoTheHeap) {
  NUV_UTF16* d = strdupU16(u"h\xE9llo");
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(std::u16string(d), u"h\xE9llo");
  std::free(d);
}

TEST(Strings, StrtokKeepsOneProcessWidePosition) {
  std::u16string a = u",,one,two,,three,";
  EXPECT_EQ(std::u16string(strtokU16(a.data(), u",")), u"one");
  EXPECT_EQ(std::u16string(strtokU(nullptr, u",")), u"two");
  EXPECT_EQ(std::u16string(strtokU16(nullptr, u",")), u"three");
  EXPECT_EQ(strtokU16(nullptr, u","), nullptr);
  EXPECT_EQ(strtokU16(nullptr, u","), nullptr);
}

TEST(Strings, StrtokRSetsEinvalAfterTheEnd) {
  std::u16string a = u"a,,b";
  NUV_UTF16* saved = nullptr;
  EXPECT_EQ(std::u16string(strtok_rU16(a.data(), u",", &saved)), u"a");
  EXPECT_EQ(std::u16string(strtok_rU16(nullptr, u",", &saved)), u"b");
  EXPECT_EQ(strtok_rU16(nullptr, u",", &saved), nullptr);
  EXPECT_EQ(saved, nullptr);
  errno = 0;
  EXPECT_EQ(strtok_rU(nullptr, u",", &saved), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Strings, NarrowStrtokRFollowsTheSameRules) {
  char a[] = "a,,b";
  char* saved = nullptr;
  EXPECT_STREQ(strtok_rRFB(a, ",", &saved), "a");
  EXPECT_STREQ(strtok_rRFB(nullptr, ",", &saved), "b");
  EXPECT_EQ(strtok_rRFB(nullptr, ",", &saved), nullptr);
  EXPECT_EQ(saved, nullptr);
  errno = 0;
  EXPECT_EQ(strtok_rRFB(nullptr, ",", &saved), nullptr);
  EXPECT_EQ(errno, EINVAL);
  char only[] = ",,,";
  EXPECT_EQ(strtok_rRFB(only, ",", &saved), nullptr);
  EXPECT_EQ(saved, nullptr);
}

}  // namespace
