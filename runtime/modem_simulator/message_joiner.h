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
  std::size_t parts = 1;  ///< that came
  std::size_t total = 1;  ///< that belong to it
  bool header_ignored = false;
};

/// Parts belong together when destination, reference and number of parts agree; a part that comes
/// again replaces the one before. At most kMostUnfinished messages wait for parts; the oldest
/// gives way.
class MessageJoiner {
 public:
  static constexpr std::size_t kMostUnfinished = 256;

  /// Takes a part; gives the message when it is whole.
  [[nodiscard]] std::optional<SentMessage> Add(const gsm::SubmitPdu& part);

  /// What has come of the messages that wait for parts, in order of their first part.
  [[nodiscard]] std::vector<SentMessage> Unfinished() const;

 private:
  struct Pending {
    gsm::Address destination;
    gsm::Concatenation place;  ///< of the first part that came
    std::map<std::uint8_t, gsm::UserData> parts;
  };

  std::list<Pending>::iterator PendingFor(const gsm::SubmitPdu& part);

  std::list<Pending> pending_;  // the oldest first
};

}  // namespace modem_simulator
