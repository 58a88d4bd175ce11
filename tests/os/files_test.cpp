// File-system wrappers on real files with non-ASCII names, checked with the
// narrow calls, and the wrappers that bring a text back.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "nuvu16.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

bool exists(const std::string& p) {
  struct stat st;
  return lstat(p.c_str(), &st) == 0;
}

TEST(FileSystem, WrappersActOnNarrowNamesAndBack) {
  nuvtest::ScratchDir dir;
  const std::string d = dir / "Verzeichnis-ä", f = d + "/Datei-€", g = d + "/Ziel-日本", l = d + "/Link-ü",
                    h = d + "/Hart-ö", fifo = d + "/Röhre";
  ASSERT_EQ(mkdirU16(utf16(d).c_str(), 0700), 0);
  ASSERT_TRUE(exists(d));
  ASSERT_EQ(close(creatU16(utf16(f).c_str(), 0600)), 0);
  ASSERT_TRUE(exists(f));
  EXPECT_EQ(accessU16(utf16(f).c_str(), W_OK), 0);
  EXPECT_EQ(chmodU16(utf16(f).c_str(), 0400), 0);
  struct stat st;
  ASSERT_EQ(stat(f.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0400u);
  EXPECT_EQ(chownU16(utf16(f).c_str(), getuid(), getgid()), 0);
  EXPECT_EQ(renameU16(utf16(f).c_str(), utf16(g).c_str()), 0);
  EXPECT_FALSE(exists(f));
  EXPECT_TRUE(exists(g));
  EXPECT_EQ(linkU16(utf16(g).c_str(), utf16(h).c_str()), 0);
  ASSERT_EQ(stat(h.c_str(), &st), 0);
  EXPECT_EQ(st.st_nlink, 2u);
  EXPECT_EQ(symlinkU16(utf16(g).c_str(), utf16(l).c_str()), 0);
  char target[256] = {};
  ASSERT_GT(readlink(l.c_str(), target, sizeof target - 1), 0);
  EXPECT_EQ(std::string(target), g);
  EXPECT_EQ(mkfifoU16(utf16(fifo).c_str(), 0600), 0);
  ASSERT_EQ(stat(fifo.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
  struct statvfs64 vfs;
  EXPECT_EQ(statvfsU16(utf16(d).c_str(), &vfs), 0);
  EXPECT_GT(vfs.f_bsize, 0u);
  EXPECT_EQ(utimeU16(utf16(g).c_str(), nullptr), 0);
  EXPECT_EQ(unlinkU16(utf16(l).c_str()), 0);
  EXPECT_EQ(removeU16(utf16(h).c_str()), 0);
  EXPECT_EQ(removeU(utf16(fifo).c_str()), 0);
  EXPECT_EQ(unlinkU(utf16(g).c_str()), 0);
  EXPECT_EQ(rmdirU16(utf16(d).c_str()), 0);
  EXPECT_FALSE(exists(d));
  errno = 0;
  EXPECT_EQ(rmdirU16(utf16(d).c_str()), -1);
  EXPECT_EQ(errno, ENOENT);  // libc's errno comes back unchanged
}

TEST(FileSystem, ReadlinkBringsTheTextBack) {
  nuvtest::ScratchDir dir;
  const std::string link = dir / "l";
  ASSERT_EQ(symlink("Zi\xC3\xABl-\xE6\x97\xA5", link.c_str()), 0);
  NUV_UTF16 buf[16];
  EXPECT_EQ(readlinkU16(utf16(link).c_str(), buf, 16), 6);
  EXPECT_EQ(std::u16string(buf), u"Zi\u00EBl-\u65E5");
  // Six units do not fit in six: reported as too short.
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  errno = 0;
  EXPECT_EQ(readlinkU16(utf16(link).c_str(), buf, 6), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/nlsui3 line 156]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]),
            "Function readlinkU16 :\nArray wbuf length wsize is too small.\n"
            "--- Unicode interface ------ End of message ------");
  errno = 0;
  EXPECT_EQ(readlinkU16(utf16(dir / "none").c_str(), buf, 16), -1);
  EXPECT_EQ(errno, ENOENT);
}

class WorkingDirectory : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(getcwd(saved_, sizeof saved_), nullptr); }
  void TearDown() override { ASSERT_EQ(chdir(saved_), 0); }
  char saved_[4096];
};

TEST_F(WorkingDirectory, GetcwdIntoBufferOrHeap) {
  nuvtest::ScratchDir dir;
  const std::string d = dir / "Arbeit-ß";
  ASSERT_EQ(mkdir(d.c_str(), 0700), 0);
  ASSERT_EQ(chdirU16(utf16(d).c_str()), 0);
  const std::u16string want = utf16(d);
  NUV_UTF16 buf[512];
  ASSERT_EQ(getcwdU16(buf, 512), buf);
  EXPECT_EQ(std::u16string(buf), want);
  // Exactly as many units as the name: no room for the terminator.
  errno = 0;
  EXPECT_EQ(getcwdU16(buf, want.size()), nullptr);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(getcwdU16(buf, want.size() + 1), buf);
  NUV_UTF16* heap = getcwdU16(nullptr, 512);
  ASSERT_NE(heap, nullptr);
  EXPECT_EQ(std::u16string(heap), want);
  free(heap);
  errno = 0;
  EXPECT_EQ(getcwdU(nullptr, want.size()), nullptr);
  EXPECT_EQ(errno, ERANGE);
}

TEST(Mkstemp, FillsInTheTemplate) {
  nuvtest::ScratchDir dir;
  std::u16string templ = utf16(dir / "tmp-\xC3\xA9-XXXXXX");
  const int fd = mkstempU16(templ.data());
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(templ.find(u"XXXXXX"), std::u16string::npos);
  EXPECT_EQ(templ.size(), utf16(dir / "tmp-\xC3\xA9-XXXXXX").size());
  std::string narrow = dir / "tmp-\xC3\xA9-";
  for (std::size_t i = templ.size() - 6; i < templ.size(); ++i) narrow.push_back(static_cast<char>(templ[i]));
  EXPECT_TRUE(exists(narrow));
  EXPECT_EQ(mkstempU16(nullptr), -1);
  std::u16string bad = utf16(dir / "no-x");
  errno = 0;
  EXPECT_EQ(mkstempU16(bad.data()), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Setlocale, QueriesAndSets) {
  const std::string before = setlocale(LC_CTYPE, nullptr);
  NUV_UTF16* q = setlocaleU16(LC_CTYPE, nullptr);
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(std::u16string(q), utf16(before));
  NUV_UTF16* s = setlocaleU16(LC_CTYPE, u"C.UTF-8");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(std::u16string(s), u"C.UTF-8");
  EXPECT_EQ(setlocaleU(LC_CTYPE, u"no-such-\u00E4"), nullptr);
  setlocale(LC_CTYPE, before.c_str());
}

TEST(Ttyname, PseudoTerminalAndPipe) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  EXPECT_EQ(ttynameU16(fds[0]), nullptr);
  close(fds[0]);
  close(fds[1]);
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0) GTEST_SKIP() << "no pseudo-terminals here";
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  const std::string narrow = ttyname(slave);
  NUV_UTF16* w = ttynameU16(slave);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(std::u16string(w), utf16(narrow));
  close(slave);
  close(master);
}

}  // namespace
