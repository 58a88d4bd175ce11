// Uniquely named temporary files whose names end in a fixed suffix.
#include "platform/tempfile.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "common/nuv_internal.h"

namespace {

constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr unsigned kAttempts = 62 * 62 * 62;
constexpr unsigned kOtherFailures = 1000;

// Grows across calls, so names in one process repeat only after 62^6 calls.
std::atomic<unsigned long long> g_value{0};

template <class C>
std::size_t length(const C* s) {
  std::size_t n = 0;
  while (s[n]) ++n;
  return n;
}

int open_new(NUV_UTF16* tmpl) { return openU16(tmpl, O_RDWR | O_CREAT | O_EXCL, 0600); }
int open_new(char* tmpl) { return open64(tmpl, O_RDWR | O_CREAT | O_EXCL, 0600); }

template <class C>
int make_temp(C* tmpl, int suffixLength) {
  if (!tmpl || suffixLength < 0) {
    errno = EINVAL;
    return -1;
  }
  const std::size_t len = length(tmpl);
  const std::size_t suffix = static_cast<std::size_t>(suffixLength);
  if (len <= suffix + 5) {
    errno = EINVAL;
    return -1;
  }
  C* x = tmpl + len - suffix - 6;
  for (int i = 0; i < 6; ++i)
    if (x[i] != 'X') {
      errno = EINVAL;
      return -1;
    }

  timeval tv;
  gettimeofday(&tv, nullptr);
  const unsigned long long seed =
      ((static_cast<unsigned long long>(tv.tv_usec) << 16) ^ static_cast<unsigned long long>(tv.tv_sec)) ^
      static_cast<unsigned long long>(getpid());
  unsigned long long value = g_value.fetch_add(seed, std::memory_order_relaxed) + seed;

  unsigned others = 0;
  for (unsigned attempt = 0; attempt < kAttempts; ++attempt) {
    unsigned long long v = value;
    for (int i = 0; i < 6; ++i, v /= 62) x[i] = static_cast<C>(kAlphabet[v % 62]);
    const int fd = open_new(tmpl);
    if (fd >= 0) return fd;
    if (errno == EEXIST) {
      others = 0;
    } else if (++others >= kOtherFailures) {
      return -1;
    }
    value = g_value.fetch_add(1, std::memory_order_relaxed) + 1;
  }
  tmpl[0] = 0;
  tmpl[1] = 0;
  errno = EEXIST;
  return -1;
}

}  // namespace

extern "C" {

int NUV_mkstemps(NUV_UTF16* tmpl, int suffixLength) { return make_temp(tmpl, suffixLength); }
int NUV_mkstempsR(char* tmpl, int suffixLength) { return make_temp(tmpl, suffixLength); }

}  // extern "C"

unsigned long long nuv_mkstemps_counter_for_tests() { return g_value.load(std::memory_order_relaxed); }
void nuv_set_mkstemps_counter_for_tests(unsigned long long value) {
  g_value.store(value, std::memory_order_relaxed);
}
