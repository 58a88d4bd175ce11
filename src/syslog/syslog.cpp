// System log writer.  Settings and parameter slots are process-wide and
// unguarded (set them before threads start); flags are read relaxed so that
// concurrent use stays defined.
#include "syslog/syslog.h"

#include <syslog.h>

#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "convert/converters.h"

namespace {

struct Facility {
  const char16_t *name;
  int value;
};
constexpr Facility kFacilities[] = {
    {u"LOG_LOCAL0", LOG_LOCAL0}, {u"LOG_LOCAL1", LOG_LOCAL1}, {u"LOG_LOCAL2", LOG_LOCAL2},
    {u"LOG_LOCAL3", LOG_LOCAL3}, {u"LOG_LOCAL4", LOG_LOCAL4}, {u"LOG_LOCAL5", LOG_LOCAL5},
    {u"LOG_LOCAL6", LOG_LOCAL6}, {u"LOG_LOCAL7", LOG_LOCAL7}, {u"LOG_AUTH", LOG_AUTH},
    {u"LOG_AUTHPRIV", LOG_AUTHPRIV}, {u"LOG_CRON", LOG_CRON},   {u"LOG_DAEMON", LOG_DAEMON},
    {u"LOG_FTP", LOG_FTP},       {u"LOG_KERN", LOG_KERN},       {u"LOG_LPR", LOG_LPR},
    {u"LOG_MAIL", LOG_MAIL},     {u"LOG_NEWS", LOG_NEWS},       {u"LOG_SYSLOG", LOG_SYSLOG},
    {u"LOG_USER", LOG_USER},     {u"LOG_UUCP", LOG_UUCP},       {nullptr, 0},
};

constexpr char16_t kParamFacility[] = u"rslg/unix_syslog/facility";
constexpr char16_t kParamActive[] = u"rslg/unix_syslog/active";
constexpr char16_t kParamRecord[] = u"E0A";
constexpr int kRecordUnits = 64;       // of an "E0A" record's text
constexpr int kSlotValueUnits = 62;    // kept per slot
constexpr int kExpandUnits = 192;      // template expansion, terminator included
constexpr int kNameBytes = 256;

char syslog_name[kNameBytes];  // handed to openlog, which keeps the pointer
int syslog_facility = LOG_USER;
int syslog_active = 0;
int syslog_initialized = 0;
int (*InsideSigHandler)(const NUV_UTF16 *, const NUV_UTF16 *, int) = nullptr;
NUV_UTF16 pre_para[SYSL_SLOTS][SYSL_SLOT_UNITS];
int pre_param_initialized = 0;

int cmp16(const NUV_UTF16 *a, const NUV_UTF16 *b) {
  for (;; ++a, ++b) {
    if (*a != *b) return *a < *b ? -1 : 1;
    if (*a == 0) return 0;
  }
}
bool equals(const NUV_UTF16 *a, const char16_t *b) { return cmp16(a, reinterpret_cast<const NUV_UTF16 *>(b)) == 0; }

const SyslogSeverity *find(const NUV_UTF16 *id) {
  if (!id) return nullptr;
  SyslogSeverity key{id, 0, nullptr};
  return static_cast<const SyslogSeverity *>(std::bsearch(&key, syslog_severity, syslog_severity_count,
                                                          sizeof(SyslogSeverity), severitycmp));
}

bool is_record(const NUV_UTF16 *id) {
  return id[0] == kParamRecord[0] && id[1] == kParamRecord[1] && id[2] == kParamRecord[2];
}

void clear_slots() {
  std::memset(pre_para, 0, sizeof pre_para);
  pre_param_initialized = 1;
}

// "a=..&b.." pieces: a piece starting with a to z fills that slot.
void store_record(const NUV_UTF16 *text) {
  int end = 0;
  while (end < kRecordUnits && text[end]) ++end;
  for (int i = 0; i < end;) {
    int j = i;
    while (j < end && text[j] != u'&') ++j;
    const NUV_UTF16 letter = text[i];
    if (j > i && letter >= u'a' && letter <= u'z') {
      NUV_UTF16 *slot = pre_para[letter - u'a'];
      int n = j - i - 1;
      if (n > kSlotValueUnits) n = kSlotValueUnits;
      std::memcpy(slot, text + i + 1, n * sizeof(NUV_UTF16));
      slot[n] = 0;
    }
    i = j + 1;
  }
}

bool blank(unsigned char c) { return c == ' ' || c == '\t'; }

// The line for an event with a known template: returns its length, or -1
// when the identifier has no template.
int build_line(const NUV_UTF16 *id, const NUV_UTF16 *text, char (&line)[SYSL_LINE_MAX + 1]) {
  const SyslogSeverity *row = find(id);
  if (!row || !row->text || !row->text[0]) return -1;
  const NUV_UTF16 *inserts[SYSL_INSERTS];
  inserts[0] = text;
  for (int i = 0; i < SYSL_SLOTS; ++i) inserts[1 + i] = pre_param_initialized ? pre_para[i] : nullptr;
  NUV_UTF16 expanded[kExpandUnits];
  int n = SimpleFormatMessage(id, expanded, kExpandUnits, inserts);
  while (n > 0 && (expanded[n - 1] == u'\r' || expanded[n - 1] == u'\t' || expanded[n - 1] == u'\n' ||
                   expanded[n - 1] == u' '))
    --n;
  int len = 0;
  for (int i = 0; i < 3; ++i) line[len++] = static_cast<char>(UcToA7(row->id[i]));
  line[len++] = ' ';
  // The separator counts as the start of a blank run, so leading blanks of
  // the text vanish; dropped characters do not end a run.
  bool in_blank = true;
  for (int i = 0; i < n && len < SYSL_LINE_MAX; ++i) {
    const unsigned char c = UcToA7(expanded[i]);
    if (blank(c)) {
      if (!in_blank) line[len++] = ' ';
      in_blank = true;
    } else if (c > 0x20 && c < 0x7F) {
      line[len++] = static_cast<char>(c);
      in_blank = false;
    }
  }
  while (len > 4 && line[len - 1] == ' ') --len;
  line[len] = 0;
  return len;
}

bool written_priority(int priority) { return priority == LOG_ERR || priority == LOG_WARNING || priority == LOG_INFO; }

int apply_param(const NUV_UTF16 *name, const NUV_UTF16 *value, bool set) {
  if (!name || !value) return -1;
  if (equals(name, kParamFacility)) {
    const Facility *f = kFacilities;
    while (f->name && !equals(value, f->name)) ++f;
    if (!f->name) return -1;
    if (set) nuv::store_relaxed(syslog_facility, f->value);
  } else if (equals(name, kParamActive)) {
    if (equals(value, u"true") || equals(value, u"TRUE") || equals(value, u"1")) {
      if (set) nuv::store_relaxed(syslog_active, 1);
    } else if (equals(value, u"false") || equals(value, u"FALSE") || equals(value, u"0")) {
      if (set) nuv::store_relaxed(syslog_active, 0);
      return 0;
    } else {
      return -1;
    }
  } else {
    return -1;
  }
  if (nuv::load_relaxed(syslog_active)) openlog(syslog_name, LOG_PID, nuv::load_relaxed(syslog_facility));
  return 0;
}

}  // namespace

extern "C" {

// The empty last row takes part in the search, so the empty identifier
// sorts after every other one; otherwise a search could step onto it and
// lose the last rows of the table.
int severitycmp(const void *a, const void *b) {
  const NUV_UTF16 *x = static_cast<const SyslogSeverity *>(a)->id;
  const NUV_UTF16 *y = static_cast<const SyslogSeverity *>(b)->id;
  if (!x[0] || !y[0]) return (x[0] == 0) - (y[0] == 0);
  return cmp16(x, y);
}

int SyslInit(const NUV_UTF16 *systemId, const NUV_UTF16 *instance, const NUV_UTF16 *facility,
             const NUV_UTF16 *active) {
  if (!facility || !active) return -1;
  // "NUV%s_%s" into 256 units, then 7-bit.
  NUV_UTF16 ident[kNameBytes];
  int n = 0;
  auto put = [&](const NUV_UTF16 *s) {
    for (; *s && n < kNameBytes - 1; ++s) ident[n++] = *s;
  };
  static constexpr NUV_UTF16 kPrefix[] = {u'N', u'U', u'V', 0}, kSep[] = {u'_', 0};
  static constexpr NUV_UTF16 kNoSystem[] = {u'#', u'#', u'#', 0}, kNoInstance[] = {u'#', u'#', 0};
  put(kPrefix);
  put(systemId ? systemId : kNoSystem);
  put(kSep);
  put(instance ? instance : kNoInstance);
  ident[n] = 0;
  UcnToA7n(syslog_name, ident, n + 1);

  int rc = SyslSetParam(reinterpret_cast<const NUV_UTF16 *>(kParamFacility), facility);
  if (rc != 0) return rc;
  rc = SyslSetParam(reinterpret_cast<const NUV_UTF16 *>(kParamActive), active);
  if (rc != 0) return rc;
  nuv::store_relaxed(syslog_initialized, 1);
  return 0;
}

int SyslSetParam(const NUV_UTF16 *name, const NUV_UTF16 *value) { return apply_param(name, value, true); }
int SyslTestParam(const NUV_UTF16 *name, const NUV_UTF16 *value) { return apply_param(name, value, false); }

void SyslSetSigActiveCB(int (*insideHandler)(const NUV_UTF16 *, const NUV_UTF16 *, int)) {
  nuv::store_relaxed(InsideSigHandler, insideHandler);
}

int getseverity(const NUV_UTF16 *id) {
  const SyslogSeverity *row = find(id);
  return row ? row->severity : 1;
}

const NUV_UTF16 *getformat(const NUV_UTF16 *id) {
  const SyslogSeverity *row = find(id);
  return row ? row->text : nullptr;
}

int SimpleFormatMessage(const NUV_UTF16 *id, NUV_UTF16 *out, int outUnits, const NUV_UTF16 *const *inserts) {
  const NUV_UTF16 *t = getformat(id);
  if (!t || !out || outUnits < 1) return 0;
  int n = 0;
  const int room = outUnits - 1;
  while (*t && n < room) {
    if (t[0] != u'%') {
      out[n++] = *t++;
    } else if (t[1] == u'%') {
      out[n++] = u'%';
      t += 2;
    } else if (t[1] >= u'0' && t[1] <= u'9') {
      long num = 0;
      for (++t; *t >= u'0' && *t <= u'9'; ++t)
        if (num < 1000000) num = num * 10 + (*t - u'0');
      if (*t == u'!') {  // the format mark, "!s!"
        const NUV_UTF16 *close = t + 1;
        while (*close && *close != u'!') ++close;
        t = *close ? close + 1 : close;
      }
      const NUV_UTF16 *ins = (num >= 1 && num <= SYSL_INSERTS && inserts) ? inserts[num - 1] : nullptr;
      if (ins)
        while (*ins && n < room) out[n++] = *ins++;
    } else {
      out[n++] = *t++;
    }
  }
  out[n] = 0;
  return n;
}

void WriteSyslog(const NUV_UTF16 *id, const NUV_UTF16 *text, int priority) {
  if (!nuv::load_relaxed(syslog_initialized)) return;
  auto inside = nuv::load_relaxed(InsideSigHandler);
  if (inside && inside(id, text, priority)) return;
  if (!written_priority(priority) || !id || !text || !nuv::load_relaxed(syslog_active)) return;
  if (!pre_param_initialized) clear_slots();
  if (is_record(id)) {
    store_record(text);
    return;
  }
  char line[SYSL_LINE_MAX + 1];
  if (build_line(id, text, line) < 0) return;
  syslog(priority | nuv::load_relaxed(syslog_facility), "%s", line);
  clear_slots();
}

int FormatSyslogMsg(const NUV_UTF16 *id, const NUV_UTF16 *text, int priority, char *line, int lineBytes) {
  if (!written_priority(priority) || !id || !text) return -1;
  char built[SYSL_LINE_MAX + 1] = "";
  int len = is_record(id) ? 0 : build_line(id, text, built);
  if (len < 0) return -1;
  if (line && lineBytes > 0) {
    const int take = len < lineBytes ? len : lineBytes - 1;
    std::memcpy(line, built, take);
    line[take] = 0;
  }
  return len;
}

void SyslResetForTests(void) {
  std::memset(syslog_name, 0, sizeof syslog_name);
  syslog_facility = LOG_USER;
  syslog_active = 0;
  syslog_initialized = 0;
  InsideSigHandler = nullptr;
  std::memset(pre_para, 0, sizeof pre_para);
  pre_param_initialized = 0;
}

}  // extern "C"
