// The shared 16-unit UTF-8 encode steps against the scalar writer at every
// level: each mix of lengths in each four-lane group, every alignment.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "common/cpu.h"
#include "convert/converters.h"
#include "stream/output.h"

namespace {

std::u16string block_text(unsigned seed) {  // 4 places x 81 patterns, then runs of each length
  std::mt19937 rng(seed);
  auto unit = [&](int len) {
    static const unsigned kLo[] = {0x01, 0x80, 0x800}, kHi[] = {0x7F, 0x7FF, 0xFFFF};
    const unsigned u = rng() % 2 ? (rng() % 2 ? kLo[len - 1] : kHi[len - 1]) : kLo[len - 1] + rng() % (kHi[len - 1] - kLo[len - 1] + 1);
    return static_cast<char16_t>(u >= 0xD800 && u < 0xE000 ? u ^ 0x4000 : u);  // no surrogates
  };
  static const int kDigit[] = {1, 3, 9, 27};
  std::u16string t;
  for (int i = 0; i < 4 * 81 * 16; ++i) {
    const int place = i / (81 * 16), pattern = i / 16 % 81, lane = i % 16;
    t += unit(lane / 4 == place ? 1 + pattern / kDigit[lane % 4] % 3 : 1 + static_cast<int>(rng() % 3));
  }
  for (int i = 0; i < 192; ++i) t += unit(1 + i / 64);
  return t;
}

std::string encoded(nuv::EncodeFit fit, const char16_t* s, std::size_t n, std::size_t room) {
  std::unique_ptr<char[]> d(new char[room]);  // exact size: a write past it is seen
  std::size_t o = 0, bytes;
  bool surrogate;
  for (std::size_t i = 0, k; i < n; i += k, o += bytes)
    if ((k = fit(s + i, n - i, d.get() + o, room - o, &bytes, &surrogate)) == 0) break;
  return std::string(d.get(), o);
}

class Utf8Blocks : public ::testing::TestWithParam<unsigned> {};

TEST_P(Utf8Blocks, KernelsMatchTheScalarWriterAtEveryLevel) {
  const std::u16string text = block_text(GetParam());
  for (std::size_t at = 0; at < 16; ++at) {
    const std::u16string src = text.substr(at);
    const std::string want = encoded(nuv::encode_units_fit_ref, src.data(), src.size(), 3 * src.size());
    for (int level = nuv::kCpuScalar; level <= nuv::cpu().level; ++level)
      ASSERT_EQ(encoded(nuv::encode_fit_for(level), src.data(), src.size(), want.size()), want) << level << " " << at;
    std::string out(want.size(), '\0');  // the converter at the level in use
    const char16_t* s = src.data();
    auto* d = reinterpret_cast<rscpUtf8*>(out.data());
    ASSERT_EQ(Utf16nToUtf8n(&s, src.data() + src.size(), &d, d + out.size()), rscpeOk);
    EXPECT_EQ(out, want) << at;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Utf8Blocks, ::testing::Values(1u, 2u, 3u));

}  // namespace
