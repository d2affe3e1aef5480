#include "StandardDescriptors.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace kxstream {

namespace {

struct Placeholder {
  bool closed = false;
  dev_t device = 0;
  ino_t inode = 0;
};

Placeholder placeholders[3];

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1 || errno != EBADF; }

// An anonymous file, reopened as a path-only descriptor: it has an identity of its own (so
// /dev/fd/N of it is recognised) and refuses reading and writing with EBADF.
void occupy(int descriptor) {
  const int anonymous = memfd_create("kxstream-closed", 0);  // takes the lowest free number
  if (anonymous < 0) {
    return;
  }
  const std::string self = "/proc/self/fd/" + std::to_string(anonymous);
  const int pathOnly = open(self.c_str(), O_PATH);
  if (pathOnly >= 0) {
    dup2(pathOnly, anonymous);
    if (pathOnly != anonymous) {
      close(pathOnly);
    }
  }
  struct stat status {};
  fstat(anonymous, &status);
  Placeholder& slot = placeholders[descriptor];
  slot.closed = true;
  slot.device = status.st_dev;
  slot.inode = status.st_ino;
  if (anonymous != descriptor) {
    // Cannot happen while lower numbers are filled first; keep the numbering honest anyway.
    dup2(anonymous, descriptor);
    close(anonymous);
  }
}

}  // namespace

void guardStandardDescriptors() {
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    if (!isOpen(descriptor)) {
      occupy(descriptor);
    }
  }
}

bool wasClosedAtStart(int descriptor) {
  return descriptor >= 0 && descriptor < 3 && placeholders[descriptor].closed;
}

bool isPlaceholder(const struct stat& status) {
  for (const Placeholder& slot : placeholders) {
    if (slot.closed && slot.device == status.st_dev && slot.inode == status.st_ino) {
      return true;
    }
  }
  return false;
}

}  // namespace kxstream
