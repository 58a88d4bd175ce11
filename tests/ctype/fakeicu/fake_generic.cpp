// Stand-ins for the ICU libraries of a version that does not exist, for the
// loader's tests: every function the loader binds from the common library,
// answering zero.  Weak, so fake_special.cpp can give a few real answers.
#include <type_traits>

#include "ctype/icu_functions.h"

#ifndef FAKE_ICU_SUFFIX
#error "FAKE_ICU_SUFFIX must name the version suffix"
#endif

using namespace nuv::icu;

namespace {
template <class T>
T zero() {
  if constexpr (!std::is_void_v<T>) return T{};
}
}  // namespace

#define FAKE_CAT2(a, b) a##b
#define FAKE_CAT(a, b) FAKE_CAT2(a, b)
#define FAKE(name, ret, params) \
  extern "C" __attribute__((weak, visibility("default"))) ret FAKE_CAT(name, FAKE_ICU_SUFFIX) params { return zero<ret>(); }

#ifdef FAKE_ICU_COMMON
NUV_ICU_UTIL(FAKE)
NUV_ICU_CTYPE(FAKE)
NUV_ICU_BIDI(FAKE)
NUV_ICU_SHAPING(FAKE)
NUV_ICU_UNORM(FAKE)
NUV_ICU_UBRK(FAKE)
NUV_ICU_UIDNA(FAKE)
#endif
#ifdef FAKE_ICU_I18N
// Collation only: the transliteration symbols are missing on purpose.
NUV_ICU_UCOL(FAKE)
#endif
#ifdef FAKE_ICU_DATA
extern "C" {
__attribute__((visibility("default"))) int fake_icudata_marker = 1;
}
#endif
