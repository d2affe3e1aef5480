#include "KXStreams.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

// Read while the program starts, before any test can have changed a setting.
const KXBool kStrictAtLoad = KXStreams::getStreamStrictMode();
const KXBool kTruncationAtLoad = KXStreams::allowFileTruncation();

// Each setting keeps what is set; the truncation setting's effect is in the file-stream tests.
TEST(StreamSettings, BothAreOnInAFreshProcessAndKeepWhatIsSet) {
  EXPECT_EQ(1, kStrictAtLoad);
  EXPECT_EQ(1, kTruncationAtLoad);
  KXStreams::setAllowFileTruncation(0);
  EXPECT_EQ(0, KXStreams::allowFileTruncation());
  KXStreams::setAllowFileTruncation(1);
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

}  // namespace
