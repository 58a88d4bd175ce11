#include "os/libc_record.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <type_traits>

namespace {

// libc declares these texts non-null; hide the pointer from the optimiser.
const char* opaque(const char* p) {
  asm volatile("" : "+r"(p));
  return p;
}

// Records the texts; false when one is null.
bool record(const char* function, std::initializer_list<const char*> texts) {
  ostest::Call c{function, {}};
  for (const char* t : texts) c.args.push_back(opaque(t) ? std::optional<std::string>(t) : std::nullopt);
  const bool all = std::all_of(c.args.begin(), c.args.end(), [](const auto& a) { return a.has_value(); });
  if (ostest::LibcRecorder::on) ostest::LibcRecorder::calls.push_back(std::move(c));
  return all;
}

// A null text gets the kernel's answer here: the sanitizers' own
// interceptors, next in line, would read it.
template <class R, class... A>
R forward(bool texts_given, const char* name, A... a) {
  if (!texts_given) {
    errno = EFAULT;
    if constexpr (std::is_pointer_v<R>) return nullptr;
    else return R(-1);
  }
  return reinterpret_cast<R (*)(A...)>(dlsym(RTLD_NEXT, name))(a...);
}

}  // namespace

// NAME, its result, (parameters), {texts recorded}, (arguments passed on), the noexcept glibc declares it with
#define NUV_UNPAREN(...) __VA_ARGS__
#define NUV_RECORD(name, R, params, texts, args, ...)    \
  extern "C" R name params __VA_ARGS__ {                 \
    const bool given = record(#name, {NUV_UNPAREN texts}); \
    return forward<R>(given, NUV_UNPAREN args);          \
  }
#define P const char* p
#define Q const char* q
NUV_RECORD(access, int, (P, int m), (p), ("access", opaque(p), m), noexcept)
NUV_RECORD(chdir, int, (P), (p), ("chdir", opaque(p)), noexcept)
NUV_RECORD(chmod, int, (P, mode_t m), (p), ("chmod", opaque(p), m), noexcept)
NUV_RECORD(chown, int, (P, uid_t u, gid_t g), (p), ("chown", opaque(p), u, g), noexcept)
NUV_RECORD(creat64, int, (P, mode_t m), (p), ("creat64", opaque(p), m))
NUV_RECORD(mkdir, int, (P, mode_t m), (p), ("mkdir", opaque(p), m), noexcept)
NUV_RECORD(mkfifo, int, (P, mode_t m), (p), ("mkfifo", opaque(p), m), noexcept)
NUV_RECORD(remove, int, (P), (p), ("remove", opaque(p)), noexcept)
NUV_RECORD(rmdir, int, (P), (p), ("rmdir", opaque(p)), noexcept)
NUV_RECORD(unlink, int, (P), (p), ("unlink", opaque(p)), noexcept)
NUV_RECORD(statvfs64, int, (P, struct statvfs64* b), (p), ("statvfs64", opaque(p), b), noexcept)
NUV_RECORD(utime, int, (P, const struct utimbuf* t), (p), ("utime", opaque(p), t), noexcept)
NUV_RECORD(readlink, ssize_t, (P, char* b, size_t n), (p), ("readlink", opaque(p), b, n), noexcept)
NUV_RECORD(link, int, (P, Q), (p, q), ("link", opaque(p), opaque(q)), noexcept)
NUV_RECORD(symlink, int, (P, Q), (p, q), ("symlink", opaque(p), opaque(q)), noexcept)
NUV_RECORD(rename, int, (P, Q), (p, q), ("rename", opaque(p), opaque(q)), noexcept)
NUV_RECORD(fopen64, FILE*, (P, Q), (p, q), ("fopen64", opaque(p), opaque(q)))
NUV_RECORD(freopen64, FILE*, (P, Q, FILE* f), (p, q), ("freopen64", opaque(p), opaque(q), f))
NUV_RECORD(fdopen, FILE*, (int fd, Q), (q), ("fdopen", fd, opaque(q)), noexcept)
NUV_RECORD(system, int, (P), (p), ("system", opaque(p)))
NUV_RECORD(popen, FILE*, (P, Q), (p, q), ("popen", opaque(p), opaque(q)))

extern "C" int open64(P, int flags, ...) {
  va_list ap;
  va_start(ap, flags);
  const mode_t mode = (flags & O_CREAT) ? static_cast<mode_t>(va_arg(ap, int)) : 0;
  va_end(ap);
  if (!record("open64", {p, std::to_string(mode).c_str()})) return errno = EFAULT, -1;
  return reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open64"))(opaque(p), flags, mode);
}

extern "C" int rexec(char** ahost, int, const char* user, const char* pass, const char* cmd, int*) {
  record("rexec", {*ahost, user, pass, cmd});
  static std::string official;
  official = ostest::RexecStandIn::official;
  *ahost = ostest::RexecStandIn::official_null ? nullptr : official.data();
  return 42;
}
