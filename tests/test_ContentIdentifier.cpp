#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KXException.h"
#include "KXMemStream.h"
#include "KXObjectGuid.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using kxtest::thrownBy;

using StreamPtr = kxtest::StreamPtr<KXMemStream>;
using kxtest::readString;

StreamPtr openStream(std::string& content) {
  kxtest::StrictModeScope strict(1);
  return kxtest::opened<KXMemStream>(&content[0], content.size(), KXMemStream::eIn);
}

// The identifier object's format chooses the case of the digits.
TEST(ContentIdentifier, EqualsMd5sumInTheIdentifiersCaseAndLeavesTheContentToBeRead) {
  const size_t sizes[] = {0, 1, 55, 56, 63, 64, 65, 16383, 16384, 16385, (1u << 20) + 1};
  for (const size_t size : sizes) {
    SCOPED_TRACE(size);
    std::string content = kxtest::randomBytes(size, static_cast<unsigned>(size));
    StreamPtr stream = openStream(content);
    KXObjectGuid id;
    stream->calcID(id, -1);
    EXPECT_EQ(kxtest::md5sumOf(content), id.GetID());
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
  std::string content = kxtest::randomBytes(1000, 17);
  StreamPtr stream = openStream(content);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.maxLength);
    KXObjectGuid id;
    EXPECT_EQ(c.digested, stream->calcIDWithChangeMark(id, c.maxLength));
    EXPECT_EQ(kxtest::md5sumOf(content.substr(0, static_cast<size_t>(c.digested))), id.GetID());
    EXPECT_EQ(c.digested, stream->GetStreamPos());
    EXPECT_EQ(c.atEOF, stream->isAtEOF());
    stream->reset();
  }
}

// The sanitizer build's leak checker proves that the digest context is released when a
// transfer throws.
TEST(ContentIdentifier, FailuresLeaveTheIdentifierAlone) {
  std::string content = kxtest::randomBytes(100, 23);
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
