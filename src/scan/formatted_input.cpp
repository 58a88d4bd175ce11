// The scanf driver: literal units, white space, and the directives, each of
// which reads from the InputStream and stores through its pointer argument.
#include <langinfo.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ctype/ctype_tables.h"
#include "number/exact_decimal.h"
#include "scan/scan_engine.h"

namespace {

enum class Step { Done, Mismatch, EndOfInput };

constexpr std::size_t kNumberBufferStart = 64;

// Narrow copy of a scanned number: 64 bytes inline, then doubled on the heap
// whenever fewer than 2 bytes remain.  A failed allocation fails the directive.
struct NumberText {
  char inline_bytes[kNumberBufferStart];
  char* p = inline_bytes;
  std::size_t cap = kNumberBufferStart;
  std::size_t len = 0;
  bool out_of_memory = false;
  NumberText() = default;
  NumberText(const NumberText&) = delete;
  NumberText& operator=(const NumberText&) = delete;
  ~NumberText() {
    if (p != inline_bytes) std::free(p);
  }
  void copytobuffer(int32_t unit) {
    if (cap - len < 2) {
      char* q = static_cast<char*>(std::malloc(2 * cap));
      if (!q) {
        out_of_memory = true;
        return;
      }
      std::memcpy(q, p, len);
      if (p != inline_bytes) std::free(p);
      p = q;
      cap *= 2;
    }
    p[len++] = static_cast<char>(unit);
  }
  const char* c_str() {
    p[len] = 0;
    return p;
  }
  bool empty_or_sign() const { return len == 0 || (len == 1 && (p[0] == '+' || p[0] == '-')); }
};

inline int32_t read(InputStream* s, int32_t* u) { return InputStream_readSingleChar(s, u); }
inline void unread(InputStream* s, int32_t u) { InputStream_unreadSingleChar(s, &u); }

inline int width_limit(const InputConversion* c) {
  const int32_t w = FieldWidth_getValue(&c->width);
  return w > 0 ? w : INT_MAX;  // no width, and width 0, mean no limit
}

// Digits and letters of bases up to 36; 99 for anything else.  A table: the
// end of a number is a unit of any kind, so range tests would mispredict.
struct DigitTable {
  unsigned char v[128];
  constexpr DigitTable() : v() {
    for (int u = 0; u < 128; ++u)
      v[u] = u >= '0' && u <= '9'   ? u - '0'
             : u >= 'a' && u <= 'z' ? u - 'a' + 10
             : u >= 'A' && u <= 'Z' ? u - 'A' + 10
                                    : 99;
  }
};
constexpr DigitTable kDigits;

inline unsigned digit_value(int32_t u) { return static_cast<std::uint32_t>(u) < 128 ? kDigits.v[u] : 99; }

inline int32_t lower(int32_t u) { return u >= 'A' && u <= 'Z' ? u + 32 : u; }

template <class T>
void put(void* dest, T v) {
  std::memcpy(dest, &v, sizeof v);
}

void store_integer(void* dest, int size_class, std::uint64_t v) {
  switch (size_class) {
    case 1: case 3: put(dest, static_cast<std::int64_t>(v)); break;
    case 4: put(dest, static_cast<std::int16_t>(v)); break;
    case 8: put(dest, static_cast<std::int8_t>(v)); break;
    default: put(dest, static_cast<std::int32_t>(v)); break;
  }
}

void store_floating(void* dest, int size_class, long double v) {
  if (size_class == 3)
    put(dest, v);
  else if (size_class == 1)
    put(dest, static_cast<double>(v));
  else
    put(dest, static_cast<float>(v));
}

// Matches the rest of a word case-insensitively within the units the field
// width still allows; the unit that breaks it is given back.  The word's first
// unit has matched already, so an input that ends inside it is a mismatch,
// not the end of input.
Step match_word(InputStream* s, const char* rest, int* budget) {
  for (; *rest; ++rest) {
    int32_t u;
    if (*budget <= 0 || read(s, &u) < 0) return Step::Mismatch;
    --*budget;
    if (lower(u) != *rest) {
      unread(s, u);
      return Step::Mismatch;
    }
  }
  return Step::Done;
}

// A sign and at most 15 digits (all below base) cannot overflow 64 bits, so
// strtol and strtoul would give exactly this; longer texts go to them.
bool short_integer(const char* t, std::size_t len, int base, std::uint64_t* v) {
  const bool neg = *t == '-';
  if (*t == '+' || *t == '-') ++t, --len;
  if (len == 0 || len > 15) return false;
  std::uint64_t acc = 0;
  for (; *t; ++t) acc = acc * static_cast<unsigned>(base) + digit_value(static_cast<unsigned char>(*t));
  *v = neg ? 0 - acc : acc;
  return true;
}

Step getNumber(InputStream* s, const InputConversion* conv, void* dest, int32_t c, bool is_signed, int base) {
  const bool pointer = conv->spec.symbol == 'p';
  int left = width_limit(conv);
  NumberText text;
  bool hit_end = false;
  // Takes the next unit while the width allows; false when the number must stop.
  auto advance = [&]() -> bool {
    if (--left <= 0) return false;
    if (read(s, &c) < 0) {
      hit_end = true;
      return false;
    }
    return true;
  };
  bool more = true;
  if (c == '+' || c == '-') {
    text.copytobuffer(c);
    more = advance();
  }
  if (more && c == '0' && (base == 0 || base == 16)) {
    text.copytobuffer('0');
    more = advance();
    if (more && (c == 'x' || c == 'X')) {
      base = 16;  // the 'x' counts against the width but is not copied
      more = advance();
    } else if (base == 0) {
      base = 8;
    }
  }
  if (base == 0) base = 10;
  while (more && digit_value(c) < static_cast<unsigned>(base)) {
    text.copytobuffer(c);
    more = advance();
  }
  if (text.out_of_memory) return Step::Mismatch;
  if (text.empty_or_sign()) {
    if (pointer && more && c == '(') {
      int budget = left - 1;  // '(' took one unit of the width
      Step st = match_word(s, "nil)", &budget);
      if (st != Step::Done) return st;
      if (dest) put(dest, static_cast<void*>(nullptr));
      return Step::Done;
    }
    if (more) unread(s, c);
    return hit_end ? Step::EndOfInput : Step::Mismatch;
  }
  if (more) unread(s, c);  // the unit that ended the number
  const char* narrow = text.c_str();
  std::uint64_t v;
  if (short_integer(narrow, text.len, base, &v)) {
    if (dest) store_integer(dest, getLengthType(conv), v);
    return Step::Done;
  }
  char* end;
  v = is_signed ? static_cast<std::uint64_t>(std::strtol(narrow, &end, base))
                              : static_cast<std::uint64_t>(std::strtoul(narrow, &end, base));
  if (end == narrow) return Step::Mismatch;
  if (dest) store_integer(dest, getLengthType(conv), v);
  return Step::Done;
}

// %s and %c: UTF-16 units whatever the length modifier.
Step getString(InputStream* s, const InputConversion* conv, void* dest, int32_t c) {
  auto* out = static_cast<NUV_UTF16*>(dest);
  if (conv->spec.symbol == 'c') {
    const int n = FieldWidth_getValue(&conv->width) > 0 ? FieldWidth_getValue(&conv->width) : 1;
    for (int i = 0;;) {
      if (out) out[i] = static_cast<NUV_UTF16>(c);
      // The end of input after at least one unit still counts, as in glibc.
      if (++i == n || read(s, &c) < 0) return Step::Done;
    }
  }
  int left = width_limit(conv);
  std::size_t i = 0;
  for (;;) {
    if (nuv::is_space_unit(c)) {
      unread(s, c);
      break;
    }
    if (out) out[i] = static_cast<NUV_UTF16>(c);
    ++i;
    if (--left == 0 || read(s, &c) < 0) break;
  }
  if (out) out[i] = 0;
  return Step::Done;
}

// The scanset behind "%[": returns the position after the closing ']', or
// null when the format ends inside the set.
const NUV_UTF16* parse_set(const NUV_UTF16* p, bool* negate, const NUV_UTF16** begin, const NUV_UTF16** end) {
  *negate = *p == '^';
  if (*negate) ++p;
  *begin = p;
  if (*p == ']') ++p;  // a ']' first is a member
  while (*p && *p != ']') ++p;
  if (!*p) return nullptr;
  *end = p;
  return p + 1;
}

bool in_set(const NUV_UTF16* b, const NUV_UTF16* e, int32_t u) {
  for (const NUV_UTF16* p = b; p < e;) {
    if (p + 2 < e && p[1] == '-') {  // a range; a '-' first or last is itself
      int32_t lo = p[0], hi = p[2];
      if (lo > hi) std::swap(lo, hi);
      if (u >= lo && u <= hi) return true;
      p += 3;
    } else {
      if (u == *p) return true;
      ++p;
    }
  }
  return false;
}

Step getSet(InputStream* s, const InputConversion* conv, void* dest, int32_t c, const NUV_UTF16* b,
            const NUV_UTF16* e, bool negate) {
  auto* out = static_cast<NUV_UTF16*>(dest);
  int left = width_limit(conv);
  std::size_t i = 0;
  for (;;) {
    if (in_set(b, e, c) == negate) {
      unread(s, c);
      break;
    }
    if (out) out[i] = static_cast<NUV_UTF16>(c);
    ++i;
    if (--left == 0 || read(s, &c) < 0) break;
  }
  if (i == 0) return Step::Mismatch;
  if (out) out[i] = 0;
  return Step::Done;
}

inline int32_t decimal_point() {
  unsigned char c = static_cast<unsigned char>(nl_langinfo(RADIXCHAR)[0]);
  return c != 0 && c < 0x80 ? c : '.';
}

Step getFloat(InputStream* s, const InputConversion* conv, void* dest, int32_t c) {
  const int size_class = getLengthType(conv);
  int left = width_limit(conv);
  bool negative = false;
  if (c == '-' || c == '+') {
    negative = c == '-';
    if (negative && --left <= 0) return Step::Mismatch;  // only '-' counts toward the width
    if (read(s, &c) < 0) return Step::EndOfInput;
  }
  const int32_t lc = lower(c);
  if (lc == 'n' || lc == 'i') {  // testForNANandINF
    long double v;
    int budget = left - 1;  // units the width allows after this one
    if (lc == 'n') {
      Step st = match_word(s, "an", &budget);
      if (st != Step::Done) return st;
      v = NAN;
    } else {
      Step st = match_word(s, "nf", &budget);
      if (st != Step::Done) return st;
      int32_t u;
      if (budget > 0 && read(s, &u) >= 0) {
        if (lower(u) == 'i') {
          --budget;
          st = match_word(s, "nity", &budget);
          if (st != Step::Done) return st;
        } else {
          unread(s, u);
        }
      }
      v = INFINITY;
      errno = ERANGE;
    }
    if (dest) store_floating(dest, size_class, negative ? -v : v);
    return Step::Done;
  }
  const int32_t dp = decimal_point();
  NumberText text;
  bool seen_point = false, seen_exp = false, after_exp = false;
  for (;;) {
    bool take;
    if (c >= '0' && c <= '9') {
      take = true;
    } else if (c == dp && !seen_point && !seen_exp) {
      take = seen_point = true;
    } else if ((c == 'e' || c == 'E') && !seen_exp) {
      take = seen_exp = true;
    } else {
      take = after_exp && (c == '+' || c == '-');
    }
    if (!take) {
      unread(s, c);
      break;
    }
    after_exp = c == 'e' || c == 'E';
    text.copytobuffer(c);
    if (--left == 0 || read(s, &c) < 0) break;
  }
  if (text.out_of_memory) return Step::Mismatch;
  const char* narrow = text.c_str();
  char* end;
  long double v;
  double exact;
  if (size_class == 3) {
    v = std::strtold(narrow, &end);
  } else if (nuv::exact_decimal(narrow, narrow + text.len, static_cast<char>(dp), &exact)) {
    v = exact;  // what strtod gives, found faster
    end = const_cast<char*>(narrow) + text.len;
  } else {
    v = std::strtod(narrow, &end);
  }
  if (end == narrow) return InputStream_EOF(s) && text.len == 0 ? Step::EndOfInput : Step::Mismatch;
  if (dest) store_floating(dest, size_class, negative ? -v : v);
  return Step::Done;
}

}  // namespace

void FormattedInputCtor(FormattedInput* in, FILE* file, const NUV_UTF16* text, const NUV_UTF16* format,
                        int32_t strict, std::va_list args) {
  InputStreamCtor(&in->stream, file, text);
  in->format = format;
  va_copy(in->args, args);
  in->strict = strict;
}

void FormattedInputXtor(FormattedInput* in) {
  InputStreamXtor(&in->stream);
  va_end(in->args);
}

int FormattedInput_input(FormattedInput* in) {
  InputStream* s = &in->stream;
  const NUV_UTF16* f = in->format;
  int assigned = 0;
  const auto ended = [&] { return assigned ? assigned : -1; };
  int32_t u;
  while (*f) {
    const NUV_UTF16 fc = *f;
    if (nuv::is_space_unit(fc)) {
      while (nuv::is_space_unit(*f)) ++f;
      if (skipWhiteSpace(s, &u) >= 0) unread(s, u);
      continue;
    }
    if (fc != '%' || f[1] == '%') {
      f += fc == '%' ? 2 : 1;  // "%%" is a literal '%'
      if (read(s, &u) < 0) return ended();
      if (u != fc) {
        unread(s, u);
        return assigned;
      }
      continue;
    }
    InputConversion conv;
    InputConversionCtor(&conv);
    const int n = InputConversion_parse(&conv, f + 1, &in->args);
    if (n < 0) return assigned;
    f += 1 + n;
    const NUV_UTF16 symbol = conv.spec.symbol;
    bool negate = false;
    const NUV_UTF16 *set_begin = nullptr, *set_end = nullptr;
    if (symbol == '[') {
      f = parse_set(f, &negate, &set_begin, &set_end);
      if (!f) return assigned;
    }
    void* dest = conv.suppress ? nullptr : va_arg(in->args, void*);
    if (symbol == 'n') {
      if (dest) store_integer(dest, getLengthType(&conv), static_cast<std::uint64_t>(
                                                              static_cast<std::int64_t>(InputStream_successfullyRead(s))));
      continue;
    }
    int32_t first;
    if (symbol == 'c' || symbol == '[')
      read(s, &first);
    else
      skipWhiteSpace(s, &first);
    if (InputStream_EOF(s)) return ended();
    Step st;
    switch (symbol) {
      case 'd': st = getNumber(s, &conv, dest, first, true, 10); break;
      case 'i': st = getNumber(s, &conv, dest, first, true, 0); break;
      case 'o': st = getNumber(s, &conv, dest, first, false, 8); break;
      case 'u': st = getNumber(s, &conv, dest, first, false, 10); break;
      case 'x': case 'X': case 'p': st = getNumber(s, &conv, dest, first, false, 16); break;
      case 's': case 'c': st = getString(s, &conv, dest, first); break;
      case '[': st = getSet(s, &conv, dest, first, set_begin, set_end, negate); break;
      default: st = getFloat(s, &conv, dest, first); break;
    }
    InputConversionXtor(&conv);
    if (st == Step::EndOfInput) return ended();
    if (st == Step::Mismatch) return assigned;
    if (dest) ++assigned;
  }
  return assigned;
}
