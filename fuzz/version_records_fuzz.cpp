// The version-record scan on arbitrary file bytes, against a plain search
// for the marker with std::string::find.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "version/version.h"

namespace {

struct Ref {
  std::string v[4];
  bool have[4] = {};
  bool level_found = false;
  int level = 0;
  long number = 0;
};

Ref reference(const std::string& bytes) {
  static const char* keys[5] = {"FileVersion: ", "ProductVersion: ", "Platform: ", "SpecialBuild: ",
                                "CompatibilityLevel: "};
  Ref r;
  std::size_t pos = 0;
  while ((pos = bytes.find("#[%]NUV", pos)) != std::string::npos) {
    pos += 7;
    std::size_t end = pos;
    while (end < bytes.size() && end - pos < 126 && bytes[end] != '\0') ++end;
    const std::string line = bytes.substr(pos, end - pos);
    pos = (end < bytes.size() && bytes[end] == '\0' && end - pos < 126) ? end + 1 : end;
    for (int k = 0; k < 5; ++k) {
      if (line.compare(0, std::strlen(keys[k]), keys[k]) != 0) continue;
      const std::string value = line.substr(std::strlen(keys[k]));
      if (k == 4) {
        if (!r.level_found) r.level = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
        r.level_found = true;
      } else if (!r.have[k]) {
        r.have[k] = true;
        r.v[k] = value;
        if (k == 0) r.number = std::strtol(value.c_str(), nullptr, 10);
      }
      break;
    }
  }
  return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const int fd = memfd_create("records", 0);
  if (fd < 0) return 0;
  if (write(fd, data, size) != static_cast<ssize_t>(size)) {
    close(fd);
    return 0;
  }
  char path[64];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  char *s[4];
  int number = -5, level = -5;
  const int rc = GetNUVFileVersionEx(path, &s[0], &s[1], &s[2], &s[3], &number, &level);
  close(fd);
  const Ref r = reference(bytes);
  const bool all = r.have[0] && r.have[1] && r.have[2] && r.have[3];
  if (rc != (all ? 1 : 0)) abort();
  if (!all) {
    for (char* p : s)
      if (p) abort();
    return 0;
  }
  for (int k = 0; k < 4; ++k) {
    if (r.v[k] != s[k]) abort();
    std::free(s[k]);
  }
  if (number != static_cast<int>(r.number)) abort();
  if (level != (r.level_found ? r.level : 0)) abort();
  return 0;
}
