// Command line, string arrays, getenvU16 and putenvU16 with their tables,
// and the start-up call.
#include <gtest/gtest.h>

#include <thread>

#include "nuvu16.h"
#include "os/environment.h"
#include "platform/gmon.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::after_header;
using nuvtest::array_of;
using nuvtest::utf16;

TEST(StoreCmdline, SevenBitCopyOfAtMost256Characters) {
  const struct {
    std::vector<std::u16string> args;
    std::string want;
  } cases[] = {{{}, ""}, {{u"srv", u"-f", u"\u00E4x\U0001F600"}, "srv -f #x##"},
               {{std::u16string(200, u'a'), std::u16string(100, u'b')}, std::string(200, 'a') + " " + std::string(55, 'b')},
               {{std::u16string(256, u'c'), u"d"}, std::string(256, 'c')}};
  for (const auto& c : cases) {
    nlsui_store_cmdline(static_cast<int>(c.args.size()), array_of(c.args).data());
    EXPECT_EQ(std::string(u16_cmdline), c.want);
  }
}

TEST(StringArrays, BothDirections) {
  const char* argv[] = {"srv", "gr\xC3\xBC\xC3\x9F" "e", "\xF0\x9F\x98\x80", nullptr};
  NUV_UTF16** w = nlsui_alloc_wcsar(3, const_cast<char**>(argv));
  EXPECT_EQ(std::u16string(w[1]), u"gr\u00FC\u00DFe");
  EXPECT_EQ(std::u16string(w[2]), u"\xD83D\xDE00");
  EXPECT_EQ(w[3], nullptr);
  char** m = nlsui_alloc_mbsar(w);
  EXPECT_STREQ(m[1], argv[1]);
  EXPECT_STREQ(m[2], "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(m[3], nullptr);
  char b0[4], b1[4], b2[8];
  char* bytes[] = {b0, b1, b2};
  size_t sizes[] = {sizeof b0, sizeof b1, sizeof b2};
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  EXPECT_EQ(nlsui_wcsar2mbsar(3, w, bytes, sizes), 0);
  EXPECT_STREQ(b0, "srv");
  EXPECT_STREQ(b1, "gr");  // cut before the character that does not fit, and reported
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_EQ(after_header(trace.lines[0]), "Function nlsui_wcsar2mbsar :\nArray byteArray[i] length sizes[i] is too small.\n" + nuvtest::kEndLine);
  for (int i = 0; i < 3; ++i) free(m[i]);
  free(m);
  EXPECT_EQ(nlsui_freeenvironU(w) + nlsui_freeenvironU(nullptr), 2);
  w = nlsui_alloc_wcsar(0, nullptr);
  EXPECT_EQ(w[0], nullptr);
  nlsui_freeenvironU(w);
}

TEST(StringArrays, EnvironmentLeavesOutWhatIsNotUtf8) {
  const char* envp[] = {"A=1", "BAD=\xFF", "C=\xC3\xA9", nullptr};
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  NUV_UTF16** w = nlsui_alloc_env(const_cast<char**>(envp));
  EXPECT_EQ(std::u16string(w[1]), u"C=\u00E9");
  EXPECT_EQ(w[2], nullptr);
  nlsui_freeenvironU(w);
  EXPECT_EQ(after_header(trace.lines.at(0)), "Environment Conversion encountered invalid UTF-8");
  EXPECT_EQ(nlsui_alloc_env(nullptr), nullptr);
  setenv("NUVT_ENVIRON", "\xE6\x97\xA5", 1);
  w = nlsui_getenvironU();
  bool found = false;
  for (NUV_UTF16** p = w; *p; ++p) found |= std::u16string(*p) == u"NUVT_ENVIRON=\u65E5";
  EXPECT_TRUE(found);
  nlsui_freeenvironU(w);
  unsetenv("NUVT_ENVIRON");
}

TEST(StringArraysDeathTest, BadCommandLineOrKindEndsTheProcess) {
  const char* argv[] = {"ok", "bad\xC3(", nullptr};
  EXPECT_EXIT(nlsui_alloc_wcsar(2, const_cast<char**>(argv)), testing::ExitedWithCode(255), "Command Line Conversion encountered invalid UTF-8");
  EXPECT_EXIT(nlsui_alloc_wcsarBase(1, const_cast<char**>(argv), 2), testing::ExitedWithCode(255), "Internal error");
}

class EnvTables : public testing::Test {
 protected:
  void SetUp() override { nuv::os::reset_env_tables_for_tests(); }
  void TearDown() override {
    for (const auto& n : names_) unsetenv(n.c_str());
    nuv::os::reset_env_tables_for_tests();
  }
  void put(const std::string& assignment) {
    names_.push_back(assignment.substr(0, assignment.find('=')));
    ASSERT_EQ(putenvU16(utf16(assignment).c_str()), 0);
  }
  static std::string line(const std::string& text) { return text + "\n" + nuvtest::kEndLine; }
  std::vector<std::string> names_;
};

TEST_F(EnvTables, GetenvCopiesEveryCallAndFlushesOnThe129th) {
  put("NUVT_V=gr\xC3\xBC\xC3\x9F" "e");
  put("NUVT_EMPTY=");
  setenv("NUVT_BAD", "\xFF", 1);
  names_.push_back("NUVT_BAD");
  EXPECT_EQ(std::u16string(getenvU16(u"NUVT_V")), u"gr\u00FC\u00DFe");
  EXPECT_NE(getenvU16(u"NUVT_V"), getenvU(u"NUVT_V"));  // no lookup: every call its own copy
  EXPECT_EQ(getenvU16(u"NUVT_EMPTY")[0], 0);            // empty: a constant, nothing recorded
  EXPECT_EQ(getenvU16(u"NUVT_NONE"), nullptr);
  EXPECT_EQ(getenvU16(nullptr), nullptr);                // libc would crash on null
  nuvtest::RecordingTrace trace(U16_TRACE_HIGH);
  EXPECT_EQ(getenvU16(u"NUVT_BAD"), nullptr);
  EXPECT_EQ(after_header(trace.lines.at(0)), "getenvU16 encountered invalid UTF-8");
  EXPECT_EQ(nuv::os::env_table_state().getenv_entries, 3);
  trace.lines.clear();
  for (int i = 3; i < 128; ++i) getenvU16(u"NUVT_V");
  EXPECT_TRUE(trace.lines.empty());
  EXPECT_EQ(std::u16string(getenvU16(u"NUVT_V")), u"gr\u00FC\u00DFe");
  EXPECT_EQ(nuv::os::env_table_state().getenv_entries, 1);
  ASSERT_EQ(trace.lines.size(), 2u);
  EXPECT_EQ(after_header(trace.lines[0]), line("Entering cleanup_putenv_table(). \nAllocated table lines = 128\n"));
  EXPECT_EQ(after_header(trace.lines[1]), line("Entries after shrinking: 0\n"));
}

TEST_F(EnvTables, LongNameIsReportedAndLookedUpCut) {
  put(std::string(255, 'N') + "=found");
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  EXPECT_EQ(std::u16string(getenvU16(utf16(std::string(258, 'N')).c_str())), u"found");
  EXPECT_NE(trace.lines.at(0).find("[flat/nlsui3 line 362]"), std::string::npos);
  EXPECT_EQ(after_header(trace.lines[0]), "Function getenvU16 :\nArray cname length MAX_ENV_LN is too small.\n" + nuvtest::kEndLine);
  EXPECT_EQ(putenvU16(nullptr), -1);  // libc would crash on null
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EnvTables, SettingOneVariable200TimesKeepsTheTableSmall) {
  nuvtest::RecordingTrace trace(U16_TRACE_HIGH);
  for (int i = 0; i < 200; ++i) put("NUVT_SAME=" + std::to_string(i));
  EXPECT_STREQ(getenv("NUVT_SAME"), "199");
  // The clean-up runs after putenv took the new string: every recorded one was replaced.
  EXPECT_EQ(nuv::os::env_table_state().putenv_capacity, 128);
  EXPECT_EQ(nuv::os::env_table_state().putenv_entries, 72);
  ASSERT_EQ(trace.lines.size(), 2u);
  EXPECT_EQ(after_header(trace.lines[1]), line("Entries after shrinking: 0\n"));
}

class PutenvGrowth : public EnvTables, public testing::WithParamInterface<int> {};

TEST_P(PutenvGrowth, GrowsWhenFewerThan24SlotsWouldBeFree) {
  const int live = GetParam();
  for (int i = 0; i < live - 1; ++i) put("NUVT_D" + std::to_string(i) + "=x");
  for (int i = live - 1; i < 128; ++i) put("NUVT_R=" + std::to_string(i));  // only the last is live
  nuvtest::RecordingTrace trace(U16_TRACE_HIGH);
  put("NUVT_LAST=1");
  const bool grows = live >= 105;
  EXPECT_EQ(nuv::os::env_table_state().putenv_capacity, grows ? 256 : 128);
  EXPECT_EQ(nuv::os::env_table_state().putenv_entries, live + 1);
  ASSERT_EQ(trace.lines.size(), grows ? 3u : 2u);
  EXPECT_EQ(after_header(trace.lines[1]), line("Entries after shrinking: " + std::to_string(live) + "\n"));
  if (grows) EXPECT_EQ(after_header(trace.lines[2]), line("Enlarging table to 256\n"));
  for (int i = 0; i < live - 1; ++i) EXPECT_STREQ(getenv(("NUVT_D" + std::to_string(i)).c_str()), "x");
}

INSTANTIATE_TEST_SUITE_P(LiveEntries, PutenvGrowth, testing::Values(104, 105, 128));

// Readers and writers on different variables (libc's getenv and putenv are
// not guarded against each other).  A reader does not look into its value:
// whichever thread makes the 129th call frees it.
TEST_F(EnvTables, ConcurrentGetenvAndPutenvKeepTheTablesWhole) {
  put("NUVT_READ=r");
  put("NUVT_W2=");  // made before: a new variable would make libc grow environ under the readers
  put("NUVT_W3=");
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      const std::u16string assignment = u"NUVT_W" + std::u16string(1, u'0' + t) + u"=";
      for (int i = 0; i < 1500; ++i)
        bad += t < 2 ? !getenvU16(u"NUVT_READ") : putenvU16((assignment + std::u16string(1 + i % 7, u'x')).c_str()) != 0;
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_LE(nuv::os::env_table_state().getenv_entries, 128);
  EXPECT_EQ(nuv::os::env_table_state().putenv_capacity, 128);
}

TEST(Startup, ProfileOutputNamedAfterTheProgramOnce) {
  const int status = nuvtest::run_in_child([] {
    unsetenv("GMON_OUT_PREFIX");
    nuv::reset_gmon_once_for_tests();
    if (nlsui_initialize() != 0 || getenv("GMON_OUT_PREFIX")) _exit(1);
    setenv("GMON_OUT_PREFIX", "gmon", 1);
    nuv::reset_gmon_once_for_tests();
    const int r = Linux_initialize_gmon() | Linux_initialize_gmon();
    const std::string self = nuvtest::self_exe();
    _exit(r == 0 && getenv("GMON_OUT_PREFIX") == "gmon_" + self.substr(self.rfind('/') + 1) ? 0 : 2);
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
