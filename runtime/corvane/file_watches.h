// SPDX-License-Identifier: MIT
// Files that are read again and again, by threads of their own. Threads: any.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "runtime/corvane/file_reading.h"

namespace corvane {

/// What is known about a file.
struct FileValue {
  using Time = std::chrono::steady_clock::time_point;
  std::string text;          ///< what the last read that succeeded found
  std::optional<Time> read;  ///< when that was; nothing: never
  std::string error;         ///< why the last read failed; empty: it did not
};

/// One file. It is read as long as somebody holds the watch.
class FileWatch {
 public:
  FileWatch(std::string path, std::chrono::nanoseconds interval)
      : path_(std::move(path)), interval_(interval) {}

  /// Never waits for the file.
  [[nodiscard]] std::shared_ptr<const FileValue> value() const {
    const std::lock_guard guard(mutex_);
    return value_;
  }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::chrono::nanoseconds interval() const { return interval_; }
  void Take(FileContent content, FileValue::Time now);

 private:
  const std::string path_;
  const std::chrono::nanoseconds interval_;
  mutable std::mutex mutex_;
  std::shared_ptr<const FileValue> value_ =
      std::make_shared<const FileValue>(FileValue{{}, {}, "it has not been read yet"});
};

/// Reads every file at its interval. One thread usually does it all; while a read takes long,
/// others take its place, up to kMostReaders. The end waits for none that hangs.
class FileWatches {
 public:
  static constexpr std::size_t kMostReaders = 16;
  using Reader = std::function<FileContent(const std::string& path)>;

  explicit FileWatches(Reader reader = ReadValueFile);
  FileWatches(const FileWatches&) = delete;
  FileWatches& operator=(const FileWatches&) = delete;
  ~FileWatches();

  /// Reads the file from now on, the first time at once.
  [[nodiscard]] std::shared_ptr<FileWatch> Add(std::string path, std::chrono::nanoseconds interval);

 private:
  class Readers;
  std::shared_ptr<Readers> readers_;  // shared with the threads
};

}  // namespace corvane
