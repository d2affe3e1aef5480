#include "KXMD5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "KXException.h"
#include "KXObjectGuid.h"
#include "KXTestSupport.h"
#include "StMalloc.h"

namespace {

// The 'format' digest of bytes through the router, fed in pieces of 1, 7, 63, ... (cycled).
std::string digestOf(std::string bytes, char format, bool inPieces) {
  void* context = KXMD5_Router::createContext();
  const size_t pieces[] = {1, 7, 63, 4093, 65537, 0, 333333};
  size_t offset = 0;
  for (size_t index = 0; inPieces && offset < bytes.size(); ++index) {
    const size_t length = std::min(pieces[index % 7], bytes.size() - offset);
    EXPECT_EQ(0, KXMD5_Router::update(context, &bytes[offset], length, 0));
    offset += length;
  }
  EXPECT_EQ(0, KXMD5_Router::update(context, &bytes[0] + offset, bytes.size() - offset, 0));
  char text[65];
  EXPECT_EQ(32, KXMD5_Router::complete(context, format, text, sizeof text, 0));
  KXMD5_Router::deleteContext(context, 0);
  return text;
}

// Lengths on both sides of where the padding needs a second block, and of a whole block; an
// unknown format gives lower case.
TEST(KXMD5, EqualsMd5sumWholeOrInOddPiecesAroundEveryBlockEdgeInTheCaseTheFormatAsks) {
  for (const size_t size : {0, 55, 56, 63, 64, 65, 3 * 1024 * 1024 + 17}) {
    const std::string bytes = kxtest::randomBytes(size, static_cast<unsigned>(size));
    EXPECT_EQ(kxtest::md5sumOf(bytes), digestOf(bytes, 'x', false)) << size;
    EXPECT_EQ(kxtest::md5sumOf(bytes), digestOf(bytes, '?', true)) << size;
  }
  EXPECT_EQ("900150983CD24FB0D6963F7D28E17F72", digestOf("abc", 'X', false));
}

TEST(KXMD5, WritesAtMostOutSizeCharactersAndANulOnlyWhenThereIsRoom) {
  const std::string digits = "900150983cd24fb0d6963f7d28e17f72";
  const struct {
    long outSize;
    std::string buffer;
  } cases[] = {{33, digits + '\0' + std::string(7, '#')},
               {32, digits + std::string(8, '#')},
               {10, digits.substr(0, 10) + std::string(30, '#')},
               {0, std::string(40, '#')}};
  for (const auto& c : cases) {
    void* context = KXMD5CreateContext();
    KXMD5Update(context, &std::string("abc")[0], 3);
    std::string buffer(40, '#');
    EXPECT_EQ(std::min(c.outSize, 32L), KXMD5Complete(context, 'x', &buffer[0], c.outSize));
    EXPECT_EQ(c.buffer, buffer) << c.outSize;
    KXMD5DeleteContext(context);
  }
}

// A completed context starts a fresh digest.
TEST(KXMD5, NullAndInvalidArgumentsFailAndACompletedContextStartsAfresh) {
  char data[] = "abc";
  char text[33];
  EXPECT_EQ(-1, KXMD5Update(nullptr, data, 3));
  EXPECT_EQ(-1, KXMD5Complete(nullptr, 'x', text, 33));
  KXMD5DeleteContext(nullptr);
  void* context = KXMD5CreateContext();
  EXPECT_EQ(-1, KXMD5Update(context, nullptr, 1));
  EXPECT_EQ(0, KXMD5Update(context, nullptr, 0));
  EXPECT_EQ(-1, KXMD5Complete(context, 'x', nullptr, 33));
  EXPECT_EQ(-1, KXMD5Complete(context, 'x', text, -1));
  EXPECT_EQ(32, KXMD5Complete(context, 'x', text, 33));
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", text);
  KXMD5Update(context, data, 1);
  EXPECT_EQ(32, KXMD5Complete(context, 'x', text, 33));
  EXPECT_STREQ("0cc175b9c0f1b6a831c399e269772661", text);
  KXMD5DeleteContext(context);
}

// The sanitizer build's leak checker sees a block the guard kept or freed twice.
TEST(StMalloc, OwnsAWritableBlockUntilReleased) {
  const StMalloc empty(0, 0);
  StMalloc owner(64, 0);
  std::memset(owner.get(), 0xab, 64);
  void* released = owner.release();
  EXPECT_EQ(nullptr, owner.get());
  free(released);
}

TEST(StMalloc, NegativeSizeThrowsOutOfMemoryAndLogsIt) {
  kxtest::LogCapture capture(false, 1);
  EXPECT_EQ(12, kxtest::thrownBy<KXOutOfMemException>([] { StMalloc block(-1, 0); }).GetCode());
  EXPECT_EQ(1, capture.count(1, "KXOutOfMemException"));
}

TEST(KXObjectGuid, IsLowerCaseUnlessOverriddenAndKeepsACopyOfTheIdUntilCleared) {
  KXObjectGuid guid;
  EXPECT_EQ('x', guid.GetFormat());
  std::string text = "9001";
  guid.SetID(text.c_str());
  text[0] = '#';
  EXPECT_STREQ("9001", guid.GetID());
  guid.SetID(nullptr);
  EXPECT_STREQ("", guid.GetID());
}

}  // namespace
