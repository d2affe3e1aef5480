#include "KXStringConversion.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <thread>

namespace {

using Conversion = KXStringConversion;

// Eight more calls of every kind on this thread, and any number on another, leave a text alone.
TEST(KXStringConversion, TextsStayValidAcrossEightFurtherCallsAndOtherThreads) {
  const char* number = Conversion::toString(12345L);
  const char* text = Conversion::toString("kept");
  for (int call = 0; call < 2; ++call) {
    Conversion::toString(static_cast<long>(call));
    Conversion::toString(static_cast<unsigned char>(call));
    Conversion::toString("other");
    Conversion::removePercent("1%2");
  }
  std::thread other([] {
    for (long call = 0; call < 100; ++call) {
      Conversion::toString(call);
    }
  });
  other.join();
  EXPECT_STREQ("12345", number);
  EXPECT_STREQ("kept", text);
}

TEST(KXStringConversion, ConvertsNumbersToDecimalAndCopiesTextsWithNullAsNULL) {
  EXPECT_STREQ("-10006", Conversion::toString(-10006L));
  EXPECT_EQ(std::to_string(LONG_MIN), Conversion::toString(LONG_MIN));
  EXPECT_EQ(std::to_string(LONG_MAX), Conversion::toString(LONG_MAX));
  for (int byte : {0, 1, 255}) {
    EXPECT_EQ(std::to_string(byte), Conversion::toString(static_cast<unsigned char>(byte)));
  }
  char source[] = "path";
  const char* copy = Conversion::toString(source);
  std::strcpy(source, "gone");
  EXPECT_STREQ("path", copy);
  EXPECT_STREQ("NULL", Conversion::toString(static_cast<const char*>(nullptr)));
}

TEST(KXStringConversion, RemovePercentDropsEveryPercentSign) {
  EXPECT_STREQ("100 sn", Conversion::removePercent("100% %s%n"));
  EXPECT_STREQ("", Conversion::removePercent("%%%"));
  EXPECT_STREQ("NULL", Conversion::removePercent(nullptr));
}

}  // namespace
