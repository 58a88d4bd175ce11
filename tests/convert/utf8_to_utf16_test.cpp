// UTF-8 -> UTF-16: every report site of the base routine with its pointer
// positions, substitution in each mode, the older and swapped routines, and
// agreement with glibc iconv on random valid text.
#include <cerrno>

#include "conv_support.h"
#include "convert/runtime_utf8.h"

using namespace convtest;

namespace {

struct Outcome {
  rscpStatus rc;
  std::ptrdiff_t srcAt;  // bytes consumed
  Units out;
  std::vector<Report> reports;
  uint32_t count;
};

// Runs the base routine on bytes with `room` units of destination.
Outcome base(const Bytes& in, int mode, bool surr, const uint32_t* subst, std::size_t room = 64) {
  HookRecorder rec;
  std::vector<char16_t> buf(room + 1, 0x5A5A);
  const rscpUtf8* s = in.data();
  char16_t* d = buf.data();
  uint32_t count = 0;
  rscpStatus rc = Utf8nToUtf16nBase(&s, in.data() + in.size(), &d, buf.data() + room, subst, subst ? &count : nullptr,
                                    mode, surr);
  EXPECT_EQ(buf[room], 0x5A5A) << "wrote past destEnd";
  return {rc, s - in.data(), Units(buf.data(), d), HookRecorder::reports, count};
}

struct SiteCase {
  const char* name;
  Bytes in;
  int mode;
  bool surr;
  std::size_t room;
  rscpStatus status;
  int err, line;
  const char16_t* msg;
  std::ptrdiff_t srcAt;
  Units out;
};

class BaseSites : public ::testing::TestWithParam<SiteCase> {};

TEST_P(BaseSites, ReportsOnceWithSiteAndPointers) {
  const SiteCase& c = GetParam();
  Outcome r = base(c.in, c.mode, c.surr, nullptr, c.room);
  EXPECT_EQ(r.rc, c.status);
  EXPECT_EQ(r.srcAt, c.srcAt);
  EXPECT_EQ(r.out, c.out);
  ASSERT_EQ(r.reports.size(), 1u);
  expect_site(r.reports[0], c.status, c.err, c.line, c.msg);
  EXPECT_NE(r.reports[0].id.find(u"NOT thread safe"), std::u16string::npos);
}

const Bytes k7 = {'a', 'b', 'c', 'd', 'e', 'f', 'g'};
Bytes cat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

INSTANTIATE_TEST_SUITE_P(
    Utf8ToUtf16, BaseSites,
    ::testing::Values(
        SiteCase{"overflow", {'A', 'B'}, 1, false, 1, 0x20, 51, 822, u"dest buffer overflow", 1, u"A"},
        SiteCase{"overflow_mode0", {'A'}, 0, false, 0, 0x20, 51, 822, u"dest buffer overflow", 0, u""},
        SiteCase{"control_near_end", {'A', 0x09}, 2, false, 8, 0x800, 52, 834, u"control codes not allowed here", 1,
                 u"A"},
        SiteCase{"del_near_end", {0x7F, 'x'}, 2, false, 8, 0x800, 52, 834, u"control codes not allowed here", 0, u""},
        SiteCase{"bad_start_near_end", {'A', 0x80, 'B'}, 1, false, 8, 0x800, 53, 844, u"illegal start byte", 1, u"A"},
        SiteCase{"fe_near_end", {0xFE}, 1, false, 8, 0x800, 53, 844, u"illegal start byte", 0, u""},
        SiteCase{"exhausted", {'A', 0xE2, 0x82}, 1, false, 8, 0x200, 54, 853, u"source exhausted within a char", 1,
                 u"A"},
        SiteCase{"exhausted_mode0_bad_start", {'A', 0x80}, 0, false, 8, 0x200, 54, 853,
                 u"source exhausted within a char", 1, u"A"},
        SiteCase{"exhausted_4", {0xF0, 0x9F, 0x98}, 2, false, 8, 0x200, 54, 853, u"source exhausted within a char", 0,
                 u""},
        SiteCase{"control_far_from_end", cat({0x1F}, k7), 2, false, 8, 0x800, 55, 865,
                 u"control codes not allowed here", 0, u""},
        SiteCase{"bad_start", cat({0xBF}, k7), 1, false, 8, 0x800, 56, 878, u"illegal start byte", 0, u""},
        SiteCase{"bad_start_mode0", cat({0xFF}, k7), 0, false, 8, 0x800, 56, 878, u"illegal start byte", 0, u""},
        SiteCase{"follow_up", {'x', 0xC3, 0x41}, 1, false, 8, 0x800, 58, 948, u"illegal follow-up byte", 1, u"x"},
        SiteCase{"follow_up_3", {0xE2, 0x82, 0xC0}, 2, false, 8, 0x800, 58, 948, u"illegal follow-up byte", 0, u""},
        SiteCase{"overlong_2", {0xC0, 0x80}, 1, false, 8, 0x800, 59, 961, u"overlong UTF-8 sequence", 0, u""},
        SiteCase{"overlong_3", {'a', 0xE0, 0x9F, 0xBF}, 2, false, 8, 0x800, 59, 961, u"overlong UTF-8 sequence", 1,
                 u"a"},
        SiteCase{"overlong_4", {0xF0, 0x8F, 0xBF, 0xBF}, 1, false, 8, 0x800, 59, 961, u"overlong UTF-8 sequence", 0,
                 u""},
        SiteCase{"surrogate", {'a', 0xED, 0xA0, 0x80}, 1, true, 8, 0x800, 60, 975, u"surrogate area", 1, u"a"},
        SiteCase{"surrogate_low", {0xED, 0xBF, 0xBF}, 2, true, 8, 0x800, 60, 975, u"surrogate area", 0, u""},
        SiteCase{"five_bytes", {'a', 0xF8, 0x88, 0x80, 0x80, 0x80}, 1, false, 8, 0x800, 61, 990,
                 u"UTF-8 beyond UTF-32", 5, u"a"},
        SiteCase{"past_10ffff", {0xF4, 0x90, 0x80, 0x80, 'z'}, 1, false, 8, 0x800, 61, 990, u"UTF-8 beyond UTF-32", 3,
                 u""},
        SiteCase{"pair_overflow", {'a', 0xF0, 0x9F, 0x98, 0x80}, 1, false, 2, 0x20, 62, 996, u"dest buffer overflow", 1,
                 u"a"},
        SiteCase{"pair_overflow_mode0", {0xF0, 0x9F, 0x98, 0x80}, 0, false, 1, 0x20, 62, 996, u"dest buffer overflow",
                 0, u""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Utf8ToUtf16, C1ControlIsReportedTwiceAndLeavesSourceBeforeLead) {
  const Bytes in = {'A', 'B', 0xC2, 0x85, 'C'};
  Outcome r = base(in, 2, false, nullptr);
  ASSERT_EQ(r.reports.size(), 2u);
  EXPECT_EQ(r.reports[0].err, 57);
  EXPECT_EQ(r.reports[0].line, 927);
  EXPECT_EQ(r.reports[0].msg, u"control codes not allowed here");
  EXPECT_EQ(r.reports[1].err, 61);
  EXPECT_EQ(r.reports[1].line, 990);
  EXPECT_EQ(r.reports[1].msg, u"UTF-8 beyond UTF-32");
  EXPECT_EQ(r.rc, 0x800);
  EXPECT_EQ(r.srcAt, 1);  // one byte before the lead
  EXPECT_EQ(r.out, u"AB");
  // U+0080 is not a control code in this direction.
  Outcome ok = base({0xC2, 0x80, 0xC2, 0xA0}, 2, false, nullptr);
  EXPECT_EQ(ok.rc, 0);
  EXPECT_EQ(ok.out, u"\u0080\u00A0");
}

struct SubstCase {
  const char* name;
  Bytes in;
  int mode;
  bool surr;
  Units out;
  uint32_t count;
  std::ptrdiff_t srcAt;  // -1: whole source
};

class BaseSubst : public ::testing::TestWithParam<SubstCase> {};

TEST_P(BaseSubst, ReplacesWithoutReport) {
  const SubstCase& c = GetParam();
  const uint32_t q = '?';
  Outcome r = base(c.in, c.mode, c.surr, &q);
  EXPECT_EQ(r.rc, 0);
  EXPECT_TRUE(r.reports.empty());
  EXPECT_EQ(r.out, c.out) << narrow(r.out);
  EXPECT_EQ(r.count, c.count);
  EXPECT_EQ(r.srcAt, c.srcAt < 0 ? static_cast<std::ptrdiff_t>(c.in.size()) : c.srcAt);
}

INSTANTIATE_TEST_SUITE_P(
    Utf8ToUtf16, BaseSubst,
    ::testing::Values(SubstCase{"bad_start", {'A', 0xFF, 'B'}, 1, false, u"A?B", 1, -1},
                      SubstCase{"lone_follow", {0x80, 0xBF, 'x'}, 1, false, u"??x", 2, -1},
                      SubstCase{"follow_skips_lead_only", {0xC3, 'A'}, 1, false, u"?A", 1, -1},
                      SubstCase{"follow_3", {0xE2, 0x28, 0xA1}, 1, false, u"?(?", 2, -1},
                      SubstCase{"overlong_skips_all", {0xC0, 0x80, 'A'}, 1, false, u"?A", 1, -1},
                      SubstCase{"surrogate_skips_all", {0xED, 0xA0, 0x80, 'A'}, 1, true, u"?A", 1, -1},
                      SubstCase{"surrogate_passes_unchecked", {0xED, 0xA0, 0x80}, 1, false, u"\xD800", 0, -1},
                      SubstCase{"beyond_skips_all", {0xF8, 0x88, 0x80, 0x80, 0x80, 'A'}, 1, false, u"?A", 1, -1},
                      SubstCase{"control", {0x09, 'a'}, 2, false, u"?a", 1, -1},
                      SubstCase{"control_c1_skips_both", {0xC2, 0x85, 'a'}, 2, false, u"?a", 1, -1},
                      SubstCase{"u0080_passes", {0xC2, 0x80}, 2, false, u"\u0080", 0, -1},
                      SubstCase{"mode3_truncated_stops", {'A', 0xE2, 0x82}, 3, false, u"A?", 1, 2},
                      SubstCase{"mode3_bad_start", {0xFF, 'B'}, 3, false, u"?B", 1, -1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Utf8ToUtf16, EdgeCasesOfEveryMode) {
  for (int mode = 0; mode <= 3; ++mode) {
    Outcome r = base({'A', 0xC3, 0xA9}, mode, false, nullptr);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, u"A\u00E9");
    Outcome e = base({0xF0, 0x9F, 0x98, 0x80}, mode, false, nullptr);
    EXPECT_EQ(e.out, u"\xD83D\xDE00");
    // An encoded surrogate passes unless the check is on.
    EXPECT_EQ(base({0xED, 0xA0, 0x80}, mode, false, nullptr).out, u"\xD800");
  }
  // Mode 3 substitutes the default character without being asked.
  Outcome m3 = base({'A', 0xE2, 0x82}, 3, false, nullptr);
  EXPECT_EQ(m3.out, u"A\uFFFD");
  EXPECT_EQ(m3.rc, 0);
  EXPECT_EQ(m3.srcAt, 2);
  // Mode 0 decodes overlong forms and values past U+10FFFF without a word.
  EXPECT_EQ(base({0xC0, 0x80}, 0, false, nullptr).out, Units(1, u'\0'));
  EXPECT_EQ(base({0xF8, 0x88, 0x80, 0x80, 0x80}, 0, false, nullptr).out, u"\xDFC0\xDC00");
  EXPECT_EQ(base({0xC3, 0x41}, 0, false, nullptr).out, u"\u0081");
  // Only the low 16 bits of the substitution character are written.
  const uint32_t wide = 0x1F600;
  EXPECT_EQ(base({0xFF}, 1, false, &wide).out, u"\xF600");
  // Truncation is reported even when a character is given, outside mode 3.
  const uint32_t q = '?';
  EXPECT_EQ(base({0xE2, 0x82}, 1, false, &q).rc, 0x200);
}

TEST(Utf8ToUtf16, VariantsFixTheirMode) {
  HookRecorder rec;
  auto run = [](auto fn, const Bytes& in, const uint32_t* sc) {
    char16_t buf[16];
    const rscpUtf8* s = in.data();
    char16_t* d = buf;
    uint32_t n = 0;
    rscpStatus rc = fn(&s, in.data() + in.size(), &d, buf + 16, sc, &n);
    return std::make_pair(rc, Units(buf, d));
  };
  const Bytes sur = {0xED, 0xA0, 0x80};
  EXPECT_EQ(run(Utf8nToUtf16nSubstStrict, sur, nullptr).first, 0x800);
  EXPECT_EQ(run(Utf8nToUtf16nSubst, sur, nullptr).first, 0);
  EXPECT_EQ(run(Utf8nToUtf16nNoCCSubst, sur, nullptr).first, 0);
  EXPECT_EQ(run(Utf8nToUtf16nSubstAll, sur, nullptr).first, 0);
  EXPECT_EQ(run(Utf8nToUtf16nNoCCSubst, Bytes{'\t'}, nullptr).first, 0x800);
  EXPECT_EQ(run(Utf8nToUtf16nSubst, Bytes{'\t'}, nullptr).first, 0);
  EXPECT_EQ(run(Utf8nToUtf16nSubstAll, Bytes{0xFF}, nullptr).second, u"\uFFFD");
  EXPECT_EQ(run(Utf8nToUtf16nSubst, Bytes{0xFF}, nullptr).first, 0x800);
  ASSERT_FALSE(HookRecorder::reports.empty());
  EXPECT_EQ(HookRecorder::reports.back().err, 53);  // the Subst routine uses the base sites
  // GD: no follow-up check.
  const Bytes bad = {0xC3, 0x41};
  const rscpUtf8* s = bad.data();
  char16_t buf[4], *d = buf;
  EXPECT_EQ(Utf8nToUtf16nGD(&s, bad.data() + 2, &d, buf + 4), 0);
  EXPECT_EQ(Units(buf, d), u"\u0081");
  // The multibyte entry takes the destination first and substitutes.
  const Bytes mb = {'a', 0xFF};
  s = mb.data(), d = buf;
  EXPECT_EQ(UcmbnToUcn(&d, buf + 4, &s, mb.data() + 2), 0);
  EXPECT_EQ(Units(buf, d), u"a\uFFFD");
}

TEST(Utf8ToUtf16, HookResultBecomesTheResult) {
  HookRecorder rec(7);
  const Bytes in = {0xFF};
  const rscpUtf8* s = in.data();
  char16_t buf[4], *d = buf;
  EXPECT_EQ(Utf8nToUtf16nSubst(&s, in.data() + 1, &d, buf + 4, nullptr, nullptr), 7);
  s = in.data();
  EXPECT_EQ(Utf8nToUtf16nGD(&s, in.data() + 1, &d, buf), 7);  // overflow
  rscpSetHook_rscpe__error(nullptr);
  s = in.data();
  EXPECT_EQ(Utf8nToUtf16nSubst(&s, in.data() + 1, &d, buf + 4, nullptr, nullptr), 0x800);
  // An empty source converts nothing and reports nothing.
  s = in.data(), d = buf;
  EXPECT_EQ(Utf8nToUtf16nSubst(&s, in.data(), &d, buf, nullptr, nullptr), 0);
  EXPECT_EQ(d, buf);
}

// The older and swapped routines: their own error numbers and messages.
struct OldCase {
  const char* name;
  rscpStatus (*fn)(const rscpUtf8**, const rscpUtf8*, char16_t**, char16_t*, const uint32_t*, uint32_t*);
  Bytes in;
  std::size_t room;
  rscpStatus status;
  int err;
  const char16_t* msg;
  std::ptrdiff_t srcAt;
};

rscpStatus gd_old(const rscpUtf8** s, const rscpUtf8* se, char16_t** d, char16_t* de, const uint32_t*, uint32_t*) {
  return Utf8nToUtf16nGDOld(s, se, d, de);
}
rscpStatus sw_gd(const rscpUtf8** s, const rscpUtf8* se, char16_t** d, char16_t* de, const uint32_t*, uint32_t*) {
  return Utf8nToUtf16nSwGD(s, se, d, de);
}

class OldSites : public ::testing::TestWithParam<OldCase> {};

TEST_P(OldSites, OwnNumbersAndMessages) {
  const OldCase& c = GetParam();
  HookRecorder rec;
  std::vector<char16_t> buf(c.room + 1);
  const rscpUtf8* s = c.in.data();
  char16_t* d = buf.data();
  EXPECT_EQ(c.fn(&s, c.in.data() + c.in.size(), &d, buf.data() + c.room, nullptr, nullptr), c.status);
  ASSERT_FALSE(HookRecorder::reports.empty());
  EXPECT_EQ(HookRecorder::reports.back().err, c.err);
  EXPECT_EQ(HookRecorder::reports.back().msg, c.msg);
  EXPECT_EQ(s - c.in.data(), c.srcAt);
}

INSTANTIATE_TEST_SUITE_P(
    Utf8ToUtf16, OldSites,
    ::testing::Values(
        OldCase{"gd_exhausted", gd_old, {'a', 0xE2}, 8, 0x200, 3, u"source exhausted", 1},
        OldCase{"gd_overflow", gd_old, {'a', 'b'}, 1, 0x20, 5, u"dest buffer overflow", 1},
        OldCase{"subst_exhausted", Utf8nToUtf16nSubstOld, {0xE2}, 8, 0x200, 7, u"source exhausted within a char", 0},
        OldCase{"subst_start", Utf8nToUtf16nSubstOld, {0xFF}, 8, 0x800, 10, u"illegal start byte", 0},
        OldCase{"subst_follow", Utf8nToUtf16nSubstOld, {0xC3, 'x'}, 8, 0x800, 8, u"illegal follow-up byte", 0},
        OldCase{"subst_overlong", Utf8nToUtf16nSubstOld, {0xC1, 0xBF}, 8, 0x800, 11, u"overlong UTF-8 sequence", 0},
        OldCase{"subst_beyond", Utf8nToUtf16nSubstOld, {0xF4, 0x90, 0x80, 0x80}, 8, 0x800, 32,
                u"UTF-8 bejond UTF-32", 3},
        OldCase{"subst_overflow", Utf8nToUtf16nSubstOld, {'a'}, 0, 0x20, 9, u"dest buffer overflow", 0},
        OldCase{"nocc_start", Utf8nToUtf16nNoCCSubstOld, {0x80}, 8, 0x800, 20, u"illegal start byte", 0},
        OldCase{"nocc_start_far", Utf8nToUtf16nNoCCSubstOld, {0x80, 'a', 'a', 'a', 'a', 'a', 'a'}, 8, 0x800, 23,
                u"illegal start byte", 0},
        OldCase{"nocc_exhausted", Utf8nToUtf16nNoCCSubstOld, {0xC3}, 8, 0x200, 21, u"source exhausted within a char",
                0},
        OldCase{"nocc_control", Utf8nToUtf16nNoCCSubstOld, {'a', 0x0A}, 8, 0x800, 28,
                u"control codes not allowed here", 1},
        OldCase{"nocc_beyond", Utf8nToUtf16nNoCCSubstOld, {0xF4, 0x90, 0x80, 0x80}, 8, 0x800, 26,
                u"UTF-8 bejond UTF-32", 3},
        OldCase{"nocc_overflow", Utf8nToUtf16nNoCCSubstOld, {'a'}, 0, 0x20, 27, u"dest buffer overflow", 0},
        OldCase{"all_overflow", Utf8nToUtf16nSubstAllOld, {0xFF, 'a'}, 1, 0x20, 30, u"dest buffer overflow", 1},
        OldCase{"sw_gd_exhausted", sw_gd, {0xF0, 0x9F}, 8, 0x200, 3, u"source exhausted", 0},
        OldCase{"sw_subst_start", Utf8nToUtf16nSwSubst, {0xFF}, 8, 0x800, 10, u"illegal start byte", 0},
        OldCase{"sw_nocc_control_end", Utf8nToUtf16nSwNoCCSubst, {0x0A}, 8, 0x800, 22,
                u"control codes not allowed here", 0},
        OldCase{"sw_nocc_control", Utf8nToUtf16nSwNoCCSubst, {0x0A, 'a', 'a', 'a', 'a', 'a', 'a', 'a'}, 8, 0x800, 28,
                u"control codes not allowed here", 0},
        OldCase{"sw_nocc_overflow", Utf8nToUtf16nSwNoCCSubst, {'a'}, 0, 0x20, 27, u"dest buffer overflow", 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Utf8ToUtf16, SubstAllOldSubstitutesEverythingButOverflow) {
  HookRecorder rec;
  const Bytes in = {0xFF, 0xC0, 0x80, 0xED, 0xA0, 0x80, 0xE2, 0x82};
  const rscpUtf8* s = in.data();
  char16_t buf[16], *d = buf;
  EXPECT_EQ(Utf8nToUtf16nSubstAllOld(&s, in.data() + in.size(), &d, buf + 16, nullptr, nullptr), 0);
  EXPECT_EQ(Units(buf, d), u"\uFFFD\uFFFD\xD800\uFFFD");
  EXPECT_TRUE(HookRecorder::reports.empty());
}

// Random valid text over all planes agrees with iconv, in every mode and
// every routine, and in both byte orders for the swapped ones.
TEST(Utf8ToUtf16, AgreesWithIconvOnRandomText) {
  std::mt19937 rng(20240601);
  for (int round = 0; round < 200; ++round) {
    const auto text = random_text(rng, 1 + rng() % 300);
    const std::string u8 = to_iconv("UTF-8", text);
    const auto le = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
    const auto* in = reinterpret_cast<const rscpUtf8*>(u8.data());
    using Fn = rscpStatus (*)(const rscpUtf8**, const rscpUtf8*, char16_t**, char16_t*, const uint32_t*, uint32_t*);
    const Fn all[] = {Utf8nToUtf16nSubst,    Utf8nToUtf16nSubstStrict,  Utf8nToUtf16nSubstAll,
                      Utf8nToUtf16nSubstOld, Utf8nToUtf16nSubstAllOld,  gd_old,
                      Utf8nToUtf16nSwSubst,  sw_gd};
    for (std::size_t k = 0; k < std::size(all); ++k) {
      std::vector<char16_t> out(le.size());
      const rscpUtf8* s = in;
      char16_t* d = out.data();
      ASSERT_EQ(all[k](&s, in + u8.size(), &d, out.data() + out.size(), nullptr, nullptr), 0) << k;
      ASSERT_EQ(s, in + u8.size());
      ASSERT_EQ(d, out.data() + out.size());
      const bool swapped = k >= 6;
      for (std::size_t i = 0; i < le.size(); ++i) ASSERT_EQ(swapped ? swap16(out[i]) : out[i], le[i]) << k << " " << i;
    }
    // A destination one unit short stops cleanly at a character boundary.
    std::vector<char16_t> shortOut(le.size() - 1);
    const rscpUtf8* s = in;
    char16_t* d = shortOut.data();
    ASSERT_EQ(Utf8nToUtf16nSubst(&s, in + u8.size(), &d, shortOut.data() + shortOut.size(), nullptr, nullptr), 0x20);
    const std::size_t got = static_cast<std::size_t>(d - shortOut.data());
    ASSERT_TRUE(std::equal(shortOut.begin(), shortOut.begin() + got, le.begin()));
    ASSERT_TRUE(got == le.size() - 1 || got == le.size() - 2);
  }
}

// ---- the runtime's own decoders ----

TEST(RuntimeUtf8Decoder, CountedWithAndWithoutCounter) {
  char16_t buf[16];
  std::size_t errs = 99;
  EXPECT_EQ(Utf8n_To_U16(buf, 16, "A\xFF" "B", 3, &errs, 0xFFFD), 3u);
  EXPECT_EQ(Units(buf, 3), u"A\uFFFDB");
  EXPECT_EQ(errs, 1u);
  errno = 0;
  buf[1] = 0x5555;
  EXPECT_EQ(Utf8n_To_U16(buf, 16, "A\xC3", 2, nullptr, 0), 0u);  // cut by the length
  EXPECT_EQ(errno, EILSEQ);
  EXPECT_EQ(buf[1], 0);
  errno = 0;
  EXPECT_EQ(Utf8n_To_U16(buf, 2, "ABC", 3, nullptr, 0), 0u);
  EXPECT_EQ(errno, ERANGE);
  // Counting mode, no overlong test, zeros are data when counted.
  EXPECT_EQ(Utf8n_To_U16(nullptr, 0, "a\xC0\x80" "b", 4, nullptr, 0), 3u);
  EXPECT_EQ(Utf8n_To_U16(buf, 16, "a\0b", 3, nullptr, 0), 3u);
  // Zero-terminated: the terminator ends it and is counted.
  EXPECT_EQ(Utf8n_To_U16(buf, 16, "ab\0cd", static_cast<std::size_t>(-1), nullptr, 0), 3u);
  EXPECT_EQ(Units(buf, 3), Units(u"ab\0", 3));
  // Past U+10FFFF is an error; a full buffer may end in a lone high surrogate.
  errno = 0;
  EXPECT_EQ(Utf8n_To_U16(buf, 16, "\xF4\x90\x80\x80", 4, nullptr, 0), 0u);
  EXPECT_EQ(errno, EILSEQ);
  errno = 0;
  EXPECT_EQ(Utf8n_To_U16(buf, 2, "a\xF0\x9F\x98\x80", 5, nullptr, 0), 2u);
  EXPECT_EQ(buf[1], 0xD83D);
  EXPECT_EQ(errno, 0);
  // Each bad sequence consumes exactly one byte.
  EXPECT_EQ(Utf8n_To_U16(buf, 16, "\xE2\x82x", 3, &errs, '#'), 3u);
  EXPECT_EQ(Units(buf, 3), u"##x");
  EXPECT_EQ(errs, 2u);
}

TEST(RuntimeUtf8Decoder, ZeroTerminated) {
  char16_t buf[16];
  EXPECT_EQ(Utf8s_To_U16(buf, "h\xC3\xA9!", 16), 3u);
  EXPECT_EQ(Units(buf, 4), Units(u"h\u00E9!\0", 4));
  EXPECT_EQ(Utf8s_To_U16(nullptr, "\xF0\x9F\x98\x80x", 0), 3u);
  EXPECT_EQ(Utf8s_To_U16(buf, "abc", 0), 0u);
  errno = 0;
  EXPECT_EQ(Utf8s_To_U16(buf, "a\xC3", 16), static_cast<std::size_t>(-1));
  EXPECT_EQ(errno, EILSEQ);
  // An overlong zero is written and ends the text.
  EXPECT_EQ(Utf8s_To_U16(buf, "ab\xC0\x80" "cd", 16), 2u);
  EXPECT_EQ(buf[2], 0);
  // Out of room: no terminator; the low half only while room remains.
  buf[3] = 0x7777;
  EXPECT_EQ(Utf8s_To_U16(buf, "abcdef", 3), 3u);
  EXPECT_EQ(buf[3], 0x7777);
  EXPECT_EQ(Utf8s_To_U16(buf, "ab\xF0\x9F\x98\x80", 3), 3u);
  EXPECT_EQ(buf[2], 0xD83D);
  EXPECT_EQ(Utf8s_To_U16(buf, "a\xF0\x9F\x98\x80", 3), 3u);
  EXPECT_EQ(Units(buf, 3), u"a\xD83D\xDE00");
}

TEST(RuntimeUtf8Decoder, AgreesWithIconvOnRandomText) {
  std::mt19937 rng(77);
  for (int round = 0; round < 100; ++round) {
    const auto text = random_text(rng, 1 + rng() % 200);
    const std::string u8 = to_iconv("UTF-8", text);
    const auto le = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
    std::vector<char16_t> out(le.size() + 1);
    ASSERT_EQ(Utf8n_To_U16(out.data(), out.size(), u8.data(), u8.size(), nullptr, 0), le.size());
    ASSERT_TRUE(std::equal(le.begin(), le.end(), out.begin()));
    ASSERT_EQ(Utf8s_To_U16(out.data(), u8.c_str(), out.size()), le.size());
    ASSERT_TRUE(std::equal(le.begin(), le.end(), out.begin()));
    ASSERT_EQ(Utf8s_To_U16(nullptr, u8.c_str(), 0), le.size());
  }
}

}  // namespace

// The known-length ASCII step: every length up to three blocks and more, a
// byte at or above 0x80 at every position (or none), exact-size buffers.
TEST(RuntimeUtf8Decoder, AsciiStepStopsAtTheFirstHighByte) {
  for (std::size_t len = 0; len <= 70; ++len)
    for (std::size_t bad = 0; bad <= len; ++bad) {
      std::vector<char> src(len);
      for (std::size_t i = 0; i < len; ++i) src[i] = static_cast<char>(1 + (i * 37) % 127);
      if (bad < len) src[bad] = static_cast<char>(0x80 + bad % 128);
      std::vector<NUV_UTF16> dest(len);
      ASSERT_EQ(Ascii_To_U16n(dest.data(), src.data(), len), bad) << len;
      for (std::size_t i = 0; i < bad; ++i) ASSERT_EQ(dest[i], static_cast<unsigned char>(src[i])) << len << " " << i;
    }
}
