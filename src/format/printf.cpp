// Front ends of the printf family.  All UTF-16 ones run the same engine
// entry; the narrow bounded ones hand their format to the C library.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "format/engine.h"

namespace {

// Runs the engine; `counting` measures without storing anywhere.
int run_engine(FILE* file, NUV_UTF16* buffer, uint64_t limit, const NUV_UTF16* format, va_list args) {
  FormattedOutput state;
  FormattedOutputCtor(&state, file, buffer, limit, format, 0, args);
  const int r = FormattedOutput_parse(&state);
  FormattedOutputXtor(&state);
  return r;
}

}  // namespace

extern "C" {

NUV_API int vvfprintfU16(FILE* file, NUV_UTF16* buffer, size_t* limit, const NUV_UTF16* format, va_list args) {
  const uint64_t lim = limit ? *limit : 0;
  if (!file) {
    if (!buffer && lim != 0) {
      errno = EBADF;
      return -1;
    }
    if (buffer && lim == 0) return 0;
  }
  if (!format) {
    errno = EINVAL;
    return -1;
  }
  return run_engine(file, buffer, lim, format, args);
}

NUV_API int vvfprintf_sU16(FILE* file, NUV_UTF16* buffer, size_t* limit, const NUV_UTF16* format, size_t extra,
                           va_list args) {
  (void)extra;
  return vvfprintfU16(file, buffer, limit, format, args);
}

NUV_API int vfprintfU16(FILE* file, const NUV_UTF16* format, va_list args) {
  size_t none = 0;
  return vvfprintfU16(file, nullptr, &none, format, args);
}

NUV_API int fprintfU16(FILE* file, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vfprintfU16(file, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vprintfU16(const NUV_UTF16* format, va_list args) { return vfprintfU16(stdout, format, args); }

NUV_API int printfU16(const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vprintfU16(format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsprintfU16(NUV_UTF16* buffer, const NUV_UTF16* format, va_list args) {
  size_t unlimited = static_cast<size_t>(kUnlimited);
  return vvfprintfU16(nullptr, buffer, &unlimited, format, args);
}

NUV_API int sprintfU16(NUV_UTF16* buffer, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsprintfU16(buffer, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsnprintfU16(NUV_UTF16* buffer, size_t n, const NUV_UTF16* format, va_list args) {
  return vvfprintfU16(nullptr, buffer, &n, format, args);
}

NUV_API int snprintfU16(NUV_UTF16* buffer, size_t n, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsnprintfU16(buffer, n, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsprintf_sU16(NUV_UTF16* buffer, size_t n, const NUV_UTF16* format, va_list args) {
  if (n == 0) return -1;
  const int r = vvfprintfU16(nullptr, buffer, &n, format, args);
  return r >= 0 && static_cast<size_t>(r) < n ? r : -1;
}

NUV_API int sprintf_sU16(NUV_UTF16* buffer, size_t n, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsprintf_sU16(buffer, n, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsnprintf_sU16(NUV_UTF16* buffer, size_t n, const NUV_UTF16* format, va_list args) {
  if (n == 0) return 0;
  const int r = vvfprintfU16(nullptr, buffer, &n, format, args);
  if (r >= 0 && static_cast<size_t>(r) < n) return r;
  if (buffer) buffer[n - 1] = 0;
  return r;
}

NUV_API int snprintf_sU16(NUV_UTF16* buffer, size_t n, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsnprintf_sU16(buffer, n, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsprintf_sRFB(char* s, size_t n, const char* format, va_list args) {
  if (n == 0 || !s || !format) return -1;
  const int r = std::vsnprintf(s, n, format, args);
  if (r >= 0 && static_cast<size_t>(r) < n && s[r] == 0) return r;
  s[n - 1] = 0;
  return -1;
}

NUV_API int sprintf_sRFB(char* s, size_t n, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsprintf_sRFB(s, n, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsnprintf_sRFB(char* s, size_t n, const char* format, va_list args) {
  if (n == 0) return 0;
  if (!s || !format) return -1;  // the C library would write through the null pointer
  const int r = std::vsnprintf(s, n, format, args);
  if (r >= 0 && static_cast<size_t>(r) < n) return r;
  s[n - 1] = 0;
  return static_cast<int>(n);
}

NUV_API int snprintf_sRFB(char* s, size_t n, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsnprintf_sRFB(s, n, format, ap);
  va_end(ap);
  return r;
}

// The length is measured by a run that only counts (as writing to a null
// device would), then the string grows and the text is formatted behind it.
NUV_API int vsprintf_append_U(NUV_UTF16** buffer, const NUV_UTF16* format, va_list args) {
  if (!buffer || !format) {
    errno = EINVAL;
    return -1;
  }
  va_list measure;
  va_copy(measure, args);
  const int k = run_engine(nullptr, nullptr, kUnlimited, format, measure);
  va_end(measure);
  if (k < 0) return -1;  // a bad format: the string stays as it is
  const size_t m = *buffer ? static_cast<size_t>(strlenU16(*buffer)) : 0;
  auto* grown = static_cast<NUV_UTF16*>(std::realloc(*buffer, (m + static_cast<size_t>(k) + 1) * sizeof(NUV_UTF16)));
  if (!grown) return -1;  // errno is ENOMEM; the string is unchanged
  std::memset(grown + m, 0, (static_cast<size_t>(k) + 1) * sizeof(NUV_UTF16));
  *buffer = grown;
  va_list again;
  va_copy(again, args);
  const int r = vsprintfU16(grown + m, format, again);
  va_end(again);
  return r;
}

NUV_FORWARD(vprintfU, vprintfU16);
NUV_FORWARD(printfU, printfU16);
NUV_FORWARD(vfprintfU, vfprintfU16);
NUV_FORWARD(fprintfU, fprintfU16);
NUV_FORWARD(vsprintfU, vsprintfU16);
NUV_FORWARD(sprintfU, sprintfU16);
NUV_FORWARD(vsnprintfU, vsnprintfU16);
NUV_FORWARD(snprintfU, snprintfU16);

}  // extern "C"
