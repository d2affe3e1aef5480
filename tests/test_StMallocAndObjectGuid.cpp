#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "KXException.h"
#include "KXObjectGuid.h"
#include "KXTestSupport.h"
#include "StMalloc.h"

namespace {

TEST(StMalloc, ProvidesAWritableBlock) {
  const StMalloc block(4096, 0);
  ASSERT_NE(block.get(), nullptr);
  std::memset(block.get(), 0xab, 4096);
  const StMalloc empty(0, 0);
}

TEST(StMalloc, ReleaseHandsOverOwnership) {
  void* released = nullptr;
  {
    StMalloc block(64, 0);
    void* original = block.get();
    released = block.release();
    EXPECT_EQ(released, original);
    EXPECT_EQ(block.get(), nullptr);
  }
  // Still ours after the guard is gone: writing and freeing it is fine.
  std::memset(released, 0, 64);
  free(released);
}

TEST(StMalloc, NegativeSizeThrowsOutOfMemoryAndLogsIt) {
  kxtest::LogCapture capture(false, 1);
  try {
    StMalloc block(-1, 0);
    FAIL() << "no exception";
  } catch (const KXOutOfMemException& caught) {
    EXPECT_EQ(caught.GetCode(), 12);
  }
  EXPECT_EQ(capture.count(1, "KXOutOfMemException"), 1);
}

class UpperCaseGuid : public KXObjectGuid {
 public:
  char GetFormat() const override { return 'X'; }
};

TEST(KXObjectGuid, FormatIsLowerCaseHexUnlessOverridden) {
  const KXObjectGuid plain;
  const UpperCaseGuid upper;
  const KXObjectGuid& throughBase = upper;
  EXPECT_EQ(plain.GetFormat(), 'x');
  EXPECT_EQ(throughBase.GetFormat(), 'X');
}

TEST(KXObjectGuid, KeepsACopyOfTheIdUntilCleared) {
  KXObjectGuid guid;
  EXPECT_STREQ(guid.GetID(), "");
  char text[] = "900150983cd24fb0d6963f7d28e17f72";
  guid.SetID(text);
  text[0] = '#';
  EXPECT_STREQ(guid.GetID(), "900150983cd24fb0d6963f7d28e17f72");
  const KXObjectGuid copy(guid);
  guid.SetID(nullptr);
  EXPECT_STREQ(guid.GetID(), "");
  EXPECT_STREQ(copy.GetID(), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
