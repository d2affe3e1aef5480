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

TempPtr openTemp(int memSize) { return opened<KXTempStream>(memSize); }

void writeAll(KXBasicGenericStream& stream, const std::string& bytes) {
  EXPECT_EQ(static_cast<long>(bytes.size()), writeString(stream, bytes));
}

// Content beyond the memory part goes to a temporary file, made only then and gone at close; a
// straddling write reports its whole count. Reading back hands out the memory part in place,
// then the file in chunks of at most 16384 bytes, and reports the end with the transfer that
// reaches it, whichever part that is.
TEST(KXTempStream, KeepsContentInMemoryThenInAFileAndReadsItBackEndingWithTheLastByte) {
  struct Transfer {
    int64_t asked, delivered;
    KXBool atEOF;
  };
  constexpr int64_t kAll = INT64_MAX;
  const struct {
    int memSize;
    std::vector<size_t> writes;
    long files;
    std::vector<Transfer> transfers;
  } cases[] = {
      {100, {}, 0, {{1, 0, 1}}},
      {100, {60, 40}, 0, {{100, 100, 1}, {1, 0, 1}}},
      {100, {60}, 0, {{30, 30, 0}, {30, 30, 1}, {1, 0, 1}}},
      {100, {60, 90}, 1, {{60, 60, 0}, {40, 40, 0}, {100, 50, 1}}},
      {100, {40000}, 1, {{kAll, 100, 0}, {kAll, 16384, 0}, {kAll, 16384, 0}, {kAll, 7132, 1}}},
      {0, {0}, 0, {{1, 0, 1}}},
      {0, {1}, 1, {{5, 1, 1}}},
      {0, {20000}, 1, {{16384, 16384, 0}, {3616, 3616, 1}}},
      {7, {3, 40000}, 1, {{kAll, 7, 0}, {kAll, 16384, 0}, {kAll, 16384, 0}, {kAll, 7228, 1}}},
  };
  for (const auto& c : cases) {
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
    KXStreamInfo* info = stream->GetInfo();
    size_t offset = 0;
    for (const Transfer& transfer : c.transfers) {
      info->mTransferLen = transfer.asked;
      stream->prepareBuffer();
      ASSERT_EQ(transfer.delivered, info->mTransferLen) << "asking " << transfer.asked;
      EXPECT_EQ(transfer.atEOF, info->mAtEOF);
      const auto count = static_cast<size_t>(transfer.delivered);
      EXPECT_TRUE(count == 0 || content.substr(offset, count) == std::string(info->mBuffer, count));
      offset += count;
      if (info->mAtEOF == 0) {
        stream->complete();
      }
    }
    EXPECT_EQ(content.size(), offset);
    stream.reset();
    EXPECT_EQ(before, openDescriptorCount());
  }
}

// A completed read past the end raises the length (the engine's rule): bytes then due from a
// file part that was never made fail the read with status 5.
TEST(KXTempStream, BytesDueFromATemporaryFileNeverMadeFailTheReadWithStatus5) {
  TempPtr stream = openTemp(16);
  writeAll(*stream, "0123456789");
  stream->SetMark(40);
  stream->SetReadable();
  stream->prepareBuffer();
  stream->complete();
  stream->reset();
  EXPECT_EQ("KXStreamException (code 5, Input/output error) [KXBasicGenericStream.prepareBuffer]",
            outcome([&] { readString(*stream, 40); }));
  EXPECT_EQ(16, stream->GetStreamPos());
}

TEST(KXTempStream, RefusesANegativeMemorySizeAtInit) {
  auto* stream = new KXTempStream(-1);
  const auto refused = thrownBy<KXParameterException>([&] { stream->init(); });
  EXPECT_EQ(0, refused.GetCode());
  EXPECT_STREQ("", refused.GetMessage());
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
