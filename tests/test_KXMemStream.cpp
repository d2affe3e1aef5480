#include "KXMemStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <memory>
#include <string>

#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using kxtest::thrownBy;

constexpr const char* kMismatchLine =
    "KX_STREAM_BYTECOUNT_MISMATCH_ERR (CompleteProc: mTransferLen > mBufferLen)";

// Reaches the kind's own state, which the record only points at.
class MemStreamProbe : public KXMemStream {
 public:
  using KXMemStream::KXMemStream;
  const KXMemStreamInfo* memStreamInfo() const { return &mMemStreamInfo; }
};

struct Closer {
  void operator()(KXMemStream* stream) const {
    try {
      stream->close();
    } catch (const KXException& exception) {
      ADD_FAILURE() << "close failed: " << exception.what();
    }
  }
};
using StreamPtr = std::unique_ptr<KXMemStream, Closer>;

// A stream over region (which must outlive it), strict unless told otherwise.
StreamPtr openStream(std::string& region, KXMemStream::EIoFlag flag, KXBool strict = 1) {
  kxtest::StrictModeScope scope(strict);
  StreamPtr stream(new MemStreamProbe(&region[0], region.size(), flag));
  stream->init();
  return stream;
}

std::string readBytes(KXBasicGenericStream& stream, int count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  bytes.resize(static_cast<size_t>(stream.read(&bytes[0], count)));
  return bytes;
}

long writeBytes(KXBasicGenericStream& stream, std::string bytes) {
  return stream.write(&bytes[0], static_cast<int>(bytes.size()));
}

// One transfer asking for count bytes, driven by hand as consumers of the engine do.
KXStreamInfo prepareAsking(KXBasicGenericStream& stream, int64_t count) {
  stream.GetInfo()->mTransferLen = count;
  return *stream.prepareBuffer();
}

TEST(KXMemStreamRecord, PointsItsUserDataAtTheRegionDescriptor) {
  std::string region("0123456789");
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  const auto* probe = static_cast<const MemStreamProbe*>(stream.get());
  const KXStreamInfo* info = stream->GetInfo();
  ASSERT_EQ(static_cast<const void*>(probe->memStreamInfo()), info->mUserData);
  const auto* descriptor = static_cast<const KXMemStream::KXMemStreamInfo*>(info->mUserData);
  EXPECT_EQ(&region[0], descriptor->mMemBuffer);
  EXPECT_EQ(10u, descriptor->mBufferLen);
  EXPECT_EQ(10, stream->GetLength());
  EXPECT_EQ(1, info->mReadFlag);
  EXPECT_EQ(0, openStream(region, KXMemStream::eOut)->GetInfo()->mReadFlag);
}

TEST(KXMemStreamInput, EmptyRegionIsAtItsEndAtOnce) {
  std::string region;
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  const KXStreamInfo first = prepareAsking(*stream, 16);
  EXPECT_EQ(nullptr, first.mBuffer);
  EXPECT_EQ(0, first.mTransferLen);
  EXPECT_EQ(1, first.mAtEOF);
  stream->complete();
  char byte = 0;
  EXPECT_EQ(0, stream->read(&byte, 1));
}

TEST(KXMemStreamInput, HandsOutPointersIntoTheRegion) {
  std::string region("0123456789");
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  const KXStreamInfo first = prepareAsking(*stream, 4);
  EXPECT_EQ(&region[0], first.mBuffer);
  EXPECT_EQ(4, first.mTransferLen);
  EXPECT_EQ(4, first.mStreamPos);
  EXPECT_EQ(0, first.mAtEOF);
  stream->complete();
  const KXStreamInfo second = prepareAsking(*stream, 3);
  EXPECT_EQ(&region[4], second.mBuffer);
  EXPECT_EQ(3, second.mTransferLen);
  stream->complete();
  EXPECT_EQ(7, stream->GetStreamPos());
  stream->reset();
}

TEST(KXMemStreamInput, RequestReachingTheEndDeliversTheRestAndEndsInTheSamePrepare) {
  struct Case {
    int64_t asked, delivered;
    KXBool atEOF;
  };
  const Case cases[] = {{5, 5, 0}, {6, 6, 1}, {7, 6, 1}, {INT64_MAX, 6, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.asked);
    std::string region("0123456789");
    StreamPtr stream = openStream(region, KXMemStream::eIn);
    ASSERT_EQ("0123", readBytes(*stream, 4));
    const KXStreamInfo info = prepareAsking(*stream, c.asked);
    EXPECT_EQ(&region[4], info.mBuffer);
    EXPECT_EQ(c.delivered, info.mTransferLen);
    EXPECT_EQ(4 + c.delivered, info.mStreamPos);
    EXPECT_EQ(c.atEOF, info.mAtEOF);
    stream->complete();
    stream->reset();
  }
}

TEST(KXMemStreamInput, ZeroByteRequestDeliversNothingAndEndsOnlyAtTheEnd) {
  std::string region("abc");
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  const KXStreamInfo atStart = prepareAsking(*stream, 0);
  EXPECT_EQ(nullptr, atStart.mBuffer);
  EXPECT_EQ(0, atStart.mTransferLen);
  EXPECT_EQ(0, atStart.mStreamPos);
  EXPECT_EQ(0, atStart.mAtEOF);
  stream->complete();
  char byte = 0;
  EXPECT_EQ(0, stream->read(&byte, 0));
  EXPECT_EQ("abc", readBytes(*stream, 3));
  const KXStreamInfo atEnd = prepareAsking(*stream, 0);
  EXPECT_EQ(nullptr, atEnd.mBuffer);
  EXPECT_EQ(0, atEnd.mTransferLen);
  EXPECT_EQ(1, atEnd.mAtEOF);
}

TEST(KXMemStreamInput, ReadThroughTheEngineReturnsTheRegionBytes) {
  std::string region = kxtest::randomBytes(1000, 3);
  const std::string content = region;
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  std::string got = readBytes(*stream, 300);
  got += readBytes(*stream, 300);
  got += readBytes(*stream, 1000);
  EXPECT_EQ(content, got);
  EXPECT_EQ(1, stream->isAtEOF());
  EXPECT_EQ("", readBytes(*stream, 10));
}

TEST(KXMemStreamInput, MarksReturnToAnyEarlierPosition) {
  std::string region("0123456789");
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  EXPECT_EQ("012", readBytes(*stream, 3));
  stream->SetMark();
  EXPECT_EQ("3456789", readBytes(*stream, 20));
  ASSERT_EQ(1, stream->isAtEOF());
  stream->resetMark();
  EXPECT_EQ(0, stream->isAtEOF());
  EXPECT_EQ(3, stream->GetStreamPos());
  EXPECT_EQ("3456", readBytes(*stream, 4));
  stream->resetMark();
  EXPECT_EQ("34", readBytes(*stream, 2));
  stream->reset();
  EXPECT_EQ("0123456789", readBytes(*stream, 10));
}

// SetMark(n) moves the position before the engine's snapshot, so strict byte counting cannot
// follow the jump; the kind's own behaviour is checked without it.
TEST(KXMemStreamInput, SetMarkAtAnOffsetReadsFromThere) {
  std::string region("0123456789");
  StreamPtr stream = openStream(region, KXMemStream::eIn, 0);
  EXPECT_EQ("0123456", readBytes(*stream, 7));
  stream->SetMark(2);
  EXPECT_EQ("234", readBytes(*stream, 3));
  stream->SetMark(8);
  EXPECT_EQ("89", readBytes(*stream, 5));
  stream->SetMark(2);
  EXPECT_EQ("23", readBytes(*stream, 2));
}

TEST(KXMemStreamInput, MarkPastTheEndDeliversNothingFromOutsideTheRegion) {
  std::string region("0123456789");
  StreamPtr stream = openStream(region, KXMemStream::eIn, 0);
  stream->SetMark(25);
  const KXStreamInfo info = prepareAsking(*stream, 4);
  EXPECT_EQ(nullptr, info.mBuffer);
  EXPECT_EQ(0, info.mTransferLen);
  EXPECT_EQ(1, info.mAtEOF);
}

TEST(KXMemStreamClose, StrictCloseWantsTheInputReadToItsEndOrNotAtAll) {
  std::string region("0123456789");
  StreamPtr partial = openStream(region, KXMemStream::eIn);
  EXPECT_EQ("0123", readBytes(*partial, 4));
  const KXStreamMismatchException mismatch =
      thrownBy<KXStreamMismatchException>([&] { partial->close(); });
  EXPECT_STREQ("CloseProc: mStreamLen", mismatch.GetMessage());
  // The failed close left the stream alive; rewound, it closes cleanly.
  partial->reset();

  StreamPtr whole = openStream(region, KXMemStream::eIn);
  EXPECT_EQ(region, readBytes(*whole, 10));
  EXPECT_NO_THROW(whole.release()->close());

  StreamPtr untouched = openStream(region, KXMemStream::eIn);
  EXPECT_NO_THROW(untouched.release()->close());
}

TEST(KXMemStreamOutput, StoresWhatFitsAndReportsTheStoredCount) {
  kxtest::LogCapture log;
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  EXPECT_EQ(4, writeBytes(*stream, "abcd"));
  EXPECT_EQ(6, writeBytes(*stream, "0123456789"));
  EXPECT_EQ("abcd012345", region);
  EXPECT_EQ(10, stream->GetStreamPos());
  EXPECT_EQ(10, stream->GetLength());
  EXPECT_EQ(0, writeBytes(*stream, "more"));
  EXPECT_EQ("abcd012345", region);
  EXPECT_EQ(0, log.count("KX_STREAM_BYTECOUNT_MISMATCH_ERR"));
}

TEST(KXMemStreamOutput, ZeroByteWriteStoresNothing) {
  std::string region(4, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  EXPECT_EQ(0, writeBytes(*stream, ""));
  EXPECT_EQ(0, stream->GetStreamPos());
  EXPECT_EQ("....", region);
  // The stream offers no buffer of its own; a consumer that brings none writes nothing.
  const KXStreamInfo offered = *stream->prepareBuffer();
  EXPECT_EQ(nullptr, offered.mBuffer);
  EXPECT_EQ(0, offered.mTransferLen);
  EXPECT_EQ(0, stream->complete()->mTransferLen);
}

TEST(KXMemStreamOutput, CountWithoutABufferIsAnInternalError) {
  std::string region(4, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  stream->prepareBuffer();
  stream->GetInfo()->mTransferLen = 3;
  const KXSDKInternalException broken =
      thrownBy<KXSDKInternalException>([&] { stream->complete(); });
  EXPECT_STREQ("mStreamInfo.mTransferLen == 0", broken.GetMessage());
  EXPECT_EQ(0, stream->GetStreamPos());
}

TEST(KXMemStreamOutput, StrictWriteLongerThanTheRegionThrowsWithTheBytesStored) {
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  const KXStreamMismatchException mismatch =
      thrownBy<KXStreamMismatchException>([&] { writeBytes(*stream, "0123456789AB"); });
  EXPECT_EQ(0, mismatch.GetCode());
  EXPECT_STREQ("CompleteProc: mTransferLen > mBufferLen", mismatch.GetMessage());
  EXPECT_TRUE(kxtest::hasTrace(mismatch, "KXBasicGenericStream.complete"));
  EXPECT_EQ("0123456789", region);
  EXPECT_EQ(0, stream->GetStreamPos());
}

TEST(KXMemStreamOutput, LaxWriteLongerThanTheRegionLogsOneWarningAndStoresWhatFits) {
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut, 0);
  kxtest::LogCapture log;
  EXPECT_EQ(10, writeBytes(*stream, "0123456789AB"));
  EXPECT_EQ("0123456789", region);
  EXPECT_EQ(10, stream->GetStreamPos());
  EXPECT_EQ(1, log.count("KX_STREAM_BYTECOUNT_MISMATCH_ERR"));
  EXPECT_EQ(1, log.count(2, kMismatchLine));
}

TEST(KXMemStreamOutput, WritesAfterAResetOverwriteFromTheMark) {
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  writeBytes(*stream, "abc");
  stream->SetMark();
  writeBytes(*stream, "defg");
  stream->resetMark();
  EXPECT_EQ(3, stream->GetStreamPos());
  writeBytes(*stream, "XY");
  EXPECT_EQ("abcXYfg...", region);
  stream->reset();
  writeBytes(*stream, "Z");
  stream->SetMark(8);
  EXPECT_EQ(2, writeBytes(*stream, "!!!"));
  EXPECT_EQ("ZbcXYfg.!!", region);
  EXPECT_EQ(10, stream->GetLength());
}

TEST(KXMemStreamDirection, WritingIntoAnInputStreamFails) {
  std::string region("0123456789");
  StreamPtr stream = openStream(region, KXMemStream::eIn);
  const KXStreamException wrong = thrownBy<KXStreamException>([&] { writeBytes(*stream, "xyz"); });
  EXPECT_EQ(KX_WRONG_STREAM_ERR, wrong.GetCode());
  EXPECT_TRUE(kxtest::hasTrace(wrong, "KXBasicGenericStream.prepareBuffer"));
  EXPECT_EQ(-1, stream->GetInfo()->mTransferLen);
  EXPECT_EQ("0123456789", region);
  EXPECT_EQ(0, stream->GetStreamPos());
}

TEST(KXMemStreamDirection, ReadingFromAnOutputStreamFailsWithoutCopying) {
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  std::string written("secret");
  stream->write(&written[0], 6);
  // The last transfer left the caller's buffer in the record: it must not be read back.
  ASSERT_EQ(&written[0], stream->GetInfo()->mBuffer);
  char sink[8] = {'-', '-', '-', '-', '-', '-', '-', '-'};
  const KXStreamException wrong = thrownBy<KXStreamException>([&] { stream->read(sink, 8); });
  EXPECT_EQ(KX_WRONG_STREAM_ERR, wrong.GetCode());
  EXPECT_EQ(std::string(8, '-'), std::string(sink, 8));
  EXPECT_EQ(nullptr, stream->GetInfo()->mBuffer);
  EXPECT_EQ(-1, stream->GetInfo()->mTransferLen);
  EXPECT_EQ(6, stream->GetStreamPos());
  EXPECT_EQ(4, writeBytes(*stream, "tail"));
  EXPECT_EQ("secrettail", region);
}

struct Refusal {
  const char* name;
  bool nullRegion;
  unsigned long length;
  int flag;
  const char* message;
};

TEST(KXMemStreamInit, RefusesBadArgumentsAndStaysUninitialised) {
  const Refusal refusals[] = {
      {"null region", true, 10, KXMemStream::eIn, ""},
      {"null empty region", true, 0, KXMemStream::eOut, ""},
      {"length 2^63", false, 1UL << 63, KXMemStream::eIn, ""},
      {"largest length", false, ULONG_MAX, KXMemStream::eOut, ""},
      {"direction 2", false, 4, 2,
       "Invalid memory stream direction 2: expected eIn (0) or eOut (1)"},
      {"direction -1", false, 4, -1,
       "Invalid memory stream direction -1: expected eIn (0) or eOut (1)"},
  };
  char region[4] = {};
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.name);
    StreamPtr stream(new KXMemStream(refusal.nullRegion ? nullptr : region, refusal.length,
                                     static_cast<KXMemStream::EIoFlag>(refusal.flag)));
    kxtest::LogCapture log(false, 1);
    errno = 0;
    const KXParameterException refused = thrownBy<KXParameterException>([&] { stream->init(); });
    EXPECT_EQ(KX_PARAM_ERR, errno);
    EXPECT_EQ(0, refused.GetCode());
    EXPECT_STREQ(refusal.message, refused.GetMessage());
    EXPECT_EQ(1, log.count(1, "natives/streams/KXMemStream"));
    const KXSDKInternalException uninitialised =
        thrownBy<KXSDKInternalException>([&] { stream->prepareBuffer(); });
    EXPECT_STREQ("mInited == (KXBool)true", uninitialised.GetMessage());
  }
}

TEST(KXMemStreamInit, AcceptsAnEmptyRegionAndTheLargestSignedLength) {
  char region[1] = {};
  StreamPtr empty(new KXMemStream(region, 0, KXMemStream::eIn));
  EXPECT_NO_THROW(empty->init());
  StreamPtr largest(new KXMemStream(region, INT64_MAX, KXMemStream::eOut));
  EXPECT_NO_THROW(largest->init());
  EXPECT_EQ(INT64_MAX, largest->GetLength());
}

}  // namespace
