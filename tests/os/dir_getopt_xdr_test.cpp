// Directory listings with non-ASCII names against readdir64, getoptU against
// glibc's getopt in POSIX mode on seeded vectors, xdr_stringU16 round trips
// against libtirpc's own xdr_string.
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <random>

#include "nuvu16.h"
#include "os/xdr_loader.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

TEST(Directories, ListsAsLibcDoes) {
  nuvtest::ScratchDir dir;
  for (const char* n : {"grüße.txt", "日本語", "😀 smile", "bad-\xff"}) std::ofstream(dir / n) << "x";
  std::multiset<std::u16string> libc, plain, reentrant;  // an undecodable name counts as "?"
  DIR* d = opendir(dir.path.c_str());
  while (dirent64* e = readdir64(d)) libc.insert(e->d_name[4] == '\xff' ? u"?" : utf16(e->d_name));
  closedir(d);
  nuvtest::RecordingTrace trace;
  DIR *a = opendirU16(utf16(dir.path).c_str()), *b = opendirU16(utf16(dir.path).c_str());
  ASSERT_TRUE(a && b);
  auto* entry = new direntU16;
  direntU16* result;
  for (int i = 0; i < 6; ++i) {  // the walk goes on past the undecodable name
    direntU16* e = readdirU16(a);
    plain.insert(e ? e->d_name : u"?");
    const int rc = readdir_rU16(b, entry, &result);
    reentrant.insert(result == entry && rc == 0 ? entry->d_name : !result && rc == EILSEQ ? u"?" : u"wrong");
  }
  EXPECT_TRUE(!readdirU16(a) && !readdir_rU16(b, entry, &result) && !result);
  closedir(a), closedir(b), delete entry;
  EXPECT_EQ(plain, libc);
  EXPECT_EQ(reentrant, libc);
  EXPECT_TRUE(!opendirU16(u"/nonexistent/ördner") && !readdirU16(nullptr));
}

// Steps of one parse: option, optind, optopt for '?', optarg.
template <class C, class F>
std::string parse(std::vector<std::basic_string<C>> args, F next, const C** arg) {
  std::vector<C*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::string steps;
  for (int c = 0; c != -1;) {
    c = next(static_cast<int>(args.size()), argv.data());
    steps += std::to_string(c) + "," + std::to_string(optind) + "," + std::to_string(c == '?' ? optopt : 0) + ",";
    for (const C* p = *arg; c != -1 && p && *p; ++p) steps += static_cast<char>(*p);
    steps += ";";
  }
  return steps;
}

TEST(Getopt, MatchesPosixGetoptOnSeededVectors) {
  const char* pieces[] = {"-a", "-b", "-ab", "-bvalue", "-c", "-acb", "-x", "-:", "--", "-", "word", "-b-", "---"};
  std::mt19937 rng(4242);
  opterr = 0;
  for (int i = 0; i < 3000; ++i) {
    std::vector<std::string> args{"prog"};
    std::vector<std::u16string> wide{u"prog"};
    for (int k = static_cast<int>(rng() % 7); k > 0; --k) wide.push_back(utf16(args.emplace_back(pieces[rng() % 13])));
    optind = 0;  // glibc's full reset
    const std::string want = parse<char>(args, [](int n, char** v) { return getopt(n, v, "+ab:c"); },
                                         const_cast<const char**>(&optarg));
    optind = 1;
    EXPECT_EQ(parse<char16_t>(wide, [](int n, char16_t** v) { return getoptU(n, v, u"ab:c"); },
                              const_cast<const char16_t**>(&optargU)),
              want);
  }
}

TEST(Getopt, Messages) {
  for (auto [arg, text] : {std::pair{u"-x", "prüf: illegal option -- x\n"}, {u"-ö", "prüf: illegal option -- ö\n"},
                           {u"-b", "prüf: option requires an argument -- b\n"}, {u"-:", "prüf: illegal option -- :\n"}}) {
    std::u16string a0 = u"prüf", a1 = arg;
    NUV_UTF16* argv[] = {a0.data(), a1.data(), nullptr};
    auto r = nuvtest::in_child([&](int out) {
      dup2(out, 2), optind = opterr = 1;
      _exit(getoptU16(2, argv, u"ab:") != '?' || optopt != a1[1]);
    });
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, text);
  }
}

TEST(Xdr, RoundTripsAgainstLibtirpc) {
  void* h = dlopen("libtirpc.so.3", RTLD_NOW);
  if (!h) GTEST_SKIP() << "libtirpc is not installed";
  auto create = reinterpret_cast<void (*)(void*, char*, unsigned, int)>(dlsym(h, "xdrmem_create"));
  auto str = reinterpret_cast<int (*)(void*, char**, unsigned)>(dlsym(h, "xdr_string"));
  alignas(16) unsigned char xdr[256];  // more than libtirpc's XDR record
  auto* x = reinterpret_cast<__rpc_xdr*>(xdr);
  nuvtest::RecordingTrace trace;
  nuv_xdr_library_for_tests("libtirpc-not-there.so.99");
  errno = 0;
  NUV_UTF16* none = nullptr;
  memset(xdr, 0, sizeof xdr);  // an encoding stream
  EXPECT_EQ(xdr_stringU16(x, &none, 10), 0);
  nuv_xdr_library_for_tests("libtirpc.so.3");
  EXPECT_EQ(errno, ELIBACC);
  EXPECT_NE(trace.lines.at(0).find("XDR routines not available (libtirpc-not-there.so.99)"), std::string::npos);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' XDR interceptors bind glibc's XDR routines, which glibc no longer has";
#endif
  std::mt19937 rng(777);
  for (int i = 0; i < 500; ++i) {
    std::u16string s;  // any units but 0: lone surrogates and pairs too
    for (int n = static_cast<int>(rng() % 40); n > 0; --n) s.push_back(static_cast<char16_t>(1 + rng() % 0xFFFF));
    char wire[4096], want[4096], *bytes = nullptr;
    const unsigned len = static_cast<unsigned>(U2sToUtf8s(want, s.c_str(), sizeof want));
    NUV_UTF16 *p = s.data(), *fresh = nullptr, caller[130];
    create(x, wire, sizeof wire, 0);
    ASSERT_EQ(xdr_stringU16(x, &p, len), 1);
    create(x, wire, sizeof wire, 1);
    ASSERT_EQ(str(x, &bytes, len), 1);  // the peer reads the UTF-8 we wrote
    EXPECT_STREQ(bytes, want);
    free(bytes);
    for (NUV_UTF16** into : {&fresh, &p}) {  // we read it back: new buffer and the caller's
      p = caller;
      create(x, wire, sizeof wire, 1);
      ASSERT_EQ(xdr_stringU16(x, into, len), 1);
      EXPECT_EQ(std::u16string(*into), s);
    }
    create(x, wire, 0, 2);
    EXPECT_EQ(xdr_stringU16(x, &fresh, len), 1);
    EXPECT_EQ(fresh, nullptr);
    create(x, wire, sizeof wire, 1);
    EXPECT_EQ(len == 0 || !xdr_stringU16(x, &fresh, len - 1), true) << "too long for maxsize";
  }
}

}  // namespace
