#include "KXTempFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "KXTestSupport.h"

namespace {

using namespace kxtest;

struct stat statusOf(const KXTempFile& file) {
  struct stat status {};
  EXPECT_EQ(0, fstat(fileno(file.getFile()), &status));
  return status;
}

// Where the descriptor's file lived, as the kernel names it ("/dir/#123 (deleted)").
std::string linkTextOf(const KXTempFile& file) {
  const std::string link = "/proc/self/fd/" + std::to_string(fileno(file.getFile()));
  char target[4096];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

TEST(KXTempFile, IsAnEmptyUnlinkedOwnerOnlyFileWhateverTheUmaskAndClosedWithItsOwner) {
  const long descriptors = openDescriptorCount();
  const std::string bytes = randomBytes(100000, 7);
  for (mode_t mask : {0277, 0}) {
    const mode_t previous = umask(mask);
    {
      const KXTempFile file;
      umask(previous);
      ASSERT_NE(nullptr, file.getFile());
      const struct stat status = statusOf(file);
      EXPECT_TRUE(S_ISREG(status.st_mode));
      EXPECT_EQ(0u, status.st_nlink);
      EXPECT_EQ(0600u, status.st_mode & 07777);
      EXPECT_EQ(0, status.st_size);
      EXPECT_TRUE(fcntl(fileno(file.getFile()), F_GETFD) & FD_CLOEXEC);
      ASSERT_EQ(bytes.size(), fwrite(bytes.data(), 1, bytes.size(), file.getFile()));
      rewind(file.getFile());
      std::string back(bytes.size(), '\0');
      ASSERT_EQ(back.size(), fread(&back[0], 1, back.size(), file.getFile()));
      EXPECT_EQ(bytes, back);
    }
  }
  EXPECT_EQ(descriptors, openDescriptorCount());
}

// A usable $TMPDIR holds the file (and nothing remains there); any other falls back to /tmp.
TEST(KXTempFile, LivesInAUsableTmpdirElseInTmp) {
  TempDir dir;
  const std::string plainFile = dir.writeFile("plain", "x");
  const std::string usable = dir.file("usable");
  ASSERT_EQ(0, mkdir(usable.c_str(), 0700));
  for (const std::string& value : {usable, std::string(), dir.file("missing"), plainFile}) {
    EnvScope scope("TMPDIR", value.c_str());
    const KXTempFile file;
    const std::string expected = value == usable ? usable + "/" : "/tmp/";
    EXPECT_EQ(0u, linkTextOf(file).rfind(expected, 0)) << value << ": " << linkTextOf(file);
  }
  EXPECT_EQ(0, rmdir(usable.c_str())) << "the directory must be left empty";
}

TEST(KXTempFile, ThrowsTheErrnoWhenNoDescriptorIsLeft) {
  rlimit saved{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
  const long before = openDescriptorCount();
  rlimit tight = saved;
  tight.rlim_cur = static_cast<rlim_t>(before) + 8;
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &tight));
  std::vector<int> fillers;
  for (int fd = dup(STDIN_FILENO); fd >= 0; fd = dup(STDIN_FILENO)) {
    fillers.push_back(fd);
  }
  int thrown = 0;
  try {
    const KXTempFile file;
  } catch (int error) {
    thrown = error;
  }
  for (int fd : fillers) {
    close(fd);
  }
  setrlimit(RLIMIT_NOFILE, &saved);
  EXPECT_EQ(EMFILE, thrown);
  EXPECT_EQ(before, openDescriptorCount());
}

}  // namespace
