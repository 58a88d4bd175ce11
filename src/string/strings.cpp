// Zero-terminated UTF-16 string functions.  Units are unsigned and unpaired:
// a surrogate is just a unit here.
#include <emmintrin.h>

#include <cerrno>
#include <cstdlib>

#include "common/nuv_internal.h"
#include "string/scan.h"

namespace {

inline bool even(const void* p) { return (reinterpret_cast<std::uintptr_t>(p) & 1) == 0; }

// Zero lanes of the aligned 16-byte block holding s, from s on.  Short
// strings end here and never pay for the kernel call.
NUV_NO_ASAN inline std::uint32_t first_block_zeros(const NUV_UTF16* s) {
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(a & ~std::uintptr_t{15}));
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(v, _mm_setzero_si128()))) >> (a & 15);
}

NUV_NO_ASAN inline std::uint32_t first_block_matches(const NUV_UTF16* s, NUV_UTF16 c) {
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(a & ~std::uintptr_t{15}));
  const __m128i cv = _mm_set1_epi16(static_cast<short>(c));
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(v, cv))) >> (a & 15);
}

inline std::size_t ulen(const NUV_UTF16* s) {
  if (!even(s)) return nuv::strlen_ref(s);
  if (std::uint32_t m = first_block_zeros(s)) return static_cast<std::size_t>(__builtin_ctz(m)) >> 1;
  return nuv::scan_kernels().strlen(s);
}

// Copies len units and the terminator; short strings with a few overlapping
// fixed-size moves instead of a library call.
inline void copy_with_terminator(NUV_UTF16* dest, const NUV_UTF16* src, std::size_t len) {
  const std::size_t bytes = (len + 1) * sizeof(NUV_UTF16);
  auto* d = reinterpret_cast<char*>(dest);
  const auto* s = reinterpret_cast<const char*>(src);
  if (bytes <= 16) {
    if (bytes >= 8) {
      std::uint64_t x, y;
      std::memcpy(&x, s, 8);
      std::memcpy(&y, s + bytes - 8, 8);
      std::memcpy(d, &x, 8);
      std::memcpy(d + bytes - 8, &y, 8);
    } else if (bytes >= 4) {
      std::uint32_t x, y;
      std::memcpy(&x, s, 4);
      std::memcpy(&y, s + bytes - 4, 4);
      std::memcpy(d, &x, 4);
      std::memcpy(d + bytes - 4, &y, 4);
    } else {
      std::memcpy(d, s, 2);
    }
    return;
  }
  std::memcpy(d, s, bytes);
}

inline bool in_set(NUV_UTF16 u, const NUV_UTF16* set) {
  for (; *set; ++set)
    if (*set == u) return true;
  return false;
}

// Shared by strtokU16 and strtok_rU16: returns the token and the next start
// (null when the string is used up).
NUV_UTF16* next_token(NUV_UTF16* s, const NUV_UTF16* delim, NUV_UTF16** next) {
  s += strspnU16(s, delim);
  if (*s == 0) return nullptr;
  NUV_UTF16* end = strpbrkU16(s, delim);
  if (end) {
    *end = 0;
    *next = end + 1;
  } else {
    *next = s + ulen(s);
  }
  return s;
}

NUV_UTF16* g_strtok_pos = nullptr;  // one position for the whole process

}  // namespace

extern "C" {

NUV_API long strlenU16(const NUV_UTF16* s) { return static_cast<long>(ulen(s)); }

NUV_API size_t strnlenU16(const NUV_UTF16* s, size_t max) {
  if (max == 0) return 0;
  if (!even(s)) return nuv::strnlen_ref(s, max);
  // The first block overlaps [s, s + max) whatever max is.
  if (std::uint32_t m = first_block_zeros(s)) {
    std::size_t n = static_cast<std::size_t>(__builtin_ctz(m)) >> 1;
    return n < max ? n : max;
  }
  return nuv::scan_kernels().strnlen(s, max);
}

NUV_API NUV_UTF16* strcpyU16(NUV_UTF16* dest, const NUV_UTF16* src) {
  copy_with_terminator(dest, src, ulen(src));
  return dest;
}

NUV_API NUV_UTF16* strcatU16(NUV_UTF16* dest, const NUV_UTF16* src) {
  strcpyU16(dest + ulen(dest), src);
  return dest;
}

NUV_API NUV_UTF16* strncpyU16(NUV_UTF16* dest, const NUV_UTF16* src, size_t n) {
  std::size_t len = strnlenU16(src, n);
  std::memcpy(dest, src, len * sizeof(NUV_UTF16));
  if (len < n) std::memset(dest + len, 0, (n - len) * sizeof(NUV_UTF16));
  return dest;
}

NUV_API NUV_UTF16* strncatU16(NUV_UTF16* dest, const NUV_UTF16* src, size_t n) {
  NUV_UTF16* end = dest + ulen(dest);
  std::size_t len = strnlenU16(src, n);
  std::memcpy(end, src, len * sizeof(NUV_UTF16));
  end[len] = 0;
  return dest;
}

NUV_API int strcmpU16(const NUV_UTF16* a, const NUV_UTF16* b) {
  for (;; ++a, ++b) {
    NUV_UTF16 x = *a, y = *b;
    if (x != y || x == 0) return int(x) - int(y);
  }
}

NUV_API int strncmpU16(const NUV_UTF16* a, const NUV_UTF16* b, size_t n) {
  for (; n; --n, ++a, ++b) {
    NUV_UTF16 x = *a, y = *b;
    if (x != y || x == 0) return int(x) - int(y);
  }
  return 0;
}

NUV_API NUV_UTF16* strchrU16(const NUV_UTF16* s, int unit) {
  const auto c = static_cast<NUV_UTF16>(unit);
  if (!even(s)) return const_cast<NUV_UTF16*>(nuv::strchr_ref(s, c));
  // A short string that ends in its first block: the first zero or c decides.
  if (std::uint32_t m = first_block_zeros(s)) {
    const NUV_UTF16* p = s + (__builtin_ctz(m | first_block_matches(s, c)) >> 1);
    return *p == c ? const_cast<NUV_UTF16*>(p) : nullptr;
  }
  return const_cast<NUV_UTF16*>(nuv::scan_kernels().strchr(s, c));
}

NUV_API NUV_UTF16* strrchrU16(const NUV_UTF16* s, int unit) {
  const auto c = static_cast<NUV_UTF16>(unit);
  std::size_t len = ulen(s);
  if (c == 0) return const_cast<NUV_UTF16*>(s + len);
  for (std::size_t i = len; i-- > 0;)
    if (s[i] == c) return const_cast<NUV_UTF16*>(s + i);
  return nullptr;
}

NUV_API NUV_UTF16* strpbrkU16(const NUV_UTF16* s, const NUV_UTF16* set) {
  if (set[0] == 0) return nullptr;
  if (set[1] == 0) {
    NUV_UTF16* r = strchrU16(s, set[0]);
    return r;
  }
  for (; *s; ++s)
    if (in_set(*s, set)) return const_cast<NUV_UTF16*>(s);
  return nullptr;
}

NUV_API size_t strspnU16(const NUV_UTF16* s, const NUV_UTF16* set) {
  const NUV_UTF16* p = s;
  while (*p && in_set(*p, set)) ++p;
  return static_cast<size_t>(p - s);
}

NUV_API size_t strcspnU16(const NUV_UTF16* s, const NUV_UTF16* set) {
  const NUV_UTF16* p = s;
  while (*p && !in_set(*p, set)) ++p;
  return static_cast<size_t>(p - s);
}

// Plain search with a two-unit filter: no tables, no allocation.
NUV_API NUV_UTF16* strstrU16(const NUV_UTF16* hay, const NUV_UTF16* needle) {
  if (needle[0] == 0) return const_cast<NUV_UTF16*>(hay);
  const NUV_UTF16* p = strchrU16(hay, needle[0]);
  if (!p) return nullptr;
  if (needle[1] == 0) return const_cast<NUV_UTF16*>(p);
  const NUV_UTF16 n0 = needle[0], n1 = needle[1];
  for (; p[0]; ++p) {
    if (p[0] != n0 || p[1] != n1) continue;
    std::size_t i = 2;
    while (needle[i] && p[i] == needle[i]) ++i;
    if (needle[i] == 0) return const_cast<NUV_UTF16*>(p);
  }
  return nullptr;
}

NUV_API NUV_UTF16* strdupU16(const NUV_UTF16* s) {
  std::size_t bytes = (ulen(s) + 1) * sizeof(NUV_UTF16);
  auto* d = static_cast<NUV_UTF16*>(std::malloc(bytes));
  if (d) std::memcpy(d, s, bytes);
  return d;
}

NUV_API NUV_UTF16* strtokU16(NUV_UTF16* s, const NUV_UTF16* delim) {
  if (!s) s = g_strtok_pos;
  if (!s) return nullptr;
  NUV_UTF16* next = nullptr;
  NUV_UTF16* tok = next_token(s, delim, &next);
  if (tok) g_strtok_pos = next;
  return tok;
}

NUV_API NUV_UTF16* strtok_rU16(NUV_UTF16* s, const NUV_UTF16* delim, NUV_UTF16** saved) {
  if (!s) {
    s = *saved;
    if (!s) {
      errno = EINVAL;
      return nullptr;
    }
  }
  NUV_UTF16* next = nullptr;
  NUV_UTF16* tok = next_token(s, delim, &next);
  // The caller's pointer goes null once a call finds no token, so one more
  // call with a null string is caught as misuse.
  *saved = tok ? next : nullptr;
  return tok;
}

NUV_API char* strtok_rRFB(char* s, const char* delim, char** saved) {
  if (!s) {
    s = *saved;
    if (!s) {
      errno = EINVAL;
      return nullptr;
    }
  }
  s += std::strspn(s, delim);
  if (*s == 0) {
    *saved = nullptr;
    return nullptr;
  }
  char* end = std::strpbrk(s, delim);
  if (end) {
    *end = 0;
    *saved = end + 1;
  } else {
    *saved = s + std::strlen(s);
  }
  return s;
}

NUV_API size_t strnlenRFB(const char* s, size_t max) { return ::strnlen(s, max); }

}  // extern "C"

NUV_FORWARD(strlenU, strlenU16);
NUV_FORWARD(strcpyU, strcpyU16);
NUV_FORWARD(strcatU, strcatU16);
NUV_FORWARD(strncpyU, strncpyU16);
NUV_FORWARD(strncatU, strncatU16);
NUV_FORWARD(strcmpU, strcmpU16);
NUV_FORWARD(strncmpU, strncmpU16);
NUV_FORWARD(strchrU, strchrU16);
NUV_FORWARD(strrchrU, strrchrU16);
NUV_FORWARD(strpbrkU, strpbrkU16);
NUV_FORWARD(strspnU, strspnU16);
NUV_FORWARD(strcspnU, strcspnU16);
NUV_FORWARD(strstrU, strstrU16);
NUV_FORWARD(strdupU, strdupU16);
NUV_FORWARD(strtokU, strtokU16);
NUV_FORWARD(strtok_rU, strtok_rU16);
