// Continuous local time in real zones, each in its own process with TZ set.
// Expected values come from glibc's answers and the formulas, worked here.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <random>

#include "platform/contloct.h"
#include "support/scratch.h"

namespace {

using S = std::string;
using Lines = std::vector<S>;

Lines lines;  // trace lines of the running child
int record(FILE *, const NUV_UTF16 *format, ...) {
  NUV_UTF16 buf[1024];
  va_list ap;
  va_start(ap, format);
  int n = vsnprintfU16(buf, 1024, format, ap);
  va_end(ap);
  lines.emplace_back(buf, buf + std::max(n, 0));
  return n;
}
struct ChildReport {  // what a child found wrong, the first dozen in full
  S text;
  int failures = 0;
  void check(bool ok, const S &what) { text += !ok && ++failures <= 12 ? what + "\n" : ""; }
};
// Runs body in a child process (a death test) with TZ set and the trace recorded; the child's
// failures come back on its standard error, which must match stderr_regex.
void in_zone(const char *tz, const std::function<void(ChildReport &)> &body, const char *stderr_regex = "") {
  auto child = [&] {
    setenv("TZ", tz, 1), tzset();
    ContLoctRegisterTrace(record, stdout);
    ChildReport r;
    body(r);
    fprintf(stderr, "%s", r.text.c_str());
    _exit(r.failures > 0);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(0), stderr_regex);
}

struct tm native(time_t t) { struct tm l{}; return *localtime_r(&t, &l); }
long off(time_t t) { return native(t).tm_gmtoff; }
bool same(time_t a, time_t b) { return off(a) == off(b) && native(a).tm_isdst == native(b).tm_isdst; }
time_t switch_in(time_t lo, time_t hi) {  // first second after lo in another state; lo and hi differ
  for (time_t from = lo; hi - lo > 1;) (same(from, lo + (hi - lo) / 2) ? lo : hi) = lo + (hi - lo) / 2;
  return hi;
}
std::vector<time_t> glibc_switches(time_t from, time_t to) {  // a day at a time, then to the second
  std::vector<time_t> out;
  for (time_t t = from; t < to; t += 86400)
    if (!same(t, t + 86400)) out.push_back(switch_in(t, t + 86400));
  return out;
}
S show(const struct tm &r) {
  char b[80];
  return S(b, strftime(b, sizeof b, "%Y-%m-%d %H:%M:%S wd%w yd%j dst", &r)) + std::to_string(r.tm_isdst);
}
S at(time_t t) { return " at " + std::to_string(t); }

// The formulas on glibc's offsets; the switches within four hours decide.
struct tm expected(time_t t) {
  int64_t o = -off(t), L = t - o;
  time_t s = same(t - 14400, t) ? 0 : switch_in(t - 14400, t), e = same(t, t + 14400) ? 0 : switch_in(t, t + 14400);
  int64_t d = s ? o + off(s - 1) : 0, d2 = e ? -off(e) - o : 0;
  if (d > 0 && t < s + d) L += ((s - o + d) - L) / 2;
  if (d2 > 0 && t > e - d2) L -= (d2 + (o - e) + L) / 2;
  time_t l = t == 0 ? 0 : L;  // time 0 is given as UTC
  struct tm r{};
  gmtime_r(&l, &r);
  r.tm_isdst = t == 0 ? 0 : native(t).tm_isdst;
  return r;
}
int64_t wall(time_t t) { struct tm r{}; return timegm(localtime_cont_r(&t, &r)); }  // continuous local time as seconds
// localtime_cont_r against the formulas, mktime_cont against the inverse formula on glibc's mktime.
void check_time(ChildReport &r, time_t t) {
  struct tm got{}, want = expected(t), back{};
  r.check(localtime_cont_r(&t, &got) && show(got) == show(want), show(got) + " != " + show(want) + at(t));
  struct tm c1 = got, c2 = got;
  time_t n = mktime(&c1), inv = mktime_cont(&c2), e = same(n - 14400, n + 14400) ? 0 : switch_in(n - 14400, n + 14400);
  int64_t d = e ? off(e - 1) - off(e) : 0;
  time_t want_inv = d > 0 && e - d < n && n < e ? 2 * n - e + d : d > 0 && e <= n && n < e + d ? e + 2 * (n - e) - d : n;
  localtime_cont_r(&inv, &back);
  if (t == inv - 1 && !same(t, inv)) back.tm_isdst = got.tm_isdst;  // shares its wall time with the switch second
  r.check(inv == want_inv && std::abs(inv - t) <= 1 && show(back) == show(got), "mktime_cont" + at(t));
}
// Every second around a backward switch: never back, half speed inside.
void check_window(ChildReport &r, time_t e) {
  int64_t d = off(e - 1) - off(e), prev = INT64_MIN;
  r.check(d > 0, "no backward switch" + at(e));
  for (time_t t = e - d - 3; t < e + d + 3; prev = wall(t++)) {
    check_time(r, t);
    r.check(wall(t) >= prev, "went back" + at(t));
    // Truncation lets the switch second share its wall time with both neighbours.
    if (t >= e - d && t + 2 <= e + d && t != e - 1) r.check(wall(t + 2) - wall(t) == 1, "not half speed" + at(t));
  }
}

// A backward switch (0: none) and the wall clock, in seconds of the day, where its window starts.
struct Zone { const char *tz; time_t fall; int64_t wall; };
class RealZone : public testing::TestWithParam<Zone> {};

TEST_P(RealZone, FormulasOnGlibcAnswersAtEverySwitchAndRandomTimes) {
  in_zone(GetParam().tz, [z = GetParam()](ChildReport &r) {
    ContLoctBuildTable();
    const time_t from = -2145916800, to = time(nullptr) + 157680000;  // 1902 .. horizon
    std::vector<time_t> sw = glibc_switches(from, to), starts;
    for (int i = 1; i < cltZoneMapTop; ++i)
      if (cltZoneMap[i].start >= from) starts.push_back(cltZoneMap[i].start);
    r.check(starts == sw, "starts " + std::to_string(starts.size()) + " vs " + std::to_string(sw.size()));
    std::mt19937_64 g(15);
    for (time_t s : sw)
      for (int k = 0; k < 3; ++k) check_time(r, s + time_t(g() % 14600) - 7300);
    for (int k = 0; k < 20000; ++k) check_time(r, from + time_t(g() % uint64_t(to - from)));
    if (!z.fall) return r.check(cltZoneMapTop == 1, "more than one entry");
    check_window(r, z.fall);
    int64_t d = off(z.fall - 1) - off(z.fall), w0 = wall(z.fall - d) % 86400;
    r.check(w0 == z.wall && wall(z.fall) % 86400 == w0 + d / 2 && wall(z.fall + d) % 86400 == w0 + d, "window ends");
  });
}
// 02:00, 02:30, 03:00 in Berlin; Lord Howe's change is 30 minutes; Moscow's 2014
// change kept the daylight-saving flag off on both sides.
INSTANTIATE_TEST_SUITE_P(Zones, RealZone,
                         testing::Values(Zone{"Europe/Berlin", 1792890000, 7200}, Zone{"UTC", 0, 0},
                                         Zone{"America/New_York", 1793512800, 3600}, Zone{"JST-9", 0, 0},
                                         Zone{"Australia/Lord_Howe", 1775314800, 5400},
                                         Zone{"Europe/Moscow", 1414274400, 3600}));

struct ModeCase { const char16_t *value; int mode, rc; };
class ModeParam : public testing::TestWithParam<ModeCase> {};
const char16_t *param_value, *trace_param;
const NUV_UTF16 *get_param(const NUV_UTF16 *name) { return name[0] == u'z' ? param_value : trace_param; }

TEST_P(ModeParam, PrefixRulesWithTheirTraceLines) {
  in_zone("UTC", [c = GetParam()](ChildReport &r) {
    r.check(ContLoctSetParam(u"zdate/DSTswitch_contloctime", c.value) == c.rc && PPCurrent == c.mode &&
                PPBuffer == c.mode, "rc or mode " + std::to_string(PPCurrent));
    r.check(ContLoctGetParam(nullptr) == std::vector<std::u16string>{u"", u"on", u"old", u"off"}[c.mode], "word");
    param_value = c.value;  // the same rules through the call-back
    ContLoct_Init(get_param);
    r.check(getPPContTime() == c.mode && ContLoctTestParam(nullptr, nullptr) == 0, "call-back mode");
    const char *names[] = {"", "default", "old", "native"};
    S line = "contloctime: use " + S(names[c.mode]) + " implementation.\n";
    r.check(lines == (c.rc ? Lines{} : Lines{line, line}), "lines");
    ContLoctRegisterTrace(record, stderr);  // there a choice needs level 2, or rdisp/TRACE of 2 or more
    for (const char16_t *tp : {u"1", u"2"}) trace_param = tp, ContLoctSetParam(nullptr, c.value);
    r.check(lines.size() == (c.rc ? 0u : 3u), "stderr level rule");
  });
}
INSTANTIATE_TEST_SUITE_P(Values, ModeParam,
                         testing::Values(ModeCase{nullptr, 1, 0}, ModeCase{u"on", 1, 0}, ModeCase{u"onwards", 1, 0},
                                         ModeCase{u"off", 3, 0}, ModeCase{u"offline", 3, 0}, ModeCase{u"old", 2, 0},
                                         ModeCase{u"oldish", 2, 0}, ModeCase{u"of", 1, 1}, ModeCase{u"o", 1, 1},
                                         ModeCase{u"", 1, 1}, ModeCase{u"xyz", 1, 1}));

TEST(ContLoct, SpecialCasesModesAndTraceLines) {
  in_zone("Europe/Berlin", [](ChildReport &r) {
    time_t e = 1792890000, zero = 0, high = ContLoctHighTime, late = 3000000;
    struct tm tm, g0 = expected(0), g;
    char buf[26];
    r.check(!localtime_cont_r(&e, nullptr) && lines.back() == "ContLoctLocaltimeCont_R: result pointer is NULL" &&
                localtime_cont_r(nullptr, &tm) == &tm && tm.tm_year == 0 && tm.tm_mday == 0, "null result or timer");
    r.check(show(*localtime_cont(&zero)) == show(g0) && !localtime_cont_r(&high, &tm) && errno == EOVERFLOW, "0, max");
    r.check(S(ctime_cont(&e)) == "Sun Oct 25 02:30:00 2026\n" && !ctime_cont_r(&e, nullptr) &&
                ctime_cont_r(&e, buf) == buf && S(buf) == "Sun Oct 25 02:30:00 2026\n", "ctime_cont");
    ContLoctSetTraceLevel(2);
    lines.clear();
    ContLoctBuildTable();  // Berlin's first entry ends when summer time began in 1916
    r.check(lines.size() > 3 && lines[0] == "ContLoctGetNextSwitch: next switch: 01.05.1916  00:00:00 dst, isDst=1, "
                                            "offset=-7200, time table index 0\n" &&
                lines[1] == "time Map [0]: -9223372036854775808 - -1693706400 , offset = -3600   non dst\n", "table");
    lines.clear();
    localtime_cont_r(&e, &tm);
    mktime_cont(&tm);
    S conv = "Time: 1792890000, UTC 25.10.2026  01:00:00 non dst - local continous 25.10.2026  02:30:00 non dst - "
             "local native 25.10.2026  02:00:00 non dst\n";
    r.check(lines == Lines{conv, conv, "mktime: 1792890000,  input 25.10.2026  02:30:00 non dst - reverse check "
                                       "25.10.2026  02:30:00 non dst\n"}, "conversion lines");
    const time_t s = e - 3600;
    r.check(!IsDoubleInterval(100) && !IsDoubleInterval(s - 1) && !IsDoubleInterval(e + 3600), "outside");
    for (time_t t = s - 100; t < e + 3700; t += 7) {  // "old": the doubled hour's first half at half speed
      bool inside = t >= s && t < e + 3600;
      struct tm n = native(t), want = native(inside ? s + (t - s) / 2 : t), tm;
      ContLoctSetParam(nullptr, u"off");
      r.check(show(*localtime_cont_r(&t, &tm)) == show(n) && mktime_cont(&n) == t, "native" + at(t));
      ContLoctSetParam(nullptr, u"old");
      tm = *localtime_cont(&t);
      r.check(IsDoubleInterval(t) == inside && show(tm) == show(want), "old" + at(t));
      r.check(mktime_cont(&tm) == (inside ? s + (t - s) / 2 * 2 : t), "old mktime" + at(t));
    }
    time_t a, b;
    r.check((GetDoubleInterval(&a, &b), a == s && b == e + 3600), "cached interval");
    inLocTime = 1;  // as if another call were running: refused, on standard error
    r.check(localtime_cont(&e)->tm_hour == 0 && localtime_cont(&e)->tm_year == 0, "recursion guard");
    ContLoctSetParam(nullptr, u"on");
    ContLoctZone two[2] = {{INT64_MIN, 1000000, -3600, 0}, {1000000, 2000000, -7200, 1}};
    cltZoneMap = two, cltZoneMapTop = 2;  // a table that ends: later times have no zone
    ContLoctSetTraceLevel(1);
    lines.clear();
    gmtime_r(&late, &g);
    r.check(show(*localtime_cont(&late)) == show(g) && mktime_cont(&g) == mktime(&g), "outside the table");
    r.check(lines == Lines{"ContLoctLocaltimeCont_R: No time zone information, switch to UTC\n",
                           "ContLoctMktime: No time zone information\n"}, "outside lines");
  }, "^Recursive call of localtime_cont at 1792890000\nRecursive call of localtime_cont at 1792890000\n$");
}

int grow_calls, fail_at;
void *failing_grow(void *old, size_t n) { return ++grow_calls == fail_at ? nullptr : old ? realloc(old, n) : malloc(n); }

// A compiled zone with three switches a year since 1900: forward, offset only, back by two hours.
TEST(ContLoct, CompiledZoneGrowsTheTableAndFindsEverySwitch) {
  nuvtest::ScratchDir dir;
  nuvtest::write_file(dir / "many.zi", "Rule T 1900 2040 - Mar 1 2:00 1:00 D\nRule T 1900 2040 - Jun 1 2:00 2:00 E\n"
                                       "Rule T 1900 2040 - Oct 1 2:00 0 S\nZone Test/Many 1:00 T T%sT\n");
  ASSERT_EQ(nuvtest::run_command("zic -d " + dir.path + " " + (dir / "many.zi")).exit, 0);
  in_zone((dir / "Test/Many").c_str(), [](ChildReport &r) {
    std::vector<time_t> sw = glibc_switches(-2207520000, time(nullptr) + 157680000), starts;
    r.check(ContLoctBuildTable() == 0 && cltZoneMapSize == 450 && cltZoneMap != clt_zone_map, "growth");
    for (int i = 0; i < cltZoneMapTop; ++i) {
      time_t t = i ? cltZoneMap[i].start : -2207520000;
      if (i) starts.push_back(t);
      r.check(cltZoneMap[i].offset == -off(t) && cltZoneMap[i].isDst == native(t).tm_isdst, "entry" + at(t));
    }
    r.check(starts == sw, "switches differ");
    std::mt19937_64 g(3);  // the bucket index against plain halving
    for (time_t k = 0, t; k < 100000 && (t = -2300000000 + time_t(g() % 4600000000)); ++k)
      r.check(ContLoctGetTimezoneIndex(t) == ContLoctFindZone(cltZoneMap, cltZoneMapTop, t), "index" + at(t));
    check_window(r, sw[sw.size() - 1 - (sw.size() - 3) % 3]);  // the last October switch
    for (int f : {1, 2}) {  // refused growth closes the table where it stands
      grow_calls = 0, fail_at = f, lines.clear();
      ContLoctSetTableAllocator(failing_grow);
      r.check(ContLoctBuildTable() == -1 && cltZoneMapTop == 100 + 100 * f &&
                  cltZoneMap[cltZoneMapTop - 1].end == ContLoctHighTime &&
                  lines == Lines{"localtime_cont: error creating time table.\n"}, "refused growth " + std::to_string(f));
    }
  });
}

// The pure parts on generated tables and times, against gmtime_r and the tables themselves.
TEST(ContLoctPure, BreakDownMatchesGmtime) {
  std::mt19937_64 g(1);
  for (int k = 0; k < 300000; ++k) {
    int64_t t = k < 1000   ? INT64_MAX - k  // where the year no longer fits, then the edges of the 32-bit path
                : k < 3000 ? (k % 2 ? 1 : -1) * int64_t(12000000) * 86400 + int64_t(k - 2000) * 86399
                           : int64_t(g()) >> (g() % 64);
    struct tm a{}, b{};
    bool ok = ContLoctBreakDown(t, &a) != nullptr;
    ASSERT_EQ(ok, gmtime_r(&t, &b) != nullptr) << t;
    if (ok) ASSERT_EQ(show(a) + a.tm_zone + std::to_string(a.tm_gmtoff), show(b) + b.tm_zone + std::to_string(b.tm_gmtoff));
  }
}

TEST(ContLoctPure, LookupAndConversionOnGeneratedTables) {
  std::mt19937_64 g(2);
  for (int round = 0; round < 300; ++round) {
    std::vector<ContLoctZone> map;
    int64_t start = INT64_MIN, at = int64_t(g() % 1000000), prev = INT64_MIN, L, back_local;
    for (int n = 1 + int(g() % 40); n > 0; --n, start = at) {  // entries longer than four times any change
      at = n == 1 ? INT64_MAX : at + 60000 + int64_t(g() % 100000);
      map.push_back({start, at, int64_t(g() % 9) * 900 - 3600, int(g() % 2)});
    }
    const int count = int(map.size());
    for (int64_t t = count > 1 ? map[1].start - 30000 : 0, stop = t + 40000 * count; t < stop; t += 1 + g() % 29, prev = L) {
      int i = ContLoctFindZone(map.data(), count, t);
      ASSERT_TRUE(map[i].start <= t && t < map[i].end && ContLoctContinuousLocal(map.data(), count, i, t, &L) == 0);
      // What mktime gives for that wall time with the entry's offset, then back.
      int64_t back = ContLoctContinuousInverse(map.data(), count, i, L + map[i].offset);
      ContLoctContinuousLocal(map.data(), count, ContLoctFindZone(map.data(), count, back), back, &back_local);
      ASSERT_TRUE(back_local == L && std::abs(back - t) <= 1 && L >= prev) << t << " " << back;
    }
  }
}

}  // namespace
