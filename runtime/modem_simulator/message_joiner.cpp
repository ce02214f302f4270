// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_joiner.h"

#include <algorithm>

namespace modem_simulator {
namespace {

SentMessage Join(const gsm::Address& destination,
                 const std::map<std::uint8_t, gsm::UserData>& parts, std::size_t total) {
  std::vector<gsm::UserData> data;
  data.reserve(parts.size());
  for (const auto& [sequence, part] : parts) data.push_back(part);
  const bool header_ignored = std::any_of(
      data.begin(), data.end(), [](const gsm::UserData& part) { return part.header_ignored; });
  return {destination, gsm::TextOf(data), data.back().alphabet, data.size(), total, header_ignored};
}

}  // namespace

std::list<MessageJoiner::Pending>::iterator MessageJoiner::PendingFor(const gsm::SubmitPdu& part) {
  const gsm::Concatenation& place = *part.data.header.concatenation;
  const auto found = std::find_if(pending_.begin(), pending_.end(), [&](const Pending& other) {
    return other.destination == part.destination && other.place.reference == place.reference &&
           other.place.total == place.total && other.place.wide == place.wide;
  });
  if (found != pending_.end()) return found;
  if (pending_.size() == kMostUnfinished) pending_.pop_front();
  return pending_.insert(pending_.end(), Pending{part.destination, place, {}});
}

std::optional<SentMessage> MessageJoiner::Add(const gsm::SubmitPdu& part) {
  if (!part.data.header.concatenation) return Join(part.destination, {{1, part.data}}, 1);
  const auto pending = PendingFor(part);
  pending->parts.insert_or_assign(part.data.header.concatenation->sequence, part.data);
  if (pending->parts.size() < pending->place.total) return std::nullopt;
  SentMessage message = Join(pending->destination, pending->parts, pending->place.total);
  pending_.erase(pending);
  return message;
}

std::vector<SentMessage> MessageJoiner::Unfinished() const {
  std::vector<SentMessage> messages;
  for (const Pending& pending : pending_) {
    messages.push_back(Join(pending.destination, pending.parts, pending.place.total));
  }
  return messages;
}

}  // namespace modem_simulator
