#include "common/cpu.h"

#include <cpuid.h>

#include <cstdlib>
#include <cstring>

namespace nuv {

namespace {

constexpr std::uint32_t bit(int n) { return 1u << n; }

bool all(std::uint32_t word, std::uint32_t bits) { return (word & bits) == bits; }

// Leaf 1 ecx: SSE3, SSSE3, SSE4.1, SSE4.2, POPCNT, OSXSAVE, AVX.
constexpr std::uint32_t kL1Ssse3 = bit(9);
constexpr std::uint32_t kL1Avx = bit(0) | bit(9) | bit(19) | bit(20) | bit(23) | bit(27) | bit(28);
// Leaf 7 ebx: BMI1, AVX2, BMI2; then AVX-512 F, BW, VL.
constexpr std::uint32_t kL7Avx2 = bit(3) | bit(5) | bit(8);
constexpr std::uint32_t kL7Avx512 = bit(16) | bit(30) | bit(31);
constexpr std::uint32_t kL7Vbmi = bit(1), kL7Vbmi2 = bit(6);
constexpr std::uint32_t kX1Lzcnt = bit(5);
constexpr std::uint64_t kXcrYmm = 0x6, kXcrZmm = 0xE6;  // SSE+AVX state; and opmask, ZMM halves, ZMM16-31

CpuidWords read_cpuid() {
  CpuidWords w{};
  unsigned a, b, c, d;
  if (__get_cpuid(1, &a, &b, &c, &d)) w.l1_ecx = c, w.l1_edx = d;
  if (__get_cpuid_max(0, nullptr) >= 7) {
    __cpuid_count(7, 0, a, b, c, d);
    w.l7_ebx = b, w.l7_ecx = c;
  }
  if (__get_cpuid(0x80000001u, &a, &b, &c, &d)) w.x1_ecx = c;
  if (w.l1_ecx & bit(27)) {  // OSXSAVE: XGETBV is there
    std::uint32_t lo, hi;
    __asm__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    w.xcr0 = (std::uint64_t{hi} << 32) | lo;
  }
  return w;
}

constexpr const char* kNames[] = {"scalar", "sse2", "avx2", "avx512"};

}  // namespace

int cpu_level_named(const char* name) {
  if (!name) return -1;
  for (int i = 0; i < 4; ++i)
    if (std::strcmp(name, kNames[i]) == 0) return i;
  return -1;
}

const char* cpu_level_name(int level) { return level >= 0 && level < 4 ? kNames[level] : "?"; }

CpuInfo cpu_info_from(const CpuidWords& w, const char* limit) {
  int hw = kCpuScalar;
  if (w.l1_edx & bit(26)) {
    hw = kCpuSse2;
    if (all(w.l1_ecx, kL1Avx) && all(w.l7_ebx, kL7Avx2) && (w.x1_ecx & kX1Lzcnt) && (w.xcr0 & kXcrYmm) == kXcrYmm) {
      hw = kCpuAvx2;
      if (all(w.l7_ebx, kL7Avx512) && (w.xcr0 & kXcrZmm) == kXcrZmm) hw = kCpuAvx512;
    }
  }
  const int asked = cpu_level_named(limit);
  CpuInfo info{};
  info.hardware = hw;
  info.level = asked >= 0 && asked < hw ? asked : hw;
  info.ssse3 = info.level >= kCpuSse2 && (w.l1_ecx & kL1Ssse3);
  info.vbmi = info.level >= kCpuAvx512 && (w.l7_ecx & kL7Vbmi);
  info.vbmi2 = info.level >= kCpuAvx512 && (w.l7_ecx & kL7Vbmi2);
  return info;
}

const CpuInfo& cpu() {
  static const CpuInfo info = cpu_info_from(read_cpuid(), std::getenv("NUV_CPU"));
  return info;
}

}  // namespace nuv
