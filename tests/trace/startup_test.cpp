// Start-up trace lines and the reading of the levels from the environment.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "nuvu16.h"
#include "support/recording_trace.h"
#include "support/scoped.h"
#include "trace/trace.h"

using nuvtest::RecordingTrace;
using nuvtest::stderr_of;

namespace {

struct EnvLevels : ::testing::Test {
  nuvtest::Scoped<int32_t> init{nlsui_init_trace_level, 1};
  void SetUp() override { clear(); }
  void TearDown() override { clear(); }
  static void clear() {
    unsetenv("NLSUI_INIT_TRACE_LEVEL");
    unsetenv("NLSUI_TRACE_LEVEL");
    nuv::reset_env_levels_read_for_tests();
  }
};

TEST_F(EnvLevels, StartupLineFormatDependsOnLevel) {
  const std::string err = stderr_of([] {
    nuv::startup_line(1, 42, "short %d", 7);
    nuv::startup_line(4, 43, "not shown");
    nlsui_init_trace_level = 4;
    nuv::startup_line(4, 44, "padded");
  });
  const std::string pid = std::to_string(getpid());
  EXPECT_EQ(err, "\nshort 7 [flat/nlsui0 42] pid = " + pid + "\n" + "\npadded" + std::string(73, ' ') +
                     " [flat/nlsui0 44] pid = " + pid + "\n");
}

TEST_F(EnvLevels, InitLevelWordsAndTheHighAnnouncement) {
  const std::pair<const char*, int32_t> words[] = {{"none", 0}, {"low", 1},  {"medium", 4},
                                                   {"high", 16}, {"HIGH", 1}, {"", 1}};
  for (const auto& [word, level] : words) {
    clear(), setenv("NLSUI_INIT_TRACE_LEVEL", word, 1);
    nlsui_init_trace_level = 1;
    const std::string err = stderr_of([] { nuv::read_init_trace_level(), nuv::read_init_trace_level(); });
    EXPECT_EQ(nlsui_init_trace_level, level) << word;
    if (level == 16) EXPECT_EQ(err.find("NLSUI_INIT_TRACE_LEVEL set to 'high'"), 1u);
    EXPECT_EQ(err.find("NLSUI_INIT_TRACE_LEVEL", 30), std::string::npos) << "read once";
  }
}

TEST_F(EnvLevels, TraceLevelWordsAppliedThroughSetTrace) {
  const struct { const char* word; uint32_t level; const char* announced; } words[] = {  // null: unset, silent
      {nullptr, 4, nullptr}, {"none", 0, nullptr}, {"low", 1, "low"}, {"high", 16, "high"}, {"bogus", 4, "medium"}};
  for (const auto& w : words) {
    clear();
    RecordingTrace rec(U16_TRACE_MEDIUM);
    if (w.word) setenv("NLSUI_TRACE_LEVEL", w.word, 1);
    nlsui_init_trace_level = 1;
    nuv::read_trace_levels_for_icu_load();
    EXPECT_EQ(u16_trace_level, w.level);
    EXPECT_EQ(nuvtest::recorded_bodies(), w.announced ? std::vector<std::string>{std::string("U16 trace level set to ") +
                                                                                 w.announced + "\n" + nuvtest::kEndLine}
                                                      : std::vector<std::string>{});
  }
}

TEST_F(EnvLevels, LoadCalledLineAtHighStartupLevel) {
  setenv("NLSUI_INIT_TRACE_LEVEL", "high", 1);
  const std::string err = stderr_of([] { nuv::read_trace_levels_for_icu_load(); });
  const auto a = err.find("NLSUI_INIT_TRACE_LEVEL set to 'high'"), b = err.find("loadIcuDo() is called");
  EXPECT_TRUE(a != std::string::npos && b != std::string::npos && a < b) << err;
}

}  // namespace
