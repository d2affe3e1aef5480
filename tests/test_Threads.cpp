// Distinct streams of every kind driven from eight threads at once, with debug tracing into one
// log sink, content identifiers and UUIDs all running side by side. Built with ThreadSanitizer
// (.ci/tsan.sh) it checks that the only shared state, the utilities library's, is properly
// guarded.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "KXObjectGuid.h"
#include "KXStreams.h"
#include "KXTestSupport.h"
#include "UUID.h"

namespace {

using namespace kxtest;

std::string identifierOf(KXBasicGenericStream& stream) {
  KXObjectGuid id;
  stream.calcID(id, -1);
  return id.GetID();
}

// Every kind over the same content gives the same content identifier; the null stream counts it.
void driveEveryKind(const TempDir& dir, int index) {
  std::string content = randomBytes(50000 + static_cast<size_t>(index) * 1000, index);
  const std::string path = dir.file("thread" + std::to_string(index));
  writeString(*opened<KXFileStream>(path.c_str(), "w", 0, KXFileStream::eOut, KXBool{0}), content);
  auto file = opened<KXFileStream>(path.c_str(), "rb", 16384, KXFileStream::eIn, KXBool{0});
  auto temp = opened<KXTempStream>(1000);
  writeString(*temp, content);
  temp->reset();
  temp->SetReadable();
  auto null = opened<KXNullStream>();
  writeString(*null, content);
  EXPECT_EQ(static_cast<long>(content.size()), null->GetStreamPos());
  StringSource source{content};
  auto custom = opened<KXCustomStream>(&stringSourcePrepare, nullptr, &stringSourceSetMarker,
                                       &stringSourceResetMarker, nullptr, &source);
  custom->SetReadable();
  auto whole = opened<KXMemStream>(&content[0], content.size(), KXMemStream::eIn);
  auto first = opened<KXMemStream>(&content[0], 20000, KXMemStream::eIn);
  auto second = opened<KXMemStream>(&content[20000], content.size() - 20000, KXMemStream::eIn);
  const std::string expected = identifierOf(*whole);
  auto array = opened<KXStreamArray>(first.get(), second.get());
  auto cached = opened<KXCachedInputStream>(whole.get(), 65536);
  for (KXBasicGenericStream* stream : std::vector<KXBasicGenericStream*>{
           file.get(), temp.get(), custom.get(), array.get(), cached.get()}) {
    EXPECT_EQ(expected, identifierOf(*stream)) << "thread " << index;
  }
}

TEST(Threads, StreamsOfEveryKindRunSideBySideWithTracingIntoOneSink) {
  TempDir dir;
  LogCapture capture(true);
  std::vector<std::vector<std::string>> uuids(8);
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) {
    threads.emplace_back([&, index] {
      EXPECT_NO_THROW(driveEveryKind(dir, index));
      for (kx_uuid_t uuid{}; uuids[index].size() < 50;) {
        char* text = nullptr;
        native_uuid_create(&uuid);
        native_uuid_to_string(&uuid, &text);
        uuids[index].emplace_back(text);
        native_uuid_string_free(&text);
      }
    });
  }
  std::set<std::string> distinct;
  for (int index = 0; index < 8; ++index) {
    threads[index].join();
    distinct.insert(uuids[index].begin(), uuids[index].end());
  }
  EXPECT_EQ(8u * 50u, distinct.size());
  EXPECT_GT(capture.count(3, "before prepare"), 8);
}

}  // namespace
