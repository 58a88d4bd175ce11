// Line reading and writing on 32 MiB files of 80-character lines, and
// formatted reading of numbers: ours beside the ways a user would take
// otherwise (byte fgets then Utf8nToUtf16nSubst; glibc fgetws/fputs/fwscanf
// in a UTF-8 locale; ICU u_fputs).  Run with NUV_CPU=avx2 for the AVX2 level.
//
// Arguments: 0 Latin-1-heavy lines (about 15% U+00A0..U+00FF scattered
// through Latin text), 1 CJK lines (about 90% U+4E00..U+9FFF).
#include <benchmark/benchmark.h>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "convert/converters.h"
#include "nuvu16.h"

namespace {

constexpr long kFileBytes = 32L << 20;
constexpr int kLineChars = 80;
const char* const kPaths[] = {"/tmp/nuv_stream_bench_latin1.txt", "/tmp/nuv_stream_bench_cjk.txt"};

char16_t random_char(std::mt19937& rng, int kind) {
  const unsigned r = rng() % 100;
  if (kind == 0) {
    if (r < 15) return static_cast<char16_t>(0xA0 + rng() % 0x60);
    return r < 30 ? u' ' : static_cast<char16_t>('a' + rng() % 26);
  }
  if (r < 90) return static_cast<char16_t>(0x4E00 + rng() % 0x5000);
  return r < 95 ? u' ' : static_cast<char16_t>('0' + rng() % 10);
}

// 64 distinct lines (newline included) in both forms.
struct Lines {
  std::vector<std::u16string> u16;
  std::vector<std::string> u8;
  explicit Lines(int kind) {
    std::mt19937 rng(7 + kind);
    for (int l = 0; l < 64; ++l) {
      std::u16string s;
      for (int i = 0; i < kLineChars; ++i) s.push_back(random_char(rng, kind));
      s.push_back(u'\n');
      std::string b(s.size() * 3, 0);
      int32_t n = 0;
      UErrorCode e = U_ZERO_ERROR;
      u_strToUTF8(b.data(), static_cast<int32_t>(b.size()), &n, reinterpret_cast<const UChar*>(s.data()),
                  static_cast<int32_t>(s.size()), &e);
      b.resize(static_cast<std::size_t>(n));
      u16.push_back(s);
      u8.push_back(b);
    }
  }
};
const Lines& lines(int kind) {
  static const Lines l[2] = {Lines(0), Lines(1)};
  return l[kind];
}

// Lines to fill about 32 MiB of UTF-8.
std::size_t line_count(int kind) {
  std::size_t bytes = 0;
  for (const auto& l : lines(kind).u8) bytes += l.size();
  return static_cast<std::size_t>(kFileBytes) / (bytes / 64);
}

const char* file_of(int kind) {
  const char* path = kPaths[kind];
  struct stat st;
  const Lines& ls = lines(kind);
  std::size_t want = 0;
  for (std::size_t i = 0; i < line_count(kind); ++i) want += ls.u8[i % 64].size();
  if (stat(path, &st) == 0 && static_cast<std::size_t>(st.st_size) == want) return path;
  FILE* f = std::fopen(path, "wb");
  for (std::size_t i = 0; i < line_count(kind); ++i) std::fputs(ls.u8[i % 64].c_str(), f);
  std::fclose(f);
  return path;
}

template <class F>
void read_lines(benchmark::State& st, F per_file) {
  const int kind = static_cast<int>(st.range(0));
  const char* path = file_of(kind);
  long got = 0;
  for (auto _ : st) {
    FILE* f = std::fopen(path, "rb");
    got = per_file(f);
    std::fclose(f);
    benchmark::DoNotOptimize(got);
  }
  if (got != static_cast<long>(line_count(kind))) st.SkipWithError("wrong line count");
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * kFileBytes);
}

void fgets_ours(benchmark::State& st) {
  read_lines(st, [](FILE* f) {
    static NUV_UTF16 buf[4096];
    long n = 0;
    while (fgetsU16(buf, 4096, f)) ++n;
    return n;
  });
}

void fgets_two_pass(benchmark::State& st) {
  read_lines(st, [](FILE* f) {
    static char bytes[4096];
    static NUV_UTF16 buf[4096];
    long n = 0;
    while (std::fgets(bytes, sizeof bytes, f)) {
      const rscpUtf8* s = reinterpret_cast<const rscpUtf8*>(bytes);
      NUV_UTF16* d = buf;
      Utf8nToUtf16nSubst(&s, s + std::strlen(bytes), &d, buf + 4095, nullptr, nullptr);
      *d = 0;
      ++n;
    }
    return n;
  });
}

void fgets_glibc_fgetws(benchmark::State& st) {
  std::setlocale(LC_ALL, "C.UTF-8");
  read_lines(st, [](FILE* f) {
    static wchar_t buf[4096];
    long n = 0;
    while (std::fgetws(buf, 4096, f)) ++n;
    return n;
  });
  std::setlocale(LC_ALL, "C");
}

void fgets_glibc_bytes(benchmark::State& st) {
  read_lines(st, [](FILE* f) {
    static char buf[4096];
    long n = 0;
    while (std::fgets(buf, sizeof buf, f)) ++n;
    return n;
  });
}

BENCHMARK(fgets_ours)->Name("fgets32/ours")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_two_pass)->Name("fgets32/two_pass")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_glibc_fgetws)->Name("fgets32/glibc_fgetws")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fgets_glibc_bytes)->Name("fgets32/glibc_bytes")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// ---- writing the same lines -------------------------------------------------------------

template <class Open, class Put, class Close>
void write_lines(benchmark::State& st, Open open, Put put, Close close) {
  const int kind = static_cast<int>(st.range(0));
  const std::size_t count = line_count(kind);
  for (auto _ : st) {
    auto* f = open();
    for (std::size_t i = 0; i < count; ++i) put(f, i % 64);
    close(f);
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * kFileBytes);
}

// Every writer writes into a FILE whose bytes go nowhere, so the figures
// are the encoding and buffering alone.
ssize_t discard(void*, const char*, size_t n) { return static_cast<ssize_t>(n); }
FILE* open_null() {
  cookie_io_functions_t io{};
  io.write = discard;
  return fopencookie(nullptr, "w", io);
}

void fputs_ours(benchmark::State& st) {
  const Lines& ls = lines(static_cast<int>(st.range(0)));
  write_lines(st, open_null, [&](FILE* f, std::size_t i) { fputsU16(ls.u16[i].c_str(), f); }, std::fclose);
}

void fputs_glibc_bytes(benchmark::State& st) {
  const Lines& ls = lines(static_cast<int>(st.range(0)));
  write_lines(st, open_null, [&](FILE* f, std::size_t i) { std::fputs(ls.u8[i].c_str(), f); }, std::fclose);
}

void fputs_icu(benchmark::State& st) {
  const Lines& ls = lines(static_cast<int>(st.range(0)));
  std::vector<std::u16string> bare;  // u_fputs adds the newline itself
  for (const auto& l : ls.u16) bare.push_back(l.substr(0, l.size() - 1));
  write_lines(
      st, [] { return u_finit(open_null(), nullptr, "UTF-8"); },
      [&](UFILE* f, std::size_t i) { u_fputs(reinterpret_cast<const UChar*>(bare[i].c_str()), f); },
      [](UFILE* f) {
        FILE* file = u_fgetfile(f);
        u_fclose(f);  // a UFILE made by u_finit leaves its FILE open
        std::fclose(file);
      });
}

BENCHMARK(fputs_ours)->Name("fputs32/ours")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fputs_glibc_bytes)->Name("fputs32/glibc_bytes")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fputs_icu)->Name("fputs32/icu")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// ---- three numbers a line ----------------------------------------------------------------

constexpr int kNumberLines = 200000;

const char* number_file() {
  static const char* const path = [] {
    const char* p = "/tmp/nuv_stream_bench_numbers.txt";
    FILE* f = std::fopen(p, "wb");
    std::mt19937 rng(3);
    for (int i = 0; i < kNumberLines; ++i)
      std::fprintf(f, "%d %.6f %x\n", static_cast<int>(rng() % 2000001) - 1000000,
                   static_cast<double>(rng() % 10000000) / 1000.0, static_cast<unsigned>(rng()));
    std::fclose(f);
    return p;
  }();
  return path;
}

// One call a line until the end; F reads three numbers and returns the count.
template <class F>
void scan_numbers(benchmark::State& st, F call) {
  const char* path = number_file();
  long sum = 0;
  for (auto _ : st) {
    FILE* f = std::fopen(path, "rb");
    int a, lines = 0;
    double b;
    unsigned c;
    while (call(f, &a, &b, &c) == 3) ++lines, sum += a + static_cast<long>(c & 7);
    std::fclose(f);
    if (lines != kNumberLines) st.SkipWithError("wrong line count");
  }
  benchmark::DoNotOptimize(sum);
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations()) * kNumberLines);
}

void fscanf_ours(benchmark::State& st) {
  scan_numbers(st, [](FILE* f, int* a, double* b, unsigned* c) { return fscanfU16(f, u"%d %lf %x", a, b, c); });
}

void fscanf_glibc_fwscanf(benchmark::State& st) {
  std::setlocale(LC_ALL, "C.UTF-8");
  scan_numbers(st, [](FILE* f, int* a, double* b, unsigned* c) { return std::fwscanf(f, L"%d %lf %x", a, b, c); });
  std::setlocale(LC_ALL, "C");
}

BENCHMARK(fscanf_ours)->Name("fscanf200k/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(fscanf_glibc_fwscanf)->Name("fscanf200k/glibc_fwscanf")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
