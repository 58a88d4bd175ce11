// The UTF-8 stream readers held against the reference decoder on seeded random
// streams, plus the reports and the fgetcU16 throttle.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "nuvu16.h"
#include "stream/utf8_decode.h"
#include "support/recording_trace.h"
#include "utf8_stream_model.h"

using nuvtest::after_header;
using nuvtest::Buffering;
using nuvtest::RecordingTrace;
using nuvtest::ref_decode;
using nuvtest::RefChar;
using nuvtest::TempStream;

namespace {

const std::string kEnd = "--- Unicode interface ------ End of message ------";

struct Case {
  uint32_t seed;
  size_t pieces;
  int bad_percent;
  Buffering buffering;
};

std::vector<Case> cases() {
  std::vector<Case> v;
  const Buffering bufs[] = {Buffering::Default, Buffering::None, Buffering::Tiny7};
  uint32_t seed = 1;
  for (auto b : bufs)
    for (int bad : {0, 5, 40})
      for (size_t pieces : {size_t{0}, size_t{1}, size_t{37}, size_t{9000}}) v.push_back({seed++, pieces, bad, b});
  return v;
}

class StreamReaders : public ::testing::TestWithParam<Case> {
 protected:
  std::vector<uint8_t> bytes;
  std::vector<RefChar> chars;
  void SetUp() override {
    const Case& c = GetParam();
    bytes = nuvtest::random_stream(c.seed, c.pieces, c.bad_percent);
    chars = ref_decode(bytes);
  }
};

TEST_P(StreamReaders, DecoderMatchesReferenceWithRecordsAndErrno) {
  TempStream s(bytes, GetParam().buffering);
  for (size_t i = 0; i <= chars.size(); ++i) {
    unsigned char rec[5] = {0, 0, 0, 0, 0};
    int status = -7;
    errno = 0;
    int c = getc_unlockedU16_errno(s.f, rec, &status);
    if (i == chars.size()) {
      EXPECT_EQ(c, -1);
      EXPECT_EQ(status, 0);
      break;
    }
    const RefChar& r = chars[i];
    ASSERT_EQ(c, r.c) << "character " << i;
    EXPECT_EQ(status, r.bad ? EILSEQ : 0);
    EXPECT_EQ(errno, r.bad ? EILSEQ : 0);
    if (r.bad) {
      ASSERT_EQ(rec[0], r.bytes.size());
      EXPECT_EQ(0, std::memcmp(rec + 1, r.bytes.data(), r.bytes.size()));
    }
  }
}

// Model of one fgetsU16 call over reference characters.
bool model_fgets(const std::vector<RefChar>& chars, size_t& i, int cap, std::u16string& out) {
  out.clear();
  if (cap <= 1) return true;
  const size_t limit = static_cast<size_t>(cap) - 1;
  while (out.size() < limit) {
    if (i == chars.size()) return !out.empty();
    int32_t c = chars[i++].c;
    if (c < 0x10000) {
      out.push_back(static_cast<char16_t>(c));
      if (c == '\n') break;
      continue;
    }
    out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
    if (out.size() == limit) break;
    out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
  }
  return true;
}

// Every block path of fgetsU16 that this CPU has.
struct EachKernel {
  ~EachKernel() { nuv::use_fgets_kernel_for_tests(-1); }
  template <class F>
  void run(F f) {
    for (int k = 0; k <= 4; ++k)
      if (nuv::use_fgets_kernel_for_tests(k)) f(k);
  }
};

TEST_P(StreamReaders, FgetsEveryCapacity) {
  RecordingTrace quiet(0);
  // Every capacity from 0 to 40 (past both block widths), then some large ones.
  std::vector<int> caps;
  for (int c = 0; c <= 40; ++c) caps.push_back(c);
  for (int c : {63, 64, 65, 100, 4097}) caps.push_back(c);
  EachKernel kernels;
  kernels.run([&](int kernel) {
  for (int cap : caps) {
    TempStream s(bytes, GetParam().buffering);
    size_t i = 0;
    std::vector<NUV_UTF16> buf(static_cast<size_t>(cap) + 1, 0x5555);
    for (int call = 0;; ++call) {
      std::u16string want;
      bool have = model_fgets(chars, i, cap, want);
      std::fill(buf.begin(), buf.end(), 0x5555);
      NUV_UTF16* r = fgetsU16(buf.data(), cap, s.f);
      if (cap <= 1) {  // stores only the terminator and reads nothing
        ASSERT_EQ(r, buf.data());
        ASSERT_EQ(buf[0], 0);
        break;
      }
      if (!have) {
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(buf[0], 0x5555) << "untouched at end of file";
        break;
      }
      ASSERT_EQ(r, buf.data()) << "cap " << cap << " call " << call;
      // Compare by length: an overlong C0 80 stores a zero unit inside the line.
      ASSERT_EQ(std::u16string(reinterpret_cast<char16_t*>(buf.data()), want.size()), want)
          << "kernel " << kernel << " cap " << cap << " call " << call;
      ASSERT_EQ(buf[want.size()], 0);
      ASSERT_LT(call, 100000);
    }
  }
  });
}

TEST(Fgets, LatinTextThroughTheBlockDecoder) {
  RecordingTrace quiet(0);
  EachKernel kernels;
  kernels.run([&](int kernel) {
  for (uint32_t seed = 1; seed <= 12; ++seed) {
    // Every third stream has long ASCII runs, for the wide ASCII step.
    auto bytes = nuvtest::latin_stream(seed, 20000, seed % 3 == 0 ? 60 : 1);
    auto chars = ref_decode(bytes);
    for (int cap : {17, 18, 40, 4096}) {
      TempStream s(bytes, seed % 2 ? Buffering::Default : Buffering::Tiny7);
      size_t i = 0;
      std::vector<NUV_UTF16> buf(static_cast<size_t>(cap));
      for (;;) {
        std::u16string want;
        bool have = model_fgets(chars, i, cap, want);
        NUV_UTF16* r = fgetsU16(buf.data(), cap, s.f);
        if (!have) {
          ASSERT_EQ(r, nullptr);
          break;
        }
        ASSERT_EQ(std::u16string(reinterpret_cast<char16_t*>(buf.data()), want.size()), want)
            << "kernel " << kernel << " seed " << seed;
        ASSERT_EQ(buf[want.size()], 0);
      }
    }
  }
  });
}

TEST_P(StreamReaders, FreadInElements) {
  const size_t sizes[] = {1, 2, 3, 8};
  for (size_t size : sizes) {
    TempStream s(bytes, GetParam().buffering);
    // Read the whole stream in blocks of 5 elements; a pair that straddles
    // the block end loses its low half, so compare with a model of that.
    std::u16string got, want;
    size_t ci = 0;
    for (;;) {
      std::vector<NUV_UTF16> buf(5 * size);
      size_t n = freadU16(buf.data(), size, 5, s.f);
      size_t units = 0;
      size_t total = 5 * size;
      std::u16string block;
      while (units < total && ci < chars.size()) {
        const size_t before = block.size();
        nuvtest::put_units(block, chars[ci++].c);
        units += block.size() - before;
        if (units > total) block.pop_back(), units = total;  // the low half is lost
      }
      ASSERT_EQ(n, units / size);
      got.append(reinterpret_cast<char16_t*>(buf.data()), units);
      want += block;
      if (units < total) break;
    }
    EXPECT_EQ(got, want);
  }
}

TEST_P(StreamReaders, FgetcGivesUnitsAndReplacesAstral) {
  RecordingTrace quiet(0);
  TempStream s(bytes, GetParam().buffering);
  for (const auto& r : chars) ASSERT_EQ(fgetcU16(s.f), r.c > 0xFFFF ? 0xFFFD : r.c);
  EXPECT_EQ(fgetcU16(s.f), -1);
}

INSTANTIATE_TEST_SUITE_P(Seeded, StreamReaders, ::testing::ValuesIn(cases()));

std::vector<uint8_t> B(std::initializer_list<int> v) {
  std::vector<uint8_t> o;
  for (int x : v) o.push_back(static_cast<uint8_t>(x));
  return o;
}

// Successive fgetsU16 calls on one stream: the capacity of each and what it
// must store (nullptr: the call returns null and leaves the buffer alone).
struct LineRow {
  std::vector<uint8_t> bytes;
  std::vector<std::pair<int, const char16_t*>> calls;
};
const char16_t kZero[] = {0};

TEST(Fgets, EdgeCases) {
  const LineRow rows[] = {
      {B({0xF0, 0x9F, 0x98, 0x80, 'x'}), {{2, u"\xD83D"}, {4, u"x"}, {4, nullptr}}},  // the low half is lost
      {B({0xF0, 0x9F, 0x98, 0x80}), {{4, u"\xD83D\xDE00"}}},
      {B({'a', '\n'}), {{1, kZero}, {0, kZero}, {8, u"a\n"}}},  // capacity one or zero reads nothing
      {B({'a', 0xC0, 0x8A, 'b', 0xE0, 0x80, 0x8A, 'c'}), {{8, u"a\n"}, {8, u"b\n"}, {8, u"c"}}},  // overlong newlines
  };
  for (const LineRow& row : rows) {
    TempStream s(row.bytes);
    for (const auto& [cap, want] : row.calls) {
      NUV_UTF16 buf[8] = {7, 7, 7, 7, 7, 7, 7, 7};
      NUV_UTF16* r = fgetsU16(buf, cap, s.f);
      EXPECT_EQ(r, want ? buf : nullptr) << "row " << (&row - rows) << " capacity " << cap;
      if (want) EXPECT_EQ(std::u16string(buf, std::u16string(want).size() + 1), std::u16string(want) + u'\0');
      else EXPECT_EQ(buf[0], 7);
    }
  }
  // Bad sequences consume their bytes; an overlong zero stores a zero unit.
  TempStream s(B({0xE2, 0x41, 0xC0, 0x80, 0x80, 'z'}));
  NUV_UTF16 buf[8];
  errno = 0;
  ASSERT_EQ(fgetsU16(buf, 8, s.f), buf);
  EXPECT_EQ(errno, EILSEQ);
  EXPECT_EQ(std::u16string(buf, 4), std::u16string(u"#\0#z", 4));
}

TEST(Fgets, ErrorIndicatorGivesNull) {
  FILE* f = std::fopen("/dev/null", "w");  // reading a write-only stream sets the error flag
  ASSERT_NE(f, nullptr);
  NUV_UTF16 buf[8] = {9};
  EXPECT_EQ(fgetsU16(buf, 8, f), nullptr);
  std::fclose(f);
}

TEST(Fgets, FullAfterBadSequenceIsReported) {
  RecordingTrace rec(U16_TRACE_LOW);
  TempStream s(B({'a', 'b', 0xFF, 'c'}));
  NUV_UTF16 buf[4];
  ASSERT_EQ(fgetsU16(buf, 4, s.f), buf);
  EXPECT_EQ(std::u16string(buf), u"ab#");
  ASSERT_EQ(RecordingTrace::lines.size(), 5u);
  char want[80];
  std::snprintf(want, sizeof want, "Invalid UTF-8 encountered by fgetsU16 (fileno 0x%x)", fileno(s.f));
  EXPECT_EQ(after_header(RecordingTrace::lines[0]), want);
  EXPECT_NE(RecordingTrace::lines[0].find("[i18n/nuvu16/u16_get line 285]"), std::string::npos);
  EXPECT_EQ(RecordingTrace::lines[1].substr(0, 4), " ff ");
  EXPECT_EQ(RecordingTrace::lines[2], "Characters previously read:");
  EXPECT_EQ(RecordingTrace::lines[3].substr(0, 15), " 0061 0062 0023");
  EXPECT_EQ(RecordingTrace::lines[4], kEnd);
  // Not full, or full after a good unit, or level 0: silent.
  RecordingTrace::lines.clear();
  TempStream t(B({'a', 0xFF, 'c', 'd'}));
  ASSERT_EQ(fgetsU16(buf, 4, t.f), buf);
  TempStream u(B({0xFF}));
  ASSERT_EQ(fgetsU16(buf, 4, u.f), buf);
  EXPECT_TRUE(RecordingTrace::lines.empty());
}

struct StdinSwap {
  FILE* saved = stdin;
  TempStream s;
  explicit StdinSwap(const std::vector<uint8_t>& b) : s(b) { stdin = s.f; }
  ~StdinSwap() { stdin = saved; }
};

using LineReader = NUV_UTF16* (*)(NUV_UTF16*, size_t);
const LineReader kGets = [](NUV_UTF16* b, size_t) { return getsU16(b); };
const LineReader kGetsU = [](NUV_UTF16* b, size_t) { return getsU(b); };

// Successive calls on standard input: the reader, its capacity (0 for the
// unbounded ones), the line it must give, or for null what the first unit is after.
struct GetsCall {
  LineReader read;
  size_t size;
  const char16_t* want;
  NUV_UTF16 first_after_null;
};

TEST(Gets, LinesFromStandardInput) {
  const std::pair<std::vector<uint8_t>, std::vector<GetsCall>> rows[] = {
      {B({'a', 0xF0, 0x9F, 0x98, 0x80, '\n', '\n', 'b'}),
       {{kGets, 0, u"a\xD83D\xDE00", 0}, {kGetsU, 0, u"", 0}, {kGets, 0, u"b", 0}, {kGets, 0, nullptr, 7}}},
      {B({'a', 'b', 'c', 'd', 'e', '\n', 'f'}),  // the bounded form leaves the rest of the line
       {{gets_sU16, 0, nullptr, 7}, {gets_sU16, 4, u"abc", 0}, {gets_sU16, 4, u"de", 0}, {gets_sU16, 4, u"f", 0},
        {gets_sU16, 4, nullptr, 0}}},
      {B({'a', 0xF0, 0x9F, 0x98, 0x80, 'b'}), {{gets_sU16, 3, u"a\xD83D", 0}, {gets_sU16, 3, u"b", 0}}},  // a pair without room
  };
  for (const auto& [bytes, calls] : rows) {
    StdinSwap in(bytes);
    for (const GetsCall& c : calls) {
      SCOPED_TRACE(c.size);
      std::vector<NUV_UTF16> buf(c.size ? c.size : 16, 7);  // exactly the capacity, for the sanitizer
      NUV_UTF16* r = c.read(buf.data(), c.size);
      EXPECT_EQ(r, c.want ? buf.data() : nullptr);
      if (c.want) EXPECT_EQ(std::u16string(buf.data()), c.want);
      else EXPECT_EQ(buf[0], c.first_after_null);
    }
  }
}

TEST(Gets, BoundedFullAfterBadSequenceIsReported) {
  RecordingTrace rec(U16_TRACE_LOW);
  StdinSwap in(B({'a', 0xE2, 0x41, 'b'}));
  NUV_UTF16 buf[3];
  ASSERT_EQ(gets_sU16(buf, 3), buf);
  EXPECT_EQ(std::u16string(buf), u"a#");
  ASSERT_EQ(RecordingTrace::lines.size(), 5u);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]), "Invalid UTF-8 encountered by getsU16");
  EXPECT_NE(RecordingTrace::lines[0].find("line 414]"), std::string::npos);
  EXPECT_EQ(RecordingTrace::lines[1].substr(0, 7), " e2 41 ");
  EXPECT_EQ(RecordingTrace::lines[4], kEnd);
}

TEST(Gets, NarrowBounded) {
  StdinSwap in(B({'a', 'b', 'c', '\n', 0xFF, '\n'}));
  char buf[3] = {7, 7, 7};
  EXPECT_EQ(gets_sRFB(buf, 0), nullptr);
  EXPECT_EQ(buf[0], 7);
  ASSERT_EQ(gets_sRFB(buf, 3), buf);
  EXPECT_STREQ(buf, "ab");
  ASSERT_EQ(gets_sRFB(buf, 3), buf);
  EXPECT_STREQ(buf, "c");
  ASSERT_EQ(gets_sRFB(buf, 3), buf);
  EXPECT_STREQ(buf, "\xFF");
  EXPECT_EQ(gets_sRFB(buf, 3), nullptr);
  EXPECT_EQ(buf[0], 0);
}

// The throttle: fresh counters for each test.
struct ThrottleReset {
  int32_t max = no_fgetcU_errors_max, interval = fgetcU_errors_interval;
  ThrottleReset() { nuv::set_fgetc_throttle_state({0, 0}); }
  ~ThrottleReset() {
    nuv::set_fgetc_throttle_state({0, 0});
    u16_set_fgetcU_error_parameters(max, interval);
  }
};

TEST(FgetcThrottle, NinetyNineReportsThenTooManyThenSilence) {
  ThrottleReset reset;
  u16_set_fgetcU_error_parameters(100, 3600);
  RecordingTrace rec(U16_TRACE_LOW);
  std::vector<uint8_t> bad(150, 0x80);
  TempStream s(bad);
  char want[80];
  std::snprintf(want, sizeof want, "Invalid UTF-8 encountered by fgetcU16 (fileno 0x%x)", fileno(s.f));
  for (int i = 1; i <= 99; ++i) {
    RecordingTrace::lines.clear();
    ASSERT_EQ(fgetcU16(s.f), '#');
    ASSERT_EQ(RecordingTrace::lines.size(), 3u) << i;
    EXPECT_EQ(after_header(RecordingTrace::lines[0]), want);
    EXPECT_NE(RecordingTrace::lines[0].find("[i18n/nuvu16/u16_get line 217]"), std::string::npos);
    EXPECT_EQ(RecordingTrace::lines[1].substr(0, 4), " 80 ");
    EXPECT_EQ(RecordingTrace::lines[2], kEnd);
  }
  RecordingTrace::lines.clear();
  const time_t before = std::time(nullptr);
  ASSERT_EQ(fgetcU16(s.f), '#');
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]),
            "Too many invalid UTF-8 in fgetcU16, no more error message will be written for 3600 seconds\n" + kEnd);
  EXPECT_NE(RecordingTrace::lines[0].find("line 223]"), std::string::npos);
  EXPECT_GE(nuv::fgetc_throttle_state().last_error, before);
  RecordingTrace::lines.clear();
  for (int i = 0; i < 20; ++i) ASSERT_EQ(fgetcU16(s.f), '#');
  EXPECT_TRUE(RecordingTrace::lines.empty());
  EXPECT_EQ(nuv::fgetc_throttle_state().errors, 120);

  // Once the interval has passed, the next bad character resets silently
  // apart from the reset line, and the one after is number 1 again.
  nuv::set_fgetc_throttle_state({120, std::time(nullptr) - 3601});
  ASSERT_EQ(fgetcU16(s.f), '#');
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_EQ(after_header(RecordingTrace::lines[0]), "fgetcU16 error counter reset\n" + kEnd);
  EXPECT_NE(RecordingTrace::lines[0].find("line 228]"), std::string::npos);
  EXPECT_EQ(nuv::fgetc_throttle_state().errors, 0);
  RecordingTrace::lines.clear();
  ASSERT_EQ(fgetcU16(s.f), '#');
  EXPECT_EQ(RecordingTrace::lines.size(), 3u);
  EXPECT_EQ(nuv::fgetc_throttle_state().errors, 1);
}

TEST(FgetcThrottle, AstralCharacterIsReportedWithItsBytes) {
  ThrottleReset reset;
  RecordingTrace rec(U16_TRACE_LOW);
  TempStream s(B({0xF0, 0x9F, 0x98, 0x80}));
  EXPECT_EQ(fgetcU16(s.f), 0xFFFD);
  ASSERT_EQ(RecordingTrace::lines.size(), 3u);
  EXPECT_EQ(RecordingTrace::lines[1].substr(0, 13), " f0 9f 98 80 ");
}

TEST(FgetcThrottle, LevelZeroCountsNothing) {
  ThrottleReset reset;
  RecordingTrace rec(0);
  TempStream s(B({0x80, 0x80}));
  EXPECT_EQ(fgetcU16(s.f), '#');
  EXPECT_EQ(fgetcU(s.f), '#');
  EXPECT_TRUE(RecordingTrace::lines.empty());
  EXPECT_EQ(nuv::fgetc_throttle_state().errors, 0);
}

TEST(FgetcThrottle, SmallMaximum) {
  ThrottleReset reset;
  u16_set_fgetcU_error_parameters(2, 10);
  RecordingTrace rec(U16_TRACE_LOW);
  TempStream s(B({0x80, 0x80, 0x80}));
  fgetcU16(s.f);
  EXPECT_EQ(RecordingTrace::lines.size(), 3u);
  RecordingTrace::lines.clear();
  fgetcU16(s.f);
  ASSERT_EQ(RecordingTrace::lines.size(), 1u);
  EXPECT_NE(RecordingTrace::lines[0].find("written for 10 seconds"), std::string::npos);
}

TEST(Fgetc, OverlongAndSurrogateAccepted) {
  RecordingTrace quiet(0);
  TempStream s(B({0xC0, 0x80, 0xED, 0xA0, 0x80, 0xE2, 0x41}));
  EXPECT_EQ(fgetcU16(s.f), 0);
  EXPECT_EQ(fgetcU16(s.f), 0xD800);
  EXPECT_EQ(fgetcU16(s.f), '#');
  EXPECT_EQ(fgetcU16(s.f), -1);
  EXPECT_EQ(fgetcU16(nullptr), -1);
}

TEST(Fread, ZeroSizeOrCount) {
  TempStream s(B({'a', 'b'}));
  NUV_UTF16 buf[2];
  EXPECT_EQ(freadU16(buf, 0, 5, s.f), 0u);
  EXPECT_EQ(freadU(buf, 5, 0, s.f), 0u);
  EXPECT_EQ(freadU16(buf, 1, 2, s.f), 2u);
}

}  // namespace
