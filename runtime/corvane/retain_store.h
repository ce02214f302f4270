// SPDX-License-Identifier: MIT
// The file retain.json in a program's state folder. Threads: the PLC task calls; a thread of its
// own writes, so a slow disk never holds up a cycle.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace corvane {

/// Whatever fails is logged once, and nothing here throws: the program runs with its own values,
/// and what could not be written is tried again.
///
/// The file is always whole: the new one is written beside it, synchronised, and then takes its
/// name. A folder that another process uses in the same way is left alone.
class RetainStore {
 public:
  struct Options {
    std::chrono::milliseconds interval{1000};      ///< from one write to the next, at least
    std::chrono::milliseconds retry{5000};         ///< after a write that failed
    std::chrono::milliseconds longest_end{10000};  ///< how long the end waits for the disk
  };

  /// @param folder created when it is first used; empty: there is none
  explicit RetainStore(std::filesystem::path folder) : RetainStore(std::move(folder), Options()) {}
  RetainStore(std::filesystem::path folder, const Options& options);
  RetainStore(const RetainStore&) = delete;
  RetainStore& operator=(const RetainStore&) = delete;
  /// Writes what waits, if the disk lets it within the time of the options.
  ~RetainStore();

  /// What was kept under this name in the last run, otherwise null. Reads the file at the first
  /// call. A damaged one gets another name.
  [[nodiscard]] const nlohmann::json* Find(const std::string& name);
  /// Hands over a snapshot to be written: for each name a string, and its value (a table, with the
  /// type of a block as a string before it). What the file has under other names stays there. A
  /// snapshot that waits is replaced.
  void Write(std::shared_ptr<const std::string> snapshot);
  /// Writes what waits, as the destructor does, when the process is about to end without it.
  /// From any thread. @return false when the disk does not let it
  bool WriteNow(std::chrono::milliseconds longest);
  /// Whether values are kept at all.
  [[nodiscard]] bool keeps() const { return keeps_; }

 private:
  class Writer;
  void Open();

  std::filesystem::path folder_;
  Options options_;
  bool opened_ = false;
  bool keeps_ = true;
  nlohmann::json kept_ = nlohmann::json::object();
  std::shared_ptr<Writer> writer_;  // shared with its thread, which may outlast a stalled disk
  std::thread thread_;
};

}  // namespace corvane
