// Case-insensitive comparison and case conversion: plain unit-by-unit
// references that the vector paths of caseless.cpp are held against in tests
// and fuzzing.  Internal.
#pragma once

#include <cstddef>

#include "nuvu16.h"

namespace nuv {

int strcasecmp_ref(const NUV_UTF16* a, const NUV_UTF16* b);
int strncasecmp_ref(const NUV_UTF16* a, const NUV_UTF16* b, std::size_t n);
// to_upper selects the direction; n is SIZE_MAX for the unbounded forms.
NUV_UTF16* strncase_ref(NUV_UTF16* s, std::size_t n, bool to_upper);
NUV_UTF16* strcpycase_ref(NUV_UTF16* dest, const NUV_UTF16* src, bool to_upper);

}  // namespace nuv
