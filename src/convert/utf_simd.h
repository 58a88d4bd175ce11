// Vector paths of the checking UTF-8 <-> UTF-16 converters.  A kernel
// advances over a prefix of the source that it has proved valid (for the
// checking modes, without the surrogate test) and converted; it stops at
// anything else, which the scalar code then converts or reports.  It never
// reads at or past srcEnd and never writes at or past destEnd.  Kernels take
// texts of any length (short ones too) and check the room they need.
#pragma once

#include "convert/converters.h"

namespace nuv::rscp {

// Source bytes the scalar code converts after a kernel stopped before the
// kernel is called again (units: half of it).
inline constexpr std::ptrdiff_t kKernelRetry = 16;

struct UtfKernels {
  const char* name;
  void (*utf8_to_utf16)(const rscpUtf8** src, const rscpUtf8* srcEnd, NUV_UTF16** dest, NUV_UTF16* destEnd);
  void (*utf16_to_utf8)(const NUV_UTF16** src, const NUV_UTF16* srcEnd, rscpUtf8** dest, rscpUtf8* destEnd);
};

extern const UtfKernels kUtfSse2;  // ASCII runs only
extern const UtfKernels kUtfAvx2;    // ASCII runs and mixed runs through tables
extern const UtfKernels kUtfAvx512;  // with VBMI and VBMI2: mixed runs through compress
bool cpu_has_avx512_vbmi2();
// The AVX2 encoder with the AVX-512 kernel's steps over surrogate pairs (for
// long texts on CPUs with AVX-512, where its BMP steps are the quicker ones),
// and those steps.
void utf16_to_utf8_avx2_pairs512(const NUV_UTF16** src, const NUV_UTF16* srcEnd, rscpUtf8** dest, rscpUtf8* destEnd);
unsigned encode_pairs16_avx512(const NUV_UTF16*& s, const NUV_UTF16* se, rscpUtf8*& d, rscpUtf8* de);
// The AVX2 encoder for texts of at most 32 units (from registers).
void utf16_to_utf8_avx2_tiny(const NUV_UTF16** src, const NUV_UTF16* srcEnd, rscpUtf8** dest, rscpUtf8* destEnd);

// The kernel in use (the best the CPU runs), or null for scalar only.
const UtfKernels* utf_kernels();
// The best kernel this CPU runs.
const UtfKernels* best_utf_kernels();
// Tests and fuzzing: choose a kernel (null: scalar only).
void set_utf_kernels(const UtfKernels* k);

}  // namespace nuv::rscp
