#include "KXStreams.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "kxos.h"

namespace {

// Read while the program starts, before any test can have changed a setting.
const KXBool kStrictAtLoad = KXStreams::getStreamStrictMode();
const KXBool kTruncationAtLoad = KXStreams::allowFileTruncation();

// What each setting does once changed is checked where it takes effect.
TEST(StreamSettings, BothAreOnInAFreshProcess) {
  EXPECT_EQ(1, kStrictAtLoad);
  EXPECT_EQ(1, kTruncationAtLoad);
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
