// Run-time binding of ICU and the class/case entry points it feeds.
// Internal: nothing here is exported from the shared library.
#pragma once

#include <cstdint>

#include "ctype/icu_functions.h"
#include "os/limits.h"

// The major version of ICU this build binds; it names the files and symbols.
#ifndef NUV_ICU_VERSION
#define NUV_ICU_VERSION 50
#endif
#define NUV_ICU_STR2(x) #x
#define NUV_ICU_STR(x) NUV_ICU_STR2(x)
#define NUV_ICU_V NUV_ICU_STR(NUV_ICU_VERSION)

namespace nuv {

inline constexpr char kIcuLibUc[] = "libicuuc.so." NUV_ICU_V;
inline constexpr char kIcuLibData[] = "libicudata.so." NUV_ICU_V;
inline constexpr char kIcuLibI18n[] = "libicui18n.so." NUV_ICU_V;
inline constexpr char kIcuCompiledVersion[] = NUV_ICU_V ".1";

// Longest path the loader builds, terminator included.
inline constexpr int kMaxPathLn = static_cast<int>(lim::MAX_PATH_LN.size);
// Longest additional search directory kept, terminator included.
inline constexpr int kMaxSearchPathLn = 4098;

// The nine pointers set to the fallback functions.
void install_fallback_ctype();

// Test hook: forget the load flags and handles (the pointers stay as they are).
void reset_icu_load_for_tests();

}  // namespace nuv

extern "C" {

// Process-wide load state; plain globals, accessed relaxed.
extern void* libicuucHandle;
extern void* libicui18nHandle;
extern int32_t libicuucInitCalled;  // the common library has been dealt with
extern int32_t libicuucInitCall;    // the application chose the class functions itself
extern uint8_t NuvWith7bitUnicode;  // run without ICU (nlsui_set7bitUnicode)
extern int32_t IcuShaping;          // u_shapeArabic is bound

// Returns 0 when the ICU common library is in use, 1 when the process runs
// with the 7-bit fallback.  A failure of the i18n part leaves the result 0.
int loadIcu(int flag);
int loadIcuDo(int fallback_wanted);

const char* nlsui_addIcuSearchPath(const char* directory);
void* nlsui_dlopen(const char* name);
void* nlsui_dlsym(void* handle, const char* symbol);
int nlsui_dlclose(void* handle);
// Joins directory "/" file into result (kMaxPathLn bytes); -1 and an empty
// result if it does not fit.
int nlsui_build_full_path(const char* directory, const char* file, char* result);

void* openLibIcuUc(void);
void* openLibIcuI18n(void);

// Each binds its family from the handle in order; 0 on success, -1 at the
// first missing symbol.
int mapIcuUtilFunctions(void* handle);
int mapCtypeFunctions(void* handle);  // also points the nine entries at ICU
int mapUbidiFunctions(void* handle);
int mapUnormFunctions(void* handle);
int mapUbrkFunctions(void* handle);
int mapUidnaFunctions(void* handle);
int mapUcalFunctions(void* handle);

// The loader's failure path: exit(-1), or the 7-bit fallback.
void icu7bitFallbackOrExit(int fallback_wanted);

// ICU's 8-bit class answers widened to the entries' 32-bit result.
int32_t u_isalnum_widened(int32_t c);
int32_t u_isalpha_widened(int32_t c);
int32_t u_iscntrl_widened(int32_t c);
int32_t u_islower_widened(int32_t c);
int32_t u_isprint_widened(int32_t c);
int32_t u_isspace_widened(int32_t c);
int32_t u_isupper_widened(int32_t c);

int32_t isalnumU_wrapper(int32_t c);
int32_t isalphaU_wrapper(int32_t c);
int32_t iscntrlU_wrapper(int32_t c);
int32_t islowerU_wrapper(int32_t c);
int32_t isprintU_wrapper(int32_t c);
int32_t isspaceU_wrapper(int32_t c);
int32_t isupperU_wrapper(int32_t c);
int32_t tolowerU_wrapper(int32_t c);
int32_t toupperU_wrapper(int32_t c);

int32_t isalnumU_7bit(int32_t c);
int32_t isalphaU_7bit(int32_t c);
int32_t iscntrlU_7bit(int32_t c);
int32_t islowerU_7bit(int32_t c);
int32_t isprintU_7bit(int32_t c);
int32_t isspaceU_7bit(int32_t c);
int32_t isupperU_7bit(int32_t c);
int32_t tolowerU_7bit(int32_t c);
int32_t toupperU_7bit(int32_t c);

}  // extern "C"
