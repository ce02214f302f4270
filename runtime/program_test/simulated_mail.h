// SPDX-License-Identifier: MIT
// The mail servers of a program under test. Threads: one.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "runtime/program_test/simulated_outbox.h"

namespace corvane::program_test {

/// One mail to its recipients.
// NOLINTNEXTLINE(bugprone-exception-escape): moving JSON throws nothing
struct OutgoingMail {
  std::vector<std::string> recipients;  ///< those that the server has not answered for good
  nlohmann::json record;                ///< what the test sees, once it is sent
  [[nodiscard]] std::string receiver() const;
};

class SimulatedMail {
 public:
  // What the test sets.
  bool away = false;           ///< no server answers
  bool login_refused = false;  ///< whatever the password
  std::string refusal;         ///< the servers' reply to each mail, "554 5.7.1 spam"; empty: taken
  double delay = 0;            ///< seconds until a server has taken a mail
  std::map<std::string, std::string> refused;  ///< addresses with the servers' replies

  /// Everything that was sent, in its order: an array of objects.
  [[nodiscard]] const nlohmann::json& sent() const { return sent_; }

  [[nodiscard]] SimulatedOutbox<OutgoingMail>& outbox() { return outbox_; }
  void NoteSent(nlohmann::json record) { sent_.push_back(std::move(record)); }
  void Advance(messages::SteadyTime now, double clock);
  /// A block has named this secret for the route: mails that were held because of another one are
  /// tried again.
  void UseSecret(const std::string& route, const std::string& secret, messages::SteadyTime now);

 private:
  CarryResult Carry(OutgoingMail& mail, SimulatedJob& job, double clock);

  SimulatedOutbox<OutgoingMail> outbox_;
  nlohmann::json sent_ = nlohmann::json::array();
  std::map<std::string, std::string> secrets_;
};

}  // namespace corvane::program_test
