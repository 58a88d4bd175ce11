// The block decoders of fgetsU16, each level called directly over bytes that
// end at an unreadable page, at every start alignment: what they consume
// must be whole valid characters, decoded exactly, up to and including the
// first newline at most.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "common/cpu.h"
#include "stream/line_kernels.h"
#include "stream/utf8_stream_model.h"
#include "support/page_end.h"

namespace {

// ASCII, and two- and three-byte forms that are not overlong: all the
// kernels may take.  -1 where the bytes at i are anything else.
int strict_char(const unsigned char* b, std::size_t n, std::size_t i, char16_t* u) {
  const unsigned c = b[i];
  auto cont = [&](std::size_t k) { return i + k < n && (b[i + k] & 0xC0) == 0x80; };
  if (c < 0x80) return *u = static_cast<char16_t>(c), 1;
  if (c >= 0xC2 && c < 0xE0 && cont(1)) return *u = static_cast<char16_t>(((c & 0x1F) << 6) | (b[i + 1] & 0x3F)), 2;
  if (c >= 0xE0 && c < 0xF0 && cont(1) && cont(2) && (c != 0xE0 || b[i + 1] >= 0xA0)) {
    *u = static_cast<char16_t>(((c & 0x0F) << 12) | ((b[i + 1] & 0x3F) << 6) | (b[i + 2] & 0x3F));
    return 3;
  }
  return -1;
}

std::vector<uint8_t> random_bytes(std::mt19937& rng, int kind, std::size_t n) {
  std::vector<uint8_t> o;
  if (kind == 0) o = nuvtest::latin_stream(rng(), n, 1 + rng() % 40);  // bad sequences too
  while (o.size() < n) {
    const unsigned r = rng() % 100;
    if (kind == 1 && r < 85) nuvtest::put_utf8(o, 0x4E00 + rng() % 0x5000);
    else if (r < 2) o.push_back('\n');
    else o.push_back(static_cast<uint8_t>(0x20 + rng() % 0x5F));
  }
  o.resize(n);
  return o;
}

TEST(LineKernels, MatchTheStrictDecoderUpToAPageEnd) {
  nuvtest::PageEnd pages;
  ASSERT_TRUE(pages.ok());
  struct Kernel { const char* name; nuv::LineRun run; bool have; };
  const Kernel kernels[] = {{"ssse3", nuv::line_run_ssse3, nuv::cpu_has_ssse3()},
                            {"avx2", nuv::line_run_avx2, nuv::cpu_has_avx2()},
                            {"avx512", nuv::line_run_avx512, nuv::cpu_has_avx512_vbmi2()}};
  FILE* owner = std::tmpfile();  // the kernels only move p; the FILE is never read
  ASSERT_NE(owner, nullptr);
  std::mt19937 rng(2026);
  for (const Kernel& k : kernels) {
    if (!k.have) continue;
    for (int round = 0; round < 3000; ++round) {
      const std::size_t n = rng() % 400;
      const std::vector<uint8_t> bytes = random_bytes(rng, round % 3, n);
      const std::size_t gap = round % 4 ? rng() % 64 : 0;  // 0: the last byte is the page's last
      auto* start = reinterpret_cast<unsigned char*>(pages.place(bytes.data(), n, gap));
      std::vector<NUV_UTF16> out(n + 64, 0x5555);
      const std::size_t cap = round % 2 ? out.size() : rng() % out.size();
      nuv::CachedBytes in(owner);
      in.p = reinterpret_cast<char*>(start);
      in.e = reinterpret_cast<char*>(start + n);
      NUV_UTF16* o = out.data();
      const bool line = k.run(in, o, out.data() + cap);
      const std::string where = std::string(k.name) + " round " + std::to_string(round);
      const auto used = static_cast<std::size_t>(reinterpret_cast<unsigned char*>(in.p) - start);
      const auto made = static_cast<std::size_t>(o - out.data());
      ASSERT_LE(used, n) << where;
      ASSERT_LE(made, cap) << where;
      std::u16string want;
      for (std::size_t i = 0; i < used;) {
        char16_t u;
        const int len = strict_char(start, used, i, &u);
        ASSERT_GT(len, 0) << where << " took a bad or cut sequence at " << i;
        ASSERT_TRUE(u != '\n' || i + 1 == used) << where << " went past a newline";
        want.push_back(u);
        i += static_cast<std::size_t>(len);
      }
      ASSERT_EQ(std::u16string(reinterpret_cast<const char16_t*>(out.data()), made), want) << where;
      ASSERT_EQ(line, !want.empty() && want.back() == '\n') << where;
    }
  }
  std::fclose(owner);
}

}  // namespace
