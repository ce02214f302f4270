// SPDX-License-Identifier: MIT
#include "libs/messages/store_shared.h"

#include <algorithm>
#include <utility>

namespace messages {

std::map<std::string, Content> DivideByChannel(Content content) {
  std::map<std::string, Content> parts;
  for (Outgoing& row : content.waiting) parts[row.channel].waiting.push_back(std::move(row));
  for (SentKey& row : content.keys) parts[row.channel].keys.push_back(std::move(row));
  for (RecentSend& row : content.recent) parts[row.channel].recent.push_back(std::move(row));
  Content& inbox = parts[kInboxChannel];
  inbox.inbox = std::move(content.inbox);
  inbox.parts = std::move(content.parts);
  inbox.held = std::move(content.held);
  return parts;
}

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
  channels_[channel].wake = nullptr;
  stopping = std::ranges::none_of(channels_, [](const auto& one) { return one.second.joined; });
  if (stopping) changed.notify_all();
  return stopping;
}

void StoreShared::GiveContent(std::map<std::string, Content>& parts,
                              std::optional<std::int64_t> limit_per_hour) {
  content_wanted = false;
  limit_per_hour_ = limit_per_hour;
  for (const auto& [name, part] : parts) channels_.try_emplace(name);
  for (auto& [name, channel] : channels_) {
    if (channel.taken || channel.content) continue;
    channel.content = std::move(parts[name]);
    channel.content->limit_per_hour = limit_per_hour;
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

void StoreShared::WakeHandles() const {
  for (const auto& [name, channel] : channels_) {
    if (channel.wake) channel.wake();
  }
}

void StoreShared::SetWake(const std::string& channel, std::function<void()> wake) {
  channels_[channel].wake = std::move(wake);
}

}  // namespace messages
