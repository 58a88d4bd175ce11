// xdr_string over UTF-16.  The XDR routines live in libtirpc, which is opened
// on the first call so that the library needs only glibc when it is loaded.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <cerrno>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"
#include "os/narrow.h"
#include "os/xdr_loader.h"

namespace {

using namespace nuv::os;

constexpr char kTirpc[] = "libtirpc.so.3";
constexpr int kLineNoLibrary = 951;
constexpr int kLineEncodeMalloc = 967;
constexpr int kLineDecodeMalloc = 988;
constexpr ResultSite kChbuffer{{0, "str_sz1+1"}, "chbuffer", "xdr_stringU16", kNlsui6, 0, 972};
constexpr ResultSite kNewBuffer{{0, "str_sz+1"}, "wch_buffer", "xdr_stringU16", kNlsui6, 994, 999};
constexpr ResultSite kCallerBuffer{{0, "maxsize+1"}, "*sp", "xdr_stringU16", kNlsui6, 1005, 1010};

// The first field of libtirpc's XDR record.
enum XdrOp { kEncode = 0, kDecode = 1, kFree = 2 };

using XdrString = int (*)(void*, char**, unsigned int);
using XdrFree = void (*)(XdrString, void*);

struct Tirpc {
  XdrString xdr_string;
  XdrFree xdr_free;
};

const char* g_library = kTirpc;
std::atomic<const Tirpc*> g_tirpc{nullptr};
std::atomic<bool> g_tried{false};
Tirpc g_bound;

// Bound routines, or null after a report (each failing call reports).
const Tirpc* tirpc() {
  if (const Tirpc* t = g_tirpc.load(std::memory_order_acquire)) return t;
  if (!g_tried.exchange(true, std::memory_order_acq_rel)) {
    if (void* h = dlopen(g_library, RTLD_NOW | RTLD_LOCAL)) {
      g_bound.xdr_string = reinterpret_cast<XdrString>(dlsym(h, "xdr_string"));
      g_bound.xdr_free = reinterpret_cast<XdrFree>(dlsym(h, "xdr_free"));
      if (g_bound.xdr_string && g_bound.xdr_free) {
        g_tirpc.store(&g_bound, std::memory_order_release);
        return &g_bound;
      }
      dlclose(h);
    }
  }
  char text[300];
  std::snprintf(text, sizeof text, "xdr_stringU16 : XDR routines not available (%.200s).", g_library);
  u16_traceMsg(text, kNlsui6, kLineNoLibrary, 1);
  errno = ELIBACC;
  return nullptr;
}

int encode(const Tirpc& t, void* xdrs, const NUV_UTF16* s, unsigned int maxsize) {
  if (!s) return t.xdr_string(xdrs, nullptr, maxsize);
  const std::size_t size = 3 * static_cast<std::size_t>(strlenU16(s)) + 1;
  char* chbuffer = static_cast<char*>(malloc(size));
  if (!chbuffer) {
    u16_malloc_error("xdr_stringU16", kNlsui6, kLineEncodeMalloc);
    return 0;
  }
  bool cut;
  U16s_To_Utf8s_Narrow(chbuffer, s, size, utf8_pairs(), &cut);
  if (cut) {  // cannot happen with 3 bytes a unit; kept as the guard it is
    u16_array_short(kChbuffer.limit.name, kChbuffer.function, kChbuffer.buffer, kChbuffer.file,
                    kChbuffer.line_short);
    free(chbuffer);
    errno = ENAMETOOLONG;
    return 0;
  }
  char* p = chbuffer;
  const int ok = t.xdr_string(xdrs, &p, maxsize);
  free(chbuffer);
  return ok;
}

int decode(const Tirpc& t, void* xdrs, NUV_UTF16** sp, unsigned int maxsize) {
  char* bytes = nullptr;
  if (!t.xdr_string(xdrs, &bytes, maxsize)) return 0;
  int ok = 1;
  if (!*sp) {
    const std::size_t units = std::strlen(bytes) + 1;
    auto* wch_buffer = static_cast<NUV_UTF16*>(malloc(units * sizeof(NUV_UTF16)));
    if (!wch_buffer) {
      u16_malloc_error("xdr_stringU16", kNlsui6, kLineDecodeMalloc);
      ok = 0;
    } else if (widen_caller(wch_buffer, units, kNewBuffer, bytes) < 0) {
      free(wch_buffer);
      ok = 0;
    } else {
      *sp = wch_buffer;
    }
  } else {
    // The caller's buffer holds maxsize + 1 units, as xdr_string's holds
    // maxsize + 1 bytes; a UTF-8 text never has more units than bytes.
    ok = widen_caller(*sp, static_cast<std::size_t>(maxsize) + 1, kCallerBuffer, bytes) >= 0;
  }
  t.xdr_free(t.xdr_string, &bytes);
  return ok;
}

}  // namespace

void nuv_xdr_library_for_tests(const char* name) {
  g_library = name;
  g_tirpc.store(nullptr, std::memory_order_relaxed);
  g_tried.store(false, std::memory_order_relaxed);
}

extern "C" {

NUV_API int xdr_stringU16(struct __rpc_xdr* xdrs, NUV_UTF16** sp, unsigned int maxsize) {
  if (!xdrs || !sp) {
    errno = EINVAL;
    return 0;
  }
  int op;
  std::memcpy(&op, xdrs, sizeof op);
  if (op == kFree) {  // like xdr_string: release what a decode allocated
    free(*sp);
    *sp = nullptr;
    return 1;
  }
  const Tirpc* t = tirpc();
  if (!t) return 0;
  if (op == kEncode) return encode(*t, xdrs, *sp, maxsize);
  if (op == kDecode) return decode(*t, xdrs, sp, maxsize);
  errno = EINVAL;
  return 0;
}

NUV_FORWARD(xdr_stringU, xdr_stringU16);

}  // extern "C"
