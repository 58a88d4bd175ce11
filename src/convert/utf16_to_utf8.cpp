// UTF-16 -> UTF-8: the base routine and its variants, the older routines and
// the byte-swapped sources, each with its own report sites.
#include "convert/utf8_encode.h"

using namespace nuv::rscp;

namespace {

using U16 = NUV_UTF16;

constexpr EncodeSites kBase{
    kIdU86w,
    {12, 204, kMsgHalfAtEnd},
    {14, 196, kMsgHalfMiddle},
    {15, 212, kMsgHalfLowMiddle},
    {16, 219, kMsgControl},
    {13, 238, kMsgOverflow},
    kNoSite,
};
constexpr EncodeSites kOld{
    kIdU86w,           {12, 318, kMsgHalfAtEnd}, {14, 309, kMsgHalfMiddle}, {15, 327, kMsgHalfLowMiddle},
    {16, 333, kMsgControl}, {13, 351, kMsgOverflow}, kNoSite,
};
constexpr EncodeSites kNoCCOld{
    kIdU86w,           {31, 402, kMsgHalfAtEnd}, {35, 393, kMsgHalfMiddle}, {36, 411, kMsgHalfLowMiddle},
    {32, 419, kMsgControl}, {33, 437, kMsgOverflow}, kNoSite,
};
constexpr EncodeSites kGDOld{
    kIdU86w, {1, 478, kMsgHalfAtEnd}, kNoSite, kNoSite, kNoSite, {2, 497, kMsgOverflow}, kNoSite,
};
constexpr EncodeSites kSubstOld{
    kIdU86w, kNoSite, kNoSite, kNoSite, kNoSite, {34, 552, kMsgOverflow}, kNoSite,
};

}  // namespace

extern "C" {

rscpStatus Utf16nToUtf8nBase(RSCP_U16_TO_U8_ARGS, uint32_t substChar, int32_t mode) {
  return encode_utf8<In::Utf16, false>(src, srcEnd, dest, destEnd, substChar, mode, kBase);
}
rscpStatus Utf16nToUtf8nGD(RSCP_U16_TO_U8_ARGS) {
  return Utf16nToUtf8nBase(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 1);
}
rscpStatus Utf16nToUtf8nNoCC(RSCP_U16_TO_U8_ARGS) {
  return Utf16nToUtf8nBase(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 2);
}
rscpStatus Utf16nToUtf8nSubst(RSCP_U16_TO_U8_ARGS, uint32_t substChar) {
  return Utf16nToUtf8nBase(src, srcEnd, dest, destEnd, substChar, 3);
}
rscpStatus Utf16nToUtf8nSubstAll(RSCP_U16_TO_U8_ARGS) {
  return Utf16nToUtf8nBase(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 3);
}

rscpStatus Utf16nToUtf8nOld(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, false>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 0, kOld);
}
rscpStatus Utf16nToUtf8nNoCCOld(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, false>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 2, kNoCCOld);
}
rscpStatus Utf16nToUtf8nGDOld(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, false>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 1, kGDOld);
}
rscpStatus Utf16nToUtf8nSubstOld(RSCP_U16_TO_U8_ARGS, uint32_t substChar) {
  return encode_utf8<In::Utf16, false>(src, srcEnd, dest, destEnd, substChar, 3, kSubstOld);
}
rscpStatus Utf16nToUtf8nSubstAllOld(RSCP_U16_TO_U8_ARGS) {
  return Utf16nToUtf8nSubstOld(src, srcEnd, dest, destEnd, rscpReplacementCharacter);
}

rscpStatus Utf16nSwToUtf8n(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, true>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 0, kOld);
}
rscpStatus Utf16nSwToUtf8nNoCC(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, true>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 2, kNoCCOld);
}
rscpStatus Utf16nSwToUtf8nGD(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, true>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 1, kGDOld);
}

}  // extern "C"

// The checking encoder every new path uses: the base routine in mode 0 with
// the vector paths.
extern "C" rscpStatus Utf16nToUtf8n(RSCP_U16_TO_U8_ARGS) {
  return encode_utf8<In::Utf16, false, NUV_UTF16, true>(src, srcEnd, dest, destEnd, rscpReplacementCharacter, 0, kBase);
}
