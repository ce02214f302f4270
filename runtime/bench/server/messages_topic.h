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

#include "libs/messages/store_view.h"
#include "runtime/bench/server/topic.h"

namespace corvane::bench {

/// A store that is opened when its file exists, and again after an error.
class StoreReader {
 public:
  explicit StoreReader(std::filesystem::path file) : file_(std::move(file)) {}

  /// Null while there is no store that can be read.
  [[nodiscard]] messages::StoreView* Open();
  /// After an exception of the store.
  void Close() { view_.reset(); }
  [[nodiscard]] const std::filesystem::path& file() const { return file_; }

 private:
  std::filesystem::path file_;
  std::unique_ptr<messages::StoreView> view_;
};

class MessagesTopic : public Topic {
 public:
  /// Messages that have ended: the last of each direction.
  static constexpr std::int64_t kHistory = 200;
  /// What is shown of a text, in octets.
  static constexpr std::size_t kLongestText = 4096;

  explicit MessagesTopic(std::shared_ptr<StoreReader> store) : store_(std::move(store)) {}

  void SetWatched(bool watched) override;
  [[nodiscard]] std::vector<Frame> Changes() override;
  [[nodiscard]] std::vector<Frame> Complete() override;

 private:
  [[nodiscard]] Frame Read();

  std::shared_ptr<StoreReader> store_;
  std::chrono::steady_clock::time_point read_{};
  Frame last_;
};

}  // namespace corvane::bench
