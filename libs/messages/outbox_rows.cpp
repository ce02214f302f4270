// SPDX-License-Identifier: MIT
// An outbox and its rows: what it loads, and what it writes.
#include <algorithm>
#include <chrono>
#include <utility>

#include "libs/messages/outbox.h"

namespace messages {
namespace {

using std::chrono::floor;
using std::chrono::milliseconds;

constexpr int kLoadedPerCall = 100;

milliseconds Age(WallTime then, const Now& now) {
  if (then < kClockIsSet || !now.clock_is_set()) return milliseconds(0);
  return std::max(now.wall - then, milliseconds(0));
}

WallTime WallOf(SteadyTime when, const Now& now) {
  return now.wall + floor<milliseconds>(when - now.steady);
}

}  // namespace

void Outbox::Load(std::deque<Outgoing> rows, std::deque<SentKey> keys,
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
    if (!loading_->keys.empty()) {
      const SentKey& sent = loading_->keys.front();
      if (sent.channel == channel_) {
        sent_keys_.Add(sent.key, now.steady - Age(sent.finished, now));
      }
      loading_->keys.pop_front();
    } else if (!loading_->rows.empty()) {
      Outgoing& row = loading_->rows.front();
      if (row.channel == channel_) LoadRow(std::move(row), now);
      loading_->rows.pop_front();
    } else {
      loading_.reset();
      loaded_ = true;
      if (std::exchange(write_again_when_loaded_, false)) WriteAgain();
      return;
    }
  }
}

void Outbox::LoadRow(Outgoing row, const Now& now) {
  Entry entry;
  entry.row = std::move(row);
  SetDeadlines(entry, now);
  const std::int64_t id = entry.row.id;
  // They come in this order; one comes twice only in tables that are not ours.
  if (id <= loading_->last) return;
  loading_->last = id;
  if (!entry.row.progress.empty()) loaded_with_progress_.push_back(id);
  if (entry.row.state != OutgoingState::kWaiting) {
    AwaitReport(entry);
    entries_.insert_or_assign(id, std::move(entry));
    return;
  }
  const bool unknown_end = std::exchange(entry.row.in_transfer, false);
  if (entry.row.error_id != 0) kept_[entry.row.route].insert(id);
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
  const bool never_tried = row.attempts == 0 && row.error_id == 0;  // so only a clock makes it wait
  const milliseconds wait = known && !never_tried ? row.next_try - now.wall : milliseconds(0);
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
  if (loading_ != nullptr) {  // later, so that no row is missing
    write_again_when_loaded_ = true;
    return;
  }
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

}  // namespace messages
