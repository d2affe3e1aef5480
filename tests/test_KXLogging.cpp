#include "KXLogging.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "KXStringConversion.h"
#include "KXTestSupport.h"

namespace {

using kxtest::LogCapture;

TEST(KXLogging, ALinePassesWhenDebugIsOnOrItsLevelIsAtMostTheVerbosity) {
  EXPECT_FALSE(KXLogging::isDebugLogging());
  EXPECT_EQ(0, KXLogging::getVerbosity());
  const struct {
    bool debug;
    verbosity_level_t verbosity;
    std::vector<verbosity_level_t> passing;
  } cases[] = {{false, 0, {}}, {false, 2, {0, 1, 2}}, {true, 0, {0, 1, 2, 3}}};
  for (const auto& c : cases) {
    LogCapture capture(c.debug, c.verbosity);
    EXPECT_EQ(c.debug, KXLogging::isDebugLogging());
    EXPECT_EQ(c.verbosity, KXLogging::getVerbosity());
    KXLogging::Log(0, 1024, "level %d", 0);
    KXLogging::Log(1, 1024, "level %d", 1);
    KXLogging::Log(2, 1024, "level %d", 2);
    KXLogging::Debug(1024, "level %d", 3);
    std::vector<verbosity_level_t> levels;
    for (const kxtest::LogLine& line : capture.lines()) {
      levels.push_back(line.level);
      EXPECT_EQ("level " + std::to_string(line.level), line.text);
    }
    EXPECT_EQ(c.passing, levels) << c.debug << " " << c.verbosity;
  }
}

TEST(KXLogging, SinkReceivesComponentAndFormattedTextVerbatimUntruncatedWithoutNewline) {
  LogCapture capture(true);
  KXLogging::Log(2, 77, "x=%d %s", 5, "y");
  KXLogging::Log(1, 1024, "%s", "100% done %s %n %%");
  const std::string longText(200000, 'z');
  KXLogging::Debug(1024, "[%s]", longText.c_str());
  ASSERT_EQ(3u, capture.lines().size());
  EXPECT_EQ(77, capture.lines()[0].component);
  EXPECT_EQ("x=5 y", capture.lines()[0].text);
  EXPECT_EQ("100% done %s %n %%", capture.lines()[1].text);
  EXPECT_EQ("[" + longText + "]", capture.lines()[2].text);
}

TEST(KXLogging, NullSinkRestoresStandardErrorWithANewline) {
  kxtest::TempDir dir;
  const std::string errorFile = dir.file("stderr.txt");
  LogCapture capture(false, 1);
  KXLogging::setSink(nullptr, nullptr);
  fflush(stderr);
  const int saved = dup(STDERR_FILENO);
  FILE* file = fopen(errorFile.c_str(), "wb");
  dup2(fileno(file), STDERR_FILENO);
  fclose(file);
  KXLogging::Log(1, 1024, "to %s", "stderr");
  fflush(stderr);
  dup2(saved, STDERR_FILENO);
  close(saved);
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_EQ("to stderr\n", kxtest::fileContents(errorFile));
}

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
