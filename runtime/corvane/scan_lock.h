// SPDX-License-Identifier: MIT
// The one lock of the runtime. Threads: any.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace corvane {

/// A fair lock (BasicLockable): it is granted in the order of the requests, so that a PLC task
/// without a pause between its cycles still lets the modem port driver in.
///
/// The PLC task holds it while Lua runs; the driver holds it while it calls a block's functions,
/// never during serial I/O. A block therefore needs no lock of its own.
class ScanLock {
 public:
  void lock();
  void unlock();
  /// How many threads are waiting for it now.
  [[nodiscard]] std::uint64_t waiting() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable turn_;
  std::uint64_t next_ticket_ = 0;
  std::uint64_t serving_ = 0;
};

/// The process's scan lock.
[[nodiscard]] ScanLock& TheScanLock();

}  // namespace corvane
