/*
 * Continuous local time: local time that never runs backwards.  Across a
 * backward switch of the UTC offset, local time runs at half speed for the
 * size of the change before and after the switch, so the repeated wall-clock
 * span is covered once.  Forward switches keep their gap.
 *
 * Internal interface of the platform layer: C linkage, no exported symbol,
 * reached through libnuvucum.a.  The table and the mode are process-wide and
 * meant to be set up (ContLoct_Init) before threads start.
 */
#ifndef NUV_PLATFORM_CONTLOCT_H
#define NUV_PLATFORM_CONTLOCT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include "nuvu16.h"

NUV_EXTERN_C_BEGIN

/* One interval between two switches: [start, end), the switch second belongs
 * to the next entry.  offset is UTC minus local time (negative east). */
typedef struct ContLoctZone {
  int64_t start;
  int64_t end;
  int64_t offset;
  int32_t isDst;
} ContLoctZone;

extern const time_t ContLoctLowTime;  /* -2^63: start of the first entry */
extern const time_t ContLoctHighTime; /* 2^63-1: end of the last entry */

enum { CLT_STATIC_ENTRIES = 200 };
extern ContLoctZone clt_zone_map[CLT_STATIC_ENTRIES];
extern ContLoctZone *cltZoneMap; /* clt_zone_map or its grown copy */
extern int cltZoneMapSize;       /* capacity */
extern int cltZoneMapTop;        /* entries in use */

/* Modes: 0 undecided, 1 continuous (default), 2 old, 3 native, 4 utc. */
extern int PPCurrent;
extern int PPBuffer;

typedef int (*ContLoctTraceFunc)(FILE *traceFile, const NUV_UTF16 *format, ...); /* %s takes UTF-16 */
typedef const NUV_UTF16 *(*ContLoctParamFunc)(const NUV_UTF16 *name);
extern ContLoctTraceFunc ContLoctTrc;
extern FILE *ContLoctTf;
extern int TRACE;
extern ContLoctParamFunc gparam;

/* The old implementation's cached span and recursion guard. */
extern time_t Start_DoubleInterval;
extern time_t End_DoubleInterval;
extern int inLocTime;
extern time_t lastTime;

/* Set-up, parameters, trace. */
void ContLoct_Init(const NUV_UTF16 *(*paramFunction)(const NUV_UTF16 *name));
void ContLoctRegisterTrace(int (*trace)(FILE *traceFile, const NUV_UTF16 *format, ...), FILE *traceFile);
void ContLoctSetTraceLevel(int level);
int ContLoctSetParam(const NUV_UTF16 *name, const NUV_UTF16 *value); /* the value decides, by prefix */
int ContLoctTestParam(const NUV_UTF16 *name, const NUV_UTF16 *value);
NUV_UTF16 *ContLoctGetParam(const NUV_UTF16 *name);
int getPPContTime(void);

/* The table: built once on the first continuous conversion.  Build rebuilds
 * it now (0 done, -1 closed early because growing failed). */
int ContLoctBuildTable(void);
int ContLoctGetNextSwitch(time_t t, time_t *switchOut);
int ContLoctGetTimezoneIndex(time_t t);
long ContLoctGetTimeZoneOffset(time_t t);
/* Where the table's growth asks for memory: (old, bytes) -> new or null,
 * old null the first time.  Null restores malloc/realloc.  For tests. */
void ContLoctSetTableAllocator(void *(*grow)(void *old, size_t bytes));

/* Pure parts of the conversion: functions of a table and a time only. */
int ContLoctFindZone(const ContLoctZone *map, int count, int64_t t);
int ContLoctContinuousLocal(const ContLoctZone *map, int count, int index, int64_t t, int64_t *local);
int64_t ContLoctContinuousInverse(const ContLoctZone *map, int count, int index, int64_t t);
struct tm *ContLoctBreakDown(int64_t seconds, struct tm *result); /* as gmtime_r */

/* Continuous conversions.  Inside a half-speed span two seconds share a wall
 * time and ContLoctMktime gives back the later one; the last second before a
 * switch shares its wall time with the switch second, which carries the new
 * daylight-saving flag. */
struct tm *ContLoctLocaltimeCont_R(const time_t *timer, struct tm *result);
time_t ContLoctMktime(struct tm *tm);

/* Entry points in the current mode. */
struct tm *localtime_cont(const time_t *timer);
struct tm *localtime_cont_r(const time_t *timer, struct tm *result);
char *ctime_cont(const time_t *timer);
char *ctime_cont_r(const time_t *timer, char *buffer);
time_t mktime_cont(struct tm *tm);

/* The old implementation: detection of the doubled span around a switch. */
int IsDoubleInterval(time_t t);
int IsDoubleInterval_GetInterval(time_t t, time_t *start, time_t *end);
void GetDoubleInterval(time_t *start, time_t *end);

struct tm *R_localtime(const time_t *timer, struct tm *result);
struct tm *R_gmtime(const time_t *timer, struct tm *result);

NUV_EXTERN_C_END

#endif
