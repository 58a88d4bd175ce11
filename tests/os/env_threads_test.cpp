// getenvU16 and putenvU16 from several threads at once: the tables stay
// consistent.  Readers and writers use different variables, since libc's
// own getenv and putenv are not guarded against each other.  A reader does
// not look into its value: the next flush, made by whichever thread makes
// the 129th call, frees it, so values are only for the thread that flushes.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <thread>
#include <vector>

#include "nuvu16.h"
#include "os/environment.h"
#include "support/recording_trace.h"

namespace {

TEST(EnvThreads, ConcurrentGetenvAndPutenv) {
  nuv::os::reset_env_tables_for_tests();
  setenv("NUVT_READ_A", "\xC3\xA4-read", 1);
  setenv("NUVT_READ_B", "b", 1);
  for (int w = 0; w < 2; ++w) setenv(("NUVT_WRITE_" + std::to_string(w)).c_str(), "0", 1);
  EXPECT_EQ(std::u16string(getenvU16(u"NUVT_READ_A")), u"\u00E4-read");
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int r = 0; r < 2; ++r)
    threads.emplace_back([&, r] {
      for (int i = 0; i < 3000; ++i) {
        if (!getenvU16(r ? u"NUVT_READ_B" : u"NUVT_READ_A")) ++bad;
      }
    });
  for (int w = 0; w < 2; ++w)
    threads.emplace_back([&, w] {
      const std::u16string prefix = u"NUVT_WRITE_" + std::u16string(1, static_cast<char16_t>(u'0' + w)) + u"=";
      for (int i = 0; i < 1000; ++i)
        if (putenvU16((prefix + std::u16string(1 + i % 7, u'x')).c_str()) != 0) ++bad;
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad.load(), 0);
  const auto state = nuv::os::env_table_state();
  EXPECT_LE(state.getenv_entries, 128);
  EXPECT_LE(state.putenv_entries, state.putenv_capacity);
  EXPECT_EQ(state.putenv_capacity, 128);  // at most two live strings: never grows
  for (const char* n : {"NUVT_READ_A", "NUVT_READ_B", "NUVT_WRITE_0", "NUVT_WRITE_1"}) unsetenv(n);
  nuv::os::reset_env_tables_for_tests();
}

}  // namespace
