#ifndef KX_SYSTEM_CALLS_H
#define KX_SYSTEM_CALLS_H

// Internal to the stream library: descriptor reads and writes that a signal cannot cut short,
// shared by the kinds that own a descriptor.

#include <sys/types.h>

#include <cerrno>
#include <cstdint>

#include "kxos.h"

// Writes all bytes, retrying interrupted and short writes so that a regular file takes a
// transfer in one call and a pipe or terminal loses nothing. Returns the bytes written; fewer
// than count when the system refused the rest (errno tells why, 0 when it wrote nothing).
inline int64_t writeFully(int descriptor, const char* bytes, int64_t count) {
  int64_t written = 0;
  while (written < count) {
    const ssize_t result =
        kx_write(descriptor, bytes + written, static_cast<size_t>(count - written));
    if (result < 0 && errno == EINTR) {
      continue;
    }
    if (result <= 0) {
      break;
    }
    written += result;
  }
  return written;
}

// One read, repeated when a signal interrupted it before any byte arrived.
inline ssize_t readRetryingInterrupts(int descriptor, char* buffer, int64_t count) {
  ssize_t result = 0;
  do {
    errno = 0;
    result = kx_read(descriptor, buffer, static_cast<size_t>(count));
  } while (result < 0 && errno == EINTR);
  return result;
}

#endif
