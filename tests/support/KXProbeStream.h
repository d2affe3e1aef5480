#ifndef KX_PROBE_STREAM_H
#define KX_PROBE_STREAM_H

// A stream kind for engine tests: each protocol call keeps the transfer contract unless the test
// scripted a failure or a broken rule for it, and every call is counted.

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <string>
#include <utility>

#include "KXBasicGenericStream.h"
#include "KXException.h"
#include "KXTestSupport.h"

namespace kxtest {

enum ProbeOp { kPrepare, kComplete, kSetMarker, kResetMarker, kClose, kWriteAllowed };

// A nonzero status is returned with nothing touched (isWriteAllowed throws it instead);
// otherwise the honest step runs and then breakRule, if any.
struct ProbeAction {
  int status = 0;
  void (*breakRule)(KXStreamInfo&) = nullptr;
};

class KXProbeStream : public KXBasicGenericStream {
 public:
  // The engine copies the library-wide strict setting when it constructs a stream.
  static KXProbeStream* create(KXBool strict, std::string content = "", int64_t length = -1,
                               bool initialise = true) {
    StrictModeScope scope(strict);
    auto* probe = new KXProbeStream(std::move(content), length);
    if (initialise) {
      probe->init();
    }
    return probe;
  }

  // Only the next call of op does action.
  void script(ProbeOp op, ProbeAction action) { mNext[op] = action; }
  // The most bytes one input transfer delivers.
  void setChunk(int64_t chunk) { mChunk = chunk; }
  int callsOf(ProbeOp op) const { return mCalls[op]; }
  // Calls of the protocol operations, not counting isWriteAllowed.
  int kindCalls() const { return std::accumulate(mCalls.begin(), mCalls.end() - 1, 0); }
  bool hasSnapshot() const { return mSavedStreamInfo != nullptr; }
  void setLoggingEnabled(KXBool enabled) { mLoggingEnabled = enabled; }

  KXBool isWriteAllowed() override {
    if (const int status = step(kWriteAllowed)) {
      throw KXFileSystemException(status);
    }
    return 1;
  }

 protected:
  KXProbeStream(std::string content, int64_t length) : mContent(std::move(content)) {
    mStreamInfo.mStreamLen = length;
  }

  int _prepareBuffer() override { return step(kPrepare); }
  int _complete() override { return step(kComplete); }
  int _setMarker() override { return step(kSetMarker); }
  // The content is addressed by mStreamPos, which the engine moves back to the mark.
  int _resetMarker() override { return step(kResetMarker); }
  int _close() override { return step(kClose); }

 private:
  int step(ProbeOp op) {
    ++mCalls[op];
    const ProbeAction action = std::exchange(mNext[op], ProbeAction{});
    if (action.status == 0) {
      keepTheContract(op);
      if (action.breakRule != nullptr) {
        action.breakRule(mStreamInfo);
      }
    }
    return action.status;
  }

  void keepTheContract(ProbeOp op) {
    KXStreamInfo& info = mStreamInfo;
    const auto size = static_cast<int64_t>(mContent.size());
    if (op == kPrepare && info.mReadFlag != 0) {
      info.mTransferLen = std::min({info.mTransferLen, mChunk, size - info.mStreamPos});
      info.mBuffer = &mContent[static_cast<size_t>(info.mStreamPos)];
      info.mStreamPos += info.mTransferLen;
      info.mAtEOF = info.mStreamPos == size ? 1 : 0;
    } else if (op == kComplete && info.mReadFlag == 0) {
      info.mStreamPos += info.mTransferLen;
    } else if (op == kSetMarker) {
      info.mMarkerPos = info.mStreamPos;  // the engine leaves a strict probe's mark to it
    }
  }

  std::string mContent;
  int64_t mChunk = INT64_MAX;
  std::array<ProbeAction, 6> mNext{};
  std::array<int, 6> mCalls{};
};

inline void prepare(KXProbeStream& probe) { probe.prepareBuffer(); }
inline void complete(KXProbeStream& probe) { probe.complete(); }
inline void setMark(KXProbeStream& probe) { probe.SetMark(); }
inline void resetMark(KXProbeStream& probe) { probe.resetMark(); }
inline void closeProbe(KXProbeStream& probe) { probe.close(); }
inline void readFour(KXProbeStream& probe) { readString(probe, 4); }
inline void writeFour(KXProbeStream& probe) { writeString(probe, "0123"); }

}  // namespace kxtest

#endif
