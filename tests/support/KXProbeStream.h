#ifndef KX_PROBE_STREAM_H
#define KX_PROBE_STREAM_H

// A stream kind for engine tests: every protocol call does what the test scripted for it, and
// every call is counted, so a test can make a kind keep or break any rule of the transfer
// contract and watch what the engine does about it.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include "KXBasicGenericStream.h"
#include "KXException.h"
#include "KXTestSupport.h"

namespace kxtest {

// The operations a probe counts; isWriteAllowed is counted as well, for the order of write().
enum class ProbeOp { kPrepare, kComplete, kSetMarker, kResetMarker, kClose, kWriteAllowed };
constexpr size_t kProbeOpCount = 6;

// What a probe does in one call. kHonest keeps every rule; the rule breakers do the honest step
// and then break exactly one rule, so that each check of the engine can be provoked alone.
struct ProbeAction {
  enum Kind {
    kHonest,
    kDeliver,           // prepare: deliver `value` bytes whatever was asked (within the content)
    kOverDeliver,       // prepare: deliver `value` bytes more than asked
    kOfferBuffer,       // output prepare: offer the probe's own buffer of `value` bytes
    kWriteOnly,         // output complete: write at most `value` bytes and report that count
    kFail,              // return `value` as the status and touch nothing
    kNotSupported,      // return KX_NOT_SUPPORTED_ERR
    kNoReadPrepBuffer,  // prepare through the engine's ready-made output-only operation
    kRefuse,            // isWriteAllowed: throw, as a kind that may not be written does
    kChangeVersion,     // mVersion + 1
    kFlipReadFlag,      // mReadFlag inverted
    kSetLength,         // mStreamLen = `value`
    kMoveMarker,        // mMarkerPos + 1
    kMoveStreamPos,     // mStreamPos + 1
    kSkipAdvance,       // input prepare: deliver without advancing mStreamPos
    kWrongAdvance,      // output complete: advance one byte more than written
    kSkipMarker,        // setMarker: leave mMarkerPos alone even when the engine does not set it
  };
  Kind kind = kHonest;
  int64_t value = 0;
};

// Outlives the probe (close() deletes it), so counts can be checked after a successful close.
struct ProbeCalls {
  std::array<int, kProbeOpCount> count{};
  std::array<int, kProbeOpCount> order{};  // sequence number of the latest call; 0: never
  int sequence = 0;
  int64_t askedAtPrepare = 0;       // mTransferLen when the latest prepare began
  char* bufferAtPrepare = nullptr;  // mBuffer when the latest prepare began

  int of(ProbeOp op) const { return count[static_cast<size_t>(op)]; }
  int orderOf(ProbeOp op) const { return order[static_cast<size_t>(op)]; }
};

class KXProbeStream : public KXBasicGenericStream {
 public:
  // The engine reads the strict setting when it constructs the stream; the scope sets it just
  // for this construction.
  static KXProbeStream* create(KXBool strict, std::string content = "", int64_t length = -1) {
    KXProbeStream* probe = createUninitialised(strict, std::move(content), length);
    probe->init();
    return probe;
  }

  static KXProbeStream* createUninitialised(KXBool strict, std::string content = "",
                                            int64_t length = -1) {
    StrictModeScope scope(strict);
    return new KXProbeStream(std::move(content), length);
  }

  ~KXProbeStream() override = default;

  // The next unscripted call of op does action; later calls fall back to the default.
  void script(ProbeOp op, ProbeAction action) { mScript[index(op)].push_back(action); }
  void setDefault(ProbeOp op, ProbeAction action) { mDefault[index(op)] = action; }
  // The most bytes an honest prepare hands out at once.
  void setChunk(int64_t chunk) { mChunk = chunk; }

  std::shared_ptr<const ProbeCalls> calls() const { return mCalls; }
  int callsOf(ProbeOp op) const { return mCalls->of(op); }
  const std::string& written() const { return mWritten; }
  void reserveWritten(size_t bytes) { mWritten.reserve(bytes); }

  KXBool strictMode() const { return mStrictMode; }
  KXBool inited() const { return mInited; }
  KXBool loggingEnabled() const { return mLoggingEnabled; }
  KXBool engineSetsMarker() const { return mEngineSetsMarker; }
  int64_t byteCount() const { return mByteCount; }
  bool hasSnapshot() const { return mSavedStreamInfo != nullptr; }
  void setLoggingEnabled(KXBool enabled) { mLoggingEnabled = enabled; }
  void setEngineSetsMarker(KXBool sets) { mEngineSetsMarker = sets; }

  KXBool isWriteAllowed() override {
    if (next(ProbeOp::kWriteAllowed).kind == ProbeAction::kRefuse) {
      throw KXFileSystemException(KX_FILESYSTEM_ERR);
    }
    return 1;
  }

 protected:
  KXProbeStream(std::string content, int64_t length) : mContent(std::move(content)) {
    mStreamInfo.mStreamLen = length;
  }

  int _prepareBuffer() override {
    mCalls->askedAtPrepare = mStreamInfo.mTransferLen;
    mCalls->bufferAtPrepare = mStreamInfo.mBuffer;
    const ProbeAction action = next(ProbeOp::kPrepare);
    const int64_t asked = mStreamInfo.mTransferLen;
    switch (action.kind) {
      case ProbeAction::kFail:
      case ProbeAction::kNotSupported:
        return statusOf(action);
      case ProbeAction::kNoReadPrepBuffer:
        return noReadPrepBuffer();
      case ProbeAction::kOfferBuffer:
        mStreamInfo.mBuffer = mScratch.data();
        mStreamInfo.mTransferLen = std::min<int64_t>(action.value, mScratch.size());
        return 0;
      case ProbeAction::kDeliver:
        deliver(action.value, true);
        return 0;
      case ProbeAction::kOverDeliver:
        deliver(asked + action.value, true);
        return 0;
      case ProbeAction::kSkipAdvance:
        deliver(honestCount(asked), false);
        return 0;
      default:
        if (mStreamInfo.mReadFlag != 0) {
          deliver(honestCount(asked), true);
        }
        breakRule(action);
        return 0;
    }
  }

  int _complete() override {
    const ProbeAction action = next(ProbeOp::kComplete);
    if (isFailure(action)) {
      return statusOf(action);
    }
    if (mStreamInfo.mReadFlag == 0) {
      writeOut(action);
    }
    breakRule(action);
    return 0;
  }

  int _setMarker() override {
    const ProbeAction action = next(ProbeOp::kSetMarker);
    if (isFailure(action)) {
      return statusOf(action);
    }
    // A kind the engine does not help must record the mark itself.
    if (action.kind != ProbeAction::kSkipMarker && mEngineSetsMarker == 0) {
      mStreamInfo.mMarkerPos = mStreamInfo.mStreamPos;
    }
    breakRule(action);
    return 0;
  }

  // The content is addressed by mStreamPos, which the engine moves back to the mark.
  int _resetMarker() override { return simpleStep(ProbeOp::kResetMarker); }

  int _close() override { return simpleStep(ProbeOp::kClose); }

 private:
  static size_t index(ProbeOp op) { return static_cast<size_t>(op); }

  static bool isFailure(const ProbeAction& action) {
    return action.kind == ProbeAction::kFail || action.kind == ProbeAction::kNotSupported;
  }

  static int statusOf(const ProbeAction& action) {
    return action.kind == ProbeAction::kNotSupported ? KX_NOT_SUPPORTED_ERR
                                                     : static_cast<int>(action.value);
  }

  ProbeAction next(ProbeOp op) {
    ++mCalls->count[index(op)];
    mCalls->order[index(op)] = ++mCalls->sequence;
    std::deque<ProbeAction>& queue = mScript[index(op)];
    if (queue.empty()) {
      return mDefault[index(op)];
    }
    const ProbeAction action = queue.front();
    queue.pop_front();
    return action;
  }

  int simpleStep(ProbeOp op) {
    const ProbeAction action = next(op);
    if (isFailure(action)) {
      return statusOf(action);
    }
    breakRule(action);
    return 0;
  }

  int64_t available() const {
    return std::max<int64_t>(0, static_cast<int64_t>(mContent.size()) - mStreamInfo.mStreamPos);
  }

  int64_t honestCount(int64_t asked) const { return std::min({asked, available(), mChunk}); }

  void deliver(int64_t count, bool advance) {
    count = std::min(count, available());
    const int64_t end = mStreamInfo.mStreamPos + count;
    mStreamInfo.mBuffer =
        count > 0 ? &mContent[static_cast<size_t>(mStreamInfo.mStreamPos)] : nullptr;
    mStreamInfo.mTransferLen = count;
    mStreamInfo.mAtEOF = end >= static_cast<int64_t>(mContent.size()) ? 1 : 0;
    if (advance) {
      mStreamInfo.mStreamPos = end;
    }
  }

  void writeOut(const ProbeAction& action) {
    int64_t count = mStreamInfo.mTransferLen;
    if (action.kind == ProbeAction::kWriteOnly) {
      count = std::min(count, action.value);
    }
    if (mStreamInfo.mBuffer != nullptr && count > 0) {
      mWritten.append(mStreamInfo.mBuffer, static_cast<size_t>(count));
    }
    mStreamInfo.mTransferLen = count;
    mStreamInfo.mStreamPos += count + (action.kind == ProbeAction::kWrongAdvance ? 1 : 0);
  }

  void breakRule(const ProbeAction& action) {
    switch (action.kind) {
      case ProbeAction::kChangeVersion:
        ++mStreamInfo.mVersion;
        break;
      case ProbeAction::kFlipReadFlag:
        mStreamInfo.mReadFlag = mStreamInfo.mReadFlag != 0 ? 0 : 1;
        break;
      case ProbeAction::kSetLength:
        mStreamInfo.mStreamLen = action.value;
        break;
      case ProbeAction::kMoveMarker:
        ++mStreamInfo.mMarkerPos;
        break;
      case ProbeAction::kMoveStreamPos:
        ++mStreamInfo.mStreamPos;
        break;
      default:
        break;
    }
  }

  std::string mContent;
  std::string mWritten;
  std::array<char, 256> mScratch{};
  int64_t mChunk = INT64_MAX;
  std::array<std::deque<ProbeAction>, kProbeOpCount> mScript;
  std::array<ProbeAction, kProbeOpCount> mDefault{};
  std::shared_ptr<ProbeCalls> mCalls = std::make_shared<ProbeCalls>();
};

// The record's text form, as the engine writes it into its trace lines.
inline std::string recordText(KXBasicGenericStream& stream) {
  const std::unique_ptr<char[]> text(stream.toString());
  return text.get();
}

// How many captured lines at level are exactly text.
inline int exactLines(const LogCapture& log, verbosity_level_t level, const std::string& text) {
  int found = 0;
  for (const LogLine& line : log.lines()) {
    found += line.level == level && line.text == text ? 1 : 0;
  }
  return found;
}

// The exception that call throws, which must be exactly of class Expected; on any other outcome
// the test fails and a placeholder with code -1 is returned.
template <class Expected, class Call>
Expected thrownBy(Call&& call) {
  try {
    call();
  } catch (const Expected& thrown) {
    EXPECT_EQ(typeid(Expected), typeid(thrown)) << "threw " << thrown.what();
    return thrown;
  } catch (const KXException& other) {
    ADD_FAILURE() << "expected " << typeid(Expected).name() << ", threw " << other.what();
    return Expected(-1);
  }
  ADD_FAILURE() << "expected " << typeid(Expected).name() << ", nothing was thrown";
  return Expected(-1);
}

}  // namespace kxtest

#endif
