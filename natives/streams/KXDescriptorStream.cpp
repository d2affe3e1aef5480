#include "KXDescriptorStream.h"

#include <linux/magic.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "KXException.h"
#include "KXRaise.h"
#include "KXStreamStatus.h"
#include "KXSystemCalls.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXDescriptorStream";

constexpr int64_t kBufferGranule = 16384;

// File systems whose files report a size that has nothing to do with their content: proc
// reports 0, sysfs 4096, the others whatever their authors chose.
constexpr int64_t kPseudoFileSystems[] = {
    PROC_SUPER_MAGIC,   SYSFS_MAGIC,         DEBUGFS_MAGIC,  TRACEFS_MAGIC,
    SECURITYFS_MAGIC,   0x62656570,  // configfs
    CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC, PSTOREFS_MAGIC, EFIVARFS_MAGIC};

bool isPseudoFileSystem(int64_t type) {
  return std::find(std::begin(kPseudoFileSystems), std::end(kPseudoFileSystems), type) !=
         std::end(kPseudoFileSystems);
}

int64_t roundedBufferSize(int64_t size) {
  return (size + kBufferGranule - 1) / kBufferGranule * kBufferGranule;
}
}  // namespace

KXDescriptorStream::KXDescriptorStream(int descriptor, EIoFlag mode, long bufferSize, KXBool owned)
    : mIoFlag(mode) {
  mEngineSetsMarker = 1;
  mDescriptorInfo.mDescriptor = descriptor;
  mDescriptorInfo.mOwned = owned != 0 ? 1 : 0;
  mDescriptorInfo.mBuffSize = bufferSize;
  mStreamInfo.mReadFlag = mode == eIn ? 1 : 0;
}

KXDescriptorStream::KXDescriptorStream(const char* path, EIoFlag mode, long bufferSize)
    : KXDescriptorStream(-1, mode, bufferSize, 1) {
  mPath = path != nullptr ? kx_strdup(path) : nullptr;
  if (path != nullptr && mPath == nullptr) {
    KX_RAISE(KXOutOfMemException, ENOMEM).raise();
  }
}

KXDescriptorStream::~KXDescriptorStream() {
  kx_free(mReadBuffer);
  kx_free(mPath);
}

void KXDescriptorStream::checkArguments() const {
  if (mIoFlag != eIn && mIoFlag != eOut) {
    KX_RAISE(KXParameterException, 0)
        .message("invalid direction %d: expected eIn (0) or eOut (1)", static_cast<int>(mIoFlag))
        .raise();
  }
  if (mIoFlag == eIn && mDescriptorInfo.mBuffSize <= 0) {
    KX_RAISE(KXParameterException, 0).message("the buffer size must be positive").raise();
  }
  if (mPath == nullptr && mDescriptorInfo.mDescriptor < 0) {
    KX_RAISE(KXParameterException, 0).message("no descriptor and no path given").raise();
  }
  if (mPath != nullptr && *mPath == '\0') {
    KX_RAISE(KXParameterException, 0).message("the path is empty").raise();
  }
}

void KXDescriptorStream::openPath() {
  const char* mode = mIoFlag == eIn ? "rb" : "wb";
  int descriptor = -1;
  do {
    errno = 0;
    descriptor = kx_open(mPath, mode);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    KX_RAISE(KXFileSystemException, systemFailureStatus())
        .message(
            mIoFlag == eIn ? "failed to open input file (%s)" : "failed to open output file (%s)",
            mPath)
        .raise();
  }
  mDescriptorInfo.mDescriptor = descriptor;
}

// Where the stream starts and how long it is, from the descriptor itself.
namespace {

// The size of the regular file whose status is given, when reading it yields that size; -1
// otherwise.
int64_t trustedSize(int descriptor, const struct stat64& status) {
  if (!S_ISREG(status.st_mode)) {
    return -1;
  }
  const int64_t type = kx_fstatfs_type(descriptor);
  return type < 0 || isPseudoFileSystem(type) ? -1 : status.st_size;
}

}  // namespace

void KXDescriptorStream::measure() {
  struct stat64 status {};
  if (kx_fstat(mDescriptorInfo.mDescriptor, &status) != 0) {
    KX_RAISE(KXFileSystemException, systemFailureStatus())
        .message("fstat failed (descriptor %d)", mDescriptorInfo.mDescriptor)
        .raise();
  }
  const int64_t offset = kx_lseek(mDescriptorInfo.mDescriptor, 0, SEEK_CUR);
  mDescriptorInfo.mSeekable = offset >= 0 ? 1 : 0;
  mDescriptorInfo.mStartOffset = std::max<int64_t>(offset, 0);
  if (mIoFlag == eIn && mFollowsGrowth == 0) {
    const int64_t length = trustedSize(mDescriptorInfo.mDescriptor, status);
    mStreamInfo.mStreamLen =
        length < 0 ? -1 : std::max<int64_t>(0, length - mDescriptorInfo.mStartOffset);
  }
}

void KXDescriptorStream::init() {
  if (mInited != 0) {
    KXBasicGenericStream::init();
    return;
  }
  checkArguments();
  if (mPath != nullptr) {
    openPath();
  }
  measure();
  mStreamInfo.mUserData = &mDescriptorInfo;
  mStreamInfo.mReadFlag = mIoFlag == eIn ? 1 : 0;
  if (mIoFlag == eIn) {
    mDescriptorInfo.mBuffSize = roundedBufferSize(mDescriptorInfo.mBuffSize);
    mReadBuffer = static_cast<char*>(kx_malloc(static_cast<size_t>(mDescriptorInfo.mBuffSize)));
    if (mReadBuffer == nullptr) {
      KX_RAISE(KXOutOfMemException, ENOMEM).raise();
    }
  }
  KXBasicGenericStream::init();
}

int64_t KXDescriptorStream::trustedLength(int descriptor) {
  struct stat64 status {};
  return kx_fstat(descriptor, &status) == 0 ? trustedSize(descriptor, status) : -1;
}

int KXDescriptorStream::readSome() {
  KXStreamInfo& record = mStreamInfo;
  int64_t wanted = std::min(record.mTransferLen, mDescriptorInfo.mBuffSize);
  if (record.mStreamLen >= 0) {
    wanted = std::min(wanted, record.mStreamLen - record.mStreamPos);
    if (wanted <= 0) {
      record.mAtEOF = 1;
    }
  }
  if (wanted <= 0) {
    record.mTransferLen = 0;
    return 0;
  }
  const ssize_t count = readRetryingInterrupts(mDescriptorInfo.mDescriptor, mReadBuffer, wanted);
  if (count < 0) {
    record.mTransferLen = 0;
    return systemFailureStatus();
  }
  record.mBuffer = mReadBuffer;
  record.mTransferLen = count;
  record.mStreamPos += count;
  record.mAtEOF = count == 0 || record.mStreamPos == record.mStreamLen ? 1 : 0;
  return 0;
}

int KXDescriptorStream::writeAll() {
  KXStreamInfo& record = mStreamInfo;
  const int64_t total = record.mTransferLen;
  if (int status = 0; isUnwritable(record, status)) {
    return status;
  }
  errno = 0;
  const int64_t done = writeFully(mDescriptorInfo.mDescriptor, record.mBuffer, total);
  // What went out before a failure counts, so the position still tells the truth.
  record.mStreamPos += done;
  if (done < total) {
    record.mTransferLen = -1;
    return systemFailureStatus();
  }
  record.mTransferLen = done;
  return 0;
}

int KXDescriptorStream::_prepareBuffer() {
  if (mIoFlag == eOut) {
    return noReadPrepBuffer();
  }
  return mStreamInfo.mReadFlag != 0 ? readSome() : 0;
}

int KXDescriptorStream::_complete() {
  if (mStreamInfo.mReadFlag != 0) {
    return 0;
  }
  return mIoFlag == eOut ? writeAll() : KX_WRONG_STREAM_ERR;
}

int KXDescriptorStream::_setMarker() {
  return mDescriptorInfo.mSeekable != 0 ? 0 : KX_NOT_SUPPORTED_ERR;
}

int KXDescriptorStream::_resetMarker() {
  if (mDescriptorInfo.mSeekable == 0) {
    return KX_NOT_SUPPORTED_ERR;
  }
  errno = 0;
  if (kx_lseek(mDescriptorInfo.mDescriptor, mDescriptorInfo.mStartOffset + mStreamInfo.mMarkerPos,
               SEEK_SET) < 0) {
    return systemFailureStatus();
  }
  mStreamInfo.mStreamPos = mStreamInfo.mMarkerPos;
  return 0;
}

int KXDescriptorStream::_close() {
  kx_free(mReadBuffer);
  mReadBuffer = nullptr;
  kx_free(mPath);
  mPath = nullptr;
  int status = 0;
  if (mDescriptorInfo.mOwned != 0 && mDescriptorInfo.mDescriptor >= 0) {
    errno = 0;
    // Not retried on EINTR: on Linux the descriptor is gone either way.
    if (kx_close(mDescriptorInfo.mDescriptor) != 0 && mIoFlag == eOut && errno != EINTR) {
      status = systemFailureStatus();
    }
    mDescriptorInfo.mDescriptor = -1;
  }
  return status;
}

KXBool KXDescriptorStream::isWriteAllowed() {
  if (mIoFlag == eIn) {
    KX_RAISE(KXFileSystemException, KX_FILESYSTEM_ERR)
        .message("the stream was opened for input")
        .raise();
  }
  return 1;
}
