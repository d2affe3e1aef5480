#include "UUID.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KXSysDep.h"
#include "KXTestSupport.h"

namespace {

constexpr uint64_t kUuidEpochOffset = 0x01B21DD213814000ULL;
constexpr int64_t kTicksPerSecond = 10000000;

uint64_t timestampOf(const kx_uuid_t& uuid) {
  return uint64_t{uuid.time_low} | (uint64_t{uuid.time_mid} << 32) |
         (uint64_t{uuid.time_hi_and_version & 0x0FFFu} << 48);
}

double unixSecondsNow() {
  struct timeval now {};
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6;
}

double unixSecondsOf(uint64_t uuidTime) {
  return static_cast<double>(uuidTime - kUuidEpochOffset) / kTicksPerSecond;
}

std::string textOf(const kx_uuid_t& uuid) {
  char* text = nullptr;
  const int length = kx_uuid_to_string(&uuid, &text);
  std::string result = text == nullptr ? "(null)" : text;
  EXPECT_EQ(length, static_cast<int>(strlen(text == nullptr ? "" : text)));
  EXPECT_EQ(0, kx_uuid_string_free(&text));
  EXPECT_EQ(nullptr, text) << "a second free must find nothing to free";
  return result;
}

// The 16 bytes as two words, so that a million keys sort without an allocation each.
using UuidKey = std::pair<uint64_t, uint64_t>;

UuidKey keyOf(const kx_uuid_t& uuid) {
  UuidKey key{};
  memcpy(&key.first, &uuid, 8);
  memcpy(&key.second, reinterpret_cast<const char*>(&uuid) + 8, 8);
  return key;
}

template <class Keys>
size_t distinctCount(Keys keys) {
  std::sort(keys.begin(), keys.end());
  return static_cast<size_t>(std::unique(keys.begin(), keys.end()) - keys.begin());
}

void makeUuidsInto(std::vector<UuidKey>& keys, int count) {
  kx_uuid_t uuid{};
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(native_uuid_create(&uuid), 1);
    keys.push_back(keyOf(uuid));
  }
}

// The node is hashed afresh for every UUID from the time of day, the host name and the process.
TEST(Uuid, FieldsCarryVersionVariantMarkedNodeAndCurrentTime) {
  std::vector<std::string> nodes;
  for (int i = 0; i < 100; ++i) {
    usleep(2);
    kx_uuid_t uuid{};
    ASSERT_EQ(kx_uuid_create(&uuid), 1);
    EXPECT_EQ(uuid.time_hi_and_version & 0xF000, 0x1000);
    EXPECT_EQ(uuid.clock_seq_hi_and_reserved & 0xC0, 0x80);
    EXPECT_EQ(uuid.node[0] & 0x80, 0x80) << "the node's first byte carries the top bit";
    // The node is the digest's hexadecimal text, its first byte marked.
    for (int b = 0; b < 6; ++b) {
      const int digit = b == 0 ? uuid.node[0] & 0x7F : uuid.node[b];
      EXPECT_TRUE(isxdigit(digit) && !isupper(digit)) << b << ": " << digit;
    }
    EXPECT_NEAR(unixSecondsOf(timestampOf(uuid)), unixSecondsNow(), 2.0);
    nodes.emplace_back(reinterpret_cast<const char*>(uuid.node), sizeof uuid.node);
  }
  EXPECT_GT(distinctCount(nodes), 90u);
}

// The zero record prints as zeros; a null record gives no text; a free nulls the pointer.
TEST(Uuid, TextFormIsLowerCaseHexInGroupsOf8_4_4_4_12AndFreedByTheLibrary) {
  kx_uuid_t uuid{};
  ASSERT_EQ(native_uuid_create(&uuid), 1);
  const std::string text = textOf(uuid);
  const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-1[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  EXPECT_TRUE(std::regex_match(text, form)) << text;
  EXPECT_EQ(std::stoul(text.substr(0, 8), nullptr, 16), uuid.time_low) << "fields in host order";

  const kx_uuid_t zero{};
  EXPECT_EQ(textOf(zero), "00000000-0000-0000-0000-000000000000");
  char* none = reinterpret_cast<char*>(&uuid);
  EXPECT_EQ(native_uuid_to_string(nullptr, &none), 0);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(native_uuid_string_free(nullptr), 0);
  errno = 0;
  EXPECT_EQ(native_uuid_create(nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Uuid, ConcurrentCreatorsGetDistinctTimeStamps) {
  std::vector<std::vector<UuidKey>> perThread(4);
  std::vector<std::thread> threads;
  threads.reserve(perThread.size());
  for (auto& keys : perThread) {
    threads.emplace_back([&keys] { makeUuidsInto(keys, 20000); });
  }
  // Unique time stamps, not just unique UUIDs: the random fields would hide a racing counter.
  std::vector<uint64_t> stamps;
  for (size_t i = 0; i < threads.size(); ++i) {
    threads[i].join();
    for (const UuidKey& key : perThread[i]) {
      stamps.push_back(key.first);
    }
  }
  EXPECT_EQ(4u * 20000u, distinctCount(stamps));
}

// Eight processes forked from one that already made a UUID, released at the same instant: the
// time of day, the host name and the inherited rand() sequence are the same in all of them, so
// only what each process draws for itself keeps their UUIDs apart.
TEST(Uuid, ProcessesReleasedTogetherNeverShareOne) {
  constexpr int kProcesses = 8;
  constexpr size_t kMostPerProcess = 50000;
  kx_uuid_t uuid{};
  ASSERT_EQ(native_uuid_create(&uuid), 1);
  cpu_set_t available;
  ASSERT_EQ(sched_getaffinity(0, sizeof available, &available), 0);
  std::vector<int> processors;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &available)) {
      processors.push_back(cpu);
    }
  }
  if (processors.size() < 2) {
    GTEST_SKIP() << "needs two processors to run processes at the same instant";
  }
  int gate[2] = {-1, -1};
  ASSERT_EQ(pipe(gate), 0);
  std::vector<pid_t> children;
  std::vector<int> results;
  for (int i = 0; i < kProcesses; ++i) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    children.push_back(kxtest::startChild([&] {
      // Spread over the processors, so that some of them run at the same microsecond.
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(processors[static_cast<size_t>(i) % processors.size()], &one);
      sched_setaffinity(0, sizeof one, &one);
      close(gate[1]);
      char released = 0;
      if (read(gate[0], &released, 1) != 0) {  // returns when the gate closes
        return 1;
      }
      // For a while rather than a count, so that processes sharing a processor still overlap.
      const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
      std::vector<kx_uuid_t> made;
      while (std::chrono::steady_clock::now() < end && made.size() < kMostPerProcess) {
        made.emplace_back();
        native_uuid_create(&made.back());
      }
      const auto size = static_cast<ssize_t>(made.size() * sizeof(kx_uuid_t));
      return write(ends[1], made.data(), static_cast<size_t>(size)) == size ? 0 : 2;
    }));
    close(ends[1]);
    results.push_back(ends[0]);
  }
  close(gate[0]);
  close(gate[1]);
  // A time stamp met in another process must come with another node there; the hashed node has
  // 24 bits, so a match by chance stays allowed, far below one in a thousand.
  using Node = std::array<uint8_t, sizeof(kx_uuid_t::node)>;
  std::unordered_map<uint64_t, std::pair<int, Node>> byStamp;
  std::vector<UuidKey> seen;
  int sameStamps = 0;
  int sharedNodes = 0;
  for (int i = 0; i < kProcesses; ++i) {
    while (read(results[i], &uuid, sizeof uuid) == static_cast<ssize_t>(sizeof uuid)) {
      seen.push_back(keyOf(uuid));
      Node node{};
      memcpy(node.data(), uuid.node, node.size());
      const auto met = byStamp.emplace(timestampOf(uuid), std::make_pair(i, node));
      if (!met.second && met.first->second.first != i) {
        ++sameStamps;
        sharedNodes += met.first->second.second == node ? 1 : 0;
      }
    }
    close(results[i]);
    EXPECT_EQ(kxtest::waitChild(children[i]), 0);
  }
  EXPECT_EQ(distinctCount(seen), seen.size());
  EXPECT_LE(sharedNodes * 1000, sameStamps) << sharedNodes << " of " << sameStamps;
}

TEST(SysDep, ClocksAgreeWithTheSystemTime) {
  uint64_t uuidTime = 0;
  kx_get_system_time(&uuidTime);
  EXPECT_EQ((uuidTime - kUuidEpochOffset) % 10, 0u) << "microsecond resolution";
  EXPECT_NEAR(unixSecondsOf(uuidTime), unixSecondsNow(), 1.0);
  // Seconds and milliseconds come from separate reads: a step back stays under one second.
  int64_t previous = kx_timestamp();
  EXPECT_NEAR(previous / 1000.0, unixSecondsNow(), 2.0);
  bool sawMilliseconds = false;  // a clock that drops them reads whole seconds only
  for (int i = 0; i < 10000; ++i) {
    const int64_t now = kx_timestamp();
    EXPECT_GT(now, previous - 1000);
    sawMilliseconds = sawMilliseconds || now % 1000 != 0;
    previous = now;
    if (i % 100 == 0) {
      usleep(100);
    }
  }
  EXPECT_TRUE(sawMilliseconds);
}

}  // namespace
