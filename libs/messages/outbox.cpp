// SPDX-License-Identifier: MIT
#include "libs/messages/outbox.h"

#include <algorithm>

#include "libs/messages/retry_times.h"

namespace messages {
namespace {

using std::chrono::floor;
using std::chrono::milliseconds;

constexpr int kLoadedPerCall = 100;
constexpr int kEndedPerCall = 50;
/// How long after the end of its validity a message's report may still come.
constexpr std::chrono::hours kLateReport(1);
constexpr std::size_t kMaxAwaiting = 10'000;

milliseconds Age(WallTime then, const Now& now) {
  if (then < kClockIsSet || !now.clock_is_set()) return milliseconds(0);
  return std::max(now.wall - then, milliseconds(0));
}

RouteQueue::Message Queued(const Outgoing& row) {
  return {row.id, row.urgent, row.attempts};
}

WallTime WallOf(SteadyTime when, const Now& now) {
  return now.wall + floor<milliseconds>(when - now.steady);
}

}  // namespace

Outbox::Outbox(std::string channel, Disk disk)
    : channel_(std::move(channel)), disk_(std::move(disk)) {}

std::shared_ptr<const OutboxJob> Outbox::Add(NewJob job, const Now& now) {
  if (waiting_ + job.messages.size() > kMaxWaiting) return nullptr;
  auto progress = std::make_shared<OutboxJob>();
  progress->receivers = static_cast<int>(job.messages.size());
  RouteQueue& route = routes_[job.route];
  route.Shorten(now.steady);
  if (job.key.empty()) {
    Enqueue(std::move(job), progress, now);
  } else {
    route.waiting += job.messages.size();
    waiting_ += job.messages.size();
    undecided_.push_back({std::move(job), progress, now});
    if (ready()) Decide(now);
  }
  return progress;
}

void Outbox::Decide(const Now& now) {
  for (int i = 0; i < kEndedPerCall && !undecided_.empty(); ++i) {
    Undecided next = std::move(undecided_.front());
    undecided_.pop_front();
    routes_[next.job.route].waiting -= next.job.messages.size();
    waiting_ -= next.job.messages.size();
    next.progress->duplicate = IsKnown(next.job, now);
    next.progress->decided = true;
    if (!next.progress->duplicate) Enqueue(std::move(next.job), next.progress, next.added);
  }
}

bool Outbox::IsKnown(const NewJob& job, const Now& now) const {
  return waiting_keys_.contains(job.key) ||
         sent_keys_.SentWithin(job.key, job.valid_for, now.steady);
}

void Outbox::Enqueue(NewJob job, const std::shared_ptr<OutboxJob>& progress, const Now& added) {
  std::vector<Change> changes;
  for (NewJob::Message& message : job.messages) {
    Entry entry;
    entry.row.id = disk_.new_id();
    if (progress->id == 0) progress->id = entry.row.id;
    entry.row.job = progress->id;
    entry.row.channel = channel_;
    entry.row.route = job.route;
    entry.row.receiver = std::move(message.receiver);
    entry.row.content = std::move(message.content);
    entry.row.key = job.key;
    entry.row.urgent = job.urgent;
    entry.created = entry.next_try = added.steady;
    entry.expires = added.steady + job.valid_for;
    entry.job = progress;
    changes.emplace_back(Row(entry, added));
    Put(std::move(entry), added);
  }
  progress->decided = true;
  progress->sequence = disk_.write(std::move(changes));
}

void Outbox::Put(Entry entry, const Now& now) {
  const std::int64_t id = entry.row.id;
  RouteQueue& route = routes_[entry.row.route];
  route.Add(Queued(entry.row), entry.next_try, now.steady);
  ++route.waiting;
  ++waiting_;
  if (!entry.row.key.empty()) ++waiting_keys_[entry.row.key];
  expiring_.emplace(entry.expires, id);
  entries_.insert_or_assign(id, std::move(entry));
}

std::size_t Outbox::Waiting(const std::string& route) const {
  const auto place = routes_.find(route);
  return place == routes_.end() ? 0 : place->second.waiting;
}

bool Outbox::AwaitsReport(const std::string& route) const {
  const auto place = routes_.find(route);
  return place != routes_.end() && place->second.awaiting > 0;
}

std::vector<std::string> Outbox::Routes() const {
  std::vector<std::string> names;
  for (const auto& [name, route] : routes_) names.push_back(name);
  return names;
}

void Outbox::Tick(const Now& now) {
  if (loading_ != nullptr) LoadSome(now);
  if (ready()) {
    Decide(now);
    ExpireSome(now);
  }
  if (!to_write_again_.empty()) WriteSomeAgain();
}

void Outbox::ExpireSome(const Now& now) {
  for (int i = 0; i < kEndedPerCall && !expiring_.empty(); ++i) {
    const auto [when, id] = *expiring_.begin();
    if (when > now.steady) break;
    expiring_.erase(expiring_.begin());
    Entry& entry = *FindEntry(id);
    if (entry.row.in_transfer) continue;  // its end decides
    if (entry.row.state == OutgoingState::kWaiting) {
      const std::string last =
          entry.row.reason.empty() ? "" : "; the last one: " + entry.row.reason;
      End(id, OutgoingState::kExpired, kExpiredError,
          "not sent within ValidFor; attempts: " + std::to_string(entry.row.attempts) + last, now);
    } else {  // no report has come
      entry.row.report_awaited = false;
      Save(entry, now);
      Forget(id);
    }
  }
}

// What was loaded

void Outbox::Load(std::vector<Outgoing> rows, std::vector<SentKey> keys,
                  std::vector<RecentSend> recent, std::optional<std::int64_t> limit_per_hour,
                  const Now& now) {
  limit_per_hour_ = limit_per_hour.value_or(limit_per_hour_);
  std::sort(recent.begin(), recent.end(), [](const RecentSend& one, const RecentSend& other) {
    return one.finished < other.finished;
  });
  for (const RecentSend& sent : recent) {
    if (sent.channel != channel_) continue;
    routes_[sent.route].CountForLimit(now.steady - Age(sent.finished, now));
  }
  loading_ = std::make_unique<Loading>();
  loading_->rows = std::move(rows);
  loading_->keys = std::move(keys);
}

void Outbox::LoadSome(const Now& now) {
  for (int i = 0; i < kLoadedPerCall; ++i) {
    if (loading_->next_key < loading_->keys.size()) {
      const SentKey& sent = loading_->keys[loading_->next_key++];
      if (sent.channel == channel_) {
        sent_keys_.Add(sent.key, now.steady - Age(sent.finished, now));
      }
    } else if (loading_->next_row < loading_->rows.size()) {
      Outgoing& row = loading_->rows[loading_->next_row++];
      if (row.channel == channel_) LoadRow(std::move(row), now);
    } else {
      loading_.reset();
      loaded_ = true;
      return;
    }
  }
}

void Outbox::LoadRow(Outgoing row, const Now& now) {
  Entry entry;
  entry.row = std::move(row);
  SetDeadlines(entry, now);
  const std::int64_t id = entry.row.id;
  if (!entry.row.progress.empty()) loaded_with_progress_.push_back(id);
  if (entry.row.state != OutgoingState::kWaiting) {
    AwaitReport(entry);
    entries_.insert_or_assign(id, std::move(entry));
    return;
  }
  const bool unknown_end = std::exchange(entry.row.in_transfer, false);
  Put(std::move(entry), now);
  if (unknown_end) EndUnknown(id, "the program ended before the answer came", now);
}

void Outbox::SetDeadlines(Entry& entry, const Now& now) const {
  const Outgoing& row = entry.row;
  const milliseconds valid_for = std::max(row.expires - row.created, milliseconds(0));
  const bool known = row.created >= kClockIsSet && now.clock_is_set();
  entry.clock_was_wrong = row.created >= kClockIsSet && !now.clock_is_set();
  entry.created = now.steady - Age(row.created, now);
  entry.expires = now.steady + (known ? std::min(row.expires - now.wall, valid_for) : valid_for);
  const milliseconds wait = known ? row.next_try - now.wall : milliseconds(0);
  constexpr milliseconds kLongestWait = std::chrono::minutes(15);
  entry.next_try = now.steady + std::clamp(wait, milliseconds(0), kLongestWait);
}

void Outbox::CorrectDeadline(Entry& entry, const Now& now) {
  if (!entry.clock_was_wrong || !now.clock_is_set()) return;
  entry.clock_was_wrong = false;
  if (expiring_.erase({entry.expires, entry.row.id}) == 0) return;
  entry.created = now.steady - Age(entry.row.created, now);
  entry.expires = std::min(entry.expires, now.steady + (entry.row.expires - now.wall));
  expiring_.emplace(entry.expires, entry.row.id);
}

void Outbox::WriteAgain() {
  for (const auto& [id, entry] : entries_) to_write_again_.push_back(id);
}

void Outbox::WriteSomeAgain() {
  std::vector<Change> changes;
  for (int i = 0; i < kLoadedPerCall && !to_write_again_.empty(); ++i) {
    if (const Outgoing* row = Find(to_write_again_.front())) changes.emplace_back(*row);
    to_write_again_.pop_front();
  }
  if (!changes.empty()) disk_.write(std::move(changes));
}

// Attempts

std::optional<std::int64_t> Outbox::Next(const std::string& route, const Now& now) {
  if (!ready() || in_transfer_.contains(route)) return std::nullopt;
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

std::uint64_t Outbox::Begin(std::int64_t id, const Now& now) {
  Entry& entry = *FindEntry(id);
  routes_[entry.row.route].Remove(Queued(entry.row), entry.next_try);
  in_transfer_[entry.row.route] = id;
  entry.row.in_transfer = true;
  ++entry.row.attempts;
  return Save(entry, now);
}

void Outbox::Withdraw(std::int64_t id, const Now& now) {
  Entry* const entry = FindEntry(id);
  if (entry == nullptr || !entry->row.in_transfer) return;
  --entry->row.attempts;
  Delay(*entry, entry->next_try, now);
}

std::uint64_t Outbox::SetProgress(std::int64_t id, std::string progress, const Now& now) {
  Entry& entry = *FindEntry(id);
  entry.row.progress = std::move(progress);
  return Save(entry, now);
}

void Outbox::StopTransfer(Entry& entry) {
  if (!std::exchange(entry.row.in_transfer, false)) return;
  in_transfer_.erase(entry.row.route);
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

void Outbox::EndUnknown(std::int64_t id, const std::string& reason, const Now& now) {
  Entry& entry = *FindEntry(id);
  RouteQueue& route = routes_[entry.row.route];
  if (entry.row.in_transfer) route.CountForLimit(now.steady);
  entry.row.reason = "the end of an attempt is not known: " + reason;
  if (++entry.row.unknown_ends > 1) {
    End(id, OutgoingState::kFailed, kUnknownEndError,
        "the end of two attempts is not known (" + reason + "), so it may or may not have arrived",
        now);
    return;
  }
  const bool in_this_run = entry.row.in_transfer;
  const SteadyTime again = now.steady + RetryDelay(entry.row.attempts);
  Delay(entry, in_this_run ? again : now.steady, now);
}

void Outbox::Sent(std::int64_t id, std::string progress, bool await_report, const Now& now) {
  Entry& entry = *FindEntry(id);
  RouteQueue& route = routes_[entry.row.route];
  route.Release();
  route.CountForLimit(now.steady);
  entry.row.progress = std::move(progress);
  entry.row.report_awaited = await_report && awaiting_.size() < kMaxAwaiting;
  End(id, OutgoingState::kSent, 0, "", now);
}

void Outbox::FailForGood(std::int64_t id, int error_id, const std::string& reason, const Now& now) {
  routes_[FindEntry(id)->row.route].Release();  // an answer about this message: the route works
  End(id, OutgoingState::kFailed, error_id, reason, now);
}

void Outbox::ReleaseRoute(const std::string& route) {
  const auto place = routes_.find(route);
  if (place != routes_.end()) place->second.Release();
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
    Notice("port " + name + ": " + std::to_string(limit_per_hour_) +
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

// Rows

Outgoing Outbox::Row(Entry& entry, const Now& now) const {
  // Times that were right are not replaced by those of a clock that is not set.
  if (now.clock_is_set() || entry.row.created < kClockIsSet) {
    entry.row.created = WallOf(entry.created, now);
    entry.row.expires = WallOf(entry.expires, now);
    const auto route = routes_.find(entry.row.route);
    const SteadyTime held = route == routes_.end() ? SteadyTime::min() : route->second.held_until();
    entry.row.next_try = WallOf(std::max(entry.next_try, held), now);
  }
  return entry.row;
}

std::uint64_t Outbox::Save(Entry& entry, const Now& now) {
  CorrectDeadline(entry, now);
  std::vector<Change> changes;
  changes.emplace_back(Row(entry, now));
  return disk_.write(std::move(changes));
}

// Requests

void Outbox::Apply(const Request& request, const Now& now) {
  switch (request.kind) {
    case RequestKind::kLimit: {
      limit_per_hour_ = std::max<std::int64_t>(request.value, 0);
      disk_.write({SetLimit{limit_per_hour_}});
      return Answer(request, true,
                    "limit: " + std::to_string(limit_per_hour_) + " messages per hour and port");
    }
    case RequestKind::kCancel: return Cancel(request, now);
    case RequestKind::kRetry: return Retry(request, now);
  }
}

void Outbox::Answer(const Request& request, bool done, std::string outcome) {
  disk_.write({AnswerRequest{request.id, done, std::move(outcome)}});
}

void Outbox::Cancel(const Request& request, const Now& now) {
  Entry* const entry = FindEntry(request.message.id);
  if (entry == nullptr || entry->row.state != OutgoingState::kWaiting) {
    return Answer(request, false, "not cancelled: it is no longer waiting");
  }
  if (entry->row.in_transfer) {
    return Answer(request, false, "not cancelled: it is being sent; try again in a minute");
  }
  End(request.message.id, OutgoingState::kCancelled, kRefusedError,
      "cancelled with 'corvane messages cancel'", now);
  Answer(request, true, "cancelled");
}

void Outbox::Retry(const Request& request, const Now& now) {
  if (request.message.id == 0) return Answer(request, false, "there is no such message any more");
  Entry* entry = FindEntry(request.message.id);
  if (entry != nullptr && entry->row.in_transfer) {
    return Answer(request, false, "not changed: it is being sent now");
  }
  if (entry != nullptr && entry->row.state == OutgoingState::kWaiting) {
    routes_[entry->row.route].Release();
    Delay(*entry, now.steady, now);
    return Answer(request, true, "it will be tried again at once");
  }
  if (request.message.state == OutgoingState::kSent || entry != nullptr) {
    return Answer(request, false, "not tried again: it was sent");
  }
  Entry again;
  again.row = request.message;
  const milliseconds valid_for = again.row.expires - again.row.created;
  again.row.state = OutgoingState::kWaiting;
  again.row.attempts = again.row.unknown_ends = again.row.error_id = 0;
  again.row.finished = {};
  again.row.reason.clear();
  again.created = again.next_try = now.steady;
  again.expires = now.steady + std::max(valid_for, milliseconds(0));
  routes_[again.row.route].Release();
  Put(std::move(again), now);
  Save(*FindEntry(request.message.id), now);
  Answer(request, true, "it will be tried again, with its whole ValidFor");
}

}  // namespace messages
