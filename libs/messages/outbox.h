// SPDX-License-Identifier: MIT
// The messages of one channel that wait to go out: order, retries, expiry, keys, hourly limits, and
// unknown ends. The model in memory is the truth; changes go to the store as whole rows.
// It does not know what the messages are or how they are sent. Every function costs the same,
// however many messages wait, unless it says otherwise. Threads: one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "libs/messages/now.h"
#include "libs/messages/outbox_job.h"
#include "libs/messages/route_queue.h"
#include "libs/messages/sent_keys.h"
#include "libs/messages/store.h"

namespace messages {

/// The `ErrorId`s that an outbox itself sets.
inline constexpr int kExpiredError = 20;
inline constexpr int kRefusedError = 21;
inline constexpr int kUnknownEndError = 23;

class Outbox {
 public:
  /// Where its rows go. An outbox does not wait for the disk.
  struct Disk {
    std::function<std::int64_t()> new_id;                     ///< as Store::NewId
    std::function<std::uint64_t(std::vector<Change>)> write;  ///< as Store::Write
  };
  /// A program that queues faster than its modem sends must not take all memory.
  static constexpr std::size_t kMaxWaiting = 100'000;

  /// @param route_noun what a route is, for people: the name of a route follows it
  Outbox(std::string channel, Disk disk, std::string route_noun = "port");

  // Loading

  /// What the store had for this channel, and for others, which are ignored. It is taken over in
  /// the following calls of Tick.
  void Load(std::deque<Outgoing> rows, std::deque<SentKey> keys, std::vector<RecentSend> recent,
            std::optional<std::int64_t> limit_per_hour, const Now& now);
  /// The store cannot be read for now; what is in memory goes out all the same.
  void GoOnWithoutStore() { without_store_ = true; }
  /// Whether messages may go out: the earlier ones and the keys are known, or cannot be.
  [[nodiscard]] bool ready() const { return loaded_ || without_store_; }
  /// Whether all that was stored is known.
  [[nodiscard]] bool loaded() const { return loaded_; }
  /// Every route that has been used, or of which something was loaded.
  [[nodiscard]] std::vector<std::string> Routes() const;
  /// Writes every row again, after the store was created again.
  void WriteAgain();

  // For blocks

  /// Queues a message for each receiver; nullptr: kMaxWaiting wait already. With a key it is queued
  /// in the first call of Tick in which the outbox is ready.
  [[nodiscard]] std::shared_ptr<const OutboxJob> Add(NewJob job, const Now& now);
  /// Whether a report about a message of this route is outstanding.
  [[nodiscard]] bool AwaitsReport(const std::string& route) const;
  /// Messages of a route that wait, the one in transfer included.
  [[nodiscard]] std::size_t Waiting(const std::string& route) const;
  [[nodiscard]] std::size_t waiting() const { return waiting_; }
  /// Loads, decides about keys, and ends what has expired, a limited number in each call.
  void Tick(const Now& now);

  // For the sender

  /// The message that may go out on a route now; nullopt while one is in transfer, too.
  [[nodiscard]] std::optional<std::int64_t> Next(const std::string& route, const Now& now);
  /// A message that waits or awaits its report; nullptr: it has ended.
  [[nodiscard]] const Outgoing* Find(std::int64_t id) const;
  /// How long it is still worth sending; at least 0.
  [[nodiscard]] std::chrono::milliseconds ValidFor(std::int64_t id, const Now& now) const;
  /// An attempt begins, in memory only: a run that is killed has not tried anything.
  void Take(std::int64_t id);
  /// Once the change with the returned number is on the disk, the message may be handed over; a run
  /// that is killed from then on leaves an unknown end.
  std::uint64_t HandOver(std::int64_t id, const Now& now);
  /// Both: for messages that are handed over at once.
  std::uint64_t Begin(std::int64_t id, const Now& now);
  /// The attempt ends before anything was handed over: nothing has happened.
  void Withdraw(std::int64_t id, const Now& now);
  /// A step of the attempt is done; its next one waits for the returned number.
  std::uint64_t SetProgress(std::int64_t id, std::string progress, const Now& now);
  /// The other side has taken all of it.
  void Sent(std::int64_t id, std::string progress, bool await_report, const Now& now);
  /// The other side will never take it. `reason`: a sentence.
  void FailForGood(std::int64_t id, int error_id, const std::string& reason, const Now& now);
  /// This message is tried again later.
  void FailForNow(std::int64_t id, const std::string& reason, const Now& now);
  /// All messages of its route are tried again later.
  void FailOnRoute(std::int64_t id, const std::string& reason, const Now& now);
  /// The other side has taken a part, which `progress` tells, and wants the rest later.
  void FailForRest(std::int64_t id, std::string progress, const std::string& reason,
                   const Now& now);
  /// The route refuses everything until somebody changes something: all jobs with messages on it
  /// end with this error, the messages stay, and nothing is tried for `pause`, or until the route
  /// is released. The messages of this error are tried again after the pause in a later run, too.
  /// Goes through all messages that wait.
  void EndJobsOnRoute(std::int64_t id, int error_id, const std::string& reason,
                      std::chrono::milliseconds pause, const Now& now);
  /// It was handed over, and what became of it is not known. The first time it is tried again, the
  /// second time it fails.
  void EndUnknown(std::int64_t id, const std::string& reason, const Now& now);
  /// Nothing can be tried on this route: the message whose turn it is says so, for people, as long
  /// as it has not been tried.
  void NoteWhyItWaits(const std::string& route, const std::string& reason, const Now& now);
  /// The route is tried at once, whatever happened before, with what EndJobsOnRoute has kept.
  void ReleaseRoute(const std::string& route, const Now& now);

  /// Messages that were loaded and of which something has been done, since the last call.
  [[nodiscard]] std::vector<std::int64_t> TakeLoadedWithProgress() {
    return std::exchange(loaded_with_progress_, {});
  }
  /// A report has come. `complete`: no more are awaited.
  void TakeReport(std::int64_t id, std::string progress, bool complete, bool delivered,
                  const Now& now);

  // For people

  /// Sentences for the log: what was given up, and which route its limit holds. Each is given once.
  [[nodiscard]] std::vector<std::string> TakeNotices() { return std::exchange(notices_, {}); }
  [[nodiscard]] std::int64_t limit_per_hour() const { return limit_per_hour_; }
  /// Carries out a request about this channel, or about the limit, and answers it.
  void Apply(const Request& request, const Now& now);

 private:
  struct Entry {
    Outgoing row;
    std::shared_ptr<OutboxJob> job;  // null: of an earlier run
    SteadyTime created, expires, next_try;
    bool in_attempt = false;
    bool counted = false;          // for the hourly limit
    bool clock_was_wrong = false;  // at loading, so `expires` is longer than it should be
  };
  /// A job whose key has not been looked up.
  struct Undecided {
    NewJob job;
    std::shared_ptr<OutboxJob> progress;
    Now added;
  };
  struct Loading {
    std::deque<Outgoing> rows;
    std::deque<SentKey> keys;
    std::int64_t last = 0;  ///< number of the last row
  };

  static RouteQueue::Message Queued(const Outgoing& row);
  void LoadSome(const Now& now);
  void LoadRow(Outgoing row, const Now& now);
  void SetDeadlines(Entry& entry, const Now& now) const;
  void CorrectDeadline(Entry& entry, const Now& now);
  void Decide(const Now& now);
  void Enqueue(NewJob job, const std::shared_ptr<OutboxJob>& progress, const Now& added);
  [[nodiscard]] bool IsKnown(const NewJob& job, const Now& now) const;
  void Put(Entry entry, const Now& now);
  void ExpireSome(const Now& now);
  void WriteSomeAgain();

  Entry* FindEntry(std::int64_t id);
  void Delay(Entry& entry, SteadyTime until, const Now& now);
  /// Ends it, for its job, too, and writes it.
  void End(std::int64_t id, OutgoingState state, int error_id, const std::string& reason,
           const Now& now);
  void CountForLimit(Entry& entry, const Now& now);
  void Notice(std::string sentence);
  void NoticeLimit(const std::string& name, RouteQueue& route);
  void TakeFromQueue(Entry& entry);
  void AwaitReport(const Entry& entry);
  void Forget(std::int64_t id);
  void StopTransfer(Entry& entry);
  Outgoing Row(Entry& entry, const Now& now) const;
  std::uint64_t Save(Entry& entry, const Now& now);
  void Answer(const Request& request, bool done, std::string outcome);
  void Cancel(const Request& request, const Now& now);
  void Retry(const Request& request, const Now& now);

  const std::string channel_;
  const Disk disk_;
  const std::string route_noun_;
  bool loaded_ = false;
  bool without_store_ = false;
  std::unique_ptr<Loading> loading_;
  std::deque<Undecided> undecided_;
  // No hash tables: when one grows, a single call moves all that is in it.
  std::map<std::int64_t, Entry> entries_;
  std::map<std::string, RouteQueue> routes_;
  std::map<std::string, std::int64_t> in_attempt_;  // by route
  /// Messages of earlier runs that EndJobsOnRoute has kept, by route.
  std::map<std::string, std::set<std::int64_t>> kept_;
  std::set<std::pair<SteadyTime, std::int64_t>> expiring_;
  std::set<std::int64_t> awaiting_;  // sent, with a report outstanding
  std::vector<std::int64_t> loaded_with_progress_;
  std::map<std::string, int> waiting_keys_;
  SentKeys sent_keys_;
  std::deque<std::int64_t> to_write_again_;
  bool write_again_when_loaded_ = false;
  std::vector<std::string> notices_;
  std::int64_t limit_per_hour_ = kDefaultLimitPerHour;
  std::size_t waiting_ = 0;
};

}  // namespace messages
