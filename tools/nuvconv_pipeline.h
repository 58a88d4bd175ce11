// The block pipeline of nuvconv as a function: the tool, its tests and the
// fuzz harness all convert through convert() below.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "convert/converters.h"

namespace nuvconv {

enum class Mode { Strict, Subst, Trust };

struct Options {
  std::string from, to;
  Mode mode = Mode::Strict;
  uint32_t subst = rscpReplacementCharacter;  // BMP, not a surrogate
  std::size_t block = 65536;                  // bytes read per block
};

inline constexpr std::size_t kMinBlock = 8;
inline constexpr std::size_t kMaxBlock = std::size_t{1} << 30;

// Fills buf with up to `cap` bytes and returns how many; fewer than `cap`
// means the input has ended.  -1 means a read error (errno tells which).
using Reader = std::function<long(unsigned char* buf, std::size_t cap)>;
// Takes `n` converted bytes (n may be 0: the input proved readable and the
// output may be created now).  false means a write error (errno tells which).
using Writer = std::function<bool(const unsigned char* p, std::size_t n)>;

enum class End {
  Done,        // all of the input converted
  BadInput,    // stopped at `offset`; everything before it was written
  ReadError,   // errno in `err`
  WriteError,  // errno in `err`
  Unknown,     // `from` or `to` names no encoding
  NoMemory,    // the buffers for blocks of this size cannot be had
};

struct Outcome {
  End end = End::Done;
  rscpStatus status = 0;  // converter status for BadInput
  std::string msg;        // converter message for BadInput
  uint64_t offset = 0;    // byte offset in the input of the bad character
  int err = 0;
};

bool known_encoding(const std::string& name);
// Comma-separated list of the encoding names, for the help text.
const char* encoding_names();

// Not reentrant: converters report through the process-wide error hook,
// which this installs for the call and resets to the default afterwards.
Outcome convert(const Options& opt, const Reader& read, const Writer& write);

}  // namespace nuvconv
