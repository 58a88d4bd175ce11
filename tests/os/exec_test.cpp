// The exec family, system, popen and rexec.  The exec forms start this test
// program again as a helper that writes back the argv and environment bytes
// it received.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "nuvu16.h"
#include "os/libc_record.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

// glibc hands constructors argc, argv and envp.
__attribute__((constructor)) static void exec_helper(int, char** argv, char** envp) { nuvtest::helper_main_if_asked(argv, envp); }

namespace {

using nuvtest::array_of;
using nuvtest::utf16;
using Strings = std::vector<std::string>;
constexpr const NUV_UTF16* kEnd = nullptr;

class Exec : public testing::Test {
 protected:
  void SetUp() override { setenv(nuvtest::kHelperOutVar, out.c_str(), 1); }
  void TearDown() override { unsetenv(nuvtest::kHelperOutVar); }
  // Runs start in a child that must become the helper; returns its report.
  nuvtest::HelperReport helper(const std::function<void()>& start) {
    EXPECT_EQ(nuvtest::run_in_child([&] { start(), _exit(100); }), 0);
    return nuvtest::read_helper_report(out);
  }
  nuvtest::ScratchDir dir;
  std::string out = dir / "report";
  std::u16string exe = utf16(nuvtest::self_exe());
};

std::vector<std::u16string> numbered(std::size_t n) {
  std::vector<std::u16string> args;
  for (std::size_t i = 0; i < n; ++i) args.push_back(utf16("ärg-" + std::to_string(i) + "-\xF0\x9F\x98\x80"));
  return args;
}
Strings narrowed(std::size_t n) {
  Strings s;
  for (std::size_t i = 0; i < n; ++i) s.push_back("ärg-" + std::to_string(i) + "-\xED\xA0\xBD\xED\xB8\x80");
  return s;
}
template <std::size_t... I>
int execl_with(const std::u16string& path, const std::vector<std::u16string>& a, std::index_sequence<I...>) {
  return execlU16(path.c_str(), a[I].c_str()..., kEnd);
}

TEST_F(Exec, ListFormTakes63ArgumentsVectorForm200) {
  const auto a63 = numbered(63), a200 = numbered(200);
  EXPECT_EQ(helper([&] { execl_with(exe, a63, std::make_index_sequence<63>()); }).argv, narrowed(63));
  EXPECT_EQ(helper([&] { execvU16(exe.c_str(), array_of(a200).data()); }).argv, narrowed(200));
}

TEST_F(Exec, ListFormWith64ArgumentsReportsAndReturns) {
  const auto args = numbered(64);
  EXPECT_EQ(nuvtest::run_in_child([&] {
              nuvtest::RecordingTrace trace(U16_TRACE_LOW);
              const int r = execl_with(exe, args, std::make_index_sequence<64>());
              _exit(r == -1 && trace.lines.size() == 1 && trace.lines[0].find("[flat/nlsui6 line 124]") != std::string::npos &&
                            nuvtest::after_header(trace.lines[0]) ==
                                "Function execlU16 :\nArray args length MAX_PARAM_NUMBER is too small.\n" + nuvtest::kEndLine
                        ? 0 : 1);
            }),
            0);
}

TEST_F(Exec, EnvironmentAndPathSearchingForms) {
  const std::vector<std::u16string> entries = {utf16("GRÜSSE=日本"), utf16(std::string(nuvtest::kHelperOutVar) + "=" + out)};
  const auto envp = array_of(entries);
  const Strings env = {"GRÜSSE=日本", std::string(nuvtest::kHelperOutVar) + "=" + out};
  auto r = helper([&] { execveU16(exe.c_str(), array_of({u"helper"}).data(), envp.data()); });
  EXPECT_EQ(r.argv, Strings{"helper"});
  EXPECT_EQ(r.env, env);
  r = helper([&] { execleU16(exe.c_str(), u"helper", u"x", kEnd, envp.data()); });
  EXPECT_EQ(r.argv, (Strings{"helper", "x"}));
  EXPECT_EQ(r.env, env);
  const std::string self = nuvtest::self_exe();
  const std::u16string name = utf16(self.substr(self.rfind('/') + 1));
  setenv("NUVT_SELF_DIR", self.substr(0, self.rfind('/')).c_str(), 1);
  const auto in_path = [](const std::function<void()>& f) { return [f] { setenv("PATH", getenv("NUVT_SELF_DIR"), 1), f(); }; };
  EXPECT_EQ(helper(in_path([&] { execvpU16(name.c_str(), array_of({u"p\u00E4"}).data()); })).argv, Strings{"pä"});
  EXPECT_EQ(helper(in_path([&] { execlpU16(name.c_str(), u"q", kEnd); })).argv, Strings{"q"});
  unsetenv("NUVT_SELF_DIR");
}

TEST_F(Exec, NullsSystemAndPopen) {
  EXPECT_EQ(execlU16(u"/bin/true", kEnd), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(execlU16(nullptr, u"a", kEnd), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(execvU16(nullptr, array_of({u"a"}).data()), -1);  // reaches execv, which refuses the null path
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(systemU16(utf16("echo 'grüße' > '" + dir / "ß'").c_str()), 0);
  FILE* f = popenU16(utf16("cat '" + dir / "ß'").c_str(), u"r");
  char buf[32] = {};
  EXPECT_NE(fgets(buf, sizeof buf, f), nullptr);
  EXPECT_EQ(pclose(f), 0);
  EXPECT_STREQ(buf, "grüße\n");
  EXPECT_NE(systemU16(nullptr), 0);  // a shell is there
  EXPECT_EQ(popenU16(u"true", nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Commands, LongCommandAndTypeAreReportedAndPassedCut) {
  const std::string cmd = "true " + std::string(2095, 'a');  // 2100 bytes; the buffer keeps 2047
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  ostest::LibcRecorder rec;
  EXPECT_EQ(systemU16(utf16(cmd).c_str()), 0);
  if (FILE* f = popenU16(utf16(cmd).c_str(), (u"r" + std::u16string(70, u' ')).c_str())) pclose(f);  // libc refuses the type
  ASSERT_EQ(rec.calls.size(), 2u);
  EXPECT_EQ(rec.calls[0].args, ostest::Texts{cmd.substr(0, 2047)});
  EXPECT_EQ(rec.calls[1].args, (ostest::Texts{cmd.substr(0, 2047), "r" + std::string(62, ' ')}));
  const Strings want = {"[flat/nlsui1 line 1088]", "Array cstring length MAX_COMMAND_LN", "[flat/nlsui1 line 1121]",
                        "Array ccommand length MAX_COMMAND_LN", "[flat/nlsui1 line 1128]", "Array ctype length MAX_MODE_LN"};
  ASSERT_EQ(trace.lines.size(), 3u);
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_NE(trace.lines[i / 2].find(want[i]), std::string::npos) << want[i];
}

TEST(Commands, RexecConvertsInAndBackThroughAStandIn) {
  const struct {
    std::string official;
    bool official_null;
    int result;
    const char* report;  // or null
  } cases[] = {{"höst.example", false, 42, nullptr}, {"", true, 42, nullptr},
               {std::string(256, 'h'), false, -1, "Function rexecU16 :\nArray *ahost length MAX_HOSTNAME_LN is too small."},
               {"bad\xFF", false, -1, "rexecU16 encountered invalid UTF-8"}};
  for (const auto& c : cases) {
    ostest::RexecStandIn::official = c.official;
    ostest::RexecStandIn::official_null = c.official_null;
    NUV_UTF16 host[256] = u"s\u00E9rver";
    NUV_UTF16* ahost = host;
    nuvtest::RecordingTrace trace(U16_TRACE_LOW);
    ostest::LibcRecorder rec;
    EXPECT_EQ(rexecU16(&ahost, 512, u"\u00FCser", u"pw", u"ls \u00E4", nullptr), c.result);
    EXPECT_EQ(rec.calls.at(0).args, (ostest::Texts{"sérver", "üser", "pw", "ls ä"}));
    EXPECT_EQ(ahost, c.official_null ? nullptr : host);
    if (c.result == 42 && ahost) EXPECT_EQ(std::u16string(ahost), utf16(c.official));
    EXPECT_EQ(trace.lines.empty() ? "" : nuvtest::after_header(trace.lines[0]).substr(0, std::strlen(c.report ? c.report : "")),
              c.report ? c.report : "");
  }
  ostest::RexecStandIn::official_null = false;
}

}  // namespace
