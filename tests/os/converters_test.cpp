// The wrappers' converters and the narrowing step: tables, and glibc iconv
// on seeded random text.  (The decoders under them are tested in convert/.)
#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "convert/conv_support.h"
#include "os/converters.h"
#include "os/narrow.h"
#include "support/page_end.h"
#include "support/recording_trace.h"

namespace {

constexpr std::size_t kAll = static_cast<std::size_t>(-1);
using B = std::string;

TEST(Encoders, UnitByUnitWithTheirRoomRules) {
  const struct {
    std::u16string src;
    std::size_t room, result;
    std::string bytes;  // the terminator too when one is written
  } cases[] = {{u"A\u00E9\u20AC", 16, 6, B("A\xC3\xA9\xE2\x82\xAC", 7)}, {u"\xD83D\xDE00", 16, 6, B("\xED\xA0\xBD\xED\xB8\x80", 7)},
               {u"abc", 3, 3, "abc"} /* full: no terminator, the sign of too short */, {u"a\u20AC", 3, 1, B("a", 2)},
               {u"abc", 0, 0, ""}};
  for (const auto& c : cases) {
    std::string buf(20, '\x55');
    EXPECT_EQ(U2sToUtf8s(buf.data(), c.src.c_str(), c.room), c.result);
    EXPECT_EQ(buf.substr(0, c.bytes.size() + 1), c.bytes + '\x55');
  }
  char out[16];
  EXPECT_EQ(U2sToUtf8s(nullptr, u"A\u00E9\u20AC\xD800", 0), 9u);
  EXPECT_EQ(U2nToUtf8(nullptr, u"ab", 2), kAll);
  EXPECT_EQ(B(out, U2nToUtf8(out, u"\xD83D\0a", 3)), B("\xED\xA0\xBD\0a", 5));  // zeros are data
  EXPECT_EQ(U2snToUtf8n(nullptr, 0, u"a\u00E9\u20AC", kAll), 7u);                // the terminator counts
  EXPECT_EQ(U2snToUtf8n(out, 2, u"a\u00E9", 2), 0u);
  EXPECT_EQ(errno, ERANGE);
  NUV_UTF16 w[4] = {};
  EXPECT_EQ(Utf8sToU2s(w, "ab\xF0\x9F\x98\x80", 3), 3u);  // a pair with one unit left: its high half
  EXPECT_EQ(std::u16string(w, 3), u"ab\xD83D");
  EXPECT_EQ(Utf8sToU2s(w, "\xF4\x90\x80\x80", 4), kAll);
  EXPECT_EQ(errno, EILSEQ);
}

TEST(Utf8snToU2n, ARejectedSequenceIsOneSubstitute) {
  const struct {
    std::string src;
    std::u16string want;
    std::size_t errors;
  } cases[] = {{"A\xFF" "B", u"A?B", 1}, {"\xE2\x82" "A", u"?A", 1}, {"\xF4\x90\x80\x80" "A", u"?A", 1}, {"\x80\x80", u"??", 2},
               {"ab\xE2\x82", u"ab?", 1}};
  for (const auto& c : cases) {
    NUV_UTF16 out[16];
    std::size_t errors = 99;
    EXPECT_EQ(std::u16string(out, Utf8snToU2n(out, 16, c.src.data(), c.src.size(), &errors, u'?')), c.want);
    EXPECT_EQ(errors, c.errors) << c.src;
  }
  NUV_UTF16 out[8];
  EXPECT_EQ(Utf8snToU2n(out, 8, "a\xFF", 2, nullptr, u'?'), 0u);
  EXPECT_EQ(std::u16string(out, 2), std::u16string(u"a", 2));
}

TEST(CheckedConverters, ReportWhereTheCallerSays) {
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  char out[4];
  NUV_UTF16 w[4];
  EXPECT_EQ(nlsui_U2sToUtf8s_checked(out, u"abc", 4, "flat/x", 17, "fU16", "cbuf", "MAX_X"), 3u);
  EXPECT_TRUE(trace.lines.empty());
  EXPECT_EQ(nlsui_U2sToUtf8s_checked(out, u"abcd", 4, "flat/x", 17, "fU16", "cbuf", "MAX_X"), 4u);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(nlsui_Utf8sToU2s_checked(w, "wxyz", 4, "flat/y", 9, "gU16", "wbuf", "MAX_Y"), 4u);
  EXPECT_EQ(nlsui_Utf8sToU2s_checked(w, "a\xFF", 4, "flat/y", 10, "gU16", "wbuf", "MAX_Y"), kAll);
  ASSERT_GE(trace.lines.size(), 3u);
  EXPECT_NE(trace.lines[0].find("[flat/x line 17]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function fU16 :\nArray cbuf length MAX_X is too small.\n" + nuvtest::kEndLine);
  EXPECT_EQ(nuvtest::after_header(trace.lines[1]), "Function gU16 :\nArray wbuf length MAX_Y is too small.\n" + nuvtest::kEndLine);
  EXPECT_NE(trace.lines[2].find("[flat/y line 10]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[2]), "gU16 encountered invalid UTF-8");
}

constexpr nuv::os::ArgSite kSite{{12, "MAX_T_LN"}, "ctest", "testU16", "flat/nlsuiT", 77};

struct PairsMode {
  explicit PairsMode(const char* v) { v ? setenv("NLSUI_UTF8_PAIRS", v, 1) : unsetenv("NLSUI_UTF8_PAIRS"), nuv::os::reread_utf8_pairs_for_tests(); }
  ~PairsMode() { unsetenv("NLSUI_UTF8_PAIRS"), nuv::os::reread_utf8_pairs_for_tests(); }
};

TEST(Converters, AgreeWithIconvOnRandomText) {
  std::mt19937 rng(20261123);
  for (int round = 0; round < 400; ++round) {
    const std::u32string text = convtest::random_text(rng, rng() % 300);
    const auto v = convtest::from_bytes<char16_t>(convtest::to_iconv("UTF-16LE", text));
    const std::u16string units(v.begin(), v.end());
    const std::string utf8 = convtest::to_iconv("UTF-8", text);
    std::u16string back(units.size() + 1, u'\0');  // decoding joins pairs as iconv does
    ASSERT_EQ(Utf8sToU2s(back.data(), utf8.c_str(), back.size()), units.size());
    EXPECT_EQ(back.substr(0, units.size()), units);
    std::string enc(3 * units.size() + 1, '\0'), narrowed(utf8.size() + 1, '\0');
    enc.resize(U2sToUtf8s(enc.data(), units.c_str(), enc.size()));
    if (std::all_of(text.begin(), text.end(), [](char32_t c) { return c < 0x10000; })) EXPECT_EQ(enc, utf8);
    PairsMode pairs("1");  // the opt-in narrowing writes UTF-8 itself
    EXPECT_EQ(std::string(nuv::os::narrow_into(narrowed.data(), narrowed.size(), units.c_str(), kSite)), utf8);
  }
}

TEST(Narrowing, PairsOnlyWhenAskedForExactly) {
  const std::string two_threes = "\xED\xA0\xBD\xED\xB8\x80\xED\xB0\x80";
  for (const char* env : {static_cast<const char*>(nullptr), "0", "yes", "1"}) {
    PairsMode mode(env);
    char buf[12], exact[16];
    const std::string want = env && std::string(env) == "1" ? "\xF0\x9F\x98\x80\xED\xB0\x80" : two_threes;
    EXPECT_EQ(std::string(nuv::os::narrow_into(buf, sizeof buf, u"\xD83D\xDE00\xDC00", kSite)), want);
    EXPECT_EQ(B(exact, U2sToUtf8s(exact, u"\xD83D\xDE00\xDC00", sizeof exact)), two_threes);  // the exported one stays exact
  }
}

TEST(Narrowing, CutsAtACharacterBoundaryAndReports) {
  const struct {
    std::u16string text;
    std::string seen;
    bool cut;  // 11 bytes and the terminator fit
  } cases[] = {{u"abcdefghijk", "abcdefghijk", false}, {u"abcdefghijkl", "abcdefghijk", true},
               {u"abcdefghij\u00E9", "abcdefghij", true}, {u"abcdefghi\u00E9", "abcdefghi\xC3\xA9", false},
               {u"abcdefghi\u20AC", "abcdefghi", true}};
  for (const auto& c : cases) {
    nuvtest::RecordingTrace trace(U16_TRACE_LOW);
    char buf[12];
    errno = 0;
    EXPECT_EQ(std::string(nuv::os::narrow_into(buf, sizeof buf, c.text.c_str(), kSite)), c.seen);
    EXPECT_EQ(errno, c.cut ? ENAMETOOLONG : 0) << c.seen;
    ASSERT_EQ(trace.lines.size(), c.cut ? 1u : 0u);
    if (c.cut) EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function testU16 :\nArray ctest length MAX_T_LN is too small.\n" + nuvtest::kEndLine);
  }
  EXPECT_EQ(nuv::os::narrow_into(nullptr, 0, nullptr, kSite), nullptr);
}

// Both ASCII block paths stop at a terminator that ends a readable page.
TEST(BlockPaths, StopAtAPageEndAtEveryAlignment) {
  nuvtest::PageEnd pages;
  ASSERT_TRUE(pages.ok());
  std::mt19937 rng(5);
  nuvtest::RecordingTrace quiet(U16_TRACE_NONE);
  for (int round = 0; round < 3000; ++round) {
    std::u16string text(rng() % 70, u'a');
    for (auto& u : text) u = static_cast<char16_t>(rng() % 7 == 0 ? 0x80 + rng() % 0x900 : 'a' + rng() % 26);
    const std::size_t room = 1 + rng() % 220;
    std::string want(room + 8, '\0'), got(room + 8, '\x55');
    want[U2sToUtf8s(want.data(), text.c_str(), room - 1)] = 0;
    nuv::os::narrow_into(got.data(), room, pages.place(text, round % 6), kSite);
    ASSERT_EQ(std::string(got.c_str()), std::string(want.c_str())) << round;
    const std::string bytes(got.c_str());
    std::u16string all(bytes.size() + 1, u'\0'), out(room, u'\x5555');
    all.resize(Utf8sToU2s(all.data(), bytes.c_str(), all.size()));
    const std::size_t n = Utf8sToU2s(out.data(), pages.place_bytes(bytes, round % 5), room);
    ASSERT_EQ(n, std::min(all.size(), room));
    ASSERT_EQ(out.substr(0, n), all.substr(0, n));
  }
}

}  // namespace
