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

namespace {

// One character from a counted source: its value and length, or 0 bytes on a
// bad lead byte, a bad follow-up byte, a cut sequence or a value past U+10FFFF.
// No overlong, surrogate or control test is made here.
struct Decoded {
  unsigned value;
  std::size_t len;
};

inline bool follow(unsigned char x) { return (x & 0xC0) == 0x80; }

inline Decoded decode_one(const unsigned char* s, std::size_t left) {
  const unsigned b = s[0];
  if (b < 0x80) return {b, 1};
  if ((b & 0xE0) == 0xC0) {
    if (left < 2 || !follow(s[1])) return {0, 0};
    return {(b & 0x1Fu) << 6 | (s[1] & 0x3Fu), 2};
  }
  if ((b & 0xF0) == 0xE0) {
    if (left < 3 || !follow(s[1]) || !follow(s[2])) return {0, 0};
    return {((b << 12) & 0xFFFFu) | (s[1] & 0x3Fu) << 6 | (s[2] & 0x3Fu), 3};
  }
  if ((b & 0xF8) == 0xF0) {
    if (left < 4 || !follow(s[1]) || !follow(s[2]) || !follow(s[3])) return {0, 0};
    const unsigned v = (b & 7u) << 18 | (s[1] & 0x3Fu) << 12 | (s[2] & 0x3Fu) << 6 | (s[3] & 0x3Fu);
    if (v >= 0x110000) return {0, 0};
    return {v, 4};
  }
  return {0, 0};
}

// The bytes left in a zero-terminated source are unknown; the follow-up test
// stops at the terminator, so claiming plenty is safe.
constexpr std::size_t kUnbounded = 4;

}  // namespace

std::size_t Utf8n_To_U16(NUV_UTF16* dest, std::size_t destLen, const char* src, std::size_t srcLen,
                         std::size_t* errCount, unsigned int substChar) {
  const bool terminated = srcLen == static_cast<std::size_t>(-1);
  const bool writing = dest && destLen != 0;
  const std::size_t limit = writing ? destLen : static_cast<std::size_t>(-1);
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  if (errCount) *errCount = 0;
  std::size_t n = 0;
  for (std::size_t i = 0; terminated || i < srcLen;) {
    if (n >= limit) {
      errno = ERANGE;
      return 0;
    }
    Decoded c = decode_one(s + i, terminated ? kUnbounded : srcLen - i);
    if (c.len == 0) {
      if (!errCount) {
        if (writing) dest[n] = 0;
        errno = EILSEQ;
        return 0;
      }
      ++*errCount;
      c = {substChar & 0xFFFFu, 1};
    }
    i += c.len;
    if (c.value >= 0x10000) {
      if (writing) dest[n] = static_cast<NUV_UTF16>(0xD800 + ((c.value - 0x10000) >> 10));
      ++n;
      if (n < limit) {
        if (writing) dest[n] = static_cast<NUV_UTF16>(0xDC00 + (c.value & 0x3FF));
        ++n;
      }
      continue;
    }
    if (writing) dest[n] = static_cast<NUV_UTF16>(c.value);
    ++n;
    if (terminated && c.value == 0) return n;
  }
  return n;
}

std::size_t Utf8s_To_U16(NUV_UTF16* dest, const char* src, std::size_t destLen) {
  if (dest && destLen == 0) return 0;
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  std::size_t n = 0;
  for (;;) {
    const Decoded c = decode_one(s, kUnbounded);
    if (c.len == 0) {
      errno = EILSEQ;
      return static_cast<std::size_t>(-1);
    }
    s += c.len;
    if (c.value == 0) {
      if (dest) dest[n] = 0;
      return n;
    }
    if (c.value >= 0x10000) {
      if (dest) dest[n] = static_cast<NUV_UTF16>(0xD800 + ((c.value - 0x10000) >> 10));
      if (!dest || n < destLen - 1) {
        ++n;
        if (dest) dest[n] = static_cast<NUV_UTF16>(0xDC00 + (c.value & 0x3FF));
      }
    } else if (dest) {
      dest[n] = static_cast<NUV_UTF16>(c.value);
    }
    ++n;
    if (dest && n == destLen) return n;
  }
}
