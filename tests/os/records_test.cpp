// User, group and host records from files this test writes, read through
// nss_wrapper or a private /etc/hosts in namespaces the test makes (never the
// machine's own files); services from /etc/services against libc.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/mount.h>

#include <fstream>
#include <functional>

#include "nuvu16.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;
using std::to_string;

std::string seq(const char* stem, int n, const char* sep) {
  std::string s;
  for (int i = 0; i < n; ++i) s += (i ? sep : "") + (stem + to_string(i));
  return s;
}
const std::string kHome = "/" + std::string(4095, 'h');  // 4096 one-byte characters
const std::string kPasswd = "jürgen:x:1001:1001:Jürgen Groß 😀:/home/jürgen:/bin/bash\n"
                            "longhome:x:1002:1002::" + kHome + ":/bin/sh\n"
                            "longshell:x:1003:1003::/:/" + std::string(1023, 's') + "\n";
const std::string kGroup = "grüppe:x:2001:jürgen,longhome\nbig:x:2002:" + seq("m", 1023, ",") +
                           "\ntoobig:x:2003:" + seq("m", 1024, ",") + "\n";
const std::string kHosts = "10.1.2.3 haupt.example bücher.example\nfd00::17 sechs.example\n";
// nss_wrapper takes at most 32 aliases: these go into a bind-mounted /etc/hosts.
const std::string kAliasHosts = "10.1.2.4 a63 " + seq("x", 63, " ") + "\n10.1.2.5 a64 " + seq("y", 64, " ") + "\n";

// A record as one text: fields joined by '|', lists by ','.
std::u16string join(NUV_UTF16* const* list) {
  std::u16string s;
  for (int i = 0; list && list[i]; ++i) s += (i ? u"," : u"") + std::u16string(list[i]);
  return s;
}
std::u16string cat(std::initializer_list<std::u16string> fields) {
  std::u16string s;
  for (auto& f : fields) s += (s.empty() ? u"" : u"|") + f;
  return s;
}
std::u16string num(long v) { return utf16(to_string(v)); }
std::u16string render(const passwdU16* p) {
  return cat({p->pw_name, p->pw_passwd, num(p->pw_uid), num(p->pw_gid), p->pw_gecos, p->pw_dir, p->pw_shell});
}
std::u16string render(const groupU16* g) { return cat({g->gr_name, g->gr_passwd, num(g->gr_gid), join(g->gr_mem)}); }
std::u16string render(const serventU16* s) { return cat({s->s_name, s->s_proto, num(s->s_port), join(s->s_aliases)}); }
std::u16string render(const hostentU16* h) {
  char a[64];
  inet_ntop(h->h_addrtype, h->h_addr_list[0], a, sizeof a);
  return cat({h->h_name, join(h->h_aliases), num(h->h_length), utf16(a)});
}
template <class R>
std::u16string shown(R* r) {
  return r ? render(r) : u"null";
}

// Lookup, the record it must give, the report it must make (null: none).
using Row = std::tuple<std::function<std::u16string()>, std::u16string, const char*>;
std::string check(const std::vector<Row>& rows) {
  for (auto& [lookup, want, report] : rows) {
    nuvtest::RecordingTrace trace;
    const std::u16string got = lookup();
    std::string all;
    for (auto& l : trace.lines) all += l;
    if (got != want || (report ? all.find(report) == std::string::npos : !all.empty()))
      return "lookup of " + std::string(want.begin(), want.begin() + std::min<size_t>(want.size(), 12)) + ": " + all;
  }
  return "";
}

TEST(Records, ThroughNssWrapper) {
  const char* lib = "/usr/lib/x86_64-linux-gnu/libnss_wrapper.so";
  if (access(lib, R_OK) != 0) GTEST_SKIP() << "libnss-wrapper is not installed";
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a preloaded nss_wrapper ahead of the ThreadSanitizer runtime hangs the child";
#endif
  nuvtest::ScratchDir dir;
  for (auto [name, text] : {std::pair{"passwd", &kPasswd}, {"group", &kGroup}, {"hosts", &kHosts}})
    std::ofstream(dir / name) << *text;
  auto r = nuvtest::rerun_self("DISABLED_NssChild.*",
                               {{"LD_PRELOAD", lib}, {"NSS_WRAPPER_PASSWD", dir / "passwd"},
                                {"NSS_WRAPPER_GROUP", dir / "group"}, {"NSS_WRAPPER_HOSTS", dir / "hosts"},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
  EXPECT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("[  PASSED  ] 1 test."), std::string::npos) << r.output;
}

TEST(DISABLED_NssChild, Lookups) {
  const unsigned char v6[16] = {0xfd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x17};
  EXPECT_EQ(check({
                {[] { return shown(getpwnamU16(utf16("jürgen").c_str())); },
                 u"jürgen|x|1001|1001|Jürgen Groß 😀|/home/jürgen|/bin/bash", nullptr},
                {[] { return shown(getpwuidU16(1002)); }, u"longhome|x|1002|1002||" + utf16(kHome) + u"|/bin/sh",
                 nullptr},
                {[] { return shown(getpwnamU16(u"longshell")); }, u"null",
                 "getpwnamU16 :\nArray pw_shell_buf length MAX_PWSHELL_LN is too small."},
                {[] { return shown(getgrgidU16(2001)); }, u"grüppe|x|2001|jürgen,longhome", nullptr},
                {[] { return shown(getgrgidU16(2002)); }, u"big|x|2002|" + utf16(seq("m", 1023, ",")), nullptr},
                {[] { return shown(getgrgidU16(2003)); }, u"null",
                 "getgrgidU16 :\nArray gr_mem_buf length MAX_GRMEMBERS is too small."},
                {[] { return shown(gethostbynameU16(u"haupt.example")); },
                 u"haupt.example|bücher.example|4|10.1.2.3", nullptr},
                {[&] { return shown(gethostbyaddrU16(v6, 16, AF_INET6)); }, u"sechs.example||16|fd00::17", nullptr},
                {[] { return shown(gethostbynameU16(nullptr)); }, u"null", nullptr},
            }),
            "");
  // One record per password function, one shared by the host lookups.
  EXPECT_EQ(getpwnamU16(u"jürgen"), getpwnamU16(u"longhome"));
  EXPECT_NE(getpwnamU16(u"jürgen"), getpwuidU16(1001));
  EXPECT_EQ(gethostbynameU16(u"haupt.example"), gethostbyaddrU16(v6, 16, AF_INET6));
}

TEST(Records, HostAliasCapsInMountNamespace) {
  nuvtest::ScratchDir dir;
  std::ofstream(dir / "hosts") << kAliasHosts;
  auto r = nuvtest::run_forked(
      [&]() -> std::string {
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount((dir / "hosts").c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
          _exit(77);
        return check({{[] { return shown(gethostbynameU16(u"a63")); }, u"a63|" + utf16(seq("x", 63, ",")) + u"|4|10.1.2.4",
                       nullptr},
                      {[] { return shown(gethostbynameU16(u"a64")); }, u"null",
                       "convertToHostentU16 :\nArray h_aliases_buf length MAX_ALIASES is too small."}});
      },
      CLONE_NEWUSER | CLONE_NEWNS);
  if (r.status == 77) GTEST_SKIP() << "user and mount namespaces are not permitted here";
  EXPECT_EQ(r.status, 0) << r.output;
}

TEST(Records, ServicesMatchLibc) {
  for (auto [name, proto] : {std::pair{"http", "tcp"}, {"https", "udp"}, {"ssh", nullptr}, {"www", "tcp"}, {"no", ""}}) {
    const std::u16string n = utf16(name), p = proto ? utf16(proto) : u"";
    const std::u16string ours = shown(getservbynameU16(n.c_str(), proto ? p.c_str() : nullptr));
    const servent* s = getservbyname(name, proto);
    std::string want = s ? std::string(s->s_name) + "|" + s->s_proto + "|" + to_string(s->s_port) + "|" : "null";
    for (int i = 0; s && s->s_aliases[i]; ++i) want += (i ? "," : "") + std::string(s->s_aliases[i]);
    EXPECT_EQ(ours, utf16(want));
    if (s) EXPECT_EQ(shown(getservbyportU16(s->s_port, proto ? p.c_str() : nullptr)), ours);
  }
  EXPECT_EQ(check({{[] { return shown(getservbyportU16(htons(80), u"tcpabcde")); }, u"null",  // cut to "tcpabcd"
                    "getservbyportU16 :\nArray s_proto_char length MAX_SERVPROTONAME_LN is too small."}}),
            "");
}

}  // namespace
