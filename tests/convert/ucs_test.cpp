// UCS-2 / UCS-4 families against iconv in both byte orders, their report
// sites, the UTF-16 <-> UCS-4 routines, the repairing copy, the byte-order
// test by code-page name, the neutral form and the blank-filled fields.
#include <functional>

#include "conv_support.h"

using namespace convtest;

namespace {

std::u32string bmp_only(std::u32string t) {
  for (auto& c : t)
    if (c > 0xFFFF) c = static_cast<char32_t>(0x4E00 + (c & 0xFFF));
  return t;
}

template <class Unit, class Fn>
std::vector<Unit> decode_all(Fn fn, const std::string& u8, std::size_t room, rscpStatus want = 0) {
  std::vector<Unit> out(room);
  const auto* s = reinterpret_cast<const rscpUtf8*>(u8.data());
  Unit* d = out.data();
  EXPECT_EQ(fn(&s, s + u8.size(), &d, out.data() + room), want);
  out.resize(static_cast<std::size_t>(d - out.data()));
  return out;
}

template <class Unit, class Fn>
std::string encode_all(Fn fn, const std::vector<Unit>& in, std::size_t room, rscpStatus want = 0) {
  std::string out(room, '\0');
  const Unit* s = in.data();
  auto* d = reinterpret_cast<rscpUtf8*>(out.data());
  EXPECT_EQ(fn(&s, in.data() + in.size(), &d, d + room), want);
  out.resize(static_cast<std::size_t>(d - reinterpret_cast<rscpUtf8*>(out.data())));
  return out;
}

template <class F>
auto no_subst(F f) {
  return [f](auto** s, auto* se, auto** d, auto* de) { return f(s, se, d, de, nullptr, nullptr); };
}

TEST(Ucs, AgreesWithIconvInBothByteOrders) {
  std::mt19937 rng(9001);
  for (int round = 0; round < 200; ++round) {
    auto all = random_text(rng, 1 + rng() % 200);
    const bool no_controls = round % 4 == 0;  // for the forms that refuse control codes
    if (no_controls)
      for (auto& c : all)
        if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) c = 'k';
    const auto bmp = bmp_only(all);
    const std::string u8all = to_iconv("UTF-8", all), u8bmp = to_iconv("UTF-8", bmp);
    const auto u2le = from_bytes<char16_t>(to_iconv("UCS-2LE", bmp));
    const auto u2be = from_bytes<char16_t>(to_iconv("UCS-2BE", bmp));
    const auto u4le = from_bytes<uint32_t>(to_iconv("UCS-4LE", all));
    const auto u4be = from_bytes<uint32_t>(to_iconv("UCS-4BE", all));
    ASSERT_EQ(decode_all<char16_t>(Utf8nToU2nGD, u8bmp, u2le.size()), u2le);
    ASSERT_EQ(decode_all<char16_t>(no_subst(Utf8nToU2nSubst), u8bmp, u2le.size()), u2le);
    ASSERT_EQ(decode_all<char16_t>(Utf8nToU2nSwGD, u8bmp, u2be.size()), u2be);
    ASSERT_EQ(decode_all<char16_t>(no_subst(Utf8nToU2nSwSubst), u8bmp, u2be.size()), u2be);
    ASSERT_EQ(decode_all<uint32_t>(Utf8nToU4nGD, u8all, u4le.size()), u4le);
    ASSERT_EQ(decode_all<uint32_t>(no_subst(Utf8nToU4nSubst), u8all, u4le.size()), u4le);
    ASSERT_EQ(decode_all<uint32_t>(Utf8nToU4nSwGD, u8all, u4be.size()), u4be);
    ASSERT_EQ(decode_all<uint32_t>(no_subst(Utf8nToU4nSwSubst), u8all, u4be.size()), u4be);
    ASSERT_EQ(encode_all(U2nToUtf8n, u2le, u8bmp.size()), u8bmp);
    ASSERT_EQ(encode_all(U2nSwToUtf8n, u2be, u8bmp.size()), u8bmp);
    ASSERT_EQ(encode_all(U4nToUtf8n, u4le, u8all.size()), u8all);
    ASSERT_EQ(encode_all(U4nToUtf8nGD, u4le, u8all.size()), u8all);
    ASSERT_EQ(encode_all(U4nSwToUtf8n, u4be, u8all.size()), u8all);
    ASSERT_EQ(encode_all(U4nSwToUtf8nGD, u4be, u8all.size()), u8all);
    // UCS-4 <-> UTF-16 against iconv's UTF-16LE.
    const auto le = from_bytes<char16_t>(to_iconv("UTF-16LE", all));
    std::vector<char16_t> u16(le.size());
    const uint32_t* s4 = u4le.data();
    char16_t* d16 = u16.data();
    ASSERT_EQ(U4nToUtf16n(&s4, u4le.data() + u4le.size(), &d16, u16.data() + u16.size()), 0);
    ASSERT_EQ(u16, le);
    std::vector<uint32_t> back(u4le.size());
    const char16_t* s16 = le.data();
    uint32_t* d4 = back.data();
    ASSERT_EQ(Utf16nToU4n(&s16, le.data() + le.size(), &d4, back.data() + back.size()), 0);
    ASSERT_EQ(back, u4le);
    if (!no_controls) continue;
    ASSERT_EQ(decode_all<char16_t>(no_subst(Utf8nToU2nNoCCSubst), u8bmp, u2le.size()), u2le);
    ASSERT_EQ(decode_all<uint32_t>(no_subst(Utf8nToU4nNoCCSubst), u8all, u4le.size()), u4le);
    ASSERT_EQ(encode_all(U2nToUtf8nNoCC, u2le, u8bmp.size()), u8bmp);
    ASSERT_EQ(encode_all(U4nToUtf8nNoCC, u4le, u8all.size()), u8all);
  }
}

struct SiteCase {
  const char* name;
  std::function<rscpStatus()> run;
  rscpStatus status;
  int err;
  const char16_t* msg;
};

class UcsSites : public ::testing::TestWithParam<SiteCase> {};

TEST_P(UcsSites, OwnNumbersAndMessages) {
  HookRecorder rec;
  EXPECT_EQ(GetParam().run(), GetParam().status);
  ASSERT_EQ(HookRecorder::reports.size(), 1u);
  expect_site(HookRecorder::reports[0], GetParam().status, GetParam().err, 0, GetParam().msg);
}

template <class Unit, class Fn>
std::function<rscpStatus()> dec(Fn fn, std::string in, std::size_t room = 8) {
  return [=] {
    std::vector<Unit> out(room);
    const auto* s = reinterpret_cast<const rscpUtf8*>(in.data());
    Unit* d = out.data();
    return fn(&s, s + in.size(), &d, out.data() + room);
  };
}
template <class Unit, class Fn>
std::function<rscpStatus()> enc(Fn fn, std::vector<Unit> in, std::size_t room = 16) {
  return [=] {
    std::string out(room, '\0');
    const Unit* s = in.data();
    auto* d = reinterpret_cast<rscpUtf8*>(out.data());
    return fn(&s, in.data() + in.size(), &d, d + room);
  };
}
using V2 = std::vector<char16_t>;
using V4 = std::vector<uint32_t>;

INSTANTIATE_TEST_SUITE_P(
    Ucs, UcsSites,
    ::testing::Values(
        SiteCase{"u2w_overflow", enc(U2nToUtf8n, V2{0x20AC}, 2), 0x20, 13, u"dest buffer overflow"},
        SiteCase{"u2w_nocc_control", enc(U2nToUtf8nNoCC, V2{'a', 0x85}), 0x800, 16, u"control code not allowed"},
        SiteCase{"u2w_nocc_overflow", enc(U2nToUtf8nNoCC, V2{'a'}, 0), 0x20, 33, u"dest buffer overflow"},
        SiteCase{"u2w_sw_control", enc(U2nSwToUtf8nNoCC, V2{0x0900}), 0x800, 16, u"control code not allowed"},
        SiteCase{"u4w_bit31", enc(U4nToUtf8n, V4{'a', 0x80000000u}), 0x800, 14, u"UCS-4 has only 31 bits."},
        SiteCase{"u4w_overflow", enc(U4nToUtf8n, V4{0x7FFFFFFF}, 5), 0x20, 13, u"dest buffer overflow"},
        SiteCase{"u4w_nocc_bit31", enc(U4nToUtf8nNoCC, V4{0xFFFFFFFFu}), 0x800, 14, u"UCS-4 has only 31 bits."},
        SiteCase{"u4w_nocc_overflow", enc(U4nToUtf8nNoCC, V4{'a'}, 0), 0x20, 33, u"dest buffer overflow"},
        SiteCase{"u4w_gd_overflow", enc(U4nToUtf8nGD, V4{0x80000000u}, 1), 0x20, 2, u"dest buffer overflow"},
        SiteCase{"u4w_sw_bit31", enc(U4nSwToUtf8n, V4{0x00000080u}), 0x800, 14, u"UCS-4 has only 31 bits."},
        SiteCase{"u2r_gd_exhausted", dec<char16_t>(Utf8nToU2nGD, "a\xE2"), 0x200, 3, u"source exhausted"},
        SiteCase{"u2r_gd_overflow", dec<char16_t>(Utf8nToU2nGD, "ab", 1), 0x20, 4, u"dest buffer overflow"},
        SiteCase{"u2r_beyond", dec<char16_t>(no_subst(Utf8nToU2nSubst), "\xF0\x9F\x98\x80"), 0x800, 12,
                 u"UTF-8 bejond UCS-2"},
        SiteCase{"u2r_overflow", dec<char16_t>(no_subst(Utf8nToU2nSubst), "ab", 1), 0x20, 6, u"dest buffer overflow"},
        SiteCase{"u2r_exhausted", dec<char16_t>(no_subst(Utf8nToU2nSubst), "\xC3"), 0x200, 7,
                 u"source exhausted within a char"},
        SiteCase{"u2r_start", dec<char16_t>(no_subst(Utf8nToU2nSubst), "\xFF"), 0x800, 10, u"illegal start byte"},
        SiteCase{"u2r_follow", dec<char16_t>(no_subst(Utf8nToU2nSubst), "\xC3x"), 0x800, 8, u"illegal follow-up byte"},
        SiteCase{"u2r_overlong", dec<char16_t>(no_subst(Utf8nToU2nSubst), "\xC1\x81"), 0x800, 9,
                 u"overlong UTF-8 sequence"},
        SiteCase{"u2r_nocc_overflow", dec<char16_t>(no_subst(Utf8nToU2nNoCCSubst), "a", 0), 0x20, 18,
                 u"dest buffer overflow"},
        SiteCase{"u2r_nocc_start", dec<char16_t>(no_subst(Utf8nToU2nNoCCSubst), "\x80"), 0x800, 20,
                 u"illegal start byte"},
        SiteCase{"u2r_nocc_start_far", dec<char16_t>(no_subst(Utf8nToU2nNoCCSubst), "\x80zzzzzzz"), 0x800, 23,
                 u"illegal start byte"},
        SiteCase{"u2r_nocc_exhausted", dec<char16_t>(no_subst(Utf8nToU2nNoCCSubst), "\xE2\x82"), 0x200, 21,
                 u"source exhausted within a char"},
        SiteCase{"u2r_nocc_control", dec<char16_t>(no_subst(Utf8nToU2nNoCCSubst), "\x01"), 0x800, 28,
                 u"control codes not allowed here"},
        SiteCase{"u2r_nocc_beyond", dec<char16_t>(no_subst(Utf8nToU2nNoCCSubst), "\xF0\x90\x80\x80"), 0x800, 26,
                 u"UTF-8 bejond UCS-2"},
        SiteCase{"u2r_sw_nocc_control", dec<char16_t>(no_subst(Utf8nToU2nSwNoCCSubst), "\x01"), 0x800, 28,
                 u"control codes not allowed here"},
        SiteCase{"u4r_gd_exhausted", dec<uint32_t>(Utf8nToU4nGD, "\xF0\x9F"), 0x200, 3, u"source exhausted"},
        SiteCase{"u4r_gd_overflow", dec<uint32_t>(Utf8nToU4nGD, "a", 0), 0x20, 4, u"dest buffer overflow"},
        SiteCase{"u4r_overflow", dec<uint32_t>(no_subst(Utf8nToU4nSubst), "a", 0), 0x20, 6, u"dest buffer overflow"},
        SiteCase{"u4r_exhausted", dec<uint32_t>(no_subst(Utf8nToU4nSubst), "\xF8\x88"), 0x200, 7,
                 u"source exhausted within a char"},
        SiteCase{"u4r_start", dec<uint32_t>(no_subst(Utf8nToU4nSubst), "\xFE"), 0x800, 10, u"illegal start byte"},
        SiteCase{"u4r_follow", dec<uint32_t>(no_subst(Utf8nToU4nSubst), "\xE2(\xA1"), 0x800, 8,
                 u"illegal follow-up byte"},
        SiteCase{"u4r_nocc_overflow", dec<uint32_t>(no_subst(Utf8nToU4nNoCCSubst), "a", 0), 0x20, 18,
                 u"dest buffer overflow"},
        SiteCase{"u4r_nocc_start", dec<uint32_t>(no_subst(Utf8nToU4nNoCCSubst), "\xBF"), 0x800, 20,
                 u"illegal start byte"},
        SiteCase{"u4r_nocc_exhausted", dec<uint32_t>(no_subst(Utf8nToU4nNoCCSubst), "\xC3"), 0x200, 21,
                 u"source exhausted within a char"},
        SiteCase{"u4r_nocc_control", dec<uint32_t>(no_subst(Utf8nToU4nNoCCSubst), "\x7Fzzzzzzz"), 0x800, 28,
                 u"control codes not allowed here"},
        SiteCase{"u4r_sw_nocc_control_end", dec<uint32_t>(no_subst(Utf8nToU4nSwNoCCSubst), "\x7F"), 0x800, 22,
                 u"control codes not allowed here"},
        SiteCase{"u4r_sw_nocc_control", dec<uint32_t>(no_subst(Utf8nToU4nSwNoCCSubst), "\x7Fzzzzzzz"), 0x800, 28,
                 u"control codes not allowed here"},
        SiteCase{"u46_overflow",
                 [] {
                   const uint32_t in[] = {'a', 'b'};
                   const uint32_t* s = in;
                   char16_t out[1], *d = out;
                   return U4nToUtf16n(&s, in + 2, &d, out + 1);
                 },
                 0x20, 1, u"dest buffer overflow"},
        SiteCase{"u46_pair_overflow",
                 [] {
                   const uint32_t in[] = {0x1F600};
                   const uint32_t* s = in;
                   char16_t out[1], *d = out;
                   return U4nToUtf16n(&s, in + 1, &d, out + 1);
                 },
                 0x20, 2, u"dest buffer overflow"},
        SiteCase{"u64_at_end",
                 [] {
                   const char16_t in[] = {'a', 0xD800};
                   const char16_t* s = in;
                   uint32_t out[4], *d = out;
                   return Utf16nToU4n(&s, in + 2, &d, out + 4);
                 },
                 0x200, 3, u"half surrogate at end"},
        SiteCase{"u64_overflow",
                 [] {
                   const char16_t in[] = {'a', 'b'};
                   const char16_t* s = in;
                   uint32_t out[1], *d = out;
                   return Utf16nToU4n(&s, in + 2, &d, out + 1);
                 },
                 0x20, 4, u"dest buffer overflow"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Ucs, EdgeCases) {
  // UCS-2 takes each surrogate unit alone; UCS-4 formats up to 31 bits.
  EXPECT_EQ(encode_all(U2nToUtf8n, V2{0xD83D, 0xDE00}, 8), "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(encode_all(U4nToUtf8n, V4{0x7FFFFFFF}, 8), "\xFD\xBF\xBF\xBF\xBF\xBF");
  EXPECT_EQ(encode_all(U4nToUtf8nGD, V4{0x80000000u}, 8), "\xFF\xBD");
  HookRecorder rec;
  const V4 big = {'a', 0x80000000u};
  const uint32_t* s = big.data();
  rscpUtf8 buf[8], *d = buf;
  EXPECT_EQ(U4nToUtf8n(&s, big.data() + 2, &d, buf + 8), 0x800);
  EXPECT_EQ(s, big.data() + 1);
  EXPECT_EQ(d, buf + 1);
  // Five- and six-byte forms are legal UCS-4; beyond two bytes past UCS-2.
  EXPECT_EQ(decode_all<uint32_t>(no_subst(Utf8nToU4nSubst), "\xFD\xBF\xBF\xBF\xBF\xBF", 2), V4{0x7FFFFFFF});
  const uint32_t q = '?';
  auto u2q = [&](const rscpUtf8** a, const rscpUtf8* b, char16_t** c, char16_t* e) {
    return Utf8nToU2nSubst(a, b, c, e, &q, nullptr);
  };
  EXPECT_EQ(decode_all<char16_t>(u2q, "\xF0\x9F\x98\x80x", 4), V2({'?', 'x'}));
  // Swapped decoders write swapped units.
  EXPECT_EQ(decode_all<char16_t>(Utf8nToU2nSwGD, "A", 1), V2{0x4100});
  EXPECT_EQ(decode_all<uint32_t>(Utf8nToU4nSwGD, "A", 1), V4{0x41000000});
}

TEST(Utf16ToU4, LoneSurrogatesPassAsValues) {
  const char16_t in[] = {0xD800, 'A', 0xDC00};
  const char16_t* s = in;
  uint32_t out[4], *d = out;
  EXPECT_EQ(Utf16nToU4n(&s, in + 3, &d, out + 4), 0);
  EXPECT_EQ(V4(out, d), (V4{0xD800, 0x41, 0xDC00}));
  // Past U+10FFFF becomes U+FFFD silently.
  const uint32_t big[] = {0x110000, 0x41};
  const uint32_t* s4 = big;
  char16_t o16[4], *d16 = o16;
  EXPECT_EQ(U4nToUtf16n(&s4, big + 2, &d16, o16 + 4), 0);
  EXPECT_EQ(Units(o16, d16), u"\uFFFDA");
}

TEST(Utf16Copy, RepairsAndReturnsLastReport) {
  HookRecorder rec;
  const Units in = u"\xDC00" u"A\xD800" u"B\xD83D\xDE00\xD800";
  char16_t out[16];
  const char16_t* s = in.data();
  char16_t* d = out;
  EXPECT_EQ(Utf16nToUtf16n(&s, in.data() + in.size(), &d, out + 16), 0x200);  // the last repair
  EXPECT_EQ(Units(out, d), u"#A#B\xD83D\xDE00#");
  ASSERT_EQ(HookRecorder::reports.size(), 3u);
  EXPECT_EQ(HookRecorder::reports[0].err, 7);
  EXPECT_EQ(HookRecorder::reports[0].msg, u"Half low surrogate in middle");
  EXPECT_EQ(HookRecorder::reports[1].err, 5);
  EXPECT_EQ(HookRecorder::reports[1].msg, u"Half surrogate in middle");
  EXPECT_EQ(HookRecorder::reports[2].err, 6);
  EXPECT_EQ(HookRecorder::reports[2].msg, u"Half surrogate at end");
  // A pair with one unit of room overruns by one unit, as callers allow for.
  const Units pair = u"a\xD83D\xDE00" u"b";
  char16_t small[4] = {0, 0, 0, 0x7777};
  s = pair.data(), d = small;
  EXPECT_EQ(Utf16nToUtf16n(&s, pair.data() + 4, &d, small + 2), 0x20);
  EXPECT_EQ(Units(small, 3), u"a\xD83D\xDE00");
  EXPECT_EQ(d, small + 3);
  EXPECT_EQ(HookRecorder::reports.back().err, 8);
  EXPECT_EQ(s, pair.data() + 3);
}

TEST(UcsCopies, PlainUnitCopies) {
  char16_t out[8];
  EXPECT_EQ(UcsToU2s(out, u"\xD800x"), 0);
  EXPECT_EQ(Units(out), u"\xD800x");
  EXPECT_EQ(UcnToU2n(out, u"abc", 2), 2);
  EXPECT_EQ(UcnToU2n(out, u"zz", 0), 0);
  EXPECT_EQ(UcnToU2n(out, u"zz", -3), 0);
  EXPECT_EQ(Units(out, 3), Units(u"ab\0", 3));  // the terminator copied before stays
}

struct SwapCase {
  Units name;
  rscpStatus rc;
  bool swapped;
};

class SwapBuffer : public ::testing::TestWithParam<SwapCase> {};

TEST_P(SwapBuffer, ByCodePageName) {
  char16_t buf[3] = {0x0041, 0x1234, 0xFF00};
  EXPECT_EQ(SwapUnicodeBuffer(GetParam().name.data(), buf, 3), GetParam().rc);
  if (GetParam().swapped)
    EXPECT_EQ(Units(buf, 3), u"\x4100\x3412\x00FF");
  else
    EXPECT_EQ(Units(buf, 3), u"\x0041\x1234\xFF00");
}

INSTANTIATE_TEST_SUITE_P(Swap, SwapBuffer,
                         ::testing::Values(SwapCase{u"4103", 0, false}, SwapCase{u"4101", 0, false},
                                           SwapCase{u"4102", 0, true}, SwapCase{u"4100", 0, true},
                                           SwapCase{u"1100", 0x200, false}, SwapCase{u"\x3400\x3100\x3000\x3200", 0, true},
                                           SwapCase{u"\x3400\x3100\x3000\x3300", 0, false},
                                           SwapCase{u"\x3100\x3100\x3000\x3000", 0x200, true},
                                           SwapCase{u"ABCD", 0x80, false}));

TEST(NeutralForm, SwapsEveryUnitInPlaceOrNot) {
  const unsigned char bytes[] = {0x00, 0x41, 0x12, 0x34};
  char16_t in[2], out[2];
  std::memcpy(in, bytes, 4);
  NeutralUcnToUcn(out, in, 2);
  EXPECT_EQ(Units(out, 2), u"\x0041\x1234");
  UcnToNeutralUcn(out, out, 2);
  EXPECT_EQ(std::memcmp(out, bytes, 4), 0);
  std::mt19937 rng(5);
  std::vector<char16_t> big(1001), orig;
  for (auto& u : big) u = static_cast<char16_t>(rng());
  orig = big;
  NeutralUcnToUcn(big.data(), big.data(), 1001);
  for (std::size_t i = 0; i < big.size(); ++i) ASSERT_EQ(big[i], swap16(orig[i]));
  UcnToNeutralUcn(big.data(), big.data(), 1001);
  EXPECT_EQ(big, orig);
}

// Each row starts from "xxxxxx": the zero-terminated form when size < 0,
// the counted form with that size otherwise.
TEST(Fields, BlankFilledCopies) {
  const struct {
    int size;
    const char16_t* src;
    int n;
    const char16_t* want;
  } rows[] = {{-1, u"abc", 5, u"abc  x"},         {-1, u"abc", 2, u"abxxxx"},
              {-1, nullptr, 4, u"    xx"},        {-1, u"abc", 0, u"xxxxxx"},
              {-1, u"abc", -1, u"xxxxxx"},        {4, nullptr, 0, u"xxxxxx"},  // left alone, unlike the other form
              {4, nullptr, 4, u"    xx"},         {5, u"hello world", 2, u"he   x"},
              {3, u"hello world", 11, u"helxxx"}};
  for (const auto& r : rows) {
    Units f(6, u'x');
    r.size < 0 ? rscpuc_strfcpy(f.data(), r.src, r.n) : rscpuc_strffcpy(f.data(), r.size, r.src, r.n);
    EXPECT_EQ(f, r.want) << "row " << (&r - rows);
  }
}

}  // namespace
