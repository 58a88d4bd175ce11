#include "os/libc_record.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utime.h>

#include <cstdarg>

namespace ostest {

void record(const char* function, std::initializer_list<const char*> args) {
  if (!LibcRecorder::on) return;
  Call c{function, {}};
  for (const char* a : args) c.args.push_back(a ? std::optional<std::string>(a) : std::nullopt);
  LibcRecorder::calls.push_back(std::move(c));
}

}  // namespace ostest

namespace {
template <class F>
F real(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
// libc declares these arguments non-null; the wrappers may pass null, so
// hide the pointer from the optimiser before testing it.
inline const char* opaque(const char* p) {
  asm volatile("" : "+r"(p));
  return p;
}
}  // namespace

// One recording forward per libc entry the path wrappers reach.
#define NUV_RECORD1(ret, name, T1, ...)                                \
  extern "C" ret name(const char* p, T1 a) __VA_ARGS__ {               \
    ostest::record(#name, {opaque(p)});                                \
    return real<ret (*)(const char*, T1)>(#name)(opaque(p), a);        \
  }
#define NUV_RECORD0(ret, name, ...)                                    \
  extern "C" ret name(const char* p) __VA_ARGS__ {                     \
    ostest::record(#name, {opaque(p)});                                \
    return real<ret (*)(const char*)>(#name)(opaque(p));               \
  }
#define NUV_RECORD_PAIR(ret, name, ...)                                \
  extern "C" ret name(const char* p, const char* q) __VA_ARGS__ {      \
    ostest::record(#name, {opaque(p), opaque(q)});                     \
    return real<ret (*)(const char*, const char*)>(#name)(opaque(p), opaque(q)); \
  }

NUV_RECORD1(int, access, int, noexcept)
NUV_RECORD0(int, chdir, noexcept)
NUV_RECORD1(int, chmod, mode_t, noexcept)
NUV_RECORD1(int, creat64, mode_t)
NUV_RECORD1(int, mkdir, mode_t, noexcept)
NUV_RECORD1(int, mkfifo, mode_t, noexcept)
NUV_RECORD0(int, remove, noexcept)
NUV_RECORD0(int, rmdir, noexcept)
NUV_RECORD0(int, unlink, noexcept)
NUV_RECORD1(int, statvfs64, struct statvfs64*, noexcept)
NUV_RECORD1(int, utime, const struct utimbuf*, noexcept)
NUV_RECORD_PAIR(int, link, noexcept)
NUV_RECORD_PAIR(int, symlink, noexcept)
NUV_RECORD_PAIR(int, rename, noexcept)
NUV_RECORD_PAIR(FILE*, fopen64)

extern "C" int chown(const char* p, uid_t u, gid_t g) noexcept {
  ostest::record("chown", {opaque(p)});
  return real<int (*)(const char*, uid_t, gid_t)>("chown")(opaque(p), u, g);
}
extern "C" ssize_t readlink(const char* p, char* b, size_t n) noexcept {
  ostest::record("readlink", {opaque(p)});
  return real<ssize_t (*)(const char*, char*, size_t)>("readlink")(opaque(p), b, n);
}
extern "C" FILE* freopen64(const char* p, const char* m, FILE* f) {
  ostest::record("freopen64", {opaque(p), opaque(m)});
  return real<FILE* (*)(const char*, const char*, FILE*)>("freopen64")(p, m, f);
}
extern "C" FILE* fdopen(int fd, const char* m) noexcept {
  ostest::record("fdopen", {opaque(m)});
  return real<FILE* (*)(int, const char*)>("fdopen")(fd, opaque(m));
}
extern "C" int open64(const char* p, int flags, ...) {
  mode_t mode = 0;
  if (flags & O_CREAT) {
    va_list ap;
    va_start(ap, flags);
    mode = static_cast<mode_t>(va_arg(ap, int));
    va_end(ap);
  }
  ostest::record("open64", {opaque(p), std::to_string(mode).c_str()});
  return real<int (*)(const char*, int, ...)>("open64")(opaque(p), flags, mode);
}

extern "C" int system(const char* command) {
  ostest::record("system", {opaque(command)});
  return real<int (*)(const char*)>("system")(opaque(command));
}
extern "C" FILE* popen(const char* command, const char* type) {
  ostest::record("popen", {opaque(command), opaque(type)});
  return real<FILE* (*)(const char*, const char*)>("popen")(opaque(command), opaque(type));
}

// Never forwarded: no host is contacted.  The official name is a setting.
extern "C" int rexec(char** ahost, int port, const char* user, const char* pass, const char* cmd, int* fd2p) {
  ostest::record("rexec", {*ahost, opaque(user), opaque(pass), opaque(cmd)});
  static std::string official;
  if (ostest::RexecStandIn::official_null) {
    *ahost = nullptr;
  } else {
    official = ostest::RexecStandIn::official;
    *ahost = official.data();
  }
  return ostest::RexecStandIn::result;
}
