// The openers on real files with non-ASCII names, the mode, the permission
// argument and the open trace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "nuvu16.h"
#include "os/libc_record.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

TEST(Openers, BothWaysWithNarrowCalls) {
  nuvtest::ScratchDir dir;
  // Through the wrapper, the pair is two three-byte sequences.
  FILE* f = fopenU16(utf16(dir / "Grüße-日本-\xF0\x9F\x98\x80").c_str(), u"w");
  ASSERT_NE(f, nullptr);
  fclose(f);
  EXPECT_EQ(access((dir / "Grüße-日本-\xED\xA0\xBD\xED\xB8\x80").c_str(), F_OK), 0);
  ASSERT_EQ(close(open((dir / "naïve-€").c_str(), O_CREAT | O_WRONLY, 0600)), 0);
  const std::u16string name = utf16(dir / "naïve-€");
  const int fd = openU(name.c_str(), O_RDONLY);
  EXPECT_GE(fd, 0);
  close(fd);
  FILE* g = fopen64U(name.c_str(), u"r");
  ASSERT_NE(g, nullptr);
  fclose(g);
  errno = 0;
  EXPECT_EQ(fopenU16(name.c_str(), nullptr), nullptr);  // libc would crash on a null mode
  EXPECT_EQ(errno, EINVAL);
}

TEST(Openers, PermissionOnlyWithCreateAndTheModeAsItIs) {
  nuvtest::ScratchDir dir;
  const std::u16string path = utf16(dir / "p");
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  ostest::LibcRecorder rec;
  close(openU16(path.c_str(), O_CREAT | O_WRONLY, 0640));
  close(openU16(path.c_str(), O_RDONLY));
  fclose(fopenU16(path.c_str(), u"r+e"));
  fclose(fdopenU16(fds[0], u"r"));
  close(fds[1]);
  // 70 units: the mode buffer keeps 63 bytes; fopen still opens, ENAMETOOLONG stays.
  FILE* f = fopenU16(path.c_str(), (u"r" + std::u16string(69, u' ')).c_str());
  const int err = errno;
  ASSERT_NE(f, nullptr);
  fclose(f);
  EXPECT_EQ(err, ENAMETOOLONG);
  ASSERT_EQ(rec.calls.size(), 5u);
  EXPECT_EQ(rec.calls[0].args[1], std::to_string(0640));
  EXPECT_EQ(rec.calls[1].args[1], "0");
  EXPECT_EQ(rec.calls[2].args[1], "r+e");
  EXPECT_EQ(rec.calls[3].args, ostest::Texts{"r"});
  EXPECT_EQ(rec.calls[4].args[1], "r" + std::string(62, ' '));
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/nlsui1 line 409]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function fopenU16 :\nArray cmode length MAX_MODE_LN is too small.\n" + nuvtest::kEndLine);
}

int keep_fd(FILE* f) {  // a stream's descriptor, kept as a duplicate
  const int fd = f ? dup(fileno(f)) : -1;
  if (f) fclose(f);
  return fd;
}

TEST(Openers, TraceAtLevelHighShowsTheLowBytesOfTheLast80Units) {
  nuvtest::ScratchDir dir;
  std::u16string path = utf16(dir.path + "/" + std::string(97 - dir.path.size(), 'p')) + u"\u0141z";  // 100 units
  ASSERT_EQ(close(open((dir / std::string(97 - dir.path.size(), 'p') + "\xC5\x81z").c_str(), O_CREAT | O_WRONLY, 0600)), 0);
  std::string tail;
  for (std::size_t i = path.size() - 80; i < path.size(); ++i) tail.push_back(static_cast<char>(path[i] & 0xFF));
  const struct {
    const char* opener;
    int line;
    int (*open)(const char16_t*);
  } openers[] = {{"fopenU16", 421, [](const char16_t* p) { return keep_fd(fopenU16(p, u"r")); }},
                 {"fopen64U16", 459, [](const char16_t* p) { return keep_fd(fopen64U16(p, u"r")); }},
                 {"freopenU16", 497, [](const char16_t* p) {
                   FILE* f = freopenU16(p, u"r", ostest::freopen_target());
                   return f ? dup(fileno(f)) : -1;
                 }},
                 {"openU16", 561, [](const char16_t* p) { return openU16(p, O_RDONLY); }},
                 {"creatU16", 598, [](const char16_t* p) { return creatU16(p, 0600); }}};
  for (const auto& o : openers) {
    for (uint32_t level : {U16_TRACE_MEDIUM, U16_TRACE_HIGH}) {
      nuvtest::RecordingTrace trace(level);
      const int fd = o.open(path.c_str());
      ASSERT_GE(fd, 0) << o.opener;
      close(fd);
      EXPECT_EQ(o.open(u"/nonexistent/\u00E9"), -1);
      ASSERT_EQ(trace.lines.size(), level == U16_TRACE_HIGH ? 1u : 0u) << o.opener;
      if (trace.lines.empty()) continue;
      EXPECT_NE(trace.lines[0].find("[flat/nlsui1 line " + std::to_string(o.line) + "]"), std::string::npos);
      const std::string head = std::string(o.opener).substr(0, 10) + " \"" + tail + "\" (fileno 0x";
      EXPECT_EQ(nuvtest::after_header(trace.lines[0]).substr(0, head.size()), head);
    }
  }
}

}  // namespace
