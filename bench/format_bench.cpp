// printf over UTF-16 and UTF-16 text written to UTF-8 files: ours beside
// {fmt}'s format_to into a char16_t buffer, ICU's u_snprintf / u_fputs /
// u_file_write and glibc's swprintf / fputws, with glibc's narrow
// snprintf / fputs / fwrite as the upper reference.
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

#include "nuvu16.h"

namespace {

// ---- formatting ------------------------------------------------------------------------

const char kLiteral[] =
    "The quick brown fox jumps over the lazy dog while the server writes its log line; "
    "nothing in this run is a directive, so the engine copies it as it stands, unit by unit "
    "or block by block, and then finishes with one number: %d";

std::u16string lit16() {
  std::u16string s;
  for (const char* p = kLiteral; *p; ++p) s.push_back(static_cast<char16_t>(*p));
  return s;
}
std::wstring litw() {
  std::wstring s;
  for (const char* p = kLiteral; *p; ++p) s.push_back(static_cast<wchar_t>(*p));
  return s;
}
const std::u16string kLit16 = lit16();
const std::wstring kLitW = litw();

enum CaseId { kInt, kMixed, kHexStrExp, kLong };

char16_t g_out16[1024];
UChar g_outicu[1024];
wchar_t g_outw[1024];
char g_out8[1024];


// {fmt} with the equivalent replacement fields, NUL-terminated like ours.
std::u16string lit_fmt() {
  std::u16string s = kLit16;
  s.replace(s.size() - 2, 2, u"{}");
  return s;
}
const std::u16string kLitFmt = lit_fmt();

char16_t g_outfmt[1024];

int fmt_case(int id) {
  char16_t* end = g_outfmt;
  switch (id) {
    case kInt: end = fmt::format_to(g_outfmt, u"{}", 1234567); break;
    case kMixed: end = fmt::format_to(g_outfmt, u"{}: {} items at {:.2f}", u"widgets", 42, 3.14159); break;
    case kHexStrExp: end = fmt::format_to(g_outfmt, u"{:08x}|{:<10}|{:5.1e}", 0xbeefu, u"name", 12345.678); break;
    case kLong: end = fmt::format_to(g_outfmt, std::u16string_view(kLitFmt), 42); break;
  }
  *end = 0;
  return static_cast<int>(end - g_outfmt);
}

int ours_case(int id) {
  switch (id) {
    case kInt: return snprintfU16(g_out16, 1024, u"%d", 1234567);
    case kMixed: return snprintfU16(g_out16, 1024, u"%s: %d items at %.2f", u"widgets", 42, 3.14159);
    case kHexStrExp: return snprintfU16(g_out16, 1024, u"%08x|%-10s|%5.1e", 0xbeefu, u"name", 12345.678);
    case kLong: return snprintfU16(g_out16, 1024, kLit16.c_str(), 42);
  }
  return -1;
}

// Both sides must produce the same text before either is timed.
void check_same(benchmark::State& st) {
  const int a = ours_case(static_cast<int>(st.range(0)));
  const int b = fmt_case(static_cast<int>(st.range(0)));
  if (a != b || std::u16string(g_out16) != std::u16string(g_outfmt)) st.SkipWithError("ours and {fmt} differ");
}

void sprintf_fmt(benchmark::State& st) {
  check_same(st);
  const int id = static_cast<int>(st.range(0));
  for (auto _ : st) {
    benchmark::DoNotOptimize(fmt_case(id));
    benchmark::ClobberMemory();
  }
}

void sprintf_icu(benchmark::State& st) {
  const std::u16string lit = kLit16;
  for (auto _ : st) {
    int r = 0;
    switch (st.range(0)) {
      case kInt: r = u_snprintf_u(g_outicu, 1024, u"%d", 1234567); break;
      case kMixed: r = u_snprintf_u(g_outicu, 1024, u"%S: %d items at %.2f", u"widgets", 42, 3.14159); break;
      case kHexStrExp: r = u_snprintf_u(g_outicu, 1024, u"%08x|%-10S|%5.1e", 0xbeefu, u"name", 12345.678); break;
      case kLong: r = u_snprintf_u(g_outicu, 1024, reinterpret_cast<const UChar*>(lit.c_str()), 42); break;
    }
    benchmark::DoNotOptimize(r);
    benchmark::ClobberMemory();
  }
}

void sprintf_ours(benchmark::State& st) {
  const int id = static_cast<int>(st.range(0));
  for (auto _ : st) {
    benchmark::DoNotOptimize(ours_case(id));
    benchmark::ClobberMemory();
  }
}

void sprintf_glibc_wide(benchmark::State& st) {
  for (auto _ : st) {
    int r = 0;
    switch (st.range(0)) {
      case kInt: r = swprintf(g_outw, 1024, L"%d", 1234567); break;
      case kMixed: r = swprintf(g_outw, 1024, L"%ls: %d items at %.2f", L"widgets", 42, 3.14159); break;
      case kHexStrExp: r = swprintf(g_outw, 1024, L"%08x|%-10ls|%5.1e", 0xbeefu, L"name", 12345.678); break;
      case kLong: r = swprintf(g_outw, 1024, kLitW.c_str(), 42); break;
    }
    benchmark::DoNotOptimize(r);
    benchmark::ClobberMemory();
  }
}

void sprintf_glibc(benchmark::State& st) {
  for (auto _ : st) {
    int r = 0;
    switch (st.range(0)) {
      case kInt: r = std::snprintf(g_out8, 1024, "%d", 1234567); break;
      case kMixed: r = std::snprintf(g_out8, 1024, "%s: %d items at %.2f", "widgets", 42, 3.14159); break;
      case kHexStrExp: r = std::snprintf(g_out8, 1024, "%08x|%-10s|%5.1e", 0xbeefu, "name", 12345.678); break;
      case kLong: r = std::snprintf(g_out8, 1024, kLiteral, 42); break;
    }
    benchmark::DoNotOptimize(r);
    benchmark::ClobberMemory();
  }
}

void Formats(benchmark::internal::Benchmark* b) {
  for (int c : {kInt, kMixed, kHexStrExp, kLong}) b->Arg(c);
}

BENCHMARK(sprintf_ours)->Name("sprintf/ours")->Apply(Formats);
BENCHMARK(sprintf_fmt)->Name("sprintf/fmt")->Apply(Formats);
BENCHMARK(sprintf_icu)->Name("sprintf/icu")->Apply(Formats);
BENCHMARK(sprintf_glibc_wide)->Name("sprintf/glibc_wide")->Apply(Formats);
BENCHMARK(sprintf_glibc)->Name("sprintf/glibc")->Apply(Formats);

// fprintf of the mixed format to a file, to see the sink's cost.
void fprintf_ours(benchmark::State& st) {
  FILE* f = std::fopen("/dev/null", "w");
  for (auto _ : st) benchmark::DoNotOptimize(fprintfU16(f, u"%s: %d items at %.2f\n", u"widgets", 42, 3.14159));
  std::fclose(f);
}
void fprintf_icu(benchmark::State& st) {
  UFILE* f = u_fopen("/dev/null", "w", nullptr, "UTF-8");
  for (auto _ : st) benchmark::DoNotOptimize(u_fprintf_u(f, u"%S: %d items at %.2f\n", u"widgets", 42, 3.14159));
  u_fclose(f);
}
void fprintf_glibc_wide(benchmark::State& st) {
  std::setlocale(LC_ALL, "C.UTF-8");
  FILE* f = std::fopen("/dev/null", "w");
  for (auto _ : st) benchmark::DoNotOptimize(fwprintf(f, L"%ls: %d items at %.2f\n", L"widgets", 42, 3.14159));
  std::fclose(f);
  std::setlocale(LC_ALL, "C");
}
void fprintf_glibc(benchmark::State& st) {
  FILE* f = std::fopen("/dev/null", "w");
  for (auto _ : st) benchmark::DoNotOptimize(std::fprintf(f, "%s: %d items at %.2f\n", "widgets", 42, 3.14159));
  std::fclose(f);
}
// A typical log line to a real file, rewound now and then to bound its size.
constexpr int kRewind = 1 << 16;
std::string log_path() { return "/tmp/nuv_format_log_" + std::to_string(getpid()); }

void fprintf_log_ours(benchmark::State& st) {
  FILE* f = std::fopen(log_path().c_str(), "w");
  int n = 0;
  for (auto _ : st) {
    if (++n == kRewind) n = 0, std::rewind(f);
    benchmark::DoNotOptimize(fprintfU16(f, u"%s %s[%d]: request %u from %s took %.3f ms, status %d\n",
                                        u"2026-11-23T18:59:07Z", u"httpd", 4242, 918273u, u"10.1.2.3",
                                        12.3456, 200));
  }
  std::fclose(f);
  std::remove(log_path().c_str());
}
void fprintf_log_glibc(benchmark::State& st) {
  FILE* f = std::fopen(log_path().c_str(), "w");
  int n = 0;
  for (auto _ : st) {
    if (++n == kRewind) n = 0, std::rewind(f);
    benchmark::DoNotOptimize(std::fprintf(f, "%s %s[%d]: request %u from %s took %.3f ms, status %d\n",
                                          "2026-11-23T18:59:07Z", "httpd", 4242, 918273u, "10.1.2.3", 12.3456,
                                          200));
  }
  std::fclose(f);
  std::remove(log_path().c_str());
}
BENCHMARK(fprintf_log_ours)->Name("fprintf/ours/logline");
BENCHMARK(fprintf_log_glibc)->Name("fprintf/glibc/logline");

BENCHMARK(fprintf_ours)->Name("fprintf/ours/mixed");
BENCHMARK(fprintf_icu)->Name("fprintf/icu/mixed");
BENCHMARK(fprintf_glibc_wide)->Name("fprintf/glibc_wide/mixed");
BENCHMARK(fprintf_glibc)->Name("fprintf/glibc/mixed");

// ---- 64 MiB of mixed text to a file --------------------------------------------------------

constexpr std::size_t kTotalUnits = 32u << 20;  // 64 MiB of UTF-16
constexpr std::size_t kLineUnits = 100;         // 99 units and a newline

// Mostly ASCII, with Latin, Greek and CJK: 1, 2 and 3 UTF-8 bytes per unit.
struct Text {
  std::vector<std::u16string> lines16;
  std::vector<std::string> lines8;
  std::vector<std::wstring> linesw;
  std::u16string all16;
  std::string all8;
  Text() {
    unsigned seed = 12345;
    for (int l = 0; l < 64; ++l) {
      std::u16string s;
      for (std::size_t i = 0; i + 1 < kLineUnits; ++i) {
        seed = seed * 1103515245u + 12345u;
        const unsigned k = (seed >> 16) % 100;
        char16_t u = static_cast<char16_t>('a' + (seed >> 8) % 26);
        if (k >= 97) u = static_cast<char16_t>(0x4E00 + (seed >> 4) % 0x5000);
        else if (k >= 92) u = static_cast<char16_t>(0x3B1 + (seed >> 4) % 24);
        else if (k >= 85) u = static_cast<char16_t>(0xE0 + (seed >> 4) % 30);
        else if (k < 15) u = u' ';
        s.push_back(u);
      }
      s.push_back(u'\n');
      lines16.push_back(s);
      std::string b(s.size() * 3 + 1, 0);
      int32_t n = 0;
      UErrorCode e = U_ZERO_ERROR;
      u_strToUTF8(b.data(), static_cast<int32_t>(b.size()), &n, reinterpret_cast<const UChar*>(s.data()),
                  static_cast<int32_t>(s.size()), &e);
      b.resize(static_cast<std::size_t>(n));
      lines8.push_back(b);
      linesw.emplace_back(s.begin(), s.end());
    }
    for (std::size_t i = 0; all16.size() < kTotalUnits; ++i) {
      all16 += lines16[i % 64];
      all8 += lines8[i % 64];
    }
  }
};
const Text& text() {
  static const Text t;
  return t;
}

std::string path() { return "/tmp/nuv_format_bench_" + std::to_string(getpid()); }

constexpr std::size_t kLines = kTotalUnits / kLineUnits;
constexpr std::size_t kBlock = 32768;  // units per block write

void finish(benchmark::State& st) {
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * static_cast<int64_t>(kTotalUnits * 2));
  std::remove(path().c_str());
}

void write_lines_ours(benchmark::State& st) {
  const Text& t = text();
  for (auto _ : st) {
    FILE* f = std::fopen(path().c_str(), "w");
    for (std::size_t i = 0; i < kLines; ++i) fputsU16(t.lines16[i % 64].c_str(), f);
    std::fclose(f);
  }
  finish(st);
}
void write_lines_icu(benchmark::State& st) {
  const Text& t = text();
  for (auto _ : st) {
    UFILE* f = u_fopen(path().c_str(), "w", nullptr, "UTF-8");
    // u_fputs adds the newline itself.
    for (std::size_t i = 0; i < kLines; ++i) {
      const std::u16string& l = t.lines16[i % 64];
      u_file_write(reinterpret_cast<const UChar*>(l.c_str()), static_cast<int32_t>(l.size()), f);
    }
    u_fclose(f);
  }
  finish(st);
}
void write_lines_icu_fputs(benchmark::State& st) {
  const Text& t = text();
  std::vector<std::u16string> bare;
  for (const auto& l : t.lines16) bare.push_back(l.substr(0, l.size() - 1));
  for (auto _ : st) {
    UFILE* f = u_fopen(path().c_str(), "w", nullptr, "UTF-8");
    for (std::size_t i = 0; i < kLines; ++i) u_fputs(reinterpret_cast<const UChar*>(bare[i % 64].c_str()), f);
    u_fclose(f);
  }
  finish(st);
}
void write_lines_glibc_wide(benchmark::State& st) {
  const Text& t = text();
  std::setlocale(LC_ALL, "C.UTF-8");
  for (auto _ : st) {
    FILE* f = std::fopen(path().c_str(), "w");
    for (std::size_t i = 0; i < kLines; ++i) std::fputws(t.linesw[i % 64].c_str(), f);
    std::fclose(f);
  }
  std::setlocale(LC_ALL, "C");
  finish(st);
}
void write_lines_glibc(benchmark::State& st) {
  const Text& t = text();
  for (auto _ : st) {
    FILE* f = std::fopen(path().c_str(), "w");
    for (std::size_t i = 0; i < kLines; ++i) std::fputs(t.lines8[i % 64].c_str(), f);
    std::fclose(f);
  }
  finish(st);
}
BENCHMARK(write_lines_ours)->Name("fputs_64MiB/ours/lines")->Unit(benchmark::kMillisecond);
BENCHMARK(write_lines_icu_fputs)->Name("fputs_64MiB/icu/lines")->Unit(benchmark::kMillisecond);
BENCHMARK(write_lines_icu)->Name("fputs_64MiB/icu_write/lines")->Unit(benchmark::kMillisecond);
BENCHMARK(write_lines_glibc_wide)->Name("fputs_64MiB/glibc_wide/lines")->Unit(benchmark::kMillisecond);
BENCHMARK(write_lines_glibc)->Name("fputs_64MiB/glibc/lines")->Unit(benchmark::kMillisecond);

void write_blocks_ours(benchmark::State& st) {
  const Text& t = text();
  for (auto _ : st) {
    FILE* f = std::fopen(path().c_str(), "w");
    for (std::size_t at = 0; at < t.all16.size(); at += kBlock)
      fwriteU16(t.all16.data() + at, 1, std::min(kBlock, t.all16.size() - at), f);
    std::fclose(f);
  }
  finish(st);
}
void write_blocks_icu(benchmark::State& st) {
  const Text& t = text();
  for (auto _ : st) {
    UFILE* f = u_fopen(path().c_str(), "w", nullptr, "UTF-8");
    for (std::size_t at = 0; at < t.all16.size(); at += kBlock)
      u_file_write(reinterpret_cast<const UChar*>(t.all16.data() + at),
                   static_cast<int32_t>(std::min(kBlock, t.all16.size() - at)), f);
    u_fclose(f);
  }
  finish(st);
}
void write_blocks_glibc(benchmark::State& st) {
  const Text& t = text();
  // The same text, already UTF-8, in blocks of the same share of it.
  const std::size_t block8 = t.all8.size() / (t.all16.size() / kBlock);
  for (auto _ : st) {
    FILE* f = std::fopen(path().c_str(), "w");
    for (std::size_t at = 0; at < t.all8.size(); at += block8)
      std::fwrite(t.all8.data() + at, 1, std::min(block8, t.all8.size() - at), f);
    std::fclose(f);
  }
  finish(st);
}
BENCHMARK(write_blocks_ours)->Name("fwrite_64MiB/ours/blocks")->Unit(benchmark::kMillisecond);
BENCHMARK(write_blocks_icu)->Name("fwrite_64MiB/icu/blocks")->Unit(benchmark::kMillisecond);
BENCHMARK(write_blocks_glibc)->Name("fwrite_64MiB/glibc/blocks")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
