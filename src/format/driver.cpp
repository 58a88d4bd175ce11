// The format driver: literal runs are copied as they stand, each directive
// is parsed, converted and written; then the buffer is terminated.
#include <emmintrin.h>

#include <cerrno>

#include "common/nuv_internal.h"
#include "format/engine.h"
#include "string/scan.h"

// ---- output sink, file side --------------------------------------------------------

void OutputStreamCtor(OutputStream* s, FILE* file, NUV_UTF16* buffer, uint64_t limit) {
  s->file = file;
  s->buffer = buffer;
  s->written = 0;
  s->limit = limit;
  s->pending = 0;
  s->loud = 0;
}

void OutputStreamXtor(OutputStream*) {}

namespace {

// Whether one of four units in a word is a surrogate: a lane of
// (u & 0xF800) ^ 0xD800 is zero.
inline bool word_has_surrogate(uint64_t w) {
  const uint64_t y = (w & 0xF800F800F800F800u) ^ 0xD800D800D800D800u;
  return ((y - 0x0001000100010001u) & ~y & 0x8000800080008000u) != 0;
}

// Copies n units to d; true when one of them is a surrogate.  Eight units a
// step with SSE2 (always there on x86-64); short and last pieces overlap.
inline bool copy_seeing_surrogates(NUV_UTF16* d, const NUV_UTF16* t, long n) {
  if (n >= 8) {
    const __m128i base = _mm_set1_epi16(static_cast<short>(0xD800));
    const __m128i span = _mm_set1_epi16(0x7FF);
    __m128i hit = _mm_setzero_si128();
    auto step = [&](long i) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + i));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
      // u - 0xD800 at most 0x7FF (unsigned) marks a surrogate.
      hit = _mm_or_si128(hit, _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(v, base), span), _mm_setzero_si128()));
    };
    long i = 0;
    for (; i + 8 <= n; i += 8) step(i);
    if (i < n) step(n - 8);
    return _mm_movemask_epi8(hit) != 0;
  }
  if (n >= 4) {
    uint64_t a, b;
    std::memcpy(&a, t, 8);
    std::memcpy(&b, t + n - 4, 8);
    std::memcpy(d, &a, 8);
    std::memcpy(d + n - 4, &b, 8);
    return word_has_surrogate(a) || word_has_surrogate(b);
  }
  unsigned hit = 0;
  for (long i = 0; i < n; ++i) {
    const NUV_UTF16 u = nuv::unit_at(t + i);
    d[i] = u;
    hit |= static_cast<unsigned>((u & 0xF800) == 0xD800);
  }
  return hit != 0;
}

inline void gather(OutputStream* s, const NUV_UTF16* t, uint32_t n, uint32_t loud) {
  NUV_UTF16* d = s->pend + s->pending;
  for (uint32_t i = 0; i < n; ++i) d[i] = t[i];
  s->pending += n;
  s->loud |= loud;
  s->written += n;
}

}  // namespace

int OutputStream_flushPending(OutputStream* s) {
  const uint32_t n = s->pending;
  if (!n) return 0;
  const uint32_t loud = s->loud;
  s->pending = 0;
  s->loud = 0;
  const size_t done = u16_fwriteU16(s->pend, 1, n, s->file, nullptr);
  if (done == n) return 0;
  // Padding alone fails quietly, as its unit-by-unit writes did.
  s->written -= n - done;
  return loud ? -1 : 0;
}

// A surrogate unit gets its own call, so it becomes one '#' and nothing more.
int OutputStream_fileWriteSingleChar(OutputStream* s, NUV_UTF16 unit) {
  if ((unit & 0xF800) != 0xD800) {
    if (s->pending == kPendingUnits && OutputStream_flushPending(s) < 0) return -1;
    gather(s, &unit, 1, 1);
    return 1;
  }
  if (OutputStream_flushPending(s) < 0) return -1;
  if (fwrite_unlockedU16(&unit, 1, 1, s->file, nullptr, 0) != 1) return -1;
  ++s->written;
  return 1;
}

// Only spaces and zeros pad.
int OutputStream_fileWriteMultipleChar(OutputStream* s, NUV_UTF16 unit, int count) {
  int n = 0;
  while (n < count) {
    if (s->pending == kPendingUnits && OutputStream_flushPending(s) < 0) return -1;
    uint32_t k = kPendingUnits - s->pending;
    if (k > static_cast<uint32_t>(count - n)) k = static_cast<uint32_t>(count - n);
    NUV_UTF16* d = s->pend + s->pending;
    for (uint32_t i = 0; i < k; ++i) d[i] = unit;
    s->pending += k;
    s->written += k;
    n += static_cast<int>(k);
  }
  return n;
}

int OutputStream_fileWriteString(OutputStream* s, const NUV_UTF16* text, long length) {
  if (length == 1 && text[0] == 0) return 0;
  if (length <= 0) return 0;
  if (length <= static_cast<long>(kPendingUnits)) {
    if (static_cast<uint32_t>(length) > kPendingUnits - s->pending && OutputStream_flushPending(s) < 0) return -1;
    // Copied first, taken only when it holds no surrogate.
    if (!copy_seeing_surrogates(s->pend + s->pending, text, length)) {
      s->pending += static_cast<uint32_t>(length);
      s->loud = 1;
      s->written += static_cast<uint64_t>(length);
      return static_cast<int>(length);
    }
  }
  if (OutputStream_flushPending(s) < 0) return -1;
  if (u16_fwriteU16(text, 1, static_cast<size_t>(length), s->file, nullptr) != static_cast<size_t>(length))
    return -1;
  s->written += static_cast<uint64_t>(length);
  return static_cast<int>(length);
}

int OutputStream_writeNullTermination(OutputStream* s, int error, int strict) {
  if (s->file && OutputStream_flushPending(s) < 0) return -1;
  if (s->file || !s->buffer) return error < 0 ? error : static_cast<int>(s->written);
  if (s->written < s->limit) {
    s->buffer[s->written] = 0;
    return error < 0 ? error : static_cast<int>(s->written);
  }
  // Full: the last unit gives way to the NUL, and the limit is returned to
  // tell the caller the text was cut.
  s->buffer[s->limit - 1] = 0;
  if (strict) --s->written;
  return static_cast<int>(s->written);
}

// ---- literal runs -----------------------------------------------------------------------

namespace nuv {

const NUV_UTF16* find_directive_ref(const NUV_UTF16* p) {
  while (unit_at(p) != '%' && unit_at(p) != 0) ++p;
  return p;
}

const NUV_UTF16* find_directive(const NUV_UTF16* p) {
  // Formats are mostly short runs: look at a few units before setting up blocks.
  for (int i = 0; i < 8; ++i, ++p) {
    const NUV_UTF16 u = unit_at(p);
    if (u == '%' || u == 0) return p;
  }
  if (reinterpret_cast<std::uintptr_t>(p) & 1) return find_directive_ref(p);
  return scan_kernels().strchrnul(p, u'%');
}

}  // namespace nuv

// ---- plain directives ------------------------------------------------------------------

namespace {

const NUV_UTF16 kNullText[] = u"(null)";

inline int decimal_digits(uint64_t v) {
  for (int n = 1;; n += 4, v /= 10000) {
    if (v < 10) return n;
    if (v < 100) return n + 1;
    if (v < 1000) return n + 2;
    if (v < 10000) return n + 3;
  }
}

// %d %i %u %x %X %s, with or without l or ll, and with no flags, width or
// precision: nothing pads, so the text goes straight to the sink without the
// parse objects.  Returns the units consumed after the '%' (and the write's
// result in *result), or 0 to leave the directive to the general path.
int plain_directive(const NUV_UTF16* p, OutputStream* out, std::va_list* args, int* result) {
  int i = 0;
  bool wide = false;
  if (p[0] == 'l') {
    wide = true;
    i = p[1] == 'l' ? 2 : 1;
  }
  NUV_UTF16 tmp[24];
  NUV_UTF16* const end = tmp + 24;
  NUV_UTF16* first;
  switch (p[i]) {
    case 'd':
    case 'i':
    case 'u': {
      uint64_t mag;
      bool negative = false;
      if (p[i] == 'u') {
        mag = wide ? va_arg(*args, uint64_t) : va_arg(*args, unsigned);
      } else {
        const int64_t v = wide ? va_arg(*args, int64_t) : va_arg(*args, int);
        negative = v < 0;
        mag = negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
      }
      if (!out->file && out->buffer && out->limit - out->written > 21) {
        // Room for any number: the digits go straight to the caller's buffer.
        NUV_UTF16* d = out->buffer + out->written;
        const int n = decimal_digits(mag) + negative;
        nuv::digits_backwards(mag, 10, false, d + n);
        if (negative) d[0] = '-';
        out->written += static_cast<uint64_t>(n);
        *result = n;
        return i + 1;
      }
      first = nuv::digits_backwards(mag, 10, false, end);
      if (negative) *--first = '-';
      break;
    }
    case 'x':
    case 'X':
      first = nuv::digits_backwards(wide ? va_arg(*args, uint64_t) : va_arg(*args, unsigned), 16, p[i] == 'X', end);
      break;
    case 's': {
      const NUV_UTF16* t = va_arg(*args, const NUV_UTF16*);
      if (!t) t = kNullText;
      if (reinterpret_cast<std::uintptr_t>(t) & 1) {
        // An odd address is read unit by unit, in pieces.
        int r = 0;
        for (;;) {
          long k = 0;
          while (k < 24 && nuv::unit_at(t + k) != 0) {
            tmp[k] = nuv::unit_at(t + k);
            ++k;
          }
          if (!k) break;
          r = OutputStream_writeString(out, tmp, k, 0);
          if (r < 0 || k < 24) break;
          t += k;
        }
        *result = r;
        return i + 1;
      }
      long n = 0;
      while (n < 32 && t[n] != 0) ++n;
      if (n == 32) n = static_cast<long>(strlenU16(t));
      *result = OutputStream_writeString(out, t, n, 0);
      return i + 1;
    }
    default:
      return 0;
  }
  *result = OutputStream_writeString(out, first, end - first, 0);
  return i + 1;
}

}  // namespace

// ---- driver ----------------------------------------------------------------------------

void FormattedOutputCtor(FormattedOutput* f, FILE* file, NUV_UTF16* buffer, uint64_t limit,
                         const NUV_UTF16* format, int strict, std::va_list args) {
  OutputStreamCtor(&f->stream, file, buffer, limit);
  f->format = format;
  va_copy(f->args, args);
  f->strict = strict;
}

void FormattedOutputXtor(FormattedOutput* f) {
  va_end(f->args);
  OutputStreamXtor(&f->stream);
}

// Equivalent to walking strlen/strchr over the format: each run up to the
// next '%' or the end is written as one string.
int FormattedOutput_parse(FormattedOutput* f) {
  OutputStream* out = &f->stream;
  const int strict = f->strict;
  const bool bounded = !out->file && out->limit != kUnlimited;
  int result = 0;
  const NUV_UTF16* p = f->format;
  for (;;) {
    const NUV_UTF16* stop = nuv::find_directive(p);
    const long k = stop - p;
    if (k) {
      const int r = OutputStream_writeString(out, p, k, strict);
      if (r < 0) {
        result = -1;
        break;
      }
      if (bounded && r < k) break;
    }
    if (*stop == 0) break;
    if (!strict) {
      int r = 0;
      const int plain = plain_directive(stop + 1, out, &f->args, &r);
      if (plain) {
        if (r < 0) {
          result = r;
          break;
        }
        p = stop + 1 + plain;
        if (bounded && out->written >= out->limit) break;
        if (*p == 0) break;
        continue;
      }
    }
    OutputConversion conv;
    OutputConversionCtor(&conv);
    const int used = OutputConversion_parse(&conv, stop + 1, &f->args);
    if (used < 0) {
      OutputConversionXtor(&conv);
      result = -1;
      break;
    }
    p = stop + 1 + used;
    // A failed allocation leaves the directive without text; it is reported.
    OutputConversionSpec_toString(&conv.spec, &conv.length, conv.flags.alternativeForm, conv.precision.value,
                                  &f->args);
    OutputConversion_toString(&conv);
    const int r = OutputConversion_output(&conv, out, strict);
    OutputConversionXtor(&conv);
    if (r < 0) {
      result = r;
      break;
    }
    if (bounded && out->written >= out->limit) break;
    if (*p == 0) break;
  }
  return OutputStream_writeNullTermination(out, result, strict);
}
