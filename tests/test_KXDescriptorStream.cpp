#include "KXDescriptorStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "KXObjectGuid.h"
#include "KXShell.h"
#include "KXStreams.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

// A pipe whose writing end a thread fills with bytes after a delay, then closes.
struct FedPipe {
  FedPipe(const std::string& bytes, int delayMs) {
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    writer = std::thread([this, bytes, delayMs] {
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(ends[1], bytes.data(), bytes.size()));
      close(ends[1]);
    });
  }
  ~FedPipe() {
    writer.join();
    close(ends[0]);
  }
  int ends[2] = {-1, -1};
  std::thread writer;
};

StreamPtr<KXDescriptorStream> openInput(int descriptor, KXBool owned = 0) {
  StreamPtr<KXDescriptorStream> stream(
      KXStreams::createDescriptorStream(descriptor, KXDescriptorStream::eIn, 16384, owned));
  stream->init();
  return stream;
}

// Everything the stream delivers up to its end.
std::string drain(KXBasicGenericStream& stream) {
  std::string all;
  char chunk[7000];
  while (const int count = stream.read(chunk, sizeof chunk)) {
    all.append(chunk, static_cast<size_t>(count));
  }
  return all;
}

TEST(KXDescriptorStream, ReadsAPipeToItsEndWithUnknownLengthAndNoMarks) {
  const std::string content = randomBytes(100000, 3);
  FedPipe channel(content, 0);
  auto stream = openInput(channel.ends[0]);
  EXPECT_EQ(-1, stream->GetLength());
  EXPECT_THROW(stream->SetMark(), KXMarkRequiredException);
  EXPECT_TRUE(content == drain(*stream));
  stream.reset();
  EXPECT_NE(-1, fcntl(channel.ends[0], F_GETFD)) << "a borrowed descriptor was closed";
}

TEST(KXDescriptorStream, RegularFileHasItsLengthFromTheCurrentOffsetAndMarks) {
  TempDir dir;
  const std::string path = dir.writeFile("data", randomBytes(50000, 4));
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(100, lseek(descriptor, 100, SEEK_SET));
  auto stream = openInput(descriptor, 1);
  EXPECT_EQ(49900, stream->GetLength());
  KXObjectGuid id;
  stream->calcID(id, -1);
  EXPECT_EQ(0, stream->GetStreamPos());
  EXPECT_TRUE(fileContents(path).substr(100) == drain(*stream));
  stream.reset();
  EXPECT_EQ(-1, fcntl(descriptor, F_GETFD)) << "an owned descriptor stayed open";
}

TEST(KXDescriptorStream, AFileFollowedInItsGrowthIsReadToTheEndItHasWhenReached) {
  TempDir dir;
  const std::string path = dir.writeFile("growing", "first ");
  auto* created = KXStreams::createDescriptorStream(path.c_str(), KXDescriptorStream::eIn, 1);
  created->setFollowsGrowth(1);
  StreamPtr<KXDescriptorStream> stream(created);
  stream->init();
  EXPECT_EQ(-1, stream->GetLength());
  std::ofstream(path, std::ios::app) << "and more";
  EXPECT_EQ("first and more", drain(*stream));
}

TEST(KXDescriptorStream, PseudoFilesHaveUnknownLengthButTheirWholeContent) {
  for (const char* path : {"/proc/version", "/proc/sys/kernel/ostype"}) {
    if (access(path, R_OK) != 0) {
      GTEST_SKIP() << path << " is not readable on this machine";
    }
    StreamPtr<KXDescriptorStream> stream(
        KXStreams::createDescriptorStream(path, KXDescriptorStream::eIn, 1));
    stream->init();
    EXPECT_EQ(-1, stream->GetLength()) << path;
    const std::string content = drain(*stream);
    EXPECT_FALSE(content.empty()) << path;
    EXPECT_EQ(fileContents(path), content) << path;
  }
}

TEST(KXDescriptorStream, WritesEveryByteAndCreatesANamedFile) {
  TempDir dir;
  const std::string path = dir.file("out");
  const std::string content = randomBytes(300000, 5);
  StreamPtr<KXDescriptorStream> stream(
      KXStreams::createDescriptorStream(path.c_str(), KXDescriptorStream::eOut, 0));
  stream->init();
  EXPECT_EQ(static_cast<int64_t>(content.size()),
            stream->write(const_cast<char*>(content.data()), static_cast<int>(content.size())));
  EXPECT_EQ(-1, stream->GetLength());
  EXPECT_THROW(stream->read(nullptr, 0), KXParameterException);
  stream.reset();
  EXPECT_TRUE(content == fileContents(path));
}

TEST(KXDescriptorStream, OpeningFailuresNameTheSystemReason) {
  using Kind = KXDescriptorStream;
  const auto failureOf = [](const std::function<void()>& open) {
    return thrownBy<KXFileSystemException>(open).GetCode();
  };
  EXPECT_EQ(ENOENT, failureOf([] { opened<Kind>("/no/such/file", Kind::eIn, 1); }));
  EXPECT_EQ(EISDIR, failureOf([] { opened<Kind>("/", Kind::eIn, 1); }));
  EXPECT_EQ(EBADF, failureOf([] { opened<Kind>(1000, Kind::eIn, 1, KXBool{0}); }));
}

TEST(KXDescriptorStream, RefusesBadArgumentsAtInitWithCodeZeroAndTheReason) {
  using Kind = KXDescriptorStream;
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[] { opened<Kind>(0, static_cast<Kind::EIoFlag>(7), 1, KXBool{0}); },
       "invalid direction 7: expected eIn (0) or eOut (1)"},
      {[] { opened<Kind>(0, Kind::eIn, 0, KXBool{0}); }, "the buffer size must be positive"},
      {[] { opened<Kind>(-1, Kind::eOut, 1, KXBool{0}); }, "no descriptor and no path given"},
      {[] { opened<Kind>("", Kind::eIn, 1); }, "the path is empty"},
  };
  for (const auto& [open, reason] : cases) {
    const KXParameterException refused = thrownBy<KXParameterException>(open);
    EXPECT_EQ(0, refused.GetCode()) << reason;
    EXPECT_STREQ(reason, refused.GetMessage());
  }
}

void ignoreAlarm(int /*signal*/) {}

TEST(KXDescriptorStream, ReadsInterruptedBySignalsAreRetried) {
  struct sigaction action {};
  action.sa_handler = ignoreAlarm;  // no SA_RESTART: a blocked read() fails with EINTR
  struct sigaction previous {};
  ASSERT_EQ(0, sigaction(SIGALRM, &action, &previous));
  const itimerval every5ms{{0, 5000}, {0, 5000}};
  ASSERT_EQ(0, setitimer(ITIMER_REAL, &every5ms, nullptr));

  {
    FedPipe channel("late!", 60);
    EXPECT_EQ("late!", drain(*openInput(channel.ends[0])));
  }
  const itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &previous, nullptr);
}

}  // namespace
