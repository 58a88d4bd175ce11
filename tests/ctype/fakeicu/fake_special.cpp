// The few answers of the stand-in common library that the loader looks at:
// versions, and case mapping of U+0101 (left unmapped when
// NUV_FAKE_ICU_BROKEN is set, to look like a broken data library).
#include <cstdio>
#include <cstdlib>

#include "ctype/icu_functions.h"

#define FAKE_CAT2(a, b) a##b
#define FAKE_CAT(a, b) FAKE_CAT2(a, b)
#define FAKE_API extern "C" __attribute__((visibility("default")))

FAKE_API void FAKE_CAT(u_getVersion, FAKE_ICU_SUFFIX)(std::uint8_t* v) {
  v[0] = 99;
  v[1] = 1;
  v[2] = v[3] = 0;
}
FAKE_API void FAKE_CAT(u_getUnicodeVersion, FAKE_ICU_SUFFIX)(std::uint8_t* v) {
  v[0] = 3;
  v[1] = 1;
  v[2] = v[3] = 0;
}
FAKE_API void FAKE_CAT(u_versionToString, FAKE_ICU_SUFFIX)(const std::uint8_t* v, char* text) {
  std::snprintf(text, 20, "%d.%d", v[0], v[1]);
}
FAKE_API std::int32_t FAKE_CAT(u_toupper, FAKE_ICU_SUFFIX)(std::int32_t c) {
  if (c == 0x101) return std::getenv("NUV_FAKE_ICU_BROKEN") ? c : 0x100;
  return (c >= 'a' && c <= 'z') ? c - 0x20 : c;
}
FAKE_API std::int32_t FAKE_CAT(u_tolower, FAKE_ICU_SUFFIX)(std::int32_t c) {
  return (c >= 'A' && c <= 'Z') ? c + 0x20 : c;
}
FAKE_API nuv::icu::UBool FAKE_CAT(u_isalpha, FAKE_ICU_SUFFIX)(std::int32_t c) {
  return (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
}
