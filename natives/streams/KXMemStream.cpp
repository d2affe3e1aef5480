#include "KXMemStream.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "KXException.h"
#include "KXRaise.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXMemStream";

// The length is stored unsigned, as given, but every check and sum treats it as signed.
int64_t regionLength(const KXMemStream::KXMemStreamInfo& region) {
  return static_cast<int64_t>(region.mBufferLen);
}

// Where the content ends. The declared length and the region agree in a sound stream; taking
// the smaller keeps a length changed through GetInfo() from reaching past the region.
int64_t contentEnd(const KXStreamInfo& record, const KXMemStream::KXMemStreamInfo& region) {
  return std::min(record.mStreamLen, regionLength(region));
}

// A position outside the content (a mark set past the end, a corrupted record) has no bytes to
// offer and must end a consumer's loop rather than keep it waiting for bytes.
bool isAtEnd(const KXStreamInfo& record, const KXMemStream::KXMemStreamInfo& region) {
  return record.mStreamPos < 0 || record.mStreamPos >= contentEnd(record, region);
}

// How many of the asked bytes can move at the current position, in one piece.
int64_t transferableCount(const KXStreamInfo& record, const KXMemStream::KXMemStreamInfo& region) {
  if (isAtEnd(record, region)) {
    return 0;
  }
  const int64_t room = contentEnd(record, region) - record.mStreamPos;
  return std::max<int64_t>(0, std::min(record.mTransferLen, room));
}

// A transfer in the direction the region was not given for moves nothing.
int refuseDirection(KXStreamInfo& record) {
  record.mBuffer = nullptr;
  record.mTransferLen = -1;
  return KX_WRONG_STREAM_ERR;
}
}  // namespace

KXMemStream::KXMemStream(char* buffer, unsigned long length, KXMemStream::EIoFlag flag)
    : mIoFlag(flag), mMemStreamInfo() {
  mEngineSetsMarker = 1;
  kx_memset(&mMemStreamInfo, 0, sizeof mMemStreamInfo);
  mMemStreamInfo.mMemBuffer = buffer;
  mMemStreamInfo.mBufferLen = length;
  mStreamInfo.mUserData = &mMemStreamInfo;
  mStreamInfo.mStreamLen = static_cast<int64_t>(length);
  mStreamInfo.mReadFlag = flag == eOut ? 0 : 1;
}

KXMemStream::~KXMemStream() = default;

void KXMemStream::init() {
  // Every refusal leaves KX_PARAM_ERR in errno, for callers that look there after a failed init.
  if (mMemStreamInfo.mMemBuffer == nullptr || regionLength(mMemStreamInfo) < 0) {
    errno = KX_PARAM_ERR;
    KX_RAISE(KXParameterException, 0).raise();
  }
  // Other directions would read and write the same region with the position advanced twice.
  if (mIoFlag != eIn && mIoFlag != eOut) {
    errno = KX_PARAM_ERR;
    KX_RAISE(KXParameterException, 0)
        .message("Invalid memory stream direction %d: expected eIn (0) or eOut (1)",
                 static_cast<int>(mIoFlag))
        .raise();
  }
  KXBasicGenericStream::init();
}

int KXMemStream::_prepareBuffer() {
  if (mIoFlag == eOut) {
    // The engine leaves a read's mBuffer as the last transfer left it; never let it be copied.
    return mStreamInfo.mReadFlag != 0 ? refuseDirection(mStreamInfo)
                                      : KXBasicGenericStream::_prepareBuffer();
  }
  if (mStreamInfo.mReadFlag == 0) {
    return refuseDirection(mStreamInfo);
  }
  const int64_t count = transferableCount(mStreamInfo, mMemStreamInfo);
  mStreamInfo.mBuffer = count > 0 ? mMemStreamInfo.mMemBuffer + mStreamInfo.mStreamPos : nullptr;
  mStreamInfo.mTransferLen = count;
  mStreamInfo.mStreamPos += count;
  // Raised with the last bytes, so a consumer needs no extra empty transfer to see the end.
  mStreamInfo.mAtEOF = isAtEnd(mStreamInfo, mMemStreamInfo) ? 1 : 0;
  return 0;
}

int KXMemStream::_complete() {
  if (mIoFlag == eIn) {
    return KXBasicGenericStream::_complete();
  }
  int64_t count = 0;
  if (mStreamInfo.mBuffer == nullptr) {
    KX_ASSERT(mStreamInfo.mTransferLen == 0);
  } else {
    count = transferableCount(mStreamInfo, mMemStreamInfo);
    if (count > 0) {
      kx_memcpy(mMemStreamInfo.mMemBuffer + mStreamInfo.mStreamPos, mStreamInfo.mBuffer,
                static_cast<size_t>(count));
    }
  }
  // Only a transfer that could never fit is a mismatch; running out of room is not.
  if (mStreamInfo.mTransferLen > regionLength(mMemStreamInfo)) {
    reportBytecountMismatchError("CompleteProc: mTransferLen > mBufferLen");
  }
  mStreamInfo.mStreamPos += count;
  mStreamInfo.mTransferLen = count;
  mStreamInfo.mAtEOF = 1;
  return 0;
}

// The position is the whole state of the region; the engine records and restores it.
int KXMemStream::_setMarker() { return noErrProc(); }

int KXMemStream::_resetMarker() { return noErrProc(); }
