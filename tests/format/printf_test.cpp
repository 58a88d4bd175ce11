// The printf front ends: edge cases of the engine, bad directives, bounded
// buffers and their termination, the _s and RFB forms, file output, append.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "format/engine.h"
#include "nuvu16.h"
#include "support/recording_trace.h"

namespace {

std::u16string fmt16(const char16_t* f, ...) {
  static char16_t buf[8192];
  va_list ap;
  va_start(ap, f);
  const int r = vsprintfU16(buf, f, ap);
  va_end(ap);
  return r < 0 ? u"<error>" : std::u16string(buf, buf + r);
}

TEST(Printf, EdgeCases) {
  EXPECT_EQ(fmt16(u"%5%"), u"    %");
  EXPECT_EQ(fmt16(u"%l%"), u"%");
  EXPECT_EQ(fmt16(u"%-5d|%--5d|", 7, 7), u"7    |7    |");
  EXPECT_EQ(fmt16(u"%-+ #d", 5), u"+5");
  EXPECT_EQ(fmt16(u"[%.d]", 0), u"[]");
  EXPECT_EQ(fmt16(u"[%.*d]", -1, 0), u"[0]");
  EXPECT_EQ(fmt16(u"[%*d]", -3, 42), u"[42]");
  EXPECT_EQ(fmt16(u"%hd", 70000), u"70000");
  EXPECT_EQ(fmt16(u"%lo", int64_t{0x100000008}), u"10");
  EXPECT_EQ(fmt16(u"%d", INT_MIN), u"-2147483648");
  EXPECT_EQ(fmt16(u"%ld", INT64_MIN), u"-9223372036854775808");
  EXPECT_EQ(fmt16(u"[%.0d|%#.0o|%#x]", 0, 0, 0), u"[|0|0]");
  EXPECT_EQ(fmt16(u"%.5o|%#.5o", 8, 8), u"10|00010");
  EXPECT_EQ(fmt16(u"%#x|%#8X|", 255, 255), u"0xff|    0XFF|");
  EXPECT_EQ(fmt16(u"%+5u|%+o", 5u, 8), u"    5|+10");
  EXPECT_EQ(fmt16(u"%p", nullptr), u"(nil)");
  EXPECT_EQ(fmt16(u"%p", reinterpret_cast<void*>(0xbeef)), u"beef");
  EXPECT_EQ(fmt16(u"%s|%.3s|%s|", nullptr, u"abcdef", u""), u"(null)|abc||");
  EXPECT_EQ(fmt16(u"%05s|%-05d|", u"ab", 42), u"000ab|42   |");
  EXPECT_EQ(fmt16(u"%08.3f", 3.14159), u"   3.142");
  EXPECT_EQ(fmt16(u"%f", -INFINITY), u"-inf");
  EXPECT_EQ(fmt16(u"%s", u"\u00e9\U0001F600"), u"\u00e9\U0001F600");  // units pass through
  const std::u16string big = fmt16(u"%f", 1e306);
  EXPECT_EQ(big.size(), 307u + 7u);
  EXPECT_EQ(big.substr(0, 3), u"100");
  const std::u16string zeros = fmt16(u"%.2000d", 5);
  EXPECT_EQ(zeros.size(), 2000u);
  EXPECT_EQ(zeros.back(), u'5');
  std::u16string longs(3000, u'x');
  EXPECT_EQ(fmt16(u"%s", longs.c_str()), longs);
  EXPECT_EQ(fmt16(u"%.5000e", 1.0).size(), 5006u);
}

TEST(Printf, CharacterZeroIsOneCountedUnit) {
  char16_t buf[8] = {u'z', u'z', u'z', u'z', u'z', u'z', u'z', u'z'};
  EXPECT_EQ(sprintfU16(buf, u"a%cb", 0), 3);
  EXPECT_EQ(buf[0], u'a');
  EXPECT_EQ(buf[1], 0);
  EXPECT_EQ(buf[2], u'b');
  EXPECT_EQ(buf[3], 0);
}

TEST(Printf, BadDirectivesEndTheCall) {
  struct {
    const char16_t* format;
    const char16_t* left;  // what stays in the buffer
  } const cases[] = {
      {u"ab%n", u"ab"},       {u"ab%S", u"ab"},      {u"%C", u""},         {u"%Z", u""},
      {u"x%-+ #0dy", u"x"},   {u"x%++dy", u"x"},     {u"abc%", u"abc"},    {u"%d%q", u"1"},
      {u"%d%lhd", u"1"},     {u"%1$d", u""},        {u"%b", u""},
  };
  for (const auto& c : cases) {
    nuvtest::RecordingTrace trace(U16_TRACE_LOW);
    int stored = 1234;
    char16_t buf[32];
    for (auto& u : buf) u = u'#';
    EXPECT_EQ(sprintfU16(buf, c.format, 1, &stored), -1);
    EXPECT_EQ(std::u16string(buf), c.left);
    EXPECT_EQ(stored, 1234);  // %n stores nothing
  }
}

TEST(Printf, UnknownDirectiveIsTracedAboveLevelThree) {
  nuvtest::RecordingTrace trace(U16_TRACE_MEDIUM);
  char16_t buf[16];
  EXPECT_EQ(sprintfU16(buf, u"ok %-yz"), -1);
  ASSERT_FALSE(trace.lines.empty());
  EXPECT_NE(trace.lines[0].find("Error in format string at or near 'y':\n-yz"), std::string::npos);
  EXPECT_NE(trace.lines[0].find("i18n/nuvu16/u16_OutCon"), std::string::npos);
}

TEST(Printf, ArgumentChecks) {
  errno = 0;
  EXPECT_EQ(fprintfU16(nullptr, u"abc"), 0);  // formats into nothing
  char16_t b[4];
  EXPECT_EQ(sprintfU16(nullptr, u"abc"), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(snprintfU16(nullptr, 0, u"abc"), 0);
  errno = 0;
  EXPECT_EQ(sprintfU16(b, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(fprintfU16(stderr, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  b[0] = u'q';
  EXPECT_EQ(snprintfU16(b, 0, u"abc"), 0);
  EXPECT_EQ(b[0], u'q');
  EXPECT_EQ(sprintfU16(b, u""), 0);
  EXPECT_EQ(b[0], 0);
}

struct Bounded {
  const char16_t* format;
  size_t n;
  int snprintf_result;
  const char16_t* snprintf_text;
  int sprintf_s_result;
  int snprintf_s_result;
};

class BoundedBuffers : public ::testing::TestWithParam<Bounded> {};

TEST_P(BoundedBuffers, TruncationAndResults) {
  const Bounded& c = GetParam();
  char16_t buf[64];
  for (auto& u : buf) u = u'#';
  EXPECT_EQ(snprintfU16(buf, c.n, c.format, u"xyz", 77), c.snprintf_result) << c.n;
  EXPECT_EQ(std::u16string(buf), c.snprintf_text);
  EXPECT_EQ(buf[c.n], u'#');  // nothing past the limit
  for (auto& u : buf) u = u'#';
  EXPECT_EQ(sprintf_sU16(buf, c.n, c.format, u"xyz", 77), c.sprintf_s_result);
  EXPECT_EQ(std::u16string(buf), c.snprintf_text);
  for (auto& u : buf) u = u'#';
  EXPECT_EQ(snprintf_sU16(buf, c.n, c.format, u"xyz", 77), c.snprintf_s_result);
  EXPECT_EQ(std::u16string(buf), c.snprintf_text);
}

const Bounded kBounded[] = {
    {u"abcdefgh", 5, 5, u"abcd", -1, 5},
    {u"abcd", 5, 4, u"abcd", 4, 4},
    {u"abcde", 5, 5, u"abcd", -1, 5},
    {u"a", 1, 1, u"", -1, 1},
    {u"%s-%d", 4, 4, u"xyz", -1, 4},
    {u"%s-%d", 5, 5, u"xyz-", -1, 5},
    {u"%s-%d", 6, 6, u"xyz-7", -1, 6},
    {u"%s-%d", 7, 6, u"xyz-77", 6, 6},
    {u"%s-%5d", 8, 8, u"xyz-   ", -1, 8},
    {u"ab%s", 3, 3, u"ab", -1, 3},
};
INSTANTIATE_TEST_SUITE_P(Printf, BoundedBuffers, ::testing::ValuesIn(kBounded));

TEST(Printf, SingleUnitWriteMeetingAFullBuffer) {
  char16_t buf[8];
  // The padding fills the buffer; the character itself finds no room.  The
  // call still reports the limit because the buffer is full.
  EXPECT_EQ(snprintfU16(buf, 3, u"%5c", u'x'), 3);
  EXPECT_EQ(std::u16string(buf), u"  ");
  EXPECT_EQ(snprintfU16(buf, 3, u"ab%#x", 255), 3);
  EXPECT_EQ(std::u16string(buf), u"ab");
  // With no buffer at all the failed single-unit write is the result.
  EXPECT_EQ(fprintfU16(nullptr, u"%c", u'x'), -1);
  EXPECT_EQ(fprintfU16(nullptr, u"abc%d", 5), 0);
}

TEST(Printf, SecureFormsWithZeroSize) {
  char16_t b[2] = {u'q', u'q'};
  char n[2] = {'q', 'q'};
  EXPECT_EQ(sprintf_sU16(b, 0, u"x"), -1);
  EXPECT_EQ(snprintf_sU16(b, 0, u"x"), 0);
  EXPECT_EQ(sprintf_sRFB(n, 0, "x"), -1);
  EXPECT_EQ(snprintf_sRFB(n, 0, "x"), 0);
  EXPECT_EQ(b[0], u'q');
  EXPECT_EQ(n[0], 'q');
}

TEST(Printf, NarrowBoundedForms) {
  char s[8];
  EXPECT_EQ(snprintf_sRFB(s, 4, "abcdef"), 4);
  EXPECT_STREQ(s, "abc");
  EXPECT_EQ(sprintf_sRFB(s, 4, "abcdef"), -1);
  EXPECT_STREQ(s, "abc");
  EXPECT_EQ(sprintf_sRFB(s, 8, "%d-%s", 12, "ab"), 5);
  EXPECT_STREQ(s, "12-ab");
  EXPECT_EQ(snprintf_sRFB(s, 8, "%d", 1234567), 7);
  EXPECT_EQ(sprintf_sRFB(s, 8, "%d", 1234567), 7);
  EXPECT_EQ(sprintf_sRFB(nullptr, 8, "x"), -1);
  EXPECT_EQ(snprintf_sRFB(nullptr, 8, "x"), -1);
}

TEST(Printf, ForwardsAreTheSameFunctions) {
  char16_t a[16], b[16];
  EXPECT_EQ(sprintfU(a, u"%d/%s", 3, u"x"), sprintfU16(b, u"%d/%s", 3, u"x"));
  EXPECT_EQ(std::u16string(a), std::u16string(b));
  EXPECT_EQ(snprintfU(a, 3, u"abcdef"), 3);
  EXPECT_EQ(std::u16string(a), u"ab");
}

std::string slurp(FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string s;
  int c;
  while ((c = std::fgetc(f)) != EOF) s.push_back(static_cast<char>(c));
  return s;
}

TEST(Printf, FileOutputIsUtf8AndCountsUnits) {
  FILE* f = std::tmpfile();
  const int r = fprintfU16(f, u"%s|%c|%5.1f|\u20ac%s|%c", u"\u00e9t\u00e9", 0x4E2D, 2.25, u"a\xD83D\xDE00z", 0xD800);
  // Units: 3 + 1 + 1 + 1 + 5 + 1 + 1 + 4 + 1 + 1
  EXPECT_EQ(r, 19);
  // A surrogate in a string turns the rest of that string into '#'; a %c
  // surrogate is one '#'.
  EXPECT_EQ(slurp(f), "\xC3\xA9t\xC3\xA9|\xE4\xB8\xAD|  2.2|\xE2\x82\xAC" "a###|#");
  std::fclose(f);
}

TEST(Printf, FileOutputWithPaddingAndZeroCharacter) {
  FILE* f = std::tmpfile();
  EXPECT_EQ(fprintfU(f, u"[%-4c][%03d][%c]", u'\u00e9', 7, 0), 14);
  EXPECT_EQ(slurp(f), std::string("[\xC3\xA9   ][007][\0]", 15));
  std::fclose(f);
}

TEST(Printf, FileWriteErrorIsMinusOne) {
  FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  static char storage[4];
  std::setvbuf(full, storage, _IOFBF, sizeof storage);
  EXPECT_EQ(fprintfU16(full, u"%s and more", u"longer than the buffer"), -1);
  std::fclose(full);
}

TEST(Printf, StandardOutputFrontEnds) {
  std::fflush(stdout);
  FILE* capture = std::tmpfile();
  const int saved = dup(fileno(stdout));
  dup2(fileno(capture), fileno(stdout));
  const int a = printfU16(u"%d:%s\n", 5, u"\u00e9");
  const int b = printfU(u"%x\n", 255);
  std::fflush(stdout);
  dup2(saved, fileno(stdout));
  close(saved);
  EXPECT_EQ(a, 4);
  EXPECT_EQ(b, 3);
  EXPECT_EQ(slurp(capture), "5:\xC3\xA9\nff\n");
  std::fclose(capture);
}

int append(NUV_UTF16** s, const NUV_UTF16* f, ...) {
  va_list ap;
  va_start(ap, f);
  const int r = vsprintf_append_U(s, f, ap);
  va_end(ap);
  return r;
}

TEST(Printf, AppendGrowsTheString) {
  nuvtest::RecordingTrace quiet;
  NUV_UTF16* s = nullptr;
  EXPECT_EQ(append(&s, u"%d", 42), 2);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(std::u16string(s), u"42");
  EXPECT_EQ(append(&s, u"-%s-%c", u"\u00e9\xD800", u'x'), 5);
  EXPECT_EQ(std::u16string(s), u"42-\u00e9\xD800-x");
  const std::u16string big(5000, u'y');
  EXPECT_EQ(append(&s, u"%s", big.c_str()), 5000);
  EXPECT_EQ(std::u16string(s).size(), 5007u);
  EXPECT_EQ(append(&s, u"%n"), -1);
  EXPECT_EQ(std::u16string(s).size(), 5007u);
  std::free(s);
}

TEST(Printf, OverlongFloatTextIsCutAndReported) {
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  // 1e4000 in fixed notation needs more than the precision + 640 bytes.
  const std::u16string s = fmt16(u"%.0Lf", 1e4000L);
  EXPECT_EQ(s.size(), 639u);
  EXPECT_EQ(s.find_first_not_of(u"0123456789"), std::u16string::npos);
  ASSERT_FALSE(trace.lines.empty());
  EXPECT_NE(trace.lines[0].find("Buffer overflow (floating point output)"), std::string::npos);
  EXPECT_NE(trace.lines[0].find("i18n/nuvu16/u16_OutCS"), std::string::npos);
}

TEST(Printf, EngineTerminatesAFullBufferAtItsLastUnit) {
  char16_t buf[4];
  OutputStream s;
  OutputStreamCtor(&s, nullptr, buf, 4);
  EXPECT_EQ(OutputStream_writeString(&s, u"abcdef", 6, 0), 4);
  EXPECT_EQ(OutputStream_writeString(&s, u"g", 1, 0), 0);
  EXPECT_EQ(OutputStream_writeSingleChar(&s, u'g', 0), -1);
  EXPECT_EQ(OutputStream_writeNullTermination(&s, -1, 0), 4);
  EXPECT_EQ(std::u16string(buf), u"abc");
  // Strict mode: overflow empties the buffer and fails.
  OutputStreamCtor(&s, nullptr, buf, 4);
  EXPECT_EQ(OutputStream_writeString(&s, u"abcdef", 6, 1), -1);
  EXPECT_EQ(buf[0], 0);
}

}  // namespace
