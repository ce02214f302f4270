// SPDX-License-Identifier: MIT
// Ends the waits of a worker from another thread: those for a descriptor, and those inside
// libmodbus, which only the end of its socket ends. Threads: any.
#pragma once

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <atomic>
#include <mutex>

#include "libs/base/descriptor.h"

namespace corvane_modbus {

class StopSignal {
 public:
  /// From now on every wait ends.
  void Stop() {
    stopped_ = true;
    if (event_.get() >= 0) eventfd_write(event_.get(), 1);
    const std::scoped_lock lock(mutex_);
    if (socket_ >= 0) shutdown(socket_, SHUT_RDWR);
  }
  [[nodiscard]] bool stopped() const { return stopped_; }
  /// Becomes readable; negative if the system has no descriptor left.
  [[nodiscard]] int descriptor() const { return event_.get(); }

  /// The socket that Stop shuts down; negative: none. Not to be closed before this says so.
  void Watch(int socket) {
    const std::scoped_lock lock(mutex_);
    socket_ = socket;
    if (stopped_ && socket_ >= 0) shutdown(socket_, SHUT_RDWR);
  }

 private:
  const corvane::Descriptor event_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::atomic<bool> stopped_{false};
  std::mutex mutex_;
  int socket_ = -1;
};

}  // namespace corvane_modbus
