// SPDX-License-Identifier: MIT
// The topic "messages": what the program's store of messages has, and requests about it. The store
// is read as `corvane messages` reads it. Threads: the server's.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "runtime/bench/server/store_thread.h"
#include "runtime/bench/server/topic.h"

namespace corvane::bench {

class MessagesTopic : public Topic {
 public:
  /// Messages that have ended: the last of each direction.
  static constexpr std::int64_t kHistory = 200;
  /// What is shown of a text, in octets.
  static constexpr std::size_t kLongestText = 4096;

  explicit MessagesTopic(std::shared_ptr<StoreThread> store) : store_(std::move(store)) {}

  void SetWatched(bool watched) override;
  [[nodiscard]] std::vector<Frame> Changes() override;
  [[nodiscard]] std::vector<Frame> Complete() override;

 private:
  [[nodiscard]] Frame Read();

  std::shared_ptr<StoreThread> store_;
  std::chrono::steady_clock::time_point read_{};
  Frame last_;
};

}  // namespace corvane::bench
