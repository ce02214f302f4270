// SPDX-License-Identifier: MIT
// The store of messages: one SQLite file in a program's state folder, written by one thread. The
// models in memory are the truth; the disk follows them. Nothing here waits for the disk, except
// Flush and the destructor, which are bounded. Threads: any, unless a function says otherwise.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "libs/messages/row.h"

namespace messages {

/// The program has done its work with a message: it is not offered again. It stays in the file as
/// history. An id that the store does not have is ignored.
struct AcceptIncoming {
  std::int64_t id = 0;
  WallTime when{};
};

/// Removes all parts of a group: their message is complete, or given up.
struct RemoveParts {
  std::int64_t group = 0;
};

struct RemoveHeld {
  std::string route;
  int index = 0;
};

/// The setting of the store: messages per hour and route. At least 0; 0: none but urgent ones.
struct SetLimit {
  std::int64_t per_hour = 0;
};

/// What has become of a request: `corvane messages` prints `outcome` (one sentence) and ends with
/// status 0 if `done`.
struct AnswerRequest {
  std::int64_t id = 0;
  bool done = false;
  std::string outcome;
};

/// One row as it is from now on, or the removal of one. Outgoing, Incoming, Part and Held are
/// added, or replace the row of the same identity.
using Change = std::variant<Outgoing, Incoming, AcceptIncoming, Part, RemoveParts, Held, RemoveHeld,
                            SetLimit, AnswerRequest>;

/// What a store had when it was opened. What may be long can be taken over, and freed, piece by
/// piece.
struct Content {
  std::deque<Outgoing> waiting;    ///< kWaiting, and ended ones with `report_awaited`; by id
  std::deque<SentKey> keys;        ///< sent within the last 30 days
  std::vector<RecentSend> recent;  ///< sent within the last hour
  std::optional<std::int64_t> limit_per_hour;  ///< empty: never set
  std::deque<Incoming> inbox;                  ///< not accepted yet; by id
  std::deque<Part> parts;
  std::deque<Held> held;
};

/// The channel of received messages.
inline constexpr const char* kInboxChannel = "sms";

/// The limit of a store in which none was set.
inline constexpr std::int64_t kDefaultLimitPerHour = 60;

struct StoreOptions {
  /// Name of a registered SQLite VFS; empty: the system's. A seam for tests.
  std::string vfs;
  std::chrono::milliseconds first_retry{1000};     ///< after a failure; doubles each time ...
  std::chrono::milliseconds longest_retry{30000};  ///< ... up to this
  std::chrono::milliseconds request_poll{500};
  /// After a transaction changes gather for so long, so that a burst of them needs few.
  std::chrono::milliseconds gather{2};
  /// How long one attempt may last before problem() reports that the disk does not answer.
  std::chrono::milliseconds stall{10000};
  /// How long the destructor waits for the writer thread.
  std::chrono::milliseconds longest_end{1000};
  std::function<WallTime()> now;  ///< empty: the system's clock
};

/// The number of a message within this run, from NewId, is at least this.
inline constexpr std::int64_t kFirstNewId = std::int64_t{1} << 62;

class StoreShared;

/// The handle that one kind of messages, a channel, has on the store of a folder. All handles of a
/// process share the store, also those of separately linked libraries of the same version. A
/// channel has one handle at a time; a second one gets a problem, as another process would.
class Store {
 public:
  /// Returns at once. A thread of the store, started by the first handle, then makes the folder
  /// (mode 0700) and the file messages.db in it (0600), or opens, checks, migrates and loads it,
  /// and does so again and again while that fails. An empty `folder` is a problem like any other.
  /// @param channel as in Outgoing
  /// @param options count if this is the first handle of the store
  Store(const std::filesystem::path& folder, std::string channel, StoreOptions options = {});
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  /// The last handle writes what is queued, but waits no longer than `longest_end`: with a disk
  /// that does not answer the thread is left behind, so the code must stay loaded (the linker's -z
  /// nodelete).
  ~Store();

  /// Number of a new message, outgoing or incoming; usable before the store is loaded. They rise;
  /// those of loaded messages are lower than all new ones.
  [[nodiscard]] std::int64_t NewId() noexcept;
  /// The number as people see it and as the file has it: positive, rising across all runs, never
  /// used twice. 0: not known before the store is loaded.
  [[nodiscard]] std::int64_t Number(std::int64_t id) const noexcept;

  /// Queues changes. They reach the disk together or not at all, after all earlier ones. Never
  /// waits. While writing fails they are kept and written later; of several changes of one row only
  /// the last is kept.
  /// @return the sequence number for IsOnDisk; at least 1, rising.
  std::uint64_t Write(const std::vector<Change>& changes);
  /// Somebody waits for what has been written: it goes to the disk without gathering.
  void Hurry() noexcept;
  /// Whether these changes and all earlier ones would survive a power cut.
  [[nodiscard]] bool IsOnDisk(std::uint64_t sequence) const noexcept;

  /// What the file had of this channel, once; empty before it is loaded and after it was taken.
  /// Received messages belong to kInboxChannel.
  [[nodiscard]] std::optional<Content> TakeContent();
  /// Whether the file has been loaded (TakeContent has, or had, something to give).
  [[nodiscard]] bool loaded() const noexcept;

  /// Empty while all is well, and before the first attempt has ended. Otherwise a sentence, all of
  /// error 22: what is wrong with which file, what happens meanwhile, what to do. Cheap when empty.
  [[nodiscard]] std::string problem() const;
  /// Sentences, for the log, about what was wrong and has been dealt with: a damaged file that was
  /// put aside. Each is given once, to any handle.
  [[nodiscard]] std::vector<std::string> TakeNotices();
  /// True once, for each handle, after the file was found damaged while it was in use and had to be
  /// begun again: the models then write every row that they hold.
  [[nodiscard]] bool TakeBegunAgain() noexcept;

  /// True once after the file was loaded, for one of the handles, which then logs where it is.
  [[nodiscard]] bool TakeLoaded() noexcept;

  /// Requests about this channel that have come since the last call. Each is given once in a run,
  /// and asks for an AnswerRequest, best in the same Write as what it changes. That of the limit is
  /// given to each channel, and one of them answers.
  [[nodiscard]] std::vector<Request> TakeRequests();

  /// `wake` is called, until the handle ends, whenever one of the functions above may give
  /// something different. It runs in the store's thread under its lock, so it only wakes
  /// another thread.
  void OnNews(std::function<void()> wake);

  /// Waits until all that was queued is on the disk, or for `limit`. @return whether it is.
  bool Flush(std::chrono::milliseconds limit);

  /// The file, whether it exists or not.
  [[nodiscard]] const std::filesystem::path& file() const noexcept;

 private:
  std::string channel_;
  std::shared_ptr<StoreShared> shared_;
  int times_begun_again_ = 0;  // that the models know of
};

}  // namespace messages
