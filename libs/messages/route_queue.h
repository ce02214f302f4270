// SPDX-License-Identifier: MIT
// What waits for one route of an outbox, in the order in which it goes out: urgent messages first,
// then by number. No function goes through all that waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "libs/messages/hourly_limit.h"
#include "libs/messages/now.h"

namespace messages {

class RouteQueue {
 public:
  /// What decides the order.
  struct Message {
    std::int64_t id;
    bool urgent;
    int attempts;  ///< those that fail again and again let others pass
  };
  /// A message may go out from `not_before` on.
  void Add(const Message& message, SteadyTime not_before, SteadyTime now);
  /// It no longer waits for its turn: an attempt begins, or it has ended.
  void Remove(const Message& message, SteadyTime not_before);
  /// The message whose turn it is; nullopt: none now. Nothing is removed.
  [[nodiscard]] std::optional<std::int64_t> Next(std::int64_t limit_per_hour, SteadyTime now);

  /// One went out, or may have gone out.
  void CountForLimit(SteadyTime when) { limit_.Count(when); }
  /// The route itself has failed: nothing is tried on it for a while, longer each time.
  /// @return when it may be tried again
  SteadyTime Hold(SteadyTime now);
  /// Nothing is tried for this time, even if a new message comes.
  void HoldFor(std::chrono::milliseconds pause, SteadyTime now);
  /// One message has failed. If several have in a row, the route is taken to be at fault.
  /// @return when that message may be tried again, at least `not_before`
  SteadyTime NoteFailure(SteadyTime not_before, SteadyTime now);
  /// The route works, or somebody wants it tried at once.
  void Release();
  /// Until when nothing is tried; the earliest time if it is not held.
  [[nodiscard]] SteadyTime held_until() const { return held_until_.value_or(SteadyTime::min()); }
  /// A new message deserves an attempt soon, however long the route has been failing.
  void Shorten(SteadyTime now);

  std::size_t waiting = 0;     ///< messages that wait, the one in transfer included
  std::size_t awaiting = 0;    ///< messages that were sent and whose report is outstanding
  bool limited = false;        ///< the hourly limit held the message that Next looked at last
  bool limit_noticed = false;  ///< and a notice of that has been given

 private:
  using Turn = std::tuple<bool, int, std::int64_t>;  // not urgent, rounds of attempts, number

  static Turn TurnOf(const Message& message);

  std::set<Turn> ready_;
  std::set<std::pair<SteadyTime, Turn>> delayed_;
  HourlyLimit limit_;
  SteadyTime last_failure_;
  std::optional<SteadyTime> held_until_;
  bool shortens_ = true;  // what holds it, for a new message
  int holds_ = 0;         // in a row
  int failures_ = 0;      // of single messages, in a row
};

}  // namespace messages
