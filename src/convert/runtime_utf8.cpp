#include "convert/runtime_utf8.h"

#include <emmintrin.h>

#include <cerrno>
#include <cstdint>

#include "common/nuv_internal.h"

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

// Bytes of one page left from p: a 16-byte load from p stays inside the page
// (and so inside mapped memory) when this is at least 16.
inline std::size_t page_room(const void* p) { return 4096 - (reinterpret_cast<std::uintptr_t>(p) & 4095); }

// Sixteen units at src are packed into sixteen bytes at dest; returns how
// many of them, from the first, are 1..0x7F (so the bytes are their UTF-8),
// 16 for all.  The bytes after those are not meaningful.  The loads may pass
// the terminator inside the page, which the sanitizer cannot know is harmless.
NUV_NO_ASAN inline unsigned ascii16(char* dest, const NUV_UTF16* src) {
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
  const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8));
  // Adding 0x7F80 with saturation sets the top bit of every unit above 0x7F;
  // a zero unit compares to all ones.
  const __m128i k = _mm_set1_epi16(0x7F80);
  const __m128i zero = _mm_setzero_si128();
  const __m128i bad_a = _mm_or_si128(_mm_adds_epu16(a, k), _mm_cmpeq_epi16(a, zero));
  const __m128i bad_b = _mm_or_si128(_mm_adds_epu16(b, k), _mm_cmpeq_epi16(b, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dest), _mm_packus_epi16(a, b));
  const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(bad_a, bad_b)));
  return mask ? static_cast<unsigned>(__builtin_ctz(mask)) : 16;
}

// Sixteen bytes at src are widened into sixteen units at dest; returns how
// many of them, from the first, are 1..0x7F.  Same page rule as above.
NUV_NO_ASAN inline unsigned ascii16_widen(NUV_UTF16* dest, const unsigned char* src) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dest), _mm_unpacklo_epi8(v, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dest + 8), _mm_unpackhi_epi8(v, zero));
  const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(v, _mm_cmpeq_epi8(v, zero))));
  return mask ? static_cast<unsigned>(__builtin_ctz(mask)) : 16;
}

// Eight bytes at src widened into eight units; returns the leading count
// of bytes 1..0x7F, as above.
NUV_NO_ASAN inline unsigned ascii8_widen(NUV_UTF16* dest, const unsigned char* src) {
  const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dest), _mm_unpacklo_epi8(v, zero));
  const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(v, _mm_cmpeq_epi8(v, zero)))) & 0xFF;
  return mask ? static_cast<unsigned>(__builtin_ctz(mask)) : 8;
}

}  // namespace

std::size_t U16s_To_Utf8s_Narrow(char* dest, const NUV_UTF16* src, std::size_t destSize, bool pairs, bool* cut) {
  const std::size_t room = destSize - 1;  // one byte is kept for the terminator
  std::size_t n = 0;
  for (;;) {
    // Whole blocks of ASCII while the buffer has room for sixteen bytes
    // more; the block that holds the end of the run is taken up to it.
    while (n + 16 <= room && page_room(src) >= 32) {
      const unsigned k = ascii16(dest + n, src);
      n += k;
      src += k;
      if (k < 16) break;
    }
    const NUV_UTF16 u = nuv::unit_at(src);  // callers' texts may sit at odd addresses
    if (u == 0) {
      *cut = false;
      break;
    }
    const NUV_UTF16 next = (u & 0xFC00) == 0xD800 ? nuv::unit_at(src + 1) : 0;
    if (pairs && (next & 0xFC00) == 0xDC00) {
      if (n + 4 > room) {
        *cut = true;
        break;
      }
      const unsigned v = 0x10000u + ((u - 0xD800u) << 10) + (next - 0xDC00u);
      dest[n++] = static_cast<char>(0xF0 | (v >> 18));
      dest[n++] = static_cast<char>(0x80 | ((v >> 12) & 0x3F));
      dest[n++] = static_cast<char>(0x80 | ((v >> 6) & 0x3F));
      dest[n++] = static_cast<char>(0x80 | (v & 0x3F));
      src += 2;
      continue;
    }
    const std::size_t need = unit_bytes(u);
    if (n + need > room) {
      *cut = true;
      break;
    }
    n = static_cast<std::size_t>(put_unit(dest + n, u) - dest);
    ++src;
  }
  dest[n] = 0;
  return n;
}

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

// Bytes of a rejected sequence that still looked right: the lead and the
// follow-up bytes after it, up to the length the lead announces.
inline std::size_t rejected_length(const unsigned char* s, std::size_t left) {
  const unsigned b = s[0];
  const std::size_t want = (b & 0xE0) == 0xC0 ? 2 : (b & 0xF0) == 0xE0 ? 3 : (b & 0xF8) == 0xF0 ? 4 : 1;
  std::size_t k = 1;
  while (k < want && k < left && follow(s[k])) ++k;
  return k;
}

template <bool kSkipRejected>
std::size_t utf8n_to_u16(NUV_UTF16* dest, std::size_t destLen, const char* src, std::size_t srcLen,
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
      const std::size_t left = terminated ? kUnbounded : srcLen - i;
      c = {substChar & 0xFFFFu, kSkipRejected ? rejected_length(s + i, left) : 1};
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

}  // namespace

std::size_t Utf8n_To_U16(NUV_UTF16* dest, std::size_t destLen, const char* src, std::size_t srcLen,
                         std::size_t* errCount, unsigned int substChar) {
  return utf8n_to_u16<false>(dest, destLen, src, srcLen, errCount, substChar);
}

std::size_t Utf8n_To_U16_Whole(NUV_UTF16* dest, std::size_t destLen, const char* src, std::size_t srcLen,
                               std::size_t* errCount, unsigned int substChar) {
  return utf8n_to_u16<true>(dest, destLen, src, srcLen, errCount, substChar);
}

namespace {

// Sixteen bytes at s widened into dest; the mask of those at or above 0x80.
inline unsigned widen16(NUV_UTF16* dest, const unsigned char* s) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dest), _mm_unpacklo_epi8(v, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dest + 8), _mm_unpackhi_epi8(v, zero));
  return static_cast<unsigned>(_mm_movemask_epi8(v));
}

}  // namespace

std::size_t Ascii_To_U16n(NUV_UTF16* dest, const char* src, std::size_t len) {
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  // The length is known, so whole blocks are read only inside the text; the
  // last block overlaps the one before rather than going byte by byte.
  if (len < 16) {
    std::size_t i = 0;
    for (; i < len && s[i] < 0x80; ++i) dest[i] = s[i];
    return i;
  }
  std::size_t i = 0;
  for (; i + 32 <= len; i += 32) {
    const unsigned high = widen16(dest + i, s + i) | widen16(dest + i + 16, s + i + 16) << 16;
    if (high) return i + static_cast<unsigned>(__builtin_ctz(high));
  }
  if (i + 16 <= len) {
    if (const unsigned high = widen16(dest + i, s + i)) return i + static_cast<unsigned>(__builtin_ctz(high));
    i += 16;
  }
  if (i < len) {
    const std::size_t at = len - 16;
    if (const unsigned high = widen16(dest + at, s + at) >> (i - at)) return i + static_cast<unsigned>(__builtin_ctz(high));
  }
  return len;
}

std::size_t Utf8s_To_U16(NUV_UTF16* dest, const char* src, std::size_t destLen) {
  if (dest && destLen == 0) return 0;
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  std::size_t n = 0;
  for (;;) {
    if (dest) {
      unsigned k = 16;
      while (k == 16 && n + 16 < destLen && page_room(s) >= 16) {
        k = ascii16_widen(dest + n, s);
        n += k, s += k;
      }
      // The end of a text is often closer than a whole block.
      if (k == 16 && n + 8 < destLen && page_room(s) >= 8) {
        k = ascii8_widen(dest + n, s);
        n += k, s += k;
      }
    }
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
