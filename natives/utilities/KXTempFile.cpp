#include "KXTempFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr const char* kFallbackDirectory = "/tmp";

// The errno of the failed call, never 0, so a catcher can always tell the failure apart.
[[noreturn]] void throwErrno(int error) { throw error != 0 ? error : EIO; }

// Closes fd and throws the errno of the call that failed before, which close must not change.
[[noreturn]] void closeAndThrow(int fd) {
  const int error = errno;
  close(fd);
  throwErrno(error);
}

bool isUsableDirectory(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode) && access(path, W_OK | X_OK) == 0;
}

std::string temporaryDirectory() {
  const char* fromEnvironment = getenv("TMPDIR");
  if (fromEnvironment != nullptr && *fromEnvironment != '\0' &&
      isUsableDirectory(fromEnvironment)) {
    return fromEnvironment;
  }
  return kFallbackDirectory;
}

// The errors by which open tells that the kernel or the file system has no unnamed files.
bool lacksUnnamedFiles(int error) {
  return error == EOPNOTSUPP || error == EISDIR || error == EINVAL || error == ENOENT ||
         error == ENOSYS;
}

// A named file that exists only until the unlink a moment later.
int openNamedThenUnlink(const std::string& directory) {
  std::string path = directory + "/KXTempFile-XXXXXX";
  const int fd = mkostemp(&path[0], O_CLOEXEC);
  if (fd < 0) {
    throwErrno(errno);
  }
  if (unlink(path.c_str()) != 0) {
    closeAndThrow(fd);
  }
  return fd;
}

int openUnlinkedFile(const std::string& directory) {
  const int fd = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kOwnerOnly);
  if (fd >= 0) {
    return fd;
  }
  if (!lacksUnnamedFiles(errno)) {
    throwErrno(errno);
  }
  return openNamedThenUnlink(directory);
}

}  // namespace

KXTempFile::KXTempFile() {
  const int fd = openUnlinkedFile(temporaryDirectory());
  // The creation modes are narrowed by the umask; the file must be exactly owner-only.
  if (fchmod(fd, kOwnerOnly) != 0) {
    closeAndThrow(fd);
  }
  mFile = fdopen(fd, "w+b");
  if (mFile == nullptr) {
    closeAndThrow(fd);
  }
}

KXTempFile::~KXTempFile() {
  if (mFile != nullptr) {
    fclose(mFile);
  }
}

FILE* KXTempFile::getFile() const { return mFile; }
