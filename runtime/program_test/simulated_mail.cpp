// SPDX-License-Identifier: MIT
#include "runtime/program_test/simulated_mail.h"

#include <utility>

#include "runtime/program_test/test_time.h"

namespace corvane::program_test {

std::string OutgoingMail::receiver() const {
  std::string text;
  for (const std::string& address : recipients) text += (text.empty() ? "" : ", ") + address;
  return text;
}

void SimulatedMail::UseSecret(const std::string& route, const std::string& secret,
                              messages::SteadyTime now) {
  const auto [known, is_new] = secrets_.try_emplace(route, secret);
  if (is_new || known->second == secret) return;
  known->second = secret;
  outbox_.TryNow(route, now);
}

void SimulatedMail::Advance(messages::SteadyTime now, double clock) {
  outbox_.Advance(now, ToMilliseconds(delay), true,
                  [&](OutgoingMail& mail, const auto& job) { return Carry(mail, *job, clock); });
}

CarryResult SimulatedMail::Carry(OutgoingMail& mail, SimulatedJob& job, double clock) {
  using End = CarryResult::End;
  const auto is_for_now = [](const std::string& reply) { return reply.starts_with('4'); };
  if (away) return {End::kForNow, ErrorId::kNone, "the server does not answer"};
  if (login_refused) {
    return {End::kHeld, ErrorId::kLoginRefused,
            "the server refuses user and password; correct them (the mail is kept)"};
  }
  if (!refusal.empty()) {
    if (is_for_now(refusal)) return {End::kForNow, ErrorId::kNone, refusal};
    return {End::kRefused, ErrorId::kMailRefused, "the server refuses the mail: " + refusal};
  }
  std::vector<std::string> taken, later;
  std::string trouble;
  for (const std::string& address : mail.recipients) {
    const auto reply = refused.find(address);
    if (reply == refused.end()) {
      taken.push_back(address);
    } else if (is_for_now(reply->second)) {
      later.push_back(address);
      trouble = address + ": " + reply->second;
    } else {
      job.refused += (job.refused.empty() ? "" : "\n") + address + ": " + reply->second;
    }
  }
  if (!taken.empty()) {
    mail.record["recipients"] = taken;
    mail.record["clock"] = clock;
    sent_.push_back(mail.record);
  }
  mail.recipients = std::move(later);
  if (!mail.recipients.empty()) return {End::kForNow, ErrorId::kNone, trouble};
  if (job.refused.empty()) return {};
  return {End::kRefused, ErrorId::kRecipientsRefused, "recipients were refused; see Refused"};
}

}  // namespace corvane::program_test
