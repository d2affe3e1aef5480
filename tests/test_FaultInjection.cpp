// Faults the system injects under a stream: a file size limit, a file cut short by someone else,
// a temporary file whose reads fail.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "KXFileStream.h"
#include "KXTempFile.h"
#include "KXTempStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

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
              auto stream = opened<KXTempStream>(64);
              const std::string accepted =
                  randomBytes(6000, 1);  // 64 in memory, the rest in a file
              const std::string refused = randomBytes(40000, 2);
              writeString(*stream, accepted);
              const auto refusedAtTheEnd = [&] {
                return setrlimit(RLIMIT_FSIZE, &small) == 0 && thrownBy<KXStreamException>([&] {
                                                                 writeString(*stream, refused);
                                                               }).GetCode() == EFBIG &&
                       stream->GetStreamPos() == 6000 && stream->GetLength() == 6000;
              };
              if (!refusedAtTheEnd()) return 2;
              stream->reset();
              if (readString(*stream, 100000) != accepted || !refusedAtTheEnd()) return 3;
              setrlimit(RLIMIT_FSIZE, &normal);
              writeString(*stream, refused);
              stream->reset();
              return readString(*stream, 100000) == accepted + refused ? 0 : 4;
            }));
}

// Someone cuts the file while it is read: the stream ends at the short read, without an
// error. Strict validation then reports at close() that fewer bytes came than announced.
TEST(FaultInjection, AFileCutShortWhileReadEndsTheStreamAtTheCut) {
  TempDir dir;
  const std::string content = randomBytes(100000, 3);
  const std::string path = dir.writeFile("data", content);
  const StrictModeScope strict(1);
  auto* stream = new KXFileStream(path.c_str(), "rb", 16384, KXFileStream::eIn, 0);
  stream->init();
  EXPECT_EQ(content.substr(0, 16384), readString(*stream, 16384));
  ASSERT_EQ(0, truncate(path.c_str(), 20000));
  EXPECT_EQ(content.substr(16384, 20000 - 16384), readString(*stream, 100000));
  EXPECT_EQ(1, stream->isAtEOF());
  EXPECT_EQ("", readString(*stream, 10));
  const auto mismatch = thrownBy<KXStreamMismatchException>([&] { stream->close(); });
  EXPECT_STREQ("CloseProc: mStreamLen", mismatch.GetMessage());
  stream->SetWritable();  // nothing left to check: the descriptor went with the first close
  stream->close();
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
  auto stream = opened<TempStreamWithFile>(16);
  const std::string bytes = randomBytes(1000, 4);
  writeString(*stream, bytes);
  const int writeOnly = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(dup2(writeOnly, fileno(stream->file())), 0);
  ::close(writeOnly);
  stream->reset();
  EXPECT_EQ(bytes.substr(0, 16), readString(*stream, 16));  // the memory part is untouched
  EXPECT_EQ(
      "KXStreamException (code -10027): Bad file descriptor (errno 9) "
      "[KXBasicGenericStream.prepareBuffer]",
      outcome([&] { readString(*stream, 100); }));
  EXPECT_EQ(std::make_tuple(int64_t{-1}, int64_t{16}),
            std::make_tuple(stream->GetInfo()->mTransferLen, stream->GetInfo()->mStreamPos));
}

}  // namespace
