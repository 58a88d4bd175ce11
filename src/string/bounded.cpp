// Bounded string and memory copies for UTF-16 units and, with the same rules
// in bytes, their narrow RFB twins.  Results are returned, never put in errno.
#include <cerrno>

#include "common/nuv_internal.h"

namespace {

template <class C>
std::size_t bounded_len(const C* s, std::size_t max) {
  if constexpr (sizeof(C) == 1) {
    return ::strnlen(s, max);
  } else {
    return strnlenU16(s, max);
  }
}

template <class C>
int strcpy_s_impl(C* dest, std::size_t size, const C* src) {
  if (size == 0) return 0;
  // Copy as far as it fits; a source that did not end in time empties dest.
  std::size_t len = bounded_len(src, size);
  if (len == size) {
    std::memcpy(dest, src, size * sizeof(C));
    dest[0] = 0;
    return ERANGE;
  }
  std::memcpy(dest, src, (len + 1) * sizeof(C));
  return 0;
}

template <class C>
int strcat_s_impl(C* dest, std::size_t size, const C* src) {
  std::size_t len = bounded_len(dest, size);
  if (len == size) return ERANGE;  // dest not terminated: leave it alone
  const std::size_t room = size - len;
  const std::size_t slen = bounded_len(src, room);
  if (slen == room) {  // no room for the terminator: copy what fits, then empty dest
    std::memcpy(dest + len, src, room * sizeof(C));
    dest[0] = 0;
    return ERANGE;
  }
  std::memcpy(dest + len, src, (slen + 1) * sizeof(C));
  return 0;
}

template <class C>
int strncat_s_impl(C* dest, std::size_t size, const C* src, std::size_t count) {
  std::size_t len = bounded_len(dest, size);
  if (len == size) return ERANGE;
  std::size_t room = size - len;
  std::size_t take = bounded_len(src, count < room ? count : room);
  if (count >= room && take == room) {
    dest[0] = 0;
    return ERANGE;
  }
  std::memcpy(dest + len, src, take * sizeof(C));
  dest[len + take] = 0;
  return 0;
}

template <class C>
int strncpy_s_impl(C* dest, std::size_t size, const C* src, std::size_t count) {
  std::size_t n = count < size ? count + 1 : size;  // min(count + 1, size) without overflow
  if (n == 0) return 0;
  std::size_t len = bounded_len(src, n);
  if (len == n) {
    std::memcpy(dest, src, (n - 1) * sizeof(C));
    dest[n - 1] = 0;  // silent truncation
  } else {
    std::memcpy(dest, src, (len + 1) * sizeof(C));
  }
  return 0;
}

int memcpy_s_bytes(void* dest, std::size_t size_bytes, const void* src, std::size_t count_bytes, bool move) {
  if (count_bytes > size_bytes) {
    std::memset(dest, 0, size_bytes);
    return ERANGE;
  }
  if (move)
    std::memmove(dest, src, count_bytes);
  else if (count_bytes)
    std::memcpy(dest, src, count_bytes);
  return 0;
}

}  // namespace

extern "C" {

NUV_API int strcpy_sU16(NUV_UTF16* d, size_t size, const NUV_UTF16* s) { return strcpy_s_impl(d, size, s); }
NUV_API int strcpy_sRFB(char* d, size_t size, const char* s) { return strcpy_s_impl(d, size, s); }
NUV_API int strcat_sU16(NUV_UTF16* d, size_t size, const NUV_UTF16* s) { return strcat_s_impl(d, size, s); }
NUV_API int strcat_sRFB(char* d, size_t size, const char* s) { return strcat_s_impl(d, size, s); }
NUV_API int strncat_sU16(NUV_UTF16* d, size_t size, const NUV_UTF16* s, size_t count) {
  return strncat_s_impl(d, size, s, count);
}
NUV_API int strncat_sRFB(char* d, size_t size, const char* s, size_t count) {
  return strncat_s_impl(d, size, s, count);
}
NUV_API int strncpy_sU16(NUV_UTF16* d, size_t size, const NUV_UTF16* s, size_t count) {
  return strncpy_s_impl(d, size, s, count);
}
NUV_API int strncpy_sRFB(char* d, size_t size, const char* s, size_t count) {
  return strncpy_s_impl(d, size, s, count);
}

// Unit forms: a count beyond size (or one too large to be a byte count) fails.
NUV_API int memcpy_sU16(NUV_UTF16* d, size_t size, const NUV_UTF16* s, size_t count) {
  if (count > size) return memcpy_s_bytes(d, size * 2, s, SIZE_MAX, false);
  return memcpy_s_bytes(d, size * 2, s, count * 2, false);
}
NUV_API int memmove_sU16(NUV_UTF16* d, size_t size, const NUV_UTF16* s, size_t count) {
  if (count > size) return memcpy_s_bytes(d, size * 2, s, SIZE_MAX, true);
  return memcpy_s_bytes(d, size * 2, s, count * 2, true);
}
NUV_API int memcpy_sRFB(void* d, size_t size, const void* s, size_t count) {
  return memcpy_s_bytes(d, size, s, count, false);
}
NUV_API int memmove_sRFB(void* d, size_t size, const void* s, size_t count) {
  return memcpy_s_bytes(d, size, s, count, true);
}

}  // extern "C"
