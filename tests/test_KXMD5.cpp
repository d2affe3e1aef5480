#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "KXMD5.h"
#include "KXTestSupport.h"

namespace {

constexpr long kTextSize = 65;

// The 'format' digest of bytes through the router, fed in pieces of the given sizes (cycled).
std::string digestOf(const std::string& bytes, char format = 'x',
                     const std::vector<size_t>& pieces = {}) {
  void* context = KXMD5_Router::createContext();
  EXPECT_NE(context, nullptr);
  std::string data = bytes;
  size_t offset = 0;
  for (size_t index = 0; !pieces.empty() && offset < data.size(); ++index) {
    const size_t length = std::min(pieces[index % pieces.size()], data.size() - offset);
    EXPECT_EQ(KXMD5_Router::update(context, &data[offset], length, 0), 0);
    offset += length;
  }
  EXPECT_EQ(KXMD5_Router::update(context, &data[0] + offset, data.size() - offset, 0), 0);
  char text[kTextSize];
  EXPECT_EQ(KXMD5_Router::complete(context, format, text, kTextSize, 0), 32);
  KXMD5_Router::deleteContext(context, 0);
  return text;
}

// Completes a digest of "abc" into a buffer of outSize bytes prefilled with '#'.
std::string completeInto(long outSize, long* written) {
  void* context = KXMD5CreateContext();
  char data[] = "abc";
  KXMD5Update(context, data, 3);
  std::string buffer(40, '#');
  *written = KXMD5Complete(context, 'x', &buffer[0], outSize);
  KXMD5DeleteContext(context);
  return buffer;
}

TEST(KXMD5, Rfc1321TestSuite) {
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
    EXPECT_EQ(digestOf(vector.first), vector.second) << '"' << vector.first << '"';
  }
}

TEST(KXMD5, FormatSelectsLetterCase) {
  EXPECT_EQ(digestOf("abc", 'X'), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(digestOf("abc", '?'), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(KXMD5, OutSizeLimitsWhatIsWritten) {
  const std::string digits = "900150983cd24fb0d6963f7d28e17f72";
  long written = 0;
  EXPECT_EQ(completeInto(33, &written), digits + '\0' + std::string(7, '#'));
  EXPECT_EQ(written, 32);
  // No room for the NUL: the digits only, the next byte untouched.
  EXPECT_EQ(completeInto(32, &written), digits + std::string(8, '#'));
  EXPECT_EQ(written, 32);
  EXPECT_EQ(completeInto(10, &written), digits.substr(0, 10) + std::string(30, '#'));
  EXPECT_EQ(written, 10);
  EXPECT_EQ(completeInto(0, &written), std::string(40, '#'));
  EXPECT_EQ(written, 0);
}

TEST(KXMD5, NullAndInvalidArgumentsFail) {
  char data[] = "abc";
  char text[kTextSize];
  EXPECT_EQ(KXMD5Update(nullptr, data, 3), -1);
  EXPECT_EQ(KXMD5Complete(nullptr, 'x', text, kTextSize), -1);
  KXMD5DeleteContext(nullptr);

  void* context = KXMD5CreateContext();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(KXMD5Update(context, nullptr, 3), -1);
  EXPECT_EQ(KXMD5Update(context, nullptr, 0), 0);
  EXPECT_EQ(KXMD5Complete(context, 'x', nullptr, kTextSize), -1);
  EXPECT_EQ(KXMD5Complete(context, 'x', text, -1), -1);
  EXPECT_EQ(KXMD5Complete(context, 'x', text, kTextSize), 32);
  EXPECT_STREQ(text, "d41d8cd98f00b204e9800998ecf8427e");
  KXMD5DeleteContext(context);
}

TEST(KXMD5, CompletedContextStartsAFreshDigest) {
  void* context = KXMD5CreateContext();
  char data[] = "abc";
  char text[kTextSize];
  KXMD5Update(context, data, 3);
  KXMD5Complete(context, 'x', text, kTextSize);
  KXMD5Update(context, data, 1);
  EXPECT_EQ(KXMD5Complete(context, 'x', text, kTextSize), 32);
  EXPECT_STREQ(text, "0cc175b9c0f1b6a831c399e269772661");
  KXMD5DeleteContext(context);
}

TEST(KXMD5, StreamingInOddPiecesEqualsOneShotAndMd5sum) {
  const std::string bytes = kxtest::randomBytes(3 * 1024 * 1024 + 17, 1321);
  const std::string oneShot = digestOf(bytes);
  EXPECT_EQ(digestOf(bytes, 'x', {1, 7, 63, 4093, 65537, 0, 333333}), oneShot);

  kxtest::TempDir directory;
  EXPECT_EQ(kxtest::md5sumOfFile(directory.writeFile("random.bin", bytes)), oneShot);
}

}  // namespace
