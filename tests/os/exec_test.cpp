// The exec family, system and popen, against a helper: this test program
// started again, writing back the argv and environment bytes it received.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <utility>
#include <vector>

#include "nuvu16.h"
#include "os/libc_record.h"
#include "support/child.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

// glibc hands constructors argc, argv and envp.
__attribute__((constructor)) static void exec_helper(int, char** argv, char** envp) {
  nuvtest::helper_main_if_asked(argv, envp);
}

namespace {

using nuvtest::utf16;

struct Helper {
  nuvtest::ScratchDir dir;
  std::string out = dir / "report";
  std::u16string exe = utf16(nuvtest::self_exe());
  std::u16string out_assignment = utf16(std::string(nuvtest::kHelperOutVar) + "=" + out);
};

// Runs start() in a child that must exec the helper; returns its report.
nuvtest::HelperReport run_helper(Helper& h, const std::function<int()>& start) {
  const int status = nuvtest::run_in_child([&] {
    start();
    _exit(100);  // exec failed
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
  return nuvtest::read_helper_report(h.out);
}

std::vector<std::u16string> numbered(std::size_t n) {
  std::vector<std::u16string> args;
  for (std::size_t i = 0; i < n; ++i) args.push_back(utf16("ärg-" + std::to_string(i) + "-\xF0\x9F\x98\x80"));
  return args;
}
std::string narrowed(std::size_t i) { return "ärg-" + std::to_string(i) + "-\xED\xA0\xBD\xED\xB8\x80"; }

template <std::size_t... I>
int execl_with(const char16_t* path, const std::vector<std::u16string>& a, std::index_sequence<I...>) {
  return execlU16(path, a[I].c_str()..., static_cast<const NUV_UTF16*>(nullptr));
}

class ExecHelper : public testing::Test {
 protected:
  void SetUp() override { setenv(nuvtest::kHelperOutVar, h.out.c_str(), 1); }
  void TearDown() override { unsetenv(nuvtest::kHelperOutVar); }
  Helper h;
};

TEST_F(ExecHelper, ExeclPasses63Arguments) {
  const auto args = numbered(63);
  const auto r = run_helper(h, [&] { return execl_with(h.exe.c_str(), args, std::make_index_sequence<63>()); });
  ASSERT_EQ(r.argv.size(), 63u);
  for (std::size_t i = 0; i < 63; ++i) EXPECT_EQ(r.argv[i], narrowed(i));
}

TEST_F(ExecHelper, Execl64ArgumentsReportsAndReturns) {
  const auto args = numbered(64);
  const int status = nuvtest::run_in_child([&] {
    nuvtest::RecordingTrace trace(U16_TRACE_LOW);
    const int r = execl_with(h.exe.c_str(), args, std::make_index_sequence<64>());
    const bool reported = trace.lines.size() == 1 &&
                          trace.lines[0].find("[flat/nlsui6 line 124]") != std::string::npos &&
                          nuvtest::after_header(trace.lines[0]) ==
                              "Function execlU16 :\nArray args length MAX_PARAM_NUMBER is too small.\n"
                              "--- Unicode interface ------ End of message ------";
    _exit(r == -1 && reported ? 0 : 1);
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(ExecHelper, ExecvPasses200Arguments) {
  const auto args = numbered(200);
  std::vector<NUV_UTF16*> argv;
  for (auto& a : args) argv.push_back(const_cast<NUV_UTF16*>(a.c_str()));
  argv.push_back(nullptr);
  const auto r = run_helper(h, [&] { return execvU16(h.exe.c_str(), argv.data()); });
  ASSERT_EQ(r.argv.size(), 200u);
  for (std::size_t i = 0; i < 200; ++i) EXPECT_EQ(r.argv[i], narrowed(i));
}

TEST_F(ExecHelper, EnvironmentFormsPassTheirEnvironment) {
  const std::u16string a0 = u"helper", e1 = utf16("GRÜSSE=日本");
  NUV_UTF16* envp[] = {const_cast<NUV_UTF16*>(e1.c_str()), const_cast<NUV_UTF16*>(h.out_assignment.c_str()),
                       nullptr};
  NUV_UTF16* argv[] = {const_cast<NUV_UTF16*>(a0.c_str()), nullptr};
  const std::vector<std::string> want_env = {"GRÜSSE=日本", std::string(nuvtest::kHelperOutVar) + "=" + h.out};
  auto r = run_helper(h, [&] { return execveU16(h.exe.c_str(), argv, envp); });
  EXPECT_EQ(r.argv, std::vector<std::string>{"helper"});
  EXPECT_EQ(r.env, want_env);
  r = run_helper(h, [&] {
    return execleU16(h.exe.c_str(), a0.c_str(), u"x", static_cast<const NUV_UTF16*>(nullptr), envp);
  });
  EXPECT_EQ(r.argv, (std::vector<std::string>{"helper", "x"}));
  EXPECT_EQ(r.env, want_env);
}

TEST_F(ExecHelper, PathSearchingFormsFindTheHelper) {
  const std::string exe = nuvtest::self_exe();
  const std::string folder = exe.substr(0, exe.rfind('/'));
  const std::u16string name = utf16(exe.substr(exe.rfind('/') + 1));
  NUV_UTF16* argv[] = {const_cast<NUV_UTF16*>(u"p\u00E4"), nullptr};
  // PATH is changed in the children only.
  auto r = run_helper(h, [&] {
    setenv("PATH", folder.c_str(), 1);
    return execvpU16(name.c_str(), argv);
  });
  EXPECT_EQ(r.argv, std::vector<std::string>{"pä"});
  r = run_helper(h, [&] {
    setenv("PATH", folder.c_str(), 1);
    return execlpU16(name.c_str(), u"q", static_cast<const NUV_UTF16*>(nullptr));
  });
  EXPECT_EQ(r.argv, std::vector<std::string>{"q"});
}

TEST_F(ExecHelper, SystemAndPopenRunTheCommandText) {
  const std::string file = h.dir / "ß";
  const std::u16string cmd = utf16("echo 'grüße' > '" + file + "'");
  EXPECT_EQ(systemU16(cmd.c_str()), 0);
  FILE* f = popenU16(utf16("cat '" + file + "'").c_str(), u"r");
  ASSERT_NE(f, nullptr);
  char buf[32] = {};
  EXPECT_NE(fgets(buf, sizeof buf, f), nullptr);
  EXPECT_EQ(pclose(f), 0);
  EXPECT_STREQ(buf, "grüße\n");
  EXPECT_NE(systemU16(nullptr), 0);  // a shell is there
  errno = 0;
  EXPECT_EQ(popenU16(u"true", nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Exec, NullPathOrArg0) {
  errno = 0;
  EXPECT_EQ(execlU16(u"/bin/true", static_cast<const NUV_UTF16*>(nullptr)), -1);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(execlU16(nullptr, u"a", static_cast<const NUV_UTF16*>(nullptr)), -1);
  EXPECT_EQ(errno, ENOENT);
  NUV_UTF16* argv[] = {const_cast<NUV_UTF16*>(u"a"), nullptr};
  errno = 0;
  EXPECT_EQ(execvU16(nullptr, argv), -1);  // reaches execv, which refuses the null path
  EXPECT_EQ(errno, EFAULT);
}

TEST(Exec, LongCommandIsReportedAndRunCut) {
  // 2100 units; the buffer keeps 2047 bytes and the terminator.
  const std::string cmd = "true " + std::string(2095, 'a');
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  ostest::LibcRecorder rec;
  EXPECT_EQ(systemU16(utf16(cmd).c_str()), 0);
  ASSERT_FALSE(rec.calls.empty());
  EXPECT_EQ(rec.calls[0].function, "system");
  EXPECT_EQ(rec.calls[0].args[0], std::optional<std::string>(cmd.substr(0, 2047)));
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/nlsui1 line 1088]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
            "Function systemU16 :\nArray cstring length MAX_COMMAND_LN is too small.\n"
            "--- Unicode interface ------ End of message ------");
  rec.calls.clear();
  trace.lines.clear();
  // libc refuses the cut type; the call was made all the same.
  if (FILE* f = popenU16(utf16(cmd).c_str(), (u"r" + std::u16string(70, u' ')).c_str())) pclose(f);
  ASSERT_EQ(rec.calls.size(), 1u);
  EXPECT_EQ(rec.calls[0].args[0], std::optional<std::string>(cmd.substr(0, 2047)));
  EXPECT_EQ(rec.calls[0].args[1], std::optional<std::string>("r" + std::string(62, ' ')));
  ASSERT_EQ(trace.lines.size(), 2u);
  EXPECT_NE(nuvtest::after_header(trace.lines[0]).find("Array ccommand length MAX_COMMAND_LN"), std::string::npos);
  EXPECT_NE(nuvtest::after_header(trace.lines[1]).find("Array ctype length MAX_MODE_LN"), std::string::npos);
}

struct RexecCase {
  const char* name;
  std::string official;
  bool official_null;
  int result;
  std::u16string host_after;  // empty with host_null
  bool host_null;
  const char* report;  // expected report text, or null
};

const RexecCase kRexec[] = {
    {"official_name_comes_back", "höst.example", false, 42, utf16("höst.example"), false, nullptr},
    {"null_host_passed_on", "", true, 42, u"", true, nullptr},
    {"name_fills_256_units", std::string(256, 'h'), false, -1, u"", false,
     "Function rexecU16 :\nArray *ahost length MAX_HOSTNAME_LN is too small."},
    {"name_not_utf8", "bad\xFF", false, -1, u"", false, "rexecU16 encountered invalid UTF-8"},
};

TEST(Rexec, ConvertsInAndOutThroughTheStandIn) {
  for (const auto& c : kRexec) {
    ostest::RexecStandIn::official = c.official;
    ostest::RexecStandIn::official_null = c.official_null;
    NUV_UTF16 host[256];
    const std::u16string asked = utf16("sérver");
    std::copy(asked.c_str(), asked.c_str() + asked.size() + 1, host);
    NUV_UTF16* ahost = host;
    nuvtest::RecordingTrace trace(U16_TRACE_LOW);
    ostest::LibcRecorder rec;
    EXPECT_EQ(rexecU16(&ahost, 512, u"\u00FCser", u"pw", u"ls \u00E4", nullptr), c.result) << c.name;
    ASSERT_EQ(rec.calls.size(), 1u);
    EXPECT_EQ(rec.calls[0].args, (std::vector<std::optional<std::string>>{"sérver", "üser", "pw", "ls ä"}));
    if (c.host_null) EXPECT_EQ(ahost, nullptr) << c.name;
    else if (!c.report) EXPECT_EQ(std::u16string(ahost), c.host_after) << c.name;
    if (c.report) {
      ASSERT_FALSE(trace.lines.empty()) << c.name;
      EXPECT_EQ(nuvtest::after_header(trace.lines[0]).substr(0, std::string(c.report).size()), c.report);
    } else {
      EXPECT_TRUE(trace.lines.empty()) << c.name;
    }
  }
  ostest::RexecStandIn::official = "host.example";
  ostest::RexecStandIn::official_null = false;
}

}  // namespace
