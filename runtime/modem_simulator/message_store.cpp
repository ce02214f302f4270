// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/message_store.h"

#include <utility>

namespace modem_simulator {

std::string_view TextOf(MessageStatus status) noexcept {
  switch (status) {
    case MessageStatus::kUnread: return "REC UNREAD";
    case MessageStatus::kRead: return "REC READ";
    case MessageStatus::kUnsent: return "STO UNSENT";
    case MessageStatus::kSent: return "STO SENT";
    case MessageStatus::kAll: return "ALL";
  }
  return {};
}

std::optional<int> MessageStore::Add(MessageStatus status, gsm::Octets pdu) {
  if (full()) return std::nullopt;
  int place = first_index_;
  const bool without_gaps = messages_.empty() || messages_.rbegin()->first < first_index_ + used();
  if (without_gaps) {
    place += used();
  } else {
    while (messages_.contains(place)) ++place;
  }
  messages_.emplace(place, StoredMessage{status, std::move(pdu)});
  return place;
}

StoredMessage* MessageStore::Find(int index) {
  const auto found = messages_.find(index);
  return found == messages_.end() ? nullptr : &found->second;
}

}  // namespace modem_simulator
