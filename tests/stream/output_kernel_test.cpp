// The AVX-512 kernels of the block writer held against the scalar reference:
// every source alignment, exact-size buffers (so the sanitizer sees any read
// or write outside them), random room sizes, a surrogate at every position,
// terminated text that ends at a page the process cannot read, and fputsU16
// (which encodes up to the terminator in one pass) against the reference
// writer, also on streams that fail part-way.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/nuv_internal.h"
#include "convert/utf16_bmp_avx512.h"
#include "nuvu16.h"
#include "stream/output.h"
#include "string/scan.h"
#include "support/page_end.h"

namespace {

// Units of every encoded length and at every boundary, NUL included; narrow
// text has no three-byte units but for the odd surrogate.
char16_t random_unit(std::mt19937& rng, bool surrogates, bool narrow = false) {
  static const char16_t kEdges[] = {0x0000, 0x0001, 0x007F, 0x0080, 0x00FF, 0x07FF, 0x0800,
                                    0x0FFF, 0x1000, 0xD7FF, 0xE000, 0xFFFE, 0xFFFF};
  const unsigned k = rng() % 100;
  if (k < 10) return kEdges[rng() % (narrow ? 6 : std::size(kEdges))];
  if (k < 55) return static_cast<char16_t>(0x20 + rng() % 0x5F);
  if (k < 70 || (narrow && (k < 99 || !surrogates))) return static_cast<char16_t>(0x80 + rng() % 0x780);
  if (k < 97 || !surrogates) return static_cast<char16_t>(0xE000 + rng() % 0x2000);
  return static_cast<char16_t>(0xD800 + rng() % 0x800);
}

// Units placed at a byte offset in a heap block that ends right after them.
struct Placed {
  std::unique_ptr<char[]> block;
  const NUV_UTF16* units;
  Placed(const std::u16string& text, std::size_t offset) : block(new char[offset + 2 * text.size()]) {
    std::memcpy(block.get() + offset, text.data(), 2 * text.size());
    units = reinterpret_cast<const NUV_UTF16*>(block.get() + offset);
  }
};

struct Result {
  std::size_t units, bytes;
  bool surrogate;
  std::string out;
};

Result run_ref(const NUV_UTF16* src, std::size_t n, std::size_t cap) {
  std::vector<char> d(cap + 1);
  Result r{};
  r.units = nuv::encode_units_fit_ref(src, n, d.data(), cap, &r.bytes, &r.surrogate);
  r.out.assign(d.data(), r.bytes);
  return r;
}

// The writer's kernel (wide steps), or the shared loop with the steps for
// runs below U+0800 that the converter uses.
Result run_avx512(const NUV_UTF16* src, std::size_t n, std::size_t cap, bool narrow = false) {
  std::unique_ptr<char[]> d(new char[cap ? cap : 1]);
  Result r{};
  if (narrow) {
    const NUV_UTF16* s = src;
    auto* out = reinterpret_cast<unsigned char*>(d.get());
    nuv::rscp::utf16_bmp_to_utf8_avx512<true>(&s, src + n, &out, out + cap);
    r.units = static_cast<std::size_t>(s - src);
    r.bytes = static_cast<std::size_t>(out - reinterpret_cast<unsigned char*>(d.get()));
    r.surrogate = r.units < n && nuv::is_surrogate_unit(nuv::unit_at(src + r.units));
  } else {
    r.units = nuv::encode_units_fit_avx512(src, n, d.get(), cap, &r.bytes, &r.surrogate);
  }
  r.out.assign(d.get(), r.bytes);
  return r;
}

void expect_same(const Result& got, const Result& want, const std::string& where) {
  ASSERT_EQ(got.units, want.units) << where;
  ASSERT_EQ(got.bytes, want.bytes) << where;
  ASSERT_EQ(got.surrogate, want.surrogate) << where;
  ASSERT_EQ(got.out, want.out) << where;
}

class Avx512Kernel : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!nuv::encode_uses_avx512()) GTEST_SKIP() << "no AVX-512 VBMI2 on this CPU";
  }
};

TEST_F(Avx512Kernel, MatchesReferenceAtEveryAlignmentAndRoom) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 6000; ++round) {
    const std::size_t n = rng() % 140;
    const bool narrow = round % 2;
    std::u16string text;
    for (std::size_t i = 0; i < n; ++i) text.push_back(random_unit(rng, round % 4 < 2, narrow));
    const std::size_t offset = round % 64;  // every byte alignment, odd ones too
    const Placed p(text, offset);
    // Rooms below, around and above what the text needs.
    const std::size_t cap = round % 3 == 0 ? rng() % 16 : round % 3 == 1 ? rng() % 130 : rng() % 450;
    for (bool steps : {false, true})
      expect_same(run_avx512(p.units, n, cap, steps), run_ref(p.units, n, cap),
                  "round " + std::to_string(round) + " n " + std::to_string(n) + " cap " + std::to_string(cap) +
                      (steps ? " narrow steps" : ""));
  }
}

TEST_F(Avx512Kernel, StopsBeforeASurrogateAtEveryPosition) {
  std::mt19937 rng(31);
  for (std::size_t n = 1; n <= 70; ++n) {
    for (std::size_t pos = 0; pos < n; ++pos) {
      std::u16string text;
      const bool narrow = (n + pos) % 2;
      for (std::size_t i = 0; i < n; ++i) text.push_back(random_unit(rng, false, narrow));
      text[pos] = static_cast<char16_t>(pos % 2 ? 0xDC00 + pos : 0xDBFF - pos);
      const Placed p(text, 2 * (pos % 8));
      for (std::size_t cap : {std::size_t{0}, std::size_t{1}, 2 * pos, 3 * pos + 2, std::size_t{300}}) {
        for (bool steps : {false, true}) {
          const Result got = run_avx512(p.units, n, cap, steps);
          expect_same(got, run_ref(p.units, n, cap),
                      "n " + std::to_string(n) + " pos " + std::to_string(pos) + " cap " + std::to_string(cap));
          if (cap == 300) {
            ASSERT_EQ(got.units, pos);
            ASSERT_TRUE(got.surrogate);
          }
        }
      }
    }
  }
}

// Every level's up-to-the-terminator kernel: what it encodes is exactly the
// reference's encoding of that many units; it may leave units near a page
// end or a full buffer to the caller, and nothing else.
TEST(TextKernels, TerminatedTextMatchesReferenceUpToAPageEnd) {
  nuvtest::PageEnd pages;
  ASSERT_TRUE(pages.ok());
  int levels = 0;
  for (int level = nuv::kCpuScalar; level <= nuv::cpu().level; ++level) {
    const nuv::EncodeText kernel = nuv::encode_text_for(level);
    if (!kernel) continue;
    ++levels;
    std::mt19937 rng(88);
    for (int round = 0; round < 4000; ++round) {
      const std::size_t n = rng() % 90;
      std::u16string text;
      for (std::size_t i = 0; i < n; ++i) {
        char16_t u = random_unit(rng, round % 3 == 0);
        text.push_back(u ? u : u'x');  // no terminator inside
      }
      // 0: the terminator's last byte is the page's last; odd gaps too, and
      // texts well inside the page.
      const std::size_t gap = round % 4 ? round % 5 : 32 + rng() % 200;
      // The text and its terminator end `gap` bytes before the unreadable page.
      const auto* src = reinterpret_cast<const NUV_UTF16*>(pages.place(text.c_str(), 2 * (n + 1), gap));
      const std::size_t cap = round % 2 ? 400 : rng() % 200;
      std::unique_ptr<char[]> d(new char[cap ? cap : 1]);
      std::size_t bytes;
      const std::size_t k = kernel(src, d.get(), cap, &bytes);
      const Result want = run_ref(src, n, cap);
      const std::string where =
          "level " + std::to_string(level) + " round " + std::to_string(round) + " n " + std::to_string(n);
      ASSERT_LE(k, want.units) << where;
      const Result part = run_ref(src, k, cap);
      ASSERT_EQ(bytes, part.bytes) << where;
      ASSERT_EQ(std::string(d.get(), bytes), part.out) << where;
      // Far from the page end and with room for every unit, it must go to
      // the end (an odd start may still leave a unit across the page end).
      const bool room = cap >= 3 * n + 64;
      if (room && gap >= 32 + 2 * 16 && reinterpret_cast<std::uintptr_t>(src) % 2 == 0)
        ASSERT_EQ(k, want.units) << where;
    }
  }
  if (nuv::cpu_has_avx2()) EXPECT_GT(levels, 0);
}

// fputsU16 against the reference writer given strlenU16 units.
struct Sink {
  std::string bytes;
  std::size_t budget;
};
ssize_t sink_write(void* cookie, const char* buf, std::size_t n) {
  auto* s = static_cast<Sink*>(cookie);
  if (s->budget == 0) {
    errno = EIO;
    return -1;
  }
  const std::size_t k = n < s->budget ? n : s->budget;
  s->bytes.append(buf, k);
  s->budget -= k;
  return static_cast<ssize_t>(k);
}

TEST(StreamOutputText, FputsMatchesReferenceWriterOnEveryBufferAndFailure) {
  std::mt19937 rng(4242);
  for (int round = 0; round < 3000; ++round) {
    const std::size_t n = rng() % 200;
    std::u16string text;
    for (std::size_t i = 0; i < n; ++i) {
      const char16_t u = random_unit(rng, round % 4 == 0);
      text.push_back(u ? u : u'0');
    }
    const std::size_t bufsize = round % 5 == 0 ? 4096 : rng() % 100;
    const int mode = bufsize == 0 ? _IONBF : round % 7 == 0 ? _IOLBF : _IOFBF;
    const std::size_t budget = round % 3 == 0 ? rng() % (3 * n + 10) : static_cast<std::size_t>(-1);
    const std::size_t pre = rng() % 8;  // bytes already in the buffer
    std::string out[2];
    long res[2];
    for (int impl = 0; impl < 2; ++impl) {
      Sink sink{{}, budget};
      cookie_io_functions_t io{};
      io.write = sink_write;
      FILE* f = fopencookie(&sink, "w", io);
      std::vector<char> storage(bufsize + 1);
      std::setvbuf(f, mode == _IONBF ? nullptr : storage.data(), mode, bufsize);
      for (std::size_t i = 0; i < pre; ++i) std::fputc('.', f);
      if (impl == 0) {
        res[impl] = fputsU16(text.c_str(), f);
      } else {
        std::uint64_t bytes = 0;
        const std::size_t r =
            n ? nuv::fwrite_units_ref(text.c_str(), n, 1, f, &bytes, 1) : 0;
        res[impl] = r == static_cast<std::size_t>(-1) ? -1 : static_cast<long>(bytes);
      }
      std::fclose(f);
      out[impl] = sink.bytes;
    }
    ASSERT_EQ(res[0], res[1]) << "round " << round;
    ASSERT_EQ(out[0], out[1]) << "round " << round;
  }
}

TEST(StreamOutputText, FputsWritesHashesFromASurrogatePairOn) {
  // Text long enough to take several kernel steps, ending in a surrogate
  // pair: everything from the pair on is '#'.
  std::u16string text(70, u'\u00e9');
  text += u"ab\U0001F600cd";
  std::string want;
  for (int i = 0; i < 70; ++i) want += "\xc3\xa9";
  want += "ab####";
  FILE* f = std::tmpfile();
  ASSERT_EQ(fputsU16(text.c_str(), f), static_cast<int>(want.size()));
  std::fflush(f);
  std::rewind(f);
  std::string got(want.size() + 1, 0);
  got.resize(std::fread(got.data(), 1, got.size(), f));
  std::fclose(f);
  EXPECT_EQ(got, want);
}

}  // namespace
