// Narrowing of wrapper arguments and widening of their results.
#include "os/narrow.h"

#include <emmintrin.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"

namespace nuv::os {

namespace {

// -1 not read yet, else 0 or 1.
std::atomic<int> g_pairs{-1};

}  // namespace

bool utf8_pairs() {
  int v = g_pairs.load(std::memory_order_relaxed);
  if (v < 0) {
    const char* e = std::getenv("NLSUI_UTF8_PAIRS");
    v = e && e[0] == '1' && e[1] == 0;
    g_pairs.store(v, std::memory_order_relaxed);
  }
  return v != 0;
}

void reread_utf8_pairs_for_tests() { g_pairs.store(-1, std::memory_order_relaxed); }

const char* narrow_into(char* buf, std::size_t size, const NUV_UTF16* text, const ArgSite& site) {
  if (!text) return nullptr;
  bool cut;
  U16s_To_Utf8s_Narrow(buf, text, size, utf8_pairs(), &cut);
  if (cut) {
    u16_array_short(site.limit.name, site.function, site.buffer, site.file, site.line);
    errno = ENAMETOOLONG;
  }
  return buf;
}

namespace {

// Units written, or -1 after a report.
long widen(NUV_UTF16* buf, std::size_t units, const ResultSite& site, const char* bytes) {
  const std::size_t n = Utf8s_To_U16(buf, bytes, units);
  if (n == static_cast<std::size_t>(-1)) {
    u16_utf8conv_error(buf, bytes, static_cast<long>(units), site.file, site.line_conv, site.function);
    return -1;
  }
  if (n == units) {
    u16_array_short(site.limit.name, site.function, site.buffer, site.file, site.line_short);
    errno = ENAMETOOLONG;
    return -1;
  }
  return static_cast<long>(n);
}

}  // namespace

NUV_UTF16* widen_static(NUV_UTF16* buf, const ResultSite& site, const char* bytes) {
  return widen(buf, site.limit.size, site, bytes) < 0 ? nullptr : buf;
}

long widen_caller(NUV_UTF16* buf, std::size_t units, const ResultSite& site, const char* bytes) {
  return widen(buf, units, site, bytes);
}

NUV_UTF16* widen_heap(const char* bytes, const ResultSite& site) {
  const std::size_t len = std::strlen(bytes);
  const std::size_t units = len + 1;  // never fewer units than bytes are needed
  auto* copy = static_cast<NUV_UTF16*>(std::malloc(units * sizeof(NUV_UTF16)));
  if (!copy) {
    u16_malloc_error(site.function, site.file, site.line_short);
    return nullptr;
  }
  // Most values are ASCII: with the length known they widen in whole blocks.
  if (Ascii_To_U16n(copy, bytes, len) == len) {
    copy[len] = 0;
    return copy;
  }
  if (widen(copy, units, site, bytes) < 0) {
    std::free(copy);
    return nullptr;
  }
  return copy;
}

namespace {

// Low bytes of 16 units at once; the bulk of an open trace.
inline void low_bytes16(char* dst, const NUV_UTF16* src) {
  const __m128i mask = _mm_set1_epi16(0x00FF);
  const __m128i a = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src)), mask);
  const __m128i b = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8)), mask);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(a, b));
}

}  // namespace

void trace_open(const NUV_UTF16* path, int fd, const char* function, const char* file, int line) {
  if (load_relaxed(u16_trace_level) < U16_TRACE_HIGH) return;
  char shortName[81];
  std::size_t len = static_cast<std::size_t>(strlenU16(path));
  if (len > 80) {
    path += len - 80;
    len = 80;
  }
  std::size_t i = 0;
  for (; i + 16 <= len; i += 16) low_bytes16(shortName + i, path + i);
  for (; i < len; ++i) shortName[i] = static_cast<char>(path[i] & 0xFF);
  shortName[len] = 0;
  u16_traceFopen(shortName, fd, function, file, line);
}

}  // namespace nuv::os
