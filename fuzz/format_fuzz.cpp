// The printf engine on formats and arguments built from the input, with the
// bounded results held against the unbounded one; the directive parser on
// raw format text; the stream writer's fast paths against their byte-by-byte
// reference over failing streams; the floating fast path against snprintf.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "format/directive.h"
#include "format/engine.h"
#include "string/scan.h"
#include "nuvu16.h"
#include "stream/output.h"

namespace {

int quiet(const char*, int len) { return len; }

struct Reader {
  const uint8_t* p;
  size_t n;
  unsigned byte() {
    if (!n) return 0;
    --n;
    return *p++;
  }
  uint64_t word() {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = v << 8 | byte();
    return v;
  }
};

// ---- engine on constructed formats -----------------------------------------------

constexpr int kMaxGp = 24;
constexpr int kMaxFp = 8;  // all in registers, so integer and floating reads stay apart

const char16_t* const kStrings[] = {u"", u"a", u"hello", u"\u00e9\u4e2d\xD800x", u"%d%s", nullptr};

struct Built {
  std::u16string format;
  uint64_t gp[kMaxGp] = {};
  double fp[kMaxFp] = {};
  int ngp = 0, nfp = 0;
};

bool push_gp(Built& b, uint64_t v) {
  if (b.ngp == kMaxGp) return false;
  b.gp[b.ngp++] = v;
  return true;
}

void build(Reader& r, Built& b) {
  static const char kSyms[] = "diuxXoeEfFgGaAcsp%";
  static const char* const kMods[] = {"", "hh", "h", "l", "ll", "j", "z", "t"};
  static const char kFlags[] = "-+ #0";
  while (r.n) {
    const unsigned op = r.byte();
    if (op < 64) {  // a literal unit
      const unsigned hi = r.byte();
      char16_t u = static_cast<char16_t>(op < 48 ? 'A' + op : (hi << 8) | r.byte());
      if (u == '%' || u == 0) u = '.';
      b.format.push_back(u);
      continue;
    }
    const char sym = kSyms[r.byte() % (sizeof kSyms - 1)];
    const bool floating = std::strchr("eEfFgGaA", sym) != nullptr;
    unsigned f = r.byte() & 0x1F;
    if (f == 0x1F) f = 0x0F;  // five flags are a bad directive
    std::u16string d = u"%";
    for (int i = 0; i < 5; ++i)
      if (f & (1u << i)) d.push_back(static_cast<char16_t>(kFlags[i]));
    const unsigned w = r.byte();
    if ((w & 3) == 1) {
      for (char c : std::to_string((w >> 2) + 1)) d.push_back(static_cast<char16_t>(c));
    } else if ((w & 3) == 2) {
      d.push_back(u'*');
      if (!push_gp(b, static_cast<uint64_t>(static_cast<int64_t>(static_cast<int>(w >> 2) - 20)))) break;
    }
    const unsigned p = r.byte();
    if ((p & 3) == 1) {
      d.push_back(u'.');
      for (char c : std::to_string((p >> 2) * (p & 0x80 ? 7 : 1))) d.push_back(static_cast<char16_t>(c));
    } else if ((p & 3) == 2) {
      d += u".*";
      if (!push_gp(b, static_cast<uint64_t>(static_cast<int64_t>(static_cast<int>(p >> 2) - 12)))) break;
    } else if ((p & 3) == 3) {
      d.push_back(u'.');
    }
    const char* mod = floating ? "" : kMods[r.byte() % 8];
    for (const char* m = mod; *m; ++m) d.push_back(static_cast<char16_t>(*m));
    d.push_back(static_cast<char16_t>(sym));
    bool ok = true;
    if (floating) {
      if (b.nfp == kMaxFp) break;
      uint64_t bits = r.word();
      double v;
      std::memcpy(&v, &bits, sizeof v);
      b.fp[b.nfp++] = v;
    } else if (sym == 's') {
      ok = push_gp(b, reinterpret_cast<uintptr_t>(kStrings[r.byte() % 6]));
    } else if (sym != '%') {
      ok = push_gp(b, r.word());
    }
    if (!ok) break;
    b.format += d;
  }
}

int call(NUV_UTF16* buf, size_t n, const Built& b) {
  const uint64_t* g = b.gp;
  const double* d = b.fp;
  return snprintfU16(buf, n, b.format.c_str(), g[0], g[1], g[2], g[3], g[4], g[5], g[6], g[7], g[8], g[9], g[10],
                     g[11], g[12], g[13], g[14], g[15], g[16], g[17], g[18], g[19], g[20], g[21], g[22], g[23], d[0],
                     d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

int append(NUV_UTF16** s, const Built* b, ...) {
  va_list ap;
  va_start(ap, b);
  const int r = vsprintf_append_U(s, b->format.c_str(), ap);
  va_end(ap);
  return r;
}

void engine(Reader& r) {
  Built b;
  build(r, b);
  static std::vector<char16_t> full(1 << 20);
  const int whole = call(full.data(), full.size(), b);
  if (whole < 0) abort();  // constructed formats are always valid
  if (static_cast<size_t>(whole) >= full.size()) return;
  // Every bound gives the same text, cut to bound - 1 units, and returns the
  // bound when it cut.
  for (size_t n : {size_t{1}, size_t{2}, size_t{7}, static_cast<size_t>(whole), static_cast<size_t>(whole) + 1}) {
    if (n == 0) continue;
    std::vector<char16_t> part(n + 1, u'\x7f');
    const int got = call(part.data(), n, b);
    const size_t want = static_cast<size_t>(whole) < n ? static_cast<size_t>(whole) : n;
    if (got != static_cast<int>(want)) abort();
    const size_t kept = static_cast<size_t>(whole) < n ? static_cast<size_t>(whole) : n - 1;
    if (std::memcmp(part.data(), full.data(), kept * 2) != 0 || part[kept] != 0 || part[n] != u'\x7f') abort();
  }
  const uint64_t* g = b.gp;
  const double* d = b.fp;
  NUV_UTF16* s = nullptr;
  const int a = append(&s, &b, g[0], g[1], g[2], g[3], g[4], g[5], g[6], g[7], g[8], g[9], g[10], g[11], g[12],
                       g[13], g[14], g[15], g[16], g[17], g[18], g[19], g[20], g[21], g[22], g[23], d[0], d[1], d[2],
                       d[3], d[4], d[5], d[6], d[7]);
  if (a != whole || std::memcmp(s, full.data(), static_cast<size_t>(whole) * 2) != 0) abort();
  std::free(s);
}

// ---- parser on raw text ------------------------------------------------------------------

int parse_all(const std::u16string* textp, ...) {
  const std::u16string& text = *textp;
  va_list ap;
  va_start(ap, textp);
  int directives = 0;
  for (size_t at = text.find(u'%'); at != std::u16string::npos && directives < 16; at = text.find(u'%', at + 1)) {
    OutputConversion c;
    OutputConversionCtor(&c);
    const int used = OutputConversion_parse(&c, text.c_str() + at + 1, &ap);
    if (used > 0 && at + 1 + static_cast<size_t>(used) > text.size()) abort();
    if (used > 0 && OutputConversionSpec_getSymbol(&c.spec) == 0) abort();
    OutputConversionXtor(&c);
    ++directives;
  }
  va_end(ap);
  return directives;
}

void parser(Reader& r) {
  std::u16string text;
  while (r.n) {
    const unsigned b = r.byte();
    text.push_back(b < 0xF0 ? static_cast<char16_t>(b) : static_cast<char16_t>((b << 8) | r.byte()));
  }
  // Sixteen directives at most, two '*' each.
  parse_all(&text, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26,
            27, 28, 29, 30, 31, 32);
}

// ---- stream writer ---------------------------------------------------------------------

struct Sink {
  std::string bytes;
  size_t budget;
};
ssize_t sink_write(void* c, const char* buf, size_t n) {
  auto* s = static_cast<Sink*>(c);
  if (s->budget == 0) return -1;
  const size_t k = n < s->budget ? n : s->budget;
  s->bytes.append(buf, k);
  s->budget -= k;
  return static_cast<ssize_t>(k);
}

void writer(Reader& r) {
  const size_t bufsize = r.byte() % 40;
  const size_t budget = r.byte() * 4 + r.byte();
  const size_t size = 1 + r.byte() % 3;
  const int flag = static_cast<int>(r.byte() & 1);
  std::vector<char16_t> units;
  while (r.n >= 2) units.push_back(static_cast<char16_t>(r.byte() | r.byte() << 8));
  std::string out[2];
  size_t res[2];
  uint64_t bytes[2] = {7, 7};
  for (int impl = 0; impl < 2; ++impl) {
    Sink sink{{}, budget};
    cookie_io_functions_t io{};
    io.write = sink_write;
    FILE* f = fopencookie(&sink, "w", io);
    std::vector<char> storage(bufsize + 1);
    std::setvbuf(f, bufsize ? storage.data() : nullptr, bufsize ? _IOFBF : _IONBF, bufsize);
    res[impl] = impl == 0 ? fwrite_unlockedU16(units.data(), size, units.size() / size, f, &bytes[impl], flag)
                          : nuv::fwrite_units_ref(units.data(), size, units.size() / size, f, &bytes[impl], flag);
    std::fclose(f);
    out[impl] = sink.bytes;
  }
  if (res[0] != res[1] || bytes[0] != bytes[1] || out[0] != out[1]) abort();

  const size_t cap = budget % (units.size() * 3 + 1);
  std::vector<char> d2(cap + 1);
  size_t b2;
  bool s2;
  const size_t k2 = nuv::encode_units_fit_ref(units.data(), units.size(), d2.data(), cap, &b2, &s2);
  for (int level = nuv::kCpuSse2; level <= nuv::cpu().level; ++level) {
    std::vector<char> d1(cap + 1);
    size_t b1;
    bool s1;
    const size_t k1 = nuv::encode_fit_for(level)(units.data(), units.size(), d1.data(), cap, &b1, &s1);
    if (k1 != k2 || b1 != b2 || s1 != s2 || std::memcmp(d1.data(), d2.data(), b1) != 0) abort();
  }

  // fputsU16 (one pass up to the terminator) against the reference writer.
  std::vector<char16_t> text(units);
  for (char16_t& u : text)
    if (u == 0) u = u'0';
  text.push_back(0);
  // Each level's one-pass kernel encodes exactly what the reference does for
  // the units it takes.
  for (int level = nuv::kCpuSse2; level <= nuv::cpu().level; ++level) {
    const nuv::EncodeText kernel = nuv::encode_text_for(level);
    if (!kernel) continue;
    std::vector<char> d1(cap + 1), d2(cap + 1);
    size_t b1, b2;
    bool s2;
    const size_t k1 = kernel(text.data(), d1.data(), cap, &b1);
    const size_t k2 = nuv::encode_units_fit_ref(text.data(), k1, d2.data(), cap, &b2, &s2);
    if (k1 > units.size() || k1 != k2 || b1 != b2 || std::memcmp(d1.data(), d2.data(), b1) != 0) abort();
  }
  long put[2];
  for (int impl = 0; impl < 2; ++impl) {
    Sink sink{{}, budget};
    cookie_io_functions_t io{};
    io.write = sink_write;
    FILE* f = fopencookie(&sink, "w", io);
    std::vector<char> storage(bufsize + 1);
    std::setvbuf(f, bufsize ? storage.data() : nullptr, bufsize ? _IOFBF : _IONBF, bufsize);
    if (impl == 0) {
      put[impl] = fputsU16(text.data(), f);
    } else {
      uint64_t b = 0;
      const size_t r = units.empty() ? 0 : nuv::fwrite_units_ref(text.data(), units.size(), 1, f, &b, 1);
      put[impl] = r == static_cast<size_t>(-1) ? -1 : static_cast<long>(b);
    }
    std::fclose(f);
    out[impl] = sink.bytes;
  }
  if (put[0] != put[1] || out[0] != out[1]) abort();
}

// The floating fast path against the C library.
void floating(Reader& r) {
  static const char kSyms[] = "fFeEgG";
  while (r.n >= 10) {
    const char sym = kSyms[r.byte() % 6];
    const int precision = static_cast<int>(r.byte() % 48);
    const uint64_t bits = r.word();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    char fast[336], slow[400];
    const int n = nuv::format_double_fast(fast, sizeof fast - 1, sym, precision, v);
    if (n < 0) continue;
    const char fmt[5] = {'%', '.', '*', sym, 0};
    const int m = std::snprintf(slow, sizeof slow, fmt, precision, v);
    if (n != m || std::memcmp(fast, slow, static_cast<size_t>(n)) != 0) abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  u16_trace_func = quiet;
  u16_trace_level = 16;
  Reader r{data + 1, size - 1};
  switch (data[0] % 4) {
    case 0: engine(r); break;
    case 1: parser(r); break;
    case 2: writer(r); break;
    default: floating(r); break;
  }
  return 0;
}
