// Number parsing against glibc strtod / strtoll / strtoull / ecvt on generated
// texts, with the deliberate differences as explicit cases.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <tuple>

#include "nuvu16.h"
#include "support/recording_trace.h"

using nuvtest::RecordingTrace;
using nuvtest::u16;

namespace {

// Value bits, errno and end offset of one call, ours on UTF-16 or glibc's.
using Outcome = std::tuple<uint64_t, int, long>;
template <class C, class F>
Outcome call(const C* text, F f) {
  C* end = nullptr;
  errno = 0;
  const auto v = f(text, &end);
  uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof v);
  return {bits, errno, end - text};
}
Outcome ours_d(const std::string& s) { return call(u16(s.c_str()).c_str(), strtodU16); }
Outcome glibc_d(const std::string& s) { return call(s.c_str(), [](const char* t, char** e) { return std::strtod(t, e); }); }

struct Gen {
  std::mt19937 rng;
  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  std::string digits(int n, bool first_nonzero = false) {
    std::string s;
    for (int i = 0; i < n; ++i) s.push_back(static_cast<char>('0' + pick(first_nonzero && i == 0, 9)));
    return s;
  }
  // Decimal texts of up to 24 significant digits and exponents of up to four
  // significant digits: the region where we and glibc must agree bit for bit.
  std::string decimal() {
    std::string s = std::string(pick(0, 2), pick(0, 1) ? ' ' : '\t') + "-+\0"[pick(0, 2)];
    if (s.back() == '\0') s.pop_back();
    s += std::string(pick(0, 1) ? 0 : pick(1, 6), '0');
    const int sig = pick(0, 24), int_digits = pick(0, sig);
    s += digits(int_digits, true);
    if (pick(0, 3) != 0 || int_digits == 0)
      s += "." + std::string(int_digits == 0 ? pick(0, 30) : 0, '0') + digits(sig - int_digits, true);
    if (pick(0, 2) == 0) {
      s += std::string(pick(0, 1) ? "e" : "E") + (pick(0, 2) == 1 ? "-" : pick(0, 1) ? "+" : "");
      if (pick(0, 9)) s += std::string(pick(0, 3), '0') + std::to_string(pick(0, 1) ? pick(0, 400) : pick(0, 9999));
    }
    const char* tails[] = {"", "", "x", " 1", "e", "e+", ".5", "abc"};
    return s + tails[pick(0, 7)];
  }
  std::string integer(int base) {
    static const char alphabet[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string s;
    for (int k = pick(0, 2); k > 0; --k) s += " \t\n\v\f\r"[pick(0, 5)];
    s += std::string(pick(0, 3) == 1 ? "-" : pick(0, 2) == 1 ? "+" : "");
    s += pick(0, 3) == 0 ? (pick(0, 1) ? "0x" : "0X") : pick(0, 4) == 0 ? "0" : "";
    for (int n = pick(0, 3) == 0 ? pick(15, 70) : pick(0, 14); n > 0; --n) {
      const int d = pick(0, (base == 0 ? 16 : base) - 1);
      s += alphabet[d + (d >= 10 && pick(0, 1) ? 26 : 0)];
    }
    const char* tails[] = {"", "", "g", "z", " 5", "x", "-"};
    return s + tails[pick(0, 6)];
  }
};

TEST(Strtod, AgreesWithGlibcOnGeneratedDecimalsWordsAndNonNumbers) {
  Gen g{std::mt19937(20240601)};
  for (int i = 0; i < 200000; ++i) {
    const std::string s = g.decimal();
    ASSERT_EQ(ours_d(s), glibc_d(s)) << s;
  }
  for (const char* t : {"inf", "INF", "-inf", "+Infinity", "INFINITY", "infinity", "nan", "NaN", "-nan", "NAN", "",
                        " ", "-", "+", ".", "-.", ".e5", "e5", "abc", ". 5", "0", "-0", "0.", "00000", "1e", "1e+",
                        "1.e3", "5.", "2.2250738585072011e-308", "4.9e-324", "1e-400", "1.7976931348623157e308",
                        "1.8e308", "1e9999", "-1e9999", "123456789012345678901234",
                        "0.000000000000000000000000000000001234", ".5", "-.5e-3", "0e99999", "  \n\v\f\r7"})
    EXPECT_EQ(ours_d(t), glibc_d(t)) << t;
}

TEST(Strtod, BeyondTwentyFourDigitsScalesByDroppedOnes) {
  Gen g{std::mt19937(7)};
  for (int i = 0; i < 20000; ++i) {
    const int n = g.pick(25, 60), e = g.pick(-350, 350);
    const std::string d = g.digits(n, true), a = d + "e" + std::to_string(e), b = "0.000" + d;
    // Integer form, and the same digits behind "0." with an exponent.
    const Outcome want_a = glibc_d(d.substr(0, 24) + "e" + std::to_string(e + n - 24)),
                  want_b = glibc_d("0." + d.substr(0, 24) + "e-3");
    ASSERT_EQ(ours_d(a), Outcome(std::get<0>(want_a), std::get<1>(want_a), a.size())) << a;
    ASSERT_EQ(ours_d(b), Outcome(std::get<0>(want_b), std::get<1>(want_b), b.size())) << b;
  }
  EXPECT_EQ(ours_d("1234567890123456789012345678901234567890"),
            Outcome(std::get<0>(glibc_d("123456789012345678901234e16")), 0, 40));
}

uint64_t bits(double v) {
  uint64_t b;
  std::memcpy(&b, &v, sizeof v);
  return b;
}

TEST(Strtod, DeliberateDifferences) {
  const struct { const char16_t* text; double value; int err; long end; } cases[] = {
      {u"1e10000", HUGE_VAL, ERANGE, 7},  // five exponent digits: overflow decided without strtod
      {u"-1e-10000", 0.0, ERANGE, 9},     // and an underflow loses its sign (glibc: -0.0)
      {u"-0e-99999", -0.0, 0, 9},
      {u"nAn", 0.0, 0, 0},  // mixed-case words are not recognised (glibc takes them)
      {u"InFinity", 0.0, 0, 0},
      {u"INFinity", HUGE_VAL, 0, 3},
      {u"-Infinity", -HUGE_VAL, 0, 9},
      {u"0x1p3", 0.0, 0, 1},  // no hexadecimal floating input
      {u"\u3000\u00A0\u2009 2.5", 2.5, 0, 7},  // Unicode white space
      {u"1e9999", HUGE_VAL, ERANGE, 6},        // to strtod, which overflows
      {u"0.001e65535", HUGE_VAL, ERANGE, 11},  // with a correction, exponents up to 65535 are added
      {u"0.001e-65536", 0.0, ERANGE, 12},
  };
  for (const auto& c : cases)
    EXPECT_EQ(call(c.text, strtodU16), Outcome(bits(c.value), c.err, c.end)) << &c - cases;
  EXPECT_EQ(strtodU(u"3.5", nullptr), 3.5);
}

// ---- integers ----------------------------------------------------------------

template <class T, class G>
void agree(const std::string& s, int base, T (*ours)(const NUV_UTF16*, NUV_UTF16**, int), G glibc) {
  const std::u16string t = u16(s.c_str());
  NUV_UTF16* e16;
  char* e8;
  errno = 0;
  const std::tuple<T, int, long> a{ours(t.c_str(), &e16, base), errno, e16 - t.c_str()};
  errno = 0;
  const std::tuple<T, int, long> b{glibc(s.c_str(), &e8, base), errno, e8 - s.c_str()};
  ASSERT_EQ(a, b) << "base " << base << " '" << s << "'";
}

TEST(Strtol, AgreesWithGlibcInEveryBase) {
  Gen g{std::mt19937(99)};
  for (int base = 0; base <= 36; ++base)
    for (int i = 0; i < 4000 && base != 1; ++i) {
      const std::string s = g.integer(base);
      agree<long long>(s, base, strtollU16, std::strtoll);
      agree<long>(s, base, strtolU, std::strtol);
      agree<unsigned long long>(s, base, strtoullU16, std::strtoull);
      agree<unsigned long>(s, base, strtoulU, std::strtoul);
    }
}

TEST(Strtol, EdgeCases) {
  const struct { const char16_t* text; int base; long long value; int err; long end; } cases[] = {
      {u"  -0x1F", 0, -31, 0, 7},
      {u"0x", 0, 0, 0, 1},
      {u"0xg", 16, 0, 0, 1},
      {u"z", 36, 35, 0, 1},
      {u"9223372036854775808", 10, LLONG_MAX, ERANGE, 19},
      {u"-9223372036854775808", 10, LLONG_MIN, 0, 20},
      {u"-9223372036854775809", 10, LLONG_MIN, ERANGE, 20},
      {u"99999999999999999999999x", 10, LLONG_MAX, ERANGE, 23},
      {u"017", 0, 15, 0, 3},
      {u"\u3000\u2028 12", 10, 12, 0, 5},  // Unicode white space (glibc: none)
      {u"\x1c 7", 10, 7, 0, 3},            // 0x1C..0x1F count as space here
      {u"\u0661", 10, 0, 0, 0},            // only ASCII digits
      {u"", 10, 0, 0, 0},
      {u"-", 10, 0, 0, 0},
  };
  for (const auto& c : cases) {
    NUV_UTF16* end;
    errno = 0;
    const long long v = strtollU16(c.text, &end, c.base);
    EXPECT_EQ(std::make_tuple(v, errno, end - c.text), std::make_tuple(c.value, c.err, c.end)) << c.base;
  }
  NUV_UTF16* end;
  errno = 0;
  EXPECT_EQ(strtoulU16(u"-1", &end, 10), ULONG_MAX);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(strtoulU16(u"18446744073709551616", &end, 10), ULONG_MAX);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(strtolU16(u"12", nullptr, 10), 12);
}

TEST(Strtol, BadBaseTracedAtHighLevel) {
  const char16_t* t = u" 12";
  for (int base : {1, 37, -2}) {
    RecordingTrace rec(U16_TRACE_HIGH);
    EXPECT_EQ(call(t, [&](const NUV_UTF16* s, NUV_UTF16** e) { return strtoullU16(s, e, base); }),
              Outcome(0, EINVAL, 0));
    ASSERT_EQ(RecordingTrace::lines.size(), 1u);
    EXPECT_EQ(nuvtest::after_header(RecordingTrace::lines[0]), "Illegal base " + std::to_string(base) +
                                                                   " in strtolU16\n--- Unicode interface ------ End of message ------");
    EXPECT_NE(RecordingTrace::lines[0].find("[i18n/nuvu16/u16_tol line 32]"), std::string::npos);
  }
  RecordingTrace rec(U16_TRACE_MEDIUM);
  errno = 0;
  EXPECT_EQ(strtolU16(t, nullptr, 37), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(RecordingTrace::lines.empty());
}

// ---- ecvt --------------------------------------------------------------------

// glibc ecvt rounds inexactly past about a dozen digits and returns an extra
// digit when rounding carries; the digits are held against printf instead,
// the exponent and sign against ecvt.
TEST(Ecvt, AgainstGlibcEcvtAndPrintf) {
  std::mt19937_64 rng(5);
  for (int i = 0; i < 20000; ++i) {
    const uint64_t b = rng();
    double v;
    std::memcpy(&v, &b, sizeof v);
    if (!std::isfinite(v) || v == 0.0) continue;
    int nd = static_cast<int>(rng() % 17) + 1, d1, s1, d2, s2;
    ecvtU16(nd, &d1, &s1, v);
    ecvt(v, nd, &d2, &s2);
    ASSERT_TRUE(d1 == d2 && s1 == s2) << v;
  }
  for (int i = 0; i < 5000; ++i) {
    const double v = std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 200) - 100);
    int nd = static_cast<int>(rng() % 128) + 1, decpt, sign;
    const std::u16string ours(reinterpret_cast<char16_t*>(ecvtU16(nd, &decpt, &sign, v)));
    char text[200];
    std::snprintf(text, sizeof text, "%.*e", nd - 1, v);
    if (v == 0.0) continue;
    ASSERT_EQ(ours, u16((text[0] + std::string(text + 2, static_cast<size_t>(nd - 1))).c_str())) << v << " " << nd;
    ASSERT_EQ(decpt, std::atoi(std::strchr(text, 'e') + 1) + 1);
  }
}

TEST(Ecvt, ZeroClampAndWords) {
  int decpt = 9, sign = 9;
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(ecvtU16(3, &decpt, &sign, 0.0))), u"000");
  EXPECT_TRUE(decpt == 0 && sign == 0);  // glibc ecvt gives 1 for decpt
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(ecvtU(0, &decpt, &sign, -25.0))), u"2");
  EXPECT_TRUE(decpt == 2 && sign == 1);
  EXPECT_EQ(std::char_traits<char16_t>::length(reinterpret_cast<char16_t*>(ecvtU16(500, &decpt, &sign, 1.0))), 128u);
  EXPECT_EQ(ecvtU16(1, &decpt, &sign, -INFINITY)[0], u'i');
  EXPECT_TRUE(sign == 1 && decpt == 0);
}

}  // namespace
