// Front ends of the scanf family.  A file source is locked for the whole
// call, so the units of one call are not interleaved with another reader's.
#include <cerrno>

#include "common/nuv_internal.h"
#include "scan/scan_engine.h"

extern "C" {

NUV_API int vvfscanf_sU16(const NUV_UTF16* text, FILE* file, const NUV_UTF16* format, va_list args) {
  if (!format || (!file && !text)) {
    errno = EINVAL;
    return -1;
  }
  if (file) flockfile(file);
  FormattedInput in;
  FormattedInputCtor(&in, file, file ? nullptr : text, format, 0, args);
  const int r = FormattedInput_input(&in);
  FormattedInputXtor(&in);
  if (file) funlockfile(file);
  return r;
}

NUV_API int vvfscanfU16(const NUV_UTF16* text, FILE* file, const NUV_UTF16* format, va_list args) {
  return vvfscanf_sU16(text, file, format, args);
}

NUV_API int vscanfU16(const NUV_UTF16* format, va_list args) {
  if (!stdin) {
    errno = EBADF;
    return -1;
  }
  return vvfscanf_sU16(nullptr, stdin, format, args);
}

NUV_API int scanfU16(const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vscanfU16(format, ap);
  va_end(ap);
  return r;
}

NUV_API int vfscanfU16(FILE* file, const NUV_UTF16* format, va_list args) {
  if (!file) {
    errno = EBADF;
    return -1;
  }
  return vvfscanf_sU16(nullptr, file, format, args);
}

NUV_API int fscanfU16(FILE* file, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vfscanfU16(file, format, ap);
  va_end(ap);
  return r;
}

NUV_API int vsscanfU16(const NUV_UTF16* text, const NUV_UTF16* format, va_list args) {
  return vvfscanf_sU16(text, nullptr, format, args);
}

NUV_API int sscanfU16(const NUV_UTF16* text, const NUV_UTF16* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int r = vsscanfU16(text, format, ap);
  va_end(ap);
  return r;
}

}  // extern "C"

NUV_FORWARD(scanfU, scanfU16);
NUV_FORWARD(fscanfU, fscanfU16);
NUV_FORWARD(sscanfU, sscanfU16);
