#ifndef KX_OS_H
#define KX_OS_H

// The portability layer: thin wrappers over the C library and POSIX, so that a port to another
// system changes only this layer. Forwarders keep the wrapped call's arguments, result and
// errno; nothing here throws, logs or retries.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "KXExport.h"

extern "C" {

// Memory.
KX_EXPORT void* kx_malloc(size_t size);
KX_EXPORT void kx_free(void* block);
KX_EXPORT void* kx_memset(void* destination, int value, size_t count);
// Copies overlapping ranges correctly (memmove).
KX_EXPORT void* kx_memcpy(void* destination, const void* source, size_t count);

// Narrow strings.
KX_EXPORT char* kx_strdup(const char* text);
KX_EXPORT size_t kx_strlen(const char* text);
KX_EXPORT char* kx_strchr(const char* text, int character);
KX_EXPORT int kx_strcasecmp(const char* left, const char* right);

// Descriptors. kx_open takes an fopen-style mode ("r", "wb+", ...), refuses directories and
// places the new descriptor at the end for append modes, at the start otherwise.
KX_EXPORT int kx_open(const char* path, const char* mode);
KX_EXPORT int kx_open_with_dir(const char* path, const char* mode, unsigned char directoryAllowed);
// The new position cut to 32 bits, or -1 when the mode names no start.
KX_EXPORT int kx_setStartPos(int descriptor, const char* mode);
KX_EXPORT ssize_t kx_read(int descriptor, void* buffer, size_t count);
KX_EXPORT ssize_t kx_write(int descriptor, const void* buffer, size_t count);
KX_EXPORT int64_t kx_lseek(int descriptor, int64_t offset, int whence);
KX_EXPORT int kx_ftruncate(int descriptor, int64_t length);
KX_EXPORT int kx_close(int descriptor);
KX_EXPORT int kx_stat(const char* path, struct stat64* record);

// Standard I/O streams.
KX_EXPORT FILE* kx_fopen(const char* path, const char* mode);
KX_EXPORT size_t kx_fread(void* buffer, size_t itemSize, size_t itemCount, FILE* file);
KX_EXPORT size_t kx_fwrite(const void* buffer, size_t itemSize, size_t itemCount, FILE* file);
KX_EXPORT int kx_fseek(FILE* file, long offset, int whence);
KX_EXPORT int kx_fclose(FILE* file);

// The same files under handle-style names. kx_SetFilePointer returns 0 or -1, not a position.
KX_EXPORT FILE* kx_CreateFile(const char* path, const char* mode);
KX_EXPORT size_t kx_ReadFile(void* buffer, size_t itemSize, size_t itemCount, FILE* file);
KX_EXPORT size_t kx_WriteFile(const void* buffer, size_t itemSize, size_t itemCount, FILE* file);
KX_EXPORT int64_t kx_SetFilePointer(FILE* file, long offset, int whence);
KX_EXPORT int kx_CloseHandle(FILE* file);

// Formatted output. kx_sprintf has no bound: the caller provides enough room.
KX_EXPORT int kx_sprintf(char* destination, const char* format, ...) KX_PRINTF_FORMAT(2, 3);
KX_EXPORT int kx_printf(const char* format, ...) KX_PRINTF_FORMAT(1, 2);
}

#endif
