// The wrappers' UTF-8 converters.  Each UTF-16 unit is encoded by itself (a
// surrogate pair becomes two three-byte sequences); decoding joins four-byte
// sequences into pairs.  Counts are size_t; (size_t)-1 is the error value.
// Internal: only U2sToUtf8s is exported (declared in nuvu16.h).
#pragma once

#include <cstddef>

#include "nuvu16.h"

extern "C" {

// Terminated UTF-8 to terminated UTF-16.  Returns the units before the
// terminator, dstUnits when the room ran out first, (size_t)-1 with EILSEQ on
// a bad sequence.  A null dst counts only.
std::size_t Utf8sToU2s(NUV_UTF16* dst, const char* src, std::size_t dstUnits);
// Counted: srcBytes bytes, or up to and including a terminator when all ones.
// With errCount each bad or cut sequence becomes substitute and is counted;
// without it the text ends with a 0 unit, EILSEQ, result 0.  Output full
// before the input ends: ERANGE, 0.
std::size_t Utf8snToU2n(NUV_UTF16* dst, std::size_t dstUnits, const char* src, std::size_t srcBytes,
                        std::size_t* errCount, NUV_UTF16 substitute);
// Exactly n units, no terminator; dst needs 3*n bytes.  Null dst: (size_t)-1.
std::size_t U2nToUtf8(char* dst, const NUV_UTF16* src, std::size_t n);
// Counted U2sToUtf8s; null dst or dstBytes 0 counts.  srcUnits all ones:
// up to the terminator, which is written and counted.
std::size_t U2snToUtf8n(char* dst, std::size_t dstBytes, const NUV_UTF16* src, std::size_t srcUnits);

// U2sToUtf8s, and a result equal to limit is reported as too short with
// ENAMETOOLONG.
std::size_t nlsui_U2sToUtf8s_checked(char* dst, const NUV_UTF16* src, std::size_t limit, const char* sourceFile,
                                     int line, const char* functionName, const char* bufferName,
                                     const char* limitName);
// Utf8sToU2s; bad input reported through u16_utf8conv_error (result
// (size_t)-1), a result equal to limit as too short with ENAMETOOLONG.
std::size_t nlsui_Utf8sToU2s_checked(NUV_UTF16* dst, const char* src, std::size_t limit, const char* sourceFile,
                                     int line, const char* functionName, const char* bufferName,
                                     const char* limitName);
}
