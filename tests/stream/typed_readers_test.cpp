// Word, line and number readers: edge cases, a reference model over
// seeded random streams, and the numbers against strtol.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "utf8_stream_model.h"

using nuvtest::Buffering;
using nuvtest::ref_decode;
using nuvtest::RefChar;
using nuvtest::TempStream;

namespace {

std::vector<uint8_t> B(const std::string& s) { return {s.begin(), s.end()}; }

std::u16string got(const NUV_UTF16* p, int n) { return std::u16string(reinterpret_cast<const char16_t*>(p), n); }

using Reader = int (*)(NUV_UTF16*, int, FILE*, int);
const Reader kWord16 = [](NUV_UTF16* b, int n, FILE* f, int s) { return fget_strU16(b, n, f, NUV_UTF16(s)); };
const Reader kLine16 = [](NUV_UTF16* b, int n, FILE* f, int s) { return fget_lineU16(b, n, f, NUV_UTF16(s)); };

// Successive calls on one stream: reader, size, substitute, result, and the
// units it must store, terminator included (empty: not checked).
struct ReadCall {
  Reader read;
  int size, sub, ret;
  std::u16string want;
};

TEST(TypedReaders, WordsAndLines) {
  const std::pair<std::string, std::vector<ReadCall>> rows[] = {
      {"  abc def", {{kWord16, 16, '?', 3, {u"abc\0", 4}}, {fget_strU, 16, '?', 3, {u"def\0", 4}}, {kWord16, 16, '?', -1, u""}}},
      {"ab\xff" "c ", {{kWord16, 16, '?', -2, {u"ab?c\0", 5}}}},
      {"\xe2\x41z", {{fget_strU, 16, 0x12345, -2, {u"\x2345" u"Az\0", 4}}}},  // the U form passes the low 16 bits
      {"\xc3 x", {{kWord16, 16, '#', -2, {u"#\0", 2}}, {kWord16, 16, '#', 1, u""}}},  // the breaking blank is not stored
      {"\xf0\x9f\x98\x80z", {{kWord16, 1, '?', 0, u""}, {kWord16, 2, '?', 1, {u"\xD83D\0", 2}}, {kWord16, 4, '?', 1, {u"z\0", 2}}}},
      {"abcdef\nxy", {{kLine16, 4, '?', 3, {u"abc\0", 4}}, {fget_lineU, 16, '?', 4, {u"def\n\0", 5}},
                      {kLine16, 16, '?', 2, u""}, {kLine16, 16, '?', -1, u""}}},
      {" \xe2\n" "b", {{kLine16, 16, '~', -2, {u" ~\n\0", 4}}, {kLine16, 16, '~', 1, u""}}},  // a breaking newline is stored
  };
  for (const auto& [bytes, calls] : rows) {
    TempStream s(B(bytes));
    for (const ReadCall& c : calls) {
      NUV_UTF16 buf[16] = {7};
      EXPECT_EQ(c.read(buf, c.size, s.f, c.sub), c.ret) << bytes;
      if (!c.want.empty()) EXPECT_EQ(got(buf, static_cast<int>(c.want.size())), c.want) << bytes;
      if (c.size == 1) EXPECT_EQ(buf[0], 7) << "size 1 stores not even a terminator";
    }
  }
}

TEST(TypedReaders, Numbers) {
  long l = 0;
  int i = 0;
  {
    TempStream s(B(" \t99999999999 -99999999999 42x"));
    errno = 0;
    EXPECT_EQ(fget_intU16(&i, s.f), 1);
    EXPECT_EQ(i, INT_MAX);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(fget_intU(&i, s.f), 1);
    EXPECT_EQ(i, INT_MIN);
    EXPECT_EQ(fget_intU16(&i, s.f), 0);
    EXPECT_EQ(i, 42);
    EXPECT_EQ(fgetc(s.f), 'x');  // the stop byte went back
    EXPECT_EQ(fget_intU16(&i, s.f), -1);
  }
  {
    TempStream s(B("x12 +7 99999999999999999999 -\xc3\xa9"));
    EXPECT_EQ(fget_longU16(&l, s.f), -2);
    EXPECT_EQ(l, 'x');
    EXPECT_EQ(fget_longU(&l, s.f), 0);
    EXPECT_EQ(l, 12);
    EXPECT_EQ(fget_longU16(&l, s.f), 0);
    EXPECT_EQ(l, 7);
    errno = 0;
    EXPECT_EQ(fget_longU16(&l, s.f), 1);
    EXPECT_EQ(l, LONG_MAX);
    EXPECT_EQ(errno, ERANGE);
    // After the sign the bytes are raw: the first byte of the é is the value.
    EXPECT_EQ(fget_longU16(&l, s.f), -2);
    EXPECT_EQ(l, 0xC3);
  }
  {
    // A number far longer than the inline buffer grows it.
    std::string digits(300, '0');
    digits += "123";
    TempStream s(B(digits));
    EXPECT_EQ(fget_longU16(&l, s.f), 0);
    EXPECT_EQ(l, 123);
  }
  {
    TempStream s(B("\xe3\x80\x80" "5"));  // U+3000 is white space for the UTF-16 form
    EXPECT_EQ(fget_intU16(&i, s.f), 0);
    EXPECT_EQ(i, 5);
  }
}

TEST(TypedReaders, NarrowForms) {
  TempStream s(B("  ab\xff \nline one\n  -17 x"));
  char buf[16];
  EXPECT_EQ(fget_strR(buf, 16, s.f), 3);
  EXPECT_STREQ(buf, "ab\xff");
  EXPECT_EQ(fget_lineR(buf, 16, s.f), 1);
  EXPECT_STREQ(buf, "\n");
  EXPECT_EQ(fget_lineR(buf, 5, s.f), 4);
  EXPECT_STREQ(buf, "line");
  EXPECT_EQ(fget_lineR(buf, 16, s.f), 5);
  long l;
  int i;
  EXPECT_EQ(fget_longR(&l, s.f), 0);
  EXPECT_EQ(l, -17);
  EXPECT_EQ(fget_intR(&i, s.f), -2);
  EXPECT_EQ(i, 'x');
  EXPECT_EQ(fget_intR(&i, s.f), -1);
  EXPECT_EQ(fget_strR(buf, 16, s.f), -1);
}

TEST(TypedReaders, EnlargeStates) {
  char inline_buf[4] = {'a', 'b', 'c', 'd'};
  char* p = inline_buf;
  int size = 4, state = 0;
  nlsui_enlar_nuspace(&p, &size, &state);
  ASSERT_EQ(state, 2);
  EXPECT_EQ(size, 8);
  EXPECT_NE(p, inline_buf);
  EXPECT_EQ(std::memcmp(p, "abcd", 4), 0);
  nlsui_enlar_nuspace(&p, &size, &state);
  EXPECT_EQ(state, 2);
  EXPECT_EQ(size, 16);
  EXPECT_EQ(std::memcmp(p, "abcd", 4), 0);
  std::free(p);
  for (int stuck : {1, 3}) {
    char* q = inline_buf;
    int sz = 4, st = stuck;
    nlsui_enlar_nuspace(&q, &sz, &st);
    EXPECT_EQ(q, inline_buf);
    EXPECT_EQ(sz, 4);
    EXPECT_EQ(st, stuck);
  }
}

// ---- model over random streams -------------------------------------------------

bool c_space(int b) { return b == ' ' || (b >= '\t' && b <= '\r'); }

struct Model {
  const std::vector<RefChar>& chars;
  size_t i = 0;
  // One fget_strU16 / fget_lineU16 call over the reference characters.
  int call(bool word, int size, char16_t sub, std::u16string& out) {
    out.clear();
    bool eof = false, invalid = false;
    if (size > 1) {
      const size_t limit = static_cast<size_t>(size) - 1;
      if (word)
        while (i < chars.size() && !chars[i].bad && isspaceU16(chars[i].c)) ++i;
      for (;;) {
        if (i == chars.size()) {
          eof = true;
          break;
        }
        const RefChar& r = chars[i++];
        bool ends = false;
        if (r.bad) {
          invalid = true;
          for (size_t k = 0; k < r.bytes.size(); ++k) {
            int b = r.bytes[k];
            bool last = k + 1 == r.bytes.size();
            if (word && last && c_space(b)) { ends = true; break; }
            if (out.size() == limit) { ends = true; break; }
            out.push_back(b >= 0x80 ? sub : static_cast<char16_t>(b));
            if (!word && b == '\n') { ends = true; break; }
          }
        } else if (word && isspaceU16(r.c)) {
          break;
        } else if (r.c >= 0x10000) {
          out.push_back(static_cast<char16_t>(0xD800 + ((r.c - 0x10000) >> 10)));
          if (out.size() == limit) break;
          out.push_back(static_cast<char16_t>(0xDC00 + (r.c & 0x3FF)));
        } else {
          out.push_back(static_cast<char16_t>(r.c));
          if (!word && r.c == '\n') ends = true;
        }
        if (ends || out.size() >= limit) break;
      }
    }
    if (out.empty() && eof) return -1;
    if (invalid) return -2;
    return static_cast<int>(out.size());
  }
};

TEST(TypedReaders, WordsAndLinesMatchModelOnRandomStreams) {
  const Buffering bufs[] = {Buffering::Default, Buffering::None, Buffering::Tiny7};
  uint32_t seed = 500;
  for (auto buffering : bufs)
    for (int bad : {0, 10, 40})
      for (int size : {1, 2, 3, 5, 16, 200})
        for (bool word : {true, false}) {
          auto bytes = nuvtest::random_stream(++seed, 700, bad, 8);
          auto chars = ref_decode(bytes);
          TempStream s(bytes, buffering);
          Model m{chars};
          std::vector<NUV_UTF16> buf(static_cast<size_t>(size) + 1);
          for (int call = 0; call < 5000; ++call) {
            std::u16string want;
            int r_want = m.call(word, size, u'\x7f', want);
            int r = word ? fget_strU16(buf.data(), size, s.f, 0x7f) : fget_lineU16(buf.data(), size, s.f, 0x7f);
            ASSERT_EQ(r, r_want) << "seed " << seed << " call " << call << " size " << size << " word " << word;
            if (size > 1) ASSERT_EQ(got(buf.data(), static_cast<int>(want.size()) + 1), want + u'\0');
            if (r == -1 || (size <= 1 && call > 3)) break;
          }
        }
}

TEST(TypedReaders, NumbersMatchStrtol) {
  std::mt19937 rng(77);
  for (int k = 0; k < 3000; ++k) {
    std::string blanks(std::uniform_int_distribution<size_t>(0, 3)(rng), ' ');
    std::string sign = std::vector<std::string>{"", "-", "+"}[rng() % 3];
    std::string digits;
    size_t n = std::uniform_int_distribution<size_t>(1, 40)(rng);
    for (size_t d = 0; d < n; ++d) digits += static_cast<char>('0' + rng() % 10);
    std::string text = blanks + sign + digits + ";";
    TempStream s(B(text)), t(B(text));
    errno = 0;
    long want = std::strtol((sign + digits).c_str(), nullptr, 10);
    const bool range = errno == ERANGE;
    long l = 0, r = 0;
    errno = 0;
    EXPECT_EQ(fget_longU16(&l, s.f), range ? 1 : 0) << text;
    EXPECT_EQ(l, want) << text;
    EXPECT_EQ(fget_longR(&r, t.f), range ? 1 : 0) << text;
    EXPECT_EQ(r, want) << text;
    EXPECT_EQ(fgetc(s.f), ';');
    int i = 0;
    TempStream u(B(text));
    const bool int_range = range || want > INT_MAX || want < INT_MIN;
    EXPECT_EQ(fget_intU16(&i, u.f), int_range ? 1 : 0) << text;
    EXPECT_EQ(i, int_range ? (want < 0 ? INT_MIN : INT_MAX) : static_cast<int>(want)) << text;
  }
}

}  // namespace
