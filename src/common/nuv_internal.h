// Shared helpers for the library's own sources: export and forward macros,
// relaxed access to process-wide settings, and sanitizer markers.
#pragma once

#include "nuvu16.h"

#include <atomic>
#include <cstdint>
#include <cstring>

// One-name forward: `NUV_FORWARD(strlenU, strlenU16)` makes strlenU another
// name of the same code, so the forward costs nothing.
#define NUV_FORWARD(alias_name, target_name) \
  extern "C" NUV_API decltype(target_name) alias_name __attribute__((alias(#target_name)))

// Aligned whole-block reads that may pass a terminator inside their block.
// They never cross a page, but AddressSanitizer (or ThreadSanitizer, which
// also checks heap bounds) cannot know that.
#define NUV_NO_ASAN __attribute__((no_sanitize_address, no_sanitize_thread))

namespace nuv {

// Process-wide settings are plain C variables (they are part of the ABI);
// the library reads and writes them relaxed so concurrent use is defined.
template <class T>
inline T load_relaxed(T& v) {
  return std::atomic_ref<T>(v).load(std::memory_order_relaxed);
}
template <class T>
inline void store_relaxed(T& v, T x) {
  std::atomic_ref<T>(v).store(x, std::memory_order_relaxed);
}

// Units at odd addresses are legal in callers' buffers; read them without
// assuming alignment.
inline char16_t unit_at(const char16_t* p) {
  char16_t u;
  std::memcpy(&u, p, sizeof u);
  return u;
}

}  // namespace nuv
