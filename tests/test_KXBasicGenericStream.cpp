#include "KXBasicGenericStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "KXException.h"
#include "KXProbeStream.h"
#include "KXStringConversion.h"
#include "KXTestSupport.h"

namespace {

using kxtest::exactLines;
using kxtest::hasTrace;
using kxtest::KXProbeStream;
using kxtest::LogCapture;
using kxtest::ProbeAction;
using kxtest::ProbeOp;
using kxtest::recordText;
using kxtest::thrownBy;
using kxtest::traces;

constexpr verbosity_level_t kErrorLevel = 1;
constexpr verbosity_level_t kDebugLevel = 3;
const std::string kTen = "0123456789";

// The ways tracing can be on or off: it needs both debug logging and the stream's own switch.
enum class Tracing { kOn, kStreamSilenced, kDebugOff };
const Tracing kAllTracing[] = {Tracing::kOn, Tracing::kStreamSilenced, Tracing::kDebugOff};

const char* nameOf(Tracing tracing) {
  switch (tracing) {
    case Tracing::kOn:
      return "tracing";
    case Tracing::kStreamSilenced:
      return "debug on, stream logging off";
    default:
      return "debug off";
  }
}

// With debug off the capture still takes every level, so a line the engine writes although it
// is not tracing would show.
std::unique_ptr<LogCapture> captureFor(Tracing tracing) {
  return std::make_unique<LogCapture>(tracing != Tracing::kDebugOff, kDebugLevel);
}

TEST(EngineLifecycle, FreshStreamHoldsTheInitialRecord) {
  KXProbeStream* probe = KXProbeStream::createUninitialised(1);
  const KXStreamInfo* info = probe->GetInfo();
  EXPECT_EQ(3, info->mVersion);
  EXPECT_EQ(nullptr, info->mUserData);
  EXPECT_EQ(0, info->mStreamPos);
  EXPECT_EQ(0, info->mMarkerPos);
  EXPECT_EQ(-1, info->mStreamLen);
  EXPECT_EQ(0, info->mAtEOF);
  EXPECT_EQ(0, info->mReadFlag);
  EXPECT_EQ(nullptr, info->mBuffer);
  EXPECT_EQ(INT64_MAX, info->mTransferLen);
  EXPECT_EQ(1, probe->strictMode());
  EXPECT_EQ(0, probe->inited());
  EXPECT_EQ(1, probe->loggingEnabled());
  EXPECT_EQ(0, probe->engineSetsMarker());
  EXPECT_EQ(0, probe->byteCount());
  EXPECT_FALSE(probe->hasSnapshot());
  // close() needs no init().
  EXPECT_NO_THROW(probe->close());
}

TEST(EngineLifecycle, InitStartsTheByteCountAtTheStartingPosition) {
  KXProbeStream* probe = KXProbeStream::createUninitialised(1, kTen, 10);
  probe->GetInfo()->mStreamPos = 4;
  probe->init();
  EXPECT_EQ(1, probe->inited());
  EXPECT_EQ(4, probe->byteCount());
  char buffer[16];
  EXPECT_EQ(6, probe->read(buffer, sizeof buffer));
  // Started at 4 and read to the end: the whole length is accounted for.
  EXPECT_NO_THROW(probe->close());
}

TEST(EngineLifecycle, SecondInitChangesNothing) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen, 10);
  char buffer[3];
  probe->read(buffer, sizeof buffer);
  const std::string before = recordText(*probe);

  EXPECT_NO_THROW(probe->init());
  EXPECT_EQ(before, recordText(*probe));
  EXPECT_EQ(3, probe->GetInfo()->mVersion);
  EXPECT_EQ(3, probe->byteCount());
  EXPECT_EQ(1, probe->inited());
  EXPECT_EQ(1, log.count(kErrorLevel, "mInited == false"));

  probe->reset();
  EXPECT_NO_THROW(probe->close());
}

TEST(EngineRead, ZeroLengthIsOneTransferAskingForNothing) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  char buffer[1] = {'#'};
  EXPECT_EQ(0, probe->read(buffer, 0));
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(0, probe->calls()->askedAtPrepare);
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kComplete));
  EXPECT_EQ(1, probe->GetInfo()->mReadFlag);
  EXPECT_EQ(0, probe->GetStreamPos());
  EXPECT_EQ('#', buffer[0]);
  probe->close();
}

TEST(EngineRead, FillsTheBufferAcrossTransfers) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->setChunk(3);
  char buffer[8];
  ASSERT_EQ(8, probe->read(buffer, sizeof buffer));
  EXPECT_EQ("01234567", std::string(buffer, sizeof buffer));
  EXPECT_EQ(3, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(3, probe->callsOf(ProbeOp::kComplete));
  EXPECT_EQ(2, probe->calls()->askedAtPrepare);
  EXPECT_EQ(INT64_MAX, probe->GetInfo()->mTransferLen);
  EXPECT_EQ(8, probe->GetStreamPos());
  EXPECT_EQ(0, probe->isAtEOF());
  probe->close();
}

TEST(EngineRead, LastBytesArriveWithTheEndAndAreNotCompleted) {
  KXProbeStream* probe = KXProbeStream::create(1, "hello", 5);
  char buffer[16];
  ASSERT_EQ(5, probe->read(buffer, sizeof buffer));
  EXPECT_EQ("hello", std::string(buffer, 5));
  EXPECT_EQ(1, probe->isAtEOF());
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(0, probe->callsOf(ProbeOp::kComplete));

  EXPECT_EQ(0, probe->read(buffer, sizeof buffer));
  EXPECT_EQ(2, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(0, probe->callsOf(ProbeOp::kComplete));
  EXPECT_NO_THROW(probe->close());
}

TEST(EngineRead, OverDeliveryIsRejectedBeforeCopyingThatTransfer) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->setChunk(2);
  probe->script(ProbeOp::kPrepare, {});
  probe->script(ProbeOp::kPrepare, {ProbeAction::kOverDeliver, 1});
  char buffer[4] = {'#', '#', '#', '#'};

  const auto error = thrownBy<KXStreamException>([&] { probe->read(buffer, sizeof buffer); });
  EXPECT_EQ(0, error.GetCode());
  EXPECT_STREQ("Transferlen is larger than requested", error.GetMessage());
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.read")) << traces(error);
  EXPECT_EQ("01##", std::string(buffer, sizeof buffer));
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kComplete));
  probe->close();
}

TEST(EngineRead, RejectsNullBufferAndNegativeLengthBeforeAnythingChanges) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  char buffer[4];
  for (auto call : {+[](KXProbeStream&stream, char*) { stream.read(nullptr, 4); },
                    +[](KXProbeStream&stream, char*into) { stream.read(into, -1); }}) {
    const auto error = thrownBy<KXParameterException>([&] { call(*probe, buffer); });
    EXPECT_EQ(0, error.GetCode());
    EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.read")) << traces(error);
  }
  EXPECT_EQ(0, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(0, probe->GetInfo()->mReadFlag);
  probe->close();
}

TEST(EngineWrite, AsksIsWriteAllowedFirstEvenForBadArguments) {
  KXProbeStream* probe = KXProbeStream::create(1);
  char buffer[4] = {'a', 'b', 'c', 'd'};

  auto error = thrownBy<KXParameterException>([&] { probe->write(nullptr, 4); });
  EXPECT_EQ(0, error.GetCode());
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.write")) << traces(error);
  error = thrownBy<KXParameterException>([&] { probe->write(buffer, -1); });
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.write")) << traces(error);
  EXPECT_EQ(2, probe->callsOf(ProbeOp::kWriteAllowed));
  EXPECT_EQ(0, probe->callsOf(ProbeOp::kPrepare));

  probe->script(ProbeOp::kWriteAllowed, {ProbeAction::kRefuse});
  const auto refused = thrownBy<KXFileSystemException>([&] { probe->write(buffer, 4); });
  EXPECT_EQ(KX_FILESYSTEM_ERR, refused.GetCode());
  EXPECT_EQ(0, probe->callsOf(ProbeOp::kPrepare));

  EXPECT_EQ(4, probe->write(buffer, 4));
  const auto& calls = *probe->calls();
  EXPECT_LT(calls.orderOf(ProbeOp::kWriteAllowed), calls.orderOf(ProbeOp::kPrepare));
  EXPECT_LT(calls.orderOf(ProbeOp::kPrepare), calls.orderOf(ProbeOp::kComplete));
  probe->close();
}

TEST(EngineWrite, HandsTheWholeCallerBufferToTheKindInOneTransfer) {
  KXProbeStream* probe = KXProbeStream::create(1);
  std::string bytes = kxtest::randomBytes(100000, 7);
  probe->SetReadable();
  // Left-overs of an earlier transfer: the engine clears them before an output prepare.
  probe->GetInfo()->mBuffer = &bytes[0];
  probe->GetInfo()->mTransferLen = 77;
  // The buffer the kind offers is not used: the caller's bytes go over as they are.
  probe->script(ProbeOp::kPrepare, {ProbeAction::kOfferBuffer, 64});

  EXPECT_EQ(100000, probe->write(&bytes[0], static_cast<int>(bytes.size())));
  EXPECT_EQ(0, probe->GetInfo()->mReadFlag);
  EXPECT_EQ(nullptr, probe->calls()->bufferAtPrepare);
  EXPECT_EQ(0, probe->calls()->askedAtPrepare);
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kComplete));
  EXPECT_TRUE(probe->written() == bytes);
  EXPECT_EQ(100000, probe->GetStreamPos());
  probe->close();
}

TEST(EngineWrite, ZeroLengthIsOneEmptyTransfer) {
  KXProbeStream* probe = KXProbeStream::create(1);
  char buffer[1] = {'x'};
  EXPECT_EQ(0, probe->write(buffer, 0));
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kPrepare));
  EXPECT_EQ(1, probe->callsOf(ProbeOp::kComplete));
  EXPECT_EQ(0, probe->GetStreamPos());
  EXPECT_TRUE(probe->written().empty());
  probe->close();
}

TEST(EngineWrite, ReturnsTheCountTheKindWrote) {
  KXProbeStream* probe = KXProbeStream::create(1);
  probe->script(ProbeOp::kComplete, {ProbeAction::kWriteOnly, 3});
  char buffer[] = "0123456789";
  EXPECT_EQ(3, probe->write(buffer, 10));
  EXPECT_EQ("012", probe->written());
  EXPECT_EQ(3, probe->GetStreamPos());
  probe->close();
}

// One protocol operation failing with a status, and the engine call that reaches it.
struct FailingStep {
  const char* name;
  ProbeOp op;
  int status;
  const char* trace;
  const char* callback;  // as named in the engine's error line
  void (*drive)(KXProbeStream&);
};

const FailingStep kFailingSteps[] = {
    {"prepare", ProbeOp::kPrepare, 5, "KXBasicGenericStream.prepareBuffer", "prepareBuffer",
     [](KXProbeStream& probe) { probe.prepareBuffer(); }},
    {"complete", ProbeOp::kComplete, KX_FILESYSTEM_ERR, "KXBasicGenericStream.complete", "complete",
     [](KXProbeStream& probe) { probe.complete(); }},
    {"setMarker", ProbeOp::kSetMarker, 28, "KXBasicGenericStream.SetMark", "setMarker",
     [](KXProbeStream& probe) { probe.SetMark(); }},
    {"resetMarker", ProbeOp::kResetMarker, KX_PARAM_ERR, "KXBasicGenericStream.resetMark",
     "resetMarker", [](KXProbeStream& probe) { probe.resetMark(); }},
    {"close", ProbeOp::kClose, 9, "KXBasicGenericStream.close", "close",
     [](KXProbeStream& probe) { probe.close(); }},
};

class EngineFailureStatus : public testing::TestWithParam<FailingStep> {};

TEST_P(EngineFailureStatus, BecomesAStreamExceptionAndIsLoggedOnlyWhileTracing) {
  const FailingStep& step = GetParam();
  const std::string errorLine = std::string("KX_STREAM_ERR in ") + step.callback +
                                " callback (status=" + std::to_string(step.status) + ")";
  for (Tracing tracing : kAllTracing) {
    SCOPED_TRACE(nameOf(tracing));
    const auto log = captureFor(tracing);
    KXProbeStream* probe = KXProbeStream::create(1);
    probe->setLoggingEnabled(tracing == Tracing::kStreamSilenced ? 0 : 1);
    probe->script(step.op, {ProbeAction::kFail, step.status});

    const auto error = thrownBy<KXStreamException>([&] { step.drive(*probe); });
    EXPECT_EQ(step.status, error.GetCode());
    EXPECT_TRUE(hasTrace(error, step.trace)) << traces(error);
    EXPECT_EQ(tracing == Tracing::kOn ? 1 : 0, exactLines(*log, kErrorLevel, errorLine));
    // The failure was scripted for one call: the object is alive and now closes.
    EXPECT_NO_THROW(probe->close());
  }
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, EngineFailureStatus, testing::ValuesIn(kFailingSteps),
                         [](const testing::TestParamInfo<FailingStep>& info) {
                           return std::string(info.param.name);
                         });

TEST(EngineFailureStatusBookkeeping, TheFailedStepLeavesTheRecordAsTheKindLeftIt) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->setEngineSetsMarker(1);
  char buffer[4];
  probe->setChunk(4);
  probe->read(buffer, 4);

  // complete(): no mTransferLen reset.
  probe->GetInfo()->mTransferLen = 4;
  probe->prepareBuffer();
  probe->script(ProbeOp::kComplete, {ProbeAction::kFail, 5});
  thrownBy<KXStreamException>([&] { probe->complete(); });
  EXPECT_EQ(4, probe->GetInfo()->mTransferLen);
  probe->complete();

  // SetMark(): no marker copy. resetMark(): no move back, end of stream kept.
  probe->script(ProbeOp::kSetMarker, {ProbeAction::kFail, 5});
  thrownBy<KXStreamException>([&] { probe->SetMark(); });
  EXPECT_EQ(0, probe->GetInfo()->mMarkerPos);
  probe->GetInfo()->mAtEOF = 1;
  probe->script(ProbeOp::kResetMarker, {ProbeAction::kFail, 5});
  thrownBy<KXStreamException>([&] { probe->resetMark(); });
  EXPECT_EQ(8, probe->GetStreamPos());
  EXPECT_EQ(1, probe->isAtEOF());
  probe->close();
}

TEST(EngineFailureStatusBookkeeping, FailedCompleteDoesNotGrowTheLength) {
  KXProbeStream* probe = KXProbeStream::create(1, "", 100);
  probe->prepareBuffer();
  // As if the kind had written past the end before it failed.
  probe->GetInfo()->mStreamPos = 120;
  probe->script(ProbeOp::kComplete, {ProbeAction::kFail, 5});
  thrownBy<KXStreamException>([&] { probe->complete(); });
  EXPECT_EQ(100, probe->GetLength());
  probe->complete();
  EXPECT_EQ(120, probe->GetLength());
  probe->close();
}

TEST(EngineFailureStatusBookkeeping, FailuresInsideReadAndWriteKeepOnlyTheInnerTrace) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  char buffer[4];
  probe->script(ProbeOp::kComplete, {ProbeAction::kFail, 5});
  auto error = thrownBy<KXStreamException>([&] { probe->read(buffer, 4); });
  EXPECT_EQ(1, error.GetTraceCount()) << traces(error);
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.complete")) << traces(error);

  probe->script(ProbeOp::kPrepare, {ProbeAction::kFail, 5});
  error = thrownBy<KXStreamException>([&] { probe->write(buffer, 4); });
  EXPECT_EQ(1, error.GetTraceCount()) << traces(error);
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.prepareBuffer")) << traces(error);
  probe->close();
}

TEST(EngineClose, FailedCloseLeavesTheStreamAlive) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  const auto calls = probe->calls();
  probe->script(ProbeOp::kClose, {ProbeAction::kFail, 9});
  char buffer[4];
  probe->read(buffer, 4);

  thrownBy<KXStreamException>([&] { probe->close(); });
  // Still a working stream.
  EXPECT_EQ(4, probe->GetStreamPos());
  EXPECT_EQ(4, probe->read(buffer, 4));
  EXPECT_NO_THROW(probe->close());
  EXPECT_EQ(2, calls->of(ProbeOp::kClose));
}

TEST(EngineMarks, SetMarkOnAKindWithoutMarkersAlwaysNeedsAMark) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->setDefault(ProbeOp::kSetMarker, {ProbeAction::kNotSupported});
  char buffer[4];
  for (int position : {0, 4}) {
    SCOPED_TRACE(position);
    if (position > 0) {
      probe->read(buffer, position);
    }
    const auto error = thrownBy<KXMarkRequiredException>([&] { probe->SetMark(); });
    EXPECT_EQ(0, error.GetCode());
    EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.SetMark")) << traces(error);
  }
  EXPECT_EQ(0, probe->GetInfo()->mMarkerPos);
  // Asking for a mark is not an error worth a log line.
  EXPECT_EQ(0, log.count(kErrorLevel, ""));
  probe->close();
}

TEST(EngineMarks, ResetOnAKindWithoutResetWorksOnlyAtTheMark) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->setDefault(ProbeOp::kResetMarker, {ProbeAction::kNotSupported});
  char buffer[16];
  probe->read(buffer, 4);
  probe->SetMark();
  probe->read(buffer, 3);

  const auto error = thrownBy<KXMarkRequiredException>([&] { probe->resetMark(); });
  EXPECT_EQ(0, error.GetCode());
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.resetMark")) << traces(error);
  EXPECT_EQ(7, probe->GetStreamPos());
  EXPECT_EQ(0, log.count(kErrorLevel, ""));

  // Both positions become 8 without moving the medium.
  EXPECT_NO_THROW(probe->SetMark(8));
  EXPECT_EQ(8, probe->GetInfo()->mStreamPos);
  EXPECT_EQ(8, probe->GetInfo()->mMarkerPos);
  EXPECT_EQ(2, probe->read(buffer, sizeof buffer));
  EXPECT_EQ("89", std::string(buffer, 2));

  probe->SetMark();
  ASSERT_EQ(1, probe->isAtEOF());
  EXPECT_NO_THROW(probe->resetMark());
  EXPECT_EQ(0, probe->isAtEOF());
  EXPECT_EQ(10, probe->GetStreamPos());

  const auto rewind = thrownBy<KXMarkRequiredException>([&] { probe->reset(); });
  EXPECT_TRUE(hasTrace(rewind, "KXBasicGenericStream.resetMark")) << traces(rewind);
  probe->close();
}

TEST(EngineMarks, NegativeOffsetIsAParameterError) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  char buffer[3];
  probe->read(buffer, 3);
  const auto error = thrownBy<KXParameterException>([&] { probe->SetMark(-1); });
  EXPECT_EQ(0, error.GetCode());
  EXPECT_STREQ("param negative offset", error.GetMessage());
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.SetMark")) << traces(error);
  EXPECT_EQ(3, probe->GetInfo()->mStreamPos);
  EXPECT_EQ(0, probe->GetInfo()->mMarkerPos);
  EXPECT_EQ(0, probe->callsOf(ProbeOp::kResetMarker));
  probe->close();
}

TEST(EngineMarks, SetMarkZeroIsReset) {
  KXProbeStream* byOffset = KXProbeStream::create(1, kTen, 10);
  KXProbeStream* byReset = KXProbeStream::create(1, kTen, 10);
  char buffer[16];
  for (KXProbeStream* probe : {byOffset, byReset}) {
    probe->read(buffer, 5);
    probe->SetMark();
    probe->read(buffer, sizeof buffer);
  }
  byOffset->SetMark(0);
  byReset->reset();
  // Each probe delivers from its own content, so the buffer addresses differ.
  auto afterBuffer = [](KXProbeStream& probe) {
    const std::string text = recordText(probe);
    return text.substr(text.find(", "));
  };
  EXPECT_EQ(afterBuffer(*byReset), afterBuffer(*byOffset));
  EXPECT_EQ(0, byOffset->GetInfo()->mStreamPos);
  EXPECT_EQ(0, byOffset->GetInfo()->mMarkerPos);
  EXPECT_EQ(0, byOffset->isAtEOF());
  EXPECT_EQ(byReset->callsOf(ProbeOp::kResetMarker), byOffset->callsOf(ProbeOp::kResetMarker));
  EXPECT_EQ(byReset->byteCount(), byOffset->byteCount());
  byOffset->close();
  byReset->close();
}

TEST(EngineMarks, GetMarkerIsThePositionThatSetMarkReturnsTo) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  char buffer[16];
  probe->read(buffer, 3);
  probe->SetMark();
  probe->read(buffer, 3);
  const long here = probe->GetMarker();
  EXPECT_EQ(6, here);
  EXPECT_EQ(3, probe->GetInfo()->mMarkerPos);

  probe->read(buffer, sizeof buffer);
  probe->SetMark(here);
  EXPECT_EQ(0, probe->isAtEOF());
  EXPECT_EQ(4, probe->read(buffer, sizeof buffer));
  EXPECT_EQ("6789", std::string(buffer, 4));
  probe->close();
}

TEST(EngineMarks, ResetMarkReturnsToTheMarkAndClearsTheEnd) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen, 10);
  char buffer[16];
  probe->read(buffer, 2);
  probe->SetMark();
  ASSERT_EQ(8, probe->read(buffer, sizeof buffer));
  probe->resetMark();
  EXPECT_EQ(2, probe->GetStreamPos());
  EXPECT_EQ(0, probe->isAtEOF());
  EXPECT_EQ(8, probe->read(buffer, sizeof buffer));
  EXPECT_EQ("23456789", std::string(buffer, 8));
  EXPECT_NO_THROW(probe->close());
}

TEST(EngineMarks, TracesAccumulateAlongNestedCalls) {
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->script(ProbeOp::kResetMarker, {ProbeAction::kFail, 5});
  const auto error = thrownBy<KXStreamException>([&] { probe->SetMark(7); });
  EXPECT_EQ(5, error.GetCode());
  ASSERT_EQ(2, error.GetTraceCount()) << traces(error);
  EXPECT_STREQ("KXBasicGenericStream.resetMark", error.GetTrace(0));
  EXPECT_STREQ("KXBasicGenericStream.SetMark", error.GetTrace(1));
  probe->close();
}

TEST(EngineMarks, EngineRecordsTheMarkUnlessAStrictKindMustDoItItself) {
  for (KXBool strict : {KXBool{0}, KXBool{1}}) {
    SCOPED_TRACE(static_cast<int>(strict));
    KXProbeStream* probe = KXProbeStream::create(strict, kTen);
    // A strict stream needs the engine's help, a lenient one gets it anyway.
    probe->setEngineSetsMarker(strict);
    probe->setDefault(ProbeOp::kSetMarker, {ProbeAction::kSkipMarker});
    char buffer[4];
    probe->read(buffer, 4);
    probe->SetMark();
    EXPECT_EQ(4, probe->GetInfo()->mMarkerPos);
    probe->close();
  }
}

// One engine operation on a stream that was never initialised.
struct UninitialisedCall {
  const char* name;
  const char* trace;
  ProbeOp kindOp;
  int kindCalls;  // how often the kind's operation ran before the assertion
  void (*call)(KXProbeStream&);
};

TEST(EngineUninitialised, TransfersAndMarksFailTheAssertion) {
  const UninitialisedCall calls[] = {
      {"prepareBuffer", "KXBasicGenericStream.prepareBuffer", ProbeOp::kPrepare, 0,
       [](KXProbeStream& probe) { probe.prepareBuffer(); }},
      {"complete", "KXBasicGenericStream.complete", ProbeOp::kComplete, 0,
       [](KXProbeStream& probe) { probe.complete(); }},
      {"SetMark()", "KXBasicGenericStream.SetMark", ProbeOp::kSetMarker, 1,
       [](KXProbeStream& probe) { probe.SetMark(); }},
      {"SetMark(5)", "KXBasicGenericStream.SetMark", ProbeOp::kResetMarker, 0,
       [](KXProbeStream& probe) { probe.SetMark(5); }},
      {"SetMark(-1)", "KXBasicGenericStream.SetMark", ProbeOp::kResetMarker, 0,
       [](KXProbeStream& probe) { probe.SetMark(-1); }},
      {"resetMark", "KXBasicGenericStream.resetMark", ProbeOp::kResetMarker, 1,
       [](KXProbeStream& probe) { probe.resetMark(); }},
  };
  for (const UninitialisedCall& call : calls) {
    SCOPED_TRACE(call.name);
    KXProbeStream* probe = KXProbeStream::createUninitialised(1, kTen);
    const auto error = thrownBy<KXSDKInternalException>([&] { call.call(*probe); });
    EXPECT_STREQ("mInited == (KXBool)true", error.GetMessage());
    EXPECT_TRUE(hasTrace(error, call.trace)) << traces(error);
    EXPECT_EQ(call.kindCalls, probe->callsOf(call.kindOp));
    EXPECT_EQ(0, probe->GetInfo()->mStreamPos);
    EXPECT_EQ(0, probe->GetInfo()->mMarkerPos);
    probe->close();
  }
}

TEST(EngineAccessors, NegativePositionIsReportedNotReturned) {
  KXProbeStream* probe = KXProbeStream::create(1);
  probe->GetInfo()->mStreamPos = -1;
  const auto error = thrownBy<KXStreamException>([&] { probe->GetStreamPos(); });
  EXPECT_EQ(0, error.GetCode());
  EXPECT_STREQ("Negative position in stream", error.GetMessage());
  probe->GetInfo()->mStreamPos = 0;
  probe->close();
}

TEST(EngineLength, CompleteRaisesAKnownLengthThatIsReached) {
  struct Case {
    int64_t length;
    int64_t start;
    int64_t expected;
  };
  char buffer[20] = {};
  for (const Case& c :
       {Case{100, 90, 110}, Case{100, 80, 100}, Case{100, 10, 100}, Case{-1, 90, -1}}) {
    SCOPED_TRACE(std::to_string(c.length) + " from " + std::to_string(c.start));
    KXProbeStream* probe = KXProbeStream::create(1, "", c.length);
    probe->GetInfo()->mStreamPos = c.start;
    EXPECT_EQ(20, probe->write(buffer, sizeof buffer));
    EXPECT_EQ(c.expected, probe->GetLength());
    probe->close();
  }
}

TEST(EngineText, ToStringShowsTheRecordInOrder) {
  KXProbeStream* probe = KXProbeStream::create(1);
  KXStreamInfo* info = probe->GetInfo();
  info->mBuffer = reinterpret_cast<char*>(0xabc0);
  info->mTransferLen = 7;
  info->mStreamPos = 3;
  info->mMarkerPos = 2;
  info->mStreamLen = 10;
  info->mAtEOF = 1;
  info->mReadFlag = 1;
  auto text = [](long value) { return std::string(KXStringConversion::toString(value)); };
  const std::string expected = "{buffer=abc0, len=" + text(7) + ", pos=" + text(3) +
                               ", mark=" + text(2) + ", len=" + text(10) + ", eof=" + text(1) +
                               ", read=" + text(1) + "}";
  EXPECT_EQ(expected, recordText(*probe));

  info->mBuffer = nullptr;
  info->mReadFlag = 0;
  info->mStreamPos = 0;
  EXPECT_EQ(0u, recordText(*probe).find("{buffer=0, "));
  probe->close();
}

TEST(EngineTracing, PrepareAndCompleteAreTracedWithTheRecord) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->SetReadable();
  probe->GetInfo()->mTransferLen = 4;

  const std::string beforePrepare = recordText(*probe);
  probe->prepareBuffer();
  const std::string afterPrepare = recordText(*probe);
  EXPECT_EQ(1, exactLines(log, kDebugLevel, "before prepare " + beforePrepare));
  EXPECT_EQ(1, exactLines(log, kDebugLevel, "after prepare, status=0, " + afterPrepare));

  // The trace after the kind's call comes before the engine resets mTransferLen.
  probe->complete();
  EXPECT_EQ(1, exactLines(log, kDebugLevel, "before complete " + afterPrepare));
  EXPECT_EQ(1, exactLines(log, kDebugLevel, "after complete, status=0, " + afterPrepare));

  probe->script(ProbeOp::kPrepare, {ProbeAction::kFail, 5});
  const std::string beforeFailure = recordText(*probe);
  thrownBy<KXStreamException>([&] { probe->prepareBuffer(); });
  EXPECT_EQ(1, exactLines(log, kDebugLevel, "after prepare, status=5, " + beforeFailure));
  probe->close();
}

TEST(EngineTracing, NothingIsTracedUnlessBothSwitchesAreOn) {
  for (Tracing tracing : {Tracing::kStreamSilenced, Tracing::kDebugOff}) {
    SCOPED_TRACE(nameOf(tracing));
    const auto log = captureFor(tracing);
    KXProbeStream* probe = KXProbeStream::create(1, kTen);
    probe->setLoggingEnabled(tracing == Tracing::kStreamSilenced ? 0 : 1);
    char buffer[4];
    probe->read(buffer, 4);
    probe->write(buffer, 4);
    probe->SetMark();
    probe->resetMark();
    probe->close();
    for (const char* text :
         {"before prepare", "after prepare", "before complete", "after complete"}) {
      EXPECT_EQ(0, log->count(text)) << text;
    }
    EXPECT_TRUE(log->lines().empty());
  }
}

TEST(EngineReadyMadeOperations, NoReadPrepBufferRefusesOnlyInput) {
  LogCapture log;
  KXProbeStream* probe = KXProbeStream::create(1, kTen);
  probe->setDefault(ProbeOp::kPrepare, {ProbeAction::kNoReadPrepBuffer});
  char buffer[4] = {'a', 'b', 'c', 'd'};

  const auto error = thrownBy<KXNotSupportedException>([&] { probe->read(buffer, 4); });
  EXPECT_EQ(0, error.GetCode());
  ASSERT_EQ(2, error.GetTraceCount()) << traces(error);
  EXPECT_STREQ("KXBasicGenericStream.noReadPrepBuffer", error.GetTrace(0));
  EXPECT_STREQ("KXBasicGenericStream.prepareBuffer", error.GetTrace(1));
  EXPECT_EQ(1, log.count(kErrorLevel, "natives/streams/KXBasicGenericStream"));

  EXPECT_EQ(4, probe->write(buffer, 4));
  EXPECT_EQ("abcd", probe->written());
  EXPECT_EQ(0, probe->noErrProc());
  probe->close();
}

}  // namespace
