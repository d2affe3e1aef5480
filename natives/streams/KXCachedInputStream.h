#ifndef KX_CACHED_INPUT_STREAM_H
#define KX_CACHED_INPUT_STREAM_H

/// @file
/// KXCachedInputStream, a cache in front of another input stream.

#include "KXBasicGenericStream.h"
#include "KXExport.h"

/// A cache in front of another input stream: the wrapped stream is read in cache-sized portions
/// through its own engine operations, the consumer gets pointers into the cache, and marks are
/// offsets in the cache, so returning to a mark never asks the wrapped stream to rewind. The
/// wrapped stream stays the caller's: initialised before this one, closed after it.
///
/// A transfer never spans a refill: a request larger than what the cache still holds gets the
/// rest of the cache with end of stream set, and nothing more until a reset. So read() with a
/// count that does not divide the cache size stops at the first cache boundary, and calcID()
/// (whose request is never a divisor) digests one cache. Read in counts that divide the cache
/// size, and take the identifier of the wrapped stream itself. A mark holds only while its
/// bytes are in the cache.
class KX_EXPORT KXCachedInputStream : public KXBasicGenericStream {
 public:
  /// The cache and its offsets; the record's mUserData points here.
  struct KXCacheInfo {
    char* mCache;        ///< The cache, owned; allocated by init(), freed by close().
    long mCacheSize;     ///< Its size in bytes, a multiple of 16384 after init().
    long mCacheLen;      ///< Bytes it holds.
    long mCacheReadPos;  ///< Offset of the next byte to hand out.
    long mCacheMarkPos;  ///< Offset of the mark.
  };

  /// Wraps @p stream (borrowed, an input stream still at position 0) with a cache of
  /// @p cacheSize bytes. Throws KXWrongStreamException when @p stream is not in input mode.
  KXCachedInputStream(KXBasicGenericStream* stream, long cacheSize);

  /// Takes the wrapped stream's length (initialise that stream first) and allocates the cache;
  /// throws KXOutOfMemException (code 12) when it cannot.
  void init() override;
  /// Rounds the cache size up to a whole multiple of 16384.
  void optimizeCacheSize();
  /// Replaces the cache's content with the wrapped stream's next bytes (dropping the mark's
  /// bytes); throws what the wrapped stream's operations throw.
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
  KXCacheInfo mCacheInfo{};            ///< The cache (mUserData).
  KXBasicGenericStream* mInputStream;  ///< The wrapped stream, borrowed.
  KXStreamInfo* mInputInfo;            ///< The wrapped stream's record.

 private:
  void traceRecord(const char* format);
  // The stream position of cache offset 0.
  int64_t cacheStartPosition() const;
};

#endif
