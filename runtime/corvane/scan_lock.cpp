// SPDX-License-Identifier: MIT
#include "runtime/corvane/scan_lock.h"

namespace corvane {

void ScanLock::lock() {
  std::unique_lock guard(mutex_);
  const std::uint64_t ticket = next_ticket_++;
  turn_.wait(guard, [&] { return serving_ == ticket; });
}

void ScanLock::unlock() {
  {
    const std::lock_guard guard(mutex_);
    ++serving_;
  }
  turn_.notify_all();  // only the thread with the next ticket goes on
}

std::uint64_t ScanLock::waiting() const {
  const std::lock_guard guard(mutex_);
  const std::uint64_t asked = next_ticket_ - serving_;  // the holder's ticket is being served
  return asked == 0 ? 0 : asked - 1;
}

ScanLock& TheScanLock() {
  static ScanLock lock;
  return lock;
}

}  // namespace corvane
