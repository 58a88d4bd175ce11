// The nine class/case entries: bound to the machine's ICU and compared with
// ICU called directly; the 7-bit fallbacks and their reports; the loader's
// start-up trace and its failure paths in fresh processes (one of them built
// for an ICU version that is not installed).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
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
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "ctype/icu_loader.h"
#include "nuvu16.h"

namespace {

const std::string kV = NUV_ICU_STR(NUV_ICU_VERSION);

// Restores the start-up level a test changes.
struct InitLevel {
  int32_t saved = nlsui_init_trace_level;
  explicit InitLevel(int32_t level) { nlsui_init_trace_level = level; }
  ~InitLevel() { nlsui_init_trace_level = saved; }
};

// Makes sure ICU is bound in this process (the first call of any entry does it).
void bind_icu() {
  InitLevel quiet(0);
  (void)isalphaU('A');
  useICUCtype();
}

// ---- bound to the machine's ICU -------------------------------------------

TEST(IcuEntries, FirstCallBindsIcuAndEveryPointerIsIcus) {
  bind_icu();
  ASSERT_NE(libicuucHandle, nullptr);
  EXPECT_EQ(libicuucInitCalled, 1);
  // Class tests go through the widening of ICU's 8-bit answer; the case
  // functions are ICU's own.
  EXPECT_EQ(isalnumU, u_isalnum_widened);
  EXPECT_EQ(isalphaU, u_isalpha_widened);
  EXPECT_EQ(iscntrlU, u_iscntrl_widened);
  EXPECT_EQ(islowerU, u_islower_widened);
  EXPECT_EQ(isprintU, u_isprint_widened);
  EXPECT_EQ(isspaceU, u_isspace_widened);
  EXPECT_EQ(isupperU, u_isupper_widened);
  EXPECT_EQ(reinterpret_cast<void*>(tolowerU), dlsym(libicuucHandle, ("u_tolower_" + kV).c_str()));
  EXPECT_EQ(reinterpret_cast<void*>(toupperU), dlsym(libicuucHandle, ("u_toupper_" + kV).c_str()));
  const struct {
    void* bound;
    const char* symbol;
  } rows[] = {{reinterpret_cast<void*>(nuv::icu::ctype.u_isalnum), "u_isalnum"},
              {reinterpret_cast<void*>(nuv::icu::ctype.u_isspace), "u_isspace"},
              {reinterpret_cast<void*>(nuv::icu::ctype.u_isupper), "u_isupper"}};
  for (auto& r : rows) {
    const std::string sym = std::string(r.symbol) + "_" + kV;
    EXPECT_EQ(r.bound, dlsym(libicuucHandle, sym.c_str())) << sym;
  }
}

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
      if (got[i] != want[i]) {
        ++wrong;
        ADD_FAILURE() << "entry " << i << " at U+" << std::hex << u << ": " << got[i] << " vs ICU " << want[i];
      }
  }
}

TEST(IcuEntries, EveryFamilyIsBoundAndWorks) {
  bind_icu();
  auto all_bound = [](const auto& table) {
    const void* const* slots = reinterpret_cast<const void* const*>(&table);
    for (std::size_t i = 0; i < sizeof table / sizeof(void*); ++i)
      if (!slots[i]) return false;
    return true;
  };
  namespace icu = nuv::icu;
  auto& util = icu::util;
  auto& bidi = icu::bidi;
  auto& ucol = icu::ucol;
  auto& ubrk = icu::ubrk;
  auto& ucal = icu::ucal;
  EXPECT_TRUE(all_bound(util));
  EXPECT_TRUE(all_bound(icu::ctype));
  EXPECT_TRUE(all_bound(bidi));
  EXPECT_TRUE(all_bound(icu::shaping));
  EXPECT_TRUE(all_bound(icu::unorm));
  EXPECT_TRUE(all_bound(ubrk));
  EXPECT_TRUE(all_bound(icu::uidna));
  EXPECT_NE(libicui18nHandle, nullptr);
  EXPECT_TRUE(all_bound(ucol));
  EXPECT_TRUE(all_bound(icu::utrans));
  EXPECT_TRUE(all_bound(ucal));
  EXPECT_EQ(IcuShaping, 1);

  // A few calls through the tables, each against ICU called directly.
  char16_t up[16] = {};
  int err = 0;
  EXPECT_EQ(util.u_strToUpper(up, 16, u"stra\u00dfe", -1, "", &err), 7);
  EXPECT_EQ(std::u16string(up), u"STRASSE");
  UVersionInfo v;
  u_getVersion(v);
  char direct[U_MAX_VERSION_STRING_LENGTH], bound[U_MAX_VERSION_STRING_LENGTH];
  u_versionToString(v, direct);
  util.u_getVersion(v);
  util.u_versionToString(v, bound);
  EXPECT_STREQ(direct, bound);
  EXPECT_EQ(bidi.u_charMirror('('), u_charMirror('('));

  err = 0;
  auto* c = ucol.ucol_open("en", &err);
  ASSERT_NE(c, nullptr);
  EXPECT_LT(ucol.ucol_strcoll(c, u"apple", -1, u"Banana", -1), 0);
  ucol.ucol_close(c);

  err = 0;
  auto* bi = ubrk.ubrk_open(UBRK_WORD, "en", u"two words", 9, &err);
  ASSERT_NE(bi, nullptr);
  EXPECT_EQ(ubrk.ubrk_first(bi), 0);
  EXPECT_EQ(ubrk.ubrk_next(bi), 3);
  ubrk.ubrk_close(bi);

  err = 0;
  auto* cal = ucal.ucal_open(u"UTC", -1, "en", UCAL_GREGORIAN, &err);
  ASSERT_NE(cal, nullptr);
  ucal.ucal_setMillis(cal, 86400000.0 * 365, &err);
  EXPECT_EQ(ucal.ucal_get(cal, UCAL_YEAR, &err), 1971);
  ucal.ucal_close(cal);
}

TEST(IcuEntries, SwitchingToTheFallbackAndBack) {
  bind_icu();
  InitLevel quiet(0);
  EXPECT_EQ(useFallBackCtype(), 0);
  EXPECT_EQ(libicuucInitCall, 1);
  EXPECT_EQ(isalphaU, isalphaU_7bit);
  EXPECT_EQ(toupperU, toupperU_7bit);
  EXPECT_EQ(toupperU(0x00E9), 0x00E9);
  EXPECT_EQ(useICUCtype(), 0);
  EXPECT_EQ(libicuucInitCall, 0);
  EXPECT_EQ(toupperU(0x00E9), 0x00C9);
  EXPECT_EQ(isalphaU, u_isalpha_widened);
}

TEST(IcuEntries, IsxdigitIsPlainAscii) {
  for (int32_t c = -70000; c <= 0x20000; ++c) {
    const int32_t up = c & ~0x20;
    ASSERT_EQ(isxdigitU(c), (c >= '0' && c <= '9') || (up >= 'A' && up <= 'F')) << c;
  }
}

// ---- the 7-bit fallbacks --------------------------------------------------

TEST(SevenBit, CaseMapsOnlyAsciiLetters) {
  InitLevel quiet(0);
  for (int32_t c = 0; c <= 0xFFFF; ++c) {
    ASSERT_EQ(toupperU_7bit(c), c >= 'a' && c <= 'z' ? c - 0x20 : c) << c;
    ASSERT_EQ(tolowerU_7bit(c), c >= 'A' && c <= 'Z' ? c + 0x20 : c) << c;
  }
}

TEST(SevenBit, ClassesAnswerAsTheLocaleDoes) {
  InitLevel quiet(0);
  const std::string saved = std::setlocale(LC_CTYPE, nullptr);
  for (const char* loc : {"C", "C.UTF-8"}) {
    if (!std::setlocale(LC_CTYPE, loc)) continue;
    for (int32_t c = 0; c <= 0xFFFF; ++c) {
      const wint_t w = static_cast<wint_t>(c);
      ASSERT_EQ(isalnumU_7bit(c), iswalnum(w) != 0) << loc << " " << c;
      ASSERT_EQ(isalphaU_7bit(c), iswalpha(w) != 0) << loc << " " << c;
      ASSERT_EQ(iscntrlU_7bit(c), iswcntrl(w) != 0) << loc << " " << c;
      ASSERT_EQ(islowerU_7bit(c), iswlower(w) != 0) << loc << " " << c;
      ASSERT_EQ(isprintU_7bit(c), iswprint(w) != 0) << loc << " " << c;
      ASSERT_EQ(isspaceU_7bit(c), iswspace(w) != 0) << loc << " " << c;
      ASSERT_EQ(isupperU_7bit(c), iswupper(w) != 0) << loc << " " << c;
    }
  }
  std::setlocale(LC_CTYPE, saved.c_str());
}

struct FallbackRow {
  NUV_CTYPE_FUNC f;
  const char* entry;
  int line;
};

class SevenBitReport : public ::testing::TestWithParam<FallbackRow> {};

// The exact start-up framing: newline, text (padded to column 79 from level 4
// on), then " [flat/nlsui0 line] pid = n".
std::string framed(const std::string& text, int line, int level) {
  std::string t = text;
  if (level >= 4 && t.size() < 79) t.append(79 - t.size(), ' ');
  return "\n" + t + " [flat/nlsui0 " + std::to_string(line) + "] pid = " + std::to_string(getpid()) + "\n";
}

TEST_P(SevenBitReport, NonAsciiUnitWritesTwoLinesAtEachLevel) {
  const FallbackRow& r = GetParam();
  for (int level : {1, 4, 16}) {
    InitLevel l(level);
    testing::internal::CaptureStderr();
    r.f(0x00E9);
    const std::string got = testing::internal::GetCapturedStderr();
    char first[128];
    std::snprintf(first, sizeof first, "ERROR: Non 7-bit character U+00E9 encountered in function %s\n", r.entry);
    EXPECT_EQ(got, framed(first, r.line, level) + framed("This is not supported in 7-bit mode.\n", r.line, level));
  }
  for (int32_t c : {0x0100, 0x3042, 0xFFFF}) {
    InitLevel l(1);
    testing::internal::CaptureStderr();
    r.f(c);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("U+" + [&] {
      char h[8];
      std::snprintf(h, sizeof h, "%04X", static_cast<unsigned>(c));
      return std::string(h);
    }()), std::string::npos);
  }
  {
    InitLevel none(0);
    testing::internal::CaptureStderr();
    r.f(0x00E9);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "level none";
  }
  {
    InitLevel l(16);
    testing::internal::CaptureStderr();
    for (int32_t c = 0; c < 0x80; ++c) r.f(c);
    r.f(0x10000);  // none of the bits 0xFF80
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "ASCII";
  }
}

INSTANTIATE_TEST_SUITE_P(All, SevenBitReport,
                         ::testing::Values(FallbackRow{isalnumU_7bit, "isalnumU", 2460},
                                           FallbackRow{isalphaU_7bit, "isalphaU", 2461},
                                           FallbackRow{iscntrlU_7bit, "iscntrlU", 2462},
                                           FallbackRow{islowerU_7bit, "islowerU", 2463},
                                           FallbackRow{isprintU_7bit, "isprintU", 2464},
                                           FallbackRow{isspaceU_7bit, "isspaceU", 2465},
                                           FallbackRow{isupperU_7bit, "isupperU", 2466},
                                           FallbackRow{tolowerU_7bit, "tolowerU", 2467},
                                           FallbackRow{toupperU_7bit, "toupperU", 2468}));

TEST(SevenBitDeathTest, NoFallbackWantedEndsWithStatus255) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  unsetenv("NLSUI_7BIT_FALLBACK");
  EXPECT_EXIT(
      {
        nlsui_init_trace_level = 16;
        icu7bitFallbackOrExit(0);
      },
      ::testing::ExitedWithCode(255),
      "Terminating.\n   You may set the environment variable NLSUI_7BIT_FALLBACK to run the program\n"
      "   without the ICU libraries in an emergency mode. +\\[flat/nlsui0 1283\\]");
  EXPECT_EXIT(
      {
        nlsui_init_trace_level = 1;
        icu7bitFallbackOrExit(0);
      },
      ::testing::ExitedWithCode(255), "^$");
}

// ---- fresh processes --------------------------------------------------------

struct ProbeRun {
  int status = -1;
  std::string out, err;
};

ProbeRun run(const char* exe, const std::string& env, const std::string& args) {
  static int n = 0;
  const std::string errf = ::testing::TempDir() + "ctype_probe_" + std::to_string(getpid()) + "_" + std::to_string(n++);
  const std::string cmd = "env -u NLSUI_7BIT_FALLBACK -u NLSUI_INIT_TRACE_LEVEL -u NLSUI_TRACE_LEVEL "
                          "ASAN_OPTIONS=detect_leaks=0 " + env + " '" + exe + "' " + args + " 2>'" + errf + "'";
  ProbeRun r;
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  for (std::size_t k; (k = std::fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, k);
  const int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  std::ifstream in(errf);
  std::stringstream ss;
  ss << in.rdbuf();
  r.err = ss.str();
  std::remove(errf.c_str());
  return r;
}

struct Line {
  std::string text;
  int line;
};

// Splits the start-up trace into its lines; any other stderr text is kept
// in `rest`.  Padding to column 79 is removed from the texts.
std::vector<Line> startup_lines(const std::string& err, int level, std::string* rest = nullptr) {
  std::vector<Line> lines;
  static const std::regex one(R"(\n([\s\S]*?) \[flat/nlsui0 (\d+)\] pid = \d+\n)");
  std::string left;
  std::size_t pos = 0;
  for (std::sregex_iterator it(err.begin(), err.end(), one), end; it != end; ++it) {
    left += err.substr(pos, it->position() - pos);
    pos = it->position() + it->length();
    std::string t = (*it)[1];
    if (level >= 4) {
      EXPECT_GE(t.size(), 79u) << "not padded: " << t;
      while (!t.empty() && t.back() == ' ') t.pop_back();  // a text's own last space goes too
    }
    lines.push_back({t, std::stoi((*it)[2])});
  }
  left += err.substr(pos);
  if (rest) *rest = left;
  return lines;
}

bool has(const std::vector<Line>& lines, const std::string& text) {
  for (auto& l : lines)
    if (l.text == text) return true;
  return false;
}

// Index of the first line starting with prefix, or -1.
int find_prefix(const std::vector<Line>& lines, const std::string& prefix) {
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (lines[i].text.rfind(prefix, 0) == 0) return static_cast<int>(i);
  return -1;
}

TEST(LoaderProcess, HighLevelShowsTheWholeLoadInOrder) {
  ProbeRun r = run(NUV_CTYPE_PROBE, "NLSUI_INIT_TRACE_LEVEL=high LD_LIBRARY_PATH=/nonexistent-dir", "isalpha:e9 state");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "isalpha(e9)=1\nuc=1 i18n=1 called=1\n");
  std::string rest;
  auto lines = startup_lines(r.err, 16, &rest);
  EXPECT_EQ(rest, "");
  const std::vector<std::string> in_order = {
      "NLSUI_INIT_TRACE_LEVEL set to 'high'",
      "loadIcuDo() is called",
      "Program is compiled with ICU version " + kV + ".1",
      "Required ICU library files: libicuuc.so." + kV + " libicudata.so." + kV + " libicui18n.so." + kV,
      "Searching for libicuuc in environment path LD_LIBRARY_PATH",
      "LD_LIBRARY_PATH is set to /nonexistent-dir",
      "Library handle for libicuuc.so." + kV + ": 0x",
      "Loaded ICU common lib: libicuuc.so." + kV,
      "Function pointer for u_versionToString_" + kV + ": 0x",
      "Function pointer for u_strToUpper_" + kV + ": 0x",
      "Function pointer for u_isalnum_" + kV + ": 0x",
      "Function pointer for u_tolower_" + kV + ": 0x",
      "Function pointer for ubidi_open_" + kV + ": 0x",
      "Function pointer for u_charMirror_" + kV + ": 0x",
      "Function pointer for u_shapeArabic_" + kV + ": 0x",
      "Function pointer for unorm_normalize_" + kV + ": 0x",
      "Function pointer for ubrk_open_" + kV + ": 0x",
      "Function pointer for uloc_getDefault_" + kV + ": 0x",
      "Function pointer for uidna_toASCII_" + kV + ": 0x",
      "Function pointer for uidna_compare_" + kV + ": 0x",
      "Compiled with ICU version " + kV + ".1",
      "Running with ICU version " + std::string(U_ICU_VERSION),
      "ICU uses Unicode version " + std::string(U_UNICODE_VERSION),
      "Searching for libicui18n in environment path LD_LIBRARY_PATH",
      "Loaded ICU i18n lib: libicui18n.so." + kV + " from environment path",
      "Function pointer for ucol_open_" + kV + ": 0x",
      "Function pointer for ucol_getLocaleByType_" + kV + ": 0x",
      "Function pointer for utrans_openU_" + kV + ": 0x",
      "Function pointer for ucal_getAvailable_" + kV + ": 0x",
      "Function pointer for ucal_setMillis_" + kV + ": 0x",
  };
  int at = -1;
  for (auto& want : in_order) {
    int i = -1;
    for (std::size_t k = at + 1; k < lines.size(); ++k)
      if (lines[k].text.rfind(want, 0) == 0) {
        i = static_cast<int>(k);
        break;
      }
    ASSERT_GE(i, 0) << "missing or out of order: " << want << "\n" << r.err;
    at = i;
  }
  // Every symbol of every family, each once.
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const Line& l) { return l.text.rfind("Function pointer for ", 0) == 0; }),
            12 + 9 + 9 + 1 + 9 + 18 + 5 + 6 + 8 + 9);
}

TEST(LoaderProcess, MediumLevelShowsOnlyTheSummary) {
  ProbeRun r = run(NUV_CTYPE_PROBE, "NLSUI_INIT_TRACE_LEVEL=medium", "toupper:101");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "toupper(101)=100\n");
  auto lines = startup_lines(r.err, 4);
  std::vector<std::string> texts;
  for (auto& l : lines) texts.push_back(l.text);
  const std::vector<std::string> want = {"Loaded ICU common lib: libicuuc.so." + kV,
                                         "Compiled with ICU version " + kV + ".1",
                                         "Running with ICU version " + std::string(U_ICU_VERSION),
                                         "ICU uses Unicode version " + std::string(U_UNICODE_VERSION),
                                         "Loaded ICU i18n lib: libicui18n.so." + kV + " from environment path"};
  EXPECT_EQ(texts, want) << r.err;
}

TEST(LoaderProcess, DefaultLevelIsSilentAndTraceLevelIsAnnounced) {
  ProbeRun r = run(NUV_CTYPE_PROBE, "", "isspace:3000 islower:aa");
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "isspace(3000)=1\nislower(aa)=" + std::to_string(u_islower(0xAA) ? 1 : 0) + "\n");
  EXPECT_EQ(r.err, "");
  r = run(NUV_CTYPE_PROBE, "NLSUI_TRACE_LEVEL=high", "isalpha:41");
  ASSERT_EQ(r.status, 0);
  EXPECT_NE(r.err.find("U16 trace level set to high\n--- Unicode interface ------ End of message ------"),
            std::string::npos)
      << r.err;
}

TEST(LoaderProcess, IsxdigitBindsNothing) {
  ProbeRun r = run(NUV_CTYPE_PROBE, "NLSUI_INIT_TRACE_LEVEL=high", "isxdigit:66 isxdigit:67 state");
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "isxdigit(66)=1\nisxdigit(67)=0\nuc=0 i18n=0 called=0\n");
  EXPECT_EQ(r.err, "");
}

TEST(LoaderProcess, SevenBitModeLoadsNothing) {
  ProbeRun r = run(NUV_CTYPE_PROBE, "NLSUI_INIT_TRACE_LEVEL=high", "7bit toupper:e9 toupper:62 state");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "toupper(e9)=e9\ntoupper(62)=42\nuc=0 i18n=0 called=0\n");
  auto lines = startup_lines(r.err, 16);
  ASSERT_GE(lines.size(), 6u) << r.err;
  EXPECT_EQ(lines[0].text, "NLSUI_INIT_TRACE_LEVEL set to 'high'");
  EXPECT_EQ(lines[1].text, "nlsui_set7bitUnicode() is called");
  EXPECT_EQ(lines[2].text, "loadIcuDo() is called");
  EXPECT_EQ(lines[3].text, "Unicode ctype functions are replaced with 7bit fallback functions");
  EXPECT_EQ(lines[4].text, "ERROR: Non 7-bit character U+00E9 encountered in function toupperU\n");
  EXPECT_EQ(lines[4].line, 2468);
  EXPECT_EQ(find_prefix(lines, "Program is compiled"), -1);
}

TEST(LoaderProcess, ApplicationChoiceOfFallbackSkipsTheCommonLibrary) {
  ProbeRun r = run(NUV_CTYPE_PROBE, "", "fallback load:0 state toupper:61");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "useFallBackCtype=0\nloadIcu=0\nuc=0 i18n=1 called=0\ntoupper(61)=41\n");
}

TEST(LoaderProcess, FirstCallsFromManyThreadsAtOnce) {
  for (int round = 0; round < 10; ++round) {
    ProbeRun r = run(NUV_CTYPE_PROBE, "", "race state");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "1 1 1 1 1 1 1 c9 \nuc=1 i18n=1 called=1\n") << round;
  }
}

TEST(LoaderProcessNoIcu, EndsWithStatus255AndSaysWhy) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "LD_LIBRARY_PATH=/opt/x", "isalpha:41");
  EXPECT_EQ(r.status, 255);
  EXPECT_EQ(r.out, "");
  std::string rest;
  auto lines = startup_lines(r.err, 1, &rest);
  EXPECT_EQ(rest, "");
  std::vector<std::string> texts;
  for (auto& l : lines) texts.push_back(l.text);
  ASSERT_EQ(texts.size(), 4u) << r.err;
  EXPECT_EQ(texts[0],
            "Could not open the ICU common library.\n   The following files must be in the path described by\n"
            "   the environment variable \"LD_LIBRARY_PATH\":\n"
            "   libicuuc.so.9999, libicudata.so.9999, libicui18n.so.9999");
  EXPECT_EQ(texts[1], "LD_LIBRARY_PATH is currently set to /opt/x ");
  EXPECT_EQ(texts[2], "Set the environment variable NLSUI_INIT_TRACE_LEVEL to 'high' to see more details.");
  EXPECT_NE(texts[3].find("libnuvucum"), std::string::npos);
}

TEST(LoaderProcessNoIcu, HighLevelAddsTheDetailsAndTerminating) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_INIT_TRACE_LEVEL=high", "toupper:61");
  EXPECT_EQ(r.status, 255);
  auto lines = startup_lines(r.err, 16);
  ASSERT_FALSE(lines.empty()) << r.err;
  EXPECT_TRUE(has(lines, "Program is compiled with ICU version 9999.1"));
  EXPECT_TRUE(has(lines, "Could not open ICU shared library libicuuc.so.9999"));
  const int msg = find_prefix(lines, "Error message: \"");
  ASSERT_GE(msg, 0);
  EXPECT_NE(lines[msg].text.find("libicuuc.so.9999"), std::string::npos);
  EXPECT_EQ(lines.back().text,
            "Terminating.\n   You may set the environment variable NLSUI_7BIT_FALLBACK to run the program\n"
            "   without the ICU libraries in an emergency mode.");
  EXPECT_EQ(lines.back().line, 1283);
}

TEST(LoaderProcessNoIcu, FallbackVariableKeepsTheProcessInSevenBitMode) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_7BIT_FALLBACK=", "isalpha:e9 toupper:61 toupper:e9 isxdigit:46 state");
  EXPECT_EQ(r.status, 0) << r.err;
  char want[160];
  std::snprintf(want, sizeof want, "isalpha(e9)=%x\ntoupper(61)=41\ntoupper(e9)=e9\nisxdigit(46)=1\nuc=0 i18n=0 called=0\n",
                iswalpha(0xE9) ? 1u : 0u);  // the probe runs in the "C" locale too
  EXPECT_EQ(r.out, want);
  auto lines = startup_lines(r.err, 1);
  std::vector<std::string> texts;
  for (auto& l : lines) texts.push_back(l.text);
  ASSERT_EQ(texts.size(), 10u) << r.err;
  EXPECT_EQ(texts[4], "Environment variable NLSUI_7BIT_FALLBACK is set.");
  EXPECT_EQ(lines[4].line, 1287);
  EXPECT_EQ(texts[5], "ICU shared libraries are not loaded");
  EXPECT_EQ(texts[6], "ERROR: Non 7-bit character U+00E9 encountered in function isalphaU\n");
  EXPECT_EQ(lines[6].line, 2461);
  EXPECT_EQ(texts[7], "This is not supported in 7-bit mode.\n");
  EXPECT_EQ(texts[8], "ERROR: Non 7-bit character U+00E9 encountered in function toupperU\n");
  EXPECT_EQ(texts[9], "This is not supported in 7-bit mode.\n");

  r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_7BIT_FALLBACK=1 NLSUI_INIT_TRACE_LEVEL=high", "isalpha:41");
  EXPECT_EQ(r.status, 0);
  lines = startup_lines(r.err, 16);
  const int env = find_prefix(lines, "Environment variable NLSUI_7BIT_FALLBACK is set.");
  ASSERT_GE(env, 0) << r.err;
  ASSERT_LT(env + 2, static_cast<int>(lines.size()));
  EXPECT_EQ(lines[env + 1].text, "Unicode ctype functions are replaced with 7bit fallback functions");
  EXPECT_EQ(lines[env + 1].line, 2401);
  EXPECT_EQ(lines[env + 2].text, "ICU shared libraries are not loaded");
  EXPECT_EQ(find_prefix(lines, "Terminating."), -1);

  r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_7BIT_FALLBACK=1 NLSUI_INIT_TRACE_LEVEL=none", "isalpha:e9 toupper:e9");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
}

TEST(LoaderProcessNoIcu, ApplicationChoiceStillTriesTheI18nLibrary) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "", "fallback load:0 state toupper:41");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "useFallBackCtype=0\nloadIcu=0\nuc=0 i18n=0 called=0\ntoupper(41)=41\n");
  auto lines = startup_lines(r.err, 1);
  ASSERT_EQ(lines.size(), 1u) << r.err;
  EXPECT_EQ(lines[0].text, "Could not open the ICU i18n library");
}

TEST(LoaderProcessNoIcu, CallerAskingForTheFallbackNeedsNoVariable) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "", "load:257 toupper:7a");  // only the low 8 bits count
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "loadIcu=1\ntoupper(7a)=5a\n");
  auto lines = startup_lines(r.err, 1);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back().text, "ICU shared libraries are not loaded");
  EXPECT_EQ(find_prefix(lines, "Environment variable"), -1);

  r = run(NUV_CTYPE_PROBE_NOICU, "", "load:256");
  EXPECT_EQ(r.status, 255);
}

TEST(LoaderProcessNoIcu, AdditionalDirectoryIsSearchedAndBindingFailureEnds) {
  // Files under the looked-for names that are really this machine's ICU:
  // they open, but carry no symbols with the looked-for suffix.
  const std::string dir = ::testing::TempDir() + "icu9999_" + std::to_string(getpid());
  ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&u_versionToString), &info), 0);
  const std::string uc = info.dli_fname;
  const std::string libdir = uc.substr(0, uc.rfind('/'));
  ASSERT_EQ(symlink((libdir + "/libicuuc.so." + kV).c_str(), (dir + "/libicuuc.so.9999").c_str()), 0);
  ASSERT_EQ(symlink((libdir + "/libicudata.so." + kV).c_str(), (dir + "/libicudata.so.9999").c_str()), 0);

  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_INIT_TRACE_LEVEL=high", "search:" + dir + " isalpha:41");
  EXPECT_EQ(r.status, 255);
  auto lines = startup_lines(r.err, 16);
  EXPECT_TRUE(has(lines, "Searching for libicuuc in additional path " + dir)) << r.err;
  EXPECT_TRUE(has(lines, "Loaded ICU data lib: " + dir + "/libicudata.so.9999"));
  EXPECT_TRUE(has(lines, "Loaded ICU common lib: " + dir + "/libicuuc.so.9999"));
  const int fail = find_prefix(lines, "dlsym u_versionToString_9999 failed with error: ");
  EXPECT_GE(fail, 0) << r.err;
  EXPECT_EQ(find_prefix(lines, "Function pointer for "), -1);

  // The same at the default level: only the binding failure is shown.
  r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_7BIT_FALLBACK=1", "search:" + dir + " isalpha:41");
  EXPECT_EQ(r.status, 0);
  lines = startup_lines(r.err, 1);
  ASSERT_EQ(lines.size(), 3u) << r.err;
  EXPECT_EQ(lines[0].text.rfind("dlsym u_versionToString_9999 failed with error: ", 0), 0u);
  EXPECT_EQ(lines[1].text, "Environment variable NLSUI_7BIT_FALLBACK is set.");
  EXPECT_EQ(lines[2].text, "ICU shared libraries are not loaded");
  std::system(("rm -rf '" + dir + "'").c_str());
}

// Stand-in libraries of the missing version (tests/ctype/fakeicu): the common
// library binds, the i18n library lacks the transliteration symbols.
TEST(LoaderProcessFakeIcu, FoundThroughLdLibraryPathWithI18nBindingFailure) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_INIT_TRACE_LEVEL=medium LD_LIBRARY_PATH=" NUV_FAKE_ICU_DIR,
                   "isalpha:41 isalpha:e9 toupper:101 state");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "isalpha(41)=1\nisalpha(e9)=0\ntoupper(101)=100\nuc=1 i18n=0 called=1\n");
  auto lines = startup_lines(r.err, 4);
  std::vector<std::string> texts;
  for (auto& l : lines) texts.push_back(l.text);
  const std::vector<std::string> want = {"Loaded ICU common lib: libicuuc.so.9999",
                                         "Compiled with ICU version 9999.1",
                                         "Running with ICU version 99.1",
                                         "ICU uses Unicode version 3.1",
                                         "Loaded ICU i18n lib: libicui18n.so.9999 from environment path",
                                         "dlsym utrans_openU_9999 failed with error: ",
                                         "symbol load \"utrans_openU_9999\" failed",
                                         "libicui18n.so.9999 is closed again"};
  ASSERT_EQ(texts.size(), want.size()) << r.err;
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_EQ(texts[i].rfind(want[i], 0), 0u) << texts[i];
}

TEST(LoaderProcessFakeIcu, FoundInTheAdditionalDirectory) {
  const std::string dir = NUV_FAKE_ICU_DIR;
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "NLSUI_INIT_TRACE_LEVEL=high", "search:" + dir + " toupper:62 state");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "toupper(62)=42\nuc=1 i18n=0 called=1\n");
  auto lines = startup_lines(r.err, 16);
  const std::vector<std::string> in_order = {
      "Could not open ICU shared library libicuuc.so.9999",
      "Searching for libicuuc in additional path " + dir,
      "Library handle for " + dir + "/libicudata.so.9999: 0x",
      "Loaded ICU data lib: " + dir + "/libicudata.so.9999",
      "Library handle for " + dir + "/libicuuc.so.9999: 0x",
      "Loaded ICU common lib: " + dir + "/libicuuc.so.9999",
      "Function pointer for u_versionToString_9999: 0x",
      "Function pointer for uidna_compare_9999: 0x",
      "Running with ICU version 99.1",
      "Searching for libicui18n in environment path LD_LIBRARY_PATH",
      "Could not open ICU shared library libicui18n.so.9999",
      "Searching for libicui18n in additional path " + dir,
      "Loaded ICU I18n lib: " + dir + "/libicui18n.so.9999",
      "Function pointer for ucol_getLocaleByType_9999: 0x",
      "symbol load \"utrans_openU_9999\" failed",
      "libicui18n.so.9999 is closed again",
  };
  int at = -1;
  for (auto& want : in_order) {
    int i = -1;
    for (std::size_t k = at + 1; k < lines.size(); ++k)
      if (lines[k].text.rfind(want, 0) == 0) {
        i = static_cast<int>(k);
        break;
      }
    ASSERT_GE(i, 0) << "missing or out of order: " << want << "\n" << r.err;
    at = i;
  }
  EXPECT_EQ(find_prefix(lines, "Could not open the ICU common library."), -1);
}

TEST(LoaderProcessFakeIcu, BrokenDataLibraryIsRefused) {
  ProbeRun r = run(NUV_CTYPE_PROBE_NOICU, "NUV_FAKE_ICU_BROKEN=1 LD_LIBRARY_PATH=" NUV_FAKE_ICU_DIR, "isalpha:41");
  EXPECT_EQ(r.status, 255);
  auto lines = startup_lines(r.err, 1);
  ASSERT_EQ(lines.size(), 1u) << r.err;
  EXPECT_EQ(lines[0].text, "ICU data shared lib does not behave correctly.");
  EXPECT_EQ(lines[0].line, 1804);

  // With the fallback allowed the process goes on in 7-bit mode and lets the
  // common library go.
  r = run(NUV_CTYPE_PROBE_NOICU, "NUV_FAKE_ICU_BROKEN=1 NLSUI_7BIT_FALLBACK=1 LD_LIBRARY_PATH=" NUV_FAKE_ICU_DIR,
          "toupper:101 state");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "toupper(101)=101\nuc=0 i18n=0 called=0\n");
  lines = startup_lines(r.err, 1);
  std::vector<std::string> texts;
  for (auto& l : lines) texts.push_back(l.text);
  const std::vector<std::string> want = {"ICU data shared lib does not behave correctly.",
                                         "Environment variable NLSUI_7BIT_FALLBACK is set.",
                                         "ICU shared libraries are not loaded",
                                         "ERROR: Non 7-bit character U+0101 encountered in function toupperU\n",
                                         "This is not supported in 7-bit mode.\n"};
  EXPECT_EQ(texts, want) << r.err;
}

// ---- the helpers of the loader ---------------------------------------------

TEST(LoaderHelpers, FullPathIsJoinedOrRefused) {
  char out[nuv::kMaxPathLn];
  EXPECT_EQ(nlsui_build_full_path("/usr/lib", "libx.so", out), 0);
  EXPECT_STREQ(out, "/usr/lib/libx.so");
  const std::string dir(4000, 'd'), file(95, 'f');
  EXPECT_EQ(nlsui_build_full_path(dir.c_str(), file.c_str(), out), 0);  // 4096 + terminator
  EXPECT_EQ(std::strlen(out), 4096u);
  InitLevel l(1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(nlsui_build_full_path(dir.c_str(), (file + "f").c_str(), out), -1);
  EXPECT_STREQ(out, "");
  // The start-up line itself is cut at its buffer; the start shows which path.
  EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("\nPath " + dir.substr(0, 500), 0), 0u);
}

TEST(LoaderHelpers, SearchPathIsCopiedAndCut) {
  std::string d = "/some/dir";
  const char* kept = nlsui_addIcuSearchPath(d.c_str());
  d[1] = 'X';
  EXPECT_STREQ(kept, "/some/dir");
  const std::string longer(5000, 'p');
  EXPECT_EQ(std::strlen(nlsui_addIcuSearchPath(longer.c_str())), 4097u);
  nlsui_addIcuSearchPath("");
}

TEST(LoaderHelpers, DlsymReportsAMissingSymbol) {
  InitLevel l(1);
  void* self = dlopen(nullptr, RTLD_NOW);
  testing::internal::CaptureStderr();
  EXPECT_EQ(nlsui_dlsym(self, "no_such_symbol_here"), nullptr);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("\ndlsym no_such_symbol_here failed with error: "), std::string::npos) << err;
  EXPECT_NE(err.find("[flat/nlsui0 "), std::string::npos);
}

}  // namespace
