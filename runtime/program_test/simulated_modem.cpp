// SPDX-License-Identifier: MIT
#include "runtime/program_test/simulated_modem.h"

#include <utility>

#include "runtime/program_test/test_time.h"

namespace corvane::program_test {
namespace {

constexpr int kNoNetwork = 331;  // 3GPP TS 27.005 clause 3.2.5: no network service

}  // namespace

void SimulatedModem::Receive(int port, IncomingSms message) {
  message.id = ++last_id_;
  on_the_way_[port].push_back(std::move(message));
}

int SimulatedModem::Answer(const std::string& number) const {
  const auto found = refused.find(number);
  if (found != refused.end()) return found->second;
  return network ? 0 : kNoNetwork;
}

void SimulatedModem::Advance(messages::SteadyTime now, double clock) {
  if (connected && !was_connected_) outbox_.TryNow("", now);
  was_connected_ = connected;
  outbox_.Advance(now, ToMilliseconds(delay), connected, [&](OutgoingSms& sms, const auto& job) {
    using End = CarryResult::End;
    const int answer = Answer(sms.to);
    const std::string trouble = sms.to + ": +CMS ERROR: " + std::to_string(answer);
    if (refused.contains(sms.to)) return CarryResult{End::kRefused, ErrorId::kRefused, trouble};
    if (answer != 0) return CarryResult{End::kForNow, ErrorId::kNone, trouble};
    sms.record["clock"] = clock;
    sent_.push_back(sms.record);
    jobs_.push_back(sms.record["report"] == true ? job : nullptr);
    return CarryResult{};
  });
  if (!connected || !network) return;
  for (auto& [port, messages] : on_the_way_) {
    auto& inbox = inboxes_[port];
    inbox.insert(inbox.end(), messages.begin(), messages.end());
    messages.clear();
  }
}

int SimulatedModem::Report(const std::string& number) {
  int count = 0;
  for (std::size_t i = 0; i < sent_.size(); ++i) {
    if (jobs_[i] == nullptr || sent_[i]["to"] != number) continue;
    ++jobs_[i]->delivered;
    jobs_[i] = nullptr;
    ++count;
  }
  return count;
}

void SimulatedModem::NoteSent(nlohmann::json record) {
  sent_.push_back(std::move(record));
  jobs_.push_back(nullptr);
}

}  // namespace corvane::program_test
