// The openers: real files with non-ASCII names, the mode string, the
// permission argument and the open trace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "nuvu16.h"
#include "os/libc_record.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

TEST(Openers, CreateThroughTheWrapperReadNarrow) {
  nuvtest::ScratchDir dir;
  const std::string name = dir / "Grüße-日本-\xF0\x9F\x98\x80.txt";
  // The pair is written as two three-byte sequences by design.
  const std::string narrow = dir / "Grüße-日本-\xED\xA0\xBD\xED\xB8\x80.txt";
  FILE* f = fopenU16(utf16(name).c_str(), u"w");
  ASSERT_NE(f, nullptr);
  fputs("hello", f);
  fclose(f);
  FILE* g = fopen(narrow.c_str(), "r");
  ASSERT_NE(g, nullptr);
  char buf[8] = {};
  EXPECT_EQ(fread(buf, 1, 7, g), 5u);
  fclose(g);
  EXPECT_STREQ(buf, "hello");
}

TEST(Openers, CreateNarrowOpenThroughTheWrapper) {
  nuvtest::ScratchDir dir;
  const std::string name = dir / "naïve-€";
  int fd = open(name.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fd, 0);
  close(fd);
  struct Opener {
    const char* name;
    int (*open)(const char16_t*);
  } openers[] = {
      {"openU16", [](const char16_t* p) { return openU16(p, O_RDONLY); }},
      {"openU", [](const char16_t* p) { return openU(p, O_RDONLY); }},
      {"fopenU16", [](const char16_t* p) {
         FILE* f = fopenU16(p, u"r");
         return f ? fclose(f) : -1;
       }},
      {"fopen64U", [](const char16_t* p) {
         FILE* f = fopen64U(p, u"r");
         return f ? fclose(f) : -1;
       }},
      {"accessU", [](const char16_t* p) { return accessU(p, R_OK); }},
  };
  for (const auto& o : openers) {
    const int r = o.open(utf16(name).c_str());
    EXPECT_GE(r, 0) << o.name;
    if (r > 0 && o.name[0] == 'o') close(r);
  }
}

TEST(Openers, PermissionReadOnlyWithCreate) {
  nuvtest::ScratchDir dir;
  const std::u16string path = utf16(dir / "perm");
  ostest::LibcRecorder rec;
  int fd = openU16(path.c_str(), O_CREAT | O_WRONLY, 0640);
  ASSERT_GE(fd, 0);
  close(fd);
  fd = openU16(path.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  close(fd);
  ASSERT_EQ(rec.calls.size(), 2u);
  EXPECT_EQ(rec.calls[0].args[1], std::optional<std::string>(std::to_string(0640)));
  EXPECT_EQ(rec.calls[1].args[1], std::optional<std::string>("0"));
}

TEST(Openers, ModeIsPassedAsItIsAndACutModeStillOpens) {
  nuvtest::ScratchDir dir;
  const std::u16string path = utf16(dir / "m");
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  {
    ostest::LibcRecorder rec;
    FILE* f = fopenU16(path.c_str(), u"w+e");
    ASSERT_NE(f, nullptr);
    fclose(f);
    EXPECT_EQ(rec.calls.back().args[1], std::optional<std::string>("w+e"));
  }
  EXPECT_TRUE(trace.lines.empty());
  // 70 units: the mode buffer holds 63 bytes and the terminator.
  const std::u16string mode = u"r" + std::u16string(69, u' ');
  errno = 0;
  ostest::LibcRecorder rec;
  FILE* f = fopenU16(path.c_str(), mode.c_str());
  ASSERT_NE(f, nullptr);
  const int err = errno;
  fclose(f);
  EXPECT_EQ(err, ENAMETOOLONG);
  EXPECT_EQ(rec.calls.back().args[1], std::optional<std::string>("r" + std::string(62, ' ')));
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/nlsui1 line 409]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
            "Function fopenU16 :\nArray cmode length MAX_MODE_LN is too small.\n"
            "--- Unicode interface ------ End of message ------");
}

TEST(Openers, FdopenConvertsTheModeOnly) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ostest::LibcRecorder rec;
  FILE* f = fdopenU16(fds[0], u"r");
  ASSERT_NE(f, nullptr);
  fclose(f);
  close(fds[1]);
  EXPECT_EQ(rec.calls.back().function, "fdopen");
  EXPECT_EQ(rec.calls.back().args[0], std::optional<std::string>("r"));
}

struct TraceCase {
  const char* opener;
  int line;
  bool descriptor;               // the result is the descriptor traced
  int (*open)(const char16_t*);  // a descriptor to close, or -1
};

// A stream's descriptor outlives the stream as a duplicate.
int keep_fd(FILE* f) {
  if (!f) return -1;
  const int fd = dup(fileno(f));
  fclose(f);
  return fd;
}

const TraceCase kTraced[] = {
    {"fopenU16", 421, false, [](const char16_t* p) { return keep_fd(fopenU16(p, u"r")); }},
    {"fopen64U16", 459, false, [](const char16_t* p) { return keep_fd(fopen64U16(p, u"r")); }},
    {"freopenU16", 497, false, [](const char16_t* p) { return keep_fd(freopenU16(p, u"r", tmpfile())); }},
    {"openU16", 561, true, [](const char16_t* p) { return openU16(p, O_RDONLY); }},
    {"creatU16", 598, true, [](const char16_t* p) { return creatU16(p, 0600); }},
};

TEST(Openers, TraceAtLevelHighShowsTheLast80Units) {
  nuvtest::ScratchDir dir;
  // 100 units; the name part holds non-Latin-1 units whose low bytes show.
  std::u16string path = utf16(dir.path() + "/");
  while (path.size() < 98) path += u'p';
  path += u"\u0141z";  // U+0141: low byte 0x41 'A'
  {
    const std::string narrow_path = [&] {
      std::string s;
      for (std::size_t i = 0; i + 2 < path.size(); ++i) s.push_back(static_cast<char>(path[i]));
      return s + "\xC5\x81z";
    }();
    int fd = open(narrow_path.c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  std::string tail;
  for (std::size_t i = path.size() - 80; i < path.size(); ++i) tail.push_back(static_cast<char>(path[i] & 0xFF));
  for (const auto& c : kTraced) {
    {
      nuvtest::RecordingTrace medium(U16_TRACE_MEDIUM);
      const int fd = c.open(path.c_str());
      ASSERT_GE(fd, 0) << c.opener;
      close(fd);
      EXPECT_TRUE(medium.lines.empty()) << c.opener;
    }
    nuvtest::RecordingTrace high(U16_TRACE_HIGH);
    const int fd = c.open(path.c_str());
    ASSERT_GE(fd, 0) << c.opener;
    ASSERT_EQ(high.lines.size(), 1u) << c.opener;
    EXPECT_NE(high.lines[0].find("[flat/nlsui1 line " + std::to_string(c.line) + "]"), std::string::npos);
    const std::string body = nuvtest::after_header(high.lines[0]);
    const std::string head = std::string(c.opener).substr(0, 10) + " \"" + tail + "\" (fileno 0x";
    EXPECT_EQ(body.substr(0, head.size()), head) << c.opener;
    if (c.descriptor) {
      char hex[16];
      snprintf(hex, sizeof hex, "%x)", static_cast<unsigned>(fd));
      EXPECT_EQ(body.substr(head.size(), std::strlen(hex)), hex) << c.opener;
    }
    close(fd);
  }
}

TEST(Openers, NoTraceWhenTheOpenFails) {
  nuvtest::RecordingTrace high(U16_TRACE_HIGH);
  EXPECT_EQ(fopenU16(u"/nonexistent/\u00E9", u"r"), nullptr);
  EXPECT_EQ(openU16(u"/nonexistent/\u00E9", O_RDONLY), -1);
  EXPECT_TRUE(high.lines.empty());
}

}  // namespace
