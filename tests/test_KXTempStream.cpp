#include "KXTempStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <tuple>

#include "KXProbeStream.h"
#include "KXTempFile.h"

namespace {

using namespace kxtest;

// A kind keeps no private state: a class derived from it (a probe, a client's own kind) reaches
// all of it, here the temporary file.
struct TempProbe : KXTempStream {
  using KXTempStream::KXTempStream;
  FILE* file() const { return mTempStreamInfo.mTempFile->getFile(); }
};
using TempPtr = StreamPtr<TempProbe>;

TempPtr openTemp(int memSize) { return opened<TempProbe>(memSize); }

void writeAll(KXBasicGenericStream& stream, const std::string& bytes) {
  EXPECT_EQ(static_cast<long>(bytes.size()), writeString(stream, bytes));
}

// The temporary file is made only when content passes the memory part and is gone at close.
// A second init() must neither allocate again (the sanitizer build sees a leak) nor drop
// content. Chunk sizes, positions and the end are checked by the protocol fuzzer's model.
TEST(KXTempStream, KeepsContentInMemoryThenInAFileAndReadsItBackEndingWithTheLastByte) {
  const struct {
    int memSize;
    std::vector<size_t> writes;
    long files;
  } cases[] = {{100, {}, 0}, {100, {60, 40}, 0}, {100, {60, 90}, 1},
               {0, {0}, 0},  {0, {1}, 1},        {7, {3, 40000}, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const long before = openDescriptorCount();
    std::string content;
    TempPtr stream = openTemp(c.memSize);
    for (size_t length : c.writes) {
      content += randomBytes(length, static_cast<unsigned>(content.size()));
      writeAll(*stream, content.substr(content.size() - length));
    }
    {
      const LogCapture log(false, 1);
      stream->init();
      EXPECT_EQ(1, log.count(1, "mInited == false"));  // the engine reports the misuse
    }
    EXPECT_EQ(before + c.files, openDescriptorCount());
    stream->reset();
    EXPECT_EQ(content, readString(*stream, 50000));
    stream.reset();
    EXPECT_EQ(before, openDescriptorCount());
  }
}

TEST(KXTempStream, RefusesANegativeMemorySizeAtInit) {
  EXPECT_EQ("KXParameterException (code 0) []", outcome([] { opened<KXTempStream>(-1); }));
}

// Run in a child whose descriptor limit leaves no room for a temporary file. The sanitizer build
// needs descriptors to check a type it meets for the first time, so the spill and the engine's
// failure path run once beforehand, with descriptors to spare.
int spillWithoutDescriptors(const std::string& content) {
  writeAll(*openTemp(0), "x");
  KXProbeStream* probe = KXProbeStream::create(1);
  probe->script(kComplete, {EMFILE});
  thrownBy<KXStreamException>([&] { writeString(*probe, "x"); });
  probe->close();
  TempPtr stream = openTemp(100);
  const rlimit none{0, 0};
  if (setrlimit(RLIMIT_NOFILE, &none) != 0) {
    return 1;
  }
  const int code = thrownBy<KXStreamException>([&] { writeAll(*stream, content); }).GetCode();
  stream->reset();
  const bool kept =
      stream->GetLength() == 100 && readString(*stream, 1000) == content.substr(0, 100);
  return code == EMFILE && kept ? 0 : 2;
}

TEST(KXTempStream, ReportsAFailedTemporaryFileAndKeepsTheMemoryPartReadable) {
  const std::string content = randomBytes(150, 5);
  EXPECT_EXIT(_exit(spillWithoutDescriptors(content)), testing::ExitedWithCode(0), "");
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
              TempPtr stream = openTemp(64);
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

// The temporary file's descriptor is swapped for a write-only one: its reads then fail, and the
// stream must tell that failure from a short read.
TEST(FaultInjection, AFailingReadOfTheTemporaryFileReportsAFileSystemError) {
  TempPtr stream = openTemp(16);
  const std::string bytes = randomBytes(1000, 4);
  writeAll(*stream, bytes);
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
