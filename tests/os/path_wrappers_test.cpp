// Every path wrapper against what libc is handed, for the argument lengths
// and forms that matter: short, 4096 and 4097 UTF-8 bytes, a cut inside a
// multi-byte character, null, a lone surrogate and a surrogate pair.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utime.h>

#include <functional>
#include <string>

#include "nuvu16.h"
#include "os/libc_record.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

struct PathRow {
  const char* libc;  // the libc entry that must see the path
  int arg;           // which of its text arguments
  const char* function;
  const char* buffer;
  const char* file;
  int line;
  std::function<void(const char16_t*, const std::string& other)> call;
};

std::u16string other16(const std::string& o) { return utf16(o); }

const PathRow kRows[] = {
    {"access", 0, "accessU16", "cpath", "flat/nlsui2", 118, [](auto p, auto&) { accessU16(p, F_OK); }},
    {"chdir", 0, "chdirU16", "cpath", "flat/nlsui2", 139, [](auto p, auto&) { chdirU16(p); }},
    {"chmod", 0, "chmodU16", "cpath", "flat/nlsui2", 160, [](auto p, auto&) { chmodU16(p, 0600); }},
    {"chown", 0, "chownU16", "cpath", "flat/nlsui2", 181, [](auto p, auto&) { chownU16(p, getuid(), getgid()); }},
    {"creat64", 0, "creatU16", "cpath", "flat/nlsui1", 590,
     [](auto p, auto&) {
       int fd = creatU16(p, 0600);
       if (fd >= 0) close(fd);
     }},
    {"link", 0, "linkU16", "cpath1", "flat/nlsui2", 205,
     [](auto p, auto& o) { linkU16(p, other16(o).c_str()); }},
    {"link", 1, "linkU16", "cpath2", "flat/nlsui2", 212,
     [](auto p, auto& o) { linkU16(other16(o).c_str(), p); }},
    {"symlink", 0, "symlinkU16", "cpath1", "flat/nlsui2", 236,
     [](auto p, auto& o) { symlinkU16(p, other16(o).c_str()); }},
    {"symlink", 1, "symlinkU16", "cpath2", "flat/nlsui2", 243,
     [](auto p, auto& o) { symlinkU16(other16(o).c_str(), p); }},
    {"rename", 0, "renameU16", "cfrom", "flat/nlsui2", 267,
     [](auto p, auto& o) { renameU16(p, other16(o).c_str()); }},
    {"rename", 1, "renameU16", "cto", "flat/nlsui2", 274,
     [](auto p, auto& o) { renameU16(other16(o).c_str(), p); }},
    {"mkdir", 0, "mkdirU16", "cpath", "flat/nlsui2", 295, [](auto p, auto&) { mkdirU16(p, 0700); }},
    {"mkfifo", 0, "mkfifoU16", "cpath", "flat/nlsui2", 316, [](auto p, auto&) { mkfifoU16(p, 0600); }},
    {"remove", 0, "removeU16", "cpath", "flat/nlsui2", 337, [](auto p, auto&) { removeU16(p); }},
    {"rmdir", 0, "rmdirU16", "cpath", "flat/nlsui2", 358, [](auto p, auto&) { rmdirU16(p); }},
    {"unlink", 0, "unlinkU16", "cpath", "flat/nlsui2", 379, [](auto p, auto&) { unlinkU16(p); }},
    {"statvfs64", 0, "statvfsU16", "cpath", "flat/nlsui2", 400,
     [](auto p, auto&) {
       struct statvfs64 st;
       statvfsU16(p, &st);
     }},
    {"utime", 0, "utimeU16", "cpath", "flat/nlsui2", 421, [](auto p, auto&) { utimeU16(p, nullptr); }},
    {"readlink", 0, "readlinkU16", "cpath", "flat/nlsui3", 133,
     [](auto p, auto&) {
       char16_t buf[64];
       readlinkU16(p, buf, 64);
     }},
    {"fopen64", 0, "fopenU16", "cpath", "flat/nlsui1", 402,
     [](auto p, auto&) {
       if (FILE* f = fopenU16(p, u"r")) fclose(f);
     }},
    {"fopen64", 0, "fopen64U16", "cpath", "flat/nlsui1", 440,
     [](auto p, auto&) {
       if (FILE* f = fopen64U16(p, u"r")) fclose(f);
     }},
    {"freopen64", 0, "freopenU16", "cpath", "flat/nlsui1", 478,
     [](auto p, auto&) {
       if (FILE* f = freopenU16(p, u"r", tmpfile())) fclose(f);
     }},
    {"open64", 0, "openU16", "cpath", "flat/nlsui1", 547,
     [](auto p, auto&) {
       int fd = openU16(p, O_RDONLY);
       if (fd >= 0) close(fd);
     }},
};

struct ArgCase {
  const char* name;
  // Builds the UTF-16 argument below the folder; null for the null case.
  std::function<std::u16string(const std::string& dir)> make;
  // The bytes libc must see; empty optional for null.
  std::function<std::optional<std::string>(const std::string& dir)> seen;
  bool reported;
  bool is_null = false;
};

std::string fill(const std::string& dir, std::size_t total) { return dir + "/" + std::string(total - dir.size() - 1, 'a'); }

const ArgCase kCases[] = {
    {"short", [](auto& d) { return utf16(d + "/päth"); }, [](auto& d) { return d + "/päth"; }, false},
    {"bytes4096", [](auto& d) { return utf16(fill(d, 4096)); }, [](auto& d) { return fill(d, 4096); }, false},
    {"bytes4096_multibyte_end", [](auto& d) { return utf16(fill(d, 4093) + "€"); },
     [](auto& d) { return fill(d, 4093) + "€"; }, false},
    {"bytes4097_cut", [](auto& d) { return utf16(fill(d, 4097)); }, [](auto& d) { return fill(d, 4096); }, true},
    {"cut_inside_character", [](auto& d) { return utf16(fill(d, 4095) + "€b"); },
     [](auto& d) { return fill(d, 4095); }, true},
    {"null", [](auto&) { return std::u16string(); }, [](auto&) { return std::optional<std::string>(); }, false,
     true},
    {"lone_surrogate", [](auto& d) { return utf16(d + "/x") + u'\xD800'; },
     [](auto& d) { return d + "/x\xED\xA0\x80"; }, false},
    {"surrogate_pair", [](auto& d) { return utf16(d + "/\xF0\x9F\x98\x80"); },
     [](auto& d) { return d + "/\xED\xA0\xBD\xED\xB8\x80"; }, false},
};

class PathWrapper : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(PathWrapper, LibcSeesTheNarrowedPath) {
  const PathRow& row = kRows[std::get<0>(GetParam())];
  const ArgCase& c = kCases[std::get<1>(GetParam())];
  nuvtest::ScratchDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::u16string arg = c.make(dir.path());
  const std::string other = dir / "other";
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  {
    ostest::LibcRecorder rec;
    row.call(c.is_null ? nullptr : arg.c_str(), other);
  }
  const auto& calls = ostest::LibcRecorder::calls;
  ASSERT_FALSE(calls.empty());
  const ostest::Call* seen = nullptr;
  for (const auto& call : calls)
    if (call.function == row.libc) seen = &call;
  ASSERT_NE(seen, nullptr) << row.libc;
  ASSERT_GT(seen->args.size(), static_cast<std::size_t>(row.arg));
  EXPECT_EQ(seen->args[row.arg], c.seen(dir.path()));
  if (c.reported) {
    ASSERT_EQ(trace.lines.size(), 1u);
    const std::string& msg = trace.lines[0];
    EXPECT_NE(msg.find("[" + std::string(row.file) + " line " + std::to_string(row.line) + "]"), std::string::npos)
        << msg;
    EXPECT_EQ(nuvtest::after_header(msg), "Function " + std::string(row.function) + " :\nArray " + row.buffer +
                                              " length MAX_PATH_LN is too small.\n"
                                              "--- Unicode interface ------ End of message ------");
  } else {
    EXPECT_TRUE(trace.lines.empty()) << trace.lines[0];
  }
}

std::string row_name(const testing::TestParamInfo<std::tuple<int, int>>& info) {
  const PathRow& row = kRows[std::get<0>(info.param)];
  return std::string(row.function) + "_" + row.buffer + "_" + kCases[std::get<1>(info.param)].name;
}

INSTANTIATE_TEST_SUITE_P(AllPathWrappers, PathWrapper,
                         testing::Combine(testing::Range(0, static_cast<int>(std::size(kRows))),
                                          testing::Range(0, static_cast<int>(std::size(kCases)))),
                         row_name);

}  // namespace
