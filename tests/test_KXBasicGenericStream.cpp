#include "KXBasicGenericStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

constexpr verbosity_level_t kErrorLevel = 1;
constexpr verbosity_level_t kWarningLevel = 2;
constexpr verbosity_level_t kDebugLevel = 3;
const std::string kTen = "0123456789";
const std::string kTwelve = "0123456789ab";

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

void changeVersion(KXStreamInfo& info) { ++info.mVersion; }
void flipReadFlag(KXStreamInfo& info) { info.mReadFlag = info.mReadFlag != 0 ? 0 : 1; }
void setLength(KXStreamInfo& info) { info.mStreamLen = 100; }
void keepPosition(KXStreamInfo& info) { info.mStreamPos -= info.mTransferLen; }
void movePosition(KXStreamInfo& info) { ++info.mStreamPos; }
void moveMarker(KXStreamInfo& info) { ++info.mMarkerPos; }
void moveBoth(KXStreamInfo& info) { info.mMarkerPos = ++info.mStreamPos; }
// Leaves the mark where it was, at 0 in these tests.
void forgetMark(KXStreamInfo& info) { info.mMarkerPos = 0; }

std::string reportLine(const char* what, bool mismatch) {
  return (mismatch ? "KX_STREAM_BYTECOUNT_MISMATCH_ERR (" : "KX_STREAM_VALIDATION_ERR (") +
         std::string(what) + ")";
}

// A kind breaking one rule in one protocol call, and the validation's name for it.
struct Breach {
  const char* name;
  const char* what;
  bool input;
  int64_t length;
  int moveFirst;  // bytes read or written before the breach
  ProbeOp op;
  void (*breakRule)(KXStreamInfo&);
};

void PrintTo(const Breach& breach, std::ostream* out) { *out << breach.what; }

const Breach kBreaches[] = {
    {"VersionAtPrepare", "mVersion", true, -1, 0, kPrepare, changeVersion},
    {"VersionAtComplete", "mVersion", false, -1, 0, kComplete, changeVersion},
    {"VersionAtSetMarker", "mVersion", false, -1, 0, kSetMarker, changeVersion},
    {"VersionAtResetMarker", "mVersion", false, -1, 0, kResetMarker, changeVersion},
    {"VersionAtClose", "mVersion", false, -1, 0, kClose, changeVersion},
    {"ReadFlag", "mReadFlag", true, -1, 0, kPrepare, flipReadFlag},
    {"InputLength", "mStreamLen", true, -1, 0, kPrepare, setLength},
    {"PreparePosition", "PrepareBufferProc: mStreamPos", true, -1, 0, kPrepare, keepPosition},
    // Ten bytes declared, six and then six more delivered.
    {"PrepareLength", "PrepareBufferProc: mStreamLen", true, 10, 6, kPrepare, nullptr},
    {"PrepareMarker", "PrepareBufferProc: mMarkerPos", false, -1, 0, kPrepare, moveMarker},
    {"CompleteOutputPosition", "CompleteProc: mStreamPos (output)", false, -1, 0, kComplete,
     movePosition},
    {"CompleteInputPosition", "CompleteProc: mStreamPos (input)", true, -1, 0, kComplete,
     movePosition},
    {"CompleteMarker", "CompleteProc: mMarkerPos", false, -1, 0, kComplete, moveMarker},
    {"SetMarkerMarker", "SetMarkerProc: mMarkerPos", false, -1, 4, kSetMarker, forgetMark},
    {"SetMarkerPosition", "SetMarkerProc: mStreamPos", false, -1, 0, kSetMarker, moveBoth},
    {"ResetMarkerMarker", "ResetMarkerProc: mMarkerPos", false, -1, 0, kResetMarker, moveMarker},
    {"CloseLength", "CloseProc: mStreamLen", true, 10, 4, kClose, nullptr},
};

class StreamValidation : public testing::TestWithParam<Breach> {};

TEST_P(StreamValidation, StrictModeThrowsLenientModeCarriesOnBothReportOnceWhileTracing) {
  const Breach& b = GetParam();
  const bool mismatch = b.length != -1;  // only the byte-count rows declare a length
  const char* const operations[] = {"prepareBuffer]", "complete]", "SetMark]", "resetMark]"};
  void (*const calls[])(KXProbeStream&) = {prepare, b.input ? readFour : writeFour, setMark,
                                           resetMark, closeProbe};
  const std::string thrownByStrict =
      std::string(mismatch ? "KXStreamMismatchException" : "KXStreamValidationException") +
      " (code 0): " + b.what + " [" +
      (b.op == kClose ? "]" : std::string("KXBasicGenericStream.") + operations[b.op]);
  for (KXBool strict : {KXBool{1}, KXBool{0}}) {
    for (bool tracing : {true, false}) {
      SCOPED_TRACE(std::string(strict != 0 ? "strict" : "lenient") + (tracing ? ", tracing" : ""));
      LogCapture log(tracing, kDebugLevel);
      KXProbeStream* probe = KXProbeStream::create(strict, kTwelve, b.length);
      b.input ? probe->SetReadable() : probe->SetWritable();
      if (b.moveFirst > 0) {
        b.input ? readBytes(*probe, b.moveFirst) : writeBytes(*probe, b.moveFirst);
      }
      probe->script(b.op, {0, b.breakRule});
      const std::string thrown = outcome([&] { calls[b.op](*probe); });
      EXPECT_EQ(strict != 0 ? thrownByStrict : "", thrown);
      // A lenient engine records the mark itself: the kind that does not breaks no rule there.
      const int reports = tracing && (strict != 0 || b.breakRule != forgetMark) ? 1 : 0;
      EXPECT_EQ(reports,
                log.count(strict != 0 ? kErrorLevel : kWarningLevel, reportLine(b.what, mismatch)));
      EXPECT_EQ(reports, log.count("KX_STREAM_"));
      if (strict != 0 || b.op != kClose) {
        // Without strict mode and tracing there is no copy and no check.
        EXPECT_EQ(strict != 0 || tracing, probe->hasSnapshot());
        EXPECT_EQ(b.op == kClose ? 1 : 0, probe->callsOf(kClose));  // a failed close() ran first
        probe->SetMark(0);  // rewinding as reset() does takes back the bytes read
        EXPECT_NO_THROW(probe->close());
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryRule, StreamValidation, testing::ValuesIn(kBreaches),
                         [](const testing::TestParamInfo<Breach>& info) {
                           return std::string(info.param.name);
                         });

// A lenient stream reports only while tracing, and keeps checking against the copy it took then.
TEST(StreamValidationEdges, LenientStreamReportsOnlyWhileTracing) {
  KXProbeStream* probe = KXProbeStream::create(0, kTwelve, 12);
  {
    LogCapture tracing;
    readBytes(*probe, 4);
    probe->reportValidationError("50%s done");  // a text, never a format
    EXPECT_EQ(1, tracing.count(kWarningLevel, "KX_STREAM_VALIDATION_ERR (50"));
  }
  LogCapture quiet(false, kDebugLevel);
  readBytes(*probe, 4);
  EXPECT_EQ(8, probe->byteCount());
  EXPECT_NO_THROW(probe->close());
  EXPECT_TRUE(quiet.lines().empty());
}

// Entered directly: resetMark() sets mStreamPos to mMarkerPos just before it validates, so no
// kind reaches "ResetMarkerProc: mStreamPos" through it. Strict validation stops at the first
// broken rule, lenient validation reports all; other contexts run only the common checks.
TEST(StreamValidationEdges, DirectValidationRunsTheChecksOfItsContext) {
  struct Case {
    int context;
    int16_t version;
    const char* first;
    int reports;
  } const cases[] = {{eResetMarkerProc, 3, "ResetMarkerProc: mStreamPos", 1},
                     {eResetMarkerProc, 4, "mVersion", 2},
                     {6, 4, "mVersion", 1}};
  for (const Case& c : cases) {
    for (KXBool strict : {KXBool{1}, KXBool{0}}) {
      SCOPED_TRACE(std::to_string(&c - cases) + (strict != 0 ? " strict" : " lenient"));
      LogCapture log;
      KXProbeStream* probe = KXProbeStream::create(strict);
      probe->saveStreamState();
      *probe->GetInfo() = {c.version, nullptr, 3, 0, -1, 0, 0, nullptr, 0};
      EXPECT_EQ(strict != 0
                    ? "KXStreamValidationException (code 0): " + std::string(c.first) + " []"
                    : "",
                outcome([&] { probe->validateStreamState(EStreamContext(c.context)); }));
      EXPECT_EQ(1, log.count(reportLine(c.first, false)));
      EXPECT_EQ(strict != 0 ? 1 : c.reports, log.count("KX_STREAM_"));
      probe->GetInfo()->mStreamPos = 0;
      probe->close();
    }
  }
}

}  // namespace
