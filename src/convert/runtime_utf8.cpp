#include "convert/runtime_utf8.h"

#include <cerrno>

namespace {

inline std::size_t unit_bytes(NUV_UTF16 u) { return (u & 0xFF80) == 0 ? 1 : (u & 0xF800) == 0 ? 2 : 3; }

inline char* put_unit(char* d, NUV_UTF16 u) {
  if (u < 0x80) {
    *d++ = static_cast<char>(u);
  } else if (u < 0x800) {
    *d++ = static_cast<char>(0xC0 | (u >> 6));
    *d++ = static_cast<char>(0x80 | (u & 0x3F));
  } else {
    *d++ = static_cast<char>(0xE0 | (u >> 12));
    *d++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    *d++ = static_cast<char>(0x80 | (u & 0x3F));
  }
  return d;
}

}  // namespace

std::size_t U16s_To_Utf8s_U16(char* dest, const NUV_UTF16* src, std::size_t destSize) {
  if (!dest) {
    std::size_t n = 0;
    for (; *src; ++src) n += unit_bytes(*src);
    return n;
  }
  std::size_t n = 0;
  for (; n < destSize; ++src) {
    const NUV_UTF16 u = *src;
    if (u == 0) {
      dest[n] = 0;
      return n;
    }
    const std::size_t need = unit_bytes(u);
    if (n + need > destSize) {
      dest[n] = 0;
      return n;
    }
    n = static_cast<std::size_t>(put_unit(dest + n, u) - dest);
  }
  return n;  // exactly full: no room left for a terminator
}

std::size_t U16n_To_Utf8_U16(char* dest, const NUV_UTF16* src, std::size_t count) {
  if (!dest) return static_cast<std::size_t>(-1);
  char* d = dest;
  for (std::size_t i = 0; i < count; ++i) d = put_unit(d, src[i]);
  return static_cast<std::size_t>(d - dest);
}

std::size_t U16n_To_Utf8n_U16(char* dest, std::size_t destSize, const NUV_UTF16* src, std::size_t srcLen) {
  const bool terminated = srcLen == static_cast<std::size_t>(-1);
  if (!dest || destSize == 0) {
    std::size_t n = 0;
    if (terminated) {
      for (; *src; ++src) n += unit_bytes(*src);
      return n + 1;
    }
    for (std::size_t i = 0; i < srcLen; ++i) n += unit_bytes(src[i]);
    return n;
  }
  std::size_t n = 0;
  for (std::size_t i = 0; terminated || i < srcLen; ++i) {
    const NUV_UTF16 u = src[i];
    const std::size_t need = unit_bytes(u);
    if (n + need > destSize) {
      errno = ERANGE;
      return 0;
    }
    if (terminated && u == 0) {
      dest[n] = 0;
      return n + 1;
    }
    n = static_cast<std::size_t>(put_unit(dest + n, u) - dest);
  }
  return n;
}
