// The scanf family against glibc sscanf on generated inputs for the
// directives where the two agree, and the deliberate differences as cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "scan/scan_engine.h"
#include "support/recording_trace.h"

using nuvtest::RecordingTrace;
using nuvtest::u16;

namespace {

// What each pointer argument of a format receives.
enum Kind { I32, I64, I16, I8, F32, F64, F80, Str, Chars3, Ptr };

struct Slot {
  alignas(16) unsigned char narrow[256];
  alignas(16) char16_t wide[256];
};

struct FormatCase {
  const char* format;
  std::vector<Kind> kinds;
  const char* alphabet;
};

// Formats and the characters their generated inputs are made of.  Letters
// that would start inf/nan, or an 'x' in a floating field, are left out:
// those are the deliberate differences, tested one by one below.
const FormatCase kFormats[] = {
    {"%d", {I32}, "0123456789+- \tabc"},
    {"%d %d", {I32, I32}, "0123456789+- \n"},
    {"%i", {I32}, "0123456789xXabcdefg+- "},
    {"%o%x", {I32, I32}, "012345678789abcdefxX+- "},
    {"%ld,%lu", {I64, I64}, "0123456789-,+ "},
    {"%lld %llx", {I64, I64}, "0123456789abcdef- "},
    {"%hd %hhd %hu", {I16, I8, I16}, "0123456789- "},
    {"%5d%3d", {I32, I32}, "0123456789- "},
    {"%2i%x", {I32, I32}, "0123456789xab- "},
    {"%*d %d", {I32}, "0123456789 -"},
    {"x%dy%d", {I32, I32}, "0123456789xy- "},
    {"%s%n", {Str, I32}, "abc \tdef\n12"},
    {"%3s %s", {Str, Str}, "abcdefgh  "},
    {"%c%d", {Str, I32}, "ab 12"},
    {"%3c", {Chars3}, "abc d"},
    {"%[a-z]%d", {Str, I32}, "abcxyz0123 -"},
    {"%[^,],%[^,]", {Str, Str}, "ab,cd ,"},
    {"%2[0-9]%s", {Str, Str}, "0123ab"},
    {"%[]a-c]%n", {Str, I32}, "]abcd-"},
    {"%f %lf", {F32, F64}, "0123456789.-+e "},
    {"%lf%n", {F64, I32}, "0123456789.eE-"},
    {"%Lf", {F80}, "0123456789.e-"},
    {"%4lf%d", {F64, I32}, "0123456789.e-"},
    {"%g %e %a", {F32, F32, F32}, "0123456789.-"},
    {"%d%%%d", {I32, I32}, "0123%%"},
};

std::string random_input(std::mt19937& rng, const char* alphabet) {
  const size_t n = std::strlen(alphabet);
  std::string s;
  int len = std::uniform_int_distribution<int>(0, 14)(rng);
  for (int i = 0; i < len; ++i) s += alphabet[std::uniform_int_distribution<size_t>(0, n - 1)(rng)];
  return s;
}

void check_same(const FormatCase& fc, const std::string& input) {
  Slot ours[4], theirs[4];
  std::memset(ours, 0xA5, sizeof ours);
  std::memset(theirs, 0xA5, sizeof theirs);
  std::u16string fmt16 = u16(fc.format), in16 = u16(input.c_str());
  void* a[4];
  void* b[4];
  for (int i = 0; i < 4; ++i) {
    bool text = i < static_cast<int>(fc.kinds.size()) && (fc.kinds[i] == Str || fc.kinds[i] == Chars3);
    a[i] = text ? static_cast<void*>(ours[i].wide) : ours[i].narrow;
    b[i] = theirs[i].narrow;
  }
  errno = 0;
  int r1 = sscanfU16(in16.c_str(), fmt16.c_str(), a[0], a[1], a[2], a[3]);
  int r2 = std::sscanf(input.c_str(), fc.format, b[0], b[1], b[2], b[3]);
  // Deliberate difference: input that ends right after a sign is the end of the
  // input here (-1 when nothing was assigned); glibc calls it a mismatch (0).
  const bool ends_in_sign = !input.empty() && (input.back() == '-' || input.back() == '+');
  if (!(ends_in_sign && r1 == -1 && r2 == 0))
    ASSERT_EQ(r1, r2) << "format '" << fc.format << "' input '" << input << "'";
  for (size_t i = 0; i < fc.kinds.size(); ++i) {
    const unsigned char* x = ours[i].narrow;
    const unsigned char* y = theirs[i].narrow;
    static const size_t kBytes[] = {4, 8, 2, 1, 4, 8, 10, 0, 0, 8};  // by Kind
    switch (fc.kinds[i]) {
      default: ASSERT_EQ(0, std::memcmp(x, y, kBytes[fc.kinds[i]])) << fc.format << " '" << input << "' arg " << i; break;
      case Str: {
        std::u16string got;
        const char16_t* w = ours[i].wide;
        if (y[0] == 0xA5) {  // glibc stored nothing
          ASSERT_EQ(w[0], 0xA5A5) << fc.format << " '" << input << "' arg " << i;
          break;
        }
        std::string want;
        if (std::strcmp(fc.format, "%c%d") == 0) {  // %c stores no terminator
          want.assign(reinterpret_cast<const char*>(y), 1);
          got.assign(w, 1);
        } else {
          want = reinterpret_cast<const char*>(y);
          got.assign(w);
        }
        ASSERT_EQ(got, u16(want.c_str())) << fc.format << " '" << input << "' arg " << i;
        break;
      }
      case Chars3:
        for (int k = 0; k < 3; ++k)
          ASSERT_EQ(ours[i].wide[k] & 0xFF, y[k]) << fc.format << " '" << input << "'";
        break;
    }
  }
}

TEST(Sscanf, AgreesWithGlibcOnGeneratedInputs) {
  std::mt19937 rng(4242);
  for (const auto& fc : kFormats) {
    for (int i = 0; i < 3000; ++i) {
      check_same(fc, random_input(rng, fc.alphabet));
      if (HasFatalFailure()) return;
    }
  }
}

// ---- edge cases as a table -------------------------------------------------

// The arguments after a call, one letter each: i int, x eight bytes in hex,
// p pointer in hex, s text, d double, f float, L long double; "~" marks an
// argument the call left alone.
std::string show(char kind, const unsigned char* b) {
  const size_t size = kind == 'i' || kind == 'f' ? 4 : kind == 'L' ? 10 : kind == 's' ? 2 : 8;
  if (std::all_of(b, b + size, [](unsigned char c) { return c == 0xA5; })) return "~";
  char out[64] = "";
  long double real = 0;
  switch (kind) {
    case 'i': { int v; std::memcpy(&v, b, 4); return std::to_string(v); }
    case 'x': case 'p': {
      unsigned long long v;
      std::memcpy(&v, b, 8);
      std::snprintf(out, sizeof out, kind == 'x' ? "%016llx" : "%llx", v);
      return out;
    }
    case 's': {
      std::string r;
      for (const char16_t* w = reinterpret_cast<const char16_t*>(b); *w; ++w) {
        std::snprintf(out, sizeof out, "<%x>", unsigned(*w));
        r += *w < 0x80 ? std::string(1, char(*w)) : out;
      }
      return r;
    }
    case 'd': { double v; std::memcpy(&v, b, 8); real = v; break; }
    case 'f': { float v; std::memcpy(&v, b, 4); real = v; break; }
    default: std::memcpy(&real, b, 10);
  }
  if (std::isnan(real)) return "nan";
  std::snprintf(out, sizeof out, "%.17Lg", real);
  return out;
}

struct EdgeRow {
  const char16_t *in, *fmt;
  int ret;
  const char *kinds, *after;
};
const EdgeRow kEdges[] = {
    {u"", u"%d", -1, "i", "~"},
    {u"abc", u"%d", 0, "i", "~"},
    {u"   ", u"%d", -1, "i", "~"},
    {u"a", u"a%d", -1, "i", "~"},
    {u" -", u"%d", -1, "i", "~"},  // glibc: 0
    {u"abcdefgh", u"%5s", 1, "s", "abcde"},
    {u"ab,cd", u"%[^,]", 1, "s", "ab"},
    {u"]a]b", u"%[]a]", 1, "s", "]a]"},
    {u"mza-", u"%[z-a]", 1, "s", "mza"},  // a reversed range is the same range
    {u"a-b", u"%[-a]", 1, "s", "a-"},
    {u"abc", u"%[abc", 0, "s", "~"},  // the format ends inside the set
    {u"0x1A", u"%i", 1, "i", "26"},
    {u"017", u"%i", 1, "i", "15"},
    {u"12345", u"%05d", 1, "i", "12345"},  // '0' starts a width
    {u"123456", u"%05d", 1, "i", "12345"},
    {u"98765", u"%*d%n", 0, "i", "5"},
    {u"1 2", u"%*d %d", 1, "i", "2"},
    {u"abc def", u"%s%n", 1, "si", "abc 3"},
    {u"x", u"%lln", 0, "x", "0000000000000000"},
    {u"abc", u"abc%lln", 0, "x", "0000000000000003"},
    {u"(NIL)", u"%p", 1, "p", "0"},  // glibc: only "(nil)"
    {u"0x7fff1234", u"%p", 1, "p", "7fff1234"},
    {u"(nix)", u"%p", 0, "p", "~"},
    {u"-inf", u"%lf", 1, "d", "-inf"},
    {u"INFINITY x", u"%lf", 1, "d", "inf"},
    {u"NaN", u"%f", 1, "f", "nan"},
    {u"-2.5e3", u"%Lf", 1, "L", "-2500"},
    // Deliberate differences from glibc: a leading '+' is outside the width,
    // a '-' inside; no hexadecimal floating input; %j and %t store 32 bits;
    // %ls is UTF-16 like %s; white space is the Unicode set; "%%" matches
    // a '%' without skipping white space first.
    {u"+1234", u"%3lf", 1, "d", "123"},
    {u"-1234", u"%3lf", 1, "d", "-12"},
    {u"+inf", u"%3lf", 1, "d", "inf"},
    {u"0x1p3", u"%lf", 1, "d", "0"},
    {u"5", u"%jd", 1, "x", "a5a5a5a500000005"},
    {u"6", u"%td", 1, "x", "a5a5a5a500000006"},
    {u"7", u"%zd", 1, "x", "0000000000000007"},
    {u"8", u"%hhd", 1, "x", "a5a5a5a5a5a5a508"},
    {u"\u00e9t\u00e9", u"%ls", 1, "s", "<e9>t<e9>"},
    {u"\u3000\u00a042", u"%d", 1, "i", "42"},
    {u"1 %2", u"%d%%%d", 1, "ii", "1 ~"},
};

TEST(Sscanf, EdgeCases) {
  for (const EdgeRow& row : kEdges) {
    alignas(16) unsigned char slot[3][64];
    std::memset(slot, 0xA5, sizeof slot);
    EXPECT_EQ(sscanfU16(row.in, row.fmt, slot[0], slot[1], slot[2]), row.ret) << "row " << (&row - kEdges);
    std::string after;
    for (size_t i = 0; row.kinds[i]; ++i) after += (i ? " " : "") + show(row.kinds[i], slot[i]);
    EXPECT_EQ(after, row.after) << "row " << (&row - kEdges);
  }
  int v = 0;
  EXPECT_EQ(sscanfU16(u"98765", u"%**d%d", 3, &v), 1);  // width from the arguments, suppressed
  EXPECT_EQ(v, 65);
  double d = 0;
  errno = 0;
  EXPECT_EQ(sscanfU16(u"-inf", u"%lf", &d), 1);
  EXPECT_EQ(errno, ERANGE);  // kept on purpose; glibc leaves errno alone
}

// Special words against glibc: a partial word fails the directive (0, not
// end of input), and the field width bounds the word like any other field.
TEST(Sscanf, SpecialWordsMatchGlibc) {
  struct Case { const char* in; const char* fmt; };
  const Case cases[] = {
      {"infin", "%lf"},    {"in", "%lf"},        {"i", "%lf"},         {"na", "%lf"},
      {"infinx", "%lf"},   {"infx", "%lf"},      {"nanx", "%lf"},      {"iNfInItY7", "%lf"},
      {"-inf", "%3lf"},    {"-inf", "%4lf"},     {"inf", "%2lf"},      {"nan", "%2lf"},
      {"infinity", "%3lf"}, {"infinity", "%5lf"}, {"infinity", "%7lf"}, {"infinity", "%8lf"},
      {"(nil)", "%4p"},    {"(nil)", "%5p"},     {"(ni", "%p"},        {"(", "%p"},
      {"(nix", "%p"},      {"(nil)7", "%p%n"},   {"infinity", "%3lf%n"}, {"-infinit", "%lf"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.in) + " with " + c.fmt);
    const bool pointer = std::strchr(c.fmt, 'p') != nullptr;
    double d1 = -1, d2 = -1;
    void *p1 = &d1, *p2 = &d1;
    int n1 = -1, n2 = -1;
    void* a1 = pointer ? static_cast<void*>(&p1) : &d1;
    void* a2 = pointer ? static_cast<void*>(&p2) : &d2;
    const int r1 = std::sscanf(c.in, c.fmt, a1, &n1);
    const int r2 = sscanfU16(u16(c.in).c_str(), u16(c.fmt).c_str(), a2, &n2);
    EXPECT_EQ(r2, r1);
    EXPECT_EQ(n2, n1);
    if (pointer) {
      EXPECT_EQ(p2, p1);
    } else if (!std::isnan(d1)) {
      EXPECT_EQ(d2, d1);
    } else {
      EXPECT_TRUE(std::isnan(d2));
    }
  }
}

TEST(Sscanf, UnknownDirectiveEndsTheCallAndIsReported) {
  RecordingTrace rec(U16_TRACE_MEDIUM);
  int a = 0, b = 0;
  EXPECT_EQ(sscanfU16(u"1 2", u"%d %y%d", &a, &b), 1);
  EXPECT_EQ(b, 0);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_NE(RecordingTrace::lines[0].find("[i18n/nuvu16/u16_InCon line 104]"), std::string::npos);
  EXPECT_NE(RecordingTrace::lines[0].find("Error in format string at or near 'y'"), std::string::npos);
  RecordingTrace quiet(U16_TRACE_LOW);
  EXPECT_EQ(sscanfU16(u"1", u"%S", &a), 0);
  EXPECT_TRUE(RecordingTrace::lines.empty());
}

TEST(Sscanf, NullArguments) {
  int v;
  errno = 0;
  EXPECT_EQ(sscanfU16(nullptr, u"%d", &v), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(fscanfU16(nullptr, u"%d", &v), -1);
  EXPECT_EQ(errno, EBADF);
}

// ---- file sources -----------------------------------------------------------

FILE* file_with(const char* bytes, size_t n) {
  FILE* f = std::tmpfile();
  std::fwrite(bytes, 1, n, f);
  std::rewind(f);
  return f;
}

TEST(Fscanf, ReadsUtf8AndLeavesTheStopUnit) {
  const char bytes[] = "  42 \xc3\xa9t\xc3\xa9 7,\xe2\x82\xac" "x";
  FILE* f = file_with(bytes, sizeof bytes - 1);
  int a = 0, b = 0;
  char16_t s[8];
  EXPECT_EQ(fscanfU16(f, u"%d%s%d", &a, s, &b), 3);
  EXPECT_EQ(a, 42);
  EXPECT_EQ(std::u16string(s), u"\u00e9t\u00e9");
  EXPECT_EQ(b, 7);
  EXPECT_EQ(fgetcU16(f), ',');  // an ASCII stop unit went back into the FILE
  // A non-ASCII unit pushed back inside one call is read again by the next directive.
  EXPECT_EQ(fscanfU(f, u"%[^x]x", s), 1);
  EXPECT_EQ(std::u16string(s), u"\u20ac");
  EXPECT_EQ(fscanfU16(f, u"%d", &a), -1);
  std::fclose(f);
}

// Integers of every length around the 64-bit limits, read from a FILE by
// one call per line, against glibc fscanf on the same bytes: the values,
// the counts, and where each call leaves the stream.
TEST(Fscanf, LongIntegersAgreeWithGlibcLineByLine) {
  struct Fmt { const char16_t* ours; const char* theirs; const char* digits; };
  const Fmt fmts[] = {{u"%lld%n", "%lld%n", "0123456789"},     {u"%llu%n", "%llu%n", "0123456789"},
                      {u"%llx%n", "%llx%n", "0123456789abcdef"}, {u"%llo%n", "%llo%n", "01234567"},
                      {u"%lli%n", "%lli%n", "0123456789abcdef"}, {u"%d%n", "%d%n", "0123456789"},
                      {u"%20lld%n", "%20lld%n", "0123456789"}};
  std::mt19937 rng(99);
  for (const Fmt& fm : fmts) {
    std::string text;
    for (int line = 0; line < 400; ++line) {
      const int r = static_cast<int>(rng() % 4);
      text += r == 0 ? "-" : r == 1 ? "+" : r == 2 ? " " : "";
      if (rng() % 5 == 0) text += "0x";
      const int len = 1 + static_cast<int>(rng() % 24);
      for (int i = 0; i < len; ++i) text += fm.digits[rng() % std::strlen(fm.digits)];
      text += rng() % 3 ? "\n" : ";\n";
    }
    FILE* a = file_with(text.data(), text.size());
    FILE* b = file_with(text.data(), text.size());
    for (int call = 0;; ++call) {
      long long x = 0x5555, y = 0x5555;
      int nx = -7, ny = -7;
      const int rx = fscanfU16(a, fm.ours, &x, &nx), ry = std::fscanf(b, fm.theirs, &y, &ny);
      ASSERT_EQ(rx, ry) << fm.theirs << " call " << call;
      ASSERT_EQ(x, y) << fm.theirs << " call " << call;
      ASSERT_EQ(nx, ny) << fm.theirs << " call " << call;
      ASSERT_EQ(std::ftell(a), std::ftell(b)) << fm.theirs << " call " << call;
      if (ry < 0) break;
      if (ry == 0) {  // a stop glibc does not skip: both step over it
        ASSERT_EQ(std::fgetc(a), std::fgetc(b));
      }
    }
    std::fclose(a);
    std::fclose(b);
  }
}

TEST(Fscanf, NonAsciiPushBackWithinOneCall) {
  const char bytes[] = "12\xe2\x82\xac";
  FILE* f = file_with(bytes, sizeof bytes - 1);
  int a = 0;
  char16_t c = 0;
  EXPECT_EQ(fscanfU16(f, u"%d%c", &a, &c), 2);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(c, u'\u20ac');
  std::fclose(f);
}

TEST(Fscanf, StdinSource) {
  const char bytes[] = "5 six";
  FILE* f = file_with(bytes, sizeof bytes - 1);
  FILE* saved = stdin;
  stdin = f;
  int a = 0;
  char16_t s[8];
  EXPECT_EQ(scanfU16(u"%d %s", &a, s), 2);
  EXPECT_EQ(std::u16string(s), u"six");
  EXPECT_EQ(scanfU(u"%d", &a), -1);
  stdin = saved;
  std::fclose(f);
}

TEST(InputStream, PushBackAndCounts) {
  InputStream s;
  InputStreamCtor(&s, nullptr, u"ab");
  int32_t u;
  EXPECT_EQ(InputStream_readSingleChar(&s, &u), 'a');
  EXPECT_EQ(InputStream_successfullyRead(&s), 1);
  InputStream_unreadSingleChar(&s, &u);
  EXPECT_EQ(InputStream_successfullyRead(&s), 0);
  EXPECT_EQ(InputStream_readSingleChar(&s, &u), 'a');
  EXPECT_EQ(InputStream_readSingleChar(&s, &u), 'b');
  EXPECT_EQ(InputStream_readSingleChar(&s, &u), -1);
  EXPECT_EQ(u, 0xFFFF);
  EXPECT_TRUE(InputStream_EOF(&s));
  InputStream_unreadSingleChar(&s, &u);  // nothing after the end
  EXPECT_EQ(InputStream_successfullyRead(&s), 2);
  InputStreamXtor(&s);
}

}  // namespace
