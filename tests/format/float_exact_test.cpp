// The exact floating text held against glibc snprintf over millions of
// seeded doubles and precisions: every exponent, subnormals, exact ties at
// the cut digit, '#', and precisions far past the last nonzero digit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "format/engine.h"

namespace {

const char kSyms[] = "fFeEgG";

// On mismatch, the failing case; empty when ours equals glibc.
std::string mismatch(char sym, int precision, bool alt, double v) {
  char fmt[8] = {'%'}, want[1600], got[1600];
  int f = 1;
  if (alt) fmt[f++] = '#';
  fmt[f++] = '.', fmt[f++] = '*', fmt[f++] = sym;
  const int w = std::snprintf(want, sizeof want, fmt, precision, v);
  const long g = nuv::format_double_exact(got, sizeof got, sym, precision, alt, v);
  if (g == w && std::strcmp(got, want) == 0) return {};
  char bits[80];
  std::snprintf(bits, sizeof bits, "%a", v);
  return std::string(fmt) + " precision " + std::to_string(precision) + " of " + bits + ": glibc \"" + want +
         "\", ours \"" + (g < 0 ? "(none)" : got) + "\"";
}

double from_bits(uint64_t b) {
  double v;
  std::memcpy(&v, &b, sizeof v);
  return v;
}

TEST(FloatExact, RandomBitPatternsEveryExponent) {
  std::mt19937_64 g(20261123);
  for (int i = 0; i < 400000; ++i) {
    double v = from_bits(g());
    if (!std::isfinite(v)) continue;
    if (i % 4 == 0) v = from_bits(g() & 0x800FFFFFFFFFFFFFu);  // subnormals and zeros
    const int p = i % 512 == 0 ? static_cast<int>(g() % 800) : static_cast<int>(g() % 24);
    const std::string m = mismatch(kSyms[i % 6], p, i % 7 == 0, v);
    ASSERT_TRUE(m.empty()) << m;
  }
}

TEST(FloatExact, ValuesPeoplePrint) {
  std::mt19937_64 g(77);
  for (int i = 0; i < 1000000; ++i) {
    // Decimal-looking values and short binary fractions around 1e-8..1e12.
    const double v = i % 2 ? static_cast<double>(g() % 100000000) / std::pow(10.0, static_cast<int>(g() % 9))
                           : std::ldexp(static_cast<double>(g() >> (11 + g() % 40)), static_cast<int>(g() % 60) - 40);
    const std::string m = mismatch(kSyms[i % 6], static_cast<int>(g() % 18), i % 11 == 0, v);
    ASSERT_TRUE(m.empty()) << m;
  }
}

// odd / 2^k has exactly k fraction digits ending in 5: cutting one digit
// before the end is a tie, rounded to even.
TEST(FloatExact, HalfwayCases) {
  std::mt19937_64 g(5);
  for (int i = 0; i < 100000; ++i) {
    const int k = 1 + static_cast<int>(g() % 24);
    const uint64_t odd = (g() >> (11 + g() % 50)) | 1;  // at most 53 bits, so 24 + 16 digits
    const double v = std::ldexp(static_cast<double>(odd), -k);
    const int sig = [&] {
      char b[100];
      std::snprintf(b, sizeof b, "%.80e", v);
      int last = 0;
      for (int j = 0; b[j] != 'e'; ++j)
        if (b[j] >= '1' && b[j] <= '9') last = j;
      return last - 1;  // fraction digits of the exact value in %e form
    }();
    for (const auto& [sym, p] : {std::pair{'f', k - 1}, std::pair{'e', sig - 1}, std::pair{'g', sig},
                                 std::pair{'G', sig}}) {
      if (p < 0) continue;
      const std::string m = mismatch(sym, p, i % 3 == 0, v);
      ASSERT_TRUE(m.empty()) << m;
    }
  }
}

TEST(FloatExact, EdgeValues) {
  const double edges[] = {0.0, -0.0, 5e-324, 2.2250738585072009e-308, 2.2250738585072014e-308,
                          1.7976931348623157e308, 0.5, 9.5, 99.5, 0.05, 1e23, 9.999999999999999e22, 1e-5, 0.0001, 99.5, 999.5, 99.96, 9.9996e-05};
  for (double v : edges)
    for (int p : {0, 1, 2, 5, 6, 16, 17, 30, 340, 767, 770, 1100})
      for (char s : std::string(kSyms))
        for (bool alt : {false, true}) {
          const std::string m = mismatch(s, p, alt, v);
          EXPECT_TRUE(m.empty()) << m;
        }
  char small[4];
  // The length is that of the whole text whatever fits.
  EXPECT_EQ(nuv::format_double_exact(small, sizeof small, 'f', 3, false, 12.5), 6);
  EXPECT_EQ(nuv::format_double_exact(small, sizeof small, 'a', 3, false, 1.0), -1);
  EXPECT_EQ(nuv::format_double_exact(small, sizeof small, 'e', 3, false, INFINITY), -1);
}

}  // namespace
