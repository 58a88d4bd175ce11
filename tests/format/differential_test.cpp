// sprintfU16 held against glibc snprintf over many generated directives.
// Where the engine differs from C on purpose, the case is turned into the
// glibc call that gives the engine's text, and each such difference is a
// named class below; every class must have been met by the generator.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "nuvu16.h"

namespace {

enum Diff {
  kZeroPadsNonNumeric,      // '0' pads %s %c %p(nil) %% with zeros, C pads with spaces
  kPercentTakesWidth,       // %5% pads; C prints a bare %
  kPrecisionBlocksZeros,    // a precision below the width turns '0' padding into spaces (floats)
  kNegativePrecisionGiven,  // a negative '*' precision other than -1 counts as given
  kNegativeWidthNoPadding,  // a negative '*' width means no padding, not left justification
  kModifierNoEffect,        // hh h j z t read an int with no truncation; o always reads 32 bits
  kOctalPrecisionNeedsHash, // %.5o ignores its precision without '#'
  kOctalTakesSign,          // %+o and % o print a sign
  kPointerPlainHex,         // %p prints bare hex digits, no 0x
  kHexFloatPrecisionSix,    // %a without precision uses 6 digits
  kNegativeZeroUnsigned,    // -0.0 prints without a minus
  kZeroPadsNonFinite,       // '0' pads inf and nan with zeros, C pads with spaces
  kHashPrefixOnZeroDigits,  // %#.3x of 0 prints 0x000: the prefix follows the text, not the value
  kZerosBeforeHexFloat,     // %010a pads zeros before the 0x that the C library's text carries
  kOctalHashZeroTwo,        // %#.2o of 0 prints one 0: the '#' zero is not added to a bare "0"
  kDiffCount
};
const char* const kDiffNames[] = {"ZeroPadsNonNumeric",   "PercentTakesWidth",    "PrecisionBlocksZeros",
                                  "NegativePrecisionGiven", "NegativeWidthNoPadding", "ModifierNoEffect",
                                  "OctalPrecisionNeedsHash", "OctalTakesSign",       "PointerPlainHex",
                                  "HexFloatPrecisionSix",  "NegativeZeroUnsigned",   "ZeroPadsNonFinite",
                                  "HashPrefixOnZeroDigits", "ZerosBeforeHexFloat",   "OctalHashZeroTwo"};

std::u16string widen(const std::string& s) {
  std::u16string r;
  for (unsigned char c : s) r.push_back(c);
  return r;
}

struct Directive {
  std::string flags;
  int width_kind = 0;  // 0 none, 1 digits, 2 '*'
  int width = 0;
  int prec_kind = 0;   // 0 none, 1 digits, 2 '*', 3 lone '.'
  int prec = 0;
  std::string mod;
  char sym = 'd';

  std::string text() const {
    std::string s = "%" + flags;
    if (width_kind == 1) s += std::to_string(width);
    if (width_kind == 2) s += "*";
    if (prec_kind == 1) s += "." + std::to_string(prec);
    if (prec_kind == 2) s += ".*";
    if (prec_kind == 3) s += ".";
    return s + mod + sym;
  }
  bool has(char f) const { return flags.find(f) != std::string::npos; }
  int our_width() const { return width_kind ? width : -1; }
  int our_prec() const { return prec_kind == 0 ? -1 : prec_kind == 3 ? 0 : prec; }
  bool blocked() const {
    return our_prec() != -1 && our_width() != -1 && our_prec() < our_width();
  }
};

// Calls with the '*' arguments a directive needs, then the value.
template <class V>
std::pair<int, std::string> ours(const Directive& d, V v) {
  static std::vector<char16_t> buf(80000);
  const std::u16string f = widen(d.text());
  int r;
  if (d.width_kind == 2 && d.prec_kind == 2) r = sprintfU16(buf.data(), f.c_str(), d.width, d.prec, v);
  else if (d.width_kind == 2) r = sprintfU16(buf.data(), f.c_str(), d.width, v);
  else if (d.prec_kind == 2) r = sprintfU16(buf.data(), f.c_str(), d.prec, v);
  else r = sprintfU16(buf.data(), f.c_str(), v);
  std::string s;
  for (int i = 0; i < r; ++i) s.push_back(static_cast<char>(buf[i]));
  return {r, s};
}

// glibc always gets "*.*": width 0 means none, precision -1 means none.
template <class V>
std::pair<int, std::string> glibc(const std::string& flags, int width, int prec, const std::string& mod, char sym,
                                  V v) {
  static std::vector<char> buf(80000);
  const std::string f = "%" + flags + "*.*" + mod + sym;
  const int r = std::snprintf(buf.data(), buf.size(), f.c_str(), width, prec, v);
  return {r, std::string(buf.data(), r > 0 ? r : 0)};
}

std::string without(std::string s, char c) {
  s.erase(std::remove(s.begin(), s.end(), c), s.end());
  return s;
}

class Generator {
 public:
  explicit Generator(unsigned seed) : rng_(seed) {}
  std::map<Diff, int> met;

  void one() {
    static const char kSyms[] = "diuxXoeEfFgGaAcsp%";
    Directive d;
    d.sym = kSyms[pick(sizeof kSyms - 1)];
    const std::string all = "-+ #0";
    for (char f : all)
      if (pick(3) == 0) d.flags += f;
    std::shuffle(d.flags.begin(), d.flags.end(), rng_);
    if (d.flags.size() > 4) d.flags.pop_back();
    switch (pick(4)) {
      case 1: d.width_kind = 1; d.width = 1 + pick(30); break;
      case 2: d.width_kind = 2; d.width = static_cast<int>(pick(45)) - 14; break;
      default: break;
    }
    switch (pick(5)) {
      case 1: d.prec_kind = 1; d.prec = pick(8) == 0 ? 300 + pick(120) : pick(25); break;
      case 2: d.prec_kind = 2; d.prec = static_cast<int>(pick(40)) - 10; break;
      case 3: d.prec_kind = 3; break;
      default: break;
    }
    run(d);
  }

  void run(Directive& d) {
    ++cases;
    Expect e;
    e.flags = d.flags;
    e.width = d.our_width() < 0 ? 0 : d.our_width();
    if (d.width_kind == 2 && d.width < -1) note(kNegativeWidthNoPadding);
    e.prec = d.our_prec();
    if (d.blocked() && d.has('0') && !d.has('-')) {
      e.flags = without(e.flags, '0');
      if (d.prec_kind == 2 && d.prec < -1) note(kNegativePrecisionGiven);
      else if (std::string("eEfFgGaA").find(d.sym) != std::string::npos) note(kPrecisionBlocksZeros);
    }
    switch (d.sym) {
      case 'd': case 'i': integer(d, e, true); break;
      case 'u': case 'x': case 'X': integer(d, e, false); break;
      case 'o': octal(d, e); break;
      case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A': floating(d, e); break;
      case 'c': character(d, e); break;
      case 's': string(d, e); break;
      case 'p': pointer(d, e); break;
      case '%': percent(d, e); break;
    }
  }

  int cases = 0;

 private:
  struct Expect {
    std::string flags;
    int width;
    int prec;
  };

  std::mt19937_64 rng_;
  unsigned pick(unsigned n) { return static_cast<unsigned>(rng_() % n); }
  void note(Diff d) { ++met[d]; }

  template <class A, class B>
  void check(const Directive& d, const std::pair<int, std::string>& got, const std::pair<int, std::string>& want,
             B value) {
    ASSERT_EQ(got.second, want.second) << d.text() << " width " << d.width << " prec " << d.prec << " value "
                                       << value;
    ASSERT_EQ(got.first, want.first) << d.text();
  }

  static std::string assemble(const Directive& d, int width, const std::string& sign, const std::string& text) {
    const int pad = width - static_cast<int>(text.size() + sign.size());
    const std::string fill(pad > 0 ? pad : 0, d.has('0') && !d.blocked() ? '0' : ' ');
    if (d.has('-')) return sign + text + std::string(fill.size(), ' ');
    if (fill.empty() || fill[0] == ' ') return fill + sign + text;
    return sign + fill + text;
  }

  // Zero padding of non-numeric conversions: C pads with spaces.
  std::string zero_pad(const Directive& d, std::string s) {
    if (!d.has('0') || d.has('-') || d.blocked()) return s;
    std::size_t n = 0;
    while (n < s.size() && s[n] == ' ') ++n;
    if (n) note(kZeroPadsNonNumeric);
    for (std::size_t i = 0; i < n; ++i) s[i] = '0';
    return s;
  }

  void integer(Directive& d, Expect& e, bool is_signed) {
    static const int64_t kValues[] = {0, 1, -1, 42, -42, 255, 70000, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN,
                                      0x7fffffffffLL, -1000000007LL};
    static const char* const kMods[] = {"", "", "", "l", "ll", "h", "hh", "j", "z", "t"};
    d.mod = kMods[pick(10)];
    const int64_t v = pick(4) == 0 ? static_cast<int64_t>(rng_()) : kValues[pick(13)];
    if (!d.mod.empty() && d.mod != "l" && d.mod != "ll") note(kModifierNoEffect);
    if (d.mod == "l" || d.mod == "ll") {
      auto got = ours(d, v);
      auto want = glibc(e.flags, e.width, e.prec, "ll", d.sym, v);
      if (v == 0 && d.has('#') && (d.sym == 'x' || d.sym == 'X') && e.prec > 1) {
        note(kHashPrefixOnZeroDigits);
        const auto digits = glibc("", 0, e.prec, "", d.sym, 0).second;
        want.second = assemble(d, e.width, d.sym == 'x' ? "0x" : "0X", digits);
        want.first = static_cast<int>(want.second.size());
      }
      check<int64_t>(d, got, want, v);
    } else {
      const int iv = static_cast<int>(v);
      auto got = ours(d, iv);
      auto want = glibc(e.flags, e.width, e.prec, "", d.sym, iv);
      if (iv == 0 && d.has('#') && (d.sym == 'x' || d.sym == 'X') && e.prec > 1) {
        note(kHashPrefixOnZeroDigits);
        const auto digits = glibc("", 0, e.prec, "", d.sym, 0).second;
        want.second = assemble(d, e.width, d.sym == 'x' ? "0x" : "0X", digits);
        want.first = static_cast<int>(want.second.size());
      }
      check<int>(d, got, want, iv);
    }
    (void)is_signed;
  }

  void octal(Directive& d, Expect& e) {
    static const char* const kMods[] = {"", "", "l", "ll", "h"};
    d.mod = kMods[pick(5)];
    if (!d.mod.empty()) note(kModifierNoEffect);
    const unsigned v = pick(3) == 0 ? 0u : pick(2) ? 8u : static_cast<unsigned>(rng_());
    if (!d.has('#') && e.prec != -1 && !(v == 0 && e.prec == 0)) {
      if (e.prec > 1) note(kOctalPrecisionNeedsHash);
      e.prec = -1;
    }
    if (d.has('#') && v == 0 && e.prec == 2) {
      note(kOctalHashZeroTwo);
      e.prec = 1;
    }
    const bool sign = d.has('+') || d.has(' ');
    std::pair<int, std::string> got =
        d.mod.empty() ? ours(d, v) : ours(d, static_cast<unsigned long long>(v) | (0xABCDull << 32));
    auto want = glibc(without(without(e.flags, '+'), ' '), sign && e.width > 0 ? e.width - 1 : e.width, e.prec, "",
                      'o', v);
    if (sign) {
      note(kOctalTakesSign);
      std::size_t at = 0;
      if (!d.has('-'))
        while (at < want.second.size() && want.second[at] == ' ') ++at;
      want.second.insert(at, 1, d.has('+') ? '+' : ' ');
      ++want.first;
    }
    check<unsigned>(d, got, want, v);
  }

  void floating(Directive& d, Expect& e) {
    static const double kValues[] = {0.0, -0.0, 1.5, 3.14159, -2.5, 1e-5, 0.1, 123456.789, 1e300, 1e306, -1e306,
                                     INFINITY, -INFINITY, NAN, DBL_MAX, DBL_MIN, 4e-320, 0.5, 9.9999999, 1e22};
    double v = pick(4) == 0 ? std::ldexp(static_cast<double>(rng_() >> 11), static_cast<int>(pick(200)) - 100)
                            : kValues[pick(20)];
    if (pick(2) == 0 && !std::isnan(v)) v = -v;
    if (v == 0 && std::signbit(v)) note(kNegativeZeroUnsigned);
    const double gv = v;
    if ((d.sym == 'a' || d.sym == 'A') && e.prec < 0) {
      note(kHexFloatPrecisionSix);
      e.prec = 6;
    }
    if (pick(3) == 0 && std::fabs(v) < 1e300 && !(v == 0 && std::signbit(v)) &&
        !((d.sym == 'a' || d.sym == 'A') && d.has('0'))) {
      d.mod = "L";
      const long double lv = v;
      auto got = ours(d, lv);
      auto want = glibc(e.flags, e.width, e.prec, "L", d.sym, static_cast<long double>(gv));
      check<long double>(d, got, want, lv);
      return;
    }
    if (pick(4) == 0) {
      d.mod = "l";  // accepted, no effect
    }
    auto got = ours(d, v);
    auto want = glibc(e.flags, e.width, e.prec, "", d.sym, gv);
    const bool neg_zero = v == 0 && std::signbit(v);
    const bool zeros = d.has('0') && !d.has('-') && !d.blocked();
    const bool hex = d.sym == 'a' || d.sym == 'A';
    if (neg_zero || (zeros && (!std::isfinite(v) || hex))) {
      // The engine's sign and padding around the C library's bare text (for
      // -0.0 that text carries its own '-').
      const auto text = glibc(d.has('#') ? "#" : "", 0, e.prec, "", d.sym, neg_zero ? v : std::fabs(v)).second;
      const std::string sign = v < 0 ? "-" : d.has('+') ? "+" : d.has(' ') ? " " : "";
      want.second = assemble(d, e.width, sign, text);
      want.first = static_cast<int>(want.second.size());
      if (!neg_zero && e.width > static_cast<int>(text.size() + sign.size()))
        note(std::isfinite(v) ? kZerosBeforeHexFloat : kZeroPadsNonFinite);
    }
    check<double>(d, got, want, v);
  }

  void character(Directive& d, Expect& e) {
    const int v = pick(10) == 0 ? 0 : 0x21 + static_cast<int>(pick(0x5E));
    if (pick(3) == 0) d.mod = pick(2) ? "l" : "h";
    auto got = ours(d, v);
    auto want = glibc(without(without(without(e.flags, '+'), ' '), '#'), e.width, -1, "", 'c', v);
    want.second = zero_pad(d, want.second);
    check<int>(d, got, want, v);
  }

  void string(Directive& d, Expect& e) {
    static const char* const kValues[] = {"", "a", "abcdef", "hello, world", "x%y", nullptr};
    const char* v = kValues[pick(6)];
    if (pick(3) == 0) d.mod = pick(2) ? "l" : "h";
    const std::u16string w = v ? widen(v) : std::u16string();
    auto got = ours(d, v ? w.c_str() : static_cast<const char16_t*>(nullptr));
    const int prec = v ? e.prec : -1;  // "(null)" is never cut here
    auto want = glibc(without(without(without(e.flags, '+'), ' '), '#'), e.width, prec, "", 's',
                      v ? v : "(null)");
    want.second = zero_pad(d, want.second);
    check<const char*>(d, got, want, v ? v : "(null)");
  }

  void pointer(Directive& d, Expect& e) {
    void* v = pick(4) == 0 ? nullptr : reinterpret_cast<void*>(static_cast<uintptr_t>(rng_() >> pick(48)));
    auto got = ours(d, v);
    const std::string flags = without(without(without(e.flags, '+'), ' '), '#');
    std::pair<int, std::string> want;
    if (v) {
      note(kPointerPlainHex);
      want = glibc(flags, e.width, e.prec, "l", 'x', reinterpret_cast<unsigned long>(v));
    } else {
      want = glibc(flags, e.width, -1, "", 's', "(nil)");
      want.second = zero_pad(d, want.second);
    }
    check<void*>(d, got, want, v);
  }

  void percent(Directive& d, Expect& e) {
    if (pick(3) == 0) d.mod = "l";
    auto got = d.width_kind == 2 || d.prec_kind == 2 ? ours(d, 0) : ours(d, 0);
    auto want = glibc(without(without(without(e.flags, '+'), ' '), '#'), e.width, -1, "", 's', "%");
    if (e.width > 1) note(kPercentTakesWidth);
    want.second = zero_pad(d, want.second);
    check<int>(d, got, want, 0);
  }
};

TEST(Differential, GeneratedDirectivesMatchGlibcOrTheirListedDifference) {
  Generator g(20261122);
  for (int i = 0; i < 60000; ++i) {
    g.one();
    if (::testing::Test::HasFatalFailure()) return;
  }
  for (int k = 0; k < kDiffCount; ++k)
    EXPECT_GT(g.met[static_cast<Diff>(k)], 0) << "class never generated: " << kDiffNames[k];
}

TEST(Differential, MixedLiteralsAndSeveralDirectives) {
  char16_t buf[512];
  char want[512];
  struct {
    const char* fmt;
  } const cases[] = {{"%d items, %s, %5.2f%%"}, {"[%-8s|%08.0f|%x]"}, {"no directive at all"}, {"%c%c%c"}};
  int r = sprintfU16(buf, widen(cases[0].fmt).c_str(), 12, u"abc", 3.14159);
  std::snprintf(want, sizeof want, "%d items, %s, %5.2f%%", 12, "abc", 3.14159);
  EXPECT_EQ(std::string(buf, buf + r), want);
  r = sprintfU16(buf, widen(cases[1].fmt).c_str(), u"ab", 2.5, 255u);
  // The precision (0) is below the width (8): spaces, not zeros.
  std::snprintf(want, sizeof want, "[%-8s|%8.0f|%x]", "ab", 2.5, 255u);
  EXPECT_EQ(std::string(buf, buf + r), want);
  r = sprintfU16(buf, widen(cases[2].fmt).c_str());
  EXPECT_EQ(std::string(buf, buf + r), "no directive at all");
  r = sprintfU16(buf, widen(cases[3].fmt).c_str(), 'a', 0x20AC, 'c');
  EXPECT_EQ(r, 3);
  EXPECT_EQ(std::u16string(buf, buf + r), u"a\u20acc");
}

}  // namespace
