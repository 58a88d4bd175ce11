// UCS-2 and UCS-4 <-> UTF-8 (each also with the fixed-width side swapped),
// sharing the decoder and encoder of the UTF-16 routines with their own sites.
#include "convert/utf8_decode.h"
#include "convert/utf8_encode.h"

using namespace nuv::rscp;

namespace {

// ---- encoders: every source unit is one value ----
constexpr EncodeSites kU2w{kIdU82w, kNoSite, kNoSite, kNoSite, kNoSite, {13, 148, kMsgOverflow}, kNoSite};
constexpr EncodeSites kU2wNoCC{kIdU82w, kNoSite, kNoSite, kNoSite, {16, 211, kMsgControl}, {33, 226, kMsgOverflow},
                               kNoSite};
constexpr EncodeSites kU4w{kIdU84w, kNoSite, kNoSite, kNoSite, kNoSite, {13, 171, kMsgOverflow},
                           {14, 156, kMsgUcs4Bits}};
constexpr EncodeSites kU4wNoCC{kIdU84w, kNoSite, kNoSite, kNoSite, {16, 247, kMsgControl}, {33, 265, kMsgOverflow},
                               {14, 239, kMsgUcs4Bits}};
constexpr EncodeSites kU4wGD{kIdU84w, kNoSite, kNoSite, kNoSite, kNoSite, {2, 318, kMsgOverflow}, kNoSite};

// ---- decoders: one output unit per character ----
constexpr DecodeSites kGD(const char16_t* id, int line) {
  return {id,      {4, line + 19, kMsgOverflow}, kNoSite, kNoSite, {3, line, kMsgExhausted}, kNoSite, kNoSite,
          kNoSite, kNoSite,                      kNoSite, kNoSite, kNoSite,                  kNoSite};
}
constexpr DecodeSites kSubst(const char16_t* id, const char16_t* beyond, int line) {
  return {id,
          {6, line + 2, kMsgOverflow},
          kNoSite,
          {10, line + 14, kMsgStartByte},
          {7, line + 9, kMsgExhaustedChar},
          kNoSite,
          {10, line + 23, kMsgStartByte},
          kNoSite,
          {8, line + 41, kMsgFollowUp},
          {9, line + 52, kMsgOverlong},
          kNoSite,
          {12, line + 66, beyond},
          kNoSite};
}
constexpr DecodeSites kNoCC(const char16_t* id, const char16_t* beyond, int line, int ctlShortErr) {
  return {id,
          {18, line + 2, kMsgOverflow},
          {ctlShortErr, line + 8, kMsgControlsHere},
          {20, line + 15, kMsgStartByte},
          {21, line + 22, kMsgExhaustedChar},
          {28, line + 31, kMsgControlsHere},
          {23, line + 39, kMsgStartByte},
          {28, line + 50, kMsgControlsHere},
          {24, line + 61, kMsgFollowUp},
          {25, line + 72, kMsgOverlong},
          kNoSite,
          {26, line + 86, beyond},
          kNoSite};
}

constexpr DecodeSites kU2rGD = kGD(kIdU82r, 131);
constexpr DecodeSites kU2rSubst = kSubst(kIdU82r, kMsgBejondUcs2, 204);
constexpr DecodeSites kU2rNoCC = kNoCC(kIdU82r, kMsgBejondUcs2, 318, 28);
constexpr DecodeSites kU4rGD = kGD(kIdU84r, 127);
constexpr DecodeSites kU4rSubst = kSubst(kIdU84r, kMsgBejondUcs4, 199);
constexpr DecodeSites kU4rNoCC = kNoCC(kIdU84r, kMsgBejondUcs4, 311, 28);
constexpr DecodeSites kU4rSwNoCC = kNoCC(kIdU84r, kMsgBejondUcs4, 611, 22);

constexpr uint32_t kDefault = rscpReplacementCharacter;

}  // namespace

extern "C" {

rscpStatus U2nToUtf8n(RSCP_U2_TO_U8_ARGS) {
  return encode_utf8<In::Ucs2, false>(src, srcEnd, dest, destEnd, kDefault, 0, kU2w);
}
rscpStatus U2nToUtf8nNoCC(RSCP_U2_TO_U8_ARGS) {
  return encode_utf8<In::Ucs2, false>(src, srcEnd, dest, destEnd, kDefault, 2, kU2wNoCC);
}
rscpStatus U2nSwToUtf8n(RSCP_U2_TO_U8_ARGS) {
  return encode_utf8<In::Ucs2, true>(src, srcEnd, dest, destEnd, kDefault, 0, kU2w);
}
rscpStatus U2nSwToUtf8nNoCC(RSCP_U2_TO_U8_ARGS) {
  return encode_utf8<In::Ucs2, true>(src, srcEnd, dest, destEnd, kDefault, 2, kU2wNoCC);
}

rscpStatus U4nToUtf8n(RSCP_U4_TO_U8_ARGS) {
  return encode_utf8<In::Ucs4, false>(src, srcEnd, dest, destEnd, kDefault, 0, kU4w);
}
rscpStatus U4nToUtf8nNoCC(RSCP_U4_TO_U8_ARGS) {
  return encode_utf8<In::Ucs4, false>(src, srcEnd, dest, destEnd, kDefault, 2, kU4wNoCC);
}
rscpStatus U4nToUtf8nGD(RSCP_U4_TO_U8_ARGS) {
  return encode_utf8<In::Ucs4, false>(src, srcEnd, dest, destEnd, kDefault, 0, kU4wGD);
}
rscpStatus U4nSwToUtf8n(RSCP_U4_TO_U8_ARGS) {
  return encode_utf8<In::Ucs4, true>(src, srcEnd, dest, destEnd, kDefault, 0, kU4w);
}
rscpStatus U4nSwToUtf8nNoCC(RSCP_U4_TO_U8_ARGS) {
  return encode_utf8<In::Ucs4, true>(src, srcEnd, dest, destEnd, kDefault, 2, kU4wNoCC);
}
rscpStatus U4nSwToUtf8nGD(RSCP_U4_TO_U8_ARGS) {
  return encode_utf8<In::Ucs4, true>(src, srcEnd, dest, destEnd, kDefault, 0, kU4wGD);
}

rscpStatus Utf8nToU2nGD(RSCP_U8_TO_U2_ARGS) {
  return decode_utf8<Out::Ucs2, false>(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, false, kU2rGD);
}
rscpStatus Utf8nToU2nSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs2, false>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false, kU2rSubst);
}
rscpStatus Utf8nToU2nNoCCSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs2, false>(src, srcEnd, dest, destEnd, substChar, errCount, 2, false, kU2rNoCC);
}
rscpStatus Utf8nToU2nSwGD(RSCP_U8_TO_U2_ARGS) {
  return decode_utf8<Out::Ucs2, true>(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, false, kU2rGD);
}
rscpStatus Utf8nToU2nSwSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs2, true>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false, kU2rSubst);
}
rscpStatus Utf8nToU2nSwNoCCSubst(RSCP_U8_TO_U2_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs2, true>(src, srcEnd, dest, destEnd, substChar, errCount, 2, false, kU2rNoCC);
}

rscpStatus Utf8nToU4nGD(RSCP_U8_TO_U4_ARGS) {
  return decode_utf8<Out::Ucs4, false>(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, false, kU4rGD);
}
rscpStatus Utf8nToU4nSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs4, false>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false, kU4rSubst);
}
rscpStatus Utf8nToU4nNoCCSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs4, false>(src, srcEnd, dest, destEnd, substChar, errCount, 2, false, kU4rNoCC);
}
rscpStatus Utf8nToU4nSwGD(RSCP_U8_TO_U4_ARGS) {
  return decode_utf8<Out::Ucs4, true>(src, srcEnd, dest, destEnd, nullptr, nullptr, 0, false, kU4rGD);
}
rscpStatus Utf8nToU4nSwSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs4, true>(src, srcEnd, dest, destEnd, substChar, errCount, 1, false, kU4rSubst);
}
rscpStatus Utf8nToU4nSwNoCCSubst(RSCP_U8_TO_U4_ARGS, RSCP_SUBST_ARGS) {
  return decode_utf8<Out::Ucs4, true>(src, srcEnd, dest, destEnd, substChar, errCount, 2, false, kU4rSwNoCC);
}

}  // extern "C"
