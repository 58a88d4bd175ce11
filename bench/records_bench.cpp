// Records and other wrappers beside the narrow libc calls they wrap: the
// wrapper's own cost is the narrowing of the key and the widening of the
// record.  Names are OP/IMPL/ARG.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <netdb.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "nuvu16.h"

extern "C" int __xpg_strerror_r(int errnum, char* buf, size_t buflen);

namespace {

// A folder of n files with non-ASCII names, made once per process.
struct Folder {
  std::string path;
  int n;
  explicit Folder(int count) : n(count) {
    char tmpl[] = "/tmp/nuvbench.XXXXXX";
    path = mkdtemp(tmpl);
    for (int i = 0; i < n; ++i) close(open((path + "/grüße-日本-" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0600));
  }
  ~Folder() {
    for (int i = 0; i < n; ++i) unlink((path + "/grüße-日本-" + std::to_string(i)).c_str());
    rmdir(path.c_str());
  }
  std::u16string wide() const {
    std::u16string w;
    for (char c : path) w.push_back(static_cast<unsigned char>(c));
    return w;
  }
};
const Folder& folder() {
  static Folder f(1000);
  return f;
}

void readdir_ours(benchmark::State& st) {
  DIR* d = opendirU16(folder().wide().c_str());
  for (auto _ : st) {
    rewinddir(d);
    while (direntU16* e = readdirU16(d)) benchmark::DoNotOptimize(e);
  }
  closedir(d);
  st.SetItemsProcessed(st.iterations() * 1002);
}
void readdir_glibc(benchmark::State& st) {
  DIR* d = opendir(folder().path.c_str());
  for (auto _ : st) {
    rewinddir(d);
    while (dirent64* e = readdir64(d)) benchmark::DoNotOptimize(e);
  }
  closedir(d);
  st.SetItemsProcessed(st.iterations() * 1002);
}
BENCHMARK(readdir_ours)->Name("readdir/ours/1000");
BENCHMARK(readdir_glibc)->Name("readdir/glibc/1000");

void strerror_ours(benchmark::State& st) {
  NUV_UTF16 buf[128];
  for (auto _ : st) benchmark::DoNotOptimize(strerror_rU16(EINVAL, buf, 128));
}
void strerror_glibc(benchmark::State& st) {
  char buf[128];
  for (auto _ : st) benchmark::DoNotOptimize(__xpg_strerror_r(EINVAL, buf, 128));
}
BENCHMARK(strerror_ours)->Name("strerror_r/ours/0");
BENCHMARK(strerror_glibc)->Name("strerror_r/glibc/0");

void strftime_ours(benchmark::State& st) {
  const time_t t = 1795457656;
  struct tm tm;
  gmtime_r(&t, &tm);
  NUV_UTF16 buf[256];
  for (auto _ : st) benchmark::DoNotOptimize(strftimeU16(buf, 256, u"%Y-%m-%d %H:%M:%S Woche %V", &tm));
}
void strftime_glibc(benchmark::State& st) {
  const time_t t = 1795457656;
  struct tm tm;
  gmtime_r(&t, &tm);
  char buf[256];
  for (auto _ : st) benchmark::DoNotOptimize(strftime(buf, 256, "%Y-%m-%d %H:%M:%S Woche %V", &tm));
}
BENCHMARK(strftime_ours)->Name("strftime/ours/0");
BENCHMARK(strftime_glibc)->Name("strftime/glibc/0");

void servbyname_ours(benchmark::State& st) {
  for (auto _ : st) benchmark::DoNotOptimize(getservbynameU16(u"http", u"tcp"));
}
void servbyname_glibc(benchmark::State& st) {
  for (auto _ : st) benchmark::DoNotOptimize(getservbyname("http", "tcp"));
}
BENCHMARK(servbyname_ours)->Name("getservbyname/ours/0");
BENCHMARK(servbyname_glibc)->Name("getservbyname/glibc/0");

// Ten arguments, seven options.
void getopt_ours(benchmark::State& st) {
  std::vector<std::u16string> args = {u"prog", u"-a", u"-b", u"wert", u"-ca", u"-bx", u"-a", u"--", u"rest", u"x"};
  std::vector<NUV_UTF16*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  opterr = 0;
  for (auto _ : st) {
    optind = 1;
    while (getoptU16(10, argv.data(), u"ab:c") != -1) {
    }
  }
}
void getopt_glibc(benchmark::State& st) {
  std::vector<std::string> args = {"prog", "-a", "-b", "wert", "-ca", "-bx", "-a", "--", "rest", "x"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  opterr = 0;
  for (auto _ : st) {
    optind = 0;
    while (getopt(10, argv.data(), "+ab:c") != -1) {
    }
  }
}
BENCHMARK(getopt_ours)->Name("getopt/ours/10");
BENCHMARK(getopt_glibc)->Name("getopt/glibc/10");

}  // namespace

BENCHMARK_MAIN();
