#include "KXStreams.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

// Read while the program starts, before any test can have changed a setting.
const KXBool kStrictAtLoad = KXStreams::getStreamStrictMode();
const KXBool kTruncationAtLoad = KXStreams::allowFileTruncation();

TEST(StreamSettings, BothAreOnInAFreshProcessAndKeepWhatIsSet) {
  EXPECT_EQ(1, kStrictAtLoad);
  EXPECT_EQ(1, kTruncationAtLoad);
  for (KXBool value : {KXBool{0}, KXBool{1}}) {
    KXStreams::setStreamStrictMode(value);
    KXStreams::setAllowFileTruncation(1 - value);
    EXPECT_EQ(value, KXStreams::getStreamStrictMode());
    EXPECT_EQ(1 - value, KXStreams::allowFileTruncation());
  }
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

}  // namespace
