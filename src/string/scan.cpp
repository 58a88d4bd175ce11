// Kernel choice and the scalar reference scans.
#include "string/scan.h"

#include "common/nuv_internal.h"

namespace nuv {

namespace {
constexpr std::uint64_t kMagic = 0x7FFEFFFEFFFEFFFFull;  // carry trick for 16-bit lanes
constexpr std::uint64_t kHigh = 0x8001000100010000ull;   // == ~kMagic

inline bool maybe_zero_unit(std::uint64_t w) { return (((w + kMagic) ^ ~w) & kHigh) != 0; }

}  // namespace

const ScanKernels* g_scan = &kScanSse2;

__attribute__((constructor)) static void choose_scan_kernels() {
  if (cpu_has_avx512bw())
    g_scan = &kScanAvx512;
  else if (cpu_has_avx2())
    g_scan = &kScanAvx2;
}

bool cpu_has_avx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2");
}

bool cpu_has_avx512bw() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
}

// Singles until the address is a multiple of 8, then whole aligned words; a
// word never crosses an 8-byte boundary, so reading past the terminator
// inside it cannot fault.  An odd start never aligns and stays single.
NUV_NO_ASAN std::size_t strlen_ref(const char16_t* s) {
  const char16_t* p = s;
  for (; reinterpret_cast<std::uintptr_t>(p) & 7; ++p)
    if (unit_at(p) == 0) return static_cast<std::size_t>(p - s);
  for (;; p += 4) {
    std::uint64_t w;
    std::memcpy(&w, p, 8);
    if (maybe_zero_unit(w))
      for (int i = 0; i < 4; ++i)
        if (p[i] == 0) return static_cast<std::size_t>(p + i - s);
  }
}

NUV_NO_ASAN std::size_t strnlen_ref(const char16_t* s, std::size_t max) {
  const char16_t* p = s;
  std::size_t left = max;
  for (; left && (reinterpret_cast<std::uintptr_t>(p) & 7); ++p, --left)
    if (unit_at(p) == 0) return static_cast<std::size_t>(p - s);
  for (; left >= 4; p += 4, left -= 4) {
    std::uint64_t w;
    std::memcpy(&w, p, 8);
    if (maybe_zero_unit(w))
      for (int i = 0; i < 4; ++i)
        if (p[i] == 0) return static_cast<std::size_t>(p + i - s);
  }
  for (; left; ++p, --left)
    if (unit_at(p) == 0) return static_cast<std::size_t>(p - s);
  return max;
}

}  // namespace nuv
