// Code converters between UTF-8, UTF-16, UCS-2, UCS-4 and single-byte
// encodings.  Internal to the library (no exported symbol); tests, tools and
// the system log writer reach them through the static library.
//
// Counted converters take (&src, srcEnd, &dest, destEnd, ...): on return src
// points at the first unit not consumed (after an error: at the offending
// character) and dest one past the last unit written.  The result is 0, or
// whatever the error hook returned for the report that stopped the run.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nuvu16.h"

extern "C" {

typedef int32_t rscpStatus;
typedef unsigned char rscpUtf8;  // UTF-8 byte
typedef uint32_t rscpU4;         // UCS-4 unit
typedef NUV_UTF16 rscpU2;        // UCS-2 unit

enum : rscpStatus {
  rscpeOk = 0,
  rscpeDestOverflow = 0x20,
  rscpeSrcExhausted = 0x200,
  rscpeIllegal = 0x800,
};

inline constexpr uint32_t rscpReplacementCharacter = 0xFFFD;
inline constexpr uint32_t kMaximumUCS2 = 0xFFFF;
inline constexpr uint32_t kMaximumUTF16 = 0x10FFFF;
inline constexpr uint32_t kMaximumUCS4 = 0x7FFFFFFF;

// ---- error hook -----------------------------------------------------------
// (status, 79, -1, component id, error number, source line, message, then
// five zeros: pointer, pointer, int, pointer, int) -> converter's result.
typedef rscpStatus (*rscpErrorHook)(rscpStatus status, int32_t c79, int32_t cMinus1, const NUV_UTF16* id,
                                    int32_t errNo, int32_t line, const NUV_UTF16* msg, void* z1, void* z2,
                                    int32_t z3, void* z4, int32_t z5);
extern rscpErrorHook rscpHook_rscpe__error;
void rscpSetHook_rscpe__error(rscpErrorHook hook);  // null: default hook again
rscpStatus rscph_rscpe__error(rscpStatus status, int32_t c79, int32_t cMinus1, const NUV_UTF16* id, int32_t errNo,
                              int32_t line, const NUV_UTF16* msg, void* z1, void* z2, int32_t z3, void* z4,
                              int32_t z5);

// ---- UTF-8 -> UTF-16 ------------------------------------------------------
#define RSCP_U8_TO_U16_ARGS \
  const rscpUtf8 **src, const rscpUtf8 *srcEnd, NUV_UTF16 **dest, NUV_UTF16 *destEnd
#define RSCP_SUBST_ARGS const uint32_t *substChar, uint32_t *errCount

// mode 0 trusting, 1 checking, 2 checking without control codes, 3 always
// substituting; surrogateCheck rejects encoded U+D800..U+DFFF.
rscpStatus Utf8nToUtf16nBase(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS, int32_t mode, unsigned char surrogateCheck);
rscpStatus Utf8nToUtf16nGD(RSCP_U8_TO_U16_ARGS);
rscpStatus Utf8nToUtf16nSubstStrict(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nNoCCSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nSubstAll(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nGDOld(RSCP_U8_TO_U16_ARGS);
rscpStatus Utf8nToUtf16nSubstOld(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nNoCCSubstOld(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nSubstAllOld(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nSwGD(RSCP_U8_TO_U16_ARGS);
rscpStatus Utf8nToUtf16nSwSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToUtf16nSwNoCCSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS);

// ---- UTF-16 -> UTF-8 ------------------------------------------------------
#define RSCP_U16_TO_U8_ARGS \
  const NUV_UTF16 **src, const NUV_UTF16 *srcEnd, rscpUtf8 **dest, rscpUtf8 *destEnd

// mode 0 checking, 1 lone surrogates pass, 2 no control codes, 3 substituting.
rscpStatus Utf16nToUtf8nBase(RSCP_U16_TO_U8_ARGS, uint32_t substChar, int32_t mode);
rscpStatus Utf16nToUtf8n(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nGD(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nNoCC(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nSubst(RSCP_U16_TO_U8_ARGS, uint32_t substChar);
rscpStatus Utf16nToUtf8nSubstAll(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nOld(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nNoCCOld(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nGDOld(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nToUtf8nSubstOld(RSCP_U16_TO_U8_ARGS, uint32_t substChar);
rscpStatus Utf16nToUtf8nSubstAllOld(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nSwToUtf8n(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nSwToUtf8nNoCC(RSCP_U16_TO_U8_ARGS);
rscpStatus Utf16nSwToUtf8nGD(RSCP_U16_TO_U8_ARGS);

// ---- UCS-2 / UCS-4 <-> UTF-8 ----------------------------------------------
#define RSCP_U2_TO_U8_ARGS const rscpU2 **src, const rscpU2 *srcEnd, rscpUtf8 **dest, rscpUtf8 *destEnd
#define RSCP_U8_TO_U2_ARGS const rscpUtf8 **src, const rscpUtf8 *srcEnd, rscpU2 **dest, rscpU2 *destEnd
#define RSCP_U4_TO_U8_ARGS const rscpU4 **src, const rscpU4 *srcEnd, rscpUtf8 **dest, rscpUtf8 *destEnd
#define RSCP_U8_TO_U4_ARGS const rscpUtf8 **src, const rscpUtf8 *srcEnd, rscpU4 **dest, rscpU4 *destEnd

rscpStatus U2nToUtf8n(RSCP_U2_TO_U8_ARGS);
rscpStatus U2nToUtf8nNoCC(RSCP_U2_TO_U8_ARGS);
rscpStatus U2nSwToUtf8n(RSCP_U2_TO_U8_ARGS);
rscpStatus U2nSwToUtf8nNoCC(RSCP_U2_TO_U8_ARGS);
rscpStatus Utf8nToU2nGD(RSCP_U8_TO_U2_ARGS);
rscpStatus Utf8nToU2nSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToU2nNoCCSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToU2nSwGD(RSCP_U8_TO_U2_ARGS);
rscpStatus Utf8nToU2nSwSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToU2nSwNoCCSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS);

rscpStatus U4nToUtf8n(RSCP_U4_TO_U8_ARGS);
rscpStatus U4nToUtf8nNoCC(RSCP_U4_TO_U8_ARGS);
rscpStatus U4nToUtf8nGD(RSCP_U4_TO_U8_ARGS);
rscpStatus U4nSwToUtf8n(RSCP_U4_TO_U8_ARGS);
rscpStatus U4nSwToUtf8nNoCC(RSCP_U4_TO_U8_ARGS);
rscpStatus U4nSwToUtf8nGD(RSCP_U4_TO_U8_ARGS);
rscpStatus Utf8nToU4nGD(RSCP_U8_TO_U4_ARGS);
rscpStatus Utf8nToU4nSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToU4nNoCCSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToU4nSwGD(RSCP_U8_TO_U4_ARGS);
rscpStatus Utf8nToU4nSwSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS);
rscpStatus Utf8nToU4nSwNoCCSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS);

// ---- UTF-16 / UCS-4 / UCS-2 copies ----------------------------------------
rscpStatus U4nToUtf16n(const rscpU4 **src, const rscpU4 *srcEnd, NUV_UTF16 **dest, NUV_UTF16 *destEnd);
rscpStatus Utf16nToU4n(const NUV_UTF16 **src, const NUV_UTF16 *srcEnd, rscpU4 **dest, rscpU4 *destEnd);
// Repairs broken surrogates with '#'.  A pair may be written when only one
// unit is left, so the second unit lands at destEnd: leave one unit of slack.
rscpStatus Utf16nToUtf16n(const NUV_UTF16 **src, const NUV_UTF16 *srcEnd, NUV_UTF16 **dest, NUV_UTF16 *destEnd);
NUV_UTF16 UcsToU2s(rscpU2 *dest, const NUV_UTF16 *src);
int32_t UcnToU2n(rscpU2 *dest, const NUV_UTF16 *src, int32_t count);
// codepage: four UTF-16 digits ("4100".."4103"), possibly byte-swapped.
rscpStatus SwapUnicodeBuffer(const NUV_UTF16 *codepage, NUV_UTF16 *buf, int32_t n);

// ---- fast, overlap and multibyte entry points ------------------------------
rscpStatus UcnToUcmbn(rscpUtf8 **dest, rscpUtf8 *destEnd, const NUV_UTF16 **src, const NUV_UTF16 *srcEnd);
rscpStatus UcmbnToUcn(NUV_UTF16 **dest, NUV_UTF16 *destEnd, const rscpUtf8 **src, const rscpUtf8 *srcEnd);
rscpStatus UcnToUtf8nCPFast(void *ignored, rscpUtf8 **dest, rscpUtf8 *destEnd, const NUV_UTF16 **src,
                            const NUV_UTF16 *srcEnd);
rscpStatus Utf8nToUcnCPFast(void *ignored, NUV_UTF16 **dest, NUV_UTF16 *destEnd, const rscpUtf8 **src,
                            const rscpUtf8 *srcEnd);
rscpStatus UcsToUtf8sFast(rscpUtf8 *dest, size_t destSize, size_t *len, const NUV_UTF16 *src);
rscpStatus Utf8sToUcsFast(NUV_UTF16 *dest, size_t destSize, size_t *len, const rscpUtf8 *src);
rscpStatus UcsToUtf8sFastOverlap(rscpUtf8 *dest, size_t destSize, size_t *len, const NUV_UTF16 *src);
rscpStatus Utf8sToUcsFastOverlap(NUV_UTF16 *dest, size_t destSize, size_t *len, const rscpUtf8 *src);
rscpStatus UcnToUtf8nFastOverlap_2(rscpUtf8 *dest, size_t destSize, size_t *len, const NUV_UTF16 *src,
                                   size_t srcCount);
rscpStatus Utf8nToUcnFastOverlap_2(NUV_UTF16 *dest, size_t destSize, size_t *len, const rscpUtf8 *src,
                                   size_t srcCount);

// ---- single-byte forms -----------------------------------------------------
extern const NUV_UTF16 rscpuc2_E2U[256];
extern const unsigned char rscpuc2_U2E[256];

void *rscpuc_next_buff(int32_t size);  // one of 40 rotating result buffers

unsigned char UcToA7(NUV_UTF16 u);
unsigned char B8ToA7(unsigned char b);
unsigned char UcToB7(NUV_UTF16 u);
unsigned char UcToE8(NUV_UTF16 u);
NUV_UTF16 E8ToUc(unsigned char b);
unsigned char B8ToE8(unsigned char b);
unsigned char E8ToB8(unsigned char b);
unsigned char A7ToE8(unsigned char b);
unsigned char E8ToA7(unsigned char b);

void A7sToUcs(NUV_UTF16 *dest, const char *src);
void A7nToUcn(NUV_UTF16 *dest, const char *src, int32_t n);
void B7sToUcs(NUV_UTF16 *dest, const char *src);
void B7nToUcn(NUV_UTF16 *dest, const char *src, int32_t n);
void UcnToA7n(char *dest, const NUV_UTF16 *src, int32_t n);
void UcnToB7n(char *dest, const NUV_UTF16 *src, int32_t n);
void UcsToB7s(char *dest, const NUV_UTF16 *src);
void UcsToA7sSubst(char *dest, const NUV_UTF16 *src, unsigned char subst);
int32_t UcnToA7nSubst(char *dest, const NUV_UTF16 *src, int32_t n, unsigned char subst);
int32_t UcsToA7sCheck(char *dest, const NUV_UTF16 *src);
int32_t UcnToA7nCheck(char *dest, const NUV_UTF16 *src, int32_t n);
void E8sToUcs(NUV_UTF16 *dest, const unsigned char *src);
void E8nToUcn(NUV_UTF16 *dest, const unsigned char *src, int32_t n);
int32_t UcnToE8n(unsigned char *dest, const NUV_UTF16 *src, int32_t n);
void UcsToE8sSubst(unsigned char *dest, const NUV_UTF16 *src, NUV_UTF16 subst);
void UcnToE8nSubst(unsigned char *dest, const NUV_UTF16 *src, int32_t n, NUV_UTF16 subst);
int32_t UcsToE8sCheck(unsigned char *dest, const NUV_UTF16 *src);
int32_t UcnToE8nCheck(unsigned char *dest, const NUV_UTF16 *src, int32_t n);
void A7nToE8nInPlace(unsigned char *buf, int32_t n);
void E8nToA7nInPlace(unsigned char *buf, int32_t n);
uint32_t UcsToA7s_ErrCnt(void);
void UcsToA7s_ErrReset(void);
uint32_t UcsToE8s_ErrCnt(void);
void UcsToE8s_ErrReset(void);

NUV_UTF16 *A7sToUcsVola(const char *src);
NUV_UTF16 *A7nToUcnVola(const char *src, int32_t n);
char *UcsToA7sVola(const NUV_UTF16 *src);
char *UcnToA7nVola(const NUV_UTF16 *src, int32_t n);
NUV_UTF16 *B7sToUcsVola(const char *src);
char *UcsToB7sVola(const NUV_UTF16 *src);
NUV_UTF16 *E8sToUcsVola(const unsigned char *src);
NUV_UTF16 *E8nToUcnVola(const unsigned char *src, int32_t n);
unsigned char *UcsToE8sVola(const NUV_UTF16 *src);
unsigned char *UcnToE8nVola(const NUV_UTF16 *src, int32_t n);
char *E8sToA7sVola(const unsigned char *src);
char *E8nToA7nVola(const unsigned char *src, int32_t n);
unsigned char *A7sToE8sVola(const char *src);
unsigned char *A7nToE8nVola(const char *src, int32_t n);

// ---- neutral form and blank-filled fields ----------------------------------
void NeutralUcnToUcn(NUV_UTF16 *dest, const NUV_UTF16 *src, int32_t n);
void UcnToNeutralUcn(NUV_UTF16 *dest, const NUV_UTF16 *src, int32_t n);
void rscpuc_strfcpy(NUV_UTF16 *dest, const NUV_UTF16 *src, int32_t width);
void rscpuc_strffcpy(NUV_UTF16 *dest, int32_t width, const NUV_UTF16 *src, int32_t srcLen);

}  // extern "C"
