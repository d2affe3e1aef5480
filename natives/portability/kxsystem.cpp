#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "kxos.h"

extern "C" {

pid_t kx_getpid(void) { return getpid(); }
char* kx_getenv(const char* name) { return getenv(name); }
int kx_getchar(void) { return getc(stdin); }
int kx_rand(void) { return rand(); }
void kx_srand(unsigned seed) { srand(seed); }

void* kx_realloc(void* block, size_t size) { return realloc(block, size); }
void* kx_calloc(size_t itemCount, size_t itemSize) { return calloc(itemCount, itemSize); }

int kx_rename(const char* oldPath, const char* newPath) { return rename(oldPath, newPath); }
int kx_remove(const char* path) { return remove(path); }
int kx_unlink(const char* path) { return unlink(path); }
int kx_link(const char* existingPath, const char* newPath) { return link(existingPath, newPath); }
ssize_t kx_readlink(const char* path, char* buffer, int32_t size) {
  return readlink(path, buffer, static_cast<size_t>(size));  // sign-extended
}
int kx_mkdir(const char* path, mode_t mode) { return mkdir(path, mode); }
int kx_access(const char* path, int mode) { return access(path, mode); }
DIR* kx_opendir(const char* path) { return opendir(path); }
struct dirent64* kx_readdir(DIR* directory) {
  return readdir64(directory);
}
int kx_closedir(DIR* directory) { return closedir(directory); }
char* kx_tmpname(char* buffer) { return tmpnam(buffer); }
FILE* kx_newTmpfile(void) { return tmpfile64(); }
FILE* kx_tmpfile(void) { return kx_newTmpfile(); }
int kx_fsync(int descriptor) { return fsync(descriptor); }

FILE* kx_freopen(const char* path, const char* mode, FILE* file) {
  return freopen64(path, mode, file);
}
int kx_fflush(FILE* file) { return fflush(file); }
int64_t kx_fputs(const char* text, FILE* file) { return fputs(text, file); }
int kx_fseeko(FILE* file, int64_t offset, int whence) { return fseeko64(file, offset, whence); }
long kx_ftell(FILE* file) { return ftell(file); }
int64_t kx_ftello(FILE* file) { return ftello64(file); }
}
