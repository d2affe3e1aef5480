#ifndef KX_CACHED_INPUT_STREAM_H
#define KX_CACHED_INPUT_STREAM_H

#include "KXBasicGenericStream.h"
#include "KXExport.h"

// A cache in front of another input stream: the wrapped stream is read in cache-sized portions
// through its own engine operations, the consumer gets pointers into the cache, and marks are
// offsets in the cache, so returning to a mark never asks the wrapped stream to rewind. The
// wrapped stream stays the caller's: initialised before this one, closed after it.
//
// A transfer never spans a refill: a request larger than what the cache still holds gets the
// rest of the cache with end of stream set, and nothing more until a reset. So read() with a
// count that does not divide the cache size stops at the first cache boundary, and calcID()
// (whose request is never a divisor) digests one cache. Read in counts that divide the cache
// size, and take the identifier of the wrapped stream itself.
class KX_EXPORT KXCachedInputStream : public KXBasicGenericStream {
 public:
  struct KXCacheInfo {
    char* mCache;
    long mCacheSize;
    long mCacheLen;
    long mCacheReadPos;
    long mCacheMarkPos;
  };

  // Throws KXWrongStreamException when the stream is not an input stream.
  KXCachedInputStream(KXBasicGenericStream* stream, long cacheSize);

  void init() override;
  // Rounds the cache size up to a whole multiple of 16384.
  void optimizeCacheSize();
  // Replaces the cache's content with the wrapped stream's next bytes.
  void fillInternalCache();

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  ~KXCachedInputStream() override;

 protected:
  KXCacheInfo mCacheInfo{};
  KXBasicGenericStream* mInputStream;
  KXStreamInfo* mInputInfo;

 private:
  void traceRecord(const char* format);
  // The stream position of cache offset 0.
  int64_t cacheStartPosition() const;
};

#endif
