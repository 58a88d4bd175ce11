// Temporary files with a suffix, and fork for profiled programs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/tempfile.h"
#include "support/child.h"
#include "support/scratch_dir.h"

extern timeval* fixed_clock;
extern "C" int Linux_initialize_gmon(void) __attribute__((weak));  // with the command-line wrappers

namespace {

std::string digits(unsigned long long v) {
  std::string s;
  for (int i = 0; i < 6; ++i, v /= 62) s += "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"[v % 62];
  return s;
}

TEST(TempFiles, TemplatesNamesAndRetries) {
  nuvtest::ScratchDir dir;
  char cwd[4096];
  ASSERT_TRUE(getcwd(cwd, sizeof cwd) && chdir(dir.path.c_str()) == 0);  // templates are taken as they stand
  const std::pair<const char*, int> rows[] = {{"tmpXXXXXX.log", 4}, {"XXXXXX", 0},   {"XXXXXXXXXXXX", 6},
                                              {"tmpXXXXX.log", 4},  {"XXXXX", 0},    {"tmpXXXXXX.log", 3},
                                              {"tmpXXXxXX", 0},     {"tmpXXXXXX", -1}, {"tmpXXXXXX", 40}};
  for (auto [tmpl, suffix] : rows) {
    const std::string t = tmpl;
    const bool valid = suffix >= 0 && t.size() > suffix + 5u && t.substr(t.size() - suffix - 6, 6) == "XXXXXX";
    std::u16string wide = nuvtest::utf16(t);
    std::string narrow = t;
    for (int fd : {NUV_mkstemps(wide.data(), suffix), NUV_mkstempsR(narrow.data(), suffix)}) {
      EXPECT_EQ(fd >= 0, valid) << tmpl;
      EXPECT_EQ(valid || errno == EINVAL, true);
      struct stat st {};
      EXPECT_EQ(valid ? fstat(fd, &st) == 0 && (st.st_mode & 0777) == 0600 : true, true) << tmpl;
      if (fd >= 0) close(fd);
    }
    const std::string x = digits(nuv_mkstemps_counter_for_tests());
    EXPECT_EQ(narrow, valid ? t.substr(0, t.size() - suffix - 6) + x + t.substr(t.size() - suffix) : t);
    EXPECT_EQ(access(narrow.c_str(), F_OK) == 0, valid);
  }
  // With the clock held the first candidate is known; a file of that name forces the next.
  timeval now{1700000000, 123456};
  const unsigned long long first = 5000 + (((123456ull << 16) ^ 1700000000ull) ^ getpid());
  close(open(("f" + digits(first)).c_str(), O_CREAT | O_WRONLY, 0600));
  fixed_clock = &now, nuv_set_mkstemps_counter_for_tests(5000);
  std::string name = "fXXXXXX";
  close(NUV_mkstempsR(name.data(), 0));
  fixed_clock = nullptr;
  EXPECT_EQ(name, "f" + digits(first + 1));
  // A directory that cannot be written: 1000 failures, counted by the counter.
  ASSERT_EQ(chmod(".", 0500), 0);
  auto r = nuvtest::run_forked([&]() -> std::string {
    if (getuid() == 0 && setresuid(65534, 65534, 65534) != 0) return "cannot drop root";
    fixed_clock = &now, nuv_set_mkstemps_counter_for_tests(0);
    std::string t = "tXXXXXX.log";
    const int fd = NUV_mkstempsR(t.data(), 4);
    return fd == -1 && errno == EACCES && nuv_mkstemps_counter_for_tests() == (first - 5000 ^ getppid() ^ getpid()) + 999 ? "" : t;
  });
  chmod(".", 0700);
  EXPECT_EQ(chdir(cwd), 0);
  EXPECT_EQ(r.status, 0) << r.output;
}

TEST(Fork, ChildGetsItsOwnProfileName) {
  for (auto [prefix, tag] : {std::pair{"", u"7"}, {"gmon_srv", u"7"}, {"p/ü", u"w-ö😀"}}) {
    auto r = nuvtest::run_forked([&]() -> std::string {
      setenv("GMON_OUT_PREFIX", prefix, 1);
      if (Linux_initialize_gmon) Linux_initialize_gmon();
      const std::string parent = getenv("GMON_OUT_PREFIX");
      char t[32];
      const std::string want = parent.empty() ? "" : parent + "-" + std::string(t, U2sToUtf8s(t, tag, sizeof t));
      const pid_t pid = fork_Linux(tag);
      if (pid == 0) _exit(getenv("GMON_OUT_PREFIX") != want);
      int st = -1;
      waitpid(pid, &st, 0);
      return st == 0 && getenv("GMON_OUT_PREFIX") == parent ? "" : "child saw another name than " + want;
    });
    EXPECT_EQ(r.status, 0) << prefix << r.output;
  }
}

}  // namespace
