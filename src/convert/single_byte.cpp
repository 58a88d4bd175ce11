// Single-byte forms: 7-bit ASCII, 7-bit bytes, Latin-1 bytes and the EBCDIC
// page.  They never call the hook; what does not fit becomes a fixed byte.
//
// Two counter pairs exist on purpose: the read/clear functions see only the
// single-character conversions, while the Vola string forms add to counters
// of their own that nothing reads.
#include <cstring>

#include "convert/converters.h"

namespace {

constexpr unsigned char kA7Subst = 0x23;  // '#'
constexpr unsigned char kE8Subst = 0x7B;  // EBCDIC '#'

uint64_t h_ToA7_err_cnt = 0;  // UcToA7, B8ToA7; read by UcsToA7s_ErrCnt
uint64_t h_ToE8_err_cnt = 0;  // read by UcsToE8s_ErrCnt; nothing adds to it

namespace vola {
uint64_t h_ToA7_err_cnt = 0;  // UcsToA7sVola, UcnToA7nVola
uint64_t h_ToE8_err_cnt = 0;  // UcsToE8sVola, UcnToE8nVola
}  // namespace vola

inline unsigned char to_a7(NUV_UTF16 u) { return u < 0x80 ? static_cast<unsigned char>(u) : kA7Subst; }
inline unsigned char to_e8(NUV_UTF16 u) { return u <= 0xFF ? rscpuc2_U2E[u] : kE8Subst; }

int32_t len8(const char* s) { return static_cast<int32_t>(std::strlen(s)); }
int32_t len16(const NUV_UTF16* s) {
  int32_t n = 0;
  while (s[n]) ++n;
  return n;
}

// A result buffer of the ring for n elements of T (n <= 0: an empty request).
template <class T>
T* ring(int32_t n) {
  return static_cast<T*>(rscpuc_next_buff(n > 0 ? static_cast<int32_t>(n * sizeof(T)) : 0));
}

// Maps n elements through f into dest.
template <class D, class S, class F>
void map_n(D* dest, const S* src, int32_t n, F f) {
  for (int32_t i = 0; i < n; ++i) dest[i] = f(src[i]);
}

}  // namespace

extern "C" {

// ---- single characters ----
unsigned char UcToA7(NUV_UTF16 u) {
  if (u < 0x80) return static_cast<unsigned char>(u);
  ++h_ToA7_err_cnt;
  return kA7Subst;
}
unsigned char B8ToA7(unsigned char b) {
  if (b < 0x80) return b;
  ++h_ToA7_err_cnt;
  return kA7Subst;
}
unsigned char UcToB7(NUV_UTF16 u) { return to_a7(u); }
unsigned char UcToE8(NUV_UTF16 u) { return to_e8(u); }
NUV_UTF16 E8ToUc(unsigned char b) { return rscpuc2_E2U[b]; }
unsigned char B8ToE8(unsigned char b) { return rscpuc2_U2E[b]; }
unsigned char E8ToB8(unsigned char b) { return static_cast<unsigned char>(rscpuc2_E2U[b]); }
unsigned char A7ToE8(unsigned char b) { return b & 0x80 ? kE8Subst : rscpuc2_U2E[b]; }
unsigned char E8ToA7(unsigned char b) { return to_a7(rscpuc2_E2U[b]); }

uint32_t UcsToA7s_ErrCnt(void) { return static_cast<uint32_t>(h_ToA7_err_cnt); }
void UcsToA7s_ErrReset(void) { h_ToA7_err_cnt = 0; }
uint32_t UcsToE8s_ErrCnt(void) { return static_cast<uint32_t>(h_ToE8_err_cnt); }
void UcsToE8s_ErrReset(void) { h_ToE8_err_cnt = 0; }

// ---- ASCII and 7-bit bytes ----
void A7sToUcs(NUV_UTF16* dest, const char* src) { A7nToUcn(dest, src, len8(src) + 1); }
void A7nToUcn(NUV_UTF16* dest, const char* src, int32_t n) {
  map_n(dest, src, n, [](char c) { return static_cast<NUV_UTF16>(static_cast<unsigned char>(c)); });
}
void B7sToUcs(NUV_UTF16* dest, const char* src) { A7sToUcs(dest, src); }
void B7nToUcn(NUV_UTF16* dest, const char* src, int32_t n) { A7nToUcn(dest, src, n); }
void UcnToA7n(char* dest, const NUV_UTF16* src, int32_t n) {
  map_n(dest, src, n, [](NUV_UTF16 u) { return static_cast<char>(to_a7(u)); });
}
void UcnToB7n(char* dest, const NUV_UTF16* src, int32_t n) { UcnToA7n(dest, src, n); }
void UcsToB7s(char* dest, const NUV_UTF16* src) { UcnToA7n(dest, src, len16(src) + 1); }

void UcsToA7sSubst(char* dest, const NUV_UTF16* src, unsigned char subst) {
  UcnToA7nSubst(dest, src, len16(src) + 1, subst);
}
int32_t UcnToA7nSubst(char* dest, const NUV_UTF16* src, int32_t n, unsigned char subst) {
  const char s = static_cast<char>(subst < 0x80 ? subst : kA7Subst);
  map_n(dest, src, n, [s](NUV_UTF16 u) { return u < 0x80 ? static_cast<char>(u) : s; });
  return n > 0 ? n : 0;
}

int32_t UcnToA7nCheck(char* dest, const NUV_UTF16* src, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    if (src[i] >= 0x80) return 1;
    dest[i] = static_cast<char>(src[i]);
  }
  return 0;
}
int32_t UcsToA7sCheck(char* dest, const NUV_UTF16* src) {
  for (;; ++src, ++dest) {
    if (*src >= 0x80) {
      *dest = 0;
      return 1;
    }
    if ((*dest = static_cast<char>(*src)) == 0) return 0;
  }
}

// ---- EBCDIC ----
void E8sToUcs(NUV_UTF16* dest, const unsigned char* src) {
  E8nToUcn(dest, src, len8(reinterpret_cast<const char*>(src)) + 1);
}
void E8nToUcn(NUV_UTF16* dest, const unsigned char* src, int32_t n) { map_n(dest, src, n, E8ToUc); }
int32_t UcnToE8n(unsigned char* dest, const NUV_UTF16* src, int32_t n) {
  map_n(dest, src, n, to_e8);
  return n;
}
void UcnToE8nSubst(unsigned char* dest, const NUV_UTF16* src, int32_t n, NUV_UTF16 subst) {
  const unsigned char s = to_e8(subst);
  map_n(dest, src, n, [s](NUV_UTF16 u) { return u <= 0xFF ? rscpuc2_U2E[u] : s; });
}
void UcsToE8sSubst(unsigned char* dest, const NUV_UTF16* src, NUV_UTF16 subst) {
  UcnToE8nSubst(dest, src, len16(src) + 1, subst);
}
int32_t UcnToE8nCheck(unsigned char* dest, const NUV_UTF16* src, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    if (src[i] > 0xFF) return 1;
    dest[i] = rscpuc2_U2E[src[i]];
  }
  return 0;
}
int32_t UcsToE8sCheck(unsigned char* dest, const NUV_UTF16* src) {
  for (;; ++src, ++dest) {
    if (*src > 0xFF) {
      *dest = 0;
      return 1;
    }
    *dest = rscpuc2_U2E[*src];
    if (*src == 0) return 0;
  }
}
void A7nToE8nInPlace(unsigned char* buf, int32_t n) { map_n(buf, buf, n, A7ToE8); }
void E8nToA7nInPlace(unsigned char* buf, int32_t n) { map_n(buf, buf, n, E8ToA7); }

// ---- results in the ring (s forms: length + 1 elements, terminated) ----
NUV_UTF16* A7nToUcnVola(const char* src, int32_t n) {
  NUV_UTF16* r = ring<NUV_UTF16>(n);
  A7nToUcn(r, src, n);
  return r;
}
NUV_UTF16* A7sToUcsVola(const char* src) { return A7nToUcnVola(src, len8(src) + 1); }
NUV_UTF16* B7sToUcsVola(const char* src) { return A7sToUcsVola(src); }

char* UcnToA7nVola(const NUV_UTF16* src, int32_t n) {
  char* r = ring<char>(n);
  for (int32_t i = 0; i < n; ++i) {
    if (src[i] >= 0x80) ++vola::h_ToA7_err_cnt;
    r[i] = static_cast<char>(to_a7(src[i]));
  }
  return r;
}
char* UcsToA7sVola(const NUV_UTF16* src) { return UcnToA7nVola(src, len16(src) + 1); }
char* UcsToB7sVola(const NUV_UTF16* src) {
  const int32_t n = len16(src) + 1;
  char* r = ring<char>(n);
  UcnToB7n(r, src, n);
  return r;
}

NUV_UTF16* E8nToUcnVola(const unsigned char* src, int32_t n) {
  NUV_UTF16* r = ring<NUV_UTF16>(n);
  E8nToUcn(r, src, n);
  return r;
}
NUV_UTF16* E8sToUcsVola(const unsigned char* src) {
  return E8nToUcnVola(src, len8(reinterpret_cast<const char*>(src)) + 1);
}
unsigned char* UcnToE8nVola(const NUV_UTF16* src, int32_t n) {
  unsigned char* r = ring<unsigned char>(n);
  for (int32_t i = 0; i < n; ++i) {
    if (src[i] > 0xFF) ++vola::h_ToE8_err_cnt;
    r[i] = to_e8(src[i]);
  }
  return r;
}
unsigned char* UcsToE8sVola(const NUV_UTF16* src) { return UcnToE8nVola(src, len16(src) + 1); }

char* E8nToA7nVola(const unsigned char* src, int32_t n) {
  char* r = ring<char>(n);
  map_n(r, src, n, [](unsigned char b) { return static_cast<char>(E8ToA7(b)); });
  return r;
}
char* E8sToA7sVola(const unsigned char* src) {
  return E8nToA7nVola(src, len8(reinterpret_cast<const char*>(src)) + 1);
}
unsigned char* A7nToE8nVola(const char* src, int32_t n) {
  unsigned char* r = ring<unsigned char>(n);
  map_n(r, src, n, [](char c) { return A7ToE8(static_cast<unsigned char>(c)); });
  return r;
}
unsigned char* A7sToE8sVola(const char* src) { return A7nToE8nVola(src, len8(src) + 1); }

}  // extern "C"
