#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "KXLogging.h"
#include "KXTestSupport.h"

namespace {

void logEveryLevel() {
  KXLogging::Log(1, 1024, "error %d", 1);
  KXLogging::Log(2, 1024, "warning %d", 2);
  KXLogging::Debug(1024, "debug %d", 3);
}

std::vector<verbosity_level_t> levelsOf(const kxtest::LogCapture& capture) {
  std::vector<verbosity_level_t> levels;
  for (const kxtest::LogLine& line : capture.lines()) {
    levels.push_back(line.level);
  }
  return levels;
}

// Sends standard error into a file for the scope's lifetime.
class StandardErrorToFile {
 public:
  explicit StandardErrorToFile(const std::string& path) : mSaved(dup(STDERR_FILENO)) {
    fflush(stderr);
    FILE* file = fopen(path.c_str(), "wb");
    dup2(fileno(file), STDERR_FILENO);
    fclose(file);
  }
  ~StandardErrorToFile() {
    fflush(stderr);
    dup2(mSaved, STDERR_FILENO);
    close(mSaved);
  }

 private:
  int mSaved;
};

std::string contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

TEST(KXLogging, NothingPassesByDefault) {
  EXPECT_FALSE(KXLogging::isDebugLogging());
  EXPECT_EQ(KXLogging::getVerbosity(), 0);
  kxtest::LogCapture capture(false, 0);
  logEveryLevel();
  KXLogging::Log(0, 1024, "level zero");
  EXPECT_TRUE(capture.lines().empty());
}

TEST(KXLogging, VerbosityPassesLevelsUpToIt) {
  kxtest::LogCapture capture(false, 2);
  logEveryLevel();
  EXPECT_EQ(levelsOf(capture), (std::vector<verbosity_level_t>{1, 2}));
}

TEST(KXLogging, DebugSwitchPassesEveryLevel) {
  kxtest::LogCapture capture(true, 0);
  EXPECT_TRUE(KXLogging::isDebugLogging());
  logEveryLevel();
  EXPECT_EQ(levelsOf(capture), (std::vector<verbosity_level_t>{1, 2, 3}));
}

TEST(KXLogging, SinkReceivesLevelComponentAndFormattedTextWithoutNewline) {
  kxtest::LogCapture capture(false, 3);
  KXLogging::Log(2, 77, "x=%d %s", 5, "y");
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].level, 2);
  EXPECT_EQ(capture.lines()[0].component, 77);
  EXPECT_EQ(capture.lines()[0].text, "x=5 y");
}

TEST(KXLogging, ArgumentTextIsLoggedVerbatimAndUntruncated) {
  kxtest::LogCapture capture(true);
  KXLogging::Log(1, 1024, "%s", "100% done %s %n %%");
  const std::string longText(200000, 'z');
  KXLogging::Debug(1024, "[%s]", longText.c_str());
  ASSERT_EQ(capture.lines().size(), 2u);
  EXPECT_EQ(capture.lines()[0].text, "100% done %s %n %%");
  EXPECT_EQ(capture.lines()[1].text, "[" + longText + "]");
}

TEST(KXLogging, NullSinkRestoresStandardError) {
  kxtest::TempDir directory;
  const std::string errorFile = directory.file("stderr.txt");
  kxtest::LogCapture capture(false, 1);
  KXLogging::setSink(nullptr, nullptr);
  {
    StandardErrorToFile redirect(errorFile);
    KXLogging::Log(1, 1024, "to %s", "stderr");
  }
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_EQ(contentsOf(errorFile), "to stderr\n");
}

TEST(KXLogging, ConcurrentLinesReachTheSinkOneAtATime) {
  kxtest::LogCapture capture(true);
  constexpr int kThreads = 4;
  constexpr int kLinesPerThread = 500;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLinesPerThread; ++line) {
        KXLogging::Debug(1024, "thread %d line %d", thread, line);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(capture.lines().size(), static_cast<size_t>(kThreads * kLinesPerThread));
  EXPECT_EQ(capture.count("thread 3 line 499"), 1);
}

}  // namespace
