// Process execution: the exec family, system, popen and rexec.  Argument
// texts are narrowed into stack memory sized 3*length+3, which always holds
// them; no heap is used.
#include <alloca.h>
#include <netdb.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>

#include "common/nuv_internal.h"
#include "os/converters.h"
#include "os/narrow.h"

namespace {

using namespace nuv::os;
using nuv::lim::MAX_COMMAND_LN;
using nuv::lim::MAX_HOSTNAME_LN;
using nuv::lim::MAX_MODE_LN;
using nuv::lim::MAX_PARAM_NUMBER;
using nuv::lim::MAX_PASSWD_LN;
using nuv::lim::MAX_PATH_LN;
using nuv::lim::MAX_USER_NAME_LN;

constexpr nuv::lim::Limit kClenMax{0, "clenMax"};

// One record per exec form: its path site, its argument site and the line
// of the argument-count report.
struct ExecSites {
  ArgSite path;
  ArgSite arg;
  int line_count;
};

constexpr ExecSites kExecl{{MAX_PATH_LN, "cpath", "execlU16", kNlsui6, 104},
                           {kClenMax, "args[argno]", "execlU16", kNlsui6, 118}, 124};
constexpr ExecSites kExecle{{MAX_PATH_LN, "cpath", "execleU16", kNlsui6, 163},
                            {kClenMax, "args[argno]", "execleU16", kNlsui6, 177}, 183};
constexpr ExecSites kExeclp{{MAX_PATH_LN, "cfile", "execlpU16", kNlsui6, 241},
                            {kClenMax, "args[argno]", "execlpU16", kNlsui6, 255}, 261};
constexpr ExecSites kExecv{{MAX_PATH_LN, "cpath", "execvU16", kNlsui6, 296},
                           {kClenMax, "args[argno]", "execvU16", kNlsui6, 309}, 0};
constexpr ExecSites kExecve{{MAX_PATH_LN, "cpath", "execveU16", kNlsui6, 338},
                            {kClenMax, "args[argno]", "execveU16", kNlsui6, 351}, 0};
constexpr ExecSites kExecvp{{MAX_PATH_LN, "cfile", "execvpU16", kNlsui6, 384},
                            {kClenMax, "args[argno]", "execvpU16", kNlsui6, 397}, 0};
constexpr ArgSite kExecleEnv{kClenMax, "envp[envno]", "execleU16", kNlsui6, 196};
constexpr ArgSite kExecveEnv{kClenMax, "envp[envno]", "execveU16", kNlsui6, 360};

constexpr ArgSite kSystem{MAX_COMMAND_LN, "cstring", "systemU16", kNlsui1, 1088};
constexpr ArgSite kPopenCommand{MAX_COMMAND_LN, "ccommand", "popenU16", kNlsui1, 1121};
constexpr ArgSite kPopenType{MAX_MODE_LN, "ctype", "popenU16", kNlsui1, 1128};
constexpr ArgSite kRexecCmd{MAX_COMMAND_LN, "ccmd", "rexecU16", kNlsui1, 1167};
constexpr ArgSite kRexecHost{MAX_HOSTNAME_LN, "chost", "rexecU16", kNlsui1, 1174};
constexpr ArgSite kRexecUser{MAX_USER_NAME_LN, "cname", "rexecU16", kNlsui1, 1181};
constexpr ArgSite kRexecPass{MAX_PASSWD_LN, "cpass", "rexecU16", kNlsui1, 1188};
constexpr ResultSite kRexecHostBack{{256, "MAX_HOSTNAME_LN"}, "*ahost", "rexecU16", kNlsui1, 1203, 1208};

// Room that always holds a narrowed text: three bytes a unit and the terminator.
size_t room_for(const NUV_UTF16* text) { return 3 * static_cast<size_t>(strlenU16(text)) + 3; }

size_t count_of(NUV_UTF16* const* array) {
  size_t n = 0;
  if (array)
    while (array[n]) ++n;
  return n;
}

enum class ListKind { kPlain, kEnv, kPath };

// The list forms: at most 63 arguments, arg0 included.  Every buffer lives
// in this frame, which the exec replaces.
int exec_list(ListKind kind, const ExecSites& sites, const NUV_UTF16* path, const NUV_UTF16* arg0, va_list args) {
  if (!path || !arg0) {
    errno = ENOENT;
    return -1;
  }
  char cpath[MAX_PATH_LN.size];
  const char* p = narrow_into(cpath, sizeof cpath, path, sites.path);
  char* argv[MAX_PARAM_NUMBER.size];
  size_t n = 0;
  for (const NUV_UTF16* a = arg0; a; a = va_arg(args, const NUV_UTF16*)) {
    const size_t room = room_for(a);
    argv[n] = const_cast<char*>(narrow_into(static_cast<char*>(alloca(room)), room, a, sites.arg));
    if (n == MAX_PARAM_NUMBER.size - 1) {  // the 64th argument took the terminator's slot
      nlsui_array_short(MAX_PARAM_NUMBER.name, sites.arg.function, "args", kNlsui6, sites.line_count);
      return -1;
    }
    ++n;
  }
  argv[n] = nullptr;
  if (kind == ListKind::kEnv) {
    NUV_UTF16* const* envp = va_arg(args, NUV_UTF16* const*);
    const size_t m = count_of(envp);
    auto** cenv = static_cast<char**>(alloca(sizeof(char*) * (m + 1)));
    for (size_t i = 0; i < m; ++i) {
      const size_t room = room_for(envp[i]);
      cenv[i] = const_cast<char*>(narrow_into(static_cast<char*>(alloca(room)), room, envp[i], kExecleEnv));
    }
    cenv[m] = nullptr;
    return plain(execve)(p, argv, envp ? cenv : nullptr);
  }
  return kind == ListKind::kPath ? plain(execvp)(p, argv) : plain(execv)(p, argv);
}

}  // namespace

extern "C" {

int vexeclU16(const NUV_UTF16* path, const NUV_UTF16* arg0, va_list args) {
  return exec_list(ListKind::kPlain, kExecl, path, arg0, args);
}
int vexecleU16(const NUV_UTF16* path, const NUV_UTF16* arg0, va_list args) {
  return exec_list(ListKind::kEnv, kExecle, path, arg0, args);
}
int vexeclpU16(const NUV_UTF16* file, const NUV_UTF16* arg0, va_list args) {
  return exec_list(ListKind::kPath, kExeclp, file, arg0, args);
}

NUV_API int execlU16(const NUV_UTF16* path, const NUV_UTF16* arg0, ...) {
  va_list args;
  va_start(args, arg0);
  const int r = vexeclU16(path, arg0, args);
  va_end(args);
  return r;
}
NUV_API int execleU16(const NUV_UTF16* path, const NUV_UTF16* arg0, ...) {
  va_list args;
  va_start(args, arg0);
  const int r = vexecleU16(path, arg0, args);
  va_end(args);
  return r;
}
NUV_API int execlpU16(const NUV_UTF16* file, const NUV_UTF16* arg0, ...) {
  va_list args;
  va_start(args, arg0);
  const int r = vexeclpU16(file, arg0, args);
  va_end(args);
  return r;
}

}  // extern "C"

namespace {

// A UTF-16 array as a stack array of stack texts; the macro keeps every
// allocation in the entry's own frame.
#define NUV_STACK_ARRAY(out, array, site)                                                        \
  char** out = nullptr;                                                                          \
  if (array) {                                                                                   \
    const size_t count_ = count_of(array);                                                       \
    out = static_cast<char**>(alloca(sizeof(char*) * (count_ + 1)));                             \
    for (size_t i_ = 0; i_ < count_; ++i_) {                                                     \
      const size_t size_ = room_for((array)[i_]);                                                \
      out[i_] = const_cast<char*>(narrow_into(static_cast<char*>(alloca(size_)), size_, (array)[i_], site)); \
    }                                                                                            \
    out[count_] = nullptr;                                                                       \
  }

}  // namespace

extern "C" {

NUV_API int execvU16(const NUV_UTF16* path, NUV_UTF16* const* argv) {
  char cpath[MAX_PATH_LN.size];
  const char* p = narrow_into(cpath, sizeof cpath, path, kExecv.path);
  NUV_STACK_ARRAY(cargv, argv, kExecv.arg);
  return plain(execv)(p, cargv);
}

NUV_API int execveU16(const NUV_UTF16* path, NUV_UTF16* const* argv, NUV_UTF16* const* envp) {
  char cpath[MAX_PATH_LN.size];
  const char* p = narrow_into(cpath, sizeof cpath, path, kExecve.path);
  NUV_STACK_ARRAY(cargv, argv, kExecve.arg);
  NUV_STACK_ARRAY(cenv, envp, kExecveEnv);
  return plain(execve)(p, cargv, cenv);
}

NUV_API int execvpU16(const NUV_UTF16* file, NUV_UTF16* const* argv) {
  char cfile[MAX_PATH_LN.size];
  const char* p = narrow_into(cfile, sizeof cfile, file, kExecvp.path);
  NUV_STACK_ARRAY(cargv, argv, kExecvp.arg);
  return plain(execvp)(p, cargv);
}

NUV_API int systemU16(const NUV_UTF16* command) { return system(Arg<kSystem>(command)); }

NUV_API FILE* popenU16(const NUV_UTF16* command, const NUV_UTF16* type) {
  if (!type) {  // libc reads the type without testing it for null
    errno = EINVAL;
    return nullptr;
  }
  Arg<kPopenCommand> ccommand(command);
  return popen(ccommand, Arg<kPopenType>(type));
}

NUV_API int rexecU16(NUV_UTF16** ahost, int port, const NUV_UTF16* user, const NUV_UTF16* passwd,
                     const NUV_UTF16* cmd, int* fd2p) {
  if (!ahost || !*ahost) {  // libc needs a host name to look up
    errno = EINVAL;
    return -1;
  }
  Arg<kRexecCmd> ccmd(cmd);
  Arg<kRexecHost> chost(*ahost);
  Arg<kRexecUser> cname(user);
  Arg<kRexecPass> cpass(passwd);
  char* host = const_cast<char*>(static_cast<const char*>(chost));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const int sock = rexec(&host, port, cname, cpass, ccmd, fd2p);
#pragma GCC diagnostic pop
  if (!host) {
    *ahost = nullptr;
    return sock;
  }
  // The descriptor stays open when the name cannot come back.
  return widen_caller(*ahost, MAX_HOSTNAME_LN.size, kRexecHostBack, host) < 0 ? -1 : sock;
}

NUV_FORWARD(execlU, execlU16);
NUV_FORWARD(execleU, execleU16);
NUV_FORWARD(execlpU, execlpU16);
NUV_FORWARD(execvU, execvU16);
NUV_FORWARD(execveU, execveU16);
NUV_FORWARD(execvpU, execvpU16);
NUV_FORWARD(systemU, systemU16);
NUV_FORWARD(popenU, popenU16);
NUV_FORWARD(rexecU, rexecU16);

}  // extern "C"
