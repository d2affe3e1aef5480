#include "KXCustomStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>

#include "KXObjectGuid.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

long doNothing(KXStreamInfo* /*info*/) { return 0; }

// A stream over source with every callback but complete.
StreamPtr<KXCustomStream> openSource(StringSource& source) {
  return opened<KXCustomStream>(stringSourcePrepare, nullptr, stringSourceSetMarker,
                                stringSourceResetMarker, stringSourceClose, &source);
}

// A stream whose only callback is prepare, over context.
StreamPtr<KXCustomStream> openPrepareOnly(KXStreamProc prepare, void* context) {
  return opened<KXCustomStream>(prepare, nullptr, nullptr, nullptr, nullptr, context);
}

// Each row: the callbacks given, by initial (Prepare, Complete, Set, Reset, cLose), and how
// init() ends.
TEST(KXCustomStream, InitAcceptsOrRejectsEachCombinationOfCallbacks) {
  const std::pair<std::string, const char*> combinations[] = {
      {"L", ""},
      {"PCSL", "KXParameterException (code 0): SetMarkerProc defined without ResetMarkerProc\n []"},
      {"R", "KXParameterException (code 0): ResetMarkerProc defined without SetMarkerProc\n []"},
      {"", "KXParameterException (code 0) []"}};
  for (const auto& c : combinations) {
    const auto given = [&c](char initial) -> KXStreamProc {
      return c.first.find(initial) != std::string::npos ? doNothing : nullptr;
    };
    StreamPtr<KXCustomStream> stream(
        new KXCustomStream(given('P'), given('C'), given('S'), given('R'), given('L'), nullptr));
    LogCapture log(false, 1);
    EXPECT_EQ(c.second, outcome([&] { stream->init(); })) << c.first;
    if (*c.second != 0) {
      EXPECT_EQ(1, log.count(1, "natives/streams/KXCustomStream"));
      EXPECT_THROW(stream->prepareBuffer(), KXSDKInternalException);
    }
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

// Points mBuffer at the four bytes of the context once and afterwards only refills them, which
// the record allows: "aaaa", "bbbb", "cccc", then the end.
long refillInPlace(KXStreamInfo* info) {
  auto* bytes = static_cast<char*>(const_cast<void*>(info->mUserData));
  const int64_t round = info->mStreamPos / 4;
  if (round == 0) {
    info->mBuffer = bytes;
  }
  std::fill_n(bytes, 4, static_cast<char>('a' + round));
  info->mTransferLen = std::min<int64_t>(info->mTransferLen, 4);
  info->mStreamPos += info->mTransferLen;
  info->mAtEOF = round == 2 ? 1 : 0;
  return 0;
}

TEST(KXCustomStreamSource, ABufferPointedAtOnceAndRefilledServesEveryTransfer) {
  char forRead[4], forDigest[4];
  EXPECT_EQ("aaaabbbbcccc", readString(*openPrepareOnly(refillInPlace, forRead), 12));
  auto stream = openPrepareOnly(refillInPlace, forDigest);
  stream->SetReadable();
  KXObjectGuid id;
  EXPECT_EQ(12, stream->calcIDWithChangeMark(id, -1));
  EXPECT_STREQ("ccb3bf4d77b887690b3b89663823d13d", id.GetID());
}

// Hands out a buffer with read(2)'s -1 passed through as the count; gives up with status 5
// after 100 calls (counted in the context), so that a consumer that loops on it ends.
long deliverMinusOne(KXStreamInfo* info) {
  static char buffer[16];
  int& calls = *static_cast<int*>(const_cast<void*>(info->mUserData));
  info->mBuffer = buffer;
  info->mTransferLen = -1;
  info->mStreamPos -= 1;
  return ++calls > 100 ? 5 : 0;
}

TEST(KXCustomStreamSource, ANegativeDeliveredCountFailsTheTransferInEveryMode) {
  for (KXBool strict : {KXBool(0), KXBool(1)}) {
    for (bool digest : {false, true}) {
      const StrictModeScope mode(strict);
      int calls = 0;
      auto* stream = openPrepareOnly(deliverMinusOne, &calls).release();
      stream->SetReadable();
      const auto refused = thrownBy<KXStreamException>([&] {
        KXObjectGuid id;
        digest ? void(stream->calcIDWithChangeMark(id, -1)) : void(readString(*stream, 12));
      });
      EXPECT_EQ(0, refused.GetCode()) << refused.what();
      EXPECT_STREQ("negative byte count delivered (-1)", refused.GetMessage());
      EXPECT_EQ(1, calls);
      delete stream;  // its byte count is beyond repair; nothing to release
    }
  }
}

long completeOnly(KXStreamInfo* info) {
  info->mStreamPos += info->mReadFlag == 0 ? info->mTransferLen : 0;
  return 0;
}

// Without a prepare callback nothing offers a buffer: read() and the content identifier must
// not use the one the last write() left in the record.
// A fuzzer's finding.
TEST(KXCustomStreamSource, AKindThatOffersNoBufferIsNeitherCopiedNorDigestedFromAStaleOne) {
  StrictModeScope lenient(0);  // a default prepare moves no position
  auto stream = opened<KXCustomStream>(nullptr, &completeOnly, nullptr, nullptr, nullptr, nullptr);
  std::string bytes(64, 'w');
  stream->write(&bytes[0], 64);
  std::string target(10, 'z');
  EXPECT_EQ(10, stream->read(&target[0], 10));
  EXPECT_EQ(std::string(10, 'z'), target);
  KXObjectGuid id;
  stream->calcIDWithChangeMark(id, 1000);
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", id.GetID());  // the digest of no bytes
}

// Strict validation refuses the close of an input stream of known length read part way, after
// the close callback ran; the second close must not release the client's resources again.
TEST(KXCustomStreamClose, ACloseCallbackThatSucceededIsNotCalledAgain) {
  const StrictModeScope strict(1);
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
