// SPDX-License-Identifier: MIT
#include "runtime/bench/server/store_metrics.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <vector>

namespace corvane::bench {
namespace {

using messages::Outgoing;
using messages::OutgoingState;
using messages::WallTime;

}  // namespace

/// A message counts once for each time that it has ended, since a retry may end it again.
void StoreMetrics::Count(const Outgoing& row) {
  Channel& channel = channels_[row.channel];
  if (row.state == OutgoingState::kWaiting) {
    const auto age = std::chrono::system_clock::now() - row.created;
    ++channel.waiting;
    channel.oldest = std::max(channel.oldest, std::chrono::duration<double>(age).count());
  } else if (row.finished >= started_ && counted_.emplace(row.finished, row.id).second) {
    ++channel.ended[NameOf(row.state)];
  }
}

void StoreMetrics::Read() {
  try {
    const auto rows = store_->Ask([](messages::StoreView* store) {
      return store == nullptr ? std::vector<Outgoing>() : store->OutgoingMessages(kMostCounted);
    });
    for (auto& [name, channel] : channels_) channel.waiting = channel.oldest = 0;
    for (const Outgoing& row : rows) Count(row);
  } catch (const std::exception&) {  // the last ones stay
    return;
  }
  while (std::ssize(counted_) > 2 * kMostCounted) counted_.erase(counted_.begin());
}

void StoreMetrics::AddTo(MetricsText& metrics) {
  for (const char* const name : {"sms", "mail"}) channels_.try_emplace(name);
  Read();
  metrics.Begin("corvane_outbox_waiting", "gauge", "Messages that wait to be sent.");
  for (const auto& [name, channel] : channels_) metrics.Add(channel.waiting, {{"channel", name}});
  metrics.Begin("corvane_outbox_oldest_seconds", "gauge",
                "Age of the oldest message that waits to be sent; 0: none.");
  for (const auto& [name, channel] : channels_) metrics.Add(channel.oldest, {{"channel", name}});
  metrics.Begin("corvane_messages_ended_total", "counter",
                "Messages of the outbox that have ended since the program started, by result.");
  for (const auto& [name, channel] : channels_) {
    for (const char* const result : {"sent", "failed", "expired", "cancelled"}) {
      const auto found = channel.ended.find(result);
      metrics.Add(found == channel.ended.end() ? 0 : found->second,
                  {{"channel", name}, {"result", result}});
    }
  }
}

}  // namespace corvane::bench
