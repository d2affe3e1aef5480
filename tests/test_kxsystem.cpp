#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>

#include "KXTestSupport.h"
#include "kxos.h"

namespace {

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

TEST(KxTime, MktimeReadsTheFieldsAsUtc) {
  {
    kxtest::EnvScope fiveWest("TZ", "EST5");
    tzset();
    struct tm newYear2000 {};
    newYear2000.tm_year = 100;
    newYear2000.tm_mday = 1;
    EXPECT_EQ(946684800, kx_mktime(&newYear2000));
  }
  tzset();
}

// Probing this very thread would end the process if the probe delivered a signal.
TEST(KxThreads, KillProbesALiveThreadWithoutEndingIt) {
  EXPECT_EQ(0, kx_thread_kill(kx_thread_self()));
  kx_thread_info_t info{pthread_t{}, 0xFFFF};
  EXPECT_TRUE(pthread_equal(kx_get_thread_info(&info), kx_thread_self()));
  EXPECT_EQ(0u, info.reserved);
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
  } cases[] = {{64, 14, "test_kxsystem "}, {4, 3, "tes"}, {1, 0, ""}, {0, 0, "#"}};
  for (const auto& c : cases) {
    char buffer[64] = "#";
    EXPECT_EQ(kx_GetAppName(buffer, c.size), c.length) << c.size;
    EXPECT_STREQ(buffer, c.text) << c.size;
  }
}

TEST(KxAdjustLibName, PutsTheBitWidthBeforeTheSuffix) {
  const char* const cases[][3] = {{"stream", nullptr, "libstream64.so"},
                                  {"stream", "_d", "libstream64_d.so"},
                                  {"", "", "lib64.so"}};
  for (const auto& c : cases) {
    char* name = kx_adjustLibName(c[0], c[1]);
    EXPECT_STREQ(name, c[2]);
    kx_free(name);
  }
}

}  // namespace
