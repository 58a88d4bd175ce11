// The system log writer.  openlog/syslog are defined in this program, so
// every line is captured here and nothing reaches the machine's log; one
// test forwards them to the C library inside a namespace it makes itself.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#define SYSLOG_NAMES
#include <syslog.h>

#include <cstdarg>
#include <cstring>
#include <random>
#include <regex>

#include "support/scratch.h"
#include "syslog/syslog.h"

namespace {
struct Sent {
  int pri;
  std::string line, ident_now;  // the identity behind openlog's pointer at this call
};
std::vector<Sent> g_sent;
std::vector<std::pair<std::string, int>> g_opened;  // identity (when the option is LOG_PID), facility
const char* g_ident = "";
bool g_real = false;  // forward to the C library
template <class F>
F real(const char* name) { return reinterpret_cast<F>(dlsym(RTLD_NEXT, name)); }
}  // namespace

extern "C" {
void openlog(const char* ident, int option, int facility) {
  if (g_real) return real<void (*)(const char*, int, int)>("openlog")(ident, option, facility);
  g_opened.push_back({option == LOG_PID ? (g_ident = ident) : "bad option", facility});
}
void closelog(void) {}
void vsyslog(int pri, const char* fmt, va_list ap) {
  if (g_real) return real<void (*)(int, const char*, va_list)>("vsyslog")(pri, fmt, ap);
  char buf[1024];
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  g_sent.push_back({pri, buf, g_ident});
}
void __vsyslog_chk(int pri, int, const char* fmt, va_list ap) { vsyslog(pri, fmt, ap); }
void syslog(int pri, const char* fmt, ...) { va_list ap; va_start(ap, fmt); vsyslog(pri, fmt, ap); va_end(ap); }
void __syslog_chk(int pri, int, const char* fmt, ...) { va_list ap; va_start(ap, fmt); vsyslog(pri, fmt, ap); va_end(ap); }
}

namespace {

const NUV_UTF16* U(const std::u16string& s) { return reinterpret_cast<const NUV_UTF16*>(s.c_str()); }
const NUV_UTF16* U(const char16_t* s) { return reinterpret_cast<const NUV_UTF16*>(s); }
const std::u16string kFacility = u"rslg/unix_syslog/facility", kActive = u"rslg/unix_syslog/active";

class Syslog : public ::testing::Test {
 protected:
  void SetUp() override { SyslResetForTests(), g_sent.clear(), g_opened.clear(); }
  void TearDown() override { SyslResetForTests(); }
  void start() {
    ASSERT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_LOCAL3"), U(u"true")), 0);
    g_opened.clear();
  }
  std::string write(const std::u16string& id, const std::u16string& text, int pri = LOG_ERR) {
    g_sent.clear();
    WriteSyslog(U(id), U(text), pri);
    return g_sent.empty() ? "(nothing)" : g_sent.back().line;
  }
};

TEST_F(Syslog, IdentityAndFacility) {
  ASSERT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_LOCAL3"), U(u"true")), 0);
  EXPECT_EQ(g_opened, (std::vector<std::pair<std::string, int>>{{"NUV###_##", 152}}));
  EXPECT_EQ(write(u"A00", u"now", LOG_INFO), "A00 Basis System: Server instance started, now");
  EXPECT_EQ(g_sent[0].pri, 152 | LOG_INFO);
  EXPECT_EQ(g_sent[0].ident_now, "NUV###_##");
  const std::pair<std::u16string, std::string> ids[] = {
      {u"PRD", "NUVPRD_00"}, {u"Pr\u00e9", "NUVPr#_00"}, {std::u16string(300, u'S'), "NUV" + std::string(252, 'S')}};
  for (const auto& [sys, ident] : ids) {
    g_opened.clear();
    ASSERT_EQ(SyslInit(U(sys), U(u"00"), U(u"LOG_USER"), U(u"1")), 0);
    EXPECT_EQ(g_opened.at(0).first, ident);
  }
  int named = 0;  // glibc's own names, less its internal "mark" and the alias "security"
  for (const CODE* c = facilitynames; c->c_name; ++c) {
    std::u16string name = u"LOG_";
    for (const char* ch = c->c_name; *ch; ++ch) name += char16_t(std::toupper(*ch));
    if (name == u"LOG_MARK" || name == u"LOG_SECURITY") continue;
    ASSERT_EQ(SyslSetParam(U(kFacility), U(name)), 0) << c->c_name;
    EXPECT_EQ((write(u"A00", u"x", LOG_WARNING), g_sent.at(0).pri), c->c_val | LOG_WARNING) << c->c_name;
    ++named;
  }
  EXPECT_EQ(named, 20);
  g_opened.clear();
  for (auto bad : {u"local3", u"LOG_LOCAL8", u"LOG_LOCAL3 ", u""}) {
    EXPECT_EQ(SyslSetParam(U(kFacility), U(bad)), -1);
    EXPECT_EQ(SyslTestParam(U(kFacility), U(bad)), -1);
  }
  EXPECT_TRUE(g_opened.empty());
  SyslResetForTests();
  EXPECT_EQ(SyslInit(nullptr, nullptr, U(u"local3"), U(u"true")), -1);
  EXPECT_EQ(write(u"A00", u"x"), "(nothing)");
}

TEST_F(Syslog, ActiveParameter) {
  struct Case { const char16_t* value; int rc; bool on_after_set, reopens; };
  const Case cases[] = {{u"true", 0, true, true},   {u"TRUE", 0, true, true},    {u"1", 0, true, true},
                        {u"false", 0, false, false}, {u"FALSE", 0, false, false}, {u"0", 0, false, false},
                        {u"True", -1, true, false},  {u"yes", -1, true, false},   {nullptr, -1, true, false}};
  for (const auto& c : cases)
    for (bool set : {false, true}) {
      SetUp(), start();
      EXPECT_EQ((set ? SyslSetParam : SyslTestParam)(U(kActive), U(c.value)), c.rc);
      EXPECT_EQ(g_opened.size(), c.reopens ? 1u : 0u);
      EXPECT_EQ(write(u"A00", u"x") != "(nothing)", set ? c.on_after_set : true);
    }
  EXPECT_EQ(SyslSetParam(U(u"rslg/unix_syslog"), U(u"true")), -1);
  EXPECT_EQ(SyslTestParam(nullptr, U(u"true")), -1);
}

int g_inside = 0;
int inside_cb(const NUV_UTF16* id, const NUV_UTF16*, int priority) { return g_inside && id && priority; }

TEST_F(Syslog, SilentRefusals) {
  EXPECT_EQ(write(u"A00", u"before init"), "(nothing)");
  EXPECT_EQ(SyslInit(nullptr, nullptr, nullptr, U(u"true")), -1);
  EXPECT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_USER"), nullptr), -1);
  ASSERT_EQ(SyslInit(nullptr, nullptr, U(u"LOG_USER"), U(u"false")), 0);
  EXPECT_EQ(write(u"A00", u"inactive"), "(nothing)");
  ASSERT_EQ(SyslSetParam(U(kActive), U(u"1")), 0);
  for (int p = -1; p <= 8; ++p)
    EXPECT_EQ(write(u"A00", u"p", p) != "(nothing)", p == LOG_ERR || p == LOG_WARNING || p == LOG_INFO) << p;
  for (auto id : {u"QQQ", u"", u"A0", u"A000"}) EXPECT_EQ(write(id, u"unknown"), "(nothing)");
  WriteSyslog(nullptr, U(u"x"), LOG_ERR), WriteSyslog(U(u"A00"), nullptr, LOG_ERR);
  SyslSetSigActiveCB(inside_cb);
  g_inside = 1;
  WriteSyslog(U(u"E0A"), U(u"aslot"), LOG_ERR);  // not stored either
  EXPECT_EQ(write(u"A03", u"in handler"), "(nothing)");
  g_inside = 0;
  EXPECT_EQ(write(u"A03", u"out"), "A03 Basis System: Work process restarted after out");
}

TEST_F(Syslog, ParameterRecordServesExactlyTheNextEvent) {
  start();
  EXPECT_EQ(write(u"E0A", u"awp07&b11&Zx&&c", LOG_INFO), "(nothing)");
  EXPECT_EQ(write(u"QQQ", u"unknown: slots kept"), "(nothing)");
  EXPECT_EQ(write(u"A04", u"", LOG_NOTICE), "(nothing)");
  EXPECT_EQ(write(u"A04", u""), "A04 Basis System: Work process wp07 ended with signal 11");
  EXPECT_EQ(write(u"A04", u""), "A04 Basis System: Work process ended with signal");
  // The record's text is cut at 64 units, each slot at 62.
  write(u"E0A", u"a" + std::u16string(70, u'v'));
  EXPECT_EQ(write(u"A03", u""), "A03 Basis System: Work process " + std::string(62, 'v') + " restarted after");
  write(u"E0AX", std::u16string(59, u'-') + u"&bXYZ");
  EXPECT_EQ(write(u"A04", u""), "A04 Basis System: Work process ended with signal XYZ");
  write(u"E0A", std::u16string(60, u'-') + u"&bXYZ");
  EXPECT_EQ(write(u"A04", u""), "A04 Basis System: Work process ended with signal XY");
}

// The line rules against a plain model, on seeded random texts; and the
// formatter shows exactly what is sent.
std::string model_line(const std::string& id, const std::u16string& expanded) {
  std::u16string e = expanded.substr(0, 191);
  while (!e.empty() && (e.back() == u'\r' || e.back() == u'\t' || e.back() == u'\n' || e.back() == u' ')) e.pop_back();
  std::string out = id + " ";
  for (char16_t u : e) {
    const char c = u < 0x80 ? static_cast<char>(u) : '#';
    if (out.size() == 192) break;
    if ((c == ' ' || c == '\t') && out.back() != ' ') out += ' ';
    if (c > 0x20 && c < 0x7F) out += c;
  }
  while (out.size() > 4 && out.back() == ' ') out.pop_back();
  return out;
}

TEST_F(Syslog, LineRulesAndFormatterOnRandomTexts) {
  start();
  std::mt19937 rng(1123);
  const char16_t pool[] = u"aZ5  \t\n\r\x01\x7f%!\u00e9\u20ac~#";
  for (int iter = 0; iter < 3000; ++iter) {
    std::u16string text;
    for (int i = rng() % 260; i > 0; --i) text += pool[rng() % (sizeof pool / 2 - 1)];
    char shown[SYSL_LINE_MAX + 1];
    const int n = FormatSyslogMsg(U(u"Z00"), U(text), LOG_INFO, shown, sizeof shown);
    ASSERT_EQ(n, static_cast<int>(std::strlen(shown)));
    ASSERT_EQ(write(u"Z00", text, LOG_INFO), model_line("Z00", u"Trace: " + text)) << iter;
    ASSERT_EQ(g_sent[0].line, shown);
  }
  for (char c = 'n'; c <= 'z'; ++c) write(u"E0A", char16_t(c) + std::u16string(40, char16_t(c - 32)));
  char small[10];
  EXPECT_EQ(FormatSyslogMsg(U(u"Z02"), U(u""), LOG_INFO, small, sizeof small), 3 + 1 + 188);
  EXPECT_STREQ(small, "Z02 Trace");
  EXPECT_EQ(FormatSyslogMsg(U(u"E0A"), U(u"nQ"), LOG_INFO, small, sizeof small), 0);
  EXPECT_EQ(FormatSyslogMsg(U(u"Z02"), U(u""), LOG_NOTICE, small, sizeof small), -1);
  EXPECT_EQ(FormatSyslogMsg(U(u"QQQ"), U(u""), LOG_ERR, nullptr, 0), -1);
  const std::string line = write(u"Z02", u"");  // slots neither used up nor changed by the formatter
  EXPECT_EQ(line.size(), 3u + 1 + 188);
  EXPECT_EQ(line.substr(0, 56), "Z02 Trace: " + std::string(40, 'N') + " " + std::string(4, 'O'));
}

TEST(SyslogCatalogue, LookupsAndExpansion) {
  const SyslogSeverity& last = syslog_severity[syslog_severity_count - 1];
  EXPECT_TRUE(last.id[0] == 0 && last.severity == 0 && last.text[0] == 0);
  for (int i = 0; i < syslog_severity_count; ++i) {  // sorted, every row found, the empty one too
    if (i) EXPECT_LT(severitycmp(&syslog_severity[i - 1], &syslog_severity[i]), 0);
    EXPECT_EQ(getseverity(syslog_severity[i].id), syslog_severity[i].severity);
    EXPECT_EQ(getformat(syslog_severity[i].id), syslog_severity[i].text);
  }
  EXPECT_EQ(getseverity(nullptr) + getseverity(U(u"QQQ")), 2);
  EXPECT_EQ(getformat(nullptr), getformat(U(u"A000")));
  struct Case { const char16_t* id; int units; const char16_t* ins[3]; const char16_t* expect; };
  const Case cases[] = {{u"B00", 64, {u"nightly"}, u"Background Processing: Job nightly started"},
                        {u"B00", 64, {nullptr}, u"Background Processing: Job  started"},
                        {u"A07", 64, {u"", u"95"}, u"Basis System: Dispatcher queue at 95% of its capacity"},
                        {u"B00", 30, {u"nightly"}, u"Background Processing: Job ni"},
                        {u"B00", 1, {u"x"}, u""}};
  for (const auto& c : cases) {
    std::vector<NUV_UTF16> out(c.units + 1, 0xBEEF);
    const NUV_UTF16* ins[SYSL_INSERTS] = {U(c.ins[0]), U(c.ins[1]), U(c.ins[2])};
    const int n = SimpleFormatMessage(U(c.id), out.data(), c.units, ins);
    EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(out.data()), n), c.expect);
    EXPECT_TRUE(out[n] == 0 && out[c.units] == 0xBEEF);
  }
  NUV_UTF16 out[4];
  EXPECT_EQ(SimpleFormatMessage(U(u"QQQ"), out, 4, nullptr) + SimpleFormatMessage(U(u"B00"), out, 0, nullptr), 0);
}

// A real datagram: a child makes a user and mount namespace, binds /dev/log
// there, and sends an event through the C library's syslog.
TEST(SyslogWire, DatagramOnDevLog) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    const std::string uid = "0 " + std::to_string(getuid()) + " 1", gid = "0 " + std::to_string(getgid()) + " 1";
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(77);
    nuvtest::write_file("/proc/self/setgroups", "deny");
    nuvtest::write_file("/proc/self/uid_map", uid), nuvtest::write_file("/proc/self/gid_map", gid);
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) || mount("none", "/dev", "tmpfs", 0, nullptr)) _exit(77);
    sockaddr_un addr{AF_UNIX, "/dev/log"};
    const int s = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) _exit(1);
    g_real = true;
    SyslInit(U(u"T11"), U(u"42"), U(u"LOG_LOCAL3"), U(u"true"));
    WriteSyslog(U(u"E0A"), U(u"awp3&b15"), LOG_INFO), WriteSyslog(U(u"A04"), U(u""), LOG_WARNING);
    char buf[512];
    const ssize_t n = recv(s, buf, sizeof buf, MSG_DONTWAIT);  // a local datagram is queued by now
    _exit(n > 0 && write(fds[1], buf, n) == n ? 0 : 2);
  }
  close(fds[1]);
  char buf[512] = {};
  const ssize_t n = read(fds[0], buf, sizeof buf - 1);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "user and mount namespaces are not permitted here";
  ASSERT_TRUE(WEXITSTATUS(status) == 0 && n > 0);
  EXPECT_TRUE(std::regex_match(buf, std::regex(R"(<156>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d NUVT11_42\[)" + std::to_string(pid) +
                                               R"(\]: A04 Basis System: Work process wp3 ended with signal 15)"))) << buf;
}

}  // namespace
