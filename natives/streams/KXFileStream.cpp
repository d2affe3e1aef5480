#include "KXFileStream.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include <stdio_ext.h>

#include "KXException.h"
#include "KXRaise.h"
#include "KXStreamStatus.h"
#include "KXStreams.h"
#include "KXStringConversion.h"
#include "KXSystemCalls.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXFileStream";

constexpr int64_t kBufferGranule = 16384;
constexpr int64_t kReaderBufferSize = 16384;
// Standard output and error are written in pieces no larger than this.
constexpr int64_t kStandardChunk = 65536;

constexpr const char* kInputPermissions[] = {"r", "rb"};
constexpr const char* kOutputPermissions[] = {"w",  "wb",  "a",   "ab", "r+",  "rb+", "r+b",
                                              "a+", "ab+", "a+b", "w+", "wb+", "w+b"};
constexpr const char* kAppendPermissions[] = {"a", "ab", "a+", "ab+", "a+b"};

template <size_t N>
bool isOneOf(const char* perm, const char* const (&candidates)[N]) {
  return std::any_of(std::begin(candidates), std::end(candidates),
                     [perm](const char* candidate) { return kx_strcasecmp(perm, candidate) == 0; });
}

bool isAcceptedPermission(const char* perm, int mode) {
  switch (mode) {
    case KXFileStream::eIn:
      return isOneOf(perm, kInputPermissions);
    case KXFileStream::eOut:
      return isOneOf(perm, kOutputPermissions);
    case KXFileStream::eInOut:
      return isOneOf(perm, kInputPermissions) || isOneOf(perm, kOutputPermissions);
    default:
      return true;
  }
}

bool isAppend(const char* perm) { return perm != nullptr && isOneOf(perm, kAppendPermissions); }

// Which record fields an in-out stream hands to its reading half and takes back.
enum RecordField : unsigned {
  kPosition = 1U << 0U,
  kMarker = 1U << 1U,
  kLength = 1U << 2U,
  kAtEOF = 1U << 3U,
  kBuffer = 1U << 4U,
  kTransfer = 1U << 5U,
};
constexpr unsigned kTransferResult = kPosition | kMarker | kLength | kAtEOF | kBuffer | kTransfer;
constexpr unsigned kMarkerState = kPosition | kMarker | kLength | kAtEOF;

void copyFields(const KXStreamInfo& from, KXStreamInfo& to, unsigned fields) {
  if ((fields & kPosition) != 0) {
    to.mStreamPos = from.mStreamPos;
  }
  if ((fields & kMarker) != 0) {
    to.mMarkerPos = from.mMarkerPos;
  }
  if ((fields & kLength) != 0) {
    to.mStreamLen = from.mStreamLen;
  }
  if ((fields & kAtEOF) != 0) {
    to.mAtEOF = from.mAtEOF;
  }
  if ((fields & kBuffer) != 0) {
    to.mBuffer = from.mBuffer;
  }
  if ((fields & kTransfer) != 0) {
    to.mTransferLen = from.mTransferLen;
  }
}

// A failed cut carries code 0 and no message, as documented.
void cutFile(int descriptor, int64_t length) {
  if (kx_ftruncate(descriptor, length) != 0) {
    KX_RAISE(KXFileSystemException, 0).raise();
  }
}
}  // namespace

KXFileStream::KXFileStream(const char* inPath, const char* inPerm, long pBuffSize, EIoFlag inIoFlag,
                           long streamPos, long streamLen, long inMaxFileLength)
    : KXFileStream(inPath, inPerm, pBuffSize, inIoFlag, 0) {
  mFileInfo.mPartial = 1;
  mFileInfo.mMaxFileLength = inMaxFileLength;
  mStreamInfo.mStreamPos = streamPos;
  mStreamInfo.mStreamLen = streamLen;
}

KXFileStream::KXFileStream(const char* inPath, const char* inPerm, long pBuffSize, EIoFlag inIoFlag,
                           unsigned char inIsReader)
    : mIoFlag(inIoFlag), mIsReader(inIsReader) {
  mEngineSetsMarker = 1;
  mPath = inPath != nullptr ? kx_strdup(inPath) : nullptr;
  mPerm = inPerm != nullptr ? kx_strdup(inPerm) : nullptr;
  mFileInfo.mBuffSize = pBuffSize;
  mFileInfo.mMaxFileLength = -1;
}

KXFileStream::~KXFileStream() {
  releaseOwnResources();
  // Only a stream deleted without close() still has its reading half.
  delete mReader;
}

// ---- Opening ----------------------------------------------------------------------------------

void KXFileStream::init() {
  if (mInited != 0) {
    // Opening again would leak what the first init() opened; the engine reports the misuse.
    KXBasicGenericStream::init();
    return;
  }
  try {
    if (mStreamInfo.mStreamPos < 0) {
      KX_RAISE(KXParameterException, 0).message("streamPos < 0").raise();
    }
    switch (mIoFlag) {
      case eIn:
        initInput();
        break;
      case eOut:
        initOutput();
        break;
      case eInOut:
        initInOut();
        break;
      case eStdout:
      case eStderr:
        OptimizeBufferSize();
        break;
      default:
        // Without a mode there is nothing to open; going on would use a descriptor never opened.
        KX_RAISE(KXParameterException, 0)
            .message("invalid mIoFlag (%d)", static_cast<int>(mIoFlag))
            .raise();
    }
    KXBasicGenericStream::init();
  } catch (KXException& exception) {
    if (mReadBuffer != nullptr) {
      kx_free(mReadBuffer);
      mReadBuffer = nullptr;
      mFileInfo.mFileBuffer = nullptr;
      mStreamInfo.mBuffer = nullptr;
    }
    exception.addTrace("KXFileStream.KXFileStream (%s,%s,%s)", KXStringConversion::toString(mPath),
                       KXStringConversion::toString(mPerm),
                       KXStringConversion::toString(static_cast<long>(mFileInfo.mBuffSize)));
    throw;
  }
}

void KXFileStream::initInput() {
  if (mFileInfo.mBuffSize <= 0) {
    KX_RAISE(KXParameterException, 0).message("pBuffSize < 0").raise();
  }
  OptimizeBufferSize();
  ValidatePath(mPath, mIoFlag);
  ValidatePermission(mPerm, mIoFlag);
  mReadBuffer = static_cast<char*>(kx_malloc(static_cast<size_t>(mFileInfo.mBuffSize)));
  if (mReadBuffer == nullptr) {
    KX_RAISE(KXOutOfMemException, ENOMEM).raise();
  }
  mStreamInfo.mReadFlag = 1;
  mStreamInfo.mBuffer = mFileInfo.mFileBuffer = mReadBuffer;
  mStreamInfo.mUserData = &mFileInfo;
  mFileInfo.mFileDesc = kx_open(mPath, mPerm);
  if (mFileInfo.mFileDesc == -1) {
    const int error = errno;
    KX_RAISE(KXFileSystemException, error).message("failed to open input file (%s)", mPath).raise();
  }
  initFileBacked();
}

void KXFileStream::initOutput() {
  checkOutputRange();
  OptimizeBufferSize();
  ValidatePath(mPath, mIoFlag);
  ValidatePermission(mPerm, mIoFlag);
  mStreamInfo.mReadFlag = 0;
  mStreamInfo.mUserData = &mFileInfo;
  mFileInfo.mFileDesc = kx_open(mPath, mPerm);
  if (mFileInfo.mFileDesc == -1) {
    const int error = errno;
    KX_RAISE(KXFileSystemException, error)
        .message("failed to open output file (%s)", mPath)
        .raise();
  }
  initFileBacked();
}

void KXFileStream::checkOutputRange() const {
  const int64_t length = mStreamInfo.mStreamLen;
  const int64_t ceiling = mFileInfo.mMaxFileLength;
  if (length == -1 || ceiling == -1) {
    return;
  }
  if (length < -1) {
    KX_RAISE(KXParameterException, 0).message("streamLen < -1").raise();
  }
  if (length > ceiling - mStreamInfo.mStreamPos) {
    KX_RAISE(KXParameterException, 0).message("streamLen exceeds requested max size").raise();
  }
}

void KXFileStream::initInOut() {
  OptimizeBufferSize();
  ValidatePath(mPath, eInOut);
  ValidatePermission(mPerm, eInOut);
  mStreamInfo.mUserData = &mInOutInfo;
  try {
    mReader = new KXFileStream(mPath, mPerm, kReaderBufferSize, eIn, 1);
    mReader->init();
  } catch (KXException&) {
    if (mReader != nullptr) {
      mReader->close();
      mReader = nullptr;
    }
    throw;
  }
  mInOutInfo.mReader = mReader;
  mStreamInfo.mStreamLen = mReader->mStreamInfo.mStreamLen;
  mStreamInfo.mStreamPos = mReader->mStreamInfo.mStreamPos;
  // Case-sensitive on purpose: only a lower-case r starts the stream in the reading direction.
  if (kx_strchr(mPerm, 'r') != nullptr) {
    mStreamInfo.mReadFlag = 1;
  }
}

// The steps shared by input, output and a reading half, once the descriptor is open.
void KXFileStream::initFileBacked() {
  const int64_t size = getFileSize(mPath, mPerm);
  placeRange(size);
  if (mStreamInfo.mReadFlag == 0 && size != 0 && mFileInfo.mMaxFileLength != -1) {
    limitOutputLength(size);
  }
  placeAppendStart();
  seekToStart();
}

void KXFileStream::placeRange(int64_t size) {
  const int64_t start = mStreamInfo.mStreamPos;
  const int64_t ceiling = mFileInfo.mMaxFileLength;
  // A size of 0 is not compared with the start: an empty file may be written from any offset,
  // and a device reads as size 0 whatever it holds.
  if ((size > 0 && size < start) || (ceiling != -1 && ceiling <= start)) {
    KX_RAISE(KXParameterException, 0).message("invalid mStreamPos offset (%ld)", start).raise();
  }
  mFileInfo.mStartOffset = start;
  mFileInfo.mFilePos = 0;
  mStreamInfo.mStreamPos = 0;
  if (mStreamInfo.mStreamLen == -1) {
    // Only a start past a size of 0 computes a negative length: the range has no end to use.
    mStreamInfo.mStreamLen = size - start;
    if (mStreamInfo.mStreamLen < 0) {
      KX_RAISE(KXParameterException, 0).message("invalid mStreamLen").raise();
    }
  } else if (mStreamInfo.mReadFlag != 0 &&
             (mStreamInfo.mStreamLen < 0 || mStreamInfo.mStreamLen > size)) {
    KX_RAISE(KXParameterException, 0).message("invalid mStreamLen").raise();
  }
}

void KXFileStream::limitOutputLength(int64_t size) {
  if (size > mFileInfo.mMaxFileLength && KXStreams::allowFileTruncation() != 0) {
    cutFile(mFileInfo.mFileDesc, mFileInfo.mMaxFileLength);
  }
  if (size < mFileInfo.mMaxFileLength) {
    mFileInfo.mMaxFileLength = size + mStreamInfo.mStreamLen;
  }
  if (mStreamInfo.mStreamLen - mFileInfo.mStartOffset > mFileInfo.mMaxFileLength) {
    KX_RAISE(KXParameterException, 0)
        .message("Stream size exceeds requested maximum (inMaxFileLength = %ld).",
                 static_cast<long>(mFileInfo.mMaxFileLength))
        .raise();
  }
}

// Appending continues after the existing data; the range start stays where it is.
void KXFileStream::placeAppendStart() {
  const bool wholeFileOutput = mStreamInfo.mReadFlag == 0 && mFileInfo.mPartial == 0;
  const bool appendingReader = mIsReader != 0 && mIoFlag == eIn;
  if (!(wholeFileOutput || appendingReader) || !isAppend(mPerm)) {
    return;
  }
  if (mStreamInfo.mStreamLen != -1) {
    mStreamInfo.mStreamPos = mStreamInfo.mStreamLen;
  }
  mFileInfo.mFilePos = mStreamInfo.mStreamPos;
}

void KXFileStream::seekToStart() {
  const int64_t offset = mFileInfo.mStartOffset + mFileInfo.mFilePos;
  if (kx_lseek(mFileInfo.mFileDesc, offset, SEEK_SET) == -1) {
    const int error = errno;
    KX_RAISE(KXFileSystemException, error)
        .message("lseek failed (offset %ld)", static_cast<long>(offset))
        .raise();
  }
}

KXBool KXFileStream::ValidatePermission(const char* perm, EIoFlag mode) {
  const int usedMode = mIsReader != 0 ? static_cast<int>(eInOut) : static_cast<int>(mode);
  try {
    if (perm == nullptr) {
      KX_RAISE(KXParameterException, 0).raise();
    }
    if (*perm == '\0') {
      KX_RAISE(KXParameterException, 0).message("no permissions specified").raise();
    }
    if (!isAcceptedPermission(perm, usedMode)) {
      KX_RAISE(KXParameterException, 0)
          .message("File open permission validation error. Perm=%s, Mode=%d",
                   KXStringConversion::toString(perm), usedMode)
          .raise();
    }
  } catch (KXException& exception) {
    exception.addTrace("KXFileStream.ValidatePerm(%s)", KXStringConversion::toString(perm));
    throw;
  }
  return 1;
}

KXBool KXFileStream::ValidatePath(const char* path, EIoFlag mode) const {
  try {
    if (path == nullptr) {
      KX_RAISE(KXParameterException, 0).raise();
    }
    const bool needsPath = mode == eIn || mode == eOut || mode == eInOut;
    const bool knownMode = mode >= eIn && mode <= eStderr;
    if (!knownMode || (needsPath && *path == '\0')) {
      KX_RAISE(KXParameterException, 0)
          .message("File path validation error. Perm=%s, Mode=%d",
                   KXStringConversion::toString(path), static_cast<int>(mode))
          .raise();
    }
  } catch (KXException& exception) {
    exception.addTrace("KXFileStream.ValidatePath(%s)", KXStringConversion::toString(path));
    throw;
  }
  return 1;
}

long KXFileStream::getFileSize(const char* path, const char* /*perm*/) {
  struct stat64 record {};
  if (path == nullptr) {
    errno = EFAULT;
  }
  if (path == nullptr || kx_stat(path, &record) != 0) {
    const int error = errno;
    KX_RAISE(KXFileSystemException, error)
        .message("kx_stat(%s,-) failed", path != nullptr ? path : "NULL")
        .raise();
  }
  return static_cast<long>(record.st_size);
}

void KXFileStream::OptimizeBufferSize() {
  if (mFileInfo.mBuffSize % kBufferGranule != 0) {
    mFileInfo.mBuffSize = (mFileInfo.mBuffSize / kBufferGranule) * kBufferGranule + kBufferGranule;
  }
}

// ---- Protocol dispatch ------------------------------------------------------------------------

int KXFileStream::_prepareBuffer() {
  switch (mIoFlag) {
    case eIn:
      return prepareInBuffer();
    case eInOut:
      return prepareInOutBuffer();
    case eStdout:
    case eStderr:
      return noReadPrepBuffer();
    default:
      return 0;
  }
}

int KXFileStream::_complete() {
  switch (mIoFlag) {
    case eOut:
      return completeOut();
    case eInOut:
      return completeInOut();
    case eStdout:
      return stdioComplete();
    case eStderr:
      return stderrComplete();
    default:
      return 0;
  }
}

int KXFileStream::_setMarker() {
  switch (mIoFlag) {
    case eInOut:
      return SetMarkerInOut();
    case eStdout:
    case eStderr:
      return 0;
    default:
      return SetMarkerInOrOut();
  }
}

int KXFileStream::_resetMarker() {
  switch (mIoFlag) {
    case eIn:
    case eOut:
      return resetMarkerInOrOut();
    case eInOut:
      return resetMarkerInOut();
    case eStdout:
    case eStderr:
      return 0;
    default:
      KX_ASSERT(false);
      return 0;
  }
}

int KXFileStream::_close() {
  releaseOwnResources();
  if (mReader != nullptr) {
    KXFileStream* reader = mReader;
    mReader = nullptr;
    mInOutInfo.mReader = nullptr;
    // The half's transfers were driven from here, not through its engine: its own byte count
    // knows nothing of them and must not be checked against the length they produced.
    reader->mByteCount = 0;
    try {
      reader->close();
    } catch (KXException&) {
      delete reader;
      throw;
    }
  }
  return 0;
}

KXBool KXFileStream::isWriteAllowed() {
  if (mIoFlag == eIn) {
    KX_RAISE(KXFileSystemException, KX_FILESYSTEM_ERR).raise();
  }
  return 1;
}

// ---- Transfer workers -------------------------------------------------------------------------

KXFileStream::KXFileInfo* KXFileStream::fileInfo() const {
  auto* vFileInfo = static_cast<KXFileInfo*>(const_cast<void*>(mStreamInfo.mUserData));
  KX_ASSERT_TEXT(vFileInfo != nullptr, "vFileInfo != NULL");
  return vFileInfo;
}

// Code outside the stream may have moved mStreamPos through the public record; read from there
// rather than report a transfer the stream never made.
int KXFileStream::resynchronise() {
  KXFileInfo* vFileInfo = fileInfo();
  if (vFileInfo->mFilePos == mStreamInfo.mStreamPos) {
    return 0;
  }
  if (kx_lseek(vFileInfo->mFileDesc, vFileInfo->mStartOffset + mStreamInfo.mStreamPos, SEEK_SET) ==
      -1) {
    return systemFailureStatus();
  }
  vFileInfo->mFilePos = mStreamInfo.mStreamPos;
  return 0;
}

int KXFileStream::prepareInBuffer() {
  KXFileInfo* vFileInfo = fileInfo();
  const int64_t requested = std::min(mStreamInfo.mTransferLen, vFileInfo->mBuffSize);
  mStreamInfo.mTransferLen = requested;
  if (const int status = resynchronise(); status != 0) {
    return status;
  }
  if (requested > 0) {
    if (vFileInfo->mFilePos >= mStreamInfo.mStreamLen) {
      mStreamInfo.mAtEOF = 1;
      mStreamInfo.mTransferLen = 0;
      return 0;
    }
    mStreamInfo.mBuffer = vFileInfo->mFileBuffer;
    const int64_t count = std::min(requested, mStreamInfo.mStreamLen - mStreamInfo.mStreamPos);
    const ssize_t got = readRetryingInterrupts(vFileInfo->mFileDesc, vFileInfo->mFileBuffer, count);
    if (got < 0) {
      return systemFailureStatus();
    }
    vFileInfo->mFilePos += got;
  }
  const int64_t delivered = vFileInfo->mFilePos - mStreamInfo.mStreamPos;
  mStreamInfo.mStreamPos = vFileInfo->mFilePos;
  mStreamInfo.mTransferLen = delivered;
  mStreamInfo.mAtEOF = delivered == 0 || delivered < requested ||
                               delivered == mStreamInfo.mStreamLen ||
                               mStreamInfo.mStreamPos == mStreamInfo.mStreamLen
                           ? 1
                           : 0;
  return 0;
}

int KXFileStream::prepareInOutBuffer() {
  if (mStreamInfo.mReadFlag == 0) {
    return 0;
  }
  copyFields(mStreamInfo, mReader->mStreamInfo, kPosition | kMarker | kTransfer);
  const int status = mReader->prepareInBuffer();
  copyFields(mReader->mStreamInfo, mStreamInfo, kTransferResult);
  return status;
}

int KXFileStream::completeOut() {
  KXFileInfo* vFileInfo = fileInfo();
  const int64_t count = mStreamInfo.mTransferLen;
  if (int status = 0; isUnwritable(mStreamInfo, status)) {
    return status;
  }
  errno = 0;
  const int64_t written = writeFully(vFileInfo->mFileDesc, mStreamInfo.mBuffer, count);
  if (written < count) {
    mStreamInfo.mTransferLen = -1;
    return written == 0 && errno == 0 ? KX_PARAM_ERR : KX_FILESYSTEM_ERR;
  }
  mStreamInfo.mStreamPos += written;
  vFileInfo->mFilePos += written;
  mStreamInfo.mTransferLen = written;
  if (vFileInfo->mPartial != 0) {
    return 0;
  }
  mStreamInfo.mStreamLen += written;
  // A rewrite that ends before the old data's end leaves the file ending where it ended.
  if (KXStreams::allowFileTruncation() != 0 && mStreamInfo.mStreamLen > mStreamInfo.mStreamPos) {
    cutFile(vFileInfo->mFileDesc, mStreamInfo.mStreamPos);
    mStreamInfo.mStreamLen = mStreamInfo.mStreamPos;
  }
  return 0;
}

int KXFileStream::completeInOut() {
  if (mStreamInfo.mReadFlag != 0) {
    return 0;
  }
  copyFields(mStreamInfo, mReader->mStreamInfo, kPosition | kMarker | kAtEOF | kBuffer | kTransfer);
  const int status = mReader->completeOut();
  copyFields(mReader->mStreamInfo, mStreamInfo, kTransferResult);
  return status;
}

int KXFileStream::stdioComplete() { return writeToStandardStream(stdout); }

int KXFileStream::stderrComplete() { return writeToStandardStream(stderr); }

// Bytes go out unchanged, NUL bytes and percent signs included, in pieces of at most 64 KiB,
// straight to the descriptor: the C library's buffer would report bytes as written that a later
// interrupted flush drops. What the process buffered there before goes first, to keep the order.
// Interrupted writes are retried; a failed one ends the transfer with a failure status.
int KXFileStream::writeToStandardStream(FILE* stream) {
  if (mStreamInfo.mBuffer == nullptr || mStreamInfo.mTransferLen < 1) {
    return 0;
  }
  errno = 0;
  if (__fpending(stream) > 0 && fflush(stream) != 0) {
    return systemFailureStatus();
  }
  const int descriptor = fileno(stream);
  int64_t done = 0;
  while (done < mStreamInfo.mTransferLen) {
    const int64_t chunk = std::min(mStreamInfo.mTransferLen - done, kStandardChunk);
    errno = 0;
    const int64_t written = writeFully(descriptor, mStreamInfo.mBuffer + done, chunk);
    done += written;
    mStreamInfo.mStreamPos += written;
    if (written < chunk) {
      return systemFailureStatus();
    }
  }
  return 0;
}

// ---- Markers ----------------------------------------------------------------------------------

int KXFileStream::SetMarkerInOrOut() {
  // Only confirms that the descriptor can seek; the engine records the mark itself.
  return kx_lseek(mFileInfo.mFileDesc, 0, SEEK_CUR) == -1 ? systemFailureStatus() : 0;
}

int KXFileStream::resetMarkerInOrOut() {
  if (kx_lseek(mFileInfo.mFileDesc, mFileInfo.mStartOffset + mStreamInfo.mMarkerPos, SEEK_SET) <
      0) {
    return systemFailureStatus();
  }
  mStreamInfo.mStreamPos = mStreamInfo.mMarkerPos;
  mFileInfo.mFilePos = mStreamInfo.mMarkerPos;
  return 0;
}

int KXFileStream::SetMarkerInOut() {
  copyFields(mStreamInfo, mReader->mStreamInfo, kMarkerState);
  const int status = mReader->_setMarker();
  copyFields(mReader->mStreamInfo, mStreamInfo, kMarkerState);
  return status;
}

int KXFileStream::resetMarkerInOut() {
  copyFields(mStreamInfo, mReader->mStreamInfo, kMarkerState);
  const int status = mReader->_resetMarker();
  copyFields(mReader->mStreamInfo, mStreamInfo, kMarkerState);
  return status;
}

// ---- Release ----------------------------------------------------------------------------------

void KXFileStream::releaseOwnResources() {
  kx_free(mPath);
  mPath = nullptr;
  kx_free(mPerm);
  mPerm = nullptr;
  if (mFileInfo.mFileDesc > 0) {
    kx_close(mFileInfo.mFileDesc);
  }
  mFileInfo.mFileDesc = 0;
  kx_free(mReadBuffer);
  mReadBuffer = nullptr;
  mFileInfo.mFileBuffer = nullptr;
}
