// Continuous local time: the mode parameter, the trace, the entry points in
// each mode, and the old implementation kept for mode "old".
#include <cerrno>
#include <cstring>

#include "platform/contloct_internal.h"

using nuv::load_relaxed;
using nuv::store_relaxed;

extern "C" {

int PPCurrent = 0;
int PPBuffer = 0;
ContLoctTraceFunc ContLoctTrc = nullptr;
FILE *ContLoctTf = nullptr;
int TRACE = 1;
ContLoctParamFunc gparam = nullptr;

time_t Start_DoubleInterval = 0;
time_t End_DoubleInterval = 0;
int inLocTime = 0;
time_t lastTime = 0;

}  // extern "C"

namespace {

constexpr NUV_UTF16 kModeParam[] = u"zdate/DSTswitch_contloctime";
constexpr NUV_UTF16 kTraceParam[] = u"rdisp/TRACE";

struct tm static_result;
struct tm zero_tm;
char ctime_buffer[26];
NUV_UTF16 param_value[1024];

bool has_prefix(const NUV_UTF16 *s, const char *prefix) {
  for (; *prefix; ++s, ++prefix)
    if (*s != static_cast<NUV_UTF16>(*prefix)) return false;  // also stops at the terminator
  return true;
}

// Mode choices go to trace level 1 when they do not land on standard error,
// or when the host asked for more (rdisp/TRACE of 2 or more); else level 2.
int choice_level() {
  if (load_relaxed(ContLoctTf) != stderr) return 1;
  ContLoctParamFunc get = load_relaxed(gparam);
  const NUV_UTF16 *v = get ? get(kTraceParam) : nullptr;
  long n = 0;
  for (; v && *v >= u'0' && *v <= u'9' && n < 1000000; ++v) n = n * 10 + (*v - u'0');
  return n >= 2 ? 1 : 2;
}

// The prefix rules of the mode parameter.  Returns 1 for a value that
// matches nothing (it still selects the default).
int choose_mode(const NUV_UTF16 *value, int *mode) {
  const NUV_UTF16 *line;
  if (!value || has_prefix(value, "on")) {
    *mode = 1;
    line = u"contloctime: use default implementation.\n";
  } else if (has_prefix(value, "off")) {
    *mode = 3;
    line = u"contloctime: use native implementation.\n";
  } else if (has_prefix(value, "old")) {
    *mode = 2;
    line = u"contloctime: use old implementation.\n";
  } else {
    *mode = 1;
    return 1;
  }
  if (clt::trace_on(1)) clt::trace(choice_level(), line);
  return 0;
}

void set_mode(int mode) {
  store_relaxed(PPCurrent, mode);
  store_relaxed(PPBuffer, mode);
}

struct tm *zeroed(struct tm *result) {
  *result = zero_tm;
  return result;
}

// Old implementation: inside the doubled span [switch - step, switch + step)
// the time shown is start + (t - start) / 2, the first half read at half speed.
struct tm *old_localtime(const time_t *timer, struct tm *result) {
  time_t t = *timer;
  if (load_relaxed(inLocTime)) {
    fprintf(stderr, "Recursive call of localtime_cont at %ld\n", long(t));
    return zeroed(result);
  }
  store_relaxed(inLocTime, 1);
  store_relaxed(lastTime, t);
  time_t s = load_relaxed(Start_DoubleInterval), e = load_relaxed(End_DoubleInterval);
  bool inside = s <= t && t < e;
  if (!inside) {
    int r = IsDoubleInterval_GetInterval(t, &s, &e);
    if (r < 0) {
      errno = ERANGE;
      store_relaxed(inLocTime, 0);
      return zeroed(result);
    }
    if (r == 1) {
      store_relaxed(Start_DoubleInterval, s);
      store_relaxed(End_DoubleInterval, e);
      inside = true;
    }
  }
  if (inside) t = s + (t - s) / 2;
  struct tm *r = localtime_r(&t, result);
  store_relaxed(inLocTime, 0);
  return r;
}

time_t old_mktime(struct tm *tm) {
  time_t t = mktime(tm);
  struct tm check;
  if (!localtime_r(&t, &check)) {
    fprintf(stderr, "mktime_cont: got NULL from localtime(&t)\n");
    return 0;
  }
  time_t s, e;
  if (IsDoubleInterval_GetInterval(t, &s, &e) == 1 && t < s + (e - s) / 2) t = s + (t - s) * 2;
  return t;
}

int current_mode() {
  int m = load_relaxed(PPCurrent);
  return m ? m : getPPContTime();
}

// Bisects [low, high] for the first second whose daylight-saving flag
// differs from low's.
time_t first_flag_change(time_t low, time_t high, int low_dst) {
  while (high - low > 1) {
    time_t mid = low + (high - low) / 2;
    struct tm m;
    if (localtime_r(&mid, &m) && (m.tm_isdst > 0) == low_dst)
      low = mid;
    else
      high = mid;
  }
  return high;
}

}  // namespace

void clt::format_date(const struct tm *tm, Date &out) {
  char narrow[64];
  int n = snprintf(narrow, sizeof narrow, "%02d.%02d.%4d  %02d:%02d:%02d %s", tm->tm_mday, tm->tm_mon + 1,
                   tm->tm_year + 1900, tm->tm_hour, tm->tm_min, tm->tm_sec, tm->tm_isdst > 0 ? "dst" : "non dst");
  if (n < 0) n = 0;
  if (n > 63) n = 63;
  for (int i = 0; i < n; ++i) out.text[i] = static_cast<unsigned char>(narrow[i]);
  out.text[n] = 0;
}

extern "C" {

void ContLoct_Init(const NUV_UTF16 *(*paramFunction)(const NUV_UTF16 *name)) {
  store_relaxed(gparam, paramFunction);
  set_mode(0);
  time_t now = time(nullptr);
  localtime_cont(&now);
}

void ContLoctRegisterTrace(int (*trace)(FILE *traceFile, const NUV_UTF16 *format, ...), FILE *traceFile) {
  store_relaxed(ContLoctTrc, trace);
  store_relaxed(ContLoctTf, traceFile);
}

void ContLoctSetTraceLevel(int level) { store_relaxed(TRACE, level); }

int ContLoctSetParam(const NUV_UTF16 *name, const NUV_UTF16 *value) {
  int mode;
  int rc = choose_mode(value, &mode);
  set_mode(mode);
  return rc;
}

int ContLoctTestParam(const NUV_UTF16 *name, const NUV_UTF16 *value) { return 0; }

NUV_UTF16 *ContLoctGetParam(const NUV_UTF16 *name) {
  static const char *const words[] = {"on", "on", "old", "off", "utc"};
  int m = load_relaxed(PPCurrent);
  const char *w = (m >= 0 && m <= 4) ? words[m] : "on";
  int i = 0;
  for (; w[i]; ++i) param_value[i] = static_cast<NUV_UTF16>(w[i]);
  param_value[i] = 0;
  return param_value;
}

int getPPContTime(void) {
  int m = load_relaxed(PPCurrent);
  if (m) return m;
  ContLoctParamFunc get = load_relaxed(gparam);
  choose_mode(get ? get(kModeParam) : nullptr, &m);
  set_mode(m);
  return m;
}

long ContLoctGetTimeZoneOffset(time_t t) {
  if (t == 0) t = time(nullptr);
  clt::ensure_table();
  int i = ContLoctGetTimezoneIndex(t);
  return i >= 0 ? long(cltZoneMap[i].offset) : 0;
}

struct tm *ContLoctLocaltimeCont_R(const time_t *timer, struct tm *result) {
  if (!result) {
    clt::trace(1, u"%s: result pointer is NULL", u"ContLoctLocaltimeCont_R");
    errno = EINVAL;
    return nullptr;
  }
  if (!timer) return zeroed(result);
  time_t t = *timer;
  if (t == 0) return gmtime_r(&t, result);
  clt::ensure_table();
  int i = clt::trace_on(3) ? ContLoctGetTimezoneIndex(t) : clt::find_zone(t);
  if (i < 0) {
    clt::trace(1, u"ContLoctLocaltimeCont_R: No time zone information, switch to UTC\n");
    if (!gmtime_r(&t, result)) return nullptr;
    result->tm_isdst = 0;
    return result;
  }
  int64_t local;
  if (ContLoctContinuousLocal(cltZoneMap, cltZoneMapTop, i, t, &local) < 0) {
    errno = EOVERFLOW;
    return nullptr;
  }
  if (!ContLoctBreakDown(local, result)) return nullptr;
  result->tm_isdst = cltZoneMap[i].isDst;
  if (clt::trace_on(2)) {
    struct tm g, n;
    clt::Date dg, dc, dn;
    if (gmtime_r(&t, &g) && localtime_r(&t, &n)) {
      clt::format_date(&g, dg);
      clt::format_date(result, dc);
      clt::format_date(&n, dn);
      clt::trace(2, u"Time: %ld, UTC %s - local continous %s - local native %s\n", long(t), dg.text, dc.text, dn.text);
    }
  }
  return result;
}

time_t ContLoctMktime(struct tm *tm) {
  if (!tm) {
    errno = EINVAL;
    return -1;
  }
  struct tm input = *tm;
  int saved = errno;
  errno = 0;
  time_t t = mktime(tm);
  if (t == -1 && errno != 0) return -1;
  errno = saved;
  clt::ensure_table();
  int i = ContLoctGetTimezoneIndex(t);
  if (i < 0) {
    clt::trace(1, u"ContLoctMktime: No time zone information\n");
    return t;
  }
  t = ContLoctContinuousInverse(cltZoneMap, cltZoneMapTop, i, t);
  if (clt::trace_on(2)) {
    struct tm back;
    clt::Date din, dback;
    if (ContLoctLocaltimeCont_R(&t, &back)) {
      clt::format_date(&input, din);
      clt::format_date(&back, dback);
      clt::trace(2, u"mktime: %ld,  input %s - reverse check %s\n", long(t), din.text, dback.text);
    }
  }
  return t;
}

struct tm *localtime_cont_r(const time_t *timer, struct tm *result) {
  if (!result) return ContLoctLocaltimeCont_R(timer, result);
  if (!timer) return zeroed(result);
  switch (current_mode()) {
    case 2:
      return old_localtime(timer, result);
    case 3:
    case 4:
      return localtime_r(timer, result);
    default:
      return ContLoctLocaltimeCont_R(timer, result);
  }
}

struct tm *localtime_cont(const time_t *timer) {
  if (timer && (current_mode() == 3 || current_mode() == 4)) return localtime(timer);
  return localtime_cont_r(timer, &static_result);
}

char *ctime_cont_r(const time_t *timer, char *buffer) {
  if (!buffer) {
    errno = EINVAL;
    return nullptr;
  }
  struct tm tm;
  if (!localtime_cont_r(timer, &tm)) return nullptr;
  return asctime_r(&tm, buffer);
}

char *ctime_cont(const time_t *timer) { return ctime_cont_r(timer, ctime_buffer); }

time_t mktime_cont(struct tm *tm) {
  if (!tm) {
    errno = EINVAL;
    return -1;
  }
  switch (current_mode()) {
    case 2:
      return old_mktime(tm);
    case 3:
    case 4:
      return mktime(tm);
    default:
      return ContLoctMktime(tm);
  }
}

int IsDoubleInterval_GetInterval(time_t t, time_t *start, time_t *end) {
  if (t < 7201) return 0;
  struct tm a, b;
  if (!localtime_r(&t, &a)) return -1;
  time_t u = a.tm_isdst > 0 ? t + 7200 : t - 7200;
  if (!localtime_r(&u, &b)) return -1;
  if ((a.tm_isdst > 0) == (b.tm_isdst > 0)) return 0;
  // Only a flag going off (dst before, standard after) doubles an hour.
  time_t low = t < u ? t : u, high = t < u ? u : t;
  struct tm lo;
  if (!localtime_r(&low, &lo) || lo.tm_isdst <= 0) return 0;
  time_t sw = first_flag_change(low, high, 1);
  struct tm after;
  if (!localtime_r(&sw, &after)) return -1;
  time_t step = after.tm_gmtoff < lo.tm_gmtoff ? lo.tm_gmtoff - after.tm_gmtoff : 0;
  if (step == 0) return 0;
  if (start) *start = sw - step;
  if (end) *end = sw + step;
  return t >= sw - step && t < sw + step ? 1 : 0;
}

int IsDoubleInterval(time_t t) {
  time_t s, e;
  return IsDoubleInterval_GetInterval(t, &s, &e);
}

void GetDoubleInterval(time_t *start, time_t *end) {
  if (start) *start = load_relaxed(Start_DoubleInterval);
  if (end) *end = load_relaxed(End_DoubleInterval);
}

struct tm *R_localtime(const time_t *timer, struct tm *result) { return localtime_r(timer, result); }
struct tm *R_gmtime(const time_t *timer, struct tm *result) { return gmtime_r(timer, result); }

}  // extern "C"
