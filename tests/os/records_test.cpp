// User, group and host records read through nss_wrapper from files this test
// writes (the machine's own databases are never read or changed), services
// from the machine's /etc/services against libc's own answers.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/mount.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "nuvu16.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

constexpr char kNssWrapper[] = "/usr/lib/x86_64-linux-gnu/libnss_wrapper.so";

std::string many(const char* stem, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += std::string(" ") + stem + std::to_string(i);
  return s;
}
std::string members(int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += (i ? ",m" : "m") + std::to_string(i);
  return s;
}

const std::string kHome(4096, 'h');  // with the leading "/" below: 4096 bytes
const std::string kPasswd =
    "jürgen:x:1001:1001:Jürgen Groß 😀,Raum 4:/home/jürgen:/bin/bash\n"
    "longhome:x:1002:1002:long home:/" + kHome.substr(1) + ":/bin/sh\n"
    "longshell:x:1003:1003:long shell:/home/ls:/" + std::string(1023, 's') + "\n"
    "plain:pw:1004:1004::/home/plain:/bin/sh\n";
const std::string kGroup = "grüppe:x:2001:jürgen,plain\n"
                           "big:x:2002:" + members(1023) + "\n"
                           "toobig:x:2003:" + members(1024) + "\n";
const std::string kHosts = "10.1.2.3 hauptrechner.example bücher.example\n"
                           "fd00::17 sechs.example\n";
// nss_wrapper stops at 32 aliases, so the alias caps are read from a private
// /etc/hosts bind-mounted inside namespaces the test makes.
const std::string kAliasHosts = "127.0.0.1 localhost\n"
                                "10.1.2.4 a63.example" + many("x", 63) + "\n"
                                "10.1.2.5 a64.example" + many("y", 64) + "\n";

bool saw(const char* text) {
  for (auto& l : nuvtest::RecordingTrace::lines)
    if (l.find(text) != std::string::npos) return true;
  return false;
}

TEST(Records, ThroughNssWrapper) {
  if (access(kNssWrapper, R_OK) != 0) GTEST_SKIP() << "libnss-wrapper is not installed";
  nuvtest::ScratchDir dir;
  for (auto [name, text] : {std::pair{"passwd", &kPasswd}, {"group", &kGroup}, {"hosts", &kHosts}})
    std::ofstream(dir / name) << *text;
  auto r = nuvtest::rerun_self("DISABLED_NssChild.*", {{"LD_PRELOAD", kNssWrapper},
                                                       {"NSS_WRAPPER_PASSWD", dir / "passwd"},
                                                       {"NSS_WRAPPER_GROUP", dir / "group"},
                                                       {"NSS_WRAPPER_HOSTS", dir / "hosts"},
                                                       {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
  EXPECT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("[  PASSED  ] 4 tests."), std::string::npos) << r.output;
}

// ---- run only in the child above ----

TEST(DISABLED_NssChild, Passwd) {
  nuvtest::RecordingTrace trace;
  passwdU16* p = getpwnamU16(utf16("jürgen").c_str());
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(std::u16string(p->pw_name), u"jürgen");
  EXPECT_EQ(std::u16string(p->pw_gecos), u"Jürgen Groß 😀,Raum 4");
  EXPECT_EQ(std::u16string(p->pw_dir), u"/home/jürgen");
  EXPECT_EQ(std::u16string(p->pw_shell), u"/bin/bash");
  EXPECT_EQ(std::u16string(p->pw_passwd), u"x");
  EXPECT_EQ(p->pw_uid, 1001u);
  EXPECT_EQ(p->pw_gid, 1001u);
  EXPECT_EQ(getpwnamU16(u"plain"), p) << "one static record per function";
  EXPECT_EQ(std::u16string(p->pw_passwd), u"pw");

  passwdU16* u = getpwuidU16(1001);
  ASSERT_NE(u, nullptr);
  EXPECT_NE(u, p);
  EXPECT_EQ(std::u16string(u->pw_name), u"jürgen");
  EXPECT_EQ(std::u16string(p->pw_name), u"plain") << "getpwuidU16 has a record of its own";

  passwdU16* h = getpwnamU16(u"longhome");
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(std::u16string(h->pw_dir), utf16("/" + kHome.substr(1)));
  EXPECT_TRUE(trace.lines.empty());

  errno = 0;
  EXPECT_EQ(getpwnamU16(u"longshell"), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_TRUE(saw("Function getpwnamU16 :\nArray pw_shell_buf length MAX_PWSHELL_LN is too small."));
  EXPECT_EQ(getpwnamU16(u"nobody-here"), nullptr);
  EXPECT_EQ(getpwnamU16(nullptr), nullptr);
}

TEST(DISABLED_NssChild, Group) {
  nuvtest::RecordingTrace trace;
  groupU16* g = getgrgidU16(2001);
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(std::u16string(g->gr_name), u"grüppe");
  EXPECT_EQ(g->gr_gid, 2001u);
  ASSERT_NE(g->gr_mem[0], nullptr);
  ASSERT_NE(g->gr_mem[1], nullptr);
  EXPECT_EQ(std::u16string(g->gr_mem[0]), u"jürgen");
  EXPECT_EQ(std::u16string(g->gr_mem[1]), u"plain");
  EXPECT_EQ(g->gr_mem[2], nullptr);

  g = getgrgidU16(2002);
  ASSERT_NE(g, nullptr);
  int n = 0;
  for (; g->gr_mem[n]; ++n) ASSERT_EQ(std::u16string(g->gr_mem[n]), utf16("m" + std::to_string(n)));
  EXPECT_EQ(n, 1023);
  EXPECT_TRUE(trace.lines.empty());

  errno = 0;
  EXPECT_EQ(getgrgidU16(2003), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_TRUE(saw("Function getgrgidU16 :\nArray gr_mem_buf length MAX_GRMEMBERS is too small."));
}

TEST(DISABLED_NssChild, Hosts) {
  nuvtest::RecordingTrace trace;
  hostentU16* h = gethostbynameU16(u"hauptrechner.example");
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(std::u16string(h->h_name), u"hauptrechner.example");
  ASSERT_NE(h->h_aliases[0], nullptr);
  EXPECT_EQ(std::u16string(h->h_aliases[0]), u"bücher.example");
  EXPECT_EQ(h->h_addrtype, AF_INET);
  ASSERT_EQ(h->h_length, 4);
  ASSERT_NE(h->h_addr_list[0], nullptr);
  EXPECT_EQ(0, memcmp(h->h_addr_list[0], "\x0a\x01\x02\x03", 4));

  const unsigned char v6[16] = {0xfd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x17};
  hostentU16* b = gethostbyaddrU16(v6, sizeof v6, AF_INET6);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b, h) << "the host lookups share one record";
  EXPECT_EQ(std::u16string(b->h_name), u"sechs.example");
  ASSERT_EQ(b->h_length, 16);
  EXPECT_EQ(0, memcmp(b->h_addr_list[0], v6, 16));
  EXPECT_EQ(b->h_addr_list[1], nullptr);

  EXPECT_EQ(gethostbynameU16(nullptr), nullptr);
  EXPECT_EQ(gethostbyaddrU16(nullptr, 4, AF_INET), nullptr);
}

TEST(DISABLED_NssChild, HostEnumeration) {
  sethostent(0);
  int seen = 0;
  bool v6 = false;
  for (hostentU16* h; (h = gethostentU16()) != nullptr;) {
    ++seen;
    v6 |= h->h_length == 16 && std::u16string(h->h_name) == u"sechs.example";
  }
  endhostent();
  EXPECT_EQ(seen, 2);
  EXPECT_TRUE(v6);
}

#define CHECK_OR_SAY(cond) \
  if (!(cond)) return std::string("failed: ") + #cond

TEST(Records, HostAliasCaps) {
  nuvtest::ScratchDir dir;
  std::ofstream(dir / "hosts") << kAliasHosts;
  const std::string hosts = dir / "hosts";
  auto r = nuvtest::run_forked(
      [&]() -> std::string {
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(hosts.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
          return "skip";
        nuvtest::RecordingTrace trace;
        hostentU16* h = gethostbynameU16(u"a63.example");
        CHECK_OR_SAY(h != nullptr);
        int n = 0;
        for (; h->h_aliases[n]; ++n) CHECK_OR_SAY(std::u16string(h->h_aliases[n]) == utf16("x" + std::to_string(n)));
        CHECK_OR_SAY(n == 63);
        CHECK_OR_SAY(trace.lines.empty());
        errno = 0;
        CHECK_OR_SAY(gethostbynameU16(u"a64.example") == nullptr);
        CHECK_OR_SAY(errno == ENAMETOOLONG);
        CHECK_OR_SAY(saw("Function convertToHostentU16 :\nArray h_aliases_buf length MAX_ALIASES is too small."));
        return "";
      },
      CLONE_NEWUSER | CLONE_NEWNS);
  if (r.status == 77 || r.output == "skip") GTEST_SKIP() << "user and mount namespaces not permitted here";
  EXPECT_EQ(r.status, 0) << r.output;
}

// ---- services: the machine's /etc/services, held against libc ----

struct ServiceRow {
  const char* name;
  const char* proto;  // null: any
};
const ServiceRow kServices[] = {{"http", "tcp"}, {"https", "udp"}, {"ssh", nullptr}, {"domain", "udp"},
                                {"www", "tcp"},  {"smtp", "tcp"},  {"ntp", "udp"},   {"no-such-service", "tcp"}};

void expect_same(const serventU16* ours, const servent* libc, const std::string& what) {
  if (!libc) {
    EXPECT_EQ(ours, nullptr) << what;
    return;
  }
  ASSERT_NE(ours, nullptr) << what;
  EXPECT_EQ(std::u16string(ours->s_name), utf16(libc->s_name)) << what;
  EXPECT_EQ(std::u16string(ours->s_proto), utf16(libc->s_proto)) << what;
  EXPECT_EQ(ours->s_port, libc->s_port) << what;
  int i = 0;
  for (; libc->s_aliases[i]; ++i) {
    ASSERT_NE(ours->s_aliases[i], nullptr) << what;
    EXPECT_EQ(std::u16string(ours->s_aliases[i]), utf16(libc->s_aliases[i])) << what;
  }
  EXPECT_EQ(ours->s_aliases[i], nullptr) << what;
}

TEST(Records, ServicesMatchLibc) {
  if (access("/etc/services", R_OK) != 0) GTEST_SKIP() << "no /etc/services (netbase)";
  for (const auto& row : kServices) {
    const std::u16string name = utf16(row.name);
    const std::u16string proto = row.proto ? utf16(row.proto) : u"";
    serventU16* byname = getservbynameU16(name.c_str(), row.proto ? proto.c_str() : nullptr);
    // libc's record is copied right away: the next lookup reuses it.
    servent* libc = getservbyname(row.name, row.proto);
    expect_same(byname, libc, row.name);
    if (!libc) continue;
    const int port = libc->s_port;
    const std::string libc_name = libc->s_name;
    serventU16* byport = getservbyportU16(port, row.proto ? proto.c_str() : nullptr);
    expect_same(byport, getservbyport(port, row.proto), row.name);
    EXPECT_NE(byport, byname) << "one record per function";
    EXPECT_EQ(std::u16string(byname->s_name), utf16(libc_name)) << "byname record untouched by byport";
  }
}

TEST(Records, ServiceKeysTooLong) {
  nuvtest::RecordingTrace trace;
  errno = 0;
  // The cut name "http" + 28 more bytes does not exist; the lookup still ran.
  EXPECT_EQ(getservbynameU16(utf16("http" + std::string(40, 'z')).c_str(), u"tcp"), nullptr);
  EXPECT_TRUE(saw("Function getservbynameU16 :\nArray cname length MAX_SERVNAME_LN is too small."));
  trace.lines.clear();
  // "tcp" followed by five more units fills the 8-byte protocol buffer.
  EXPECT_EQ(getservbyportU16(htons(80), u"tcpabcde"), nullptr);
  EXPECT_TRUE(saw("Function getservbyportU16 :\nArray s_proto_char length MAX_SERVPROTONAME_LN is too small."));
  EXPECT_EQ(getservbynameU16(nullptr, u"tcp"), nullptr);
}

}  // namespace
