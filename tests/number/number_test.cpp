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

#include "nuvu16.h"
#include "support/recording_trace.h"

using nuvtest::after_header;
using nuvtest::RecordingTrace;
using nuvtest::u16;

namespace {

struct Outcome {
  uint64_t bits;
  int err;
  long end;
};

Outcome ours_d(const std::string& s) {
  std::u16string t = u16(s.c_str());
  NUV_UTF16* end = nullptr;
  errno = 0;
  double v = strtodU16(t.c_str(), &end);
  Outcome o{0, errno, end - t.c_str()};
  std::memcpy(&o.bits, &v, sizeof v);
  return o;
}

Outcome glibc_d(const std::string& s) {
  char* end = nullptr;
  errno = 0;
  double v = std::strtod(s.c_str(), &end);
  Outcome o{0, errno, end - s.c_str()};
  std::memcpy(&o.bits, &v, sizeof v);
  return o;
}

std::string digits(std::mt19937& rng, int n, bool first_nonzero = false) {
  std::string s;
  for (int i = 0; i < n; ++i) {
    int lo = (first_nonzero && i == 0) ? 1 : 0;
    s.push_back(static_cast<char>('0' + std::uniform_int_distribution<int>(lo, 9)(rng)));
  }
  return s;
}

// Decimal texts of up to 24 significant digits and exponents of up to four
// significant digits: the region where we and glibc must agree bit for bit.
std::string random_decimal(std::mt19937& rng) {
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  std::string s;
  for (int k = pick(0, 2); k > 0; --k) s += pick(0, 1) ? ' ' : '\t';
  switch (pick(0, 2)) {
    case 0: s += '-'; break;
    case 1: s += '+'; break;
    default: break;
  }
  s += std::string(static_cast<size_t>(pick(0, 1) ? 0 : pick(1, 6)), '0');
  int sig = pick(0, 24);
  int int_digits = pick(0, sig);
  std::string intpart = digits(rng, int_digits, true);
  s += intpart;
  bool point = pick(0, 3) != 0 || int_digits == 0;
  if (point) {
    s += '.';
    if (int_digits == 0) s += std::string(static_cast<size_t>(pick(0, 30)), '0');
    s += digits(rng, sig - int_digits, true);
  }
  if (pick(0, 2) == 0) {
    s += pick(0, 1) ? 'e' : 'E';
    int sign = pick(0, 2);
    if (sign == 1) s += '-';
    if (sign == 2) s += '+';
    if (pick(0, 9)) {
      s += std::string(static_cast<size_t>(pick(0, 3)), '0');
      s += std::to_string(pick(0, 1) ? pick(0, 400) : pick(0, 9999));
    }
  }
  const char* tails[] = {"", "", "x", " 1", "e", "e+", ".5", "abc"};
  s += tails[pick(0, 7)];
  return s;
}

TEST(Strtod, AgreesWithGlibcOnGeneratedDecimals) {
  std::mt19937 rng(20240601);
  for (int i = 0; i < 200000; ++i) {
    std::string s = random_decimal(rng);
    Outcome a = ours_d(s), b = glibc_d(s);
    ASSERT_EQ(a.bits, b.bits) << s;
    ASSERT_EQ(a.err, b.err) << s;
    ASSERT_EQ(a.end, b.end) << s;
  }
}

TEST(Strtod, AgreesWithGlibcOnWordsAndNonNumbers) {
  const char* texts[] = {"inf", "INF", "-inf", "+Infinity", "INFINITY", "infinity", "nan", "NaN", "-nan", "NAN",
                         "", " ", "-", "+", ".", "-.", ".e5", "e5", "abc", ". 5", "0", "-0", "0.",
                         "00000", "1e", "1e+", "1.e3", "5.", "2.2250738585072011e-308", "4.9e-324", "1e-400",
                         "1.7976931348623157e308", "1.8e308", "1e9999", "-1e9999", "123456789012345678901234",
                         "0.000000000000000000000000000000001234", ".5", "-.5e-3", "0e99999", "  \n\v\f\r7"};
  for (const char* t : texts) {
    Outcome a = ours_d(t), b = glibc_d(t);
    EXPECT_EQ(a.bits, b.bits) << t;
    EXPECT_EQ(a.err, b.err) << t;
    EXPECT_EQ(a.end, b.end) << t;
  }
}

TEST(Strtod, BeyondTwentyFourDigitsScalesByDroppedOnes) {
  std::mt19937 rng(7);
  for (int i = 0; i < 20000; ++i) {
    int n = std::uniform_int_distribution<int>(25, 60)(rng);
    std::string d = digits(rng, n, true);
    int e = std::uniform_int_distribution<int>(-350, 350)(rng);
    // Integer form, and the same digits behind "0." with an exponent.
    std::string a = d + "e" + std::to_string(e);
    std::string want = d.substr(0, 24) + "e" + std::to_string(e + n - 24);
    Outcome o = ours_d(a), g = glibc_d(want);
    ASSERT_EQ(o.bits, g.bits) << a;
    ASSERT_EQ(o.err, g.err) << a;
    EXPECT_EQ(o.end, static_cast<long>(a.size()));
    std::string b = "0.000" + d;
    Outcome o2 = ours_d(b), g2 = glibc_d("0." + d.substr(0, 24) + "e-3");
    ASSERT_EQ(o2.bits, g2.bits) << b;
    EXPECT_EQ(o2.end, static_cast<long>(b.size()));
  }
  // A 40-digit integer.
  Outcome o = ours_d("1234567890123456789012345678901234567890");
  Outcome g = glibc_d("123456789012345678901234e16");
  EXPECT_EQ(o.bits, g.bits);
  EXPECT_EQ(o.end, 40);
}

double ours_value(const char16_t* t, long* end_off = nullptr, int* err = nullptr) {
  NUV_UTF16* end = nullptr;
  errno = 0;
  double v = strtodU16(t, &end);
  if (end_off) *end_off = end - t;
  if (err) *err = errno;
  return v;
}

TEST(Strtod, DeliberateDifferences) {
  long end;
  int err;
  // Five exponent digits: overflow decided without calling strtod.
  double v = ours_value(u"1e10000", &end, &err);
  EXPECT_TRUE(std::isinf(v) && v > 0);
  EXPECT_EQ(err, ERANGE);
  EXPECT_EQ(end, 7);
  // A negative number that underflows this way loses its sign (glibc: -0.0).
  v = ours_value(u"-1e-10000", &end, &err);
  EXPECT_EQ(v, 0.0);
  EXPECT_FALSE(std::signbit(v));
  EXPECT_EQ(err, ERANGE);
  v = ours_value(u"-0e-99999", &end, &err);
  EXPECT_TRUE(std::signbit(v));
  EXPECT_EQ(err, 0);
  // Mixed-case words are not recognised (glibc takes them).
  v = ours_value(u"nAn", &end);
  EXPECT_EQ(v, 0.0);
  EXPECT_EQ(end, 0);
  v = ours_value(u"InFinity", &end, &err);
  EXPECT_EQ(v, 0.0);
  EXPECT_EQ(end, 0);
  v = ours_value(u"INFinity", &end);
  EXPECT_TRUE(std::isinf(v));
  EXPECT_EQ(end, 3);
  v = ours_value(u"-Infinity", &end, &err);
  EXPECT_TRUE(std::isinf(v) && v < 0);
  EXPECT_EQ(end, 9);
  EXPECT_EQ(err, 0);
  // No hexadecimal floating input.
  v = ours_value(u"0x1p3", &end);
  EXPECT_EQ(v, 0.0);
  EXPECT_EQ(end, 1);
  // Unicode white space.
  v = ours_value(u"\u3000\u00A0\u2009 2.5", &end);
  EXPECT_EQ(v, 2.5);
  EXPECT_EQ(end, 7);
  // 1e9999 goes to strtod and overflows there.
  v = ours_value(u"1e9999", &end, &err);
  EXPECT_TRUE(std::isinf(v));
  EXPECT_EQ(err, ERANGE);
  // With a correction, exponents up to 65535 are added; beyond is overflow.
  v = ours_value(u"0.001e65535", &end, &err);
  EXPECT_TRUE(std::isinf(v));
  EXPECT_EQ(err, ERANGE);
  v = ours_value(u"0.001e-65536", &end, &err);
  EXPECT_EQ(v, 0.0);
  EXPECT_EQ(err, ERANGE);
  EXPECT_EQ(end, 12);
  EXPECT_EQ(strtodU(u"3.5", nullptr), 3.5);
}

// ---- integers ----------------------------------------------------------------

template <class T>
struct IntOutcome {
  T v;
  int err;
  long end;
  bool operator==(const IntOutcome& o) const { return v == o.v && err == o.err && end == o.end; }
};

std::string random_integer_text(std::mt19937& rng, int base) {
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  static const char alphabet[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string s;
  for (int k = pick(0, 2); k > 0; --k) s += " \t\n\v\f\r"[pick(0, 5)];
  int sign = pick(0, 3);
  if (sign == 1) s += '-';
  if (sign == 2) s += '+';
  if (pick(0, 3) == 0) s += pick(0, 1) ? "0x" : "0X";
  else if (pick(0, 4) == 0) s += '0';
  int eff = base == 0 ? 16 : base;
  int n = pick(0, 3) == 0 ? pick(15, 70) : pick(0, 14);
  for (int i = 0; i < n; ++i) {
    int d = pick(0, eff - 1);
    char c = alphabet[d];
    if (d >= 10 && pick(0, 1)) c = alphabet[d + 26];
    s += c;
  }
  const char* tails[] = {"", "", "g", "z", " 5", "x", "-"};
  s += tails[pick(0, 6)];
  return s;
}

TEST(Strtol, AgreesWithGlibcInEveryBase) {
  std::mt19937 rng(99);
  for (int base = 0; base <= 36; ++base) {
    if (base == 1) continue;
    for (int i = 0; i < 4000; ++i) {
      std::string s = random_integer_text(rng, base);
      std::u16string t = u16(s.c_str());
      NUV_UTF16* e16;
      char* e8;
      errno = 0;
      IntOutcome<long long> a{strtollU16(t.c_str(), &e16, base), errno, e16 - t.c_str()};
      errno = 0;
      IntOutcome<long long> b{std::strtoll(s.c_str(), &e8, base), errno, e8 - s.c_str()};
      ASSERT_TRUE(a == b) << "base " << base << " '" << s << "' ours " << a.v << "/" << a.err << "/" << a.end
                          << " glibc " << b.v << "/" << b.err << "/" << b.end;
      errno = 0;
      IntOutcome<long> al{strtolU(t.c_str(), &e16, base), errno, e16 - t.c_str()};
      errno = 0;
      IntOutcome<long> bl{std::strtol(s.c_str(), &e8, base), errno, e8 - s.c_str()};
      ASSERT_TRUE(al == bl) << s;
      errno = 0;
      IntOutcome<unsigned long long> c{strtoullU16(t.c_str(), &e16, base), errno, e16 - t.c_str()};
      errno = 0;
      IntOutcome<unsigned long long> d{std::strtoull(s.c_str(), &e8, base), errno, e8 - s.c_str()};
      ASSERT_TRUE(c == d) << "base " << base << " '" << s << "'";
      errno = 0;
      IntOutcome<unsigned long> cu{strtoulU(t.c_str(), &e16, base), errno, e16 - t.c_str()};
      errno = 0;
      IntOutcome<unsigned long> du{std::strtoul(s.c_str(), &e8, base), errno, e8 - s.c_str()};
      ASSERT_TRUE(cu == du) << s;
    }
  }
}

struct IntCase {
  const char16_t* text;
  int base;
  long long value;
  int err;
  long end;
};

TEST(Strtol, EdgeCases) {
  const IntCase cases[] = {
      {u"  -0x1F", 0, -31, 0, 7},
      {u"0x", 0, 0, 0, 1},
      {u"0xg", 16, 0, 0, 1},
      {u"z", 36, 35, 0, 1},
      {u"9223372036854775808", 10, LLONG_MAX, ERANGE, 19},
      {u"-9223372036854775808", 10, LLONG_MIN, 0, 20},
      {u"-9223372036854775809", 10, LLONG_MIN, ERANGE, 20},
      {u"99999999999999999999999x", 10, LLONG_MAX, ERANGE, 23},
      {u"017", 0, 15, 0, 3},
      {u"\u3000\u2028 12", 10, 12, 0, 5},   // Unicode white space (glibc: none)
      {u"\x1c 7", 10, 7, 0, 3},             // 0x1C..0x1F count as space here
      {u"\u0661", 10, 0, 0, 0},             // only ASCII digits
      {u"", 10, 0, 0, 0},
      {u"-", 10, 0, 0, 0},
  };
  for (const auto& c : cases) {
    NUV_UTF16* end;
    errno = 0;
    long long v = strtollU16(c.text, &end, c.base);
    EXPECT_EQ(v, c.value) << c.base;
    EXPECT_EQ(errno, c.err);
    EXPECT_EQ(end - c.text, c.end);
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
    NUV_UTF16* end = nullptr;
    errno = 0;
    EXPECT_EQ(strtoullU16(t, &end, base), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(end, t);
    ASSERT_EQ(RecordingTrace::lines.size(), 1u);
    EXPECT_EQ(after_header(RecordingTrace::lines[0]),
              "Illegal base " + std::to_string(base) +
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
// digit when rounding carries; the digits are held against printf instead
// (below), the exponent and sign against ecvt.
TEST(Ecvt, ExponentAndSignAgreeWithGlibcEcvt) {
  std::mt19937_64 rng(5);
  for (int i = 0; i < 20000; ++i) {
    uint64_t bits = rng();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    if (!std::isfinite(v) || v == 0.0) continue;
    int nd = static_cast<int>(rng() % 17) + 1;
    int d1, s1, d2, s2;
    ecvtU16(nd, &d1, &s1, v);
    ecvt(v, nd, &d2, &s2);
    ASSERT_EQ(d1, d2) << v;
    ASSERT_EQ(s1, s2) << v;
  }
}

TEST(Ecvt, LongDigitStringsMatchPrintf) {
  std::mt19937_64 rng(6);
  for (int i = 0; i < 5000; ++i) {
    double v = std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 200) - 100);
    if (v == 0.0) continue;
    int nd = static_cast<int>(rng() % 128) + 1;
    int decpt, sign;
    std::u16string ours(reinterpret_cast<char16_t*>(ecvtU16(nd, &decpt, &sign, v)));
    char text[200];
    std::snprintf(text, sizeof text, "%.*e", nd - 1, v);
    std::string want(1, text[0]);
    if (nd > 1) want += std::string(text + 2, static_cast<size_t>(nd - 1));
    ASSERT_EQ(ours, u16(want.c_str())) << v << " " << nd;
    ASSERT_EQ(decpt, std::atoi(std::strchr(text, 'e') + 1) + 1);
  }
}

TEST(Ecvt, ZeroClampAndWords) {
  int decpt = 9, sign = 9;
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(ecvtU16(3, &decpt, &sign, 0.0))), u"000");
  EXPECT_EQ(decpt, 0);  // glibc ecvt gives 1 here
  EXPECT_EQ(sign, 0);
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(ecvtU(0, &decpt, &sign, -25.0))), u"2");
  EXPECT_EQ(decpt, 2);
  EXPECT_EQ(sign, 1);
  EXPECT_EQ(std::char_traits<char16_t>::length(reinterpret_cast<char16_t*>(ecvtU16(500, &decpt, &sign, 1.0))),
            128u);
  NUV_UTF16* p = ecvtU16(1, &decpt, &sign, -INFINITY);
  EXPECT_EQ(p[0], u'i');
  EXPECT_EQ(sign, 1);
  EXPECT_EQ(decpt, 0);
}

}  // namespace
