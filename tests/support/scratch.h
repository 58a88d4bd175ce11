// A scratch folder removed at the end of a test; running a command to get
// its exit status and output (standard error apart if asked); whole-file reads and writes.
#pragma once

#include <ftw.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace nuvtest {

// The one scratch folder of the test programs (one definition, so programs
// whose files include it from different helpers agree on its layout).
struct ScratchDir {
  const std::string path = make();
  ScratchDir() = default;
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  ~ScratchDir() {
    nftw(path.c_str(), [](const char* f, const struct stat*, int, FTW*) { return ::remove(f); }, 16, FTW_DEPTH | FTW_PHYS);
  }
  std::string operator/(const std::string& name) const { return path + "/" + name; }

 private:
  static std::string make() {
    char tmpl[] = "/tmp/nuvtest.XXXXXX";
    return mkdtemp(tmpl) ? tmpl : "/nonexistent";
  }
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
