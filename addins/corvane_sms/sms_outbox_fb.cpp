// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/sms_outbox_fb.h"

#include <random>
#include <string>
#include <utility>

#include "addins/corvane_sms/sms_service.h"
#include "addins/corvane_sms/sms_text.h"
#include "block/duration_input.h"
#include "libs/gsm/receivers.h"
#include "libs/messages/message_key.h"

DEFINE_FUNCTION_BLOCK(SmsOutboxFB, "SMS_OUTBOX")

namespace {

using corvane_sms::SmsService;
using messages::Now;

constexpr std::chrono::hours kDefaultValidity(24);

/// Another one for each message: a phone joins parts by sender, reference and count.
std::uint8_t NextReference() {
  static std::uint8_t reference = static_cast<std::uint8_t>(std::random_device{}());
  return ++reference;
}

ErrorId IdOf(gsm::TextProblem problem) {
  return problem == gsm::TextProblem::kTooLong ? ErrorId::kTooLong : ErrorId::kText;
}

/// What to do about the error of a job whose inputs were right.
std::string Remedy(const messages::OutboxJob& job) {
  if (job.cancelled == job.failed) return {};  // somebody wanted it
  switch (static_cast<ErrorId>(job.error_id)) {
    case ErrorId::kExpired: return "; check modem and network, or allow more time with ValidFor";
    case ErrorId::kRefused: return "; correct the number, or ask the operator of the network";
    case ErrorId::kUnknownEnd: return "; ask the receiver before you send it again";
    default: return {};
  }
}

std::string AboutRepeats(const std::string& repeats) {
  if (repeats.empty()) return {};
  return "sent again after an attempt whose end is not known, so it may arrive twice: " + repeats;
}

}  // namespace

const FBMetaEntry* SmsOutboxFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      plcopen::kExecute,
      {"Port", "DINT", kInput, "the modem, as given with --modem"},
      {"Receiver", "STRING", kInput, "numbers, separated by ; , or line feeds"},
      {"Text", "STRING", kInput, "UTF-8, up to 20 parts"},
      {"Key", "STRING", kInput,
       "while a message with this key waits or was sent, no other is queued"},
      {"ValidFor", "LREAL", kInput, "s for which it is worth sending, 0: 86400"},
      {"Report", "BOOL", kInput, "ask for a delivery report"},
      {"Flash", "BOOL", kInput, "shown at once, not kept (class 0)"},
      {"Urgent", "BOOL", kInput, "goes before others, and is not held by the hourly limit"},
      plcopen::kBusy,
      plcopen::kDone,
      plcopen::kError,
      plcopen::kErrorId,
      plcopen::kErrorText,
      {"Stored", "BOOL", kOutput, "the message is on the disk"},
      {"Sent", "DINT", kOutput, "receivers for whom the network took all parts"},
      {"Failed", "DINT", kOutput, "receivers for whom it never will"},
      {"Delivered", "DINT", kOutput, "receivers whose report says delivered"},
      {"Parts", "DINT", kOutput, "parts of the text for one receiver"},
      {"Waiting", "DINT", kOutput, "messages of this port that wait"},
      {nullptr, nullptr}};
  return entries;
}

std::optional<JobFailure> SmsOutboxFB::Start() {
  job_.reset();
  std::optional<JobFailure> failure = Queue();
  ShowCounts();
  return failure;
}

std::optional<JobFailure> SmsOutboxFB::Queue() {
  const int port = GetInt("Port");
  const auto valid_for = DurationInput(GetReal("ValidFor"), kDefaultValidity);
  if (!valid_for) {
    return JobFailure{ErrorId::kBadValue,
                      "ValidFor must be a number of seconds from 0 on; 0 means a day"};
  }
  const std::string key = GetString("Key");
  if (!messages::IsKey(key)) return JobFailure{ErrorId::kBadValue, messages::kKeyProblem};
  const std::string text = GetString("Text");
  gsm::Receivers receivers = gsm::ReadReceivers(GetString("Receiver"));
  if (!receivers.problem.empty()) return JobFailure{ErrorId::kReceiver, receivers.problem};
  const gsm::TextCheck check = gsm::CheckText(text);
  if (!check.sentence.empty()) return JobFailure{IdOf(check.problem), check.sentence};
  if (!SmsService::HasPort(port)) {
    return JobFailure{ErrorId::kNoSuchPort,
                      "there is no modem port " + std::to_string(port) +
                          "; correct Port, or start the program with --modem " +
                          std::to_string(port) + "=DEVICE"};
  }
  messages::NewJob job{.route = std::to_string(port),
                       .key = key,
                       .urgent = GetBool("Urgent"),
                       .valid_for = *valid_for,
                       .messages = {}};
  for (std::string& number : receivers.numbers) {
    job.messages.push_back({std::move(number), corvane_sms::ToJson({.text = text,
                                                                    .reference = NextReference(),
                                                                    .flash = GetBool("Flash"),
                                                                    .report = GetBool("Report")})});
  }
  SmsService& service = SmsService::The();
  const Now now = Now::Get();
  service.UsePort(port, now);
  job_ = service.outbox().Add(std::move(job), now);
  if (job_ == nullptr) {
    return JobFailure{ErrorId::kBadValue,
                      "100,000 messages wait already, so this one is not queued; find out with "
                      "'corvane messages' what holds them"};
  }
  SetValue("Parts", static_cast<int>(check.parts));
  service.Tick(now);
  return std::nullopt;
}

JobProgress SmsOutboxFB::Poll() {
  SmsService& service = SmsService::The();
  service.Tick(Now::Get());
  ShowCounts();
  const messages::OutboxJob& job = *job_;
  if (job.sequence != 0 && service.store().IsOnDisk(job.sequence)) SetBool("Stored", true);
  if (job.ended()) {
    if (job.failed == 0) return JobProgress::Done(AboutRepeats(job.repeats));
    return JobProgress::Failed({static_cast<ErrorId>(job.error_id), job.errors + Remedy(job)});
  }
  std::string problem = service.store().problem();
  if (problem.empty() || GetBool("Stored")) return JobProgress::Busy();
  return JobProgress::Busy({ErrorId::kStore, std::move(problem)});
}

void SmsOutboxFB::AfterEnd() {
  SmsService::The().Tick(Now::Get());
  ShowCounts();
}

void SmsOutboxFB::ShowCounts() {
  const std::string route = std::to_string(GetInt("Port"));
  SetValue("Waiting", static_cast<int>(SmsService::The().outbox().Waiting(route)));
  if (job_ == nullptr) return;
  SetValue("Sent", job_->sent);
  SetValue("Failed", job_->failed);
  SetValue("Delivered", job_->delivered);
}
