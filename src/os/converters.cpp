// The wrappers' converters are the runtime's unit-by-unit UTF-8 coders under
// the names the wrapper layer uses, plus the two forms that report.
#include "os/converters.h"

#include <cerrno>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"

extern "C" {

NUV_API std::size_t U2sToUtf8s(char* dst, const NUV_UTF16* src, std::size_t dstBytes) {
  return U16s_To_Utf8s_U16(dst, src, dstBytes);
}

std::size_t Utf8sToU2s(NUV_UTF16* dst, const char* src, std::size_t dstUnits) {
  return Utf8s_To_U16(dst, src, dstUnits);
}

std::size_t Utf8snToU2n(NUV_UTF16* dst, std::size_t dstUnits, const char* src, std::size_t srcBytes,
                        std::size_t* errCount, NUV_UTF16 substitute) {
  return Utf8n_To_U16_Whole(dst, dstUnits, src, srcBytes, errCount, substitute);
}

std::size_t U2nToUtf8(char* dst, const NUV_UTF16* src, std::size_t n) { return U16n_To_Utf8_U16(dst, src, n); }

std::size_t U2snToUtf8n(char* dst, std::size_t dstBytes, const NUV_UTF16* src, std::size_t srcUnits) {
  return U16n_To_Utf8n_U16(dst, dstBytes, src, srcUnits);
}

std::size_t nlsui_U2sToUtf8s_checked(char* dst, const NUV_UTF16* src, std::size_t limit, const char* sourceFile,
                                     int line, const char* functionName, const char* bufferName,
                                     const char* limitName) {
  const std::size_t n = U16s_To_Utf8s_U16(dst, src, limit);
  if (n == limit) {
    u16_array_short(limitName, functionName, bufferName, sourceFile, line);
    errno = ENAMETOOLONG;
  }
  return n;
}

std::size_t nlsui_Utf8sToU2s_checked(NUV_UTF16* dst, const char* src, std::size_t limit, const char* sourceFile,
                                     int line, const char* functionName, const char* bufferName,
                                     const char* limitName) {
  const std::size_t n = Utf8s_To_U16(dst, src, limit);
  if (n == static_cast<std::size_t>(-1)) {
    u16_utf8conv_error(dst, src, static_cast<long>(limit), sourceFile, line, functionName);
  } else if (n == limit) {
    u16_array_short(limitName, functionName, bufferName, sourceFile, line);
    errno = ENAMETOOLONG;
  }
  return n;
}

}  // extern "C"
