#include "KXCachedInputStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KXProbeStream.h"
#include "KXStreams.h"

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

StreamPtr<KXCachedInputStream> openCache(KXBasicGenericStream& source, long cacheSize = 16384) {
  return opened<KXCachedInputStream>(&source, cacheSize);
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
TEST(KXCachedInputStream, ServesShortContentAtOnceAndAgainWithoutTheWrappedStream) {
  StreamPtr<KXProbeStream> source = openSource("short content", 13, 4);
  StreamPtr<KXCachedInputStream> stream = openCache(*source);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ("short content", transfer(*stream, KX_UNLIMITED_TRANSFER));
    EXPECT_EQ(1, stream->isAtEOF());
    stream->reset();
  }
  EXPECT_EQ(4, source->callsOf(kPrepare));
  EXPECT_EQ(4, source->callsOf(kComplete));
  stream.reset();
  EXPECT_EQ(0, source->callsOf(kClose));
  source->reset();
  source->setChunk(KX_UNLIMITED_TRANSFER);
  EXPECT_EQ("short content", transfer(*source, KX_UNLIMITED_TRANSFER));
}

// Requests of the rounded cache size: each refills the cache and delivers all of it.
TEST(KXCachedInputStream, RoundsTheCacheUpTo16KiBMultiplesAndRefillsItForEachRequest) {
  struct Case {
    size_t length;
    bool lengthKnown;
    long cacheSize;
    std::vector<size_t> chunks;
  };
  const Case cases[] = {{40000, false, 1, {16384, 16384, 7232}},
                        {40000, true, 16385, {32768, 7232}},
                        {32768, true, 16384, {16384, 16384}},
                        {32768, false, 16384, {16384, 16384, 0}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    const std::string content = randomBytes(c.length, 7);
    StreamPtr<KXProbeStream> source =
        openSource(content, c.lengthKnown ? static_cast<int64_t>(c.length) : -1);
    StreamPtr<KXCachedInputStream> stream = openCache(*source, c.cacheSize);
    std::string back;
    std::vector<size_t> chunks;
    while (stream->isAtEOF() == 0 && chunks.size() < 5) {
      const std::string chunk = transfer(*stream, static_cast<int64_t>(c.chunks[0]));
      chunks.push_back(chunk.size());
      back += chunk;
    }
    EXPECT_EQ(c.chunks, chunks);
    EXPECT_EQ(content, back);
  }
}

// Any position the cache holds can be returned to; a mark from before the latest refill is gone
// (SetMark(long) included), except one set exactly at the end of the content.
TEST(KXCachedInputStream, ReturnsOnlyToPositionsTheCacheStillHolds) {
  const std::string content = randomBytes(40000, 10);
  StreamPtr<KXProbeStream> source = openSource(content);
  StreamPtr<KXCachedInputStream> stream = openCache(*source);
  transfer(*stream, 100);
  stream->SetMark();
  EXPECT_EQ(content.substr(100, 200), transfer(*stream, 200));
  stream->resetMark();
  EXPECT_EQ(content.substr(100, 200), transfer(*stream, 200));
  stream->reset();
  EXPECT_EQ(content.substr(0, 50), transfer(*stream, 50));
  stream->SetMark(700);
  EXPECT_EQ(content.substr(700, 15684), transfer(*stream, 15684));
  transfer(*stream, 1000);
  const auto refused = thrownBy<KXMarkRequiredException>([&] { stream->resetMark(); });
  EXPECT_EQ("KXBasicGenericStream.resetMark", traces(refused));
  thrownBy<KXMarkRequiredException>([&] { stream->reset(); });
  {
    const LogCapture log;
    thrownBy<KXMarkRequiredException>([&] { stream->SetMark(100); });  // moves before it asks
    EXPECT_EQ(1, log.count("after reset {")) << "a refused reset is traced on both sides";
  }
  EXPECT_EQ(17384, stream->GetStreamPos());
  EXPECT_EQ(content.substr(17384, 15384), transfer(*stream, 15384));
  stream->SetMark();
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(content.substr(32768, 1000), transfer(*stream, 1000));
    stream->resetMark();
  }
}

// A second init() neither allocates again (the sanitizer build sees a leak) nor drops the cache.
TEST(KXCachedInputStream, SecondInitKeepsTheCache) {
  StreamPtr<KXProbeStream> source = openSource("cached bytes");
  StreamPtr<KXCachedInputStream> cache = openCache(*source, 1);
  EXPECT_EQ("cached", readString(*cache, 6));
  cache->init();
  EXPECT_EQ(" bytes", readString(*cache, 6));
}

}  // namespace
