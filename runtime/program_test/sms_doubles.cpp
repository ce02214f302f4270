// SPDX-License-Identifier: MIT
#include "runtime/program_test/sms_doubles.h"

#include <string>
#include <utility>

#include "block/duration_input.h"
#include "libs/gsm/receivers.h"
#include "libs/gsm/sms_text_check.h"
#include "libs/messages/message_key.h"
#include "runtime/program_test/test_time.h"
#include "runtime/program_test/world.h"

DEFINE_FUNCTION_BLOCK(SmsOutboxDouble, "SMS_OUTBOX")
DEFINE_FUNCTION_BLOCK(SmsInboxDouble, "SMS_INBOX")

namespace {

using namespace corvane::program_test;

constexpr std::chrono::hours kDefaultValidity(24);

std::string NoSuchPort(int port) {
  return "there is no modem port " + std::to_string(port) +
         "; correct Port, or name the port in the test: test.load(file, { ports = { " +
         std::to_string(port) + " } })";
}

}  // namespace

std::optional<JobFailure> SmsOutboxDouble::Start() {
  job_.reset();
  std::optional<JobFailure> failure = Queue();
  ShowCounts();
  return failure;
}

std::optional<JobFailure> SmsOutboxDouble::Queue() {
  World& world = World::The();
  const int port = GetInt("Port");
  const auto valid_for = DurationInput(GetReal("ValidFor"), kDefaultValidity);
  if (!valid_for) {
    return JobFailure{ErrorId::kBadValue,
                      "ValidFor must be a number of seconds from 0 on; 0 means a day"};
  }
  const std::string key = GetString("Key");
  if (!messages::IsKey(key)) return JobFailure{ErrorId::kBadValue, messages::kKeyProblem};
  const gsm::Receivers receivers = gsm::ReadReceivers(GetString("Receiver"));
  if (!receivers.problem.empty()) return JobFailure{ErrorId::kReceiver, receivers.problem};
  const std::string text = GetString("Text");
  const gsm::TextCheck check = gsm::CheckText(text);
  if (!check.sentence.empty()) {
    const bool too_long = check.problem == gsm::TextProblem::kTooLong;
    return JobFailure{too_long ? ErrorId::kTooLong : ErrorId::kText, check.sentence};
  }
  if (!world.modem.ports.contains(port)) {
    return JobFailure{ErrorId::kNoSuchPort, NoSuchPort(port)};
  }
  SimulatedOutbox<OutgoingSms>::Request request{.route = std::to_string(port),
                                                .key = key,
                                                .urgent = GetBool("Urgent"),
                                                .valid_for = *valid_for,
                                                .messages = {}};
  for (const std::string& number : receivers.numbers) {
    request.messages.push_back({number,
                                {{"block", "SMS_OUTBOX"},
                                 {"port", port},
                                 {"to", number},
                                 {"text", text},
                                 {"key", key},
                                 {"urgent", request.urgent},
                                 {"report", GetBool("Report")},
                                 {"flash", GetBool("Flash")}}});
  }
  job_ = world.modem.outbox().Add(std::move(request), ToSteady(world.time().clock));
  SetValue("Parts", static_cast<int>(check.parts));
  return std::nullopt;
}

JobProgress SmsOutboxDouble::Poll() {
  ShowCounts();
  if (job_->messages != 0 && job_->stored) SetBool("Stored", true);
  if (!job_->ended()) return JobProgress::Busy();
  if (job_->failed == 0) return JobProgress::Done();
  return JobProgress::Failed({job_->error, job_->errors});
}

void SmsOutboxDouble::ShowCounts() {
  SetValue("Waiting", World::The().modem.outbox().Waiting(std::to_string(GetInt("Port"))));
  if (job_ == nullptr) return;
  SetValue("Sent", job_->sent);
  SetValue("Failed", job_->failed);
  SetValue("Delivered", job_->delivered);
}

void SmsInboxDouble::Execute() {
  if (GetBool("Enable")) {
    Serve(GetInt("Port"));
    return;
  }
  accept_.Rises(GetBool("Accept"));
  Withdraw();
  SetBool("Valid", false);
  SetValue("Waiting", 0);
  ShowError(ErrorId::kNone, "");
}

void SmsInboxDouble::Serve(int port) {
  SimulatedModem& modem = World::The().modem;
  const bool accepts = accept_.Rises(GetBool("Accept"));
  const bool exists = modem.ports.contains(port);
  if (!exists || port != std::exchange(port_, port)) Withdraw();
  SetBool("Valid", exists && modem.connected);
  if (!exists) {
    ShowError(ErrorId::kNoSuchPort, NoSuchPort(port));
    SetValue("Waiting", 0);
    return;
  }
  if (modem.connected) {
    ShowError(ErrorId::kNone, "");
  } else {
    ShowError(ErrorId::kModem, "modem port " + std::to_string(port) +
                                   ": the modem does not answer; check power and cable");
  }
  auto& inbox = modem.inbox(port);
  UpdateReady(inbox, accepts);
  SetValue("Waiting", static_cast<int>(inbox.size()));
}

void SmsInboxDouble::UpdateReady(std::deque<IncomingSms>& inbox, bool accepts) {
  if (offered_ != 0) {
    const bool same = !inbox.empty() && inbox.front().id == offered_;
    if (same && !accepts) return;
    if (same) inbox.pop_front();
    Withdraw();
  } else if (!std::exchange(pauses_, false) && !inbox.empty()) {
    Offer(inbox.front());
  }
}

void SmsInboxDouble::Offer(const IncomingSms& message) {
  offered_ = message.id;
  SetBool("Ready", true);
  SetValue("From", message.from);
  SetValue("Text", message.text);
  SetTime("Time", ToBlockTime(message.time));
  SetValue("Kind", message.kind);
  SetValue("Id", static_cast<int>(message.id));
}

void SmsInboxDouble::Withdraw() {
  pauses_ = std::exchange(offered_, 0) != 0;
  SetBool("Ready", false);
}

void SmsInboxDouble::ShowError(ErrorId id, const std::string& text) {
  SetBool("Error", id != ErrorId::kNone);
  SetValue("ErrorId", static_cast<int>(id));
  SetValue("ErrorText", text);
}
