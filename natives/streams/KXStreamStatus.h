#ifndef KX_STREAM_STATUS_H
#define KX_STREAM_STATUS_H

// Internal to the stream library: where the kinds' log lines go, and the status a kind returns
// when a system call fails.

#include <cerrno>

#include "KXBasicGenericStream.h"
#include "KXLogging.h"

constexpr component_t kStreamLogComponent = 1024;

// The system's error number, or the library's own code when the system gave none.
inline int systemFailureStatus() { return errno != 0 ? errno : KX_FILESYSTEM_ERR; }

#endif
