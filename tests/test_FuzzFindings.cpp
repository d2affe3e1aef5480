// Regression tests for what the fuzzers found.

#include <gtest/gtest.h>

#include <string>

#include "KXCustomStream.h"
#include "KXObjectGuid.h"
#include "KXTempStream.h"
#include "KXTestSupport.h"

namespace {

using namespace kxtest;

// A completed read past the end raises the length (the engine's rule); the memory part up to
// there was never written and must read as zeros, not as the allocator's leftovers.
TEST(FuzzFindings, TemporaryStreamMemoryNeverWrittenReadsAsZeros) {
  StreamPtr<KXTempStream> stream(new KXTempStream(64));
  stream->init();
  std::string bytes = randomBytes(10, 5);
  stream->write(&bytes[0], 10);
  stream->SetMark(40);
  stream->SetReadable();
  stream->prepareBuffer();
  stream->complete();
  ASSERT_EQ(40, stream->GetLength());
  stream->reset();
  EXPECT_EQ(bytes + std::string(30, '\0'), readString(*stream, 40));
}

long completeOnly(KXStreamInfo* info) {
  if (info->mReadFlag == 0) {
    info->mStreamPos += info->mTransferLen;
  }
  return 0;
}

// Without a prepare callback nothing offers a buffer: read() and the content identifier must
// not use the one the last write() left in the record.
TEST(FuzzFindings, AKindThatOffersNoBufferIsNeitherCopiedNorDigestedFromAStaleOne) {
  StrictModeScope lenient(0);  // a default prepare moves no position
  StreamPtr<KXCustomStream> stream(
      new KXCustomStream(nullptr, &completeOnly, nullptr, nullptr, nullptr, nullptr));
  stream->init();
  std::string written(64, 'w');
  stream->write(&written[0], 64);
  std::string target(10, 'z');
  EXPECT_EQ(10, stream->read(&target[0], 10));
  EXPECT_EQ(std::string(10, 'z'), target);
  KXObjectGuid id;
  stream->calcIDWithChangeMark(id, 1000);
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", id.GetID());  // the digest of no bytes
}

}  // namespace
