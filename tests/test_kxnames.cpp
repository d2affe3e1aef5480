#include <gtest/gtest.h>

#include <string>

#include "kxos.h"

namespace {

// The process lister's command name of this test program, line end turned into a blank.
constexpr const char* kOwnName = "test_kxnames ";

TEST(KxGetAppName, ReturnsTheCommandNameWithItsTrailingBlank) {
  char buffer[64];
  EXPECT_EQ(kx_GetAppName(buffer, sizeof buffer), 13);
  EXPECT_STREQ(buffer, kOwnName);
}

TEST(KxGetAppName, CutsTheNameToTheBufferAndWritesNothingWithoutRoom) {
  char buffer[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(kx_GetAppName(buffer, 4), 3);
  EXPECT_STREQ(buffer, "tes");
  char untouched = '#';
  EXPECT_EQ(kx_GetAppName(&untouched, 0), 0);
  EXPECT_EQ(untouched, '#');
  EXPECT_EQ(kx_GetAppName(buffer, 1), 0);
  EXPECT_STREQ(buffer, "");
}

TEST(KxAdjustLibName, PutsTheBitWidthBeforeTheSuffix) {
  struct Case {
    const char* base;
    const char* suffix;
    const char* expected;
  };
  for (const Case& c :
       {Case{"stream", nullptr, "libstream64.so"}, Case{"stream", "_d", "libstream64_d.so"},
        Case{"", nullptr, "lib64.so"}, Case{"KXUtils", "", "libKXUtils64.so"}}) {
    char* name = kx_adjustLibName(c.base, c.suffix);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, c.expected);
    kx_free(name);
  }
}

}  // namespace
