#ifndef KX_OS_H
#define KX_OS_H

/// @file
/// The portability layer: thin wrappers over the C library and POSIX, so that a port to another
/// system changes only this layer. Forwarders keep the wrapped call's arguments, result and
/// errno (the manual page named is the contract); nothing here throws, logs or retries. Every
/// function is extern "C", exported unmangled from libKXStreams64.

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
/// malloc(3): a block of @p size bytes, or null; release it with kx_free.
KX_EXPORT void* kx_malloc(size_t size);
/// free(3): releases a block from kx_malloc, kx_calloc, kx_realloc or kx_strdup; null is ignored.
KX_EXPORT void kx_free(void* block);
/// memset(3): fills @p count bytes with @p value; returns @p destination.
KX_EXPORT void* kx_memset(void* destination, int value, size_t count);
/// Copies @p count bytes, also between overlapping ranges (memmove(3)); returns @p destination.
KX_EXPORT void* kx_memcpy(void* destination, const void* source, size_t count);

// Narrow strings.
/// strdup(3): a copy of @p text, or null with errno ENOMEM; release it with kx_free.
KX_EXPORT char* kx_strdup(const char* text);
/// strlen(3).
KX_EXPORT size_t kx_strlen(const char* text);
/// strchr(3): the first @p character in @p text, or null.
KX_EXPORT char* kx_strchr(const char* text, int character);
/// strcasecmp(3): compares ignoring ASCII letter case; <0, 0 or >0.
KX_EXPORT int kx_strcasecmp(const char* left, const char* right);

// Descriptors.
/// Opens @p path with an fopen-style @p mode ("r", "wb+", "a", ...), close-on-exec, and places the
/// descriptor at the end for append modes, at the start otherwise (append modes do not set
/// O_APPEND). Refuses a directory (errno EISDIR). The descriptor, or -1 with errno.
KX_EXPORT int kx_open(const char* path, const char* mode);
/// kx_open(), accepting a directory when @p directoryAllowed is nonzero.
KX_EXPORT int kx_open_with_dir(const char* path, const char* mode, unsigned char directoryAllowed);
/// Places @p descriptor at the end for an append @p mode, at the start for "r" or "w" modes. The
/// new position cut to 32 bits, or -1 when the mode names no start (or the seek failed).
KX_EXPORT int kx_setStartPos(int descriptor, const char* mode);
/// read(2): bytes read, 0 at the end, -1 with errno.
KX_EXPORT ssize_t kx_read(int descriptor, void* buffer, size_t count);
/// write(2): bytes written (possibly fewer than @p count), -1 with errno.
KX_EXPORT ssize_t kx_write(int descriptor, const void* buffer, size_t count);
/// lseek(2) with 64-bit offsets: the new offset, or -1 with errno.
KX_EXPORT int64_t kx_lseek(int descriptor, int64_t offset, int whence);
/// ftruncate(2) with 64-bit lengths: 0, or -1 with errno.
KX_EXPORT int kx_ftruncate(int descriptor, int64_t length);
/// close(2): 0, or -1 with errno.
KX_EXPORT int kx_close(int descriptor);
/// stat(2) into a 64-bit @p record: 0, or -1 with errno.
KX_EXPORT int kx_stat(const char* path, struct stat64* record);
/// fstat(2) into a 64-bit @p record: 0, or -1 with errno.
KX_EXPORT int kx_fstat(int descriptor, struct stat64* record);
/// The file-system type (statfs's f_type) of the file open on the descriptor, or -1 with errno.
KX_EXPORT int64_t kx_fstatfs_type(int descriptor);

// Standard I/O streams.
/// fopen(3): the open file, or null with errno; close it with kx_fclose.
KX_EXPORT FILE* kx_fopen(const char* path, const char* mode);
/// fread(3): the number of whole items read.
KX_EXPORT size_t kx_fread(void* buffer, size_t itemSize, size_t itemCount, FILE* file);
/// fwrite(3): the number of whole items written.
KX_EXPORT size_t kx_fwrite(const void* buffer, size_t itemSize, size_t itemCount, FILE* file);
/// fseek(3): 0, or -1 with errno.
KX_EXPORT int kx_fseek(FILE* file, long offset, int whence);
/// fclose(3): 0, or EOF with errno; the file is gone either way.
KX_EXPORT int kx_fclose(FILE* file);

// The same files under handle-style names.
/// kx_fopen() under a handle-style name.
KX_EXPORT FILE* kx_CreateFile(const char* path, const char* mode);
/// kx_fread() under a handle-style name.
KX_EXPORT size_t kx_ReadFile(void* buffer, size_t itemSize, size_t itemCount, FILE* file);
/// kx_fwrite() under a handle-style name.
KX_EXPORT size_t kx_WriteFile(const void* buffer, size_t itemSize, size_t itemCount, FILE* file);
/// kx_fseek() under a handle-style name: 0 or -1, not a position.
KX_EXPORT int64_t kx_SetFilePointer(FILE* file, long offset, int whence);
/// kx_fclose() under a handle-style name.
KX_EXPORT int kx_CloseHandle(FILE* file);

// Formatted output.
/// sprintf(3) without a bound: the caller provides enough room. The length written.
KX_EXPORT int kx_sprintf(char* destination, const char* format, ...) KX_PRINTF_FORMAT(2, 3);
/// printf(3) to standard output: the length written, or a negative value.
KX_EXPORT int kx_printf(const char* format, ...) KX_PRINTF_FORMAT(1, 2);

/// The calling thread as kx_get_thread_info reports it.
typedef struct {
  pthread_t thread;   ///< The thread (pthread_self).
  uint64_t reserved;  ///< Always 0.
} kx_thread_info_t;

// Threads and thread-specific data: results are 0 or the error number that the thread call
// reported; errno is not used.
/// pthread_create(3): 0, or the error number.
KX_EXPORT int kx_thread_create(pthread_t* thread, const pthread_attr_t* attribute,
                               void* (*startRoutine)(void*), void* argument);
/// pthread_join(3), ignoring its second argument: 0, or the error number.
KX_EXPORT int kx_thread_join(pthread_t thread, void* ignored, void** exitValue);
/// pthread_exit(3): ends the calling thread with @p exitValue.
[[noreturn]] KX_EXPORT void kx_thread_exit(void* exitValue);
/// Sends no signal: a liveness probe, 0 for a live thread and ESRCH where the C library can tell
/// that the thread is gone (glibc 2.34 and later report an ended thread as 0).
KX_EXPORT int kx_thread_kill(pthread_t thread);
/// pthread_self(3).
KX_EXPORT pthread_t kx_thread_self(void);
/// Fills @p info with the calling thread (reserved 0) and returns the thread; @p info must not be
/// null.
KX_EXPORT pthread_t kx_get_thread_info(kx_thread_info_t* info);
/// pthread_key_create(3): 0, or the error number.
KX_EXPORT int kx_key_create(pthread_key_t* key, void (*destructor)(void*));
/// pthread_key_delete(3): 0, or the error number.
KX_EXPORT int kx_key_delete(pthread_key_t key);
/// pthread_getspecific(3): the calling thread's value for @p key, or null.
KX_EXPORT void* kx_getspecific(pthread_key_t key);
/// pthread_setspecific(3): 0, or the error number.
KX_EXPORT int kx_setspecific(pthread_key_t key, const void* value);

// Mutexes and condition variables, results as for threads. The recursive family behaves as the
// plain one apart from kx_recursive_mutex_init.
/// pthread_mutex_init(3): 0, or the error number.
KX_EXPORT int kx_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
/// pthread_mutex_lock(3): 0, or the error number.
KX_EXPORT int kx_mutex_lock(pthread_mutex_t* mutex);
/// pthread_mutex_trylock(3): 0, or EBUSY when another thread holds it.
KX_EXPORT int kx_mutex_trylock(pthread_mutex_t* mutex);
/// pthread_mutex_unlock(3): 0, or the error number.
KX_EXPORT int kx_mutex_unlock(pthread_mutex_t* mutex);
/// pthread_mutex_destroy(3): 0, or the error number.
KX_EXPORT int kx_mutex_destroy(pthread_mutex_t* mutex);
/// pthread_mutex_init(3) with the caller's attribute; a null attribute makes a recursive mutex. 0,
/// or the error number.
KX_EXPORT int kx_recursive_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
/// pthread_mutex_lock(3): 0, or the error number.
KX_EXPORT int kx_recursive_mutex_lock(pthread_mutex_t* mutex);
/// pthread_mutex_trylock(3): 0, or EBUSY.
KX_EXPORT int kx_recursive_mutex_trylock(pthread_mutex_t* mutex);
/// pthread_mutex_unlock(3): 0, or the error number.
KX_EXPORT int kx_recursive_mutex_unlock(pthread_mutex_t* mutex);
/// pthread_mutex_destroy(3): 0, or the error number.
KX_EXPORT int kx_recursive_mutex_destroy(pthread_mutex_t* mutex);
/// pthread_cond_init(3): 0, or the error number.
KX_EXPORT int kx_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);
/// pthread_cond_destroy(3): 0, or the error number.
KX_EXPORT int kx_cond_destroy(pthread_cond_t* condition);
/// pthread_cond_wait(3), with @p mutex held: 0, or the error number.
KX_EXPORT int kx_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
/// pthread_cond_signal(3): 0, or the error number.
KX_EXPORT int kx_cond_signal(pthread_cond_t* condition);
/// pthread_cond_broadcast(3): 0, or the error number.
KX_EXPORT int kx_cond_broadcast(pthread_cond_t* condition);
/// pthread_condattr_init(3): 0, or the error number.
KX_EXPORT int kx_condattr_init(pthread_condattr_t* attribute);
/// pthread_condattr_destroy(3): 0, or the error number.
KX_EXPORT int kx_condattr_destroy(pthread_condattr_t* attribute);

// Semaphores: 0, or -1 with errno.
/// sem_init(3): 0, or -1 with errno.
KX_EXPORT int kx_sem_init(sem_t* semaphore, int processShared, unsigned value);
/// sem_destroy(3): 0, or -1 with errno.
KX_EXPORT int kx_sem_destroy(sem_t* semaphore);
/// sem_wait(3): 0, or -1 with errno (EINTR when a signal interrupted it).
KX_EXPORT int kx_sem_wait(sem_t* semaphore);
/// sem_trywait(3): 0, or -1 with errno EAGAIN when the count is 0.
KX_EXPORT int kx_sem_trywait(sem_t* semaphore);
/// sem_post(3): 0, or -1 with errno.
KX_EXPORT int kx_sem_post(sem_t* semaphore);

// Sockets, results as the wrapped calls give them.
/// socket(2): the descriptor, or -1 with errno; close it with kx_closesocket.
KX_EXPORT int kx_socket(int domain, int type, int protocol);
/// bind(2): 0, or -1 with errno.
KX_EXPORT int kx_bind(int socket, const struct sockaddr* address, socklen_t length);
/// listen(2): 0, or -1 with errno.
KX_EXPORT int kx_listen(int socket, int backlog);
/// accept(2): the new descriptor, or -1 with errno.
KX_EXPORT int kx_accept(int socket, struct sockaddr* address, socklen_t* length);
/// connect(2): 0, or -1 with errno.
KX_EXPORT int kx_connect(int socket, const struct sockaddr* address, socklen_t length);
/// send(2) of @p length bytes: bytes sent, or -1 with errno.
KX_EXPORT ssize_t kx_send(int socket, const void* buffer, int32_t length, int flags);
/// recv(2) of up to @p length bytes: bytes received, 0 at the peer's end, -1 with errno.
KX_EXPORT ssize_t kx_recv(int socket, void* buffer, int32_t length, int flags);
/// setsockopt(2): 0, or -1 with errno.
KX_EXPORT int kx_setsockopt(int socket, int level, int option, const void* value, socklen_t length);
/// getsockopt(2): 0, or -1 with errno.
KX_EXPORT int kx_getsockopt(int socket, int level, int option, void* value, socklen_t* length);
/// getaddrinfo(3): 0, or an EAI_ code; release @p result with freeaddrinfo.
KX_EXPORT int kx_getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                             struct addrinfo** result);
/// gethostbyname(3): the C library's shared record (overwritten by the next call, not thread-safe),
/// or null.
KX_EXPORT struct hostent* kx_gethostbyname(const char* name);
/// inet_addr(3): the network-order address widened without sign; 0xFFFFFFFF for an invalid text.
KX_EXPORT uint64_t kx_inet_addr(const char* dottedAddress);
/// Closes a socket descriptor (close(2)): 0, or -1 with errno.
KX_EXPORT int kx_closesocket(int socket);

// Time.
/// gettimeofday(2): exactly 0, or -1.
KX_EXPORT int kx_gettimeofday(struct timeval* now);
/// sleep(3): 0, or the seconds left when a signal woke it.
KX_EXPORT unsigned kx_sleep(unsigned seconds);
/// time(2): seconds since 1970, also stored in @p now when that is not null.
KX_EXPORT time_t kx_time(time_t* now);
/// ctime(3): the C library's shared text, overwritten by the next call.
KX_EXPORT char* kx_ctime(const time_t* when);
/// localtime(3): the C library's shared record, overwritten by the next call.
KX_EXPORT struct tm* kx_localtime(const time_t* when);
/// gmtime(3): the C library's shared record, overwritten by the next call.
KX_EXPORT struct tm* kx_gmtime(const time_t* when);
/// Reads @p brokenDown as UTC (not local time, unlike mktime(3)): seconds since 1970, or -1.
KX_EXPORT time_t kx_mktime(struct tm* brokenDown);

// Dynamic loading.
/// dlopen(3) with lazy binding and local symbol scope: a handle, or null (see kx_dlerror).
KX_EXPORT void* kx_dlopen(const char* fileName);
/// dlsym(3): the symbol's address, or null.
KX_EXPORT void* kx_dlsym(void* handle, const char* symbol);
/// dlclose(3): 0, or nonzero (see kx_dlerror).
KX_EXPORT int kx_dlclose(void* handle);
/// dlerror(3): the last loading error as a text of the C library, or null.
KX_EXPORT char* kx_dlerror(void);

// Process, environment and random numbers.
/// getpid(2).
KX_EXPORT pid_t kx_getpid(void);
/// getenv(3): the C library's text, or null; do not free or keep it across setenv.
KX_EXPORT char* kx_getenv(const char* name);
/// getc(3) from standard input: a byte, or EOF.
KX_EXPORT int kx_getchar(void);
/// rand(3); shares its sequence with the UUID generator.
KX_EXPORT int kx_rand(void);
/// srand(3); reseeds the sequence the UUID generator also uses.
KX_EXPORT void kx_srand(unsigned seed);

// More memory.
/// realloc(3): the moved block, or null (the old one is then kept); release with kx_free.
KX_EXPORT void* kx_realloc(void* block, size_t size);
/// calloc(3): a zeroed block, or null; release with kx_free.
KX_EXPORT void* kx_calloc(size_t itemCount, size_t itemSize);

// Files and directories.
/// rename(2): 0, or -1 with errno.
KX_EXPORT int kx_rename(const char* oldPath, const char* newPath);
/// remove(3): 0, or -1 with errno.
KX_EXPORT int kx_remove(const char* path);
/// unlink(2): 0, or -1 with errno.
KX_EXPORT int kx_unlink(const char* path);
/// link(2): 0, or -1 with errno.
KX_EXPORT int kx_link(const char* existingPath, const char* newPath);
/// readlink(2): the length of the target written to @p buffer, without a terminator, or -1 with
/// errno.
KX_EXPORT ssize_t kx_readlink(const char* path, char* buffer, int32_t size);
/// mkdir(2): 0, or -1 with errno.
KX_EXPORT int kx_mkdir(const char* path, mode_t mode);
/// access(2): 0, or -1 with errno.
KX_EXPORT int kx_access(const char* path, int mode);
/// opendir(3): the directory stream, or null with errno; close it with kx_closedir.
KX_EXPORT DIR* kx_opendir(const char* path);
/// readdir64(3): the next entry (storage of the directory stream), or null at the end.
KX_EXPORT struct dirent64* kx_readdir(DIR* directory);
/// closedir(3): 0, or -1 with errno.
KX_EXPORT int kx_closedir(DIR* directory);
/// tmpnam(3): a fresh file name, in @p buffer when that is not null. Prefer kx_tmpfile.
KX_EXPORT char* kx_tmpname(char* buffer);
/// tmpfile(3): a new temporary file, removed when closed, or null with errno.
KX_EXPORT FILE* kx_newTmpfile(void);
/// The same as kx_newTmpfile.
KX_EXPORT FILE* kx_tmpfile(void);
/// fsync(2): 0, or -1 with errno.
KX_EXPORT int kx_fsync(int descriptor);

// More standard I/O, with 64-bit offsets where the name ends in o.
/// freopen(3) with 64-bit offsets: @p file reopened, or null with errno.
KX_EXPORT FILE* kx_freopen(const char* path, const char* mode, FILE* file);
/// fflush(3): 0, or EOF with errno.
KX_EXPORT int kx_fflush(FILE* file);
/// fputs(3): a non-negative value, or EOF.
KX_EXPORT int64_t kx_fputs(const char* text, FILE* file);
/// fseeko(3) with a 64-bit offset: 0, or -1 with errno.
KX_EXPORT int kx_fseeko(FILE* file, int64_t offset, int whence);
/// ftell(3): the position, or -1 with errno.
KX_EXPORT long kx_ftell(FILE* file);
/// ftello(3): the 64-bit position, or -1 with errno.
KX_EXPORT int64_t kx_ftello(FILE* file);

// Bounded formatting.
/// vsnprintf(3): writes at most @p size characters with the NUL; returns the length the whole text
/// needs (even when it was cut), or -2 on failure. Does not consume @p arguments.
KX_EXPORT int kx_vsnprintf(char* destination, size_t size, const char* format, va_list arguments)
    KX_PRINTF_FORMAT(3, 0);
/// snprintf(3): as kx_vsnprintf.
KX_EXPORT int kx_snprintf(char* destination, size_t size, const char* format, ...)
    KX_PRINTF_FORMAT(3, 4);
/// vswprintf(3): the length written, or -2 when the call failed with errno set.
KX_EXPORT int kx_vswprintf(wchar_t* destination, size_t size, const wchar_t* format,
                           va_list arguments);
/// swprintf(3): the length written, or -1 (no mapping).
KX_EXPORT int kx_swprintf(wchar_t* destination, size_t size, const wchar_t* format, ...);
/// fprintf(3): the length written, or a negative value.
KX_EXPORT int kx_fprintf(FILE* file, const char* format, ...) KX_PRINTF_FORMAT(2, 3);
/// vfprintf(3): the length written, or a negative value.
KX_EXPORT int kx_vfprintf(FILE* file, const char* format, va_list arguments) KX_PRINTF_FORMAT(2, 0);
/// strftime(3): the length written without the NUL, or 0 when it does not fit.
KX_EXPORT size_t kx_strftime(char* destination, size_t size, const char* format,
                             const struct tm* brokenDown);

// Numbers.
/// Writes @p value in decimal to @p destination (21 bytes of room) and returns it.
KX_EXPORT char* kx_lltoa(int64_t value, char* destination);
/// The decimal number at the start of @p text, or 0 when there is none.
KX_EXPORT int64_t kx_atoll(const char* text);
/// The decimal number at the start of @p text, cut to an int, or 0.
KX_EXPORT int kx_atoi(const char* text);
/// strtol(3).
KX_EXPORT long kx_strtol(const char* text, char** end, int base);
/// wcstol(3).
KX_EXPORT long kx_wcstol(const wchar_t* text, wchar_t** end, int base);
/// Reads decimal digits only, whatever @p base; on a range error returns 0x3FFFFFFFFFFFFFFF with
/// the sign, not the 64-bit limit. @p end, when not null, gets the first unread character.
KX_EXPORT int64_t kx_wcstoll(const wchar_t* text, wchar_t** end, int base);

// In-place upper-casing.
/// Upper-cases @p text in place and returns it; null gives null.
KX_EXPORT char* kx_strupr(char* text);
/// Upper-cases @p text in place and returns it; @p text must not be null.
KX_EXPORT wchar_t* kx_wcsupr(wchar_t* text);

/// Compares @p count bytes as unsigned values: exactly -1, 0 or 1.
KX_EXPORT int kx_memcmp(const void* left, const void* right, size_t count);

// String forwarders.
/// strcpy(3).
KX_EXPORT char* kx_strcpy(char* destination, const char* source);
/// strncpy(3): may leave @p destination unterminated.
KX_EXPORT char* kx_strncpy(char* destination, const char* source, size_t count);
/// strcat(3).
KX_EXPORT char* kx_strcat(char* destination, const char* source);
/// strcmp(3): <0, 0 or >0.
KX_EXPORT int kx_strcmp(const char* left, const char* right);
/// strncmp(3): <0, 0 or >0.
KX_EXPORT int kx_strncmp(const char* left, const char* right, size_t count);
/// strncasecmp(3): <0, 0 or >0, ignoring ASCII letter case.
KX_EXPORT int kx_strncasecmp(const char* left, const char* right, size_t count);
/// strrchr(3): the last @p character in @p text, or null.
KX_EXPORT char* kx_strrchr(const char* text, int character);
/// strstr(3): the first occurrence of @p wanted, or null.
KX_EXPORT char* kx_strstr(const char* text, const char* wanted);
/// strtok_r(3): the next token, or null; writes into @p text.
KX_EXPORT char* kx_strtok_r(char* text, const char* delimiters, char** state);
/// wcscpy(3).
KX_EXPORT wchar_t* kx_wcscpy(wchar_t* destination, const wchar_t* source);
/// wcsncpy(3): may leave @p destination unterminated.
KX_EXPORT wchar_t* kx_wcsncpy(wchar_t* destination, const wchar_t* source, size_t count);
/// wcscat(3).
KX_EXPORT wchar_t* kx_wcscat(wchar_t* destination, const wchar_t* source);
/// wcscmp(3): <0, 0 or >0.
KX_EXPORT int kx_wcscmp(const wchar_t* left, const wchar_t* right);
/// wcsncmp(3): <0, 0 or >0.
KX_EXPORT int kx_wcsncmp(const wchar_t* left, const wchar_t* right, size_t count);
/// wcscasecmp(3): <0, 0 or >0, ignoring letter case.
KX_EXPORT int kx_wcscasecmp(const wchar_t* left, const wchar_t* right);
/// The last @p character in @p text (wcsrchr(3), not wcschr), or null.
KX_EXPORT wchar_t* kx_wcschr(const wchar_t* text, wchar_t character);
/// wcsstr(3): the first occurrence of @p wanted, or null.
KX_EXPORT wchar_t* kx_wcsstr(const wchar_t* text, const wchar_t* wanted);
/// wcslen(3).
KX_EXPORT size_t kx_wcslen(const wchar_t* text);
/// A copy of @p text, or null; release it with kx_free.
KX_EXPORT wchar_t* kx_wcsdup(const wchar_t* text);
/// mbstowcs(3): wide characters written, or (size_t)-1 for an invalid sequence.
KX_EXPORT size_t kx_mbstowcs(wchar_t* destination, const char* source, size_t count);
/// btowc(3).
KX_EXPORT wint_t kx_btowc(int character);
/// wctob(3).
KX_EXPORT int kx_wctob(wint_t character);
/// towupper(3).
KX_EXPORT wint_t kx_towupper(wint_t character);
/// iswspace(3).
KX_EXPORT int kx_iswspace(wint_t character);
/// iswcntrl(3).
KX_EXPORT int kx_iswcntrl(wint_t character);

// Names.
/// Writes the running program's command name as the process lister shows it, its line end turned
/// into a blank, cut to @p length - 1 characters. Returns the length written; 0 when none was found
/// (an empty string then, or nothing when @p length is below 1).
KX_EXPORT int kx_GetAppName(char* buffer, int length);
/// A new text "lib" @p base "64" @p suffix ".so" (@p suffix may be null), or null; release it with
/// kx_free.
KX_EXPORT char* kx_adjustLibName(const char* base, const char* suffix);
}

#endif
