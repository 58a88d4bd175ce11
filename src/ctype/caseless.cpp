// Case-insensitive comparison and case conversion of zero-terminated text.
// UTF-16 forms map through the current tolowerU/toupperU entries, one unit at
// a time; the narrow R forms through the C library's locale tables.
//
// Fast paths: blocks of eight ASCII units are handled in SSE2 registers.
// The conversions never hand ASCII to the mapping, so that is always exact.
// The comparisons hand every unit to tolowerU; they take the ASCII shortcut
// only while tolowerU is a target whose ASCII answers are the plain ones and
// say nothing (ICU's, the built-in table, the 7-bit fallback), and skip equal
// units only while it is also free of reports (not the fallback).  ICU's
// answers are cached per block of the BMP (see CaseCache).
#include <emmintrin.h>

#include <cctype>
#include <cstdint>

#include "common/nuv_internal.h"
#include "ctype/caseless.h"
#include "ctype/ctype_tables.h"
#include "ctype/icu_loader.h"

using nuv::load_relaxed;
using nuv::unit_at;

namespace {

constexpr std::size_t kNoLimit = SIZE_MAX;

inline std::uint32_t ascii_lower(std::uint32_t u) { return (u - 'A' < 26u) ? u + 0x20 : u; }
inline std::uint32_t ascii_upper(std::uint32_t u) { return (u - 'a' < 26u) ? u - 0x20 : u; }

// 16 bytes at p can be read without touching the next page.
inline bool block_in_page(const void* p) { return (reinterpret_cast<std::uintptr_t>(p) & 4095u) <= 4096u - 16u; }

NUV_NO_ASAN inline __m128i load8(const NUV_UTF16* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void store8(NUV_UTF16* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Masks of the lanes that are zero / not 7-bit.
inline bool has_zero(__m128i v) { return _mm_movemask_epi8(_mm_cmpeq_epi16(v, _mm_setzero_si128())) != 0; }
inline bool all_ascii(__m128i v) {
  return _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80))),
                                           _mm_setzero_si128())) == 0xFFFF;
}

// Shifts the lanes in [lo, lo+25] by delta (signed compare is fine: all < 0x80).
inline __m128i shift_range(__m128i v, char lo, short delta) {
  const __m128i in = _mm_and_si128(_mm_cmpgt_epi16(v, _mm_set1_epi16(lo - 1)), _mm_cmplt_epi16(v, _mm_set1_epi16(lo + 26)));
  return _mm_add_epi16(v, _mm_and_si128(in, _mm_set1_epi16(delta)));
}
inline __m128i lower8(__m128i v) { return shift_range(v, 'A', 0x20); }
inline __m128i upper8(__m128i v) { return shift_range(v, 'a', -0x20); }

// ICU's answers for the BMP, kept per 256-unit block as each block is first
// met.  ICU's simple case mapping is a pure function once bound, so while an
// entry points at ICU's own function a lookup here is that call.
struct CaseCache {
  std::uint16_t map[0x10000];
  std::uint8_t ready[256];
  std::uint8_t latin1;  // see latin1_state
};
CaseCache g_icu_upper, g_icu_lower;
std::uint8_t g_table_latin1[2];  // [up]

// Latin-1 letters by the common rule (ASCII letters included); 0xB5 and 0xFF
// are left to the lookup, as their mappings leave the range.
inline std::uint32_t latin1_rule(std::uint32_t u, bool up) {
  if (up) return (u - 'a' < 26u || (u - 0xE0u < 0x1Fu && u != 0xF7)) ? u - 0x20 : u;
  return (u - 'A' < 26u || (u - 0xC0u < 0x1Fu && u != 0xD7)) ? u + 0x20 : u;
}

inline __m128i in_range(__m128i v, short lo, short hi) {
  return _mm_and_si128(_mm_cmpgt_epi16(v, _mm_set1_epi16(lo - 1)), _mm_cmplt_epi16(v, _mm_set1_epi16(hi + 1)));
}

// latin1_rule on eight lanes, all below 0x100 (so signed compares are fine).
inline __m128i latin1_case8(__m128i v, bool up) {
  const __m128i letters =
      up ? _mm_or_si128(in_range(v, 'a', 'z'),
                        _mm_andnot_si128(_mm_cmpeq_epi16(v, _mm_set1_epi16(0xF7)), in_range(v, 0xE0, 0xFE)))
         : _mm_or_si128(in_range(v, 'A', 'Z'),
                        _mm_andnot_si128(_mm_cmpeq_epi16(v, _mm_set1_epi16(0xD7)), in_range(v, 0xC0, 0xDE)));
  return _mm_add_epi16(v, _mm_and_si128(letters, _mm_set1_epi16(up ? -0x20 : 0x20)));
}

// Eight units that latin1_case8 may take: no zero, none above 0xFF, no 0xB5 or 0xFF.
inline bool latin1_block(__m128i v) {
  const __m128i z = _mm_setzero_si128();
  const int below = _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF00))), z));
  const int other = _mm_movemask_epi8(_mm_or_si128(
      _mm_cmpeq_epi16(v, z), _mm_or_si128(_mm_cmpeq_epi16(v, _mm_set1_epi16(0xB5)), _mm_cmpeq_epi16(v, _mm_set1_epi16(0xFF)))));
  return below == 0xFFFF && other == 0;
}

__attribute__((noinline)) void fill_block(CaseCache& c, NUV_CTYPE_FUNC f, std::uint32_t block) {
  for (std::uint32_t u = block << 8; u < ((block + 1) << 8); ++u)
    std::atomic_ref<std::uint16_t>(c.map[u]).store(static_cast<std::uint16_t>(f(static_cast<std::int32_t>(u))),
                                                   std::memory_order_relaxed);
  std::atomic_ref<std::uint8_t>(c.ready[block]).store(1, std::memory_order_release);
}

// How one case entry is applied: ICU's function through the cache, the
// built-in table inline, or any other function called.
struct Mapper {
  NUV_CTYPE_FUNC f;
  CaseCache* cache;  // f is ICU's, bound by the loader
  bool table;        // f is the built-in Unicode 3.1 table
  bool quiet;        // f's ASCII answers are the plain ones and say nothing
  bool latin1;       // f follows latin1_rule below 0x100 (but 0xB5, 0xFF)

  Mapper(NUV_CTYPE_FUNC fn, bool up) : f(fn), cache(nullptr), table(false), quiet(false), latin1(false) {
    const void* icu = up ? reinterpret_cast<void*>(load_relaxed(nuv::icu::ctype.u_toupper))
                         : reinterpret_cast<void*>(load_relaxed(nuv::icu::ctype.u_tolower));
    if (icu && reinterpret_cast<void*>(fn) == icu) cache = up ? &g_icu_upper : &g_icu_lower;
    table = fn == (up ? toupperU16 : tolowerU16);
    quiet = cache || table || fn == (up ? toupperU_7bit : tolowerU_7bit);
    if (pure()) latin1 = latin1_state(cache ? cache->latin1 : g_table_latin1[up], up);
  }

  // Checked once per target: 0 not yet, 2 follows the rule, 3 does not.
  bool latin1_state(std::uint8_t& state, bool up) const {
    std::uint8_t st = std::atomic_ref<std::uint8_t>(state).load(std::memory_order_relaxed);
    if (st == 0) {
      st = 2;
      for (std::uint32_t u = 0x80; u < 0x100; ++u)
        if (u != 0xB5 && u != 0xFF && (*this)(u, up) != latin1_rule(u, up)) st = 3;
      std::atomic_ref<std::uint8_t>(state).store(st, std::memory_order_relaxed);
    }
    return st == 2;
  }
  // Same answer for the same unit, and no reports: equal units may be skipped.
  bool pure() const { return cache || table; }

  // u is one UTF-16 unit.
  std::uint32_t operator()(std::uint32_t u, bool up) const {
    if (cache) {
      if (!std::atomic_ref<std::uint8_t>(cache->ready[u >> 8]).load(std::memory_order_acquire))
        fill_block(*cache, f, u >> 8);
      return std::atomic_ref<std::uint16_t>(cache->map[u]).load(std::memory_order_relaxed);
    }
    if (table)
      return static_cast<std::uint16_t>(up ? nuv::to_upper_unit(static_cast<std::int32_t>(u))
                                           : nuv::to_lower_unit(static_cast<std::int32_t>(u)));
    return static_cast<std::uint16_t>(f(static_cast<std::int32_t>(u)));
  }
};

// The comparisons' entry: binds ICU first if tolowerU still is its wrapper.
void bind_tolower() {
  if (load_relaxed(tolowerU) == tolowerU_wrapper) loadIcuDo(0);
}

NUV_NO_ASAN int casecmp(const NUV_UTF16* a, const NUV_UTF16* b, std::size_t n) {
  NUV_CTYPE_FUNC f = load_relaxed(tolowerU);
  Mapper m(f, false);
  std::size_t i = 0;
  while (i < n) {
    if (NUV_CTYPE_FUNC now = load_relaxed(tolowerU); now != f) m = Mapper(f = now, false);
    if (m.quiet && n - i >= 8 && block_in_page(a + i) && block_in_page(b + i)) {
      const __m128i va = load8(a + i), vb = load8(b + i);
      const bool same = _mm_movemask_epi8(_mm_cmpeq_epi16(va, vb)) == 0xFFFF;
      if (same && m.pure()) {
        if (has_zero(va)) return 0;
        i += 8;
        continue;
      }
      if (all_ascii(va) && all_ascii(vb) && !has_zero(va) && !has_zero(vb) &&
          _mm_movemask_epi8(_mm_cmpeq_epi16(lower8(va), lower8(vb))) == 0xFFFF) {
        i += 8;
        continue;
      }
      if (m.latin1 && latin1_block(va) && latin1_block(vb) &&
          _mm_movemask_epi8(_mm_cmpeq_epi16(latin1_case8(va, false), latin1_case8(vb, false))) == 0xFFFF) {
        i += 8;
        continue;
      }
    }
    // Unit by unit through the rest of this block; a switch of the entry
    // counts from the next unit.
    const std::size_t end = (n - i < 8) ? n : i + 8;
    for (; i < end; ++i) {
      if (NUV_CTYPE_FUNC now = load_relaxed(tolowerU); now != f) m = Mapper(f = now, false);
      const std::uint32_t ua = unit_at(a + i), ub = unit_at(b + i);
      if (ua == ub && m.pure()) {
        if (ua == 0) return 0;
        continue;
      }
      const std::uint32_t la = (ua < 0x80 && m.quiet) ? ascii_lower(ua) : m(ua, false);
      const std::uint32_t lb = (ub < 0x80 && m.quiet) ? ascii_lower(ub) : m(ub, false);
      if (la != lb || la == 0) return static_cast<int>(la) - static_cast<int>(lb);
    }
  }
  return 0;
}

// In place (dest == src) or copying; n bounds the in-place n forms.
NUV_NO_ASAN NUV_UTF16* convert(NUV_UTF16* dest, const NUV_UTF16* src, std::size_t n, bool up, bool copy_terminator) {
  NUV_CTYPE_FUNC* entry = up ? &toupperU : &tolowerU;
  NUV_CTYPE_FUNC f = load_relaxed(*entry);
  Mapper m(f, up);
  std::size_t i = 0;
  while (i < n) {
    if (n - i >= 8 && block_in_page(src + i)) {
      const __m128i v = load8(src + i);
      if (all_ascii(v) && !has_zero(v)) {
        store8(dest + i, up ? upper8(v) : lower8(v));
        i += 8;
        continue;
      }
      if (NUV_CTYPE_FUNC now = load_relaxed(*entry); now != f) m = Mapper(f = now, up);
      if (m.latin1 && latin1_block(v)) {
        store8(dest + i, latin1_case8(v, up));
        i += 8;
        continue;
      }
    }
    const std::size_t end = (n - i < 8) ? n : i + 8;
    for (; i < end; ++i) {
      const std::uint32_t u = unit_at(src + i);
      if (u == 0) {
        if (copy_terminator) dest[i] = 0;
        return dest;
      }
      std::uint32_t r;
      if (u < 0x80) {
        r = up ? ascii_upper(u) : ascii_lower(u);
      } else {
        if (NUV_CTYPE_FUNC now = load_relaxed(*entry); now != f) m = Mapper(f = now, up);
        r = m(u, up);
      }
      dest[i] = static_cast<NUV_UTF16>(r);
    }
  }
  return dest;
}

// The locale's case tables of the C library, indexed by byte value.
inline int locale_lower(unsigned char c) { return (*__ctype_tolower_loc())[c]; }
inline int locale_upper(unsigned char c) { return (*__ctype_toupper_loc())[c]; }

int casecmp_narrow(const char* a, const char* b, std::size_t n) {
  if (n == 0 || a == b) return 0;
  const std::int32_t* low = *__ctype_tolower_loc();
  for (std::size_t i = 0; i < n; ++i) {
    const int la = low[static_cast<unsigned char>(a[i])], lb = low[static_cast<unsigned char>(b[i])];
    if (la != lb || la == 0) return la - lb;
  }
  return 0;
}

char* convert_narrow(char* dest, const char* src, std::size_t n, bool up, bool copy_terminator) {
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char c = static_cast<unsigned char>(src[i]);
    if (c == 0) {
      if (copy_terminator) dest[i] = 0;
      break;
    }
    unsigned char m = c;
    if (up) {
      if (c >= 'a' && c <= 'z') m = c - 0x20;
      else if (c & 0x80) m = static_cast<unsigned char>(locale_upper(c));
    } else {
      if (c >= 'A' && c <= 'Z') m = c + 0x20;
      else if (c & 0x80) m = static_cast<unsigned char>(locale_lower(c));
    }
    dest[i] = static_cast<char>(m);
  }
  return dest;
}

}  // namespace

extern "C" {

NUV_API int strcasecmpU16(const NUV_UTF16* a, const NUV_UTF16* b) {
  if (a == b) return 0;
  bind_tolower();
  return casecmp(a, b, kNoLimit);
}

NUV_API int strncasecmpU16(const NUV_UTF16* a, const NUV_UTF16* b, size_t n) {
  if (n == 0 || a == b) return 0;
  bind_tolower();
  return casecmp(a, b, n);
}

NUV_API NUV_UTF16* strtoupperU16(NUV_UTF16* s) { return convert(s, s, kNoLimit, true, false); }
NUV_API NUV_UTF16* strntoupperU16(NUV_UTF16* s, size_t n) { return convert(s, s, n, true, false); }
NUV_API NUV_UTF16* strcpytoupperU16(NUV_UTF16* dest, const NUV_UTF16* src) {
  return convert(dest, src, kNoLimit, true, true);
}
NUV_API NUV_UTF16* strtolowerU16(NUV_UTF16* s) { return convert(s, s, kNoLimit, false, false); }
NUV_API NUV_UTF16* strntolowerU16(NUV_UTF16* s, size_t n) { return convert(s, s, n, false, false); }
NUV_API NUV_UTF16* strcpytolowerU16(NUV_UTF16* dest, const NUV_UTF16* src) {
  return convert(dest, src, kNoLimit, false, true);
}

NUV_API int strcasecmpR(const char* a, const char* b) { return casecmp_narrow(a, b, kNoLimit); }
NUV_API int strncasecmpR(const char* a, const char* b, size_t n) { return casecmp_narrow(a, b, n); }
NUV_API char* strtoupperR(char* s) { return convert_narrow(s, s, kNoLimit, true, false); }
NUV_API char* strntoupperR(char* s, size_t n) { return convert_narrow(s, s, n, true, false); }
NUV_API char* strcpytoupperR(char* dest, const char* src) { return convert_narrow(dest, src, kNoLimit, true, true); }
NUV_API char* strtolowerR(char* s) { return convert_narrow(s, s, kNoLimit, false, false); }
NUV_API char* strntolowerR(char* s, size_t n) { return convert_narrow(s, s, n, false, false); }
NUV_API char* strcpytolowerR(char* dest, const char* src) { return convert_narrow(dest, src, kNoLimit, false, true); }

}  // extern "C"

NUV_FORWARD(strcasecmpU, strcasecmpU16);
NUV_FORWARD(strncasecmpU, strncasecmpU16);

namespace nuv {

int strcasecmp_ref(const NUV_UTF16* a, const NUV_UTF16* b) { return strncasecmp_ref(a, b, kNoLimit); }

int strncasecmp_ref(const NUV_UTF16* a, const NUV_UTF16* b, std::size_t n) {
  if (n == 0 || a == b) return 0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t la = static_cast<std::uint16_t>(load_relaxed(tolowerU)(unit_at(a + i)));
    const std::uint32_t lb = static_cast<std::uint16_t>(load_relaxed(tolowerU)(unit_at(b + i)));
    if (la != lb || la == 0) return static_cast<int>(la) - static_cast<int>(lb);
  }
  return 0;
}

NUV_UTF16* strncase_ref(NUV_UTF16* s, std::size_t n, bool up) {
  for (std::size_t i = 0; i < n && s[i]; ++i) {
    const std::uint32_t u = s[i];
    if (u < 0x80)
      s[i] = static_cast<NUV_UTF16>(up ? ascii_upper(u) : ascii_lower(u));
    else
      s[i] = static_cast<NUV_UTF16>(load_relaxed(up ? toupperU : tolowerU)(u));
  }
  return s;
}

NUV_UTF16* strcpycase_ref(NUV_UTF16* dest, const NUV_UTF16* src, bool up) {
  std::size_t i = 0;
  for (; src[i]; ++i) {
    const std::uint32_t u = src[i];
    if (u < 0x80)
      dest[i] = static_cast<NUV_UTF16>(up ? ascii_upper(u) : ascii_lower(u));
    else
      dest[i] = static_cast<NUV_UTF16>(load_relaxed(up ? toupperU : tolowerU)(u));
  }
  dest[i] = 0;
  return dest;
}

}  // namespace nuv
