#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <thread>

#include "KXStringConversion.h"

namespace {

TEST(KXStringConversion, TextsStayValidAcrossEightFurtherCalls) {
  const char* number = KXStringConversion::toString(12345L);
  const char* text = KXStringConversion::toString("kept");
  for (int call = 0; call < 8; ++call) {
    switch (call % 4) {
      case 0:
        KXStringConversion::toString(static_cast<long>(call));
        break;
      case 1:
        KXStringConversion::toString(static_cast<unsigned char>(call));
        break;
      case 2:
        KXStringConversion::toString("other");
        break;
      default:
        KXStringConversion::removePercent("1%2");
    }
  }
  EXPECT_STREQ(number, "12345");
  EXPECT_STREQ(text, "kept");
}

TEST(KXStringConversion, OtherThreadsDoNotOverwriteThisThreadsTexts) {
  const char* mine = KXStringConversion::toString(777L);
  std::thread other([] {
    for (long call = 0; call < 100; ++call) {
      KXStringConversion::toString(call);
    }
  });
  other.join();
  EXPECT_STREQ(mine, "777");
}

TEST(KXStringConversion, NumbersAreDecimal) {
  EXPECT_STREQ(KXStringConversion::toString(0L), "0");
  EXPECT_STREQ(KXStringConversion::toString(-10006L), "-10006");
  EXPECT_EQ(std::string(KXStringConversion::toString(LONG_MIN)), std::to_string(LONG_MIN));
  EXPECT_EQ(std::string(KXStringConversion::toString(LONG_MAX)), std::to_string(LONG_MAX));
  EXPECT_STREQ(KXStringConversion::toString(static_cast<unsigned char>(0)), "0");
  EXPECT_STREQ(KXStringConversion::toString(static_cast<unsigned char>(1)), "1");
  EXPECT_STREQ(KXStringConversion::toString(static_cast<unsigned char>(255)), "255");
}

TEST(KXStringConversion, TextIsCopiedAndNullBecomesNULL) {
  char source[] = "path";
  const char* copy = KXStringConversion::toString(source);
  std::strcpy(source, "gone");
  EXPECT_STREQ(copy, "path");
  EXPECT_STREQ(KXStringConversion::toString(static_cast<const char*>(nullptr)), "NULL");
}

TEST(KXStringConversion, RemovePercentDropsEveryPercentSign) {
  EXPECT_STREQ(KXStringConversion::removePercent("100% %s%n"), "100 sn");
  EXPECT_STREQ(KXStringConversion::removePercent("%%%"), "");
  EXPECT_STREQ(KXStringConversion::removePercent("plain"), "plain");
  EXPECT_STREQ(KXStringConversion::removePercent(nullptr), "NULL");
}

}  // namespace
