// UCS-4 <-> UTF-16, the repairing UTF-16 copy, the plain UCS-2 copies and
// the byte-order test of a buffer by code-page name.
#include <cstring>

#include "convert/report.h"

using namespace nuv::rscp;

namespace {

constexpr Site kU4ToU16Overflow{1, 88, kMsgOverflow};
constexpr Site kU4ToU16PairOverflow{2, 104, kMsgOverflow};
constexpr Site kU16ToU4AtEnd{3, 141, kMsgHalfAtEndLower};
constexpr Site kU16ToU4Overflow{4, 133, kMsgOverflow};
constexpr Site kCopyMiddle{5, 212, kMsgHalfMiddle};
constexpr Site kCopyAtEnd{6, 221, kMsgHalfAtEnd};
constexpr Site kCopyLowAlone{7, 230, kMsgHalfLowMiddle};
constexpr Site kCopyOverflow{8, 196, kMsgOverflow};

constexpr NUV_UTF16 kRepair = u'#';

inline bool is_high(uint32_t u) { return u - 0xD800 < 0x400; }
inline bool is_low(uint32_t u) { return u - 0xDC00 < 0x400; }

}  // namespace

extern "C" {

rscpStatus U4nToUtf16n(const rscpU4** src, const rscpU4* srcEnd, NUV_UTF16** dest, NUV_UTF16* destEnd) {
  const rscpU4* s = *src;
  NUV_UTF16* d = *dest;
  rscpStatus rc = 0;
  for (; s < srcEnd; ++s) {
    if (d >= destEnd) {
      rc = report(rscpeDestOverflow, kIdU46r, kU4ToU16Overflow);
      break;
    }
    uint32_t v = *s;
    if (v > kMaximumUTF16) v = rscpReplacementCharacter;  // silently
    if (v <= kMaximumUCS2) {
      *d++ = static_cast<NUV_UTF16>(v);
      continue;
    }
    if (destEnd - d < 2) {
      *src = s, *dest = d;
      return report(rscpeDestOverflow, kIdU46r, kU4ToU16PairOverflow);
    }
    *d++ = static_cast<NUV_UTF16>(((v - 0x10000) >> 10) + 0xD800);
    *d++ = static_cast<NUV_UTF16>((v & 0x3FF) + 0xDC00);
  }
  *src = s, *dest = d;
  return rc;
}

rscpStatus Utf16nToU4n(const NUV_UTF16** src, const NUV_UTF16* srcEnd, rscpU4** dest, rscpU4* destEnd) {
  const NUV_UTF16* s = *src;
  rscpU4* d = *dest;
  auto stop = [&](rscpStatus status, const Site& site) {
    *src = s, *dest = d;
    return report(status, kIdU46r, site);
  };
  while (s < srcEnd) {
    if (d >= destEnd) return stop(rscpeDestOverflow, kU16ToU4Overflow);
    uint32_t v = *s;
    if (is_high(v)) {
      if (s + 1 == srcEnd) return stop(rscpeSrcExhausted, kU16ToU4AtEnd);
      if (is_low(s[1])) {
        v = ((v - 0xD800) << 10) + s[1] + 0x2400;
        ++s;
      }
    }
    *d++ = v;
    ++s;
  }
  *src = s, *dest = d;
  return 0;
}

rscpStatus Utf16nToUtf16n(const NUV_UTF16** src, const NUV_UTF16* srcEnd, NUV_UTF16** dest, NUV_UTF16* destEnd) {
  const NUV_UTF16* s = *src;
  NUV_UTF16* d = *dest;
  rscpStatus rc = 0;
  auto repair = [&](rscpStatus status, const Site& site) {
    *src = s, *dest = d;
    rc = report(status, kIdU66r, site);
    *d++ = kRepair;
    ++s;
  };
  while (s < srcEnd) {
    if (d >= destEnd) {
      *src = s, *dest = d;
      return report(rscpeDestOverflow, kIdU66r, kCopyOverflow);
    }
    const NUV_UTF16 u = *s;
    if (is_high(u)) {
      if (s + 1 == srcEnd) {
        repair(rscpeSrcExhausted, kCopyAtEnd);
      } else if (is_low(s[1])) {
        // The room test covers one unit only: the low half may land at
        // destEnd, which callers leave as slack.
        d[0] = u, d[1] = s[1];
        d += 2, s += 2;
      } else {
        repair(rscpeIllegal, kCopyMiddle);
      }
    } else if (is_low(u)) {
      repair(rscpeIllegal, kCopyLowAlone);
    } else {
      *d++ = u, ++s;
    }
  }
  *src = s, *dest = d;
  return rc;
}

NUV_UTF16 UcsToU2s(rscpU2* dest, const NUV_UTF16* src) {
  while ((*dest++ = *src++) != 0) {
  }
  return 0;
}

int32_t UcnToU2n(rscpU2* dest, const NUV_UTF16* src, int32_t count) {
  if (count <= 0) return 0;
  std::memmove(dest, src, static_cast<std::size_t>(count) * sizeof *dest);
  return count;
}

rscpStatus SwapUnicodeBuffer(const NUV_UTF16* codepage, NUV_UTF16* buf, int32_t n) {
  auto digit = [](NUV_UTF16 u) { return u >= u'0' && u <= u'9'; };
  NUV_UTF16 name[4];
  std::memcpy(name, codepage, sizeof name);
  const bool nameSwapped = !digit(name[0]);
  if (nameSwapped) {
    for (auto& u : name) u = static_cast<NUV_UTF16>(__builtin_bswap16(u));
    if (!digit(name[0])) return 0x80;
  }
  const bool page410 = name[0] == u'4' && name[1] == u'1' && name[2] == u'0';
  if (page410 && (name[3] == u'1' || name[3] == u'3')) return 0;  // already in host order
  const bool otherOrder = page410 && (name[3] == u'0' || name[3] == u'2');
  if (!otherOrder && !nameSwapped) return 0x200;
  for (int32_t i = 0; i < n; ++i) buf[i] = static_cast<NUV_UTF16>(__builtin_bswap16(buf[i]));
  return otherOrder ? 0 : 0x200;
}

}  // extern "C"
