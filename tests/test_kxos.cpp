#include "kxos.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "KXTestSupport.h"

namespace {

using kxtest::fileContents;

// Mode names ignore case; none truncates but "w"; "a" starts at the end without O_APPEND, so
// that a seek moves the writes; an unknown mode opens for reading at the start.
TEST(KxOpen, ModeNamesSetAccessStartAndCreationOfACloseOnExecDescriptor) {
  const struct {
    const char* mode;
    int access;
    long start;
    const char* after;  // the file after writing "AB" at offset 0
  } cases[] = {{"r", O_RDONLY, 0, "0123456789"},  {"RB", O_RDONLY, 0, "0123456789"},
               {"RB+", O_RDWR, 0, "AB23456789"},  {"r+b", O_RDWR, 0, "AB23456789"},
               {"a", O_WRONLY, 10, "AB23456789"}, {"A+B", O_RDWR, 10, "AB23456789"},
               {"w", O_WRONLY, 0, "AB"},          {"x", O_RDONLY, 0, "0123456789"}};
  for (const auto& c : cases) {
    kxtest::TempDir dir;
    const std::string path = dir.writeFile("f", "0123456789");
    const int fd = kx_open(path.c_str(), c.mode);
    ASSERT_GE(fd, 0) << c.mode;
    EXPECT_EQ(c.access, fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND)) << c.mode;
    EXPECT_NE(0, fcntl(fd, F_GETFD) & FD_CLOEXEC) << c.mode;
    EXPECT_EQ(c.start, kx_lseek(fd, 0, SEEK_CUR)) << c.mode;
    kx_lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(c.access == O_RDONLY ? -1 : 2, kx_write(fd, "AB", 2)) << c.mode;
    kx_close(fd);
    EXPECT_EQ(c.after, fileContents(path)) << c.mode;
  }
}

TEST(KxOpen, ReadWriteNeedsAnExistingFileWhileWriteAndAppendPlusCreateItWith0755LessTheUmask) {
  kxtest::TempDir dir;
  errno = 0;
  EXPECT_EQ(-1, kx_open(dir.file("missing").c_str(), "r+"));
  EXPECT_EQ(ENOENT, errno);
  const mode_t previous = umask(022);
  for (const char* mode : {"w", "a+"}) {
    const std::string path = dir.file(mode);
    const int fd = kx_open(path.c_str(), mode);
    ASSERT_GE(fd, 0) << mode;
    ASSERT_EQ(3, kx_write(fd, "xyz", 3));
    kx_close(fd);
    struct stat64 record {};
    ASSERT_EQ(0, kx_stat(path.c_str(), &record));
    EXPECT_EQ(0755u, record.st_mode & 0777) << mode;
    EXPECT_EQ("xyz", fileContents(path));
  }
  umask(previous);
}

TEST(KxOpen, DirectoriesAreRefusedWithEISDIRUnlessAllowed) {
  kxtest::TempDir dir;
  errno = 0;
  EXPECT_EQ(-1, kx_open(dir.path().c_str(), "r"));
  EXPECT_EQ(EISDIR, errno);
  const int fd = kx_open_with_dir(dir.path().c_str(), "r", 1);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(O_RDONLY, fcntl(fd, F_GETFL) & O_ACCMODE);
  kx_close(fd);
}

TEST(KxOpen, SetStartPosSeeksToTheEndForAnAAnywhereAndToTheStartForW) {
  kxtest::TempDir dir;
  const int fd = kx_open(dir.writeFile("f", "abc").c_str(), "r");
  EXPECT_EQ(-1, kx_setStartPos(fd, "x"));
  EXPECT_EQ(3, kx_setStartPos(fd, "rA"));
  EXPECT_EQ(0, kx_setStartPos(fd, "W"));
  kx_close(fd);
}

TEST(KxMemory, CopyHandlesOverlapLikeMemmove) {
  char viaKx[] = "0123456789";
  char viaMemmove[] = "0123456789";
  kx_memcpy(viaKx + 2, viaKx, 6);
  memmove(viaMemmove + 2, viaMemmove, 6);
  kx_memcpy(viaKx, viaKx + 3, 5);
  memmove(viaMemmove, viaMemmove + 3, 5);
  EXPECT_STREQ(viaMemmove, viaKx);
}

TEST(KxHandles, SetFilePointerReportsSuccessNotThePosition) {
  kxtest::TempDir dir;
  const std::string path = dir.writeFile("f", "0123456789");
  FILE* file = kx_CreateFile(path.c_str(), "rb+");
  ASSERT_NE(nullptr, file);
  EXPECT_EQ(0, kx_SetFilePointer(file, 7, SEEK_SET));
  char byte = 0;
  EXPECT_EQ(1u, kx_ReadFile(&byte, 1, 1, file));
  EXPECT_EQ('7', byte);
  EXPECT_EQ(-1, kx_SetFilePointer(file, -100, SEEK_SET));
  EXPECT_EQ(0, kx_SetFilePointer(file, 0, SEEK_SET));
  EXPECT_EQ(1u, kx_WriteFile("Z", 1, 1, file));
  EXPECT_EQ(0, kx_CloseHandle(file));
  EXPECT_EQ("Z123456789", fileContents(path));
}

}  // namespace
