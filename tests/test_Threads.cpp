// Distinct streams of every kind driven from eight threads at once, with debug tracing into one
// log sink, content identifiers, UUIDs and the text conversions all running side by side. Built
// with ThreadSanitizer (tests/tsan.sh) it checks that the only shared state, the utilities
// library's, is properly guarded.

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

constexpr int kThreads = 8;

std::string identifierOf(KXBasicGenericStream& stream) {
  KXObjectGuid id;
  stream.calcID(id, -1);
  return id.GetID();
}

// Every kind in turn; returns what went wrong, empty when all held.
std::string driveEveryKind(const TempDir& dir, int index) {
  const std::string content = randomBytes(50000 + static_cast<size_t>(index) * 1000, index);
  const int size = static_cast<int>(content.size());
  std::string copy = content;
  const std::string expected =
      identifierOf(*opened<KXMemStream>(&copy[0], copy.size(), KXMemStream::eIn));
  std::string failures;
  const auto check = [&](bool held, const char* what) { failures += held ? "" : what; };

  const std::string path = dir.file("thread" + std::to_string(index));
  writeString(*opened<KXFileStream>(path.c_str(), "w", 0, KXFileStream::eOut, KXBool{0}), content);
  {
    auto in = opened<KXFileStream>(path.c_str(), "rb", 16384, KXFileStream::eIn, KXBool{0});
    check(identifierOf(*in) == expected, "file identifier; ");
    check(readString(*in, size) == content, "file bytes; ");
  }
  std::string region(content.size(), '\0');
  writeString(*opened<KXMemStream>(&region[0], region.size(), KXMemStream::eOut), content);
  check(region == content, "memory output; ");
  {
    auto temp = opened<KXTempStream>(1000);
    writeString(*temp, content);
    temp->reset();
    check(readString(*temp, size) == content, "temporary bytes; ");
    auto null = opened<KXNullStream>();
    writeString(*null, content);
    check(null->GetStreamPos() == size, "null count; ");
  }
  StringSource source{content};
  auto custom = opened<KXCustomStream>(&stringSourcePrepare, nullptr, &stringSourceSetMarker,
                                       &stringSourceResetMarker, nullptr, &source);
  custom->SetReadable();
  check(identifierOf(*custom) == expected, "custom identifier; ");
  auto first = opened<KXMemStream>(&copy[0], 20000, KXMemStream::eIn);
  auto second = opened<KXMemStream>(&copy[20000], copy.size() - 20000, KXMemStream::eIn);
  check(identifierOf(*opened<KXStreamArray>(first.get(), second.get())) == expected,
        "array identifier; ");
  first->reset();
  check(readString(*opened<KXCachedInputStream>(first.get(), 65536), 20000) ==
            content.substr(0, 20000),
        "cached bytes; ");
  second->SetWritable();  // read to its end by the array, not by this thread
  return failures;
}

std::string uuidText() {
  kx_uuid_t uuid{};
  char* text = nullptr;
  native_uuid_create(&uuid);
  native_uuid_to_string(&uuid, &text);
  std::string copy = text;
  native_uuid_string_free(&text);
  return copy;
}

TEST(Threads, StreamsOfEveryKindRunSideBySideWithTracingIntoOneSink) {
  TempDir dir;
  LogCapture capture(true);
  std::vector<std::string> failures(kThreads);
  std::vector<std::vector<std::string>> uuids(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int index = 0; index < kThreads; ++index) {
    threads.emplace_back([&, index] {
      try {
        failures[index] = driveEveryKind(dir, index);
      } catch (const KXException& e) {
        failures[index] = e.what();
      }
      for (int i = 0; i < 50; ++i) {
        uuids[index].push_back(uuidText());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (int index = 0; index < kThreads; ++index) {
    EXPECT_EQ("", failures[index]) << "thread " << index;
  }
  std::set<std::string> distinct;
  for (const auto& list : uuids) {
    distinct.insert(list.begin(), list.end());
  }
  EXPECT_EQ(static_cast<size_t>(kThreads * 50), distinct.size());
  EXPECT_GT(capture.count(3, "before prepare"), kThreads);
}

}  // namespace
