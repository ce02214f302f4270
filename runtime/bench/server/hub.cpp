// SPDX-License-Identifier: MIT
#include "runtime/bench/server/hub.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "libs/base/printable.h"

namespace corvane::bench {
namespace {

constexpr std::size_t kLongestTopicName = 32;

std::shared_ptr<const Frame> Shared(Frame frame) {
  return std::make_shared<const Frame>(std::move(frame));
}

}  // namespace

void Hub::Join(Client& client) {
  clients_.emplace(++last_, Member{&client, {}});
  client.Send(Shared(hello_()));
}

void Hub::Leave(Client& client) {
  std::erase_if(clients_, [&client](const auto& entry) { return entry.second.client == &client; });
  UpdateWatched();
}

void Hub::Receive(Client& client, std::string_view text) {
  const auto found =
      std::ranges::find_if(clients_, [&](const auto& m) { return m.second.client == &client; });
  if (found == clients_.end()) return;
  const std::uint64_t number = found->first;
  try {
    ClientMessage message = ParseClientMessage(text);
    const auto request = message.request;
    if (const auto* subscribe = std::get_if<SubscribeRequest>(&message.what)) {
      Subscribe(found->second, *subscribe);
      if (request) Answer(number, request, {}, {});
      return;
    }
    handler_({client.who(), client.is_local(), std::move(message)},
             [this, number, request](const std::string& error, const Frame& frame) {
               Answer(number, request, error, frame);
             });
  } catch (const ClientMessageError& error) {
    Answer(number, error.request(), error.what(), {});
  }
}

void Hub::Subscribe(Member& member, const SubscribeRequest& request) {
  for (const std::string& topic : request.topics) {
    if (!topics_.contains(topic)) {
      throw ClientMessageError(
          fmt::format("\"{}\" is not a topic", PrintableBeginning(topic, kLongestTopicName)), {});
    }
  }
  member.topics.clear();
  for (const std::string& topic : request.topics) member.topics.try_emplace(topic);
  UpdateWatched();
}

void Hub::UpdateWatched() {
  std::set<std::string, std::less<>> watched;
  for (const auto& [number, member] : clients_) {
    for (const auto& [topic, subscription] : member.topics) watched.insert(topic);
  }
  for (const auto& [name, topic] : topics_) {
    const bool is_watched = watched.contains(name);
    if (is_watched != watched_.contains(name)) topic->SetWatched(is_watched);
  }
  watched_ = std::move(watched);
}

void Hub::Answer(std::uint64_t member, std::optional<std::int64_t> request,
                 const std::string& error, const Frame& frame) {
  const auto found = clients_.find(member);
  if (found == clients_.end()) return;
  if (!frame.empty()) found->second.client->Send(Shared(frame));
  found->second.client->Send(Shared(ResultJson(request, error)));
}

void Hub::Tick() {
  for (const std::string& name : watched_) {
    Topic& topic = *topics_.find(name)->second;
    Send(name, false, topic.Changes());
    const bool any_new = std::ranges::any_of(clients_, [&name](const auto& entry) {
      const auto found = entry.second.topics.find(name);
      return found != entry.second.topics.end() && found->second.is_new;
    });
    if (!any_new) continue;
    const std::vector<Frame> complete = topic.Complete();
    if (!complete.empty()) Send(name, true, complete);
  }
}

void Hub::Send(const std::string& topic, bool to_new, const std::vector<Frame>& frames) {
  for (const Frame& text : frames) {
    const auto frame = Shared(text);
    for (auto& [number, member] : clients_) {
      const auto found = member.topics.find(topic);
      if (found != member.topics.end() && found->second.is_new == to_new)
        member.client->Send(frame);
    }
  }
  if (!to_new) return;
  for (auto& [number, member] : clients_) {
    const auto found = member.topics.find(topic);
    if (found != member.topics.end()) found->second.is_new = false;
  }
}

void Hub::GreetAll() {
  const auto frame = Shared(hello_());
  for (auto& [number, member] : clients_) member.client->Send(frame);
}

}  // namespace corvane::bench
