// Finding the version records in a large binary (the shared library itself):
// GetNUVFileVersionEx beside a scan of the same blocks with glibc memmem.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "version/version.h"

namespace {

const char* library() {
  const char* p = std::getenv("NUV_BENCH_LIBRARY");
  return p ? p : NUV_SHARED_LIB;
}

void BM_GetNUVFileVersionEx(benchmark::State& state) {
  for (auto _ : state) {
    char *a, *b, *c, *d;
    int n, level;
    if (GetNUVFileVersionEx(library(), &a, &b, &c, &d, &n, &level) != 1) state.SkipWithError("no records");
    benchmark::DoNotOptimize(n);
    std::free(a), std::free(b), std::free(c), std::free(d);
  }
}

// The peer: the same 8 KiB blocks, memmem for the marker, up to the fifth
// record (keys not told apart; a lower bound for the same job).
void BM_MemmemScan(benchmark::State& state) {
  static const char marker[] = "#[%]NUV";
  for (auto _ : state) {
    FILE* f = std::fopen(library(), "rb");
    char block[8192 + 8];
    std::size_t keep = 0, got;
    int found = 0;
    while (found < 5 && (got = std::fread(block + keep, 1, 8192, f)) > 0) {
      const std::size_t len = keep + got;
      const char* p = block;
      while (found < 5 && (p = static_cast<const char*>(memmem(p, block + len - p, marker, 7)))) ++found, p += 7;
      keep = len < 6 ? len : 6;
      std::memmove(block, block + len - keep, keep);
    }
    std::fclose(f);
    benchmark::DoNotOptimize(found);
  }
}

BENCHMARK(BM_GetNUVFileVersionEx)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MemmemScan)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
