#include "KXBasicGenericStream.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "KXException.h"
#include "KXProbeStream.h"
#include "KXStreams.h"
#include "KXTestSupport.h"
#include "kxos.h"

namespace {

using namespace kxtest;

constexpr verbosity_level_t kErrorLevel = 1;
constexpr verbosity_level_t kWarningLevel = 2;
constexpr verbosity_level_t kDebugLevel = 3;
const std::string kTen = "0123456789";

std::string recordText(KXBasicGenericStream& stream) {
  const std::unique_ptr<char[]> text(stream.toString());
  return text.get();
}

TEST(EngineLifecycle, InitKeepsTheRecordItIsGivenAndTransfersAreTraced) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen, -1, false);
  EXPECT_EQ(3, probe->GetInfo()->mVersion);
  EXPECT_EQ("{buffer=0, len=9223372036854775807, pos=0, mark=0, len=-1, eof=0, read=0}",
            recordText(*probe));
  *probe->GetInfo() = {3, nullptr, 4, 0, 10, 0, 1, reinterpret_cast<char*>(0xabc0), 16};
  probe->init();
  const std::string started = "{buffer=abc0, len=16, pos=4, mark=0, len=10, eof=0, read=1}";
  EXPECT_EQ(started, recordText(*probe));
  probe->prepareBuffer();
  const std::string prepared = recordText(*probe);
  probe->complete();
  // The trace after the kind's call comes before the engine resets mTransferLen.
  for (const std::string& line :
       {"before prepare " + started, "after prepare, status=0, " + prepared,
        "before complete " + prepared, "after complete, status=0, " + prepared}) {
    EXPECT_EQ(1, log.count(kDebugLevel, line));
  }
  EXPECT_EQ(4u, log.lines().size());
  probe->GetInfo()->mStreamPos = -1;
  EXPECT_EQ("KXStreamException (code 0): Negative position in stream []",
            outcome([&] { probe->GetStreamPos(); }));
  EXPECT_NO_THROW(probe->close());  // from 4 to the end: all 10 bytes are accounted for
}

TEST(EngineRead, RefusesBadArgumentsAndLargerDeliveriesBeforeChangingAnything) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->script(kPrepare, {0, [](KXStreamInfo& info) {
                             ++info.mTransferLen;
                             ++info.mStreamPos;
                           }});
  std::string buffer(8, '#');
  EXPECT_EQ(
      "KXStreamException (code 0): Transferlen is larger than requested "
      "[KXBasicGenericStream.read]",
      outcome([&] { probe->read(&buffer[0], 4); }));
  EXPECT_EQ(std::string(8, '#'), buffer);
  probe->close();
}

void readNegative(KXProbeStream& p) {
  char byte = 0;
  p.read(&byte, -1);
}
void writeNull(KXProbeStream& p) { p.write(nullptr, 4); }
void writeNegative(KXProbeStream& p) {
  char byte = 0;
  p.write(&byte, -1);
}
void setMarkAtMinusOne(KXProbeStream& p) { p.SetMark(-1); }
void setMarkAtFive(KXProbeStream& p) { p.SetMark(5); }
void setMarkAtZero(KXProbeStream& p) { p.SetMark(0); }

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
  const char* const callbacks[] = {"prepareBuffer", "complete", "setMarker", "resetMarker",
                                   "close"};
  struct Case {
    bool initialise;
    ProbeOp op;
    int status;
    void (*call)(KXProbeStream&);
    int kindCalls;        // protocol operations the call reached
    bool keepsRecord;     // checked when the call throws
    std::string outcome;  // the record's text when nothing is thrown
  } const cases[] = {
      {true, kPrepare, 0, readNegative, 0, true, param + "read]"},
      {true, kWriteAllowed, KX_FILESYSTEM_ERR, writeNegative, 0, true,
       "KXFileSystemException (code -10027) []"},
      {true, kPrepare, 0, writeNull, 0, true, param + "write]"},
      {true, kPrepare, 0, setMarkAtMinusOne, 0, true,
       "KXParameterException (code 0): param negative offset" + engine + "SetMark]"},
      {true, kSetMarker, unsupported, setMark, 1, true, markRequired + "SetMark]"},
      {true, kResetMarker, unsupported, resetMark, 1, true, markRequired + "resetMark]"},
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
      {true, kClose, fail, closeProbe, 1, true, failed + "close]"},
      {false, kPrepare, 0, prepare, 0, true, notInited + "prepareBuffer]"},
      {false, kPrepare, 0, complete, 0, true, notInited + "complete]"},
      // The marker operations call the kind before they check.
      {false, kPrepare, 0, setMark, 1, false, notInited + "SetMark]"},
      {false, kPrepare, 0, setMarkAtFive, 0, true, notInited + "SetMark]"},
      {false, kPrepare, 0, resetMark, 1, true, notInited + "resetMark]"},
  };
  // Tracing needs debug logging and the stream's own switch; the capture passes every level.
  for (const std::pair<bool, KXBool>& tracing :
       {std::make_pair(true, KXBool{1}), std::make_pair(true, KXBool{0}),
        std::make_pair(false, KXBool{1})}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::Message() << "case " << &c - cases << " in " << tracing.first);
      LogCapture log(tracing.first, kDebugLevel);
      KXProbeStream* probe = KXProbeStream::create(0, kTen + kTen, -1, c.initialise);
      probe->setLoggingEnabled(tracing.second);
      *probe->GetInfo() = {3, nullptr, 8, 0, 5, 1, 1, nullptr, 4};
      const std::string before = recordText(*probe);
      probe->script(c.op, {c.status});
      const std::string thrown = outcome([&] { c.call(*probe); });
      EXPECT_EQ(c.outcome, thrown.empty() ? recordText(*probe) : thrown);
      EXPECT_EQ(c.keepsRecord ? before : recordText(*probe), recordText(*probe));
      EXPECT_EQ(c.kindCalls, probe->kindCalls());
      const bool on = tracing.first && tracing.second != 0;
      const bool logged = on && c.status == fail;
      EXPECT_EQ(logged,
                log.count(kErrorLevel, logged ? std::string("KX_STREAM_ERR in ") + callbacks[c.op] +
                                                    " callback (status=-10006)"
                                              : "KX_STREAM_ERR"));
      EXPECT_EQ(0, on ? 0 : log.count(kDebugLevel, ""));
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

std::string reportLine(const std::string& what, bool mismatch) {
  return (mismatch ? "KX_STREAM_BYTECOUNT_MISMATCH_ERR (" : "KX_STREAM_VALIDATION_ERR (") + what +
         ")";
}

// Each row is a kind breaking one rule in one protocol call, and the validation's name for it.
TEST(StreamValidation, StrictModeThrowsLenientModeCarriesOnBothReportOnceWhileTracing) {
  struct Breach {
    const char* what;
    bool input;
    int64_t length;  // only the byte-count rows declare one
    int moveFirst;   // bytes read or written before the breach
    ProbeOp op;
    void (*breakRule)(KXStreamInfo&);
  } const breaches[] = {
      {"mVersion", true, -1, 0, kPrepare, changeVersion},
      {"mReadFlag", true, -1, 0, kPrepare, flipReadFlag},
      {"mStreamLen", true, -1, 0, kPrepare, setLength},
      {"PrepareBufferProc: mStreamPos", true, -1, 0, kPrepare, keepPosition},
      // Ten bytes declared, six and then six more delivered.
      {"PrepareBufferProc: mStreamLen", true, 10, 6, kPrepare, nullptr},
      {"PrepareBufferProc: mMarkerPos", false, -1, 0, kPrepare, moveMarker},
      {"CompleteProc: mStreamPos (output)", false, -1, 0, kComplete, movePosition},
      {"CompleteProc: mStreamPos (input)", true, -1, 0, kComplete, movePosition},
      {"CompleteProc: mMarkerPos", false, -1, 0, kComplete, moveMarker},
      {"SetMarkerProc: mMarkerPos", false, -1, 4, kSetMarker, forgetMark},
      {"SetMarkerProc: mStreamPos", false, -1, 0, kSetMarker, moveBoth},
      {"ResetMarkerProc: mMarkerPos", false, -1, 0, kResetMarker, moveMarker},
      {"CloseProc: mStreamLen", true, 10, 4, kClose, nullptr},
  };
  const char* const operations[] = {"prepareBuffer]", "complete]", "SetMark]", "resetMark]", "]"};
  for (const Breach& b : breaches) {
    const bool mismatch = b.length != -1;
    void (*const calls[])(KXProbeStream&) = {prepare, b.input ? readFour : writeFour, setMark,
                                             resetMark, closeProbe};
    const std::string thrownByStrict =
        std::string(mismatch ? "KXStreamMismatchException" : "KXStreamValidationException") +
        " (code 0): " + b.what + " [" + (b.op == kClose ? "" : "KXBasicGenericStream.") +
        operations[b.op];
    for (KXBool strict : {KXBool{1}, KXBool{0}}) {
      for (bool tracing : {true, false}) {
        SCOPED_TRACE(testing::Message() << b.what << " at " << operations[b.op] << +strict);
        LogCapture log(tracing, kDebugLevel);
        KXProbeStream* probe = KXProbeStream::create(strict, "0123456789ab", b.length);
        b.input ? probe->SetReadable() : probe->SetWritable();
        b.input ? void(readString(*probe, b.moveFirst))
                : void(writeString(*probe, std::string(static_cast<size_t>(b.moveFirst), 'w')));
        probe->script(b.op, {0, b.breakRule});
        EXPECT_EQ(strict != 0 ? thrownByStrict : "", outcome([&] { calls[b.op](*probe); }));
        // A lenient engine records the mark itself: the kind that does not breaks no rule there.
        const int reports = tracing && (strict != 0 || b.breakRule != forgetMark) ? 1 : 0;
        EXPECT_EQ(reports, log.count(strict != 0 ? kErrorLevel : kWarningLevel,
                                     reportLine(b.what, mismatch)));
        EXPECT_EQ(reports, log.count("KX_STREAM_"));
        if (strict != 0 || b.op != kClose) {
          // Without strict mode and tracing there is no copy and no check.
          EXPECT_EQ(strict != 0 || tracing, probe->hasSnapshot());
          EXPECT_EQ(b.op == kClose, probe->callsOf(kClose));  // a failed close() ran first
          probe->SetMark(0);  // rewinding as reset() does takes back the bytes read
          EXPECT_NO_THROW(probe->close());
        }
      }
    }
  }
}

// Read while the program starts, before any test can have changed a setting.
const KXBool kStrictAtLoad = KXStreams::getStreamStrictMode();
const KXBool kTruncationAtLoad = KXStreams::allowFileTruncation();

// What each setting does once changed is checked where it takes effect.
TEST(StreamSettings, BothAreOnInAFreshProcess) {
  EXPECT_EQ(1, kStrictAtLoad);
  EXPECT_EQ(1, kTruncationAtLoad);
}

AliasArray::Entry* entry(size_t blockSize) {
  return new AliasArray::Entry{blockSize > 0 ? kx_malloc(blockSize) : nullptr};
}

// What the array must free shows in the sanitizer build's leak report; what it must not free
// shows there as a use after free or a double free.
TEST(AliasArray, FreesEntriesAndBlocksOnlyWhenItOwnsThem) {
  // The array takes ownership of the entries; the analyzer cannot follow that.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  auto** owned = new AliasArray::Entry* [4] { entry(16), entry(0), nullptr, entry(1) };
  delete new AliasArray(4, owned, 1);
  delete new AliasArray(0, nullptr, 1);
  AliasArray::Entry* kept = entry(8);
  for (int count : {2, 0, -1}) {  // not owned, or no entries to free
    delete new AliasArray(
        count, new AliasArray::Entry* [2] { kept, nullptr }, count == 2 ? 0 : 1);
    EXPECT_NE(nullptr, kept->mBlock);
  }
  kx_free(kept->mBlock);
  delete kept;
}

}  // namespace
