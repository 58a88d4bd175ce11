// The level decision from raw CPUID words, and NUV_CPU on this machine.
#include <gtest/gtest.h>

#include <cstdlib>

#include "common/cpu.h"

namespace {

using nuv::CpuidWords;

constexpr std::uint32_t bit(int n) { return 1u << n; }
// What a full AVX2 machine reports: SSE2; SSE3, SSSE3, SSE4.1/4.2, POPCNT,
// OSXSAVE, AVX; BMI1, AVX2, BMI2; LZCNT; the OS saving YMM.
constexpr CpuidWords kAvx2 = {bit(0) | bit(9) | bit(19) | bit(20) | bit(23) | bit(27) | bit(28), bit(26),
                              bit(3) | bit(5) | bit(8), 0, bit(5), 0x6};
constexpr std::uint32_t kAvx512Ebx = bit(16) | bit(30) | bit(31);

CpuidWords with(CpuidWords w, std::uint32_t l7_ebx_on, std::uint32_t l7_ebx_off, std::uint64_t xcr0) {
  w.l7_ebx = (w.l7_ebx | l7_ebx_on) & ~l7_ebx_off;
  w.xcr0 = xcr0;
  return w;
}

struct Case {
  const char* what;
  CpuidWords w;
  const char* limit;
  int level, hardware;
  bool ssse3, vbmi2;
};

const CpuidWords kAvx512Vbmi2 = [] {
  CpuidWords w = with(kAvx2, kAvx512Ebx, 0, 0xE7);
  w.l7_ecx = bit(1) | bit(6);
  return w;
}();

const Case kCases[] = {
    {"nothing", {}, nullptr, nuv::kCpuScalar, nuv::kCpuScalar, false, false},
    {"sse2 only", {0, bit(26), 0, 0, 0, 0}, nullptr, nuv::kCpuSse2, nuv::kCpuSse2, false, false},
    {"ssse3", {bit(9), bit(26), 0, 0, 0, 0}, nullptr, nuv::kCpuSse2, nuv::kCpuSse2, true, false},
    {"avx2", kAvx2, nullptr, nuv::kCpuAvx2, nuv::kCpuAvx2, true, false},
    // The objects built for the level use BMI2, LZCNT and POPCNT too.
    {"avx2 without bmi2", with(kAvx2, 0, bit(8), 0x6), nullptr, nuv::kCpuSse2, nuv::kCpuSse2, true, false},
    {"avx2 without bmi1", with(kAvx2, 0, bit(3), 0x6), nullptr, nuv::kCpuSse2, nuv::kCpuSse2, true, false},
    {"avx2 without lzcnt", [] { CpuidWords w = kAvx2; w.x1_ecx = 0; return w; }(), nullptr, nuv::kCpuSse2,
     nuv::kCpuSse2, true, false},
    {"avx2 without popcnt", [] { CpuidWords w = kAvx2; w.l1_ecx &= ~bit(23); return w; }(), nullptr,
     nuv::kCpuSse2, nuv::kCpuSse2, true, false},
    {"avx2, OS saves no YMM", with(kAvx2, 0, 0, 0x2), nullptr, nuv::kCpuSse2, nuv::kCpuSse2, true, false},
    {"avx512", with(kAvx2, kAvx512Ebx, 0, 0xE7), nullptr, nuv::kCpuAvx512, nuv::kCpuAvx512, true, false},
    {"avx512 vbmi2", kAvx512Vbmi2, nullptr, nuv::kCpuAvx512, nuv::kCpuAvx512, true, true},
    {"avx512 without vl", with(kAvx2, kAvx512Ebx, bit(31), 0xE7), nullptr, nuv::kCpuAvx2, nuv::kCpuAvx2, true,
     false},
    {"avx512, OS saves no ZMM", [] { CpuidWords w = kAvx512Vbmi2; w.xcr0 = 0x7; return w; }(), nullptr,
     nuv::kCpuAvx2, nuv::kCpuAvx2, true, false},
    {"limit avx2", kAvx512Vbmi2, "avx2", nuv::kCpuAvx2, nuv::kCpuAvx512, true, false},
    {"limit sse2", kAvx512Vbmi2, "sse2", nuv::kCpuSse2, nuv::kCpuAvx512, true, false},
    {"limit scalar", kAvx512Vbmi2, "scalar", nuv::kCpuScalar, nuv::kCpuAvx512, false, false},
    {"limit cannot raise", kAvx2, "avx512", nuv::kCpuAvx2, nuv::kCpuAvx2, true, false},
    {"unknown limit", kAvx512Vbmi2, "AVX2", nuv::kCpuAvx512, nuv::kCpuAvx512, true, true},
    {"empty limit", kAvx2, "", nuv::kCpuAvx2, nuv::kCpuAvx2, true, false},
};

TEST(CpuLevel, DecidedFromTheFeatureWords) {
  for (const Case& c : kCases) {
    const nuv::CpuInfo got = nuv::cpu_info_from(c.w, c.limit);
    EXPECT_EQ(got.level, c.level) << c.what;
    EXPECT_EQ(got.hardware, c.hardware) << c.what;
    EXPECT_EQ(got.ssse3, c.ssse3) << c.what;
    EXPECT_EQ(got.vbmi && got.vbmi2, c.vbmi2) << c.what;
  }
}

// The per-level runs of the test suite set NUV_CPU; the library must run at
// that level (or the machine's own, when lower).
TEST(CpuLevel, ThisProcessFollowsNuvCpu) {
  const nuv::CpuInfo& info = nuv::cpu();
  EXPECT_GE(info.hardware, nuv::kCpuSse2);  // every x86-64
  const int asked = nuv::cpu_level_named(std::getenv("NUV_CPU"));
  EXPECT_EQ(info.level, asked >= 0 && asked < info.hardware ? asked : info.hardware);
}

}  // namespace
