// nuvconv against iconv(1)'s library on every pair of encodings both know,
// through blocks much smaller and much larger than the text, and its
// reports on bad input in each mode.
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

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

bool iconv_to(const char* to, const char* from, const std::string& in, std::string& out) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  out.assign(in.size() * 4 + 16, '\0');
  char* ip = const_cast<char*>(in.data());
  char* op = out.data();
  std::size_t il = in.size(), ol = out.size();
  const bool ok = iconv(cd, &ip, &il, &op, &ol) != static_cast<std::size_t>(-1);
  iconv_close(cd);
  out.resize(out.size() - ol);
  return ok;
}

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
  std::string in(reinterpret_cast<const char*>(text.data()), text.size() * 4), out;
  EXPECT_TRUE(iconv_to(e.peer, "UTF-32LE", in, out)) << e.peer;
  return out;
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
        BadCase{"unknown_encoding", "-f klingon -t utf-8", "", 2, "", "unknown encoding"},
        BadCase{"bad_subst", "-f utf-8 -t utf-8 --subst=U+D800", "", 2, "", "--subst takes"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Tool, HelpDocumentsTheModes) {
  const std::string cmd = kTool + " --help > " + dir + "/help";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const std::string help = slurp(dir + "/help");
  for (const char* word : {"Usage: nuvconv -f FROM -t TO", "--strict", "--subst", "--trust", "ucs-4be", "ebcdic"})
    EXPECT_NE(help.find(word), std::string::npos) << word;
}

}  // namespace
