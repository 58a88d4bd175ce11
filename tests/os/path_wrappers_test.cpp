// Every path wrapper against what libc is handed: short, 4096 and 4097 UTF-8
// bytes, a cut inside a character, null, a lone surrogate and a pair.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <functional>

#include "nuvu16.h"
#include "os/libc_record.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;
using Call = std::function<void(const char16_t* p, const char16_t* other)>;

struct Row {
  const char* libc;
  int arg;  // which of libc's texts is the path
  const char *function, *buffer;
  int file, line;  // flat/nlsui<file>
  Call call;
};

void done(int fd) { fd >= 0 ? close(fd) : 0; }
void done(FILE* f) { f ? fclose(f) : 0; }

const Row kRows[] = {
    {"access", 0, "accessU16", "cpath", 2, 118, [](auto p, auto) { accessU16(p, F_OK); }},
    {"chdir", 0, "chdirU16", "cpath", 2, 139, [](auto p, auto) { chdirU16(p); }},
    {"chmod", 0, "chmodU16", "cpath", 2, 160, [](auto p, auto) { chmodU16(p, 0600); }},
    {"chown", 0, "chownU16", "cpath", 2, 181, [](auto p, auto) { chownU16(p, getuid(), getgid()); }},
    {"creat64", 0, "creatU16", "cpath", 1, 590, [](auto p, auto) { done(creatU16(p, 0600)); }},
    {"link", 0, "linkU16", "cpath1", 2, 205, [](auto p, auto o) { linkU16(p, o); }},
    {"link", 1, "linkU16", "cpath2", 2, 212, [](auto p, auto o) { linkU16(o, p); }},
    {"symlink", 0, "symlinkU16", "cpath1", 2, 236, [](auto p, auto o) { symlinkU16(p, o); }},
    {"symlink", 1, "symlinkU16", "cpath2", 2, 243, [](auto p, auto o) { symlinkU16(o, p); }},
    {"rename", 0, "renameU16", "cfrom", 2, 267, [](auto p, auto o) { renameU16(p, o); }},
    {"rename", 1, "renameU16", "cto", 2, 274, [](auto p, auto o) { renameU16(o, p); }},
    {"mkdir", 0, "mkdirU16", "cpath", 2, 295, [](auto p, auto) { mkdirU16(p, 0700); }},
    {"mkfifo", 0, "mkfifoU16", "cpath", 2, 316, [](auto p, auto) { mkfifoU16(p, 0600); }},
    {"remove", 0, "removeU16", "cpath", 2, 337, [](auto p, auto) { removeU16(p); }},
    {"rmdir", 0, "rmdirU16", "cpath", 2, 358, [](auto p, auto) { rmdirU16(p); }},
    {"unlink", 0, "unlinkU16", "cpath", 2, 379, [](auto p, auto) { unlinkU16(p); }},
    {"statvfs64", 0, "statvfsU16", "cpath", 2, 400, [](auto p, auto) { struct statvfs64 st; statvfsU16(p, &st); }},
    {"utime", 0, "utimeU16", "cpath", 2, 421, [](auto p, auto) { utimeU16(p, nullptr); }},
    {"readlink", 0, "readlinkU16", "cpath", 3, 133, [](auto p, auto) { NUV_UTF16 b[64]; readlinkU16(p, b, 64); }},
    {"fopen64", 0, "fopenU16", "cpath", 1, 402, [](auto p, auto) { done(fopenU16(p, u"r")); }},
    {"fopen64", 0, "fopen64U16", "cpath", 1, 440, [](auto p, auto) { done(fopen64U16(p, u"r")); }},
    {"freopen64", 0, "freopenU16", "cpath", 1, 478, [](auto p, auto) { freopenU16(p, u"r", ostest::freopen_target()); }},
    {"open64", 0, "openU16", "cpath", 1, 547, [](auto p, auto) { done(openU16(p, O_RDONLY)); }},
};

std::string fill(const std::string& dir, std::size_t bytes) { return dir + "/" + std::string(bytes - dir.size() - 1, 'a'); }

struct Case {
  const char* name;
  std::function<std::u16string(const std::string& dir)> text;  // null: a null argument
  std::function<std::string(const std::string& dir)> seen;
  bool reported;
};
#define TEXT(expr) [](const std::string& d) { return utf16(expr); }
#define SEEN(expr) [](const std::string& d) -> std::string { return expr; }
const Case kCases[] = {
    {"short", TEXT(d + "/päth"), SEEN(d + "/päth"), false},
    {"bytes4096", TEXT(fill(d, 4096)), SEEN(fill(d, 4096)), false},
    {"bytes4096_ending_in_three", TEXT(fill(d, 4093) + "€"), SEEN(fill(d, 4093) + "€"), false},
    {"bytes4097", TEXT(fill(d, 4097)), SEEN(fill(d, 4097).substr(0, 4096)), true},
    {"cut_inside_character", TEXT(fill(d, 4095) + "€b"), SEEN(fill(d, 4095)), true},
    {"null", nullptr, SEEN("(null)"), false},
    {"lone_surrogate", [](auto& d) { return utf16(d + "/x") + u'\xD800'; }, SEEN(d + "/x\xED\xA0\x80"), false},
    {"pair_as_two_sequences", TEXT(d + "/\xF0\x9F\x98\x80"), SEEN(d + "/\xED\xA0\xBD\xED\xB8\x80"), false},
};

class PathWrapper : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(PathWrapper, LibcSeesTheNarrowedPath) {
  const Row& row = kRows[std::get<0>(GetParam())];
  const Case& c = kCases[std::get<1>(GetParam())];
  nuvtest::ScratchDir dir;
  const std::u16string arg = c.text ? c.text(dir.path) : u"";
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  {
    ostest::LibcRecorder rec;
    row.call(c.text ? arg.c_str() : nullptr, utf16(dir / "other").c_str());
  }
  std::optional<std::string> seen;
  for (const auto& call : ostest::LibcRecorder::calls)
    if (call.function == row.libc) seen = call.args.at(row.arg).value_or("(null)");
  EXPECT_EQ(seen, c.seen(dir.path));
  ASSERT_EQ(trace.lines.size(), c.reported ? 1u : 0u);
  if (!c.reported) return;
  const std::string site = "[flat/nlsui" + std::to_string(row.file) + " line " + std::to_string(row.line) + "]";
  EXPECT_NE(trace.lines[0].find(site), std::string::npos) << trace.lines[0];
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function " + std::string(row.function) + " :\nArray " + row.buffer +
                                                       " length MAX_PATH_LN is too small.\n" + nuvtest::kEndLine);
}

INSTANTIATE_TEST_SUITE_P(AllPathWrappers, PathWrapper,
                         testing::Combine(testing::Range(0, int(std::size(kRows))), testing::Range(0, int(std::size(kCases)))),
                         [](const auto& info) {
                           const Row& r = kRows[std::get<0>(info.param)];
                           return std::string(r.function) + "_" + r.buffer + "_" + kCases[std::get<1>(info.param)].name;
                         });

}  // namespace
