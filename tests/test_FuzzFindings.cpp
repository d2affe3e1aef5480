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
  auto stream = opened<KXTempStream>(64);
  writeString(*stream, std::string("0123456789"));
  stream->SetMark(40);
  stream->SetReadable();
  stream->prepareBuffer();
  stream->complete();
  stream->reset();
  EXPECT_EQ(std::string("0123456789") + std::string(30, '\0'), readString(*stream, 41));
}

long completeOnly(KXStreamInfo* info) {
  info->mStreamPos += info->mReadFlag == 0 ? info->mTransferLen : 0;
  return 0;
}

// Without a prepare callback nothing offers a buffer: read() and the content identifier must
// not use the one the last write() left in the record.
TEST(FuzzFindings, AKindThatOffersNoBufferIsNeitherCopiedNorDigestedFromAStaleOne) {
  StrictModeScope lenient(0);  // a default prepare moves no position
  auto stream = opened<KXCustomStream>(nullptr, &completeOnly, nullptr, nullptr, nullptr, nullptr);
  std::string bytes(64, 'w');
  stream->write(&bytes[0], 64);
  std::string target(10, 'z');
  EXPECT_EQ(10, stream->read(&target[0], 10));
  EXPECT_EQ(std::string(10, 'z'), target);
  KXObjectGuid id;
  stream->calcIDWithChangeMark(id, 1000);
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", id.GetID());  // the digest of no bytes
}

}  // namespace
