// The fixed class and case functions against the Unicode 3.1.0 data: member
// counts and characteristic rows always, every unit against the database file
// when it is available, and the generated source against a fresh generation.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "support/scratch.h"

namespace {

const char* const kUcdFile = NUV_UCD_DIR "/UnicodeData-3.1.0.txt";

TEST(ClassTables, MemberCountsAreThoseOfUnicode31) {
  auto count = [](int32_t (*f)(int32_t), bool mapped) {
    int n = 0;
    for (int32_t u = 0; u <= 0xFFFF; ++u) n += mapped ? f(u) != u : f(u) != 0;
    return n;
  };
  EXPECT_EQ(count(isupperU16, false), 687);
  EXPECT_EQ(count(islowerU16, false), 805);
  EXPECT_EQ(count(isalphaU16, false), 45445);
  EXPECT_EQ(count(isalnumU16, false), 45876);
  EXPECT_EQ(count(isprintU16, false), 49172);
  EXPECT_EQ(count(tolowerU16, true), 697);
  EXPECT_EQ(count(toupperU16, true), 707);
}

// Rows a newer database answers differently, checked with or without the file.
TEST(ClassTables, CharacteristicRows) {
  const struct { int32_t (*f)(int32_t); const char* name; int32_t in, out; } rows[] = {
#define R(f, in, out) {f, #f, in, out}
        // Classes as version 3.1 assigned them, not as later versions do.
        R(isalphaU16, 0x00AA, 1), R(islowerU16, 0x00AA, 1), R(islowerU16, 0x00BA, 1), R(isupperU16, 0x01C5, 0),
        R(islowerU16, 0x01C5, 0), R(isalphaU16, 0x01C5, 1), R(isalnumU16, 0x2183, 1), R(isalphaU16, 0x2183, 0),
        R(isalphaU16, 0x1885, 1), R(isalphaU16, 0x1886, 1), R(isprintU16, 0x00AD, 1), R(isprintU16, 0x06DD, 1),
        R(isprintU16, 0x200B, 1), R(isalphaU16, 0x10D0, 1), R(isupperU16, 0x10D0, 0), R(islowerU16, 0x10D0, 0),
        R(isalphaU16, 0x13A0, 1), R(isupperU16, 0x13A0, 0), R(isupperU16, 0x13F4, 0), R(ispunctU16, 0x00A0, 1),
        R(ispunctU16, 0x0020, 0), R(isgraphU16, 0x3000, 1), R(isgraphU16, 0x0020, 0), R(isprintU16, 0xE000, 0),
        R(isprintU16, 0xD800, 0), R(isprintU16, 0x2028, 1), R(iscntrlU16, 0x2028, 1), R(isspaceU16, 0x001F, 1),
        R(isspaceU16, 0x200B, 1), R(isspaceU16, 0x2060, 0), R(isspaceU16, 0x00A0, 1), R(isspaceU16, 0x202F, 1),
        R(iscntrlU16, -1, 0), R(iscntrlU16, 0x10000, 0), R(isxdigitU16, 'f', 1), R(isxdigitU16, 'F', 1),
        R(isxdigitU16, 'g', 0), R(isxdigitU16, '9', 1), R(isxdigitU16, 0x46 | 0x10000, 0),
        // Case rows that a newer database gives differently.
        R(toupperU16, 0x03F2, 0x03A3), R(tolowerU16, 0x03F4, 0x03B8), R(toupperU16, 0x03F5, 0x0395),
        R(tolowerU16, 0x0130, 0x0069), R(toupperU16, 0x0131, 0x0049), R(toupperU16, 0x017F, 0x0053),
        R(toupperU16, 0x00B5, 0x039C), R(toupperU16, 0x0345, 0x0399), R(toupperU16, 0x1FBE, 0x0399),
        R(tolowerU16, 0x01C5, 0x01C6), R(tolowerU16, 0x01C8, 0x01C9), R(tolowerU16, 0x01CB, 0x01CC),
        R(tolowerU16, 0x01F2, 0x01F3), R(toupperU16, 0x01C5, 0x01C4), R(toupperU16, 0x01C8, 0x01C7),
        R(toupperU16, 0x01CB, 0x01CA), R(toupperU16, 0x01F2, 0x01F1), R(toupperU16, 0x1F80, 0x1F88),
        R(toupperU16, 0x1F87, 0x1F8F), R(toupperU16, 0x1F90, 0x1F98), R(toupperU16, 0x1FA7, 0x1FAF),
        R(toupperU16, 0x1FB3, 0x1FBC), R(toupperU16, 0x1FC3, 0x1FCC), R(toupperU16, 0x1FF3, 0x1FFC),
        R(tolowerU16, 0x2126, 0x03C9), R(tolowerU16, 0x212A, 0x006B), R(tolowerU16, 0x212B, 0x00E5),
        R(toupperU16, 0x00FF, 0x0178), R(toupperU16, 0x00DF, 0x00DF), R(tolowerU16, 0x00DF, 0x00DF),
        R(tolowerU16, 0x1E9E, 0x1E9E), R(tolowerU16, 0x0220, 0x0220), R(tolowerU16, 0x023A, 0x023A),
        R(toupperU16, 0x2C30, 0x2C30), R(tolowerU16, 0xA640, 0xA640), R(tolowerU16, 0x10A0, 0x10A0),
        R(tolowerU16, 0x13A0, 0x13A0), R(tolowerU16, 0x10400, 0x10400), R(toupperU16, -5, -5),
        R(toupperU16, 0x1FF61, 0x1FF61), R(tolowerU16, 'Q', 'q'), R(toupperU16, 'q', 'Q'),
        R(tolowerU16, 0x00C9, 0x00E9), R(toupperU16, 0x0451, 0x0401), R(toupperU16, 0xFF41, 0xFF21)};
#undef R
  for (const auto& r : rows) EXPECT_EQ(r.f(r.in), r.out) << r.name << "(0x" << std::hex << r.in << ")";
}

// Values that are no UTF-16 unit.
TEST(ClassTables, WideValuesAreSafeWhereAccepted) {
  std::mt19937 rng(31);
  for (int i = 0; i < 20000; ++i) {
    int32_t v = static_cast<int32_t>(rng());
    if (v >= 0 && v <= 0xFFFF) continue;
    EXPECT_EQ(tolowerU16(v), v);
    EXPECT_EQ(toupperU16(v), v);
    EXPECT_EQ(iscntrlU16(v), 0);
    EXPECT_EQ(isspaceU16(v), 0);
    // Not meant for these, but they must stay inside their tables.
    for (auto f : {isupperU16, islowerU16, isalphaU16, isalnumU16, isprintU16, isgraphU16, ispunctU16})
      EXPECT_EQ(f(v) & ~1, 0) << v;
    const int32_t up = v & ~0x20;
    EXPECT_EQ(isxdigitU16(v), (v >= '0' && v <= '9') || (up >= 'A' && up <= 'F'));
  }
}

// ---- every unit against the database file ---------------------------------

struct Ucd {
  std::vector<std::string> cat = std::vector<std::string>(0x10000);
  std::map<int32_t, int32_t> upper, lower;
};

bool load_ucd(Ucd& d) {
  std::ifstream in(kUcdFile);
  long first = -1;
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string> f;
    std::stringstream ss(line);
    for (std::string x; std::getline(ss, x, ';');) f.push_back(x);
    if (f.size() < 14) continue;
    const long cp = std::stol(f[0], nullptr, 16);
    if (f[1].find(", First>") != std::string::npos) first = cp;
    if (f[1].find(", First>") != std::string::npos || cp > 0xFFFF) continue;
    for (long c = f[1].find(", Last>") != std::string::npos ? first : cp; c <= cp; ++c) d.cat[c] = f[2];
    for (auto [col, map] : {std::pair{12, &d.upper}, std::pair{13, &d.lower}})
      if (!f[col].empty() && std::stol(f[col], nullptr, 16) <= 0xFFFF) (*map)[cp] = std::stol(f[col], nullptr, 16);
  }
  return in.eof();
}

bool in_list(int32_t u, std::initializer_list<std::array<int32_t, 2>> ranges) {
  for (auto& r : ranges)
    if (u >= r[0] && u <= r[1]) return true;
  return false;
}

TEST(ClassTables, EveryUnitAgreesWithTheDatabase) {
  Ucd d;
  if (!load_ucd(d)) GTEST_SKIP() << "no " << kUcdFile;
  int wrong = 0;
  for (int32_t u = 0; u <= 0xFFFF && wrong < 20; ++u) {
    const std::string& c = d.cat[u];
    const bool letter = c == "Lu" || c == "Ll" || c == "Lt" || c == "Lm" || c == "Lo";
    const bool number = c == "Nd" || c == "Nl" || c == "No";
    const bool print = !c.empty() && c != "Cc" && c != "Cf" && c != "Cs" && c != "Co";
    const bool space = in_list(u, {{0x09, 0x0D}, {0x1C, 0x20}, {0x85, 0x85}, {0xA0, 0xA0}, {0x1680, 0x1680},
                                   {0x2000, 0x200B}, {0x2028, 0x2029}, {0x202F, 0x202F}, {0x3000, 0x3000}});
    const bool cntrl = in_list(u, {{0x00, 0x1F}, {0x7F, 0x9F}, {0x070F, 0x070F}, {0x180B, 0x180E},
                                   {0x200C, 0x200F}, {0x2028, 0x202E}, {0x206A, 0x206F}, {0xFEFF, 0xFEFF},
                                   {0xFFF9, 0xFFFB}});
    auto lower_it = d.lower.find(u);
    auto upper_it = d.upper.find(u);
    const int32_t lo = lower_it == d.lower.end() ? u : lower_it->second;
    const int32_t up = upper_it == d.upper.end() ? u : upper_it->second;
    const struct {
      const char* name;
      int32_t got, want;
    } checks[] = {
        {"isupperU16", isupperU16(u), c == "Lu"},
        {"islowerU16", islowerU16(u), c == "Ll"},
        {"isalphaU16", isalphaU16(u), letter},
        {"isalnumU16", isalnumU16(u), letter || number},
        {"isprintU16", isprintU16(u), print},
        {"isgraphU16", isgraphU16(u), print && u != 0x20},
        {"ispunctU16", ispunctU16(u), print && !(letter || number) && u != 0x20},
        {"isspaceU16", isspaceU16(u), space},
        {"iscntrlU16", iscntrlU16(u), cntrl},
        {"isxdigitU16", isxdigitU16(u), (u >= '0' && u <= '9') || (u >= 'a' && u <= 'f') || (u >= 'A' && u <= 'F')},
        {"tolowerU16", tolowerU16(u), lo},
        {"toupperU16", toupperU16(u), up},
    };
    for (auto& ch : checks)
      if (ch.got != ch.want) {
        ++wrong;
        ADD_FAILURE() << ch.name << "(0x" << std::hex << u << ") = " << ch.got << ", database says " << ch.want;
      }
  }
}

TEST(ClassTables, CommittedSourceIsWhatTheGeneratorWrites) {
  if (!std::ifstream(kUcdFile)) GTEST_SKIP() << "no " << kUcdFile;
  const std::string out = ::testing::TempDir() + "ctype_tables_regen.cpp";
  const std::string cmd = "python3 '" NUV_SOURCE_DIR "/tools/gen_ctype_tables.py' --ucd '" + std::string(kUcdFile) +
                          "' --out '" + out + "'";
  ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
  const std::string fresh = nuvtest::read_file(out), committed = nuvtest::read_file(NUV_SOURCE_DIR "/src/ctype/ctype_tables.cpp");
  std::remove(out.c_str());
  ASSERT_FALSE(fresh.empty());
  EXPECT_TRUE(fresh == committed) << "src/ctype/ctype_tables.cpp differs from a fresh generation";
}

}  // namespace
