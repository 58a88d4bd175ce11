// Character classes and case: the table-backed class and case functions
// beside ICU's and glibc's, and the case-insensitive string functions beside
// ICU's u_strcasecmp / u_strToUpper / u_strToLower on three kinds of text.
#include <benchmark/benchmark.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <cwctype>
#include <random>
#include <string>
#include <vector>

#include "nuvu16.h"

namespace {

// ---- single units ------------------------------------------------------------

// 4096 units spread over the BMP's letters, digits, punctuation and CJK.
const std::vector<char16_t>& mixed_units() {
  static const std::vector<char16_t> v = [] {
    std::mt19937 rng(42);
    std::vector<char16_t> out(4096);
    for (auto& u : out) {
      const unsigned r = rng() % 4;
      u = static_cast<char16_t>(r == 0 ? rng() % 0x80 : r == 1 ? 0x80 + rng() % 0x480 : r == 2 ? 0x4E00 + rng() % 0x5000 : rng() % 0x10000);
    }
    return out;
  }();
  return v;
}

template <class F>
void per_unit(benchmark::State& st, F f) {
  const auto& units = mixed_units();
  for (auto _ : st) {
    int32_t sum = 0;
    for (char16_t u : units) sum += f(u);
    benchmark::DoNotOptimize(sum);
  }
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * units.size()));
}

#define UNIT_BENCH(op, ours, icu, glibc)                                                        \
  void op##_ours(benchmark::State& st) { per_unit(st, [](char16_t u) { return ours; }); }     \
  void op##_icu(benchmark::State& st) { per_unit(st, [](char16_t u) { return icu; }); }       \
  void op##_glibc(benchmark::State& st) { per_unit(st, [](char16_t u) { return glibc; }); }   \
  BENCHMARK(op##_ours)->Name(#op "/ours/4096");                                               \
  BENCHMARK(op##_icu)->Name(#op "/icu/4096");                                                 \
  BENCHMARK(op##_glibc)->Name(#op "/glibc/4096");

UNIT_BENCH(isalpha, isalphaU16(u), static_cast<int32_t>(u_isalpha(u)), static_cast<int32_t>(iswalpha(u) != 0))
UNIT_BENCH(isupper, isupperU16(u), static_cast<int32_t>(u_isupper(u)), static_cast<int32_t>(iswupper(u) != 0))
UNIT_BENCH(isspace, isspaceU16(u), static_cast<int32_t>(u_isspace(u)), static_cast<int32_t>(iswspace(u) != 0))
UNIT_BENCH(tolower, tolowerU16(u), u_tolower(u), static_cast<int32_t>(towlower(u)))

// The exported entry, bound to ICU: one indirect call more than ICU itself.
void isalphaU_entry(benchmark::State& st) { per_unit(st, [](char16_t u) { return isalphaU(u); }); }
BENCHMARK(isalphaU_entry)->Name("isalphaU-entry/ours/4096");

// ---- strings -------------------------------------------------------------------

enum Script { kAscii, kLatin1, kGreekCyrillic };

// Words of 3 to 9 letters with spaces; Latin-1 text has every other letter
// from U+00C0..U+00FE (not the sharp s, times or divide), Greek/Cyrillic text
// only letters of those scripts (no final sigma).
std::u16string text(Script s, std::size_t n) {
  std::mt19937 rng(7 + s);
  std::u16string out;
  while (out.size() < n) {
    const std::size_t word = 3 + rng() % 7;
    for (std::size_t i = 0; i < word && out.size() < n; ++i) {
      char16_t c = static_cast<char16_t>('a' + rng() % 26);
      if (s == kLatin1 && i % 2) {
        do c = static_cast<char16_t>(0xC0 + rng() % 0x3F);
        while (c == 0xD7 || c == 0xDF || c == 0xF7);
      } else if (s == kGreekCyrillic) {
        do c = static_cast<char16_t>(rng() % 2 ? 0x3B1 + rng() % 25 : 0x430 + rng() % 32);
        while (c == 0x3C2);
      }
      out.push_back(rng() % 3 ? c : static_cast<char16_t>(u_toupper(c)));
    }
    if (out.size() < n) out.push_back(u' ');
  }
  return out;
}

const char* const kScriptName[] = {"ascii", "latin1", "greek-cyrillic"};

// Equal but for case, so both sides read the whole string.
void strcasecmp_ours(benchmark::State& st, Script script, std::size_t n) {
  const std::u16string a = text(script, n);
  std::u16string b = a;
  strtoupperU16(b.data());
  for (auto _ : st) benchmark::DoNotOptimize(strcasecmpU16(a.c_str(), b.c_str()));
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * a.size() * 2));
}
void strcasecmp_icu(benchmark::State& st, Script script, std::size_t n) {
  const std::u16string a = text(script, n);
  std::u16string b = a;
  strtoupperU16(b.data());
  for (auto _ : st) benchmark::DoNotOptimize(u_strcasecmp(a.c_str(), b.c_str(), U_FOLD_CASE_DEFAULT));
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * a.size() * 2));
}

template <bool Up>
void convert_ours(benchmark::State& st, Script script, std::size_t n) {
  const std::u16string src = text(script, n);
  std::u16string s = src;
  for (auto _ : st) {
    // The text is converted again each round; after the first the units are
    // already in the target case, which costs the same per unit.
    benchmark::DoNotOptimize(Up ? strtoupperU16(s.data()) : strtolowerU16(s.data()));
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * src.size() * 2));
}
template <bool Up>
void convert_icu(benchmark::State& st, Script script, std::size_t n) {
  const std::u16string src = text(script, n);
  std::vector<UChar> dest(src.size() + 16);
  for (auto _ : st) {
    UErrorCode err = U_ZERO_ERROR;
    benchmark::DoNotOptimize(Up ? u_strToUpper(dest.data(), static_cast<int32_t>(dest.size()), src.c_str(), -1, "", &err)
                                : u_strToLower(dest.data(), static_cast<int32_t>(dest.size()), src.c_str(), -1, "", &err));
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * src.size() * 2));
}

void named(const char* op, const char* impl, void (*fn)(benchmark::State&, Script, std::size_t)) {
  for (Script s : {kAscii, kLatin1, kGreekCyrillic})
    for (std::size_t n : {64, 4096})
      benchmark::RegisterBenchmark((std::string(op) + "-" + kScriptName[s] + "/" + impl + "/" + std::to_string(n)).c_str(),
                                   [=](benchmark::State& st) { fn(st, s, n); });
}

const int kRegistered = [] {
  (void)isalphaU('a');  // bind ICU before anything is timed
  named("strcasecmp", "ours", strcasecmp_ours);
  named("strcasecmp", "icu", strcasecmp_icu);
  named("strtoupper", "ours", convert_ours<true>);
  named("strtoupper", "icu", convert_icu<true>);
  named("strtolower", "ours", convert_ours<false>);
  named("strtolower", "icu", convert_icu<false>);
  return 0;
}();

}  // namespace

BENCHMARK_MAIN();
