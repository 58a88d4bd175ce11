// The system log writer, with openlog/syslog interposed by this program so
// that every line is captured here and nothing reaches the machine's log.
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <regex>

#include "support/recording_trace.h"
#include "support/scratch.h"
#include "syslog/syslog.h"

namespace {

struct Opened {
  const char* ident;
  std::string ident_text;
  int option, facility;
};
struct Logged {
  int pri;
  std::string line;
  std::string ident_now;  // the identity openlog was given, read at this call
};
std::vector<Opened> g_opened;
std::vector<Logged> g_logged;

void record(int pri, const char* fmt, va_list ap) {
  char buf[1024];
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  g_logged.push_back({pri, buf, g_opened.empty() ? "" : g_opened.back().ident});
}

}  // namespace

extern "C" {
void openlog(const char* ident, int option, int facility) { g_opened.push_back({ident, ident, option, facility}); }
void closelog(void) {}
void vsyslog(int pri, const char* fmt, va_list ap) { record(pri, fmt, ap); }
void syslog(int pri, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  record(pri, fmt, ap);
  va_end(ap);
}
void __vsyslog_chk(int pri, int, const char* fmt, va_list ap) { record(pri, fmt, ap); }
void __syslog_chk(int pri, int, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  record(pri, fmt, ap);
  va_end(ap);
}
}

namespace {

using nuvtest::u16;
const NUV_UTF16* U(const std::u16string& s) { return reinterpret_cast<const NUV_UTF16*>(s.c_str()); }
const NUV_UTF16* U(const char16_t* s) { return reinterpret_cast<const NUV_UTF16*>(s); }

class Syslog : public ::testing::Test {
 protected:
  void SetUp() override {
    SyslResetForTests();
    g_opened.clear();
    g_logged.clear();
  }
  void TearDown() override { SyslResetForTests(); }
  void start() {
    ASSERT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_LOCAL3"), U(u"true")), 0);
    g_opened.clear();
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> v;
    for (auto& l : g_logged) v.push_back(l.line);
    return v;
  }
};

TEST_F(Syslog, DefaultIdentityAndFacility) {
  ASSERT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_LOCAL3"), U(u"true")), 0);
  ASSERT_EQ(g_opened.size(), 1u);
  EXPECT_EQ(g_opened[0].ident_text, "NUV###_##");
  EXPECT_EQ(g_opened[0].option, LOG_PID);
  EXPECT_EQ(g_opened[0].facility, 152);
  WriteSyslog(U(u"A00"), U(u"now"), LOG_INFO);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].pri, 152 | LOG_INFO);
  EXPECT_EQ(g_logged[0].line, "A00 Basis System: Server instance started, now");
  // openlog keeps the pointer: the text behind it must still be the identity.
  EXPECT_EQ(g_logged[0].ident_now, "NUV###_##");
}

struct IdentityCase {
  const char16_t *system, *instance;
  std::string ident;
};
TEST_F(Syslog, IdentityFromSystemAndInstance) {
  const std::u16string long_id(300, u'S');
  const IdentityCase cases[] = {
      {u"PRD", u"00", "NUVPRD_00"},
      {u"PRD", nullptr, "NUVPRD_##"},
      {nullptr, u"07", "NUV###_07"},
      {u"", u"", "NUV_"},
      {u"Pr\u00e9", u"\u4e2d1", "NUVPr#_#1"},  // 7-bit: the rest becomes '#'
      {long_id.c_str(), u"00", "NUV" + std::string(252, 'S')},
  };
  for (const auto& c : cases) {
    SyslResetForTests();
    g_opened.clear();
    ASSERT_EQ(SyslInit(U(c.system), U(c.instance), U(u"LOG_USER"), U(u"1")), 0);
    ASSERT_EQ(g_opened.size(), 1u);
    EXPECT_EQ(g_opened[0].ident_text, c.ident);
  }
}

TEST_F(Syslog, FacilityNames) {
  const std::pair<const char16_t*, int> known[] = {
      {u"LOG_LOCAL0", 128}, {u"LOG_LOCAL1", 136}, {u"LOG_LOCAL2", 144}, {u"LOG_LOCAL3", 152},
      {u"LOG_LOCAL4", 160}, {u"LOG_LOCAL5", 168}, {u"LOG_LOCAL6", 176}, {u"LOG_LOCAL7", 184},
      {u"LOG_AUTH", 32},    {u"LOG_AUTHPRIV", 80}, {u"LOG_CRON", 72},   {u"LOG_DAEMON", 24},
      {u"LOG_FTP", 88},     {u"LOG_KERN", 0},      {u"LOG_LPR", 48},    {u"LOG_MAIL", 16},
      {u"LOG_NEWS", 56},    {u"LOG_SYSLOG", 40},   {u"LOG_USER", 8},    {u"LOG_UUCP", 64},
  };
  start();
  for (auto [name, value] : known) {
    g_opened.clear();
    g_logged.clear();
    ASSERT_EQ(SyslSetParam(U(u"rslg/unix_syslog/facility"), U(name)), 0);
    ASSERT_EQ(g_opened.size(), 1u);
    EXPECT_EQ(g_opened[0].facility, value);
    WriteSyslog(U(u"A00"), U(u"x"), LOG_WARNING);
    ASSERT_EQ(g_logged.size(), 1u);
    EXPECT_EQ(g_logged[0].pri, value | LOG_WARNING);
  }
  const char16_t* rejected[] = {u"local3", u"log_local3", u"LOG_LOCAL8", u"LOG_LOCAL3 ", u"", u"LOG_"};
  for (auto name : rejected) {
    g_opened.clear();
    EXPECT_EQ(SyslSetParam(U(u"rslg/unix_syslog/facility"), U(name)), -1);
    EXPECT_EQ(SyslTestParam(U(u"rslg/unix_syslog/facility"), U(name)), -1);
    EXPECT_TRUE(g_opened.empty());
  }
  SyslResetForTests();
  EXPECT_EQ(SyslInit(nullptr, nullptr, U(u"local3"), U(u"true")), -1);
  WriteSyslog(U(u"A00"), U(u"x"), LOG_ERR);
  EXPECT_EQ(g_logged.size(), 1u);  // only the one written above
}

struct ParamCase {
  const char16_t *name, *value;
  int rc;
  bool reopens;     // when the writer was active before
  bool active_after;
};
TEST_F(Syslog, SetAndTestParameters) {
  const ParamCase cases[] = {
      {u"rslg/unix_syslog/active", u"true", 0, true, true},
      {u"rslg/unix_syslog/active", u"TRUE", 0, true, true},
      {u"rslg/unix_syslog/active", u"1", 0, true, true},
      {u"rslg/unix_syslog/active", u"false", 0, false, false},
      {u"rslg/unix_syslog/active", u"FALSE", 0, false, false},
      {u"rslg/unix_syslog/active", u"0", 0, false, false},
      {u"rslg/unix_syslog/active", u"True", -1, false, true},
      {u"rslg/unix_syslog/active", u"yes", -1, false, true},
      {u"rslg/unix_syslog/active", u"", -1, false, true},
      {u"rslg/unix_syslog/facility", u"LOG_DAEMON", 0, true, true},
      {u"rslg/unix_syslog/Facility", u"LOG_DAEMON", -1, false, true},
      {u"rslg/unix_syslog", u"true", -1, false, true},
      {nullptr, u"true", -1, false, true},
      {u"rslg/unix_syslog/active", nullptr, -1, false, true},
  };
  for (const auto& c : cases) {
    for (bool set : {false, true}) {
      SCOPED_TRACE(::testing::Message() << (set ? "set " : "test ") << (c.value ? "value" : "null"));
      SyslResetForTests();
      start();
      const int rc = set ? SyslSetParam(U(c.name), U(c.value)) : SyslTestParam(U(c.name), U(c.value));
      EXPECT_EQ(rc, c.rc);
      EXPECT_EQ(g_opened.size(), c.reopens ? 1u : 0u);
      const bool daemon = set && c.rc == 0 && c.value && c.value[0] == u'L';
      if (!g_opened.empty()) EXPECT_EQ(g_opened[0].facility, daemon ? LOG_DAEMON : LOG_LOCAL3);
      g_logged.clear();
      WriteSyslog(U(u"A00"), U(u"x"), LOG_ERR);
      const bool active = set ? c.active_after : true;
      EXPECT_EQ(g_logged.size(), active ? 1u : 0u);
      if (set && c.rc == 0 && c.value && c.value[0] == u'L' && !g_logged.empty())
        EXPECT_EQ(g_logged[0].pri, LOG_DAEMON | LOG_ERR);
    }
  }
}

TEST_F(Syslog, RefusalsAreSilent) {
  WriteSyslog(U(u"A00"), U(u"before init"), LOG_ERR);
  EXPECT_EQ(SyslInit(nullptr, nullptr, nullptr, U(u"true")), -1);
  EXPECT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_USER"), nullptr), -1);
  EXPECT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_USER"), U(u"on")), -1);
  WriteSyslog(U(u"A00"), U(u"after failed init"), LOG_ERR);
  EXPECT_TRUE(g_logged.empty());
  // Initialised but inactive: silent, and switching on later works.
  ASSERT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_USER"), U(u"false")), 0);
  EXPECT_TRUE(g_opened.empty());
  WriteSyslog(U(u"A00"), U(u"inactive"), LOG_ERR);
  EXPECT_TRUE(g_logged.empty());
  ASSERT_EQ(SyslSetParam(U(u"rslg/unix_syslog/active"), U(u"true")), 0);
  WriteSyslog(nullptr, U(u"x"), LOG_ERR);
  WriteSyslog(U(u"A00"), nullptr, LOG_ERR);
  WriteSyslog(U(u"QQQ"), U(u"unknown"), LOG_ERR);
  WriteSyslog(U(u""), U(u"empty row"), LOG_ERR);
  WriteSyslog(U(u"A0"), U(u"short"), LOG_ERR);
  EXPECT_TRUE(g_logged.empty());
  WriteSyslog(U(u"A01"), U(u"active"), LOG_ERR);
  EXPECT_EQ(lines(), std::vector<std::string>{"A01 Basis System: Server instance stopped, active"});
}

TEST_F(Syslog, OnlyErrorWarningAndInfoAreWritten) {
  start();
  for (int p = -1; p <= 8; ++p) {
    g_logged.clear();
    WriteSyslog(U(u"A00"), U(u"p"), p);
    const bool written = p == LOG_ERR || p == LOG_WARNING || p == LOG_INFO;
    ASSERT_EQ(g_logged.size(), written ? 1u : 0u) << "priority " << p;
    if (written) EXPECT_EQ(g_logged[0].pri, 152 | p);
  }
}

int g_inside = 0;
std::vector<std::u16string> g_cb_seen;
int inside_cb(const NUV_UTF16* id, const NUV_UTF16* text, int priority) {
  g_cb_seen.push_back(std::u16string(reinterpret_cast<const char16_t*>(id)) + u"|" +
                      reinterpret_cast<const char16_t*>(text) + u"|" + char16_t(u'0' + priority));
  return g_inside;
}

TEST_F(Syslog, SilentInsideSignalHandler) {
  start();
  g_cb_seen.clear();
  SyslSetSigActiveCB(inside_cb);
  g_inside = 1;
  WriteSyslog(U(u"E0A"), U(u"bslot"), LOG_ERR);  // not stored either
  WriteSyslog(U(u"A03"), U(u"in handler"), LOG_ERR);
  EXPECT_TRUE(g_logged.empty());
  g_inside = 0;
  WriteSyslog(U(u"A03"), U(u"outside"), LOG_WARNING);
  EXPECT_EQ(lines(), std::vector<std::string>{"A03 Basis System: Work process restarted after outside"});
  EXPECT_EQ(g_cb_seen, (std::vector<std::u16string>{u"E0A|bslot|3", u"A03|in handler|3", u"A03|outside|4"}));
  SyslSetSigActiveCB(nullptr);
}

TEST_F(Syslog, ParameterRecordServesExactlyTheNextEvent) {
  start();
  WriteSyslog(U(u"E0A"), U(u"awp07&b11&Zignored&&x"), LOG_INFO);
  EXPECT_TRUE(g_logged.empty());
  WriteSyslog(U(u"A04"), U(u"unused"), LOG_ERR);
  WriteSyslog(U(u"A04"), U(u"unused"), LOG_ERR);
  EXPECT_EQ(lines(), (std::vector<std::string>{"A04 Basis System: Work process wp07 ended with signal 11",
                                               "A04 Basis System: Work process ended with signal"}));
  // An unknown identifier or a refused priority does not use them up.
  g_logged.clear();
  WriteSyslog(U(u"E0A"), U(u"awp08"), LOG_INFO);
  WriteSyslog(U(u"QQQ"), U(u"x"), LOG_ERR);
  WriteSyslog(U(u"A04"), U(u"x"), LOG_NOTICE);
  WriteSyslog(U(u"E0AX"), U(u"b9"), LOG_INFO);  // the first three units decide
  WriteSyslog(U(u"A04"), U(u"x"), LOG_ERR);
  EXPECT_EQ(lines(), std::vector<std::string>{"A04 Basis System: Work process wp08 ended with signal 9"});
}

TEST_F(Syslog, ParameterRecordLimits) {
  start();
  // Text beyond 64 units is ignored; a slot keeps 62 units.
  std::u16string rec = u"a" + std::u16string(70, u'v');
  WriteSyslog(U(u"E0A"), U(rec), LOG_INFO);
  WriteSyslog(U(u"A03"), U(u""), LOG_ERR);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].line, "A03 Basis System: Work process " + std::string(62, 'v') + " restarted after");
  g_logged.clear();
  rec = std::u16string(59, u'-') + u"&bXYZ";  // ends exactly at unit 64
  WriteSyslog(U(u"E0A"), U(rec), LOG_INFO);
  WriteSyslog(U(u"A04"), U(u""), LOG_ERR);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].line, "A04 Basis System: Work process ended with signal XYZ");
  g_logged.clear();
  rec = std::u16string(60, u'-') + u"&bXYZ";  // "Z" is unit 65
  WriteSyslog(U(u"E0A"), U(rec), LOG_INFO);
  WriteSyslog(U(u"A04"), U(u""), LOG_ERR);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].line, "A04 Basis System: Work process ended with signal XY");
}

// The line rules, held against a plain model on seeded random texts.
std::string model_line(const std::string& id, const std::u16string& expanded_full) {
  std::u16string e = expanded_full.substr(0, 191);
  while (!e.empty() && (e.back() == u'\r' || e.back() == u'\t' || e.back() == u'\n' || e.back() == u' '))
    e.pop_back();
  std::string out;
  bool blank = true;
  for (char16_t u : e) {
    if (out.size() >= 188) break;
    const char c = u < 0x80 ? static_cast<char>(u) : '#';
    if (c == ' ' || c == '\t') {
      if (!blank) out += ' ';
      blank = true;
    } else if (c > 0x20 && c < 0x7F) {
      out += c;
      blank = false;
    }
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return id + " " + out;
}

TEST_F(Syslog, LineRulesOnRandomTexts) {
  start();
  std::mt19937 rng(1123);
  const char16_t pool[] = {u'a', u'Z', u'5', u' ', u' ', u'\t', u'\n', u'\r', u'\x01', u'\x7f',
                           u'%', u'!', u'\u00e9', u'\u20ac', u'~', u'#'};
  for (int iter = 0; iter < 3000; ++iter) {
    const std::size_t len = rng() % 260;
    std::u16string text;
    for (std::size_t i = 0; i < len; ++i) text += pool[rng() % (sizeof pool / sizeof pool[0])];
    g_logged.clear();
    WriteSyslog(U(u"Z00"), U(text), LOG_INFO);
    ASSERT_EQ(g_logged.size(), 1u);
    const std::string& line = g_logged[0].line;
    ASSERT_EQ(line, model_line("Z00", u"Trace: " + text)) << "iteration " << iter;
    ASSERT_LE(line.size(), 3u + 1 + 188);
    ASSERT_EQ(line.find("  "), std::string::npos);
    for (unsigned char c : line) ASSERT_TRUE(c >= 0x20 && c < 0x7F);
  }
}

TEST_F(Syslog, LongExpansionIsCut) {
  start();
  // Every slot filled: Z02 expands far beyond 191 units.
  for (char c = 'o'; c <= 'z'; ++c) {
    std::u16string rec(1, char16_t(c));
    rec += std::u16string(40, char16_t(c - 32));
    WriteSyslog(U(u"E0A"), U(rec), LOG_INFO);
  }
  WriteSyslog(U(u"Z02"), U(u""), LOG_INFO);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].line.size(), 3u + 1 + 188);
  EXPECT_EQ(g_logged[0].line.substr(0, 60), "Z02 Trace: " + std::string(40, 'O') + " " + std::string(8, 'P'));
}

TEST_F(Syslog, FormatterMatchesWhatIsSent) {
  start();
  std::mt19937 rng(77);
  const char16_t* ids[] = {u"A00", u"A04", u"A07", u"D07", u"Z01", u"Z02", u"E0A", u"QQQ", u"U07"};
  for (int iter = 0; iter < 2000; ++iter) {
    const char16_t* id = ids[rng() % 9];
    std::u16string text;
    for (int i = rng() % 80; i > 0; --i) text += char16_t(u' ' + rng() % 95);
    if (id[0] == u'E')
      text = char16_t(u'a' + rng() % 26) + text;
    static const int kPri[] = {LOG_ERR, LOG_WARNING, LOG_INFO, LOG_NOTICE};
    const int pri = kPri[rng() % 4];
    char line[SYSL_LINE_MAX + 1];
    const int n = FormatSyslogMsg(U(id), U(text), pri, line, sizeof line);
    g_logged.clear();
    WriteSyslog(U(id), U(text), pri);
    if (n < 0) {
      ASSERT_TRUE(g_logged.empty()) << iter;
    } else if (n == 0) {
      ASSERT_TRUE(g_logged.empty());
      ASSERT_STREQ(line, "");
    } else {
      ASSERT_EQ(g_logged.size(), 1u) << iter;
      ASSERT_EQ(g_logged[0].line, line);
      ASSERT_EQ(static_cast<std::size_t>(n), g_logged[0].line.size());
    }
  }
}

TEST_F(Syslog, FormatterCutsToTheBufferAndKeepsSlots) {
  start();
  WriteSyslog(U(u"E0A"), U(u"awp1&b6"), LOG_INFO);
  char small[10];
  EXPECT_EQ(FormatSyslogMsg(U(u"A04"), U(u""), LOG_ERR, small, sizeof small),
            static_cast<int>(std::string("A04 Basis System: Work process wp1 ended with signal 6").size()));
  EXPECT_STREQ(small, "A04 Basis");
  EXPECT_EQ(FormatSyslogMsg(U(u"E0A"), U(u"bzz"), LOG_ERR, small, sizeof small), 0);
  EXPECT_EQ(FormatSyslogMsg(U(u"A04"), U(u""), LOG_NOTICE, small, sizeof small), -1);
  EXPECT_EQ(FormatSyslogMsg(U(u"A04"), nullptr, LOG_ERR, small, sizeof small), -1);
  EXPECT_EQ(FormatSyslogMsg(U(u"ZZZ"), U(u""), LOG_ERR, nullptr, 0), -1);
  EXPECT_GT(FormatSyslogMsg(U(u"A04"), U(u""), LOG_ERR, nullptr, 0), 0);
  // The formatter neither sent nor used up the slots, nor stored "bzz".
  EXPECT_TRUE(g_logged.empty());
  WriteSyslog(U(u"A04"), U(u""), LOG_ERR);
  EXPECT_EQ(lines(), std::vector<std::string>{"A04 Basis System: Work process wp1 ended with signal 6"});
}

// ---- catalogue lookups and template expansion ----

TEST(SyslogCatalogue, TableIsSortedAndEndsWithTheEmptyRow) {
  ASSERT_GE(syslog_severity_count, 2);
  const SyslogSeverity& last = syslog_severity[syslog_severity_count - 1];
  EXPECT_EQ(last.id[0], 0);
  EXPECT_EQ(last.severity, 0);
  EXPECT_EQ(last.text[0], 0);
  for (int i = 0; i + 1 < syslog_severity_count; ++i)
    EXPECT_LT(severitycmp(&syslog_severity[i], &syslog_severity[i + 1]), 0) << i;
  for (int i = 0; i < syslog_severity_count - 1; ++i) {
    const SyslogSeverity& r = syslog_severity[i];
    EXPECT_EQ(getseverity(r.id), r.severity);
    EXPECT_EQ(getformat(r.id), r.text);
    EXPECT_TRUE(r.severity >= 1 && r.severity <= 4);
  }
}

TEST(SyslogCatalogue, SeverityAndFormatLookups) {
  EXPECT_EQ(getseverity(nullptr), 1);
  EXPECT_EQ(getseverity(U(u"QQQ")), 1);
  EXPECT_EQ(getseverity(U(u"A02")), 1);
  EXPECT_EQ(getseverity(U(u"A08")), 2);
  EXPECT_EQ(getseverity(U(u"A03")), 3);
  EXPECT_EQ(getseverity(U(u"A00")), 4);
  EXPECT_EQ(getseverity(U(u"")), 0);  // the empty last row takes part in the search
  EXPECT_EQ(getformat(U(u""))[0], 0);
  EXPECT_EQ(getformat(nullptr), nullptr);
  EXPECT_EQ(getformat(U(u"A000")), nullptr);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(getformat(U(u"B00")))),
            u"Background Processing: Job %1!s! started");
}

struct ExpandCase {
  const char16_t* id;
  int out_units;
  std::vector<const char16_t*> inserts;  // empty: a null array
  const char16_t* expect;
  int rc;
};

TEST(SyslogCatalogue, SimpleFormatMessage) {
  const ExpandCase cases[] = {
      {u"B00", 64, {u"nightly"}, u"Background Processing: Job nightly started", 42},
      {u"B00", 64, {nullptr}, u"Background Processing: Job  started", 35},
      {u"B00", 64, {}, u"Background Processing: Job  started", 35},
      {u"A07", 64, {u"", u"95"}, u"Basis System: Dispatcher queue at 95% of its capacity", 53},
      {u"B00", 27, {u"nightly"}, u"Background Processing: Job", 26},
      {u"B00", 30, {u"nightly"}, u"Background Processing: Job ni", 29},
      {u"B00", 1, {u"x"}, u"", 0},
      {u"QQQ", 64, {u"x"}, u"", 0},
      {u"", 64, {u"x"}, u"", 0},
      {u"C03", 80, {u"p", u"1", u"2"}, u"Configuration: Parameter p changed from 1 to 2", 46},
  };
  for (const auto& c : cases) {
    std::vector<NUV_UTF16> out(c.out_units + 1, 0xBEEF);
    std::vector<const NUV_UTF16*> ins;
    for (auto s : c.inserts) ins.push_back(U(s));
    const int rc = SimpleFormatMessage(U(c.id), out.data(), c.out_units, c.inserts.empty() ? nullptr : ins.data());
    EXPECT_EQ(rc, c.rc) << static_cast<int>(c.out_units);
    if (c.rc > 0 || c.out_units == 1) {
      EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(out.data())), c.expect);
    }
    EXPECT_EQ(out[c.out_units], 0xBEEF) << "wrote past the buffer";
  }
  NUV_UTF16 out[4];
  EXPECT_EQ(SimpleFormatMessage(U(u"B00"), out, 0, nullptr), 0);
  EXPECT_EQ(SimpleFormatMessage(U(u"B00"), nullptr, 4, nullptr), 0);
}

}  // namespace

namespace {

// A real datagram on /dev/log, in a namespace the probe makes for itself.
TEST(SyslogWire, DatagramOnDevLog) {
  auto r = nuvtest::run_command(NUV_DEVLOG_PROBE);
  if (r.exit == 77) GTEST_SKIP() << r.out;
  ASSERT_EQ(r.exit, 0) << r.out;
  std::smatch m;
  ASSERT_TRUE(std::regex_match(
      r.out, m,
      std::regex(R"((\d+) <(\d+)>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d NUVT11_42\[(\d+)\]: (.*))")))
      << r.out;
  EXPECT_EQ(m[2], std::to_string(LOG_LOCAL3 | LOG_WARNING));  // 156
  EXPECT_EQ(m[3], m[1]);
  EXPECT_EQ(m[4], "A04 Basis System: Work process wp3 ended with signal 15");
}

}  // namespace
