#include "kxos.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

struct ModeFlags {
  const char* mode;
  int flags;
};

// Append modes carry no O_APPEND on purpose: the descriptor is placed at the end once, and
// later writes go wherever its offset stands, so a stream can still rewrite earlier bytes.
constexpr ModeFlags kModeTable[] = {
    {"r", O_RDONLY},
    {"rb", O_RDONLY},
    {"w", O_WRONLY | O_CREAT | O_TRUNC},
    {"wb", O_WRONLY | O_CREAT | O_TRUNC},
    {"a", O_WRONLY | O_CREAT},
    {"ab", O_WRONLY | O_CREAT},
    {"r+", O_RDWR},
    {"rb+", O_RDWR},
    {"r+b", O_RDWR},
    {"a+", O_RDWR | O_CREAT},
    {"ab+", O_RDWR | O_CREAT},
    {"a+b", O_RDWR | O_CREAT},
    {"w+", O_RDWR | O_CREAT | O_TRUNC},
    {"wb+", O_RDWR | O_CREAT | O_TRUNC},
    {"w+b", O_RDWR | O_CREAT | O_TRUNC},
};

constexpr mode_t kNewFilePermissions = 0755;

int openFlagsForMode(const char* mode) {
  for (const ModeFlags& entry : kModeTable) {
    if (kx_strcasecmp(mode, entry.mode) == 0) {
      return entry.flags;
    }
  }
  return O_RDONLY;
}

bool isDirectory(const char* path) {
  struct stat64 record {};
  (void)kx_stat(path, &record);
  return (record.st_mode & S_IFMT) == S_IFDIR;
}

bool modeHolds(const char* mode, char lowerCaseLetter) {
  for (const char* at = mode; *at != '\0'; ++at) {
    if (*at == lowerCaseLetter || *at == lowerCaseLetter - ('a' - 'A')) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" {

void* kx_malloc(size_t size) { return malloc(size); }
void kx_free(void* block) { free(block); }
void* kx_memset(void* destination, int value, size_t count) {
  return memset(destination, value, count);
}
void* kx_memcpy(void* destination, const void* source, size_t count) {
  return memmove(destination, source, count);
}

char* kx_strdup(const char* text) { return strdup(text); }
size_t kx_strlen(const char* text) { return strlen(text); }
char* kx_strchr(const char* text, int character) {
  return const_cast<char*>(strchr(text, character));
}
int kx_strcasecmp(const char* left, const char* right) { return strcasecmp(left, right); }

int kx_open(const char* path, const char* mode) { return kx_open_with_dir(path, mode, 0); }

int kx_open_with_dir(const char* path, const char* mode, unsigned char directoryAllowed) {
  if (directoryAllowed == 0 && isDirectory(path)) {
    // Callers build their error text from errno; give them the real reason.
    errno = EISDIR;
    return -1;
  }
  // O_CLOEXEC: a descriptor owned by a stream must not leak into programs the client starts.
  const int descriptor = open64(path, openFlagsForMode(mode) | O_CLOEXEC, kNewFilePermissions);
  if (descriptor == -1) {
    return -1;
  }
  (void)kx_setStartPos(descriptor, mode);
  return descriptor;
}

int kx_setStartPos(int descriptor, const char* mode) {
  if (modeHolds(mode, 'a')) {
    return static_cast<int>(kx_lseek(descriptor, 0, SEEK_END));
  }
  if (modeHolds(mode, 'r') || modeHolds(mode, 'w')) {
    return static_cast<int>(kx_lseek(descriptor, 0, SEEK_SET));
  }
  return -1;
}

ssize_t kx_read(int descriptor, void* buffer, size_t count) {
  return read(descriptor, buffer, count);
}
ssize_t kx_write(int descriptor, const void* buffer, size_t count) {
  return write(descriptor, buffer, count);
}
int64_t kx_lseek(int descriptor, int64_t offset, int whence) {
  return lseek64(descriptor, offset, whence);
}
int kx_ftruncate(int descriptor, int64_t length) { return ftruncate64(descriptor, length); }
int kx_close(int descriptor) { return close(descriptor); }
int kx_stat(const char* path, struct stat64* record) { return stat64(path, record); }
int kx_fstat(int descriptor, struct stat64* record) { return fstat64(descriptor, record); }
int64_t kx_fstatfs_type(int descriptor) {
  struct statfs64 record {};
  if (fstatfs64(descriptor, &record) != 0) {
    return -1;
  }
  return static_cast<int64_t>(record.f_type);
}

FILE* kx_fopen(const char* path, const char* mode) { return fopen64(path, mode); }
size_t kx_fread(void* buffer, size_t itemSize, size_t itemCount, FILE* file) {
  return fread(buffer, itemSize, itemCount, file);
}
size_t kx_fwrite(const void* buffer, size_t itemSize, size_t itemCount, FILE* file) {
  return fwrite(buffer, itemSize, itemCount, file);
}
int kx_fseek(FILE* file, long offset, int whence) { return fseek(file, offset, whence); }
int kx_fclose(FILE* file) { return fclose(file); }

FILE* kx_CreateFile(const char* path, const char* mode) { return kx_fopen(path, mode); }
size_t kx_ReadFile(void* buffer, size_t itemSize, size_t itemCount, FILE* file) {
  return kx_fread(buffer, itemSize, itemCount, file);
}
size_t kx_WriteFile(const void* buffer, size_t itemSize, size_t itemCount, FILE* file) {
  return kx_fwrite(buffer, itemSize, itemCount, file);
}
int64_t kx_SetFilePointer(FILE* file, long offset, int whence) {
  return kx_fseek(file, offset, whence) == 0 ? 0 : -1;
}
int kx_CloseHandle(FILE* file) { return kx_fclose(file); }

int kx_sprintf(char* destination, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vsprintf(destination, format, arguments);
  va_end(arguments);
  return written;
}

int kx_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stdout, format, arguments);
  va_end(arguments);
  return written;
}
}
