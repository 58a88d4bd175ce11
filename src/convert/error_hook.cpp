// The converters' one replaceable error hook.
#include "common/nuv_internal.h"
#include "convert/report.h"

extern "C" rscpStatus rscph_rscpe__error(rscpStatus status, int32_t, int32_t, const NUV_UTF16*, int32_t, int32_t,
                                         const NUV_UTF16*, void*, void*, int32_t, void*, int32_t) {
  return status;
}

extern "C" {
rscpErrorHook rscpHook_rscpe__error = rscph_rscpe__error;
}

extern "C" void rscpSetHook_rscpe__error(rscpErrorHook hook) {
  nuv::store_relaxed(rscpHook_rscpe__error, hook ? hook : &rscph_rscpe__error);
}

namespace nuv::rscp {

// The two constants are part of the hook's frame; they carry no meaning here.
constexpr int32_t kHookArg79 = 79;
constexpr int32_t kHookArgMinus1 = -1;

rscpStatus report(rscpStatus status, const char16_t* id, const Site& site) {
  rscpErrorHook hook = load_relaxed(rscpHook_rscpe__error);
  if (!hook) hook = rscph_rscpe__error;
  return hook(status, kHookArg79, kHookArgMinus1, id, site.err, site.line, site.msg, nullptr, nullptr, 0, nullptr, 0);
}

}  // namespace nuv::rscp
