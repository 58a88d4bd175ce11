// Unit-scanning kernels, written once over a vector shape V (simd.h).
//
// The terminator scans (strlen, strnlen, strchr) only ever load whole aligned
// blocks that hold at least one unit of the string, so a read past the
// terminator stays inside its block and can never touch another page.  They
// need an even (unit-aligned) start; odd starts go to the scalar code.
// The counted kernels (memchr, memcmp) load unaligned and never pass n.
#pragma once

#include "common/nuv_internal.h"
#include "string/simd.h"

namespace {

inline unsigned ctz64(std::uint64_t m) { return static_cast<unsigned>(__builtin_ctzll(m)); }

template <class V>
NUV_NO_ASAN inline typename V::T load_at(std::uintptr_t p) {
  return V::load(reinterpret_cast<const void*>(p));
}

template <class V>
NUV_NO_ASAN std::size_t k_strlen(const char16_t* s) {
  const auto z = V::zero();
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  std::uintptr_t p = a & ~(V::B - 1);
  std::uint64_t m = V::mask(V::eq(load_at<V>(p), z)) >> (a & (V::B - 1));
  if (m) return ctz64(m) >> 1;
  for (p += V::B; p & (4 * V::B - 1); p += V::B) {
    m = V::mask(V::eq(load_at<V>(p), z));
    if (m) return (p - a + ctz64(m)) >> 1;
  }
  for (;; p += 4 * V::B) {
    auto e0 = V::eq(load_at<V>(p), z), e1 = V::eq(load_at<V>(p + V::B), z);
    auto e2 = V::eq(load_at<V>(p + 2 * V::B), z), e3 = V::eq(load_at<V>(p + 3 * V::B), z);
    if (V::mask(V::or_(V::or_(e0, e1), V::or_(e2, e3)))) {
      if ((m = V::mask(e0))) return (p - a + ctz64(m)) >> 1;
      if ((m = V::mask(e1))) return (p + V::B - a + ctz64(m)) >> 1;
      if ((m = V::mask(e2))) return (p + 2 * V::B - a + ctz64(m)) >> 1;
      return (p + 3 * V::B - a + ctz64(V::mask(e3))) >> 1;
    }
  }
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
  std::uint64_t m = V::mask(V::eq(load_at<V>(p), z)) >> (a & (V::B - 1));
  if (m) return found(a + ctz64(m));
  for (p += V::B; p < lim;) {
    if (!(p & (4 * V::B - 1)) && lim - p >= 4 * V::B) {
      auto e0 = V::eq(load_at<V>(p), z), e1 = V::eq(load_at<V>(p + V::B), z);
      auto e2 = V::eq(load_at<V>(p + 2 * V::B), z), e3 = V::eq(load_at<V>(p + 3 * V::B), z);
      if (V::mask(V::or_(V::or_(e0, e1), V::or_(e2, e3)))) {
        if ((m = V::mask(e0))) return found(p + ctz64(m));
        if ((m = V::mask(e1))) return found(p + V::B + ctz64(m));
        if ((m = V::mask(e2))) return found(p + 2 * V::B + ctz64(m));
        return found(p + 3 * V::B + ctz64(V::mask(e3)));
      }
      p += 4 * V::B;
    } else {
      m = V::mask(V::eq(load_at<V>(p), z));
      if (m) return found(p + ctz64(m));
      p += V::B;
    }
  }
  return max;
}

// First unit equal to c or 0; returns null when the terminator comes first
// (unless c is 0 itself).
template <class V>
NUV_NO_ASAN const char16_t* k_strchr(const char16_t* s, char16_t c) {
  const auto z = V::zero();
  const auto cv = V::set1(c);
  const auto a = reinterpret_cast<std::uintptr_t>(s);
  auto hit = [&](std::uintptr_t at) -> const char16_t* {
    const auto* q = reinterpret_cast<const char16_t*>(at);
    return *q == c ? q : nullptr;
  };
  auto probe = [&](typename V::T v) { return V::or_(V::eq(v, z), V::eq(v, cv)); };
  std::uintptr_t p = a & ~(V::B - 1);
  std::uint64_t m = V::mask(probe(load_at<V>(p))) >> (a & (V::B - 1));
  if (m) return hit(a + ctz64(m));
  for (p += V::B; p & (4 * V::B - 1); p += V::B) {
    m = V::mask(probe(load_at<V>(p)));
    if (m) return hit(p + ctz64(m));
  }
  for (;; p += 4 * V::B) {
    auto e0 = probe(load_at<V>(p)), e1 = probe(load_at<V>(p + V::B));
    auto e2 = probe(load_at<V>(p + 2 * V::B)), e3 = probe(load_at<V>(p + 3 * V::B));
    if (V::mask(V::or_(V::or_(e0, e1), V::or_(e2, e3)))) {
      if ((m = V::mask(e0))) return hit(p + ctz64(m));
      if ((m = V::mask(e1))) return hit(p + V::B + ctz64(m));
      if ((m = V::mask(e2))) return hit(p + 2 * V::B + ctz64(m));
      return hit(p + 3 * V::B + ctz64(V::mask(e3)));
    }
  }
}

template <class V>
const char16_t* k_memchr(const char16_t* s, char16_t c, std::size_t n) {
  constexpr std::size_t U = V::B / 2;
  const auto cv = V::set1(c);
  std::size_t i = 0;
  for (; i + 4 * U <= n; i += 4 * U) {
    auto e0 = V::eq(V::loadu(s + i), cv), e1 = V::eq(V::loadu(s + i + U), cv);
    auto e2 = V::eq(V::loadu(s + i + 2 * U), cv), e3 = V::eq(V::loadu(s + i + 3 * U), cv);
    if (V::mask(V::or_(V::or_(e0, e1), V::or_(e2, e3)))) break;
  }
  for (; i + U <= n; i += U) {
    std::uint64_t m = V::mask(V::eq(V::loadu(s + i), cv));
    if (m) return s + i + (ctz64(m) >> 1);
  }
  for (; i < n; ++i)
    if (nuv::unit_at(s + i) == c) return s + i;
  return nullptr;
}

template <class V>
int k_memcmp(const char16_t* x, const char16_t* y, std::size_t n) {
  constexpr std::size_t U = V::B / 2;
  std::size_t i = 0;
  for (; i + 2 * U <= n; i += 2 * U) {
    auto e0 = V::eq(V::loadu(x + i), V::loadu(y + i));
    auto e1 = V::eq(V::loadu(x + i + U), V::loadu(y + i + U));
    if (V::mask(V::and_(e0, e1)) != V::all) break;
  }
  for (; i + U <= n; i += U) {
    std::uint64_t m = V::mask(V::eq(V::loadu(x + i), V::loadu(y + i)));
    if (m != V::all) {
      std::size_t j = i + (ctz64(~m) >> 1);
      return int(nuv::unit_at(x + j)) - int(nuv::unit_at(y + j));
    }
  }
  for (; i < n; ++i) {
    char16_t u = nuv::unit_at(x + i), v = nuv::unit_at(y + i);
    if (u != v) return int(u) - int(v);
  }
  return 0;
}

}  // namespace
