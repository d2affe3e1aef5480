#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "KXBasicGenericStream.h"
#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

constexpr verbosity_level_t kErrorLevel = 1;
constexpr verbosity_level_t kWarningLevel = 2;
constexpr verbosity_level_t kDebugLevel = 3;
const std::string kTwelve = "0123456789ab";

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
