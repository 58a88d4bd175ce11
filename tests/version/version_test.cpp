// Version string, version check with its trace lines, and the version
// records found by scanning a file's bytes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <regex>
#include <string>

#include "support/recording_trace.h"
#include "support/scratch.h"
#include "version/version.h"

namespace {

using nuvtest::RecordingTrace;
using nuvtest::ScratchDir;

struct Version {
  int major, minor, patch;
};
Version project_version() {
  Version v{};
  std::sscanf(NUV_PROJECT_VERSION, "%d.%d.%d", &v.major, &v.minor, &v.patch);
  return v;
}

std::string four(int n) {
  char b[8];
  std::snprintf(b, sizeof b, "%04d", n);
  return b;
}

TEST(VersionString, FormFollowsTheProjectVersion) {
  const Version v = project_version();
  const std::string s = nuv_u16_version;
  const std::regex form(R"(@\(#\) libnuvu16\.(\d{4})\.(\d{4})  [A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d)");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(s, m, form)) << s;
  EXPECT_EQ(m[1], four(v.major));
  EXPECT_EQ(m[2], four(v.minor));
}

TEST(VersionString, CopiedWithoutPrefixAndLeadingZeros) {
  const Version v = project_version();
  const std::string expect = std::to_string(v.major) + "." + four(v.minor) + "  " + (nuv_u16_version + 26);
  for (int cap : {0, 1, 2, 5, static_cast<int>(expect.size()), static_cast<int>(expect.size()) + 1, 80}) {
    std::vector<NUV_UTF16> buf(cap + 1, 0xAAAA);
    getVersionLibu16U16(buf.data(), cap);
    const std::size_t copied = std::min<std::size_t>(cap, expect.size() + 1);
    for (std::size_t i = 0; i < copied; ++i)
      ASSERT_EQ(buf[i], i < expect.size() ? static_cast<unsigned char>(expect[i]) : 0) << "cap " << cap << " @" << i;
    for (std::size_t i = copied; i <= static_cast<std::size_t>(cap); ++i) ASSERT_EQ(buf[i], 0xAAAA) << "cap " << cap;
  }
  getVersionLibu16U16(nullptr, 10);  // no crash
}

// A caller's version string: the library's with its major and minor changed.
std::string caller(int major_delta, int minor_delta) {
  const Version v = project_version();
  std::string s = nuv_u16_version;
  s.replace(15, 4, four(v.major + major_delta));
  s.replace(20, 4, four(v.minor + minor_delta));
  return s;
}

struct CheckCase {
  const char* what;
  std::string version;
  bool ok;
};

TEST(VersionCheck, ResultAndTraceLinesAtEachLevel) {
  const std::string banner_head = std::string("libnuvu16[..] version: ") + nuv_u16_version +
                                  " [i18n/nuvu16/u16_vers 85] pid = " + std::to_string(getpid());
  const CheckCase cases[] = {
      {"same", nuv_u16_version, true},
      {"older caller minor", project_version().minor > 0 ? caller(0, -1) : caller(0, 0), true},
      {"other build time", caller(0, 0).substr(0, 26) + "Jan  1 2000 00:00:00", true},
      {"newer caller minor", caller(0, 1), false},
      {"newer caller major", caller(1, 0), false},
      {"older caller major", caller(-1, 0), false},
      {"cut after major", std::string(nuv_u16_version, 19), false},
      {"other product", "@(#) libnuvu08.0001.0000  Jan  1 2000 00:00:00", false},
  };
  const uint32_t levels[] = {0, 1, 4, 16};
  for (const auto& c : cases) {
    for (uint32_t level : levels) {
      for (int force : {0, 1}) {
        SCOPED_TRACE(::testing::Message() << c.what << " level " << level << " force " << force);
        RecordingTrace rec(level);
        EXPECT_EQ(checkVersionLibu16U16(c.version.c_str(), force), c.ok ? 0 : 4);
        std::vector<std::string> expect;
        const bool silent = !force && (level == 0 || (level <= 4 && c.ok));
        if (!silent) {
          if (!c.ok) expect.push_back("libnuvu16[..]: Wrong version.");
          expect.push_back(banner_head);
        }
        EXPECT_EQ(RecordingTrace::lines, expect);
        if (!c.ok && !silent) EXPECT_EQ(RecordingTrace::lines[0].size(), 29u);
      }
    }
  }
  RecordingTrace rec(1);
  EXPECT_EQ(checkVersionLibu16U16(nullptr, 0), 4);
  EXPECT_EQ(checkVersionLibu16U16("", 0), 4);
}

// ---- records ----

struct Found {
  int rc = -1;
  std::string file, product, platform, special;
  bool nulls = false;  // all four strings came back null
  int number = -7, level = -7;
};

Found scan(const char* path, bool with_numbers = true) {
  char *fv = reinterpret_cast<char*>(1), *pv = fv, *pl = fv, *sb = fv;
  Found f;
  f.rc = with_numbers ? GetNUVFileVersionEx(path, &fv, &pv, &pl, &sb, &f.number, &f.level)
                      : GetNUVFileVersion(path, &fv, &pv, &pl, &sb);
  f.nulls = !fv && !pv && !pl && !sb;
  if (fv && pv && pl && sb) {
    f.file = fv, f.product = pv, f.platform = pl, f.special = sb;
    std::free(fv), std::free(pv), std::free(pl), std::free(sb);
  }
  return f;
}

std::string rec(const std::string& key_value) { return "#[%]NUV" + key_value + std::string(1, '\0'); }
std::string all_records(const std::string& tag, int level = -1) {
  std::string s = rec("FileVersion: 7, 1, 2, 3" + tag) + rec("ProductVersion: 7.1, patch 2, changelist 9" + tag) +
                  rec("Platform: linuxx86_64" + tag) + rec("SpecialBuild: Release (Jan  1 2000 00:00:00)" + tag);
  if (level >= 0) s += rec("CompatibilityLevel: " + std::to_string(level));
  return s;
}

TEST(VersionRecords, EdgeCasesOfTheScan) {
  ScratchDir dir;
  const std::string filler(8192 - 3, 'x');
  struct Case {
    const char* what;
    std::string bytes;
    int rc;
    std::string file, product;
    int number, level;
  } cases[] = {
      {"plain", "head" + all_records("", 2) + "tail", 1, "7, 1, 2, 3", "7.1, patch 2, changelist 9", 7, 2},
      {"twice: first wins", all_records("A", 3) + all_records("B", 4), 1, "7, 1, 2, 3A",
       "7.1, patch 2, changelist 9A", 7, 3},
      {"marker split over the block boundary", filler + all_records("", 5), 1, "7, 1, 2, 3",
       "7.1, patch 2, changelist 9", 7, 5},
      {"false starts", "#[%#[%]NUVFileVersion: 1, 0, 0, 0" + std::string(1, '\0') + "##[%]N#" +
           all_records("", 1).substr(rec("FileVersion: 7, 1, 2, 3").size()),
       1, "1, 0, 0, 0", "7.1, patch 2, changelist 9", 1, 1},
      {"line cut at 126 bytes", rec("ProductVersion: " + std::string(200, 'p')) + all_records("", 0), 1, "7, 1, 2, 3",
       std::string(126 - 16, 'p'), 7, 0},
      {"no level: 0", all_records(""), 1, "7, 1, 2, 3", "7.1, patch 2, changelist 9", 7, 0},
      {"record at the very end, no NUL", all_records("").substr(0, all_records("").size() - 1), 1, "7, 1, 2, 3",
       "7.1, patch 2, changelist 9", 7, 0},
      {"a string missing", rec("FileVersion: 1") + rec("Platform: p") + rec("SpecialBuild: s"), 0, "", "", -7, -1},
      {"empty file", "", 0, "", "", -7, -1},
      {"key not at the start", "#[%]NUV FileVersion: 1" + std::string(1, '\0') + all_records("X").substr(30), 0, "",
       "", -7, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    nuvtest::write_file(dir / "f", c.bytes);
    const Found f = scan((dir / "f").c_str());
    EXPECT_EQ(f.rc, c.rc);
    EXPECT_EQ(f.level, c.level);
    if (c.rc == 1) {
      EXPECT_EQ(f.file, c.file);
      EXPECT_EQ(f.product, c.product);
      EXPECT_EQ(f.number, c.number);
    } else {
      EXPECT_TRUE(f.nulls);
    }
  }
  EXPECT_EQ(scan((dir / "missing").c_str()).rc, 0);
  EXPECT_TRUE(scan((dir / "missing").c_str()).nulls);
  nuvtest::write_file(dir / "f", all_records("", 9));
  const Found short_form = scan((dir / "f").c_str(), false);
  EXPECT_EQ(short_form.rc, 1);
  EXPECT_EQ(short_form.platform, "linuxx86_64");
}

// Records at random offsets in random bytes, around many block boundaries.
TEST(VersionRecords, RandomPlacementsAgainstBlockBoundaries) {
  ScratchDir dir;
  std::mt19937 rng(20261123);
  for (int iter = 0; iter < 300; ++iter) {
    std::string bytes;
    const int first = rng() % 4 == 0 ? 8192 * (1 + rng() % 3) - static_cast<int>(rng() % 12) : rng() % 20000;
    for (int i = 0; i < first; ++i) {
      char b = static_cast<char>(rng() % 256);
      if (b == '#') b = '%';  // no accidental marker
      bytes += b;
    }
    const std::string tag = std::to_string(iter);
    const std::string recs[] = {rec("Platform: P" + tag), rec("FileVersion: " + tag + ", 0, 0, 0"),
                                rec("SpecialBuild: S" + tag), rec("ProductVersion: V" + tag),
                                rec("CompatibilityLevel: " + tag)};
    for (const auto& r : recs) {
      bytes += r;
      bytes += std::string(rng() % 9000, rng() % 2 ? '#' : '[');
    }
    nuvtest::write_file(dir / "f", bytes);
    const Found f = scan((dir / "f").c_str());
    ASSERT_EQ(f.rc, 1) << iter;
    ASSERT_EQ(f.platform, "P" + tag);
    ASSERT_EQ(f.special, "S" + tag);
    ASSERT_EQ(f.product, "V" + tag);
    ASSERT_EQ(f.number, iter);
    ASSERT_EQ(f.level, iter);
  }
}

TEST(VersionRecords, OwnRecordsForANullPath) {
  const Version v = project_version();
  const Found f = scan(nullptr);
  ASSERT_EQ(f.rc, 1);
  EXPECT_EQ(f.file, std::to_string(v.major) + ", " + std::to_string(v.minor) + ", " + std::to_string(v.patch) + ", 0");
  EXPECT_TRUE(std::regex_match(f.product, std::regex(std::to_string(v.major) + "\\." + std::to_string(v.minor) +
                                                     ", patch " + std::to_string(v.patch) + ", changelist \\d+")))
      << f.product;
  EXPECT_EQ(f.platform, "linuxx86_64");
  EXPECT_TRUE(std::regex_match(f.special, std::regex(R"(\S+ \([A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\))")))
      << f.special;
  EXPECT_EQ(f.number, v.major);
  EXPECT_EQ(f.level, 0);
}

// The shared library, stripped, still carries its records and the source
// lines in both sections, as readelf and an independent `what` see them.
TEST(VersionRecords, StrippedLibraryKeepsRecordsAndIdentLines) {
  ScratchDir dir;
  const std::string lib = dir / "libnuvucum.so";
  auto r = nuvtest::run_command("cp '" NUV_SHARED_LIB "' '" + lib + "' && strip --strip-all '" + lib + "'");
  ASSERT_EQ(r.exit, 0) << r.out;
  ASSERT_EQ(nuvtest::run_command("readelf -S '" + lib + "' | grep -q '\\.symtab'").exit, 1) << "not stripped";

  const Found own = scan(nullptr), found = scan(lib.c_str());
  ASSERT_EQ(found.rc, 1);
  EXPECT_EQ(found.file, own.file);
  EXPECT_EQ(found.product, own.product);
  EXPECT_EQ(found.platform, own.platform);
  EXPECT_EQ(found.special, own.special);

  // Every library source has its line, narrow and in UTF-16.
  const auto narrow = nuvtest::run_command("readelf -p .ident.NUV '" + lib + "'");
  ASSERT_EQ(narrow.exit, 0) << narrow.out;
  r = nuvtest::run_command("objcopy -O binary --only-section=.ident.NUV.u16 '" + lib + "' '" + (dir / "u16") + "'");
  ASSERT_EQ(r.exit, 0) << r.out;
  const std::string u16 = nuvtest::read_file(dir / "u16");
  const auto what = nuvtest::run_command("sccs what '" + lib + "'");
  ASSERT_EQ(what.exit, 0) << what.out;
  EXPECT_NE(what.out.find(std::string(nuv_u16_version + 5)), std::string::npos) << what.out;
  int sources = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(NUV_SOURCE_DIR "/src")) {
    const std::string p = e.path().string();
    if (!(p.ends_with(".cpp") || p.ends_with(".c"))) continue;
    ++sources;
    const std::string line = "@(#) $Id: " + p.substr(std::strlen(NUV_SOURCE_DIR) + 1) + " $";
    EXPECT_NE(narrow.out.find(line), std::string::npos) << line;
    std::string wide;
    for (char c : line) wide += c, wide += '\0';
    EXPECT_NE(u16.find(wide), std::string::npos) << line;
    EXPECT_NE(what.out.find("\t" + line.substr(4) + "\n"), std::string::npos) << line;
  }
  EXPECT_GT(sources, 40);
}

}  // namespace
