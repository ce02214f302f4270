// SPDX-License-Identifier: MIT
// Hands requests from the blocks to the workers, one thread for each server, so that a dead server
// holds up no other. A worker ends when its server has not been used for a while.
// Threads: any. The lock is held for moments only, and blocks do not even wait for that.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "addins/corvane_modbus/exchange.h"
#include "addins/corvane_modbus/stop_signal.h"

namespace corvane_modbus {

using Exchanges = std::deque<std::shared_ptr<Exchange>>;

/// What one worker has to do.
struct ServerQueue {
  explicit ServerQueue(Endpoint where) : endpoint(std::move(where)) {}

  const Endpoint endpoint;
  StopSignal stop;
  std::condition_variable changed;  // with the service's mutex, as the next one
  Exchanges waiting;
};

class ModbusService {
 public:
  /// Servers in use at once.
  static constexpr std::size_t kMostServers = 64;
  /// How long a connection is kept open for the next request, and its worker with it.
  static constexpr std::chrono::milliseconds kIdleTime{10000};

  /// The only one. It is never destroyed, since a worker may hang in the name service.
  [[nodiscard]] static ModbusService& The();

  enum class Submitted : std::uint8_t {
    kYes,
    kLater,     ///< another thread holds the lock at the moment
    kTooMany,   ///< kMostServers are in use
    kNoThread,  ///< the system has none left
  };
  /// Queues a request for its server. Never waits.
  [[nodiscard]] Submitted Submit(const Endpoint& endpoint, std::shared_ptr<Exchange> exchange);

  /// Instead of kIdleTime, from the next request on.
  void KeepConnectionsFor(std::chrono::milliseconds idle_time);

  /// Ends all requests and workers, in at most `longest`; a worker that hangs is left behind. It
  /// can be used again afterwards.
  void End(std::chrono::milliseconds longest);

  // The workers' side.

  /// The next request, for which it waits. @return null: the worker is to end
  [[nodiscard]] std::shared_ptr<Exchange> Next(ServerQueue& queue);
  /// All that wait.
  [[nodiscard]] Exchanges TakeWaiting(ServerQueue& queue);

 private:
  ModbusService() = default;
  [[nodiscard]] bool StartWorker(const std::shared_ptr<ServerQueue>& queue);

  std::mutex mutex_;
  std::map<Endpoint, std::shared_ptr<ServerQueue>> queues_;
  std::size_t workers_ = 0;
  std::chrono::milliseconds idle_time_ = kIdleTime;
  std::condition_variable worker_ended_;
};

}  // namespace corvane_modbus
