// nuvconv against iconv(1)'s library on every pair of encodings both know,
// through blocks much smaller and much larger than the text, and its
// reports on bad input in each mode.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <tuple>

#include "nuvconv_pipeline.h"
#include "support/iconv_peer.h"

namespace {

const std::string kTool = [] {
  std::string lib = NUV_SHARED_LIB;
  return lib.substr(0, lib.rfind('/')) + "/tools/nuvconv";
}();

struct Result {
  int exit;
  std::string out, err;
};

std::string slurp(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

class Tool : public ::testing::Test {
 protected:
  std::string dir;
  void SetUp() override {
    char tmpl[] = "/tmp/nuvconv_test.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir = tmpl;
    ASSERT_EQ(access(kTool.c_str(), X_OK), 0) << kTool << " is not built";
  }
  void TearDown() override { std::system(("rm -rf " + dir).c_str()); }

  Result run(const std::string& args, const std::string& input) {
    std::ofstream(dir + "/in", std::ios::binary) << input;
    const std::string cmd = kTool + " " + args + " " + dir + "/in " + dir + "/out 2> " + dir + "/err";
    const int rc = std::system(cmd.c_str());
    return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(dir + "/out"), slurp(dir + "/err")};
  }
};

struct Enc {
  const char* ours;
  const char* peer;
  char32_t (*fit)(char32_t);  // maps a character into the encoding's repertoire
};

char32_t any(char32_t c) { return c; }
char32_t bmp(char32_t c) { return c > 0xFFFF ? 0x3000 + (c & 0xFFF) : c; }
char32_t latin1(char32_t c) {
  c &= 0xFF;
  return c >= 0x80 && c < 0xA0 ? c + 0x40 : c;  // C1 controls have no EBCDIC twin here
}
char32_t ascii(char32_t c) { return c & 0x7F; }

const Enc kEncs[] = {{"utf-8", "UTF-8", any},       {"utf-16le", "UTF-16LE", any}, {"utf-16be", "UTF-16BE", any},
                     {"ucs-2le", "UCS-2LE", bmp},   {"ucs-2be", "UCS-2BE", bmp},   {"ucs-4le", "UCS-4LE", any},
                     {"ucs-4be", "UCS-4BE", any},   {"ascii", "ASCII", ascii},     {"ebcdic", "IBM500", latin1}};

std::u32string random_text(std::mt19937& rng, std::size_t n, const Enc& a, const Enc& b) {
  std::u32string s;
  std::uniform_int_distribution<int> kind(0, 9);
  for (std::size_t i = 0; i < n; ++i) {
    char32_t c = kind(rng) < 4 ? 0x20 + rng() % 0x5F : rng() % 0x110000;
    if (c >= 0xD800 && c <= 0xDFFF) c -= 0x1000;
    c = b.fit(a.fit(c));
    if (c == 0) c = 'z';
    s.push_back(c);
  }
  return s;
}

std::string encode(const Enc& e, const std::u32string& text) {
  const auto r =
      nuvtest::iconv_peer(e.peer, "UTF-32LE", {reinterpret_cast<const char*>(text.data()), text.size() * 4});
  EXPECT_TRUE(r.ok) << e.peer;
  return r.out;
}

TEST_F(Tool, AgreesWithIconvOnEveryPairThroughSmallBlocks) {
  std::mt19937 rng(123);
  for (const Enc& from : kEncs)
    for (const Enc& to : kEncs) {
      const auto text = random_text(rng, 700, from, to);
      const std::string src = encode(from, text), want = encode(to, text);
      for (const char* opts : {"--buffer-size=13", "--buffer-size=64 --trust", "--subst"}) {
        const Result r = run(std::string("-f ") + from.ours + " -t " + to.ours + " " + opts, src);
        ASSERT_EQ(r.exit, 0) << from.ours << " -> " << to.ours << " " << opts << ": " << r.err;
        ASSERT_EQ(r.out, want) << from.ours << " -> " << to.ours << " " << opts;
      }
    }
}

TEST_F(Tool, AgreesWithIconvOnFilesLargerThanItsBuffers) {
  std::mt19937 rng(7);
  const Enc& u8 = kEncs[0];
  for (const Enc& other : {kEncs[2], kEncs[5], kEncs[3]}) {
    const auto text = random_text(rng, 150000, u8, other);
    const std::string a = encode(u8, text), b = encode(other, text);
    Result r = run(std::string("-f utf-8 -t ") + other.ours, a);
    ASSERT_EQ(r.exit, 0) << r.err;
    ASSERT_EQ(r.out, b) << other.ours;
    r = run(std::string("-f ") + other.ours + " -t utf-8", b);
    ASSERT_EQ(r.exit, 0) << r.err;
    ASSERT_EQ(r.out, a) << other.ours;
  }
}

struct BadCase {
  const char* name;
  std::string args;
  std::string in;
  int exit;
  std::string out;
  std::string err;  // expected to be contained in stderr
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class BadInput : public Tool, public ::testing::WithParamInterface<BadCase> {};

TEST_P(BadInput, ReportsAsStated) {
  const BadCase& c = GetParam();
  const Result r = run(c.args, c.in);
  EXPECT_EQ(r.exit, c.exit) << r.err;
  EXPECT_EQ(r.out, c.out);
  EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
}

using namespace std::string_literals;
const std::string k100(100, 'a');
const std::string kBeyondAt2 = "byte offset 2: UTF-8 beyond UTF-32 (status 0x800)";
std::string le16(const std::string& ascii) {
  std::string s;
  for (char c : ascii) s += c, s += '\0';
  return s;
}

INSTANTIATE_TEST_SUITE_P(
    Tool, BadInput,
    ::testing::Values(
        BadCase{"bad_start", "-f utf-8 -t utf-16le", "ab\xFF" "cd", 1, le16("ab"),
                "byte offset 2: illegal start byte (status 0x800)"},
        BadCase{"after_blocks", "-f utf-8 -t utf-16le --buffer-size=16", k100 + "\xC3(", 1, le16(k100),
                "byte offset 100: illegal follow-up byte (status 0x800)"},
        BadCase{"cut_at_end", "-f utf-8 -t utf-16be --buffer-size=8", "abc\xE2\x82", 1, "\0a\0b\0c"s,
                "byte offset 3: source exhausted within a char (status 0x200)"},
        BadCase{"encoded_surrogate", "-f utf-8 -t utf-8", "x\xED\xA0\x80", 1, "x",
                "byte offset 1: surrogate area (status 0x800)"},
        BadCase{"overlong", "-f utf-8 -t ucs-4le --strict", "\xC0\x80", 1, "",
                "byte offset 0: overlong UTF-8 sequence (status 0x800)"},
        BadCase{"lone_low", "-f utf-16le -t utf-8", "a\0\0\xDC"s, 1, "a",
                "byte offset 2: Half low surrogate in middle (status 0x800)"},
        BadCase{"lone_high", "-f utf-16be -t utf-8", "\xD8\0\0a"s, 1, "",
                "byte offset 0: Half surrogate in middle (status 0x800)"},
        BadCase{"high_at_end", "-f utf-16le -t utf-8", "a\0\0\xD8"s, 1, "a",
                "byte offset 2: Half surrogate at end (status 0x200)"},
        BadCase{"odd_byte", "-f utf-16le -t utf-8", "a\0b"s, 1, "a",
                "byte offset 2: source exhausted within a char (status 0x200)"},
        BadCase{"past_10ffff", "-f ucs-4le -t utf-8", "a\0\0\0\0\0\x11\0"s, 1, "a",
                "byte offset 4: UTF-8 beyond UTF-32 (status 0x800)"},
        BadCase{"bit31", "-f ucs-4be -t utf-16le", "\0\0\0a\x80\0\0\0"s, 1, "a\0"s,
                "byte offset 4: UCS-4 has only 31 bits. (status 0x800)"},
        BadCase{"not_ucs2", "-f utf-8 -t ucs-2le", "a\xF0\x9F\x98\x80", 1, "a\0"s,
                "byte offset 1: UTF-8 bejond UCS-2 (status 0x800)"},
        BadCase{"not_ascii_target", "-f utf-8 -t ascii", "ab\xC3\xA9", 1, "ab",
                "byte offset 2: character cannot be written in ascii (status 0x800)"},
        BadCase{"not_ascii_source", "-f ascii -t utf-8", "ab\x80", 1, "ab",
                "byte offset 2: byte is not 7-bit ASCII (status 0x800)"},
        BadCase{"not_ebcdic", "-f utf-16le -t ebcdic", "A\0\x01\x01"s, 1, "\xC1", "byte offset 2: character cannot"},
        BadCase{"subst_char", "-f utf-8 -t utf-16le --subst=U+003F", "a\xFF" "b", 0, le16("a?b"), ""},
        BadCase{"subst_default", "-f utf-16le -t utf-8 --subst", "\0\xDC"s, 0, "\xEF\xBF\xBD", ""},
        BadCase{"subst_cut_end", "-f utf-8 -t utf-16le --subst=U+23", "a\xE2\x82", 0, le16("a##"), ""},
        BadCase{"subst_ascii", "-f utf-8 -t ascii --subst", "\xC3\xA9x", 0, "#x", ""},
        BadCase{"trust_passes_lone", "-f utf-16le -t utf-8 --trust", "\0\xDC"s, 0, "\xED\xB0\x80", ""},
        BadCase{"unknown_encoding", "-f klingon -t utf-8", "", 2, "", "unknown encoding 'klingon'"},
        BadCase{"bad_subst", "-f utf-8 -t utf-8 --subst=U+D800", "", 2, "", "--subst takes"},
        BadCase{"subst_blank", "-f utf-8 -t utf-8 '--subst= 41'", "", 2, "", "--subst takes"},
        BadCase{"subst_sign", "-f utf-8 -t utf-8 --subst=+41", "", 2, "", "--subst takes"},
        BadCase{"subst_0x", "-f utf-8 -t utf-8 --subst=0x41", "", 2, "", "--subst takes"},
        BadCase{"beyond_f4", "-f utf-8 -t utf-16le", "ab\xF4\x90\x80\x80" "cd", 1, le16("ab"), kBeyondAt2},
        BadCase{"beyond_f5", "-f utf-8 -t utf-16le", "ab\xF5\x80\x80\x80" "cd", 1, le16("ab"), kBeyondAt2},
        BadCase{"beyond_5byte", "-f utf-8 -t ucs-4le", "ab\xF8\x88\x80\x80\x80", 1, "a\0\0\0b\0\0\0"s, kBeyondAt2},
        BadCase{"beyond_6byte", "-f utf-8 -t utf-8", "ab\xFC\x84\x80\x80\x80\x80", 1, "ab", kBeyondAt2},
        BadCase{"follow_up_at_block_end", "-f utf-8 -t utf-16le", std::string(65531, 'a') + "\xE2\x41\xF0\x9F\x98\x80",
                1, le16(std::string(65531, 'a')), "byte offset 65531: illegal follow-up byte (status 0x800)"},
        BadCase{"trust_pair_across_blocks", "-f ucs-4le -t utf-8 --trust --buffer-size=8",
                "a\0\0\0\x3D\xD8\0\0\0\xDE\0\0b\0\0\0"s, 0, "a\xF0\x9F\x98\x80" "b", ""},
        BadCase{"trust_cut_at_end", "-f utf-8 -t utf-16le --trust", "a\xE2\x82", 1, le16("a"), "exhausted"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Tool, HelpDocumentsTheModes) {
  const std::string cmd = kTool + " --help > " + dir + "/help";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const std::string help = slurp(dir + "/help");
  for (const char* word : {"Usage: nuvconv -f FROM -t TO", "--strict", "--subst", "--trust", "ucs-4be", "ebcdic",
                           "1 stopped on bad input (--strict or --trust"})
    EXPECT_NE(help.find(word), std::string::npos) << word;
}

TEST_F(Tool, OneMessagePerUsageMistake) {
  const std::pair<const char*, const char*> kCases[] = {
      {"--bogus -f utf-8 -t utf-8", "unknown option '--bogus'"},
      {"-x -f utf-8 -t utf-8", "unknown option '-x'"},
      {"-f utf-8 -t utf-8 --buffer-size=7", "--buffer-size takes a number from 8 to 2^30"},
      {"-f utf-8 -t utf-9", "unknown encoding 'utf-9' (known: utf-8, utf-16le, utf-16be, ucs-2le, ucs-2be, ucs-4le, "
                            "ucs-4be, ascii, ebcdic)"}};
  for (const auto& [args, msg] : kCases) {
    const Result r = run(args, "");
    EXPECT_EQ(r.exit, 2) << args;
    EXPECT_EQ(r.err, "nuvconv: " + std::string(msg) + "\nTry 'nuvconv --help'.\n");
  }
}

// An unreadable input (a directory, a missing file, the output itself)
// leaves the output file as it was.
TEST_F(Tool, KeepsTheOutputWhenTheInputCannotBeRead) {
  for (const std::string& input : {dir, dir + "/missing", dir + "/out"}) {
    std::ofstream(dir + "/out") << "precious";
    const int rc = std::system((kTool + " -f utf-8 -t utf-16le " + input + " " + dir + "/out 2>/dev/null").c_str());
    EXPECT_EQ(WEXITSTATUS(rc), 2) << input;
    EXPECT_EQ(slurp(dir + "/out"), "precious") << input;
  }
}

// ---- the converter chain in-process: output, end, message, status, offset ----
using Answer = std::tuple<std::string, int, std::string, rscpStatus, uint64_t>;

Answer convert(const Enc& from, const Enc& to, nuvconv::Mode mode, std::size_t block, const std::string& in) {
  std::string out;
  std::size_t pos = 0;
  const auto read = [&](unsigned char* p, std::size_t cap) -> long {
    const std::size_t n = std::min(cap, in.size() - pos);
    return std::memcpy(p, in.data() + pos, n), pos += n, static_cast<long>(n);
  };
  const auto write = [&](const unsigned char* p, std::size_t n) {
    return out.append(reinterpret_cast<const char*>(p), n), true;
  };
  const auto r = nuvconv::convert({from.ours, to.ours, mode, '#', block}, read, write);
  return {out, static_cast<int>(r.end), r.msg, r.status, r.offset};
}

// Text in the encoding with bad pieces spliced in, mostly on unit bounds.
std::string hostile(std::mt19937& rng, const Enc& e) {
  const std::size_t unit = e.peer[1] == 'C' ? e.peer[3] - '0' : e.peer[4] == '1' ? 2 : 1;
  static const std::vector<std::string> kBad8 = {"\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80",
                                                 "\xE2\x41", "\xC0\x80", "\xED\xA0\x80", "\xE2\x82", "\x80", "\xFF"};
  static const std::vector<std::string> kBad16 = {"\x00\xD8", "\x00\xDC", "\x3D\xD8\x00\xDE", std::string(40, '\xD9')};
  static const std::vector<std::string> kBad32 = {"\0\0\x11\0"s, "\0\0\0\x80"s, "\0\0\0\xFC"s, "\0\xD8\0\0"s,
                                                  "\x3D\xD8\0\0\0\xDE\0\0"s};
  const auto& bad = unit == 1 ? kBad8 : unit == 2 ? kBad16 : kBad32;
  std::string s = encode(e, random_text(rng, 10 + rng() % 60, e, e));
  for (int k = rng() % 4; k-- > 0;) {
    std::string piece = rng() % 4 ? bad[rng() % bad.size()] : std::string(1 + rng() % 3, static_cast<char>(rng()));
    if (std::strstr(e.peer, "BE"))  // the pieces are little-endian
      for (std::size_t i = 0; i + unit <= piece.size(); i += unit) std::reverse(&piece[i], &piece[i + unit]);
    const std::size_t at = rng() % (s.size() + 1);
    s.insert(rng() % 8 ? at - at % unit : at, piece);
  }
  return s;
}

// Where glibc's answer is a different one by design: its UCS-4 takes any
// 31-bit value, surrogates included (so from UTF-8 it takes values past
// U+10FFFF and 5- and 6-byte forms), and its IBM500 has C1 controls where
// our EBCDIC page has blanks.
bool peer_differs(const Enc& from, const Enc& to, const std::string& in) {
  const bool u8ToU4 = !std::strncmp(to.ours, "ucs-4", 5) && !std::strcmp(from.ours, "utf-8");
  for (std::size_t i = 0; u8ToU4 && i + 1 < in.size(); ++i)
    if ((in[i] & 0xFF) - 0xF5u <= 0xFD - 0xF5 || ((in[i] & 0xFF) == 0xF4 && (in[i + 1] & 0xFF) >= 0x90)) return true;
  for (std::size_t i = 0, v = 0; i + 4 <= in.size() && std::strncmp(from.ours, "ucs-4", 5) == 0; i += 4) {
    for (int k = 0; k < 4; ++k) v = v << 8 | (in[i + (std::strstr(from.peer, "BE") ? k : 3 - k)] & 0xFF);
    if ((v &= 0xFFFFFFFF) > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return true;
  }
  if (std::strcmp(from.ours, "ebcdic") != 0 && std::strcmp(to.ours, "ebcdic") != 0) return false;
  const std::string u32 = nuvtest::iconv_peer("UTF-32LE", from.peer, in).out;
  for (std::size_t i = 0; i + 4 <= u32.size(); i += 4)
    if (static_cast<unsigned char>(u32[i]) - 0x80u < 0x20 && u32[i + 1] == 0 && u32[i + 2] == 0) return true;
  return false;
}

// Every block size from the smallest up gives the answer of one block
// holding it all; in strict mode that answer is iconv's where iconv's is
// defined the same way (both convert, or both stop at one offset).
TEST(Pipeline, AnswerDoesNotDependOnTheBlockSize) {
  std::mt19937 rng(20261123);
  int agreeOk = 0, agreeStop = 0;
  for (const Enc& from : kEncs)
    for (const Enc& to : kEncs)
      for (const nuvconv::Mode mode : {nuvconv::Mode::Strict, nuvconv::Mode::Subst, nuvconv::Mode::Trust})
        for (int n = 0; n < 10; ++n) {
          const std::string in = hostile(rng, from);
          const Answer ref = convert(from, to, mode, in.size() + nuvconv::kMinBlock, in);
          const std::string what = std::string(from.ours) + " -> " + to.ours + " mode " +
                                   std::to_string(static_cast<int>(mode)) + " input " + ::testing::PrintToString(in);
          for (std::size_t block = nuvconv::kMinBlock; block <= 300; ++block)
            ASSERT_EQ(convert(from, to, mode, block, in), ref) << what << " block " << block;
          const nuvtest::IconvResult peer = nuvtest::iconv_peer(to.peer, from.peer, in);
          if (mode != nuvconv::Mode::Strict || peer_differs(from, to, in)) continue;
          EXPECT_EQ(peer.ok, std::get<1>(ref) == static_cast<int>(nuvconv::End::Done)) << what << std::get<2>(ref);
          if (!peer.ok) EXPECT_EQ(peer.stop, std::get<4>(ref)) << what << ": " << std::get<2>(ref);
          EXPECT_EQ(std::get<0>(ref), peer.out) << what;
          ++(peer.ok ? agreeOk : agreeStop);
        }
  EXPECT_GT(agreeOk, 20);
  EXPECT_GT(agreeStop, 20);
}

}  // namespace
