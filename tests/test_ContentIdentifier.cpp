#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>

#include "KXException.h"
#include "KXMemStream.h"
#include "KXObjectGuid.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using kxtest::thrownBy;

constexpr const char* kEmptyDigest = "d41d8cd98f00b204e9800998ecf8427e";

class UpperCaseGuid : public KXObjectGuid {
 public:
  char GetFormat() const override { return 'X'; }
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

// A strict stream over content, which must outlive it.
StreamPtr openStream(std::string& content, KXMemStream::EIoFlag flag = KXMemStream::eIn) {
  kxtest::StrictModeScope strict(1);
  StreamPtr stream(new KXMemStream(&content[0], content.size(), flag));
  stream->init();
  return stream;
}

std::string readBytes(KXBasicGenericStream& stream, int count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  bytes.resize(static_cast<size_t>(stream.read(&bytes[0], count)));
  return bytes;
}

// What md5sum prints for the bytes.
std::string md5sumOf(const std::string& bytes) {
  const kxtest::TempDir dir;
  return kxtest::md5sumOfFile(dir.writeFile("content", bytes));
}

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

TEST(ContentIdentifier, EqualsMd5sumForEverySizeAroundTheBoundaries) {
  const size_t sizes[] = {0, 1, 55, 56, 63, 64, 65, 16383, 16384, 16385, (1u << 20) + 1};
  for (const size_t size : sizes) {
    SCOPED_TRACE(size);
    std::string content = kxtest::randomBytes(size, static_cast<unsigned>(size));
    const std::string expected = md5sumOf(content);
    StreamPtr stream = openStream(content);
    KXObjectGuid id;
    stream->calcID(id, -1);
    EXPECT_EQ(expected, id.GetID());
    EXPECT_EQ(0, stream->GetStreamPos());
    EXPECT_EQ(0, stream->isAtEOF());
  }
}

TEST(ContentIdentifier, FormatOfTheIdentifierChoosesTheCase) {
  std::string content = kxtest::randomBytes(100, 7);
  StreamPtr stream = openStream(content);
  UpperCaseGuid id;
  stream->calcID(id, -1);
  EXPECT_EQ(upperCase(md5sumOf(content)), id.GetID());
}

TEST(ContentIdentifier, LeavesTheStreamToBeReadForReal) {
  const std::string original = kxtest::randomBytes(5000, 9);
  std::string content = original;
  StreamPtr stream = openStream(content);
  KXObjectGuid first;
  stream->calcID(first, -1);
  EXPECT_EQ(0, stream->GetStreamPos());
  EXPECT_EQ(0, stream->isAtEOF());
  EXPECT_EQ(original, readBytes(*stream, 6000));
  stream->reset();
  KXObjectGuid second;
  stream->calcID(second, -1);
  EXPECT_STREQ(first.GetID(), second.GetID());
  EXPECT_EQ(md5sumOf(original), first.GetID());
}

TEST(ContentIdentifier, DigestsFromTheCurrentPositionAndMarksIt) {
  const std::string original = kxtest::randomBytes(1000, 13);
  std::string content = original;
  StreamPtr stream = openStream(content);
  readBytes(*stream, 50);
  stream->SetMark();
  readBytes(*stream, 50);
  KXObjectGuid id;
  stream->calcID(id, -1);
  EXPECT_EQ(md5sumOf(original.substr(100)), id.GetID());
  EXPECT_EQ(100, stream->GetStreamPos());
  // The caller's earlier mark is replaced by the identifier's own.
  EXPECT_EQ(100, stream->GetInfo()->mMarkerPos);
  EXPECT_EQ(original.substr(100), readBytes(*stream, 1000));
}

TEST(ContentIdentifier, ZeroLimitDigestsNothing) {
  std::string content("0123456789");
  StreamPtr stream = openStream(content);
  readBytes(*stream, 3);
  KXObjectGuid id;
  EXPECT_EQ(0, stream->calcIDWithChangeMark(id, 0));
  EXPECT_STREQ(kEmptyDigest, id.GetID());
  EXPECT_EQ(3, stream->GetStreamPos());
  EXPECT_EQ(0, stream->isAtEOF());
  EXPECT_EQ("3456789", readBytes(*stream, 10));
}

TEST(ContentIdentifier, LimitDigestsThePrefixAndLeavesTheStreamAfterIt) {
  const std::string original = kxtest::randomBytes(1000, 17);
  std::string content = original;
  StreamPtr stream = openStream(content);
  KXObjectGuid id;
  EXPECT_EQ(100, stream->calcIDWithChangeMark(id, 100));
  EXPECT_EQ(md5sumOf(original.substr(0, 100)), id.GetID());
  EXPECT_EQ(100, stream->GetStreamPos());
  EXPECT_EQ(0, stream->isAtEOF());
  EXPECT_EQ(0, stream->GetInfo()->mMarkerPos);
  EXPECT_EQ(original.substr(100, 10), readBytes(*stream, 10));

  KXObjectGuid wrapped;
  stream->calcID(wrapped, 100);
  EXPECT_EQ(md5sumOf(original.substr(110, 100)), wrapped.GetID());
  EXPECT_EQ(110, stream->GetStreamPos());
  EXPECT_EQ(original.substr(110), readBytes(*stream, 1000));
}

TEST(ContentIdentifier, LimitBeyondTheContentOrNoLimitDigestsToTheEnd) {
  const std::string original = kxtest::randomBytes(1000, 19);
  const long limits[] = {1000, 5000, -1, -1000};
  for (const long limit : limits) {
    SCOPED_TRACE(limit);
    std::string content = original;
    StreamPtr stream = openStream(content);
    KXObjectGuid id;
    EXPECT_EQ(1000, stream->calcIDWithChangeMark(id, limit));
    EXPECT_EQ(md5sumOf(original), id.GetID());
    EXPECT_EQ(1000, stream->GetStreamPos());
    EXPECT_EQ(1, stream->isAtEOF());
  }
}

TEST(ContentIdentifier, AtTheEndIsTheIdentifierOfNothing) {
  std::string content("0123456789");
  StreamPtr stream = openStream(content);
  readBytes(*stream, 10);
  KXObjectGuid id;
  stream->calcID(id, -1);
  EXPECT_STREQ(kEmptyDigest, id.GetID());
  EXPECT_EQ(10, stream->GetStreamPos());
}

TEST(ContentIdentifier, OutputStreamFailsTheAssertionWithoutMoving) {
  std::string region(10, '.');
  StreamPtr stream = openStream(region, KXMemStream::eOut);
  std::string bytes("abc");
  stream->write(&bytes[0], 3);
  KXObjectGuid id;
  const KXSDKInternalException viaCalcID =
      thrownBy<KXSDKInternalException>([&] { stream->calcID(id, -1); });
  EXPECT_STREQ("mStreamInfo.mReadFlag == (KXBool)true", viaCalcID.GetMessage());
  const KXSDKInternalException direct =
      thrownBy<KXSDKInternalException>([&] { stream->calcIDWithChangeMark(id, -1); });
  EXPECT_STREQ("mStreamInfo.mReadFlag == (KXBool)true", direct.GetMessage());
  EXPECT_STREQ("", id.GetID());
  EXPECT_EQ(3, stream->GetStreamPos());
  EXPECT_EQ("abc.......", region);
}

// The digest context must be released also when a transfer throws; the sanitizer build's leak
// checker watches this test.
TEST(ContentIdentifier, FailingTransferPropagatesAndLeavesTheIdentifierAlone) {
  std::string content = kxtest::randomBytes(100, 23);
  StreamPtr stream = openStream(content);
  readBytes(*stream, 60);
  // A length below what was already read makes the next prepare's strict byte count fail.
  stream->GetInfo()->mStreamLen = 40;
  KXObjectGuid id;
  id.SetID("previous");
  const KXStreamMismatchException viaCalcID =
      thrownBy<KXStreamMismatchException>([&] { stream->calcID(id, -1); });
  EXPECT_STREQ("PrepareBufferProc: mStreamLen", viaCalcID.GetMessage());
  EXPECT_TRUE(kxtest::hasTrace(viaCalcID, "KXBasicGenericStream.prepareBuffer"));
  const KXStreamMismatchException direct =
      thrownBy<KXStreamMismatchException>([&] { stream->calcIDWithChangeMark(id, 10); });
  EXPECT_STREQ("PrepareBufferProc: mStreamLen", direct.GetMessage());
  EXPECT_STREQ("previous", id.GetID());
  EXPECT_EQ(60, stream->GetStreamPos());
  stream->GetInfo()->mStreamLen = 100;
  stream->reset();
}

}  // namespace
