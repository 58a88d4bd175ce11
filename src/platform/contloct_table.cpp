// The zone table: every interval between two switches of the C library's
// local time, from 1900 to five years past the build, found by probing
// localtime_r.  A switch is a change of the daylight-saving flag or of the UTC
// offset, so each entry has exactly one offset (zones such as Moscow changed
// their offset without touching the flag).
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/contloct_internal.h"

namespace {

constexpr time_t kTableStart = -2207520000;  // 1900-01-18 00:00:00 UTC
constexpr time_t kStep = 2592000;            // 30 days
constexpr time_t kHorizon = 157680000;       // five years of 365 days

void *default_grow(void *old, size_t bytes) { return old ? std::realloc(old, bytes) : std::malloc(bytes); }
void *(*grow_fn)(void *, size_t) = default_grow;
std::atomic<bool> table_ready{false};

// What the probe compares: the flag and the offset at one second.
struct ZoneState {
  int isDst;
  long gmtoff;
  bool operator==(const ZoneState &) const = default;
};

bool probe(time_t t, ZoneState *s) {
  struct tm lt;
  if (!localtime_r(&t, &lt)) return false;
  s->isDst = lt.tm_isdst > 0;
  s->gmtoff = lt.tm_gmtoff;
  return true;
}

// UTC minus local time at t, from the two broken-down times.
int64_t offset_at(time_t t) {
  struct tm g, l;
  if (!gmtime_r(&t, &g) || !localtime_r(&t, &l)) return 0;
  auto days_before = [](int year) {  // days from 1900 to the start of year (tm_year)
    int64_t y = int64_t(year) + 1900 - 1;
    return y * 365 + y / 4 - y / 100 + y / 400 - (1899 * 365 + 1899 / 4 - 1899 / 100 + 1899 / 400);
  };
  int64_t dg = days_before(g.tm_year) + g.tm_yday, dl = days_before(l.tm_year) + l.tm_yday;
  int64_t sg = ((dg * 24 + g.tm_hour) * 60 + g.tm_min) * 60 + g.tm_sec;
  int64_t sl = ((dl * 24 + l.tm_hour) * 60 + l.tm_min) * 60 + l.tm_sec;
  return sg - sl;
}

bool append(int64_t start, int64_t end, int64_t offset, int isDst) {
  if (cltZoneMapTop == cltZoneMapSize) {
    int cap = cltZoneMapSize + cltZoneMapSize / 2;
    bool first = cltZoneMap == clt_zone_map;
    void *p = grow_fn(first ? nullptr : cltZoneMap, size_t(cap) * sizeof(ContLoctZone));
    if (!p) return false;
    if (first) std::memcpy(p, clt_zone_map, sizeof clt_zone_map);
    cltZoneMap = static_cast<ContLoctZone *>(p);
    cltZoneMapSize = cap;
  }
  cltZoneMap[cltZoneMapTop++] = ContLoctZone{start, end, offset, isDst};
  return true;
}

void trace_entry(int i) {
  if (!clt::trace_on(2)) return;
  const ContLoctZone &z = cltZoneMap[i];
  // The first entry is open below; describe it from where probing began.
  time_t at = z.start == ContLoctLowTime ? (z.end > kTableStart ? kTableStart : z.end) : z.start;
  struct tm g, l;
  clt::Date ug, ul;
  if (!gmtime_r(&at, &g) || !localtime_r(&at, &l)) return;
  clt::format_date(&g, ug);
  clt::format_date(&l, ul);
  clt::trace(2, u"time Map [%d]: %ld - %ld , offset = %d   %s\n", i, long(z.start), long(z.end), int(z.offset),
             z.isDst ? u"dst" : u"non dst");
  clt::trace(2, u"UTF %s - local %s, time offset %d\n", ug.text, ul.text, int(z.offset));
}

void index_buckets() {
  using clt::buckets;
  std::free(buckets.first);
  buckets = clt::Buckets{};
  const int top = cltZoneMapTop;
  if (top < 2) return;
  const int64_t base = cltZoneMap[1].start;
  const int64_t n = ((cltZoneMap[top - 1].start - base) >> clt::kBucketShift) + 1;
  auto *first = static_cast<int32_t *>(std::malloc(size_t(n) * sizeof(int32_t)));
  if (!first) return;  // lookups halve the whole table instead
  int i = 1;
  for (int64_t k = 0; k < n; ++k) {
    const int64_t t = base + (k << clt::kBucketShift);
    while (t >= cltZoneMap[i].end) ++i;
    first[k] = i;
  }
  buckets = clt::Buckets{cltZoneMap, top, base, base + (n << clt::kBucketShift), first};
}

}  // namespace

clt::Buckets clt::buckets;

void clt::ensure_table() {
  if (!table_ready.load(std::memory_order_acquire)) ContLoctBuildTable();
}

extern "C" {

ContLoctZone clt_zone_map[CLT_STATIC_ENTRIES];
ContLoctZone *cltZoneMap = clt_zone_map;
int cltZoneMapSize = CLT_STATIC_ENTRIES;
int cltZoneMapTop = 0;

void ContLoctSetTableAllocator(void *(*grow)(void *old, size_t bytes)) { grow_fn = grow ? grow : default_grow; }

// Steps 30 days at a time until the flag or the offset differs, then halves
// the last step down to the first second of the new state.
int ContLoctGetNextSwitch(time_t t, time_t *switchOut) {
  const time_t horizon = time(nullptr) + kHorizon;
  ZoneState from;
  if (!probe(t, &from)) {
    *switchOut = ContLoctHighTime;
    return 0;
  }
  time_t low = t, high = t;
  ZoneState at = from;
  while (at == from) {
    if (high >= horizon) {
      clt::trace(2, u"ContLoctGetNextSwitch: did not find next DST switch\n");
      *switchOut = ContLoctHighTime;
      return from.isDst;
    }
    low = high;
    high = high + kStep < horizon ? high + kStep : horizon;
    if (!probe(high, &at)) at = from;  // an unconvertible second is not a switch
  }
  while (high - low > 1) {
    time_t mid = low + (high - low) / 2;
    ZoneState s;
    if (probe(mid, &s) && s == from)
      low = mid;
    else
      high = mid;
  }
  probe(high, &at);
  *switchOut = high;
  if (clt::trace_on(2)) {
    struct tm l;
    clt::Date d;
    if (localtime_r(&high, &l)) {
      clt::format_date(&l, d);
      clt::trace(2, u"ContLoctGetNextSwitch: next switch: %s, isDst=%d, offset=%ld, time table index %d\n", d.text,
                 at.isDst, long(-at.gmtoff), cltZoneMapTop);
    }
  }
  return at.isDst;
}

static int build_table() {
  if (cltZoneMap != clt_zone_map) {
    // A rebuild starts again from the static array (grown copies come from
    // the malloc family, whoever asked for them).
    std::free(cltZoneMap);
    cltZoneMap = clt_zone_map;
  }
  cltZoneMapSize = CLT_STATIC_ENTRIES;
  cltZoneMapTop = 0;

  time_t from = kTableStart;
  struct tm probe_tm;
  if (!localtime_r(&from, &probe_tm)) {
    from = 0;
    clt::trace(2, u"localtime_cont: no time stamps before 1.1.1970 possible\n");
  }
  int64_t start = ContLoctLowTime;
  time_t at = from;
  for (;;) {
    time_t sw;
    ZoneState s;
    if (!probe(at, &s)) s = ZoneState{0, 0};
    int64_t offset = offset_at(at);
    ContLoctGetNextSwitch(at, &sw);
    if (!append(start, sw, offset, s.isDst)) {
      cltZoneMap[cltZoneMapTop - 1].end = ContLoctHighTime;
      clt::trace(1, u"localtime_cont: error creating time table.\n");
      return -1;
    }
    trace_entry(cltZoneMapTop - 1);
    if (sw == ContLoctHighTime) return 0;
    start = sw;
    at = sw;
  }
}

int ContLoctBuildTable(void) {
  int rc = build_table();
  index_buckets();
  table_ready.store(true, std::memory_order_release);
  return rc;
}

int ContLoctGetTimezoneIndex(time_t t) {
  const int count = cltZoneMapTop;
  if (clt::trace_on(3) && count > 0) {
    // The traced walk: the same halving, one line per step.
    int bottom = 0, top = count - 1;
    while (bottom <= top) {
      int mid = bottom + (top - bottom) / 2;
      clt::trace(3, u"ContLoctGetTimezoneIndex: check index %d, bottom=%d, top=%d, count=%d\n", mid, bottom, top, count);
      const ContLoctZone &z = cltZoneMap[mid];
      if (t < z.start)
        top = mid - 1;
      else if (t >= z.end && z.end != ContLoctHighTime)
        bottom = mid + 1;
      else
        break;
    }
  }
  int i = clt::find_zone(t);
  if (i >= 0 && clt::trace_on(3)) {
    struct tm g;
    clt::Date d;
    if (gmtime_r(&t, &g)) {
      clt::format_date(&g, d);
      clt::trace(3, u"ContLoctGetTimezoneIndex: Got Index %d: start %ld end %ld   %s\n", i, long(cltZoneMap[i].start),
                 long(cltZoneMap[i].end), d.text);
    }
  }
  return i;
}

}  // extern "C"
