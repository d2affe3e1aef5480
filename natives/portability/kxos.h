#ifndef KX_OS_H
#define KX_OS_H

// The portability layer: thin wrappers over the C library and POSIX, so that a port to another
// system changes only this layer. Forwarders keep the wrapped call's arguments, result and
// errno; nothing here throws, logs or retries.

#include <dirent.h>
#include <netdb.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <cwchar>

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
KX_EXPORT int kx_fstat(int descriptor, struct stat64* record);
// The file-system type (statfs's f_type) of the file open on the descriptor, or -1 with errno.
KX_EXPORT int64_t kx_fstatfs_type(int descriptor);

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

// The calling thread as kx_get_thread_info reports it; reserved is always 0.
typedef struct {
  pthread_t thread;
  uint64_t reserved;
} kx_thread_info_t;

// Threads and thread-specific data. Unless noted, results are 0 or the error number that the
// thread call reported; errno is not used. kx_thread_join ignores its second argument.
// kx_thread_kill sends no signal: it is a liveness probe, 0 for a live thread and ESRCH where the
// C library can tell that the thread is gone (glibc 2.34 and later report an ended thread as 0).
KX_EXPORT int kx_thread_create(pthread_t* thread, const pthread_attr_t* attribute,
                               void* (*startRoutine)(void*), void* argument);
KX_EXPORT int kx_thread_join(pthread_t thread, void* ignored, void** exitValue);
[[noreturn]] KX_EXPORT void kx_thread_exit(void* exitValue);
KX_EXPORT int kx_thread_kill(pthread_t thread);
KX_EXPORT pthread_t kx_thread_self(void);
KX_EXPORT pthread_t kx_get_thread_info(kx_thread_info_t* info);
KX_EXPORT int kx_key_create(pthread_key_t* key, void (*destructor)(void*));
KX_EXPORT int kx_key_delete(pthread_key_t key);
KX_EXPORT void* kx_getspecific(pthread_key_t key);
KX_EXPORT int kx_setspecific(pthread_key_t key, const void* value);

// Mutexes and condition variables, results as for threads. The recursive family behaves as the
// plain one; kx_recursive_mutex_init takes its type from the caller's attribute, and with a null
// attribute makes a recursive mutex.
KX_EXPORT int kx_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
KX_EXPORT int kx_mutex_lock(pthread_mutex_t* mutex);
KX_EXPORT int kx_mutex_trylock(pthread_mutex_t* mutex);
KX_EXPORT int kx_mutex_unlock(pthread_mutex_t* mutex);
KX_EXPORT int kx_mutex_destroy(pthread_mutex_t* mutex);
KX_EXPORT int kx_recursive_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
KX_EXPORT int kx_recursive_mutex_lock(pthread_mutex_t* mutex);
KX_EXPORT int kx_recursive_mutex_trylock(pthread_mutex_t* mutex);
KX_EXPORT int kx_recursive_mutex_unlock(pthread_mutex_t* mutex);
KX_EXPORT int kx_recursive_mutex_destroy(pthread_mutex_t* mutex);
KX_EXPORT int kx_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);
KX_EXPORT int kx_cond_destroy(pthread_cond_t* condition);
KX_EXPORT int kx_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
KX_EXPORT int kx_cond_signal(pthread_cond_t* condition);
KX_EXPORT int kx_cond_broadcast(pthread_cond_t* condition);
KX_EXPORT int kx_condattr_init(pthread_condattr_t* attribute);
KX_EXPORT int kx_condattr_destroy(pthread_condattr_t* attribute);

// Semaphores: 0, or -1 with errno.
KX_EXPORT int kx_sem_init(sem_t* semaphore, int processShared, unsigned value);
KX_EXPORT int kx_sem_destroy(sem_t* semaphore);
KX_EXPORT int kx_sem_wait(sem_t* semaphore);
KX_EXPORT int kx_sem_trywait(sem_t* semaphore);
KX_EXPORT int kx_sem_post(sem_t* semaphore);

// Sockets, results as the wrapped calls give them. kx_inet_addr returns the network-order
// address widened without sign; kx_gethostbyname returns the C library's shared record.
KX_EXPORT int kx_socket(int domain, int type, int protocol);
KX_EXPORT int kx_bind(int socket, const struct sockaddr* address, socklen_t length);
KX_EXPORT int kx_listen(int socket, int backlog);
KX_EXPORT int kx_accept(int socket, struct sockaddr* address, socklen_t* length);
KX_EXPORT int kx_connect(int socket, const struct sockaddr* address, socklen_t length);
KX_EXPORT ssize_t kx_send(int socket, const void* buffer, int32_t length, int flags);
KX_EXPORT ssize_t kx_recv(int socket, void* buffer, int32_t length, int flags);
KX_EXPORT int kx_setsockopt(int socket, int level, int option, const void* value, socklen_t length);
KX_EXPORT int kx_getsockopt(int socket, int level, int option, void* value, socklen_t* length);
KX_EXPORT int kx_getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                             struct addrinfo** result);
KX_EXPORT struct hostent* kx_gethostbyname(const char* name);
KX_EXPORT uint64_t kx_inet_addr(const char* dottedAddress);
KX_EXPORT int kx_closesocket(int socket);

// Time. kx_gettimeofday returns exactly 0 or -1. kx_mktime reads the broken-down time as UTC.
// kx_ctime, kx_localtime and kx_gmtime return the C library's shared storage.
KX_EXPORT int kx_gettimeofday(struct timeval* now);
KX_EXPORT unsigned kx_sleep(unsigned seconds);
KX_EXPORT time_t kx_time(time_t* now);
KX_EXPORT char* kx_ctime(const time_t* when);
KX_EXPORT struct tm* kx_localtime(const time_t* when);
KX_EXPORT struct tm* kx_gmtime(const time_t* when);
KX_EXPORT time_t kx_mktime(struct tm* brokenDown);

// Dynamic loading: lazy binding, local symbol scope.
KX_EXPORT void* kx_dlopen(const char* fileName);
KX_EXPORT void* kx_dlsym(void* handle, const char* symbol);
KX_EXPORT int kx_dlclose(void* handle);
KX_EXPORT char* kx_dlerror(void);

// Process, environment and random numbers. kx_rand shares its sequence with the UUID generator.
KX_EXPORT pid_t kx_getpid(void);
KX_EXPORT char* kx_getenv(const char* name);
KX_EXPORT int kx_getchar(void);
KX_EXPORT int kx_rand(void);
KX_EXPORT void kx_srand(unsigned seed);

// More memory.
KX_EXPORT void* kx_realloc(void* block, size_t size);
KX_EXPORT void* kx_calloc(size_t itemCount, size_t itemSize);

// Files and directories. kx_readlink adds no terminator. kx_newTmpfile and kx_tmpfile are one.
KX_EXPORT int kx_rename(const char* oldPath, const char* newPath);
KX_EXPORT int kx_remove(const char* path);
KX_EXPORT int kx_unlink(const char* path);
KX_EXPORT int kx_link(const char* existingPath, const char* newPath);
KX_EXPORT ssize_t kx_readlink(const char* path, char* buffer, int32_t size);
KX_EXPORT int kx_mkdir(const char* path, mode_t mode);
KX_EXPORT int kx_access(const char* path, int mode);
KX_EXPORT DIR* kx_opendir(const char* path);
KX_EXPORT struct dirent64* kx_readdir(DIR* directory);
KX_EXPORT int kx_closedir(DIR* directory);
KX_EXPORT char* kx_tmpname(char* buffer);
KX_EXPORT FILE* kx_newTmpfile(void);
KX_EXPORT FILE* kx_tmpfile(void);
KX_EXPORT int kx_fsync(int descriptor);

// More standard I/O, with 64-bit offsets where the name ends in o.
KX_EXPORT FILE* kx_freopen(const char* path, const char* mode, FILE* file);
KX_EXPORT int kx_fflush(FILE* file);
KX_EXPORT int64_t kx_fputs(const char* text, FILE* file);
KX_EXPORT int kx_fseeko(FILE* file, int64_t offset, int whence);
KX_EXPORT long kx_ftell(FILE* file);
KX_EXPORT int64_t kx_ftello(FILE* file);

// Bounded formatting. kx_vsnprintf and kx_snprintf return the length the whole text needs
// (even when it was cut to size), or -2 on failure; they never consume the caller's va_list.
// kx_vswprintf returns -2 when the call failed with errno set; kx_swprintf maps nothing.
KX_EXPORT int kx_vsnprintf(char* destination, size_t size, const char* format, va_list arguments)
    KX_PRINTF_FORMAT(3, 0);
KX_EXPORT int kx_snprintf(char* destination, size_t size, const char* format, ...)
    KX_PRINTF_FORMAT(3, 4);
KX_EXPORT int kx_vswprintf(wchar_t* destination, size_t size, const wchar_t* format,
                           va_list arguments);
KX_EXPORT int kx_swprintf(wchar_t* destination, size_t size, const wchar_t* format, ...);
KX_EXPORT int kx_fprintf(FILE* file, const char* format, ...) KX_PRINTF_FORMAT(2, 3);
KX_EXPORT int kx_vfprintf(FILE* file, const char* format, va_list arguments) KX_PRINTF_FORMAT(2, 0);
KX_EXPORT size_t kx_strftime(char* destination, size_t size, const char* format,
                             const struct tm* brokenDown);

// Numbers. kx_lltoa needs 21 bytes of room. kx_wcstoll reads decimal digits only, whatever the
// base, and on a range error returns 0x3FFFFFFFFFFFFFFF with the sign, not the 64-bit limit.
KX_EXPORT char* kx_lltoa(int64_t value, char* destination);
KX_EXPORT int64_t kx_atoll(const char* text);
KX_EXPORT int kx_atoi(const char* text);
KX_EXPORT long kx_strtol(const char* text, char** end, int base);
KX_EXPORT long kx_wcstol(const wchar_t* text, wchar_t** end, int base);
KX_EXPORT int64_t kx_wcstoll(const wchar_t* text, wchar_t** end, int base);

// In-place upper-casing; kx_strupr accepts null, kx_wcsupr does not.
KX_EXPORT char* kx_strupr(char* text);
KX_EXPORT wchar_t* kx_wcsupr(wchar_t* text);

// -1, 0 or 1, comparing bytes as unsigned values.
KX_EXPORT int kx_memcmp(const void* left, const void* right, size_t count);

// String forwarders. kx_wcschr finds the last occurrence (wcsrchr); release kx_wcsdup's copy
// with kx_free.
KX_EXPORT char* kx_strcpy(char* destination, const char* source);
KX_EXPORT char* kx_strncpy(char* destination, const char* source, size_t count);
KX_EXPORT char* kx_strcat(char* destination, const char* source);
KX_EXPORT int kx_strcmp(const char* left, const char* right);
KX_EXPORT int kx_strncmp(const char* left, const char* right, size_t count);
KX_EXPORT int kx_strncasecmp(const char* left, const char* right, size_t count);
KX_EXPORT char* kx_strrchr(const char* text, int character);
KX_EXPORT char* kx_strstr(const char* text, const char* wanted);
KX_EXPORT char* kx_strtok_r(char* text, const char* delimiters, char** state);
KX_EXPORT wchar_t* kx_wcscpy(wchar_t* destination, const wchar_t* source);
KX_EXPORT wchar_t* kx_wcsncpy(wchar_t* destination, const wchar_t* source, size_t count);
KX_EXPORT wchar_t* kx_wcscat(wchar_t* destination, const wchar_t* source);
KX_EXPORT int kx_wcscmp(const wchar_t* left, const wchar_t* right);
KX_EXPORT int kx_wcsncmp(const wchar_t* left, const wchar_t* right, size_t count);
KX_EXPORT int kx_wcscasecmp(const wchar_t* left, const wchar_t* right);
KX_EXPORT wchar_t* kx_wcschr(const wchar_t* text, wchar_t character);
KX_EXPORT wchar_t* kx_wcsstr(const wchar_t* text, const wchar_t* wanted);
KX_EXPORT size_t kx_wcslen(const wchar_t* text);
KX_EXPORT wchar_t* kx_wcsdup(const wchar_t* text);
KX_EXPORT size_t kx_mbstowcs(wchar_t* destination, const char* source, size_t count);
KX_EXPORT wint_t kx_btowc(int character);
KX_EXPORT int kx_wctob(wint_t character);
KX_EXPORT wint_t kx_towupper(wint_t character);
KX_EXPORT int kx_iswspace(wint_t character);
KX_EXPORT int kx_iswcntrl(wint_t character);

// Names. kx_GetAppName writes the running program's command name as the process lister shows
// it, its line end turned into a blank, cut to length - 1 characters; it returns the length
// written, 0 when none was found (an empty string then, or nothing when length is below 1).
// kx_adjustLibName builds "lib" base "64" suffix ".so" (suffix may be null); release with kx_free.
KX_EXPORT int kx_GetAppName(char* buffer, int length);
KX_EXPORT char* kx_adjustLibName(const char* base, const char* suffix);
}

#endif
