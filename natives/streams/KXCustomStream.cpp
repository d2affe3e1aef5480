#include "KXCustomStream.h"

#include <cstdint>

#include "KXException.h"
#include "KXRaise.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXCustomStream";

// Callbacks return a long, but a status is 32 bits wide: only the low word counts, read as a
// signed number. Spelled out so that it is defined for every long.
int statusOf(long callbackResult) {
  const auto low = static_cast<uint32_t>(static_cast<unsigned long>(callbackResult));
  if (low <= static_cast<uint32_t>(INT32_MAX)) {
    return static_cast<int>(low);
  }
  return static_cast<int>(low - 0x80000000u) + INT32_MIN;
}

// Calls the client's function for an operation, or falls back to the engine's default.
template <class EngineDefault>
int callOrDefault(KXStreamProc proc, KXStreamInfo* info, EngineDefault engineDefault) {
  return proc != nullptr ? statusOf(proc(info)) : engineDefault();
}
}  // namespace

KXCustomStream::KXCustomStream(KXStreamProc prepareBufferProc, KXStreamProc completeProc,
                               KXStreamProc setMarkerProc, KXStreamProc resetMarkerProc,
                               KXStreamProc closeProc, const void* context)
    : mPrepareBufferProc(prepareBufferProc),
      mCompleteProc(completeProc),
      mSetMarkerProc(setMarkerProc),
      mResetMarkerProc(resetMarkerProc),
      mCloseProc(closeProc) {
  mStreamInfo.mUserData = context;
}

KXCustomStream::~KXCustomStream() = default;

void KXCustomStream::init() {
  const bool canSetMarker = mSetMarkerProc != nullptr;
  const bool canResetMarker = mResetMarkerProc != nullptr;
  // A mark that cannot be returned to, or a return without a mark, is a caller's mistake.
  if (canSetMarker && !canResetMarker) {
    KX_RAISE(KXParameterException, 0)
        .message("SetMarkerProc defined without ResetMarkerProc\n")
        .raise();
  }
  if (canResetMarker && !canSetMarker) {
    KX_RAISE(KXParameterException, 0)
        .message("ResetMarkerProc defined without SetMarkerProc\n")
        .raise();
  }
  if (mPrepareBufferProc == nullptr && mCompleteProc == nullptr && !canSetMarker &&
      !canResetMarker && mCloseProc == nullptr) {
    KX_RAISE(KXParameterException, 0).raise();
  }
  KXBasicGenericStream::init();
}

int KXCustomStream::_prepareBuffer() {
  return callOrDefault(mPrepareBufferProc, &mStreamInfo,
                       [this] { return KXBasicGenericStream::_prepareBuffer(); });
}

int KXCustomStream::_complete() {
  return callOrDefault(mCompleteProc, &mStreamInfo,
                       [this] { return KXBasicGenericStream::_complete(); });
}

int KXCustomStream::_setMarker() {
  return callOrDefault(mSetMarkerProc, &mStreamInfo,
                       [this] { return KXBasicGenericStream::_setMarker(); });
}

int KXCustomStream::_resetMarker() {
  return callOrDefault(mResetMarkerProc, &mStreamInfo,
                       [this] { return KXBasicGenericStream::_resetMarker(); });
}

// The engine may refuse a close after the callback ran (strict validation); the client has then
// released its resources, and a second close() must not make it release them again.
int KXCustomStream::_close() {
  const int status =
      callOrDefault(mCloseProc, &mStreamInfo, [this] { return KXBasicGenericStream::_close(); });
  if (status == 0) {
    mCloseProc = nullptr;
  }
  return status;
}
