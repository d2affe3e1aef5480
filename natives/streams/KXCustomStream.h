#ifndef KX_CUSTOM_STREAM_H
#define KX_CUSTOM_STREAM_H

#include "KXBasicGenericStream.h"
#include "KXExport.h"

// A stream whose source or sink is five caller-supplied functions. Each protocol operation
// calls its function with the stream's record; the record's mUserData carries the caller's
// context. A null function falls back to the engine's default for that operation, so a stream
// without the two marker functions is one-way. A close function that succeeded is not called
// again, even when the engine refuses that close and the stream is closed a second time.
class KX_EXPORT KXCustomStream : public KXBasicGenericStream {
 public:
  // Stores the callbacks and the context, which stays the caller's: the stream never reads
  // or frees it.
  KXCustomStream(KXStreamProc prepareBufferProc, KXStreamProc completeProc,
                 KXStreamProc setMarkerProc, KXStreamProc resetMarkerProc, KXStreamProc closeProc,
                 const void* context);

  // Rejects marker callbacks given without their partner, and a stream with no callback.
  void init() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  // The caller releases its resources in its close callback; there is nothing left here.
  ~KXCustomStream() override;

 protected:
  KXStreamProc mPrepareBufferProc;
  KXStreamProc mCompleteProc;
  KXStreamProc mSetMarkerProc;
  KXStreamProc mResetMarkerProc;
  KXStreamProc mCloseProc;
};

#endif
