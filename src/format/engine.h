// The printf engine: value formatting of one parsed directive, the output
// sink (a FILE or a caller's UTF-16 buffer) and the format driver.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "format/directive.h"
#include "nuvu16.h"

// ---- value formatting --------------------------------------------------------

// Fetches the argument of the directive and converts it to bare text
// (magnitude only, no sign, no prefix).  Returns 0, or -1 when memory for the
// text could not be had (reported; the directive then has no text).
int OutputConversionSpec_toString(OutputConversionSpec* spec, const LengthModifier* length, int alternativeForm,
                                  int precision, std::va_list* args);
int OutputConversionSpec_itoa__(OutputConversionSpec* spec, uint64_t magnitude, int base, int upperCase,
                                int precision, int alternativeForm);
int OutputConversionSpec_dtoa__(OutputConversionSpec* spec, int isLongDouble, int alternativeForm, int precision,
                                long double value);

namespace nuv {
inline constexpr char kLowerDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
inline constexpr char kUpperDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// Digits of v in base 2..36 written backwards ending at `end` (decimal by
// pairs from one table); returns the first digit.  At most 64 units.
// Pairs "00".."99" for the decimal path.
struct DigitPairs {
  char16_t d[200];
  constexpr DigitPairs() : d() {
    for (int i = 0; i < 100; ++i) {
      d[2 * i] = static_cast<char16_t>('0' + i / 10);
      d[2 * i + 1] = static_cast<char16_t>('0' + i % 10);
    }
  }
};
inline constexpr DigitPairs kPairs;

inline NUV_UTF16* digits_backwards(uint64_t v, int base, bool upper, NUV_UTF16* end) {
  NUV_UTF16* p = end;
  switch (base) {
    case 10:
      while (v >= 100) {
        const unsigned r = static_cast<unsigned>(v % 100);
        v /= 100;
        p -= 2;
        p[0] = kPairs.d[2 * r];
        p[1] = kPairs.d[2 * r + 1];
      }
      if (v >= 10) {
        p -= 2;
        p[0] = kPairs.d[2 * v];
        p[1] = kPairs.d[2 * v + 1];
      } else {
        *--p = static_cast<NUV_UTF16>('0' + v);
      }
      return p;
    case 16: {
      const char* digits = upper ? kUpperDigits : kLowerDigits;
      do {
        *--p = static_cast<NUV_UTF16>(digits[v & 15]);
        v >>= 4;
      } while (v);
      return p;
    }
    case 8:
      do {
        *--p = static_cast<NUV_UTF16>('0' + (v & 7));
        v >>= 3;
      } while (v);
      return p;
    default: {
      const char* digits = upper ? kUpperDigits : kLowerDigits;
      do {
        *--p = static_cast<NUV_UTF16>(digits[v % static_cast<unsigned>(base)]);
        v /= static_cast<unsigned>(base);
      } while (v);
      return p;
    }
  }
}
// snprintf(out, size, "%[#].*<sym>", precision, value) for a finite double
// and f F e E g G with '.' as the radix, from the exact decimal expansion:
// the length of the whole text (written only as far as size allows, NUL
// included when it fits), or -1 for another symbol or a non-finite value.
long format_double_exact(char* out, std::size_t size, char sym, long precision, bool alt, double value);
// The same without '#', and -1 also when the text does not fit.
int format_double_fast(char* out, std::size_t size, char sym, int precision, double value);
}  // namespace nuv

// Sign character and padding count of a converted directive.
void OutputConversion_toString(OutputConversion* c);

// ---- output sink ---------------------------------------------------------------

inline constexpr uint64_t kUnlimited = ~uint64_t{0};

// A file stream gathers the pieces of a call here and hands them to the
// FILE buffer in one write.  Pieces holding a surrogate bypass it, since the
// block writer turns the rest of one write into '#' after a surrogate.
inline constexpr uint32_t kPendingUnits = 256;

struct OutputStream {
  FILE* file;         // non-null: a file stream
  NUV_UTF16* buffer;  // the caller's buffer; null with an unlimited limit only counts
  uint64_t written;   // units so far
  uint64_t limit;     // capacity including the NUL; kUnlimited: no bound
  uint32_t pending;   // file: gathered units not yet written
  uint32_t loud;      // file: a gathered piece whose failure is the call's failure
  NUV_UTF16 pend[kPendingUnits];
};

void OutputStreamCtor(OutputStream* s, FILE* file, NUV_UTF16* buffer, uint64_t limit);
void OutputStreamXtor(OutputStream* s);
inline int OutputStream_isFileOutputStream(const OutputStream* s) { return s->file != nullptr; }
inline uint64_t OutputStream_getWrittenChars(const OutputStream* s) { return s->written; }

// File halves of the writes (stream/output through the UTF-16 writers).
// Writes the gathered units: 0, or -1 when a piece that reports its own
// failure could not be written.
int OutputStream_flushPending(OutputStream* s);
int OutputStream_fileWriteSingleChar(OutputStream* s, NUV_UTF16 unit);
int OutputStream_fileWriteMultipleChar(OutputStream* s, NUV_UTF16 unit, int count);
int OutputStream_fileWriteString(OutputStream* s, const NUV_UTF16* text, long length);

// Each returns the units written, or -1.
inline int OutputStream_writeSingleChar(OutputStream* s, NUV_UTF16 unit, int strict) {
  if (s->file) return OutputStream_fileWriteSingleChar(s, unit);
  if (s->written < s->limit) {
    if (s->buffer) s->buffer[s->written] = unit;
    ++s->written;
    return 1;
  }
  if (strict && s->buffer) s->buffer[0] = 0;
  return -1;
}

inline int OutputStream_writeMultipleChar(OutputStream* s, NUV_UTF16 unit, int count, int strict) {
  if (count < 1) return 0;
  if (s->file) return OutputStream_fileWriteMultipleChar(s, unit, count);
  uint64_t n = static_cast<uint64_t>(count);
  if (s->limit != kUnlimited && n > s->limit - s->written) {
    n = s->limit - s->written;
    if (strict && s->buffer) s->buffer[0] = 0;
  }
  if (s->buffer)
    for (uint64_t i = 0; i < n; ++i) s->buffer[s->written + i] = unit;
  s->written += n;
  return static_cast<int>(n);
}

inline int OutputStream_writeString(OutputStream* s, const NUV_UTF16* text, long length, int strict) {
  if (s->file) return OutputStream_fileWriteString(s, text, length);
  if (length == 1 && text[0] == 0) {
    // Stored but not counted, so it is overwritten by what follows.
    if (s->buffer && s->written < s->limit) s->buffer[s->written] = 0;
    return 0;
  }
  if (length <= 0) return 0;
  uint64_t n = static_cast<uint64_t>(length);
  if (s->limit != kUnlimited) {
    const uint64_t room = s->limit - s->written;
    if (room == 0) return strict ? -1 : 0;
    if (n > room) {
      if (strict) {
        if (s->buffer) s->buffer[0] = 0;
        return -1;
      }
      n = room;
    }
  }
  if (s->buffer) {
    NUV_UTF16* d = s->buffer + s->written;
    if (n <= 16) {
      for (uint64_t i = 0; i < n; ++i) d[i] = text[i];  // short runs: no call
    } else {
      std::memcpy(d, text, n * sizeof(NUV_UTF16));
    }
  }
  s->written += n;
  return static_cast<int>(n);
}

// Terminates a buffer: returns `error` if it is negative and the buffer was
// not filled, else the written count (equal to the limit when it was cut).
int OutputStream_writeNullTermination(OutputStream* s, int error, int strict);

// Writes one converted directive; the units written or the first negative
// result of a write.
int OutputConversion_output(OutputConversion* c, OutputStream* stream, int strict);

// ---- driver ------------------------------------------------------------------------

struct FormattedOutput {
  OutputStream stream;
  const NUV_UTF16* format;
  std::va_list args;  // a copy: the caller's list is not advanced
  int32_t strict;     // every entry of this library passes 0
};

// `args` is copied; the caller keeps its own list.
void FormattedOutputCtor(FormattedOutput* f, FILE* file, NUV_UTF16* buffer, uint64_t limit,
                         const NUV_UTF16* format, int strict, std::va_list args);
void FormattedOutputXtor(FormattedOutput* f);
int FormattedOutput_parse(FormattedOutput* f);

namespace nuv {
// The next '%' or the terminating NUL of a format, and its plain reference.
const NUV_UTF16* find_directive(const NUV_UTF16* p);
const NUV_UTF16* find_directive_ref(const NUV_UTF16* p);
}  // namespace nuv
