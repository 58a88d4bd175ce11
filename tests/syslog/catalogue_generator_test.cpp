// The catalogue generator fed good and bad files: every kind of bad row is
// refused with its line number and reason, and no table is written.
#include <gtest/gtest.h>

#include <string>

#include "support/scratch.h"

namespace {

using nuvtest::ScratchDir;

struct GenResult {
  int exit;
  std::string messages, table;
};

GenResult generate(const ScratchDir& dir, const std::string& catalogue) {
  nuvtest::write_file(dir / "in.txt", catalogue);
  std::remove((dir / "out.cpp").c_str());
  auto r = nuvtest::run_command(std::string(NUV_PYTHON) + " " NUV_SOURCE_DIR "/tools/gen_syslog_catalogue.py '" +
                                (dir / "in.txt") + "' '" + (dir / "out.cpp") + "'");
  return {r.exit, r.out, nuvtest::read_file(dir / "out.cpp")};
}

const std::string kGood = "A00 4 Basis System: Started %1!s!\n";

struct BadRow {
  const char* row;
  const char* reason;
};

TEST(CatalogueGenerator, RejectsEachKindOfBadRow) {
  const BadRow cases[] = {
      {"A0 4 Basis System: short id", "identifier \"A0\" is not three"},
      {"A000 4 Basis System: long id", "identifier \"A000\" is not three"},
      {"a01 4 Basis System: lower case", "identifier \"a01\" is not three"},
      {"A-1 4 Basis System: punctuation", "identifier \"A-1\" is not three"},
      {"A00 4 Basis System: again", "duplicate identifier \"A00\" (first on line 1)"},
      {"E0A 4 Basis System: reserved", "\"E0A\" is the parameter record"},
      {"A01 0 Basis System: too low", "severity \"0\" of A01 is not 1 to 4"},
      {"A01 5 Basis System: too high", "severity \"5\" of A01 is not 1 to 4"},
      {"A01 x Basis System: not a number", "severity \"x\" of A01 is not 1 to 4"},
      {"A01 12 Basis System: two digits", "severity \"12\" of A01 is not 1 to 4"},
      {"A01 4 Basis System: %28!s! above", "insert %28 is outside 1 to 27"},
      {"A01 4 Basis System: %0!s! zero", "insert %0 is outside 1 to 27"},
      {"A01 4 Basis System: %1 no mark", "bad insert at column 21"},
      {"A01 4 Basis System: %s plain", "bad insert at column 21"},
      {"A01 4 Basis System: 100%", "bad insert at column 24"},
      {"A01 4 no area name here", "must start with its area name"},
      {"A01 4 Basis System:no blank", "must start with its area name"},
      {"A01 4 Basis System: caf\xc3\xa9", "byte 0xC3 is not printable 7-bit text"},
      {"A01 4 Basis System: bell\x07", "byte 0x07 is not printable 7-bit text"},
      {"A01 4 Basis System:\ttab", "tab in row"},
      {"A01 4", "expected \"ID SEVERITY template\""},
      {"A01", "expected \"ID SEVERITY template\""},
  };
  // All rows in one file: each is reported on its own line, with its reason.
  std::string file = kGood;
  for (const auto& c : cases) file += std::string(c.row) + "\n";
  ScratchDir dir;
  ASSERT_FALSE(dir.path.empty());
  const GenResult r = generate(dir, file);
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(r.table.empty());
  const std::size_t n = sizeof cases / sizeof cases[0];
  EXPECT_NE(r.messages.find(": " + std::to_string(n) + " bad row(s), no table written"), std::string::npos)
      << r.messages;
  for (std::size_t i = 0; i < n; ++i) {
    const std::string tag = "in.txt:" + std::to_string(i + 2) + ": ";
    const auto at = r.messages.find(tag);
    ASSERT_NE(at, std::string::npos) << cases[i].row << "\n" << r.messages;
    const std::string line = r.messages.substr(at, r.messages.find('\n', at) - at);
    EXPECT_NE(line.find(cases[i].reason), std::string::npos) << cases[i].row << " -> " << line;
  }
}

TEST(CatalogueGenerator, OneBadRowStopsTheTable) {
  ScratchDir dir;
  const GenResult r = generate(dir, kGood + "# comment\n\nB00 4 Database: fine\nB01 4 Database: %99!s!\n");
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(r.table.empty());
  EXPECT_NE(r.messages.find("in.txt:5: B01: insert %99"), std::string::npos) << r.messages;
  EXPECT_NE(r.messages.find("1 bad row(s)"), std::string::npos) << r.messages;
}

TEST(CatalogueGenerator, EmptyOrMissingFileFails) {
  ScratchDir dir;
  GenResult r = generate(dir, "# only comments\n\n");
  EXPECT_EQ(r.exit, 1);
  EXPECT_NE(r.messages.find("no messages"), std::string::npos);
  r = {};
  auto missing = nuvtest::run_command(std::string(NUV_PYTHON) + " " NUV_SOURCE_DIR
                                      "/tools/gen_syslog_catalogue.py /nonexistent/cat.txt '" + (dir / "o.cpp") + "'");
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.out.find("cannot read"), std::string::npos) << missing.out;
}

TEST(CatalogueGenerator, SortsRowsAndEscapesText) {
  ScratchDir dir;
  const GenResult r = generate(dir,
                               "Z09 1 Security: last\r\n"
                               "A10 2 Spool / Printing: say \"hi\" \\ %%  %27!s!\n" +
                                   kGood);
  ASSERT_EQ(r.exit, 0) << r.messages;
  const auto a00 = r.table.find("{u\"A00\", 4, u\"Basis System: Started %1!s!\"}");
  const auto a10 = r.table.find("{u\"A10\", 2, u\"Spool / Printing: say \\\"hi\\\" \\\\ %%  %27!s!\"}");
  const auto z09 = r.table.find("{u\"Z09\", 1, u\"Security: last\"}");
  const auto end = r.table.find("{u\"\", 0, u\"\"}");
  ASSERT_NE(a00, std::string::npos) << r.table;
  ASSERT_NE(a10, std::string::npos) << r.table;
  ASSERT_NE(z09, std::string::npos) << r.table;
  EXPECT_TRUE(a00 < a10 && a10 < z09 && z09 < end);
  EXPECT_NE(r.table.find("syslog_severity_count = 4;"), std::string::npos);
}

}  // namespace
