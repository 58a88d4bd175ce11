// The wrappers' cost beside the narrow libc calls they wrap, on 20- and
// 200-unit texts: access (a system call), fopen + fclose, and getenv (no
// system call; the wrapper adds a malloc, shown on its own as malloc/glibc).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "nuvu16.h"

namespace {

std::u16string widen(const std::string& s) { return std::u16string(s.begin(), s.end()); }

// An existing file whose path has exactly n bytes (and n units).
struct FileOfLength {
  std::string dir, path;
  explicit FileOfLength(std::size_t n) {
    char tmpl[] = "/tmp/nb.XXXXXX";
    dir = mkdtemp(tmpl);
    path = dir + "/" + std::string(n - dir.size() - 1, 'f');
    close(open(path.c_str(), O_CREAT | O_WRONLY, 0600));
  }
  ~FileOfLength() {
    unlink(path.c_str());
    rmdir(dir.c_str());
  }
};

void access_glibc(benchmark::State& st) {
  FileOfLength f(st.range(0));
  for (auto _ : st) benchmark::DoNotOptimize(access(f.path.c_str(), R_OK));
}
void access_ours(benchmark::State& st) {
  FileOfLength f(st.range(0));
  const std::u16string p = widen(f.path);
  for (auto _ : st) benchmark::DoNotOptimize(accessU16(p.c_str(), R_OK));
}

void fopen_fclose_glibc(benchmark::State& st) {
  FileOfLength f(st.range(0));
  for (auto _ : st) fclose(fopen(f.path.c_str(), "r"));
}
void fopen_fclose_ours(benchmark::State& st) {
  FileOfLength f(st.range(0));
  const std::u16string p = widen(f.path);
  for (auto _ : st) fclose(fopenU16(p.c_str(), u"r"));
}

// A variable whose value has n bytes, beside a typical small environment.
struct Variable {
  explicit Variable(std::size_t n) { setenv("NUVBENCH_VALUE", std::string(n, 'v').c_str(), 1); }
  ~Variable() { unsetenv("NUVBENCH_VALUE"); }
};

void getenv_glibc(benchmark::State& st) {
  Variable v(st.range(0));
  for (auto _ : st) benchmark::DoNotOptimize(getenv("NUVBENCH_VALUE"));
}
void getenv_ours(benchmark::State& st) {
  Variable v(st.range(0));
  for (auto _ : st) benchmark::DoNotOptimize(getenvU16(u"NUVBENCH_VALUE"));
}
// The one allocation getenvU16 makes for a value of n units (its free is
// part of the table flush every 128 calls).
void malloc_glibc(benchmark::State& st) {
  const std::size_t bytes = 2 * (static_cast<std::size_t>(st.range(0)) + 1);
  for (auto _ : st) {
    void* p = malloc(bytes);
    benchmark::DoNotOptimize(p);
    free(p);
  }
}

}  // namespace

BENCHMARK(access_ours)->Name("access/ours")->Arg(20)->Arg(200);
BENCHMARK(access_glibc)->Name("access/glibc")->Arg(20)->Arg(200);
BENCHMARK(fopen_fclose_ours)->Name("fopen_fclose/ours")->Arg(20)->Arg(200);
BENCHMARK(fopen_fclose_glibc)->Name("fopen_fclose/glibc")->Arg(20)->Arg(200);
BENCHMARK(getenv_ours)->Name("getenv/ours")->Arg(20)->Arg(200);
BENCHMARK(getenv_glibc)->Name("getenv/glibc")->Arg(20)->Arg(200);
BENCHMARK(malloc_glibc)->Name("malloc/glibc")->Arg(20)->Arg(200);

BENCHMARK_MAIN();
