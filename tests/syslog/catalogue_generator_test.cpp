// The catalogue generator: each kind of bad row is refused with its line
// number and reason, and no table is written.
#include <gtest/gtest.h>

#include "support/scratch.h"

namespace {

nuvtest::CommandResult generate(const nuvtest::ScratchDir& dir, const std::string& catalogue) {
  nuvtest::write_file(dir / "in.txt", catalogue);
  std::remove((dir / "out.cpp").c_str());
  return nuvtest::run_command(NUV_PYTHON " " NUV_SOURCE_DIR "/tools/gen_syslog_catalogue.py " + (dir / "in.txt") +
                              " " + (dir / "out.cpp"));
}

TEST(CatalogueGenerator, RefusesEachKindOfBadRow) {
  const std::pair<const char*, const char*> bad[] = {
      {"A0 4 Area: x", "identifier \"A0\" is not three"},   {"a01 4 Area: x", "identifier \"a01\" is not three"},
      {"A00 4 Area: again", "duplicate identifier \"A00\" (first on line 1)"},
      {"E0A 4 Area: x", "\"E0A\" is the parameter record"}, {"A01 0 Area: x", "severity \"0\" of A01 is not 1 to 4"},
      {"A01 5 Area: x", "severity \"5\" of A01"},          {"A01 12 Area: x", "severity \"12\" of A01"},
      {"A01 4 Area: %28!s!", "insert %28 is outside 1 to 27"}, {"A01 4 Area: %0!s!", "insert %0 is outside"},
      {"A01 4 Area: %1 x", "bad insert at column 13"},     {"A01 4 Area: 100%", "bad insert at column 16"},
      {"A01 4 no area", "must start with its area name"},  {"A01 4 Area: caf\xc3\xa9", "byte 0xC3 is not printable"},
      {"A01 4 Area: \x07", "byte 0x07 is not printable"},   {"A01 4", "expected \"ID SEVERITY template\""},
  };
  nuvtest::ScratchDir dir;
  std::string file = "A00 4 Area: first\n";
  for (const auto& [row, reason] : bad) file += std::string(row) + "\n";
  const auto r = generate(dir, file);
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(nuvtest::read_file(dir / "out.cpp").empty());
  EXPECT_NE(r.out.find(": 15 bad row(s), no table written"), std::string::npos) << r.out;
  for (std::size_t i = 0; i < std::size(bad); ++i) {
    const auto at = r.out.find("in.txt:" + std::to_string(i + 2) + ": ");
    ASSERT_NE(at, std::string::npos) << bad[i].first << "\n" << r.out;
    EXPECT_NE(r.out.substr(at, r.out.find('\n', at) - at).find(bad[i].second), std::string::npos) << bad[i].first;
  }
  EXPECT_NE(generate(dir, "# nothing\n").out.find("no messages"), std::string::npos);
}

}  // namespace
