// Command line and environment in UTF-16: the start-up call, the trace copy
// of the command line, string-array conversions, and getenvU16/putenvU16
// with the tables that keep what they hand out alive.
#include "os/environment.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cerrno>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"
#include "ctype/icu_loader.h"
#include "os/converters.h"
#include "os/narrow.h"
#include "platform/gmon.h"

extern "C" char** environ;

namespace {

using namespace nuv::os;

constexpr const char* kKindNames[] = {"Command Line Conversion", "Environment Conversion"};

// Report sites (all flat/nlsui3).
constexpr int kLineKind = 212;
constexpr int kLineArray = 219;
constexpr int kLineElement = 231;
constexpr int kLineElementConv = 238;
constexpr int kLineMbsarArray = 287;
constexpr int kLineMbsarElement = 296;
constexpr ArgSite kMbsarElement{{0, "3*len+3"}, "mbsar[i]", "nlsui_alloc_mbsar", kNlsui3, 301};
constexpr ArgSite kWcsar2mbsar{{0, "sizes[i]"}, "byteArray[i]", "nlsui_wcsar2mbsar", kNlsui3, 327};
constexpr ArgSite kGetenvName{nuv::lim::MAX_ENV_LN, "cname", "getenvU16", kNlsui3, 362};
constexpr ResultSite kGetenvValue{{0, "clen+1"}, "wvalue", "getenvU16", kNlsui3, 371, 374};
constexpr int kLineGetenvTables = 383;
constexpr int kLineGetenvFlush = 392;
constexpr int kLineGetenvFlushed = 401;
constexpr ArgSite kPutenvString{{0, "len"}, "cptr", "putenvU16", kNlsui3, 437};
constexpr int kLinePutenvMalloc = 431;
constexpr int kLinePutenvTable = 452;
constexpr int kLinePutenvCleanup = 461;
constexpr int kLineCleanupEnter = 488;
constexpr int kLineCleanupShrunk = 509;
constexpr int kLineCleanupEnlarge = 516;

constexpr int kGetenvSlots = 128;
constexpr int kPutenvStep = 128;
constexpr int kPutenvSpare = 23;

const NUV_UTF16 kEmpty[1] = {0};

// getenv table: values handed out and the libc strings they came from.
NUV_UTF16** g_wtab = nullptr;
char** g_getenv_ctab = nullptr;
int g_getenv_n = 0;

// putenv table: strings given to putenv, kept until they leave the environment.
char** g_putenv_ctab = nullptr;
int g_putenv_n = 0;
int g_tab_size = kPutenvStep;

bool high_trace() { return nuv::load_relaxed(u16_trace_level) >= U16_TRACE_HIGH; }

void trace_count(const char* fmt, int value, int line) {
  if (!high_trace()) return;
  char text[128];
  snprintf(text, sizeof text, fmt, value);
  u16_traceMsg(text, kNlsui3, line, 1);
}

constexpr char kEnterCleanup[] = "Entering cleanup_putenv_table(). \nAllocated table lines = %i\n";
constexpr char kAfterShrink[] = "Entries after shrinking: %i\n";
constexpr char kEnlarging[] = "Enlarging table to %i\n";

bool in_environment(const char* s) {
  for (char** e = environ; e && *e; ++e)
    if (*e == s) return true;
  return false;
}

// Called with nls_mutex held.
int cleanup_putenv_table() {
  trace_count(kEnterCleanup, g_putenv_n, kLineCleanupEnter);
  int kept = 0;
  for (int i = 0; i < g_putenv_n; ++i) {
    char* s = g_putenv_ctab[i];
    g_putenv_ctab[i] = nullptr;
    if (in_environment(s)) g_putenv_ctab[kept++] = s;
    else free(s);
  }
  g_putenv_n = kept;
  trace_count(kAfterShrink, g_putenv_n, kLineCleanupShrunk);
  if (g_putenv_n < g_tab_size - kPutenvSpare) return 0;
  g_tab_size += kPutenvStep;
  trace_count(kEnlarging, g_tab_size, kLineCleanupEnlarge);
  auto* grown = static_cast<char**>(realloc(g_putenv_ctab, sizeof(char*) * static_cast<size_t>(g_tab_size)));
  if (!grown) {
    // The strings still in the environment stay there; only the record goes.
    free(g_putenv_ctab);
    g_putenv_ctab = nullptr;
    g_putenv_n = 0;
    g_tab_size = kPutenvStep;
    return -1;
  }
  g_putenv_ctab = grown;
  return 0;
}

void free_elements(NUV_UTF16** array, size_t n) {
  for (size_t i = 0; i < n; ++i) free(array[i]);
  free(array);
}

size_t count_of(char* const* array) {
  size_t n = 0;
  while (array[n]) ++n;
  return n;
}

}  // namespace

extern "C" {

pthread_mutex_t nls_mutex = PTHREAD_MUTEX_INITIALIZER;

NUV_API int nlsui_initialize(void) {
  loadIcuDo(0);
  return Linux_initialize_gmon();
}

NUV_API void nlsui_store_cmdline(int argc, NUV_UTF16** argv) {
  char copy[257] = {};
  size_t n = 0;
  for (int a = 0; a < argc && argv && argv[a]; ++a) {
    if (a > 0) copy[n++] = ' ';
    for (const NUV_UTF16* u = argv[a]; *u && n < 256; ++u) copy[n++] = *u < 128 ? static_cast<char>(*u) : '#';
    if (n > 255) break;
  }
  copy[n] = 0;
  u16_set_cmdline(copy);
}

NUV_UTF16** nlsui_alloc_wcsarBase(int count, char* const* array, int kind) {
  if (kind != 0 && kind != 1) {
    u16_internalErrorMsg(kNlsui3, kLineKind);
    exit(-1);
  }
  const char* kind_name = kKindNames[kind];
  const size_t n = count > 0 ? static_cast<size_t>(count) : 0;
  auto* out = static_cast<NUV_UTF16**>(malloc(sizeof(NUV_UTF16*) * (n + 1)));
  if (!out) {
    u16_malloc_error(kind_name, kNlsui3, kLineArray);
    exit(-1);
  }
  size_t made = 0;
  for (size_t i = 0; i < n; ++i) {
    const char* src = array[i] ? array[i] : "";
    const size_t units = strlen(src) + 1;
    auto* w = static_cast<NUV_UTF16*>(malloc(sizeof(NUV_UTF16) * units));
    if (!w) {
      u16_malloc_error(kind_name, kNlsui3, kLineElement);
      free_elements(out, made);
      exit(-1);
    }
    if (Utf8sToU2s(w, src, units) == static_cast<size_t>(-1)) {
      u16_utf8conv_error(w, src, static_cast<long>(units), kNlsui3, kLineElementConv, kind_name);
      free(w);
      if (kind == 0) {
        free_elements(out, made);
        exit(-1);
      }
      continue;  // an undecodable environment entry is left out
    }
    out[made++] = w;
  }
  out[made] = nullptr;
  return out;
}

NUV_API NUV_UTF16** nlsui_alloc_wcsar(int argc, char** argv) { return nlsui_alloc_wcsarBase(argc, argv, 0); }

NUV_API NUV_UTF16** nlsui_alloc_env(char** envp) {
  if (!envp) return nullptr;
  return nlsui_alloc_wcsarBase(static_cast<int>(count_of(envp)), envp, 1);
}

NUV_API NUV_UTF16** nlsui_getenvironU(void) { return environ ? nlsui_alloc_env(environ) : nullptr; }

NUV_API int nlsui_freeenvironU(NUV_UTF16** array) {
  if (array) {
    size_t n = 0;
    while (array[n]) ++n;
    free_elements(array, n);
  }
  return 1;
}

NUV_API char** nlsui_alloc_mbsar(NUV_UTF16** array) {
  if (!array) return nullptr;
  size_t n = 0;
  while (array[n]) ++n;
  auto* out = static_cast<char**>(malloc(sizeof(char*) * (n + 1)));
  if (!out) {
    u16_malloc_error("nlsui_alloc_mbsar", kNlsui3, kLineMbsarArray);
    return nullptr;
  }
  for (size_t i = 0; i < n; ++i) {
    const size_t bytes = 3 * static_cast<size_t>(strlenU16(array[i])) + 3;
    out[i] = static_cast<char*>(malloc(bytes));
    if (!out[i]) {
      u16_malloc_error("nlsui_alloc_mbsar", kNlsui3, kLineMbsarElement);
      for (size_t k = 0; k < i; ++k) free(out[k]);
      free(out);
      return nullptr;
    }
    narrow_into(out[i], bytes, array[i], kMbsarElement);
  }
  out[n] = nullptr;
  return out;
}

NUV_API int nlsui_wcsar2mbsar(int count, NUV_UTF16** wideArray, char** byteArray, size_t* sizes) {
  for (int i = count - 1; i >= 0; --i)
    if (sizes[i] > 0) narrow_into(byteArray[i], sizes[i], wideArray[i], kWcsar2mbsar);
  return 0;
}

NUV_API NUV_UTF16* getenvU16(const NUV_UTF16* name) {
  if (!name) return nullptr;  // libc's getenv would crash on null
  const char* value = getenv(Arg<kGetenvName>(name));
  if (!value) return nullptr;
  if (!*value) return const_cast<NUV_UTF16*>(kEmpty);
  NUV_UTF16* copy = widen_heap(value, kGetenvValue);
  if (!copy) return nullptr;

  pthread_mutex_lock(&nls_mutex);
  if (!g_wtab) {
    g_wtab = static_cast<NUV_UTF16**>(malloc(sizeof(NUV_UTF16*) * kGetenvSlots));
    g_getenv_ctab = static_cast<char**>(malloc(sizeof(char*) * kGetenvSlots));
    if (!g_wtab || !g_getenv_ctab) {
      free(g_wtab);
      free(g_getenv_ctab);
      g_wtab = nullptr;
      g_getenv_ctab = nullptr;
      free(copy);
      pthread_mutex_unlock(&nls_mutex);
      u16_malloc_error("getenvU16", kNlsui3, kLineGetenvTables);
      return nullptr;
    }
  }
  if (g_getenv_n == kGetenvSlots) {
    // The putenv table's wording, on purpose.
    trace_count(kEnterCleanup, kGetenvSlots, kLineGetenvFlush);
    for (int i = 0; i < kGetenvSlots; ++i) {
      free(g_wtab[i]);
      g_wtab[i] = nullptr;
      g_getenv_ctab[i] = nullptr;
    }
    g_getenv_n = 0;
    trace_count(kAfterShrink, g_getenv_n, kLineGetenvFlushed);
  }
  g_wtab[g_getenv_n] = copy;
  g_getenv_ctab[g_getenv_n] = const_cast<char*>(value);
  ++g_getenv_n;
  pthread_mutex_unlock(&nls_mutex);
  return copy;
}

NUV_API int putenvU16(const NUV_UTF16* string) {
  if (!string) {  // libc's putenv would crash on null
    errno = EINVAL;
    return -1;
  }
  const size_t bytes = 3 * static_cast<size_t>(strlenU16(string)) + 3;
  char* cptr = static_cast<char*>(malloc(bytes));
  if (!cptr) {
    u16_malloc_error("putenvU16", kNlsui3, kLinePutenvMalloc);
    return -1;
  }
  narrow_into(cptr, bytes, string, kPutenvString);
  if (putenv(cptr) != 0) {
    free(cptr);
    return -1;
  }
  pthread_mutex_lock(&nls_mutex);
  if (!g_putenv_ctab) {
    g_putenv_ctab = static_cast<char**>(malloc(sizeof(char*) * static_cast<size_t>(g_tab_size)));
    if (!g_putenv_ctab) {
      // The environment holds cptr now: it stays, unrecorded.
      pthread_mutex_unlock(&nls_mutex);
      u16_malloc_error("putenvU16", kNlsui3, kLinePutenvTable);
      return -1;
    }
  }
  if (g_putenv_n == g_tab_size && cleanup_putenv_table() != 0) {
    pthread_mutex_unlock(&nls_mutex);
    u16_malloc_error("putenvU16", kNlsui3, kLinePutenvCleanup);
    return -1;
  }
  g_putenv_ctab[g_putenv_n++] = cptr;
  pthread_mutex_unlock(&nls_mutex);
  return 0;
}

NUV_FORWARD(getenvU, getenvU16);
NUV_FORWARD(putenvU, putenvU16);

}  // extern "C"

namespace nuv::os {

EnvTableState env_table_state() {
  pthread_mutex_lock(&nls_mutex);
  EnvTableState s{g_getenv_n, g_putenv_n, g_tab_size};
  pthread_mutex_unlock(&nls_mutex);
  return s;
}

void reset_env_tables_for_tests() {
  pthread_mutex_lock(&nls_mutex);
  for (int i = 0; i < g_getenv_n; ++i) free(g_wtab[i]);
  g_getenv_n = 0;
  // Strings still in the environment must stay; the others can go.
  for (int i = 0; i < g_putenv_n; ++i)
    if (!in_environment(g_putenv_ctab[i])) free(g_putenv_ctab[i]);
  free(g_putenv_ctab);
  g_putenv_ctab = nullptr;
  g_putenv_n = 0;
  g_tab_size = kPutenvStep;
  pthread_mutex_unlock(&nls_mutex);
}

}  // namespace nuv::os
