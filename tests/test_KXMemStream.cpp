#include "KXMemStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>

#include "KXException.h"
#include "KXObjectGuid.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using kxtest::md5sumOf;
using kxtest::randomBytes;
using kxtest::readString;
using kxtest::thrownBy;
using kxtest::writeString;

using StreamPtr = kxtest::StreamPtr<KXMemStream>;

// A stream over region, which must outlive it.
StreamPtr openStream(std::string& region, KXMemStream::EIoFlag flag = KXMemStream::eIn,
                     KXBool strict = 1) {
  kxtest::StrictModeScope scope(strict);
  return kxtest::opened<KXMemStream>(&region[0], region.size(), flag);
}

// One transfer asking for count bytes, driven by hand as the engine's consumers do.
KXStreamInfo prepareAsking(KXBasicGenericStream& stream, int64_t count) {
  stream.GetInfo()->mTransferLen = count;
  return *stream.prepareBuffer();
}

TEST(KXMemStreamInput, HandsOutWhatIsLeftInPlaceAndEndsWithTheLastByte) {
  struct Case {
    const char* content;
    int64_t skipped, asked, delivered;
    KXBool atEOF;
  };
  const Case cases[] = {{"", 0, 16, 0, 1},          {"0123456789", 4, 0, 0, 0},
                        {"0123456789", 4, 5, 5, 0}, {"0123456789", 4, 6, 6, 1},
                        {"0123456789", 4, 7, 6, 1}, {"0123456789", 4, INT64_MAX, 6, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    std::string region(c.content);
    StreamPtr stream = openStream(region, KXMemStream::eIn);
    prepareAsking(*stream, c.skipped);
    stream->complete();
    const KXStreamInfo info = prepareAsking(*stream, c.asked);
    EXPECT_EQ(c.delivered > 0 ? &region[c.skipped] : nullptr, info.mBuffer);
    EXPECT_EQ(c.delivered, info.mTransferLen);
    EXPECT_EQ(c.skipped + c.delivered, info.mStreamPos);
    EXPECT_EQ(c.atEOF, info.mAtEOF);
    stream->complete();
    stream->reset();
  }
}

// Strict streams throw on any byte count mismatch, so a write that returns reported none.
TEST(KXMemStreamOutput, StoresWhatFitsAndOverwritesFromTheMark) {
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  EXPECT_EQ(4, writeString(*stream, "abcd"));
  EXPECT_EQ(6, writeString(*stream, "0123456789"));
  EXPECT_EQ("abcd012345", region);
  stream->reset();
  writeString(*stream, "ABC");
  stream->SetMark();
  writeString(*stream, "DEFG");
  stream->resetMark();
  EXPECT_EQ(3, stream->GetStreamPos());
  writeString(*stream, "XY");
  EXPECT_EQ("ABCXYFG345", region);
  EXPECT_EQ(10, stream->GetLength());
}

// Strict mode refuses a write longer than the region; a lenient stream stores what fits and warns.
TEST(KXMemStreamOutput, WriteLongerThanTheRegionIsAMismatch) {
  for (KXBool strict : {KXBool{1}, KXBool{0}}) {
    std::string region(10, '.');
    StreamPtr stream = openStream(region, KXMemStream::eOut, strict);
    kxtest::LogCapture log;
    EXPECT_EQ(strict != 0 ? "KXStreamMismatchException (code 0): CompleteProc: mTransferLen > "
                            "mBufferLen [KXBasicGenericStream.complete]"
                          : "",
              kxtest::outcome([&] { writeString(*stream, "0123456789AB"); }));
    EXPECT_EQ("0123456789", region);
    EXPECT_EQ(strict != 0 ? 0 : 10, stream->GetStreamPos());
    EXPECT_EQ(strict != 0 ? 2 : 1,
              log.count(strict != 0 ? 1 : 2, "CompleteProc: mTransferLen > mBufferLen"));
  }
}

TEST(KXMemStreamDirection, TransfersAgainstTheDirectionFailAndMoveNothing) {
  std::string input("0123456789");
  StreamPtr reader = openStream(input, KXMemStream::eIn);
  EXPECT_EQ(KX_WRONG_STREAM_ERR,
            thrownBy<KXStreamException>([&] { writeString(*reader, "xyz"); }).GetCode());
  EXPECT_EQ("0123456789", input);
  EXPECT_EQ(0, reader->GetStreamPos());

  std::string output(10, '.');
  StreamPtr writer = openStream(output, KXMemStream::eOut);
  // The write leaves the caller's buffer in the record, where a careless read would copy from.
  std::string written("secret");
  writer->write(&written[0], 6);
  char sink[8] = {'-', '-', '-', '-', '-', '-', '-', '-'};
  EXPECT_EQ(KX_WRONG_STREAM_ERR,
            thrownBy<KXStreamException>([&] { writer->read(sink, 8); }).GetCode());
  EXPECT_EQ(std::string(8, '-'), std::string(sink, 8));
  EXPECT_EQ(6, writer->GetStreamPos());
}

// Run under LeakSanitizer or valgrind: the snapshot must go with the object.
TEST(KXMemStreamClose, AStreamWhoseCloseIsRefusedCanStillBeDeleted) {
  kxtest::StrictModeScope strict(1);
  char region[] = "0123456789";
  auto* stream = new KXMemStream(region, 10, KXMemStream::eIn);
  stream->init();
  char first[4];
  ASSERT_EQ(4, stream->read(first, 4));
  EXPECT_THROW(stream->close(), KXStreamMismatchException);
  delete stream;
}

TEST(KXMemStreamInit, RefusesBadArgumentsAndStaysUninitialised) {
  struct Refusal {
    bool nullRegion;
    unsigned long length;
    int flag;
    const char* message;
  };
  const Refusal refusals[] = {
      {true, 10, KXMemStream::eIn, ""},
      {true, 0, KXMemStream::eOut, ""},
      {false, 1UL << 63, KXMemStream::eIn, ""},
      {false, 4, -1, "Invalid memory stream direction -1: expected eIn (0) or eOut (1)"}};
  char region[4] = {};
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(&refusal - refusals);
    StreamPtr stream(new KXMemStream(refusal.nullRegion ? nullptr : region, refusal.length,
                                     static_cast<KXMemStream::EIoFlag>(refusal.flag)));
    kxtest::LogCapture log(false, 1);
    errno = 0;
    const auto refused = thrownBy<KXParameterException>([&] { stream->init(); });
    EXPECT_EQ(KX_PARAM_ERR, errno);
    EXPECT_EQ(0, refused.GetCode());
    EXPECT_STREQ(refusal.message, refused.GetMessage());
    EXPECT_EQ(1, log.count(1, "natives/streams/KXMemStream"));
    EXPECT_THROW(stream->prepareBuffer(), KXSDKInternalException);
  }
}

// The identifier object's format chooses the case of the digits.
TEST(ContentIdentifier, EqualsMd5sumInTheIdentifiersCaseAndLeavesTheContentToBeRead) {
  const size_t sizes[] = {0, 1, 55, 56, 63, 64, 65, 16383, 16384, 16385, (1u << 20) + 1};
  for (const size_t size : sizes) {
    SCOPED_TRACE(size);
    std::string content = randomBytes(size, static_cast<unsigned>(size));
    StreamPtr stream = openStream(content);
    KXObjectGuid id;
    stream->calcID(id, -1);
    EXPECT_EQ(md5sumOf(content), id.GetID());
    EXPECT_EQ(content, readString(*stream, static_cast<int>(size) + 1));
  }
  struct UpperCaseGuid : KXObjectGuid {
    char GetFormat() const override { return 'X'; }
  } upper;
  std::string content("abc");
  openStream(content)->calcID(upper, -1);
  EXPECT_STREQ("900150983CD24FB0D6963F7D28E17F72", upper.GetID());
}

TEST(ContentIdentifier, LimitStopsTheDigestWhereTheStreamIsLeft) {
  struct Case {
    long maxLength, digested;
    KXBool atEOF;
  };
  const Case cases[] = {{0, 0, 0}, {100, 100, 0}, {1000, 1000, 1}, {5000, 1000, 1}, {-1, 1000, 1}};
  std::string content = randomBytes(1000, 17);
  StreamPtr stream = openStream(content);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.maxLength);
    KXObjectGuid id;
    EXPECT_EQ(c.digested, stream->calcIDWithChangeMark(id, c.maxLength));
    EXPECT_EQ(md5sumOf(content.substr(0, static_cast<size_t>(c.digested))), id.GetID());
    EXPECT_EQ(c.digested, stream->GetStreamPos());
    EXPECT_EQ(c.atEOF, stream->isAtEOF());
    stream->reset();
  }
}

// The sanitizer build's leak checker proves that the digest context is released when a
// transfer throws.
TEST(ContentIdentifier, FailuresLeaveTheIdentifierAlone) {
  std::string content = randomBytes(100, 23);
  StreamPtr stream = openStream(content);
  KXObjectGuid id;
  id.SetID("previous");
  stream->SetWritable();
  EXPECT_STREQ("mStreamInfo.mReadFlag == (KXBool)true",
               thrownBy<KXSDKInternalException>([&] { stream->calcID(id, -1); }).GetMessage());
  EXPECT_EQ(0, stream->GetStreamPos());

  readString(*stream, 60);
  // A length below what was already read makes the next prepare's strict byte count fail.
  stream->GetInfo()->mStreamLen = 40;
  EXPECT_STREQ("PrepareBufferProc: mStreamLen",
               thrownBy<KXStreamMismatchException>([&] { stream->calcID(id, -1); }).GetMessage());
  EXPECT_STREQ("previous", id.GetID());
  stream->GetInfo()->mStreamLen = 100;
  stream->reset();
}

}  // namespace
