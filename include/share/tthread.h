// SPDX-License-Identifier: MIT
// The thread wrapper that blocks with a worker use.
#pragma once

#include <mutex>
#include <thread>

namespace tthread {

using std::lock_guard;
using std::mutex;  // non-recursive

/// A thread that runs `function(argument)`. It must be joined before it is destroyed.
class thread {
 public:
  /// Starts at once. Throws std::system_error when no thread can be created.
  thread(void (*function)(void*), void* argument) : thread_(function, argument) {}
  thread(const thread&) = delete;
  thread& operator=(const thread&) = delete;
  /// Waits until the function returns.
  void join() { thread_.join(); }

 private:
  std::thread thread_;
};

}  // namespace tthread
