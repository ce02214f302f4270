// SPDX-License-Identifier: MIT
#include "libs/messages/sent_keys.h"

#include <algorithm>

namespace messages {
namespace {

constexpr std::chrono::days kKept(30);
constexpr std::size_t kMaxKeys = 100'000;

}  // namespace

void SentKeys::Add(const std::string& key, SteadyTime when) {
  const auto [place, is_new] = sent_.try_emplace(key, when);
  if (!is_new) place->second = std::max(place->second, when);
  order_.emplace_back(when, key);
  // Two for each one that comes, so that no call has many to remove.
  for (int i = 0; i < 2 && !order_.empty(); ++i) {
    if (order_.size() > kMaxKeys || when - order_.front().first > kKept) DropOldest();
  }
}

void SentKeys::DropOldest() {
  const auto& [when, key] = order_.front();
  const auto place = sent_.find(key);
  if (place != sent_.end() && place->second <= when) sent_.erase(place);  // not sent again since
  order_.pop_front();
}

bool SentKeys::SentWithin(const std::string& key, std::chrono::milliseconds period,
                          SteadyTime now) const {
  const auto place = sent_.find(key);
  return place != sent_.end() && now - place->second < period;
}

}  // namespace messages
