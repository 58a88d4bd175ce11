// Temporary files with a suffix and fork for profiled programs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/tempfile.h"
#include "platform/tempfile_interpose.h"
#include "support/child.h"
#include "support/scratch_dir.h"

// Start-up naming of the profile; built with the command-line wrappers.
extern "C" int Linux_initialize_gmon(void) __attribute__((weak));

namespace {

using nuvtest::Interpose;
using nuvtest::utf16;

constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

std::string digits(unsigned long long v) {
  std::string s;
  for (int i = 0; i < 6; ++i, v /= 62) s.push_back(kAlphabet[v % 62]);
  return s;
}

std::string narrow(const std::u16string& s) {
  std::string out;
  for (char16_t c : s) out.push_back(static_cast<char>(c));
  return out;
}

struct TemplateRow {
  const char* tmpl;
  int suffix;
  bool valid;
};
const TemplateRow kTemplates[] = {
    {"tmpXXXXXX.log", 4, true}, {"tmpXXXXX.log", 4, false}, {"XXXXXX", 0, true},   {"XXXXX", 0, false},
    {"tmpXXXXXX", 0, true},     {"tmpXXXXXX.log", 3, false}, {"tmpXXXXXX.log", -1, false},
    {"XXXXXXXXXXXX", 6, true},  {"XXXXXXXXXXX", 6, false},  {"tmpXXXxXX.log", 4, false}, {"", 0, false},
    {"tmpXXXXXX.log", 40, false}};

TEST(TempFiles, TemplateRulesBothForms) {
  nuvtest::ScratchDir dir;
  char old_cwd[4096];
  ASSERT_NE(getcwd(old_cwd, sizeof old_cwd), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);  // templates are taken as they stand
  for (const auto& row : kTemplates) {
    for (int form = 0; form < 2; ++form) {
      const std::string path = row.tmpl;
      std::u16string wide = utf16(path);
      std::string bytes = path;
      errno = 0;
      const int fd = form ? NUV_mkstempsR(bytes.data(), row.suffix) : NUV_mkstemps(wide.data(), row.suffix);
      const std::string name = form ? bytes : narrow(wide);
      if (!row.valid) {
        EXPECT_EQ(fd, -1) << row.tmpl;
        EXPECT_EQ(errno, EINVAL) << row.tmpl;
        EXPECT_EQ(name, path) << "template untouched";
        continue;
      }
      ASSERT_GE(fd, 0) << row.tmpl << " form " << form;
      struct stat st;
      ASSERT_EQ(fstat(fd, &st), 0);
      EXPECT_EQ(st.st_mode & 0777, 0600u);
      EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
      close(fd);
      EXPECT_EQ(access(name.c_str(), F_OK), 0) << name;
      // Only the six X change, into letters of the alphabet that follow the counter.
      const size_t x = path.size() - static_cast<size_t>(row.suffix) - 6;
      EXPECT_EQ(name.substr(0, x), path.substr(0, x));
      EXPECT_EQ(name.substr(x + 6), path.substr(x + 6));
      EXPECT_EQ(name.substr(x, 6), digits(nuv_mkstemps_counter_for_tests())) << name;
    }
  }
  EXPECT_EQ(chdir(old_cwd), 0);
  EXPECT_EQ(NUV_mkstemps(nullptr, 0), -1);
  EXPECT_EQ(NUV_mkstempsR(nullptr, 0), -1);
}

// With the clock held still the first candidate is known: a file that
// already has that name moves the call on to the next value.
TEST(TempFiles, ExistingFileForcesNextName) {
  nuvtest::ScratchDir dir;
  Interpose::clock = {1700000000, 123456};
  Interpose::clock_fixed = true;
  const unsigned long long start = 5000;
  const unsigned long long seed =
      ((static_cast<unsigned long long>(123456) << 16) ^ 1700000000ull) ^ static_cast<unsigned long long>(getpid());
  const std::string first = dir / ("f" + digits(start + seed) + ".tmp");
  close(open(first.c_str(), O_CREAT | O_WRONLY, 0600));
  nuv_set_mkstemps_counter_for_tests(start);
  std::u16string wide = utf16(dir / "fXXXXXX.tmp");
  const int fd = NUV_mkstemps(wide.data(), 4);
  Interpose::clock_fixed = false;
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(narrow(wide), dir / ("f" + digits(start + seed + 1) + ".tmp"));
  EXPECT_EQ(nuv_mkstemps_counter_for_tests(), start + seed + 1);
}

TEST(TempFiles, UnwritableDirectoryGivesUpAfterThousandFailures) {
  nuvtest::ScratchDir dir;
  chmod(dir.path().c_str(), 0500);
  const std::string tmpl = dir / "tmpXXXXXX.log";
  auto r = nuvtest::run_forked([&]() -> std::string {
    if (getuid() == 0 && setresuid(65534, 65534, 65534) != 0) return "skip";
    std::string bytes = tmpl;
    Interpose::opens = 0;
    Interpose::count_opens = true;
    errno = 0;
    const int fd = NUV_mkstempsR(bytes.data(), 4);
    const int e = errno;
    Interpose::count_opens = false;
    if (fd != -1) return "created a file";
    if (e != EACCES) return std::string("errno ") + strerror(e);
    if (Interpose::opens != 1000) return "attempts " + std::to_string(Interpose::opens);
    return "";
  });
  chmod(dir.path().c_str(), 0700);
  if (r.output == "skip") GTEST_SKIP() << "cannot drop root here";
  EXPECT_EQ(r.status, 0) << r.output;
}

TEST(TempFiles, AllNamesTakenEndsWithEexist) {
  std::u16string wide = u"/tmp/zzXXXXXX";
  Interpose::opens = 0;
  Interpose::count_opens = true;
  Interpose::always_exists = true;
  const int fd = NUV_mkstemps(wide.data(), 0);
  const int e = errno;
  Interpose::always_exists = false;
  Interpose::count_opens = false;
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(e, EEXIST);
  EXPECT_EQ(Interpose::opens, 62L * 62 * 62);
  EXPECT_EQ(wide[0], 0);
  EXPECT_EQ(wide[1], 0);
  EXPECT_EQ(wide[2], u'm') << "only the first two units are cleared";
}

// ---- fork_Linux ----

struct ForkRow {
  const char* prefix;  // null: variable not set
  std::u16string tag;
  bool renamed;        // the child's value is "<parent's value>-<tag>"
};

// The tag reaches the environment narrowed unit by unit, as every wrapper
// narrows, and cut at 256 units.
std::string tag_bytes(const std::u16string& tag) {
  const std::u16string cut = tag.substr(0, 256);
  std::string out(3 * cut.size() + 1, '\0');
  out.resize(U2sToUtf8s(out.data(), cut.c_str(), out.size()));
  return out;
}

TEST(Fork, ChildGetsItsOwnProfileName) {
  const ForkRow rows[] = {
      {nullptr, u"7", false},
      {"", u"7", false},
      {"gmon_srv", u"7", true},
      {"prof/ü", u"wörker-😀", true},
      {"p", std::u16string(300, u't'), true},
  };
  for (const auto& row : rows) {
    auto r = nuvtest::run_forked([&]() -> std::string {
      if (row.prefix) setenv("GMON_OUT_PREFIX", row.prefix, 1);
      else unsetenv("GMON_OUT_PREFIX");
      // With the start-up naming linked in, the parent's name is already changed.
      if (Linux_initialize_gmon) Linux_initialize_gmon();
      const char* now = getenv("GMON_OUT_PREFIX");
      const std::string parent_before = now ? now : "<unset>";
      const std::string want = row.renamed ? parent_before + "-" + tag_bytes(row.tag) : parent_before;
      const pid_t pid = fork_Linux(row.tag.c_str());
      if (pid == 0) {
        const char* v = getenv("GMON_OUT_PREFIX");
        _exit((v ? std::string(v) : "<unset>") == want ? 0 : 1);
      }
      int st = 0;
      waitpid(pid, &st, 0);
      const char* after = getenv("GMON_OUT_PREFIX");
      if ((after ? std::string(after) : "<unset>") != parent_before) return "parent's variable changed";
      return WIFEXITED(st) && WEXITSTATUS(st) == 0 ? "" : "child saw another value than " + want;
    });
    EXPECT_EQ(r.status, 0) << (row.prefix ? row.prefix : "<unset>") << ": " << r.output;
  }
}

}  // namespace
