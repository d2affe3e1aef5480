#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "KXException.h"
#include "KXObjectGuid.h"
#include "KXTestSupport.h"
#include "StMalloc.h"

namespace {

// The sanitizer build's leak checker sees a block the guard kept or freed twice.
TEST(StMalloc, OwnsAWritableBlockUntilReleased) {
  const StMalloc block(4096, 0);
  ASSERT_NE(nullptr, block.get());
  std::memset(block.get(), 0xab, 4096);
  const StMalloc empty(0, 0);
  void* released = nullptr;
  {
    StMalloc owner(64, 0);
    void* original = owner.get();
    released = owner.release();
    EXPECT_EQ(original, released);
    EXPECT_EQ(nullptr, owner.get());
  }
  std::memset(released, 0, 64);
  free(released);
}

TEST(StMalloc, NegativeSizeThrowsOutOfMemoryAndLogsIt) {
  kxtest::LogCapture capture(false, 1);
  EXPECT_EQ(12, kxtest::thrownBy<KXOutOfMemException>([] { StMalloc block(-1, 0); }).GetCode());
  EXPECT_EQ(1, capture.count(1, "KXOutOfMemException"));
}

TEST(KXObjectGuid, IsLowerCaseUnlessOverriddenAndKeepsACopyOfTheIdUntilCleared) {
  struct UpperCaseGuid : KXObjectGuid {
    char GetFormat() const override { return 'X'; }
  } upper;
  const KXObjectGuid& throughBase = upper;
  EXPECT_EQ('X', throughBase.GetFormat());
  KXObjectGuid guid;
  EXPECT_EQ('x', guid.GetFormat());
  EXPECT_STREQ("", guid.GetID());
  char text[] = "900150983cd24fb0d6963f7d28e17f72";
  guid.SetID(text);
  text[0] = '#';
  EXPECT_STREQ("900150983cd24fb0d6963f7d28e17f72", guid.GetID());
  const KXObjectGuid copy(guid);
  guid.SetID(nullptr);
  EXPECT_STREQ("", guid.GetID());
  EXPECT_STREQ("900150983cd24fb0d6963f7d28e17f72", copy.GetID());
}

}  // namespace
