#include "KXMD5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "KXTestSupport.h"

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

TEST(KXMD5, DigestsTheRfc1321TestSuiteInTheCaseTheFormatAsks) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& vector : vectors) {
    EXPECT_EQ(vector.second, digestOf(vector.first)) << '"' << vector.first << '"';
  }
  EXPECT_EQ("900150983CD24FB0D6963F7D28E17F72", digestOf("abc", 'X'));
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", digestOf("abc", '?'));
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
  EXPECT_EQ(-1, KXMD5Update(context, nullptr, 3));
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

TEST(KXMD5, StreamingInOddPiecesEqualsOneShotAndMd5sum) {
  const std::string bytes = kxtest::randomBytes(3 * 1024 * 1024 + 17, 1321);
  const std::string oneShot = digestOf(bytes);
  EXPECT_EQ(oneShot, digestOf(bytes, 'x', {1, 7, 63, 4093, 65537, 0, 333333}));
  EXPECT_EQ(kxtest::md5sumOf(bytes), oneShot);
}

}  // namespace
