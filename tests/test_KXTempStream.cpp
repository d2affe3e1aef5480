#include "KXTempStream.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

struct Closer {
  void operator()(KXTempStream* stream) const { EXPECT_NO_THROW(stream->close()); }
};
using TempPtr = std::unique_ptr<KXTempStream, Closer>;

TempPtr openTemp(int memSize) {
  TempPtr stream(new KXTempStream(memSize));
  stream->init();
  return stream;
}

void writeAll(KXBasicGenericStream& stream, std::string bytes) {
  EXPECT_EQ(static_cast<long>(bytes.size()),
            stream.write(&bytes[0], static_cast<int>(bytes.size())));
}

std::string readUpTo(KXBasicGenericStream& stream, int count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  bytes.resize(static_cast<size_t>(stream.read(&bytes[0], count)));
  return bytes;
}

TEST(KXTempStream, CreatesATemporaryFileOnlyForContentBeyondTheMemoryPart) {
  struct Case {
    int memSize;
    std::vector<size_t> writes;
    long files;
  };
  const Case cases[] = {
      {100, {60, 40}, 0}, {100, {60, 190}, 1}, {0, {0}, 0}, {0, {1}, 1}, {7, {3, 40000}, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    const long before = openDescriptorCount();
    std::string content;
    TempPtr stream = openTemp(c.memSize);
    for (size_t length : c.writes) {
      const std::string bytes = randomBytes(length, static_cast<unsigned>(content.size()));
      writeAll(*stream, bytes);  // a straddling write still reports its whole count
      content += bytes;
    }
    EXPECT_EQ(before + c.files, openDescriptorCount());
    EXPECT_EQ(static_cast<long>(content.size()), stream->GetLength());
    stream->reset();
    EXPECT_EQ(content, readUpTo(*stream, 50000));
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
  std::string back;
  for (int guard = 0; guard < 6 && info->mAtEOF == 0; ++guard) {
    info->mTransferLen = KX_UNLIMITED_TRANSFER;
    stream->prepareBuffer();
    chunks.push_back(info->mTransferLen);
    back.append(info->mBuffer, static_cast<size_t>(info->mTransferLen));
    if (info->mAtEOF == 0) {
      stream->complete();
    }
  }
  EXPECT_EQ((std::vector<int64_t>{100, 16384, 16384, 7132}), chunks);
  EXPECT_EQ(content, back);
}

TEST(KXTempStream, DeliversNothingAtTheEndOfTheContent) {
  struct Case {
    int memSize;
    size_t written;
  };
  for (const Case c : {Case{0, 0}, Case{100, 0}, Case{100, 50}, Case{100, 500}}) {
    SCOPED_TRACE(c.written);
    TempPtr stream = openTemp(c.memSize);
    writeAll(*stream, std::string(c.written, 'w'));  // and no rewind
    EXPECT_EQ("", readUpTo(*stream, 10));
    EXPECT_EQ(1, stream->isAtEOF());
  }
}

TEST(KXTempStream, ReturnsToMarksInTheMemoryAndInTheFilePart) {
  const std::string content = randomBytes(40000, 3);
  TempPtr stream = openTemp(100);
  writeAll(*stream, content);
  for (int offset : {50, 100, 20000, 39999}) {
    stream->SetMark(offset);
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(content.substr(offset, 300), readUpTo(*stream, 300));
      stream->resetMark();
    }
  }
  stream->SetMark(90);
  readUpTo(*stream, 20000);
  stream->SetMark();
  EXPECT_EQ(content.substr(20090, 500), readUpTo(*stream, 500));
  stream->resetMark();
  EXPECT_EQ(content.substr(20090, 500), readUpTo(*stream, 500));
}

// Reading up to a place and writing there at once turns the file without a mark in between.
TEST(KXTempStream, OverwritesInPlaceAndGrowsOnlyPastTheEnd) {
  std::string model = randomBytes(1000, 4);
  TempPtr stream = openTemp(100);
  writeAll(*stream, model);
  for (int offset : {10, 90, 500, 950}) {
    stream->reset();
    readUpTo(*stream, offset);
    const std::string patch = randomBytes(100, static_cast<unsigned>(offset));
    writeAll(*stream, patch);
    model.replace(static_cast<size_t>(offset), patch.size(), patch);
    EXPECT_EQ(static_cast<long>(model.size()), stream->GetLength());
    EXPECT_EQ(model.substr(static_cast<size_t>(offset) + 100, 30), readUpTo(*stream, 30));
  }
  stream->reset();
  EXPECT_EQ(model, readUpTo(*stream, 2000));
}

TEST(KXTempStream, RefusesANegativeMemorySizeAtInit) {
  auto* stream = new KXTempStream(-1);
  const auto refused = thrownBy<KXParameterException>([&] { stream->init(); });
  EXPECT_EQ(0, refused.GetCode());
  EXPECT_STREQ("", refused.GetMessage());
  stream->close();
}

// Runs in a child whose descriptor limit leaves no room for a temporary file; returns 0 when
// every step went as expected, else the number of the first step that did not.
int spillWithoutDescriptors(const std::string& content) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = 0;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    return 1;
  }
  TempPtr stream = openTemp(100);
  try {
    writeAll(*stream, content);
    return 2;
  } catch (const KXStreamException& failure) {
    if (failure.GetCode() != EMFILE) {
      return 3;
    }
  }
  stream->reset();
  return stream->GetLength() == 100 && readUpTo(*stream, 1000) == content.substr(0, 100) ? 0 : 4;
}

TEST(KXTempStream, ReportsAFailedTemporaryFileAndKeepsTheMemoryPartReadable) {
  const std::string content = randomBytes(150, 5);
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    _exit(spillWithoutDescriptors(content));
  }
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(0, WEXITSTATUS(status));
}

// The stream against a plain string and a position, over random writes, marks and reads.
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
      switch (upTo(4)) {
        case 0: {
          const std::string bytes = randomBytes(upTo(upTo(1) == 0 ? 20 : 40000), step);
          writeAll(*stream, bytes);
          model.replace(position, bytes.size(), bytes);
          position += bytes.size();
          break;
        }
        case 1:
          position = mark = upTo(model.size());
          stream->SetMark(static_cast<long>(position));
          break;
        case 2:
          mark = position;
          stream->SetMark();
          break;
        case 3:
          position = mark;
          stream->resetMark();
          break;
        default: {
          const size_t count = upTo(20000);
          EXPECT_EQ(model.substr(position, count), readUpTo(*stream, static_cast<int>(count)))
              << "step " << step;
          position = std::min(model.size(), position + count);
        }
      }
      EXPECT_EQ(static_cast<long>(model.size()), stream->GetLength()) << "step " << step;
      EXPECT_EQ(static_cast<long>(position), stream->GetStreamPos()) << "step " << step;
    }
  }
}

}  // namespace
