#include "KXTempStream.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <stdio_ext.h>

#include "KXException.h"
#include "KXLogging.h"
#include "KXRaise.h"
#include "KXStreamStatus.h"
#include "KXTempFile.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXTempStream";
constexpr int kStagingSize = 16384;
constexpr verbosity_level_t kErrorLevel = 1;
// The status for file-part bytes that are due when no temporary file exists.
constexpr int kNoTemporaryFile = 5;

char* allocateOrRaise(int size) {
  auto* block = static_cast<char*>(kx_malloc(static_cast<size_t>(size)));
  if (block == nullptr) {
    KX_RAISE(KXOutOfMemException, ENOMEM).raise();
  }
  return block;
}
}  // namespace

KXTempStream::KXTempStream(int memSize) : mTempStreamInfo(), mMemSize(memSize) {
  kx_memset(&mTempStreamInfo, 0, sizeof mTempStreamInfo);
  mStreamInfo.mUserData = &mTempStreamInfo;
  mStreamInfo.mStreamLen = 0;
  // Scratch storage: neither validated nor traced, whatever the library settings say.
  mStrictMode = 0;
  mLoggingEnabled = 0;
  mEngineSetsMarker = 1;
  mStreamInfo.mReadFlag = 0;
}

KXTempStream::~KXTempStream() { releaseAll(); }

void KXTempStream::init() {
  if (mInited != 0) {
    // Allocating again would leak the first buffers; the engine reports the misuse.
    KXBasicGenericStream::init();
    return;
  }
  if (mMemSize < 0) {
    KX_RAISE(KXParameterException, 0).raise();
  }
  mTempStreamInfo.mReadBufferLen = kStagingSize;
  mTempStreamInfo.mReadBuffer = allocateOrRaise(kStagingSize);
  if (mMemSize > 0) {
    mTempStreamInfo.mMemBuffer = allocateOrRaise(mMemSize);
    // The engine may raise the length past the bytes written (a completed read beyond the end);
    // the memory part is then handed out as it stands, which must never be the allocator's
    // leftovers.
    kx_memset(mTempStreamInfo.mMemBuffer, 0, static_cast<size_t>(mMemSize));
    mTempStreamInfo.mMemBufferLen = mMemSize;
  }
  KXBasicGenericStream::init();
}

int KXTempStream::tempCreate() {
  delete mTempStreamInfo.mTempFile;
  mTempStreamInfo.mTempFile = nullptr;
  mFileDirection = FileDirection::kNone;
  try {
    mTempStreamInfo.mTempFile = new KXTempFile();
  } catch (int status) {
    if (KXLogging::isDebugLogging() != 0) {
      KXLogging::Log(kErrorLevel, kStreamLogComponent,
                     "Failed to create temporary file (status=%ld)", static_cast<long>(status));
    }
    return status;
  }
  return 0;
}

int KXTempStream::_complete() {
  KX_ASSERT_TEXT(mTempStreamInfo.mReadBuffer != nullptr, "mTempStreamInfo.mReadBuffer");
  if (mStreamInfo.mReadFlag != 0) {
    return 0;
  }
  const int64_t total = mStreamInfo.mTransferLen;
  zeroGapBeforePosition();
  const int64_t memoryShare =
      std::min(std::max<int64_t>(mTempStreamInfo.mMemBufferLen - mStreamInfo.mStreamPos, 0), total);
  if (memoryShare > 0) {
    kx_memcpy(mTempStreamInfo.mMemBuffer + mStreamInfo.mStreamPos, mStreamInfo.mBuffer,
              static_cast<size_t>(memoryShare));
    mStreamInfo.mStreamPos += memoryShare;
    mStreamInfo.mStreamLen = std::max(mStreamInfo.mStreamLen, mStreamInfo.mStreamPos);
  }
  const int64_t fileShare = total - memoryShare;
  if (fileShare > 0) {
    if (mTempStreamInfo.mTempFile == nullptr) {
      if (const int status = tempCreate(); status != 0) {
        return status;
      }
    }
    if (const int status = writeToFile(mStreamInfo.mBuffer + memoryShare, fileShare); status != 0) {
      return status;
    }
  }
  mStreamInfo.mTransferLen = total;
  return 0;
}

// A write after a mark past the end leaves a gap; in memory it would read back as whatever the
// allocator left there, so it reads as zeros, as the file part's gap does.
void KXTempStream::zeroGapBeforePosition() {
  const int64_t gapEnd = std::min<int64_t>(mStreamInfo.mStreamPos, mTempStreamInfo.mMemBufferLen);
  if (gapEnd > mStreamInfo.mStreamLen) {
    kx_memset(mTempStreamInfo.mMemBuffer + mStreamInfo.mStreamLen, 0,
              static_cast<size_t>(gapEnd - mStreamInfo.mStreamLen));
  }
}

int KXTempStream::writeToFile(const char* bytes, int64_t count) {
  FILE* file = mTempStreamInfo.mTempFile->getFile();
  if (!turnFileTo(FileDirection::kWriting)) {
    const int status = systemFailureStatus();
    recoverFile();
    return status;
  }
  errno = 0;
  const size_t written = kx_WriteFile(bytes, 1, static_cast<size_t>(count), file);
  // Accepted means in the file: bytes left in the C library's buffer would be dropped, unseen,
  // by a later flush that fails (a full disk, a size limit).
  if (static_cast<int64_t>(written) < count || kx_fflush(file) != 0) {
    const int status = systemFailureStatus();
    recoverFile();
    return status;
  }
  mStreamInfo.mStreamPos += count;
  mStreamInfo.mStreamLen = std::max(mStreamInfo.mStreamLen, mStreamInfo.mStreamPos);
  return 0;
}

int KXTempStream::_prepareBuffer() {
  KX_ASSERT_TEXT(mTempStreamInfo.mReadBuffer != nullptr, "mTempStreamInfo.mReadBuffer");
  if (mStreamInfo.mReadFlag == 0) {
    return 0;
  }
  const int64_t requested = mStreamInfo.mTransferLen;
  // Only written bytes count: an empty stream has no memory content to hand out.
  const int64_t memoryEnd =
      std::min<int64_t>(mTempStreamInfo.mMemBufferLen, mStreamInfo.mStreamLen);
  const int64_t inMemory = std::min(memoryEnd - mStreamInfo.mStreamPos, requested);
  if (inMemory > 0) {
    mStreamInfo.mTransferLen = inMemory;
    mStreamInfo.mBuffer = mTempStreamInfo.mMemBuffer + mStreamInfo.mStreamPos;
    mStreamInfo.mStreamPos += inMemory;
    mStreamInfo.mAtEOF = mStreamInfo.mStreamPos >= mStreamInfo.mStreamLen ? 1 : 0;
    return 0;
  }
  const int64_t inFile =
      std::max<int64_t>(std::min({mStreamInfo.mStreamLen - mStreamInfo.mStreamPos, requested,
                                  static_cast<int64_t>(mTempStreamInfo.mReadBufferLen)}),
                        0);
  mStreamInfo.mTransferLen = 0;
  if (inFile > 0) {
    if (mTempStreamInfo.mTempFile == nullptr) {
      return kNoTemporaryFile;
    }
    if (const int status = readFromFile(inFile); status != 0) {
      return status;
    }
  }
  mStreamInfo.mAtEOF = mStreamInfo.mStreamPos >= mStreamInfo.mStreamLen ? 1 : 0;
  return 0;
}

int KXTempStream::readFromFile(int64_t count) {
  FILE* file = mTempStreamInfo.mTempFile->getFile();
  if (!turnFileTo(FileDirection::kReading)) {
    recoverFile();
    mStreamInfo.mTransferLen = -1;
    return KX_FILESYSTEM_ERR;
  }
  const size_t got = kx_ReadFile(mTempStreamInfo.mReadBuffer, 1, static_cast<size_t>(count), file);
  // fread reports only a count: the error indicator tells a failure from a short read, and a
  // file that holds fewer bytes than were written to it has lost data.
  if (ferror(file) != 0 || got == 0) {
    recoverFile();
    mStreamInfo.mTransferLen = -1;
    return KX_FILESYSTEM_ERR;
  }
  mStreamInfo.mStreamPos += static_cast<int64_t>(got);
  mStreamInfo.mBuffer = mTempStreamInfo.mReadBuffer;
  mStreamInfo.mTransferLen = static_cast<int64_t>(got);
  return 0;
}

// Puts the file at the stream position before its first access in a new direction.
bool KXTempStream::turnFileTo(FileDirection direction) {
  if (mFileDirection == direction) {
    return true;
  }
  errno = 0;
  if (!seekFileToPosition()) {
    return false;
  }
  mFileDirection = direction;
  return true;
}

bool KXTempStream::seekFileToPosition() {
  const long offset = static_cast<long>(mStreamInfo.mStreamPos - mTempStreamInfo.mMemBufferLen);
  return kx_SetFilePointer(mTempStreamInfo.mTempFile->getFile(), offset, SEEK_SET) == 0;
}

// After a refused transfer: drop what the C library still holds of it, forget its error (the
// next read would take it for its own) and put the file back at the stream position, so that
// a retry reads or writes the right bytes. Should the seek fail, the next access seeks again.
void KXTempStream::recoverFile() {
  FILE* file = mTempStreamInfo.mTempFile->getFile();
  __fpurge(file);
  clearerr(file);
  mFileDirection = FileDirection::kNone;
  (void)seekFileToPosition();
}

int KXTempStream::_setMarker() {
  errno = 0;
  if (mTempStreamInfo.mTempFile == nullptr ||
      mStreamInfo.mStreamPos < mTempStreamInfo.mMemBufferLen) {
    return 0;
  }
  kx_SetFilePointer(mTempStreamInfo.mTempFile->getFile(), 0, SEEK_CUR);
  mFileDirection = FileDirection::kNone;
  return errno;
}

int KXTempStream::_resetMarker() {
  if (mTempStreamInfo.mTempFile == nullptr) {
    return 0;
  }
  const int64_t offset =
      std::max<int64_t>(mStreamInfo.mMarkerPos - mTempStreamInfo.mMemBufferLen, 0);
  kx_SetFilePointer(mTempStreamInfo.mTempFile->getFile(), static_cast<long>(offset), SEEK_SET);
  mFileDirection = FileDirection::kNone;
  return 0;
}

int KXTempStream::_close() {
  releaseAll();
  return 0;
}

void KXTempStream::releaseAll() {
  delete mTempStreamInfo.mTempFile;
  kx_free(mTempStreamInfo.mMemBuffer);
  kx_free(mTempStreamInfo.mReadBuffer);
  kx_memset(&mTempStreamInfo, 0, sizeof mTempStreamInfo);
}
