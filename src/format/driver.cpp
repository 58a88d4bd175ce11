// The format driver: literal runs are copied as they stand, each directive
// is parsed, converted and written; then the buffer is terminated.
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
}

void OutputStreamXtor(OutputStream*) {}

// Each unit gets its own call, so each starts with a fresh encoder state.
int OutputStream_fileWriteSingleChar(OutputStream* s, NUV_UTF16 unit) {
  if (fwrite_unlockedU16(&unit, 1, 1, s->file, nullptr, 0) != 1) return -1;
  ++s->written;
  return 1;
}

int OutputStream_fileWriteMultipleChar(OutputStream* s, NUV_UTF16 unit, int count) {
  int n = 0;
  for (; n < count; ++n) {
    if (fwrite_unlockedU16(&unit, 1, 1, s->file, nullptr, 0) != 1) break;
    ++s->written;
  }
  return n;
}

int OutputStream_fileWriteString(OutputStream* s, const NUV_UTF16* text, long length) {
  if (length == 1 && text[0] == 0) return 0;
  if (length <= 0) return 0;
  if (u16_fwriteU16(text, 1, static_cast<size_t>(length), s->file, nullptr) != static_cast<size_t>(length))
    return -1;
  s->written += static_cast<uint64_t>(length);
  return static_cast<int>(length);
}

int OutputStream_writeNullTermination(OutputStream* s, int error, int strict) {
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
