// Kernel choice and the scalar reference scans.
#include "string/scan.h"

#include "common/nuv_internal.h"

namespace nuv {

namespace {
constexpr std::uint64_t kMagic = 0x7FFEFFFEFFFEFFFFull;  // carry trick for 16-bit lanes
constexpr std::uint64_t kHigh = 0x8001000100010000ull;   // == ~kMagic

inline bool maybe_zero_unit(std::uint64_t w) { return (((w + kMagic) ^ ~w) & kHigh) != 0; }

}  // namespace

const ScanKernels kScanScalar = {strlen_ref, strnlen_ref, strchr_ref, strchrnul_ref, memchr_ref, memcmp_ref};

const ScanKernels* scan_kernels_for(int level) {
  static const ScanKernels* const by_level[] = {&kScanScalar, &kScanSse2, &kScanAvx2, &kScanAvx512};
  return by_level[level < 0 ? 0 : level > kCpuAvx512 ? kCpuAvx512 : level];
}

const ScanKernels* g_scan = &kScanSse2;

__attribute__((constructor)) static void choose_scan_kernels() { g_scan = scan_kernels_for(cpu().level); }

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
