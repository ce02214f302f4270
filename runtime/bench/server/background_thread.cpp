// SPDX-License-Identifier: MIT
#include "runtime/bench/server/background_thread.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <csignal>

namespace corvane::bench {

void BecomeBackgroundThread(const char* name) {
  pthread_setname_np(pthread_self(), name);
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  const sched_param none{};
  pthread_setschedparam(pthread_self(), SCHED_BATCH, &none);
  // On Linux the nice value is that of the thread. Without it, a client that keeps this thread busy
  // would delay the cycles of a machine with a single processor.
  constexpr int kNicer = 5;
  [[maybe_unused]] const int nice_value = nice(kNicer);
}

}  // namespace corvane::bench
