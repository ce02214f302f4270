// SPDX-License-Identifier: MIT
// A program as the messages of the bench's protocol describe it, for the watch view. It believes
// nothing: members that are missing or of the wrong kind are refused, and counts are limited.
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "runtime/cli/watch_page.h"

namespace corvane::cli {

class RemotePicture {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  /// Twice as many as a program of ours shows.
  static constexpr std::size_t kMostNodes = 20'000;

  explicit RemotePicture(std::string program) : program_(std::move(program)) {}

  /// Takes one message, at the time `now`, which must not go back. Throws
  /// nlohmann::json::exception for one that is not of the protocol.
  void Take(const nlohmann::json& message, TimePoint now);
  /// Forgets everything: another connection begins.
  void Clear();
  /// What is known at the time `now`.
  [[nodiscard]] std::shared_ptr<WatchPicture> Get(TimePoint now) const;

 private:
  struct Entry {
    std::string path;
    std::string name;
    std::string type;
    int parent = 0;
    bool is_value = false;
    bool is_secret = false;
    bool is_known = false;  // a value has come
    std::string value = "-";
    TimePoint changed = TimePoint::min();
  };

  void TakeVariables(const nlohmann::json& message, TimePoint now);
  void Add(const nlohmann::json& node);
  void Set(int id, const nlohmann::json& value, TimePoint now);
  void TakeCycle(const nlohmann::json& message);
  void TakeModem(const nlohmann::json& message);
  void TakeLog(const nlohmann::json& message);
  [[nodiscard]] std::vector<BlockState> Blocks(TimePoint now) const;

  std::string program_;
  std::map<int, Entry> nodes_;  // a parent has a smaller number than its children
  bool truncated_ = false;
  std::string statistics_;
  struct Span {
    double time = 0;
    double latest = 0;
  };
  std::deque<Span> spans_;                     // the last ten minutes
  std::map<std::string, std::string> modems_;  // one line for each port
  std::deque<std::string> log_;
};

}  // namespace corvane::cli
