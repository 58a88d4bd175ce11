// Single-byte converters: the EBCDIC tables against glibc's IBM500 with the
// stated exceptions, the replacement counters as split, the result ring and
// the Vola forms.
#include <set>

#include "conv_support.h"

using namespace convtest;

namespace {

TEST(EbcdicTables, MatchIbm500WithTheStatedRules) {
  unsigned char all[256];
  for (int i = 0; i < 256; ++i) all[i] = static_cast<unsigned char>(i);
  std::string u16;
  ASSERT_TRUE(iconv_convert("UTF-16LE", "IBM500", all, 256, u16));
  const auto peer = from_bytes<char16_t>(u16);
  ASSERT_EQ(peer.size(), 256u);
  for (int b = 0; b < 256; ++b) {
    const char16_t want = peer[b] >= 0x80 && peer[b] <= 0x9F ? u' ' : peer[b];  // C1 controls read as space
    EXPECT_EQ(rscpuc2_E2U[b], want) << b;
  }
  for (int u = 0; u < 256; ++u) {
    const char16_t in = static_cast<char16_t>(u);
    std::string e;
    ASSERT_TRUE(iconv_convert("IBM500", "UTF-16LE", &in, 2, e));
    const unsigned char want = u >= 0x80 && u <= 0x8F ? 0x40 : static_cast<unsigned char>(e[0]);
    EXPECT_EQ(rscpuc2_U2E[u], want) << u;
  }
  // The rows callers rely on.
  for (int i = 0; i < 9; ++i) EXPECT_EQ(rscpuc2_E2U[0xC1 + i], 0x41 + i);
  EXPECT_EQ(rscpuc2_E2U[0x4A], 0x5B);
  EXPECT_EQ(rscpuc2_E2U[0x5A], 0x5D);
  EXPECT_EQ(rscpuc2_E2U[0x7B], 0x23);
  EXPECT_EQ(rscpuc2_E2U[0x40], 0x20);
  EXPECT_EQ(rscpuc2_U2E[0x41], 0xC1);
  EXPECT_EQ(rscpuc2_U2E[0x20], 0x40);
  EXPECT_EQ(rscpuc2_U2E[0x23], 0x7B);
  // Printable Latin-1 makes the round trip.
  for (int u = 0x20; u < 0x100; ++u)
    if (u < 0x7F || u >= 0xA0) EXPECT_EQ(rscpuc2_E2U[rscpuc2_U2E[u]], u) << u;
}

TEST(SingleChars, MapAndCount) {
  UcsToA7s_ErrReset();
  EXPECT_EQ(UcToA7(u'a'), 'a');
  EXPECT_EQ(UcToA7(0x00E9), 0x23);
  EXPECT_EQ(B8ToA7(0xFF), 0x23);
  EXPECT_EQ(UcsToA7s_ErrCnt(), 2u);
  // The Vola string forms count elsewhere; the single-char counter is unmoved.
  const char16_t e9[] = {0xE9, 0};
  EXPECT_STREQ(UcnToA7nVola(e9, 2), "#");
  EXPECT_STREQ(UcsToA7sVola(e9), "#");
  EXPECT_EQ(UcsToA7s_ErrCnt(), 2u);
  UcsToA7s_ErrReset();
  EXPECT_EQ(UcsToA7s_ErrCnt(), 0u);
  EXPECT_EQ(UcToB7(0x80), 0x23);
  EXPECT_EQ(UcsToA7s_ErrCnt(), 0u);
  // EBCDIC: nothing adds to the counter that can be read.
  UcsToE8s_ErrReset();
  EXPECT_EQ(UcToE8(0x0100), 0x7B);
  EXPECT_EQ(UcToE8(0x0041), 0xC1);
  const char16_t wide[] = {0x263A, 0};
  EXPECT_EQ(UcsToE8sVola(wide)[0], 0x7B);
  EXPECT_EQ(UcsToE8s_ErrCnt(), 0u);
  EXPECT_EQ(A7ToE8(0x80), 0x7B);
  EXPECT_EQ(A7ToE8('A'), 0xC1);
  EXPECT_EQ(E8ToA7(0x4A), 0x5B);
  EXPECT_EQ(E8ToA7(0x41), 0x23);  // EBCDIC 0x41 is U+00A0
  EXPECT_EQ(E8ToUc(0x41), 0x00A0);
  EXPECT_EQ(E8ToB8(0x41), 0xA0);
  EXPECT_EQ(B8ToE8(0xA0), 0x41);
}

TEST(SingleByteStrings, AsciiForms) {
  char a7[8];
  EXPECT_EQ(UcnToA7nSubst(a7, u"a\u00FF\u00E9", 3, 0xE9), 3);
  EXPECT_EQ(std::string(a7, 3), "a##");
  UcsToA7sSubst(a7, u"b\u00FFc", '?');
  EXPECT_STREQ(a7, "b?c");
  std::memset(a7, 'z', sizeof a7);
  EXPECT_EQ(UcsToA7sCheck(a7, u"ab\u00E9d"), 1);
  EXPECT_STREQ(a7, "ab");
  EXPECT_EQ(UcsToA7sCheck(a7, u"abc"), 0);
  EXPECT_STREQ(a7, "abc");
  std::memset(a7, 'z', sizeof a7);
  EXPECT_EQ(UcnToA7nCheck(a7, u"ab\u0100", 3), 1);
  EXPECT_EQ(std::string(a7, 3), "abz");
  UcnToA7n(a7, u"x\u0080y", 3);
  EXPECT_EQ(std::string(a7, 3), "x#y");
  UcsToB7s(a7, u"\u00E0b");
  EXPECT_STREQ(a7, "#b");
  char16_t u[8];
  A7sToUcs(u, "hi\xE9");
  EXPECT_EQ(Units(u), u"hi\u00E9");  // bit 7 is not checked
  B7nToUcn(u, "xyz", 2);
  EXPECT_EQ(Units(u, 2), u"xy");
  A7nToUcn(u, "q", 0);
  A7nToUcn(u, "q", -5);
  EXPECT_EQ(u[0], u'x');
}

TEST(SingleByteStrings, EbcdicFormsAgreeWithIbm500) {
  std::mt19937 rng(500);
  for (int round = 0; round < 50; ++round) {
    std::u16string text;
    for (int i = 0; i < 64; ++i) {
      char16_t c;
      do c = static_cast<char16_t>(rng() % 0x100);
      while (c < 0xA0 && c >= 0x80);  // C1 controls map differently on purpose
      if (c == 0) c = 'x';
      text.push_back(c);
    }
    std::string peer;
    ASSERT_TRUE(iconv_convert("IBM500", "UTF-16LE", text.data(), text.size() * 2, peer));
    std::vector<unsigned char> e8(text.size() + 1);
    EXPECT_EQ(UcnToE8n(e8.data(), text.data(), static_cast<int32_t>(text.size())), static_cast<int32_t>(text.size()));
    ASSERT_EQ(std::string(e8.begin(), e8.end() - 1), peer);
    EXPECT_EQ(UcsToE8sCheck(e8.data(), text.c_str()), 0);
    ASSERT_EQ(std::string(reinterpret_cast<char*>(e8.data())), peer);
    std::vector<char16_t> back(text.size() + 1);
    E8sToUcs(back.data(), e8.data());
    ASSERT_EQ(Units(back.data()), text);
    ASSERT_EQ(Units(E8nToUcnVola(e8.data(), static_cast<int32_t>(text.size())), text.size()), text);
    ASSERT_EQ(Units(E8sToUcsVola(e8.data())), text);
    ASSERT_EQ(std::string(reinterpret_cast<char*>(UcsToE8sVola(text.c_str()))), peer);
  }
  unsigned char e8[4];
  UcsToE8sSubst(e8, u"a\u0100", u'#');
  EXPECT_EQ(std::string(reinterpret_cast<char*>(e8)), "\x81\x7B");
  UcnToE8nSubst(e8, u"\u0100", 1, u'A');
  EXPECT_EQ(e8[0], 0xC1);
  UcnToE8nSubst(e8, u"\u0100", 1, 0x263A);
  EXPECT_EQ(e8[0], 0x7B);
  EXPECT_EQ(UcnToE8nCheck(e8, u"a\u0101", 2), 1);
  EXPECT_EQ(UcsToE8sCheck(e8, u"\u00FF\u0101"), 1);
  EXPECT_EQ(e8[1], 0);
  unsigned char buf[] = {'A', 0x80, '[', 0};
  A7nToE8nInPlace(buf, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buf)), "\xC1\x7B\x4A");
  E8nToA7nInPlace(buf, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buf)), "A#[");
  EXPECT_STREQ(E8sToA7sVola(reinterpret_cast<const unsigned char*>("\xC1\xC2\x41")), "AB#");
  EXPECT_EQ(std::string(E8nToA7nVola(reinterpret_cast<const unsigned char*>("\xC9"), 1), 1), "I");
  EXPECT_STREQ(reinterpret_cast<char*>(A7sToE8sVola("AB")), "\xC1\xC2");
  EXPECT_EQ(A7nToE8nVola("\x80", 1)[0], 0x7B);
}

TEST(ResultRing, FortySlotsGrowAndRotate) {
  std::set<void*> seen;
  void* first = rscpuc_next_buff(16);
  seen.insert(first);
  // Align the ring: request until `first` comes round again.
  int steps = 1;
  for (; steps <= 40; ++steps) {
    void* p = rscpuc_next_buff(16);
    if (p == first) break;
    seen.insert(p);
  }
  EXPECT_EQ(steps, 40);
  EXPECT_EQ(seen.size(), 40u);
  // A result stays valid for 39 further requests.
  char* r = UcsToA7sVola(u"kept");
  for (int i = 0; i < 39; ++i) rscpuc_next_buff(8);
  EXPECT_STREQ(r, "kept");
  // A larger request grows the slot; the Vola forms size results in bytes.
  char16_t* big = A7sToUcsVola(std::string(5000, 'w').c_str());
  EXPECT_EQ(Units(big), Units(5000, u'w'));
  char16_t* n = A7nToUcnVola("abc", 3);
  EXPECT_EQ(Units(n, 3), u"abc");
  EXPECT_EQ(Units(B7sToUcsVola("b7")), u"b7");
  EXPECT_STREQ(UcsToB7sVola(u"\u00E0x"), "#x");
}

}  // namespace
