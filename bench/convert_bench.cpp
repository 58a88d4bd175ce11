// UTF-8 <-> UTF-16 conversion: ours (the validating converters) beside ICU
// and glibc iconv, on about 1 MiB of text in five mixes generated here from
// a fixed seed.  Bytes processed are the source bytes.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "convert/converters.h"
#include "convert/utf_simd.h"

namespace {

constexpr std::size_t kTarget = 1 << 20;

void put_utf8(std::string& s, char32_t c) {
  if (c < 0x80) {
    s += static_cast<char>(c);
  } else if (c < 0x800) {
    s += static_cast<char>(0xC0 | (c >> 6)), s += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    s += static_cast<char>(0xE0 | (c >> 12)), s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    s += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    s += static_cast<char>(0xF0 | (c >> 18)), s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    s += static_cast<char>(0x80 | ((c >> 6) & 0x3F)), s += static_cast<char>(0x80 | (c & 0x3F));
  }
}

struct Corpus {
  const char* name;
  std::string utf8;
  std::u16string utf16;
  std::u32string text;
};

// Words of `letter()` separated by spaces and some punctuation, until the
// UTF-8 form holds about 1 MiB.
template <class Letter>
Corpus make(const char* name, unsigned seed, Letter letter, const char32_t* seps) {
  std::mt19937 rng(seed);
  std::u32string text;
  std::string u8;
  while (u8.size() < kTarget) {
    const int len = 2 + static_cast<int>(rng() % 9);
    for (int i = 0; i < len; ++i) {
      const char32_t c = letter(rng);
      text += c;
      put_utf8(u8, c);
    }
    const char32_t sep = rng() % 12 == 0 ? seps[1] : seps[0];
    text += sep;
    put_utf8(u8, sep);
  }
  Corpus c{name, u8, {}, text};
  for (char32_t ch : text) {
    if (ch < 0x10000) {
      c.utf16 += static_cast<char16_t>(ch);
    } else {
      c.utf16 += static_cast<char16_t>(0xD800 + ((ch - 0x10000) >> 10));
      c.utf16 += static_cast<char16_t>(0xDC00 + (ch & 0x3FF));
    }
  }
  return c;
}

const std::vector<Corpus>& corpora() {
  static const std::vector<Corpus> all = [] {
    const char32_t latinSeps[] = {U' ', U'\n'};
    const char32_t cjkSeps[] = {U'，', U'。'};
    std::vector<Corpus> v;
    v.push_back(make("ascii", 1, [](std::mt19937& r) { return static_cast<char32_t>('a' + r() % 26); }, latinSeps));
    v.push_back(make("latin1", 2,
                     [](std::mt19937& r) {
                       return r() % 100 < 17 ? static_cast<char32_t>(0xC0 + r() % 64) : static_cast<char32_t>('a' + r() % 26);
                     },
                     latinSeps));
    v.push_back(make("cyrillic", 3, [](std::mt19937& r) { return static_cast<char32_t>(0x430 + r() % 32); }, latinSeps));
    v.push_back(make("cjk", 4, [](std::mt19937& r) { return static_cast<char32_t>(0x4E00 + r() % 0x5200); }, cjkSeps));
    v.push_back(make("emoji", 5,
                     [](std::mt19937& r) {
                       return r() % 17 == 0 ? static_cast<char32_t>(0x1F600 + r() % 80) : static_cast<char32_t>('a' + r() % 26);
                     },
                     latinSeps));
    return v;
  }();
  return all;
}

// ---- UTF-8 -> UTF-16 ----
void from8_ours(benchmark::State& st, const Corpus* c) {
  std::vector<char16_t> out(c->utf8.size() + 8);
  for (auto _ : st) {
    const auto* s = reinterpret_cast<const rscpUtf8*>(c->utf8.data());
    char16_t* d = out.data();
    benchmark::DoNotOptimize(Utf8nToUtf16nSubst(&s, s + c->utf8.size(), &d, out.data() + out.size(), nullptr, nullptr));
    benchmark::DoNotOptimize(d);
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->utf8.size()));
}
void from8_icu(benchmark::State& st, const Corpus* c) {
  std::vector<UChar> out(c->utf8.size() + 8);
  for (auto _ : st) {
    UErrorCode err = U_ZERO_ERROR;
    int32_t n = 0;
    benchmark::DoNotOptimize(u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &n, c->utf8.data(),
                                           static_cast<int32_t>(c->utf8.size()), &err));
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->utf8.size()));
}
void from8_icu_sub(benchmark::State& st, const Corpus* c) {
  std::vector<UChar> out(c->utf8.size() + 8);
  for (auto _ : st) {
    UErrorCode err = U_ZERO_ERROR;
    int32_t n = 0;
    benchmark::DoNotOptimize(u_strFromUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &n, c->utf8.data(),
                                                  static_cast<int32_t>(c->utf8.size()), 0xFFFD, nullptr, &err));
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->utf8.size()));
}
void iconv_run(benchmark::State& st, const char* to, const char* from, const void* in, std::size_t n,
               std::size_t outBytes) {
  iconv_t cd = iconv_open(to, from);
  std::vector<char> out(outBytes);
  for (auto _ : st) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char* ip = static_cast<char*>(const_cast<void*>(in));
    char* op = out.data();
    std::size_t il = n, ol = out.size();
    benchmark::DoNotOptimize(iconv(cd, &ip, &il, &op, &ol));
  }
  iconv_close(cd);
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * n));
}
void from8_iconv(benchmark::State& st, const Corpus* c) {
  iconv_run(st, "UTF-16LE", "UTF-8", c->utf8.data(), c->utf8.size(), c->utf8.size() * 2 + 16);
}

// The AVX2 kernels, for CPUs without AVX-512 VBMI2 (the default choice here
// is the best kernel the CPU runs).
template <void (*F)(benchmark::State&, const Corpus*)>
void with_avx2(benchmark::State& st, const Corpus* c) {
  nuv::rscp::set_utf_kernels(&nuv::rscp::kUtfAvx2);
  F(st, c);
  nuv::rscp::set_utf_kernels(nuv::rscp::best_utf_kernels());
}
void from8_ours(benchmark::State& st, const Corpus* c);
void to8_ours(benchmark::State& st, const Corpus* c);

// ---- UTF-16 -> UTF-8 ----
void to8_ours(benchmark::State& st, const Corpus* c) {
  std::vector<rscpUtf8> out(c->utf16.size() * 3 + 8);
  for (auto _ : st) {
    const NUV_UTF16* s = c->utf16.data();
    rscpUtf8* d = out.data();
    benchmark::DoNotOptimize(Utf16nToUtf8n(&s, s + c->utf16.size(), &d, out.data() + out.size()));
    benchmark::DoNotOptimize(d);
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->utf16.size() * 2));
}
void to8_icu(benchmark::State& st, const Corpus* c) {
  std::vector<char> out(c->utf16.size() * 3 + 8);
  for (auto _ : st) {
    UErrorCode err = U_ZERO_ERROR;
    int32_t n = 0;
    benchmark::DoNotOptimize(u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &n,
                                         reinterpret_cast<const UChar*>(c->utf16.data()),
                                         static_cast<int32_t>(c->utf16.size()), &err));
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->utf16.size() * 2));
}
void to8_iconv(benchmark::State& st, const Corpus* c) {
  iconv_run(st, "UTF-8", "UTF-16LE", c->utf16.data(), c->utf16.size() * 2, c->utf16.size() * 3 + 16);
}

// ---- Short texts: 2048 different slices of a corpus, one call each ----
// Each slice starts at a random character and takes characters until its
// UTF-8 form holds about `bytes` bytes; the slices lie one after another in
// one pool, so their addresses and alignments differ as in a real program.
struct Slices {
  std::string pool8;
  std::u16string pool16;
  std::vector<std::pair<std::size_t, std::size_t>> at8, at16;  // offset, length
};

constexpr int kSlices = 2048;

const Slices& slices(const Corpus* c, std::size_t bytes) {
  static std::map<std::pair<const Corpus*, std::size_t>, Slices> cache;
  auto [it, fresh] = cache.try_emplace({c, bytes});
  if (!fresh) return it->second;
  Slices& sl = it->second;
  std::mt19937 rng(static_cast<unsigned>(bytes * 31 + c->utf8.size()));
  for (int i = 0; i < kSlices; ++i) {
    std::size_t k = rng() % (c->text.size() - 4 * bytes);
    std::string u8;
    std::u16string u16;
    while (u8.size() < bytes) {
      const char32_t ch = c->text[k++];
      put_utf8(u8, ch);
      if (ch < 0x10000) {
        u16 += static_cast<char16_t>(ch);
      } else {
        u16 += static_cast<char16_t>(0xD800 + ((ch - 0x10000) >> 10));
        u16 += static_cast<char16_t>(0xDC00 + (ch & 0x3FF));
      }
    }
    sl.at8.emplace_back(sl.pool8.size(), u8.size());
    sl.at16.emplace_back(sl.pool16.size(), u16.size());
    sl.pool8 += u8;
    sl.pool16 += u16;
  }
  return sl;
}

template <bool Icu>
void short8_run(benchmark::State& st, const Corpus* c, std::size_t bytes) {
  const Slices& sl = slices(c, bytes);
  std::vector<char16_t> out(4 * bytes + 64);
  for (auto _ : st) {
    for (const auto& [off, len] : sl.at8) {
      if constexpr (Icu) {
        UErrorCode err = U_ZERO_ERROR;
        int32_t n = 0;
        benchmark::DoNotOptimize(u_strFromUTF8(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()),
                                               &n, sl.pool8.data() + off, static_cast<int32_t>(len), &err));
      } else {
        const auto* s = reinterpret_cast<const rscpUtf8*>(sl.pool8.data() + off);
        char16_t* d = out.data();
        benchmark::DoNotOptimize(Utf8nToUtf16nSubst(&s, s + len, &d, out.data() + out.size(), nullptr, nullptr));
        benchmark::DoNotOptimize(d);
      }
    }
  }
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * kSlices));
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * sl.pool8.size()));
}

template <bool Icu>
void short16_run(benchmark::State& st, const Corpus* c, std::size_t bytes) {
  const Slices& sl = slices(c, bytes);
  std::vector<rscpUtf8> out(4 * bytes + 64);
  for (auto _ : st) {
    for (const auto& [off, len] : sl.at16) {
      if constexpr (Icu) {
        UErrorCode err = U_ZERO_ERROR;
        int32_t n = 0;
        benchmark::DoNotOptimize(u_strToUTF8(reinterpret_cast<char*>(out.data()), static_cast<int32_t>(out.size()), &n,
                                             reinterpret_cast<const UChar*>(sl.pool16.data() + off),
                                             static_cast<int32_t>(len), &err));
      } else {
        const NUV_UTF16* s = sl.pool16.data() + off;
        rscpUtf8* d = out.data();
        benchmark::DoNotOptimize(Utf16nToUtf8n(&s, s + len, &d, out.data() + out.size()));
        benchmark::DoNotOptimize(d);
      }
    }
  }
  st.SetItemsProcessed(static_cast<int64_t>(st.iterations() * kSlices));
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * sl.pool16.size() * 2));
}

void register_short() {
  using Fn = void (*)(benchmark::State&, const Corpus*, std::size_t);
  const struct {
    const char* op;
    const char* impl;
    Fn fn;
    const nuv::rscp::UtfKernels* kernel;  // null: the library's choice
  } kinds[] = {{"short8to16", "ours", short8_run<false>, nullptr},
               {"short8to16", "icu", short8_run<true>, nullptr},
               {"short8to16", "ours_avx2", short8_run<false>, &nuv::rscp::kUtfAvx2},
               {"short16to8", "ours", short16_run<false>, nullptr},
               {"short16to8", "icu", short16_run<true>, nullptr},
               {"short16to8", "ours_avx2", short16_run<false>, &nuv::rscp::kUtfAvx2}};
  for (const auto& c : corpora()) {
    if (std::string(c.name) == "cyrillic") continue;
    for (std::size_t bytes : {24, 96})
      for (const auto& k : kinds)
        benchmark::RegisterBenchmark(
            (std::string(k.op) + "/" + k.impl + "/" + c.name + "/" + std::to_string(bytes)).c_str(),
            [k, cp = &c, bytes](benchmark::State& st) {
              if (k.kernel) nuv::rscp::set_utf_kernels(k.kernel);
              k.fn(st, cp, bytes);
              nuv::rscp::set_utf_kernels(nuv::rscp::best_utf_kernels());
            });
  }
}

}  // namespace

int main(int argc, char** argv) {
  using Fn = void (*)(benchmark::State&, const Corpus*);
  const struct {
    const char* op;
    const char* impl;
    Fn fn;
  } kinds[] = {{"utf8_to_utf16", "ours", from8_ours},       {"utf8_to_utf16", "icu", from8_icu},
               {"utf8_to_utf16", "icu_sub", from8_icu_sub}, {"utf8_to_utf16", "iconv", from8_iconv},
               {"utf16_to_utf8", "ours", to8_ours},         {"utf16_to_utf8", "icu", to8_icu},
               {"utf16_to_utf8", "iconv", to8_iconv},       {"utf8_to_utf16", "ours_avx2", with_avx2<from8_ours>},
               {"utf16_to_utf8", "ours_avx2", with_avx2<to8_ours>}};
  for (const auto& c : corpora())
    for (const auto& k : kinds)
      benchmark::RegisterBenchmark((std::string(k.op) + "/" + k.impl + "/" + c.name).c_str(), k.fn, &c);
  register_short();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
