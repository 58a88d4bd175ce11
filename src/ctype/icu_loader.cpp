// Binding of the ICU libraries at run time: dlopen by file name, dlsym by
// versioned symbol name, one table per ICU service.  Everything the loader
// says goes to the start-up trace.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "ctype/icu_loader.h"
#include "trace/trace.h"

using nuv::load_relaxed;
using nuv::startup_line;
using nuv::store_relaxed;

extern "C" {
void* libicuucHandle = nullptr;
void* libicui18nHandle = nullptr;
int32_t libicuucInitCalled = 0;
int32_t IcuShaping = 0;
}

namespace nuv::icu {
UtilTable util;
CtypeTable ctype;
BidiTable bidi;
ShapingTable shaping;
UnormTable unorm;
UbrkTable ubrk;
UidnaTable uidna;
UcolTable ucol;
UtransTable utrans;
UcalTable ucal;
}  // namespace nuv::icu

namespace {

// Start-up trace levels.
constexpr int kLow = 1;
constexpr int kMedium = 4;
constexpr int kHigh = 16;

// Source lines of the loader's start-up lines (flat/nlsui0).
constexpr int kLineDlopenOk = 1101;
constexpr int kLineDlopenFailed = 1104;
constexpr int kLineDlsymOk = 1121;
constexpr int kLineDlsymFailed = 1124;
constexpr int kLineDlcloseFailed = 1141;
constexpr int kLinePathTooLong = 1162;
constexpr int kLineCompiledWith = 1191;
constexpr int kLineRequiredFiles = 1193;
constexpr int kLineUcSearchEnv = 1201;
constexpr int kLineUcLdPath = 1203;
constexpr int kLineUcLoaded = 1207;
constexpr int kLineUcSearchExtra = 1214;
constexpr int kLineDataLoaded = 1219;
constexpr int kLineUcLoadedExtra = 1224;
constexpr int kLineUcNotFound = 1231;
constexpr int kLineUcNotFoundPath = 1236;
constexpr int kLineUcNotFoundHint = 1238;
constexpr int kLineUcNotFoundNote = 1240;
constexpr int kLineI18nSearchEnv = 1251;
constexpr int kLineI18nLoaded = 1255;
constexpr int kLineI18nSearchExtra = 1261;
constexpr int kLineI18nLoadedExtra = 1266;
constexpr int kLineI18nNotFound = 1270;
constexpr int kLineShapingFailed = 1822;
constexpr int kLineIcuDataBroken = 1804;
constexpr int kLineCompiledVersion = 1841;
constexpr int kLineRunningVersion = 1843;
constexpr int kLineUnicodeVersion = 1845;
constexpr int kLineNotLoaded = 1851;
constexpr int kLineI18nSymbolFailed = 1873;
constexpr int kLineI18nClosed = 1876;
constexpr int kLine7bitMode = 1787;

#define NUV_ICU_SYMBOL(name) #name "_" NUV_ICU_V

char g_search_path[nuv::kMaxSearchPathLn];

const char* ld_library_path() {
  const char* v = std::getenv("LD_LIBRARY_PATH");
  return v ? v : "<not set>";
}

// Binds one symbol into a typed slot; false if it is missing.
template <class Fn>
bool bind(void* handle, const char* symbol, Fn& slot) {
  void* p = nlsui_dlsym(handle, symbol);
  if (!p) return false;
  store_relaxed(slot, reinterpret_cast<Fn>(p));
  return true;
}

// ICU's own function, taken as one of the nine entries.
template <class Fn>
NUV_CTYPE_FUNC as_entry(Fn f) {
  return reinterpret_cast<NUV_CTYPE_FUNC>(reinterpret_cast<void*>(f));
}

template <class Table>
void clear(Table& t) {
  // Every member is a function pointer; the tables are plain aggregates.
  static_assert(sizeof(Table) % sizeof(void*) == 0);
  auto* slots = reinterpret_cast<void**>(&t);
  for (std::size_t i = 0; i < sizeof(Table) / sizeof(void*); ++i)
    std::atomic_ref<void*>(slots[i]).store(nullptr, std::memory_order_relaxed);
}

void clear_common_tables() {
  clear(nuv::icu::util);
  clear(nuv::icu::ctype);
  clear(nuv::icu::bidi);
  clear(nuv::icu::shaping);
  clear(nuv::icu::unorm);
  clear(nuv::icu::ubrk);
  clear(nuv::icu::uidna);
  store_relaxed(IcuShaping, 0);
}

void clear_i18n_tables() {
  clear(nuv::icu::ucol);
  clear(nuv::icu::utrans);
  clear(nuv::icu::ucal);
}

#define NUV_ICU_BIND(table, name, ret, params) \
  if (!bind(handle, NUV_ICU_SYMBOL(name), nuv::icu::table.name)) return -1;

#define NUV_BIND_UTIL(name, ret, params) NUV_ICU_BIND(util, name, ret, params)
#define NUV_BIND_CTYPE(name, ret, params) NUV_ICU_BIND(ctype, name, ret, params)
#define NUV_BIND_BIDI(name, ret, params) NUV_ICU_BIND(bidi, name, ret, params)
#define NUV_BIND_UNORM(name, ret, params) NUV_ICU_BIND(unorm, name, ret, params)
#define NUV_BIND_UBRK(name, ret, params) NUV_ICU_BIND(ubrk, name, ret, params)
#define NUV_BIND_UIDNA(name, ret, params) NUV_ICU_BIND(uidna, name, ret, params)
#define NUV_BIND_UCAL(name, ret, params) NUV_ICU_BIND(ucal, name, ret, params)

// Collation and transliteration are bound one by one, each failure named.
#define NUV_BIND_NAMED(table, name, ret, params)                                                  \
  if (!bind(handle, NUV_ICU_SYMBOL(name), nuv::icu::table.name)) {                                \
    startup_line(kLow, kLineI18nSymbolFailed, "symbol load \"%s\" failed", NUV_ICU_SYMBOL(name)); \
    return -1;                                                                                    \
  }
#define NUV_BIND_UCOL(name, ret, params) NUV_BIND_NAMED(ucol, name, ret, params)
#define NUV_BIND_UTRANS(name, ret, params) NUV_BIND_NAMED(utrans, name, ret, params)

int map_ucol(void* handle) {
  NUV_ICU_UCOL(NUV_BIND_UCOL)
  return 0;
}
int map_utrans(void* handle) {
  NUV_ICU_UTRANS(NUV_BIND_UTRANS)
  return 0;
}

int map_shaping(void* handle) {
  if (!bind(handle, NUV_ICU_SYMBOL(u_shapeArabic), nuv::icu::shaping.u_shapeArabic)) {
    startup_line(kLow, kLineShapingFailed, "symbol load \"%s\" failed", NUV_ICU_SYMBOL(u_shapeArabic));
    return -1;
  }
  store_relaxed(IcuShaping, 1);
  return 0;
}

// Tries the additional directory for one library; null if none is set or it fails.
void* open_from_search_path(const char* file) {
  char path[nuv::kMaxPathLn];
  if (nlsui_build_full_path(g_search_path, file, path) != 0) return nullptr;
  return nlsui_dlopen(path);
}

// The common library and the families bound from it; -1 on the first failure.
int load_common() {
  void* h = openLibIcuUc();
  if (!h) return -1;
  store_relaxed(libicuucHandle, h);
  if (mapIcuUtilFunctions(h) != 0 || mapCtypeFunctions(h) != 0) return -1;
  if (load_relaxed(toupperU)(0x0101) == 0x0101) {
    startup_line(kLow, kLineIcuDataBroken, "ICU data shared lib does not behave correctly.");
    return -1;
  }
  if (mapUbidiFunctions(h) != 0 || map_shaping(h) != 0 || mapUnormFunctions(h) != 0 ||
      mapUbrkFunctions(h) != 0 || mapUidnaFunctions(h) != 0)
    return -1;

  std::uint8_t v[4] = {};
  char running[32] = "", unicode[32] = "";
  auto& util = nuv::icu::util;  // another thread may be binding the same table
  const auto to_string = load_relaxed(util.u_versionToString);
  load_relaxed(util.u_getVersion)(v);
  to_string(v, running);
  load_relaxed(util.u_getUnicodeVersion)(v);
  to_string(v, unicode);
  startup_line(kMedium, kLineCompiledVersion, "Compiled with ICU version %s", nuv::kIcuCompiledVersion);
  startup_line(kMedium, kLineRunningVersion, "Running with ICU version %s", running);
  startup_line(kMedium, kLineUnicodeVersion, "ICU uses Unicode version %s", unicode);
  return 0;
}

void load_i18n() {
  if (load_relaxed(libicui18nHandle)) return;
  void* h = openLibIcuI18n();
  if (!h) return;
  if (map_ucol(h) != 0 || map_utrans(h) != 0 || mapUcalFunctions(h) != 0) {
    clear_i18n_tables();
    nlsui_dlclose(h);
    startup_line(kMedium, kLineI18nClosed, "%s is closed again", nuv::kIcuLibI18n);
    return;
  }
  store_relaxed(libicui18nHandle, h);
}

}  // namespace

extern "C" {

int mapIcuUtilFunctions(void* handle) {
  NUV_ICU_UTIL(NUV_BIND_UTIL)
  return 0;
}

// ICU's class tests return an 8-bit boolean and leave the rest of the
// register undefined (u_isspace really does), so the 32-bit entries reach
// them through these; the case functions return a full UChar32 and are used
// as they are.
#define NUV_WIDEN(name, ret, params) \
  int32_t name##_widened(int32_t c) { return load_relaxed(nuv::icu::ctype.name)(c) != 0; }
NUV_WIDEN(u_isalnum, , )
NUV_WIDEN(u_isalpha, , )
NUV_WIDEN(u_iscntrl, , )
NUV_WIDEN(u_islower, , )
NUV_WIDEN(u_isprint, , )
NUV_WIDEN(u_isspace, , )
NUV_WIDEN(u_isupper, , )
#undef NUV_WIDEN

int mapCtypeFunctions(void* handle) {
  NUV_ICU_CTYPE(NUV_BIND_CTYPE)
  auto& t = nuv::icu::ctype;
  store_relaxed(isalnumU, u_isalnum_widened);
  store_relaxed(isalphaU, u_isalpha_widened);
  store_relaxed(iscntrlU, u_iscntrl_widened);
  store_relaxed(islowerU, u_islower_widened);
  store_relaxed(isprintU, u_isprint_widened);
  store_relaxed(isspaceU, u_isspace_widened);
  store_relaxed(isupperU, u_isupper_widened);
  store_relaxed(tolowerU, as_entry(load_relaxed(t.u_tolower)));
  store_relaxed(toupperU, as_entry(load_relaxed(t.u_toupper)));
  return 0;
}

int mapUbidiFunctions(void* handle) {
  NUV_ICU_BIDI(NUV_BIND_BIDI)
  return 0;
}
int mapUnormFunctions(void* handle) {
  NUV_ICU_UNORM(NUV_BIND_UNORM)
  return 0;
}
int mapUbrkFunctions(void* handle) {
  NUV_ICU_UBRK(NUV_BIND_UBRK)
  return 0;
}
int mapUidnaFunctions(void* handle) {
  NUV_ICU_UIDNA(NUV_BIND_UIDNA)
  return 0;
}
int mapUcalFunctions(void* handle) {
  NUV_ICU_UCAL(NUV_BIND_UCAL)
  return 0;
}

void* nlsui_dlopen(const char* name) {
  void* h = dlopen(name, RTLD_NOW | RTLD_GLOBAL);
  if (h) {
    startup_line(kHigh, kLineDlopenOk, "Library handle for %s: %p", name, h);
  } else {
    const char* err = dlerror();
    startup_line(kHigh, kLineDlopenFailed, "Could not open %s shared library %s", "ICU", name);
    startup_line(kHigh, kLineDlopenFailed, "Error message: \"%s\"", err ? err : "<no error message>");
  }
  return h;
}

void* nlsui_dlsym(void* handle, const char* symbol) {
  dlerror();
  void* p = dlsym(handle, symbol);
  if (p) {
    startup_line(kHigh, kLineDlsymOk, "Function pointer for %s: %p", symbol, p);
  } else {
    const char* err = dlerror();
    startup_line(kLow, kLineDlsymFailed, "dlsym %s failed with error: %s", symbol, err ? err : "<no error message>");
  }
  return p;
}

int nlsui_dlclose(void* handle) {
  const int rc = dlclose(handle);
  if (rc != 0) {
    const char* err = dlerror();
    startup_line(kLow, kLineDlcloseFailed, "Could not close shared library handle %p", handle);
    startup_line(kLow, kLineDlcloseFailed, "Error message: %s", err ? err : "<no error message>");
  }
  return rc;
}

int nlsui_build_full_path(const char* directory, const char* file, char* result) {
  const std::size_t d = std::strlen(directory), f = std::strlen(file);
  if (d + 1 + f + 1 > static_cast<std::size_t>(nuv::kMaxPathLn)) {
    startup_line(kLow, kLinePathTooLong, "Path %s/%s exceeds MAX_PATH_LN", directory, file);
    result[0] = '\0';
    return -1;
  }
  std::memcpy(result, directory, d);
  result[d] = '/';
  std::memcpy(result + d + 1, file, f + 1);
  return 0;
}

const char* nlsui_addIcuSearchPath(const char* directory) {
  if (!directory) directory = "";
  std::size_t n = std::strlen(directory);
  if (n > sizeof g_search_path - 1) n = sizeof g_search_path - 1;
  std::memcpy(g_search_path, directory, n);
  g_search_path[n] = '\0';
  return g_search_path;
}

void* openLibIcuUc(void) {
  startup_line(kHigh, kLineCompiledWith, "Program is compiled with ICU version %s", nuv::kIcuCompiledVersion);
  startup_line(kHigh, kLineRequiredFiles, "Required ICU library files: %s %s %s", nuv::kIcuLibUc, nuv::kIcuLibData,
               nuv::kIcuLibI18n);
  startup_line(kHigh, kLineUcSearchEnv, "Searching for libicuuc in environment path LD_LIBRARY_PATH");
  startup_line(kHigh, kLineUcLdPath, "LD_LIBRARY_PATH is set to %s ", ld_library_path());
  // The bare name lets the dynamic loader search, LD_LIBRARY_PATH included.
  if (void* h = nlsui_dlopen(nuv::kIcuLibUc)) {
    startup_line(kMedium, kLineUcLoaded, "Loaded ICU common lib: %s", nuv::kIcuLibUc);
    return h;
  }
  if (g_search_path[0]) {
    startup_line(kHigh, kLineUcSearchExtra, "Searching for libicuuc in additional path %s", g_search_path);
    // The data library first, so the common library finds it already loaded.
    char path[nuv::kMaxPathLn];
    void* data = open_from_search_path(nuv::kIcuLibData);
    if (data && nlsui_build_full_path(g_search_path, nuv::kIcuLibData, path) == 0)
      startup_line(kMedium, kLineDataLoaded, "Loaded ICU data lib: %s", path);
    if (void* h = open_from_search_path(nuv::kIcuLibUc)) {
      nlsui_build_full_path(g_search_path, nuv::kIcuLibUc, path);
      startup_line(kMedium, kLineUcLoadedExtra, "Loaded ICU common lib: %s", path);
      return h;
    }
    if (data) nlsui_dlclose(data);
  }
  startup_line(kLow, kLineUcNotFound,
               "Could not open the ICU common library.\n"
               "   The following files must be in the path described by\n"
               "   the environment variable \"LD_LIBRARY_PATH\":\n"
               "   %s, %s, %s",
               nuv::kIcuLibUc, nuv::kIcuLibData, nuv::kIcuLibI18n);
  startup_line(kLow, kLineUcNotFoundPath, "LD_LIBRARY_PATH is currently set to %s ", ld_library_path());
  startup_line(kLow, kLineUcNotFoundHint,
               "Set the environment variable NLSUI_INIT_TRACE_LEVEL to 'high' to see more details.");
  startup_line(kLow, kLineUcNotFoundNote,
               "See the installation notes of libnuvucum for the ICU %s libraries it requires.", NUV_ICU_V);
  return nullptr;
}

void* openLibIcuI18n(void) {
  startup_line(kHigh, kLineI18nSearchEnv, "Searching for libicui18n in environment path LD_LIBRARY_PATH");
  if (void* h = nlsui_dlopen(nuv::kIcuLibI18n)) {
    startup_line(kMedium, kLineI18nLoaded, "Loaded ICU i18n lib: %s from environment path", nuv::kIcuLibI18n);
    return h;
  }
  if (g_search_path[0]) {
    startup_line(kHigh, kLineI18nSearchExtra, "Searching for libicui18n in additional path %s", g_search_path);
    if (void* h = open_from_search_path(nuv::kIcuLibI18n)) {
      char path[nuv::kMaxPathLn];
      nlsui_build_full_path(g_search_path, nuv::kIcuLibI18n, path);
      startup_line(kMedium, kLineI18nLoadedExtra, "Loaded ICU I18n lib: %s", path);
      return h;
    }
  }
  startup_line(kLow, kLineI18nNotFound, "Could not open the ICU i18n library");
  return nullptr;
}

int loadIcu(int flag) { return loadIcuDo(flag & 0xFF); }

int loadIcuDo(int fallback_wanted) {
  nuv::read_trace_levels_for_icu_load();
  if (load_relaxed(NuvWith7bitUnicode)) {
    nuv::install_fallback_ctype();
    startup_line(kHigh, kLine7bitMode, "Unicode ctype functions are replaced with 7bit fallback functions");
    return 1;
  }
  if (!load_relaxed(libicuucInitCalled) && !load_relaxed(libicuucInitCall)) {
    if (load_common() != 0) {
      icu7bitFallbackOrExit(fallback_wanted);  // returns only in 7-bit mode
      clear_common_tables();
      startup_line(kLow, kLineNotLoaded, "ICU shared libraries are not loaded");
      return 1;
    }
    store_relaxed(libicuucInitCalled, 1);
  }
  load_i18n();
  return 0;
}

}  // extern "C"

namespace nuv {

void reset_icu_load_for_tests() {
  store_relaxed(libicuucInitCalled, 0);
  store_relaxed(libicuucInitCall, 0);
  store_relaxed(NuvWith7bitUnicode, std::uint8_t{0});
  g_search_path[0] = '\0';
}

}  // namespace nuv
