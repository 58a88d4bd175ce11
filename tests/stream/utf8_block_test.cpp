// The sixteen-unit UTF-8 encode steps shared by the writer and the converter,
// held against the scalar writer at every level the machine offers: every
// mix of one-, two- and three-byte units in each group of four lanes (each
// group is packed by its own table entry), pure runs of each length, every
// source alignment, exact-size destinations, and the terminated-text kernel.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/cpu.h"
#include "convert/converters.h"
#include "stream/output.h"

namespace {

char16_t unit_of_length(int len, std::mt19937& rng) {
  static const char16_t kLo[] = {0x01, 0x80, 0x800}, kHi[] = {0x7F, 0x7FF, 0xFFFF};
  const char16_t lo = kLo[len - 1], hi = kHi[len - 1];
  char16_t u;
  do {
    const unsigned k = rng() % 4;
    u = k == 0 ? lo : k == 1 ? hi : static_cast<char16_t>(lo + rng() % (hi - lo + 1));
  } while (u >= 0xD800 && u <= 0xDFFF);
  return u;
}

// Every pattern of lengths over four lanes, at each of the four places in a
// block, the other lanes random; then blocks all of one length.
std::u16string block_text(unsigned seed) {
  std::mt19937 rng(seed);
  std::u16string t;
  for (int place = 0; place < 4; ++place)
    for (int pattern = 0; pattern < 81; ++pattern)
      for (int lane = 0; lane < 16; ++lane) {
        int p = pattern;
        for (int k = 0; k < lane % 4; ++k) p /= 3;
        t += unit_of_length(lane / 4 == place ? 1 + p % 3 : 1 + static_cast<int>(rng() % 3), rng);
      }
  for (int len = 1; len <= 3; ++len)
    for (int i = 0; i < 64; ++i) t += unit_of_length(len, rng);
  return t;
}

std::string reference(const char16_t* s, std::size_t n) {
  std::string out(3 * n + 1, '\0');
  std::size_t bytes;
  bool surrogate;
  EXPECT_EQ(nuv::encode_units_fit_ref(s, n, out.data(), out.size(), &bytes, &surrogate), n);
  out.resize(bytes);
  return out;
}

class Utf8Blocks : public ::testing::TestWithParam<unsigned> {};

TEST_P(Utf8Blocks, KernelsMatchTheScalarWriterAtEveryLevel) {
  const std::u16string text = block_text(GetParam());
  for (int level = nuv::kCpuScalar; level <= nuv::cpu().level; ++level) {
    const nuv::EncodeFit fit = nuv::encode_fit_for(level);
    const nuv::EncodeText upto = nuv::encode_text_for(level);
    for (std::size_t at = 0; at < 16; ++at) {
      const std::size_t n = text.size() - at;
      const std::string want = reference(text.data() + at, n);
      // Exactly the room the text needs, so a write past it is seen.
      std::unique_ptr<char16_t[]> src(new char16_t[n + 1]);
      std::copy(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), src.get());
      src[n] = 0;
      std::unique_ptr<char[]> dst(new char[want.size()]);
      std::string got;
      for (std::size_t i = 0; i < n;) {  // the kernels stop short of the end; resume as the writer does
        std::size_t bytes;
        bool surrogate;
        const std::size_t k = fit(src.get() + i, n - i, dst.get() + got.size(), want.size() - got.size(), &bytes, &surrogate);
        ASSERT_FALSE(surrogate);
        ASSERT_GT(k, 0u) << "level " << level << " at " << at << " unit " << i;
        got.append(dst.get() + got.size(), bytes);
        i += k;
      }
      ASSERT_EQ(got, want) << "level " << level << " at " << at;
      if (upto) {
        std::unique_ptr<char[]> big(new char[want.size() + 64]);
        std::size_t bytes;
        const std::size_t k = upto(src.get(), big.get(), want.size() + 64, &bytes);
        ASSERT_LE(k, n);
        ASSERT_EQ(std::string(big.get(), bytes), reference(src.get(), k)) << "level " << level << " at " << at;
      }
    }
  }
  // The converter at the level in use (the *_at_ runs lower it).
  std::unique_ptr<rscpUtf8[]> out(new rscpUtf8[3 * text.size()]);
  const char16_t* s = text.data();
  rscpUtf8* d = out.get();
  ASSERT_EQ(Utf16nToUtf8n(&s, text.data() + text.size(), &d, d + 3 * text.size()), rscpeOk);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(out.get()), static_cast<std::size_t>(d - out.get())),
            reference(text.data(), text.size()));
}

INSTANTIATE_TEST_SUITE_P(Seeds, Utf8Blocks, ::testing::Values(1u, 2u, 3u));

}  // namespace
