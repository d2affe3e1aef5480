#include "KXBasicGenericStream.h"

#include <cerrno>
#include <memory>
#include <system_error>

#include "KXException.h"
#include "KXLogging.h"
#include "KXMD5.h"
#include "KXRaise.h"
#include "KXStreamStatus.h"
#include "KXStreams.h"
#include "KXStringConversion.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXBasicGenericStream";
constexpr int16_t kRecordVersion = 3;
constexpr int kRecordTextSize = 512;
constexpr int kDigestTextSize = 65;
constexpr long kUnlimitedDigest = 0x7fffffff;

// Adds the operation's trace to whatever leaves it, so traces accumulate along nested calls.
template <class Body>
auto withTrace(const char* trace, Body body) -> decltype(body()) {
  try {
    return body();
  } catch (KXException& exception) {
    exception.addTrace("%s", trace);
    throw;
  }
}

// The caller's buffer is gone once write() returns: the record must not point into it, or a
// later read or digest over a kind that offers no buffer of its own would use it.
class CallerBufferForgetter {
 public:
  CallerBufferForgetter(KXStreamInfo& record, const char* buffer, int length)
      : mRecord(record),
        mBegin(reinterpret_cast<uintptr_t>(buffer)),
        mEnd(mBegin + static_cast<uintptr_t>(length)) {}
  CallerBufferForgetter(const CallerBufferForgetter&) = delete;
  CallerBufferForgetter& operator=(const CallerBufferForgetter&) = delete;
  ~CallerBufferForgetter() {
    const auto at = reinterpret_cast<uintptr_t>(mRecord.mBuffer);
    if (at >= mBegin && at <= mEnd) {
      mRecord.mBuffer = nullptr;
    }
  }

 private:
  KXStreamInfo& mRecord;
  uintptr_t mBegin;
  uintptr_t mEnd;
};

struct DigestContextDeleter {
  void operator()(void* context) const { KXMD5_Router::deleteContext(context, 0); }
};
using DigestContext = std::unique_ptr<void, DigestContextDeleter>;
}  // namespace

// The engine's internal steps. They are kept out of the class declaration so that they are not
// part of the library's binary interface.
struct KXEngineSteps {
  static bool isTracing(const KXBasicGenericStream& stream) {
    return KXLogging::isDebugLogging() && stream.mLoggingEnabled != 0;
  }

  static void traceRecord(KXBasicGenericStream& stream, const char* format) {
    if (isTracing(stream)) {
      const std::unique_ptr<char[]> text(stream.toString());
      KXLogging::Debug(kStreamLogComponent, format, KXStringConversion::removePercent(text.get()));
    }
  }

  static void traceRecordWithStatus(KXBasicGenericStream& stream, const char* format, int status) {
    if (isTracing(stream)) {
      const std::unique_ptr<char[]> text(stream.toString());
      KXLogging::Debug(kStreamLogComponent, format, static_cast<long>(status),
                       KXStringConversion::removePercent(text.get()));
    }
  }

  static void snapshotIfChecking(KXBasicGenericStream& stream) {
    if (stream.mStrictMode != 0 || isTracing(stream)) {
      saveState(stream);
    }
  }

  // The bodies of saveStreamState() and validateStreamState(). The engine calls these directly:
  // they run around every protocol call, and the exported members cannot be inlined.
  static void saveState(KXBasicGenericStream& stream) {
    if (stream.mSavedStreamInfo == nullptr) {
      stream.mSavedStreamInfo = static_cast<KXStreamInfo*>(kx_malloc(sizeof(KXStreamInfo)));
      if (stream.mSavedStreamInfo == nullptr) {
        // Without the copy nothing can be validated; refuse the step rather than skip the checks.
        KX_RAISE(KXOutOfMemException, 12).raise();
      }
    }
    // A plain struct copy is a few register moves, where the exported kx_memcpy costs a call
    // into memmove for 64 bytes.
    *stream.mSavedStreamInfo = stream.mStreamInfo;
  }

  static void validate(KXBasicGenericStream& stream, EStreamContext context) {
    const KXStreamInfo& saved = *stream.mSavedStreamInfo;
    validateCommon(stream, saved);
    switch (context) {
      case ePrepareBufferProc:
        validatePrepareBuffer(stream, saved);
        break;
      case eCompleteProc:
        validateComplete(stream, saved);
        break;
      case eSetMarkerProc:
        validateSetMarker(stream, saved);
        break;
      case eResetMarkerProc:
        validateResetMarker(stream, saved);
        break;
      case eCloseProc:
        validateClose(stream);
        break;
    }
  }

  static void validateIfSnapshot(KXBasicGenericStream& stream, EStreamContext context) {
    if (stream.mSavedStreamInfo != nullptr) {
      validate(stream, context);
    }
  }

  static void checkInited(const KXBasicGenericStream& stream) {
    KX_ASSERT_TEXT(stream.mInited == 1, "mInited == (KXBool)true");
  }

  // Runs one transfer operation of the kind. errno is cleared first and read straight after, so
  // that a failure names the kind's own system error, never an earlier call's or the tracer's.
  static int callKind(KXBasicGenericStream& stream, int (KXBasicGenericStream::*operation)(),
                      int& systemError) {
    errno = 0;
    const int status = (stream.*operation)();
    systemError = errno;
    return status;
  }

  [[noreturn]] static void raiseCallbackFailure(const KXBasicGenericStream& stream,
                                                const char* logFormat, int status,
                                                int systemError = 0) {
    // The status of a failed file call is fixed as KX_FILESYSTEM_ERR; the system's own reason
    // (ENOSPC on a full disk) is still worth naming, so it goes into the message.
    if (isTracing(stream)) {
      KXLogging::Log(1, kStreamLogComponent, logFormat, static_cast<long>(status));
    }
    if (status == KX_FILESYSTEM_ERR && systemError != 0) {
      KX_RAISE(KXStreamException, status)
          .message("%s (errno %d)", std::generic_category().message(systemError).c_str(),
                   systemError)
          .raise();
    }
    KX_RAISE(KXStreamException, status).raise();
  }

  // A kind that passes a failed system call's -1 through as its count breaks the protocol in a
  // way no mode may let pass: every consumer would copy, count or loop on it.
  static void refuseNegativeDelivery(const KXBasicGenericStream& stream) {
    const KXStreamInfo& record = stream.mStreamInfo;
    if (record.mReadFlag != 0 && record.mTransferLen < 0) {
      KX_RAISE(KXStreamException, 0)
          .message("negative byte count delivered (%ld)", static_cast<long>(record.mTransferLen))
          .raise();
    }
  }

  // The marker operations' common ending: KX_NOT_SUPPORTED_ERR becomes KXMarkRequiredException
  // (not logged: it is how a caller learns that the kind has no markers), any other failure a
  // logged KXStreamException.
  static void checkMarkerStatus(const KXBasicGenericStream& stream, int status,
                                bool unsupportedIsFine, const char* logFormat) {
    if (status == KX_NOT_SUPPORTED_ERR) {
      if (!unsupportedIsFine) {
        KX_RAISE(KXMarkRequiredException, 0).raiseQuietly();
      }
    } else if (status != 0) {
      raiseCallbackFailure(stream, logFormat, status);
    }
  }

  static void report(KXBasicGenericStream& stream, const char* logFormat, const char* what,
                     bool mismatch) {
    const bool strict = stream.mStrictMode != 0;
    if (isTracing(stream)) {
      KXLogging::Log(strict ? 1 : 2, kStreamLogComponent, logFormat,
                     KXStringConversion::removePercent(what));
    }
    if (!strict) {
      return;
    }
    if (mismatch) {
      KX_RAISE(KXStreamMismatchException, 0).message("%s", what).raise();
    }
    KX_RAISE(KXStreamValidationException, 0).message("%s", what).raise();
  }

  static void validateCommon(KXBasicGenericStream& stream, const KXStreamInfo& saved) {
    const KXStreamInfo& current = stream.mStreamInfo;
    if (current.mVersion != saved.mVersion) {
      stream.reportValidationError("mVersion");
    }
    if (current.mReadFlag != saved.mReadFlag) {
      stream.reportValidationError("mReadFlag");
    }
    if (current.mReadFlag != 0 && current.mStreamLen != saved.mStreamLen) {
      stream.reportValidationError("mStreamLen");
    }
  }

  static void validatePrepareBuffer(KXBasicGenericStream& stream, const KXStreamInfo& saved) {
    const KXStreamInfo& current = stream.mStreamInfo;
    if (current.mReadFlag == 1) {
      if (current.mStreamPos != saved.mStreamPos + current.mTransferLen) {
        stream.reportValidationError("PrepareBufferProc: mStreamPos");
      }
      if (current.mStreamLen != -1) {
        stream.mByteCount += current.mTransferLen;
        if (stream.mByteCount > current.mStreamLen) {
          stream.reportBytecountMismatchError("PrepareBufferProc: mStreamLen");
        }
      }
    }
    if (current.mMarkerPos != saved.mMarkerPos) {
      stream.reportValidationError("PrepareBufferProc: mMarkerPos");
    }
  }

  static void validateComplete(KXBasicGenericStream& stream, const KXStreamInfo& saved) {
    const KXStreamInfo& current = stream.mStreamInfo;
    if (current.mReadFlag == 0) {
      if (current.mStreamPos != saved.mStreamPos + current.mTransferLen) {
        stream.reportValidationError("CompleteProc: mStreamPos (output)");
      }
    } else if (current.mStreamPos != saved.mStreamPos) {
      stream.reportValidationError("CompleteProc: mStreamPos (input)");
    }
    if (current.mMarkerPos != saved.mMarkerPos) {
      stream.reportValidationError("CompleteProc: mMarkerPos");
    }
  }

  static void validateSetMarker(KXBasicGenericStream& stream, const KXStreamInfo& saved) {
    const KXStreamInfo& current = stream.mStreamInfo;
    if (current.mMarkerPos != current.mStreamPos) {
      stream.reportValidationError("SetMarkerProc: mMarkerPos");
    }
    if (current.mStreamPos != saved.mStreamPos) {
      stream.reportValidationError("SetMarkerProc: mStreamPos");
    }
  }

  static void validateResetMarker(KXBasicGenericStream& stream, const KXStreamInfo& saved) {
    const KXStreamInfo& current = stream.mStreamInfo;
    if (current.mStreamPos != current.mMarkerPos) {
      stream.reportValidationError("ResetMarkerProc: mStreamPos");
    }
    if (current.mReadFlag == 1 && current.mStreamLen != -1) {
      stream.mByteCount -= saved.mStreamPos - current.mStreamPos;
    }
    if (current.mMarkerPos != saved.mMarkerPos) {
      stream.reportValidationError("ResetMarkerProc: mMarkerPos");
    }
  }

  // An input stream of known length must be closed read to its end or not read at all.
  static void validateClose(KXBasicGenericStream& stream) {
    const KXStreamInfo& current = stream.mStreamInfo;
    if (current.mReadFlag != 1) {
      return;
    }
    if (current.mStreamLen != -1 && stream.mByteCount > 0 &&
        stream.mByteCount != current.mStreamLen) {
      stream.reportBytecountMismatchError("CloseProc: mStreamLen");
    }
    stream.mByteCount = 0;
  }

  static void releaseSnapshot(KXBasicGenericStream& stream) {
    kx_free(stream.mSavedStreamInfo);
    stream.mSavedStreamInfo = nullptr;
  }
};

KXBasicGenericStream::KXBasicGenericStream() : mStrictMode(KXStreams::getStreamStrictMode()) {
  kx_memset(&mStreamInfo, 0, sizeof mStreamInfo);
  mStreamInfo.mVersion = kRecordVersion;
  mStreamInfo.mUserData = nullptr;
  mStreamInfo.mStreamLen = -1;
  mStreamInfo.mTransferLen = KX_UNLIMITED_TRANSFER;
}

// A stream deleted without a successful close() (its final validation refused it) still
// returns the snapshot copy.
KXBasicGenericStream::~KXBasicGenericStream() {
  if (mSavedStreamInfo != nullptr) {
    KXEngineSteps::releaseSnapshot(*this);
  }
}

void KXBasicGenericStream::init() {
  try {
    KX_ASSERT(mInited == false);
  } catch (KXException& exception) {
    // A second init() is harmless: it is reported in the log and otherwise ignored.
    exception.addTrace("KXBasicGenericStream.init");
    return;
  }
  mInited = 1;
  if (mStreamInfo.mStreamPos != 0) {
    mByteCount = mStreamInfo.mStreamPos;
  }
}

int KXBasicGenericStream::_prepareBuffer() { return 0; }

int KXBasicGenericStream::_complete() { return 0; }

int KXBasicGenericStream::_setMarker() { return KX_NOT_SUPPORTED_ERR; }

int KXBasicGenericStream::_resetMarker() { return KX_NOT_SUPPORTED_ERR; }

int KXBasicGenericStream::_close() { return 0; }

KXBool KXBasicGenericStream::isWriteAllowed() { return 1; }

KXStreamInfo* KXBasicGenericStream::GetInfo() const {
  // The record is the stream's shared state: consumers and kinds write it through this pointer.
  return const_cast<KXStreamInfo*>(&mStreamInfo);
}

KXStreamInfo* KXBasicGenericStream::prepareBuffer() {
  return withTrace("KXBasicGenericStream.prepareBuffer", [this] {
    KXEngineSteps::checkInited(*this);
    if (mStreamInfo.mReadFlag == 0) {
      mStreamInfo.mBuffer = nullptr;
      mStreamInfo.mTransferLen = 0;
    }
    KXEngineSteps::traceRecord(*this, "before prepare %s");
    KXEngineSteps::snapshotIfChecking(*this);
    int systemError = 0;
    const int status =
        KXEngineSteps::callKind(*this, &KXBasicGenericStream::_prepareBuffer, systemError);
    KXEngineSteps::traceRecordWithStatus(*this, "after prepare, status=%ld, %s", status);
    if (status != 0) {
      KXEngineSteps::raiseCallbackFailure(
          *this, "KX_STREAM_ERR in prepareBuffer callback (status=%ld)", status, systemError);
    }
    KXEngineSteps::refuseNegativeDelivery(*this);
    KXEngineSteps::validateIfSnapshot(*this, ePrepareBufferProc);
    return &mStreamInfo;
  });
}

KXStreamInfo* KXBasicGenericStream::complete() {
  return withTrace("KXBasicGenericStream.complete", [this] {
    KXEngineSteps::checkInited(*this);
    KXEngineSteps::traceRecord(*this, "before complete %s");
    KXEngineSteps::snapshotIfChecking(*this);
    int systemError = 0;
    const int status =
        KXEngineSteps::callKind(*this, &KXBasicGenericStream::_complete, systemError);
    KXEngineSteps::traceRecordWithStatus(*this, "after complete, status=%ld, %s", status);
    if (status != 0) {
      KXEngineSteps::raiseCallbackFailure(*this, "KX_STREAM_ERR in complete callback (status=%ld)",
                                          status, systemError);
    }
    KXEngineSteps::validateIfSnapshot(*this, eCompleteProc);
    if (mStreamInfo.mStreamLen >= 0 && mStreamInfo.mStreamLen <= mStreamInfo.mStreamPos) {
      mStreamInfo.mStreamLen = mStreamInfo.mStreamPos;
    }
    if (mStreamInfo.mReadFlag != 0) {
      mStreamInfo.mTransferLen = KX_UNLIMITED_TRANSFER;
    }
    return &mStreamInfo;
  });
}

int KXBasicGenericStream::read(void* buffer, int length) {
  if (buffer == nullptr || length < 0) {
    KX_RAISE(KXParameterException, 0).trace("KXBasicGenericStream.read").raise();
  }
  SetReadable();
  int remaining = length;
  int total = 0;
  char* destination = static_cast<char*>(buffer);
  do {
    mStreamInfo.mTransferLen = remaining;
    prepareBuffer();
    const int64_t delivered = mStreamInfo.mTransferLen;
    if (mStreamInfo.mBuffer != nullptr) {
      if (delivered > remaining) {
        KX_RAISE(KXStreamException, 0)
            .trace("KXBasicGenericStream.read")
            .message("Transferlen is larger than requested")
            .raise();
      }
      kx_memcpy(destination + total, mStreamInfo.mBuffer, static_cast<size_t>(delivered));
    }
    // A kind that delivers nothing leaves 0 here, so counting without a buffer is harmless.
    total += static_cast<int>(delivered);
    if (mStreamInfo.mAtEOF != 0) {
      return total;
    }
    remaining -= static_cast<int>(delivered);
    complete();
  } while (remaining > 0);
  return total;
}

long KXBasicGenericStream::write(void* buffer, int length) {
  isWriteAllowed();
  if (buffer == nullptr || length < 0) {
    KX_RAISE(KXParameterException, 0).trace("KXBasicGenericStream.write").raise();
  }
  SetWritable();
  prepareBuffer();
  mStreamInfo.mBuffer = static_cast<char*>(buffer);
  mStreamInfo.mTransferLen = length;
  const CallerBufferForgetter forgetter(mStreamInfo, mStreamInfo.mBuffer, length);
  complete();
  return mStreamInfo.mTransferLen;
}

void KXBasicGenericStream::SetMark() {
  withTrace("KXBasicGenericStream.SetMark", [this] {
    KXEngineSteps::snapshotIfChecking(*this);
    const int status = _setMarker();
    KXEngineSteps::checkInited(*this);
    KXEngineSteps::checkMarkerStatus(*this, status, false,
                                     "KX_STREAM_ERR in setMarker callback (status=%ld)");
    if (mEngineSetsMarker != 0 || mStrictMode == 0) {
      mStreamInfo.mMarkerPos = mStreamInfo.mStreamPos;
    }
    KXEngineSteps::validateIfSnapshot(*this, eSetMarkerProc);
  });
}

void KXBasicGenericStream::SetMark(long offset) {
  withTrace("KXBasicGenericStream.SetMark", [this, offset] {
    KXEngineSteps::checkInited(*this);
    if (offset < 0) {
      KX_RAISE(KXParameterException, 0).message("param negative offset").raise();
    }
    if (offset == 0) {
      reset();
      return;
    }
    mStreamInfo.mMarkerPos = offset;
    mStreamInfo.mStreamPos = offset;
    resetMark();
  });
}

void KXBasicGenericStream::resetMark() {
  withTrace("KXBasicGenericStream.resetMark", [this] {
    KXEngineSteps::snapshotIfChecking(*this);
    const int status = _resetMarker();
    KXEngineSteps::checkInited(*this);
    // A kind without markers is already where it is asked to go when the mark is here.
    const bool alreadyThere = mStreamInfo.mMarkerPos == mStreamInfo.mStreamPos;
    KXEngineSteps::checkMarkerStatus(*this, status, alreadyThere,
                                     "KX_STREAM_ERR in resetMarker callback (status=%ld)");
    mStreamInfo.mStreamPos = mStreamInfo.mMarkerPos;
    mStreamInfo.mAtEOF = 0;
    KXEngineSteps::validateIfSnapshot(*this, eResetMarkerProc);
  });
}

void KXBasicGenericStream::reset() {
  mStreamInfo.mMarkerPos = 0;
  resetMark();
}

void KXBasicGenericStream::close() {
  KXEngineSteps::snapshotIfChecking(*this);
  const int status = _close();
  if (status != 0) {
    if (KXEngineSteps::isTracing(*this)) {
      KXLogging::Log(1, kStreamLogComponent, "KX_STREAM_ERR in close callback (status=%ld)",
                     static_cast<long>(status));
    }
    KX_RAISE(KXStreamException, status).trace("KXBasicGenericStream.close").raise();
  }
  if (mSavedStreamInfo != nullptr) {
    KXEngineSteps::validate(*this, eCloseProc);
    KXEngineSteps::releaseSnapshot(*this);
  }
  delete this;
}

long KXBasicGenericStream::GetStreamPos() const {
  if (mStreamInfo.mStreamPos < 0) {
    KX_RAISE(KXStreamException, 0).message("Negative position in stream").raise();
  }
  return mStreamInfo.mStreamPos;
}

long KXBasicGenericStream::GetMarker() const { return mStreamInfo.mStreamPos; }

long KXBasicGenericStream::GetLength() const { return mStreamInfo.mStreamLen; }

KXBool KXBasicGenericStream::isAtEOF() const { return mStreamInfo.mAtEOF; }

void KXBasicGenericStream::SetReadable() { mStreamInfo.mReadFlag = 1; }

void KXBasicGenericStream::SetWritable() { mStreamInfo.mReadFlag = 0; }

char* KXBasicGenericStream::toString() {
  char* text = new char[kRecordTextSize];
  kx_sprintf(text, "{buffer=%lx, len=%s, pos=%s, mark=%s, len=%s, eof=%s, read=%s}",
             reinterpret_cast<unsigned long>(mStreamInfo.mBuffer),
             KXStringConversion::toString(static_cast<long>(mStreamInfo.mTransferLen)),
             KXStringConversion::toString(static_cast<long>(mStreamInfo.mStreamPos)),
             KXStringConversion::toString(static_cast<long>(mStreamInfo.mMarkerPos)),
             KXStringConversion::toString(static_cast<long>(mStreamInfo.mStreamLen)),
             KXStringConversion::toString(mStreamInfo.mAtEOF),
             KXStringConversion::toString(mStreamInfo.mReadFlag));
  return text;
}

int KXBasicGenericStream::noErrProc() { return 0; }

int KXBasicGenericStream::noReadPrepBuffer() {
  if (mStreamInfo.mReadFlag != 0) {
    KX_RAISE(KXNotSupportedException, 0).trace("KXBasicGenericStream.noReadPrepBuffer").raise();
  }
  return 0;
}

void KXBasicGenericStream::calcID(KXObjectGuid& id, long maxLength) {
  SetMark();
  calcIDWithChangeMark(id, maxLength);
  resetMark();
}

long KXBasicGenericStream::calcIDWithChangeMark(KXObjectGuid& id, long maxLength) {
  KX_ASSERT_TEXT(mStreamInfo.mReadFlag == 1, "mStreamInfo.mReadFlag == (KXBool)true");
  const DigestContext context(KXMD5_Router::createContext());
  if (!context) {
    KX_RAISE(KXOutOfMemException, 0).raise();
  }
  long remaining = maxLength < 0 ? kUnlimitedDigest : maxLength;
  long total = 0;
  for (;;) {
    mStreamInfo.mTransferLen = remaining;
    prepareBuffer();
    const int64_t delivered = mStreamInfo.mTransferLen;
    if (delivered > 0 && mStreamInfo.mBuffer != nullptr) {
      KXMD5_Router::update(context.get(), mStreamInfo.mBuffer,
                           static_cast<unsigned long>(delivered), 0);
    }
    total += delivered;
    complete();
    if (mStreamInfo.mAtEOF != 0) {
      break;
    }
    remaining -= delivered;
    if (remaining <= 0) {
      break;
    }
  }
  char text[kDigestTextSize] = {};
  KXMD5_Router::complete(context.get(), id.GetFormat(), text, kDigestTextSize, 0);
  id.SetID(text);
  return total;
}

void KXBasicGenericStream::saveStreamState() { KXEngineSteps::saveState(*this); }

void KXBasicGenericStream::validateStreamState(EStreamContext context) {
  KXEngineSteps::validate(*this, context);
}

void KXBasicGenericStream::reportValidationError(const char* what) {
  KXEngineSteps::report(*this, "KX_STREAM_VALIDATION_ERR (%s)", what, false);
}

void KXBasicGenericStream::reportBytecountMismatchError(const char* what) {
  KXEngineSteps::report(*this, "KX_STREAM_BYTECOUNT_MISMATCH_ERR (%s)", what, true);
}
