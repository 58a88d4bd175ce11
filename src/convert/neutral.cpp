// The byte-order-neutral form (high byte first) and blank-filled fields.
#include "convert/converters.h"

namespace {

// Exchanges the bytes of n units; dest may equal src.  A plain loop the
// compiler vectorises.
void swap_units(NUV_UTF16* dest, const NUV_UTF16* src, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dest[i] = static_cast<NUV_UTF16>(__builtin_bswap16(src[i]));
}

void fill_blanks(NUV_UTF16* dest, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dest[i] = u' ';
}

}  // namespace

extern "C" {

// Little-endian hosts only: both directions exchange the bytes.
void NeutralUcnToUcn(NUV_UTF16* dest, const NUV_UTF16* src, int32_t n) { swap_units(dest, src, n); }
void UcnToNeutralUcn(NUV_UTF16* dest, const NUV_UTF16* src, int32_t n) { swap_units(dest, src, n); }

void rscpuc_strfcpy(NUV_UTF16* dest, const NUV_UTF16* src, int32_t width) {
  if (width <= 0) return;
  if (!src) {
    fill_blanks(dest, width);
    return;
  }
  int32_t len = 0;
  while (len < width && src[len]) ++len;  // no need to look past the field
  for (int32_t i = 0; i < len; ++i) dest[i] = src[i];
  fill_blanks(dest + len, width - len);
}

void rscpuc_strffcpy(NUV_UTF16* dest, int32_t width, const NUV_UTF16* src, int32_t srcLen) {
  if (!src) {
    if (srcLen != 0) fill_blanks(dest, width);  // a null source of length 0 leaves the field alone
    return;
  }
  if (width <= 0) return;
  const int32_t n = srcLen < 0 ? 0 : srcLen < width ? srcLen : width;
  for (int32_t i = 0; i < n; ++i) dest[i] = src[i];
  fill_blanks(dest + n, width - n);
}

}  // extern "C"
