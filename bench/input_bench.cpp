// Reading and parsing: fgetsU16 over a 64 MiB UTF-8 file beside glibc fgetws,
// ICU u_fgets and plain byte fgets; strtodU16 / strtolU16 beside strtod /
// strtol on the same texts; sscanfU16 beside swscanf.
#include <benchmark/benchmark.h>
#include <unicode/ustdio.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "nuvu16.h"
#include "stream/utf8_decode.h"

namespace {

constexpr long kFileBytes = 64L << 20;
// Two files of lines of 20 to 120 characters: "mixed" has about 3% two-byte
// and 1% three-byte characters (text in European languages with some CJK
// names), "ascii" none (logs, data).
const char* const kPaths[] = {"/tmp/nuv_input_bench_64MiB_mixed.txt", "/tmp/nuv_input_bench_64MiB_ascii.txt"};

void make_file(int variant) {
  const char* path = kPaths[variant];
  struct stat st;
  if (stat(path, &st) == 0 && st.st_size == kFileBytes) return;
  const int non_ascii = variant == 0 ? 4 : 0;
  std::mt19937 rng(1);
  std::string data;
  data.reserve(kFileBytes + 256);
  while (static_cast<long>(data.size()) < kFileBytes) {
    int len = 20 + static_cast<int>(rng() % 101);
    for (int i = 0; i < len; ++i) {
      const int r = static_cast<int>(rng() % 100);
      if (r < non_ascii - 1) {
        unsigned c = 0xC0 + rng() % 0x200;  // U+00C0..U+02BF
        data += static_cast<char>(0xC0 | (c >> 6));
        data += static_cast<char>(0x80 | (c & 0x3F));
      } else if (r < non_ascii) {
        unsigned c = 0x4E00 + rng() % 0x1000;
        data += static_cast<char>(0xE0 | (c >> 12));
        data += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        data += static_cast<char>(0x80 | (c & 0x3F));
      } else {
        data += static_cast<char>(' ' + rng() % 95);
      }
    }
    data += '\n';
  }
  data.resize(kFileBytes);
  data.back() = '\n';
  FILE* f = std::fopen(path, "wb");
  std::fwrite(data.data(), 1, data.size(), f);
  std::fclose(f);
}

template <class F>
void read_file(benchmark::State& st, F body) {
  const int variant = static_cast<int>(st.range(0));
  make_file(variant);
  const char* path = kPaths[variant];
  for (auto _ : st) benchmark::DoNotOptimize(body(path));
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * kFileBytes);
}

void fgets_ours(benchmark::State& st) {
  read_file(st, [](const char* path) {
    FILE* f = std::fopen(path, "rb");
    static NUV_UTF16 buf[4096];
    long lines = 0;
    while (fgetsU16(buf, 4096, f)) ++lines;
    std::fclose(f);
    return lines;
  });
}

// The narrower block paths, for CPUs without AVX-512 VBMI2.
void fgets_ours_kernel(benchmark::State& st, int kernel) {
  if (!nuv::use_fgets_kernel_for_tests(kernel)) {
    st.SkipWithError("block path not available on this CPU");
    return;
  }
  fgets_ours(st);
  nuv::use_fgets_kernel_for_tests(-1);
}
void fgets_ours_avx2(benchmark::State& st) { fgets_ours_kernel(st, 3); }
void fgets_ours_ssse3(benchmark::State& st) { fgets_ours_kernel(st, 2); }
void fgets_ours_sse2(benchmark::State& st) { fgets_ours_kernel(st, 1); }

void fgets_glibc_fgetws(benchmark::State& st) {
  std::setlocale(LC_ALL, "C.UTF-8");
  read_file(st, [](const char* path) {
    FILE* f = std::fopen(path, "rb");
    static wchar_t buf[4096];
    long lines = 0;
    while (std::fgetws(buf, 4096, f)) ++lines;
    std::fclose(f);
    return lines;
  });
  std::setlocale(LC_ALL, "C");
}

void fgets_icu(benchmark::State& st) {
  read_file(st, [](const char* path) {
    UFILE* f = u_fopen(path, "r", nullptr, "UTF-8");
    static UChar buf[4096];
    long lines = 0;
    while (u_fgets(buf, 4096, f)) ++lines;
    u_fclose(f);
    return lines;
  });
}

void fgets_glibc_bytes(benchmark::State& st) {
  read_file(st, [](const char* path) {
    FILE* f = std::fopen(path, "rb");
    static char buf[4096];
    long lines = 0;
    while (std::fgets(buf, 4096, f)) ++lines;
    std::fclose(f);
    return lines;
  });
}

// Argument 0: the mixed file, 1: the ASCII file.
BENCHMARK(fgets_ours)->Name("fgets/ours")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_ours_avx2)->Name("fgets/ours_avx2")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_ours_ssse3)->Name("fgets/ours_ssse3")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_ours_sse2)->Name("fgets/ours_sse2")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_glibc_fgetws)->Name("fgets/glibc_fgetws")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_icu)->Name("fgets/icu")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_glibc_bytes)->Name("fgets/glibc_bytes")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// ---- numbers -----------------------------------------------------------------------

struct Texts {
  std::vector<std::string> narrow;
  std::vector<std::u16string> wide;
  std::vector<std::wstring> wchar;
  void add(const std::string& s) {
    narrow.push_back(s);
    wide.emplace_back(s.begin(), s.end());
    wchar.emplace_back(s.begin(), s.end());
  }
};

// Doubles as programs print them: shortest round-trip, fixed with a few
// decimals, and small integers with exponents.
const Texts& double_texts() {
  static Texts t = [] {
    Texts x;
    std::mt19937_64 rng(3);
    char buf[64];
    for (int i = 0; i < 1024; ++i) {
      double v = std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 80) - 60);
      switch (i % 3) {
        case 0: std::snprintf(buf, sizeof buf, "%.17g", v); break;
        case 1: std::snprintf(buf, sizeof buf, "%.3f", v); break;
        default: std::snprintf(buf, sizeof buf, "%de%d", static_cast<int>(rng() % 100000), static_cast<int>(rng() % 40) - 20); break;
      }
      x.add(buf);
    }
    return x;
  }();
  return t;
}

const Texts& integer_texts() {
  static Texts t = [] {
    Texts x;
    std::mt19937_64 rng(4);
    for (int i = 0; i < 1024; ++i) {
      long v = static_cast<long>(rng() >> (rng() % 64));
      if (i & 1) v = -v;
      x.add(std::to_string(v));
    }
    return x;
  }();
  return t;
}

void strtod_ours(benchmark::State& st) {
  const auto& t = double_texts();
  for (auto _ : st)
    for (const auto& s : t.wide) benchmark::DoNotOptimize(strtodU16(s.c_str(), nullptr));
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * t.wide.size()));
}
void strtod_glibc(benchmark::State& st) {
  const auto& t = double_texts();
  for (auto _ : st)
    for (const auto& s : t.narrow) benchmark::DoNotOptimize(std::strtod(s.c_str(), nullptr));
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * t.narrow.size()));
}
void strtol_ours(benchmark::State& st) {
  const auto& t = integer_texts();
  for (auto _ : st)
    for (const auto& s : t.wide) benchmark::DoNotOptimize(strtolU16(s.c_str(), nullptr, 10));
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * t.wide.size()));
}
void strtol_glibc(benchmark::State& st) {
  const auto& t = integer_texts();
  for (auto _ : st)
    for (const auto& s : t.narrow) benchmark::DoNotOptimize(std::strtol(s.c_str(), nullptr, 10));
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * t.narrow.size()));
}

BENCHMARK(strtod_ours)->Name("strtod/ours/1024");
BENCHMARK(strtod_glibc)->Name("strtod/glibc/1024");
BENCHMARK(strtol_ours)->Name("strtol/ours/1024");
BENCHMARK(strtol_glibc)->Name("strtol/glibc/1024");

// ---- sscanf ------------------------------------------------------------------------

void sscanf_ours(benchmark::State& st) {
  const char16_t* text = u"  4711 -12.625 alpha,beta 0x1f";
  int a, x;
  double d;
  char16_t s[32];
  for (auto _ : st) benchmark::DoNotOptimize(sscanfU16(text, u"%d %lf %[^,],%*s %i", &a, &d, s, &x));
}
void sscanf_glibc(benchmark::State& st) {
  const wchar_t* text = L"  4711 -12.625 alpha,beta 0x1f";
  int a, x;
  double d;
  wchar_t s[32];
  for (auto _ : st) benchmark::DoNotOptimize(std::swscanf(text, L"%d %lf %l[^,],%*ls %i", &a, &d, s, &x));
}

BENCHMARK(sscanf_ours)->Name("sscanf/ours/mixed");
BENCHMARK(sscanf_glibc)->Name("sscanf/glibc/mixed");

}  // namespace

BENCHMARK_MAIN();
