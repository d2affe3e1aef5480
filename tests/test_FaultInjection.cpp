// Faults the system injects under a stream: a full device, a file size limit, too few
// descriptors, a file cut short by someone else, a temporary file whose reads fail.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include "KXFileStream.h"
#include "KXTempFile.h"
#include "KXTempStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

TEST(FaultInjection, AFullDeviceRefusesTheWriteNamesENOSPCAndKeepsTheStreamUsable) {
  auto stream = opened<KXFileStream>("/dev/full", "w", 0, KXFileStream::eOut, KXBool{0});
  // The status stays the documented one; the system's reason travels in the message.
  EXPECT_EQ(
      "KXStreamException (code -10027): No space left on device (errno 28) "
      "[KXBasicGenericStream.complete]",
      outcome([&] { writeString(*stream, std::string(100, 'x')); }));
  EXPECT_EQ(0, stream->GetStreamPos());
  EXPECT_EQ(0, stream->GetLength());
}

// The file part is refused by a file size limit (SIGXFSZ ignored, so the write fails with
// EFBIG instead of killing the process). Every byte accepted before, in memory and in the file,
// reads back at its own position, and the refused write, retried once the limit is lifted,
// lands where the stream stands.
TEST(FaultInjection, ARefusedSpillKeepsEveryAcceptedByteAndARetryLandsAtThePosition) {
  EXPECT_EQ(0, inChild([] {
              signal(SIGXFSZ, SIG_IGN);
              rlimit normal{};
              getrlimit(RLIMIT_FSIZE, &normal);
              const rlimit small{10000, normal.rlim_max};
              if (setrlimit(RLIMIT_FSIZE, &small) != 0) return 1;
              auto* stream = new KXTempStream(64);
              stream->init();
              std::string accepted = randomBytes(6000, 1);  // 64 in memory, the rest in the file
              std::string refused = randomBytes(40000, 2);
              stream->write(&accepted[0], 6000);
              const auto refusedAtTheEnd = [&] {
                try {
                  stream->write(&refused[0], 40000);
                  return false;
                } catch (const KXStreamException& e) {
                  return e.GetCode() == EFBIG && stream->GetStreamPos() == 6000 &&
                         stream->GetLength() == 6000;
                }
              };
              if (!refusedAtTheEnd()) return 2;
              stream->reset();
              if (readString(*stream, 100000) != accepted) return 3;
              if (!refusedAtTheEnd()) return 4;
              if (setrlimit(RLIMIT_FSIZE, &normal) != 0) return 5;
              stream->write(&refused[0], 40000);
              stream->reset();
              if (readString(*stream, 100000) != accepted + refused) return 6;
              stream->close();
              return 0;
            }));
}

TEST(FaultInjection, TooFewDescriptorsFailTheOpenWithEMFILENamingThePath) {
  TempDir dir;
  const std::string path = dir.writeFile("data", "0123456789");
  EXPECT_EQ(0, inChild([&] {
              const long before = openDescriptorCount();
              // A new descriptor takes the lowest free number: a limit at that number is full.
              const int lowestFree = ::open("/dev/null", O_RDONLY);
              ::close(lowestFree);
              const rlimit tight{static_cast<rlim_t>(lowestFree), 1024};
              StreamPtr<KXFileStream> stream(
                  new KXFileStream(path.c_str(), "rb", 16384, KXFileStream::eIn, 0));
              // The sanitizers need descriptors to check an exception's type the first time:
              // the same failure runs once beforehand, with descriptors to spare.
              thrownBy<KXFileSystemException>([] {
                opened<KXFileStream>("/nonexistent/x", "rb", 16384, KXFileStream::eIn, KXBool{0});
              });
              if (setrlimit(RLIMIT_NOFILE, &tight) != 0) return 1;
              try {
                stream->init();
                return 2;
              } catch (const KXFileSystemException& e) {
                if (e.GetCode() != EMFILE) return 3;
                if (std::string(e.GetMessage()).find(path) == std::string::npos) return 4;
              }
              stream.reset();
              const rlimit wide{1024, 1024};
              setrlimit(RLIMIT_NOFILE, &wide);
              return openDescriptorCount() == before ? 0 : 5;
            }));
}

// Someone cuts the file while it is read: the stream ends at the short read, without an
// error. Strict validation then reports at close() that fewer bytes came than announced.
TEST(FaultInjection, AFileCutShortWhileReadEndsTheStreamAtTheCut) {
  TempDir dir;
  const std::string content = randomBytes(100000, 3);
  const std::string path = dir.writeFile("data", content);
  for (KXBool strict : {KXBool(0), KXBool(1)}) {
    SCOPED_TRACE(static_cast<int>(strict));
    StrictModeScope scope(strict);
    auto* stream = new KXFileStream(path.c_str(), "rb", 16384, KXFileStream::eIn, 0);
    stream->init();
    EXPECT_EQ(content.substr(0, 16384), readString(*stream, 16384));
    ASSERT_EQ(0, truncate(path.c_str(), 20000));
    EXPECT_EQ(content.substr(16384, 20000 - 16384), readString(*stream, 100000));
    EXPECT_EQ(1, stream->isAtEOF());
    EXPECT_EQ("", readString(*stream, 10));
    if (strict != 0) {
      const auto mismatch = thrownBy<KXStreamMismatchException>([&] { stream->close(); });
      EXPECT_STREQ("CloseProc: mStreamLen", mismatch.GetMessage());
      stream->SetWritable();  // nothing left to check: the descriptor went with the first close
    }
    stream->close();
    ASSERT_EQ(0, truncate(path.c_str(), 100000));
  }
}

// Reaches the temporary file underneath a temporary stream.
class TempStreamWithFile : public KXTempStream {
 public:
  using KXTempStream::KXTempStream;
  FILE* file() const { return mTempStreamInfo.mTempFile->getFile(); }
};

// The temporary file's descriptor is swapped for a write-only one: its reads then fail, and the
// stream must tell that failure from a short read.
TEST(FaultInjection, AFailingReadOfTheTemporaryFileReportsAFileSystemError) {
  StreamPtr<TempStreamWithFile> stream(new TempStreamWithFile(16));
  stream->init();
  std::string bytes = randomBytes(1000, 4);
  stream->write(&bytes[0], static_cast<int>(bytes.size()));
  const int writeOnly = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(writeOnly, 0);
  ASSERT_GE(dup2(writeOnly, fileno(stream->file())), 0);
  ::close(writeOnly);
  stream->reset();
  EXPECT_EQ(bytes.substr(0, 16), readString(*stream, 16));  // the memory part is untouched
  const auto failed = thrownBy<KXStreamException>([&] { readString(*stream, 100); });
  EXPECT_EQ(KX_FILESYSTEM_ERR, failed.GetCode());
  EXPECT_EQ(-1, stream->GetInfo()->mTransferLen);
  EXPECT_EQ(16, stream->GetStreamPos());
}

}  // namespace
