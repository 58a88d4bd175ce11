// Writing UTF-16 units as UTF-8 into a FILE buffer: the block kernel and the
// plain references the tests and the fuzzer hold it against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nuvu16.h"

namespace nuv {

// A unit in D800..DFFF, tested the way the writers always have.
inline bool is_surrogate_unit(unsigned u) { return ((u + 0x2800u) & 0xFFFFu) <= 0x7FFu; }

// One unit's UTF-8 bytes in the low bytes of a word, chosen without
// branches so that mixed text does not mispredict.
inline std::uint32_t packed_utf8(unsigned u, unsigned* len) {
  const unsigned two = u >= 0x80, three = u >= 0x800;
  *len = 1 + two + three;
  const std::uint32_t b2 = (0xC0 | (u >> 6)) | ((0x80 | (u & 0x3F)) << 8);
  const std::uint32_t b3 = (0xE0 | (u >> 12)) | ((0x80 | ((u >> 6) & 0x3F)) << 8) | ((0x80 | (u & 0x3F)) << 16);
  return three ? b3 : two ? b2 : u;
}

// Encodes units of src[0..n) into dst while each whole unit fits in cap
// bytes, stopping before the first surrogate (*hit_surrogate set).  Returns
// the units consumed; *bytes gets the bytes written.  src may be unaligned.
// Bytes of dst past *bytes (but below cap) may be overwritten.
std::size_t encode_units_fit(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap, std::size_t* bytes,
                             bool* hit_surrogate);
// The kernels behind it: SSE2 everywhere, AVX2 only after the CPU check.
std::size_t encode_units_fit_sse2(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                  std::size_t* bytes, bool* hit_surrogate);
std::size_t encode_units_fit_avx2(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                  std::size_t* bytes, bool* hit_surrogate);
// Chosen over the others when the CPU has AVX-512 with VBMI2.
std::size_t encode_units_fit_avx512(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                    std::size_t* bytes, bool* hit_surrogate);
std::size_t encode_units_fit_ref(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                 std::size_t* bytes, bool* hit_surrogate);

// The units of the terminated text src, encoded as encode_units_fit does,
// up to the terminator.  Returns the units
// consumed: it stops at the terminator, before a surrogate, before a unit
// that does not fit, and possibly before a unit that crosses a page end.
std::size_t encode_text_fit_avx512(const NUV_UTF16* src, char* dst, std::size_t cap, std::size_t* bytes);
// The same with AVX2; it also stops before the last 16 units of a page.
std::size_t encode_text_fit_avx2(const NUV_UTF16* src, char* dst, std::size_t cap, std::size_t* bytes);
using EncodeText = std::size_t (*)(const NUV_UTF16*, char*, std::size_t, std::size_t*);
// The one for a CPU level, or null (the counted kernel after strlen).
EncodeText encode_text_for(int level);
using EncodeFit = std::size_t (*)(const NUV_UTF16*, std::size_t, char*, std::size_t, std::size_t*, bool*);
// The kernel for a CPU level (cpu.h), at most the machine's own.
EncodeFit encode_fit_for(int level);
// Whether the AVX-512 kernels are in use (chosen when the library is loaded).
bool encode_uses_avx512();

// fwrite_unlockedU16 done byte by byte through the putc_unlocked path; the
// same results, counts and partial bytes on failure.
std::size_t fwrite_units_ref(const NUV_UTF16* units, std::size_t size, std::size_t count, FILE* stream,
                             std::uint64_t* bytes_written, std::int32_t error_result);

}  // namespace nuv
