// The utilities layer: exceptions, logging and text conversion, MD5 and temporary files (the
// scratch allocator and the identifier object are used by every stream test).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "KXException.h"
#include "KXLogging.h"
#include "KXMD5.h"
#include "KXStringConversion.h"
#include "KXTempFile.h"
#include "KXTestSupport.h"

namespace {

const char* const kWhat = "KXStreamException (code -10006): File path validation error. Perm=rb";

KXStreamException makeEnrichedException() {
  KXStreamException exception(-10006);
  exception.SetMessage("File path validation error. Perm=%s", "rb");
  exception.addTrace("KXFileStream.ValidatePath(%s)", "/no/such");
  exception.addTrace("KXBasicGenericStream.read");
  return exception;
}

void expectEnrichedState(const KXException& exception) {
  EXPECT_EQ(-10006, exception.GetCode());
  EXPECT_STREQ("File path validation error. Perm=rb", exception.GetMessage());
  EXPECT_EQ("KXFileStream.ValidatePath(/no/such) | KXBasicGenericStream.read",
            kxtest::traces(exception));
  EXPECT_STREQ("", exception.GetTrace(2));
  EXPECT_STREQ("", exception.GetTrace(-1));
}

// A copy or an assignment through a base class keeps all three parts, and what() describes the
// new state even when the target had already composed its own.
TEST(KXException, CopiesAndAssignmentsThroughAnyBaseKeepCodeMessageTracesAndWhat) {
  const KXStreamException original = makeEnrichedException();
  EXPECT_STREQ(kWhat, original.what());
  // NOLINTNEXTLINE(cppcoreguidelines-slicing,performance-unnecessary-copy-initialization)
  const KXApplicationException copy(original);  // a copy through another class, on purpose
  expectEnrichedState(copy);
  EXPECT_STREQ("KXApplicationException (code -10006): File path validation error. Perm=rb",
               copy.what());
  KXStreamException assigned(5);
  EXPECT_STREQ("KXStreamException (code 5, Input/output error)", assigned.what());
  static_cast<KXException&>(assigned) = original;  // NOLINT(cppcoreguidelines-slicing)
  expectEnrichedState(assigned);
  EXPECT_STREQ(kWhat, assigned.what());
  assigned = assigned;  // NOLINT(clang-diagnostic-self-assign-overloaded): must change nothing
  EXPECT_STREQ(kWhat, assigned.what());
}

// A new message shows in what(); percent signs of the message and traces are kept as they are.
TEST(KXException, LogWritesOneErrorLineNamingEverything) {
  kxtest::LogCapture capture(false, 1);
  KXStreamException exception = makeEnrichedException();
  EXPECT_STREQ(kWhat, exception.what());  // composed before the message changes
  exception.SetMessage("%s", "100%s%n");
  EXPECT_STREQ("KXStreamException (code -10006): 100%s%n", exception.what());
  exception.log("natives/streams/KXFileStream", 123);
  ASSERT_EQ(1u, capture.lines().size());
  EXPECT_EQ(1, capture.lines()[0].level);
  EXPECT_EQ(1024, capture.lines()[0].component);
  EXPECT_EQ(
      "KXStreamException (code -10006): 100%s%n; traces: KXFileStream.ValidatePath(/no/such) | "
      "KXBasicGenericStream.read; at natives/streams/KXFileStream:123",
      capture.lines()[0].text);
}

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

// Without a sink, each line goes to standard error with a newline.
TEST(KXLogging, WithoutASinkALineGoesToStandardError) {
  LogCapture verbose(false, 1);
  KXLogging::setSink(nullptr, nullptr);
  testing::internal::CaptureStderr();
  KXLogging::Log(1, 1024, "to %s", "stderr");
  EXPECT_EQ("to stderr\n", testing::internal::GetCapturedStderr());
}

using Conversion = KXStringConversion;

// Numbers in decimal, texts copied (null as "NULL"), percent signs removed; eight more calls of
// every kind on this thread, and any number on another, leave a text alone.
TEST(KXStringConversion, ConvertsIntoTextsThatStayValidAcrossEightFurtherCallsAndOtherThreads) {
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
  EXPECT_EQ(std::to_string(LONG_MIN), Conversion::toString(LONG_MIN));
  EXPECT_STREQ("255", Conversion::toString(static_cast<unsigned char>(255)));
  EXPECT_STREQ("NULL", Conversion::toString(static_cast<const char*>(nullptr)));
  EXPECT_STREQ("100 sn", Conversion::removePercent("100% %s%n"));
  EXPECT_STREQ("NULL", Conversion::removePercent(nullptr));
}

// The 'format' digest of bytes through the router, fed in pieces of 1, 7, 63, ... (cycled).
std::string digestOf(std::string bytes, char format) {
  void* context = KXMD5_Router::createContext();
  const size_t pieces[] = {1, 7, 63, 4093, 65537, 0, 333333};
  for (size_t offset = 0, index = 0; offset < bytes.size(); ++index) {
    const size_t length = std::min(pieces[index % 7], bytes.size() - offset);
    EXPECT_EQ(0, KXMD5_Router::update(context, &bytes[offset], length, 0));
    offset += length;
  }
  char text[65];
  EXPECT_EQ(32, KXMD5_Router::complete(context, format, text, sizeof text, 0));
  KXMD5_Router::deleteContext(context, 0);
  return text;
}

// Lengths on both sides of where the padding needs a second block, and of a whole block; an
// unknown format gives lower case.
TEST(KXMD5, EqualsMd5sumInOddPiecesAroundEveryBlockEdgeInTheCaseTheFormatAsks) {
  for (const size_t size : {0, 55, 56, 63, 64, 65, 3 * 1024 * 1024 + 17}) {
    const std::string bytes = kxtest::randomBytes(size, static_cast<unsigned>(size));
    EXPECT_EQ(kxtest::md5sumOf(bytes), digestOf(bytes, '?')) << size;
  }
  EXPECT_EQ("900150983CD24FB0D6963F7D28E17F72", digestOf("abc", 'X'));
}

TEST(KXMD5, CompletesIntoAtMostOutSizeCharactersAndRefusesInvalidArguments) {
  char abc[] = "abc";
  std::string text(40, '#');
  EXPECT_EQ(-1, KXMD5Update(nullptr, abc, 3));
  EXPECT_EQ(-1, KXMD5Complete(nullptr, 'x', &text[0], 33));
  KXMD5DeleteContext(nullptr);
  void* context = KXMD5CreateContext();
  EXPECT_EQ(-1, KXMD5Update(context, nullptr, 1));
  EXPECT_EQ(0, KXMD5Update(context, nullptr, 0));
  EXPECT_EQ(-1, KXMD5Complete(context, 'x', nullptr, 33));
  EXPECT_EQ(-1, KXMD5Complete(context, 'x', &text[0], -1));
  // Each round completes the context and starts a fresh digest in it; a NUL only with room.
  for (const long outSize : {33L, 32L, 10L, 0L}) {
    text.assign(40, '#');
    KXMD5Update(context, abc, 3);
    EXPECT_EQ(std::min(outSize, 32L), KXMD5Complete(context, 'x', &text[0], outSize));
    EXPECT_EQ(std::string("900150983cd24fb0d6963f7d28e17f72\0", std::min(outSize, 33L)) +
                  std::string(static_cast<size_t>(40 - std::min(outSize, 33L)), '#'),
              text)
        << outSize;
  }
  KXMD5DeleteContext(context);
}

using namespace kxtest;

// Whatever the umask, in a usable $TMPDIR (left empty) or else in /tmp. That the descriptor goes
// with its owner is seen by the temporary stream's test, which counts descriptors.
TEST(KXTempFile, IsAnEmptyUnlinkedOwnerOnlyFileInAUsableTmpdirElseInTmp) {
  TempDir dir;
  const std::string usable = dir.file("usable");
  ASSERT_EQ(0, mkdir(usable.c_str(), 0700));
  const char* const tmpdir = getenv("TMPDIR");
  const std::string previousTmpdir = tmpdir != nullptr ? tmpdir : "";
  const mode_t previousMask = umask(0277);
  for (const std::string& value :
       {usable, std::string(), dir.file("missing"), dir.writeFile("plain", "x")}) {
    setenv("TMPDIR", value.c_str(), 1);
    const KXTempFile file;
    const int fd = fileno(file.getFile());
    struct stat status {};
    ASSERT_EQ(0, fstat(fd, &status));
    EXPECT_EQ(std::make_tuple(true, nlink_t{0}, 0600u, off_t{0}, FD_CLOEXEC),
              std::make_tuple(S_ISREG(status.st_mode), status.st_nlink, status.st_mode & 07777,
                              status.st_size, fcntl(fd, F_GETFD) & FD_CLOEXEC));
    char target[4096] = {};
    ASSERT_GT(readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, 4095), 0);
    EXPECT_EQ(0u, std::string(target).rfind(value == usable ? usable + "/" : "/tmp/", 0))
        << value << ": " << target;
  }
  umask(previousMask);
  tmpdir != nullptr ? setenv("TMPDIR", previousTmpdir.c_str(), 1) : unsetenv("TMPDIR");
  EXPECT_EQ(0, rmdir(usable.c_str())) << "the directory must be left empty";
}

}  // namespace
