// fork for profiled programs: the child writes its profile under a name of
// its own, "<prefix>-<tag>", instead of overwriting the parent's.
#include <stdlib.h>
#include <sys/gmon.h>
#include <unistd.h>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"
#include "platform/gmon.h"
#include "platform/tempfile.h"

namespace {

constexpr char kGmonVariable[] = "GMON_OUT_PREFIX";
constexpr std::size_t kMaxTag = 256;

NUV_UTF16* append_ascii(NUV_UTF16* out, const char* s) {
  while (*s) *out++ = static_cast<unsigned char>(*s++);
  return out;
}

// "GMON_OUT_PREFIX=<value>-<tag>" into the environment.
void rename_profile(const char* value, const NUV_UTF16* tag) {
  const std::size_t value_len = std::strlen(value);
  auto* assignment =
      static_cast<NUV_UTF16*>(malloc((sizeof kGmonVariable + value_len + 1 + kMaxTag + 1) * sizeof(NUV_UTF16)));
  if (!assignment) return;
  NUV_UTF16* p = append_ascii(assignment, kGmonVariable);
  *p++ = u'=';
  const std::size_t n = Utf8s_To_U16(p, value, value_len + 1);
  if (n == static_cast<std::size_t>(-1) || n > value_len) {
    free(assignment);
    return;
  }
  p += n;
  *p++ = u'-';
  for (std::size_t i = 0; tag && tag[i] && i < kMaxTag; ++i) *p++ = tag[i];
  *p = 0;
  putenvU16(assignment);  // it keeps a UTF-8 copy of its own
  free(assignment);
}

}  // namespace

extern "C" {

pid_t fork_Linux(const NUV_UTF16* tag) {
  Linux_initialize_gmon();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const char* value = getenv(kGmonVariable);
  if (!value || !value[0]) return pid;
  rename_profile(value, tag);
  void* start = dlsymU16(nullptr, u"_start");
  void* etext = dlsymU16(nullptr, u"etext");
  if (start && etext) monstartup(reinterpret_cast<u_long>(start), reinterpret_cast<u_long>(etext));
  return pid;
}

}  // extern "C"
