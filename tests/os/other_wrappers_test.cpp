// Error texts, time strings, host name and uname inside user and UTS
// namespaces the test makes, getpass and ttyname on a pseudo-terminal.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/utsname.h>

#include "nuvu16.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

// XSI strerror_r as the library sees it: with bad_text set the text is not
// UTF-8, as a text in another code set would be.
static bool bad_text = false;
extern "C" int __xpg_strerror_r(int errnum, char* buf, size_t buflen) {
  static auto real = reinterpret_cast<int (*)(int, char*, size_t)>(dlsym(RTLD_NEXT, "__xpg_strerror_r"));
  if (!bad_text) return real(errnum, buf, buflen);
  return snprintf(buf, buflen, "Ung\xfcltig") < 0;
}

namespace {

using nuvtest::utf16;

TEST(ErrorTexts, BuffersAndSubstitute) {
  struct {
    bool bad;
    size_t units;
    int rc;
    std::u16string text;
  } rows[] = {{false, 0, ERANGE, u""},       {false, 4, ERANGE, u"Inv"},  {false, 16, ERANGE, u"Invalid argumen"},
              {false, 17, 0, u"Invalid argument"}, {true, 10, EILSEQ, u"Could not"},
              {true, 80, EILSEQ, u"Could not convert error no. 223 to UTF-16 characters"}};
  for (auto& row : rows) {
    std::u16string buf(row.units + 1, u'#');
    bad_text = row.bad;
    EXPECT_EQ(strerror_rU16(EINVAL, buf.data(), row.units), row.rc) << row.units;
    EXPECT_EQ(std::u16string(strerrorU16(EINVAL)), row.bad ? rows[5].text : u"Invalid argument");
    bad_text = false;
    EXPECT_EQ(buf.substr(0, row.text.size() + 1), row.units ? row.text + u'\0' : u"#") << row.units;
  }
  EXPECT_EQ(strerror_rU16(EINVAL, nullptr, 0), 34);
  for (int e = -1; e < 135; ++e) EXPECT_EQ(std::u16string(strerrorU16(e)), utf16(strerror(e)));
}

TEST(TimeStrings, StrftimeAgainstLibc) {
  nuvtest::RecordingTrace trace;
  const time_t t = 1795457656;
  char want[64];
  NUV_UTF16 buf[64];
  strftime(want, sizeof want, "%F %T – Woche %V, grüß", gmtime(&t));
  EXPECT_EQ(strftimeU16(buf, 64, utf16("%F %T – Woche %V, grüß").c_str(), gmtime(&t)), utf16(want).size());
  EXPECT_EQ(std::u16string(buf), utf16(want));
  EXPECT_EQ(strftimeU16(buf, 5, u"%Y-%m", gmtime(&t)), 0u);
  EXPECT_EQ(std::u16string(ctimeU16(&t)), utf16(ctime(&t)));
  EXPECT_NE(trace.lines.at(0).find("strftimeU16 :\nArray wteststr length MAX_TIMESTR_LN"), std::string::npos);
  strftimeU16(buf, 64, std::u16string(300, u'x').c_str(), gmtime(&t));
  EXPECT_NE(trace.lines.at(1).find("strfctimeU16 :\nArray cformat length MAX_FORMATSTR_LN"), std::string::npos);
}

TEST(DynamicLoading, SymbolsAndErrorTexts) {
  void* h = dlopenU16(u"libm.so.6", RTLD_NOW);
  EXPECT_TRUE(h && dlsymU16(h, u"cos") == dlsym(h, "cos") && !dlsymU16(h, u"kein_symbol_ü"));
  EXPECT_NE(std::u16string(dlerrorU16()).find(u"kein_symbol_ü"), std::u16string::npos);
  EXPECT_EQ(dlerrorU16(), nullptr);
  EXPECT_EQ(dlopenU16(u"/nicht/da-ü.so", RTLD_NOW), nullptr);
  EXPECT_NE(std::u16string(dlerrorU16()).find(u"/nicht/da-ü.so"), std::u16string::npos);
}

TEST(SystemIdentity, HostNameInUtsNamespace) {
  for (const std::string name : std::vector<std::string>{"rechner-müller-😀", "\xff-broken", std::string(64, 'n')}) {
    auto r = nuvtest::run_forked(
        [&]() -> std::string {
          nuvtest::RecordingTrace quiet;
          utsnameU16 u;
          NUV_UTF16 host[256];
          struct utsname n;
          const bool valid = name[0] != '\xff';
          if (sethostname(name.data(), name.size()) || uname(&n)) _exit(77);
          if (unameU(&u) != (valid ? 0 : -1) || gethostnameU16(host, 256) != (valid ? 0 : -1)) return "result";
          if (!valid) return "";
          if (std::u16string(u.nodename) != utf16(name) || std::u16string(host) != utf16(name)) return "name";
          if (std::u16string(u.release) != utf16(n.release) || std::u16string(u.machine) != utf16(n.machine)) return "field";
          return gethostnameU16(host, utf16(name).size()) == -1 && errno == ENAMETOOLONG ? "" : "no room";
        },
        CLONE_NEWUSER | CLONE_NEWUTS);
    if (r.status == 77) GTEST_SKIP() << "user and UTS namespaces are not permitted here";
    EXPECT_EQ(r.status, 0) << r.output;
  }
}

// getpass reads the controlling terminal: the child makes the pty its own,
// the parent types once the prompt shows.
TEST(Terminal, GetpassAndTtynameOnPty) {
  int master, slave;
  char name[256];
  if (openpty(&master, &slave, name, nullptr, nullptr) != 0) GTEST_SKIP() << "no pseudo-terminals";
  EXPECT_EQ(std::u16string(ttynameU16(slave)), utf16(name));
  const pid_t pid = fork();
  if (pid == 0) {
    setsid();
    ioctl(slave, TIOCSCTTY, 0);
    NUV_UTF16* answer = getpassU16(u"Kennwort für ü: ");
    _exit(answer && std::u16string(answer) == u"geheim-ß😀" ? 0 : 1);
  }
  std::string seen;
  char b[256];
  for (int i = 0; i < 50 && seen.find("ü: ") == std::string::npos; ++i)
    if (pollfd p{master, POLLIN, 0}; poll(&p, 1, 100) > 0) seen.append(b, std::max<ssize_t>(0, read(master, b, 256)));
  EXPECT_EQ(seen, "Kennwort für ü: ");
  EXPECT_EQ(write(master, "geheim-ß😀\n", 14), 14);
  int st = -1;
  waitpid(pid, &st, 0);
  EXPECT_EQ(st, 0);
  close(master);
  close(slave);
}

}  // namespace
