#include <gtest/gtest.h>

#include <cstddef>

#include "KXBasicGenericStream.h"
#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"
#include "kxos.h"

namespace {

using namespace kxtest;

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
