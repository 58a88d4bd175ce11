// Version string, version check and the searchable version records.
#include "version/version.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "nuv_build_version.h"

namespace {

constexpr char kSrcVers[] = "i18n/nuvu16/u16_vers";
constexpr int kLineBanner = 85;
constexpr int kIdentityBytes = 19;  // "@(#) libnuvu16.MMMM"
constexpr int kMinorOffset = 20;
constexpr int kMinorBytes = 4;
constexpr int kPrefixBytes = 15;  // "@(#) libnuvu16."

constexpr char kMarker[] = "#[%]NUV";
constexpr int kMarkerBytes = sizeof kMarker - 1;
constexpr int kBlockBytes = 8192;
constexpr int kLineBytes = 126;

// The records, each a marker, a key and a value.  Kept whole in the file so
// that a scan of its bytes finds them.
#define NUV_RECORD __attribute__((used))
NUV_RECORD const char kRecFileVersion[] = "#[%]NUVFileVersion: " NUV_FILE_VERSION;
NUV_RECORD const char kRecProductVersion[] = "#[%]NUVProductVersion: " NUV_PRODUCT_VERSION;
NUV_RECORD const char kRecPlatform[] = "#[%]NUVPlatform: linuxx86_64";
NUV_RECORD const char kRecSpecialBuild[] = "#[%]NUVSpecialBuild: " NUV_BUILD_KIND " (" __DATE__ " " __TIME__ ")";
NUV_RECORD const char kRecCompatibility[] = "#[%]NUVCompatibilityLevel: 0";

enum Key { kFileVersion, kProductVersion, kPlatform, kSpecialBuild, kCompatibility, kKeys };
constexpr const char *kKeyText[kKeys] = {"FileVersion: ", "ProductVersion: ", "Platform: ", "SpecialBuild: ",
                                         "CompatibilityLevel: "};
constexpr const char *kOwnRecords[kKeys] = {kRecFileVersion, kRecProductVersion, kRecPlatform, kRecSpecialBuild,
                                            kRecCompatibility};

const char *own_value(Key k) { return kOwnRecords[k] + kMarkerBytes + std::strlen(kKeyText[k]); }

int send_trace(const char *text, int len) {
  NUV_TRACE_FUNC hook = nuv::load_relaxed(u16_trace_func);
  return hook ? hook(text, len) : 0;
}

// Collects the records of one file as its bytes go by.
struct RecordScan {
  char *value[4] = {};
  bool compat_found = false;
  int compat = 0;
  long file_number = 0;
  int matched = 0;   // marker bytes matched so far
  int copying = -1;  // bytes of the line so far, -1 while looking for a marker
  char line[kLineBytes + 1];

  void take(const char *p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      if (copying < 0 && matched == 0) {  // between records: jump to the next '#'
        const void *hash = std::memchr(p + i, kMarker[0], n - i);
        if (!hash) return;
        i = static_cast<std::size_t>(static_cast<const char *>(hash) - p);
      }
      const char b = p[i];
      if (copying >= 0) {
        if (b == 0) {
          end_line();
        } else {
          line[copying++] = b;
          if (copying == kLineBytes) end_line();
        }
      } else if (b == kMarker[matched]) {
        if (++matched == kMarkerBytes) {
          matched = 0;
          copying = 0;
        }
      } else {
        matched = b == kMarker[0] ? 1 : 0;
      }
    }
  }
  void end_line() {
    line[copying] = 0;
    copying = -1;
    for (int k = 0; k < kKeys; ++k) {
      const std::size_t klen = std::strlen(kKeyText[k]);
      if (std::strncmp(line, kKeyText[k], klen) != 0) continue;
      const char *v = line + klen;
      if (k == kCompatibility) {
        if (!compat_found) compat = static_cast<int>(std::strtol(v, nullptr, 10));
        compat_found = true;
      } else if (!value[k]) {
        value[k] = strdup(v);
        if (k == kFileVersion) file_number = std::strtol(v, nullptr, 10);
      }
      return;
    }
  }
  bool strings_found() const { return value[0] && value[1] && value[2] && value[3]; }
};

}  // namespace

extern "C" {

__attribute__((used)) const char nuv_u16_version[] =
    "@(#) libnuvu16." NUV_VERSION_MAJOR4 "." NUV_VERSION_MINOR4 "  " __DATE__ " " __TIME__;

void getVersionLibu16U16(NUV_UTF16 *buffer, int capacity) {
  if (!buffer || capacity <= 0) return;
  const char *p = nuv_u16_version + kPrefixBytes;
  while (*p == '0' && p[1] >= '0' && p[1] <= '9') ++p;
  for (int i = 0; i < capacity; ++i) {
    buffer[i] = static_cast<unsigned char>(p[i]);
    if (!p[i]) return;
  }
}

int checkVersionLibu16U16(const char *callerVersion, int force) {
  bool ok = callerVersion && strnlen(callerVersion, kMinorOffset + kMinorBytes) == kMinorOffset + kMinorBytes &&
            std::memcmp(callerVersion, nuv_u16_version, kIdentityBytes) == 0 &&
            std::memcmp(nuv_u16_version + kMinorOffset, callerVersion + kMinorOffset, kMinorBytes) >= 0;
  const int result = ok ? 0 : 4;
  const uint32_t level = nuv::load_relaxed(u16_trace_level);
  if (!force && (level == 0 || (level <= U16_TRACE_MEDIUM && ok))) return result;
  if (!ok) {
    static constexpr char kWrong[] = "libnuvu16[..]: Wrong version.";
    send_trace(kWrong, sizeof kWrong - 1);
  }
  char banner[256];
  int n = std::snprintf(banner, sizeof banner, "libnuvu16[..] version: %.80s [%.60s %d] pid = %d", nuv_u16_version,
                        kSrcVers, kLineBanner, static_cast<int>(getpid()));
  send_trace(banner, n);
  return result;
}

int GetNUVFileVersionEx(const char *path, char **fileVersion, char **productVersion, char **platform,
                        char **specialBuild, int *fileVersionNumber, int *compatibilityLevel) {
  char **out[4] = {fileVersion, productVersion, platform, specialBuild};
  for (char **o : out)
    if (o) *o = nullptr;
  if (compatibilityLevel) *compatibilityLevel = -1;
  if (!fileVersion || !productVersion || !platform || !specialBuild) return 0;

  if (!path) {
    for (int k = 0; k < 4; ++k) *out[k] = strdup(own_value(static_cast<Key>(k)));
    if (!*out[0] || !*out[1] || !*out[2] || !*out[3]) {
      for (char **o : out) std::free(*o), *o = nullptr;
      return 0;
    }
    if (fileVersionNumber) *fileVersionNumber = NUV_VERSION_MAJOR_NUMBER;
    if (compatibilityLevel) *compatibilityLevel = static_cast<int>(std::strtol(own_value(kCompatibility), nullptr, 10));
    return 1;
  }

  FILE *f = fopen64(path, "rb");
  if (!f) return 0;
  RecordScan scan;
  char block[kBlockBytes];
  bool done = false;
  std::size_t got;
  while (!done && (got = std::fread(block, 1, sizeof block, f)) > 0) {
    scan.take(block, got);
    done = scan.strings_found() && (!compatibilityLevel || scan.compat_found);
  }
  if (!done && scan.copying > 0) scan.end_line();  // a record at the very end of the file
  std::fclose(f);
  if (!scan.strings_found()) {
    for (char *v : scan.value) std::free(v);
    return 0;
  }
  for (int k = 0; k < 4; ++k) *out[k] = scan.value[k];
  if (fileVersionNumber) *fileVersionNumber = static_cast<int>(scan.file_number);
  if (compatibilityLevel) *compatibilityLevel = scan.compat_found ? scan.compat : 0;
  return 1;
}

int GetNUVFileVersion(const char *path, char **fileVersion, char **productVersion, char **platform,
                      char **specialBuild) {
  return GetNUVFileVersionEx(path, fileVersion, productVersion, platform, specialBuild, nullptr, nullptr);
}

}  // extern "C"
