// SPDX-License-Identifier: MIT
// What SMS_OUTBOX and MAIL_OUTBOX do with their messages, in the time that a test sets: keep,
// carry, retry, expire. There is no disk: what is kept outlives a restart of the program in memory.
// Threads: one.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "block/error_ids.h"
#include "libs/messages/hourly_limit.h"
#include "libs/messages/retry_times.h"
#include "libs/messages/sent_keys.h"

namespace corvane::program_test {

/// How an attempt ended.
struct CarryResult {
  enum class End : std::uint8_t {
    kTaken,
    kRefused,  ///< for good
    kForNow,   ///< it is tried again
    kHeld,     ///< the job ends with the error, the message is tried again in 15 minutes
  };
  End end = End::kTaken;
  ErrorId id = ErrorId::kNone;
  std::string text;  ///< what was wrong
};

/// What a block shows of its message.
struct SimulatedJob {
  int messages = 0;  ///< one for each receiver; 0: a message with this key waits or was sent
  int sent = 0;
  int failed = 0;
  int delivered = 0;
  bool stored = false;
  bool held = false;  ///< over for the block; the message is kept
  ErrorId error = ErrorId::kNone;
  std::string errors;   ///< of what has failed or is held
  std::string refused;  ///< one line for each refused address
  [[nodiscard]] bool ended() const { return held || sent + failed >= messages; }
};

/// @tparam Content what is sent; it has a function `receiver()` for error texts
template <class Content>
class SimulatedOutbox {
 public:
  struct Request {
    std::string route;  ///< messages of one route go one after the other
    std::string key;
    bool urgent = false;
    std::chrono::milliseconds valid_for{};
    std::vector<Content> messages;
  };

  std::shared_ptr<const SimulatedJob> Add(Request request, messages::SteadyTime now) {
    auto job = std::make_shared<SimulatedJob>();
    if (!request.key.empty() && IsKnown(request.key, request.valid_for, now)) return job;
    job->messages = static_cast<int>(request.messages.size());
    for (Content& content : request.messages) {
      rows_.push_back({.route = request.route,
                       .key = request.key,
                       .urgent = request.urgent,
                       .expires = now + request.valid_for,
                       .content = std::move(content),
                       .job = job,
                       .next = now,
                       .transfer_ends = std::nullopt,
                       .trouble = {}});
    }
    return job;
  }

  /// A cycle begins: what was added is stored, what takes `delay` has ended, and what is due
  /// begins.
  /// @param carry an attempt ends: what comes of it; it may change the content and the job
  template <class Carry>
  void Advance(messages::SteadyTime now, std::chrono::milliseconds delay, bool reachable,
               const Carry& carry) {
    for (Row& row : rows_) {
      if (row.job != nullptr) row.job->stored = true;
      if (row.transfer_ends && now >= *row.transfer_ends) End(row, carry, now);
      if (!row.gone && !row.transfer_ends && now >= row.expires) Expire(row);
    }
    std::erase_if(rows_, [](const Row& row) { return row.gone; });
    if (reachable) Begin(now, delay);
  }

  /// A new chance at once: the modem is there again, or the login has changed.
  void TryNow(const std::string& route, messages::SteadyTime now) {
    for (Row& row : rows_) {
      if (route.empty() || row.route == route) row.next = std::min(row.next, now);
    }
  }

  [[nodiscard]] int Waiting(const std::string& route) const {
    return static_cast<int>(std::count_if(rows_.begin(), rows_.end(),
                                          [&](const Row& row) { return row.route == route; }));
  }

  /// The program has ended: nobody looks at the jobs any more.
  void DropJobs() {
    for (Row& row : rows_) row.job = nullptr;
  }

 private:
  struct Row {
    std::string route, key;
    bool urgent = false;
    messages::SteadyTime expires;
    Content content;
    std::shared_ptr<SimulatedJob> job;  // null: of an earlier run
    messages::SteadyTime next;
    std::optional<messages::SteadyTime> transfer_ends;  // while an attempt is under way
    std::string trouble;                                // of the last attempt
    int failures = 0;
    bool gone = false;
  };

  bool IsKnown(const std::string& key, std::chrono::milliseconds period, messages::SteadyTime now) {
    const bool waits =
        std::any_of(rows_.begin(), rows_.end(), [&](const Row& row) { return row.key == key; });
    return waits || sent_keys_.SentWithin(key, period, now);
  }

  void Begin(messages::SteadyTime now, std::chrono::milliseconds delay) {
    std::map<std::string, Row*> next;  // of each route; null: it is busy
    for (Row& row : rows_) {
      Row*& chosen = next.try_emplace(row.route, &row).first->second;
      if (chosen == nullptr) continue;
      if (row.transfer_ends) chosen = nullptr;
      if (chosen != nullptr && (!IsDue(*chosen, now) || (row.urgent && !chosen->urgent)) &&
          IsDue(row, now)) {
        chosen = &row;
      }
    }
    for (const auto& [route, row] : next) {
      if (row == nullptr || !IsDue(*row, now)) continue;
      row->transfer_ends = now + delay;
      limits_[route].Count(now);
    }
  }

  bool IsDue(const Row& row, messages::SteadyTime now) {
    constexpr int kPerHour = 60;
    return row.next <= now && (row.urgent || limits_[row.route].Allows(kPerHour, now));
  }

  template <class Carry>
  void End(Row& row, const Carry& carry, messages::SteadyTime now) {
    using End = CarryResult::End;
    row.transfer_ends.reset();
    const auto job = row.job != nullptr ? row.job : std::make_shared<SimulatedJob>();
    const CarryResult result = carry(row.content, job);
    row.trouble = result.text;
    switch (result.end) {
      case End::kTaken:
        row.gone = true;
        ++job->sent;
        if (!row.key.empty()) sent_keys_.Add(row.key, now);
        return;
      case End::kRefused: Fail(row, result.id, result.text); return;
      case End::kForNow: row.next = now + messages::RetryDelay(++row.failures); return;
      case End::kHeld:
        row.next = now + std::chrono::minutes(15);
        job->held = true;
        job->error = result.id;
        job->errors = result.text;
        row.job = nullptr;
        return;
    }
  }

  void Expire(Row& row) {
    std::string text = row.content.receiver() + ": expired";
    if (!row.trouble.empty()) text += ", after: " + row.trouble;
    Fail(row, ErrorId::kExpired, text);
  }

  void Fail(Row& row, ErrorId id, const std::string& text) {
    row.gone = true;
    if (row.job == nullptr) return;
    ++row.job->failed;
    row.job->error = id;
    row.job->errors += (row.job->errors.empty() ? "" : "; ") + text;
  }

  std::vector<Row> rows_;
  std::map<std::string, messages::HourlyLimit> limits_;
  messages::SentKeys sent_keys_;
};

}  // namespace corvane::program_test
