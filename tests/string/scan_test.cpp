// The vector kernels against the scalar references, at every start alignment
// and for strings that end right before block boundaries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <vector>

#include "nuvu16.h"
#include "string/scan.h"
#include "support/page_end.h"

namespace {

struct Variant {
  const char* name;
  const nuv::ScanKernels* k;
};

std::vector<Variant> variants() {
  std::vector<Variant> v;
  for (int level = nuv::kCpuScalar; level <= nuv::cpu().level; ++level)
    v.push_back({nuv::cpu_level_name(level), nuv::scan_kernels_for(level)});
  return v;
}

class ScanKernel : public ::testing::TestWithParam<Variant> {};

TEST_P(ScanKernel, StrlenEveryAlignmentAndLength) {
  const auto* k = GetParam().k;
  alignas(64) char16_t buf[400];
  for (std::size_t start = 0; start < 40; ++start)
    for (std::size_t len = 0; len < 300; ++len) {
      for (auto& u : buf) u = 0x4141;
      buf[start + len] = 0;
      ASSERT_EQ(k->strlen(buf + start), len) << start << " " << len;
      ASSERT_EQ(nuv::strlen_ref(buf + start), len);
    }
}

TEST_P(ScanKernel, StrnlenBoundsAndTerminators) {
  const auto* k = GetParam().k;
  alignas(64) char16_t buf[300];
  for (auto& u : buf) u = 0xFFFF;
  for (std::size_t start = 0; start < 34; ++start)
    for (std::size_t len = 0; len < 200; len += 7) {
      buf[start + len] = 0;
      for (std::size_t max = 1; max < 220; max += 3) {
        std::size_t want = len < max ? len : max;
        ASSERT_EQ(k->strnlen(buf + start, max), want) << start << " " << len << " " << max;
        ASSERT_EQ(nuv::strnlen_ref(buf + start, max), want);
      }
      buf[start + len] = 0xFFFF;
    }
}

TEST_P(ScanKernel, StrchrFindsFirstUnitOrTerminator) {
  const auto* k = GetParam().k;
  alignas(64) char16_t buf[200];
  for (std::size_t start = 0; start < 34; ++start)
    for (std::size_t len = 0; len < 150; len += 5) {
      for (std::size_t i = 0; i < 200; ++i) buf[i] = static_cast<char16_t>(0x100 + (i % 7));
      buf[start + len] = 0;
      for (char16_t c : {u'\0', char16_t(0x100), char16_t(0x106), char16_t(0x107)}) {
        ASSERT_EQ(k->strchr(buf + start, c), nuv::strchr_ref(buf + start, c)) << start << " " << len << " " << int(c);
        ASSERT_EQ(k->strchrnul(buf + start, c), nuv::strchrnul_ref(buf + start, c)) << start << " " << len;
      }
    }
}

TEST_P(ScanKernel, MemchrAndMemcmpAgreeWithReferenceOnRandomData) {
  const auto* k = GetParam().k;
  std::mt19937 rng(1234);
  std::vector<char16_t> a(600), b(600);
  for (int iter = 0; iter < 4000; ++iter) {
    std::size_t off = rng() % 16, n = rng() % 500;
    for (auto& u : a) u = static_cast<char16_t>(rng() % 4 == 0 ? 0xFFFF : rng() % 8);
    b = a;
    if (n && rng() % 2) b[off + rng() % n] ^= static_cast<char16_t>(1 + rng() % 0xFFFF);
    char16_t c = static_cast<char16_t>(rng() % 9 == 0 ? 0xFFFF : rng() % 8);
    ASSERT_EQ(k->memchr(a.data() + off, c, n), nuv::memchr_ref(a.data() + off, c, n));
    int want = nuv::memcmp_ref(a.data() + off, b.data() + off, n);
    ASSERT_EQ(k->memcmp(a.data() + off, b.data() + off, n), want);
  }
}

// A string whose terminator is the last unit of a mapped page: any read past
// the block holding it would fault.
TEST_P(ScanKernel, NeverReadsIntoTheNextPage) {
  const auto* k = GetParam().k;
  nuvtest::PageEnd mem;
  ASSERT_TRUE(mem.ok());
  auto* end = mem.end<char16_t>();
  const std::size_t n = static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 2;
  char16_t* units = end - n;
  for (std::size_t i = 0; i < n; ++i) units[i] = u'x';
  units[n - 1] = 0;
  for (std::size_t start : {std::size_t(0), n - 1, n - 2, n - 5, n - 17, n - 64, n - 200}) {
    EXPECT_EQ(k->strlen(units + start), n - 1 - start);
    EXPECT_EQ(k->strnlen(units + start, 1000000), n - 1 - start);
    EXPECT_EQ(k->strchr(units + start, u'y'), nullptr);
    EXPECT_EQ(k->strchrnul(units + start, u'y'), units + n - 1);
    EXPECT_EQ(k->memchr(units + start, u'y', n - start), nullptr);
  }
}

INSTANTIATE_TEST_SUITE_P(Kernels, ScanKernel, ::testing::ValuesIn(variants()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ScanPublic, OddAddressesUseTheScalarPath) {
  alignas(8) unsigned char raw[64];
  std::memset(raw, 0x41, sizeof raw);
  raw[1 + 2 * 9] = 0;
  raw[2 + 2 * 9] = 0;  // the unit at index 9 from raw+1 is zero
  const NUV_UTF16* s;
  const void* p = raw + 1;
  std::memcpy(&s, &p, sizeof s);
  EXPECT_EQ(nuv::strlen_ref(s), 9u);
  EXPECT_EQ(strlenU16(s), 9);
  EXPECT_EQ(strchrU16(s, 0), nuv::strchr_ref(s, 0));
  EXPECT_EQ(strnlenU16(s, 4), 4u);
}

}  // namespace
