// Directory listings with non-ASCII names, getoptU against glibc's getopt in
// POSIX mode over seeded argument vectors, and xdr_stringU16 round trips
// through memory XDR streams against libtirpc's own xdr_string.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "os/xdr_loader.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

// ---- directories ----

const char* const kNames[] = {"plain.txt", "grüße.txt", "日本語", "😀 smile", "a b c", "ÿ"};

TEST(Directories, ListsNamesAsLibcDoes) {
  nuvtest::ScratchDir dir;
  for (const char* n : kNames) std::ofstream(dir / n) << "x";
  mkdir((dir / "ünterordner").c_str(), 0700);

  std::map<std::u16string, std::pair<uint64_t, unsigned char>> libc;
  DIR* d = opendir(dir.path().c_str());
  ASSERT_NE(d, nullptr);
  while (dirent64* e = readdir64(d)) libc[utf16(e->d_name)] = {e->d_ino, e->d_type};
  closedir(d);
  ASSERT_EQ(libc.size(), std::size(kNames) + 3);

  const std::u16string path = utf16(dir.path());
  for (int form = 0; form < 2; ++form) {
    DIR* u = opendirU16(path.c_str());
    ASSERT_NE(u, nullptr);
    std::map<std::u16string, std::pair<uint64_t, unsigned char>> ours;
    if (form == 0) {
      while (direntU16* e = readdirU16(u)) ours[e->d_name] = {e->d_ino, e->d_type};
    } else {
      auto* entry = new direntU16;
      direntU16* result = nullptr;
      int rc;
      while ((rc = readdir_rU16(u, entry, &result)) == 0 && result) {
        EXPECT_EQ(result, entry);
        ours[entry->d_name] = {entry->d_ino, entry->d_type};
      }
      EXPECT_EQ(rc, 0);
      delete entry;
    }
    closedir(u);
    EXPECT_EQ(ours, libc) << (form ? "readdir_rU16" : "readdirU16");
  }
  EXPECT_EQ(opendirU16(u"/nonexistent/ördner"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(opendirU16(nullptr), nullptr);
  EXPECT_EQ(readdirU16(nullptr), nullptr);
  direntU16* r = nullptr;
  EXPECT_EQ(readdir_rU16(nullptr, nullptr, &r), EBADF);
}

TEST(Directories, UndecodableNameIsReported) {
  nuvtest::ScratchDir dir;
  std::ofstream(dir / "bad-\xff-name") << "x";
  nuvtest::RecordingTrace trace;
  DIR* u = opendirU16(utf16(dir.path()).c_str());
  ASSERT_NE(u, nullptr);
  int nulls = 0, named = 0;
  for (int i = 0; i < 3; ++i) {  // ".", ".." and the bad one, in any order
    direntU16* e = readdirU16(u);
    if (e) ++named;
    else ++nulls;
  }
  closedir(u);
  EXPECT_EQ(named, 2);
  EXPECT_EQ(nulls, 1);
  EXPECT_FALSE(trace.lines.empty());

  u = opendirU16(utf16(dir.path()).c_str());
  auto* entry = new direntU16;
  direntU16* result = entry;
  std::set<int> codes;
  for (int i = 0; i < 3; ++i) codes.insert(readdir_rU16(u, entry, &result));
  closedir(u);
  delete entry;
  EXPECT_EQ(codes, (std::set<int>{0, EILSEQ}));
}

// ---- getopt ----

struct OptStep {
  int ret, optind, optopt;
  std::string optarg;
  bool operator==(const OptStep&) const = default;
};

std::vector<OptStep> run_libc(std::vector<std::string> args, const std::string& opts) {
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::vector<OptStep> steps;
  optind = 0;  // glibc's full reset
  opterr = 0;
  const std::string posix = "+" + opts;
  for (int c; (c = getopt(static_cast<int>(args.size()), argv.data(), posix.c_str())) != -1;)
    steps.push_back({c, optind, c == '?' ? optopt : 0, optarg ? optarg : ""});
  steps.push_back({-1, optind, 0, ""});
  return steps;
}

std::vector<OptStep> run_ours(const std::vector<std::string>& args, const std::string& opts) {
  std::vector<std::u16string> wide;
  for (auto& a : args) wide.push_back(utf16(a));
  std::vector<NUV_UTF16*> argv;
  for (auto& w : wide) argv.push_back(w.data());
  argv.push_back(nullptr);
  std::vector<OptStep> steps;
  optind = 1;
  opterr = 0;
  const std::u16string w = utf16(opts);
  for (int c; (c = getoptU16(static_cast<int>(args.size()), argv.data(), w.c_str())) != -1;) {
    std::string arg;
    for (const NUV_UTF16* p = optargU; p && *p; ++p) arg.push_back(static_cast<char>(*p));
    steps.push_back({c, optind, c == '?' ? optopt : 0, arg});
  }
  steps.push_back({-1, optind, 0, ""});
  return steps;
}

const char* const kPieces[] = {"-a", "-b", "-ab", "-ba", "-bvalue", "-c", "-acb", "-x", "-:", "--", "-",
                               "word", "-ax", "-b-", "arg", "-cc", "-bb", "---"};

TEST(Getopt, MatchesPosixGetoptOnSeededVectors) {
  std::mt19937 rng(4242);
  for (int i = 0; i < 3000; ++i) {
    std::vector<std::string> args{"prog"};
    const int n = static_cast<int>(rng() % 7);
    for (int k = 0; k < n; ++k) args.push_back(kPieces[rng() % std::size(kPieces)]);
    const std::string opts = (rng() & 1) ? "ab:c" : "cb:a";
    std::string shown;
    for (auto& a : args) shown += a + " ";
    ASSERT_EQ(run_ours(args, opts), run_libc(args, opts)) << shown << " / " << opts;
  }
}

TEST(Getopt, NonAsciiOptionsAndArguments) {
  std::u16string a0 = u"prog", a1 = u"-üb", a2 = u"wert-ß", a3 = u"rest";
  NUV_UTF16* argv[] = {a0.data(), a1.data(), a2.data(), a3.data(), nullptr};
  optind = 1;
  EXPECT_EQ(getoptU16(4, argv, u"üb:"), u'ü');
  EXPECT_EQ(getoptU16(4, argv, u"üb:"), u'b');
  EXPECT_EQ(std::u16string(optargU), u"wert-ß");
  EXPECT_EQ(getoptU16(4, argv, u"üb:"), -1);
  EXPECT_EQ(optind, 3);
  optind = 1;
  EXPECT_EQ(getoptU(1, argv, u"a"), -1) << "fewer than two arguments";
}

struct MessageRow {
  std::vector<std::u16string> args;
  const char16_t* opts;
  int opterr_value;
  std::string stderr_text;
};

TEST(Getopt, Messages) {
  const MessageRow rows[] = {
      {{u"prüf", u"-x"}, u"ab:", 1, "prüf: illegal option -- x\n"},
      {{u"prüf", u"-b"}, u"ab:", 1, "prüf: option requires an argument -- b\n"},
      {{u"prüf", u"-ö"}, u"ab:", 1, "prüf: illegal option -- ö\n"},
      {{u"prüf", u"-:"}, u"a:b", 1, "prüf: illegal option -- :\n"},
      {{u"prüf", u"-x"}, u"ab:", 0, ""},
  };
  nuvtest::ScratchDir dir;
  for (const auto& row : rows) {
    const std::string out = dir / "err";
    auto r = nuvtest::run_forked([&]() -> std::string {
      freopen(out.c_str(), "w", stderr);
      std::vector<std::u16string> args = row.args;
      std::vector<NUV_UTF16*> argv;
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      optind = 1;
      opterr = row.opterr_value;
      const int c = getoptU16(static_cast<int>(args.size()), argv.data(), row.opts);
      fflush(stderr);
      if (c != '?') return "not '?'";
      if (optopt != args[1][1]) return "optopt";
      return "";
    });
    EXPECT_EQ(r.status, 0) << r.output;
    std::ifstream f(out);
    std::string text((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, row.stderr_text);
  }
}

// ---- XDR ----

// libtirpc reached the way the library reaches it, for the peer side.
struct Tirpc {
  void* h = dlopen("libtirpc.so.3", RTLD_NOW);
  using Create = void (*)(void*, char*, unsigned, int);
  using Str = int (*)(void*, char**, unsigned);
  using Free = void (*)(Str, void*);
  Create create = h ? reinterpret_cast<Create>(dlsym(h, "xdrmem_create")) : nullptr;
  Str str = h ? reinterpret_cast<Str>(dlsym(h, "xdr_string")) : nullptr;
  Free free_ = h ? reinterpret_cast<Free>(dlsym(h, "xdr_free")) : nullptr;
};
struct alignas(16) XdrBox {
  unsigned char bytes[256];  // larger than libtirpc's XDR record
  __rpc_xdr* x() { return reinterpret_cast<__rpc_xdr*>(bytes); }
};
enum { kEncode = 0, kDecode = 1, kFree = 2 };

std::u16string random_text(std::mt19937& rng) {
  std::u16string s;
  const int n = static_cast<int>(rng() % 40);
  for (int i = 0; i < n; ++i) {
    switch (rng() % 4) {
      case 0: s.push_back(static_cast<char16_t>(0x20 + rng() % 0x5F)); break;
      case 1: s.push_back(static_cast<char16_t>(0x80 + rng() % 0x780)); break;
      case 2: s.push_back(static_cast<char16_t>(0x800 + rng() % 0xF7FF)); break;  // lone surrogates too
      default:
        s.push_back(static_cast<char16_t>(0xD800 + rng() % 0x400));
        s.push_back(static_cast<char16_t>(0xDC00 + rng() % 0x400));
    }
    if (s.back() == 0) s.back() = u'z';
  }
  return s;
}

TEST(Xdr, RoundTripsBothWaysAgainstLibtirpc) {
  Tirpc t;
  if (!t.create || !t.str) GTEST_SKIP() << "libtirpc is not installed";
  std::mt19937 rng(777);
  for (int i = 0; i < 500; ++i) {
    std::u16string s = random_text(rng);
    std::vector<char> wire(4096);
    XdrBox enc;
    t.create(enc.x(), wire.data(), static_cast<unsigned>(wire.size()), kEncode);
    NUV_UTF16* p = s.data();
    ASSERT_EQ(xdr_stringU16(enc.x(), &p, 4000), 1);
    // The peer decodes what we wrote: the UTF-8 of the text.
    XdrBox dec;
    t.create(dec.x(), wire.data(), static_cast<unsigned>(wire.size()), kDecode);
    char* bytes = nullptr;
    ASSERT_EQ(t.str(dec.x(), &bytes, 4000), 1);
    char want[4000];
    U2sToUtf8s(want, s.c_str(), sizeof want);
    EXPECT_STREQ(bytes, want);
    t.free_(t.str, &bytes);
    // We decode it back, into a new buffer and into the caller's.
    t.create(dec.x(), wire.data(), static_cast<unsigned>(wire.size()), kDecode);
    NUV_UTF16* fresh = nullptr;
    ASSERT_EQ(xdr_stringU16(dec.x(), &fresh, 4000), 1);
    EXPECT_EQ(std::u16string(fresh), s);
    XdrBox rel;
    t.create(rel.x(), wire.data(), 0, kFree);
    EXPECT_EQ(xdr_stringU16(rel.x(), &fresh, 4000), 1);
    EXPECT_EQ(fresh, nullptr);
    const unsigned maxsize = static_cast<unsigned>(strlen(want));
    std::u16string caller(maxsize + 1, u'#');
    NUV_UTF16* cp = caller.data();
    t.create(dec.x(), wire.data(), static_cast<unsigned>(wire.size()), kDecode);
    ASSERT_EQ(xdr_stringU16(dec.x(), &cp, maxsize), 1);
    EXPECT_EQ(std::u16string(cp), s);
    if (maxsize > 0) {  // one byte less than the text: both sides refuse it
      t.create(dec.x(), wire.data(), static_cast<unsigned>(wire.size()), kDecode);
      NUV_UTF16* none = nullptr;
      EXPECT_EQ(xdr_stringU16(dec.x(), &none, maxsize - 1), 0);
      EXPECT_EQ(none, nullptr);
      t.create(enc.x(), wire.data(), static_cast<unsigned>(wire.size()), kEncode);
      EXPECT_EQ(xdr_stringU16(enc.x(), &p, maxsize - 1), 0);
    }
  }
}

TEST(Xdr, MissingLibraryFailsWithReport) {
  nuvtest::RecordingTrace trace;
  nuv_xdr_library_for_tests("libtirpc-not-there.so.99");
  XdrBox box{};
  std::u16string s = u"text";
  NUV_UTF16* p = s.data();
  errno = 0;
  EXPECT_EQ(xdr_stringU16(box.x(), &p, 100), 0);
  EXPECT_EQ(errno, ELIBACC);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("xdr_stringU16 : XDR routines not available (libtirpc-not-there.so.99)."),
            std::string::npos);
  nuv_xdr_library_for_tests("libtirpc.so.3");
  EXPECT_EQ(xdr_stringU16(nullptr, &p, 100), 0);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
