// SPDX-License-Identifier: MIT
// What a Store and its writer thread share. Each mutex is held for moments only, never during I/O,
// so that a PLC task may take it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "libs/messages/change_queue.h"
#include "libs/messages/store.h"

namespace messages {

class StoreShared {
 public:
  StoreShared(const std::filesystem::path& folder, StoreOptions chosen)
      : file(folder / "messages.db"), options(std::move(chosen)) {}

  const std::filesystem::path file;
  const StoreOptions options;

  std::atomic<std::int64_t> next_id = kFirstNewId;
  std::atomic<std::int64_t> first_new_number = 0;  ///< 0: not loaded yet
  std::atomic<std::uint64_t> on_disk = 0;
  std::atomic<bool> has_problem = false;
  std::atomic<bool> begun_again = false;
  /// Steady clock, when the writer began what it is doing; 0: it waits.
  std::atomic<std::chrono::milliseconds::rep> busy_since = 0;

  std::mutex mutex;  ///< guards what follows
  std::condition_variable changed;
  ChangeQueue queue;
  std::uint64_t queued = 0;  ///< sequence number of the last of `queue`
  bool stopping = false;
  bool ended = false;  ///< the writer thread is about to return
  std::string problem;
  std::vector<std::string> notices;
  std::optional<Content> content;
  std::vector<Request> requests;
};

}  // namespace messages
