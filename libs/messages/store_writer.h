// SPDX-License-Identifier: MIT
// The thread that brings a store's changes to the disk. Everything in it runs in that thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "libs/messages/pending_changes.h"
#include "libs/messages/store.h"
#include "libs/messages/store_file.h"
#include "libs/messages/store_lock.h"
#include "libs/messages/store_opening.h"
#include "libs/messages/store_shared.h"

namespace messages {

/// Opens the file, and writes what is queued, each time in one transaction, until the store is
/// stopped.
class StoreWriter {
 public:
  explicit StoreWriter(std::shared_ptr<StoreShared> shared);
  /// Returns after Shared::stopping was set, and one last attempt to write.
  void Run();

 private:
  using Clock = std::chrono::steady_clock;

  /// Waits until there is something to do. @return false: the store is stopping.
  bool Wait();
  void TakeQueue();
  /// Does all that is to be done; after a failure the problem is set, and the next attempt is
  /// later.
  void Attempt();
  void NoteFailure(const std::exception& error);
  void Open();
  [[nodiscard]] OpenedStore OpenFile();
  /// Reads what is in a file that cannot be written, as on a full disk: what waits goes out, and
  /// keys are known.
  void LoadWhatCanBeRead();
  void LoadContent(StoreFile& file);
  [[nodiscard]] bool IsContentWanted();
  /// The number in the file as the models know it.
  [[nodiscard]] std::int64_t NumberOfRun(std::int64_t number) const;
  void UseNumbersOfRun(Outgoing& row) const;
  /// Lets go of a file or lock that somebody has replaced, so that it is opened again.
  void CheckPlace();
  void WritePending();
  void PollRequests();
  void CleanUp();
  void SetProblem(std::string sentence);
  [[nodiscard]] bool IsLoaded() const { return shared_->first_new_number != 0; }

  std::shared_ptr<StoreShared> shared_;
  std::optional<StoreLock> lock_;
  std::unique_ptr<StoreFile> file_;
  std::string damage_;  ///< what was seen in the open file; empty: nothing
  PendingChanges pending_;
  std::uint64_t pending_sequence_ = 0;
  std::chrono::milliseconds retry_{0};  ///< 0: the last attempt was successful
  Clock::time_point next_attempt_{};
  Clock::time_point next_poll_{};
  Clock::time_point next_clean_up_{};
  std::int64_t data_version_ = -1;
  std::int64_t last_request_ = 0;
};

}  // namespace messages
