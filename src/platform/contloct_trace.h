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

// Builds the table on first use (ContLoctBuildTable marks it built too).
void ensure_table();

// "dd.mm.yyyy  hh:mm:ss dst" as UTF-16.
struct Date {
  NUV_UTF16 text[64];
};
void format_date(const struct tm *tm, Date &out);

}  // namespace clt
