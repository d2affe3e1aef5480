#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "KXTempFile.h"
#include "KXTestSupport.h"

namespace {

// Sets $TMPDIR for the scope and restores what was there before.
class TmpdirScope {
 public:
  explicit TmpdirScope(const std::string& value) {
    const char* previous = getenv("TMPDIR");
    mHadPrevious = previous != nullptr;
    mPrevious = mHadPrevious ? previous : "";
    setenv("TMPDIR", value.c_str(), 1);
  }
  ~TmpdirScope() {
    if (mHadPrevious) {
      setenv("TMPDIR", mPrevious.c_str(), 1);
    } else {
      unsetenv("TMPDIR");
    }
  }

 private:
  bool mHadPrevious;
  std::string mPrevious;
};

struct stat statusOf(const KXTempFile& file) {
  struct stat status {};
  EXPECT_EQ(fstat(fileno(file.getFile()), &status), 0);
  return status;
}

// Where the descriptor's file lived, as the kernel names it ("/dir/#123 (deleted)").
std::string linkTextOf(const KXTempFile& file) {
  const std::string link = "/proc/self/fd/" + std::to_string(fileno(file.getFile()));
  char target[4096];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

std::vector<std::string> entriesOf(const std::string& directory) {
  std::vector<std::string> names;
  DIR* stream = opendir(directory.c_str());
  for (dirent* entry = readdir(stream); entry != nullptr; entry = readdir(stream)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  closedir(stream);
  return names;
}

size_t openDescriptorCount() { return entriesOf("/proc/self/fd").size(); }

TEST(KXTempFile, IsAnEmptyUnlinkedOwnerOnlyFileClosedOnExec) {
  const KXTempFile file;
  ASSERT_NE(file.getFile(), nullptr);
  const struct stat status = statusOf(file);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_nlink, 0u);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_TRUE(fcntl(fileno(file.getFile()), F_GETFD) & FD_CLOEXEC);
}

TEST(KXTempFile, ModeIsOwnerOnlyWhateverTheUmask) {
  const mode_t previous = umask(0277);
  const KXTempFile restrictive;
  umask(0);
  const KXTempFile permissive;
  umask(previous);
  EXPECT_EQ(statusOf(restrictive).st_mode & 07777, 0600u);
  EXPECT_EQ(statusOf(permissive).st_mode & 07777, 0600u);
}

TEST(KXTempFile, ReadsBackWhatWasWritten) {
  const KXTempFile file;
  const std::string bytes = kxtest::randomBytes(100000, 7);
  FILE* stream = file.getFile();
  ASSERT_EQ(fwrite(bytes.data(), 1, bytes.size(), stream), bytes.size());
  rewind(stream);
  std::string back(bytes.size(), '\0');
  ASSERT_EQ(fread(&back[0], 1, back.size(), stream), back.size());
  EXPECT_EQ(back, bytes);
}

TEST(KXTempFile, LivesInTmpdirAndLeavesNothingThere) {
  kxtest::TempDir directory;
  struct stat directoryStatus {};
  ASSERT_EQ(stat(directory.path().c_str(), &directoryStatus), 0);
  TmpdirScope scope(directory.path());
  {
    const KXTempFile file;
    EXPECT_EQ(linkTextOf(file).rfind(directory.path() + "/", 0), 0u) << linkTextOf(file);
    EXPECT_EQ(statusOf(file).st_dev, directoryStatus.st_dev);
    EXPECT_TRUE(entriesOf(directory.path()).empty());
  }
  EXPECT_TRUE(entriesOf(directory.path()).empty());
}

TEST(KXTempFile, UnusableTmpdirFallsBackToTmp) {
  kxtest::TempDir directory;
  const std::string notADirectory = directory.writeFile("plain", "x");
  for (const std::string& value : {std::string(), directory.file("missing"), notADirectory}) {
    TmpdirScope scope(value);
    const KXTempFile file;
    EXPECT_EQ(linkTextOf(file).rfind("/tmp/", 0), 0u) << "TMPDIR=" << value;
  }
}

TEST(KXTempFile, LeavesNoDescriptorOpen) {
  const size_t before = openDescriptorCount();
  for (int round = 0; round < 20; ++round) {
    const KXTempFile file;
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(KXTempFile, ThrowsTheErrnoWhenNoDescriptorIsLeft) {
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  const size_t before = openDescriptorCount();
  rlimit tight = saved;
  tight.rlim_cur = before + 8;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
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
  EXPECT_EQ(thrown, EMFILE);
  EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
