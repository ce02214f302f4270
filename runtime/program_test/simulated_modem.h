// SPDX-License-Identifier: MIT
// Modems and network of a program under test. Threads: one.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "runtime/program_test/simulated_outbox.h"

namespace corvane::program_test {

/// One message to one number.
struct OutgoingSms {
  std::string to;
  nlohmann::json record;  ///< what the test sees, once it is sent
  [[nodiscard]] std::string receiver() const { return to; }
};

struct IncomingSms {
  std::int64_t id = 0;
  std::string from;
  std::string text;
  double time = 0;  ///< seconds since 1970
  int kind = 0;     ///< as the output Kind of SMS_INBOX
};

class SimulatedModem {
 public:
  // What the test sets.
  std::set<int> ports{1};
  bool connected = true;               ///< FALSE: modems neither answer nor send
  bool network = true;                 ///< FALSE: the network refuses each message for now
  double delay = 0;                    ///< seconds until the network has taken a message
  std::map<std::string, int> refused;  ///< numbers refused for good, with the +CMS number

  /// A message for the modem of this port. It is in the store from the next cycle on.
  void Receive(int port, IncomingSms message);
  /// The network reports that it has delivered what was sent to this number. @return how many
  /// messages; those without `Report` and those reported before do not count
  int Report(const std::string& number);
  /// Everything that was sent, in its order: an array of objects.
  [[nodiscard]] const nlohmann::json& sent() const { return sent_; }

  // What blocks ask for.
  [[nodiscard]] SimulatedOutbox<OutgoingSms>& outbox() { return outbox_; }
  /// Messages that have come in on this port and are still there.
  [[nodiscard]] std::deque<IncomingSms>& inbox(int port) { return inboxes_[port]; }
  /// What the network answers to a text to this number: 0, or a +CMS number.
  [[nodiscard]] int Answer(const std::string& number) const;
  /// A block has sent this by itself.
  void NoteSent(nlohmann::json record);

  void Advance(messages::SteadyTime now, double clock);

 private:
  SimulatedOutbox<OutgoingSms> outbox_;
  std::map<int, std::deque<IncomingSms>> on_the_way_, inboxes_;
  std::int64_t last_id_ = 0;
  nlohmann::json sent_ = nlohmann::json::array();
  std::vector<std::shared_ptr<SimulatedJob>> jobs_;  // of sent_; null: no report is awaited
  bool was_connected_ = true;
};

}  // namespace corvane::program_test
