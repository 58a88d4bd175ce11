// Time strings, error texts, dynamic loading, host name and uname (inside
// user and UTS namespaces the test makes), getpass and ttyname on a
// pseudo-terminal, perror, held against libc's own answers.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string>

#include "nuvu16.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

// XSI strerror_r as this program sees it: with bad_text set it answers with
// bytes that are not UTF-8, as a text in another code set would be.
namespace {
bool bad_text = false;
}
extern "C" int __xpg_strerror_r(int errnum, char* buf, size_t buflen) {
  using Real = int (*)(int, char*, size_t);
  static Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "__xpg_strerror_r"));
  if (!bad_text) return real(errnum, buf, buflen);
  snprintf(buf, buflen, "Ung\xfcltiges Argument");
  return 0;
}

namespace {

using nuvtest::utf16;

bool saw(const char* text) {
  for (auto& l : nuvtest::RecordingTrace::lines)
    if (l.find(text) != std::string::npos) return true;
  return false;
}

#define CHECK_OR_SAY(cond) \
  if (!(cond)) return std::string("failed: ") + #cond

TEST(ErrorTexts, EveryErrorNumberMatchesLibc) {
  for (int e = -2; e < 140; ++e) {
    const std::u16string want = utf16(strerror(e));
    EXPECT_EQ(std::u16string(strerrorU16(e)), want) << e;
    NUV_UTF16 buf[512];
    const int rc = strerror_rU16(e, buf, 512);
    char narrow[512];
    EXPECT_EQ(rc, strerror_rR(e, narrow, sizeof narrow)) << e;
    EXPECT_EQ(std::u16string(buf), utf16(narrow)) << e;
    EXPECT_EQ(std::u16string(buf), want) << e;
  }
}

struct ShortRow {
  size_t units;
  int rc;
};
const ShortRow kShort[] = {{0, ERANGE}, {1, ERANGE}, {4, ERANGE}, {16, ERANGE}, {17, 0}, {64, 0}};

TEST(ErrorTexts, BufferSizes) {
  EXPECT_EQ(strerror_rU16(EINVAL, nullptr, 0), 34);
  EXPECT_EQ(strerror_rU16(EINVAL, nullptr, 100), 34);
  EXPECT_EQ(strerror_rR(EINVAL, nullptr, 10), 34);
  const std::u16string full = u"Invalid argument";  // 16 units
  for (const auto& row : kShort) {
    std::u16string buf(row.units + 2, u'#');
    EXPECT_EQ(strerror_rU16(EINVAL, buf.data(), row.units), row.rc) << row.units;
    if (row.units == 0) {
      EXPECT_EQ(buf[0], u'#');
      continue;
    }
    const size_t kept = std::min(row.units - 1, full.size());
    EXPECT_EQ(buf.substr(0, kept), full.substr(0, kept)) << row.units;
    EXPECT_EQ(buf[kept], 0) << row.units;
    EXPECT_EQ(buf[row.units], u'#') << "no write past the buffer, " << row.units;
  }
  char narrow[5];
  EXPECT_EQ(strerror_rR(EINVAL, narrow, sizeof narrow), ERANGE);
  EXPECT_STREQ(narrow, "Inva");
}

TEST(ErrorTexts, UnconvertibleTextGivesSubstitute) {
  nuvtest::RecordingTrace trace;
  bad_text = true;
  NUV_UTF16 buf[128];
  const int rc = strerror_rU16(EINVAL, buf, 128);
  const std::u16string one = strerrorU16(EINVAL);
  NUV_UTF16 small[10];
  const int rc_small = strerror_rU16(EINVAL, small, 10);
  bad_text = false;
  EXPECT_EQ(rc, EILSEQ);
  EXPECT_EQ(std::u16string(buf), u"Could not convert error no. 223 to UTF-16 characters");
  EXPECT_EQ(one, u"Could not convert error no. 223 to UTF-16 characters");
  EXPECT_EQ(rc_small, EILSEQ);
  EXPECT_EQ(std::u16string(small), u"Could not");
  EXPECT_TRUE(saw("strerror_rU16 encountered invalid UTF-8"));
  EXPECT_TRUE(saw("strerrorU16 encountered invalid UTF-8"));
  EXPECT_EQ(std::u16string(strerrorU16(EINVAL)), u"Invalid argument");
}

TEST(ErrorTexts, PerrorWritesTextAndReason) {
  nuvtest::ScratchDir dir;
  const std::string out = dir / "err";
  auto r = nuvtest::run_forked([&]() -> std::string {
    freopen(out.c_str(), "w", stderr);
    errno = ENOENT;
    perrorU16(utf16("grüße").c_str());
    errno = EACCES;
    perrorU16(nullptr);
    fflush(stderr);
    return "";
  });
  ASSERT_EQ(r.status, 0) << r.output;
  FILE* f = fopen(out.c_str(), "r");
  ASSERT_NE(f, nullptr);
  const std::string text = nuvtest::read_all(fileno(f));
  fclose(f);
  EXPECT_EQ(text, std::string("grüße: ") + strerror(ENOENT) + "\n" + strerror(EACCES) + "\n");
}

TEST(TimeStrings, MatchLibcOverSeededTimes) {
  std::mt19937_64 rng(20261123);
  for (int i = 0; i < 200; ++i) {
    const time_t t = static_cast<time_t>(rng() % 4102444800ull);
    EXPECT_EQ(std::u16string(ctimeU16(&t)), utf16(ctime(&t)));
    struct tm tm;
    gmtime_r(&t, &tm);
    EXPECT_EQ(std::u16string(asctimeU16(&tm)), utf16(asctime(&tm)));
    NUV_UTF16 buf[256];
    char nb[64];
    ASSERT_EQ(ctime_rU16(&t, buf), buf);
    EXPECT_EQ(std::u16string(buf), utf16(ctime_r(&t, nb)));
    ASSERT_EQ(asctime_rU16(&tm, buf), buf);
    EXPECT_EQ(std::u16string(buf), utf16(asctime_r(&tm, nb)));
    const char* format = "%Y-%m-%d %H:%M:%S %j %a – Woche %V, grüß 😀";
    char want[256];
    const size_t n = strftime(want, sizeof want, format, &tm);
    EXPECT_EQ(strftimeU16(buf, 256, utf16(format).c_str(), &tm), utf16(want).size());
    EXPECT_EQ(std::u16string(buf), utf16(std::string(want, n)));
  }
  EXPECT_EQ(ctimeU16(nullptr), nullptr);
  EXPECT_EQ(asctimeU16(nullptr), nullptr);
}

TEST(TimeStrings, StrftimeLimits) {
  nuvtest::RecordingTrace trace;
  const time_t t = 0;
  struct tm tm;
  gmtime_r(&t, &tm);
  NUV_UTF16 buf[256];
  EXPECT_EQ(strftimeU16(buf, 5, u"%Y-%m", &tm), 0u) << "7 units do not fit 5";
  EXPECT_EQ(strftimeU16(buf, 8, u"%Y-%m", &tm), 7u);
  EXPECT_EQ(std::u16string(buf), u"1970-01");
  trace.lines.clear();
  const std::u16string long_format(300, u'x');
  strftimeU16(buf, 256, long_format.c_str(), &tm);
  EXPECT_TRUE(saw("Function strfctimeU16 :\nArray cformat length MAX_FORMATSTR_LN is too small."));
  EXPECT_EQ(strftimeU16(buf, 256, nullptr, &tm), 0u);
}

TEST(DynamicLoading, OpenSymbolAndError) {
  void* h = dlopenU16(u"libm.so.6", RTLD_NOW);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(dlsymU16(h, u"cos"), dlsym(h, "cos"));
  EXPECT_EQ(dlsymU16(h, u"no_such_symbol_ü"), nullptr);
  NUV_UTF16* err = dlerrorU16();
  ASSERT_NE(err, nullptr);
  EXPECT_NE(std::u16string(err).find(u"no_such_symbol_ü"), std::u16string::npos);
  EXPECT_EQ(dlerrorU16(), nullptr) << "dlerror clears its text";
  dlclose(h);
  EXPECT_EQ(dlopenU16(u"/nonexistent/bibliothek-ü.so", RTLD_NOW), nullptr);
  err = dlerrorU16();
  ASSERT_NE(err, nullptr);
  EXPECT_NE(std::u16string(err).find(u"bibliothek-ü.so"), std::u16string::npos);
}

// Host names are set only inside namespaces this test creates.
struct HostRow {
  const char* name;  // bytes given to sethostname
  bool converts;
};
const HostRow kHostNames[] = {{"plain-host", true},
                              {"rechner-müller-😀", true},
                              {"\xff\xfe-broken", false},
                              {"ends-inside-\xe2\x82", false},
                              {"sixty-four-bytes-abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstu", true}};

TEST(SystemIdentity, HostNameInUtsNamespace) {
  for (const auto& row : kHostNames) {
    const std::string name = row.name;
    auto r = nuvtest::run_forked(
        [&]() -> std::string {
          if (sethostname(name.data(), name.size()) != 0) return "skip";
          nuvtest::RecordingTrace trace;
          utsnameU16 u;
          struct utsname n;
          uname(&n);
          NUV_UTF16 host[256];
          if (!row.converts) {
            CHECK_OR_SAY(unameU(&u) == -1);
            CHECK_OR_SAY(gethostnameU16(host, 256) == -1);
            CHECK_OR_SAY(saw("u16_utf8conv_error") || !trace.lines.empty());
            return "";
          }
          CHECK_OR_SAY(unameU(&u) == 0);
          CHECK_OR_SAY(std::u16string(u.nodename) == utf16(name));
          CHECK_OR_SAY(std::u16string(u.sysname) == utf16(n.sysname));
          CHECK_OR_SAY(std::u16string(u.release) == utf16(n.release));
          CHECK_OR_SAY(std::u16string(u.version) == utf16(n.version));
          CHECK_OR_SAY(std::u16string(u.machine) == utf16(n.machine));
          CHECK_OR_SAY(gethostnameU16(host, 256) == 0);
          CHECK_OR_SAY(std::u16string(host) == utf16(name));
          const size_t units = utf16(name).size();
          errno = 0;
          CHECK_OR_SAY(gethostnameU16(host, units) == -1);  // no room for the terminator
          CHECK_OR_SAY(errno == ENAMETOOLONG);
          CHECK_OR_SAY(gethostnameU16(host, units + 1) == 0);
          return "";
        },
        CLONE_NEWUSER | CLONE_NEWUTS);
    if (r.status == 77 || r.output == "skip") GTEST_SKIP() << "user and UTS namespaces not permitted here";
    EXPECT_EQ(r.status, 0) << row.name << ": " << r.output;
  }
  EXPECT_EQ(unameU(nullptr), -1);
  EXPECT_EQ(gethostnameU16(nullptr, 10), -1);
}

// getpass reads the controlling terminal: the child makes the pty's slave
// its terminal, the parent types the answer once the prompt shows.
TEST(Terminal, GetpassAndTtynameOnPty) {
  int master, slave;
  char name[256];
  if (openpty(&master, &slave, name, nullptr, nullptr) != 0) GTEST_SKIP() << "no pseudo-terminals";
  NUV_UTF16* tty = ttynameU16(slave);
  ASSERT_NE(tty, nullptr);
  EXPECT_EQ(std::u16string(tty), utf16(name));
  EXPECT_EQ(ttynameU16(-1), nullptr);

  int report[2];
  ASSERT_EQ(pipe(report), 0);
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    close(master);
    close(report[0]);
    setsid();
    ioctl(slave, TIOCSCTTY, 0);
    NUV_UTF16* answer = getpassU16(utf16("Kennwort für ü: ").c_str());
    const std::string got = answer ? "ok" : "null";
    bool same = answer && std::u16string(answer) == utf16("geheim-ß😀");
    if (write(report[1], same ? "same" : got.c_str(), same ? 4 : got.size()) < 0) _exit(2);
    _exit(0);
  }
  close(slave);
  close(report[1]);
  // Wait for the prompt, then type.
  std::string seen;
  for (int i = 0; i < 100 && seen.find("ü: ") == std::string::npos; ++i) {
    pollfd p{master, POLLIN, 0};
    if (poll(&p, 1, 100) > 0) {
      char b[256];
      const ssize_t n = read(master, b, sizeof b);
      if (n > 0) seen.append(b, static_cast<size_t>(n));
    }
  }
  EXPECT_NE(seen.find("Kennwort für ü: "), std::string::npos) << seen;
  const char typed[] = "geheim-ß😀\n";
  ASSERT_EQ(write(master, typed, sizeof typed - 1), static_cast<ssize_t>(sizeof typed - 1));
  const std::string result = nuvtest::read_all(report[0]);
  close(report[0]);
  int st = 0;
  waitpid(pid, &st, 0);
  close(master);
  EXPECT_EQ(result, "same");
}

}  // namespace
