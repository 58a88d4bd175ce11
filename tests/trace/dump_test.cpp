// Raw and character dumps, and the invalid-UTF-8 report that uses them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "support/recording_trace.h"

using nuvtest::after_header;
using nuvtest::RecordingTrace;
using V = std::vector<std::string>;

namespace {

// One raw dump line: the hex bytes, then the characters, closed at column 67.
std::string dump1(const std::string& hex_bytes, const std::string& chars) {
  std::string line = hex_bytes + std::string(48 - hex_bytes.size(), ' ') + " |" + chars;
  return line + std::string(67 - 1 - line.size(), ' ') + "|";
}

TEST(Dump, LinesOfEachDump) {
  unsigned char b[17];
  for (int i = 0; i < 17; ++i) b[i] = static_cast<unsigned char>(0x1E + i);
  const char16_t u[] = {u' ', 0x7F, u'A', 0x80, 0x1F, 0xFFFF, 0x00E9, u'~', u'z'};
  const unsigned char record[5] = {2, 0xC3, 0x28, 0, 0};
  std::u16string read(90, u'r');
  read[89] = u'L';
  const std::string q100(100, 'q');
  const struct { const char* name; std::function<void()> call; V first; std::size_t count; std::string last; } cases[] = {
      {"raw 17", [&] { u16_rawDump(b, 17); },
       {" 1e 1f 20 21 22 23 24 25 26 27 28 29 2a 2b 2c 2d |...!\"#$%&'()*+,-|", dump1(" 2e", ".")}, 2, ""},
      {"zero counts", [] { u16_rawDump("abc", 0), u16_charDump(u"abc", 0); }, {}, 0, ""},
      // Space and DEL shown as themselves.
      {"char", [&] { u16_charDump(u, 9); },
       {" 0020 007f 0041 0080 001f ffff 00e9 007e  | \x7F" "A....~|", " 007a" + std::string(35, ' ') + "  |z       |"},
       2, ""},
      {"raw string stops at 80 bytes", [&] { u16_rawStrDump(q100.c_str()); }, {}, 5, ""},
      // The record, then the last 80 units read.
      {"record and units", [&] { u16_rawAndCharDump(record, read.data(), read.data() + 90); },
       {dump1(" c3 28", ".("), "Characters previously read:"}, 12, "  |rrrrrrrL|"},
  };
  for (const auto& c : cases) {
    RecordingTrace rec;
    c.call();
    const V& L = RecordingTrace::lines;
    ASSERT_EQ(L.size(), c.count) << c.name;
    EXPECT_EQ(V(L.begin(), L.begin() + std::min(c.first.size(), L.size())), c.first) << c.name;
    if (!c.last.empty()) EXPECT_EQ(L.back().substr(L.back().size() - c.last.size()), c.last) << c.name;
  }
}

TEST(Dump, FileDumpOnlyWhenSwitchedOn) {
  RecordingTrace rec;
  std::string data(100, 'd');
  FILE* f = fmemopen(data.data(), data.size(), "r");
  for (const char* on : {static_cast<const char*>(nullptr), "0", "1", "1"}) {
    on ? setenv("NLSUI_FILE_TRACE", on, 1) : unsetenv("NLSUI_FILE_TRACE");
    const std::size_t before = RecordingTrace::lines.size();
    const long at = std::ftell(f);
    u16_rawFileDumpOpt(f);
    // Switched on, 80 bytes at a time are consumed and dumped (5 lines), then the last 20 (2 lines).
    EXPECT_EQ(RecordingTrace::lines.size() - before, on && *on == '1' ? (at == 0 ? 5u : 2u) : 0u) << on;
    EXPECT_EQ(std::ftell(f), on && *on == '1' ? (at == 0 ? 80 : 100) : 0);
  }
  unsetenv("NLSUI_FILE_TRACE");
  std::fclose(f);
}

TEST(Utf8Report, FindsTheFailingSequence) {
  const struct { std::string source; std::string fail_dump; std::u16string decoded; bool found; } cases[] = {
      {"ab\xC3(", dump1(" c3 28", ".("), u"ab", true},              // two bytes, bad follower
      {"x\xE2", dump1(" e2 00", ".."), u"x", true},                 // three bytes, zero second
      {"\xE2\x82(", dump1(" e2 82 28", "..("), u"", true},         // three bytes, bad third
      {"\xC3\xA9\x80", dump1(" 80", "."), u"\xE9", true},          // lone continuation
      {"\xF0\x9F\x98\x80", dump1(" f0", "."), u"", true},          // four-byte lead
      {"ok\xE2\x82\xAC", "", std::u16string(u"ok\x20AC") + u'\0', false},  // valid text
  };
  for (const auto& c : cases) {
    RecordingTrace rec(1);
    NUV_UTF16 target[64];
    u16_utf8conv_error(target, c.source.c_str(), 64, "flat/nlsui1", 99, "fopenU16");
    const V& L = RecordingTrace::lines;
    ASSERT_GE(L.size(), 4u) << c.source;
    EXPECT_EQ(after_header(L[0]), std::string("fopenU16 encountered invalid UTF-8") + (c.found ? "" : " (but where?)"));
    std::size_t i = 1;
    if (c.found) EXPECT_EQ(L.at(i++), c.fail_dump);
    EXPECT_EQ(L.at(i++), "Characters previously read:") << c.source;
    i += (c.decoded.size() + 7) / 8;
    EXPECT_EQ(L.at(i++), "All bytes to process") << c.source;
    i += (std::min<std::size_t>(c.source.size(), 80) + 15) / 16;
    EXPECT_EQ(L.at(i++), nuvtest::kEndLine);
    EXPECT_EQ(i, L.size());
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(target), c.decoded.size()), c.decoded);
  }
}

TEST(Utf8Report, LevelTerminatorAndTargetLength) {
  RecordingTrace rec(0);  // silent at level 0
  u16_utf8conv_error(nullptr, "\xFF", 0, "f", 1, "g");
  EXPECT_TRUE(RecordingTrace::lines.empty());
  u16_trace_level = 1;  // without a target the terminator bounds the scan; the name is cut at 50
  nlsui_utf8conv_error(nullptr, "abc\xFF", 0, "f", 1, std::string(60, 'g').c_str());
  EXPECT_EQ(after_header(RecordingTrace::lines.at(0)), std::string(50, 'g') + " encountered invalid UTF-8");
  EXPECT_EQ(RecordingTrace::lines.at(1), dump1(" ff", "."));
  RecordingTrace::lines.clear();  // the target length bounds the scan
  NUV_UTF16 t[2] = {0, 0};
  u16_utf8conv_error(t, "abcd\xFF", 2, "f", 1, "g");
  EXPECT_EQ(after_header(RecordingTrace::lines.at(0)), "g encountered invalid UTF-8 (but where?)");
  EXPECT_TRUE(t[0] == u'a' && t[1] == u'b');
}

}  // namespace
