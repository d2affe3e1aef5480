#ifndef KX_STREAM_STATUS_H
#define KX_STREAM_STATUS_H

// Internal to the stream library: where the kinds' log lines go, the status a kind returns
// when a system call fails, and the checks of a transfer before it is written.

#include <cerrno>

#include "KXBasicGenericStream.h"
#include "KXLogging.h"

constexpr component_t kStreamLogComponent = 1024;

// The system's error number, or the library's own code when the system gave none.
inline int systemFailureStatus() { return errno != 0 ? errno : KX_FILESYSTEM_ERR; }

// What a writing kind answers before it writes a transfer: true when there is nothing to write,
// with status 0 for an empty transfer and KX_PARAM_ERR for a negative count or a missing buffer
// (mTransferLen then -1, as after a failed write).
inline bool isUnwritable(KXStreamInfo& record, int& status) {
  status = 0;
  if (record.mTransferLen == 0) {
    return true;
  }
  status = KX_PARAM_ERR;
  if (record.mTransferLen < 0) {
    return true;
  }
  if (record.mBuffer == nullptr) {
    record.mTransferLen = -1;
    return true;
  }
  status = 0;
  return false;
}

#endif
