#include "KXCustomStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "KXException.h"
#include "KXObjectGuid.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

long doNothing(KXStreamInfo* /*info*/) { return 0; }

StreamPtr<KXCustomStream> openSource(StringSource& source,
                                     KXStreamProc prepare = stringSourcePrepare,
                                     KXStreamProc setMarker = stringSourceSetMarker,
                                     KXStreamProc resetMarker = stringSourceResetMarker) {
  return opened<KXCustomStream>(prepare, nullptr, setMarker, resetMarker, stringSourceClose,
                                &source);
}

// Without marker callbacks the stream is one-way: it can only stay where it is.
TEST(KXCustomStream, ReadsAndReturnsToItsMarksThroughTheContextOrIsOneWayWithoutMarkers) {
  StringSource source{randomBytes(1000, 11)};
  StreamPtr<KXCustomStream> stream = openSource(source);
  EXPECT_EQ(&source, stream->GetInfo()->mUserData);
  EXPECT_EQ(source.bytes.substr(0, 300), readString(*stream, 300));
  stream->SetMark();
  EXPECT_EQ(source.bytes.substr(300), readString(*stream, 1000));
  stream->resetMark();
  EXPECT_EQ(source.bytes.substr(300, 50), readString(*stream, 50));
  stream->reset();
  EXPECT_EQ(source.bytes, readString(*stream, 2000));
  stream.release()->close();
  EXPECT_EQ(1, source.closes);

  StringSource oneWay{"abcdef"};
  StreamPtr<KXCustomStream> unmarked = openSource(oneWay, stringSourcePrepare, nullptr, nullptr);
  unmarked->resetMark();
  EXPECT_EQ("abc", readString(*unmarked, 3));
  EXPECT_THROW(unmarked->SetMark(), KXMarkRequiredException);
  EXPECT_THROW(unmarked->resetMark(), KXMarkRequiredException);
  EXPECT_EQ("def", readString(*unmarked, 10));
}

TEST(KXCustomStream, InitAcceptsOrRejectsEachCombinationOfCallbacks) {
  // The callbacks given, by initial (Prepare, Complete, Set, Reset, cLose), and the message of
  // the rejection, null when accepted.
  const std::pair<std::string, const char*> combinations[] = {
      {"L", nullptr},
      {"PCSL", "SetMarkerProc defined without ResetMarkerProc\n"},
      {"R", "ResetMarkerProc defined without SetMarkerProc\n"},
      {"", ""}};
  for (const auto& c : combinations) {
    SCOPED_TRACE(c.first);
    const auto given = [&c](char initial) -> KXStreamProc {
      return c.first.find(initial) != std::string::npos ? doNothing : nullptr;
    };
    StreamPtr<KXCustomStream> stream(
        new KXCustomStream(given('P'), given('C'), given('S'), given('R'), given('L'), nullptr));
    LogCapture log(false, 1);
    if (c.second == nullptr) {
      EXPECT_NO_THROW(stream->init());
      continue;
    }
    const auto rejected = thrownBy<KXParameterException>([&] { stream->init(); });
    EXPECT_EQ(0, rejected.GetCode());
    EXPECT_STREQ(c.second, rejected.GetMessage());
    EXPECT_EQ(1, log.count(1, "natives/streams/KXCustomStream"));
    EXPECT_THROW(stream->prepareBuffer(), KXSDKInternalException);
  }
}

// The system's reason is named only when the failing callback itself set errno.
TEST(KXCustomStream, OnlyTheStatusLowWordCountsAndNotSupportedMeansNoMarkerOnlyForMarkers) {
  StringSource source{"0123456789", (1L << 32)};
  StreamPtr<KXCustomStream> stream = openSource(source);
  EXPECT_EQ("0123", readString(*stream, 4));
  stream->SetMark();
  stream->resetMark();
  source.status |= static_cast<uint32_t>(KX_NOT_SUPPORTED_ERR);
  EXPECT_EQ(KX_NOT_SUPPORTED_ERR,
            thrownBy<KXStreamException>([&] { readString(*stream, 4); }).GetCode());
  EXPECT_THROW(stream->SetMark(), KXMarkRequiredException);
  EXPECT_EQ(KX_NOT_SUPPORTED_ERR, thrownBy<KXStreamException>([&] { stream->close(); }).GetCode());
  source.status = KX_FILESYSTEM_ERR;
  errno = ENOENT;
  const auto unexplained = thrownBy<KXStreamException>([&] { readString(*stream, 4); });
  EXPECT_EQ(KX_FILESYSTEM_ERR, unexplained.GetCode());
  EXPECT_STREQ("", unexplained.GetMessage());
  source.status = 0;  // the failed close left the stream alive; the guard closes it now
}

// Points mBuffer at its four bytes once and afterwards only refills them, which the record
// allows: "aaaa", "bbbb", "cccc", then the end.
struct Refills {
  char bytes[4] = {};
  int count = 0;
};

long refillInPlace(KXStreamInfo* info) {
  auto& source = *static_cast<Refills*>(const_cast<void*>(info->mUserData));
  if (source.count == 0) {
    info->mBuffer = source.bytes;
  }
  std::fill(std::begin(source.bytes), std::end(source.bytes),
            static_cast<char>('a' + source.count));
  ++source.count;
  info->mTransferLen = std::min<int64_t>(info->mTransferLen, 4);
  info->mStreamPos += info->mTransferLen;
  info->mAtEOF = source.count == 3 ? 1 : 0;
  return 0;
}

TEST(KXCustomStreamSource, ABufferPointedAtOnceAndRefilledServesEveryTransfer) {
  const std::function<std::string(KXCustomStream&)> consumers[] = {
      [](KXCustomStream& stream) { return readString(stream, 12); },
      [](KXCustomStream& stream) {
        KXObjectGuid id;
        stream.SetReadable();
        EXPECT_EQ(12, stream.calcIDWithChangeMark(id, -1));
        return std::string(id.GetID());
      }};
  const std::string expected[] = {"aaaabbbbcccc", "ccb3bf4d77b887690b3b89663823d13d"};
  for (size_t row = 0; row < 2; ++row) {
    Refills source;
    StreamPtr<KXCustomStream> stream =
        opened<KXCustomStream>(refillInPlace, nullptr, nullptr, nullptr, nullptr, &source);
    EXPECT_EQ(expected[row], consumers[row](*stream));
  }
}

// Hands out its buffer with read(2)'s -1 passed through as the count; gives up with status 5
// after 100 calls, so that a consumer that loops on it ends.
struct FailedReads {
  char buffer[16] = {};
  int calls = 0;
};

long deliverMinusOne(KXStreamInfo* info) {
  auto& source = *static_cast<FailedReads*>(const_cast<void*>(info->mUserData));
  info->mBuffer = source.buffer;
  info->mTransferLen = -1;
  info->mStreamPos -= 1;
  return ++source.calls > 100 ? 5 : 0;
}

TEST(KXCustomStreamSource, ANegativeDeliveredCountFailsTheTransferInEveryMode) {
  const std::function<void(KXCustomStream&)> consumers[] = {
      [](KXCustomStream& stream) { EXPECT_EQ("", readString(stream, 12)); },
      [](KXCustomStream& stream) {
        KXObjectGuid id;
        stream.SetReadable();
        stream.calcIDWithChangeMark(id, -1);
      }};
  for (KXBool strict : {KXBool(0), KXBool(1)}) {
    for (const auto& consume : consumers) {
      const kxtest::StrictModeScope mode(strict);
      FailedReads source;
      auto* stream =
          new KXCustomStream(deliverMinusOne, nullptr, nullptr, nullptr, nullptr, &source);
      stream->init();
      const auto refused = thrownBy<KXStreamException>([&] { consume(*stream); });
      EXPECT_EQ(0, refused.GetCode()) << refused.what();
      EXPECT_STREQ("negative byte count delivered (-1)", refused.GetMessage());
      EXPECT_EQ(1, source.calls);
      delete stream;  // its byte count is beyond repair; nothing to release
    }
  }
}

// Strict validation refuses the close of an input stream of known length read part way, after
// the close callback ran; the second close must not release the client's resources again.
TEST(KXCustomStreamClose, ACloseCallbackThatSucceededIsNotCalledAgain) {
  const kxtest::StrictModeScope strict(1);
  StringSource source{"0123456789"};
  auto* stream = openSource(source).release();
  stream->GetInfo()->mStreamLen = 10;
  EXPECT_EQ("0123", readString(*stream, 4));
  EXPECT_STREQ("CloseProc: mStreamLen",
               thrownBy<KXStreamMismatchException>([&] { stream->close(); }).GetMessage());
  stream->SetWritable();
  stream->close();
  EXPECT_EQ(1, source.closes);
}

}  // namespace
