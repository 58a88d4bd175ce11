// The other wrappers: time strings, error texts, host name and system
// identification, password prompt and dynamic loading.
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"
#include "os/narrow.h"

// XSI strerror_r; the GNU one is what <string.h> declares here.
extern "C" int __xpg_strerror_r(int errnum, char* buf, size_t buflen);

namespace {

using namespace nuv::os;
using nuv::lim::Limit;
using nuv::lim::MAX_DB_ERROR_LN;
using nuv::lim::MAX_ERROR_LN;
using nuv::lim::MAX_FORMATSTR_LN;
using nuv::lim::MAX_HOSTNAME_LN;
using nuv::lim::MAX_PASSWD_LN;
using nuv::lim::MAX_PATH_LN;
using nuv::lim::MAX_PROMPT_LN;
using nuv::lim::MAX_SYM_LN;
using nuv::lim::MAX_TIMESTR_LN;
using nuv::lim::NUV_SYS_NMLN;

// ---- report sites ----

constexpr ResultSite kCtime{MAX_TIMESTR_LN, "ubuffer", "ctimeU16", kNlsui3, 402, 407};
constexpr ResultSite kAsctime{MAX_TIMESTR_LN, "ubuffer", "asctimeU16", kNlsui3, 431, 436};
constexpr ResultSite kCtimeR{MAX_TIMESTR_LN, "ubuffer", "ctime_rU16", kNlsui3, 460, 465};
constexpr ResultSite kAsctimeR{MAX_TIMESTR_LN, "ubuffer", "asctime_rU16", kNlsui3, 489, 494};
// This one report spells the function "strfctimeU16".
constexpr ArgSite kStrftimeFormat{MAX_FORMATSTR_LN, "cformat", "strfctimeU16", kNlsui3, 518};
constexpr ResultSite kStrftimeText{MAX_TIMESTR_LN, "wteststr", "strftimeU16", kNlsui3, 533, 538};

constexpr ResultSite kStrerror{MAX_ERROR_LN, "werror", "strerrorU16", kNlsui3, 562, 0};
constexpr ResultSite kStrerrorR{{0, "buflen"}, "buf", "strerror_rU16", kNlsui3, 591, 0};
constexpr ArgSite kPerrorText{MAX_ERROR_LN, "ctext", "perrorU16", kNlsui3, 620};

constexpr ResultSite kHostname{{0, "length"}, "wname", "gethostnameU16", kNlsui3, 648, 653};
constexpr ResultSite kUname[5] = {
    {NUV_SYS_NMLN, "wname->sysname", "unameU", kNlsui3, 681, 686},
    {NUV_SYS_NMLN, "wname->nodename", "unameU", kNlsui3, 690, 695},
    {NUV_SYS_NMLN, "wname->release", "unameU", kNlsui3, 699, 704},
    {NUV_SYS_NMLN, "wname->version", "unameU", kNlsui3, 708, 713},
    {NUV_SYS_NMLN, "wname->machine", "unameU", kNlsui3, 717, 722},
};
constexpr ArgSite kGetpassPrompt{MAX_PROMPT_LN, "promptC", "getpassU16", kNlsui3, 746};
constexpr ResultSite kGetpassAnswer{MAX_PASSWD_LN, "passU", "getpassU16", kNlsui3, 753, 758};

constexpr ArgSite kDlopenPath{MAX_PATH_LN, "cpath", "dlopenU16", kNlsui3, 782};
constexpr ArgSite kDlsymName{MAX_SYM_LN, "cname", "dlsymU16", kNlsui3, 803};
constexpr ResultSite kDlerror{MAX_DB_ERROR_LN, "err_msgU", "dlerrorU16", kNlsui3, 824, 829};

// ---- static results ----

NUV_UTF16 ctime_ubuffer[MAX_TIMESTR_LN.size];
NUV_UTF16 asctime_ubuffer[MAX_TIMESTR_LN.size];
NUV_UTF16 werror[MAX_ERROR_LN.size];
NUV_UTF16 passU[MAX_PASSWD_LN.size];
NUV_UTF16 err_msgU[MAX_DB_ERROR_LN.size];

// The text handed back when an error text cannot be converted (the stray
// "3" is part of the message).
void substitute_error_text(NUV_UTF16* dst, std::size_t units, int errnum) {
  char text[80];
  std::snprintf(text, sizeof text, "Could not convert error no. %d3 to UTF-16 characters", errnum);
  std::size_t i = 0;
  for (; text[i] && i + 1 < units; ++i) dst[i] = static_cast<unsigned char>(text[i]);
  if (units) dst[i] = 0;
}

// Error text of errnum into dst: 0, ERANGE (cut, terminated in the last
// unit), EILSEQ (substitute written) or libc's error number.
int error_text(int errnum, NUV_UTF16* dst, std::size_t units, const ResultSite& site) {
  char text[MAX_ERROR_LN.size];
  const int rc = __xpg_strerror_r(errnum, text, sizeof text);
  const std::size_t n = Utf8s_To_U16(dst, text, units);
  if (n == static_cast<std::size_t>(-1)) {
    u16_utf8conv_error(dst, text, static_cast<long>(units), site.file, site.line_conv, site.function);
    substitute_error_text(dst, units, errnum);
    return EILSEQ;
  }
  if (n == units) {
    dst[units - 1] = 0;
    return ERANGE;
  }
  return rc;
}

NUV_UTF16* time_text(NUV_UTF16* dst, const char* text, const ResultSite& site) {
  if (!text) return nullptr;
  return widen_caller(dst, site.limit.size, site, text) < 0 ? nullptr : dst;
}

}  // namespace

extern "C" {

// ---- time strings ----

NUV_API NUV_UTF16* ctimeU16(const time_t* t) {
  if (!t) {
    errno = EINVAL;
    return nullptr;
  }
  return time_text(ctime_ubuffer, ctime(t), kCtime);
}

NUV_API NUV_UTF16* asctimeU16(const struct tm* tm) {
  if (!tm) {
    errno = EINVAL;
    return nullptr;
  }
  return time_text(asctime_ubuffer, asctime(tm), kAsctime);
}

NUV_API NUV_UTF16* ctime_rU16(const time_t* t, NUV_UTF16* buf) {
  if (!t || !buf) {
    errno = EINVAL;
    return nullptr;
  }
  char text[MAX_TIMESTR_LN.size];
  return time_text(buf, ctime_r(t, text), kCtimeR);
}

NUV_API NUV_UTF16* asctime_rU16(const struct tm* tm, NUV_UTF16* buf) {
  if (!tm || !buf) {
    errno = EINVAL;
    return nullptr;
  }
  char text[MAX_TIMESTR_LN.size];
  return time_text(buf, asctime_r(tm, text), kAsctimeR);
}

// Units written without the terminator; 0 when the text does not fit max
// units (or the 256-byte libc buffer), as strftime does.
NUV_API size_t strftimeU16(NUV_UTF16* s, size_t max, const NUV_UTF16* format, const struct tm* tm) {
  if (!s || !format || !tm || max == 0) {
    errno = EINVAL;
    return 0;
  }
  Arg<kStrftimeFormat> cformat(format);
  char text[MAX_TIMESTR_LN.size];
  const size_t bytes = strftime(text, sizeof text, cformat, tm);
  if (bytes == 0) {
    s[0] = 0;
    return 0;
  }
  const size_t room = max < MAX_TIMESTR_LN.size ? max : MAX_TIMESTR_LN.size;
  const long n = widen_caller(s, room, kStrftimeText, text);
  return n < 0 ? 0 : static_cast<size_t>(n);
}

// ---- error texts ----

NUV_API NUV_UTF16* strerrorU16(int errnum) {
  const int saved = errno;
  error_text(errnum, werror, MAX_ERROR_LN.size, kStrerror);
  errno = saved;
  return werror;
}

NUV_API int strerror_rU16(int errnum, NUV_UTF16* buf, size_t buflen) {
  if (!buf || buflen == 0) return ERANGE;
  return error_text(errnum, buf, buflen, kStrerrorR);
}

NUV_API int strerror_rR(int errnum, char* buf, size_t buflen) {
  if (!buf || buflen == 0) return ERANGE;
  return __xpg_strerror_r(errnum, buf, buflen);
}

NUV_API void perrorU16(const NUV_UTF16* text) {
  const int e = errno;
  char message[MAX_ERROR_LN.size];
  __xpg_strerror_r(e, message, sizeof message);
  if (text && text[0]) {
    Arg<kPerrorText> ctext(text);
    std::fprintf(stderr, "%s: %s\n", static_cast<const char*>(ctext), message);
  } else {
    std::fprintf(stderr, "%s\n", message);
  }
  errno = e;
}

// ---- system identification ----

NUV_API int gethostnameU16(NUV_UTF16* name, size_t units) {
  if (!name || units == 0) {
    errno = EINVAL;
    return -1;
  }
  char host[MAX_HOSTNAME_LN.size];
  if (gethostname(host, sizeof host) != 0) return -1;
  host[sizeof host - 1] = 0;
  return widen_caller(name, units, kHostname, host) < 0 ? -1 : 0;
}

NUV_API int unameU16(struct utsnameU16* wname) {
  if (!wname) {
    errno = EFAULT;
    return -1;
  }
  struct utsname u;
  if (uname(&u) != 0) return -1;
  const char* fields[5] = {u.sysname, u.nodename, u.release, u.version, u.machine};
  NUV_UTF16* out[5] = {wname->sysname, wname->nodename, wname->release, wname->version, wname->machine};
  for (int i = 0; i < 5; ++i)
    if (widen_caller(out[i], NUV_SYS_NMLN.size, kUname[i], fields[i]) < 0) return -1;
  return 0;
}

NUV_API NUV_UTF16* getpassU16(const NUV_UTF16* prompt) {
  Arg<kGetpassPrompt> promptC(prompt);
  const char* answer = getpass(promptC ? static_cast<const char*>(promptC) : "");
  return answer ? widen_static(passU, kGetpassAnswer, answer) : nullptr;
}

// ---- dynamic loading ----

NUV_API void* dlopenU16(const NUV_UTF16* path, int flags) { return dlopen(Arg<kDlopenPath>(path), flags); }

NUV_API void* dlsymU16(void* handle, const NUV_UTF16* symbol) {
  if (!symbol) {
    errno = EINVAL;
    return nullptr;
  }
  return dlsym(handle, Arg<kDlsymName>(symbol));
}

NUV_API NUV_UTF16* dlerrorU16(void) {
  const char* err = dlerror();
  return err ? widen_static(err_msgU, kDlerror, err) : nullptr;
}

NUV_FORWARD(ctimeU, ctimeU16);
NUV_FORWARD(asctimeU, asctimeU16);
NUV_FORWARD(ctime_rU, ctime_rU16);
NUV_FORWARD(asctime_rU, asctime_rU16);
NUV_FORWARD(strftimeU, strftimeU16);
NUV_FORWARD(strerrorU, strerrorU16);
NUV_FORWARD(strerror_rU, strerror_rU16);
NUV_FORWARD(perrorU, perrorU16);
NUV_FORWARD(gethostnameU, gethostnameU16);
NUV_FORWARD(unameU, unameU16);
NUV_FORWARD(getpassU, getpassU16);
NUV_FORWARD(dlopenU, dlopenU16);
NUV_FORWARD(dlsymU, dlsymU16);
NUV_FORWARD(dlerrorU, dlerrorU16);

}  // extern "C"
