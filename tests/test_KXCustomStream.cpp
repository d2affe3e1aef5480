#include "KXCustomStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "KXException.h"
#include "KXTestSupport.h"

namespace {

// The callbacks' own context: the stream hands it over as const, but the medium is theirs.
template <class Context>
Context& contextOf(KXStreamInfo* info) {
  return *static_cast<Context*>(const_cast<void*>(info->mUserData));
}

// Which context pointer each of the string source's callbacks was handed, by operation.
std::multimap<std::string, const void*>& contextsSeen() {
  static std::multimap<std::string, const void*> seen;
  return seen;
}

void recordContext(const char* operation, const KXStreamInfo* info) {
  contextsSeen().emplace(operation, info->mUserData);
}

// A source over a heap copy of a string; its close callback releases the copy.
struct StringSource {
  explicit StringSource(const std::string& bytes) : text(new std::string(bytes)) {}
  StringSource(const StringSource&) = delete;
  StringSource& operator=(const StringSource&) = delete;
  std::string* text;
};

// Hands out count bytes from the current position, as an input callback must.
long deliver(KXStreamInfo* info, int64_t count) {
  std::string& text = *contextOf<StringSource>(info).text;
  info->mBuffer = count > 0 ? &text[static_cast<size_t>(info->mStreamPos)] : nullptr;
  info->mTransferLen = count;
  info->mStreamPos += count;
  info->mAtEOF = info->mStreamPos >= static_cast<int64_t>(text.size()) ? 1 : 0;
  return 0;
}

int64_t bytesLeft(KXStreamInfo* info) {
  return static_cast<int64_t>(contextOf<StringSource>(info).text->size()) - info->mStreamPos;
}

long sourcePrepare(KXStreamInfo* info) {
  recordContext("prepare", info);
  return deliver(info, std::min(info->mTransferLen, bytesLeft(info)));
}

long sourceComplete(KXStreamInfo* info) {
  recordContext("complete", info);
  return 0;
}

long sourceSetMarker(KXStreamInfo* info) {
  recordContext("setMarker", info);
  info->mMarkerPos = info->mStreamPos;
  return 0;
}

// The position is the source's whole state, and the engine moves it back to the mark.
long sourceResetMarker(KXStreamInfo* info) {
  recordContext("resetMarker", info);
  return 0;
}

long sourceClose(KXStreamInfo* info) {
  recordContext("close", info);
  StringSource& source = contextOf<StringSource>(info);
  delete source.text;
  source.text = nullptr;
  return 0;
}

// A sink collecting what is written into the std::string given as context.
long sinkComplete(KXStreamInfo* info) {
  if (info->mTransferLen > 0) {
    contextOf<std::string>(info).append(info->mBuffer, static_cast<size_t>(info->mTransferLen));
  }
  info->mStreamPos += info->mTransferLen;
  return 0;
}

long doNothing(KXStreamInfo*) { return 0; }

// Callbacks that keep every rule of the protocol and return the status scripted for them.
struct Script {
  long prepare = 0;
  long complete = 0;
  long setMarker = 0;
  long resetMarker = 0;
  long close = 0;
};

long scriptedPrepare(KXStreamInfo* info) {
  if (info->mReadFlag != 0) {
    info->mTransferLen = 0;
    info->mAtEOF = 1;
  }
  return contextOf<Script>(info).prepare;
}

long scriptedComplete(KXStreamInfo* info) {
  if (info->mReadFlag == 0) {
    info->mStreamPos += info->mTransferLen;
  }
  return contextOf<Script>(info).complete;
}

long scriptedSetMarker(KXStreamInfo* info) {
  info->mMarkerPos = info->mStreamPos;
  return contextOf<Script>(info).setMarker;
}

long scriptedResetMarker(KXStreamInfo* info) { return contextOf<Script>(info).resetMarker; }

long scriptedClose(KXStreamInfo* info) { return contextOf<Script>(info).close; }

// Faulty callbacks.
long prepareWithoutAdvancing(KXStreamInfo* info) {
  static char bytes[] = "fives";
  info->mBuffer = bytes;
  info->mTransferLen = 5;
  return 0;
}

long prepareEverything(KXStreamInfo* info) { return deliver(info, bytesLeft(info)); }

long setMarkerWithoutRecording(KXStreamInfo*) { return 0; }

long setMarkerChangingVersion(KXStreamInfo* info) {
  info->mMarkerPos = info->mStreamPos;
  ++info->mVersion;
  return 0;
}

// A status whose low word is status and whose high word is not zero.
long withHighBits(int status) { return (1L << 32) | static_cast<uint32_t>(status); }

struct Closer {
  void operator()(KXCustomStream* stream) const {
    try {
      stream->close();
    } catch (const KXException& exception) {
      ADD_FAILURE() << "close failed: " << exception.what();
    }
  }
};
using StreamPtr = std::unique_ptr<KXCustomStream, Closer>;

StreamPtr openStream(KXStreamProc prepare, KXStreamProc complete, KXStreamProc setMarker,
                     KXStreamProc resetMarker, KXStreamProc close, const void* context) {
  StreamPtr stream(new KXCustomStream(prepare, complete, setMarker, resetMarker, close, context));
  stream->init();
  return stream;
}

StreamPtr openSource(StringSource& source) {
  return openStream(sourcePrepare, nullptr, sourceSetMarker, sourceResetMarker, sourceClose,
                    &source);
}

StreamPtr openScripted(Script& script) {
  return openStream(scriptedPrepare, scriptedComplete, scriptedSetMarker, scriptedResetMarker,
                    scriptedClose, &script);
}

std::string readBytes(KXBasicGenericStream& stream, int count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  bytes.resize(static_cast<size_t>(stream.read(&bytes[0], count)));
  return bytes;
}

constexpr int kNotThrown = 0x7e57;

// The exception of type Exception that operation throws; a test failure when it throws none.
template <class Exception, class Operation>
Exception thrownBy(Operation operation) {
  try {
    operation();
  } catch (const Exception& exception) {
    return exception;
  } catch (const std::exception& other) {
    ADD_FAILURE() << "unexpected exception: " << other.what();
    return Exception(kNotThrown);
  }
  ADD_FAILURE() << "nothing thrown";
  return Exception(kNotThrown);
}

TEST(KXCustomStreamSource, ReadsToItsEndInChunksThenDeliversNothing) {
  const std::string content = kxtest::randomBytes(1000, 11);
  StringSource source(content);
  StreamPtr stream = openSource(source);
  std::string got;
  while (stream->isAtEOF() == 0) {
    const std::string chunk = readBytes(*stream, 64);
    ASSERT_FALSE(chunk.empty());
    got += chunk;
  }
  EXPECT_EQ(content, got);
  EXPECT_EQ(1000, stream->GetStreamPos());
  EXPECT_EQ("", readBytes(*stream, 64));
}

TEST(KXCustomStreamSource, MarksReturnToTheRecordedPositions) {
  kxtest::StrictModeScope strict(1);
  StringSource source("0123456789");
  StreamPtr stream = openSource(source);
  EXPECT_EQ("012", readBytes(*stream, 3));
  stream->SetMark();
  EXPECT_EQ(3, stream->GetInfo()->mMarkerPos);
  EXPECT_EQ("3456", readBytes(*stream, 4));
  stream->resetMark();
  EXPECT_EQ("3456", readBytes(*stream, 4));
  EXPECT_EQ("789", readBytes(*stream, 10));
  ASSERT_EQ(1, stream->isAtEOF());
  stream->resetMark();
  EXPECT_EQ(0, stream->isAtEOF());
  EXPECT_EQ("34", readBytes(*stream, 2));
  stream->SetMark(8);
  EXPECT_EQ("89", readBytes(*stream, 5));
  stream->reset();
  EXPECT_EQ("01", readBytes(*stream, 2));
}

TEST(KXCustomStreamOneWay, HasNoMarksButMayResetWhereItIs) {
  StringSource source("abcdef");
  StreamPtr stream = openStream(sourcePrepare, nullptr, nullptr, nullptr, sourceClose, &source);
  stream->resetMark();
  const KXMarkRequiredException atStart =
      thrownBy<KXMarkRequiredException>([&] { stream->SetMark(); });
  EXPECT_TRUE(kxtest::hasTrace(atStart, "KXBasicGenericStream.SetMark"));
  EXPECT_EQ("abc", readBytes(*stream, 3));
  EXPECT_THROW(stream->SetMark(), KXMarkRequiredException);
  EXPECT_THROW(stream->resetMark(), KXMarkRequiredException);
  EXPECT_EQ(3, stream->GetStreamPos());
  stream->SetMark(3);
  EXPECT_EQ(3, stream->GetInfo()->mMarkerPos);
  stream->resetMark();
  EXPECT_EQ("def", readBytes(*stream, 10));
}

TEST(KXCustomStreamSink, CompleteCallbackCollectsEveryWrittenByte) {
  std::string collected;
  StreamPtr stream = openStream(nullptr, sinkComplete, nullptr, nullptr, nullptr, &collected);
  std::string hello("hello, ");
  const std::string binary = kxtest::randomBytes(70000, 5);
  std::string large = binary;
  EXPECT_EQ(7, stream->write(&hello[0], 7));
  EXPECT_EQ(0, stream->write(&hello[0], 0));
  EXPECT_EQ(70000, stream->write(&large[0], 70000));
  EXPECT_EQ("hello, " + binary, collected);
  EXPECT_EQ(70007, stream->GetStreamPos());
  EXPECT_EQ(0, stream->GetInfo()->mReadFlag);
}

struct Combination {
  const char* name;
  bool prepare, complete, setMarker, resetMarker, close;
  const char* rejection;  // null: accepted; "": rejected without a message
};

TEST(KXCustomStreamInit, AcceptsOrRejectsEachCombinationOfCallbacks) {
  const Combination combinations[] = {
      {"only prepare", true, false, false, false, false, nullptr},
      {"only complete", false, true, false, false, false, nullptr},
      {"only close", false, false, false, false, true, nullptr},
      {"only the marker pair", false, false, true, true, false, nullptr},
      {"all five", true, true, true, true, true, nullptr},
      {"set without reset", false, false, true, false, false,
       "SetMarkerProc defined without ResetMarkerProc\n"},
      {"set without reset among others", true, true, true, false, true,
       "SetMarkerProc defined without ResetMarkerProc\n"},
      {"reset without set", false, false, false, true, false,
       "ResetMarkerProc defined without SetMarkerProc\n"},
      {"reset without set among others", true, true, false, true, true,
       "ResetMarkerProc defined without SetMarkerProc\n"},
      {"none", false, false, false, false, false, ""},
  };
  for (const Combination& combination : combinations) {
    SCOPED_TRACE(combination.name);
    const auto given = [](bool present) -> KXStreamProc { return present ? doNothing : nullptr; };
    StreamPtr stream(new KXCustomStream(
        given(combination.prepare), given(combination.complete), given(combination.setMarker),
        given(combination.resetMarker), given(combination.close), nullptr));
    kxtest::LogCapture log(false, 1);
    if (combination.rejection == nullptr) {
      stream->init();
      EXPECT_NO_THROW(stream->prepareBuffer());
      continue;
    }
    const KXParameterException rejected = thrownBy<KXParameterException>([&] { stream->init(); });
    EXPECT_EQ(0, rejected.GetCode());
    EXPECT_STREQ(combination.rejection, rejected.GetMessage());
    EXPECT_EQ(1, log.count(1, "natives/streams/KXCustomStream"));
    const KXSDKInternalException uninitialised =
        thrownBy<KXSDKInternalException>([&] { stream->prepareBuffer(); });
    EXPECT_STREQ("mInited == (KXBool)true", uninitialised.GetMessage());
  }
}

TEST(KXCustomStreamContext, EveryCallbackFindsTheContextGivenAtConstruction) {
  contextsSeen().clear();
  StringSource source("0123456789");
  StreamPtr stream = openStream(sourcePrepare, sourceComplete, sourceSetMarker, sourceResetMarker,
                                sourceClose, &source);
  EXPECT_EQ(&source, stream->GetInfo()->mUserData);
  readBytes(*stream, 4);
  stream->SetMark();
  readBytes(*stream, 2);
  stream->resetMark();
  stream.release()->close();
  EXPECT_EQ(nullptr, source.text);
  std::set<std::string> operations;
  for (const auto& seen : contextsSeen()) {
    operations.insert(seen.first);
    EXPECT_EQ(&source, seen.second) << seen.first;
  }
  EXPECT_EQ((std::set<std::string>{"prepare", "complete", "setMarker", "resetMarker", "close"}),
            operations);
}

TEST(KXCustomStreamStatus, ZeroLowWordIsSuccessWhateverTheHighWord) {
  const long highOnly = withHighBits(0);
  Script script{highOnly, highOnly, highOnly, highOnly, highOnly};
  StreamPtr stream = openScripted(script);
  char byte = 0;
  EXPECT_EQ(0, stream->read(&byte, 1));
  std::string bytes("xyz");
  EXPECT_EQ(3, stream->write(&bytes[0], 3));
  stream->SetMark();
  stream->resetMark();
  stream.release()->close();
}

TEST(KXCustomStreamStatus, LowWordIsTheSignedStatus) {
  Script script;
  StreamPtr stream = openScripted(script);
  char byte = 0;
  script.prepare = withHighBits(-1);
  EXPECT_EQ(-1, thrownBy<KXStreamException>([&] { stream->read(&byte, 1); }).GetCode());
  script.prepare = 0;
  script.complete = withHighBits(INT32_MAX);
  EXPECT_EQ(INT32_MAX, thrownBy<KXStreamException>([&] { stream->write(&byte, 1); }).GetCode());
  script.setMarker = withHighBits(KX_NOT_SUPPORTED_ERR);
  EXPECT_THROW(stream->SetMark(), KXMarkRequiredException);
}

TEST(KXCustomStreamStatus, NotSupportedOutsideTheMarkersIsAnOrdinaryFailure) {
  kxtest::LogCapture log;
  Script script;
  StreamPtr stream = openScripted(script);
  char byte = 0;

  script.prepare = KX_NOT_SUPPORTED_ERR;
  const KXStreamException fromPrepare =
      thrownBy<KXStreamException>([&] { stream->read(&byte, 1); });
  EXPECT_EQ(KX_NOT_SUPPORTED_ERR, fromPrepare.GetCode());
  EXPECT_TRUE(kxtest::hasTrace(fromPrepare, "KXBasicGenericStream.prepareBuffer"));
  EXPECT_EQ(1, log.count(1, "KX_STREAM_ERR in prepareBuffer callback (status=-10201)"));

  script.prepare = 0;
  script.complete = KX_NOT_SUPPORTED_ERR;
  const KXStreamException fromComplete =
      thrownBy<KXStreamException>([&] { stream->write(&byte, 1); });
  EXPECT_EQ(KX_NOT_SUPPORTED_ERR, fromComplete.GetCode());
  EXPECT_TRUE(kxtest::hasTrace(fromComplete, "KXBasicGenericStream.complete"));

  script.close = KX_NOT_SUPPORTED_ERR;
  const KXStreamException fromClose = thrownBy<KXStreamException>([&] { stream->close(); });
  EXPECT_EQ(KX_NOT_SUPPORTED_ERR, fromClose.GetCode());
  EXPECT_TRUE(kxtest::hasTrace(fromClose, "KXBasicGenericStream.close"));
  // The stream survived the failed close; the guard closes it once the callback agrees.
  script.close = 0;
}

TEST(KXCustomStreamStrict, PrepareThatDoesNotAdvanceThePositionIsRejected) {
  kxtest::StrictModeScope strict(1);
  StreamPtr stream =
      openStream(prepareWithoutAdvancing, nullptr, nullptr, nullptr, nullptr, nullptr);
  char buffer[10] = {};
  const KXStreamValidationException broken =
      thrownBy<KXStreamValidationException>([&] { stream->read(buffer, 10); });
  EXPECT_EQ(0, broken.GetCode());
  EXPECT_STREQ("PrepareBufferProc: mStreamPos", broken.GetMessage());
  EXPECT_TRUE(kxtest::hasTrace(broken, "KXBasicGenericStream.prepareBuffer"));
}

TEST(KXCustomStreamStrict, SetMarkerMustRecordTheMarkAwayFromTheOldOne) {
  kxtest::StrictModeScope strict(1);
  StringSource source("0123456789");
  StreamPtr stream = openStream(sourcePrepare, nullptr, setMarkerWithoutRecording,
                                sourceResetMarker, sourceClose, &source);
  stream->SetMark(4);
  stream->SetMark();
  EXPECT_EQ("45", readBytes(*stream, 2));
  const KXStreamValidationException broken =
      thrownBy<KXStreamValidationException>([&] { stream->SetMark(); });
  EXPECT_STREQ("SetMarkerProc: mMarkerPos", broken.GetMessage());
  EXPECT_TRUE(kxtest::hasTrace(broken, "KXBasicGenericStream.SetMark"));
  EXPECT_EQ(4, stream->GetInfo()->mMarkerPos);
}

TEST(KXCustomStreamStrict, WithoutStrictModeTheEngineRecordsTheMark) {
  kxtest::StrictModeScope lax(0);
  kxtest::LogCapture log;
  StringSource source("0123456789");
  StreamPtr stream = openStream(sourcePrepare, nullptr, setMarkerWithoutRecording,
                                sourceResetMarker, sourceClose, &source);
  EXPECT_EQ("0123", readBytes(*stream, 4));
  stream->SetMark();
  EXPECT_EQ(4, stream->GetInfo()->mMarkerPos);
  EXPECT_EQ("456", readBytes(*stream, 3));
  stream->resetMark();
  EXPECT_EQ("456", readBytes(*stream, 3));
  EXPECT_EQ(0, log.count("KX_STREAM_VALIDATION_ERR"));
}

TEST(KXCustomStreamStrict, ChangedVersionFailsOnlyTheCallThatChangedIt) {
  kxtest::StrictModeScope strict(1);
  StringSource source("0123456789");
  StreamPtr stream = openStream(sourcePrepare, nullptr, setMarkerChangingVersion, sourceResetMarker,
                                sourceClose, &source);
  EXPECT_EQ("01", readBytes(*stream, 2));
  const KXStreamValidationException broken =
      thrownBy<KXStreamValidationException>([&] { stream->SetMark(); });
  EXPECT_STREQ("mVersion", broken.GetMessage());
  EXPECT_EQ(4, stream->GetInfo()->mVersion);
  EXPECT_EQ("234", readBytes(*stream, 3));
  stream->resetMark();
  EXPECT_EQ("234", readBytes(*stream, 3));
}

TEST(KXCustomStreamStrict, DeliveringMoreThanAskedFailsTheReadBeforeCopying) {
  StringSource source("0123456789");
  StreamPtr stream = openStream(prepareEverything, nullptr, nullptr, nullptr, sourceClose, &source);
  char buffer[4] = {'.', '.', '.', '.'};
  const KXStreamException broken = thrownBy<KXStreamException>([&] { stream->read(buffer, 3); });
  EXPECT_EQ(0, broken.GetCode());
  EXPECT_STREQ("Transferlen is larger than requested", broken.GetMessage());
  EXPECT_EQ(std::string(4, '.'), std::string(buffer, 4));
}

}  // namespace
