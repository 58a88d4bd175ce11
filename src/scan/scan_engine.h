// The scanf engine: an input source with one unit of push-back, the parse
// object of one directive, and the driver over the format.  All of them are
// plain records on the caller's stack.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "format/directive.h"
#include "nuvu16.h"

namespace nuv::scan_src {
inline constexpr const char kInCon[] = "i18n/nuvu16/u16_InCon";
inline constexpr int kUnknownDirectiveLine = 104;
}  // namespace nuv::scan_src

// ---- input source ------------------------------------------------------------

namespace nuv {
// fgetcU16 for a caller that holds the stream lock for its whole call.
int fgetc_u16_held(FILE* stream);
}  // namespace nuv

inline constexpr int32_t kNoPushBack = -2;

struct InputStream {
  FILE* file;              // null for a string source
  const NUV_UTF16* text;   // current position in a string source
  int32_t pushBack;        // one unit, or kNoPushBack
  int32_t readCount;       // units consumed so far
  int32_t endOfInput;      // source exhausted or a read failed
};

void InputStreamCtor(InputStream* s, FILE* file, const NUV_UTF16* text);
void InputStreamXtor(InputStream* s);
// The next unit, also stored in *unit; -1 at the end (a string source then
// stores 0xFFFF).  Inline: it runs once per input unit.
inline int32_t InputStream_readSingleChar(InputStream* s, int32_t* unit) {
  if (s->endOfInput) return -1;
  if (s->file) {
    int32_t c = s->pushBack;
    if (c != kNoPushBack) {
      s->pushBack = kNoPushBack;
    } else {
      FILE* f = s->file;
      // ASCII straight from the buffer; the rest through the decoder.
      if (f->_IO_read_ptr < f->_IO_read_end && static_cast<unsigned char>(*f->_IO_read_ptr) < 0x80)
        c = static_cast<unsigned char>(*f->_IO_read_ptr++);
      else
        c = nuv::fgetc_u16_held(f);
      if (c < 0) {
        s->endOfInput = 1;
        *unit = c;
        return -1;
      }
    }
    ++s->readCount;
    *unit = c;
    return c;
  }
  NUV_UTF16 u;
  __builtin_memcpy(&u, s->text, sizeof u);  // callers' text may sit at an odd address
  if (u == 0) {
    s->endOfInput = 1;
    *unit = 0xFFFF;
    return -1;
  }
  ++s->text;
  ++s->readCount;
  *unit = u;
  return u;
}

// Gives *unit back; nothing once the end was seen.  ASCII goes back into the
// FILE itself, anything else is kept here.
inline void InputStream_unreadSingleChar(InputStream* s, const int32_t* unit) {
  if (s->endOfInput) return;
  if (s->file) {
    FILE* f = s->file;
    if (*unit < 0x80) {
      // The byte just read goes back the way ungetc takes it back.
      if (f->_IO_read_ptr > f->_IO_read_base && f->_IO_read_ptr[-1] == static_cast<char>(*unit)) {
        --f->_IO_read_ptr;
        f->_flags &= ~_IO_EOF_SEEN;
      } else {
        ungetc(*unit, f);
      }
    } else
      s->pushBack = *unit;
  } else {
    --s->text;
  }
  --s->readCount;
}

inline int32_t InputStream_successfullyRead(const InputStream* s) { return s->readCount; }
inline int InputStream_EOF(const InputStream* s) { return s->endOfInput; }
// Reads until a unit that is not white space; that unit stays read.
int32_t skipWhiteSpace(InputStream* s, int32_t* unit);

// ---- one directive -----------------------------------------------------------

struct InputConversionSpec {
  NUV_UTF16 symbol;  // 0 until set
};

struct InputConversion {
  int32_t suppress;  // '*': read but do not store
  FieldWidth width;
  LengthModifier length;
  InputConversionSpec spec;
};

inline void InputConversionCtor(InputConversion* c) {
  c->suppress = 0;
  FieldWidthCtor(&c->width);
  LengthModifierCtor(&c->length);
  c->spec.symbol = 0;
}
inline void InputConversionXtor(InputConversion* c) {
  FieldWidthXtor(&c->width);
  LengthModifierXtor(&c->length);
}
// pos is just behind the '%'.  Returns the units consumed up to and including
// the symbol, or -1 for an unknown directive (reported above trace level 3).
int InputConversion_parse(InputConversion* c, const NUV_UTF16* pos, std::va_list* args);

// Size class of the destination: 0 int, 1 and 3 64-bit (3: long double for
// floating symbols), 4 short, 8 char.
int getLengthType(const InputConversion* c);

// ---- driver --------------------------------------------------------------------

struct FormattedInput {
  InputStream stream;
  const NUV_UTF16* format;
  std::va_list args;
  int32_t strict;
};

// args is copied; FormattedInputXtor releases the copy.
void FormattedInputCtor(FormattedInput* in, FILE* file, const NUV_UTF16* text, const NUV_UTF16* format,
                        int32_t strict, std::va_list args);
void FormattedInputXtor(FormattedInput* in);
// Number of assignments, or -1 when the input ended before any.
int FormattedInput_input(FormattedInput* in);
