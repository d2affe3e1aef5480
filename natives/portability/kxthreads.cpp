#include <semaphore.h>

#include <csignal>

#include "kxos.h"

namespace {

// Signal 0 runs the existence check of pthread_kill without delivering anything.
constexpr int kLivenessProbe = 0;

int initialiseRecursiveMutex(pthread_mutex_t* mutex) {
  pthread_mutexattr_t recursive;
  int result = pthread_mutexattr_init(&recursive);
  if (result != 0) {
    return result;
  }
  result = pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
  if (result == 0) {
    result = pthread_mutex_init(mutex, &recursive);
  }
  (void)pthread_mutexattr_destroy(&recursive);
  return result;
}

}  // namespace

extern "C" {

int kx_thread_create(pthread_t* thread, const pthread_attr_t* attribute,
                     void* (*startRoutine)(void*), void* argument) {
  return pthread_create(thread, attribute, startRoutine, argument);
}
int kx_thread_join(pthread_t thread, void* /*ignored*/, void** exitValue) {
  return pthread_join(thread, exitValue);
}
void kx_thread_exit(void* exitValue) { pthread_exit(exitValue); }
int kx_thread_kill(pthread_t thread) { return pthread_kill(thread, kLivenessProbe); }
pthread_t kx_thread_self(void) { return pthread_self(); }
pthread_t kx_get_thread_info(kx_thread_info_t* info) {
  info->thread = pthread_self();
  info->reserved = 0;
  return info->thread;
}
int kx_key_create(pthread_key_t* key, void (*destructor)(void*)) {
  return pthread_key_create(key, destructor);
}
int kx_key_delete(pthread_key_t key) { return pthread_key_delete(key); }
void* kx_getspecific(pthread_key_t key) { return pthread_getspecific(key); }
int kx_setspecific(pthread_key_t key, const void* value) { return pthread_setspecific(key, value); }

int kx_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
  return pthread_mutex_init(mutex, attribute);
}
int kx_mutex_lock(pthread_mutex_t* mutex) { return pthread_mutex_lock(mutex); }
int kx_mutex_trylock(pthread_mutex_t* mutex) { return pthread_mutex_trylock(mutex); }
int kx_mutex_unlock(pthread_mutex_t* mutex) { return pthread_mutex_unlock(mutex); }
int kx_mutex_destroy(pthread_mutex_t* mutex) { return pthread_mutex_destroy(mutex); }

int kx_recursive_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
  // The caller's attribute decides the type; pthread_mutex_init only reads it and keeps no
  // reference, so it serves as the private copy. Without one the name is the promise.
  if (attribute == nullptr) {
    return initialiseRecursiveMutex(mutex);
  }
  return pthread_mutex_init(mutex, attribute);
}
int kx_recursive_mutex_lock(pthread_mutex_t* mutex) { return kx_mutex_lock(mutex); }
int kx_recursive_mutex_trylock(pthread_mutex_t* mutex) { return kx_mutex_trylock(mutex); }
int kx_recursive_mutex_unlock(pthread_mutex_t* mutex) { return kx_mutex_unlock(mutex); }
int kx_recursive_mutex_destroy(pthread_mutex_t* mutex) { return kx_mutex_destroy(mutex); }

int kx_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute) {
  return pthread_cond_init(condition, attribute);
}
int kx_cond_destroy(pthread_cond_t* condition) { return pthread_cond_destroy(condition); }
int kx_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return pthread_cond_wait(condition, mutex);
}
int kx_cond_signal(pthread_cond_t* condition) { return pthread_cond_signal(condition); }
int kx_cond_broadcast(pthread_cond_t* condition) { return pthread_cond_broadcast(condition); }
int kx_condattr_init(pthread_condattr_t* attribute) { return pthread_condattr_init(attribute); }
int kx_condattr_destroy(pthread_condattr_t* attribute) {
  return pthread_condattr_destroy(attribute);
}

int kx_sem_init(sem_t* semaphore, int processShared, unsigned value) {
  return sem_init(semaphore, processShared, value);
}
int kx_sem_destroy(sem_t* semaphore) { return sem_destroy(semaphore); }
int kx_sem_wait(sem_t* semaphore) { return sem_wait(semaphore); }
int kx_sem_trywait(sem_t* semaphore) { return sem_trywait(semaphore); }
int kx_sem_post(sem_t* semaphore) { return sem_post(semaphore); }
}
#include <csignal>
