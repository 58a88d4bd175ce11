// The nuvconv converter chain on arbitrary bytes, with an arbitrary encoding
// pair, mode, substitute and block size.  The answer must not depend on the
// block size, a stop must lie inside the input, and in strict mode what was
// written before a stop must be exactly the conversion of the input before it.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "nuvconv_pipeline.h"

namespace {

const char* const kNames[] = {"utf-8",   "utf-16le", "utf-16be", "ucs-2le", "ucs-2be",
                              "ucs-4le", "ucs-4be",  "ascii",    "ebcdic"};

struct Run {
  nuvconv::Outcome r;
  std::string out;
};

Run run(const nuvconv::Options& o, const uint8_t* data, std::size_t size) {
  Run x;
  std::size_t pos = 0;
  x.r = nuvconv::convert(
      o,
      [&](unsigned char* p, std::size_t cap) -> long {
        const std::size_t n = std::min(cap, size - pos);
        if (n) std::memcpy(p, data + pos, n);
        pos += n;
        return static_cast<long>(n);
      },
      [&](const unsigned char* p, std::size_t n) {
        x.out.append(reinterpret_cast<const char*>(p), n);
        return true;
      });
  return x;
}

void check(bool ok) {
  if (!ok) __builtin_trap();
}

bool same(const Run& a, const Run& b) {
  return a.out == b.out && a.r.end == b.r.end && a.r.status == b.r.status && a.r.msg == b.r.msg &&
         a.r.offset == b.r.offset;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  nuvconv::Options o;
  o.from = kNames[data[0] % 9];
  o.to = kNames[data[1] % 9];
  o.mode = static_cast<nuvconv::Mode>(data[2] % 3);
  o.subst = data[2] / 3 % 3 == 0 ? 0xFFFD : data[2] / 3 % 3 == 1 ? '?' : 0xE9;
  o.block = nuvconv::kMinBlock + data[3] % 128;
  data += 4, size -= 4;
  const Run small = run(o, data, size);
  o.block = std::max(size + 1, nuvconv::kMinBlock);
  const Run whole = run(o, data, size);
  check(same(small, whole));
  check(whole.out.size() <= size * 4 + 4);
  if (whole.r.end == nuvconv::End::Done) return 0;
  check(whole.r.end == nuvconv::End::BadInput && o.mode != nuvconv::Mode::Subst && whole.r.offset <= size);
  // (With --trust a lone high surrogate before the stop is kept there, but
  // at the end of the shorter input it is a cut pair.)
  if (o.mode == nuvconv::Mode::Trust) return 0;
  const Run before = run(o, data, whole.r.offset);
  check(before.r.end == nuvconv::End::Done && before.out == whole.out);
  return 0;
}
