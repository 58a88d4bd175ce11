// Memory functions, heap forwards, mblenU, checkArgs and the overlap-guarded
// copies (whose abort is checked in death tests).
#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "nuvu16.h"

namespace {

TEST(Memory, MemsetStoresUnits) {
  for (int unit : {0, 0x4141, 0x1234, 0xFFFF, 0x10041}) {
    std::vector<char16_t> v(37, 7);
    EXPECT_EQ(memsetU16(v.data() + 1, unit, 35), v.data() + 1);
    EXPECT_EQ(v[0], 7);
    EXPECT_EQ(v[36], 7);
    for (int i = 1; i < 36; ++i) ASSERT_EQ(v[i], char16_t(unit)) << unit;
  }
}

TEST(Memory, CopyAndMoveCountUnits) {
  char16_t d[6] = {};
  EXPECT_EQ(memcpyU(d, u"abcdef", 3), d);
  EXPECT_EQ(std::u16string(d), u"abc");
  char16_t m[] = u"abcdef";
  memmoveU(m + 2, m, 3);
  EXPECT_EQ(std::u16string(m), u"ababcf");
  EXPECT_EQ(memcpyU(d, nullptr, 0), d);
}

TEST(Memory, HeapForwardsCountUnits) {
  NUV_UTF16* p = mallocU(10);
  ASSERT_NE(p, nullptr);
  EXPECT_GE(malloc_usable_size(p), 20u);
  p = reallocU(p, 100);
  ASSERT_NE(p, nullptr);
  EXPECT_GE(malloc_usable_size(p), 200u);
  std::free(p);
  NUV_UTF16* z = callocU(3, 4);
  ASSERT_NE(z, nullptr);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(z[i], 0);
  std::free(z);
  errno = 0;
  EXPECT_EQ(mallocU(SIZE_MAX / 2 + 1), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

struct MblenCase {
  std::u16string s;
  std::size_t n;
  int want;
};

class Mblen : public ::testing::TestWithParam<MblenCase> {};
TEST_P(Mblen, Classifies) { EXPECT_EQ(mblenU(GetParam().s.data(), GetParam().n), GetParam().want); }
INSTANTIATE_TEST_SUITE_P(
    Table, Mblen,
    ::testing::Values(MblenCase{{0}, 1, 1}, MblenCase{{u'a'}, 1, 1}, MblenCase{{0xD7FF}, 1, 1},
                      MblenCase{{0xE000}, 1, 1}, MblenCase{{0xD800, 0xDC00}, 2, 2},
                      MblenCase{{0xDBFF, 0xDFFF}, 5, 2}, MblenCase{{0xD800, 0xDC00}, 1, -1},
                      MblenCase{{0xDC00, 0xD800}, 2, -1}, MblenCase{{0xD800, 0x0041}, 2, -1},
                      MblenCase{{0xD800, 0xD800}, 2, -1}));

TEST(Memory, CheckArgs) {
  int stream = 0, buf = 0;
  EXPECT_EQ(checkArgs(nullptr, &buf, 0, 0), 0);
  errno = 0;
  EXPECT_EQ(checkArgs(nullptr, nullptr, 5, 3), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(checkArgs(&stream, &buf, 5, 3), 1);
  errno = 0;
  EXPECT_EQ(checkArgs(&stream, &buf, 0, 3), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(checkArgs(nullptr, &buf, 4, 2), 1);
}

TEST(Memory, GuardedCopyWithoutOverlapCopiesEveryLengthAndAlignment) {
  std::mt19937 rng(7);
  std::vector<unsigned char> src(200), dst(220);
  for (std::size_t off = 0; off < 9; ++off)
    for (std::size_t n = 0; n < 70; ++n) {
      for (auto& b : src) b = static_cast<unsigned char>(rng());
      std::fill(dst.begin(), dst.end(), 0xEE);
      memcpyRChk(dst.data() + off, src.data() + 3, n, __FILE__, __LINE__);
      ASSERT_EQ(0, std::memcmp(dst.data() + off, src.data() + 3, n));
      ASSERT_EQ(dst[off + n], 0xEE);
      if (off) ASSERT_EQ(dst[off - 1], 0xEE);
    }
}

TEST(MemoryDeathTest, OverlapReportsAndAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char16_t buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  unsetenv("NUVMEMCPYCHK");
  EXPECT_DEATH(memcpyUChk(buf + 1, buf, 4, "caller.c", 12),
               "memcpyU overlapping - from: 0x[0-9a-f]+ to: 0x[0-9a-f]+ len: 4 \\(caller.c:12\\)");
  setenv("NUVMEMCPYCHK", "00", 1);
  EXPECT_DEATH(memcpyUChk(buf + 1, buf, 4, "caller.c", 13), "memcpyU overlapping");
  setenv("NUVMEMCPYCHK", "", 1);
  EXPECT_DEATH(memcpyRChk(buf, buf, 1, "x.c", 1), "memcpyR overlapping .* len: 1 \\(x.c:1\\)");
  unsetenv("NUVMEMCPYCHK");
}

TEST(Memory, OverlapWithTheSwitchOffReportsAndCopies) {
  setenv("NUVMEMCPYCHK", "0", 1);
  alignas(16) unsigned char buf[32];
  for (int i = 0; i < 32; ++i) buf[i] = static_cast<unsigned char>(i);
  testing::internal::CaptureStderr();
  memcpyRChk(buf + 1, buf, 16, "f.c", 9);
  std::string err = testing::internal::GetCapturedStderr();
  unsetenv("NUVMEMCPYCHK");
  EXPECT_NE(err.find("memcpyR overlapping"), std::string::npos);
  EXPECT_NE(err.find("len: 16 (f.c:9)"), std::string::npos);
  EXPECT_EQ(buf[17], 17);  // nothing past the length
}

TEST(Memory, EqualPointersWithZeroLengthAreNotAnOverlap) {
  char16_t b[2] = {1, 2};
  testing::internal::CaptureStderr();
  memcpyUChk(b, b, 0, "z.c", 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
