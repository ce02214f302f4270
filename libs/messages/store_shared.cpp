// SPDX-License-Identifier: MIT
#include "libs/messages/store_shared.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace messages {
namespace {

/// Takes the rows of one channel out of those of all.
template <class Row>
std::vector<Row> TakeRows(const std::string& channel, std::vector<Row>& rows) {
  const auto own = std::stable_partition(rows.begin(), rows.end(),
                                         [&](const Row& row) { return row.channel != channel; });
  std::vector<Row> taken(std::make_move_iterator(own), std::make_move_iterator(rows.end()));
  rows.erase(own, rows.end());
  return taken;
}

Content TakePart(const std::string& channel, Content& from) {
  Content part;
  part.waiting = TakeRows(channel, from.waiting);
  part.keys = TakeRows(channel, from.keys);
  part.recent = TakeRows(channel, from.recent);
  part.limit_per_hour = from.limit_per_hour;
  if (channel == kInboxChannel) {
    part.inbox = std::move(from.inbox);
    part.parts = std::move(from.parts);
    part.held = std::move(from.held);
  }
  return part;
}

std::set<std::string> ChannelsOf(const Content& content) {
  std::set<std::string> channels = {kInboxChannel};
  for (const Outgoing& row : content.waiting) channels.insert(row.channel);
  for (const SentKey& row : content.keys) channels.insert(row.channel);
  for (const RecentSend& row : content.recent) channels.insert(row.channel);
  return channels;
}

}  // namespace

std::filesystem::path StoreFileIn(const std::filesystem::path& folder) {
  return (folder / "messages.db").lexically_normal();
}

bool StoreShared::Join(const std::string& channel) {
  const std::scoped_lock lock(mutex);
  const auto [place, is_new] = channels_.try_emplace(channel);
  Channel& joining = place->second;
  if (joining.joined) return false;
  joining.joined = true;
  if (is_new && first_new_number != 0) joining.content.emplace().limit_per_hour = limit_per_hour_;
  if (std::exchange(joining.taken, false)) {
    content_wanted = true;
    changed.notify_all();
  }
  return true;
}

bool StoreShared::Leave(const std::string& channel) {
  const std::scoped_lock lock(mutex);
  channels_[channel].joined = false;
  stopping = std::ranges::none_of(channels_, [](const auto& one) { return one.second.joined; });
  if (stopping) changed.notify_all();
  return stopping;
}

void StoreShared::GiveContent(Content content) {
  content_wanted = false;
  limit_per_hour_ = content.limit_per_hour;
  for (const std::string& name : ChannelsOf(content)) channels_.try_emplace(name);
  for (auto& [name, channel] : channels_) {
    Content part = TakePart(name, content);
    if (!channel.taken && !channel.content) channel.content = std::move(part);
  }
}

void StoreShared::GiveRequest(Request request) {
  if (request.kind == RequestKind::kLimit) limit_per_hour_ = request.value;
  const bool is_about_all = request.kind == RequestKind::kLimit || request.message.id == 0;
  if (!is_about_all) {
    channels_[request.message.channel].requests.push_back(std::move(request));
    return;
  }
  for (auto& [name, channel] : channels_) {
    if (channel.content) channel.content->limit_per_hour = limit_per_hour_;
    if (channel.joined) channel.requests.push_back(request);
  }
}

std::optional<Content> StoreShared::TakeContent(const std::string& channel) {
  Channel& from = channels_[channel];
  if (!from.content) return std::nullopt;
  from.taken = true;
  return std::exchange(from.content, std::nullopt);
}

std::vector<Request> StoreShared::TakeRequests(const std::string& channel) {
  std::vector<Request> taken = std::exchange(channels_[channel].requests, {});
  for (const Request& request : taken) {
    for (auto& [name, other] : channels_) {
      for (Request& same : other.requests) {
        if (same.id == request.id) same.answered_elsewhere = true;  // one is enough
      }
    }
  }
  return taken;
}

}  // namespace messages
