#include "KXMemStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include "KXObjectGuid.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;
using MemPtr = StreamPtr<KXMemStream>;

// An input stream over region, which must outlive it.
MemPtr openStream(std::string& region) {
  return opened<KXMemStream>(&region[0], region.size(), KXMemStream::eIn);
}

TEST(KXMemStreamInit, RefusesBadArgumentsAndStaysUninitialised) {
  char region[4] = {};
  const std::pair<KXMemStream*, std::string> refusals[] = {
      {new KXMemStream(nullptr, 10, KXMemStream::eIn), ""},
      {new KXMemStream(nullptr, 0, KXMemStream::eOut), ""},
      {new KXMemStream(region, 1UL << 63, KXMemStream::eIn), ""},
      {new KXMemStream(region, 4, static_cast<KXMemStream::EIoFlag>(-1)),
       ": Invalid memory stream direction -1: expected eIn (0) or eOut (1)"}};
  for (const auto& [refused, message] : refusals) {
    const StreamPtr<KXMemStream> stream(refused);
    LogCapture log(false, 1);
    errno = 0;
    EXPECT_EQ("KXParameterException (code 0)" + message + " []", outcome([&] { stream->init(); }));
    EXPECT_EQ(KX_PARAM_ERR, errno);
    EXPECT_EQ(1, log.count(1, "natives/streams/KXMemStream"));
    EXPECT_THROW(stream->prepareBuffer(), KXSDKInternalException);
  }
}

// The identifier object's format chooses the case of the digits.
TEST(ContentIdentifier, EqualsMd5sumInTheIdentifiersCaseAndLeavesTheContentToBeRead) {
  for (const size_t size : {0, 1, 55, 56, 63, 64, 65, 16383, 16384, 16385, (1 << 20) + 1}) {
    SCOPED_TRACE(size);
    std::string content = randomBytes(size, static_cast<unsigned>(size));
    MemPtr stream = openStream(content);
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

}  // namespace
