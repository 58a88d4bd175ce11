// The nine application-facing class and case entries: exported function
// pointers that start at lazy wrappers (the first call binds ICU), then point
// at ICU's functions or at the 7-bit fallbacks.
#include <cstdlib>
#include <cwctype>

#include "common/nuv_internal.h"
#include "ctype/icu_loader.h"
#include "trace/trace.h"

using nuv::load_relaxed;
using nuv::startup_line;
using nuv::store_relaxed;

extern "C" {
NUV_API NUV_CTYPE_FUNC isalnumU = isalnumU_wrapper;
NUV_API NUV_CTYPE_FUNC isalphaU = isalphaU_wrapper;
NUV_API NUV_CTYPE_FUNC iscntrlU = iscntrlU_wrapper;
NUV_API NUV_CTYPE_FUNC islowerU = islowerU_wrapper;
NUV_API NUV_CTYPE_FUNC isprintU = isprintU_wrapper;
NUV_API NUV_CTYPE_FUNC isspaceU = isspaceU_wrapper;
NUV_API NUV_CTYPE_FUNC isupperU = isupperU_wrapper;
NUV_API NUV_CTYPE_FUNC tolowerU = tolowerU_wrapper;
NUV_API NUV_CTYPE_FUNC toupperU = toupperU_wrapper;

uint8_t NuvWith7bitUnicode = 0;
int32_t libicuucInitCall = 0;
}

namespace {

constexpr int kLow = 1;
constexpr int kHigh = 16;

// Source lines of the start-up lines written here (flat/nlsui0).
constexpr int kLineTerminating = 1283;
constexpr int kLineFallbackEnvSet = 1287;
constexpr int kLineFallbackInstalled = 2401;
constexpr int kLineSet7bitCalled = 2431;
// One line per fallback, in the order of the pointers.
constexpr int kLineIsalnum7bit = 2460;
constexpr int kLineIsalpha7bit = 2461;
constexpr int kLineIscntrl7bit = 2462;
constexpr int kLineIslower7bit = 2463;
constexpr int kLineIsprint7bit = 2464;
constexpr int kLineIsspace7bit = 2465;
constexpr int kLineIsupper7bit = 2466;
constexpr int kLineTolower7bit = 2467;
constexpr int kLineToupper7bit = 2468;

// A unit beyond 7-bit ASCII reached a fallback: say so, but answer anyway.
inline void check_7bit(int32_t c, const char* entry, int line) {
  if ((c & 0xFF80) == 0) return;
  startup_line(kLow, line, "ERROR: Non 7-bit character U+%04X encountered in function %s\n",
               static_cast<unsigned>(c), entry);
  startup_line(kLow, line, "This is not supported in 7-bit mode.\n");
}

// Calls through the pointer after the load; should the load have left it at
// the wrapper, the fallback answers instead of recursing.
inline int32_t after_load(NUV_CTYPE_FUNC& entry, NUV_CTYPE_FUNC self, NUV_CTYPE_FUNC fallback, int32_t c) {
  loadIcuDo(0);
  NUV_CTYPE_FUNC f = load_relaxed(entry);
  return (f == self ? fallback : f)(c);
}

}  // namespace

extern "C" {

int32_t isalnumU_7bit(int32_t c) {
  check_7bit(c, "isalnumU", kLineIsalnum7bit);
  return std::iswalnum(static_cast<wint_t>(c)) != 0;
}
int32_t isalphaU_7bit(int32_t c) {
  check_7bit(c, "isalphaU", kLineIsalpha7bit);
  return std::iswalpha(static_cast<wint_t>(c)) != 0;
}
int32_t iscntrlU_7bit(int32_t c) {
  check_7bit(c, "iscntrlU", kLineIscntrl7bit);
  return std::iswcntrl(static_cast<wint_t>(c)) != 0;
}
int32_t islowerU_7bit(int32_t c) {
  check_7bit(c, "islowerU", kLineIslower7bit);
  return std::iswlower(static_cast<wint_t>(c)) != 0;
}
int32_t isprintU_7bit(int32_t c) {
  check_7bit(c, "isprintU", kLineIsprint7bit);
  return std::iswprint(static_cast<wint_t>(c)) != 0;
}
int32_t isspaceU_7bit(int32_t c) {
  check_7bit(c, "isspaceU", kLineIsspace7bit);
  return std::iswspace(static_cast<wint_t>(c)) != 0;
}
int32_t isupperU_7bit(int32_t c) {
  check_7bit(c, "isupperU", kLineIsupper7bit);
  return std::iswupper(static_cast<wint_t>(c)) != 0;
}
int32_t tolowerU_7bit(int32_t c) {
  check_7bit(c, "tolowerU", kLineTolower7bit);
  return (c >= 'A' && c <= 'Z') ? c + 0x20 : c;
}
int32_t toupperU_7bit(int32_t c) {
  check_7bit(c, "toupperU", kLineToupper7bit);
  return (c >= 'a' && c <= 'z') ? c - 0x20 : c;
}

int32_t isalnumU_wrapper(int32_t c) { return after_load(isalnumU, isalnumU_wrapper, isalnumU_7bit, c); }
int32_t isalphaU_wrapper(int32_t c) { return after_load(isalphaU, isalphaU_wrapper, isalphaU_7bit, c); }
int32_t iscntrlU_wrapper(int32_t c) { return after_load(iscntrlU, iscntrlU_wrapper, iscntrlU_7bit, c); }
int32_t islowerU_wrapper(int32_t c) { return after_load(islowerU, islowerU_wrapper, islowerU_7bit, c); }
int32_t isprintU_wrapper(int32_t c) { return after_load(isprintU, isprintU_wrapper, isprintU_7bit, c); }
int32_t isspaceU_wrapper(int32_t c) { return after_load(isspaceU, isspaceU_wrapper, isspaceU_7bit, c); }
int32_t isupperU_wrapper(int32_t c) { return after_load(isupperU, isupperU_wrapper, isupperU_7bit, c); }
int32_t tolowerU_wrapper(int32_t c) { return after_load(tolowerU, tolowerU_wrapper, tolowerU_7bit, c); }
int32_t toupperU_wrapper(int32_t c) { return after_load(toupperU, toupperU_wrapper, toupperU_7bit, c); }

NUV_API int32_t isgraphU(int32_t c) { return load_relaxed(isprintU)(c) != 0 && c != 0x20; }

NUV_API int32_t ispunctU(int32_t c) {
  return load_relaxed(isprintU)(c) != 0 && load_relaxed(isalnumU)(c) == 0 && c != 0x20;
}

// Plain ASCII test: binds nothing.
NUV_API int32_t isxdigitU(int32_t c) {
  const int32_t up = c & ~0x20;
  return (c >= '0' && c <= '9') || (up >= 'A' && up <= 'F');
}

NUV_API int useFallBackCtype(void) {
  nuv::install_fallback_ctype();
  store_relaxed(libicuucInitCall, 1);
  return 0;
}

NUV_API int useICUCtype(void) {
  store_relaxed(libicuucInitCall, 0);
  if (void* h = load_relaxed(libicuucHandle))
    mapCtypeFunctions(h);
  else
    loadIcuDo(0);  // not bound yet: bind now (or fall back as any first use would)
  return 0;
}

NUV_API void nlsui_set7bitUnicode(void) {
  nuv::read_init_trace_level();
  store_relaxed(NuvWith7bitUnicode, uint8_t{1});
  startup_line(kHigh, kLineSet7bitCalled, "nlsui_set7bitUnicode() is called");
}

void icu7bitFallbackOrExit(int fallback_wanted) {
  const bool env_fallback = std::getenv("NLSUI_7BIT_FALLBACK") != nullptr;
  if (!fallback_wanted && !env_fallback) {
    startup_line(kHigh, kLineTerminating,
                 "Terminating.\n"
                 "   You may set the environment variable NLSUI_7BIT_FALLBACK to run the program\n"
                 "   without the ICU libraries in an emergency mode.");
    std::exit(-1);
  }
  if (env_fallback) startup_line(kLow, kLineFallbackEnvSet, "Environment variable NLSUI_7BIT_FALLBACK is set.");
  nuv::install_fallback_ctype();
  startup_line(kHigh, kLineFallbackInstalled, "Unicode ctype functions are replaced with 7bit fallback functions");
  if (void* h = load_relaxed(libicuucHandle)) {
    store_relaxed(libicuucHandle, static_cast<void*>(nullptr));
    nlsui_dlclose(h);
  }
}

}  // extern "C"

namespace nuv {

void install_fallback_ctype() {
  store_relaxed(isalnumU, isalnumU_7bit);
  store_relaxed(isalphaU, isalphaU_7bit);
  store_relaxed(iscntrlU, iscntrlU_7bit);
  store_relaxed(islowerU, islowerU_7bit);
  store_relaxed(isprintU, isprintU_7bit);
  store_relaxed(isspaceU, isspaceU_7bit);
  store_relaxed(isupperU, isupperU_7bit);
  store_relaxed(tolowerU, tolowerU_7bit);
  store_relaxed(toupperU, toupperU_7bit);
}

}  // namespace nuv
