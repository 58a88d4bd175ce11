// The vector paths of Utf8nToUtf16nSubst and Utf16nToUtf8n against the plain
// scalar base routines, for every kernel this CPU runs: random valid text of
// every mix, the same text with damage at random places, and buffers that end
// at every position, with identical results, reports and pointers.
#include <algorithm>
#include <memory>

#include "conv_support.h"
#include "convert/utf_simd.h"
#include "string/scan.h"
#include "support/page_end.h"

using namespace convtest;
using nuv::rscp::UtfKernels;

namespace {

std::vector<const UtfKernels*> kernels() {
  std::vector<const UtfKernels*> v{nullptr, &nuv::rscp::kUtfSse2};
  if (nuv::cpu_has_avx2()) v.push_back(&nuv::rscp::kUtfAvx2);
  if (nuv::rscp::cpu_has_avx512_vbmi2()) v.push_back(&nuv::rscp::kUtfAvx512);
  return v;
}

struct KernelScope {
  explicit KernelScope(const UtfKernels* k) { nuv::rscp::set_utf_kernels(k); }
  ~KernelScope() { nuv::rscp::set_utf_kernels(nuv::rscp::best_utf_kernels()); }
};

class FastPath : public ::testing::TestWithParam<const UtfKernels*> {};

std::string kernel_name(const ::testing::TestParamInfo<const UtfKernels*>& info) {
  return info.param ? info.param->name : "scalar";
}

struct Result {
  rscpStatus rc;
  std::ptrdiff_t srcAt, destAt;
  std::vector<char16_t> out16;
  std::string out8;
  std::vector<Report> reports;
};

Result decode_at(bool fast, const rscpUtf8* in, std::size_t n, char16_t* out, std::size_t room) {
  HookRecorder rec;
  const rscpUtf8* s = in;
  char16_t* d = out;
  const rscpStatus rc = fast ? Utf8nToUtf16nSubst(&s, in + n, &d, out + room, nullptr, nullptr)
                             : Utf8nToUtf16nBase(&s, in + n, &d, out + room, nullptr, nullptr, 1, 0);
  return {rc, s - in, d - out, std::vector<char16_t>(out, d), {}, HookRecorder::reports};
}

Result encode_at(bool fast, const char16_t* in, std::size_t n, rscpUtf8* out, std::size_t room) {
  HookRecorder rec;
  const char16_t* s = in;
  rscpUtf8* d = out;
  const rscpStatus rc = fast ? Utf16nToUtf8n(&s, in + n, &d, out + room)
                             : Utf16nToUtf8nBase(&s, in + n, &d, out + room, rscpReplacementCharacter, 0);
  return {rc, s - in, d - out, {}, std::string(reinterpret_cast<const char*>(out), static_cast<std::size_t>(d - out)),
          HookRecorder::reports};
}

// Source and destination in heap blocks of exactly their size, so that the
// address sanitizer sees any read or write past them.
Result decode(bool fast, const std::string& text, std::size_t room) {
  const std::unique_ptr<rscpUtf8[]> in(new rscpUtf8[text.size()]);
  std::memcpy(in.get(), text.data(), text.size());
  const std::unique_ptr<char16_t[]> out(new char16_t[room]);
  return decode_at(fast, in.get(), text.size(), out.get(), room);
}

Result encode(bool fast, const std::vector<char16_t>& units, std::size_t room) {
  const std::unique_ptr<char16_t[]> in(new char16_t[units.size()]);
  std::copy(units.begin(), units.end(), in.get());
  const std::unique_ptr<rscpUtf8[]> out(new rscpUtf8[room]);
  return encode_at(fast, in.get(), units.size(), out.get(), room);
}

void expect_same(const Result& a, const Result& b, const std::string& what) {
  ASSERT_EQ(a.rc, b.rc) << what;
  ASSERT_EQ(a.srcAt, b.srcAt) << what;
  ASSERT_EQ(a.destAt, b.destAt) << what;
  ASSERT_EQ(a.out16, b.out16) << what;
  ASSERT_EQ(a.out8, b.out8) << what;
  ASSERT_EQ(a.reports.size(), b.reports.size()) << what;
  for (std::size_t i = 0; i < a.reports.size(); ++i) {
    ASSERT_EQ(a.reports[i].err, b.reports[i].err) << what;
    ASSERT_EQ(a.reports[i].line, b.reports[i].line) << what;
  }
}

// Text of one flavour: mostly ASCII, Latin-1, Cyrillic, CJK or emoji.
std::u32string flavoured(std::mt19937& rng, int flavour, std::size_t n) {
  std::u32string t;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned r = rng() % 100;
    char32_t c = 'a' + rng() % 26;
    if (r < 10) c = U' ';
    else if (flavour == 1 && r < 40) c = 0x80 + rng() % 0x780;
    else if (flavour == 2 && r < 90) c = 0x400 + rng() % 0x100;
    else if (flavour == 3 && r < 90) c = 0x800 + rng() % 0xD000;
    else if (flavour == 4 && r < 25) c = 0x10000 + rng() % 0x100000;
    if (c >= 0xD800 && c <= 0xDFFF) c = 0xE000;
    t.push_back(c);
  }
  return t;
}

TEST_P(FastPath, DecoderMatchesScalarOnValidAndDamagedText) {
  KernelScope scope(GetParam());
  std::mt19937 rng(2024);
  const std::string junk[] = {"\xFF", "\xC0\x80", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80",
                              "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xF8\x88\x80\x80\x80", "\xC2\x41", "\xE2(\xA1"};
  for (int round = 0; round < 400; ++round) {
    const auto text = flavoured(rng, round % 5, 1 + rng() % 200);
    std::string u8 = to_iconv("UTF-8", text);
    const auto le = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
    Result fast = decode(true, u8, le.size() + 40);
    ASSERT_EQ(fast.rc, 0);
    ASSERT_EQ(fast.out16, le);
    expect_same(fast, decode(false, u8, le.size() + 40), "valid");
    // Short destinations: stops at the same character with the same report.
    const std::size_t room = rng() % (le.size() + 1);
    expect_same(decode(true, u8, room), decode(false, u8, room), "room");
    // Damage at a random place, possibly inside a character.
    u8.insert(rng() % (u8.size() + 1), junk[rng() % std::size(junk)]);
    expect_same(decode(true, u8, u8.size() + 40), decode(false, u8, u8.size() + 40), "damaged");
  }
}

TEST_P(FastPath, EncoderMatchesScalarOnValidAndDamagedText) {
  KernelScope scope(GetParam());
  std::mt19937 rng(99);
  for (int round = 0; round < 400; ++round) {
    const auto text = flavoured(rng, round % 5, 1 + rng() % 200);
    const std::string u8 = to_iconv("UTF-8", text);
    auto units = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
    Result fast = encode(true, units, u8.size() + 50);
    ASSERT_EQ(fast.rc, 0);
    ASSERT_EQ(fast.out8, u8);
    expect_same(fast, encode(false, units, u8.size() + 50), "valid");
    const std::size_t room = rng() % (u8.size() + 1);
    expect_same(encode(true, units, room), encode(false, units, room), "room");
    const char16_t lone[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF};
    units.insert(units.begin() + static_cast<std::ptrdiff_t>(rng() % (units.size() + 1)), lone[rng() % 4]);
    expect_same(encode(true, units, units.size() * 3 + 50), encode(false, units, units.size() * 3 + 50), "damaged");
  }
}

// Every 2- and 3-byte character at every offset of a window, with ASCII
// around it, so each table row of the decoder is used.
TEST_P(FastPath, EveryShapeAtEveryOffset) {
  KernelScope scope(GetParam());
  const char32_t samples[] = {0x80, 0x7FF, 0x800, 0xFFFF, 0xD7FF, 0xE000, 0x1000, 0x10000, 0x10FFFF};
  for (char32_t c : samples)
    for (int off = 0; off < 40; ++off) {
      std::u32string t(off, U'x');
      for (int k = 0; k < 8; ++k) t += c, t += U'y';
      t += std::u32string(40, U'z');
      const std::string u8 = to_iconv("UTF-8", t);
      const auto le = from_bytes<char16_t>(to_iconv("UTF-16LE", t));
      ASSERT_EQ(decode(true, u8, le.size()).out16, le) << std::hex << static_cast<uint32_t>(c) << " " << off;
      ASSERT_EQ(encode(true, le, u8.size()).out8, u8) << std::hex << static_cast<uint32_t>(c) << " " << off;
    }
}

// Short texts of every length below the vector block sizes and a little
// past them, each source and destination ending where a readable page
// ends: the short paths must neither read nor write past either end, and
// must match the scalar routines with room to spare, exact room and too
// little room, on valid and on damaged text.
TEST_P(FastPath, ShortTextsAtPageEnds) {
  KernelScope scope(GetParam());
  nuvtest::PageEnd src, dst;
  ASSERT_TRUE(src.ok() && dst.ok());
  std::mt19937 rng(77);
  const std::string junk[] = {"\xFF", "\xC0\x80", "\xE0\x9F\xBF", "\xF4\x90\x80\x80", "\x80", "\xC3", "\xE2\x82",
                              "\xF0\x9F\x98"};
  const char16_t lone[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF};
  for (int flavour = 0; flavour < 5; ++flavour)
    for (std::size_t len = 0; len <= 140; ++len) {
      const auto text = flavoured(rng, flavour, len);
      std::string u8 = to_iconv("UTF-8", text);
      auto units = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
      const std::string what = "flavour " + std::to_string(flavour) + " length " + std::to_string(len);
      for (int damaged = 0; damaged < 2; ++damaged) {
        if (damaged) {
          u8.insert(rng() % (u8.size() + 1), junk[rng() % std::size(junk)]);
          units.insert(units.begin() + static_cast<std::ptrdiff_t>(rng() % (units.size() + 1)), lone[rng() % 4]);
        }
        const auto* in8 = src.place_tail(reinterpret_cast<const rscpUtf8*>(u8.data()), u8.size());
        for (std::size_t room : {u8.size() + 40, u8.size(), units.size(), static_cast<std::size_t>(rng() % (u8.size() + 1))}) {
          const Result fast = decode_at(true, in8, u8.size(), dst.tail<char16_t>(room), room);
          expect_same(fast, decode_at(false, in8, u8.size(), dst.tail<char16_t>(room), room), what + " decode");
        }
        const auto* in16 = src.place_tail(units.data(), units.size());
        for (std::size_t room : {3 * units.size() + 40, u8.size(), static_cast<std::size_t>(rng() % (u8.size() + 1))}) {
          const Result fast = encode_at(true, in16, units.size(), dst.tail<rscpUtf8>(room), room);
          expect_same(fast, encode_at(false, in16, units.size(), dst.tail<rscpUtf8>(room), room), what + " encode");
        }
      }
    }
}

// With a substitution character and a counter the decoder goes on after bad
// input: the scalar code substitutes, then hands back to the kernel.
TEST_P(FastPath, SubstitutingDecoderMatchesScalar) {
  KernelScope scope(GetParam());
  std::mt19937 rng(4711);
  const std::string junk[] = {"\xFF", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80", "\xE2\x82", "\xF0\x9F\x98"};
  for (int round = 0; round < 300; ++round) {
    std::string u8 = to_iconv("UTF-8", flavoured(rng, round % 5, 1 + rng() % 300));
    for (unsigned k = rng() % 6; k > 0; --k) u8.insert(rng() % (u8.size() + 1), junk[rng() % std::size(junk)]);
    const uint32_t subst = round % 2 ? 0xFFFD : '?';
    const std::size_t room = round % 3 ? u8.size() + 8 : rng() % (u8.size() + 1);
    std::vector<char16_t> out[2];
    uint32_t count[2] = {77, 77};
    rscpStatus rc[2];
    std::ptrdiff_t at[2], written[2];
    for (int fast = 0; fast < 2; ++fast) {
      out[fast].assign(room + 1, 0);
      const auto* s = reinterpret_cast<const rscpUtf8*>(u8.data());
      char16_t* d = out[fast].data();
      HookRecorder rec;
      rc[fast] = fast ? Utf8nToUtf16nSubst(&s, s + u8.size(), &d, d + room, &subst, &count[fast])
                      : Utf8nToUtf16nBase(&s, s + u8.size(), &d, d + room, &subst, &count[fast], 1, 0);
      at[fast] = s - reinterpret_cast<const rscpUtf8*>(u8.data()), written[fast] = d - out[fast].data();
    }
    ASSERT_EQ(rc[0], rc[1]) << round;
    ASSERT_EQ(at[0], at[1]) << round;
    ASSERT_EQ(written[0], written[1]) << round;
    ASSERT_EQ(count[0], count[1]) << round;
    ASSERT_TRUE(std::equal(out[0].begin(), out[0].begin() + written[0], out[1].begin())) << round;
  }
}

// Each shape of character (and of damage) at every position of texts up to
// 40 bytes / 70 units: the register paths split texts into steps of 16, so
// characters across those borders and at the very end are the cases.
TEST_P(FastPath, EveryShapeAtEveryPositionOfShortTexts) {
  KernelScope scope(GetParam());
  const std::string shapes8[] = {"\xC3\xA9", "\xDF\xBF", "\xE4\xB8\x80", "\xEF\xBF\xBF", "\xF0\x9F\x98\x80",
                                 "\xF4\x8F\xBF\xBF", "\xC0\x80", "\xE0\x80\x80", "\xF4\x90\x80\x80", "\xFF", "\x80",
                                 "\xE4\xB8"};
  for (const auto& shape : shapes8)
    for (std::size_t len = 1; len <= 40; ++len)
      for (std::size_t at = 0; at <= len; ++at) {
        std::string t(len, 'a');
        t.insert(at, shape);
        const std::string what = "decode len " + std::to_string(len) + " at " + std::to_string(at);
        expect_same(decode(true, t, t.size() + 4), decode(false, t, t.size() + 4), what);
      }
  const std::vector<char16_t> shapes16[] = {{0x7F}, {0xE9}, {0x7FF}, {0x800}, {0xFFFF}, {0xD83D, 0xDE00},
                                            {0xDBFF, 0xDFFF}, {0xD800}, {0xDC00}, {0xD800, 0x41}};
  for (const auto& shape : shapes16)
    for (std::size_t len = 1; len <= 70; ++len)
      for (std::size_t at = 0; at <= len; ++at) {
        std::vector<char16_t> t(len, u'b');
        t.insert(t.begin() + static_cast<std::ptrdiff_t>(at), shape.begin(), shape.end());
        const std::string what = "encode len " + std::to_string(len) + " at " + std::to_string(at);
        expect_same(encode(true, t, 3 * t.size() + 4), encode(false, t, 3 * t.size() + 4), what);
      }
}

// Every amount of room, from none to more than enough, for short texts of
// each kind: kernels stop at whole characters and the reports agree.
TEST_P(FastPath, EveryRoomForShortTexts) {
  KernelScope scope(GetParam());
  std::mt19937 rng(31);
  for (int flavour = 0; flavour < 5; ++flavour)
    for (std::size_t chars : {7, 20, 33, 70}) {
      const auto text = flavoured(rng, flavour, chars);
      const std::string u8 = to_iconv("UTF-8", text);
      const auto units = from_bytes<char16_t>(to_iconv("UTF-16LE", text));
      for (std::size_t room = 0; room <= units.size() + 2; ++room)
        expect_same(decode(true, u8, room), decode(false, u8, room), "decode room " + std::to_string(room));
      for (std::size_t room = 0; room <= u8.size() + 2; ++room)
        expect_same(encode(true, units, room), encode(false, units, room), "encode room " + std::to_string(room));
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, FastPath, ::testing::ValuesIn(kernels()), kernel_name);

}  // namespace
