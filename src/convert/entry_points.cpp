// Thin entry points over the checking UTF-8 <-> UTF-16 routines: reordered
// arguments, size-and-length forms, and forms whose source and destination
// may overlap (converted through the result ring, then copied).
#include <cstring>

#include "convert/converters.h"

extern "C" {

rscpStatus UcnToUcmbn(rscpUtf8** dest, rscpUtf8* destEnd, const NUV_UTF16** src, const NUV_UTF16* srcEnd) {
  return Utf16nToUtf8n(src, srcEnd, dest, destEnd);
}

rscpStatus UcmbnToUcn(NUV_UTF16** dest, NUV_UTF16* destEnd, const rscpUtf8** src, const rscpUtf8* srcEnd) {
  const uint32_t subst = rscpReplacementCharacter;
  return Utf8nToUtf16nSubst(src, srcEnd, dest, destEnd, &subst, nullptr);
}

rscpStatus UcnToUtf8nCPFast(void*, rscpUtf8** dest, rscpUtf8* destEnd, const NUV_UTF16** src,
                            const NUV_UTF16* srcEnd) {
  return Utf16nToUtf8n(src, srcEnd, dest, destEnd);
}

rscpStatus Utf8nToUcnCPFast(void*, NUV_UTF16** dest, NUV_UTF16* destEnd, const rscpUtf8** src,
                            const rscpUtf8* srcEnd) {
  const uint32_t subst = rscpReplacementCharacter;
  return Utf8nToUtf16nSubst(src, srcEnd, dest, destEnd, &subst, nullptr);
}

}  // extern "C"

namespace {

std::size_t units16(const NUV_UTF16* s) {
  std::size_t n = 0;
  while (s[n]) ++n;
  return n;
}

// Counted conversion into at most size - 1 elements plus a terminator when
// `terminate`, else into size elements.
template <class D, class S, class Conv>
rscpStatus into(D* dest, std::size_t size, std::size_t* len, const S* src, std::size_t count, bool terminate,
                Conv conv) {
  if (len) *len = 0;
  if (size == 0 && terminate) return rscpeDestOverflow;
  D* d = dest;
  const S* s = src;
  const rscpStatus rc = conv(&d, dest + size - (terminate ? 1 : 0), &s, src + count);
  if (terminate) *d = 0;
  if (len) *len = static_cast<std::size_t>(d - dest);
  return rc;
}

// The same through a ring buffer of the destination's size, so that source
// and destination may overlap.
template <class D, class S, class Conv>
rscpStatus via_ring(D* dest, std::size_t size, std::size_t* len, const S* src, std::size_t count, bool terminate,
                    Conv conv) {
  std::size_t n = 0;
  D* tmp = static_cast<D*>(rscpuc_next_buff(static_cast<int32_t>(size * sizeof(D))));
  const rscpStatus rc = into(tmp, size, &n, src, count, terminate, conv);
  if (size) std::memmove(dest, tmp, (n + (terminate ? 1 : 0)) * sizeof(D));
  if (len) *len = n;
  return rc;
}

auto to_utf8 = [](rscpUtf8** d, rscpUtf8* de, const NUV_UTF16** s, const NUV_UTF16* se) {
  return UcnToUtf8nCPFast(nullptr, d, de, s, se);
};
auto to_utf16 = [](NUV_UTF16** d, NUV_UTF16* de, const rscpUtf8** s, const rscpUtf8* se) {
  return Utf8nToUcnCPFast(nullptr, d, de, s, se);
};

}  // namespace

extern "C" {

rscpStatus UcsToUtf8sFast(rscpUtf8* dest, size_t destSize, size_t* len, const NUV_UTF16* src) {
  return into(dest, destSize, len, src, units16(src), true, to_utf8);
}
rscpStatus Utf8sToUcsFast(NUV_UTF16* dest, size_t destSize, size_t* len, const rscpUtf8* src) {
  return into(dest, destSize, len, src, std::strlen(reinterpret_cast<const char*>(src)), true, to_utf16);
}
rscpStatus UcsToUtf8sFastOverlap(rscpUtf8* dest, size_t destSize, size_t* len, const NUV_UTF16* src) {
  return via_ring(dest, destSize, len, src, units16(src), true, to_utf8);
}
rscpStatus Utf8sToUcsFastOverlap(NUV_UTF16* dest, size_t destSize, size_t* len, const rscpUtf8* src) {
  return via_ring(dest, destSize, len, src, std::strlen(reinterpret_cast<const char*>(src)), true, to_utf16);
}
rscpStatus UcnToUtf8nFastOverlap_2(rscpUtf8* dest, size_t destSize, size_t* len, const NUV_UTF16* src,
                                   size_t srcCount) {
  return via_ring(dest, destSize, len, src, srcCount, false, to_utf8);
}
rscpStatus Utf8nToUcnFastOverlap_2(NUV_UTF16* dest, size_t destSize, size_t* len, const rscpUtf8* src,
                                   size_t srcCount) {
  return via_ring(dest, destSize, len, src, srcCount, false, to_utf16);
}

}  // extern "C"
