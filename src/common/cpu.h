// The CPU level the library runs its kernels at, decided once.
//
// Levels: scalar (plain code only), sse2 (every x86-64), avx2 (AVX2 with
// BMI1, BMI2, LZCNT and POPCNT: exactly what the *_avx2 objects are built
// with), avx512 (F, BW and VL on top, with the OS saving the wide state).
// The environment variable NUV_CPU (scalar, sse2, avx2, avx512) can lower
// the level, never raise it, so tests and benchmarks can run every kernel
// the machine has.
#pragma once

#include <cstdint>

namespace nuv {

enum CpuLevel : int { kCpuScalar = 0, kCpuSse2 = 1, kCpuAvx2 = 2, kCpuAvx512 = 3 };

struct CpuInfo {
  int level;       // the level in use (after NUV_CPU)
  int hardware;    // what the CPU and OS offer
  bool ssse3;      // at sse2 and above
  bool vbmi;       // AVX-512 VBMI, at avx512 only
  bool vbmi2;      // AVX-512 VBMI2, at avx512 only
};

// The raw words the decision is made from.
struct CpuidWords {
  std::uint32_t l1_ecx, l1_edx;  // leaf 1
  std::uint32_t l7_ebx, l7_ecx;  // leaf 7, subleaf 0
  std::uint32_t x1_ecx;          // leaf 0x80000001
  std::uint64_t xcr0;            // 0 when the OS does not offer XGETBV
};

// Pure: the level and subsets for these words and this NUV_CPU value (null
// or unknown: no limit).
CpuInfo cpu_info_from(const CpuidWords& w, const char* limit);
// -1 for a text that names no level.
int cpu_level_named(const char* name);
const char* cpu_level_name(int level);

// This machine, read on first use (the library asks before main).
const CpuInfo& cpu();

inline bool cpu_has_sse2() { return cpu().level >= kCpuSse2; }
inline bool cpu_has_ssse3() { return cpu().ssse3; }
inline bool cpu_has_avx2() { return cpu().level >= kCpuAvx2; }
inline bool cpu_has_avx512bw() { return cpu().level >= kCpuAvx512; }
inline bool cpu_has_avx512_vbmi2() { return cpu().vbmi && cpu().vbmi2; }

}  // namespace nuv
