#include "KXBasicGenericStream.h"

// The null stream has no medium: the marks need no repositioning, and the position is the count.
KXNullStream::KXNullStream() { mEngineSetsMarker = 1; }

KXNullStream::~KXNullStream() = default;

int KXNullStream::_prepareBuffer() { return noReadPrepBuffer(); }

int KXNullStream::_complete() {
  mStreamInfo.mStreamPos += mStreamInfo.mTransferLen;
  return 0;
}

int KXNullStream::_setMarker() { return noErrProc(); }

int KXNullStream::_resetMarker() { return noErrProc(); }
