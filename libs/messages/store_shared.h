// SPDX-License-Identifier: MIT
// What the handles of a store and its writer thread share. Each mutex is held for moments only,
// never during I/O, so that a PLC task may take it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "libs/messages/change_queue.h"
#include "libs/messages/store.h"

namespace messages {

/// The file of the store in a folder.
[[nodiscard]] std::filesystem::path StoreFileIn(const std::filesystem::path& folder);

/// What belongs to each channel, without the limit. May take long: not for a lock.
[[nodiscard]] std::map<std::string, Content> DivideByChannel(Content content);

class StoreShared : public std::enable_shared_from_this<StoreShared> {
 public:
  /// @param store_file from StoreFileIn
  StoreShared(std::filesystem::path store_file, StoreOptions chosen)
      : file(std::move(store_file)), options(std::move(chosen)) {}

  const std::filesystem::path file;
  const StoreOptions options;

  std::atomic<std::int64_t> next_id = kFirstNewId;
  std::atomic<std::int64_t> first_new_number = 0;  ///< 0: not loaded yet
  std::atomic<std::uint64_t> on_disk = 0;
  std::atomic<bool> has_problem = false;
  std::atomic<int> times_begun_again = 0;
  std::atomic<bool> place_told = false;
  /// Steady clock, when the writer began what it is doing; 0: it waits.
  std::atomic<std::chrono::milliseconds::rep> busy_since = 0;

  /// A handle begins. @return false: the channel has one already
  [[nodiscard]] bool Join(const std::string& channel);
  /// A handle ends. @return whether it was the last one, so that the writer is to stop
  [[nodiscard]] bool Leave(const std::string& channel);

  // With `mutex` held:

  /// Gives what was loaded to the channels that have not had their content yet. The rest of `parts`
  /// is to be freed without the lock.
  void GiveContent(std::map<std::string, Content>& parts,
                   std::optional<std::int64_t> limit_per_hour);
  /// Hands a request to the channel of its message. The limit concerns each channel; a message that
  /// does not exist, any.
  void GiveRequest(Request request);
  [[nodiscard]] std::optional<Content> TakeContent(const std::string& channel);
  [[nodiscard]] std::vector<Request> TakeRequests(const std::string& channel);
  /// Something has come back: on_disk, content, requests, or the problem has changed.
  void WakeHandles() const;
  void SetWake(const std::string& channel, std::function<void()> wake);

  StoreShared* next_open = nullptr;  ///< of the registry, guarded by its mutex

  std::mutex mutex;  ///< guards what follows
  std::condition_variable changed;
  ChangeQueue queue;
  std::uint64_t queued = 0;     ///< sequence number of the last of `queue`
  bool gathering = false;       ///< the writer lets changes gather, which do not wake it
  bool hurried = false;         ///< it is to stop that
  bool content_wanted = false;  ///< of a channel that has been joined again
  bool stopping = false;
  bool ended = false;  ///< the writer thread is about to return
  std::string problem;
  std::vector<std::string> notices;

 private:
  /// The messages of one kind. What belongs to a channel without a handle is kept for it.
  struct Channel {
    bool joined = false;
    bool taken = false;  ///< the content
    std::optional<Content> content;
    std::vector<Request> requests;
    std::function<void()> wake;  ///< of the handle; may be empty
  };

  std::map<std::string, Channel> channels_;
  std::optional<std::int64_t> limit_per_hour_;
};

}  // namespace messages
