// One directive's value: fetched, converted to bare UTF-16 text, then written
// with sign, prefix and padding.  Integers are converted here; a double's
// %e %f %g text comes from float_text.cpp, the rest of the floating forms
// from the C library's narrow printf, and is widened.
#include <langinfo.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "format/engine.h"

namespace src = nuv::fmt_src;

namespace {

constexpr std::size_t kInlineBytes = sizeof(NUV_UTF16) * kInlineTextUnits;  // 2,050


// Room for `units` units (terminator included): inline when it fits, else
// malloc.  Null after a failed allocation, which has been reported.
NUV_UTF16* text_room(OutputConversionSpec* spec, std::size_t units, int line) {
  if (units * sizeof(NUV_UTF16) <= kInlineBytes) return spec->text = spec->inlineText;
  auto* p = static_cast<NUV_UTF16*>(std::malloc(units * sizeof(NUV_UTF16)));
  if (!p) {
    u16_malloc_error(src::kEngineName, src::kOutCS, line);
    spec->text = spec->inlineText;
    spec->inlineText[0] = 0;
    spec->length = 0;
    return nullptr;
  }
  return spec->text = p;
}

void set_ascii(OutputConversionSpec* spec, const char* text) {
  std::size_t n = 0;
  for (; text[n]; ++n) spec->inlineText[n] = static_cast<NUV_UTF16>(text[n]);
  spec->inlineText[n] = 0;
  spec->text = spec->inlineText;
  spec->length = static_cast<int32_t>(n);
}

// The stack buffer may hold the narrow floating text only when these hold;
// the limits keep the largest output of each precision band below 336 bytes.
constexpr std::size_t kNarrowStack = 336;

bool fixed_fits_stack(int precision, long double value) {
  if (precision <= 16) return value <= 1e305L;
  if (precision <= 40) return value < 1e280L;
  if (precision <= 291) return value < 1e40L;
  return false;
}

}  // namespace

namespace nuv {

namespace {

// %.Nf for N <= 9 by exact integer arithmetic: value = m * 2^e, so
// value * 10^N = m * 10^N * 2^e, rounded to an integer half to even, is the
// digit string the C library prints.  -1 when the digits need more than 64 bits.
int fixed_small(char* out, std::size_t size, int precision, double value) {
  static constexpr uint64_t kPow10[10] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000,
                                          1000000000};
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  if (bits >> 63) return -1;  // -0.0 keeps its sign in the C library's text
  const int biased = static_cast<int>((bits >> 52) & 0x7FF);
  uint64_t m = bits & ((uint64_t{1} << 52) - 1);
  int e;
  if (biased == 0) {
    e = -1074;
  } else {
    m |= uint64_t{1} << 52;
    e = biased - 1075;
  }
  using u128 = unsigned __int128;
  u128 x = static_cast<u128>(m) * kPow10[precision];  // below 2^83
  u128 q;
  if (e >= 0) {
    if (e > 10) return -1;
    q = x << e;
  } else if (-e > 90) {
    q = 0;  // far below one half of the last digit
  } else {
    const int k = -e;
    q = x >> k;
    const u128 r = x - (q << k);
    const u128 half = static_cast<u128>(1) << (k - 1);
    if (r > half || (r == half && (q & 1))) ++q;
  }
  if (q >> 64) return -1;
  char digits[24];
  int n = 0;
  uint64_t v = static_cast<uint64_t>(q);
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v);
  while (n < precision + 1) digits[n++] = '0';
  const std::size_t len = static_cast<std::size_t>(n) + (precision ? 1 : 0);
  if (len >= size) return -1;
  std::size_t o = 0;
  for (int i = n - 1; i >= 0; --i) {
    out[o++] = digits[i];
    if (i == precision && precision) out[o++] = '.';
  }
  return static_cast<int>(o);
}

}  // namespace

int format_double_fast(char* out, std::size_t size, char sym, int precision, double value) {
  if (!std::isfinite(value)) return -1;
  const char* radix = nl_langinfo(RADIXCHAR);
  if (radix[0] != '.' || radix[1] != 0) return -1;
  if ((sym == 'f' || sym == 'F') && precision <= 9) {
    const int n = fixed_small(out, size, precision, value);
    if (n >= 0) return n;
  }
  const long n = format_double_exact(out, size, sym, precision, false, value);
  return n >= 0 && static_cast<std::size_t>(n) < size ? static_cast<int>(n) : -1;
}

}  // namespace nuv

int OutputConversionSpec_itoa__(OutputConversionSpec* spec, uint64_t magnitude, int base, int upperCase,
                                int precision, int alternativeForm) {
  if (magnitude == 0 && precision == 0) {
    if (spec->symbol == 'o' && alternativeForm) set_ascii(spec, "0");
    else set_ascii(spec, "");
    return 0;
  }
  NUV_UTF16 tmp[66];
  NUV_UTF16* end = tmp + 66;
  NUV_UTF16* first = nuv::digits_backwards(magnitude, base, upperCase != 0, end);
  const std::size_t digits = static_cast<std::size_t>(end - first);
  std::size_t zeros = 0;
  if (spec->symbol != 'o') {
    if (precision > 0 && digits < static_cast<std::size_t>(precision)) zeros = static_cast<std::size_t>(precision) - digits;
  } else if (alternativeForm) {
    // The '#' prefix supplies one of the zeros; without '#' the precision is ignored.
    const long z = static_cast<long>(precision) - static_cast<long>(digits) - 1;
    if (z >= 1) zeros = static_cast<std::size_t>(z);
  }
  NUV_UTF16* out = text_room(spec, zeros + digits + 1, src::kItoaAllocLine);
  if (!out) return -1;
  for (std::size_t i = 0; i < zeros; ++i) out[i] = '0';
  std::memcpy(out + zeros, first, digits * sizeof(NUV_UTF16));
  out[zeros + digits] = 0;
  spec->length = static_cast<int32_t>(zeros + digits);
  return 0;
}

int OutputConversionSpec_dtoa__(OutputConversionSpec* spec, int isLongDouble, int alternativeForm, int precision,
                                long double value) {
  char format[8];
  int f = 0;
  format[f++] = '%';
  if (alternativeForm) format[f++] = '#';
  format[f++] = '.';
  format[f++] = '*';
  if (isLongDouble) format[f++] = 'L';
  format[f++] = static_cast<char>(spec->symbol & 0xFF);
  format[f] = 0;
  if (precision < 0) precision = 6;

  char stack[kNarrowStack];
  char* narrow = stack;
  std::size_t size = sizeof stack;
  const NUV_UTF16 sym = spec->symbol;
  const bool fixed = sym == 'f' || sym == 'F';
  int len = -1;
  const char* radix = nl_langinfo(RADIXCHAR);
  if (!isLongDouble && sym != 'a' && sym != 'A' && std::isfinite(value) && radix[0] == '.' && radix[1] == 0) {
    // A double's digits are ours; the buffer grows to the text when needed.
    if (fixed && precision <= 9 && !alternativeForm) len = nuv::fixed_small(stack, sizeof stack, precision, static_cast<double>(value));
    if (len < 0) {
      const long need = nuv::format_double_exact(stack, sizeof stack, static_cast<char>(sym), precision,
                                                 alternativeForm != 0, static_cast<double>(value));
      if (need >= static_cast<long>(sizeof stack)) {
        size = static_cast<std::size_t>(need) + 1;
        narrow = static_cast<char*>(std::malloc(size));
        if (!narrow) {
          u16_malloc_error(src::kEngineName, src::kOutCS, fixed ? src::kFixedBufferAllocLine : src::kOtherBufferAllocLine);
          set_ascii(spec, "");
          return -1;
        }
        nuv::format_double_exact(narrow, size, static_cast<char>(sym), precision, alternativeForm != 0,
                                 static_cast<double>(value));
      }
      len = static_cast<int>(need);
    }
  } else {
    if (fixed ? !fixed_fits_stack(precision, value) : precision > 320) {
      size = static_cast<std::size_t>(precision) + (fixed ? 640 : 16);
      narrow = static_cast<char*>(std::malloc(size));
      if (!narrow) {
        u16_malloc_error(src::kEngineName, src::kOutCS, fixed ? src::kFixedBufferAllocLine : src::kOtherBufferAllocLine);
        set_ascii(spec, "");
        return -1;
      }
    }
    len = isLongDouble ? std::snprintf(narrow, size, format, precision, value)
                       : std::snprintf(narrow, size, format, precision, static_cast<double>(value));
  }
  if (len < 0) len = 0;
  if (static_cast<std::size_t>(len) >= size) {
    if (nuv::load_relaxed(u16_trace_level) != 0)
      u16_traceMsg("Buffer overflow (floating point output)", src::kOutCS, src::kFloatOverflowLine, 1);
    len = static_cast<int>(size - 1);  // snprintf has cut it there
  }
  int rc = 0;
  NUV_UTF16* out = text_room(spec, static_cast<std::size_t>(len) + 1, src::kWidenAllocLine);
  if (out) {
    for (int i = 0; i < len; ++i) out[i] = static_cast<unsigned char>(narrow[i]);
    out[len] = 0;
    spec->length = len;
  } else {
    rc = -1;
  }
  if (narrow != stack) std::free(narrow);
  return rc;
}

int OutputConversionSpec_toString(OutputConversionSpec* spec, const LengthModifier* length, int alternativeForm,
                                  int precision, std::va_list* args) {
  const bool wide = LengthModifier_isLongValue(length) || LengthModifier_isLongLong(length);
  switch (spec->symbol) {
    case '%':
      set_ascii(spec, "%");
      return 0;
    case 'd':
    case 'i': {
      const int64_t v = wide ? va_arg(*args, int64_t) : va_arg(*args, int);
      uint64_t mag = static_cast<uint64_t>(v);
      if (v < 0) {
        spec->negative = 1;
        mag = 0 - mag;  // also right for the most negative value
      }
      return OutputConversionSpec_itoa__(spec, mag, 10, 0, precision, alternativeForm);
    }
    case 'u':
    case 'x':
    case 'X': {
      const uint64_t v = wide ? va_arg(*args, uint64_t) : va_arg(*args, unsigned);
      const int base = spec->symbol == 'u' ? 10 : 16;
      return OutputConversionSpec_itoa__(spec, v, base, spec->symbol == 'X', precision, alternativeForm);
    }
    case 'o':
      // Always 32 bits, whatever the modifier says.
      return OutputConversionSpec_itoa__(spec, va_arg(*args, unsigned), 8, 0, precision, alternativeForm);
    case 'p': {
      const void* p = va_arg(*args, void*);
      if (!p) {
        set_ascii(spec, "(nil)");
        return 0;
      }
      return OutputConversionSpec_itoa__(spec, reinterpret_cast<uintptr_t>(p), 16, 0, precision, alternativeForm);
    }
    case 'c':
      spec->inlineText[0] = static_cast<NUV_UTF16>(va_arg(*args, int) & 0xFFFF);
      spec->inlineText[1] = 0;
      spec->text = spec->inlineText;
      spec->length = 1;
      return 0;
    case 's': {
      const auto* s = va_arg(*args, const NUV_UTF16*);
      if (!s) {
        set_ascii(spec, "(null)");
        return 0;
      }
      // Short strings are measured and copied in one pass.
      const std::size_t cut = precision >= 0 ? static_cast<std::size_t>(precision) : SIZE_MAX;
      std::size_t k = 0;
      while (k < 32 && k < cut && nuv::unit_at(s + k) != 0) {
        spec->inlineText[k] = nuv::unit_at(s + k);
        ++k;
      }
      if (k < 32) {
        spec->inlineText[k] = 0;
        spec->text = spec->inlineText;
        spec->length = static_cast<int32_t>(k);
        return 0;
      }
      const std::size_t n = precision >= 0 ? strnlenU16(s, cut) : static_cast<std::size_t>(strlenU16(s));
      // Inline when the text and its NUL take fewer than 2,051 bytes.
      NUV_UTF16* out = text_room(spec, n + 1, src::kStringAllocLine);
      if (!out) return -1;
      std::memcpy(out, s, n * sizeof(NUV_UTF16));
      out[n] = 0;
      spec->length = static_cast<int32_t>(n);
      return 0;
    }
    case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A': {
      const bool ld = LengthModifier_isLongDoubleValue(length);
      long double v = ld ? va_arg(*args, long double) : va_arg(*args, double);
      if (v < 0) {
        spec->negative = 1;
        v = -v;
      }
      return OutputConversionSpec_dtoa__(spec, ld, alternativeForm, precision, v);
    }
    default:
      set_ascii(spec, "");
      return 0;
  }
}

namespace {

inline bool has_prefix_text(const OutputConversionSpec* s) {
  return s->length > 0 && !(s->length == 1 && s->text[0] == '0');
}

}  // namespace

void OutputConversion_toString(OutputConversion* c) {
  const NUV_UTF16 sym = c->spec.symbol;
  const bool numeric = OutputConversionSpec_isNumber(&c->spec);
  c->signChar = 0;
  c->signLength = 0;
  if (numeric && sym != 'u' && sym != 'x' && sym != 'X') {
    if (c->spec.negative) c->signChar = '-';
    else if (c->flags.signConversion) c->signChar = '+';
    else if (c->flags.space) c->signChar = ' ';
    c->signLength = c->signChar ? 1 : 0;
  }
  c->padding = 0;
  if (FieldWidth_isDefined(&c->width)) {
    int64_t pad = static_cast<int64_t>(c->width.value) - c->spec.length - c->signLength;
    if (numeric && c->flags.alternativeForm && has_prefix_text(&c->spec)) {
      if (sym == 'x' || sym == 'X') pad -= 2;
      else if (sym == 'o') pad -= 1;
    }
    c->padding = pad < INT32_MIN ? INT32_MIN : static_cast<int32_t>(pad);
  }
}

int OutputConversion_output(OutputConversion* c, OutputStream* stream, int strict) {
  const OutputFlags& fl = c->flags;
  const NUV_UTF16 sym = c->spec.symbol;
  // A precision below the width turns zero padding into spaces, for every symbol.
  const bool zeroBlocked = OutputPrecision_isDefined(&c->precision) && FieldWidth_isDefined(&c->width) &&
                           c->precision.value < c->width.value;
  int total = 0;
  int r;
  if (!fl.leftJustified && (!fl.zero || zeroBlocked)) {
    if ((r = OutputStream_writeMultipleChar(stream, ' ', c->padding, strict)) < 0) return r;
    total += r;
  }
  if (c->signLength) {
    const NUV_UTF16 sign = static_cast<NUV_UTF16>(c->signChar);
    if ((r = OutputStream_writeString(stream, &sign, 1, strict)) < 0) return r;
    total += r;
  }
  if (fl.alternativeForm && has_prefix_text(&c->spec) && OutputConversionSpec_isNumber(&c->spec) &&
      (sym == 'x' || sym == 'X' || sym == 'o')) {
    if ((r = OutputStream_writeSingleChar(stream, '0', strict)) < 0) return r;
    total += r;
    if (sym != 'o') {
      if ((r = OutputStream_writeSingleChar(stream, sym, strict)) < 0) return r;
      total += r;
    }
  }
  if (fl.zero && !fl.leftJustified && !zeroBlocked) {
    if ((r = OutputStream_writeMultipleChar(stream, '0', c->padding, strict)) < 0) return r;
    total += r;
  }
  if (sym == 'c') r = OutputStream_writeSingleChar(stream, c->spec.text[0], strict);
  else r = OutputStream_writeString(stream, c->spec.text, c->spec.length, strict);
  if (r < 0) return r;
  total += r;
  if (fl.leftJustified) {
    if ((r = OutputStream_writeMultipleChar(stream, ' ', c->padding, strict)) < 0) return r;
    total += r;
  }
  return total;
}
