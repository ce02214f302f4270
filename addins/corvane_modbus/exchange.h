// SPDX-License-Identifier: MIT
// A request on its way between a block and the worker of its server, and what has become of it.
// Threads: the block's and the worker's, without a lock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>

#include "libs/modbus/outcome.h"
#include "libs/modbus/request.h"

namespace corvane_modbus {

using modbus::Endpoint;
using modbus::Outcome;
using modbus::Plan;
using modbus::Request;
using SteadyTime = std::chrono::steady_clock::time_point;

class Exchange {
 public:
  /// How far it has come; it never goes back.
  enum class Phase : std::uint8_t {
    kQueued,      ///< other requests go first
    kNaming,      ///< the server's name is being looked up
    kConnecting,  ///< nothing has been sent
    kAsking,      ///< the request has been sent, or is about to be
    kEnded,       ///< the outcome is there
  };

  /// @param timeout from now on, for all of it
  Exchange(Request request, std::chrono::milliseconds timeout)
      : request_(std::move(request)),
        timeout_(timeout),
        deadline_(std::chrono::steady_clock::now() + timeout) {}

  [[nodiscard]] const Request& request() const { return request_; }
  [[nodiscard]] std::chrono::milliseconds timeout() const { return timeout_; }
  [[nodiscard]] SteadyTime deadline() const { return deadline_; }

  // The worker's side.

  /// Goes on. @return false: the block is not interested any more, and if nothing has been sent
  /// yet, nothing may be. Each side writes before it reads, so that not both can miss the other.
  [[nodiscard]] bool Enter(Phase phase) {
    if (phase > phase_) phase_ = phase;
    return !abandoned_;
  }
  void End(Outcome outcome) {
    outcome_ = std::move(outcome);
    phase_ = Phase::kEnded;
  }

  // The block's side.

  [[nodiscard]] Phase phase() const { return phase_; }
  /// Once it has ended.
  [[nodiscard]] const Outcome& outcome() const { return outcome_; }
  /// @return how far it came. Before kAsking: nothing has been sent, and nothing will be
  Phase Abandon() {
    abandoned_ = true;
    return phase_;
  }

 private:
  const Request request_;
  const std::chrono::milliseconds timeout_;
  const SteadyTime deadline_;
  Outcome outcome_;  // the worker's until kEnded
  std::atomic<Phase> phase_{Phase::kQueued};
  std::atomic<bool> abandoned_{false};
};

}  // namespace corvane_modbus
