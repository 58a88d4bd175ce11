// Grammar of one printf directive.  It is narrower than C's on purpose: no
// %n, no positional arguments, no q/I64 modifiers, and every string or
// character argument is UTF-16.
#include "format/directive.h"

#include <cstdint>
#include <cstdlib>

#include "common/nuv_internal.h"

namespace {

inline bool is_digit(NUV_UTF16 u) { return u >= '0' && u <= '9'; }

// Digits accumulate in 32 bits and wrap silently, as they always have.
int parse_digits(const NUV_UTF16* pos, int32_t* out) {
  uint32_t v = 0;
  int n = 0;
  while (is_digit(pos[n])) v = v * 10u + static_cast<uint32_t>(pos[n++] - '0');
  *out = static_cast<int32_t>(v);
  return n;
}

// Symbols accepted at once, in place of a modifier (the 'L'..'z' range).
inline bool symbol_in_modifier_range(NUV_UTF16 u) {
  switch (u) {
    case 'X': case 'a': case 'c': case 'd': case 'e': case 'f': case 'g':
    case 'i': case 'o': case 'p': case 's': case 'u': case 'x':
      return true;
    default:
      return false;
  }
}

inline bool accepted_symbol(NUV_UTF16 u) {
  switch (u) {
    case '%': case 'A': case 'E': case 'F': case 'G':
      return true;
    default:
      return symbol_in_modifier_range(u);
  }
}

}  // namespace

// ---- flags -------------------------------------------------------------------

void OutputFlagsCtor(OutputFlags* f) { *f = OutputFlags{0, 0, 0, 0, 0}; }
void OutputFlagsXtor(OutputFlags*) {}
void OutputFlags_switchOnLeftJustifiedFlag(OutputFlags* f) { f->leftJustified = 1; }
void OutputFlags_switchOnSignConversionFlag(OutputFlags* f) { f->signConversion = 1; }
void OutputFlags_switchOnSpaceFlag(OutputFlags* f) { f->space = 1; }
void OutputFlags_switchOnAlternativeFormFlag(OutputFlags* f) { f->alternativeForm = 1; }
void OutputFlags_switchOnZeroFlag(OutputFlags* f) { f->zero = 1; }

// A repeated '-' is consumed and ignored; any other repeat ends the run and
// is left for the next element (which makes the directive fail).  A fifth
// flag unit is switched on but not consumed, so five flags always fail.
int OutputFlags_parse(OutputFlags* f, const NUV_UTF16* pos) {
  int n = 0;
  for (;;) {
    const NUV_UTF16 u = pos[n];
    int32_t* field;
    switch (u) {
      case '-': field = &f->leftJustified; break;
      case '+': field = &f->signConversion; break;
      case ' ': field = &f->space; break;
      case '#': field = &f->alternativeForm; break;
      case '0': field = &f->zero; break;
      default: return n;
    }
    if (*field && u != '-') return n;
    *field = 1;
    if (n == 4) return n;
    ++n;
  }
}

// ---- width, precision, modifier -------------------------------------------------

void FieldWidthCtor(FieldWidth* w) { w->value = -1; }
void FieldWidthXtor(FieldWidth*) {}

int FieldWidth_parse(FieldWidth* w, const NUV_UTF16* pos, std::va_list* args) {
  if (*pos == '*') {
    if (!args) return 0;
    w->value = va_arg(*args, int);  // negative stays negative: no left justification
    return 1;
  }
  int32_t v;
  const int n = parse_digits(pos, &v);
  if (n) w->value = v;
  return n;
}

void OutputPrecisionCtor(OutputPrecision* p) { p->value = -1; }
void OutputPrecisionXtor(OutputPrecision*) {}

int OutputPrecision_parse(OutputPrecision* p, const NUV_UTF16* pos, std::va_list* args) {
  if (*pos == '*' && args) {
    p->value = va_arg(*args, int);
    return 1;
  }
  int32_t v;
  const int n = parse_digits(pos, &v);
  p->value = n ? v : 0;  // a lone '.' means precision 0
  return n;
}

void LengthModifierCtor(LengthModifier* m) { m->code = kLengthNone; }
void LengthModifierXtor(LengthModifier*) {}

int LengthModifier_parse(LengthModifier* m, const NUV_UTF16* pos) {
  switch (pos[0]) {
    case 'h':
      if (pos[1] == 'h') { m->code = kLengthHH; return 2; }
      m->code = kLengthH;
      return 1;
    case 'l':
      if (pos[1] == 'l') { m->code = kLengthLL; return 2; }
      m->code = kLengthL;
      return 1;
    case 'j': m->code = kLengthJ; return 1;
    case 'z': m->code = kLengthZ; return 1;
    case 't': m->code = kLengthT; return 1;
    case 'L': m->code = kLengthLongDouble; return 1;
    default: return 0;
  }
}

// ---- symbol ------------------------------------------------------------------------

void OutputConversionSpecCtor(OutputConversionSpec* s) {
  s->symbol = 0;
  s->text = s->inlineText;
  s->inlineText[0] = 0;  // the rest is written by the producers; no need to clear 2 KB per directive
  s->length = 0;
  s->negative = 0;
  s->writeCount = nullptr;
}

void OutputConversionSpecXtor(OutputConversionSpec* s) {
  if (s->text && s->text != s->inlineText) std::free(s->text);
  s->text = s->inlineText;
}

void OutputConversionSpec_setSymbol(OutputConversionSpec* s, NUV_UTF16 unit) {
  if (accepted_symbol(unit)) s->symbol = unit;
}

int OutputConversionSpec_isNumber(const OutputConversionSpec* s) {
  switch (s->symbol) {
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X':
    case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A':
      return 1;
    default:
      return 0;
  }
}

// ---- whole directive ----------------------------------------------------------------

void OutputConversionCtor(OutputConversion* c) {
  OutputFlagsCtor(&c->flags);
  FieldWidthCtor(&c->width);
  OutputPrecisionCtor(&c->precision);
  LengthModifierCtor(&c->length);
  OutputConversionSpecCtor(&c->spec);
  c->signChar = 0;
  c->signLength = 0;
  c->padding = 0;
}

void OutputConversionXtor(OutputConversion* c) {
  OutputFlagsXtor(&c->flags);
  FieldWidthXtor(&c->width);
  OutputPrecisionXtor(&c->precision);
  LengthModifierXtor(&c->length);
  OutputConversionSpecXtor(&c->spec);
  c->signChar = 0;
  c->signLength = 0;
  c->padding = 0;
}

int OutputConversion_parse(OutputConversion* c, const NUV_UTF16* pos, std::va_list* args) {
  const NUV_UTF16* p = pos;
  NUV_UTF16 u = *p;
  if (u == ' ' || u == '#' || u == '+' || u == '-' || u == '0') p += OutputFlags_parse(&c->flags, p);
  u = *p;
  if (u == '*' || (u >= '1' && u <= '9')) p += FieldWidth_parse(&c->width, p, args);
  if (*p == '.') {
    ++p;
    p += OutputPrecision_parse(&c->precision, p, args);
  }
  u = *p;
  if (u >= 'L' && u <= 'z') {
    if (LengthModifier_isStart(u)) {
      p += LengthModifier_parse(&c->length, p);
    } else if (symbol_in_modifier_range(u)) {
      OutputConversionSpec_setSymbol(&c->spec, u);
      return static_cast<int>(p - pos) + 1;
    } else {
      u16_unknownFormatStr(pos, u, nuv::fmt_src::kOutCon, nuv::fmt_src::kUnknownDirectiveLine);
      return -1;
    }
  }
  u = *p;
  if (accepted_symbol(u)) {
    OutputConversionSpec_setSymbol(&c->spec, u);
    return static_cast<int>(p - pos) + 1;
  }
  u16_unknownFormatStr(pos, u, nuv::fmt_src::kOutCon, nuv::fmt_src::kUnknownDirectiveLine);
  return -1;
}
