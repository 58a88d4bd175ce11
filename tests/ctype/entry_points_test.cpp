// The nine class/case entries: bound to the machine's ICU and compared with
// ICU called directly; the 7-bit fallbacks and their reports; the loader's
// start-up trace and its failure paths in fresh processes (one of them built
// for an ICU version that is not installed).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unicode/ubrk.h>
#include <unicode/ucal.h>
#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>
#include <unicode/uversion.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <cstdio>
#include <cwctype>
#include <regex>
#include <string>
#include <vector>

#include "ctype/icu_loader.h"
#include "nuvu16.h"
#include "support/scoped.h"
#include "support/scratch.h"

namespace {

const std::string kV = NUV_ICU_STR(NUV_ICU_VERSION);

using Level = nuvtest::Scoped<int32_t>;

// Makes sure ICU is bound in this process (the first call of any entry does it).
void bind_icu() {
  Level quiet(nlsui_init_trace_level, 0);
  (void)isalphaU('A');
  useICUCtype();
}

// ---- bound to the machine's ICU -------------------------------------------

// Which pointer each entry holds is the loader's business; what it answers is
// checked here, and that the first call binds in the fresh-process table.
TEST(IcuEntries, EveryBmpUnitGetsIcusAnswer) {
  bind_icu();
  int wrong = 0;
  for (UChar32 u = 0; u <= 0xFFFF && wrong < 20; ++u) {
    const int32_t got[] = {isalnumU(u), isalphaU(u), iscntrlU(u), islowerU(u), isprintU(u), isspaceU(u),
                           isupperU(u), tolowerU(u), toupperU(u), isgraphU(u), ispunctU(u)};
    const int32_t want[] = {u_isalnum(u), u_isalpha(u), u_iscntrl(u), u_islower(u), u_isprint(u), u_isspace(u),
                            u_isupper(u), u_tolower(u), u_toupper(u), u_isprint(u) && u != 0x20,
                            u_isprint(u) && !u_isalnum(u) && u != 0x20};
    for (int i = 0; i < 11; ++i)
      if (got[i] != want[i] && ++wrong)
        ADD_FAILURE() << "entry " << i << " at U+" << std::hex << u << ": " << got[i] << " vs ICU " << want[i];
  }
}

TEST(IcuEntries, EveryFamilyIsBoundAndWorks) {
  bind_icu();
  namespace icu = nuv::icu;
  auto unbound = [](const auto& table) {
    const void* const* slots = reinterpret_cast<const void* const*>(&table);
    return std::count(slots, slots + sizeof table / sizeof(void*), nullptr);
  };
  EXPECT_EQ(unbound(icu::util) + unbound(icu::ctype) + unbound(icu::bidi) + unbound(icu::shaping) +
                unbound(icu::unorm) + unbound(icu::ubrk) + unbound(icu::uidna) + unbound(icu::ucol) +
                unbound(icu::utrans) + unbound(icu::ucal), 0);
  EXPECT_NE(libicui18nHandle, nullptr);
  EXPECT_EQ(IcuShaping, 1);
  // A few calls through the tables, each against ICU called directly.
  char16_t up[16] = {};
  int err = 0;
  EXPECT_EQ(icu::util.u_strToUpper(up, 16, u"stra\u00dfe", -1, "", &err), 7);
  EXPECT_EQ(std::u16string(up), u"STRASSE");
  UVersionInfo v;
  char direct[U_MAX_VERSION_STRING_LENGTH], bound[U_MAX_VERSION_STRING_LENGTH];
  u_getVersion(v), u_versionToString(v, direct);
  icu::util.u_getVersion(v), icu::util.u_versionToString(v, bound);
  EXPECT_STREQ(direct, bound);
  EXPECT_EQ(icu::bidi.u_charMirror('('), u_charMirror('('));
  auto* c = icu::ucol.ucol_open("en", &err);
  ASSERT_NE(c, nullptr);
  EXPECT_LT(icu::ucol.ucol_strcoll(c, u"apple", -1, u"Banana", -1), 0);
  icu::ucol.ucol_close(c);
  auto* bi = icu::ubrk.ubrk_open(UBRK_WORD, "en", u"two words", 9, &err);
  ASSERT_NE(bi, nullptr);
  EXPECT_EQ(icu::ubrk.ubrk_first(bi) + icu::ubrk.ubrk_next(bi), 3);
  icu::ubrk.ubrk_close(bi);
  auto* cal = icu::ucal.ucal_open(u"UTC", -1, "en", UCAL_GREGORIAN, &err);
  ASSERT_NE(cal, nullptr);
  icu::ucal.ucal_setMillis(cal, 86400000.0 * 365, &err);
  EXPECT_EQ(icu::ucal.ucal_get(cal, UCAL_YEAR, &err), 1971);
  icu::ucal.ucal_close(cal);
  EXPECT_LE(err, 0);  // no failure, warnings allowed
}

TEST(IcuEntries, SwitchingToTheFallbackAndBack) {
  bind_icu();
  Level quiet(nlsui_init_trace_level, 0);
  EXPECT_EQ(useFallBackCtype(), 0);
  EXPECT_TRUE(libicuucInitCall == 1 && isalphaU == isalphaU_7bit && toupperU == toupperU_7bit);
  EXPECT_EQ(toupperU(0x00E9), 0x00E9);
  EXPECT_EQ(useICUCtype(), 0);
  EXPECT_TRUE(libicuucInitCall == 0 && isalphaU == u_isalpha_widened);
  EXPECT_EQ(toupperU(0x00E9), 0x00C9);
}

TEST(IcuEntries, IsxdigitIsPlainAscii) {
  for (int32_t c = -70000; c <= 0x20000; ++c) {
    const int32_t up = c & ~0x20;
    ASSERT_EQ(isxdigitU(c), (c >= '0' && c <= '9') || (up >= 'A' && up <= 'F')) << c;
  }
}

// ---- the 7-bit fallbacks --------------------------------------------------

TEST(SevenBit, CaseMapsOnlyAsciiAndClassesAnswerAsTheLocaleDoes) {
  Level quiet(nlsui_init_trace_level, 0);
  for (int32_t c = 0; c <= 0xFFFF; ++c) {
    ASSERT_EQ(toupperU_7bit(c), c >= 'a' && c <= 'z' ? c - 0x20 : c) << c;
    ASSERT_EQ(tolowerU_7bit(c), c >= 'A' && c <= 'Z' ? c + 0x20 : c) << c;
  }
  const std::string saved = std::setlocale(LC_CTYPE, nullptr);
  const std::pair<NUV_CTYPE_FUNC, int (*)(wint_t)> pairs[] = {
      {isalnumU_7bit, iswalnum}, {isalphaU_7bit, iswalpha}, {iscntrlU_7bit, iswcntrl}, {islowerU_7bit, iswlower},
      {isprintU_7bit, iswprint}, {isspaceU_7bit, iswspace}, {isupperU_7bit, iswupper}};
  for (const char* loc : {"C", "C.UTF-8"}) {
    if (!std::setlocale(LC_CTYPE, loc)) continue;
    for (int32_t c = 0; c <= 0xFFFF; ++c)
      for (std::size_t i = 0; i < std::size(pairs); ++i)
        ASSERT_EQ(pairs[i].first(c), pairs[i].second(static_cast<wint_t>(c)) != 0) << loc << " " << i << " " << c;
  }
  std::setlocale(LC_CTYPE, saved.c_str());
}

// The exact start-up framing: newline, text (padded to column 79 from level 4
// on), then " [flat/nlsui0 line] pid = n".
std::string framed(std::string t, int line, int level) {
  if (level >= 4 && t.size() < 79) t.append(79 - t.size(), ' ');
  return "\n" + t + " [flat/nlsui0 " + std::to_string(line) + "] pid = " + std::to_string(getpid()) + "\n";
}

TEST(SevenBit, NonAsciiUnitWritesTwoLinesAtEachLevel) {
  const struct { NUV_CTYPE_FUNC f; const char* entry; int line; } rows[] = {
      {isalnumU_7bit, "isalnumU", 2460}, {isalphaU_7bit, "isalphaU", 2461}, {iscntrlU_7bit, "iscntrlU", 2462},
      {islowerU_7bit, "islowerU", 2463}, {isprintU_7bit, "isprintU", 2464}, {isspaceU_7bit, "isspaceU", 2465},
      {isupperU_7bit, "isupperU", 2466}, {tolowerU_7bit, "tolowerU", 2467}, {toupperU_7bit, "toupperU", 2468}};
  for (const auto& r : rows) {
    for (int32_t c : {0x00E9, 0x0100, 0x3042, 0xFFFF})
      for (int level : {1, 4, 16}) {
        Level l(nlsui_init_trace_level, level);
        char first[128];
        std::snprintf(first, sizeof first, "ERROR: Non 7-bit character U+%04X encountered in function %s\n",
                      static_cast<unsigned>(c), r.entry);
        EXPECT_EQ(nuvtest::stderr_of([&] { r.f(c); }),
                  framed(first, r.line, level) + framed("This is not supported in 7-bit mode.\n", r.line, level));
      }
    Level none(nlsui_init_trace_level, 0);
    EXPECT_EQ(nuvtest::stderr_of([&] { r.f(0x00E9); }), "") << "level none";
    nlsui_init_trace_level = 16;
    EXPECT_EQ(nuvtest::stderr_of([&] {
                for (int32_t c = 0; c < 0x80; ++c) r.f(c);
                r.f(0x10000);  // none of the bits 0xFF80
              }), "") << "ASCII";
  }
}

TEST(SevenBitDeathTest, NoFallbackWantedEndsWithStatus255) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  unsetenv("NLSUI_7BIT_FALLBACK");
  for (int level : {16, 1})
    EXPECT_EXIT((nlsui_init_trace_level = level, icu7bitFallbackOrExit(0)), ::testing::ExitedWithCode(255),
                level == 1 ? "^$" : "Terminating.\n   You may set the environment variable NLSUI_7BIT_FALLBACK to run "
                "the program\n   without the ICU libraries in an emergency mode. +\\[flat/nlsui0 1283\\]");
}

// ---- fresh processes --------------------------------------------------------

// The start-up lines of a run's standard error, each as its text (padding to
// column 79 removed) and " [line]"; anything else is kept in `rest`.
std::vector<std::string> startup_lines(const std::string& err, int level, std::string& rest) {
  static const std::regex one(R"(\n([\s\S]*?) \[flat/nlsui0 (\d+)\] pid = \d+\n)");
  std::vector<std::string> lines;
  std::size_t pos = 0;
  rest.clear();
  for (std::sregex_iterator it(err.begin(), err.end(), one), end; it != end; ++it) {
    rest += err.substr(pos, it->position() - pos);
    pos = it->position() + it->length();
    std::string t = (*it)[1];
    if (level >= 4) {
      EXPECT_GE(t.size(), 79u) << "not padded: " << t;
      while (!t.empty() && t.back() == ' ') t.pop_back();  // a text's own last space goes too
    }
    lines.push_back(t + " [" + (*it)[2].str() + "]");
  }
  rest += err.substr(pos);
  rest = std::regex_replace(rest, std::regex("libgcov profiling error:.*\n"), "");  // a rebuilt coverage tree
  return lines;
}

// A wanted line: the whole text, the text and its source line ("... [1283]"),
// or a prefix ending in '*'.
bool matches(const std::string& line, const std::string& want) {
  if (!want.empty() && want.back() == '*') return line.rfind(want.substr(0, want.size() - 1), 0) == 0;
  return line == want || (line.rfind(want + " [", 0) == 0 && want.back() != ']');
}

struct ProbeCase {
  bool noicu;
  std::string env, args;
  int status;
  const char* out;                 // null: not checked
  std::vector<std::string> lines;  // in this order, among others unless `exact`
  bool exact = false;
  std::vector<std::string> absent = {};
  std::string rest = "";  // text that other standard error output contains
  int pointer_lines = -1, repeat = 1;
};

TEST(LoaderProcess, StartUpTracesOutputsAndStatus) {
  // Files under the looked-for names that are really this machine's ICU:
  // they open, but carry no symbols with the looked-for suffix.
  nuvtest::ScratchDir scratch;
  const std::string real = scratch.path, fake = NUV_FAKE_ICU_DIR;
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&u_versionToString), &info), 0);
  const std::string libdir = std::string(info.dli_fname).substr(0, std::string(info.dli_fname).rfind('/'));
  for (const char* part : {"uc", "data"})
    ASSERT_EQ(symlink((libdir + "/libicu" + part + ".so." + kV).c_str(),
                      (real + "/libicu" + part + ".so.9999").c_str()), 0);
  const std::string fp = "Function pointer for ", icu = std::string(U_ICU_VERSION), uni = U_UNICODE_VERSION;
  const std::string high = "NLSUI_INIT_TRACE_LEVEL=high ", fb = "NLSUI_7BIT_FALLBACK=1 ",
                    not7 = "This is not supported in 7-bit mode.\n", nondir = "LD_LIBRARY_PATH=/nonexistent-dir";
  auto non7 = [](const char* u, const char* f) { return std::string("ERROR: Non 7-bit character U+") + u +
                                                 " encountered in function " + f + "\n"; };
  const std::vector<std::string> noicu_default = {
      "Could not open the ICU common library.\n   The following files must be in the path described by\n"
      "   the environment variable \"LD_LIBRARY_PATH\":\n   libicuuc.so.9999, libicudata.so.9999, libicui18n.so.9999",
      "LD_LIBRARY_PATH is currently set to *",
      "Set the environment variable NLSUI_INIT_TRACE_LEVEL to 'high' to see more details.",
      "See the installation notes of libnuvucum for the ICU *"};
  const std::string terminating = "Terminating.\n   You may set the environment variable NLSUI_7BIT_FALLBACK to run "
                                  "the program\n   without the ICU libraries in an emergency mode. [1283]";
  char fallback_out[160];
  std::snprintf(fallback_out, sizeof fallback_out,
                "isalpha(e9)=%x\ntoupper(61)=41\ntoupper(e9)=e9\nisxdigit(46)=1\nuc=0 i18n=0 called=0\n",
                iswalpha(0xE9) ? 1u : 0u);  // the probe runs in the "C" locale too
  const std::string islower_aa = "isspace(3000)=1\nislower(aa)=" + std::to_string(u_islower(0xAA) ? 1 : 0) + "\n";
  const ProbeCase cases[] = {
      // Bound to the machine's ICU: the whole load in order at the high level.
      {false, high + nondir, "isalpha:e9 state", 0, "isalpha(e9)=1\nuc=1 i18n=1 called=1\n",
       {"NLSUI_INIT_TRACE_LEVEL set to 'high'", "loadIcuDo() is called",
        "Program is compiled with ICU version " + kV + ".1",
        "Required ICU library files: libicuuc.so." + kV + " libicudata.so." + kV + " libicui18n.so." + kV,
        "Searching for libicuuc in environment path LD_LIBRARY_PATH", "LD_LIBRARY_PATH is set to /nonexistent-dir",
        "Library handle for libicuuc.so." + kV + ": 0x*", "Loaded ICU common lib: libicuuc.so." + kV,
        fp + "u_versionToString_" + kV + ": 0x*", fp + "u_strToUpper_" + kV + ": 0x*",
        fp + "u_isalnum_" + kV + ": 0x*", fp + "u_tolower_" + kV + ": 0x*", fp + "ubidi_open_" + kV + ": 0x*",
        fp + "u_charMirror_" + kV + ": 0x*", fp + "u_shapeArabic_" + kV + ": 0x*",
        fp + "unorm_normalize_" + kV + ": 0x*", fp + "ubrk_open_" + kV + ": 0x*",
        fp + "uloc_getDefault_" + kV + ": 0x*", fp + "uidna_toASCII_" + kV + ": 0x*",
        fp + "uidna_compare_" + kV + ": 0x*", "Compiled with ICU version " + kV + ".1",
        "Running with ICU version " + icu, "ICU uses Unicode version " + uni,
        "Searching for libicui18n in environment path LD_LIBRARY_PATH",
        "Loaded ICU i18n lib: libicui18n.so." + kV + " from environment path", fp + "ucol_open_" + kV + ": 0x*",
        fp + "ucol_getLocaleByType_" + kV + ": 0x*", fp + "utrans_openU_" + kV + ": 0x*",
        fp + "ucal_getAvailable_" + kV + ": 0x*", fp + "ucal_setMillis_" + kV + ": 0x*"},
       false, {}, "", 12 + 9 + 9 + 1 + 9 + 18 + 5 + 6 + 8 + 9},
      {false, "NLSUI_INIT_TRACE_LEVEL=medium", "toupper:101", 0, "toupper(101)=100\n",
       {"Loaded ICU common lib: libicuuc.so." + kV, "Compiled with ICU version " + kV + ".1",
        "Running with ICU version " + icu, "ICU uses Unicode version " + uni,
        "Loaded ICU i18n lib: libicui18n.so." + kV + " from environment path"}, true},
      {false, "", "isspace:3000 islower:aa", 0, islower_aa.c_str(), {}, true},
      {false, "NLSUI_TRACE_LEVEL=high", "isalpha:41", 0, "isalpha(41)=1\n", {}, true, {},
       "U16 trace level set to high\n--- Unicode interface ------ End of message ------"},
      {false, high, "isxdigit:66 isxdigit:67 state", 0, "isxdigit(66)=1\nisxdigit(67)=0\nuc=0 i18n=0 called=0\n",
       {}, true},
      {false, high, "7bit toupper:e9 toupper:62 state", 0, "toupper(e9)=e9\ntoupper(62)=42\nuc=0 i18n=0 called=0\n",
       {"NLSUI_INIT_TRACE_LEVEL set to 'high'", "nlsui_set7bitUnicode() is called", "loadIcuDo() is called",
        "Unicode ctype functions are replaced with 7bit fallback functions", non7("00E9", "toupperU") + " [2468]",
        not7}, true},
      {false, "", "fallback load:0 state toupper:61", 0, "useFallBackCtype=0\nloadIcu=0\nuc=0 i18n=1 called=0\ntoupper(61)=41\n",
       {}, true},
      {false, "", "race state", 0, "1 1 1 1 1 1 1 c9 \nuc=1 i18n=1 called=1\n", {}, true, {}, "", -1, 10},
      // Built for an ICU version that is not installed.
      {true, "LD_LIBRARY_PATH=/opt/x", "isalpha:41", 255, "",
       {noicu_default[0], "LD_LIBRARY_PATH is currently set to /opt/x ", noicu_default[2], noicu_default[3]}, true},
      {true, high, "toupper:61", 255, nullptr,
       {"Program is compiled with ICU version 9999.1", "Could not open ICU shared library libicuuc.so.9999",
        "Error message: \"libicuuc.so.9999*", terminating}},
      {true, "NLSUI_7BIT_FALLBACK=", "isalpha:e9 toupper:61 toupper:e9 isxdigit:46 state", 0, fallback_out,
       {noicu_default[0], noicu_default[1], noicu_default[2], noicu_default[3],
        "Environment variable NLSUI_7BIT_FALLBACK is set. [1287]", "ICU shared libraries are not loaded",
        non7("00E9", "isalphaU") + " [2461]", not7, non7("00E9", "toupperU"), not7}, true},
      {true, fb + high, "isalpha:41", 0, nullptr,
       {"Environment variable NLSUI_7BIT_FALLBACK is set.",
        "Unicode ctype functions are replaced with 7bit fallback functions [2401]",
        "ICU shared libraries are not loaded"}, false, {"Terminating.*"}},
      {true, fb + "NLSUI_INIT_TRACE_LEVEL=none", "isalpha:e9 toupper:e9", 0, nullptr, {}, true},
      {true, "", "fallback load:0 state toupper:41", 0, "useFallBackCtype=0\nloadIcu=0\nuc=0 i18n=0 called=0\ntoupper(41)=41\n",
       {"Could not open the ICU i18n library"}, true},
      // Only the low 8 bits of the argument count.
      {true, "", "load:257 toupper:7a", 0, "loadIcu=1\ntoupper(7a)=5a\n", {"ICU shared libraries are not loaded"},
       false, {"Environment variable*"}},
      {true, "", "load:256", 255, nullptr, {}},
      // An additional directory whose libraries open but do not bind.
      {true, high, "search:" + real + " isalpha:41", 255, nullptr,
       {"Searching for libicuuc in additional path " + real, "Loaded ICU data lib: " + real + "/libicudata.so.9999",
        "Loaded ICU common lib: " + real + "/libicuuc.so.9999", "dlsym u_versionToString_9999 failed with error: *"},
       false, {fp + "*"}},
      {true, fb, "search:" + real + " isalpha:41", 0, nullptr,
       {"dlsym u_versionToString_9999 failed with error: *", "Environment variable NLSUI_7BIT_FALLBACK is set.",
        "ICU shared libraries are not loaded"}, true},
      // Stand-in libraries of that version: the common library binds, the
      // i18n library lacks the transliteration symbols.
      {true, "NLSUI_INIT_TRACE_LEVEL=medium LD_LIBRARY_PATH=" + fake, "isalpha:41 isalpha:e9 toupper:101 state", 0,
       "isalpha(41)=1\nisalpha(e9)=0\ntoupper(101)=100\nuc=1 i18n=0 called=1\n",
       {"Loaded ICU common lib: libicuuc.so.9999", "Compiled with ICU version 9999.1", "Running with ICU version 99.1",
        "ICU uses Unicode version 3.1", "Loaded ICU i18n lib: libicui18n.so.9999 from environment path",
        "dlsym utrans_openU_9999 failed with error: *", "symbol load \"utrans_openU_9999\" failed",
        "libicui18n.so.9999 is closed again"}, true},
      {true, high, "search:" + fake + " toupper:62 state", 0, "toupper(62)=42\nuc=1 i18n=0 called=1\n",
       {"Could not open ICU shared library libicuuc.so.9999", "Searching for libicuuc in additional path " + fake,
        "Library handle for " + fake + "/libicudata.so.9999: 0x*", "Loaded ICU data lib: " + fake + "/libicudata.so.9999",
        "Library handle for " + fake + "/libicuuc.so.9999: 0x*", "Loaded ICU common lib: " + fake + "/libicuuc.so.9999",
        fp + "u_versionToString_9999: 0x*", fp + "uidna_compare_9999: 0x*", "Running with ICU version 99.1",
        "Searching for libicui18n in environment path LD_LIBRARY_PATH",
        "Could not open ICU shared library libicui18n.so.9999", "Searching for libicui18n in additional path " + fake,
        "Loaded ICU I18n lib: " + fake + "/libicui18n.so.9999", fp + "ucol_getLocaleByType_9999: 0x*",
        "symbol load \"utrans_openU_9999\" failed", "libicui18n.so.9999 is closed again"},
       false, {"Could not open the ICU common library.*"}},
      {true, "NUV_FAKE_ICU_BROKEN=1 LD_LIBRARY_PATH=" + fake, "isalpha:41", 255, nullptr,
       {"ICU data shared lib does not behave correctly. [1804]"}, true},
      // With the fallback allowed the process goes on and lets the common library go.
      {true, "NUV_FAKE_ICU_BROKEN=1 " + fb + "LD_LIBRARY_PATH=" + fake, "toupper:101 state", 0,
       "toupper(101)=101\nuc=0 i18n=0 called=0\n",
       {"ICU data shared lib does not behave correctly.", "Environment variable NLSUI_7BIT_FALLBACK is set.",
        "ICU shared libraries are not loaded", non7("0101", "toupperU"), not7}, true},
  };
  for (const ProbeCase& c : cases)
    for (int round = 0; round < c.repeat; ++round) {
      const std::string what = std::string(c.noicu ? "(no ICU) " : "") + c.env + " / " + c.args;
      const auto r = nuvtest::run_command(
          "env -u NLSUI_7BIT_FALLBACK -u NLSUI_INIT_TRACE_LEVEL -u NLSUI_TRACE_LEVEL ASAN_OPTIONS=detect_leaks=0 " +
              c.env + " '" + (c.noicu ? NUV_CTYPE_PROBE_NOICU : NUV_CTYPE_PROBE) + "' " + c.args, true);
      EXPECT_EQ(r.exit, c.status) << what << "\n" << r.err;
      if (c.out) EXPECT_EQ(r.out, c.out) << what;
      std::string rest;
      const int level = c.env.find("=high") != std::string::npos ? 16 : c.env.find("=medium") != std::string::npos ? 4 : 1;
      const auto lines = startup_lines(r.err, level, rest);
      if (c.rest.empty()) EXPECT_EQ(rest, "") << what;
      else EXPECT_NE(rest.find(c.rest), std::string::npos) << what << "\n" << rest;
      std::size_t at = 0;
      for (const std::string& want : c.lines) {
        while (at < lines.size() && !matches(lines[at], want)) ++at;
        EXPECT_LT(at++, lines.size()) << what << ": missing or out of order: " << want << "\n" << r.err;
      }
      if (c.exact) EXPECT_EQ(lines.size(), c.lines.size()) << what << "\n" << r.err;
      for (const std::string& no : c.absent)
        for (const std::string& l : lines) EXPECT_FALSE(matches(l, no)) << what << ": " << l;
      if (c.pointer_lines >= 0)
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) { return matches(l, fp + "*"); }),
                  c.pointer_lines);
    }
}

// ---- the helpers of the loader ---------------------------------------------

TEST(LoaderHelpers, PathsAndSymbols) {
  char out[nuv::kMaxPathLn];
  EXPECT_EQ(nlsui_build_full_path("/usr/lib", "libx.so", out), 0);
  EXPECT_STREQ(out, "/usr/lib/libx.so");
  const std::string dir(4000, 'd'), file(95, 'f');
  EXPECT_EQ(nlsui_build_full_path(dir.c_str(), file.c_str(), out), 0);  // 4096 + terminator
  EXPECT_EQ(std::strlen(out), 4096u);
  Level l(nlsui_init_trace_level, 1);
  // The start-up line itself is cut at its buffer; the start shows which path.
  EXPECT_EQ(nuvtest::stderr_of([&] { EXPECT_EQ(nlsui_build_full_path(dir.c_str(), (file + "f").c_str(), out), -1); })
                .rfind("\nPath " + dir.substr(0, 500), 0), 0u);
  EXPECT_STREQ(out, "");
  // The search path is copied and cut.
  std::string d = "/some/dir";
  const char* kept = nlsui_addIcuSearchPath(d.c_str());
  d[1] = 'X';
  EXPECT_STREQ(kept, "/some/dir");
  EXPECT_EQ(std::strlen(nlsui_addIcuSearchPath(std::string(5000, 'p').c_str())), 4097u);
  nlsui_addIcuSearchPath("");
  // A missing symbol is reported.
  void* self = dlopen(nullptr, RTLD_NOW);
  const std::string err = nuvtest::stderr_of([&] { EXPECT_EQ(nlsui_dlsym(self, "no_such_symbol_here"), nullptr); });
  EXPECT_NE(err.find("\ndlsym no_such_symbol_here failed with error: "), std::string::npos) << err;
  EXPECT_NE(err.find("[flat/nlsui0 "), std::string::npos);
}

}  // namespace
