// Memory functions on UTF-16 units, heap forwards counted in units, the
// overlap-guarded copies and mblenU.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "common/nuv_internal.h"
#include "string/scan.h"

namespace {

// Forward copy: single byte, 16-bit and 32-bit stores until dest is 8-byte
// aligned (only when len >= 8), 64-bit words, then the 4/2/1-byte rest.  The
// order of loads and stores is fixed because callers who switch the overlap
// check off get exactly this pattern on overlapping ranges.
template <std::size_t N>
inline void step(unsigned char*& d, const unsigned char*& s) {
  unsigned char tmp[N];
  std::memcpy(tmp, s, N);
  std::memcpy(d, tmp, N);
  asm volatile("" ::: "memory");  // keep the chunk order; no merging into memmove
  d += N;
  s += N;
}

void forward_copy(void* dest, const void* src, std::size_t len) {
  auto* d = static_cast<unsigned char*>(dest);
  auto* s = static_cast<const unsigned char*>(src);
  if (len >= 8) {
    if (reinterpret_cast<std::uintptr_t>(d) & 1) step<1>(d, s), len -= 1;
    if (reinterpret_cast<std::uintptr_t>(d) & 2) step<2>(d, s), len -= 2;
    if (reinterpret_cast<std::uintptr_t>(d) & 4) step<4>(d, s), len -= 4;
    for (; len >= 8; len -= 8) step<8>(d, s);
  }
  if (len & 4) step<4>(d, s);
  if (len & 2) step<2>(d, s);
  if (len & 1) step<1>(d, s);
}

bool ranges_apart(const void* dest, const void* src, std::size_t len) {
  auto d = reinterpret_cast<std::uintptr_t>(dest), s = reinterpret_cast<std::uintptr_t>(src);
  return (s < d && d >= s + len) || s >= d + len;
}

void* guarded_copy(void* dest, const void* src, std::size_t len, std::size_t n, const char* fmt,
                   const char* file, int line) {
  if (!ranges_apart(dest, src, len)) {
    std::fprintf(stderr, fmt, src, dest, static_cast<int>(n), file, line);
    const char* chk = std::getenv("NUVMEMCPYCHK");
    if (!(chk && chk[0] == '0' && chk[1] == 0)) std::abort();
  }
  forward_copy(dest, src, len);
  return dest;
}

}  // namespace

extern "C" {

// Short counts stay in a plain loop: cheaper than reaching a kernel.
constexpr size_t kShort = 16;

NUV_API int memcmpU16(const NUV_UTF16* a, const NUV_UTF16* b, size_t n) {
  if (n < kShort) return nuv::memcmp_ref(a, b, n);
  return nuv::scan_kernels().memcmp(a, b, n);
}

NUV_API NUV_UTF16* memchrU16(const NUV_UTF16* s, int unit, size_t n) {
  const auto c = static_cast<NUV_UTF16>(unit);
  if (n < kShort) return const_cast<NUV_UTF16*>(nuv::memchr_ref(s, c, n));
  return const_cast<NUV_UTF16*>(nuv::scan_kernels().memchr(s, c, n));
}

NUV_API NUV_UTF16* memsetU16(NUV_UTF16* s, int unit, size_t n) {
  const auto u = static_cast<NUV_UTF16>(unit);
  if ((u >> 8) == (u & 0xFF)) {
    std::memset(s, u & 0xFF, n * sizeof(NUV_UTF16));
  } else {
    for (size_t i = 0; i < n; ++i) s[i] = u;
  }
  return s;
}

NUV_API NUV_UTF16* memcpyU(NUV_UTF16* dest, const NUV_UTF16* src, size_t n) {
  if (n == 0) return dest;
  const std::size_t len = n * 2;
  if (ranges_apart(dest, src, len)) {
    std::memcpy(dest, src, len);
  } else {
    // Overlap is the caller's fault; keep the byte-by-byte forward result.
    auto* d = reinterpret_cast<volatile unsigned char*>(dest);
    auto* s = reinterpret_cast<const volatile unsigned char*>(src);
    for (std::size_t i = 0; i < len; ++i) d[i] = s[i];
  }
  return dest;
}

NUV_API NUV_UTF16* memmoveU(NUV_UTF16* dest, const NUV_UTF16* src, size_t n) {
  return static_cast<NUV_UTF16*>(std::memmove(dest, src, n * 2));
}

NUV_API NUV_UTF16* memcpyUChk(NUV_UTF16* dest, const NUV_UTF16* src, size_t n, const char* file, int line) {
  return static_cast<NUV_UTF16*>(guarded_copy(
      dest, src, n * 2, n, "memcpyU overlapping - from: %p to: %p len: %d (%s:%d)\n", file, line));
}

NUV_API void* memcpyRChk(void* dest, const void* src, size_t n, const char* file, int line) {
  return guarded_copy(dest, src, n, n, "memcpyR overlapping - from: %p to: %p len: %d (%s:%d)\n", file, line);
}

NUV_API NUV_UTF16* mallocU(size_t n) {
  if (n > SIZE_MAX / 2) {
    errno = ENOMEM;
    return nullptr;
  }
  return static_cast<NUV_UTF16*>(std::malloc(n * 2));
}

NUV_API NUV_UTF16* reallocU(void* p, size_t n) {
  if (n > SIZE_MAX / 2) {
    errno = ENOMEM;
    return nullptr;
  }
  return static_cast<NUV_UTF16*>(std::realloc(p, n * 2));
}

NUV_API NUV_UTF16* callocU(size_t count, size_t n) {
  if (n > SIZE_MAX / 2) {
    errno = ENOMEM;
    return nullptr;
  }
  return static_cast<NUV_UTF16*>(std::calloc(count, n * 2));
}

NUV_API int mblenU(const NUV_UTF16* s, size_t n) {
  if (!s) return 0;
  const NUV_UTF16 u = s[0];
  if (u < 0xD800 || u > 0xDFFF) return 1;
  if (u <= 0xDBFF && n >= 2 && s[1] >= 0xDC00 && s[1] <= 0xDFFF) return 2;
  return -1;
}

NUV_API int checkArgs(const void* stream, const void* buffer, size_t size, size_t count) {
  if (!stream) {
    if (buffer && count == 0) return 0;
    if (!buffer && count != 0) {
      errno = EBADF;
      return -1;
    }
  }
  if (size != 0) return 1;
  errno = EINVAL;
  return -1;
}

}  // extern "C"

NUV_FORWARD(memcmpU, memcmpU16);
NUV_FORWARD(memchrU, memchrU16);
NUV_FORWARD(memsetU, memsetU16);
