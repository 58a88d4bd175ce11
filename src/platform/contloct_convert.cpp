// The conversion proper: functions of a zone table and a time, nothing else,
// so they are exact to test and cheap to call.
#include <cerrno>
#include <climits>

#include "platform/contloct.h"

namespace {

constexpr int64_t kLow = INT64_MIN;
constexpr int64_t kHigh = INT64_MAX;

inline int64_t floor_div(int64_t a, int64_t b) {
  int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

}  // namespace

extern "C" {

const time_t ContLoctLowTime = kLow;
const time_t ContLoctHighTime = kHigh;

// Last entry whose start is <= t; the table is contiguous, so that entry
// holds t unless t is at or past its end (only a closed, finite last end).
// Branch-free halving: random times do not mispredict.
int ContLoctFindZone(const ContLoctZone *map, int count, int64_t t) {
  if (count <= 0 || t < map[0].start) return -1;
  const ContLoctZone *base = map;
  int n = count;
  while (n > 1) {
    int half = n / 2;
    base = (base[half].start <= t) ? base + half : base;
    n -= half;
  }
  if (t >= base->end && base->end != kHigh) return -1;
  return static_cast<int>(base - map);
}

// Wall-clock seconds (local time counted like UTC seconds) of t in entry i.
// Before a backward switch at E by d2 seconds, [E - d2, E) runs at half
// speed; after it, [E, E + d) does, so together they cover the repeated span
// once.  Returns -1 when the result does not fit.
int ContLoctContinuousLocal(const ContLoctZone *map, int count, int i, int64_t t, int64_t *local) {
  const ContLoctZone &z = map[i];
  const int64_t o = z.offset;
  int64_t L;
  if (__builtin_sub_overflow(t, o, &L)) return -1;
  if (z.start != kLow && i > 0) {
    int64_t d = o - map[i - 1].offset;
    if (d > 0 && t < z.start + d) L = L + ((z.start - o + d) - L) / 2;
  }
  if (z.end != kHigh && i + 1 < count) {
    int64_t d2 = map[i + 1].offset - o;
    if (d2 > 0 && t > z.end - d2) L = L - (d2 + (o - z.end) + L) / 2;
  }
  *local = L;
  return 0;
}

// Inverse of the above for t = the native mktime of a wall time in entry i:
// a wall time inside a half-speed span came from twice as far from its edge.
int64_t ContLoctContinuousInverse(const ContLoctZone *map, int count, int i, int64_t t) {
  const ContLoctZone &z = map[i];
  const int64_t o = z.offset;
  if (z.start != kLow && i > 0) {
    int64_t d = o - map[i - 1].offset;
    if (d > 0 && z.start <= t && t < z.start + d) return z.start + 2 * (t - z.start) - d;
  }
  if (z.end != kHigh && i + 1 < count) {
    int64_t d2 = map[i + 1].offset - o;
    if (d2 > 0 && z.end - d2 < t && t <= z.end) return 2 * t - z.end + d2;
  }
  return t;
}

// gmtime_r without the C library's lock.  Times within some 30000 years of
// the epoch take a 32-bit path (Neri and Schneider's Euclidean-affine
// calendar, years starting in March, shifted to stay unsigned); the rest the
// era/day-of-era method.  Both are Gregorian throughout, as gmtime_r is.
struct tm *ContLoctBreakDown(int64_t seconds, struct tm *r) {
  constexpr uint32_t kShift = 82, kBase = 719468 + 146097 * kShift;  // day 0 is March 1 of year -32800
  constexpr int64_t kFastLimit = int64_t(12000000) * 86400;
  if (seconds > -kFastLimit && seconds < kFastLimit) {
    const uint64_t u = uint64_t(seconds + int64_t(kBase) * 86400);
    const uint32_t n = uint32_t(u / 86400), sod = uint32_t(u - uint64_t(n) * 86400);
    const uint32_t n1 = 4 * n + 3, century = n1 / 146097, nc = n1 % 146097 / 4;
    const uint64_t p2 = uint64_t(2939745) * (4 * nc + 3);
    const uint32_t doy = uint32_t(p2) / 2939745 / 4;  // from March 1
    const uint32_t n3 = 2141 * doy + 197913, month = n3 >> 16;
    const uint32_t jan_feb = doy >= 306, year = 100 * century + uint32_t(p2 >> 32) + jan_feb;
    const bool leap = (year & (year % 100 ? 3 : 15)) == 0;  // the shift keeps the year mod 400
    r->tm_year = int(year) - int(400 * kShift) - 1900;
    r->tm_mon = int(jan_feb ? month - 13 : month - 1);
    r->tm_mday = int((n3 & 0xFFFF) / 2141 + 1);
    r->tm_yday = int(jan_feb ? doy - 306 : doy + 59 + leap);
    r->tm_wday = int((n + 3) % 7);  // kBase is 1 mod 7, and day 0 of 1970 a Thursday
    r->tm_hour = int(sod / 3600);
    r->tm_min = int(sod / 60 % 60);
    r->tm_sec = int(sod % 60);
    r->tm_isdst = 0;
    r->tm_gmtoff = 0;
    r->tm_zone = "GMT";
    return r;
  }
  int64_t days = floor_div(seconds, 86400);
  int64_t sod = seconds - days * 86400;
  int64_t year;
  uint32_t doy, month, mday;  // doy counts from March 1; month 3..14
  {
    int64_t z = days + 719468;  // days since 0000-03-01
    int64_t era = floor_div(z, 146097);
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    doy = uint32_t(doe - (365 * yoe + yoe / 4 - yoe / 100));
    uint32_t mp = (5 * doy + 2) / 153;
    month = mp + 3;
    mday = doy - (153 * mp + 2) / 5 + 1;
    year = yoe + era * 400;
  }
  const bool jan_feb = doy >= 306;
  year += jan_feb;
  if (year - 1900 > INT_MAX || year - 1900 < INT_MIN) {
    errno = EOVERFLOW;
    return nullptr;
  }
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  r->tm_year = static_cast<int>(year - 1900);
  r->tm_mon = static_cast<int>(jan_feb ? month - 13 : month - 1);
  r->tm_mday = static_cast<int>(mday);
  r->tm_yday = static_cast<int>(jan_feb ? doy - 306 : doy + 59 + leap);
  r->tm_wday = static_cast<int>(days + 4 - floor_div(days + 4, 7) * 7);
  r->tm_hour = static_cast<int>(sod / 3600);
  r->tm_min = static_cast<int>(sod / 60 % 60);
  r->tm_sec = static_cast<int>(sod % 60);
  r->tm_isdst = 0;
  r->tm_gmtoff = 0;
  r->tm_zone = "GMT";
  return r;
}

}  // extern "C"
