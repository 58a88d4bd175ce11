// AVX-512 (VBMI2) kernels of the UTF-16 to UTF-8 block writer: the
// converter's step over units of the BMP, writing straight into the stream
// buffer.  Reached only after the run-time check.
#include "convert/utf16_bmp_avx512.h"

#include <cstdint>

#include "common/nuv_internal.h"
#include "stream/output.h"

namespace nuv {

// Mixed text rarely has long runs below U+0800, so the wide step only.
NUV_VBMI2 std::size_t encode_units_fit_avx512(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                    std::size_t* bytes, bool* hit_surrogate) {
  const NUV_UTF16* s = src;
  auto* d = reinterpret_cast<unsigned char*>(dst);
  rscp::utf16_bmp_to_utf8_avx512<false>(&s, src + n, &d, d + cap);
  const std::size_t i = static_cast<std::size_t>(s - src);
  *bytes = static_cast<std::size_t>(d - reinterpret_cast<unsigned char*>(dst));
  // The step stops before a surrogate, or before a unit that does not fit.
  *hit_surrogate = i < n && is_surrogate_unit(unit_at(s));
  return i;
}

// The lanes past the terminator may be loaded (never past the page that
// holds it) and are dropped before anything is encoded.
NUV_VBMI2 NUV_NO_ASAN std::size_t encode_text_fit_avx512(const NUV_UTF16* src, char* dst, std::size_t cap,
                                                         std::size_t* bytes) {
  const NUV_UTF16* s = src;
  auto* d = reinterpret_cast<unsigned char*>(dst);
  auto* const end = d + cap;
  const rscp::BmpConsts c;
  for (;;) {
    const std::size_t in_page = (4096 - (reinterpret_cast<std::uintptr_t>(s) & 4095)) / 2;
    const std::uint32_t page = in_page >= 32 ? ~0u : _bzhi_u32(~0u, static_cast<unsigned>(in_page));
    if (page == 0) break;  // a unit across the page end: the caller goes on
    const __m512i v = _mm512_maskz_loadu_epi16(page, s);
    const std::uint32_t stop = _mm512_mask_testn_epi16_mask(page, v, v) | ~page;  // the terminator, the page end
    const rscp::BmpStep st = rscp::bmp_step<false>(c, v, stop, d, static_cast<std::size_t>(end - d));
    s += st.units, d += st.bytes;
    // Go on only after a whole step, or after the whole rest of the page
    // when no terminator was in it.
    if (st.units != 32 && (st.units != in_page || (stop & page))) break;
  }
  *bytes = static_cast<std::size_t>(d - reinterpret_cast<unsigned char*>(dst));
  return static_cast<std::size_t>(s - src);
}

}  // namespace nuv
