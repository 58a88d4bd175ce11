// Bounded copies: result codes and the exact destination contents, for the
// UTF-16 and narrow forms through one table.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "nuvu16.h"

namespace {

enum class Op { Cpy, Cat, NCpy, NCat };

struct Case {
  const char* name;
  Op op;
  std::string dest_before;  // '~' marks a unit that is not a terminator
  std::size_t size;
  std::string src;
  std::size_t count;
  int result;
  std::string dest_after;  // first `size` units, '\0' as '0'... compared in full
};

std::string show(const std::string& s) {
  std::string r;
  for (char c : s) r += c ? c : '0';
  return r;
}

template <class C>
std::string run(const Case& c, int* rc) {
  std::basic_string<C> d(c.size + 2, C('~'));
  for (std::size_t i = 0; i < c.dest_before.size(); ++i) d[i] = C(c.dest_before[i] == '0' ? 0 : c.dest_before[i]);
  std::basic_string<C> s(c.src.begin(), c.src.end());
  auto* dp = d.data();
  const auto* sp = s.c_str();
  if constexpr (sizeof(C) == 2) {
    switch (c.op) {
      case Op::Cpy: *rc = strcpy_sU16(dp, c.size, sp); break;
      case Op::Cat: *rc = strcat_sU16(dp, c.size, sp); break;
      case Op::NCpy: *rc = strncpy_sU16(dp, c.size, sp, c.count); break;
      case Op::NCat: *rc = strncat_sU16(dp, c.size, sp, c.count); break;
    }
  } else {
    switch (c.op) {
      case Op::Cpy: *rc = strcpy_sRFB(dp, c.size, sp); break;
      case Op::Cat: *rc = strcat_sRFB(dp, c.size, sp); break;
      case Op::NCpy: *rc = strncpy_sRFB(dp, c.size, sp, c.count); break;
      case Op::NCat: *rc = strncat_sRFB(dp, c.size, sp, c.count); break;
    }
  }
  std::string out;
  for (std::size_t i = 0; i < c.size + 2; ++i) out += d[i] ? char(d[i]) : '0';
  return out;
}

class Bounded : public ::testing::TestWithParam<Case> {};

TEST_P(Bounded, Utf16AndNarrowAgree) {
  const Case& c = GetParam();
  int rc16 = -1, rc8 = -1;
  std::string r16 = run<char16_t>(c, &rc16), r8 = run<char>(c, &rc8);
  EXPECT_EQ(rc16, c.result);
  EXPECT_EQ(rc8, c.result);
  EXPECT_EQ(r16, c.dest_after);
  EXPECT_EQ(r8, c.dest_after);
}

// dest_after shows size + 2 units: the two past the size prove nothing is
// written beyond it.
const Case kCases[] = {
    {"cpy_size0_writes_nothing", Op::Cpy, "", 0, "abc", 0, 0, "~~"},
    {"cpy_fits_exactly", Op::Cpy, "", 4, "abc", 0, 0, "abc0~~"},
    {"cpy_one_too_long_empties", Op::Cpy, "", 3, "abc", 0, ERANGE, "0bc~~"},
    {"cpy_empty_source", Op::Cpy, "", 2, "", 0, 0, "0~~~"},
    {"cat_appends", Op::Cat, "ab0", 6, "cd", 0, 0, "abcd0~~~"},
    {"cat_exact_fit", Op::Cat, "ab0", 5, "cd", 0, 0, "abcd0~~"},
    {"cat_too_long_empties", Op::Cat, "ab0", 4, "cd", 0, ERANGE, "0bcd~~"},
    {"cat_unterminated_dest_untouched", Op::Cat, "abcd", 4, "x", 0, ERANGE, "abcd~~"},
    {"ncpy_truncates_silently", Op::NCpy, "", 4, "abcdef", 10, 0, "abc0~~"},
    {"ncpy_count_limits", Op::NCpy, "", 8, "abcdef", 2, 0, "ab0~~~~~~~"},
    {"ncpy_short_source", Op::NCpy, "", 8, "ab", 5, 0, "ab0~~~~~~~"},
    {"ncpy_size0", Op::NCpy, "", 0, "ab", 5, 0, "~~"},
    {"ncpy_count0_terminates", Op::NCpy, "", 3, "ab", 0, 0, "0~~~~"},
    {"ncat_appends_count", Op::NCat, "ab0", 8, "cdef", 2, 0, "abcd0~~~~~"},
    {"ncat_short_source_fits", Op::NCat, "ab0", 5, "c", 9, 0, "abc0~~~"},
    {"ncat_count_ge_room_source_too_long", Op::NCat, "ab0", 5, "cdef", 3, ERANGE, "0b0~~~~"},
    {"ncat_count_below_room", Op::NCat, "ab0", 5, "cdef", 2, 0, "abcd0~~"},
    {"ncat_unterminated_dest", Op::NCat, "abc", 3, "x", 1, ERANGE, "abc~~"},
};

INSTANTIATE_TEST_SUITE_P(Table, Bounded, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(BoundedMemory, CountBeyondSizeZeroesTheWholeDestination) {
  char16_t d[5] = {1, 2, 3, 4, 9};
  const char16_t s[5] = {7, 7, 7, 7, 7};
  EXPECT_EQ(memcpy_sU16(d, 4, s, 5), ERANGE);
  EXPECT_EQ(std::u16string(d, 5), (std::u16string{0, 0, 0, 0, 9}));
  EXPECT_EQ(memcpy_sU16(d, 4, s, 4), 0);
  EXPECT_EQ(std::u16string(d, 5), (std::u16string{7, 7, 7, 7, 9}));
  char16_t m[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(memmove_sU16(m + 1, 5, m, 4), 0);
  EXPECT_EQ(std::u16string(m, 6), (std::u16string{1, 1, 2, 3, 4, 6}));
  EXPECT_EQ(memmove_sU16(m, 2, m + 1, 3), ERANGE);
  EXPECT_EQ(m[0], 0);
  EXPECT_EQ(m[1], 0);
  char b[4] = {1, 2, 3, 4};
  EXPECT_EQ(memcpy_sRFB(b, 3, "xyzw", 4), ERANGE);
  EXPECT_EQ(std::string(b, 4), std::string("\0\0\0\x04", 4));
  EXPECT_EQ(memmove_sRFB(b, 4, "xyzw", 4), 0);
  EXPECT_EQ(std::string(b, 4), "xyzw");
  errno = 0;
  EXPECT_EQ(memcpy_sRFB(b, 1, "xy", 2), ERANGE);
  EXPECT_EQ(errno, 0);  // returned, never stored
}

}  // namespace
