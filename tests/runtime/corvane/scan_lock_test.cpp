// SPDX-License-Identifier: MIT
#include "runtime/corvane/scan_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using corvane::ScanLock;

TEST(ScanLock, KeepsThreadsApart) {
  ScanLock lock;
  int counter = 0;  // not atomic: the thread sanitizer finds a race, and the sum is wrong
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 2000; ++n) {
        const std::lock_guard guard(lock);
        ++counter;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(counter, 8000);
}

TEST(ScanLock, AThreadThatTakesItWithoutPausesLetsTheOthersIn) {
  ScanLock lock;
  std::atomic<bool> stop{false};
  lock.lock();
  std::thread plc([&] {
    while (!stop) {
      const std::lock_guard guard(lock);
    }
  });
  while (lock.waiting() == 0) std::this_thread::yield();
  lock.unlock();
  for (int i = 0; i < 1000; ++i) {
    const std::lock_guard guard(lock);  // with an unfair lock this starves
  }
  stop = true;
  plc.join();
}

TEST(ScanLock, ServesInTheOrderOfRequests) {
  ScanLock lock;
  std::vector<int> order;
  lock.lock();
  std::vector<std::thread> threads;
  for (int i = 0; i < 5; ++i) {
    threads.emplace_back([&, i] {
      lock.lock();
      order.push_back(i);
      lock.unlock();
    });
    while (lock.waiting() != static_cast<std::uint64_t>(i) + 1) std::this_thread::yield();
  }
  lock.unlock();
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(ScanLock, IsSharedByTheWholeProcess) {
  EXPECT_EQ(&corvane::TheScanLock(), &corvane::TheScanLock());
}

}  // namespace
