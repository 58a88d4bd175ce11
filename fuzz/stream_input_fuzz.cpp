// UTF-8 stream readers over fmemopen: fgetsU16 (vector path) against lines
// assembled from the plain decoder getc_unlockedU16_errno on the same bytes;
// freadU16, fgetcU16 and the typed readers must simply survive.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nuvu16.h"
#include "stream/utf8_decode.h"

namespace {

FILE* open_bytes(const uint8_t* data, size_t size) {
  // fmemopen needs a non-null buffer even for an empty stream.
  static const uint8_t empty = 0;
  return fmemopen(const_cast<uint8_t*>(size ? data : &empty), size ? size : 1, "r");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  u16_trace_level = 0;
  const int cap = 1 + data[0] % 70;  // small capacities reach every edge of the vector path
  nuv::use_fgets_kernel_for_tests(data[0] / 70 % 5);  // each block path this CPU has
  ++data;
  --size;
  FILE* fast = open_bytes(data, size);
  FILE* plain = open_bytes(data, size);
  if (size == 0) {
    std::fclose(fast);
    std::fclose(plain);
    fast = fmemopen(nullptr, 1, "w+");
    plain = fmemopen(nullptr, 1, "w+");
  }
  std::vector<NUV_UTF16> buf(static_cast<size_t>(cap) + 1);
  for (;;) {
    // Expected line from the plain decoder.
    std::vector<NUV_UTF16> want;
    bool eof = false;
    if (cap > 1) {
      const size_t limit = static_cast<size_t>(cap) - 1;
      while (want.size() < limit) {
        unsigned char rec[5];
        int status;
        int c = getc_unlockedU16_errno(plain, rec, &status);
        if (c < 0) {
          eof = true;
          break;
        }
        if (c < 0x10000) {
          want.push_back(static_cast<NUV_UTF16>(c));
          if (c == '\n') break;
        } else {
          want.push_back(static_cast<NUV_UTF16>(0xD800 + ((c - 0x10000) >> 10)));
          if (want.size() == limit) break;
          want.push_back(static_cast<NUV_UTF16>(0xDC00 + (c & 0x3FF)));
        }
      }
    }
    NUV_UTF16* r = fgetsU16(buf.data(), cap, fast);
    if (eof && want.empty()) {
      if (r != nullptr) abort();
      break;
    }
    if (r != buf.data() || (!want.empty() && std::memcmp(buf.data(), want.data(), want.size() * sizeof(NUV_UTF16)) != 0) ||
        buf[want.size()] != 0)
      abort();
    if (cap <= 1) break;
  }
  std::fclose(fast);
  std::fclose(plain);

  if (size) {
    FILE* f = open_bytes(data, size);
    std::vector<NUV_UTF16> block(64);
    while (freadU16(block.data(), 3, 21, f) == 21) {
    }
    std::fclose(f);
    f = open_bytes(data, size);
    while (fgetcU16(f) >= 0) {
    }
    std::fclose(f);
    f = open_bytes(data, size);
    NUV_UTF16 word[9];
    long l;
    int i;
    for (int k = 0; k < 64; ++k) {
      int r1 = fget_strU16(word, 9, f, u'?');
      int r2 = fget_lineU16(word, 9, f, u'?');
      int r3 = fget_longU16(&l, f);
      int r4 = fget_intU16(&i, f);
      if (r1 == -1 && r2 == -1 && r3 == -1 && r4 == -1) break;
    }
    std::fclose(f);
  }
  return 0;
}
