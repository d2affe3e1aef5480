#include "KXMD5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "KXException.h"
#include "KXObjectGuid.h"
#include "KXTestSupport.h"
#include "StMalloc.h"

namespace {

constexpr long kTextSize = 65;

// The 'format' digest of bytes through the router, fed in pieces of the given sizes (cycled).
std::string digestOf(const std::string& bytes, char format = 'x',
                     const std::vector<size_t>& pieces = {}) {
  void* context = KXMD5_Router::createContext();
  EXPECT_NE(nullptr, context);
  std::string data = bytes;
  size_t offset = 0;
  for (size_t index = 0; !pieces.empty() && offset < data.size(); ++index) {
    const size_t length = std::min(pieces[index % pieces.size()], data.size() - offset);
    EXPECT_EQ(0, KXMD5_Router::update(context, &data[offset], length, 0));
    offset += length;
  }
  EXPECT_EQ(0, KXMD5_Router::update(context, &data[0] + offset, data.size() - offset, 0));
  char text[kTextSize];
  EXPECT_EQ(32, KXMD5_Router::complete(context, format, text, kTextSize, 0));
  KXMD5_Router::deleteContext(context, 0);
  return text;
}

// Lengths on both sides of where the padding needs a second block, and of a whole block; an
// unknown format gives lower case.
TEST(KXMD5, EqualsMd5sumWholeOrInOddPiecesAroundEveryBlockEdgeInTheCaseTheFormatAsks) {
  for (const size_t size : {0, 3, 55, 56, 63, 64, 65, 3 * 1024 * 1024 + 17}) {
    const std::string bytes = kxtest::randomBytes(size, static_cast<unsigned>(size));
    EXPECT_EQ(kxtest::md5sumOf(bytes), digestOf(bytes)) << size;
    EXPECT_EQ(kxtest::md5sumOf(bytes), digestOf(bytes, '?', {1, 7, 63, 4093, 65537, 0, 333333}))
        << size;
  }
  EXPECT_EQ("900150983CD24FB0D6963F7D28E17F72", digestOf("abc", 'X'));
}

TEST(KXMD5, WritesAtMostOutSizeCharactersAndANulOnlyWhenThereIsRoom) {
  const std::string digits = "900150983cd24fb0d6963f7d28e17f72";
  const struct {
    long outSize, written;
    std::string buffer;
  } cases[] = {{33, 32, digits + '\0' + std::string(7, '#')},
               {32, 32, digits + std::string(8, '#')},
               {10, 10, digits.substr(0, 10) + std::string(30, '#')},
               {0, 0, std::string(40, '#')}};
  for (const auto& c : cases) {
    void* context = KXMD5CreateContext();
    char data[] = "abc";
    KXMD5Update(context, data, 3);
    std::string buffer(40, '#');
    EXPECT_EQ(c.written, KXMD5Complete(context, 'x', &buffer[0], c.outSize)) << c.outSize;
    EXPECT_EQ(c.buffer, buffer) << c.outSize;
    KXMD5DeleteContext(context);
  }
}

// A completed context starts a fresh digest.
TEST(KXMD5, NullAndInvalidArgumentsFailAndACompletedContextStartsAfresh) {
  char data[] = "abc";
  char text[kTextSize];
  EXPECT_EQ(-1, KXMD5Update(nullptr, data, 3));
  EXPECT_EQ(-1, KXMD5Complete(nullptr, 'x', text, kTextSize));
  KXMD5DeleteContext(nullptr);
  void* context = KXMD5CreateContext();
  ASSERT_NE(nullptr, context);
  EXPECT_EQ(-1, KXMD5Update(context, nullptr, 1));
  EXPECT_EQ(0, KXMD5Update(context, nullptr, 0));
  EXPECT_EQ(-1, KXMD5Complete(context, 'x', nullptr, kTextSize));
  EXPECT_EQ(-1, KXMD5Complete(context, 'x', text, -1));
  EXPECT_EQ(32, KXMD5Complete(context, 'x', text, kTextSize));
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", text);
  KXMD5Update(context, data, 1);
  EXPECT_EQ(32, KXMD5Complete(context, 'x', text, kTextSize));
  EXPECT_STREQ("0cc175b9c0f1b6a831c399e269772661", text);
  KXMD5DeleteContext(context);
}

// The sanitizer build's leak checker sees a block the guard kept or freed twice.
TEST(StMalloc, OwnsAWritableBlockUntilReleased) {
  const StMalloc block(4096, 0);
  ASSERT_NE(nullptr, block.get());
  std::memset(block.get(), 0xab, 4096);
  const StMalloc empty(0, 0);
  void* released = nullptr;
  {
    StMalloc owner(64, 0);
    void* original = owner.get();
    released = owner.release();
    EXPECT_EQ(original, released);
    EXPECT_EQ(nullptr, owner.get());
  }
  std::memset(released, 0, 64);
  free(released);
}

TEST(StMalloc, NegativeSizeThrowsOutOfMemoryAndLogsIt) {
  kxtest::LogCapture capture(false, 1);
  EXPECT_EQ(12, kxtest::thrownBy<KXOutOfMemException>([] { StMalloc block(-1, 0); }).GetCode());
  EXPECT_EQ(1, capture.count(1, "KXOutOfMemException"));
}

TEST(KXObjectGuid, IsLowerCaseUnlessOverriddenAndKeepsACopyOfTheIdUntilCleared) {
  struct UpperCaseGuid : KXObjectGuid {
    char GetFormat() const override { return 'X'; }
  } upper;
  const KXObjectGuid& throughBase = upper;
  EXPECT_EQ('X', throughBase.GetFormat());
  KXObjectGuid guid;
  EXPECT_EQ('x', guid.GetFormat());
  EXPECT_STREQ("", guid.GetID());
  char text[] = "900150983cd24fb0d6963f7d28e17f72";
  guid.SetID(text);
  text[0] = '#';
  EXPECT_STREQ("900150983cd24fb0d6963f7d28e17f72", guid.GetID());
  const KXObjectGuid copy(guid);
  guid.SetID(nullptr);
  EXPECT_STREQ("", guid.GetID());
  EXPECT_STREQ("900150983cd24fb0d6963f7d28e17f72", copy.GetID());
}

}  // namespace
