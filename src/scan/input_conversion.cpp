// One scanf directive: '*', width, length modifier, symbol.
#include "scan/scan_engine.h"

namespace {

bool accepted_symbol(NUV_UTF16 u) {
  switch (u) {
    case 'A': case 'E': case 'F': case 'G': case 'X': case '[': case 'a': case 'c': case 'd': case 'e':
    case 'f': case 'g': case 'i': case 'n': case 'o': case 'p': case 's': case 'u': case 'x':
      return true;
    default:
      return false;
  }
}

}  // namespace

int InputConversion_parse(InputConversion* c, const NUV_UTF16* pos, std::va_list* args) {
  const NUV_UTF16* p = pos;
  if (*p == '*') {
    c->suppress = 1;
    ++p;
  }
  // A second '*' takes the width from the arguments ("%**d"); '0' starts a width here.
  if (*p == '*' || (*p >= '0' && *p <= '9')) p += FieldWidth_parse(&c->width, p, args);
  if (LengthModifier_isStart(*p)) p += LengthModifier_parse(&c->length, p);
  if (accepted_symbol(*p)) {
    c->spec.symbol = *p;
    return static_cast<int>(p - pos) + 1;
  }
  u16_unknownFormatStr(pos, *p, nuv::scan_src::kInCon, nuv::scan_src::kUnknownDirectiveLine);
  return -1;
}

int getLengthType(const InputConversion* c) {
  if (c->spec.symbol == 'p') return 1;
  switch (LengthModifier_getValue(&c->length)) {
    case kLengthL: case kLengthZ: return 1;
    case kLengthLL: case kLengthLongDouble: return 3;
    case kLengthH: return 4;
    case kLengthHH: return 8;
    default: return 0;  // none, j, t
  }
}
