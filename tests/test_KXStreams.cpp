#include "KXStreams.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "KXProbeStream.h"
#include "KXTestSupport.h"
#include "kxos.h"

namespace {

using namespace kxtest;

// Read while the program starts, before any test can have changed a setting.
const KXBool kStrictAtLoad = KXStreams::getStreamStrictMode();
const KXBool kTruncationAtLoad = KXStreams::allowFileTruncation();

// What each setting does once changed is checked where it takes effect.
TEST(StreamSettings, BothAreOnInAFreshProcess) {
  EXPECT_EQ(1, kStrictAtLoad);
  EXPECT_EQ(1, kTruncationAtLoad);
}

// A later change of the setting leaves existing streams alone.
TEST(StreamSettings, StrictModeIsCopiedIntoEachStreamWhenItIsConstructed) {
  for (KXBool strict : {KXBool{0}, KXBool{1}}) {
    KXProbeStream* probe = KXProbeStream::create(strict);
    StrictModeScope later(1 - strict);
    probe->script(kSetMarker, {0, [](KXStreamInfo& info) { ++info.mVersion; }});
    EXPECT_EQ(strict != 0, !outcome([&] { probe->SetMark(); }).empty());
    probe->close();
  }
}

TEST(StreamSelfTest, PrintsItsNameAndReturnsWhatPutsReturned) {
  testing::internal::CaptureStdout();
  const int result = KXStreams_Test();
  const int expected = puts("KXStreams_Test");
  fflush(stdout);
  EXPECT_EQ("KXStreams_Test\nKXStreams_Test\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(expected, result);
}

long deliverNothing(KXStreamInfo* /*info*/) { return 0; }

// The create operations open and check nothing: each stream waits for its own init().
TEST(StreamFactory, CreatesEveryKindUninitialised) {
  TempDir dir;
  const std::string path = dir.writeFile("data", "abcdefgh");
  const std::string missing = dir.file("missing");
  std::string region = "xyz";
  KXMemStream* member = KXStreams::createMemStream(&region[0], region.size(), KXMemStream::eIn);
  KXBasicGenericStream* members[] = {member};
  KXNullStream* null = KXStreams::createNullStream();
  EXPECT_STREQ("mInited == (KXBool)true",
               thrownBy<KXSDKInternalException>([&] { writeBytes(*null, 1); }).GetMessage());
  for (KXBasicGenericStream* stream : std::vector<KXBasicGenericStream*>{
           null, KXStreams::createStreamArray(1, members),
           KXStreams::createStreamArray(member, member), KXStreams::createTempStream(16),
           KXStreams::createCachedInputStream(member, 16384),
           KXStreams::createPartialFileStream(path.c_str(), "rb", 16384, KXFileStream::eIn, 2, 4,
                                              -1),
           KXStreams::createCustomStream(deliverNothing, nullptr, nullptr, nullptr, nullptr,
                                         nullptr),
           member}) {
    const auto refused = thrownBy<KXSDKInternalException>([&] { stream->prepareBuffer(); });
    EXPECT_STREQ("mInited == (KXBool)true", refused.GetMessage());
    stream->close();
  }
  KXFileStream* absent =
      KXStreams::createFileStream(missing.c_str(), "rb", 16384, KXFileStream::eIn, 0);
  const auto failure = thrownBy<KXFileSystemException>([&] { absent->init(); });
  EXPECT_NE(std::string::npos, std::string(failure.GetMessage()).find(missing)) << failure.what();
  absent->close();
}

// A correct use never trips the validation, strict or not.
TEST(NullStream, RefusesToBeReadCountsWhatIsWrittenAndReturnsToMarks) {
  for (KXBool strict : {KXBool{1}, KXBool{0}}) {
    SCOPED_TRACE(static_cast<int>(strict));
    LogCapture log;
    StrictModeScope scope(strict);
    auto* stream = new KXNullStream();
    stream->init();
    EXPECT_EQ(
        "KXNotSupportedException (code 0) [KXBasicGenericStream.noReadPrepBuffer | "
        "KXBasicGenericStream.prepareBuffer]",
        outcome([&] { readBytes(*stream, 4); }));
    EXPECT_EQ(1, log.count(1, "natives/streams/KXBasicGenericStream"));
    // Still switched to input: a hand-driven transfer is refused the same way.
    thrownBy<KXNotSupportedException>([&] { stream->prepareBuffer(); });

    EXPECT_EQ(10, writeBytes(*stream, 10));
    EXPECT_EQ(5, writeBytes(*stream, 5));
    EXPECT_EQ(-1, stream->GetLength());
    stream->SetMark();
    EXPECT_EQ(7, writeBytes(*stream, 7));
    EXPECT_EQ(22, stream->GetStreamPos());
    stream->resetMark();
    EXPECT_EQ(15, stream->GetStreamPos());
    stream->reset();
    EXPECT_EQ(0, stream->GetStreamPos());
    // Driven by hand without a buffer, the count is added all the same.
    KXStreamInfo* info = stream->prepareBuffer();
    EXPECT_EQ(nullptr, info->mBuffer);
    info->mTransferLen = 9;
    stream->complete();
    EXPECT_EQ(9, stream->GetStreamPos());
    EXPECT_NO_THROW(stream->close());
    EXPECT_EQ(0, log.count("KX_STREAM_"));
  }
}

AliasArray::Entry* entry(size_t blockSize) {
  return new AliasArray::Entry{blockSize > 0 ? kx_malloc(blockSize) : nullptr};
}

// What the array must free shows in the sanitizer build's leak report; what it must not free
// shows there as a use after free or a double free.
TEST(AliasArray, FreesEntriesAndBlocksOnlyWhenItOwnsThem) {
  // The array takes ownership of the entries; the analyzer cannot follow that.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  auto** owned = new AliasArray::Entry* [4] { entry(16), entry(0), nullptr, entry(1) };
  delete new AliasArray(4, owned, 1);
  delete new AliasArray(0, nullptr, 1);
  AliasArray::Entry* kept = entry(8);
  for (int count : {2, 0, -1}) {  // not owned, or no entries to free
    delete new AliasArray(
        count, new AliasArray::Entry* [2] { kept, nullptr }, count == 2 ? 0 : 1);
    EXPECT_NE(nullptr, kept->mBlock);
  }
  kx_free(kept->mBlock);
  delete kept;
}

}  // namespace
