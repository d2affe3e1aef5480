#include "KXLogging.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "KXStringConversion.h"
#include "KXTestSupport.h"

namespace {

using kxtest::LogCapture;

TEST(KXLogging, ALinePassesWhenDebugIsOnOrItsLevelIsAtMostTheVerbosity) {
  const struct {
    bool debug;
    verbosity_level_t verbosity;
    std::vector<verbosity_level_t> passing;
  } cases[] = {{false, 0, {}}, {false, 2, {0, 1, 2}}, {true, 0, {0, 1, 2, 3}}};
  for (const auto& c : cases) {
    LogCapture capture(c.debug, c.verbosity);
    for (verbosity_level_t level = 0; level < 3; ++level) {
      KXLogging::Log(level, 1024, "level");
    }
    KXLogging::Debug(1024, "level");
    std::vector<verbosity_level_t> levels;
    for (const kxtest::LogLine& line : capture.lines()) {
      levels.push_back(line.level);
    }
    EXPECT_EQ(c.passing, levels) << c.debug << " " << c.verbosity;
  }
}

TEST(KXLogging, SinkReceivesComponentAndFormattedTextVerbatimUntruncatedWithoutNewline) {
  LogCapture capture(true);
  const std::string longText(200000, 'z');
  KXLogging::Log(2, 77, "x=%d %s [%s]", 5, "100% %n", longText.c_str());
  ASSERT_EQ(1u, capture.lines().size());
  EXPECT_EQ(77, capture.lines()[0].component);
  EXPECT_EQ("x=5 100% %n [" + longText + "]", capture.lines()[0].text);
}

TEST(KXLogging, NullSinkRestoresStandardErrorWithANewline) {
  kxtest::TempDir dir;
  const std::string errorFile = dir.file("stderr.txt");
  EXPECT_EQ(0, kxtest::inChild([&] {
              LogCapture capture(false, 1);
              KXLogging::setSink(nullptr, nullptr);
              if (freopen(errorFile.c_str(), "w", stderr) == nullptr) {
                return 1;
              }
              KXLogging::Log(1, 1024, "to %s", "stderr");
              return capture.lines().empty() && fflush(stderr) == 0 ? 0 : 2;
            }));
  EXPECT_EQ("to stderr\n", kxtest::fileContents(errorFile));
}

using Conversion = KXStringConversion;

// Eight more calls of every kind on this thread, and any number on another, leave a text alone.
TEST(KXStringConversion, TextsStayValidAcrossEightFurtherCallsAndOtherThreads) {
  const char* number = Conversion::toString(12345L);
  char source[] = "kept";
  const char* text = Conversion::toString(source);
  source[0] = '#';  // the text is a copy
  for (int call = 0; call < 2; ++call) {
    Conversion::toString(static_cast<long>(call));
    Conversion::toString(static_cast<unsigned char>(call));
    Conversion::toString("other");
    Conversion::removePercent("1%2");
  }
  std::thread([] {
    for (long call = 0; call < 100; ++call) {
      Conversion::toString(call);
    }
  }).join();
  EXPECT_STREQ("12345", number);
  EXPECT_STREQ("kept", text);
}

TEST(KXStringConversion, ConvertsNumbersToDecimalAndCopiesTextsWithNullAsNULL) {
  EXPECT_EQ(std::to_string(LONG_MIN), Conversion::toString(LONG_MIN));
  EXPECT_STREQ("255", Conversion::toString(static_cast<unsigned char>(255)));
  EXPECT_STREQ("NULL", Conversion::toString(static_cast<const char*>(nullptr)));
  EXPECT_STREQ("100 sn", Conversion::removePercent("100% %s%n"));
  EXPECT_STREQ("NULL", Conversion::removePercent(nullptr));
}

}  // namespace
