#include "UUID.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "KXSysDep.h"
#include "KXTestSupport.h"

namespace {

uint64_t timestampOf(const kx_uuid_t& uuid) {
  return uint64_t{uuid.time_low} | (uint64_t{uuid.time_mid} << 32) |
         (uint64_t{uuid.time_hi_and_version & 0x0FFFu} << 48);
}

// How far a UUID time (100 ns since 1582-10-15) is from now, in seconds.
double secondsFromNow(uint64_t uuidTime) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<double>(uuidTime - 0x01B21DD213814000ULL) / 1e7 -
         std::chrono::duration<double>(now).count();
}

// The node is the digest's lower-case hexadecimal text, the top bit of its first byte set,
// hashed afresh for every UUID from the time of day, the host name and the process.
TEST(Uuid, FieldsCarryVersionVariantMarkedNodeAndCurrentTime) {
  std::set<std::string> nodes;
  for (int i = 0; i < 100; ++i, usleep(2)) {
    kx_uuid_t uuid{};
    ASSERT_EQ(kx_uuid_create(&uuid), 1);
    EXPECT_EQ(uuid.time_hi_and_version & 0xF000, 0x1000);
    EXPECT_EQ(uuid.clock_seq_hi_and_reserved & 0xC0, 0x80);
    const std::string node(reinterpret_cast<const char*>(uuid.node), sizeof uuid.node);
    EXPECT_EQ(node[0] & 0x80, 0x80);
    EXPECT_TRUE(std::regex_match(char(node[0] & 0x7F) + node.substr(1), std::regex("[0-9a-f]+")));
    EXPECT_NEAR(secondsFromNow(timestampOf(uuid)), 0, 2.0);
    nodes.insert(node);
  }
  EXPECT_GT(nodes.size(), 90u);
}

// The zero record prints as zeros; a null record gives no text; a free nulls the pointer.
TEST(Uuid, TextFormIsLowerCaseHexInGroupsOf8_4_4_4_12AndFreedByTheLibrary) {
  kx_uuid_t uuid{};
  ASSERT_EQ(native_uuid_create(&uuid), 1);
  char* text = nullptr;
  ASSERT_EQ(36, kx_uuid_to_string(&uuid, &text));
  EXPECT_TRUE(std::regex_match(
      text, std::regex("[0-9a-f]{8}-[0-9a-f]{4}-1[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")));
  EXPECT_EQ(std::stoul(std::string(text, 8), nullptr, 16), uuid.time_low) << "in host order";
  EXPECT_EQ(0, kx_uuid_string_free(&text));
  EXPECT_EQ(nullptr, text);
  const kx_uuid_t zero{};
  ASSERT_EQ(36, native_uuid_to_string(&zero, &text));
  EXPECT_STREQ("00000000-0000-0000-0000-000000000000", text);
  native_uuid_string_free(&text);
  EXPECT_EQ(native_uuid_to_string(nullptr, &text), 0);
  EXPECT_EQ(native_uuid_create(nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
}

// Eight processes forked from one that already made a UUID, released at the same instant: the
// time of day, the host name and the inherited rand() sequence are the same in all of them, so
// only what each process draws for itself keeps their UUIDs apart.
TEST(Uuid, ProcessesReleasedTogetherNeverShareOne) {
  kx_uuid_t uuid{};
  ASSERT_EQ(native_uuid_create(&uuid), 1);
  cpu_set_t available;
  if (sched_getaffinity(0, sizeof available, &available) != 0 || CPU_COUNT(&available) < 2) {
    GTEST_SKIP() << "needs two processors to run processes at the same instant";
  }
  int gate[2] = {-1, -1};
  ASSERT_EQ(pipe(gate), 0);
  std::vector<std::pair<pid_t, int>> children;  // each child's process and result pipe
  for (int i = 0; i < 8; ++i) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    children.emplace_back(
        kxtest::startChild([&] {
          close(gate[1]);
          char released = 0;
          if (read(gate[0], &released, 1) != 0) {  // returns when the gate closes
            return 1;
          }
          // For a while rather than a count, so that processes sharing a processor still overlap.
          const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
          std::vector<kx_uuid_t> made;
          while (std::chrono::steady_clock::now() < end && made.size() < 50000) {
            made.emplace_back();
            native_uuid_create(&made.back());
          }
          const auto size = static_cast<ssize_t>(made.size() * sizeof(kx_uuid_t));
          return write(ends[1], made.data(), static_cast<size_t>(size)) == size ? 0 : 2;
        }),
        ends[0]);
    close(ends[1]);
  }
  close(gate[0]);
  close(gate[1]);
  // A time stamp met in another process must come with another node there; the hashed node has
  // 24 bits, so a match by chance stays allowed, far below one in a thousand.
  std::map<uint64_t, std::pair<size_t, std::string>> byStamp;
  int sameStamps = 0;
  int sharedNodes = 0;
  for (size_t i = 0; i < children.size(); ++i) {
    while (read(children[i].second, &uuid, sizeof uuid) == static_cast<ssize_t>(sizeof uuid)) {
      const std::string node(reinterpret_cast<const char*>(uuid.node), sizeof uuid.node);
      const auto met = byStamp.emplace(timestampOf(uuid), std::make_pair(i, node));
      if (!met.second && met.first->second.first != i) {
        ++sameStamps;
        sharedNodes += met.first->second.second == node ? 1 : 0;
      }
    }
    close(children[i].second);
    EXPECT_EQ(kxtest::waitChild(children[i].first), 0);
  }
  EXPECT_LE(sharedNodes * 1000, sameStamps) << sharedNodes << " of " << sameStamps;
}

// Seconds and milliseconds come from separate reads: a step back stays under one second.
TEST(SysDep, ClocksAgreeWithTheSystemTime) {
  uint64_t uuidTime = 0;
  kx_get_system_time(&uuidTime);
  EXPECT_EQ(uuidTime % 10, 0x01B21DD213814000ULL % 10) << "microsecond resolution";
  EXPECT_NEAR(secondsFromNow(uuidTime), 0, 1.0);
  int64_t previous = kx_timestamp();
  EXPECT_NEAR(secondsFromNow(static_cast<uint64_t>(previous) * 10000 + 0x01B21DD213814000ULL), 0,
              2.0);
  bool sawMilliseconds = false;  // a clock that drops them reads whole seconds only
  for (int i = 0; i < 100; ++i, usleep(100)) {
    const int64_t now = kx_timestamp();
    EXPECT_GT(now, previous - 1000);
    sawMilliseconds = sawMilliseconds || now % 1000 != 0;
    previous = now;
  }
  EXPECT_TRUE(sawMilliseconds);
}

}  // namespace
