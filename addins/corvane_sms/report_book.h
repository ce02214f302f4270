// SPDX-License-Identifier: MIT
// Finds the message that a status report is about: by port, reference and receiver. References are
// one octet and begin again at 0, so the latest message that fits is meant (3GPP TS 23.040 clause
// 9.2.3.6). Threads: under the runtime's scan lock.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "libs/gsm/pdu.h"
#include "libs/messages/outbox.h"

namespace corvane_sms {

class ReportBook {
 public:
  explicit ReportBook(messages::Outbox& outbox) : outbox_(outbox) {}

  /// The network has taken a part of a message that asks for reports. Parts are counted from 0.
  void Expect(const std::string& route, std::uint8_t reference, std::int64_t message,
              std::size_t part);
  /// All parts of a message that was loaded.
  void ExpectLoaded(std::int64_t message);
  /// Whether a message of this port waits for a report.
  [[nodiscard]] bool Awaits(const std::string& route) const;
  /// A report has come. @return whether it is about a message of this outbox
  bool Take(const std::string& route, const gsm::StatusReportPdu& report, const messages::Now& now);

 private:
  using Place = std::pair<std::string, std::uint8_t>;  // route, reference
  struct Expected {
    std::int64_t message;
    std::size_t part;
  };

  void Note(const Expected& expected, std::uint8_t status, const messages::Now& now);

  messages::Outbox& outbox_;
  std::map<Place, std::vector<Expected>> expected_;  // the latest last
};

/// Whether two ways of writing a number can mean the same subscriber: one may be national.
[[nodiscard]] bool MayBeSameNumber(std::string_view one, std::string_view other);

}  // namespace corvane_sms
