#include <gtest/gtest.h>

#include <string>

#include "KXBasicGenericStream.h"
#include "KXException.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"
#include "kxos.h"

namespace {

using kxtest::hasTrace;
using kxtest::LogCapture;
using kxtest::StrictModeScope;
using kxtest::thrownBy;
using kxtest::traces;

KXNullStream* createUninitialised(KXBool strict) {
  StrictModeScope scope(strict);
  return new KXNullStream();
}

KXNullStream* create(KXBool strict) {
  KXNullStream* stream = createUninitialised(strict);
  stream->init();
  return stream;
}

char gBytes[16] = "0123456789abcde";

TEST(NullStream, StartsAsAnOutputStreamOfUnknownLength) {
  KXNullStream* stream = createUninitialised(1);
  const KXStreamInfo* info = stream->GetInfo();
  EXPECT_EQ(0, info->mReadFlag);
  EXPECT_EQ(-1, info->mStreamLen);
  EXPECT_EQ(0, info->mStreamPos);
  stream->close();
}

// The same in both modes: a correct use of the null stream never trips the validation.
TEST(NullStream, CountsWhatIsWrittenAndReturnsToMarks) {
  for (KXBool strict : {KXBool{1}, KXBool{0}}) {
    SCOPED_TRACE(static_cast<int>(strict));
    LogCapture log;
    KXNullStream* stream = create(strict);
    EXPECT_EQ(10, stream->write(gBytes, 10));
    EXPECT_EQ(5, stream->write(gBytes, 5));
    EXPECT_EQ(15, stream->GetStreamPos());
    EXPECT_EQ(-1, stream->GetLength());

    stream->SetMark();
    EXPECT_EQ(15, stream->GetInfo()->mMarkerPos);
    EXPECT_EQ(7, stream->write(gBytes, 7));
    EXPECT_EQ(22, stream->GetStreamPos());
    stream->resetMark();
    EXPECT_EQ(15, stream->GetStreamPos());

    stream->reset();
    EXPECT_EQ(0, stream->GetStreamPos());
    EXPECT_EQ(0, stream->GetInfo()->mMarkerPos);
    stream->SetMark(4);
    EXPECT_EQ(4, stream->GetStreamPos());
    EXPECT_NO_THROW(stream->close());
    EXPECT_EQ(0, log.count("KX_STREAM_"));
  }
}

TEST(NullStream, RefusesToBeReadAndCanBeWrittenAfterwards) {
  KXNullStream* stream = create(1);
  char buffer[4];
  const auto error = thrownBy<KXNotSupportedException>([&] { stream->read(buffer, 4); });
  EXPECT_EQ(0, error.GetCode());
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.noReadPrepBuffer")) << traces(error);
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.prepareBuffer")) << traces(error);
  // Still switched to input: a hand-driven transfer is refused the same way.
  EXPECT_EQ(1, stream->GetInfo()->mReadFlag);
  thrownBy<KXNotSupportedException>([&] { stream->prepareBuffer(); });

  EXPECT_EQ(3, stream->write(gBytes, 3));
  EXPECT_EQ(0, stream->GetInfo()->mReadFlag);
  EXPECT_EQ(3, stream->GetStreamPos());
  stream->close();
}

TEST(NullStream, HandDrivenTransferCountsWithoutABuffer) {
  for (KXBool strict : {KXBool{1}, KXBool{0}}) {
    SCOPED_TRACE(static_cast<int>(strict));
    KXNullStream* stream = create(strict);
    KXStreamInfo* info = stream->prepareBuffer();
    EXPECT_EQ(stream->GetInfo(), info);
    EXPECT_EQ(nullptr, info->mBuffer);
    EXPECT_EQ(0, info->mTransferLen);
    info->mTransferLen = 9;
    stream->complete();
    EXPECT_EQ(9, stream->GetStreamPos());
    EXPECT_EQ(9, info->mTransferLen);
    stream->close();
  }
}

TEST(NullStream, WritingBeforeInitFailsTheAssertion) {
  KXNullStream* stream = createUninitialised(1);
  const auto error = thrownBy<KXSDKInternalException>([&] { stream->write(gBytes, 4); });
  EXPECT_STREQ("mInited == (KXBool)true", error.GetMessage());
  EXPECT_TRUE(hasTrace(error, "KXBasicGenericStream.prepareBuffer")) << traces(error);
  stream->init();
  EXPECT_EQ(4, stream->write(gBytes, 4));
  stream->close();
}

AliasArray::Entry* entryWithBlock(size_t size) { return new AliasArray::Entry{kx_malloc(size)}; }

AliasArray::Entry* entryWithoutBlock() { return new AliasArray::Entry{nullptr}; }

void releaseEntry(AliasArray::Entry* entry) {
  kx_free(entry->mBlock);
  delete entry;
}

// What the array must free shows in the sanitizer build's leak report; what it must not free
// shows as a use after free or a double free there.
TEST(AliasArray, OwningArrayFreesEveryEntryAndBlock) {
  auto** entries = new AliasArray::Entry* [4] {
    entryWithBlock(16), entryWithoutBlock(), nullptr, entryWithBlock(1)
  };
  delete new AliasArray(4, entries, 1);
}

TEST(AliasArray, ArrayThatDoesNotOwnItsEntriesFreesOnlyThePointerArray) {
  AliasArray::Entry* kept = entryWithBlock(8);
  {
    AliasArray array(
        2, new AliasArray::Entry* [2] { kept, nullptr }, 0);
  }
  EXPECT_NE(nullptr, kept->mBlock);
  releaseEntry(kept);
}

TEST(AliasArray, EmptyOrNegativeCountFreesNoEntries) {
  for (int count : {0, -1}) {
    SCOPED_TRACE(count);
    AliasArray::Entry* kept = entryWithBlock(8);
    {
      AliasArray array(
          count, new AliasArray::Entry* [1] { kept }, 1);
    }
    EXPECT_NE(nullptr, kept->mBlock);
    releaseEntry(kept);
  }
  { AliasArray array(0, nullptr, 1); }
}

}  // namespace
