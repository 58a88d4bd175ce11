// The wrappers' narrowing step on arbitrary UTF-16 (lone surrogates, texts
// far longer than their buffer, no terminator within the limit) into
// buffers of every limit the wrappers use, held against the plain
// unit-by-unit encoder; and the read-only wrappers called with the same text.
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "convert/runtime_utf8.h"
#include "nuvu16.h"
#include "os/converters.h"
#include "os/limits.h"
#include "os/narrow.h"

namespace {

int quiet(const char*, int len) { return len; }

constexpr nuv::lim::Limit kLimits[] = {
    nuv::lim::MAX_PATH_LN,    nuv::lim::MAX_MODE_LN,      nuv::lim::MAX_FILENAME_LN, nuv::lim::MAX_COMMAND_LN,
    nuv::lim::MAX_ENV_LN,     nuv::lim::MAX_USER_NAME_LN, nuv::lim::MAX_SERVNAME_LN, nuv::lim::MAX_SERVPROTONAME_LN,
    nuv::lim::MAX_DB_ERROR_LN, {1, "one"}, {2, "two"}, {3, "three"}, {4, "four"}};

constexpr nuv::os::ArgSite kSite{{0, "fuzz"}, "cfuzz", "fuzzU16", "flat/fuzz", 1};

// Pairs joined: one four-byte sequence per valid pair.
size_t joined_length(const char16_t* s) {
  size_t n = 0;
  for (; *s; ++s) {
    if ((*s & 0xFC00) == 0xD800 && (s[1] & 0xFC00) == 0xDC00) {
      n += 4;
      ++s;
    } else {
      n += *s < 0x80 ? 1 : *s < 0x800 ? 2 : 3;
    }
  }
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool once = [] {
    u16_set_trace(quiet, U16_TRACE_LOW);
    return true;
  }();
  (void)once;
  if (size < 1) return 0;
  const bool pairs = data[0] & 1;
  const unsigned repeat = 1 + (data[0] >> 1) % 64;  // long texts from short inputs
  ++data;
  --size;
  const size_t n = size / 2;
  std::vector<char16_t> text;
  for (unsigned r = 0; r < repeat; ++r)
    for (size_t i = 0; i < n; ++i) {
      char16_t u;
      std::memcpy(&u, data + 2 * i, 2);
      text.push_back(u ? u : u'0');
    }
  text.push_back(0);
  const char16_t* s = text.data();

  setenv("NLSUI_UTF8_PAIRS", pairs ? "1" : "0", 1);
  nuv::os::reread_utf8_pairs_for_tests();
  std::vector<char> whole(3 * text.size() + 1);
  const size_t full = U2sToUtf8s(whole.data(), s, whole.size());
  const size_t needed = pairs ? joined_length(s) : full;

  for (const auto& lim : kLimits) {
    // Exactly the limit's size on the heap: any write past it is caught.
    std::vector<char> buf(lim.size);
    errno = 0;
    const char* out = nuv::os::narrow_into(buf.data(), lim.size, s, kSite);
    if (out != buf.data()) abort();
    const void* term = std::memchr(buf.data(), 0, lim.size);
    if (!term) abort();
    const size_t len = static_cast<size_t>(static_cast<const char*>(term) - buf.data());
    const bool cut = needed > lim.size - 1;
    if (cut != (errno == ENAMETOOLONG)) abort();
    if (!cut && len != needed) abort();
    if (cut && (len > lim.size - 1 || len + 4 <= lim.size - 1)) abort();  // cut at most one character early
    if (!pairs && std::memcmp(buf.data(), whole.data(), len) != 0) abort();
    // Whatever was kept decodes back to the start of the text.
    std::vector<char16_t> back(len + 1);
    const size_t units = Utf8sToU2s(back.data(), buf.data(), back.size());
    if (units == static_cast<size_t>(-1) || std::memcmp(back.data(), s, units * 2) != 0) abort();
  }

  // The read-only wrappers, with the same text as path, name and mode.
  accessU16(s, F_OK);
  NUV_UTF16 link[64];
  readlinkU16(s, link, 64);
  getenvU16(s);
  if (FILE* f = fopenU16(u"/dev/null", s)) fclose(f);
  NUV_UTF16* arr[] = {const_cast<NUV_UTF16*>(s), nullptr};
  if (char** m = nlsui_alloc_mbsar(arr)) {
    free(m[0]);
    free(m);
  }
  // The same bytes as UTF-8 into the counted decoder, substituting.
  size_t errors = 0;
  std::vector<NUV_UTF16> dec(size + 1);
  Utf8snToU2n(dec.data(), dec.size(), reinterpret_cast<const char*>(data), size, &errors, u'?');
  return 0;
}
