// UTF-8 -> UTF-16: the base routine and its variants, the older routines and
// the byte-swapped targets, each with its own report sites.
#include "convert/utf8_decode.h"

using namespace nuv::rscp;

namespace {

using U16 = NUV_UTF16;

constexpr DecodeSites kBase{
    kIdU86r,
    {51, 822, kMsgOverflow},
    {52, 834, kMsgControlsHere},
    {53, 844, kMsgStartByte},
    {54, 853, kMsgExhaustedChar},
    {55, 865, kMsgControlsHere},
    {56, 878, kMsgStartByte},
    {57, 927, kMsgControlsHere},
    {58, 948, kMsgFollowUp},
    {59, 961, kMsgOverlong},
    {60, 975, kMsgSurrogate},
    {61, 990, kMsgBeyondUtf32},
    {62, 996, kMsgOverflow},
};

// Older routines: trusting, checking, no control codes, always substituting.
constexpr DecodeSites kGDOld{
    kIdU86r, {5, 431, kMsgOverflow}, kNoSite, kNoSite, {3, 418, kMsgExhausted}, kNoSite, kNoSite, kNoSite,
    kNoSite, kNoSite, kNoSite, kNoSite, {5, 446, kMsgOverflow},
};
constexpr DecodeSites kSubstOld{
    kIdU86r, {9, 571, kMsgOverflow}, kNoSite, {10, 498, kMsgStartByte}, {7, 490, kMsgExhaustedChar}, kNoSite,
    {10, 507, kMsgStartByte}, kNoSite, {8, 524, kMsgFollowUp}, {11, 538, kMsgOverlong}, kNoSite,
    {32, 559, kMsgBejondUtf32}, {9, 566, kMsgOverflow},
};
constexpr DecodeSites kNoCCSubstOld{
    kIdU86r, {27, 712, kMsgOverflow}, {28, 623, kMsgControlsHere}, {20, 631, kMsgStartByte},
    {21, 640, kMsgExhaustedChar}, {28, 651, kMsgControlsHere}, {23, 660, kMsgStartByte},
    {28, 672, kMsgControlsHere}, {24, 683, kMsgFollowUp}, {25, 692, kMsgOverlong}, kNoSite,
    {26, 703, kMsgBejondUtf32}, {27, 708, kMsgOverflow},
};
constexpr DecodeSites kSubstAllOld{
    kIdU86r, {30, 767, kMsgOverflow}, kNoSite, kNoSite, kNoSite, kNoSite, kNoSite, kNoSite,
    kNoSite, kNoSite, kNoSite, kNoSite, {30, 781, kMsgOverflow},
};
// The swapped no-control routine reports a control code at the very end at
// a site of its own.
constexpr DecodeSites kSwNoCCSubst = [] {
  DecodeSites s = kNoCCSubstOld;
  s.ctlShort = {22, 1284, kMsgControlsHere};
  return s;
}();

}  // namespace

extern "C" {

rscpStatus Utf8nToUtf16nBase(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS, int32_t mode, unsigned char surrogateCheck) {
  return decode_utf8<Out::Utf16, false>(src, srcEnd, dest, destEnd, substChar, errCount, mode, surrogateCheck != 0,
                                        kBase);
}
rscpStatus Utf8nToUtf16nGD(RSCP_U8_TO_U16_ARGS) {
  return Utf8nToUtf16nBase(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, 0);
}
rscpStatus Utf8nToUtf16nSubstStrict(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return Utf8nToUtf16nBase(src, srcEnd, dest, destEnd, substChar, errCount, 1, 1);
}
rscpStatus Utf8nToUtf16nNoCCSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return Utf8nToUtf16nBase(src, srcEnd, dest, destEnd, substChar, errCount, 2, 0);
}
rscpStatus Utf8nToUtf16nSubstAll(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return Utf8nToUtf16nBase(src, srcEnd, dest, destEnd, substChar, errCount, 3, 0);
}

rscpStatus Utf8nToUtf16nGDOld(RSCP_U8_TO_U16_ARGS) {
  return decode_utf8<Out::Utf16, false>(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, false, kGDOld);
}
rscpStatus Utf8nToUtf16nSubstOld(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Utf16, false>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false, kSubstOld);
}
rscpStatus Utf8nToUtf16nNoCCSubstOld(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Utf16, false>(src, srcEnd, dest, destEnd, substChar, errCount, 2, false, kNoCCSubstOld);
}
rscpStatus Utf8nToUtf16nSubstAllOld(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Utf16, false>(src, srcEnd, dest, destEnd, substChar, errCount, 3, false, kSubstAllOld);
}

rscpStatus Utf8nToUtf16nSwGD(RSCP_U8_TO_U16_ARGS) {
  return decode_utf8<Out::Utf16, true>(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, false, kGDOld);
}
rscpStatus Utf8nToUtf16nSwSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Utf16, true>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false, kSubstOld);
}
rscpStatus Utf8nToUtf16nSwNoCCSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Utf16, true>(src, srcEnd, dest, destEnd, substChar, errCount, 2, false, kSwNoCCSubst);
}

}  // extern "C"

// The checking decoder every new path uses: a routine of its own with the
// base routine's sites (the base routine in mode 1, plus the vector paths).
extern "C" rscpStatus Utf8nToUtf16nSubst(RSCP_U8_TO_U16_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Utf16, false, NUV_UTF16, true>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false,
                                                        kBase);
}
