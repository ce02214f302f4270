// SPDX-License-Identifier: MIT
// A mutex whose holder runs with the priority of those who wait for it, where the system offers
// that (POSIX PTHREAD_PRIO_INHERIT): a PLC task of real-time priority does not wait for a thread
// that others keep from running.
#pragma once

#include <pthread.h>

namespace corvane_mail {

/// As std::mutex.
class PriorityMutex {
 public:
  PriorityMutex() noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    if (pthread_mutex_init(&mutex_, &attributes) != 0) pthread_mutex_init(&mutex_, nullptr);
    pthread_mutexattr_destroy(&attributes);
  }
  PriorityMutex(const PriorityMutex&) = delete;
  PriorityMutex& operator=(const PriorityMutex&) = delete;
  ~PriorityMutex() { pthread_mutex_destroy(&mutex_); }

  // The names that std::scoped_lock and std::condition_variable_any ask for.
  void lock() noexcept { pthread_mutex_lock(&mutex_); }
  bool try_lock() noexcept { return pthread_mutex_trylock(&mutex_) == 0; }
  void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_;
};

}  // namespace corvane_mail
