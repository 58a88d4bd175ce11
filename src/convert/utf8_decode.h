// The one UTF-8 decoder behind every UTF-8 -> UTF-16 / UCS-2 / UCS-4 routine.
// Routines differ in mode, output form, byte order and report sites only; a
// routine passes constants, so each call site folds into its own loop.
#pragma once

#include <cstring>

#include "convert/report.h"
#include "convert/utf_simd.h"

namespace nuv::rscp {

// Trailing bytes announced by a lead byte; 6 marks an illegal start byte and
// 7 (control-code table only) a forbidden control code.
struct LeadTable {
  unsigned char v[256];
  constexpr unsigned operator[](unsigned b) const { return v[b]; }
};
constexpr LeadTable make_lead_table(bool noControls) {
  LeadTable t{};
  for (unsigned b = 0; b < 256; ++b)
    t.v[b] = noControls && (b < 0x20 || b == 0x7F) ? 7
             : b < 0x80                            ? 0
             : b < 0xC0                            ? 6
             : b < 0xE0                            ? 1
             : b < 0xF0                            ? 2
             : b < 0xF8                            ? 3
             : b < 0xFC                            ? 4
             : b < 0xFE                            ? 5
                                                   : 6;
  return t;
}
inline constexpr LeadTable bytesFromUTF8 = make_lead_table(false);
inline constexpr LeadTable bytesFromUTF8NoCC = make_lead_table(true);
// Subtracting these removes all marker bits of a t+1 byte sequence at once.
inline constexpr uint32_t offsetsFromUTF8[6] = {0x00000000u, 0x00003080u, 0x000E2080u,
                                                0x03C82080u, 0xFA082080u, 0x82082080u};
inline constexpr uint32_t minValForLength[6] = {0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};

enum class Out { Utf16, Ucs2, Ucs4 };

// Sites in the order the decoder meets them.
struct DecodeSites {
  const char16_t* id;
  Site overflow;       // no room for the next unit
  Site ctlShort;       // control code as the last byte(s)
  Site startShort;     // illegal start byte near the end
  Site exhausted;      // source ends inside a character
  Site ctl;            // control code
  Site start;          // illegal start byte (kNoSite: tolerated as U+FFFD)
  Site ctlC1;          // 0xC2 0x81..0x9F
  Site follow;         // follow-up byte outside 0x80..0xBF
  Site overlong;       // overlong form
  Site surrogate;      // encoded surrogate (when asked to check)
  Site beyond;         // value beyond what the target can hold
  Site overflowPair;   // no room for a surrogate pair
};

template <class Unit, bool Swap>
inline void put_unit(Unit*& d, uint32_t v) {
  Unit u = static_cast<Unit>(v);
  if constexpr (Swap) {
    if constexpr (sizeof(Unit) == 2)
      u = static_cast<Unit>(__builtin_bswap16(static_cast<uint16_t>(u)));
    else
      u = static_cast<Unit>(__builtin_bswap32(static_cast<uint32_t>(u)));
  }
  std::memcpy(d, &u, sizeof u);
  ++d;
}

// Fast: vector kernels take the runs they prove valid (mode 1 into UTF-16 in
// host order, without the surrogate test).
template <Out O, bool Swap, class Unit, bool Fast = false>
__attribute__((always_inline)) inline rscpStatus decode_utf8(const rscpUtf8** src, const rscpUtf8* srcEnd,
                                                              Unit** dest, Unit* destEnd, const uint32_t* substChar,
                                                              uint32_t* errCount, int32_t mode, bool surrogateCheck,
                                                              const DecodeSites& S) {
  const rscpUtf8* s = *src;
  Unit* d = *dest;
  const bool subst = substChar != nullptr || mode == 3;
  const uint32_t sc = substChar ? *substChar : rscpReplacementCharacter;
  const LeadTable& lead = mode == 2 ? bytesFromUTF8NoCC : bytesFromUTF8;
  constexpr uint32_t kMax = O == Out::Utf16 ? kMaximumUTF16 : O == Out::Ucs2 ? kMaximumUCS2 : kMaximumUCS4;

  auto stop = [&](const rscpUtf8* at, rscpStatus status, const Site& site) {
    *src = at;
    *dest = d;
    return report(status, S.id, site);
  };
  auto substitute = [&] {
    put_unit<Unit, Swap>(d, sc);
    if (errCount) ++*errCount;
  };

  [[maybe_unused]] const UtfKernels* kernels = nullptr;
  // Bytes left when the kernel is tried next: after it stopped, the scalar
  // code takes at least kKernelRetry bytes, so text it cannot take does not
  // pay for a kernel call per character.
  [[maybe_unused]] std::ptrdiff_t retryAt = srcEnd - s;
  if constexpr (Fast) kernels = utf_kernels();
  while (s != srcEnd) {
    if constexpr (Fast) {
      if (kernels && srcEnd - s <= retryAt) {
        kernels->utf8_to_utf16(&s, srcEnd, &d, destEnd);
        if (s == srcEnd) break;
        retryAt = srcEnd - s - kKernelRetry;
      }
    }
    const unsigned b = *s;
    const unsigned t = lead[b];
    if (d >= destEnd) return stop(s, rscpeDestOverflow, S.overflow);
    if (static_cast<std::size_t>(srcEnd - s - 1) < t) {  // t = 6 and 7 always land here when near the end
      if (t == 7) {
        if (!subst) return stop(s, rscpeIllegal, S.ctlShort);
        substitute(), ++s;
        continue;
      }
      if (t == 6 && mode != 0) {
        if (!subst) return stop(s, rscpeIllegal, S.startShort);
        substitute(), ++s;
        continue;
      }
      if (mode != 3) return stop(s, rscpeSrcExhausted, S.exhausted);
      substitute(), ++s;  // the rest of the source is not looked at
      break;
    }
    if (t == 0) {
      put_unit<Unit, Swap>(d, b);
      ++s;
      continue;
    }
    if (t == 7) {
      if (!subst) return stop(s, rscpeIllegal, S.ctl);
      substitute(), ++s;
      continue;
    }
    if (t == 6) {
      if (S.start.err == 0 && !subst) {  // a trusting routine without a site here
        put_unit<Unit, Swap>(d, rscpReplacementCharacter);
        ++s;
        continue;
      }
      if (!subst) return stop(s, rscpeIllegal, S.start);
      substitute(), ++s;
      continue;
    }
    if (mode == 2 && t == 1 && b == 0xC2 && s[1] >= 0x81 && s[1] <= 0x9F) {
      if (subst) {
        substitute(), s += 2;
        continue;
      }
      *src = s;
      *dest = d;
      report(rscpeIllegal, S.id, S.ctlC1);
      // Goes on with the second byte dropped from the sum: 0xC2 less the
      // two-byte offset wraps far beyond any target, so the range test fails
      // too, with the source one byte before the lead (the pointer the old
      // decoder was left with after being set back).
      // (Through an integer: the byte before may lie before the caller's buffer.)
      return stop(reinterpret_cast<const rscpUtf8*>(reinterpret_cast<std::uintptr_t>(s) - 1), rscpeIllegal, S.beyond);
    }
    uint32_t v = b;
    unsigned andMask = 0x80, orMask = 0xBF;
    for (unsigned i = 1; i <= t; ++i) {
      const unsigned x = s[i];
      andMask &= x;
      orMask |= x;
      v = (v << 6) + x;
    }
    v -= offsetsFromUTF8[t];
    if (mode != 0) {
      if (orMask != 0xBF || andMask != 0x80) {
        if (!subst) return stop(s, rscpeIllegal, S.follow);
        substitute(), ++s;  // only the lead byte is skipped
        continue;
      }
      if (v < minValForLength[t]) {
        if (!subst) return stop(s, rscpeIllegal, S.overlong);
        substitute(), s += t + 1;
        continue;
      }
    }
    if (surrogateCheck && v - 0xD800 < 0x800) {
      if (!subst) return stop(s, rscpeIllegal, S.surrogate);
      substitute(), s += t + 1;
      continue;
    }
    if (v <= kMaximumUCS2 || (O == Out::Ucs4 && (mode == 0 || v <= kMax)) || (O == Out::Ucs2 && mode == 0)) {
      put_unit<Unit, Swap>(d, v);
      s += t + 1;
      continue;
    }
    if (O == Out::Utf16 && (mode == 0 || v <= kMax)) {
      if (destEnd - d < 2) return stop(s, rscpeDestOverflow, S.overflowPair);
      put_unit<Unit, Swap>(d, ((v - 0x10000) >> 10) + 0xD800);
      put_unit<Unit, Swap>(d, (v & 0x3FF) + 0xDC00);
      s += t + 1;
      continue;
    }
    if (!subst) return stop(s + t, rscpeIllegal, S.beyond);
    substitute(), s += t + 1;
  }
  *src = s;
  *dest = d;
  return 0;
}

}  // namespace nuv::rscp
