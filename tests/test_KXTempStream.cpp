#include "KXTempStream.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include "KXProbeStream.h"

namespace {

using namespace kxtest;

using TempPtr = StreamPtr<KXTempStream>;

TempPtr openTemp(int memSize) {
  TempPtr stream(new KXTempStream(memSize));
  stream->init();
  return stream;
}

void writeAll(KXBasicGenericStream& stream, std::string bytes) {
  EXPECT_EQ(static_cast<long>(bytes.size()),
            stream.write(&bytes[0], static_cast<int>(bytes.size())));
}

// A straddling write reports its whole count; reading without a rewind finds the end.
TEST(KXTempStream, CreatesATemporaryFileOnlyForContentBeyondTheMemoryPart) {
  struct Case {
    int memSize;
    std::vector<size_t> writes;
    long files;
  };
  const Case cases[] = {{100, {}, 0}, {100, {60, 40}, 0}, {100, {60, 190}, 1},
                        {0, {0}, 0},  {0, {1}, 1},        {7, {3, 40000}, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    const long before = openDescriptorCount();
    std::string content;
    TempPtr stream = openTemp(c.memSize);
    for (size_t length : c.writes) {
      content += randomBytes(length, static_cast<unsigned>(content.size()));
      writeAll(*stream, content.substr(content.size() - length));
    }
    EXPECT_EQ(before + c.files, openDescriptorCount());
    EXPECT_EQ(static_cast<long>(content.size()), stream->GetLength());
    EXPECT_EQ("", readString(*stream, 10));
    EXPECT_EQ(1, stream->isAtEOF());
    stream->reset();
    EXPECT_EQ(content, readString(*stream, 50000));
    stream.reset();
    EXPECT_EQ(before, openDescriptorCount());
  }
}

TEST(KXTempStream, HandsOutTheMemoryPartThenTheFileInStagingSizedChunks) {
  const std::string content = randomBytes(40000, 2);
  TempPtr stream = openTemp(100);
  writeAll(*stream, content);
  stream->reset();
  stream->SetReadable();  // a writable stream delivers nothing
  KXStreamInfo* info = stream->GetInfo();
  std::vector<int64_t> chunks;
  while (info->mAtEOF == 0 && chunks.size() < 6) {
    info->mTransferLen = KX_UNLIMITED_TRANSFER;
    stream->prepareBuffer();
    chunks.push_back(info->mTransferLen);
    if (info->mAtEOF == 0) {
      stream->complete();
    }
  }
  EXPECT_EQ((std::vector<int64_t>{100, 16384, 16384, 7132}), chunks);
}

TEST(KXTempStream, RefusesANegativeMemorySizeAtInit) {
  auto* stream = new KXTempStream(-1);
  EXPECT_STREQ("", thrownBy<KXParameterException>([&] { stream->init(); }).GetMessage());
  stream->close();
}

// Run in a child whose descriptor limit leaves no room for a temporary file. The sanitizer build
// needs descriptors to check a type it meets for the first time, so the spill and the engine's
// failure path run once beforehand, with descriptors to spare.
int spillWithoutDescriptors(const std::string& content) {
  writeAll(*openTemp(0), "x");
  KXProbeStream* probe = KXProbeStream::create(1);
  probe->script(kComplete, {EMFILE});
  thrownBy<KXStreamException>([&] { writeBytes(*probe, 1); });
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

// Covers marks in both parts, overwrites within and past the end, and the file turning between
// reading and writing with no mark in between.
TEST(KXTempStream, AgreesWithAPlainStringUnderRandomWritesMarksAndReads) {
  for (int memSize : {0, 7, 100}) {
    SCOPED_TRACE(memSize);
    std::mt19937 random(static_cast<unsigned>(memSize) + 11);
    auto upTo = [&](size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random); };
    std::string model;
    size_t position = 0;
    size_t mark = 0;
    TempPtr stream = openTemp(memSize);
    for (unsigned step = 0; step < 120 && !HasFailure(); ++step) {
      SCOPED_TRACE(step);
      const size_t choice = upTo(4);
      if (choice == 0) {
        const std::string bytes = randomBytes(upTo(upTo(1) == 0 ? 20 : 40000), step);
        writeAll(*stream, bytes);
        model.replace(position, bytes.size(), bytes);
        position += bytes.size();
      } else if (choice == 1) {
        position = mark = upTo(model.size());
        stream->SetMark(static_cast<long>(position));
      } else if (choice == 2) {
        stream->SetMark();
        mark = position;
      } else if (choice == 3) {
        stream->resetMark();
        position = mark;
      } else {
        const size_t count = upTo(20000);
        EXPECT_EQ(model.substr(position, count), readString(*stream, static_cast<int>(count)));
        position = std::min(model.size(), position + count);
      }
      EXPECT_EQ(static_cast<long>(model.size()), stream->GetLength());
      EXPECT_EQ(static_cast<long>(position), stream->GetStreamPos());
    }
  }
}

}  // namespace

namespace {

// A second init() must neither allocate again (the sanitizer build sees a leak) nor drop content;
// a gap left by a mark past the end reads back as zeros.
TEST(KXTempStream, SecondInitKeepsContentAndGapsReadAsZeros) {
  TempPtr stream = openTemp(100);
  writeAll(*stream, "abc");
  stream->init();
  stream->SetMark(5);
  writeAll(*stream, "z");
  stream->reset();
  EXPECT_EQ(std::string("abc\0\0z", 6), readString(*stream, 10));
}

// A kind keeps no private state: a class derived from it (a probe, a client's own kind) reaches
// all of it, here the direction the temporary file was last used in.
class TempProbe : public KXTempStream {
 public:
  using KXTempStream::KXTempStream;
  bool fileIsWriting() const { return mFileDirection == FileDirection::kWriting; }
};

TEST(KXTempStream, ADerivedKindSeesTheFileTurnedToWritingUntilAReset) {
  StreamPtr<TempProbe> stream(new TempProbe(16));
  stream->init();
  writeAll(*stream, randomBytes(100, 3));
  EXPECT_TRUE(stream->fileIsWriting());
  stream->reset();
  EXPECT_FALSE(stream->fileIsWriting());
}

}  // namespace
