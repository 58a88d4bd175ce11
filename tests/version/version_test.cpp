// Version string and check with its trace lines; version records found by
// scanning a file's bytes, including the stripped shared library.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <regex>

#include "support/recording_trace.h"
#include "support/scratch.h"
#include "version/version.h"

namespace {

// Part 0, 1, 2 of the project version (e.g. 1.0.0).
int part(int i) {
  int v[3] = {};
  std::sscanf(NUV_PROJECT_VERSION, "%d.%d.%d", &v[0], &v[1], &v[2]);
  return v[i];
}
std::string four(int i) { return std::string(4 - std::to_string(part(i)).size(), '0') + std::to_string(part(i)); }

TEST(Version, StringAndCopy) {
  const std::string s = nuv_u16_version, date = R"([A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d)";
  ASSERT_TRUE(std::regex_match(s, std::regex(R"(@\(#\) libnuvu16\.)" + four(0) + "\\." + four(1) + "  " + date)));
  const std::string expect = std::to_string(part(0)) + s.substr(19);
  for (int cap : {0, 1, 5, static_cast<int>(expect.size()), static_cast<int>(expect.size()) + 1}) {
    std::vector<NUV_UTF16> buf(cap + 1, 0xAAAA);
    getVersionLibu16U16(buf.data(), cap);
    for (int i = 0; i <= cap; ++i)
      ASSERT_EQ(buf[i], i == cap ? 0xAAAA : i < static_cast<int>(expect.size()) ? expect[i] : 0) << cap << " @" << i;
  }
}

TEST(Version, CheckAtEachTraceLevel) {
  const std::string lib = nuv_u16_version;
  auto with = [&](int at, const std::string& digits) { return lib.substr(0, at) + digits + lib.substr(at + 4); };
  const std::string banner = "libnuvu16[..] version: " + lib + " [i18n/nuvu16/u16_vers 85] pid = " + std::to_string(getpid());
  const std::pair<std::string, bool> callers[] = {
      {lib, true}, {with(20, "0000"), true}, {lib.substr(0, 26) + "Jan  1 2000 00:00:00", true},
      {with(20, "9999"), false}, {with(15, "0099"), false}, {lib.substr(0, 19), false}, {"", false}};
  for (const auto& [caller, ok] : callers)
    for (uint32_t level : {0u, 1u, 4u, 16u})
      for (int force : {0, 1}) {
        nuvtest::RecordingTrace rec(level);
        EXPECT_EQ(checkVersionLibu16U16(caller.c_str(), force), ok ? 0 : 4);
        std::vector<std::string> lines;
        if (force || level > 4 || (level > 0 && !ok)) {
          if (!ok) lines.push_back("libnuvu16[..]: Wrong version.");  // 29 bytes
          lines.push_back(banner);
        }
        EXPECT_EQ(nuvtest::RecordingTrace::lines, lines) << caller << " level " << level << " force " << force;
      }
  nuvtest::RecordingTrace rec(1);
  EXPECT_EQ(checkVersionLibu16U16(nullptr, 0), 4);
  EXPECT_EQ(nuvtest::RecordingTrace::lines.size(), 2u);
}

struct Found {
  int rc, number = -7, level = -7;
  std::vector<std::string> v;  // empty when all four came back null
};
Found scan(const char* path) {
  char* s[4] = {};
  Found f;
  f.rc = GetNUVFileVersionEx(path, &s[0], &s[1], &s[2], &s[3], &f.number, &f.level);
  if (s[0] || s[1] || s[2] || s[3])
    for (char* p : s) f.v.push_back(p ? p : "(null)"), std::free(p);
  return f;
}
std::string rec(const std::string& kv) { return "#[%]NUV" + kv + std::string(1, '\0'); }
std::string records(const std::string& t, const std::string& level = "") {
  return rec("FileVersion: 7, 1" + t) + rec("ProductVersion: P" + t) + rec("Platform: L" + t) +
         rec("SpecialBuild: S" + t) + (level.empty() ? "" : rec("CompatibilityLevel: " + level));
}

TEST(VersionRecords, ScanEdgeCases) {
  const std::vector<std::string> v = {"7, 1", "P", "L", "S"};
  const std::string tail = records("").substr(rec("FileVersion: 7, 1").size());
  const struct { const char* what; std::string bytes; int rc, level; std::vector<std::string> v; } cases[] = {
      {"twice: the first wins", records("", "3") + records("B", "4"), 1, 3, v},
      {"marker across the block boundary", std::string(8189, 'x') + records("", "5"), 1, 5, v},
      {"false starts", "#[%#[%]NUVFileVersion: 7, 1" + std::string(1, '\0') + "##[%]N#" + tail, 1, 0, v},
      {"line cut at 126 bytes", rec("Platform: " + std::string(200, 'p')) + records(""), 1, 0,
       {"7, 1", "P", std::string(116, 'p'), "S"}},
      {"last record without its NUL", records("").substr(0, records("").size() - 1), 1, 0, v},
      {"a string missing", rec("FileVersion: 1") + rec("Platform: p") + rec("SpecialBuild: s"), 0, -1, {}},
      {"key not at the start", "#[%]NUV FileVersion: 1" + std::string(1, '\0') + tail, 0, -1, {}},
  };
  nuvtest::ScratchDir dir;
  for (const auto& c : cases) {
    nuvtest::write_file(dir / "f", c.bytes);
    const Found f = scan((dir / "f").c_str());
    EXPECT_EQ(f.rc, c.rc) << c.what;
    EXPECT_EQ(f.level, c.level) << c.what;
    EXPECT_EQ(f.v, c.v) << c.what;
    if (c.rc) EXPECT_EQ(f.number, 7) << c.what;
  }
  EXPECT_EQ(scan((dir / "missing").c_str()).rc, 0);
  // Seeded: five records at random offsets around block boundaries.
  std::mt19937 rng(20261123);
  for (int iter = 0; iter < 200; ++iter) {
    const std::string t = std::to_string(iter);
    std::string bytes(rng() % 3 ? rng() % 20000 : 8192 * (1 + rng() % 3) - rng() % 12, '%');
    for (const std::string& r : {rec("Platform: " + t), rec("FileVersion: " + t), rec("SpecialBuild: " + t),
                                 rec("ProductVersion: " + t), rec("CompatibilityLevel: " + t)})
      bytes += r + std::string(rng() % 9000, rng() % 2 ? '#' : '[');
    nuvtest::write_file(dir / "f", bytes);
    const Found f = scan((dir / "f").c_str());
    ASSERT_EQ(f.v, std::vector<std::string>(4, t)) << iter;
    ASSERT_TRUE(f.rc == 1 && f.number == iter && f.level == iter) << iter;
  }
}

// Stripped, the shared library still carries its records, the version
// string and one source line per library source in both sections.
TEST(VersionRecords, StrippedLibrary) {
  nuvtest::ScratchDir dir;
  const std::string lib = dir / "libnuvucum.so";
  auto r = nuvtest::run_command("cp " NUV_SHARED_LIB " " + lib + " && strip --strip-all " + lib +
                                " && objcopy -O binary --only-section=.ident.NUV.u16 " + lib + " " + (dir / "u16"));
  ASSERT_EQ(r.exit, 0) << r.out;
  const Found own = scan(nullptr), found = scan(lib.c_str());
  EXPECT_TRUE(own.rc == 1 && found.rc == 1 && own.v == found.v && own.level == 0 && found.level == 0);
  EXPECT_EQ(own.v.at(0), std::to_string(part(0)) + ", " + std::to_string(part(1)) + ", " + std::to_string(part(2)) + ", 0");
  EXPECT_EQ(own.v.at(2), "linuxx86_64");
  const auto narrow = nuvtest::run_command("readelf -p .ident.NUV " + lib), what = nuvtest::run_command("sccs what " + lib);
  const std::string u16 = nuvtest::read_file(dir / "u16");
  ASSERT_EQ(what.exit, 0) << what.out;
  EXPECT_NE(what.out.find(std::string("\t") + (nuv_u16_version + 4) + "\n"), std::string::npos) << what.out;
  int sources = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(NUV_SOURCE_DIR "/src")) {
    if (e.path().extension() != ".cpp") continue;
    ++sources;
    const std::string line = "@(#) $Id: " + e.path().string().substr(sizeof NUV_SOURCE_DIR) + " $";
    std::string wide;
    for (char c : line) wide += c, wide += '\0';
    EXPECT_NE(narrow.out.find(line), std::string::npos) << line;
    EXPECT_NE(u16.find(wide), std::string::npos) << line;
    EXPECT_NE(what.out.find("\t" + line.substr(4) + "\n"), std::string::npos) << line;
  }
  EXPECT_GT(sources, 40);
}

}  // namespace
