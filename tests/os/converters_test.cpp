// The wrappers' converters and the narrowing step, as tables and against
// glibc iconv on seeded random text.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <random>
#include <string>

#include "convert/conv_support.h"
#include "os/converters.h"
#include "os/narrow.h"
#include "support/page_end.h"
#include "support/recording_trace.h"

namespace {

constexpr std::size_t kAll = static_cast<std::size_t>(-1);
const std::string kEnd = "\n--- Unicode interface ------ End of message ------";

struct EncodeCase {
  const char* name;
  std::u16string src;
  std::size_t room;
  std::size_t result;
  std::string bytes;  // what lands in the buffer, terminator included when written
};

const EncodeCase kEncode[] = {
    {"mixed", u"A\u00E9\u20AC", 16, 6, std::string("A\xC3\xA9\xE2\x82\xAC", 7)},
    {"pair_as_two_sequences", u"\xD83D\xDE00", 16, 6, std::string("\xED\xA0\xBD\xED\xB8\x80", 7)},
    {"lone_low", u"\xDC00z", 16, 4, std::string("\xED\xB0\x80z", 5)},
    {"exactly_full_no_terminator", u"abc", 3, 3, "abc"},
    {"character_does_not_fit", u"a\u20AC", 3, 1, std::string("a", 2)},
    {"two_byte_does_not_fit", u"ab\u00E9", 3, 2, std::string("ab", 3)},
    {"no_room", u"abc", 0, 0, ""},
};

TEST(U2sToUtf8s, Table) {
  for (const auto& c : kEncode) {
    std::string buf(20, '\x55');
    EXPECT_EQ(U2sToUtf8s(buf.data(), c.src.c_str(), c.room), c.result) << c.name;
    EXPECT_EQ(buf.substr(0, c.bytes.size()), c.bytes) << c.name;
    EXPECT_EQ(buf[c.bytes.size()], '\x55') << c.name << ": wrote past its text";
  }
  EXPECT_EQ(U2sToUtf8s(nullptr, u"A\u00E9\u20AC\xD800", 0), 9u);
}

struct DecodeCase {
  const char* name;
  std::string src;
  std::size_t room;
  std::size_t result;
  std::u16string units;  // written, terminator included when written
  int err = 0;
};

const DecodeCase kDecode[] = {
    {"mixed", "h\xC3\xA9\xF0\x9F\x98\x80", 8, 4, std::u16string(u"h\u00E9\xD83D\xDE00", 5)},
    {"overlong_zero_ends", "ab\xC0\x80" "cd", 8, 2, std::u16string(u"ab", 3)},
    {"encoded_surrogate_taken", "\xED\xA0\x80", 8, 1, std::u16string(u"\xD800", 2)},
    {"full_before_terminator", "abcdef", 3, 3, u"abc"},
    {"pair_with_one_unit_left", "ab\xF0\x9F\x98\x80", 3, 3, u"ab\xD83D"},
    {"beyond_10ffff", "\xF4\x90\x80\x80", 8, kAll, u"", EILSEQ},
    {"bad_follow_byte", "a\xC3(", 8, kAll, u"", EILSEQ},
    {"lone_continuation", "\x80", 8, kAll, u"", EILSEQ},
};

TEST(Utf8sToU2s, Table) {
  for (const auto& c : kDecode) {
    std::u16string buf(12, u'\x5555');
    errno = 0;
    EXPECT_EQ(Utf8sToU2s(buf.data(), c.src.c_str(), c.room), c.result) << c.name;
    EXPECT_EQ(buf.substr(0, c.units.size()), c.units) << c.name;
    if (c.err) EXPECT_EQ(errno, c.err) << c.name;
  }
  EXPECT_EQ(Utf8sToU2s(nullptr, "\xF0\x9F\x98\x80x", 0), 3u);
}

TEST(Utf8snToU2n, SubstitutesWholeSequencesWithACounter) {
  struct Case {
    std::string src;
    std::u16string want;
    std::size_t errors;
  } cases[] = {
      {"A\xFF" "B", u"A?B", 1},
      {"\xE2\x82" "A", u"?A", 1},           // lead and a good follow-up byte, then a bad one
      {"\xF4\x90\x80\x80" "A", u"?A", 1},   // well formed but beyond U+10FFFF
      {"\x80\x80", u"??", 2},               // each lone continuation byte by itself
      {"ab\xE2\x82", u"ab?", 1},            // cut by the end of the input
  };
  for (const auto& c : cases) {
    NUV_UTF16 out[16];
    std::size_t errors = 99;
    const std::size_t n = Utf8snToU2n(out, 16, c.src.data(), c.src.size(), &errors, u'?');
    EXPECT_EQ(std::u16string(out, n), c.want) << c.src;
    EXPECT_EQ(errors, c.errors) << c.src;
  }
}

TEST(Utf8snToU2n, StopsOrFailsWithoutACounter) {
  NUV_UTF16 out[8] = {u'x', u'x', u'x'};
  errno = 0;
  EXPECT_EQ(Utf8snToU2n(out, 8, "a\xFF", 2, nullptr, u'?'), 0u);
  EXPECT_EQ(errno, EILSEQ);
  EXPECT_EQ(out[0], u'a');
  EXPECT_EQ(out[1], 0);
  errno = 0;
  EXPECT_EQ(Utf8snToU2n(out, 2, "abc", 3, nullptr, u'?'), 0u);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(Utf8snToU2n(out, 8, "ab\0cd", 5, nullptr, u'?'), 5u);  // counted: zeros are data
  EXPECT_EQ(Utf8snToU2n(out, 8, "ab", kAll, nullptr, u'?'), 3u);   // terminated: terminator counted
  EXPECT_EQ(Utf8snToU2n(nullptr, 0, "\xC3\xA9xyz", kAll, nullptr, u'?'), 5u);
}

TEST(U2nToUtf8, CountsAndNull) {
  char out[16];
  EXPECT_EQ(U2nToUtf8(nullptr, u"ab", 2), kAll);
  EXPECT_EQ(U2nToUtf8(out, u"ab", 0), 0u);
  EXPECT_EQ(U2nToUtf8(out, u"\xD83D\xDE00\0a", 4), 8u);  // zeros are data, no terminator added
  EXPECT_EQ(std::string(out, 8), std::string("\xED\xA0\xBD\xED\xB8\x80\0a", 8));
}

TEST(U2snToUtf8n, CountsFailsAndTerminates) {
  char out[8];
  EXPECT_EQ(U2snToUtf8n(nullptr, 0, u"a\u00E9\u20AC", kAll), 7u);
  EXPECT_EQ(U2snToUtf8n(out, 0, u"a\u00E9\u20AC", 3), 6u);
  EXPECT_EQ(U2snToUtf8n(out, 8, u"a\u00E9", kAll), 4u);
  EXPECT_EQ(std::string(out, 4), std::string("a\xC3\xA9\0", 4));
  errno = 0;
  EXPECT_EQ(U2snToUtf8n(out, 2, u"a\u00E9", 2), 0u);
  EXPECT_EQ(errno, ERANGE);
}

TEST(CheckedConverters, ReportWhereTheCallerSays) {
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  char out[4];
  errno = 0;
  EXPECT_EQ(nlsui_U2sToUtf8s_checked(out, u"abcd", 4, "flat/x", 17, "fnU16", "cbuf", "MAX_X"), 4u);
  EXPECT_EQ(errno, ENAMETOOLONG);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/x line 17]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function fnU16 :\nArray cbuf length MAX_X is too small." + kEnd);

  trace.lines.clear();
  EXPECT_EQ(nlsui_U2sToUtf8s_checked(out, u"abc", 4, "flat/x", 17, "fnU16", "cbuf", "MAX_X"), 3u);
  EXPECT_TRUE(trace.lines.empty());

  NUV_UTF16 w[4];
  errno = 0;
  EXPECT_EQ(nlsui_Utf8sToU2s_checked(w, "wxyz", 4, "flat/y", 9, "gU16", "wbuf", "MAX_Y"), 4u);
  EXPECT_EQ(errno, ENAMETOOLONG);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function gU16 :\nArray wbuf length MAX_Y is too small." + kEnd);

  trace.lines.clear();
  EXPECT_EQ(nlsui_Utf8sToU2s_checked(w, "a\xFF", 4, "flat/y", 10, "gU16", "wbuf", "MAX_Y"), kAll);
  ASSERT_FALSE(trace.lines.empty());
  EXPECT_NE(trace.lines[0].find("[flat/y line 10]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "gU16 encountered invalid UTF-8");
}

std::u16string utf16_of(const std::u32string& text) {
  auto v = convtest::from_bytes<char16_t>(convtest::to_iconv("UTF-16LE", text));
  return {v.begin(), v.end()};
}

TEST(Converters, AgreeWithIconvOnRandomText) {
  std::mt19937 rng(20261123);
  for (int round = 0; round < 400; ++round) {
    const std::u32string text = convtest::random_text(rng, rng() % 300);
    const std::u16string units = utf16_of(text);
    const std::string utf8 = convtest::to_iconv("UTF-8", text);
    // Decoding joins pairs exactly as iconv does.
    std::u16string back(units.size() + 1, u'\0');
    ASSERT_EQ(Utf8sToU2s(back.data(), utf8.c_str(), back.size()), units.size());
    EXPECT_EQ(back.substr(0, units.size()), units);
    // Encoding matches iconv wherever no pair is involved, and round-trips
    // through the decoder everywhere.
    std::string enc(units.size() * 3 + 1, '\0');
    const std::size_t n = U2sToUtf8s(enc.data(), units.c_str(), enc.size());
    ASSERT_EQ(n, U2sToUtf8s(nullptr, units.c_str(), 0));
    bool has_pair = false;
    for (char32_t c : text) has_pair |= c >= 0x10000;
    if (!has_pair) EXPECT_EQ(enc.substr(0, n), utf8);
    std::u16string again(units.size() + 1, u'\0');
    ASSERT_EQ(Utf8sToU2s(again.data(), enc.c_str(), again.size()), units.size());
    EXPECT_EQ(again.substr(0, units.size()), units);
  }
}

TEST(Converters, ArbitraryUnitsRoundTrip) {
  std::mt19937 rng(7);
  for (int round = 0; round < 400; ++round) {
    std::u16string units(rng() % 200, u'\0');
    for (auto& u : units) u = static_cast<char16_t>(1 + rng() % 0xFFFF);  // lone surrogates included
    std::string enc(units.size() * 3 + 1, '\0');
    const std::size_t n = U2sToUtf8s(enc.data(), units.c_str(), enc.size());
    std::string counted(n, '\0');
    ASSERT_EQ(U2nToUtf8(counted.data(), units.data(), units.size()), n);
    EXPECT_EQ(counted, enc.substr(0, n));
    std::u16string back(units.size() + 1, u'\0');
    ASSERT_EQ(Utf8sToU2s(back.data(), enc.c_str(), back.size()), units.size());
    EXPECT_EQ(back.substr(0, units.size()), units);
  }
}

// ---- the narrowing step ----

constexpr nuv::os::ArgSite kSite{{12, "MAX_T_LN"}, "ctest", "testU16", "flat/nlsuiT", 77};

struct PairsMode {
  explicit PairsMode(const char* value) {
    if (value) setenv("NLSUI_UTF8_PAIRS", value, 1);
    else unsetenv("NLSUI_UTF8_PAIRS");
    nuv::os::reread_utf8_pairs_for_tests();
  }
  ~PairsMode() {
    unsetenv("NLSUI_UTF8_PAIRS");
    nuv::os::reread_utf8_pairs_for_tests();
  }
};

TEST(Narrowing, PairsOnlyWhenAskedForExactly) {
  const char16_t text[] = u"\xD83D\xDE00\xDC00";
  struct {
    const char* env;
    std::string want;
  } cases[] = {
      {nullptr, "\xED\xA0\xBD\xED\xB8\x80\xED\xB0\x80"},
      {"0", "\xED\xA0\xBD\xED\xB8\x80\xED\xB0\x80"},
      {"yes", "\xED\xA0\xBD\xED\xB8\x80\xED\xB0\x80"},
      {"1", "\xF0\x9F\x98\x80\xED\xB0\x80"},  // the lone low surrogate stays three bytes
  };
  for (const auto& c : cases) {
    PairsMode mode(c.env);
    char buf[12];
    EXPECT_EQ(std::string(nuv::os::narrow_into(buf, sizeof buf, text, kSite)), c.want) << (c.env ? c.env : "unset");
    // The exported converter stays unit by unit.
    char exact[16];
    EXPECT_EQ(U2sToUtf8s(exact, text, sizeof exact), 9u);
  }
}

TEST(Narrowing, PairsModeMatchesIconv) {
  PairsMode mode("1");
  std::mt19937 rng(11);
  for (int round = 0; round < 300; ++round) {
    const std::u32string text = convtest::random_text(rng, 1 + rng() % 200);
    const std::u16string units = utf16_of(text);
    const std::string utf8 = convtest::to_iconv("UTF-8", text);
    std::string buf(utf8.size() + 1, '\x55');
    EXPECT_EQ(std::string(nuv::os::narrow_into(buf.data(), buf.size(), units.c_str(), kSite)), utf8);
  }
}

TEST(Narrowing, CutsAtACharacterBoundaryAndReports) {
  struct Case {
    std::u16string text;
    std::string seen;
    bool reported;
  } cases[] = {
      {u"abcdefghijk", "abcdefghijk", false},          // 11 bytes and the terminator
      {u"abcdefghijkl", "abcdefghijk", true},          // 12 bytes: one too many
      {u"abcdefghij\u00E9", "abcdefghij", true},       // the two-byte character would end at 12
      {u"abcdefghi\u00E9", "abcdefghi\xC3\xA9", false},
      {u"abcdefgh\u20AC", "abcdefgh\xE2\x82\xAC", false},
      {u"abcdefghi\u20AC", "abcdefghi", true},
  };
  for (const auto& c : cases) {
    nuvtest::RecordingTrace trace(U16_TRACE_LOW);
    char buf[12];
    errno = 0;
    EXPECT_EQ(std::string(nuv::os::narrow_into(buf, sizeof buf, c.text.c_str(), kSite)), c.seen);
    EXPECT_EQ(trace.lines.size(), c.reported ? 1u : 0u) << c.seen;
    EXPECT_EQ(errno, c.reported ? ENAMETOOLONG : 0) << c.seen;
    if (c.reported && !trace.lines.empty()) {
      EXPECT_NE(trace.lines[0].find("[flat/nlsuiT line 77]"), std::string::npos);
      EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
                "Function testU16 :\nArray ctest length MAX_T_LN is too small." + kEnd);
    }
  }
  char buf[4] = "xyz";
  EXPECT_EQ(nuv::os::narrow_into(buf, sizeof buf, nullptr, kSite), nullptr);
}

}  // namespace

namespace {

TEST(Narrowing, AsciiRunsUpToAPageEndAtEveryAlignment) {
  nuvtest::PageEnd pages;
  ASSERT_TRUE(pages.ok());
  std::mt19937 rng(5);
  for (int round = 0; round < 3000; ++round) {
    std::u16string text(rng() % 70, u'a');
    for (auto& u : text) u = static_cast<char16_t>(rng() % 7 == 0 ? 0x80 + rng() % 0x900 : 'a' + rng() % 26);
    const NUV_UTF16* src = pages.place(text, round % 6);
    const std::size_t room = 1 + rng() % 220;
    std::string want(room + 8, '\0'), got(room + 8, '\x55');
    const std::size_t n = U2sToUtf8s(want.data(), text.c_str(), room - 1);
    want[n] = 0;  // the narrowing keeps its terminator inside the buffer
    nuvtest::RecordingTrace quiet(U16_TRACE_NONE);
    nuv::os::narrow_into(got.data(), room, src, kSite);
    ASSERT_EQ(std::string(got.c_str()), std::string(want.c_str())) << round;
  }
}

}  // namespace

namespace {

TEST(Utf8sToU2s, AsciiRunsUpToAPageEndMatchTheCountingPass) {
  nuvtest::PageEnd pages;
  ASSERT_TRUE(pages.ok());
  std::mt19937 rng(6);
  for (int round = 0; round < 3000; ++round) {
    std::string text(rng() % 80, 'a');
    for (auto& c : text) c = rng() % 9 == 0 ? '\xC3' : static_cast<char>('a' + rng() % 26);
    for (std::size_t i = 0; i + 1 < text.size(); ++i)
      if (text[i] == '\xC3') text[++i] = '\xA9';
    if (!text.empty() && text.back() == '\xC3') text.back() = 'z';
    const char* src = pages.place_bytes(text, round % 5);
    const std::size_t need = Utf8sToU2s(nullptr, src, 0);
    const std::size_t room = 1 + rng() % 90;
    std::u16string out(room, u'\x5555');
    const std::size_t n = Utf8sToU2s(out.data(), src, room);
    ASSERT_EQ(n, need < room ? need : room) << round;
    std::u16string all(need + 1, u'\0');
    Utf8sToU2s(all.data(), src, need + 1);
    ASSERT_EQ(out.substr(0, n), all.substr(0, n)) << round;
    if (n < room) ASSERT_EQ(out[n], 0);
  }
}

}  // namespace
