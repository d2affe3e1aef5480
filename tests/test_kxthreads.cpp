#include <gtest/gtest.h>

#include <cerrno>

#include "kxos.h"

namespace {

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

}  // namespace
