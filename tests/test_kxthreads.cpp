#include <gtest/gtest.h>

#include <cerrno>

#include "kxos.h"

namespace {

// A thread that stays alive until released, so liveness can be probed at a known moment.
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
  EXPECT_EQ(kx_thread_create(&thread, nullptr, tryLock, mutex), 0);
  void* result = nullptr;
  EXPECT_EQ(kx_thread_join(thread, nullptr, &result), 0);
  return reinterpret_cast<long>(result);
}

TEST(KxThreads, KillProbesALiveThreadWithoutEndingIt) {
  sem_t release;
  ASSERT_EQ(kx_sem_init(&release, 0, 0), 0);
  pthread_t thread;
  ASSERT_EQ(kx_thread_create(&thread, nullptr, waitForRelease, &release), 0);

  EXPECT_EQ(kx_thread_kill(thread), 0);
  ASSERT_EQ(kx_sem_post(&release), 0);
  void* exitValue = nullptr;
  int ignored = 0;
  ASSERT_EQ(kx_thread_join(thread, &ignored, &exitValue), 0);
  EXPECT_EQ(exitValue, &release) << "the thread ran on after the probes";
  kx_thread_info_t info{pthread_t{}, 0xFFFF};
  EXPECT_TRUE(pthread_equal(kx_get_thread_info(&info), kx_thread_self()));
  EXPECT_EQ(info.reserved, 0u);
  EXPECT_EQ(kx_sem_destroy(&release), 0);
}

TEST(KxMutex, TrylockOnAMutexHeldElsewhereReportsBusy) {
  pthread_mutex_t mutex;
  ASSERT_EQ(kx_mutex_init(&mutex, nullptr), 0);
  ASSERT_EQ(kx_mutex_lock(&mutex), 0);
  EXPECT_EQ(tryLockFromAnotherThread(&mutex), EBUSY);
  ASSERT_EQ(kx_mutex_unlock(&mutex), 0);
  EXPECT_EQ(tryLockFromAnotherThread(&mutex), 0);
  EXPECT_EQ(kx_mutex_destroy(&mutex), 0);
}

// The owner locks twice and must unlock twice before another thread gets the mutex.
void expectRecursive(pthread_mutex_t* mutex) {
  ASSERT_EQ(kx_recursive_mutex_lock(mutex), 0);
  ASSERT_EQ(kx_recursive_mutex_trylock(mutex), 0);
  ASSERT_EQ(kx_recursive_mutex_unlock(mutex), 0);
  EXPECT_EQ(tryLockFromAnotherThread(mutex), EBUSY);
  ASSERT_EQ(kx_recursive_mutex_unlock(mutex), 0);
  EXPECT_EQ(tryLockFromAnotherThread(mutex), 0);
  EXPECT_EQ(kx_recursive_mutex_destroy(mutex), 0);
}

TEST(KxMutex, RecursiveMutexFromTheCallersAttributeOrFromNone) {
  pthread_mutexattr_t attribute;
  ASSERT_EQ(pthread_mutexattr_init(&attribute), 0);
  ASSERT_EQ(pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE), 0);
  pthread_mutex_t fromAttribute;
  ASSERT_EQ(kx_recursive_mutex_init(&fromAttribute, &attribute), 0);
  pthread_mutexattr_destroy(&attribute);
  expectRecursive(&fromAttribute);

  pthread_mutex_t fromNull;
  ASSERT_EQ(kx_recursive_mutex_init(&fromNull, nullptr), 0);
  expectRecursive(&fromNull);
}

}  // namespace
