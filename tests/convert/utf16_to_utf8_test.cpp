// UTF-16 -> UTF-8: every report site in every mode with pointer positions,
// the older and swapped routines, the entry points, and agreement with glibc
// iconv on random valid text in both byte orders.
#include "conv_support.h"

using namespace convtest;

namespace {

struct Outcome {
  rscpStatus rc;
  std::ptrdiff_t srcAt;
  std::string out;
  std::vector<Report> reports;
};

using Enc = rscpStatus (*)(const NUV_UTF16**, const NUV_UTF16*, rscpUtf8**, rscpUtf8*);

Outcome encode(Enc fn, const Units& in, std::size_t room = 64, rscpStatus answer = -1) {
  HookRecorder rec(answer);
  std::vector<rscpUtf8> buf(room + 1, 0xA5);
  const NUV_UTF16* s = in.data();
  rscpUtf8* d = buf.data();
  const rscpStatus rc = fn(&s, in.data() + in.size(), &d, buf.data() + room);
  EXPECT_EQ(buf[room], 0xA5) << "wrote past destEnd";
  return {rc, s - in.data(), std::string(buf.data(), d), HookRecorder::reports};
}

rscpStatus mode0(const NUV_UTF16** s, const NUV_UTF16* se, rscpUtf8** d, rscpUtf8* de) {
  return Utf16nToUtf8nBase(s, se, d, de, rscpReplacementCharacter, 0);
}
rscpStatus subst_q(const NUV_UTF16** s, const NUV_UTF16* se, rscpUtf8** d, rscpUtf8* de) {
  return Utf16nToUtf8nSubst(s, se, d, de, '?');
}
rscpStatus subst_old_q(const NUV_UTF16** s, const NUV_UTF16* se, rscpUtf8** d, rscpUtf8* de) {
  return Utf16nToUtf8nSubstOld(s, se, d, de, '?');
}

struct SiteCase {
  const char* name;
  Enc fn;
  Units in;
  std::size_t room;
  rscpStatus status;
  int err, line;  // line 0: not checked (older routines)
  const char16_t* msg;
  std::ptrdiff_t srcAt;
  std::string out;
};

class EncodeSites : public ::testing::TestWithParam<SiteCase> {};

TEST_P(EncodeSites, ReportsOnceWithSiteAndPointers) {
  const SiteCase& c = GetParam();
  Outcome r = encode(c.fn, c.in, c.room);
  EXPECT_EQ(r.rc, c.status);
  EXPECT_EQ(r.srcAt, c.srcAt);
  EXPECT_EQ(r.out, c.out);
  ASSERT_EQ(r.reports.size(), 1u);
  expect_site(r.reports[0], c.status, c.err, c.line, c.msg);
}

INSTANTIATE_TEST_SUITE_P(
    Utf16ToUtf8, EncodeSites,
    ::testing::Values(
        SiteCase{"at_end", Utf16nToUtf8n, u"a\xD800", 8, 0x200, 12, 204, u"Half surrogate at end", 1, "a"},
        SiteCase{"at_end_gd", Utf16nToUtf8nGD, u"\xDBFF", 8, 0x200, 12, 204, u"Half surrogate at end", 0, ""},
        SiteCase{"at_end_nocc", Utf16nToUtf8nNoCC, u"\xD800", 8, 0x200, 12, 204, u"Half surrogate at end", 0, ""},
        SiteCase{"middle", Utf16nToUtf8n, u"a\xD800" u"b", 8, 0x800, 14, 196, u"Half surrogate in middle", 1, "a"},
        SiteCase{"middle_two_highs", Utf16nToUtf8nNoCC, u"\xD800\xD800\xDC00", 8, 0x800, 14, 196,
                 u"Half surrogate in middle", 0, ""},
        SiteCase{"low_alone", Utf16nToUtf8n, u"\x00E9\xDC00", 8, 0x800, 15, 212, u"Half low surrogate in middle", 1,
                 "\xC3\xA9"},
        SiteCase{"low_alone_nocc", Utf16nToUtf8nNoCC, u"\xDFFF", 8, 0x800, 15, 212, u"Half low surrogate in middle",
                 0, ""},
        SiteCase{"control", Utf16nToUtf8nNoCC, u"ab\n", 8, 0x800, 16, 219, u"control code not allowed", 2, "ab"},
        SiteCase{"control_0080", Utf16nToUtf8nNoCC, u"\u0080", 8, 0x800, 16, 219, u"control code not allowed", 0, ""},
        SiteCase{"control_009f", Utf16nToUtf8nNoCC, u"\u00A0\u009F", 8, 0x800, 16, 219, u"control code not allowed",
                 1, "\xC2\xA0"},
        SiteCase{"overflow_pair", Utf16nToUtf8n, u"\xD83D\xDE00", 3, 0x20, 13, 238, u"dest buffer overflow", 0, ""},
        SiteCase{"overflow_3", Utf16nToUtf8nGD, u"a\x20AC", 3, 0x20, 13, 238, u"dest buffer overflow", 1, "a"},
        SiteCase{"overflow_subst", subst_q, u"ab\xDC00", 2, 0x20, 13, 238, u"dest buffer overflow", 2, "ab"},
        SiteCase{"overflow_mode0", mode0, u"\u00E9", 1, 0x20, 13, 238, u"dest buffer overflow", 0, ""},
        // older and swapped routines
        SiteCase{"old_at_end", Utf16nToUtf8nOld, u"\xD800", 8, 0x200, 12, 0, u"Half surrogate at end", 0, ""},
        SiteCase{"old_low", Utf16nToUtf8nOld, u"\xDC00", 8, 0x800, 15, 0, u"Half low surrogate in middle", 0, ""},
        SiteCase{"old_middle", Utf16nToUtf8nOld, u"\xD800x", 8, 0x800, 14, 0, u"Half surrogate in middle", 0, ""},
        SiteCase{"old_overflow", Utf16nToUtf8nOld, u"ab", 1, 0x20, 13, 0, u"dest buffer overflow", 1, "a"},
        SiteCase{"old_no_control_test", Utf16nToUtf8nOld, u"\n", 0, 0x20, 13, 0, u"dest buffer overflow", 0, ""},
        SiteCase{"nocc_old_at_end", Utf16nToUtf8nNoCCOld, u"\xD800", 8, 0x200, 31, 0, u"Half surrogate at end", 0, ""},
        SiteCase{"nocc_old_low", Utf16nToUtf8nNoCCOld, u"\xDC00", 8, 0x800, 36, 0, u"Half low surrogate in middle", 0,
                 ""},
        SiteCase{"nocc_old_control", Utf16nToUtf8nNoCCOld, u"\x7F", 8, 0x800, 32, 0, u"control code not allowed", 0,
                 ""},
        SiteCase{"nocc_old_overflow", Utf16nToUtf8nNoCCOld, u"a", 0, 0x20, 33, 0, u"dest buffer overflow", 0, ""},
        SiteCase{"gd_old_at_end", Utf16nToUtf8nGDOld, u"\xD800", 8, 0x200, 1, 0, u"Half surrogate at end", 0, ""},
        SiteCase{"gd_old_overflow", Utf16nToUtf8nGDOld, u"\xDC00", 2, 0x20, 2, 0, u"dest buffer overflow", 0, ""},
        SiteCase{"subst_old_overflow", subst_old_q, u"\xD800", 0, 0x20, 34, 0, u"dest buffer overflow", 0, ""},
        SiteCase{"subst_all_old_overflow", Utf16nToUtf8nSubstAllOld, u"\xD800", 2, 0x20, 34, 0,
                 u"dest buffer overflow", 0, ""},
        SiteCase{"sw_at_end", Utf16nSwToUtf8n, u"\x00D8", 8, 0x200, 12, 0, u"Half surrogate at end", 0, ""},
        SiteCase{"sw_low", Utf16nSwToUtf8n, u"\x00DC", 8, 0x800, 15, 0, u"Half low surrogate in middle", 0, ""},
        SiteCase{"sw_overflow", Utf16nSwToUtf8n, u"\x4100", 0, 0x20, 13, 0, u"dest buffer overflow", 0, ""},
        SiteCase{"sw_nocc_control", Utf16nSwToUtf8nNoCC, u"\x0900", 8, 0x800, 32, 0, u"control code not allowed", 0,
                 ""},
        SiteCase{"sw_nocc_low", Utf16nSwToUtf8nNoCC, u"\x00DC", 8, 0x800, 36, 0, u"Half low surrogate in middle", 0,
                 ""},
        SiteCase{"sw_gd_at_end", Utf16nSwToUtf8nGD, u"\x00D8", 8, 0x200, 1, 0, u"Half surrogate at end", 0, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Utf16ToUtf8, ModesTreatSurrogatesAsStated) {
  EXPECT_EQ(encode(Utf16nToUtf8n, u"A\u00E9\u20AC").out, "A\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(encode(Utf16nToUtf8n, u"\xD83D\xDE00").out, "\xF0\x9F\x98\x80");
  // Trusting: lone surrogates become their own three bytes.
  EXPECT_EQ(encode(Utf16nToUtf8nGD, u"\xDC00").out, "\xED\xB0\x80");
  EXPECT_EQ(encode(Utf16nToUtf8nGD, u"\xD800" u"a").out, "\xED\xA0\x80" "a");
  EXPECT_EQ(encode(Utf16nToUtf8nGDOld, u"\xD800" u"a").out, "\xED\xA0\x80" "a");
  // Substituting: every broken surrogate becomes the character.
  for (Enc f : {Enc(Utf16nToUtf8nSubstAll), Enc(Utf16nToUtf8nSubstAllOld)}) {
    Outcome r = encode(f, u"\xDC00" u"a\xD800" u"b\xD800");
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "\xEF\xBF\xBD" "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
    EXPECT_TRUE(r.reports.empty());
  }
  EXPECT_EQ(encode(subst_q, u"\xD800").out, "?");
  // A substitute control code passes the (absent) control test; U+00A0 is fine.
  EXPECT_EQ(encode(Utf16nToUtf8nNoCC, u"\u00A0").rc, 0);
  // Control codes are encoded outside mode 2.
  EXPECT_EQ(encode(Utf16nToUtf8n, Units(u"\0\n\x7F\x85", 4)).out, std::string("\0\n\x7F\xC2\x85", 5));
}

TEST(Utf16ToUtf8, WideSubstitutesUseTheLongForms) {
  auto with = [](uint32_t sc) {
    const Units in = u"\xDC00";
    const NUV_UTF16* s = in.data();
    rscpUtf8 buf[8], *d = buf;
    EXPECT_EQ(Utf16nToUtf8nSubst(&s, in.data() + 1, &d, buf + 8, sc), 0);
    return std::string(buf, d);
  };
  EXPECT_EQ(with(0x1F600), "\xF0\x9F\x98\x80");
  EXPECT_EQ(with(0x200000), "\xF8\x88\x80\x80\x80");
  EXPECT_EQ(with(0x7FFFFFFF), "\xFD\xBF\xBF\xBF\xBF\xBF");
  EXPECT_EQ(with(0x80000000), "\xFF\xBD");  // replacement character squeezed into two bytes
}

TEST(Utf16ToUtf8, HookResultAndEmptySource) {
  EXPECT_EQ(encode(Utf16nToUtf8n, u"\xDC00", 8, 7).rc, 7);
  EXPECT_EQ(encode(Utf16nToUtf8nGD, u"abc", 1, 7).rc, 7);
  EXPECT_EQ(encode(Utf16nToUtf8n, u"\xDC00").rc, 0x800);
  Outcome e = encode(Utf16nToUtf8n, u"", 0);
  EXPECT_EQ(e.rc, 0);
  EXPECT_TRUE(e.reports.empty());
}

TEST(Utf16ToUtf8, AgreesWithIconvOnRandomText) {
  std::mt19937 rng(4242);
  const Enc plain[] = {Utf16nToUtf8n,    Utf16nToUtf8nGD,    Utf16nToUtf8nNoCC, Utf16nToUtf8nSubstAll,
                       Utf16nToUtf8nOld, Utf16nToUtf8nGDOld, Utf16nToUtf8nSubstAllOld};
  const Enc swapped[] = {Utf16nSwToUtf8n, Utf16nSwToUtf8nGD};
  for (int round = 0; round < 200; ++round) {
    auto text = random_text(rng, 1 + rng() % 300);
    for (auto& c : text)
      if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) c = 'x';  // keep the no-control routine in the race
    const std::string u8 = to_iconv("UTF-8", text);
    const auto le = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
    const auto be = from_bytes<char16_t>(to_iconv("UTF-16BE", text));
    auto run = [&](Enc f, const std::vector<char16_t>& in) {
      std::string out(u8.size(), '\0');
      const NUV_UTF16* s = in.data();
      auto* d = reinterpret_cast<rscpUtf8*>(out.data());
      EXPECT_EQ(f(&s, in.data() + in.size(), &d, reinterpret_cast<rscpUtf8*>(out.data()) + out.size()), 0);
      EXPECT_EQ(s, in.data() + in.size());
      return out;
    };
    for (Enc f : plain) ASSERT_EQ(run(f, le), u8);
    for (Enc f : swapped) ASSERT_EQ(run(f, be), u8);
    // One byte short: stops at a character boundary with everything before it.
    std::string shortOut(u8.size() - 1, '\0');
    const NUV_UTF16* s = le.data();
    auto* d = reinterpret_cast<rscpUtf8*>(shortOut.data());
    ASSERT_EQ(Utf16nToUtf8n(&s, le.data() + le.size(), &d, d + shortOut.size()), 0x20);
    const std::size_t got = static_cast<std::size_t>(d - reinterpret_cast<rscpUtf8*>(shortOut.data()));
    ASSERT_EQ(u8.compare(0, got, shortOut, 0, got), 0);
    ASSERT_TRUE(s == le.data() + le.size() - 1 || s == le.data() + le.size() - 2);
  }
}

TEST(EntryPoints, FastAndOverlapForms) {
  rscpUtf8 b8[16];
  std::size_t n = 99;
  EXPECT_EQ(UcsToUtf8sFast(b8, sizeof b8, &n, u"h\u00E9"), 0);
  EXPECT_EQ(n, 3u);
  EXPECT_STREQ(reinterpret_cast<char*>(b8), "h\xC3\xA9");
  // Room for size - 1 bytes: the last character does not fit.
  EXPECT_EQ(UcsToUtf8sFast(b8, 3, &n, u"h\u00E9"), 0x20);
  EXPECT_EQ(n, 1u);
  EXPECT_STREQ(reinterpret_cast<char*>(b8), "h");
  NUV_UTF16 b16[8];
  EXPECT_EQ(Utf8sToUcsFast(b16, 8, nullptr, reinterpret_cast<const rscpUtf8*>("a\xFF" "b")), 0);
  EXPECT_EQ(Units(b16), u"a\uFFFDb");
  // Overlap: convert a buffer into itself.
  union {
    NUV_UTF16 u[16];
    rscpUtf8 b[32];
  } buf{};
  std::memcpy(buf.u, u"xyz\u00E9", 10);
  EXPECT_EQ(UcsToUtf8sFastOverlap(buf.b, 32, &n, buf.u), 0);
  EXPECT_EQ(n, 5u);
  EXPECT_STREQ(reinterpret_cast<char*>(buf.b), "xyz\xC3\xA9");
  std::memcpy(buf.b, "q\xC3\xA9r", 5);
  EXPECT_EQ(Utf8sToUcsFastOverlap(buf.u, 16, &n, buf.b), 0);
  EXPECT_EQ(Units(buf.u), u"q\u00E9r");
  EXPECT_EQ(UcnToUtf8nFastOverlap_2(buf.b, 32, &n, buf.u, 2), 0);
  EXPECT_EQ(n, 3u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buf.b), 3), "q\xC3\xA9");
  EXPECT_EQ(Utf8nToUcnFastOverlap_2(buf.u, 16, &n, buf.b, 3), 0);
  EXPECT_EQ(n, 2u);
  EXPECT_EQ(Units(buf.u, 2), u"q\u00E9");
  // CP forms ignore their first argument; the reordered multibyte form too.
  const Units src = u"\xD83D\xDE00";
  const NUV_UTF16* s = src.data();
  rscpUtf8* d = b8;
  EXPECT_EQ(UcnToUcmbn(&d, b8 + 16, &s, src.data() + 2), 0);
  EXPECT_EQ(d - b8, 4);
}

}  // namespace
