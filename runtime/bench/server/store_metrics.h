// SPDX-License-Identifier: MIT
// What a store of messages adds to /metrics. Threads: the server's.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "runtime/bench/server/metrics_text.h"
#include "runtime/bench/server/store_thread.h"

namespace corvane::bench {

class StoreMetrics {
 public:
  /// Counts what ends from now on, as other counters of a program begin with its start.
  explicit StoreMetrics(std::shared_ptr<StoreThread> store) : store_(std::move(store)) {}

  /// Adds the messages that wait, the oldest, and those that were sent or have failed.
  void AddTo(MetricsText& metrics);

 private:
  /// Of those that have ended; more between two readings are not counted.
  static constexpr std::int64_t kMostCounted = 2000;

  struct Channel {
    double waiting = 0;
    double oldest = 0;  // seconds
    std::map<std::string, double, std::less<>> ended;
  };

  void Read();
  void Count(const messages::Outgoing& row);

  std::shared_ptr<StoreThread> store_;
  messages::WallTime started_ =
      std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now());
  std::map<std::string, Channel> channels_;
  std::set<std::pair<messages::WallTime, std::int64_t>> counted_;  // the latest
};

}  // namespace corvane::bench
