// The '%'-or-end scan of format literals against its scalar reference, at
// every alignment and with the text ending right before an unmapped page.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>

#include "format/engine.h"
#include "string/scan.h"

namespace {

TEST(LiteralScan, MatchesReferenceAtPageEnd) {
  const long page = sysconf(_SC_PAGESIZE);
  auto* mem = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(mem, MAP_FAILED);
  ASSERT_EQ(mprotect(mem + page, page, PROT_NONE), 0);
  std::mt19937 rng(4);
  for (int len = 0; len < 300; ++len) {
    for (int where = -1; where < len; where += 1 + len / 7) {
      // Units end exactly at the guard page, terminator included.
      auto* s = reinterpret_cast<char16_t*>(mem + page) - (len + 1);
      for (int i = 0; i < len; ++i) s[i] = static_cast<char16_t>('a' + rng() % 26);
      s[len] = 0;
      if (where >= 0) s[where] = u'%';
      ASSERT_EQ(nuv::find_directive(s), nuv::find_directive_ref(s)) << len << " " << where;
      ASSERT_EQ(nuv::find_directive(s) - s, where >= 0 ? where : len);
      for (int level = nuv::kCpuScalar; level <= nuv::cpu().level; ++level)
        ASSERT_EQ(nuv::scan_kernels_for(level)->strchrnul(s, u'%'), nuv::find_directive_ref(s)) << level;
    }
  }
  // Odd addresses take the scalar path.
  auto* odd = reinterpret_cast<char16_t*>(mem + page - 41);
  for (int i = 0; i < 19; ++i) std::memcpy(reinterpret_cast<char*>(odd) + 2 * i, "x\0", 2);
  std::memset(reinterpret_cast<char*>(odd) + 38, 0, 2);
  EXPECT_EQ(nuv::find_directive(odd), nuv::find_directive_ref(odd));
  munmap(mem, 2 * page);
}

}  // namespace
