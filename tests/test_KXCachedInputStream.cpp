#include "KXCachedInputStream.h"

#include <gtest/gtest.h>

#include "KXProbeStream.h"
#include "KXStreams.h"

// Bytes, positions, marks and the cache's rounding over an input of known length are checked by
// the protocol fuzzer's model; these are what it does not see.
namespace {

using namespace kxtest;

// An input of unknown length unless one is given, delivering at most chunk bytes a transfer.
StreamPtr<KXProbeStream> openSource(const std::string& content, int64_t length = -1,
                                    int64_t chunk = 5000) {
  StreamPtr<KXProbeStream> source(KXProbeStream::create(1, content, length));
  source->SetReadable();
  source->setChunk(chunk);
  return source;
}

// One hand-driven transfer asking for count bytes, completed unless it ended the stream.
std::string transfer(KXBasicGenericStream& stream, int64_t count) {
  KXStreamInfo* info = stream.GetInfo();
  info->mTransferLen = count;
  stream.prepareBuffer();
  std::string bytes(info->mTransferLen > 0 ? info->mBuffer : "",
                    static_cast<size_t>(info->mTransferLen));
  if (info->mAtEOF == 0) {
    stream.complete();
  }
  return bytes;
}

TEST(KXCachedInputStream, RefusesToWrapAStreamThatIsNotAnInput) {
  auto* output = new KXTempStream(0);  // starts as an output
  thrownBy<KXWrongStreamException>([&] { KXCachedInputStream refused(output, 16384); });
  thrownBy<KXWrongStreamException>([&] { KXStreams::createCachedInputStream(output, 16384); });
  output->close();
}

// Every prepare of the wrapped stream is paired with a complete; closing leaves it to its owner.
// A second init() neither allocates again (the sanitizer build sees a leak) nor drops the cache.
TEST(KXCachedInputStream, ServesShortContentAtOnceAndAgainWithoutTheWrappedStream) {
  StreamPtr<KXProbeStream> source = openSource("short content", 13, 4);
  auto stream = opened<KXCachedInputStream>(source.get(), 1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ("short content", transfer(*stream, KX_UNLIMITED_TRANSFER));
    EXPECT_EQ(1, stream->isAtEOF());
    stream->reset();
    stream->init();
  }
  EXPECT_EQ(4, source->callsOf(kPrepare));
  EXPECT_EQ(4, source->callsOf(kComplete));
  stream.reset();
  EXPECT_EQ(0, source->callsOf(kClose));
}

// A refused return to a mark from before the latest refill is traced on both sides, and
// SetMark(long) moves before it asks.
TEST(KXCachedInputStream, ReturnsOnlyToPositionsTheCacheStillHolds) {
  StreamPtr<KXProbeStream> source = openSource(randomBytes(40000, 10));
  auto stream = opened<KXCachedInputStream>(source.get(), 16384);
  readString(*stream, 16384);
  readString(*stream, 1000);  // refills the cache
  const auto refused = thrownBy<KXMarkRequiredException>([&] { stream->resetMark(); });
  EXPECT_EQ("KXBasicGenericStream.resetMark", traces(refused));
  const LogCapture log;
  thrownBy<KXMarkRequiredException>([&] { stream->SetMark(100); });
  EXPECT_EQ(1, log.count("after reset {"));
}

}  // namespace
