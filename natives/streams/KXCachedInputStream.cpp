#include "KXCachedInputStream.h"

#include <algorithm>
#include <memory>

#include "KXException.h"
#include "KXLogging.h"
#include "KXRaise.h"
#include "KXStreamStatus.h"
#include "KXStringConversion.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXCachedInputStream";
constexpr long kCacheGranule = 16384;
}  // namespace

KXCachedInputStream::KXCachedInputStream(KXBasicGenericStream* stream, long cacheSize)
    : mInputStream(stream), mInputInfo(stream->GetInfo()) {
  mEngineSetsMarker = 1;
  if (mInputInfo->mReadFlag == 0) {
    KX_RAISE(KXWrongStreamException, 0).raise();
  }
  mCacheInfo.mCacheSize = cacheSize;
  mStreamInfo.mUserData = &mCacheInfo;
}

KXCachedInputStream::~KXCachedInputStream() { kx_free(mCacheInfo.mCache); }

void KXCachedInputStream::init() {
  if (mInited != 0) {
    // Starting over would drop the cache's content and leak the cache; the engine reports it.
    KXBasicGenericStream::init();
    return;
  }
  mStreamInfo.mStreamPos = 0;
  mStreamInfo.mMarkerPos = 0;
  mStreamInfo.mStreamLen = mInputInfo->mStreamLen;
  mStreamInfo.mAtEOF = 0;
  mStreamInfo.mReadFlag = 1;
  mStreamInfo.mBuffer = nullptr;
  mStreamInfo.mTransferLen = 0;
  optimizeCacheSize();
  mCacheInfo.mCache = static_cast<char*>(kx_malloc(static_cast<size_t>(mCacheInfo.mCacheSize)));
  if (mCacheInfo.mCache == nullptr) {
    KX_RAISE(KXOutOfMemException, ENOMEM).raise();
  }
  KXBasicGenericStream::init();
}

void KXCachedInputStream::optimizeCacheSize() {
  if (mCacheInfo.mCacheSize % kCacheGranule != 0) {
    mCacheInfo.mCacheSize = (mCacheInfo.mCacheSize / kCacheGranule) * kCacheGranule + kCacheGranule;
  }
}

void KXCachedInputStream::fillInternalCache() {
  mCacheInfo.mCacheLen = 0;
  mCacheInfo.mCacheReadPos = 0;
  mCacheInfo.mCacheMarkPos = 0;
  if (mInputInfo->mAtEOF != 0) {
    return;
  }
  while (mCacheInfo.mCacheLen < mCacheInfo.mCacheSize) {
    mInputInfo->mTransferLen = mCacheInfo.mCacheSize - mCacheInfo.mCacheLen;
    mInputStream->prepareBuffer();
    if (mInputInfo->mBuffer != nullptr && mInputInfo->mTransferLen != 0) {
      kx_memcpy(mCacheInfo.mCache + mCacheInfo.mCacheLen, mInputInfo->mBuffer,
                static_cast<size_t>(mInputInfo->mTransferLen));
      mCacheInfo.mCacheLen += static_cast<long>(mInputInfo->mTransferLen);
    }
    mInputStream->complete();
    if (mInputInfo->mAtEOF != 0) {
      break;
    }
  }
}

int KXCachedInputStream::_prepareBuffer() {
  const int64_t requested = mStreamInfo.mTransferLen;
  if (mStreamInfo.mAtEOF != 0) {
    mStreamInfo.mTransferLen = 0;
    return 0;
  }
  if (mStreamInfo.mStreamPos >= mInputInfo->mStreamPos && mInputInfo->mAtEOF == 0) {
    fillInternalCache();
  }
  mStreamInfo.mBuffer = mCacheInfo.mCache + mCacheInfo.mCacheReadPos;
  // What the cache still holds after the read offset; never negative, never past mCacheLen.
  const int64_t left = std::max<int64_t>(mCacheInfo.mCacheLen - mCacheInfo.mCacheReadPos, 0);
  const int64_t count = std::min(
      {requested, left, std::max<int64_t>(mInputInfo->mStreamPos - mStreamInfo.mStreamPos, 0)});
  mStreamInfo.mStreamPos += count;
  mCacheInfo.mCacheReadPos += static_cast<long>(count);
  mStreamInfo.mTransferLen = count;
  const bool more = count > 0 && count == requested && count != mStreamInfo.mStreamLen &&
                    mStreamInfo.mStreamPos != mStreamInfo.mStreamLen;
  mStreamInfo.mAtEOF = more ? 0 : 1;
  return 0;
}

int KXCachedInputStream::_complete() { return 0; }

int KXCachedInputStream::_setMarker() {
  traceRecord("before set %s");
  mCacheInfo.mCacheMarkPos = mCacheInfo.mCacheReadPos;
  traceRecord("after set %s");
  return 0;
}

int64_t KXCachedInputStream::cacheStartPosition() const {
  return mInputInfo->mStreamPos - mCacheInfo.mCacheLen;
}

// Any position the cache still holds can be returned to; an older one cannot, and the engine
// turns the refusal into KXMarkRequiredException when the stream has moved.
int KXCachedInputStream::_resetMarker() {
  traceRecord("before reset %s");
  const int64_t target = mStreamInfo.mMarkerPos;
  const int64_t start = cacheStartPosition();
  if (target < start || target > mInputInfo->mStreamPos) {
    // SetMark(long) moves the position before asking; put it back where the cache stands so
    // that the engine sees the move and refuses it instead of reading the wrong bytes.
    mStreamInfo.mStreamPos = start + mCacheInfo.mCacheReadPos;
    traceRecord("after reset %s");
    return KX_NOT_SUPPORTED_ERR;
  }
  mCacheInfo.mCacheReadPos = static_cast<long>(target - start);
  mCacheInfo.mCacheMarkPos = mCacheInfo.mCacheReadPos;
  mStreamInfo.mBuffer = mCacheInfo.mCache + mCacheInfo.mCacheReadPos;
  traceRecord("after reset %s");
  return 0;
}

int KXCachedInputStream::_close() {
  kx_free(mCacheInfo.mCache);
  mCacheInfo.mCache = nullptr;
  return 0;
}

void KXCachedInputStream::traceRecord(const char* format) {
  if (KXLogging::isDebugLogging() == 0 || mLoggingEnabled == 0) {
    return;
  }
  const std::unique_ptr<char[]> text(toString());
  KXLogging::Debug(kStreamLogComponent, format, KXStringConversion::removePercent(text.get()));
}
