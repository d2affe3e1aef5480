#ifndef KX_MEM_STREAM_H
#define KX_MEM_STREAM_H

/// @file
/// KXMemStream, a caller's memory region as a stream.

#include "KXBasicGenericStream.h"
#include "KXExport.h"

/// A caller's memory region of fixed length as a stream. Input hands out pointers straight into
/// the region (no copy); output copies each transfer into the region at the current position and
/// drops what does not fit. The region is borrowed: the stream never allocates, grows or frees
/// it, and the caller keeps it alive until the stream is closed.
class KX_EXPORT KXMemStream : public KXBasicGenericStream {
 public:
  // The underlying type is fixed so that any value a caller casts in is representable and can
  // be refused by init().
  /// The direction of a memory stream.
  enum EIoFlag : int {
    eIn = 0,  ///< Read the region.
    eOut = 1  ///< Write into the region.
  };

  /// The region as the stream sees it; the record's mUserData points at it, so code that holds
  /// only the record can reach the region.
  struct KXMemStreamInfo {
    char* mMemBuffer;          ///< The caller's region.
    unsigned long mBufferLen;  ///< Its length in bytes.
  };

  /// Stores the arguments unchanged; init() validates them. The stream's length is @p length.
  KXMemStream(char* buffer, unsigned long length, KXMemStream::EIoFlag flag);

  /// Throws KXParameterException for a null region, a length of 2^63 or more and a direction
  /// other than eIn or eOut.
  void init() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;

 public:
  /// The region stays the caller's; there is nothing of the stream's own to release.
  ~KXMemStream() override;

 protected:
  EIoFlag mIoFlag;                 ///< The direction given to the constructor.
  KXMemStreamInfo mMemStreamInfo;  ///< The region (mUserData).
};

#endif
