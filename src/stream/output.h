// Writing UTF-16 units as UTF-8 into a FILE buffer: the block kernel and the
// plain references the tests and the fuzzer hold it against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "nuvu16.h"

namespace nuv {

// A unit in D800..DFFF, tested the way the writers always have.
inline bool is_surrogate_unit(unsigned u) { return ((u + 0x2800u) & 0xFFFFu) <= 0x7FFu; }

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
std::size_t encode_units_fit_ref(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                 std::size_t* bytes, bool* hit_surrogate);

// fwrite_unlockedU16 done byte by byte through the putc_unlocked path; the
// same results, counts and partial bytes on failure.
std::size_t fwrite_units_ref(const NUV_UTF16* units, std::size_t size, std::size_t count, FILE* stream,
                             std::uint64_t* bytes_written, std::int32_t error_result);

}  // namespace nuv
