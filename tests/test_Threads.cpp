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
  std::string copy = content;
  auto* memIn = KXStreams::createMemStream(&copy[0], copy.size(), KXMemStream::eIn);
  memIn->init();
  const std::string expected = identifierOf(*memIn);
  memIn->close();
  std::string failures;
  const auto check = [&](bool held, const char* what) { failures += held ? "" : what; };

  const std::string path = dir.file("thread" + std::to_string(index));
  auto* out = KXStreams::createFileStream(path.c_str(), "w", 0, KXFileStream::eOut, 0);
  out->init();
  out->write(&copy[0], static_cast<int>(copy.size()));
  out->close();
  auto* in = KXStreams::createFileStream(path.c_str(), "rb", 16384, KXFileStream::eIn, 0);
  in->init();
  check(identifierOf(*in) == expected, "file identifier");
  check(readString(*in, static_cast<int>(content.size())) == content, "file bytes");
  in->close();

  std::string region(content.size(), '\0');
  auto* memOut = KXStreams::createMemStream(&region[0], region.size(), KXMemStream::eOut);
  memOut->init();
  memOut->write(&copy[0], static_cast<int>(copy.size()));
  memOut->close();
  check(region == content, "memory output");

  auto* temp = KXStreams::createTempStream(1000);
  temp->init();
  temp->write(&copy[0], static_cast<int>(copy.size()));
  temp->reset();
  check(readString(*temp, static_cast<int>(content.size())) == content, "temporary bytes");
  temp->close();

  auto* null = KXStreams::createNullStream();
  null->init();
  null->write(&copy[0], static_cast<int>(copy.size()));
  check(null->GetStreamPos() == static_cast<long>(content.size()), "null count");
  null->close();

  StringSource source{content};
  auto* custom = KXStreams::createCustomStream(&stringSourcePrepare, nullptr, &stringSourceSetMarker,
                                               &stringSourceResetMarker, nullptr, &source);
  custom->init();
  custom->SetReadable();
  check(identifierOf(*custom) == expected, "custom identifier");
  custom->close();

  auto* first = KXStreams::createMemStream(&copy[0], 20000, KXMemStream::eIn);
  auto* second = KXStreams::createMemStream(&copy[20000], copy.size() - 20000, KXMemStream::eIn);
  first->init();
  second->init();
  auto* array = KXStreams::createStreamArray(first, second);
  array->init();
  check(identifierOf(*array) == expected, "array identifier");
  array->close();
  auto* cached = KXStreams::createCachedInputStream(first, 65536);
  first->reset();
  cached->init();
  check(readString(*cached, 20000) == content.substr(0, 20000), "cached bytes");
  cached->close();
  first->close();
  second->SetWritable();
  second->close();
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
