// The one pattern of every operating-system wrapper.
//
//   A report site is a constant record: the limit (size and name), the buffer
//   name, the function name, the source file and the line.  A wrapper names
//   one record per argument or result, so its reports read as a table:
//
//     constexpr ArgSite kAccessPath{lim::MAX_PATH_LN, "cpath", "accessU16", kNlsui1, 812};
//     int accessU16(const NUV_UTF16* path, int mode) { return access(Arg<kAccessPath>(path), mode); }
//
//   With two or more texts, name the earlier ones as locals so that their
//   reports come in argument order (call arguments have no set order).
//
//   Arg<site>(text)   narrows a UTF-16 argument into a stack buffer of the
//                     site's limit.  Null stays null.  A text that does not
//                     fit is cut at a character boundary and terminated in
//                     the buffer, reported with u16_array_short, errno is
//                     ENAMETOOLONG, and the call still goes ahead.
//   narrow_into(buf, size, text, site)
//                     the same into a buffer the caller sized (exec arguments).
//
//   Results come back in one of three ways, one helper each:
//   widen_static(buf, site, bytes)       into a static buffer of site.limit
//                                        units; buf, or null after a report.
//   widen_caller(buf, units, site, bytes) into the caller's buffer; units
//                                        written, or -1 after a report.
//   widen_heap(bytes, site)              into malloc'ed memory the caller frees;
//                                        null after a report.
//   A result that fills its buffer is reported as too short (ENAMETOOLONG),
//   undecodable bytes through u16_utf8conv_error.
//
//   With NLSUI_UTF8_PAIRS=1 in the environment (read once) the narrowing
//   writes a valid surrogate pair as one four-byte sequence, so files named
//   by other programs with characters above U+FFFF can be reached.
#pragma once

#include <cstddef>

#include "nuvu16.h"
#include "os/limits.h"

namespace nuv::os {

// Source names the wrappers report with.
inline constexpr char kNlsui1[] = "flat/nlsui1";
inline constexpr char kNlsui2[] = "flat/nlsui2";
inline constexpr char kNlsui3[] = "flat/nlsui3";
inline constexpr char kNlsui6[] = "flat/nlsui6";

struct ArgSite {
  lim::Limit limit;
  const char* buffer;
  const char* function;
  const char* file;
  int line;
};

struct ResultSite {
  lim::Limit limit;
  const char* buffer;
  const char* function;
  const char* file;
  int line_conv;   // undecodable bytes
  int line_short;  // result does not fit
};

// libc declares its text arguments non-null, yet a null argument is handed
// over as it is (libc answers EFAULT); a call through this plain pointer
// stays defined: plain(access)(cpath, mode).
template <class R, class... A>
inline R (*plain(R (*f)(A...)))(A...) {
  return f;
}

// Whether pairs are joined when narrowing (NLSUI_UTF8_PAIRS, read once).
bool utf8_pairs();
// Test hook: read NLSUI_UTF8_PAIRS again on the next narrowing.
void reread_utf8_pairs_for_tests();

// Narrows text into buf (size bytes); null for a null text.
const char* narrow_into(char* buf, std::size_t size, const NUV_UTF16* text, const ArgSite& site);

template <const ArgSite& S>
class Arg {
 public:
  explicit Arg(const NUV_UTF16* text) : p_(narrow_into(buf_, S.limit.size, text, S)) {}
  Arg(const Arg&) = delete;
  Arg& operator=(const Arg&) = delete;
  operator const char*() const { return p_; }
  char* buffer() { return buf_; }

 private:
  char buf_[S.limit.size];
  const char* p_;
};

NUV_UTF16* widen_static(NUV_UTF16* buf, const ResultSite& site, const char* bytes);
long widen_caller(NUV_UTF16* buf, std::size_t units, const ResultSite& site, const char* bytes);
NUV_UTF16* widen_heap(const char* bytes, const ResultSite& site);

// The open trace: at level 16 and above, the last 80 units of path, each
// narrowed to its low byte, with the descriptor and the opener's name.
void trace_open(const NUV_UTF16* path, int fd, const char* function, const char* file, int line);

}  // namespace nuv::os
