// Parse objects of one conversion directive.  FieldWidth and LengthModifier
// are shared with the scanf engine; the rest belong to the printf engine.
//
// Every parse operation takes the position just behind the '%' (or behind
// the previous element) and returns the number of units it consumed.  The
// ones that may read a '*' argument take a pointer to the caller's argument
// list and advance it.  A function that received its list as a `va_list`
// parameter must va_copy it into a local first: on x86-64 a va_list
// parameter has decayed to a pointer, so `&param` is not a `std::va_list*`.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "nuvu16.h"

// Historic source names and lines passed by the reports of the printf engine.
namespace nuv::fmt_src {
inline constexpr const char kOutCon[] = "i18n/nuvu16/u16_OutCon";
inline constexpr int kUnknownDirectiveLine = 116;
inline constexpr const char kOutCS[] = "i18n/nuvu16/u16_OutCS";
inline constexpr int kStringAllocLine = 303;
inline constexpr int kNilAllocLine = 324;
inline constexpr int kItoaAllocLine = 544;
inline constexpr int kFixedBufferAllocLine = 675;
inline constexpr int kOtherBufferAllocLine = 686;
inline constexpr int kFloatOverflowLine = 706;
inline constexpr int kWidenAllocLine = 719;
inline constexpr const char kEngineName[] = "vvfprintfU16";
}  // namespace nuv::fmt_src

// ---- flags ---------------------------------------------------------------

struct OutputFlags {
  int32_t leftJustified;   // '-'
  int32_t signConversion;  // '+'
  int32_t space;           // ' '
  int32_t alternativeForm; // '#'
  int32_t zero;            // '0'
};

void OutputFlagsCtor(OutputFlags* f);
void OutputFlagsXtor(OutputFlags* f);
// At most four flag units are consumed; see directive.cpp for the repeat rules.
int OutputFlags_parse(OutputFlags* f, const NUV_UTF16* pos);
void OutputFlags_switchOnLeftJustifiedFlag(OutputFlags* f);
void OutputFlags_switchOnSignConversionFlag(OutputFlags* f);
void OutputFlags_switchOnSpaceFlag(OutputFlags* f);
void OutputFlags_switchOnAlternativeFormFlag(OutputFlags* f);
void OutputFlags_switchOnZeroFlag(OutputFlags* f);
inline int OutputFlags_isLeftJustifiedFlag(const OutputFlags* f) { return f->leftJustified; }
inline int OutputFlags_isSignConversionFlag(const OutputFlags* f) { return f->signConversion; }
inline int OutputFlags_isSpaceFlag(const OutputFlags* f) { return f->space; }
inline int OutputFlags_isAlternativeFormFlag(const OutputFlags* f) { return f->alternativeForm; }
inline int OutputFlags_isZeroFlag(const OutputFlags* f) { return f->zero; }

// ---- field width (shared with scanf) -------------------------------------

struct FieldWidth {
  int32_t value;  // -1: no width given
};

void FieldWidthCtor(FieldWidth* w);
void FieldWidthXtor(FieldWidth* w);
// Digits (any number, accumulated without an overflow check) or '*', which
// takes the next int from *args as it is.  With a null args a '*' is not a
// width and nothing is consumed.
int FieldWidth_parse(FieldWidth* w, const NUV_UTF16* pos, std::va_list* args);
inline int FieldWidth_isDefined(const FieldWidth* w) { return w->value != -1; }
inline int32_t FieldWidth_getValue(const FieldWidth* w) { return w->value; }

// ---- precision -----------------------------------------------------------

struct OutputPrecision {
  int32_t value;  // -1: no precision given
};

void OutputPrecisionCtor(OutputPrecision* p);
void OutputPrecisionXtor(OutputPrecision* p);
// What follows the '.': '*', digits, or nothing (precision 0, nothing consumed).
int OutputPrecision_parse(OutputPrecision* p, const NUV_UTF16* pos, std::va_list* args);
inline int OutputPrecision_isDefined(const OutputPrecision* p) { return p->value != -1; }
inline int32_t OutputPrecision_getValue(const OutputPrecision* p) { return p->value; }

// ---- length modifier (shared with scanf) ---------------------------------

// One bit per modifier, so each test is a single compare.
enum : int32_t {
  kLengthNone = 0,
  kLengthHH = 2,
  kLengthH = 4,
  kLengthL = 8,
  kLengthLL = 16,
  kLengthJ = 32,
  kLengthZ = 64,
  kLengthT = 128,
  kLengthLongDouble = 256,  // 'L'
};

struct LengthModifier {
  int32_t code;  // one of the bits above, 0 when none was given
};

void LengthModifierCtor(LengthModifier* m);
void LengthModifierXtor(LengthModifier* m);
// hh h l ll j z t L; returns 0, 1 or 2.
int LengthModifier_parse(LengthModifier* m, const NUV_UTF16* pos);
inline int32_t LengthModifier_getValue(const LengthModifier* m) { return m->code; }
inline int LengthModifier_isLongValue(const LengthModifier* m) { return m->code == kLengthL; }
inline int LengthModifier_isLongLong(const LengthModifier* m) { return m->code == kLengthLL; }
inline int LengthModifier_isLongDoubleValue(const LengthModifier* m) { return m->code == kLengthLongDouble; }
// True for the units that can start a modifier.
inline bool LengthModifier_isStart(NUV_UTF16 u) {
  return u == 'h' || u == 'l' || u == 'j' || u == 'z' || u == 't' || u == 'L';
}

// ---- conversion symbol and converted text ----------------------------------

inline constexpr int kInlineTextUnits = 1025;

struct OutputConversionSpec {
  NUV_UTF16 symbol;    // 0 until set
  NUV_UTF16* text;     // converted text: inlineText or a malloc block
  NUV_UTF16 inlineText[kInlineTextUnits];
  int32_t length;      // converted length in units
  int32_t negative;    // 1 when a signed value was below zero (text holds the magnitude)
  int* writeCount;     // stays null: %n is not accepted
};

void OutputConversionSpecCtor(OutputConversionSpec* s);
void OutputConversionSpecXtor(OutputConversionSpec* s);
// Stores the unit only if it is one of "% A E F G X a c d e f g i o p s u x".
void OutputConversionSpec_setSymbol(OutputConversionSpec* s, NUV_UTF16 unit);
inline NUV_UTF16 OutputConversionSpec_getSymbol(const OutputConversionSpec* s) { return s->symbol; }
int OutputConversionSpec_isNumber(const OutputConversionSpec* s);

// ---- one whole directive ---------------------------------------------------

struct OutputConversion {
  OutputFlags flags;
  FieldWidth width;
  OutputPrecision precision;
  LengthModifier length;
  OutputConversionSpec spec;
  int32_t signChar;    // '-', '+' or ' '
  int32_t signLength;  // 0 or 1
  int32_t padding;     // below 1: none
};

void OutputConversionCtor(OutputConversion* c);
void OutputConversionXtor(OutputConversion* c);
// Parses what follows the '%'.  Returns the units consumed including the
// symbol, or -1 (after the unknown-format report) for a bad directive.
int OutputConversion_parse(OutputConversion* c, const NUV_UTF16* pos, std::va_list* args);
