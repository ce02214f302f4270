// SPDX-License-Identifier: MIT
#include "share/tthread.h"

#include <gtest/gtest.h>

namespace {

TEST(TThread, RunsItsFunctionWithTheArgumentUntilJoin) {
  int value = 0;
  tthread::thread thread([](void* argument) { *static_cast<int*>(argument) = 42; }, &value);
  thread.join();
  EXPECT_EQ(value, 42);
}

TEST(TThread, LockGuardHoldsTheMutex) {
  tthread::mutex mutex;
  {
    const tthread::lock_guard<tthread::mutex> guard(mutex);
    bool taken = true;
    auto attempt = [&] { taken = mutex.try_lock(); };
    std::thread(attempt).join();
    EXPECT_FALSE(taken);
  }
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

}  // namespace
