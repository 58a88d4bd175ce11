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

// The wrappers' narrowing step: encodes as U16s_To_Utf8s_U16 (or, with
// pairs, a valid surrogate pair as one four-byte sequence; lone surrogates
// stay three bytes), but always leaves a terminated text inside dest: a
// character that does not fit before the terminator ends the text, and *cut
// tells that part of the source was left out.  destSize must be at least 1.
// Returns the bytes written without the terminator.
std::size_t U16s_To_Utf8s_Narrow(char* dest, const NUV_UTF16* src, std::size_t destSize, bool pairs, bool* cut);

// Widens the leading bytes below 0x80 of src[0..len) (no terminator needed)
// into dest; returns how many were widened.
std::size_t Ascii_To_U16n(NUV_UTF16* dest, const char* src, std::size_t len);

// Counted UTF-8 source; srcLen == (size_t)-1 means zero-terminated (the
// terminator is converted and counted).  A null dest or destLen 0 counts
// only.  Without errCount a bad sequence writes a 0 unit, sets EILSEQ and
// gives 0; with it, each bad lead byte becomes substChar's low 16 bits and is
// counted.  Running out of room sets ERANGE and gives 0.
std::size_t Utf8n_To_U16(NUV_UTF16* dest, std::size_t destLen, const char* src, std::size_t srcLen,
                         std::size_t* errCount, unsigned int substChar);
// The same, but a rejected sequence is skipped as a whole (the lead and the
// follow-up bytes that looked right) and counted once.
std::size_t Utf8n_To_U16_Whole(NUV_UTF16* dest, std::size_t destLen, const char* src, std::size_t srcLen,
                               std::size_t* errCount, unsigned int substChar);
// Zero-terminated UTF-8 source.  A null dest counts only; returns the units
// written without the terminator, destLen when the room ran out (no
// terminator then), or (size_t)-1 with EILSEQ on bad input.
std::size_t Utf8s_To_U16(NUV_UTF16* dest, const char* src, std::size_t destLen);
