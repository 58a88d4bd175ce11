// Raw and character dumps, and the invalid-UTF-8 report that uses them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "support/recording_trace.h"

using nuvtest::after_header;
using nuvtest::RecordingTrace;

namespace {

const std::string kEnd = "--- Unicode interface ------ End of message ------";

TEST(Dump, SeventeenBytesGiveTwoLines) {
  RecordingTrace rec;
  unsigned char b[17];
  for (int i = 0; i < 17; ++i) b[i] = static_cast<unsigned char>(0x1E + i);
  u16_rawDump(b, 17);
  ASSERT_EQ(RecordingTrace::lines.size(), 2u);
  EXPECT_EQ(RecordingTrace::lines[0],
            " 1e 1f 20 21 22 23 24 25 26 27 28 29 2a 2b 2c 2d |...!\"#$%&'()*+,-|");
  EXPECT_EQ(RecordingTrace::lines[1], " 2e" + std::string(45, ' ') + " |." + std::string(15, ' ') + "|");
  EXPECT_EQ(RecordingTrace::lines[0].size(), 67u);
  EXPECT_EQ(RecordingTrace::lines[1].size(), 67u);
}

TEST(Dump, ZeroCountWritesNothing) {
  RecordingTrace rec;
  u16_rawDump("abc", 0);
  u16_charDump(u"abc", 0);
  EXPECT_TRUE(RecordingTrace::lines.empty());
}

TEST(Dump, CharDumpShowsSpaceAndDelAsThemselves) {
  RecordingTrace rec;
  const char16_t u[] = {u' ', 0x7F, u'A', 0x80, 0x1F, 0xFFFF, 0x00E9, u'~', u'z'};
  u16_charDump(u, 9);
  ASSERT_EQ(RecordingTrace::lines.size(), 2u);
  EXPECT_EQ(RecordingTrace::lines[0], " 0020 007f 0041 0080 001f ffff 00e9 007e  | \x7F" "A....~|");
  EXPECT_EQ(RecordingTrace::lines[1], " 007a" + std::string(35, ' ') + "  |z       |");
  EXPECT_EQ(RecordingTrace::lines[0].size(), 52u);
}

TEST(Dump, RawStrDumpStopsAt80Bytes) {
  RecordingTrace rec;
  std::string s(100, 'q');
  u16_rawStrDump(s.c_str());
  EXPECT_EQ(RecordingTrace::lines.size(), 5u);
}

TEST(Dump, RawAndCharDumpShowsRecordThenUnits) {
  RecordingTrace rec;
  const unsigned char record[5] = {2, 0xC3, 0x28, 0, 0};
  std::u16string read(90, u'r');
  read[89] = u'L';
  u16_rawAndCharDump(record, read.data(), read.data() + 90);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u + 1 + 10);
  EXPECT_EQ(RecordingTrace::lines[0].substr(0, 7), " c3 28 ");
  EXPECT_EQ(RecordingTrace::lines[1], "Characters previously read:");
  EXPECT_EQ(RecordingTrace::lines.back().substr(40), "  |rrrrrrrL|");  // the last 80 units
}

TEST(Dump, FileDumpOnlyWhenSwitchedOn) {
  RecordingTrace rec;
  std::string data(100, 'd');
  FILE* f = fmemopen(data.data(), data.size(), "r");
  unsetenv("NLSUI_FILE_TRACE");
  u16_rawFileDumpOpt(f);
  setenv("NLSUI_FILE_TRACE", "0", 1);
  u16_rawFileDumpOpt(f);
  EXPECT_TRUE(RecordingTrace::lines.empty());
  EXPECT_EQ(std::ftell(f), 0);
  setenv("NLSUI_FILE_TRACE", "1", 1);
  u16_rawFileDumpOpt(f);
  EXPECT_EQ(RecordingTrace::lines.size(), 5u);  // 80 bytes consumed and dumped
  EXPECT_EQ(std::ftell(f), 80);
  u16_rawFileDumpOpt(f);
  EXPECT_EQ(RecordingTrace::lines.size(), 7u);  // the last 20
  unsetenv("NLSUI_FILE_TRACE");
  std::fclose(f);
}

struct Utf8Case {
  const char* name;
  std::string source;
  std::vector<std::string> fail_dump;  // lines of the raw dump of the failing bytes
  std::u16string decoded;
  bool found;
};

class Utf8Report : public ::testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8Report, FindsTheFailingSequence) {
  const Utf8Case& c = GetParam();
  RecordingTrace rec(1);
  NUV_UTF16 target[64];
  u16_utf8conv_error(target, c.source.c_str(), 64, "flat/nlsui1", 99, "fopenU16");
  const auto& L = RecordingTrace::lines;
  ASSERT_GE(L.size(), 4u);
  EXPECT_EQ(after_header(L[0]), std::string("fopenU16 encountered invalid UTF-8") + (c.found ? "" : " (but where?)"));
  std::size_t i = 1;
  for (const auto& want : c.fail_dump) EXPECT_EQ(L.at(i++), want);
  EXPECT_EQ(L.at(i++), "Characters previously read:");
  i += (c.decoded.size() + 7) / 8;
  EXPECT_EQ(L.at(i++), "All bytes to process");
  i += (std::min<std::size_t>(c.source.size(), 80) + 15) / 16;
  EXPECT_EQ(L.at(i++), kEnd);
  EXPECT_EQ(i, L.size());
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(target), c.decoded.size()), c.decoded);
}

std::string dump1(const std::string& hex_bytes, const std::string& chars) {
  std::string line = hex_bytes + std::string(48 - hex_bytes.size(), ' ') + " |" + chars;
  return line + std::string(67 - 1 - line.size(), ' ') + "|";
}

INSTANTIATE_TEST_SUITE_P(
    Table, Utf8Report,
    ::testing::Values(
        Utf8Case{"two_byte_bad_follow", "ab\xC3(", {dump1(" c3 28", ".(")}, u"ab", true},
        Utf8Case{"three_byte_zero_second", "x\xE2", {dump1(" e2 00", "..")}, u"x", true},
        Utf8Case{"three_byte_bad_third", "\xE2\x82(", {dump1(" e2 82 28", "..(")}, u"", true},
        Utf8Case{"lone_continuation", "\xC3\xA9\x80", {dump1(" 80", ".")}, u"\xE9", true},
        Utf8Case{"four_byte_lead", "\xF0\x9F\x98\x80", {dump1(" f0", ".")}, u"", true},
        Utf8Case{"valid_text", "ok\xE2\x82\xAC", {}, std::u16string(u"ok\x20AC") + u'\0', false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Utf8ReportLevel, SilentAtLevelZero) {
  RecordingTrace rec(0);
  u16_utf8conv_error(nullptr, "\xFF", 0, "f", 1, "g");
  EXPECT_TRUE(RecordingTrace::lines.empty());
}

TEST(Utf8ReportLevel, WithoutTargetTheTerminatorBounds) {
  RecordingTrace rec(1);
  nlsui_utf8conv_error(nullptr, "abc\xFF", 0, "f", 1, std::string(60, 'g').c_str());
  EXPECT_EQ(after_header(RecordingTrace::lines.at(0)), std::string(50, 'g') + " encountered invalid UTF-8");
  EXPECT_EQ(RecordingTrace::lines.at(1), dump1(" ff", "."));
}

TEST(Utf8ReportLevel, TargetLengthBoundsTheScan) {
  RecordingTrace rec(1);
  NUV_UTF16 t[2] = {0, 0};
  u16_utf8conv_error(t, "abcd\xFF", 2, "f", 1, "g");
  EXPECT_EQ(after_header(RecordingTrace::lines.at(0)), "g encountered invalid UTF-8 (but where?)");
  EXPECT_EQ(t[0], u'a');
  EXPECT_EQ(t[1], u'b');
}

}  // namespace
