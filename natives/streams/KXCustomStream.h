#ifndef KX_CUSTOM_STREAM_H
#define KX_CUSTOM_STREAM_H

/// @file
/// KXCustomStream, a stream over five caller-supplied callbacks.

#include "KXBasicGenericStream.h"
#include "KXExport.h"

/// A stream whose source or sink is five caller-supplied functions. Each protocol operation
/// calls its function with the stream's record; the record's mUserData carries the caller's
/// context. A null function falls back to the engine's default for that operation, so a stream
/// without the two marker functions is one-way. Callbacks follow the protocol of
/// KXBasicGenericStream's protected operations: in strict mode a callback that moves a
/// position wrongly makes the operation throw, and the set-marker callback must itself copy
/// mStreamPos into mMarkerPos. A nonzero return becomes KXStreamException with that code. A
/// close function that succeeded is not called again, even when the engine refuses that close
/// and the stream is closed a second time.
class KX_EXPORT KXCustomStream : public KXBasicGenericStream {
 public:
  /// Stores the callbacks and the @p context, which stays the caller's: the stream never reads
  /// or frees it, and the caller keeps it alive until the stream is closed.
  KXCustomStream(KXStreamProc prepareBufferProc, KXStreamProc completeProc,
                 KXStreamProc setMarkerProc, KXStreamProc resetMarkerProc, KXStreamProc closeProc,
                 const void* context);

  /// Throws KXParameterException for marker callbacks given without their partner, and for a
  /// stream with no callback.
  void init() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  /// The caller releases its resources in its close callback; there is nothing left here.
  ~KXCustomStream() override;

 protected:
  KXStreamProc mPrepareBufferProc;  ///< Called by _prepareBuffer, or null.
  KXStreamProc mCompleteProc;       ///< Called by _complete, or null.
  KXStreamProc mSetMarkerProc;      ///< Called by _setMarker, or null.
  KXStreamProc mResetMarkerProc;    ///< Called by _resetMarker, or null.
  KXStreamProc mCloseProc;          ///< Called by _close, or null.
};

#endif
