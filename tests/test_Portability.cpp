// The kx_ portability layer, time-based UUIDs and the system clocks.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "KXSysDep.h"
#include "KXTestSupport.h"
#include "UUID.h"
#include "kxos.h"

namespace {

// Mode names ignore case; none truncates but "w"; "a" starts at the end without O_APPEND, so
// that a seek moves the writes; an unknown mode opens for reading at the start. Only "w" and "a"
// create a missing file, with 0755 less the umask. A directory opens when allowed (file streams
// refuse one: see their failure table).
TEST(KxOpen, ModeNamesSetAccessStartCreationAndCloseOnExec) {
  const struct {
    const char* mode;
    int access;
    long start, length;
    bool creates;
  } cases[] = {{"r", O_RDONLY, 0, 10, false}, {"RB+", O_RDWR, 0, 10, false},
               {"r+b", O_RDWR, 0, 10, false}, {"a", O_WRONLY, 10, 10, true},
               {"A+B", O_RDWR, 10, 10, true}, {"w", O_WRONLY, 0, 0, true},
               {"x", O_RDONLY, 0, 10, false}};
  kxtest::TempDir dir;
  const mode_t previous = umask(022);
  for (const auto& c : cases) {
    const int fd = kx_open(dir.writeFile("f", "0123456789").c_str(), c.mode);
    EXPECT_EQ(c.access, fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND)) << c.mode;
    EXPECT_NE(0, fcntl(fd, F_GETFD) & FD_CLOEXEC) << c.mode;
    EXPECT_EQ(c.start, kx_lseek(fd, 0, SEEK_CUR)) << c.mode;
    EXPECT_EQ(c.length, kx_lseek(fd, 0, SEEK_END)) << c.mode;
    kx_close(fd);
    const std::string missing = dir.file(std::string("new-") + c.mode);
    kx_close(kx_open(missing.c_str(), c.mode));
    struct stat64 record {};
    EXPECT_EQ(c.creates ? 0 : -1, kx_stat(missing.c_str(), &record)) << c.mode;
    EXPECT_EQ(c.creates ? 0755u : 0u, record.st_mode & 0777) << c.mode;
  }
  umask(previous);
  const int fd = kx_open_with_dir(dir.path().c_str(), "r", 1);
  EXPECT_GE(fd, 0);
  kx_close(fd);
}

// Decimal digits only, whatever the base; a digit not below the base or one more than 64 bits
// hold is a range error ending just after that digit.
TEST(KxWcstoll, ParsesDecimalDigitsInTheBaseAndStopsAtTheFirstOutOfRange) {
  constexpr int64_t kRange = 4611686018427387903;
  const struct {
    const wchar_t* text;
    int base;
    int64_t value;
    long end;
    int error;
  } cases[] = {{L" -42", 10, -42, 4, 0},
               {L"777", 0, 777, 3, 0},
               {L"0777", 0, 511, 4, 0},
               {L"0x17", 0, 23, 4, 0},
               {L"0x1F", 0, 1, 3, 0},
               {L"+12z", 10, 12, 3, 0},
               {L"18", 8, kRange, 2, ERANGE},
               {L"-19", 9, -kRange, 3, ERANGE},
               {L"11", 1, kRange, 1, ERANGE},
               {L"12", 36, 38, 2, 0},
               {L"9223372036854775807", 10, INT64_MAX, 19, 0},
               {L"-9223372036854775808", 10, -kRange, 20, ERANGE},
               {L"92233720368547758070", 10, kRange, 20, ERANGE},
               {L"12", 37, 0, 0, EINVAL},
               {L"12", -1, 0, 0, EINVAL}};
  for (const auto& c : cases) {
    errno = 0;
    wchar_t* end = nullptr;
    EXPECT_EQ(c.value, kx_wcstoll(c.text, &end, c.base)) << c.text << " base " << c.base;
    EXPECT_EQ(c.end, end - c.text) << c.text << " base " << c.base;
    EXPECT_EQ(c.error, errno) << c.text << " base " << c.base;
  }
  wchar_t sentinel[] = L"?";
  wchar_t* end = sentinel;
  EXPECT_EQ(0, kx_wcstoll(nullptr, &end, 10));
  EXPECT_EQ(nullptr, end);
}

// Each wrapper passes level, option, value and length through and returns the call's result.
TEST(KxSockets, OptionWrappersSetAndReadBackAnOptionAndReportAFailure) {
  const int socket = kx_socket(AF_INET, SOCK_STREAM, 0);
  for (int wanted : {1, 0}) {
    EXPECT_EQ(0, kx_setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &wanted, sizeof wanted));
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(0, kx_getsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &value, &length));
    EXPECT_EQ(wanted, value);
    EXPECT_EQ(sizeof value, length);
  }
  errno = 0;
  EXPECT_EQ(-1, kx_setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, "", 1));
  EXPECT_EQ(EINVAL, errno);
  socklen_t length = 0;
  EXPECT_EQ(-1, kx_getsockopt(-1, SOL_SOCKET, SO_TYPE, nullptr, &length));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(0, kx_closesocket(socket));
  EXPECT_EQ(kx_inet_addr("not an address"), 0xFFFFFFFFu) << "widened without sign";
}

// Recursive from the caller's attribute or from none: its owner locks it twice.
TEST(KxMutex, ARecursiveMutexIsLockedAgainByItsOwnerFromAnAttributeOrNone) {
  pthread_mutexattr_t attribute;
  pthread_mutexattr_init(&attribute);
  pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE);
  for (const pthread_mutexattr_t* given :
       {&attribute, static_cast<pthread_mutexattr_t*>(nullptr)}) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(0, kx_recursive_mutex_init(&mutex, given));
    EXPECT_EQ(0, kx_recursive_mutex_lock(&mutex));
    EXPECT_EQ(0, kx_recursive_mutex_trylock(&mutex)) << (given == nullptr);
    kx_recursive_mutex_unlock(&mutex);
    kx_recursive_mutex_unlock(&mutex);
    EXPECT_EQ(0, kx_recursive_mutex_destroy(&mutex));
  }
  pthread_mutexattr_destroy(&attribute);
}

// The process lister's command name of this test program, line end turned into a blank, cut to
// the buffer; without room nothing is written.
TEST(KxGetAppName, ReturnsTheCommandNameWithItsTrailingBlankCutToTheBuffer) {
  const struct {
    int size, length;
    const char* text;
  } cases[] = {{64, 16, "test_Portabilit "}, {4, 3, "tes"}, {1, 0, ""}, {0, 0, "#"}};
  for (const auto& c : cases) {
    char buffer[64] = "#";
    EXPECT_EQ(kx_GetAppName(buffer, c.size), c.length) << c.size;
    EXPECT_STREQ(buffer, c.text) << c.size;
  }
}

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

// Eight processes forked from one that already made a UUID, released at the same instant of the
// monotonic clock they share: the time of day, the host name and the inherited rand() sequence
// are the same in all of them, so only what each process draws for itself keeps their UUIDs
// apart. A time stamp met in another process must come with another node there; the hashed node
// has 24 bits, so a match by chance stays allowed, far below one in a thousand.
TEST(Uuid, ProcessesReleasedTogetherNeverShareOne) {
  kx_uuid_t uuid{};
  ASSERT_EQ(native_uuid_create(&uuid), 1);
  cpu_set_t available;
  if (sched_getaffinity(0, sizeof available, &available) != 0 || CPU_COUNT(&available) < 2) {
    GTEST_SKIP() << "needs two processors to run processes at the same instant";
  }
  const kxtest::TempDir dir;
  const auto start = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  std::vector<pid_t> children(8);
  for (int i = 0; i < 8; ++i) {
    children[i] = kxtest::startChild([&] {
      std::this_thread::sleep_until(start);
      // For a while rather than a count, so that processes sharing a processor still overlap.
      std::vector<kx_uuid_t> made;
      while (std::chrono::steady_clock::now() < start + std::chrono::milliseconds(100) &&
             made.size() < 50000) {
        made.emplace_back();
        native_uuid_create(&made.back());
      }
      std::ofstream out(dir.file(std::to_string(i)), std::ios::binary);
      out.write(reinterpret_cast<const char*>(made.data()),
                static_cast<std::streamsize>(made.size() * sizeof uuid));
      return out ? 0 : 1;
    });
  }
  std::map<uint64_t, std::pair<int, std::string>> byStamp;
  int sameStamps = 0;
  int sharedNodes = 0;
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(kxtest::waitChild(children[i]), 0);
    const std::string made = kxtest::fileContents(dir.file(std::to_string(i)));
    for (size_t at = 0; at + sizeof uuid <= made.size(); at += sizeof uuid) {
      std::memcpy(&uuid, &made[at], sizeof uuid);
      const std::string node(reinterpret_cast<const char*>(uuid.node), sizeof uuid.node);
      const auto met = byStamp.emplace(timestampOf(uuid), std::make_pair(i, node));
      if (!met.second && met.first->second.first != i) {
        ++sameStamps;
        sharedNodes += met.first->second.second == node ? 1 : 0;
      }
    }
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
