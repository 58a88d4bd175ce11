// File-system wrappers on real files with non-ASCII names, checked with the
// narrow calls, and the wrappers that bring a text back.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "nuvu16.h"
#include "support/recording_trace.h"
#include "support/scratch_dir.h"

namespace {

using nuvtest::utf16;

TEST(FileSystem, WrappersActOnTheNarrowNames) {
  nuvtest::ScratchDir dir;
  const std::string d = dir / "Verzeichnis-ä", f = d + "/Datei-€", g = d + "/Ziel-日本", l = d + "/Link-ü", h = d + "/Hart-ö";
  struct stat st;
  ASSERT_EQ(mkdirU16(utf16(d).c_str(), 0700), 0);
  ASSERT_EQ(close(creatU16(utf16(f).c_str(), 0600)), 0);
  EXPECT_EQ(chmodU16(utf16(f).c_str(), 0400), 0);
  EXPECT_EQ(chownU16(utf16(f).c_str(), getuid(), getgid()), 0);
  EXPECT_EQ(stat(f.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0400u);
  EXPECT_EQ(accessU16(utf16(f).c_str(), R_OK), 0);
  EXPECT_EQ(renameU16(utf16(f).c_str(), utf16(g).c_str()), 0);
  EXPECT_EQ(access(f.c_str(), F_OK), -1);
  EXPECT_EQ(linkU16(utf16(g).c_str(), utf16(h).c_str()), 0);
  EXPECT_EQ(symlinkU16(utf16(g).c_str(), utf16(l).c_str()), 0);
  EXPECT_EQ(mkfifoU16(utf16(d + "/Röhre").c_str(), 0600), 0);
  EXPECT_EQ(stat(g.c_str(), &st), 0);
  EXPECT_EQ(st.st_nlink, 2u);
  NUV_UTF16 back[64];
  EXPECT_EQ(readlinkU16(utf16(l).c_str(), back, 64), static_cast<ssize_t>(utf16(g).size()));
  EXPECT_EQ(std::u16string(back), utf16(g));
  struct statvfs64 vfs;
  EXPECT_EQ(statvfsU16(utf16(d).c_str(), &vfs), 0);
  EXPECT_EQ(utimeU16(utf16(g).c_str(), nullptr), 0);
  for (const std::string& gone : {l, h, g, d + "/Röhre"}) EXPECT_EQ(removeU16(utf16(gone).c_str()), 0) << gone;
  EXPECT_EQ(rmdirU16(utf16(d).c_str()), 0);
  EXPECT_EQ(stat(d.c_str(), &st), -1);
  EXPECT_EQ(unlinkU16(utf16(g).c_str()), -1);
  EXPECT_EQ(errno, ENOENT);  // libc's errno comes back unchanged
}

TEST(TextsBack, ReadlinkFillingItsBufferIsTooShort) {
  nuvtest::ScratchDir dir;
  ASSERT_EQ(symlink("Zi\xC3\xABl-\xE6\x97\xA5", (dir / "l").c_str()), 0);
  NUV_UTF16 buf[8];
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  EXPECT_EQ(readlinkU16(utf16(dir / "l").c_str(), buf, 6), -1);  // six units in six
  EXPECT_EQ(errno, ENAMETOOLONG);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_NE(trace.lines[0].find("[flat/nlsui3 line 156]"), std::string::npos);
  EXPECT_EQ(nuvtest::after_header(trace.lines[0]), "Function readlinkU16 :\nArray wbuf length wsize is too small.\n" + nuvtest::kEndLine);
  EXPECT_EQ(readlinkU16(utf16(dir / "none").c_str(), buf, 8), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(TextsBack, GetcwdIntoBufferOrHeap) {
  char saved[4096];
  ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
  nuvtest::ScratchDir dir;
  ASSERT_EQ(mkdir((dir / "Arbeit-ß").c_str(), 0700), 0);
  ASSERT_EQ(chdirU16(utf16(dir / "Arbeit-ß").c_str()), 0);
  const std::u16string want = utf16(dir / "Arbeit-ß");
  NUV_UTF16 buf[512];
  EXPECT_EQ(getcwdU16(buf, want.size() + 1), buf);
  EXPECT_EQ(std::u16string(buf), want);
  EXPECT_EQ(getcwdU16(buf, want.size()), nullptr);  // no room for the terminator
  EXPECT_EQ(errno, ERANGE);
  NUV_UTF16* heap = getcwdU16(nullptr, 512);
  EXPECT_EQ(std::u16string(heap ? heap : u""), want);
  free(heap);
  EXPECT_EQ(getcwdU(nullptr, want.size()), nullptr);
  EXPECT_EQ(errno, ERANGE);
  ASSERT_EQ(chdir(saved), 0);
}

TEST(TextsBack, MkstempSetlocaleTtyname) {
  nuvtest::ScratchDir dir;
  std::u16string templ = utf16(dir / "tmp-é-XXXXXX");
  const int fd = mkstempU16(templ.data());
  ASSERT_GE(fd, 0);
  close(fd);
  std::string narrow = dir / "tmp-é-";
  for (std::size_t i = templ.size() - 6; i < templ.size(); ++i) narrow.push_back(static_cast<char>(templ[i]));
  EXPECT_EQ(access(narrow.c_str(), F_OK), 0) << narrow;
  EXPECT_EQ(mkstempU16(nullptr), -1);
  std::u16string bad = utf16(dir / "no-x");
  EXPECT_EQ(mkstempU16(bad.data()), -1);
  EXPECT_EQ(errno, EINVAL);

  const std::string before = setlocale(LC_CTYPE, nullptr);
  EXPECT_EQ(std::u16string(setlocaleU16(LC_CTYPE, nullptr)), utf16(before));
  EXPECT_EQ(std::u16string(setlocaleU16(LC_CTYPE, u"C.UTF-8")), u"C.UTF-8");
  EXPECT_EQ(setlocaleU(LC_CTYPE, u"no-such-\u00E4"), nullptr);
  setlocale(LC_CTYPE, before.c_str());

  EXPECT_EQ(ttynameU16(-1), nullptr);
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0) GTEST_SKIP() << "no pseudo-terminals here";
  ASSERT_EQ(grantpt(master) | unlockpt(master), 0);
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  const NUV_UTF16* name = ttynameU16(slave);
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::u16string(name), utf16(ttyname(slave)));
  close(slave);
  close(master);
}

}  // namespace
