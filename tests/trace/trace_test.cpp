// Framed messages and canned reports, compared byte for byte through a
// recording hook.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>

#include "nuvu16.h"
#include "support/recording_trace.h"
#include "trace/trace.h"

using nuvtest::after_header;
using nuvtest::RecordingTrace;

namespace {

const std::string kEnd = "--- Unicode interface ------ End of message ------";

std::string header_re(const std::string& shown_path, int line) {
  return "--- Unicode interface \\[" + shown_path + " line " + std::to_string(line) +
         "\\] pid = " + std::to_string(getpid()) + " time = [0-9]+:";
}

TEST(TraceMsg, HeaderBodyAndEndLine) {
  RecordingTrace rec;
  int rc = u16_traceMsg("hello", "i18n/nuvu16/u16_x", 17, 1);
  const std::string& m = RecordingTrace::lines.at(0);
  EXPECT_EQ(rc, int(m.size()));  // the hook's result comes back
  auto nl = m.find('\n');
  EXPECT_TRUE(std::regex_match(m.substr(0, nl), std::regex(header_re("i18n/nuvu16/u16_x", 17))));
  EXPECT_EQ(after_header(m), "hello\n" + kEnd);
  u16_traceMsg("plain", "f", 1, 0);
  EXPECT_EQ(after_header(RecordingTrace::lines.at(1)), "plain");
}

struct PathCase {
  std::size_t length;
  bool cut;
};
class TracePath : public ::testing::TestWithParam<PathCase> {};
TEST_P(TracePath, LongPathsKeepTheirLast57Characters) {
  RecordingTrace rec;
  std::string path;
  for (std::size_t i = 0; i < GetParam().length; ++i) path += char('a' + i % 26);
  u16_traceMsg("x", path.c_str(), 3, 0);
  std::string shown = GetParam().cut ? "\\.\\.\\." + path.substr(path.size() - 57) : path;
  const std::string& m = RecordingTrace::lines.at(0);
  EXPECT_TRUE(std::regex_match(m.substr(0, m.find('\n')), std::regex(header_re(shown, 3)))) << m;
}
INSTANTIATE_TEST_SUITE_P(Lengths, TracePath,
                         ::testing::Values(PathCase{0, false}, PathCase{59, false}, PathCase{60, false},
                                           PathCase{61, true}, PathCase{200, true}));

TEST(TraceMsg, CommandLineOnlyInTheFirstMessage) {
  RecordingTrace rec;
  u16_set_cmdline("prog -x arg");
  u16_cmdline_traced = 0;
  u16_traceMsg("one", "f", 1, 1);
  u16_traceMsg("two", "f", 1, 1);
  EXPECT_EQ(after_header(RecordingTrace::lines.at(0)), "Cmdline : prog -x arg\none\n" + kEnd);
  EXPECT_EQ(after_header(RecordingTrace::lines.at(1)), "two\n" + kEnd);
  EXPECT_EQ(u16_cmdline_traced, 1);
}

TEST(TraceMsg, CommandLineIsCutAt256Bytes) {
  std::string longer(300, 'c');
  u16_set_cmdline(longer.c_str());
  EXPECT_EQ(std::string(u16_cmdline), std::string(256, 'c'));
  u16_set_cmdline("");
}

TEST(TraceMsg, LongTextsAreCutToTheBufferLimits) {
  RecordingTrace rec;
  std::string big(3000, 'm');
  u16_traceMsg(big.c_str(), "f", 1, 1);
  u16_traceMsg(big.c_str(), "f", 1, 0);
  const std::string& with_end = RecordingTrace::lines.at(0);
  const std::string& without = RecordingTrace::lines.at(1);
  EXPECT_EQ(with_end.size(), 968u + 1 + kEnd.size());
  EXPECT_EQ(with_end.substr(with_end.size() - kEnd.size()), kEnd);
  EXPECT_EQ(without.size(), 1020u);
}

struct LevelCase {
  uint32_t from, to;
  const char* announced;  // null: nothing written
};
class SetTrace : public ::testing::TestWithParam<LevelCase> {};
TEST_P(SetTrace, AnnouncesTheNewLevel) {
  RecordingTrace rec(GetParam().from);
  u16_set_trace(nullptr, GetParam().to);
  EXPECT_EQ(u16_trace_level, GetParam().to);
  if (!GetParam().announced) {
    EXPECT_TRUE(RecordingTrace::lines.empty());
  } else {
    ASSERT_EQ(RecordingTrace::lines.size(), 1u);
    const std::string& m = RecordingTrace::lines[0];
    EXPECT_NE(m.find("[i18n/nuvu16/u16_aux line 91]"), std::string::npos);
    EXPECT_EQ(after_header(m), std::string("U16 trace level set to ") + GetParam().announced + "\n" + kEnd);
  }
}
INSTANTIATE_TEST_SUITE_P(Table, SetTrace,
                         ::testing::Values(LevelCase{4, 0, nullptr}, LevelCase{1, 0, nullptr},
                                           LevelCase{16, 0, "none"}, LevelCase{5, 0, "none"},
                                           LevelCase{4, 2, ""}, LevelCase{0, 1, "low"},
                                           LevelCase{4, 16, "high"}, LevelCase{16, 4, "medium"}));

TEST(SetTrace, NullFunctionKeepsTheHookAndAliasesBehaveAlike) {
  RecordingTrace rec;
  u16_set_trace_func(nullptr);
  nlsui_set_trace_func(nullptr);
  EXPECT_EQ(u16_trace_func, &RecordingTrace::hook);
  setTraceLibu16U16(nullptr, 1);
  nlsui_set_trace(nullptr, 16);
  ASSERT_EQ(RecordingTrace::lines.size(), 2u);
  EXPECT_EQ(after_header(RecordingTrace::lines[1]), "U16 trace level set to high\n" + kEnd);
}

TEST(SetTrace, FgetcErrorParameters) {
  const int32_t max0 = no_fgetcU_errors_max, iv0 = fgetcU_errors_interval;
  u16_set_fgetcU_error_parameters(-1, 10);
  EXPECT_EQ(no_fgetcU_errors_max, max0);
  EXPECT_EQ(fgetcU_errors_interval, 10);
  u16_set_fgetcU_error_parameters(5, -3);
  EXPECT_EQ(no_fgetcU_errors_max, 5);
  EXPECT_EQ(fgetcU_errors_interval, 10);
  u16_set_fgetcU_error_parameters(max0, iv0);
}

TEST(Reports, ArrayShortInternalErrorAndLevelGate) {
  RecordingTrace rec(U16_TRACE_LOW);
  u16_array_short("MAX_PATH_LN", "fopenU16", "pathC", "flat/nlsui1", 300);
  nlsui_internalErrorMsg("flat/nlsui1", 301);
  ASSERT_EQ(RecordingTrace::lines.size(), 2u);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]),
            "Function fopenU16 :\nArray pathC length MAX_PATH_LN is too small.\n" + kEnd);
  EXPECT_EQ(after_header(RecordingTrace::lines[1]), "Internal error\n" + kEnd);
  u16_trace_level = 0;
  nlsui_array_short("a", "b", "c", "f", 1);
  u16_internalErrorMsg("f", 1);
  EXPECT_EQ(RecordingTrace::lines.size(), 2u);
}

TEST(Reports, MallocErrorSetsErrnoAtEveryLevel) {
  RecordingTrace rec(0);
  errno = 0;
  testing::internal::CaptureStderr();
  u16_malloc_error("strdupU16", "f", 5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(RecordingTrace::lines.empty());
  u16_trace_level = 1;
  testing::internal::CaptureStderr();
  nlsui_malloc_error(std::string(100, 'F').c_str(), "f", 5);
  std::string text = std::string(64, 'F') + " : malloc : Out of memory.";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
  EXPECT_EQ(errno, ENOMEM);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]), text + "\n" + kEnd);
}

TEST(Reports, UnknownFormatOnlyAboveLevelThree) {
  RecordingTrace rec(3);
  u16_unknownFormatStr(u"%q abc", u'q', "i18n/nuvu16/u16_OutCS", 10);
  EXPECT_TRUE(RecordingTrace::lines.empty());
  u16_trace_level = 4;
  u16_unknownFormatStr(u"%q \x0141\x0100tail", u'q', "i18n/nuvu16/u16_OutCS", 10);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  // Units are cut to their low byte; a unit with a zero low byte ends the text.
  EXPECT_EQ(after_header(RecordingTrace::lines[0]), "Error in format string at or near 'q':\n%q A\n" + kEnd);
  std::u16string longfmt(300, u'z');
  u16_unknownFormatStr(longfmt.c_str(), u'z', "f", 1);
  std::string body = after_header(RecordingTrace::lines.at(1));
  EXPECT_EQ(body.size(), 127u + 1 + kEnd.size());
}

TEST(Reports, FopenTraceCutsLongPaths) {
  RecordingTrace rec;
  u16_traceFopen("/tmp/a.txt", 7, "fopenU16_long_name", "flat/nlsui1", 40);
  std::string p100(100, 'p');
  u16_traceFopen(p100.c_str(), 255, "open", "f", 1);
  std::u16string w100(100, u'w');
  w100[99] = u'\x0178';  // low byte kept: 0x78 'x'
  nlsui_traceFopen(w100.c_str(), 3, "fopenU16", "f", 1);
  EXPECT_EQ(after_header(RecordingTrace::lines.at(0)), "fopenU16_l \"/tmp/a.txt\" (fileno 0x7)\n" + kEnd);
  EXPECT_EQ(after_header(RecordingTrace::lines.at(1)), "open \"..." + std::string(80, 'p') + "\" (fileno 0xff)\n" + kEnd);
  EXPECT_EQ(after_header(RecordingTrace::lines.at(2)),
            "fopenU16 \"" + std::string(79, 'w') + "x\" (fileno 0x3)\n" + kEnd);
}

TEST(Reports, UnalignedStringCheck) {
  RecordingTrace rec;
  alignas(4) char raw[] = "#Hello, unaligned";
  const NUV_UTF16* odd;
  const void* p = raw + 1;
  std::memcpy(&odd, &p, sizeof odd);
  const NUV_UTF16* even = reinterpret_cast<const NUV_UTF16*>(raw);
  EXPECT_EQ(dbgAlignCheckStringU16(even), even);
  EXPECT_TRUE(RecordingTrace::lines.empty());
  EXPECT_EQ(dbgAlignCheckStringU16(odd), odd);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_NE(RecordingTrace::lines[0].find("[<unknown> line 0]"), std::string::npos);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]),
            "dbgAlignCheckStringU16(): ERROR: The following string is unaligned:\nHello, unaligned\n" + kEnd);
}

TEST(CastCheck, EvenPointerPassesSilently) {
  char16_t x[2];
  testing::internal::CaptureStderr();
  EXPECT_EQ(nlsui_cast_raw2uc(x, u"file.c", 3), x);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CastCheck, SwitchedOffReportsAndReturns) {
  setenv("NUVCASTRAW2UCCHK", "0", 1);
  alignas(2) char raw[4];
  testing::internal::CaptureStderr();
  EXPECT_EQ(static_cast<void*>(nlsui_cast_raw2uc(raw + 1, u"caller.c", 77)), raw + 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: Casting an odd adress to NUV_UTF16* in file caller.c, line 77\n");
  unsetenv("NUVCASTRAW2UCCHK");
}

TEST(CastCheck, LongFileNameIsReportedAsTooLong) {
  setenv("NUVCASTRAW2UCCHK", "0", 1);
  RecordingTrace rec(1);
  alignas(2) char raw[4];
  std::u16string name(600, u'n');
  errno = 0;
  testing::internal::CaptureStderr();
  nlsui_cast_raw2uc(raw + 1, name.c_str(), 1);
  std::string err = testing::internal::GetCapturedStderr();
  unsetenv("NUVCASTRAW2UCCHK");
  EXPECT_EQ(errno, ENAMETOOLONG);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_NE(RecordingTrace::lines[0].find("[flat/nlsui1 line 1654]"), std::string::npos);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]),
            "Function nlsui_cast_raw2uc :\nArray fileC length MAX_FILENAME_LN is too small.\n" + kEnd);
  EXPECT_EQ(err, "ERROR: Casting an odd adress to NUV_UTF16* in file " + std::string(511, 'n') + ", line 1\n");
}

TEST(CastCheckDeathTest, AbortsUnlessSwitchedOff) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  alignas(2) char raw[4];
  unsetenv("NUVCASTRAW2UCCHK");
  EXPECT_DEATH(nlsui_cast_raw2uc(raw + 1, u"a.c", 5), "Casting an odd adress to NUV_UTF16\\* in file a.c, line 5");
  setenv("NUVCASTRAW2UCCHK", "1", 1);
  EXPECT_DEATH(nlsui_cast_raw2uc(raw + 1, u"a.c", 6), "line 6");
  unsetenv("NUVCASTRAW2UCCHK");
}

}  // namespace
