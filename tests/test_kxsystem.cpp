#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "KXTestSupport.h"
#include "kxos.h"

namespace {

// A connected TCP pair on the loopback interface: the listener is closed once accepted.
struct LoopbackPair {
  int client = -1;
  int server = -1;

  LoopbackPair() {
    const int listener = kx_socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_GE(listener, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = static_cast<in_addr_t>(kx_inet_addr("127.0.0.1"));
    socklen_t length = sizeof address;
    EXPECT_EQ(kx_bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(kx_listen(listener, 1), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    client = kx_socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(kx_connect(client, reinterpret_cast<sockaddr*>(&address), length), 0);
    server = kx_accept(listener, nullptr, nullptr);
    EXPECT_GE(server, 0);
    kx_closesocket(listener);
  }
  ~LoopbackPair() {
    kx_closesocket(client);
    kx_closesocket(server);
  }
};

std::string receive(int socket, int32_t count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  const ssize_t got = kx_recv(socket, &bytes[0], count, MSG_WAITALL);
  bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return bytes;
}

TEST(KxSockets, LoopbackPairCarriesBytesBothWays) {
  LoopbackPair pair;
  EXPECT_EQ(kx_send(pair.client, "ping\0!", 6, 0), 6);
  EXPECT_EQ(receive(pair.server, 6), std::string("ping\0!", 6));
  EXPECT_EQ(kx_send(pair.server, "pong", 4, 0), 4);
  EXPECT_EQ(receive(pair.client, 4), "pong");
  EXPECT_EQ(kx_inet_addr("not an address"), 0xFFFFFFFFu) << "widened without sign";
}

// Each wrapper passes level, option, value and length through and returns the call's result.
TEST(KxSockets, OptionWrappersSetAndReadBackAnOptionAndReportAFailure) {
  LoopbackPair pair;
  for (int wanted : {1, 0}) {
    EXPECT_EQ(0, kx_setsockopt(pair.client, SOL_SOCKET, SO_KEEPALIVE, &wanted, sizeof wanted));
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(0, kx_getsockopt(pair.client, SOL_SOCKET, SO_KEEPALIVE, &value, &length));
    EXPECT_EQ(wanted, value);
    EXPECT_EQ(sizeof value, length);
  }
  int type = -1;
  socklen_t length = sizeof type;
  EXPECT_EQ(0, kx_getsockopt(pair.server, SOL_SOCKET, SO_TYPE, &type, &length));
  EXPECT_EQ(SOCK_STREAM, type);
  const int on = 1;
  errno = 0;
  EXPECT_EQ(-1, kx_setsockopt(pair.client, SOL_SOCKET, SO_KEEPALIVE, &on, 1));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(-1, kx_getsockopt(-1, SOL_SOCKET, SO_TYPE, &type, &length));
  EXPECT_EQ(EBADF, errno);
}

TEST(KxLoading, OpensTheCLibraryAndFindsASymbol) {
  void* library = kx_dlopen("libc.so.6");
  ASSERT_NE(library, nullptr) << kx_dlerror();
  using LengthFunction = size_t (*)(const char*);
  auto length = reinterpret_cast<LengthFunction>(kx_dlsym(library, "strlen"));
  ASSERT_NE(length, nullptr);
  EXPECT_EQ(length("four"), 4u);
  EXPECT_EQ(kx_dlsym(library, "no_such_symbol_here"), nullptr);
  EXPECT_NE(kx_dlerror(), nullptr);
  EXPECT_EQ(kx_dlclose(library), 0);
  EXPECT_EQ(kx_dlopen("libdoes-not-exist.so"), nullptr);
  EXPECT_NE(kx_dlerror(), nullptr);
}

// Sets TZ for the scope and restores what was there; the zone is read again either way.
struct TimeZoneScope {
  struct Reread {
    ~Reread() { tzset(); }
  } reread;  // destroyed after the variable is restored
  kxtest::EnvScope zone;
  explicit TimeZoneScope(const char* value) : zone("TZ", value) { tzset(); }
};

struct tm newYear2000() {
  struct tm fields {};
  fields.tm_year = 100;
  fields.tm_mday = 1;
  fields.tm_isdst = 0;
  return fields;
}

TEST(KxTime, MktimeReadsTheFieldsAsUtc) {
  constexpr time_t kNewYear2000Utc = 946684800;
  {
    TimeZoneScope utc("UTC");
    struct tm forKx = newYear2000();
    struct tm forLibc = newYear2000();
    EXPECT_EQ(kx_mktime(&forKx), mktime(&forLibc));
    EXPECT_EQ(kx_mktime(&forKx), kNewYear2000Utc);
  }
  TimeZoneScope fiveWest("EST5");
  struct tm fields = newYear2000();
  EXPECT_EQ(kx_mktime(&fields), kNewYear2000Utc);
  EXPECT_EQ(kx_gmtime(&kNewYear2000Utc)->tm_year, 100);
  timeval now{};
  EXPECT_EQ(kx_gettimeofday(&now), 0);
  EXPECT_GT(now.tv_sec, kNewYear2000Utc);
}

void* waitForRelease(void* semaphore) {
  kx_sem_wait(static_cast<sem_t*>(semaphore));
  return semaphore;
}

// What kx_mutex_trylock returns when called on another thread (which unlocks what it got).
long tryLockFromAnotherThread(pthread_mutex_t* mutex) {
  auto tryLock = [](void* held) -> void* {
    const long result = kx_mutex_trylock(static_cast<pthread_mutex_t*>(held));
    if (result == 0) {
      kx_mutex_unlock(static_cast<pthread_mutex_t*>(held));
    }
    return reinterpret_cast<void*>(result);  // NOLINT(performance-no-int-to-ptr): the status
  };
  pthread_t thread;
  EXPECT_EQ(0, kx_thread_create(&thread, nullptr, tryLock, mutex));
  void* result = nullptr;
  EXPECT_EQ(0, kx_thread_join(thread, nullptr, &result));
  return reinterpret_cast<long>(result);
}

TEST(KxThreads, KillProbesALiveThreadWithoutEndingIt) {
  sem_t release;
  ASSERT_EQ(0, kx_sem_init(&release, 0, 0));
  pthread_t thread;
  ASSERT_EQ(0, kx_thread_create(&thread, nullptr, waitForRelease, &release));
  EXPECT_EQ(0, kx_thread_kill(thread));
  ASSERT_EQ(0, kx_sem_post(&release));
  void* exitValue = nullptr;
  int ignored = 0;
  ASSERT_EQ(0, kx_thread_join(thread, &ignored, &exitValue));
  EXPECT_EQ(&release, exitValue) << "the thread ran on after the probe";
  kx_thread_info_t info{pthread_t{}, 0xFFFF};
  EXPECT_TRUE(pthread_equal(kx_get_thread_info(&info), kx_thread_self()));
  EXPECT_EQ(0u, info.reserved);
  EXPECT_EQ(0, kx_sem_destroy(&release));
}

// A plain mutex held here is busy elsewhere; a recursive one (from the caller's attribute or
// from none) is locked twice by its owner and busy elsewhere until unlocked twice.
TEST(KxMutex, AHeldMutexIsBusyOnAnotherThreadUntilEveryLockIsReleased) {
  pthread_mutex_t plain;
  ASSERT_EQ(0, kx_mutex_init(&plain, nullptr));
  ASSERT_EQ(0, kx_mutex_lock(&plain));
  EXPECT_EQ(EBUSY, tryLockFromAnotherThread(&plain));
  ASSERT_EQ(0, kx_mutex_unlock(&plain));
  EXPECT_EQ(0, tryLockFromAnotherThread(&plain));
  EXPECT_EQ(0, kx_mutex_destroy(&plain));
  pthread_mutexattr_t attribute;
  ASSERT_EQ(0, pthread_mutexattr_init(&attribute));
  ASSERT_EQ(0, pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE));
  for (const pthread_mutexattr_t* given :
       {&attribute, static_cast<pthread_mutexattr_t*>(nullptr)}) {
    pthread_mutex_t mutex;
    ASSERT_EQ(0, kx_recursive_mutex_init(&mutex, given));
    ASSERT_EQ(0, kx_recursive_mutex_lock(&mutex));
    ASSERT_EQ(0, kx_recursive_mutex_trylock(&mutex));
    ASSERT_EQ(0, kx_recursive_mutex_unlock(&mutex));
    EXPECT_EQ(EBUSY, tryLockFromAnotherThread(&mutex));
    ASSERT_EQ(0, kx_recursive_mutex_unlock(&mutex));
    EXPECT_EQ(0, tryLockFromAnotherThread(&mutex));
    EXPECT_EQ(0, kx_recursive_mutex_destroy(&mutex));
  }
  pthread_mutexattr_destroy(&attribute);
}

// The process lister's command name of this test program, line end turned into a blank, cut to
// the buffer; without room nothing is written.
TEST(KxGetAppName, ReturnsTheCommandNameWithItsTrailingBlankCutToTheBuffer) {
  const struct {
    int size;
    int length;
    const char* text;
  } cases[] = {{64, 14, "test_kxsystem "}, {4, 3, "tes"}, {1, 0, ""}, {0, 0, "#"}};
  for (const auto& c : cases) {
    char buffer[64] = "#";
    EXPECT_EQ(kx_GetAppName(buffer, c.size), c.length) << c.size;
    EXPECT_STREQ(buffer, c.text) << c.size;
  }
}

TEST(KxAdjustLibName, PutsTheBitWidthBeforeTheSuffix) {
  struct Case {
    const char* base;
    const char* suffix;
    const char* expected;
  };
  for (const Case& c :
       {Case{"stream", nullptr, "libstream64.so"}, Case{"stream", "_d", "libstream64_d.so"},
        Case{"", nullptr, "lib64.so"}, Case{"KXUtils", "", "libKXUtils64.so"}}) {
    char* name = kx_adjustLibName(c.base, c.suffix);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, c.expected);
    kx_free(name);
  }
}

}  // namespace
