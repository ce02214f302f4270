// SPDX-License-Identifier: MIT
// What a service manager wants to know about this process: the protocol of systemd's sd_notify(3),
// datagrams to the socket in $NOTIFY_SOCKET. Threads: any.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "libs/base/descriptor.h"
#include "runtime/corvane/duration.h"

namespace corvane::cli {

/// Without a service manager every function does nothing. None waits, and none fails: a message
/// that the manager does not take is lost.
class ServiceManager {
 public:
  /// Takes the socket and the watchdog's time from the environment, and removes them there: the
  /// commands that blocks start are not the service. Called before there are other threads.
  ServiceManager();

  /// The program runs: "READY=1".
  void TellReady();
  /// What people read in `systemctl status`; one line.
  void TellStatus(std::string_view status);
  /// The program ends: "STOPPING=1".
  void TellStopping();
  /// The number of the running cycle as the status, at most every ten seconds.
  void TellCycle(std::uint64_t number);
  /// "WATCHDOG=1", if the manager wants it and it is time; to be called more often than that.
  void TellAlive();

  /// How long the manager waits for TellAlive; 0: it does not.
  [[nodiscard]] Nanoseconds watchdog() const { return watchdog_; }

 private:
  void Tell(const std::string& message);

  Descriptor socket_;
  sockaddr_un address_{};
  socklen_t length_ = 0;
  Nanoseconds watchdog_{0};
  std::atomic<std::chrono::steady_clock::time_point> next_alive_{};
  std::atomic<std::chrono::steady_clock::time_point> next_cycle_{};
};

}  // namespace corvane::cli
