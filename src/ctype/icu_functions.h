// The ICU functions the library binds at run time, grouped by ICU service.
// ICU is never linked: these are our own declarations of its C API with
// plain types, and each family is bound in the order listed.
#pragma once

#include <cstdint>

namespace nuv::icu {

using UChar = char16_t;
using UChar32 = std::int32_t;
using UBool = std::int8_t;
using UErrorCode = int;
struct UEnumeration;
struct UBiDi;
struct UBreakIterator;
struct UCharIterator;
struct UCollator;
struct UTransliterator;
struct UCalendar;
struct UParseError {
  std::int32_t line, offset;
  UChar preContext[16], postContext[16];
};

// X(name, return type, parameter list)
#define NUV_ICU_UTIL(X)                                                                                   \
  X(u_versionToString, void, (const std::uint8_t* version, char* text))                                    \
  X(u_errorName, const char*, (UErrorCode code))                                                           \
  X(u_getVersion, void, (std::uint8_t* version))                                                           \
  X(u_getUnicodeVersion, void, (std::uint8_t* version))                                                    \
  X(u_charType, std::int8_t, (UChar32 c))                                                                  \
  X(u_getIntPropertyValue, std::int32_t, (UChar32 c, int which))                                           \
  X(u_charDirection, int, (UChar32 c))                                                                     \
  X(u_getPropertyEnum, int, (const char* alias))                                                           \
  X(u_getPropertyValueName, const char*, (int property, std::int32_t value, int name_choice))              \
  X(uenum_unext, const UChar*, (UEnumeration * en, std::int32_t * length, UErrorCode * status))            \
  X(uenum_count, std::int32_t, (UEnumeration * en, UErrorCode * status))                                   \
  X(u_strToUpper, std::int32_t,                                                                            \
    (UChar * dest, std::int32_t capacity, const UChar* src, std::int32_t length, const char* locale,        \
     UErrorCode* status))

// Bound into the nine exported class and case pointers.
#define NUV_ICU_CTYPE(X)                   \
  X(u_isalnum, UBool, (UChar32 c))         \
  X(u_isalpha, UBool, (UChar32 c))         \
  X(u_iscntrl, UBool, (UChar32 c))         \
  X(u_islower, UBool, (UChar32 c))         \
  X(u_isprint, UBool, (UChar32 c))         \
  X(u_isspace, UBool, (UChar32 c))         \
  X(u_isupper, UBool, (UChar32 c))         \
  X(u_toupper, UChar32, (UChar32 c))       \
  X(u_tolower, UChar32, (UChar32 c))

#define NUV_ICU_BIDI(X)                                                                                   \
  X(ubidi_open, UBiDi*, (void))                                                                            \
  X(ubidi_close, void, (UBiDi * bidi))                                                                     \
  X(ubidi_setInverse, void, (UBiDi * bidi, UBool inverse))                                                 \
  X(ubidi_setPara, void,                                                                                   \
    (UBiDi * bidi, const UChar* text, std::int32_t length, std::uint8_t level, std::uint8_t* levels,       \
     UErrorCode* status))                                                                                  \
  X(ubidi_writeReordered, std::int32_t,                                                                    \
    (UBiDi * bidi, UChar * dest, std::int32_t size, std::uint16_t options, UErrorCode * status))           \
  X(ubidi_getLogicalMap, void, (UBiDi * bidi, std::int32_t * map, UErrorCode * status))                    \
  X(ubidi_getVisualMap, void, (UBiDi * bidi, std::int32_t * map, UErrorCode * status))                     \
  X(ubidi_getLevelAt, std::uint8_t, (const UBiDi* bidi, std::int32_t index))                              \
  X(u_charMirror, UChar32, (UChar32 c))

#define NUV_ICU_SHAPING(X)                                                                                \
  X(u_shapeArabic, std::int32_t,                                                                           \
    (const UChar* src, std::int32_t length, UChar* dest, std::int32_t size, std::uint32_t options,         \
     UErrorCode* status))

#define NUV_ICU_UNORM(X)                                                                                  \
  X(unorm_normalize, std::int32_t,                                                                         \
    (const UChar* src, std::int32_t length, int mode, std::int32_t options, UChar* result,                 \
     std::int32_t capacity, UErrorCode* status))                                                           \
  X(unorm_quickCheck, int, (const UChar* src, std::int32_t length, int mode, UErrorCode* status))          \
  X(unorm_quickCheckWithOptions, int,                                                                      \
    (const UChar* src, std::int32_t length, int mode, std::int32_t options, UErrorCode* status))           \
  X(unorm_isNormalized, UBool, (const UChar* src, std::int32_t length, int mode, UErrorCode* status))      \
  X(unorm_isNormalizedWithOptions, UBool,                                                                  \
    (const UChar* src, std::int32_t length, int mode, std::int32_t options, UErrorCode* status))           \
  X(unorm_next, std::int32_t,                                                                              \
    (UCharIterator * src, UChar * dest, std::int32_t capacity, int mode, std::int32_t options,             \
     UBool do_normalize, UBool* needed, UErrorCode* status))                                               \
  X(unorm_previous, std::int32_t,                                                                          \
    (UCharIterator * src, UChar * dest, std::int32_t capacity, int mode, std::int32_t options,             \
     UBool do_normalize, UBool* needed, UErrorCode* status))                                               \
  X(unorm_concatenate, std::int32_t,                                                                       \
    (const UChar* left, std::int32_t left_length, const UChar* right, std::int32_t right_length,           \
     UChar* dest, std::int32_t capacity, int mode, std::int32_t options, UErrorCode* status))              \
  X(unorm_compare, std::int32_t,                                                                           \
    (const UChar* a, std::int32_t a_length, const UChar* b, std::int32_t b_length, std::uint32_t options,  \
     UErrorCode* status))

#define NUV_ICU_UBRK(X)                                                                                   \
  X(ubrk_open, UBreakIterator*,                                                                            \
    (int type, const char* locale, const UChar* text, std::int32_t length, UErrorCode* status))            \
  X(ubrk_openRules, UBreakIterator*,                                                                       \
    (const UChar* rules, std::int32_t rules_length, const UChar* text, std::int32_t length,                \
     UParseError* parse_error, UErrorCode* status))                                                        \
  X(ubrk_safeClone, UBreakIterator*,                                                                       \
    (const UBreakIterator* bi, void* buffer, std::int32_t* size, UErrorCode* status))                      \
  X(ubrk_close, void, (UBreakIterator * bi))                                                               \
  X(ubrk_setText, void, (UBreakIterator * bi, const UChar* text, std::int32_t length, UErrorCode* status)) \
  X(ubrk_current, std::int32_t, (const UBreakIterator* bi))                                                \
  X(ubrk_next, std::int32_t, (UBreakIterator * bi))                                                        \
  X(ubrk_previous, std::int32_t, (UBreakIterator * bi))                                                    \
  X(ubrk_first, std::int32_t, (UBreakIterator * bi))                                                       \
  X(ubrk_last, std::int32_t, (UBreakIterator * bi))                                                        \
  X(ubrk_preceding, std::int32_t, (UBreakIterator * bi, std::int32_t offset))                              \
  X(ubrk_following, std::int32_t, (UBreakIterator * bi, std::int32_t offset))                              \
  X(ubrk_getAvailable, const char*, (std::int32_t index))                                                  \
  X(ubrk_countAvailable, std::int32_t, (void))                                                             \
  X(ubrk_isBoundary, UBool, (UBreakIterator * bi, std::int32_t offset))                                    \
  X(ubrk_getRuleStatus, std::int32_t, (UBreakIterator * bi))                                               \
  X(ubrk_getLocaleByType, const char*, (const UBreakIterator* bi, int type, UErrorCode* status))           \
  X(uloc_getDefault, const char*, (void))

#define NUV_ICU_UIDNA(X)                                                                                  \
  X(uidna_toASCII, std::int32_t,                                                                           \
    (const UChar* src, std::int32_t length, UChar* dest, std::int32_t capacity, std::int32_t options,      \
     UParseError* parse_error, UErrorCode* status))                                                        \
  X(uidna_toUnicode, std::int32_t,                                                                         \
    (const UChar* src, std::int32_t length, UChar* dest, std::int32_t capacity, std::int32_t options,      \
     UParseError* parse_error, UErrorCode* status))                                                        \
  X(uidna_IDNToASCII, std::int32_t,                                                                        \
    (const UChar* src, std::int32_t length, UChar* dest, std::int32_t capacity, std::int32_t options,      \
     UParseError* parse_error, UErrorCode* status))                                                        \
  X(uidna_IDNToUnicode, std::int32_t,                                                                      \
    (const UChar* src, std::int32_t length, UChar* dest, std::int32_t capacity, std::int32_t options,      \
     UParseError* parse_error, UErrorCode* status))                                                        \
  X(uidna_compare, std::int32_t,                                                                           \
    (const UChar* a, std::int32_t a_length, const UChar* b, std::int32_t b_length, std::int32_t options,   \
     UErrorCode* status))

#define NUV_ICU_UCOL(X)                                                                                   \
  X(ucol_open, UCollator*, (const char* locale, UErrorCode* status))                                       \
  X(ucol_strcoll, int,                                                                                     \
    (const UCollator* coll, const UChar* a, std::int32_t a_length, const UChar* b, std::int32_t b_length))  \
  X(ucol_close, void, (UCollator * coll))                                                                  \
  X(ucol_setStrength, void, (UCollator * coll, int strength))                                              \
  X(ucol_getSortKey, std::int32_t,                                                                         \
    (const UCollator* coll, const UChar* src, std::int32_t length, std::uint8_t* key, std::int32_t size))  \
  X(ucol_getLocaleByType, const char*, (const UCollator* coll, int type, UErrorCode* status))

#define NUV_ICU_UTRANS(X)                                                                                 \
  X(utrans_openU, UTransliterator*,                                                                        \
    (const UChar* id, std::int32_t id_length, int dir, const UChar* rules, std::int32_t rules_length,      \
     UParseError* parse_error, UErrorCode* status))                                                        \
  X(utrans_openInverse, UTransliterator*, (const UTransliterator* trans, UErrorCode* status))              \
  X(utrans_close, void, (UTransliterator * trans))                                                         \
  X(utrans_getUnicodeID, const UChar*, (const UTransliterator* trans, std::int32_t* length))               \
  X(utrans_setFilter, void,                                                                                \
    (UTransliterator * trans, const UChar* pattern, std::int32_t length, UErrorCode* status))              \
  X(utrans_countAvailableIDs, std::int32_t, (void))                                                        \
  X(utrans_openIDs, UEnumeration*, (UErrorCode * status))                                                  \
  X(utrans_transUChars, void,                                                                              \
    (const UTransliterator* trans, UChar* text, std::int32_t* length, std::int32_t capacity,               \
     std::int32_t start, std::int32_t* limit, UErrorCode* status))

#define NUV_ICU_UCAL(X)                                                                                   \
  X(ucal_getAvailable, const char*, (std::int32_t index))                                                  \
  X(ucal_countAvailable, std::int32_t, (void))                                                             \
  X(ucal_open, UCalendar*,                                                                                 \
    (const UChar* zone, std::int32_t length, const char* locale, int type, UErrorCode* status))            \
  X(ucal_close, void, (UCalendar * cal))                                                                   \
  X(ucal_set, void, (UCalendar * cal, int field, std::int32_t value))                                      \
  X(ucal_setDate, void,                                                                                    \
    (UCalendar * cal, std::int32_t year, std::int32_t month, std::int32_t day, UErrorCode * status))       \
  X(ucal_get, std::int32_t, (const UCalendar* cal, int field, UErrorCode* status))                        \
  X(ucal_getMillis, double, (const UCalendar* cal, UErrorCode* status))                                    \
  X(ucal_setMillis, void, (UCalendar * cal, double millis, UErrorCode * status))

// One table per family: a typed pointer per function, null until bound.
#define NUV_ICU_MEMBER(name, ret, params) ret(*name) params = nullptr;
struct UtilTable { NUV_ICU_UTIL(NUV_ICU_MEMBER) };
struct CtypeTable { NUV_ICU_CTYPE(NUV_ICU_MEMBER) };
struct BidiTable { NUV_ICU_BIDI(NUV_ICU_MEMBER) };
struct ShapingTable { NUV_ICU_SHAPING(NUV_ICU_MEMBER) };
struct UnormTable { NUV_ICU_UNORM(NUV_ICU_MEMBER) };
struct UbrkTable { NUV_ICU_UBRK(NUV_ICU_MEMBER) };
struct UidnaTable { NUV_ICU_UIDNA(NUV_ICU_MEMBER) };
struct UcolTable { NUV_ICU_UCOL(NUV_ICU_MEMBER) };
struct UtransTable { NUV_ICU_UTRANS(NUV_ICU_MEMBER) };
struct UcalTable { NUV_ICU_UCAL(NUV_ICU_MEMBER) };
#undef NUV_ICU_MEMBER

extern UtilTable util;
extern CtypeTable ctype;
extern BidiTable bidi;
extern ShapingTable shaping;
extern UnormTable unorm;
extern UbrkTable ubrk;
extern UidnaTable uidna;
extern UcolTable ucol;
extern UtransTable utrans;
extern UcalTable ucal;

}  // namespace nuv::icu
