// SPDX-License-Identifier: MIT
// Joins the parts of concatenated messages that the controller sends.
#pragma once

#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "libs/gsm/pdu.h"

namespace modem_simulator {

/// A message as its receiver sees it.
struct SentMessage {
  gsm::Address destination;
  std::string text;  ///< UTF-8; 8-bit data as hexadecimal digits
  gsm::Alphabet alphabet = gsm::Alphabet::kDefault;
  std::size_t parts = 1;  ///< that have arrived
  std::size_t total = 1;  ///< that belong to it
  bool header_ignored = false;
};

/// Parts belong together if destination, reference and number of parts agree; a part that comes
/// again replaces the earlier one. At most kMostUnfinished messages wait for parts; then the oldest
/// is dropped.
class MessageJoiner {
 public:
  static constexpr std::size_t kMostUnfinished = 256;

  /// Takes a part; returns the message if it is whole.
  [[nodiscard]] std::optional<SentMessage> Add(const gsm::SubmitPdu& part);

  /// The messages that wait for parts, as far as they have arrived, in order of their first part.
  [[nodiscard]] std::vector<SentMessage> Unfinished() const;

 private:
  struct Pending {
    gsm::Address destination;
    gsm::Concatenation place;  ///< of the first part that came
    std::map<std::uint8_t, gsm::UserData> parts;
  };

  std::list<Pending>::iterator PendingFor(const gsm::SubmitPdu& part);

  std::list<Pending> pending_;  // oldest first
};

}  // namespace modem_simulator
