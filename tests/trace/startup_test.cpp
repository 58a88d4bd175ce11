// Start-up trace lines and the reading of the levels from the environment.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "nuvu16.h"
#include "support/recording_trace.h"
#include "trace/trace.h"

using nuvtest::RecordingTrace;

namespace {

struct EnvLevels : ::testing::Test {
  int32_t init0 = nlsui_init_trace_level;
  void SetUp() override {
    nuv::reset_env_levels_read_for_tests();
    unsetenv("NLSUI_INIT_TRACE_LEVEL");
    unsetenv("NLSUI_TRACE_LEVEL");
  }
  void TearDown() override {
    nlsui_init_trace_level = init0;
    unsetenv("NLSUI_INIT_TRACE_LEVEL");
    unsetenv("NLSUI_TRACE_LEVEL");
    nuv::reset_env_levels_read_for_tests();
  }
};

TEST_F(EnvLevels, StartupLineFormatDependsOnLevel) {
  nlsui_init_trace_level = 1;
  testing::internal::CaptureStderr();
  nuv::startup_line(1, 42, "short %d", 7);
  nuv::startup_line(4, 43, "not shown");
  nlsui_init_trace_level = 4;
  nuv::startup_line(4, 44, "padded");
  std::string err = testing::internal::GetCapturedStderr();
  std::string pid = std::to_string(getpid());
  EXPECT_EQ(err, "\nshort 7 [flat/nlsui0 42] pid = " + pid + "\n" + "\npadded" + std::string(73, ' ') +
                     " [flat/nlsui0 44] pid = " + pid + "\n");
}

TEST_F(EnvLevels, InitLevelHighAnnouncesItself) {
  setenv("NLSUI_INIT_TRACE_LEVEL", "high", 1);
  testing::internal::CaptureStderr();
  nuv::read_init_trace_level();
  nuv::read_init_trace_level();  // read once
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(nlsui_init_trace_level, 16);
  EXPECT_EQ(err.find("NLSUI_INIT_TRACE_LEVEL set to 'high'"), 1u);
  EXPECT_EQ(err.find("NLSUI_INIT_TRACE_LEVEL", 30), std::string::npos);
}

struct LevelWord {
  const char* word;
  int32_t init_level;
};
class InitWords : public EnvLevels, public ::testing::WithParamInterface<LevelWord> {};
TEST_P(InitWords, Parse) {
  setenv("NLSUI_INIT_TRACE_LEVEL", GetParam().word, 1);
  nlsui_init_trace_level = 1;
  testing::internal::CaptureStderr();
  nuv::read_init_trace_level();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(nlsui_init_trace_level, GetParam().init_level);
}
INSTANTIATE_TEST_SUITE_P(Words, InitWords,
                         ::testing::Values(LevelWord{"none", 0}, LevelWord{"low", 1}, LevelWord{"medium", 4},
                                           LevelWord{"high", 16}, LevelWord{"HIGH", 1}, LevelWord{"", 1}));

struct TraceWord {
  const char* word;  // null: unset
  uint32_t level;
  const char* announced;  // null: nothing traced
};
class TraceWords : public EnvLevels, public ::testing::WithParamInterface<TraceWord> {};
TEST_P(TraceWords, AppliedThroughSetTrace) {
  RecordingTrace rec(U16_TRACE_MEDIUM);
  if (GetParam().word) setenv("NLSUI_TRACE_LEVEL", GetParam().word, 1);
  nlsui_init_trace_level = 1;
  nuv::read_trace_levels_for_icu_load();
  EXPECT_EQ(u16_trace_level, GetParam().level);
  if (!GetParam().announced) {
    EXPECT_TRUE(RecordingTrace::lines.empty());
  } else {
    ASSERT_EQ(RecordingTrace::lines.size(), 1u);
    EXPECT_NE(RecordingTrace::lines[0].find(std::string("U16 trace level set to ") + GetParam().announced + "\n"),
              std::string::npos);
  }
}
INSTANTIATE_TEST_SUITE_P(Words, TraceWords,
                         ::testing::Values(TraceWord{nullptr, 4, nullptr}, TraceWord{"none", 0, nullptr},
                                           TraceWord{"low", 1, "low"}, TraceWord{"high", 16, "high"},
                                           TraceWord{"bogus", 4, "medium"}));

TEST_F(EnvLevels, LoadCalledLineAtHighStartupLevel) {
  setenv("NLSUI_INIT_TRACE_LEVEL", "high", 1);
  testing::internal::CaptureStderr();
  nuv::read_trace_levels_for_icu_load();
  std::string err = testing::internal::GetCapturedStderr();
  auto a = err.find("NLSUI_INIT_TRACE_LEVEL set to 'high'");
  auto b = err.find("loadIcuDo() is called");
  EXPECT_NE(a, std::string::npos);
  EXPECT_NE(b, std::string::npos);
  EXPECT_LT(a, b);
}

}  // namespace
