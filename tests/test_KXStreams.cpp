#include "KXStreams.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "KXProbeStream.h"
#include "KXTestSupport.h"

namespace {

using kxtest::KXProbeStream;
using kxtest::StrictModeScope;

// Read while the program starts, before any test can have changed a setting.
const KXBool kStrictAtLoad = KXStreams::getStreamStrictMode();
const KXBool kTruncationAtLoad = KXStreams::allowFileTruncation();

TEST(StreamSettings, BothAreOnInAFreshProcess) {
  EXPECT_EQ(1, kStrictAtLoad);
  EXPECT_EQ(1, kTruncationAtLoad);
}

TEST(StreamSettings, SettersStoreTheValue) {
  KXStreams::setStreamStrictMode(0);
  EXPECT_EQ(0, KXStreams::getStreamStrictMode());
  KXStreams::setStreamStrictMode(1);
  EXPECT_EQ(1, KXStreams::getStreamStrictMode());

  KXStreams::setAllowFileTruncation(0);
  EXPECT_EQ(0, KXStreams::allowFileTruncation());
  KXStreams::setAllowFileTruncation(1);
  EXPECT_EQ(1, KXStreams::allowFileTruncation());
}

// Whether the stream's validation throws for a kind that changes the record's version.
bool throwsOnBreach(KXProbeStream& probe) {
  probe.script(kxtest::ProbeOp::kSetMarker, {kxtest::ProbeAction::kChangeVersion});
  try {
    probe.SetMark();
  } catch (const KXStreamValidationException&) {
    return true;
  }
  return false;
}

TEST(StreamSettings, StrictModeIsCopiedIntoEachStreamWhenItIsConstructed) {
  KXProbeStream* strict = KXProbeStream::create(1);
  KXProbeStream* lenient = KXProbeStream::create(0);
  {
    StrictModeScope later(0);
    EXPECT_EQ(1, strict->strictMode());
    EXPECT_TRUE(throwsOnBreach(*strict));
  }
  {
    StrictModeScope later(1);
    EXPECT_EQ(0, lenient->strictMode());
    EXPECT_FALSE(throwsOnBreach(*lenient));
  }
  strict->close();
  lenient->close();
}

TEST(StreamSettings, SettingsObjectIsStateless) {
  KXStreams first;
  const KXStreams second(first);
  EXPECT_EQ(&first, &(first = second));
}

TEST(StreamSelfTest, PrintsItsNameAndReturnsWhatPutsReturned) {
  testing::internal::CaptureStdout();
  const int result = KXStreams_Test();
  const int expected = puts("KXStreams_Test");
  fflush(stdout);
  EXPECT_EQ("KXStreams_Test\nKXStreams_Test\n", testing::internal::GetCapturedStdout());
  EXPECT_GE(result, 0);
  EXPECT_EQ(expected, result);
}

}  // namespace
