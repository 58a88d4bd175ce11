// Sends one event through the real syslog(3) to a datagram socket bound at
// /dev/log inside a user and mount namespace of its own, and prints what
// arrived: "<pid> <datagram>".  Exit 77 when namespaces are not permitted.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "syslog/syslog.h"

namespace {

bool write_proc(const char* path, const std::string& text) {
  int fd = open(path, O_WRONLY);
  if (fd < 0) return false;
  const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return ok;
}

int skip(const char* what) {
  std::fprintf(stderr, "namespaces not available: %s: %s\n", what, std::strerror(errno));
  return 77;
}

}  // namespace

int main() {
  const uid_t uid = getuid();
  const gid_t gid = getgid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return skip("unshare");
  write_proc("/proc/self/setgroups", "deny");
  if (!write_proc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n")) return skip("uid_map");
  if (!write_proc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n")) return skip("gid_map");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return skip("private /");
  if (mount("none", "/dev", "tmpfs", 0, "mode=0755") != 0) return skip("tmpfs on /dev");

  const int s = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, "/dev/log");
  if (s < 0 || bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    std::perror("bind /dev/log");
    return 1;
  }
  timeval tv{10, 0};  // a safety net against a hang, not a measurement
  setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);

  if (SyslInit(reinterpret_cast<const NUV_UTF16*>(u"T11"), reinterpret_cast<const NUV_UTF16*>(u"42"),
               reinterpret_cast<const NUV_UTF16*>(u"LOG_LOCAL3"), reinterpret_cast<const NUV_UTF16*>(u"true")) != 0) {
    std::fprintf(stderr, "SyslInit failed\n");
    return 1;
  }
  WriteSyslog(reinterpret_cast<const NUV_UTF16*>(u"E0A"), reinterpret_cast<const NUV_UTF16*>(u"awp3&b15"), LOG_INFO);
  WriteSyslog(reinterpret_cast<const NUV_UTF16*>(u"A04"), reinterpret_cast<const NUV_UTF16*>(u""), LOG_WARNING);
  char buf[1024];
  const ssize_t n = recv(s, buf, sizeof buf - 1, 0);
  if (n < 0) {
    std::perror("recv");
    return 1;
  }
  buf[n] = 0;
  std::printf("%d %s", static_cast<int>(getpid()), buf);
  return 0;
}
