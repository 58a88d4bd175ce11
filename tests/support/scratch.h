// A scratch folder removed at the end of a test; running a command to get
// its exit status and output (standard error apart if asked); whole-file reads and writes.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace nuvtest {

struct ScratchDir {
  char tmpl[32] = "/tmp/nuvtest.XXXXXX";
  std::string path = mkdtemp(tmpl) ? tmpl : "/nonexistent";
  ~ScratchDir() { std::system(("rm -rf '" + path + "'").c_str()); }
  std::string operator/(const std::string& name) const { return path + "/" + name; }
};

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
inline std::string read_file(const std::string& path) {
  std::stringstream ss;
  ss << std::ifstream(path, std::ios::binary).rdbuf();
  return ss.str();
}

struct CommandResult {
  int exit = -1;  // -1 when it did not end normally
  std::string out;  // standard output, and standard error unless split
  std::string err;  // standard error when split
};
inline CommandResult run_command(const std::string& cmd, bool split = false) {
  CommandResult r;
  char errf[] = "/tmp/nuvtest.err.XXXXXX";
  const int fd = split ? mkstemp(errf) : -1;
  if (fd >= 0) close(fd);
  FILE* p = popen((cmd + (fd >= 0 ? std::string(" 2>'") + errf + "'" : std::string(" 2>&1"))).c_str(), "r");
  if (!p) return unlink(errf), r;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
  const int st = pclose(p);
  r.exit = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  if (fd >= 0) r.err = read_file(errf), unlink(errf);
  return r;
}

}  // namespace nuvtest
