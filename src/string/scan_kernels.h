// Unit-scanning kernels, written once over a vector shape V (simd.h).
//
// The terminator scans (strlen, strnlen, strchr) only ever load whole aligned
// blocks that hold at least one unit of the string, so a read past the
// terminator stays inside its block and can never touch another page.  They
// need an even (unit-aligned) start; odd starts go to the scalar code.
// The counted kernels (memchr, memcmp) never load past n.
//
// Four blocks are folded into one before the test: a lane is zero in
// min(a, b) when it is zero in either, and a ^ c is zero exactly where a
// equals c.  Without a minimum (SSE2) the compares are or-ed instead.
#pragma once

#include "common/nuv_internal.h"
#include "string/simd.h"

namespace {

inline unsigned ctz64(std::uint64_t m) { return static_cast<unsigned>(__builtin_ctzll(m)); }

// Byte offset of the first lane set in m.
template <class V>
inline std::size_t first_byte(std::uint64_t m) {
  return static_cast<std::size_t>(ctz64(m)) * (2 / V::UPB);
}
// m without the lanes of the first `bytes` bytes (bytes even).
template <class V>
inline std::uint64_t drop_bytes(std::uint64_t m, std::size_t bytes) {
  return m >> (bytes / (2 / V::UPB));
}

template <class V>
NUV_NO_ASAN inline typename V::T load_at(std::uintptr_t p) {
  return V::load(reinterpret_cast<const void*>(p));
}

// Lanes of one block that stop the scan: zero, or (WithC) zero or c.
template <class V, bool WithC>
NUV_NO_ASAN inline std::uint64_t stop_mask(std::uintptr_t p, typename V::T cv) {
  const auto v = load_at<V>(p);
  if constexpr (WithC) return V::eqmask(v, V::zero()) | V::eqmask(v, cv);
  return V::eqmask(v, V::zero());
}

// Whether any lane of the four blocks at p stops the scan.
template <class V, bool WithC>
NUV_NO_ASAN inline bool any_stop4(std::uintptr_t p, typename V::T cv) {
  const auto z = V::zero();
  auto a0 = load_at<V>(p), a1 = load_at<V>(p + V::B), a2 = load_at<V>(p + 2 * V::B), a3 = load_at<V>(p + 3 * V::B);
  if constexpr (V::has_min) {
    if constexpr (WithC) {
      a0 = V::min(a0, V::xor_(a0, cv));
      a1 = V::min(a1, V::xor_(a1, cv));
      a2 = V::min(a2, V::xor_(a2, cv));
      a3 = V::min(a3, V::xor_(a3, cv));
    }
    return V::eqmask(V::min(V::min(a0, a1), V::min(a2, a3)), z) != 0;
  } else {
    auto e0 = V::eq(a0, z), e1 = V::eq(a1, z), e2 = V::eq(a2, z), e3 = V::eq(a3, z);
    if constexpr (WithC) {
      e0 = V::or_(e0, V::eq(a0, cv));
      e1 = V::or_(e1, V::eq(a1, cv));
      e2 = V::or_(e2, V::eq(a2, cv));
      e3 = V::or_(e3, V::eq(a3, cv));
    }
    return V::nonzero(V::or_(V::or_(e0, e1), V::or_(e2, e3)));
  }
}

// Byte address of the first stop at or after a, without a bound: single
// blocks up to a 4-block boundary, then four at a time.
template <class V, bool WithC>
NUV_NO_ASAN std::uintptr_t find_stop(std::uintptr_t a, typename V::T cv) {
  std::uintptr_t p = a & ~(V::B - 1);
  std::uint64_t m = drop_bytes<V>(stop_mask<V, WithC>(p, cv), a & (V::B - 1));
  if (m) return a + first_byte<V>(m);
  for (p += V::B; p & (4 * V::B - 1); p += V::B)
    if ((m = stop_mask<V, WithC>(p, cv))) return p + first_byte<V>(m);
  while (!any_stop4<V, WithC>(p, cv)) p += 4 * V::B;
  for (;; p += V::B)
    if ((m = stop_mask<V, WithC>(p, cv))) return p + first_byte<V>(m);
}

template <class V>
std::size_t k_strlen(const char16_t* s) {
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  return (find_stop<V, false>(a, V::zero()) - a) >> 1;
}

template <class V>
const char16_t* k_strchr(const char16_t* s, char16_t c) {
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  const auto* q = reinterpret_cast<const char16_t*>(find_stop<V, true>(a, V::set1(c)));
  return *q == c ? q : nullptr;
}

template <class V>
const char16_t* k_strchrnul(const char16_t* s, char16_t c) {
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  return reinterpret_cast<const char16_t*>(find_stop<V, true>(a, V::set1(c)));
}

// max > 0.  Loads stay within aligned blocks that overlap [s, s + max).
template <class V>
NUV_NO_ASAN std::size_t k_strnlen(const char16_t* s, std::size_t max) {
  const auto z = V::zero();
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  const std::uintptr_t lim = max >= (UINTPTR_MAX - a) / 2 ? UINTPTR_MAX : a + 2 * max;
  auto found = [&](std::uintptr_t at) {
    std::size_t n = (at - a) >> 1;
    return n < max ? n : max;
  };
  std::uintptr_t p = a & ~(V::B - 1);
  std::uint64_t m = drop_bytes<V>(stop_mask<V, false>(p, z), a & (V::B - 1));
  if (m) return found(a + first_byte<V>(m));
  for (p += V::B; p < lim && (p & (4 * V::B - 1)); p += V::B)
    if ((m = stop_mask<V, false>(p, z))) return found(p + first_byte<V>(m));
  while (p < lim && lim - p >= 4 * V::B && !any_stop4<V, false>(p, z)) p += 4 * V::B;
  for (; p < lim; p += V::B)
    if ((m = stop_mask<V, false>(p, z))) return found(p + first_byte<V>(m));
  return max;
}

// After one unaligned block the loads are aligned
// (when s is even), so no load splits a cache line; the last block is an
// overlapping unaligned load that ends exactly at n.
template <class V>
const char16_t* k_memchr(const char16_t* s, char16_t c, std::size_t n) {
  constexpr std::size_t U = V::B / 2;
  const auto cv = V::set1(c);
  if (n < U) {
    for (std::size_t i = 0; i < n; ++i)
      if (nuv::unit_at(s + i) == c) return s + i;
    return nullptr;
  }
  std::uint64_t m = V::eqmask(V::loadu(s), cv);
  if (m) return s + first_byte<V>(m) / 2;
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  std::size_t i = (a & 1) ? U : ((V::B - (a & (V::B - 1))) & (V::B - 1)) / 2;
  if (i == 0) i = U;
  for (; i + 4 * U <= n; i += 4 * U) {
    auto a0 = V::loadu(s + i), a1 = V::loadu(s + i + U), a2 = V::loadu(s + i + 2 * U), a3 = V::loadu(s + i + 3 * U);
    bool hit;
    if constexpr (V::has_min) {
      hit = V::eqmask(V::min(V::min(V::xor_(a0, cv), V::xor_(a1, cv)), V::min(V::xor_(a2, cv), V::xor_(a3, cv))),
                      V::zero()) != 0;
    } else {
      hit = V::nonzero(V::or_(V::or_(V::eq(a0, cv), V::eq(a1, cv)), V::or_(V::eq(a2, cv), V::eq(a3, cv))));
    }
    if (hit) break;
  }
  for (; i + U <= n; i += U)
    if ((m = V::eqmask(V::loadu(s + i), cv))) return s + i + first_byte<V>(m) / 2;
  if (i < n) {
    m = drop_bytes<V>(V::eqmask(V::loadu(s + n - U), cv), 2 * (i - (n - U)));
    if (m) return s + i + first_byte<V>(m) / 2;
  }
  return nullptr;
}

template <class V>
int k_memcmp(const char16_t* x, const char16_t* y, std::size_t n) {
  constexpr std::size_t U = V::B / 2;
  auto diff_at = [&](std::size_t i, std::uint64_t eq) {
    std::size_t j = i + first_byte<V>(~eq & V::all) / 2;
    return int(nuv::unit_at(x + j)) - int(nuv::unit_at(y + j));
  };
  std::size_t i = 0;
  if (n >= 5 * U) {
    // One unaligned block, then x is read on block boundaries (when even).
    std::uint64_t eq = V::eqmask(V::loadu(x), V::loadu(y));
    if (eq != V::all) return diff_at(0, eq);
    const auto a = reinterpret_cast<std::uintptr_t>(x);
    i = (a & 1) ? U : ((V::B - (a & (V::B - 1))) & (V::B - 1)) / 2;
    if (i == 0) i = U;
  }
  for (; i + 4 * U <= n; i += 4 * U) {
    auto d0 = V::xor_(V::loadu(x + i), V::loadu(y + i));
    auto d1 = V::xor_(V::loadu(x + i + U), V::loadu(y + i + U));
    auto d2 = V::xor_(V::loadu(x + i + 2 * U), V::loadu(y + i + 2 * U));
    auto d3 = V::xor_(V::loadu(x + i + 3 * U), V::loadu(y + i + 3 * U));
    if (V::nonzero(V::or_(V::or_(d0, d1), V::or_(d2, d3)))) break;
  }
  for (; i + U <= n; i += U) {
    std::uint64_t eq = V::eqmask(V::loadu(x + i), V::loadu(y + i));
    if (eq != V::all) return diff_at(i, eq);
  }
  if (i < n && n >= U) {
    const std::size_t k = n - U;  // overlapping last block; lanes before i are equal
    std::uint64_t eq = V::eqmask(V::loadu(x + k), V::loadu(y + k));
    if (eq != V::all) return diff_at(k, eq);
    return 0;
  }
  for (; i < n; ++i) {
    char16_t u = nuv::unit_at(x + i), v = nuv::unit_at(y + i);
    if (u != v) return int(u) - int(v);
  }
  return 0;
}

}  // namespace
