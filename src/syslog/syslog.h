// System log writer: events of the message catalogue written to the
// operating system's log as one 7-bit line each.  Internal to the library
// (C linkage, no exported symbol); reached through libnuvucum.a.
#pragma once

#include <cstdint>

#include "nuvu16.h"

extern "C" {

// One catalogue row.  The table is sorted by identifier and ends with an
// empty row (empty identifier, severity 0, empty template) that counts in
// syslog_severity_count.  Generated at build time from a text file.
struct SyslogSeverity {
  const NUV_UTF16 *id;
  int32_t severity;
  const NUV_UTF16 *text;
};
extern const SyslogSeverity syslog_severity[];
extern const int32_t syslog_severity_count;

// Inserts of a template: %1!s! is the caller's text, %2!s! to %27!s! the
// parameter slots a to z.
enum { SYSL_SLOTS = 26, SYSL_INSERTS = 1 + SYSL_SLOTS, SYSL_SLOT_UNITS = 64 };
// Longest line handed to syslog: identifier, blank, 188 characters.
enum { SYSL_TEXT_MAX = 188, SYSL_LINE_MAX = 3 + 1 + SYSL_TEXT_MAX };

int SyslInit(const NUV_UTF16 *systemId, const NUV_UTF16 *instance, const NUV_UTF16 *facility,
             const NUV_UTF16 *active);
int SyslSetParam(const NUV_UTF16 *name, const NUV_UTF16 *value);
int SyslTestParam(const NUV_UTF16 *name, const NUV_UTF16 *value);
void SyslSetSigActiveCB(int (*insideHandler)(const NUV_UTF16 *id, const NUV_UTF16 *text, int priority));

int getseverity(const NUV_UTF16 *id);
const NUV_UTF16 *getformat(const NUV_UTF16 *id);
int severitycmp(const void *a, const void *b);
// inserts: null, or SYSL_INSERTS pointers (each may be null); numbers
// outside 1 to SYSL_INSERTS insert nothing.
int SimpleFormatMessage(const NUV_UTF16 *id, NUV_UTF16 *out, int outUnits, const NUV_UTF16 *const *inserts);
void WriteSyslog(const NUV_UTF16 *id, const NUV_UTF16 *text, int priority);

// FormatSyslogMsg(id, text, priority, line, lineBytes) builds the line that
// WriteSyslog(id, text, priority) would hand to syslog if the writer were
// initialised, active and outside a signal handler, with the parameter
// slots as they stand, into line (lineBytes bytes including the NUL; the
// line is cut to fit).  Nothing is sent and the slots are left as they are.
// Returns the full length of the line (at most SYSL_LINE_MAX), 0 for an
// "E0A" parameter record (which is stored, never sent: line is empty), and
// -1 when WriteSyslog would send nothing for these arguments (null id or
// text, a priority other than 3, 4 and 6, an identifier with no template).
int FormatSyslogMsg(const NUV_UTF16 *id, const NUV_UTF16 *text, int priority, char *line, int lineBytes);

// Test hook: back to the state before SyslInit (identity, facility, active,
// callback, slots).
void SyslResetForTests(void);

}  // extern "C"
