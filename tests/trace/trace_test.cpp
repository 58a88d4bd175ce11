// Framed messages and canned reports, compared byte for byte through a
// recording hook.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <regex>
#include <string>

#include "nuvu16.h"
#include "support/recording_trace.h"
#include "support/scoped.h"
#include "trace/trace.h"

using nuvtest::after_header;
using nuvtest::kEndLine;
using nuvtest::RecordingTrace;
using V = std::vector<std::string>;

namespace {

bool header_is(const std::string& m, const std::string& shown_path, int line) {
  return std::regex_match(m.substr(0, m.find('\n')),
                          std::regex("--- Unicode interface \\[" + shown_path + " line " + std::to_string(line) +
                                     "\\] pid = " + std::to_string(getpid()) + " time = [0-9]+:"));
}

TEST(TraceMsg, HeaderBodyEndLineAndLongPaths) {
  RecordingTrace rec;
  const int rc = u16_traceMsg("hello", "i18n/nuvu16/u16_x", 17, 1);
  EXPECT_EQ(rc, static_cast<int>(RecordingTrace::lines.at(0).size()));  // the hook's result comes back
  EXPECT_TRUE(header_is(RecordingTrace::lines[0], "i18n/nuvu16/u16_x", 17));
  u16_traceMsg("plain", "f", 1, 0);
  EXPECT_EQ(nuvtest::recorded_bodies(), (V{"hello\n" + kEndLine, "plain"}));
  // Long paths keep their last 57 characters.
  for (std::size_t length : {0, 59, 60, 61, 200}) {
    std::string path;
    for (std::size_t i = 0; i < length; ++i) path += char('a' + i % 26);
    u16_traceMsg("x", path.c_str(), 3, 0);
    EXPECT_TRUE(header_is(RecordingTrace::lines.back(), length > 60 ? "\\.\\.\\." + path.substr(length - 57) : path, 3))
        << RecordingTrace::lines.back();
  }
}

TEST(TraceMsg, LongTextsAreCutToTheBufferLimits) {
  RecordingTrace rec;
  std::string big(3000, 'm');
  u16_traceMsg(big.c_str(), "f", 1, 1);
  u16_traceMsg(big.c_str(), "f", 1, 0);
  const std::string& with_end = RecordingTrace::lines.at(0);
  EXPECT_EQ(with_end.size(), 968u + 1 + kEndLine.size());
  EXPECT_EQ(with_end.substr(with_end.size() - kEndLine.size()), kEndLine);
  EXPECT_EQ(RecordingTrace::lines.at(1).size(), 1020u);
  u16_set_cmdline(std::string(300, 'c').c_str());  // the command line is cut at 256 bytes
  EXPECT_EQ(std::string(u16_cmdline), std::string(256, 'c'));
  u16_set_cmdline("");
}

TEST(SetTrace, AnnouncesTheNewLevel) {
  const struct { uint32_t from, to; const char* announced; } cases[] = {  // null: nothing written
      {4, 0, nullptr}, {1, 0, nullptr}, {16, 0, "none"}, {5, 0, "none"}, {4, 2, ""},
      {0, 1, "low"},   {4, 16, "high"}, {16, 4, "medium"}};
  for (const auto& c : cases) {
    RecordingTrace rec(c.from);
    u16_set_trace(nullptr, c.to);
    EXPECT_EQ(u16_trace_level, c.to);
    EXPECT_EQ(nuvtest::recorded_bodies(),
              c.announced ? V{std::string("U16 trace level set to ") + c.announced + "\n" + kEndLine} : V{}) << c.from;
    if (c.announced) EXPECT_NE(RecordingTrace::lines[0].find("[i18n/nuvu16/u16_aux line 91]"), std::string::npos);
  }
  // A null function keeps the hook, and the aliases behave alike.
  RecordingTrace rec;
  u16_set_trace_func(nullptr);
  nlsui_set_trace_func(nullptr);
  EXPECT_EQ(u16_trace_func, &RecordingTrace::hook);
  setTraceLibu16U16(nullptr, 1);
  nlsui_set_trace(nullptr, 16);
  EXPECT_EQ(nuvtest::recorded_bodies(), (V{"U16 trace level set to low\n" + kEndLine, "U16 trace level set to high\n" + kEndLine}));
  // The fgetc error parameters: a negative value keeps the old one.
  const int32_t max0 = no_fgetcU_errors_max, iv0 = fgetcU_errors_interval;
  u16_set_fgetcU_error_parameters(-1, 10);
  EXPECT_TRUE(no_fgetcU_errors_max == max0 && fgetcU_errors_interval == 10);
  u16_set_fgetcU_error_parameters(5, -3);
  EXPECT_TRUE(no_fgetcU_errors_max == 5 && fgetcU_errors_interval == 10);
  u16_set_fgetcU_error_parameters(max0, iv0);
}

// Each report at a level: the bodies it writes (the end line added to each),
// what it writes to standard error, and the source shown in its first header.
struct Report {
  const char* name;
  uint32_t level;
  std::function<void()> call;
  V bodies;
  std::string err = "", source = "";
};

TEST(Reports, BodiesAtTheirLevels) {
  std::u16string w100(100, u'w');
  w100[99] = u'\x0178';  // low byte kept: 0x78 'x'
  alignas(4) static char raw[] = "#Hello, unaligned";
  const NUV_UTF16* odd;
  const void* p = raw + 1;
  std::memcpy(&odd, &p, sizeof odd);
  alignas(2) char cast[4];
  const Report reports[] = {
      {"command line only in the first message", 4, [] {
         u16_set_cmdline("prog -x arg"), u16_cmdline_traced = 0;
         u16_traceMsg("one", "f", 1, 1), u16_traceMsg("two", "f", 1, 1);
         EXPECT_EQ(u16_cmdline_traced, 1);
       }, {"Cmdline : prog -x arg\none", "two"}},
      {"array short", 1, [] { u16_array_short("MAX_PATH_LN", "fopenU16", "pathC", "flat/nlsui1", 300); },
       {"Function fopenU16 :\nArray pathC length MAX_PATH_LN is too small."}},
      {"internal error", 1, [] { nlsui_internalErrorMsg("flat/nlsui1", 301); }, {"Internal error"}},
      {"level 0", 0, [] { nlsui_array_short("a", "b", "c", "f", 1), u16_internalErrorMsg("f", 1); }, {}},
      {"format at 3", 3, [] { u16_unknownFormatStr(u"%q abc", u'q', "i18n/nuvu16/u16_OutCS", 10); }, {}},
      // Units are cut to their low byte; a unit with a zero low byte ends the text.
      {"format at 4", 4, [] { u16_unknownFormatStr(u"%q \x0141\x0100tail", u'q', "i18n/nuvu16/u16_OutCS", 10); },
       {"Error in format string at or near 'q':\n%q A"}},
      {"long format", 4, [] { u16_unknownFormatStr(std::u16string(300, u'z').c_str(), u'z', "f", 1); },
       {"Error in format string at or near 'z':\n" + std::string(127 - 39, 'z')}},
      {"fopen", 4, [] { u16_traceFopen("/tmp/a.txt", 7, "fopenU16_long_name", "flat/nlsui1", 40); },
       {"fopenU16_l \"/tmp/a.txt\" (fileno 0x7)"}},
      {"fopen long", 4, [] { u16_traceFopen(std::string(100, 'p').c_str(), 255, "open", "f", 1); },
       {"open \"..." + std::string(80, 'p') + "\" (fileno 0xff)"}},
      {"fopen wide", 4, [&] { nlsui_traceFopen(w100.c_str(), 3, "fopenU16", "f", 1); },
       {"fopenU16 \"" + std::string(79, 'w') + "x\" (fileno 0x3)"}},
      {"aligned", 4, [] { dbgAlignCheckStringU16(reinterpret_cast<const NUV_UTF16*>(raw)); }, {}},
      {"unaligned", 4, [&] { EXPECT_EQ(dbgAlignCheckStringU16(odd), odd); },
       {"dbgAlignCheckStringU16(): ERROR: The following string is unaligned:\nHello, unaligned"}, "", "[<unknown> line 0]"},
      // Out of memory sets errno at every level.
      {"malloc at 0", 0, [] { errno = 0, u16_malloc_error("strdupU16", "f", 5); EXPECT_EQ(errno, ENOMEM); }, {}},
      {"malloc", 1, [] { errno = 0, nlsui_malloc_error(std::string(100, 'F').c_str(), "f", 5); EXPECT_EQ(errno, ENOMEM); },
       {std::string(64, 'F') + " : malloc : Out of memory."}, std::string(64, 'F') + " : malloc : Out of memory.\n"},
      // Odd addresses cast: silent when even; reported and returned when the check is switched off.
      {"cast even", 1, [] { char16_t x[2]; EXPECT_EQ(nlsui_cast_raw2uc(x, u"file.c", 3), x); }, {}},
      {"cast odd", 1, [&] { EXPECT_EQ(static_cast<void*>(nlsui_cast_raw2uc(cast + 1, u"caller.c", 77)), cast + 1); },
       {}, "ERROR: Casting an odd adress to NUV_UTF16* in file caller.c, line 77\n"},
      {"cast long name", 1, [&] {
         errno = 0, nlsui_cast_raw2uc(cast + 1, std::u16string(600, u'n').c_str(), 1);
         EXPECT_EQ(errno, ENAMETOOLONG);
       }, {"Function nlsui_cast_raw2uc :\nArray fileC length MAX_FILENAME_LN is too small."},
       "ERROR: Casting an odd adress to NUV_UTF16* in file " + std::string(511, 'n') + ", line 1\n", "[flat/nlsui1 line 1654]"},
  };
  setenv("NUVCASTRAW2UCCHK", "0", 1);
  for (const Report& r : reports) {
    RecordingTrace rec(r.level);
    EXPECT_EQ(nuvtest::stderr_of(r.call), r.err) << r.name;
    V want = r.bodies;
    for (auto& b : want) b += "\n" + kEndLine;
    EXPECT_EQ(nuvtest::recorded_bodies(), want) << r.name;
    if (!r.source.empty()) EXPECT_NE(RecordingTrace::lines.at(0).find(r.source), std::string::npos) << r.name;
  }
  unsetenv("NUVCASTRAW2UCCHK");
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
