#include "KXDescriptorStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>

#include "KXObjectGuid.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;
using Kind = KXDescriptorStream;

// Everything the stream delivers up to its end.
std::string readAll(KXBasicGenericStream& stream) { return readString(stream, 1 << 20); }

TEST(KXDescriptorStream, RegularFileHasItsLengthFromTheCurrentOffsetAndMarks) {
  TempDir dir;
  const std::string content = randomBytes(50000, 4);
  const int descriptor = open(dir.writeFile("data", content).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(100, lseek(descriptor, 100, SEEK_SET));
  auto stream = opened<Kind>(descriptor, Kind::eIn, 16384, KXBool{1});
  EXPECT_EQ(49900, stream->GetLength());
  KXObjectGuid id;
  stream->calcID(id, -1);
  EXPECT_EQ(0, stream->GetStreamPos());
  EXPECT_TRUE(content.substr(100) == readAll(*stream));
  stream.reset();
  EXPECT_EQ(-1, fcntl(descriptor, F_GETFD)) << "an owned descriptor stayed open";
}

// A failed open names the system's reason; a bad argument is refused with code 0 and the reason.
TEST(KXDescriptorStream, RefusesBadArgumentsAndFailedOpensAtInitWithTheReason) {
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[] { opened<Kind>("/no/such/file", Kind::eIn, 1); },
       "KXFileSystemException (code 2, No such file or directory): failed to open input file "
       "(/no/such/file)"},
      {[] { opened<Kind>("/", Kind::eIn, 1); },
       "KXFileSystemException (code 21, Is a directory): failed to open input file (/)"},
      {[] { opened<Kind>(1000, Kind::eIn, 1, KXBool{0}); },
       "KXFileSystemException (code 9, Bad file descriptor): fstat failed (descriptor 1000)"},
      {[] { opened<Kind>(0, static_cast<Kind::EIoFlag>(7), 1, KXBool{0}); },
       "KXParameterException (code 0): invalid direction 7: expected eIn (0) or eOut (1)"},
      {[] { opened<Kind>(0, Kind::eIn, 0, KXBool{0}); },
       "KXParameterException (code 0): the buffer size must be positive"},
      {[] { opened<Kind>(-1, Kind::eOut, 1, KXBool{0}); },
       "KXParameterException (code 0): no descriptor and no path given"},
      {[] { opened<Kind>("", Kind::eIn, 1); }, "KXParameterException (code 0): the path is empty"},
  };
  for (const auto& [open, expected] : cases) {
    const std::string failure = outcome(open);
    EXPECT_EQ(expected, failure.substr(0, failure.rfind(" [")));
  }
}

void ignoreAlarm(int /*signal*/) {}

// A child writes after 60 ms, while an alarm every 5 ms interrupts the blocked read().
TEST(KXDescriptorStream, ReadsAPipeToItsEndThroughSignalsWithUnknownLengthAndNoMarks) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const pid_t writer = startChild([&] { return usleep(60000) + write(ends[1], "late!", 5) - 5; });
  close(ends[1]);
  struct sigaction action {};
  action.sa_handler = ignoreAlarm;  // no SA_RESTART: a blocked read() fails with EINTR
  struct sigaction previous {};
  ASSERT_EQ(0, sigaction(SIGALRM, &action, &previous));
  itimerval timer{{0, 5000}, {0, 5000}};
  ASSERT_EQ(0, setitimer(ITIMER_REAL, &timer, nullptr));
  auto stream = opened<Kind>(ends[0], Kind::eIn, 16384, KXBool{0});
  EXPECT_EQ(-1, stream->GetLength());
  EXPECT_THROW(stream->SetMark(), KXMarkRequiredException);
  EXPECT_EQ("late!", readAll(*stream));
  timer = {};
  setitimer(ITIMER_REAL, &timer, nullptr);
  // An alarm raised before the timer stopped may still be pending (valgrind delivers late):
  // ignoring the signal discards it, so the restored default action cannot end the process.
  signal(SIGALRM, SIG_IGN);
  sigaction(SIGALRM, &previous, nullptr);
  stream.reset();
  EXPECT_EQ(0, close(ends[0])) << "a borrowed descriptor was closed";
  EXPECT_EQ(0, waitChild(writer));
}

}  // namespace
