// Trace plumbing shared by the continuous-local-time sources: the hook is
// printf-like over a UTF-16 format, %s takes UTF-16.
#pragma once

#include <cstdio>

#include "common/nuv_internal.h"
#include "platform/contloct.h"

namespace clt {

inline bool trace_on(int level) {
  return nuv::load_relaxed(ContLoctTrc) && nuv::load_relaxed(ContLoctTf) && nuv::load_relaxed(TRACE) >= level;
}

template <class... Args>
void trace(int level, const NUV_UTF16 *format, Args... args) {
  ContLoctTraceFunc f = nuv::load_relaxed(ContLoctTrc);
  FILE *tf = nuv::load_relaxed(ContLoctTf);
  if (f && tf && nuv::load_relaxed(TRACE) >= level) f(tf, format, args...);
}

// A coarse index over the table: for each 2^21-second bucket from the first
// switch, the entry holding the bucket's first second.  It belongs to one
// table (map, top); any other table is searched by halving.
struct Buckets {
  const ContLoctZone *map = nullptr;
  int top = 0;
  int64_t base = 0, limit = 0;
  int32_t *first = nullptr;
};
inline constexpr int kBucketShift = 21;
extern Buckets buckets;

inline int find_zone(int64_t t) {
  const ContLoctZone *map = cltZoneMap;
  const int top = cltZoneMapTop;
  if (buckets.map == map && buckets.top == top && t >= buckets.base && t < buckets.limit) {
    int i = buckets.first[uint64_t(t - buckets.base) >> kBucketShift];
    while (t >= map[i].end) ++i;  // ends before the limit are finite
    return i;
  }
  return ContLoctFindZone(map, top, t);
}

// Builds the table on first use (ContLoctBuildTable marks it built too).
void ensure_table();

// "dd.mm.yyyy  hh:mm:ss dst" as UTF-16.
struct Date {
  NUV_UTF16 text[64];
};
void format_date(const struct tm *tm, Date &out);

}  // namespace clt
