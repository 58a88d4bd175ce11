// Continuous local time in real zones, each in its own process with TZ set.
// Expected values come from glibc's answers and the formulas, worked here.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>

#include "platform/contloct.h"
#include "support/child_process.h"

namespace {

using nuvtest::ChildReport;
using nuvtest::in_child;
using S = std::string;

std::vector<S> lines;  // trace lines of the running child
int record(FILE *, const NUV_UTF16 *format, ...) {
  NUV_UTF16 buf[1024];
  va_list ap;
  va_start(ap, format);
  int n = vsnprintfU16(buf, 1024, format, ap);
  va_end(ap);
  S s;
  for (int i = 0; i < n && buf[i]; ++i) s += char(buf[i]);
  lines.push_back(s);
  return n;
}

void zone(const char *tz) {
  setenv("TZ", tz, 1);
  tzset();
}
struct tm native(time_t t) {
  struct tm l{};
  localtime_r(&t, &l);
  return l;
}
bool same(time_t a, time_t b) {
  struct tm x = native(a), y = native(b);
  return x.tm_gmtoff == y.tm_gmtoff && (x.tm_isdst > 0) == (y.tm_isdst > 0);
}
time_t switch_in(time_t lo, time_t hi) {  // first second after lo in another state; lo and hi differ
  for (time_t from = lo; hi - lo > 1;) {
    time_t m = lo + (hi - lo) / 2;
    (same(from, m) ? lo : hi) = m;
  }
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
  snprintf(b, sizeof b, "%d-%02d-%02d %02d:%02d:%02d dst%d wd%d yd%d", r.tm_year + 1900, r.tm_mon + 1, r.tm_mday,
           r.tm_hour, r.tm_min, r.tm_sec, r.tm_isdst, r.tm_wday, r.tm_yday);
  return b;
}
S at(time_t t) { return " at " + std::to_string(t); }

// The formulas on glibc's offsets; the switches within four hours decide.
struct tm expected(time_t t) {
  int64_t o = -native(t).tm_gmtoff, L = t - o;
  if (!same(t - 14400, t)) {
    time_t s = switch_in(t - 14400, t);
    int64_t d = o + native(s - 1).tm_gmtoff;
    if (d > 0 && t < s + d) L += ((s - o + d) - L) / 2;
  }
  if (!same(t, t + 14400)) {
    time_t e = switch_in(t, t + 14400);
    int64_t d2 = -native(e).tm_gmtoff - o;
    if (d2 > 0 && t > e - d2) L -= (d2 + (o - e) + L) / 2;
  }
  time_t l = t == 0 ? 0 : L;
  struct tm r{};
  gmtime_r(&l, &r);
  r.tm_isdst = t == 0 ? 0 : native(t).tm_isdst;
  return r;
}
int64_t wall(time_t t) {
  struct tm r;
  localtime_cont_r(&t, &r);
  return timegm(&r);
}
void check_time(ChildReport &r, time_t t) {
  struct tm got{}, want = expected(t);
  bool ok = localtime_cont_r(&t, &got) != nullptr;
  r.check(ok && show(got) == show(want), show(got) + " != " + show(want) + at(t));
}
// Every second around a backward switch: never back, half speed inside, native outside.
void check_window(ChildReport &r, time_t e) {
  int64_t d = native(e - 1).tm_gmtoff - native(e).tm_gmtoff, prev = INT64_MIN;
  r.check(d > 0, "no backward switch" + at(e));
  for (time_t t = e - d - 3; t < e + d + 3; ++t) {
    check_time(r, t);
    int64_t w = wall(t);
    r.check(w >= prev, "went back" + at(t));
    // Truncation lets the switch second share its wall time with both neighbours.
    if (t >= e - d && t + 2 <= e + d && t != e - 1) r.check(wall(t + 2) - w == 1, "not half speed" + at(t));
    struct tm n = native(t);
    if (t < e - d || t >= e + d) r.check(w == timegm(&n), "not native" + at(t));
    prev = w;
  }
}

struct Zone {
  const char *tz;
  time_t fall;  // a backward switch, 0 for none
  const char *walls;  // wall clock at fall - d, fall, fall + d
};
class RealZone : public testing::TestWithParam<Zone> {};

TEST_P(RealZone, FormulasOnGlibcAnswersAtEverySwitchAndRandomTimes) {
  Zone z = GetParam();
  EXPECT_EQ(in_child([&](ChildReport &r) {
              zone(z.tz);
              ContLoctBuildTable();
              const time_t from = -2145916800, to = time(nullptr) + 157680000;  // 1902 .. horizon
              std::vector<time_t> sw = glibc_switches(from, to), starts;
              for (int i = 1; i < cltZoneMapTop; ++i)
                if (cltZoneMap[i].start >= from) starts.push_back(cltZoneMap[i].start);
              r.check(starts == sw, "table starts differ from glibc switches: " + std::to_string(starts.size()) +
                                        " vs " + std::to_string(sw.size()));
              std::mt19937_64 g(15);
              for (time_t s : sw)
                for (int k = 0; k < 3; ++k) check_time(r, s + time_t(g() % 14600) - 7300);
              for (int k = 0; k < 20000; ++k) check_time(r, from + time_t(g() % uint64_t(to - from)));
              if (!z.fall) return r.check(cltZoneMapTop == 1, "more than one entry"), void();
              check_window(r, z.fall);
              int64_t d = native(z.fall - 1).tm_gmtoff - native(z.fall).tm_gmtoff;
              char b[64];
              time_t w[3] = {time_t(wall(z.fall - d)), time_t(wall(z.fall)), time_t(wall(z.fall + d))};
              struct tm x[3];
              for (int i = 0; i < 3; ++i) gmtime_r(&w[i], &x[i]);
              snprintf(b, sizeof b, "%02d:%02d %02d:%02d %02d:%02d", x[0].tm_hour, x[0].tm_min, x[1].tm_hour,
                       x[1].tm_min, x[2].tm_hour, x[2].tm_min);
              r.check(S(b) == z.walls, S(b) + " at the window's start, switch, end");
            }),
            "");
}
INSTANTIATE_TEST_SUITE_P(
    Zones, RealZone,
    testing::Values(Zone{"Europe/Berlin", 1792890000, "02:00 02:30 03:00"},
                    Zone{"America/New_York", 1793512800, "01:00 01:30 02:00"},
                    Zone{"Australia/Lord_Howe", 1775314800, "01:30 01:45 02:00"},
                    Zone{"Europe/Moscow", 1414274400, "01:00 01:30 02:00"}, Zone{"UTC", 0, ""},
                    Zone{"JST-9", 0, ""}),
    [](const auto &i) { return S(i.param.tz).substr(S(i.param.tz).rfind('/') + 1).substr(0, 3); });

TEST(ContLoct, MoscowOffsetOnlyChangesAreSwitchesAndSpringKeepsItsGap) {
  EXPECT_EQ(in_child([](ChildReport &r) {
              zone("Europe/Moscow");
              ContLoctBuildTable();
              // 2011 and 2014 changed the offset with the flag off on both sides.
              for (time_t s : {time_t(1301180400), time_t(1414274400)}) {
                r.check(native(s - 1).tm_isdst == native(s).tm_isdst, "flag changed" + at(s));
                int i = ContLoctGetTimezoneIndex(s);
                r.check(i > 0 && cltZoneMap[i].start == s && ContLoctGetTimeZoneOffset(s) == -native(s).tm_gmtoff,
                        "no entry starting" + at(s));
              }
              zone("Europe/Berlin");  // a second table in the same process is a rebuild
              ContLoctBuildTable();
              const time_t spring = 1774746000;
              r.check(wall(spring) - wall(spring - 1) == 3601, "spring switch is not a one-hour gap");
              for (time_t t = spring - 4000; t < spring + 4000; t += 7) check_time(r, t);
            }),
            "");
}

TEST(ContLoct, MktimeContIsTheInverseOverWindowsAndSamples) {
  EXPECT_EQ(in_child([](ChildReport &r) {
              for (auto [tz, e] : {std::pair{"Europe/Berlin", time_t(1792890000)}, {"Australia/Lord_Howe", 1775314800}}) {
                zone(tz);
                ContLoctBuildTable();
                int64_t d = native(e - 1).tm_gmtoff - native(e).tm_gmtoff;
                std::mt19937_64 g(7);
                std::vector<time_t> ts;  // the window and its edges, then times far from any switch
                for (time_t t = e - d - 2; t < e + d + 2; ++t) ts.push_back(t);
                for (int k = 0; k < 3000; ++k)
                  if (time_t t = 86400 + time_t(g() % 2000000000); same(t - 14400, t + 14400)) ts.push_back(t);
                for (time_t t : ts) {
                  struct tm tm{}, copy;
                  localtime_cont_r(&t, &tm);
                  copy = tm;
                  time_t n = mktime(&copy), want = n;  // the inverse formula on glibc's mktime
                  if (e - d < n && n < e) want = 2 * n - e + d;
                  if (e <= n && n < e + d) want = e + 2 * (n - e) - d;
                  copy = tm;
                  time_t got = mktime_cont(&copy);
                  struct tm back{};
                  localtime_cont_r(&got, &back);
                  bool inside = t >= e - d && t < e + d;
                  r.check(got == want && (inside || got == t), "mktime_cont " + std::to_string(got) + at(t));
                  // The last second before the switch shares its wall time with the switch second.
                  if (got == e && t == e - 1) back.tm_isdst = tm.tm_isdst;
                  r.check(show(back) == show(tm), show(back) + " != " + show(tm) + at(t));
                }
              }
            }),
            "");
}

struct ModeCase {
  const char16_t *value;
  int mode, rc;
  const char *line;
};
class ModeParam : public testing::TestWithParam<ModeCase> {};
const char16_t *param_value;
const char16_t *trace_param = nullptr;
const NUV_UTF16 *get_param(const NUV_UTF16 *name) {
  return S(name, name + 5) == S("zdate") ? param_value : trace_param;
}
S ascii(const NUV_UTF16 *s) { return S(s, s + std::char_traits<char16_t>::length(s)); }

TEST_P(ModeParam, PrefixRulesWithTheirTraceLines) {
  ModeCase c = GetParam();
  EXPECT_EQ(in_child([&](ChildReport &r) {
              ContLoctRegisterTrace(record, stdout);
              r.check(ContLoctSetParam(u"zdate/DSTswitch_contloctime", c.value) == c.rc, "rc");
              r.check(PPCurrent == c.mode && PPBuffer == c.mode, "mode " + std::to_string(PPCurrent));
              const char *word[] = {"", "on", "old", "off"};
              r.check(ascii(ContLoctGetParam(u"zdate/DSTswitch_contloctime")) == word[c.mode], "word");
              param_value = c.value;  // the same rules through the call-back
              ContLoct_Init(get_param);
              r.check(getPPContTime() == c.mode && ContLoctTestParam(nullptr, nullptr) == 0, "call-back mode");
              std::vector<S> want = c.line ? std::vector<S>{c.line, c.line} : std::vector<S>{};
              r.check(lines == want, "lines " + std::to_string(lines.size()));
              // On standard error a choice needs level 2, or rdisp/TRACE of 2 or more.
              lines.clear();
              ContLoctRegisterTrace(record, stderr);
              for (const char16_t *tp : {u"1", u"2"}) {
                trace_param = tp;
                ContLoctSetParam(nullptr, c.value);
              }
              r.check(lines.size() == (c.line ? 1u : 0u), "stderr level rule");
            }),
            "");
}
INSTANTIATE_TEST_SUITE_P(
    Values, ModeParam,
    testing::Values(ModeCase{nullptr, 1, 0, "contloctime: use default implementation.\n"},
                    ModeCase{u"on", 1, 0, "contloctime: use default implementation.\n"},
                    ModeCase{u"onwards", 1, 0, "contloctime: use default implementation.\n"},
                    ModeCase{u"off", 3, 0, "contloctime: use native implementation.\n"},
                    ModeCase{u"offline", 3, 0, "contloctime: use native implementation.\n"},
                    ModeCase{u"old", 2, 0, "contloctime: use old implementation.\n"},
                    ModeCase{u"oldish", 2, 0, "contloctime: use old implementation.\n"}, ModeCase{u"of", 1, 1, nullptr},
                    ModeCase{u"o", 1, 1, nullptr}, ModeCase{u"", 1, 1, nullptr}, ModeCase{u"xyz", 1, 1, nullptr}));

TEST(ContLoct, SpecialCasesAndTheirTraceLines) {
  EXPECT_EQ(in_child([](ChildReport &r) {
              zone("Europe/Berlin");
              ContLoctRegisterTrace(record, stdout);
              time_t e = 1792890000, zero = 0, high = ContLoctHighTime;
              struct tm tm, g0;
              r.check(!localtime_cont_r(&e, nullptr) && lines.back() == "ContLoctLocaltimeCont_R: result pointer is NULL",
                      "null result");
              memset(&tm, 0x55, sizeof tm);
              r.check(localtime_cont_r(nullptr, &tm) == &tm && tm.tm_year == 0 && tm.tm_mday == 0, "null timer");
              gmtime_r(&zero, &g0);
              r.check(show(*localtime_cont(&zero)) == show(g0), "time 0 is not gmtime");
              errno = 0;
              r.check(!localtime_cont_r(&high, &tm) && errno == EOVERFLOW, "overflow");
              r.check(S(ctime_cont(&e)) == "Sun Oct 25 02:30:00 2026\n" && !ctime_cont_r(&e, nullptr), "ctime_cont");
              char buf[26];
              r.check(ctime_cont_r(&e, buf) == buf && S(buf) == "Sun Oct 25 02:30:00 2026\n", "ctime_cont_r");
              ContLoctSetTraceLevel(2);
              lines.clear();
              localtime_cont_r(&e, &tm);
              r.check(lines.size() == 1 && lines[0] == "Time: 1792890000, UTC 25.10.2026  01:00:00 non dst - local "
                                                       "continous 25.10.2026  02:30:00 non dst - local native "
                                                       "25.10.2026  02:00:00 non dst\n",
                      "conversion line");
              lines.clear();
              mktime_cont(&tm);
              r.check(lines.size() == 2 && lines[1] == "mktime: 1792890000,  input 25.10.2026  02:30:00 non dst - "
                                                       "reverse check 25.10.2026  02:30:00 non dst\n",
                      "mktime line");
              // A table that ends: later times have no zone.
              ContLoctZone two[2] = {{INT64_MIN, 1000000, -3600, 0}, {1000000, 2000000, -7200, 1}};
              cltZoneMap = two;
              cltZoneMapTop = 2;
              ContLoctSetTraceLevel(1);
              lines.clear();
              time_t late = 3000000;
              struct tm g;
              gmtime_r(&late, &g);
              r.check(show(*localtime_cont(&late)) == show(g), "outside the table is not UTC");
              r.check(mktime_cont(&g) == mktime(&g), "mktime outside the table");
              r.check(lines == std::vector<S>{"ContLoctLocaltimeCont_R: No time zone information, switch to UTC\n",
                                              "ContLoctMktime: No time zone information\n"},
                      "outside lines");
              r.check(ContLoctGetTimezoneIndex(1000000) == 1 && ContLoctGetTimezoneIndex(999999) == 0 &&
                          ContLoctGetTimezoneIndex(2000000) == -1,
                      "index edges");
            }),
            "");
}

TEST(ContLoct, NativeAndOldModes) {
  EXPECT_EQ(in_child([](ChildReport &r) {
              zone("Europe/Berlin");
              const time_t e = 1792890000, s = e - 3600;
              ContLoctSetParam(nullptr, u"off");
              for (time_t t = s - 100; t < e + 3700; t += 13) {
                struct tm tm{}, n = native(t);
                r.check(show(*localtime_cont_r(&t, &tm)) == show(n) && mktime_cont(&n) == t, "native" + at(t));
              }
              ContLoctSetParam(nullptr, u"old");
              r.check(IsDoubleInterval(100) == 0 && IsDoubleInterval(s - 1) == 0 && IsDoubleInterval(e + 3600) == 0,
                      "outside the doubled hour");
              for (time_t t = s - 100; t < e + 3700; t += 7) {
                bool inside = t >= s && t < e + 3600;
                struct tm want = native(inside ? s + (t - s) / 2 : t), tm = *localtime_cont(&t);
                r.check(IsDoubleInterval(t) == inside && show(tm) == show(want), "old" + at(t));
                r.check(mktime_cont(&tm) == (inside ? s + (t - s) / 2 * 2 : t), "old mktime" + at(t));
              }
              time_t a, b;
              GetDoubleInterval(&a, &b);
              r.check(a == s && b == e + 3600, "cached interval");
              // A call made while another runs is refused, on standard error.
              int fd[2];
              r.check(pipe(fd) == 0 && dup2(fd[1], 2) == 2, "pipe");
              inLocTime = 1;
              struct tm *z = localtime_cont(&e);
              fflush(stderr);
              close(fd[1]);
              close(2);
              char buf[100] = {};
              ssize_t n = read(fd[0], buf, 99);
              r.check(n > 0 && S(buf) == "Recursive call of localtime_cont at 1792890000\n" &&
                          z->tm_year == 0 && z->tm_hour == 0,
                      S("recursion guard: ") + buf);
            }),
            "");
}

// A compiled zone with three switches a year since 1900: forward, offset only, back by two hours.
S compile_many_switch_zone() {
  char dir[] = "/tmp/nuvclt.XXXXXX";
  if (!mkdtemp(dir)) return "";
  std::ofstream(S(dir) + "/many.zi") << "Rule T 1900 2040 - Mar 1 2:00 1:00 D\n"
                                        "Rule T 1900 2040 - Jun 1 2:00 2:00 E\n"
                                        "Rule T 1900 2040 - Oct 1 2:00 0 S\n"
                                        "Zone Test/Many 1:00 T T%sT\n";
  S cmd = "zic -d " + S(dir) + " " + dir + "/many.zi 2>/dev/null";
  return std::system(cmd.c_str()) == 0 ? S(dir) + "/Test/Many" : "";
}
int grow_calls, fail_at;
void *failing_grow(void *old, size_t bytes) {
  if (++grow_calls == fail_at) return nullptr;
  return old ? realloc(old, bytes) : malloc(bytes);
}

TEST(ContLoct, CompiledZoneGrowsTheTableAndFindsEverySwitch) {
  S path = compile_many_switch_zone();
  ASSERT_NE(path, "") << "zic failed";
  EXPECT_EQ(in_child([&](ChildReport &r) {
              zone(path.c_str());
              const time_t to = time(nullptr) + 157680000;
              std::vector<time_t> sw = glibc_switches(-2207520000, to), starts;
              r.check(sw.size() > 390, "few switches: " + std::to_string(sw.size()));
              r.check(ContLoctBuildTable() == 0 && cltZoneMapSize == 450 && cltZoneMap != clt_zone_map, "growth");
              for (int i = 1; i < cltZoneMapTop; ++i) starts.push_back(cltZoneMap[i].start);
              r.check(starts == sw, "switches differ");
              std::mt19937_64 g(3);
              for (int k = 0; k < 100000; ++k) {
                time_t t = -2300000000 + time_t(g() % 4600000000);
                r.check(ContLoctGetTimezoneIndex(t) == ContLoctFindZone(cltZoneMap, cltZoneMapTop, t), "index" + at(t));
              }
              for (int i = 0; i < cltZoneMapTop; ++i) {
                time_t t = i ? cltZoneMap[i].start : -2207520000;
                r.check(cltZoneMap[i].offset == -native(t).tm_gmtoff && cltZoneMap[i].isDst == native(t).tm_isdst,
                        "entry " + std::to_string(i));
              }
              check_window(r, sw[sw.size() - 1 - (sw.size() - 3) % 3]);  // an October switch
              // Refused growth closes the table where it stands.
              ContLoctRegisterTrace(record, stdout);
              for (int f : {1, 2}) {
                grow_calls = 0, fail_at = f;
                ContLoctSetTableAllocator(failing_grow);
                lines.clear();
                r.check(ContLoctBuildTable() == -1 && cltZoneMapTop == (f == 1 ? 200 : 300) &&
                            cltZoneMap[cltZoneMapTop - 1].end == ContLoctHighTime &&
                            lines == std::vector<S>{"localtime_cont: error creating time table.\n"},
                        "refused growth " + std::to_string(f));
              }
            }),
            "");
  std::system(("rm -r " + path.substr(0, path.size() - 10)).c_str());
}

// The pure parts on generated tables and times, against gmtime_r and a linear search.
TEST(ContLoctPure, BreakDownMatchesGmtime) {
  std::mt19937_64 g(1);
  for (int k = 0; k < 300000; ++k) {
    int64_t t = k < 1000   ? INT64_MAX - k  // where the year no longer fits
                : k < 3000 ? (k % 2 ? 1 : -1) * int64_t(12000000) * 86400 + int64_t(k - 2000) * 86399  // path edges
                           : int64_t(g()) >> (g() % 64);
    struct tm a{}, b{};
    bool ok = ContLoctBreakDown(t, &a) != nullptr;
    time_t tt = t;
    ASSERT_EQ(ok, gmtime_r(&tt, &b) != nullptr) << t;
    if (ok) ASSERT_EQ(show(a) + a.tm_zone + std::to_string(a.tm_gmtoff), show(b) + b.tm_zone + std::to_string(b.tm_gmtoff)) << t;
  }
}

TEST(ContLoctPure, LookupAndConversionOnGeneratedTables) {
  std::mt19937_64 g(2);
  for (int round = 0; round < 300; ++round) {
    std::vector<ContLoctZone> map;
    int64_t start = INT64_MIN, at = int64_t(g() % 1000000);
    for (int n = 1 + int(g() % 40); n > 0; --n) {  // entries longer than four times any change
      int64_t end = n == 1 ? INT64_MAX : at + 60000 + int64_t(g() % 100000);
      map.push_back({start, end, int64_t(g() % 9) * 900 - 3600, int(g() % 2)});
      start = at = end;
    }
    int count = int(map.size());
    int64_t prev_local = INT64_MIN;
    for (int64_t t = map.size() > 1 ? map[1].start - 30000 : 0, stop = t + 40000 * count; t < stop; t += 1 + g() % 29) {
      int lin = 0;
      while (lin + 1 < count && map[lin + 1].start <= t) ++lin;
      int i = ContLoctFindZone(map.data(), count, t);
      ASSERT_EQ(i, lin) << t;
      int64_t L, back_local;
      ASSERT_EQ(ContLoctContinuousLocal(map.data(), count, i, t, &L), 0);
      // What mktime gives for that wall time with the entry's flag, then back.
      int64_t back = ContLoctContinuousInverse(map.data(), count, i, L + map[i].offset);
      int j = ContLoctFindZone(map.data(), count, back);
      ASSERT_EQ(ContLoctContinuousLocal(map.data(), count, j, back, &back_local), 0);
      ASSERT_TRUE(back_local == L && std::abs(back - t) <= 1) << t << " " << back;
      ASSERT_GE(L, prev_local) << "went back at " << t;
      prev_local = L;
    }
  }
}

}  // namespace
