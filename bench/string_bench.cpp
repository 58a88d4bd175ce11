// UTF-16 string scans: ours beside ICU's u_ functions and glibc's narrow
// functions over the same number of bytes.
#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <cstring>
#include <string>
#include <vector>

#include "nuvu16.h"

namespace {

struct Text {
  std::u16string units;
  std::string bytes;  // same byte count, for glibc
  explicit Text(std::size_t n) : units(n, u'a'), bytes(2 * n, 'a') {
    for (std::size_t i = 0; i < n; ++i) units[i] = static_cast<char16_t>(u'a' + i % 23);
  }
};

const std::size_t kSizes[] = {7, 64, 4096, 65536};

void Args(benchmark::internal::Benchmark* b) {
  for (auto n : kSizes) b->Arg(static_cast<long>(n));
}

template <class F>
void run(benchmark::State& st, std::size_t bytes, F f) {
  for (auto _ : st) benchmark::DoNotOptimize(f());
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * bytes));
}

#define TRIPLE(op, ours, icu, glibc)                                                                            \
  void op##_ours(benchmark::State& st) {                                                                      \
    Text t(st.range(0));                                                                                      \
    auto* u = t.units.data();                                                                                 \
    (void)u;                                                                                                  \
    run(st, t.units.size() * 2, [&] { return ours; });                                                        \
  }                                                                                                           \
  void op##_icu(benchmark::State& st) {                                                                       \
    Text t(st.range(0));                                                                                      \
    auto* u = reinterpret_cast<UChar*>(t.units.data());                                                       \
    (void)u;                                                                                                  \
    run(st, t.units.size() * 2, [&] { return icu; });                                                         \
  }                                                                                                           \
  void op##_glibc(benchmark::State& st) {                                                                     \
    Text t(st.range(0));                                                                                      \
    auto* c = t.bytes.data();                                                                                 \
    (void)c;                                                                                                  \
    run(st, t.bytes.size(), [&] { return glibc; });                                                           \
  }                                                                                                           \
  BENCHMARK(op##_ours)->Name(#op "/ours")->Apply(Args);                                                       \
  BENCHMARK(op##_icu)->Name(#op "/icu")->Apply(Args);                                                         \
  BENCHMARK(op##_glibc)->Name(#op "/glibc")->Apply(Args);

// The searched-for unit is absent, so every function scans the whole text.
TRIPLE(strlen, strlenU16(u), u_strlen(u), strlen(c))
TRIPLE(strnlen, strnlenU16(u, t.units.size() + 8), u_strlen(u), strnlen(c, t.bytes.size() + 8))
TRIPLE(strchr, strchrU16(u, u'#'), u_strchr(u, u'#'), strchr(c, '#'))
TRIPLE(memchr, memchrU16(u, u'#', t.units.size()), u_memchr(u, u'#', static_cast<int32_t>(t.units.size())),
       memchr(c, '#', t.bytes.size()))

template <class F>
void copy_like(benchmark::State& st, F f) {
  std::size_t n = static_cast<std::size_t>(st.range(0));
  f(st, n);
}

void memcmp_ours(benchmark::State& st) {
  Text a(st.range(0)), b(st.range(0));
  run(st, a.units.size() * 2, [&] { return memcmpU16(a.units.data(), b.units.data(), a.units.size()); });
}
void memcmp_icu(benchmark::State& st) {
  Text a(st.range(0)), b(st.range(0));
  run(st, a.units.size() * 2, [&] {
    return u_memcmp(reinterpret_cast<UChar*>(a.units.data()), reinterpret_cast<UChar*>(b.units.data()),
                    static_cast<int32_t>(a.units.size()));
  });
}
void memcmp_glibc(benchmark::State& st) {
  Text a(st.range(0)), b(st.range(0));
  run(st, a.bytes.size(), [&] { return memcmp(a.bytes.data(), b.bytes.data(), a.bytes.size()); });
}
BENCHMARK(memcmp_ours)->Name("memcmp/ours")->Apply(Args);
BENCHMARK(memcmp_icu)->Name("memcmp/icu")->Apply(Args);
BENCHMARK(memcmp_glibc)->Name("memcmp/glibc")->Apply(Args);

void strcpy_ours(benchmark::State& st) {
  Text a(st.range(0));
  std::u16string d(a.units.size() + 1, 0);
  run(st, a.units.size() * 2, [&] { return strcpyU16(d.data(), a.units.data()); });
}
void strcpy_icu(benchmark::State& st) {
  Text a(st.range(0));
  std::u16string d(a.units.size() + 1, 0);
  run(st, a.units.size() * 2, [&] {
    return u_strcpy(reinterpret_cast<UChar*>(d.data()), reinterpret_cast<UChar*>(a.units.data()));
  });
}
void strcpy_glibc(benchmark::State& st) {
  Text a(st.range(0));
  std::string d(a.bytes.size() + 1, 0);
  run(st, a.bytes.size(), [&] { return strcpy(d.data(), a.bytes.data()); });
}
BENCHMARK(strcpy_ours)->Name("strcpy/ours")->Apply(Args);
BENCHMARK(strcpy_icu)->Name("strcpy/icu")->Apply(Args);
BENCHMARK(strcpy_glibc)->Name("strcpy/glibc")->Apply(Args);

}  // namespace

BENCHMARK_MAIN();
