// File-system wrappers: openers, the path table, and the wrappers that bring
// a text back (working directory, link text, template, locale, terminal).
#include <dirent.h>
#include <fcntl.h>
#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>

#include "common/nuv_internal.h"
#include "os/converters.h"
#include "os/narrow.h"

namespace {

using namespace nuv::os;
using nuv::lim::MAX_FILENAME_LN;
using nuv::lim::MAX_LOCALE_LN;
using nuv::lim::MAX_MODE_LN;
using nuv::lim::MAX_PATH_LN;

// Report sites.
constexpr ArgSite kFopenPath{MAX_PATH_LN, "cpath", "fopenU16", kNlsui1, 402};
constexpr ArgSite kFopenMode{MAX_MODE_LN, "cmode", "fopenU16", kNlsui1, 409};
constexpr int kFopenTrace = 421;
constexpr ArgSite kFopen64Path{MAX_PATH_LN, "cpath", "fopen64U16", kNlsui1, 440};
constexpr ArgSite kFopen64Mode{MAX_MODE_LN, "cmode", "fopen64U16", kNlsui1, 447};
constexpr int kFopen64Trace = 459;
constexpr ArgSite kFreopenPath{MAX_PATH_LN, "cpath", "freopenU16", kNlsui1, 478};
constexpr ArgSite kFreopenMode{MAX_MODE_LN, "cmode", "freopenU16", kNlsui1, 485};
constexpr int kFreopenTrace = 497;
constexpr ArgSite kFdopenMode{MAX_MODE_LN, "cmode", "fdopenU16", kNlsui1, 516};
constexpr ArgSite kOpenPath{MAX_PATH_LN, "cpath", "openU16", kNlsui1, 547};
constexpr int kOpenTrace = 561;
constexpr ArgSite kCreatPath{MAX_PATH_LN, "cpath", "creatU16", kNlsui1, 590};
constexpr int kCreatTrace = 598;

constexpr ArgSite kAccessPath{MAX_PATH_LN, "cpath", "accessU16", kNlsui2, 118};
constexpr ArgSite kChdirPath{MAX_PATH_LN, "cpath", "chdirU16", kNlsui2, 139};
constexpr ArgSite kChmodPath{MAX_PATH_LN, "cpath", "chmodU16", kNlsui2, 160};
constexpr ArgSite kChownPath{MAX_PATH_LN, "cpath", "chownU16", kNlsui2, 181};
constexpr ArgSite kLinkFrom{MAX_PATH_LN, "cpath1", "linkU16", kNlsui2, 205};
constexpr ArgSite kLinkTo{MAX_PATH_LN, "cpath2", "linkU16", kNlsui2, 212};
constexpr ArgSite kSymlinkFrom{MAX_PATH_LN, "cpath1", "symlinkU16", kNlsui2, 236};
constexpr ArgSite kSymlinkTo{MAX_PATH_LN, "cpath2", "symlinkU16", kNlsui2, 243};
constexpr ArgSite kRenameFrom{MAX_PATH_LN, "cfrom", "renameU16", kNlsui2, 267};
constexpr ArgSite kRenameTo{MAX_PATH_LN, "cto", "renameU16", kNlsui2, 274};
constexpr ArgSite kMkdirPath{MAX_PATH_LN, "cpath", "mkdirU16", kNlsui2, 295};
constexpr ArgSite kMkfifoPath{MAX_PATH_LN, "cpath", "mkfifoU16", kNlsui2, 316};
constexpr ArgSite kRemovePath{MAX_PATH_LN, "cpath", "removeU16", kNlsui2, 337};
constexpr ArgSite kRmdirPath{MAX_PATH_LN, "cpath", "rmdirU16", kNlsui2, 358};
constexpr ArgSite kUnlinkPath{MAX_PATH_LN, "cpath", "unlinkU16", kNlsui2, 379};
constexpr ArgSite kStatvfsPath{MAX_PATH_LN, "cpath", "statvfsU16", kNlsui2, 400};
constexpr ArgSite kUtimePath{MAX_PATH_LN, "cpath", "utimeU16", kNlsui2, 421};

constexpr ArgSite kReadlinkPath{MAX_PATH_LN, "cpath", "readlinkU16", kNlsui3, 133};
constexpr ResultSite kReadlinkText{{0, "wsize"}, "wbuf", "readlinkU16", kNlsui3, 151, 156};
constexpr int kReadlinkMalloc = 140;
constexpr ResultSite kGetcwdDir{{0, "size"}, "buf", "getcwdU16", kNlsui3, 199, 0};  // fills: ERANGE, no report
constexpr int kGetcwdMalloc = 188;
constexpr ArgSite kMkstempTemplate{MAX_FILENAME_LN, "patternC", "mkstempU16", kNlsui3, 236};
constexpr ResultSite kMkstempName{{0, "srcLenU16+1"}, "patternU16", "mkstempU16", kNlsui3, 250, 255};
constexpr ArgSite kSetlocaleIn{MAX_LOCALE_LN, "c_inloc", "setlocaleU16", kNlsui3, 281};
constexpr ResultSite kSetlocaleOut{MAX_LOCALE_LN, "w_outloc", "setlocaleU16", kNlsui3, 293, 298};
constexpr ResultSite kTtyname{MAX_PATH_LN, "wttyname", "ttynameU16", kNlsui3, 322, 327};

NUV_UTF16 w_outloc[MAX_LOCALE_LN.size];
NUV_UTF16 wttyname[MAX_PATH_LN.size];

// libc reads a mode without testing it for null; refuse one instead of
// crashing.  A null path does reach libc, which reports it.
FILE* no_mode() {
  errno = EINVAL;
  return nullptr;
}

// After a successful open: the trace at level 16 and above.
void traced(int fd, const NUV_UTF16* path, const char* function, int line) {
  if (fd >= 0 && path) trace_open(path, fd, function, kNlsui1, line);
}

// The working directory into size units; a text that fills them is ERANGE.
bool cwd_into(NUV_UTF16* out, size_t size, const char* dir) {
  const size_t n = Utf8sToU2s(out, dir, size);
  if (n == static_cast<size_t>(-1)) {
    u16_utf8conv_error(out, dir, static_cast<long>(size), kNlsui3, kGetcwdDir.line_conv, "getcwdU16");
    return false;
  }
  if (n == size) {
    errno = ERANGE;
    return false;
  }
  return true;
}

}  // namespace

extern "C" {

// ---- openers ----

NUV_API FILE* fopenU16(const NUV_UTF16* path, const NUV_UTF16* mode) {
  if (!mode) return no_mode();
  Arg<kFopenPath> cpath(path);
  Arg<kFopenMode> cmode(mode);
  FILE* f = plain(fopen64)(cpath, cmode);
  if (f) traced(fileno(f), path, "fopenU16", kFopenTrace);
  return f;
}

NUV_API FILE* fopen64U16(const NUV_UTF16* path, const NUV_UTF16* mode) {
  if (!mode) return no_mode();
  Arg<kFopen64Path> cpath(path);
  Arg<kFopen64Mode> cmode(mode);
  FILE* f = plain(fopen64)(cpath, cmode);
  if (f) traced(fileno(f), path, "fopen64U16", kFopen64Trace);
  return f;
}

NUV_API FILE* freopenU16(const NUV_UTF16* path, const NUV_UTF16* mode, FILE* stream) {
  if (!mode) return no_mode();
  Arg<kFreopenPath> cpath(path);
  Arg<kFreopenMode> cmode(mode);
  FILE* f = plain(freopen64)(cpath, cmode, stream);
  if (f) traced(fileno(f), path, "freopenU16", kFreopenTrace);
  return f;
}

NUV_API FILE* fdopenU16(int fd, const NUV_UTF16* mode) {
  if (!mode) return no_mode();
  return fdopen(fd, Arg<kFdopenMode>(mode));
}

NUV_API int vopenU16(const NUV_UTF16* path, int flags, va_list args) {
  // The permission bits exist only when a file may be created (as libc reads them).
  const bool creates = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
  const mode_t perm = creates ? static_cast<mode_t>(va_arg(args, int)) : 0;
  int (*const open_plain)(const char*, int, ...) = open64;  // see plain()
  const int fd = open_plain(Arg<kOpenPath>(path), flags, perm);
  traced(fd, path, "openU16", kOpenTrace);
  return fd;
}

NUV_API int openU16(const NUV_UTF16* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const int fd = vopenU16(path, flags, args);
  va_end(args);
  return fd;
}

NUV_API int creatU16(const NUV_UTF16* path, mode_t mode) {
  const int fd = plain(creat64)(Arg<kCreatPath>(path), mode);
  traced(fd, path, "creatU16", kCreatTrace);
  return fd;
}

// ---- paths ----

NUV_API int accessU16(const NUV_UTF16* path, int mode) { return plain(access)(Arg<kAccessPath>(path), mode); }
NUV_API int chdirU16(const NUV_UTF16* path) { return plain(chdir)(Arg<kChdirPath>(path)); }
NUV_API int chmodU16(const NUV_UTF16* path, mode_t mode) { return plain(chmod)(Arg<kChmodPath>(path), mode); }
NUV_API int chownU16(const NUV_UTF16* path, uid_t owner, gid_t group) {
  return plain(chown)(Arg<kChownPath>(path), owner, group);
}
NUV_API int linkU16(const NUV_UTF16* from, const NUV_UTF16* to) {
  Arg<kLinkFrom> cpath1(from);
  return plain(link)(cpath1, Arg<kLinkTo>(to));
}
NUV_API int symlinkU16(const NUV_UTF16* target, const NUV_UTF16* linkpath) {
  Arg<kSymlinkFrom> cpath1(target);
  return plain(symlink)(cpath1, Arg<kSymlinkTo>(linkpath));
}
NUV_API int renameU16(const NUV_UTF16* from, const NUV_UTF16* to) {
  Arg<kRenameFrom> cfrom(from);
  return plain(rename)(cfrom, Arg<kRenameTo>(to));
}
NUV_API int mkdirU16(const NUV_UTF16* path, mode_t mode) { return plain(mkdir)(Arg<kMkdirPath>(path), mode); }
NUV_API int mkfifoU16(const NUV_UTF16* path, mode_t mode) { return plain(mkfifo)(Arg<kMkfifoPath>(path), mode); }
NUV_API int removeU16(const NUV_UTF16* path) { return plain(remove)(Arg<kRemovePath>(path)); }
NUV_API int rmdirU16(const NUV_UTF16* path) { return plain(rmdir)(Arg<kRmdirPath>(path)); }
NUV_API int unlinkU16(const NUV_UTF16* path) { return plain(unlink)(Arg<kUnlinkPath>(path)); }
NUV_API int statvfsU16(const NUV_UTF16* path, struct statvfs64* buf) {
  return plain(statvfs64)(Arg<kStatvfsPath>(path), buf);
}
NUV_API int utimeU16(const NUV_UTF16* path, const struct utimbuf* times) {
  return plain(utime)(Arg<kUtimePath>(path), times);
}

// ---- texts back ----

NUV_API ssize_t readlinkU16(const NUV_UTF16* path, NUV_UTF16* wbuf, size_t wsize) {
  Arg<kReadlinkPath> cpath(path);
  const size_t cap = 3 * wsize;
  char* bytes = static_cast<char*>(malloc(cap + 1));
  if (!bytes) {
    u16_malloc_error("readlinkU16", kNlsui3, kReadlinkMalloc);
    return -1;
  }
  const ssize_t n = plain(readlink)(cpath, bytes, cap);
  if (n < 0) {
    free(bytes);
    return n;
  }
  bytes[n] = 0;
  const long units = widen_caller(wbuf, wsize, kReadlinkText, bytes);
  free(bytes);
  return units;
}

NUV_API NUV_UTF16* getcwdU16(NUV_UTF16* buf, size_t size) {
  if (!buf) {
    char* dir = getcwd(nullptr, 3 * size);
    if (!dir) return nullptr;
    auto* out = static_cast<NUV_UTF16*>(malloc((size ? size : 1) * sizeof(NUV_UTF16)));
    if (!out) {
      free(dir);
      u16_malloc_error("getcwdU16", kNlsui3, kGetcwdMalloc);
      return nullptr;
    }
    if (!cwd_into(out, size, dir)) {
      free(out);
      out = nullptr;
    }
    free(dir);
    return out;
  }
  char dir[MAX_PATH_LN.size];
  const size_t cap = 3 * size < sizeof dir ? 3 * size : sizeof dir;
  if (!getcwd(dir, cap)) return nullptr;
  return cwd_into(buf, size, dir) ? buf : nullptr;
}

NUV_API int mkstempU16(NUV_UTF16* templ) {
  if (!templ) return -1;
  Arg<kMkstempTemplate> cpattern(templ);
  const int fd = mkstemp64(cpattern.buffer());
  if (fd < 0) return fd;
  const size_t room = static_cast<size_t>(strlenU16(templ)) + 1;
  return widen_caller(templ, room, kMkstempName, cpattern) < 0 ? -1 : fd;
}

NUV_API NUV_UTF16* setlocaleU16(int category, const NUV_UTF16* locale) {
  const char* answer = setlocale(category, Arg<kSetlocaleIn>(locale));
  return answer ? widen_static(w_outloc, kSetlocaleOut, answer) : nullptr;
}

NUV_API NUV_UTF16* ttynameU16(int fd) {
  const char* name = ttyname(fd);
  return name ? widen_static(wttyname, kTtyname, name) : nullptr;
}

NUV_FORWARD(fopenU, fopenU16);
NUV_FORWARD(fopen64U, fopen64U16);
NUV_FORWARD(freopenU, freopenU16);
NUV_FORWARD(fdopenU, fdopenU16);
NUV_FORWARD(vopenU, vopenU16);
NUV_FORWARD(openU, openU16);
NUV_FORWARD(creatU, creatU16);
NUV_FORWARD(accessU, accessU16);
NUV_FORWARD(chdirU, chdirU16);
NUV_FORWARD(chmodU, chmodU16);
NUV_FORWARD(chownU, chownU16);
NUV_FORWARD(linkU, linkU16);
NUV_FORWARD(symlinkU, symlinkU16);
NUV_FORWARD(renameU, renameU16);
NUV_FORWARD(mkdirU, mkdirU16);
NUV_FORWARD(mkfifoU, mkfifoU16);
NUV_FORWARD(removeU, removeU16);
NUV_FORWARD(rmdirU, rmdirU16);
NUV_FORWARD(unlinkU, unlinkU16);
NUV_FORWARD(statvfsU, statvfsU16);
NUV_FORWARD(utimeU, utimeU16);
NUV_FORWARD(readlinkU, readlinkU16);
NUV_FORWARD(getcwdU, getcwdU16);
NUV_FORWARD(mkstempU, mkstempU16);
NUV_FORWARD(setlocaleU, setlocaleU16);
NUV_FORWARD(ttynameU, ttynameU16);

}  // extern "C"
