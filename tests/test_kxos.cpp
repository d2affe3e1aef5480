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

// Reads the whole file behind a path, for checking what a descriptor wrote.
std::string contentsOf(const std::string& path) {
  std::string bytes;
  FILE* file = kx_fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return bytes;
  }
  char chunk[256];
  size_t got = 0;
  while ((got = kx_fread(chunk, 1, sizeof chunk, file)) > 0) {
    bytes.append(chunk, got);
  }
  kx_fclose(file);
  return bytes;
}

int accessModeOf(int descriptor) { return fcntl(descriptor, F_GETFL) & O_ACCMODE; }

class KxOpen : public ::testing::Test {
 protected:
  kxtest::TempDir mDir;
};

TEST_F(KxOpen, ModeNamesIgnoreCaseAndSetTheAccessMode) {
  const std::string path = mDir.writeFile("f", "0123456789");
  struct Case {
    const char* mode;
    int accessMode;
  };
  for (const Case& c : {Case{"r", O_RDONLY}, Case{"RB", O_RDONLY}, Case{"RB+", O_RDWR},
                        Case{"r+b", O_RDWR}, Case{"a", O_WRONLY}, Case{"A+B", O_RDWR}}) {
    const int fd = kx_open(path.c_str(), c.mode);
    ASSERT_GE(fd, 0) << c.mode;
    EXPECT_EQ(accessModeOf(fd), c.accessMode) << c.mode;
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "descriptor must not leak into children";
    kx_close(fd);
  }
  EXPECT_EQ(contentsOf(path), "0123456789") << "no mode above may truncate";
}

TEST_F(KxOpen, AppendPlacesTheOffsetAtTheEndOnceWithoutOAppend) {
  const std::string path = mDir.writeFile("f", "0123456789");
  const int fd = kx_open(path.c_str(), "a");
  ASSERT_GE(fd, 0);
  EXPECT_EQ(kx_lseek(fd, 0, SEEK_CUR), 10);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_APPEND, 0);
  ASSERT_EQ(kx_lseek(fd, 0, SEEK_SET), 0);
  ASSERT_EQ(kx_write(fd, "AB", 2), 2);
  kx_close(fd);
  EXPECT_EQ(contentsOf(path), "AB23456789");
}

TEST_F(KxOpen, WriteTruncatesReadWriteNeedsAnExistingFileAppendPlusCreates) {
  const std::string existing = mDir.writeFile("f", "old contents");
  int fd = kx_open(existing.c_str(), "w");
  ASSERT_GE(fd, 0);
  kx_close(fd);
  EXPECT_EQ(contentsOf(existing), "");

  errno = 0;
  EXPECT_EQ(kx_open(mDir.file("missing").c_str(), "r+"), -1);
  EXPECT_EQ(errno, ENOENT);

  const std::string created = mDir.file("created");
  fd = kx_open(created.c_str(), "a+");
  ASSERT_GE(fd, 0);
  ASSERT_EQ(kx_write(fd, "xyz", 3), 3);
  ASSERT_EQ(kx_lseek(fd, 0, SEEK_SET), 0);
  char back[3] = {};
  EXPECT_EQ(kx_read(fd, back, sizeof back), 3);
  EXPECT_EQ(std::string(back, 3), "xyz");
  kx_close(fd);
}

TEST_F(KxOpen, NewFilesGet0755LessTheUmask) {
  const mode_t previous = umask(022);
  const std::string path = mDir.file("new");
  const int fd = kx_open(path.c_str(), "w");
  umask(previous);
  ASSERT_GE(fd, 0);
  kx_close(fd);
  struct stat64 record {};
  ASSERT_EQ(kx_stat(path.c_str(), &record), 0);
  EXPECT_EQ(record.st_mode & 0777, 0755u);
}

TEST_F(KxOpen, DirectoriesAreRefusedUnlessAllowed) {
  errno = 0;
  EXPECT_EQ(kx_open(mDir.path().c_str(), "r"), -1);
  EXPECT_EQ(errno, EISDIR) << "callers build their message from errno";
  const int fd = kx_open_with_dir(mDir.path().c_str(), "r", 1);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(accessModeOf(fd), O_RDONLY);
  kx_close(fd);
}

TEST_F(KxOpen, UnknownModeOpensReadOnlyAtTheStart) {
  const std::string path = mDir.writeFile("f", "abc");
  const int fd = kx_open(path.c_str(), "x");
  ASSERT_GE(fd, 0);
  EXPECT_EQ(accessModeOf(fd), O_RDONLY);
  EXPECT_EQ(kx_lseek(fd, 0, SEEK_CUR), 0);
  EXPECT_EQ(kx_setStartPos(fd, "x"), -1);
  EXPECT_EQ(kx_setStartPos(fd, "A"), 3) << "an a anywhere seeks to the end";
  EXPECT_EQ(kx_setStartPos(fd, "W"), 0);
  kx_close(fd);
}

TEST(KxMemory, CopyHandlesOverlapLikeMemmove) {
  char viaKx[] = "0123456789";
  char viaMemmove[] = "0123456789";
  kx_memcpy(viaKx + 2, viaKx, 6);
  memmove(viaMemmove + 2, viaMemmove, 6);
  EXPECT_STREQ(viaKx, viaMemmove);
  kx_memcpy(viaKx, viaKx + 3, 5);
  memmove(viaMemmove, viaMemmove + 3, 5);
  EXPECT_STREQ(viaKx, viaMemmove);
}

TEST(KxHandles, SetFilePointerReportsSuccessNotThePosition) {
  kxtest::TempDir dir;
  const std::string path = dir.writeFile("f", "0123456789");
  FILE* file = kx_CreateFile(path.c_str(), "rb+");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(kx_SetFilePointer(file, 7, SEEK_SET), 0);
  char byte = 0;
  EXPECT_EQ(kx_ReadFile(&byte, 1, 1, file), 1u);
  EXPECT_EQ(byte, '7');
  EXPECT_EQ(kx_SetFilePointer(file, -100, SEEK_SET), -1);
  EXPECT_EQ(kx_SetFilePointer(file, 0, SEEK_SET), 0);
  EXPECT_EQ(kx_WriteFile("Z", 1, 1, file), 1u);
  EXPECT_EQ(kx_CloseHandle(file), 0);
  EXPECT_EQ(contentsOf(path), "Z123456789");
}

TEST(KxFormat, SprintfFormatsIntoTheCallersRoom) {
  char line[64];
  EXPECT_EQ(kx_sprintf(line, "%s=%ld", "pos", -42L), 7);
  EXPECT_STREQ(line, "pos=-42");
}

}  // namespace
