// Command line, string arrays, getenvU16 and putenvU16 with their tables.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "nuvu16.h"
#include "os/environment.h"
#include "platform/gmon.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

struct CmdlineCase {
  const char* name;
  std::vector<std::u16string> args;
  std::string want;
};

const CmdlineCase kCmdline[] = {
    {"no_arguments", {}, ""},
    {"non_ascii_as_hash", {u"srv", u"-f", u"\u00E4x\U0001F600"}, "srv -f #x##"},
    {"300_characters_keep_256", {std::u16string(200, u'a'), std::u16string(100, u'b')},
     std::string(200, 'a') + " " + std::string(55, 'b')},
    {"second_argument_not_started", {std::u16string(256, u'c'), u"d"}, std::string(256, 'c')},
};

TEST(StoreCmdline, SevenBitCopy) {
  for (const auto& c : kCmdline) {
    std::vector<NUV_UTF16*> argv;
    for (auto& a : c.args) argv.push_back(const_cast<NUV_UTF16*>(a.c_str()));
    argv.push_back(nullptr);
    nlsui_store_cmdline(static_cast<int>(c.args.size()), argv.data());
    EXPECT_EQ(std::string(u16_cmdline), c.want) << c.name;
  }
}

TEST(StringArrays, CommandLineAndEnvironmentToUtf16) {
  char a0[] = "srv", a1[] = "gr\xC3\xBC\xC3\x9F" "e", a2[] = "\xF0\x9F\x98\x80";
  char* argv[] = {a0, a1, a2, nullptr};
  NUV_UTF16** w = nlsui_alloc_wcsar(3, argv);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(std::u16string(w[0]), u"srv");
  EXPECT_EQ(std::u16string(w[1]), u"gr\u00FC\u00DFe");
  EXPECT_EQ(std::u16string(w[2]), u"\xD83D\xDE00");
  EXPECT_EQ(w[3], nullptr);
  EXPECT_EQ(nlsui_freeenvironU(w), 1);
  EXPECT_EQ(nlsui_freeenvironU(nullptr), 1);

  w = nlsui_alloc_wcsar(0, argv);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(w[0], nullptr);
  nlsui_freeenvironU(w);

  char e0[] = "A=1", e1[] = "BAD=\xFF", e2[] = "C=\xC3\xA9";
  char* envp[] = {e0, e1, e2, nullptr};
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  w = nlsui_alloc_env(envp);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(std::u16string(w[0]), u"A=1");
  EXPECT_EQ(std::u16string(w[1]), u"C=\u00E9");  // the undecodable entry is left out
  EXPECT_EQ(w[2], nullptr);
  nlsui_freeenvironU(w);
  ASSERT_FALSE(trace.lines.empty());
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Environment Conversion encountered invalid UTF-8");
  EXPECT_EQ(nlsui_alloc_env(nullptr), nullptr);
}

TEST(StringArrays, CurrentEnvironment) {
  setenv("NUVT_ENVIRON", "\xE6\x97\xA5", 1);
  NUV_UTF16** w = nlsui_getenvironU();
  ASSERT_NE(w, nullptr);
  bool found = false;
  for (NUV_UTF16** p = w; *p; ++p) found |= std::u16string(*p) == u"NUVT_ENVIRON=\u65E5";
  EXPECT_TRUE(found);
  nlsui_freeenvironU(w);
  unsetenv("NUVT_ENVIRON");
}

TEST(StringArrays, BackToUtf8) {
  const std::u16string s0 = u"x=\u00E9", s1 = u"\u20AC", s2 = u"";
  NUV_UTF16* wide[] = {const_cast<NUV_UTF16*>(s0.c_str()), const_cast<NUV_UTF16*>(s1.c_str()),
                       const_cast<NUV_UTF16*>(s2.c_str()), nullptr};
  char** m = nlsui_alloc_mbsar(wide);
  ASSERT_NE(m, nullptr);
  EXPECT_STREQ(m[0], "x=\xC3\xA9");
  EXPECT_STREQ(m[1], "\xE2\x82\xAC");
  EXPECT_STREQ(m[2], "");
  EXPECT_EQ(m[3], nullptr);
  for (int i = 0; i < 3; ++i) free(m[i]);
  free(m);

  char b0[8], b1[3], b2[4];
  char* bytes[] = {b0, b1, b2};
  size_t sizes[] = {sizeof b0, sizeof b1, sizeof b2};
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  EXPECT_EQ(nlsui_wcsar2mbsar(3, wide, bytes, sizes), 0);
  EXPECT_STREQ(b0, "x=\xC3\xA9");
  EXPECT_STREQ(b1, "");  // three bytes and a terminator do not fit in three
  EXPECT_STREQ(b2, "");
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
            "Function nlsui_wcsar2mbsar :\nArray byteArray[i] length sizes[i] is too small.\n"
            "--- Unicode interface ------ End of message ------");
}

using StringArraysDeathTest = testing::Test;

TEST(StringArraysDeathTest, UndecodableCommandLineEndsTheProcess) {
  char a0[] = "ok", a1[] = "bad\xC3(";
  char* argv[] = {a0, a1, nullptr};
  EXPECT_EXIT(nlsui_alloc_wcsar(2, argv), testing::ExitedWithCode(255),
              "Command Line Conversion encountered invalid UTF-8");
}

TEST(StringArraysDeathTest, UnknownKindEndsTheProcess) {
  char a0[] = "ok";
  char* argv[] = {a0, nullptr};
  EXPECT_EXIT(nlsui_alloc_wcsarBase(1, argv, 2), testing::ExitedWithCode(255), "Internal error");
}

// ---- getenvU16 / putenvU16 ----

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
  std::vector<std::string> names_;
};

TEST_F(EnvTables, GetenvConvertsAndCopies) {
  setenv("NUVT_V", "gr\xC3\xBC\xC3\x9F" "e", 1);
  setenv("NUVT_EMPTY", "", 1);
  unsetenv("NUVT_NONE");
  NUV_UTF16* a = getenvU16(u"NUVT_V");
  NUV_UTF16* b = getenvU(u"NUVT_V");
  ASSERT_NE(a, nullptr);
  EXPECT_NE(a, b);  // no lookup: every call its own copy
  EXPECT_EQ(std::u16string(a), u"gr\u00FC\u00DFe");
  EXPECT_EQ(nuv::os::env_table_state().getenv_entries, 2);
  NUV_UTF16* e = getenvU16(u"NUVT_EMPTY");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e[0], 0);
  EXPECT_EQ(nuv::os::env_table_state().getenv_entries, 2);  // nothing recorded for an empty value
  EXPECT_EQ(getenvU16(u"NUVT_NONE"), nullptr);
  EXPECT_EQ(getenvU16(nullptr), nullptr);
  setenv("NUVT_BAD", "\xFF", 1);
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  EXPECT_EQ(getenvU16(u"NUVT_BAD"), nullptr);
  ASSERT_FALSE(trace.lines.empty());
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "getenvU16 encountered invalid UTF-8");
  for (const char* n : {"NUVT_V", "NUVT_EMPTY", "NUVT_BAD"}) unsetenv(n);
}

TEST_F(EnvTables, LongNameIsReportedAndLookedUpCut) {
  const std::string cut(255, 'N');
  setenv(cut.c_str(), "found", 1);
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  NUV_UTF16* v = getenvU16(utf16(cut + "XYZ").c_str());
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(std::u16string(v), u"found");
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/nlsui3 line 362]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
            "Function getenvU16 :\nArray cname length MAX_ENV_LN is too small.\n"
            "--- Unicode interface ------ End of message ------");
  unsetenv(cut.c_str());
}

TEST_F(EnvTables, The129thGetenvFlushesTheTable) {
  setenv("NUVT_G", "v", 1);
  nuvtest::RecordingTrace trace(U16_TRACE_HIGH);
  for (int i = 0; i < 128; ++i) ASSERT_NE(getenvU16(u"NUVT_G"), nullptr);
  EXPECT_TRUE(trace.lines.empty());
  EXPECT_EQ(nuv::os::env_table_state().getenv_entries, 128);
  NUV_UTF16* last = getenvU16(u"NUVT_G");
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(std::u16string(last), u"v");
  EXPECT_EQ(nuv::os::env_table_state().getenv_entries, 1);
  ASSERT_EQ(trace.lines.size(), 2u);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
            "Entering cleanup_putenv_table(). \nAllocated table lines = 128\n\n"
            "--- Unicode interface ------ End of message ------");
  EXPECT_EQ(nuvtest::after_header(trace.lines[1]),
            "Entries after shrinking: 0\n\n--- Unicode interface ------ End of message ------");
  unsetenv("NUVT_G");
}

TEST_F(EnvTables, PutenvSetsTheVariable) {
  put("NUVT_P=\xE2\x82\xAC\xF0\x9F\x98\x80");
  // Pairs go to the environment unit by unit, as everywhere else.
  EXPECT_STREQ(getenv("NUVT_P"), "\xE2\x82\xAC\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(std::u16string(getenvU16(u"NUVT_P")), u"\u20AC\xD83D\xDE00");
  errno = 0;
  EXPECT_EQ(putenvU16(nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EnvTables, SettingOneVariable200TimesKeepsTheTableSmall) {
  nuvtest::RecordingTrace trace(U16_TRACE_HIGH);
  for (int i = 0; i < 200; ++i) put("NUVT_SAME=" + std::to_string(i));
  EXPECT_STREQ(getenv("NUVT_SAME"), "199");
  const auto state = nuv::os::env_table_state();
  EXPECT_EQ(state.putenv_capacity, 128);
  // The clean-up runs after putenv took the new string, so every recorded
  // one had been replaced and all went.
  EXPECT_EQ(state.putenv_entries, 200 - 128);
  ASSERT_EQ(trace.lines.size(), 2u);
  EXPECT_EQ(nuvtest::after_header(trace.lines[1]),
            "Entries after shrinking: 0\n\n--- Unicode interface ------ End of message ------");
}

struct GrowthCase {
  int live;  // strings still in the environment when the table is full
  int capacity_after;
};

class PutenvGrowth : public EnvTables, public testing::WithParamInterface<GrowthCase> {};

TEST_P(PutenvGrowth, GrowsOnlyWhenFewerThan24SlotsWouldBeFree) {
  const GrowthCase c = GetParam();
  // live-1 distinct variables, and one variable set until the table is full:
  // only its last string is still in the environment.
  for (int i = 0; i < c.live - 1; ++i) put("NUVT_D" + std::to_string(i) + "=x");
  for (int i = c.live - 1; i < 128; ++i) put("NUVT_R=" + std::to_string(i));
  ASSERT_EQ(nuv::os::env_table_state().putenv_entries, 128);
  nuvtest::RecordingTrace trace(U16_TRACE_HIGH);
  put("NUVT_LAST=1");
  const auto state = nuv::os::env_table_state();
  EXPECT_EQ(state.putenv_capacity, c.capacity_after);
  EXPECT_EQ(state.putenv_entries, c.live + 1);
  std::vector<std::string> want = {
      "Entering cleanup_putenv_table(). \nAllocated table lines = 128\n",
      "Entries after shrinking: " + std::to_string(c.live) + "\n",
  };
  if (c.capacity_after == 256) want.push_back("Enlarging table to 256\n");
  ASSERT_EQ(trace.lines.size(), want.size());
  for (std::size_t i = 0; i < want.size(); ++i)
    EXPECT_EQ(nuvtest::after_header(trace.lines[i]),
              want[i] + "\n--- Unicode interface ------ End of message ------");
  // Everything handed to putenv is still readable.
  for (int i = 0; i < c.live - 1; ++i) EXPECT_STREQ(getenv(("NUVT_D" + std::to_string(i)).c_str()), "x");
  EXPECT_STREQ(getenv("NUVT_R"), "127");
}

INSTANTIATE_TEST_SUITE_P(LiveEntries, PutenvGrowth,
                         testing::Values(GrowthCase{104, 128}, GrowthCase{105, 256}, GrowthCase{128, 256}));

// ---- start-up ----

TEST(Startup, ProfileOutputNamedAfterTheProgram) {
  const int status = nuvtest::run_in_child([] {
    setenv("GMON_OUT_PREFIX", "gmon", 1);
    nuv::reset_gmon_once_for_tests();
    const int r = Linux_initialize_gmon();
    const std::string first = getenv("GMON_OUT_PREFIX");
    Linux_initialize_gmon();  // once only
    const std::string second = getenv("GMON_OUT_PREFIX");
    _exit(r == 0 && first == "gmon_test_os" && second == first ? 0 : 1);
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(Startup, InitializeWithoutProfilingReturnsZero) {
  const int status = nuvtest::run_in_child([] {
    unsetenv("GMON_OUT_PREFIX");
    nuv::reset_gmon_once_for_tests();
    _exit(nlsui_initialize() == 0 && getenv("GMON_OUT_PREFIX") == nullptr ? 0 : 1);
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
