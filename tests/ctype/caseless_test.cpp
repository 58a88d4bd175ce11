// Case-insensitive comparison and conversion: the fast paths against their
// unit-by-unit references under every kind of mapping, ICU's own case
// functions as a peer, the edge cases, and the narrow forms against glibc.
#include <gtest/gtest.h>
#include <strings.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/stringoptions.h>
#include <unistd.h>

#include <clocale>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "ctype/caseless.h"
#include "ctype/icu_loader.h"
#include "nuvu16.h"
#include "support/page_end.h"
#include "support/scoped.h"

namespace {

// Which mapping the nine entries point at during a test.
enum class Mapping { kIcu, kFallback, kTable, kUser };

// Not a plain ASCII mapping: comparisons must hand it every unit.
int32_t odd_lower(int32_t c) { return c == 'A' ? 'z' : c == 0x3A9 ? 'a' : (c >= 'B' && c <= 'Z') ? c + 0x20 : c; }
int32_t odd_upper(int32_t c) { return c == 0xE9 ? 0x45 : c; }

struct UseMapping {
  NUV_CTYPE_FUNC lower, upper;
  int32_t level = nlsui_init_trace_level;
  explicit UseMapping(Mapping m) {
    nlsui_init_trace_level = 0;
    (void)isalphaU('a');  // bind ICU if it is not yet
    useICUCtype();
    lower = tolowerU;
    upper = toupperU;
    switch (m) {
      case Mapping::kIcu: break;
      case Mapping::kFallback: useFallBackCtype(); break;
      case Mapping::kTable: tolowerU = tolowerU16; toupperU = toupperU16; break;
      case Mapping::kUser: tolowerU = odd_lower; toupperU = odd_upper; break;
    }
  }
  ~UseMapping() {
    useICUCtype();
    nlsui_init_trace_level = level;
  }
};

// Units worth mixing: ASCII letters and neighbours, Latin-1, Greek, Cyrillic,
// letters with odd case behaviour, surrogates and the top of the plane.
std::u16string random_text(std::mt19937& rng, std::size_t len) {
  static const char16_t pool[] = {u'a', u'Z', u'@', u'[', u'`', u'{', u'0', u' ', 0x7F, 0x80, 0xC0, 0xDF, 0xE9,
                                  0xFF, 0x130, 0x131, 0x17F, 0x391, 0x3A3, 0x3C2, 0x3C3, 0x3A9, 0x3C9, 0x410,
                                  0x44F, 0x1E9E, 0x2126, 0xD800, 0xDC00, 0xFF21, 0xFFFF};
  std::u16string s;
  for (std::size_t i = 0; i < len; ++i) {
    const unsigned r = rng() % 100;
    if (r < 55)
      s.push_back(static_cast<char16_t>((rng() % 2 ? 'a' : 'A') + rng() % 26));
    else if (r < 90)
      s.push_back(pool[rng() % (sizeof pool / sizeof pool[0])]);
    else
      s.push_back(static_cast<char16_t>(1 + rng() % 0xFFFF));
  }
  return s;
}

// A case variant of s through the reference conversion of some positions.
std::u16string case_variant(std::mt19937& rng, std::u16string s) {
  for (auto& c : s)
    if (rng() % 2) c = static_cast<char16_t>(c < 0x80 ? (c ^ ((c | 0x20) - 'a' < 26u ? 0x20 : 0)) : c);
  return s;
}

int sign(int v) { return (v > 0) - (v < 0); }

class AgainstReference : public ::testing::TestWithParam<Mapping> {};

TEST_P(AgainstReference, ComparisonsAndConversionsAtEveryAlignmentAndLength) {
  UseMapping use(GetParam());
  std::mt19937 rng(1234);
  std::vector<char16_t> ba(200), bb(200);
  for (int iter = 0; iter < 4000; ++iter) {
    const std::u16string a = random_text(rng, rng() % 50);
    std::u16string b = rng() % 3 ? case_variant(rng, a) : random_text(rng, rng() % 40);
    if (rng() % 4 == 0 && !b.empty()) b[rng() % b.size()] = static_cast<char16_t>(rng() % 0x100);
    const std::size_t oa = rng() % 9, ob = rng() % 9, n = rng() % 60;
    std::copy(a.begin(), a.end(), ba.begin() + oa);
    ba[oa + a.size()] = 0;
    std::copy(b.begin(), b.end(), bb.begin() + ob);
    bb[ob + b.size()] = 0;
    const NUV_UTF16 *pa = ba.data() + oa, *pb = bb.data() + ob;
    ASSERT_EQ(strcasecmpU16(pa, pb), nuv::strcasecmp_ref(pa, pb)) << iter;
    ASSERT_EQ(strncasecmpU16(pa, pb, n), nuv::strncasecmp_ref(pa, pb, n)) << iter << " n=" << n;
    ASSERT_EQ(strcasecmpU(pa, pb), strcasecmpU16(pa, pb));
    ASSERT_EQ(strncasecmpU(pa, pb, n), strncasecmpU16(pa, pb, n));

    const bool up = rng() % 2;  // bounded in place, unbounded in place, copying
    std::vector<char16_t> got(ba.begin(), ba.begin() + 80), want = got, src = got;
    (up ? strntoupperU16 : strntolowerU16)(got.data() + oa, n);
    nuv::strncase_ref(want.data() + oa, n, up);
    ASSERT_EQ(got, want) << iter;
    (up ? strtoupperU16 : strtolowerU16)(got.data() + oa);
    nuv::strncase_ref(want.data() + oa, SIZE_MAX, up);
    ASSERT_EQ(got, want) << iter;
    std::vector<char16_t> dg(80, 0x7777), dw(80, 0x7777);
    const std::size_t doff = rng() % 5;
    EXPECT_EQ((up ? strcpytoupperU16 : strcpytolowerU16)(dg.data() + doff, src.data() + oa), dg.data() + doff);
    nuv::strcpycase_ref(dw.data() + doff, src.data() + oa, up);
    ASSERT_EQ(dg, dw) << iter;
  }
}

std::string mapping_name(const ::testing::TestParamInfo<Mapping>& info) {
  static const char* const names[] = {"Icu", "Fallback", "Table", "User"};
  return names[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Mappings, AgainstReference,
                         ::testing::Values(Mapping::kIcu, Mapping::kFallback, Mapping::kTable, Mapping::kUser),
                         mapping_name);

// Every Latin-1 unit at every lane of a block, so the block paths meet each
// one (0xB5 and 0xFF leave the range and must take the unit path).
TEST_P(AgainstReference, EveryLatin1UnitInEveryLane) {
  UseMapping use(GetParam());
  for (char16_t u = 1; u < 0x100; ++u)
    for (int lane = 0; lane < 8; ++lane) {
      std::u16string s(17, u'\u00e9');
      for (int i = 0; i < 16; i += 3) s[i] = u'Q';
      s[lane] = s[8 + lane] = u;
      s[16] = 0;
      for (bool up : {false, true}) {
        std::u16string got = s, want = s;
        (up ? strtoupperU16 : strtolowerU16)(got.data());
        nuv::strncase_ref(want.data(), SIZE_MAX, up);
        ASSERT_EQ(got, want) << std::hex << static_cast<int>(u) << " lane " << lane;
        ASSERT_EQ(strcasecmpU16(s.c_str(), got.c_str()), nuv::strcasecmp_ref(s.c_str(), got.c_str()))
            << std::hex << static_cast<int>(u) << " lane " << lane;
      }
    }
}

// Strings that end at the last unit of a readable page: the fast paths must
// not touch the next one; the same pointer or a zero count reads nothing.
TEST(Caseless, PageEdgesSamePointerAndZeroCount) {
  UseMapping use(Mapping::kIcu);
  nuvtest::PageEnd mem;
  ASSERT_TRUE(mem.ok());
  std::vector<char16_t> other(40);
  for (std::size_t len = 0; len < 30; ++len) {
    char16_t* s = mem.end<char16_t>() - len - 1;
    for (std::size_t i = 0; i < len; ++i) s[i] = static_cast<char16_t>(i % 3 ? 'a' + i : 'K');
    s[len] = 0;
    std::copy(s, s + len + 1, other.begin());
    if (len) other[0] = other[0] ^ 0x20;  // a case variant of s
    EXPECT_EQ(strcasecmpU16(s, other.data()) | strcasecmpU16(other.data(), s) | strncasecmpU16(s, other.data(), 100), 0)
        << len;
    strtoupperU16(s);
    strtolowerU16(s);
    std::vector<char16_t> dest(len + 1);
    strcpytoupperU16(dest.data(), s);
    std::u16string t(s);
    for (auto& c : t) c = static_cast<char16_t>(c >= 'a' && c <= 'z' ? c - 0x20 : c);
    EXPECT_EQ(std::u16string(dest.data()), t);
  }
  auto* p = reinterpret_cast<NUV_UTF16*>(mem.guard());
  const char* c = mem.guard();
  EXPECT_EQ(strcasecmpU16(p, p) | strncasecmpU16(p, p, 10) | strncasecmpU16(p, p + 1, 0), 0);
  EXPECT_EQ(strcasecmpR(c, c) | strncasecmpR(c, c + 1, 0), 0);
  EXPECT_EQ(strntoupperU16(p, 0), p);
}

TEST(Caseless, EdgeCasesUnderIcuAndAUserMapping) {
  UseMapping use(Mapping::kIcu);
  const struct { const char16_t *a, *b; std::size_t n; int want; } cmp[] = {
      {u"", u"", SIZE_MAX, 0},        {u"abc", u"ABD", SIZE_MAX, 'c' - 'd'},
      {u"ab", u"AB\u00c9", SIZE_MAX, -0xE9},  // lowered units, unsigned
      {u"\uff21", u"a", SIZE_MAX, 0xFF41 - 'a'}, {u"abcX", u"ABCy", 3, 0}, {u"abcX", u"ABCy", 4, 'x' - 'y'}};
  for (const auto& c : cmp)
    EXPECT_EQ(c.n == SIZE_MAX ? strcasecmpU16(c.a, c.b) : strncasecmpU16(c.a, c.b, c.n), c.want) << c.n;
  char16_t s[] = u"caf\u00e9 x", t[] = u"abcdefghij", u[] = u"ab\0cd";
  EXPECT_EQ(strtoupperU16(s), s);
  EXPECT_EQ(std::u16string(s), u"CAF\u00c9 X");
  strntoupperU16(t, 4);
  EXPECT_EQ(std::u16string(t), u"ABCDefghij");
  strntoupperU16(u, 5);
  EXPECT_TRUE(u[1] == u'B' && u[3] == u'c' && u[4] == u'd');
  // ASCII goes past a user's mapping in the conversions, but not in comparisons.
  UseMapping user(Mapping::kUser);
  EXPECT_EQ(strcasecmpU16(u"A", u"z"), 0);       // odd_lower('A') == 'z'
  EXPECT_EQ(strcasecmpU16(u"\u03a9", u"a"), 0);  // and U+03A9 to 'a'
  EXPECT_EQ(strcasecmpU16(u"abcdefghijA", u"ABCDEFGHIJz"), 'a' - 'z');
  char16_t v[] = u"aE\u00e9", w[] = u"ABCDEFGHIJ";
  strtoupperU16(v);
  EXPECT_EQ(std::u16string(v), u"AEE");
  strtolowerU16(w);
  EXPECT_EQ(std::u16string(w), u"abcdefghij");  // 'A' by the ASCII rule, not odd_lower
}

TEST(Caseless, FallbackReportsEachNonAsciiUnitOfAComparison) {
  UseMapping use(Mapping::kFallback);
  nlsui_init_trace_level = 1;
  const std::string err = nuvtest::stderr_of(
      [] { EXPECT_EQ(strcasecmpU16(u"x\u00e9abcdefghijkl", u"X\u00e9ABCDEFGHIJKL"), 0); });
  std::size_t count = 0;
  for (std::size_t at = 0; (at = err.find("U+00E9 encountered in function tolowerU", at)) != std::string::npos; ++at)
    ++count;
  EXPECT_EQ(count, 2u) << err;
}

// ---- ICU as the peer ------------------------------------------------------

std::u16string peer_text(std::mt19937& rng, int script, std::size_t len) {
  std::u16string s;
  for (std::size_t i = 0; i < len; ++i) {
    char16_t c;
    switch (script) {
      case 0: c = static_cast<char16_t>(0x20 + rng() % 0x5F); break;
      case 1:  // Latin-1 letters without the ones that change length or context
        do c = static_cast<char16_t>(0xC0 + rng() % 0x40); while (c == 0xD7 || c == 0xF7 || c == 0xDF);
        break;
      case 2:  // Greek letters without the sigmas
        do c = static_cast<char16_t>((rng() % 2 ? 0x391 : 0x3B1) + rng() % 25);
        while (c == 0x3A2 || c == 0x3A3 || c == 0x3C2 || c == 0x3C3);
        break;
      default: c = static_cast<char16_t>(0x410 + rng() % 0x40); break;
    }
    s.push_back(c);
  }
  return s;
}

TEST(CaselessPeer, ConversionsAndComparisonsAgreeWithIcuOnSimpleText) {
  UseMapping use(Mapping::kIcu);
  std::mt19937 rng(7);
  for (int script = 0; script < 4; ++script)
    for (int iter = 0; iter < 500; ++iter) {
      const std::u16string s = peer_text(rng, script, rng() % 64);
      std::vector<char16_t> ours(s.size() + 1), icu(s.size() * 3 + 4);
      for (bool up : {false, true}) {
        (up ? strcpytoupperU16 : strcpytolowerU16)(ours.data(), s.c_str());
        UErrorCode err = U_ZERO_ERROR;
        const int32_t n = (up ? u_strToUpper : u_strToLower)(icu.data(), static_cast<int32_t>(icu.size()), s.c_str(),
                                                              -1, "", &err);
        ASSERT_EQ(std::u16string(ours.data()), std::u16string(icu.data(), n)) << script << " " << iter;
      }
      std::u16string b = s;  // a case variant, sometimes with one unit changed
      for (auto& c : b)
        if (rng() % 2) c = static_cast<char16_t>(rng() % 2 ? u_toupper(c) : u_tolower(c));
      if (rng() % 2 && !b.empty()) b[rng() % b.size()] = peer_text(rng, script, 1)[0];
      ASSERT_EQ(sign(strcasecmpU16(s.c_str(), b.c_str())), sign(u_strcasecmp(s.c_str(), b.c_str(), U_FOLD_CASE_DEFAULT)))
          << script << " " << iter;
    }
}

// ---- narrow forms ----------------------------------------------------------

class NarrowForms : public ::testing::TestWithParam<const char*> {};

TEST_P(NarrowForms, AgainstGlibcInTheLocale) {
  const std::string saved = std::setlocale(LC_ALL, nullptr);
  if (!std::setlocale(LC_ALL, GetParam())) GTEST_SKIP() << GetParam();
  std::mt19937 rng(5);
  for (int iter = 0; iter < 5000; ++iter) {
    std::string a, b;
    for (int i = rng() % 20; i > 0; --i) a.push_back(static_cast<char>(1 + rng() % 255));
    b = a;
    for (auto& c : b)
      if (rng() % 2) c = static_cast<char>(c ^ (std::isalpha(static_cast<unsigned char>(c)) ? 0x20 : 0));
    if (rng() % 3 == 0 && !b.empty()) b[rng() % b.size()] = static_cast<char>(1 + rng() % 255);
    ASSERT_EQ(sign(strcasecmpR(a.c_str(), b.c_str())), sign(strcasecmp(a.c_str(), b.c_str())));
    const std::size_t n = rng() % 22;
    ASSERT_EQ(sign(strncasecmpR(a.c_str(), b.c_str(), n)), sign(strncasecmp(a.c_str(), b.c_str(), n)));

    for (bool upper : {false, true}) {  // in place, copying, and the first n
      std::string want = a, in = a, copy(a.size() + 1, '#'), first = a;
      for (auto& c : want) c = static_cast<char>((upper ? toupper : tolower)(static_cast<unsigned char>(c)));
      EXPECT_EQ((upper ? strtoupperR : strtolowerR)(in.data()), in.data());
      (upper ? strcpytoupperR : strcpytolowerR)(copy.data(), a.c_str());
      (upper ? strntoupperR : strntolowerR)(first.data(), n);
      const std::size_t k = std::min(n, a.size());
      ASSERT_EQ(std::tie(in, copy, first), std::make_tuple(want, want + '\0', want.substr(0, k) + a.substr(k))) << upper;
    }
  }
  EXPECT_EQ(strcasecmpR("abc", "ABD"), 'c' - 'd');
  std::setlocale(LC_ALL, saved.c_str());
}

INSTANTIATE_TEST_SUITE_P(Locales, NarrowForms, ::testing::Values("C", "C.UTF-8"));

}  // namespace
