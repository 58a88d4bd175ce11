// The one UTF-8 encoder behind every UTF-16 / UCS-2 / UCS-4 -> UTF-8 routine.
#pragma once

#include <cstring>

#include "convert/report.h"
#include "convert/utf_simd.h"

namespace nuv::rscp {

inline constexpr unsigned char firstByteMark[7] = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

enum class In { Utf16, Ucs2, Ucs4 };

struct EncodeSites {
  const char16_t* id;
  Site atEnd;     // high surrogate as the last unit
  Site middle;    // high surrogate followed by a non-low unit
  Site lowAlone;  // low surrogate without a high one
  Site ctl;       // control code (mode 2)
  Site overflow;  // no room for the bytes of the character
  Site bits31;    // UCS-4 value with bit 31 set (kNoSite: no test)
};

template <class Unit, bool Swap>
inline uint32_t get_unit(const Unit* p) {
  Unit u;
  std::memcpy(&u, p, sizeof u);
  if constexpr (Swap) {
    if constexpr (sizeof(Unit) == 2)
      return __builtin_bswap16(static_cast<uint16_t>(u));
    else
      return __builtin_bswap32(static_cast<uint32_t>(u));
  }
  return static_cast<uint32_t>(u);
}

inline bool is_c0_c1_or_del(uint32_t u) { return u <= 0x1F || (u >= 0x7F && u <= 0x9F); }

// Bytes for a value; a value past 31 bits is written as the replacement
// character in two bytes (only reachable from UCS-4 or a wild substitute).
inline unsigned utf8_length(uint32_t& v) {
  if (v < 0x80) return 1;
  if (v < 0x800) return 2;
  if (v < 0x10000) return 3;
  if (v < 0x200000) return 4;
  if (v < 0x4000000) return 5;
  if (v <= kMaximumUCS4) return 6;
  v = rscpReplacementCharacter;
  return 2;
}

inline rscpUtf8* put_utf8(rscpUtf8* d, uint32_t v, unsigned len) {
  rscpUtf8* p = d + len;
  switch (len) {
    case 6: *--p = static_cast<rscpUtf8>((v & 0x3F) | 0x80), v >>= 6; [[fallthrough]];
    case 5: *--p = static_cast<rscpUtf8>((v & 0x3F) | 0x80), v >>= 6; [[fallthrough]];
    case 4: *--p = static_cast<rscpUtf8>((v & 0x3F) | 0x80), v >>= 6; [[fallthrough]];
    case 3: *--p = static_cast<rscpUtf8>((v & 0x3F) | 0x80), v >>= 6; [[fallthrough]];
    case 2: *--p = static_cast<rscpUtf8>((v & 0x3F) | 0x80), v >>= 6; [[fallthrough]];
    default: *--p = static_cast<rscpUtf8>(v | firstByteMark[len]);
  }
  return d + len;
}

// mode: 0 checking, 1 lone surrogates pass, 2 checking without control
// codes, 3 substituting.  UCS-2/UCS-4 sources take every unit as a value.
// Fast: vector kernels take the runs of units below the surrogates (mode 0
// from UTF-16 in host order).
template <In I, bool Swap, class Unit, bool Fast = false>
__attribute__((always_inline)) inline rscpStatus encode_utf8(const Unit** src, const Unit* srcEnd, rscpUtf8** dest,
                                                              rscpUtf8* destEnd, uint32_t substChar, int32_t mode,
                                                              const EncodeSites& S) {
  const Unit* s = *src;
  rscpUtf8* d = *dest;
  auto stop = [&](rscpStatus status, const Site& site) {
    *src = s;
    *dest = d;
    return report(status, S.id, site);
  };
  [[maybe_unused]] const UtfKernels* kernels = nullptr;
  [[maybe_unused]] std::ptrdiff_t retryAt = srcEnd - s;  // as in the decoder
  if constexpr (Fast) kernels = utf_kernels();
  while (s < srcEnd) {
    if constexpr (Fast) {
      if (kernels && srcEnd - s <= retryAt) {
        kernels->utf16_to_utf8(&s, srcEnd, &d, destEnd);
        if (s == srcEnd) break;
        retryAt = srcEnd - s - kKernelRetry / 2;
      }
    }
    uint32_t v = get_unit<Unit, Swap>(s);
    const Unit* next = s + 1;
    bool controlTest = mode == 2;
    if constexpr (I == In::Utf16) {
      if (v - 0xD800 < 0x400) {
        if (next == srcEnd) {
          if (mode != 3) return stop(rscpeSrcExhausted, S.atEnd);
          v = substChar, controlTest = false;
        } else if (const uint32_t lo = get_unit<Unit, Swap>(next); lo - 0xDC00 < 0x400) {
          v = ((v - 0xD800) << 10) + lo + 0x2400;
          ++next;
        } else if (mode == 0 || mode == 2) {
          return stop(rscpeIllegal, S.middle);
        } else {
          if (mode == 3) v = substChar;
          controlTest = false;
        }
      } else if (v - 0xDC00 < 0x400) {
        if (mode == 0 || mode == 2) return stop(rscpeIllegal, S.lowAlone);
        if (mode == 3) v = substChar;
        controlTest = false;
      }
    }
    if constexpr (I == In::Ucs4)
      if (S.bits31.err && v > kMaximumUCS4) return stop(rscpeIllegal, S.bits31);
    if (controlTest && is_c0_c1_or_del(v)) return stop(rscpeIllegal, S.ctl);
    const unsigned len = utf8_length(v);
    if (destEnd - d < static_cast<std::ptrdiff_t>(len)) return stop(rscpeDestOverflow, S.overflow);
    d = put_utf8(d, v, len);
    s = next;
  }
  *src = s;
  *dest = d;
  return 0;
}

}  // namespace nuv::rscp
