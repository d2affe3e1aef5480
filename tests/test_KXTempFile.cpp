#include "KXTempFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "KXTestSupport.h"

namespace {

using namespace kxtest;

TEST(KXTempFile, IsAnEmptyUnlinkedOwnerOnlyFileWhateverTheUmaskAndClosedWithItsOwner) {
  const long descriptors = openDescriptorCount();
  for (mode_t mask : {0277, 0}) {
    const mode_t previous = umask(mask);
    const KXTempFile file;
    umask(previous);
    const int fd = fileno(file.getFile());
    struct stat status {};
    ASSERT_EQ(0, fstat(fd, &status));
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(0u, status.st_nlink);
    EXPECT_EQ(0600u, status.st_mode & 07777);
    EXPECT_EQ(0, status.st_size);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    // Open for update: what is written reads back.
    EXPECT_GE(fputs("abc", file.getFile()), 0);
    rewind(file.getFile());
    EXPECT_EQ('a', fgetc(file.getFile()));
  }
  EXPECT_EQ(descriptors, openDescriptorCount());
}

// A usable $TMPDIR holds the file (and nothing remains there); any other falls back to /tmp.
TEST(KXTempFile, LivesInAUsableTmpdirElseInTmp) {
  TempDir dir;
  const std::string usable = dir.file("usable");
  ASSERT_EQ(0, mkdir(usable.c_str(), 0700));
  for (const std::string& value :
       {usable, std::string(), dir.file("missing"), dir.writeFile("plain", "x")}) {
    EnvScope scope("TMPDIR", value.c_str());
    const KXTempFile file;
    const std::string link = "/proc/self/fd/" + std::to_string(fileno(file.getFile()));
    char target[4096] = {};
    ASSERT_GT(readlink(link.c_str(), target, sizeof target - 1), 0);
    EXPECT_EQ(0u, std::string(target).rfind(value == usable ? usable + "/" : "/tmp/", 0))
        << value << ": " << target;
  }
  EXPECT_EQ(0, rmdir(usable.c_str())) << "the directory must be left empty";
}

}  // namespace
