#include "KXBasicGenericStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

constexpr verbosity_level_t kErrorLevel = 1;
constexpr verbosity_level_t kDebugLevel = 3;
const std::string kTen = "0123456789";

std::string recordText(KXBasicGenericStream& stream) {
  const std::unique_ptr<char[]> text(stream.toString());
  return text.get();
}
void readNull(KXProbeStream& p) { p.read(nullptr, 4); }
void readNegative(KXProbeStream& p) { readBytes(p, -1); }
void writeNull(KXProbeStream& p) { p.write(nullptr, 4); }
void writeNegative(KXProbeStream& p) { writeBytes(p, -1); }
void setMarkAtMinusOne(KXProbeStream& p) { p.SetMark(-1); }
void setMarkAtFive(KXProbeStream& p) { p.SetMark(5); }
void setMarkAtZero(KXProbeStream& p) { p.SetMark(0); }
void reset(KXProbeStream& p) { p.reset(); }
void setMarkAtTheMark(KXProbeStream& p) {
  p.GetInfo()->mMarkerPos = p.GetInfo()->mStreamPos;
  p.SetMark();
}
void deliverOneMore(KXStreamInfo& info) {
  ++info.mTransferLen;
  ++info.mStreamPos;
}
void writeOnlyThree(KXStreamInfo& info) {
  info.mStreamPos -= info.mTransferLen - 3;
  info.mTransferLen = 3;
}

TEST(EngineLifecycle, InitCountsFromTheStartOnlyOnceAndTransfersAreTraced) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen, -1, false);
  EXPECT_EQ(3, probe->GetInfo()->mVersion);
  EXPECT_EQ(nullptr, probe->GetInfo()->mUserData);
  EXPECT_EQ("{buffer=0, len=9223372036854775807, pos=0, mark=0, len=-1, eof=0, read=0}",
            recordText(*probe));
  *probe->GetInfo() = {3, nullptr, 4, 0, 10, 0, 1, reinterpret_cast<char*>(0xabc0), 16};
  probe->init();
  probe->init();
  const std::string started = "{buffer=abc0, len=16, pos=4, mark=0, len=10, eof=0, read=1}";
  EXPECT_EQ(started, recordText(*probe));
  EXPECT_EQ(1, log.count(kErrorLevel, "mInited == false"));

  probe->prepareBuffer();
  const std::string prepared = recordText(*probe);
  probe->complete();
  // The trace after the kind's call comes before the engine resets mTransferLen.
  EXPECT_EQ(1, log.count(kDebugLevel, "before prepare " + started));
  EXPECT_EQ(1, log.count(kDebugLevel, "after prepare, status=0, " + prepared));
  EXPECT_EQ(1, log.count(kDebugLevel, "before complete " + prepared));
  EXPECT_EQ(1, log.count(kDebugLevel, "after complete, status=0, " + prepared));
  EXPECT_EQ(5u, log.lines().size());
  probe->GetInfo()->mStreamPos = -1;
  EXPECT_EQ("KXStreamException (code 0): Negative position in stream []",
            outcome([&] { probe->GetStreamPos(); }));
  EXPECT_NO_THROW(probe->close());  // from 4 to the end: all 10 bytes are accounted for
}

TEST(EngineRead, CopiesTransfersUntilFullOrAtTheEnd) {
  struct Case {
    int64_t chunk;
    int length;
    std::string expected;
    int completes;  // a transfer that reaches the end is not completed
  } const cases[] = {{INT64_MAX, 0, "", 1}, {3, 8, "01234567", 3}, {9, 16, kTen, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.length);
    KXProbeStream* probe = KXProbeStream::create(1, kTen);
    probe->setChunk(c.chunk);
    std::string buffer(16, '#');
    ASSERT_EQ(static_cast<int>(c.expected.size()), probe->read(&buffer[0], c.length));
    EXPECT_EQ(c.expected + std::string(16 - c.expected.size(), '#'), buffer);
    const int atEnd = c.expected == kTen ? 1 : 0;
    EXPECT_EQ(c.completes + atEnd, probe->callsOf(kPrepare));
    EXPECT_EQ(c.completes, probe->callsOf(kComplete));
    EXPECT_EQ(atEnd, probe->isAtEOF());
    EXPECT_EQ(static_cast<long>(c.expected.size()), probe->GetMarker());  // not mMarkerPos
    EXPECT_EQ(atEnd != 0 ? 1 : INT64_MAX, probe->GetInfo()->mTransferLen);
    EXPECT_EQ(0, readBytes(*probe, atEnd != 0 ? 16 : 0));
    probe->close();
  }
}

TEST(EngineRead, RefusesBadArgumentsAndLargerDeliveriesBeforeChangingAnything) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  outcome([&] { probe->read(nullptr, 4); });
  EXPECT_EQ(0, probe->GetInfo()->mReadFlag);
  probe->script(kPrepare, {0, deliverOneMore});
  std::string buffer(8, '#');
  EXPECT_EQ(
      "KXStreamException (code 0): Transferlen is larger than requested "
      "[KXBasicGenericStream.read]",
      outcome([&] { probe->read(&buffer[0], 4); }));
  EXPECT_EQ(std::string(8, '#'), buffer);
  probe->close();
}

TEST(EngineWrite, HandsTheCallerBufferOverInOneTransferAndGrowsAReachedLength) {
  KXProbeStream* probe = KXProbeStream::create(1);
  char buffer[100] = {};
  // The left-overs of an input transfer are not offered to an output prepare.
  *probe->GetInfo() = {3, nullptr, 0, 0, 101, 0, 1, buffer, 77};
  EXPECT_EQ(100, probe->write(buffer, sizeof buffer));
  EXPECT_EQ(0, probe->outputPrepareLen);
  EXPECT_EQ(static_cast<const char*>(buffer), probe->bufferAtComplete);
  EXPECT_EQ(101, probe->GetLength());
  probe->script(kComplete, {0, writeOnlyThree});
  EXPECT_EQ(3, probe->write(buffer, 10));
  EXPECT_EQ(0, probe->write(buffer, 0));
  EXPECT_EQ(3, probe->callsOf(kComplete));
  EXPECT_EQ(103, probe->GetLength());
  probe->close();
}

// Lenient, so that a successful SetMark() would copy the mark, and set up with a transfer count to
// reset, a reached length to grow, a position and an end to reset, which a failed call keeps.
TEST(EngineCalls, EndAsTheirRulesSayAndLogFailedCallbacksOnlyWhileTracing) {
  const std::string engine = " [KXBasicGenericStream.";
  const std::string param = "KXParameterException (code 0)" + engine;
  const std::string notInited = "KXSDKInternalException (code 0): mInited == (KXBool)true" + engine;
  const std::string failed = "KXStreamException (code -10006)" + engine;
  const std::string markRequired = "KXMarkRequiredException (code 0)" + engine;
  const int fail = KX_PARAM_ERR;
  const int unsupported = KX_NOT_SUPPORTED_ERR;
  const char* const callbacks[] = {"prepareBuffer", "complete", "setMarker",
                                   "resetMarker",   "close",    "isWriteAllowed"};
  struct Case {
    bool initialise;
    ProbeOp op;
    int status;
    void (*call)(KXProbeStream&);
    int kindCalls;        // protocol operations the call reached
    bool keepsRecord;     // checked when the call throws
    std::string outcome;  // the record's text when nothing is thrown
  } const cases[] = {
      {true, kPrepare, 0, readNull, 0, true, param + "read]"},
      {true, kPrepare, 0, readNegative, 0, true, param + "read]"},
      {true, kWriteAllowed, KX_FILESYSTEM_ERR, writeNegative, 0, true,
       "KXFileSystemException (code -10027) []"},
      {true, kPrepare, 0, writeNull, 0, true, param + "write]"},
      {true, kPrepare, 0, writeNegative, 0, true, param + "write]"},
      {true, kPrepare, 0, setMarkAtMinusOne, 0, true,
       "KXParameterException (code 0): param negative offset" + engine + "SetMark]"},
      {true, kSetMarker, unsupported, setMark, 1, true, markRequired + "SetMark]"},
      {true, kSetMarker, unsupported, setMarkAtTheMark, 1, false, markRequired + "SetMark]"},
      {true, kResetMarker, unsupported, resetMark, 1, true, markRequired + "resetMark]"},
      {true, kResetMarker, unsupported, reset, 1, true, markRequired + "resetMark]"},
      // At the mark a kind without markers has nothing to do.
      {true, kResetMarker, unsupported, setMarkAtFive, 1, false,
       "{buffer=0, len=4, pos=5, mark=5, len=5, eof=0, read=1}"},
      // SetMark(0) rewinds as reset() does.
      {true, kPrepare, 0, setMarkAtZero, 1, false,
       "{buffer=0, len=4, pos=0, mark=0, len=5, eof=0, read=1}"},
      {true, kResetMarker, fail, setMarkAtFive, 1, false,
       failed + "resetMark | KXBasicGenericStream.SetMark]"},
      {true, kComplete, fail, readFour, 2, false, failed + "complete]"},
      {true, kPrepare, fail, writeFour, 1, false, failed + "prepareBuffer]"},
      {true, kPrepare, fail, prepare, 1, true, failed + "prepareBuffer]"},
      {true, kComplete, fail, complete, 1, true, failed + "complete]"},
      {true, kSetMarker, fail, setMark, 1, true, failed + "SetMark]"},
      {true, kResetMarker, fail, resetMark, 1, true, failed + "resetMark]"},
      {true, kClose, fail, closeProbe, 1, true, failed + "close]"},
      {false, kPrepare, 0, prepare, 0, true, notInited + "prepareBuffer]"},
      {false, kPrepare, 0, complete, 0, true, notInited + "complete]"},
      // The marker operations call the kind before they check.
      {false, kPrepare, 0, setMark, 1, false, notInited + "SetMark]"},
      {false, kPrepare, 0, setMarkAtFive, 0, true, notInited + "SetMark]"},
      {false, kPrepare, 0, setMarkAtMinusOne, 0, true, notInited + "SetMark]"},
      {false, kPrepare, 0, resetMark, 1, true, notInited + "resetMark]"},
  };
  // Tracing needs debug logging and the stream's own switch; the capture passes every level.
  for (const std::pair<bool, KXBool>& tracing :
       {std::make_pair(true, KXBool{1}), std::make_pair(true, KXBool{0}),
        std::make_pair(false, KXBool{1})}) {
    for (const Case& c : cases) {
      SCOPED_TRACE("case " + std::to_string(&c - cases) + ", debug " +
                   std::to_string(tracing.first) + ", logging " + std::to_string(tracing.second));
      LogCapture log(tracing.first, kDebugLevel);
      KXProbeStream* probe = KXProbeStream::create(0, kTen + kTen, -1, c.initialise);
      probe->setLoggingEnabled(tracing.second);
      *probe->GetInfo() = {3, nullptr, 8, 0, 5, 1, 1, nullptr, 4};
      const std::string before = recordText(*probe);
      probe->script(c.op, {c.status});

      const std::string thrown = outcome([&] { c.call(*probe); });
      EXPECT_EQ(c.outcome, thrown.empty() ? recordText(*probe) : thrown);
      if (c.keepsRecord) {
        EXPECT_EQ(before, recordText(*probe));
      }
      EXPECT_EQ(c.kindCalls, probe->kindCalls());
      // The engine logs every exception it throws except the one asking for a mark; the refusal
      // to write is the probe's own.
      const bool logsException =
          !thrown.empty() && thrown.find("KXMarkRequired") != 0 && thrown.find("KXFileSystem") != 0;
      EXPECT_EQ(logsException ? 1 : 0, log.count("at natives/streams/KXBasicGenericStream:"));
      const bool on = tracing.first && tracing.second != 0;
      const bool logged = on && c.status == fail;
      const std::string line = std::string("KX_STREAM_ERR in ") + callbacks[c.op] + " callback";
      EXPECT_EQ(logged ? 1 : 0,
                log.count(kErrorLevel, logged ? line + " (status=-10006)" : "KX_STREAM_ERR"));
      if (!on) {
        EXPECT_EQ(0, log.count(kDebugLevel, ""));
      }
      probe->close();
    }
  }
}

}  // namespace
