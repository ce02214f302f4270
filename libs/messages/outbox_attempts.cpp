// SPDX-License-Identifier: MIT
// The attempts of an outbox, from the turn of a message to what became of it.
#include <algorithm>
#include <chrono>
#include <utility>

#include "libs/messages/outbox.h"
#include "libs/messages/retry_times.h"

namespace messages {
namespace {

using std::chrono::floor;
using std::chrono::milliseconds;

/// How long after the end of its validity a message's report may still come.
constexpr std::chrono::hours kLateReport(1);
constexpr std::size_t kMaxAwaiting = 10'000;

}  // namespace

std::optional<std::int64_t> Outbox::Next(const std::string& route, const Now& now) {
  if (!ready() || in_attempt_.contains(route)) return std::nullopt;
  const auto place = routes_.find(route);
  if (place == routes_.end()) return std::nullopt;
  const auto id = place->second.Next(limit_per_hour_, now.steady);
  NoticeLimit(route, place->second);
  if (!id) return std::nullopt;
  Entry& entry = *FindEntry(*id);
  CorrectDeadline(entry, now);
  if (entry.expires <= now.steady) {
    ExpireSome(now);
    return std::nullopt;
  }
  return id;
}

const Outgoing* Outbox::Find(std::int64_t id) const {
  const auto place = entries_.find(id);
  return place == entries_.end() ? nullptr : &place->second.row;
}

Outbox::Entry* Outbox::FindEntry(std::int64_t id) {
  const auto place = entries_.find(id);
  return place == entries_.end() ? nullptr : &place->second;
}

milliseconds Outbox::ValidFor(std::int64_t id, const Now& now) const {
  const auto place = entries_.find(id);
  if (place == entries_.end()) return milliseconds(0);
  return std::max(floor<milliseconds>(place->second.expires - now.steady), milliseconds(0));
}

void Outbox::Take(std::int64_t id) {
  Entry& entry = *FindEntry(id);
  routes_[entry.row.route].Remove(Queued(entry.row), entry.next_try);
  in_attempt_[entry.row.route] = id;
  entry.in_attempt = true;
  entry.row.error_id = 0;
  if (entry.row.attempts == 0) entry.row.reason.clear();  // why it waited until now
  ++entry.row.attempts;
  if (const auto kept = kept_.find(entry.row.route); kept != kept_.end()) kept->second.erase(id);
}

std::uint64_t Outbox::HandOver(std::int64_t id, const Now& now) {
  Entry& entry = *FindEntry(id);
  entry.row.in_transfer = true;
  return Save(entry, now);
}

void Outbox::NoteWhyItWaits(const std::string& route, const std::string& reason, const Now& now) {
  if (Waiting(route) == 0) return;
  const auto id = Next(route, now);
  Entry* const entry = id ? FindEntry(*id) : nullptr;
  if (entry == nullptr || entry->row.attempts > 0 || entry->row.reason == reason) return;
  entry->row.reason = reason;
  Save(*entry, now);
}

std::uint64_t Outbox::Begin(std::int64_t id, const Now& now) {
  Take(id);
  return HandOver(id, now);
}

void Outbox::Withdraw(std::int64_t id, const Now& now) {
  Entry* const entry = FindEntry(id);
  if (entry == nullptr || !entry->in_attempt) return;
  --entry->row.attempts;
  Delay(*entry, entry->next_try, now);
}

std::uint64_t Outbox::SetProgress(std::int64_t id, std::string progress, const Now& now) {
  Entry& entry = *FindEntry(id);
  entry.row.progress = std::move(progress);
  return Save(entry, now);
}

void Outbox::StopTransfer(Entry& entry) {
  if (!std::exchange(entry.in_attempt, false)) return;
  entry.row.in_transfer = false;
  in_attempt_.erase(entry.row.route);
}

void Outbox::Delay(Entry& entry, SteadyTime until, const Now& now) {
  StopTransfer(entry);
  RouteQueue& route = routes_[entry.row.route];
  route.Remove(Queued(entry.row), entry.next_try);
  entry.next_try = until;
  route.Add(Queued(entry.row), until, now.steady);
  expiring_.emplace(entry.expires, entry.row.id);  // it may have come due during the attempt
  Save(entry, now);
}

void Outbox::FailForNow(std::int64_t id, const std::string& reason, const Now& now) {
  Entry& entry = *FindEntry(id);
  entry.row.reason = reason;
  const SteadyTime again = now.steady + RetryDelay(entry.row.attempts);
  Delay(entry, routes_[entry.row.route].NoteFailure(again, now.steady), now);
}

void Outbox::FailOnRoute(std::int64_t id, const std::string& reason, const Now& now) {
  Entry& entry = *FindEntry(id);
  entry.row.reason = reason;
  routes_[entry.row.route].Hold(now.steady);
  Delay(entry, now.steady, now);  // the hold delays it, so that the route's recovery lets it out
}

void Outbox::FailForRest(std::int64_t id, std::string progress, const std::string& reason,
                         const Now& now) {
  Entry& entry = *FindEntry(id);
  ReleaseRoute(entry.row.route, now);
  CountForLimit(entry, now);
  entry.row.progress = std::move(progress);
  entry.row.reason = reason;
  Delay(entry, now.steady + RetryDelay(entry.row.attempts), now);
}

void Outbox::EndJobsOnRoute(std::int64_t id, int error_id, const std::string& reason,
                            milliseconds pause, const Now& now) {
  Entry& failed = *FindEntry(id);
  const std::string route = failed.row.route;
  routes_[route].HoldFor(pause, now.steady);
  failed.row.reason = reason;
  Delay(failed, now.steady, now);
  std::vector<Change> changes;
  for (auto& [number, entry] : entries_) {
    if (entry.row.route != route || entry.row.state != OutgoingState::kWaiting) continue;
    entry.row.error_id = error_id;
    if (const auto job = std::exchange(entry.job, nullptr)) {
      ++job->failed;
      job->NoteError(error_id, entry.row.receiver, reason);
    }
    changes.emplace_back(Row(entry, now));
  }
  disk_.write(std::move(changes));
}

void Outbox::EndUnknown(std::int64_t id, const std::string& reason, const Now& now) {
  Entry& entry = *FindEntry(id);
  RouteQueue& route = routes_[entry.row.route];
  if (entry.in_attempt) route.CountForLimit(now.steady);
  entry.row.reason = "the end of an attempt is not known: " + reason;
  if (++entry.row.unknown_ends > 1) {
    End(id, OutgoingState::kFailed, kUnknownEndError,
        "the end of two attempts is not known (" + reason + "), so it may or may not have arrived",
        now);
    return;
  }
  const bool in_this_run = entry.in_attempt;
  const SteadyTime again = now.steady + RetryDelay(entry.row.attempts);
  Delay(entry, in_this_run ? again : now.steady, now);
}

void Outbox::Sent(std::int64_t id, std::string progress, bool await_report, const Now& now) {
  Entry& entry = *FindEntry(id);
  ReleaseRoute(entry.row.route, now);
  CountForLimit(entry, now);
  entry.row.progress = std::move(progress);
  entry.row.report_awaited = await_report && awaiting_.size() < kMaxAwaiting;
  End(id, OutgoingState::kSent, 0, "", now);
}

void Outbox::FailForGood(std::int64_t id, int error_id, const std::string& reason, const Now& now) {
  ReleaseRoute(FindEntry(id)->row.route, now);  // an answer about this message: the route works
  End(id, OutgoingState::kFailed, error_id, reason, now);
}

void Outbox::CountForLimit(Entry& entry, const Now& now) {
  if (!std::exchange(entry.counted, true)) routes_[entry.row.route].CountForLimit(now.steady);
}

void Outbox::ReleaseRoute(const std::string& route, const Now& now) {
  const auto place = routes_.find(route);
  if (place == routes_.end()) return;
  place->second.Release();
  const auto kept = kept_.find(route);
  if (kept == kept_.end()) return;
  const std::set<std::int64_t> ids = std::move(kept->second);
  kept_.erase(kept);
  for (const std::int64_t id : ids) {
    Entry* const entry = FindEntry(id);
    const bool waits = entry != nullptr && entry->row.state == OutgoingState::kWaiting;
    if (waits && !entry->in_attempt) Delay(*entry, now.steady, now);
  }
}

void Outbox::End(std::int64_t id, OutgoingState state, int error_id, const std::string& reason,
                 const Now& now) {
  Entry& entry = *FindEntry(id);
  TakeFromQueue(entry);
  entry.row.state = state;
  entry.row.error_id = error_id;
  entry.row.finished = now.wall;
  if (OutboxJob* const job = entry.job.get()) {
    if (state == OutgoingState::kSent) {
      ++job->sent;
      if (entry.row.unknown_ends > 0) job->NoteRepeat(entry.row.receiver, entry.row.reason);
    } else {
      ++job->failed;
      if (state == OutgoingState::kCancelled) ++job->cancelled;
      job->NoteError(error_id, entry.row.receiver, reason);
    }
  }
  if (!reason.empty()) entry.row.reason = reason;
  if (state != OutgoingState::kSent) {
    Notice("message to " + entry.row.receiver + " given up: " + reason);
  }
  if (state == OutgoingState::kSent && !entry.row.key.empty()) {
    sent_keys_.Add(entry.row.key, now.steady);
  }
  Save(entry, now);
  if (!entry.row.report_awaited) return Forget(id);
  AwaitReport(entry);
}

void Outbox::AwaitReport(const Entry& entry) {
  awaiting_.insert(entry.row.id);
  ++routes_[entry.row.route].awaiting;
  expiring_.emplace(entry.expires + kLateReport, entry.row.id);
}

void Outbox::Notice(std::string sentence) {
  constexpr std::size_t kMaxNotices = 100;
  if (notices_.size() < kMaxNotices) notices_.push_back(std::move(sentence));
}

void Outbox::NoticeLimit(const std::string& name, RouteQueue& route) {
  if (!route.limited) {
    route.limit_noticed = false;
  } else if (!std::exchange(route.limit_noticed, true)) {
    Notice(route_noun_ + " " + name + ": " + std::to_string(limit_per_hour_) +
           " messages have gone out within an hour, which is the limit; " +
           std::to_string(route.waiting) +
           " wait. Urgent ones still go out; 'corvane messages limit' changes the limit");
  }
}

void Outbox::TakeFromQueue(Entry& entry) {
  StopTransfer(entry);
  RouteQueue& route = routes_[entry.row.route];
  route.Remove(Queued(entry.row), entry.next_try);
  --route.waiting;
  --waiting_;
  expiring_.erase({entry.expires, entry.row.id});
  const auto key = waiting_keys_.find(entry.row.key);
  if (key != waiting_keys_.end() && --key->second == 0) waiting_keys_.erase(key);
}

void Outbox::Forget(std::int64_t id) {
  const auto place = entries_.find(id);
  if (place == entries_.end()) return;
  if (awaiting_.erase(id) != 0) --routes_[place->second.row.route].awaiting;
  expiring_.erase({place->second.expires + kLateReport, id});
  entries_.erase(place);
}

void Outbox::TakeReport(std::int64_t id, std::string progress, bool complete, bool delivered,
                        const Now& now) {
  Entry* const entry = FindEntry(id);
  if (entry == nullptr || !entry->row.report_awaited) return;
  entry->row.progress = std::move(progress);
  entry->row.report_awaited = !complete;
  if (delivered && entry->job != nullptr) ++entry->job->delivered;
  Save(*entry, now);
  if (complete) Forget(id);
}

}  // namespace messages
