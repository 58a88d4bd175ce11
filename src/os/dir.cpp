// Directory reading: libc's stream, entries with UTF-16 names.
#include <dirent.h>

#include <cerrno>

#include "common/nuv_internal.h"
#include "os/narrow.h"

namespace {

using namespace nuv::os;
using nuv::lim::MAX_PATH_LN;

constexpr ArgSite kOpendirName{MAX_PATH_LN, "cdir_name", "opendirU16", kNlsui3, 852};
constexpr ResultSite kReaddirName{MAX_PATH_LN, "w_rc.d_name", "readdirU16", kNlsui3, 874, 879};
constexpr ResultSite kReaddirRName{MAX_PATH_LN, "entry->d_name", "readdir_rU16", kNlsui3, 903, 908};

direntU16 w_rc;

static_assert(sizeof(direntU16::d_name) / sizeof(NUV_UTF16) == MAX_PATH_LN.size);

// Numbers copied, name widened; false after a report.
bool convert_entry(direntU16& out, const dirent64& in, const ResultSite& site) {
  out.d_ino = in.d_ino;
  out.d_off = in.d_off;
  out.d_reclen = in.d_reclen;
  out.d_type = in.d_type;
  return widen_static(out.d_name, site, in.d_name) != nullptr;
}

}  // namespace

extern "C" {

NUV_API DIR* opendirU16(const NUV_UTF16* name) {
  // opendir does not take a null name.
  if (!name) {
    errno = EFAULT;
    return nullptr;
  }
  return opendir(Arg<kOpendirName>(name));
}

NUV_API direntU16* readdirU16(DIR* dir) {
  if (!dir) {
    errno = EBADF;
    return nullptr;
  }
  const dirent64* e = readdir64(dir);
  if (!e) return nullptr;
  return convert_entry(w_rc, *e, kReaddirName) ? &w_rc : nullptr;
}

// Error number: 0 with *result the entry or null at the end; EILSEQ or
// ENAMETOOLONG when the name cannot be brought back (*result null).
NUV_API int readdir_rU16(DIR* dir, direntU16* entry, direntU16** result) {
  if (!result) return EINVAL;
  *result = nullptr;
  if (!dir) return EBADF;
  if (!entry) return EINVAL;
  dirent64 raw;
  dirent64* e = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const int rc = readdir64_r(dir, &raw, &e);
#pragma GCC diagnostic pop
  if (rc != 0 || !e) return rc;
  const int saved = errno;
  if (!convert_entry(*entry, *e, kReaddirRName)) return errno == ENAMETOOLONG ? ENAMETOOLONG : EILSEQ;
  errno = saved;
  *result = entry;
  return 0;
}

NUV_FORWARD(opendirU, opendirU16);
NUV_FORWARD(readdirU, readdirU16);
NUV_FORWARD(readdir_rU, readdir_rU16);

}  // extern "C"
