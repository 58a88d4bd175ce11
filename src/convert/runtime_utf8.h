// The runtime's own small UTF-8 coders.  They work unit by unit (no surrogate
// pairing) and report through errno, not through the converters' hook.
#pragma once

#include <cstddef>

#include "nuvu16.h"

// Zero-terminated source.  A null dest counts the bytes needed (no terminator).
// Otherwise writes at most destSize bytes and returns the count written
// without the terminator; a unit that no longer fits ends the text with 0.
std::size_t U16s_To_Utf8s_U16(char* dest, const NUV_UTF16* src, std::size_t destSize);
// count units, no bound, no terminator; a null dest gives the all-ones value.
std::size_t U16n_To_Utf8_U16(char* dest, const NUV_UTF16* src, std::size_t count);
// srcLen == (size_t)-1 means zero-terminated (terminator counted and written).
// A null dest or destSize 0 counts; running out of room sets ERANGE, returns 0.
std::size_t U16n_To_Utf8n_U16(char* dest, std::size_t destSize, const NUV_UTF16* src, std::size_t srcLen);
