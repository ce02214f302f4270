// SPDX-License-Identifier: MIT
#include "libs/messages/outbox.h"

#include <algorithm>
#include <utility>

namespace messages {
namespace {

constexpr int kEndedPerCall = 50;

}  // namespace

Outbox::Outbox(std::string channel, Disk disk, std::string route_noun)
    : channel_(std::move(channel)), disk_(std::move(disk)), route_noun_(std::move(route_noun)) {}

RouteQueue::Message Outbox::Queued(const Outgoing& row) {
  return {row.id, row.urgent, row.attempts};
}

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
    if (entry.in_attempt) continue;  // its end decides
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

}  // namespace messages
