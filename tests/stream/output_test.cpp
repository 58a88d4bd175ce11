// UTF-16 text written to UTF-8 streams: byte-exact output for every unit
// (held against iconv), the surrogate rules of the block and single-unit
// writers, the fast path against its byte-by-byte reference at every buffer
// size, and short counts when the stream fails part-way.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "nuvu16.h"
#include "stream/output.h"
#include "string/scan.h"
#include "support/iconv_peer.h"
#include "support/tsan_stdio_lock.h"

namespace {

// Reads back everything written to a FILE that is a temporary file.
std::string contents(FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string s;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  return s;
}

// UTF-8 of one BMP unit according to glibc's iconv.
std::string iconv_utf8(char16_t unit) {
  return nuvtest::iconv_peer("UTF-8", "UTF-16LE", std::string(reinterpret_cast<const char*>(&unit), 2)).out;
}

// setvbuf ignores the size unless it is given the buffer too.
struct Buffered {
  std::vector<char> storage;
  void apply(FILE* f, int mode, std::size_t size) {
    storage.assign(size ? size : 1, 0);
    std::setvbuf(f, mode == _IONBF ? nullptr : storage.data(), mode, size);
  }
};

bool surrogate(unsigned u) { return u >= 0xD800 && u <= 0xDFFF; }

TEST(StreamOutput, EveryUnitMatchesIconvAndSurrogatesBecomeHash) {
  FILE* block = std::tmpfile();
  FILE* single = std::tmpfile();
  std::string want_block, want_single;
  for (unsigned u = 0; u < 0x10000; ++u) {
    const char16_t unit = static_cast<char16_t>(u);
    ASSERT_EQ(fwriteU16(&unit, 1, 1, block), 1u);
    ASSERT_EQ(fputcU16(static_cast<int>(u), single), static_cast<int>(u));
    if (surrogate(u)) {
      want_block += '#';
      // The single-unit writer has no surrogate test: the unit's three-byte form.
      want_single += static_cast<char>(0xED);
      want_single += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      want_single += static_cast<char>(0x80 | (u & 0x3F));
    } else {
      const std::string e = iconv_utf8(unit);
      want_block += e;
      want_single += e;
    }
  }
  EXPECT_EQ(contents(block), want_block);
  EXPECT_EQ(contents(single), want_single);
  std::fclose(block);
  std::fclose(single);
}

TEST(StreamOutput, SurrogateTurnsTheRestOfTheCallIntoHashes) {
  FILE* f = std::tmpfile();
  const char16_t units[] = {0x61, 0xD83D, 0xDE00, 0x62};
  std::uint64_t bytes = 99;
  EXPECT_EQ(fwriteU16_impl(units, 1, 4, f, &bytes), 4u);
  EXPECT_EQ(bytes, 4u);
  // A new call starts fresh.
  EXPECT_EQ(fwriteU16(units + 3, 1, 1, f), 1u);
  EXPECT_EQ(contents(f), "a###b");
  std::fclose(f);
}

TEST(StreamOutput, SingleUnitWriterEdgeCases) {
  FILE* f = std::tmpfile();
  EXPECT_EQ(fputcU16(0xD83D, f), 0xD83D);
  EXPECT_EQ(fputcU(0x10041, f), 0x10041);  // low 16 bits only, result unmasked
  EXPECT_EQ(putc_unlockedU16(0x7FF, f), 0x7FF);
  EXPECT_EQ(putc_unlockedU16(0x800, f), 0x800);
  EXPECT_EQ(contents(f), "\xED\xA0\xBD" "A" "\xDF\xBF" "\xE0\xA0\x80");
  std::fclose(f);
}

TEST(StreamOutput, CountsAndSizes) {
  FILE* f = std::tmpfile();
  const char16_t six[] = u"abcdef";
  EXPECT_EQ(fwriteU16(six, 2, 3, f), 3u);
  std::uint64_t bytes = 42;
  EXPECT_EQ(fwriteU16_impl(six, 0, 5, f, &bytes), 0u);
  EXPECT_EQ(bytes, 0u);
  bytes = 42;
  EXPECT_EQ(u16_fwriteU(six, 5, 0, f, &bytes), 0u);
  EXPECT_EQ(bytes, 0u);
  // A null unit pointer writes one '#' per unit, counted as written.
  EXPECT_EQ(u16_fwriteU16(nullptr, 3, 1, f, &bytes), 1u);
  EXPECT_EQ(bytes, 3u);
  const char16_t mixed[] = u"\u00e9\u20ac!";
  EXPECT_EQ(fputsU16(mixed, f), 6);
  EXPECT_EQ(fputsU(u"", f), 0);
  EXPECT_EQ(contents(f), "abcdef###\xC3\xA9\xE2\x82\xAC!");
  std::fclose(f);
}

TEST(StreamOutput, PutsWritesTextAndNewlineToStandardOutput) {
  std::fflush(stdout);
  FILE* capture = std::tmpfile();
  const int saved = dup(fileno(stdout));
  dup2(fileno(capture), fileno(stdout));
  const int a = putsU16(u"\u00e9");
  const int b = putsU(u"ok");
  std::fflush(stdout);
  dup2(saved, fileno(stdout));
  close(saved);
  EXPECT_EQ(a, 3);
  EXPECT_EQ(b, 3);
  EXPECT_EQ(contents(capture), "\xC3\xA9\nok\n");
  std::fclose(capture);
}

// Random text with every unit class, and now and then a surrogate.
std::u16string random_text(std::mt19937& rng, std::size_t n, bool with_surrogates) {
  std::u16string s;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned k = rng() % 100;
    unsigned u;
    if (k < 70) u = 0x20 + rng() % 0x5F;
    else if (k < 80) u = 0x80 + rng() % 0x780;
    else if (k < 97 || !with_surrogates) u = 0x800 + rng() % 0xD000;
    else u = 0xD800 + rng() % 0x800;
    if (surrogate(u) && !with_surrogates) u = 0xE000;
    s.push_back(static_cast<char16_t>(u));
  }
  return s;
}

TEST(StreamOutput, FastPathMatchesReferenceAtEveryBufferSize) {
  std::mt19937 rng(5150);
  for (int round = 0; round < 400; ++round) {
    const std::size_t n = rng() % 300;
    const std::u16string text = random_text(rng, n, round % 3 == 0);
    const std::size_t bufsize = round % 7 == 0 ? 4096 : 1 + rng() % 80;
    const int mode = round % 11 == 0 ? _IOLBF : round % 13 == 0 ? _IONBF : _IOFBF;
    const std::size_t size = 1 + rng() % 3;
    std::string out[2];
    std::uint64_t bytes[2];
    std::size_t res[2];
    for (int impl = 0; impl < 2; ++impl) {
      FILE* f = std::tmpfile();
      Buffered buffer;
      buffer.apply(f, mode, bufsize);
      std::fputs("pre", f);  // the put area is already in use
      flockfile(f);
      res[impl] = impl == 0 ? fwrite_unlockedU16(text.data(), size, n / size, f, &bytes[impl], 0)
                            : nuv::fwrite_units_ref(text.data(), size, n / size, f, &bytes[impl], 0);
      funlockfile(f);
      out[impl] = contents(f);
      std::fclose(f);
    }
    ASSERT_EQ(out[0], out[1]) << "round " << round;
    ASSERT_EQ(res[0], res[1]);
    ASSERT_EQ(bytes[0], bytes[1]);
    ASSERT_EQ(bytes[0] + 3, out[0].size());
  }
}

TEST(StreamOutput, KernelMatchesReferenceAtEveryAlignmentAndCapacity) {
  std::mt19937 rng(77);
  std::vector<char16_t> storage(200);
  for (int round = 0; round < 20000; ++round) {
    const std::size_t n = rng() % 150;
    const std::u16string text = round % 2 ? random_text(rng, n, round % 5 == 0) : std::u16string(n, u'a');
    // Odd byte offsets too: callers may pass units at any address.
    char* base = reinterpret_cast<char*>(storage.data()) + round % 3;
    std::memcpy(base, text.data(), n * 2);
    const auto* src = reinterpret_cast<const NUV_UTF16*>(base);
    const std::size_t cap = rng() % 400;
    std::vector<char> d2(cap + 1, 0x55);
    std::size_t b2;
    bool s2;
    const std::size_t k2 = nuv::encode_units_fit_ref(src, n, d2.data(), cap, &b2, &s2);
    // -1: the kernel in use; then each level this machine has.
    for (int variant = -1; variant <= nuv::cpu().level; ++variant) {
      std::vector<char> d1(cap + 1, 0x55);
      std::size_t b1;
      bool s1;
      const nuv::EncodeFit fit = variant < 0 ? nuv::encode_units_fit : nuv::encode_fit_for(variant);
      const std::size_t k1 = fit(src, n, d1.data(), cap, &b1, &s1);
      ASSERT_EQ(k1, k2) << round << " variant " << variant;
      ASSERT_EQ(b1, b2);
      ASSERT_EQ(s1, s2);
      ASSERT_LE(b1, cap);
      ASSERT_EQ(std::string(d1.data(), b1), std::string(d2.data(), b2));
      ASSERT_EQ(d1[cap], 0x55);  // nothing written at or past the capacity
    }
  }
}

// A stream whose writes succeed for the first `budget` bytes and then fail.
struct Budget {
  std::size_t left;
  Buffered buffer;
};
ssize_t budget_write(void* cookie, const char* buf, std::size_t n) {
  auto* b = static_cast<Budget*>(cookie);
  if (b->left == 0) {
    errno = EIO;
    return -1;
  }
  const std::size_t k = std::min(n, b->left);
  b->left -= k;
  return static_cast<ssize_t>(k);
}
FILE* failing_stream(Budget* b, std::size_t bufsize) {
  cookie_io_functions_t io{};
  io.write = budget_write;
  FILE* f = fopencookie(b, "w", io);
  b->buffer.apply(f, bufsize ? _IOFBF : _IONBF, bufsize);
  return f;
}

TEST(StreamOutput, ShortCountWhenTheStreamFailsAfterFourUnits) {
  Budget b{4, {}};
  FILE* f = failing_stream(&b, 0);
  EXPECT_EQ(fwriteU16(u"abcdef", 2, 3, f), 2u);
  EXPECT_TRUE(std::ferror(f));
  std::fclose(f);
}

TEST(StreamOutput, FailuresMatchReferenceForEveryBudget) {
  std::mt19937 rng(9);
  const std::u16string text = random_text(rng, 120, false) + u"\xD800tail";
  for (std::size_t bufsize : {0u, 1u, 2u, 3u, 5u, 16u, 64u}) {
    for (std::size_t budget = 0; budget < 260; budget += 1 + budget / 16) {
      for (int flag = 0; flag < 2; ++flag) {
        std::size_t res[2];
        std::uint64_t bytes[2] = {12345, 12345};
        for (int impl = 0; impl < 2; ++impl) {
          Budget b{budget, {}};
          FILE* f = failing_stream(&b, bufsize);
          res[impl] = impl == 0 ? fwrite_unlockedU16(text.data(), 2, text.size() / 2, f, &bytes[impl], flag)
                                : nuv::fwrite_units_ref(text.data(), 2, text.size() / 2, f, &bytes[impl], flag);
          std::fclose(f);
        }
        ASSERT_EQ(res[0], res[1]) << bufsize << " " << budget << " " << flag;
        ASSERT_EQ(bytes[0], bytes[1]);
        if (flag && res[0] == static_cast<std::size_t>(-1)) ASSERT_EQ(bytes[0], 12345u);  // untouched
      }
    }
  }
}

TEST(StreamOutput, PartialUnitBytesAreCounted) {
  // Unbuffered: each byte is its own write.  Budget 4 takes "a", then two of
  // the three bytes of U+20AC; the failing unit's two bytes are counted.
  Budget b{3, {}};
  FILE* f = failing_stream(&b, 0);
  std::uint64_t bytes = 0;
  EXPECT_EQ(fwriteU16_impl(u"a\u20acb", 1, 3, f, &bytes), 1u);
  EXPECT_EQ(bytes, 3u);
  std::fclose(f);
}

TEST(StreamOutput, DevFullAndClosedPipe) {
  FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  Buffered full_buffer;
  full_buffer.apply(full, _IOFBF, 8);
  std::uint64_t bytes = 0;
  EXPECT_EQ(fwriteU16_impl(u"0123456789abcdef", 1, 16, full, &bytes), 8u);
  EXPECT_EQ(bytes, 8u);
  EXPECT_EQ(fputsU16(u"0123456789abcdef", full), -1);
  std::fclose(full);

  std::signal(SIGPIPE, SIG_IGN);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  close(fds[0]);  // the reader is gone
  FILE* w = fdopen(fds[1], "w");
  Buffered pipe_buffer;
  pipe_buffer.apply(w, _IOFBF, 4);
  EXPECT_EQ(fwriteU16(u"\u00e9\u00e9\u00e9\u00e9", 2, 2, w), 1u);  // the third unit meets the failing flush
  EXPECT_TRUE(std::ferror(w));
  std::fclose(w);
  std::signal(SIGPIPE, SIG_DFL);
}

TEST(StreamOutput, LockingFormsDoNotInterleaveAcrossThreads) {
  FILE* f = std::tmpfile();
  Buffered buffer;
  buffer.apply(f, _IOFBF, 64);  // many flushes in the middle of lines
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([f, t] {
      std::u16string line(60, static_cast<char16_t>(u'\u00e0' + t));
      line += u'\n';
      for (int i = 0; i < 500; ++i) {
        if (i % 2) fputsU16(line.c_str(), f);
        else fwriteU16(line.data(), 1, line.size(), f);
      }
    });
  for (auto& th : threads) th.join();
  const std::string all = contents(f);
  std::fclose(f);
  ASSERT_EQ(all.size(), 4u * 500u * 121u);
  for (std::size_t at = 0; at < all.size(); at += 121) {
    const std::string line = all.substr(at, 121);
    ASSERT_EQ(line.back(), '\n');
    for (std::size_t k = 2; k < 120; k += 2) ASSERT_EQ(line.compare(k, 2, line, 0, 2), 0) << at;
  }
}

}  // namespace
