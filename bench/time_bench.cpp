// Local time of a million seeded times over ten years in a zone with
// daylight-saving time: glibc's localtime_r beside localtime_cont_r, and the
// cost of building the zone table.  Names are OP/IMPL/ARG for bench/run.py.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "platform/contloct.h"

namespace {

const std::vector<time_t> &times() {
  static const std::vector<time_t> t = [] {
    std::mt19937_64 g(2026);
    std::vector<time_t> v(1000000);
    const time_t from = 1577836800, span = 10 * 31556952;  // 2020-01-01, ten years
    for (auto &x : v) x = from + time_t(g() % span);
    return v;
  }();
  return t;
}

template <struct tm *(*Convert)(const time_t *, struct tm *)>
void localtime_loop(benchmark::State &state) {
  const auto &t = times();
  struct tm r;
  localtime_cont_r(&t[0], &r);  // table built before timing
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Convert(&t[i], &r));
    if (++i == t.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

void table_build(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(ContLoctBuildTable());
  state.counters["entries"] = cltZoneMapTop;
}

}  // namespace

BENCHMARK(localtime_loop<localtime_cont_r>)->Name("localtime/ours");
BENCHMARK(localtime_loop<localtime_r>)->Name("localtime/glibc");
BENCHMARK(table_build)->Name("table_build/ours")->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv) {
  setenv("TZ", "Europe/Berlin", 0);  // another zone through TZ
  tzset();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
