// SPDX-License-Identifier: MIT
// The places of a modem's message memory (3GPP TS 27.005 clause 3.1, <stat> and <index>).
#pragma once

#include <map>
#include <optional>
#include <string_view>

#include "libs/gsm/octet_reader.h"

namespace modem_simulator {

/// The numbers of PDU mode; kAll is a filter only.
enum class MessageStatus : std::uint8_t {
  kUnread = 0,
  kRead = 1,
  kUnsent = 2,
  kSent = 3,
  kAll = 4,
};

/// As text mode writes it: "REC UNREAD".
[[nodiscard]] std::string_view TextOf(MessageStatus status) noexcept;

struct StoredMessage {
  MessageStatus status = MessageStatus::kUnread;
  gsm::Octets pdu;  ///< with the service-centre address; may be empty
};

class MessageStore {
 public:
  /// This many places, numbered from `first_index`.
  MessageStore(int size, int first_index) : size_(size), first_index_(first_index) {}

  /// Puts a message into the lowest free place; nullopt if all are taken.
  std::optional<int> Add(MessageStatus status, gsm::Octets pdu);
  /// The message in a place; null if there is none.
  [[nodiscard]] StoredMessage* Find(int index);
  /// False if the place was empty.
  bool Erase(int index) { return messages_.erase(index) != 0; }

  [[nodiscard]] bool IsPlace(int index) const {
    return index >= first_index_ && index - first_index_ < size_;
  }
  [[nodiscard]] int first_index() const { return first_index_; }
  [[nodiscard]] int size() const { return size_; }
  [[nodiscard]] int used() const { return static_cast<int>(messages_.size()); }
  [[nodiscard]] bool full() const { return used() >= size_; }
  /// By place.
  [[nodiscard]] std::map<int, StoredMessage>& messages() { return messages_; }

 private:
  int size_;
  int first_index_;
  std::map<int, StoredMessage> messages_;
};

}  // namespace modem_simulator
