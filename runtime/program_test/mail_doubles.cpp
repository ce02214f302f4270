// SPDX-License-Identifier: MIT
#include "runtime/program_test/mail_doubles.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "block/duration_input.h"
#include "libs/mail/address.h"
#include "libs/mail/text_check.h"
#include "libs/messages/message_key.h"
#include "runtime/program_test/test_time.h"

DEFINE_FUNCTION_BLOCK(MailOutboxDouble, "MAIL_OUTBOX")
DEFINE_FUNCTION_BLOCK(SendEmailDouble, "SEND_EMAIL")

namespace {

using namespace corvane::program_test;

constexpr std::chrono::hours kDefaultMailValidity(4 * 24);
constexpr std::uintmax_t kMaxAttachments = 25'000'000;

/// The pieces of a text, without blanks around them and without empty ones.
std::vector<std::string> Pieces(const std::string& text, const char* separators) {
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
    std::string piece = text.substr(begin, end - begin);
    begin = end + 1;
    piece.erase(0, piece.find_first_not_of(" \t\r"));
    piece.erase(piece.find_last_not_of(" \t\r") + 1);
    if (!piece.empty()) pieces.push_back(std::move(piece));
  }
  return pieces;
}

JobFailure BadValue(const char* text) {
  return {ErrorId::kBadValue, text};
}

}  // namespace

std::optional<JobFailure> MailOutboxDouble::Start() {
  job_.reset();
  Request request;
  Mail mail;
  std::optional<JobFailure> failure = Check(request, mail);
  if (!failure) {
    World& world = World::The();
    request.messages.push_back(std::move(mail));
    job_ = world.mail.outbox().Add(std::move(request), ToSteady(world.time().clock));
  }
  Tick();
  return failure;
}

std::string MailOutboxDouble::Route() {
  return GetString("Server") + " " + std::to_string(GetInt("Port")) + " " + GetString("User");
}

std::optional<JobFailure> MailOutboxDouble::Check(Request& request, Mail& mail) {
  const auto valid_for = DurationInput(GetReal("ValidFor"), kDefaultMailValidity);
  if (!valid_for) return BadValue("ValidFor must be a number of seconds from 0 on; 0: 4 days");
  if (!DurationInput(GetReal("Timeout"), std::chrono::seconds(60))) {
    return BadValue("Timeout must be a number of seconds from 0 on; 0: a minute");
  }
  request = {Route(), GetString("Key"), GetBool("Urgent"), *valid_for, {}};
  if (!messages::IsKey(request.key)) return BadValue(messages::kKeyProblem);
  if (GetString("Server").empty()) return BadValue("Server is empty; name the mail server");
  const int port = GetInt("Port");
  if (port < 0 || port > 0xFFFF) return BadValue("Port must be a number from 0 to 65535");
  std::string security = GetString("Security");
  if (security.empty()) security = "starttls";
  if (security != "starttls" && security != "tls" && security != "none") {
    return BadValue("Security must be starttls, tls or none");
  }
  mail.record = {{"block", "MAIL_OUTBOX"},
                 {"server", GetString("Server")},
                 {"port", port},
                 {"security", security},
                 {"user", GetString("User")},
                 {"from", GetString("From")},
                 {"subject", GetString("Subject")},
                 {"text", GetString("Text")},
                 {"html", GetString("Html")},
                 {"key", request.key},
                 {"urgent", request.urgent}};
  for (const std::string& problem :
       {mail::CheckSubject(GetString("Subject")), mail::CheckText(GetString("Text")),
        mail::CheckText(GetString("Html"), "Html")}) {
    if (!problem.empty()) return JobFailure{ErrorId::kText, problem};
  }
  if (auto failure = CheckAddresses(mail)) return failure;
  return CheckAttachments(mail);
}

std::optional<JobFailure> MailOutboxDouble::CheckAddresses(Mail& mail) {
  const mail::AddressList from = mail::ReadAddress(GetString("From"));
  if (!from.problem.empty()) return JobFailure{ErrorId::kReceiver, "From: " + from.problem};
  const std::pair<const char*, const char*> lists[] = {
      {"To", "to"}, {"Cc", "cc"}, {"Bcc", "bcc"}, {"ReplyTo", "reply_to"}};
  for (const auto& [input, name] : lists) {
    const mail::AddressList list = mail::ReadAddresses(GetString(input));
    if (!list.problem.empty()) {
      return JobFailure{ErrorId::kReceiver, std::string(input) + ": " + list.problem};
    }
    nlohmann::json& known = mail.record[name] = nlohmann::json::array();
    for (const mail::Address& address : list.addresses) {
      known.push_back(address.mailbox);
      const auto& all = mail.recipients;
      if (name == std::string_view("reply_to")) continue;
      if (std::find(all.begin(), all.end(), address.mailbox) == all.end()) {
        mail.recipients.push_back(address.mailbox);
      }
    }
  }
  if (!mail.recipients.empty()) return std::nullopt;
  return JobFailure{ErrorId::kReceiver, "there is no recipient; give To, Cc or Bcc"};
}

std::optional<JobFailure> MailOutboxDouble::CheckAttachments(Mail& mail) {
  const std::vector<std::string> files = Pieces(GetString("Attachments"), ";\n");
  std::uintmax_t size = 0;
  for (const std::string& file : files) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
      return JobFailure{ErrorId::kAttachment, file + " is not a file; check the path"};
    }
    size += std::filesystem::file_size(file, error);
  }
  if (size > kMaxAttachments) {
    return JobFailure{ErrorId::kAttachment, "the attachments have more than 25 MB together"};
  }
  mail.record["attachments"] = files;
  return std::nullopt;
}

JobProgress MailOutboxDouble::Poll() {
  Tick();
  if (job_->messages != 0 && job_->stored) SetBool("Stored", true);
  SetValue("Refused", job_->refused);
  if (!job_->ended()) return JobProgress::Busy();
  if (job_->error == ErrorId::kNone) return JobProgress::Done();
  return JobProgress::Failed({job_->error, job_->errors});
}

void MailOutboxDouble::AfterEnd() {
  Tick();
}

void MailOutboxDouble::Tick() {
  World& world = World::The();
  const std::string route = Route();
  world.mail.UseSecret(route, GetString("Password") + "\n" + GetString("Token"),
                       ToSteady(world.time().clock));
  SetValue("Waiting", world.mail.outbox().Waiting(route));
}

void SendEmailDouble::Execute() {
  const bool pulse = !results_.empty() && !GetBool("Sent");
  SetBool("Sent", pulse);
  if (pulse) {
    SetValue("Code", results_.front());
    results_.pop_front();
  }
  const bool send = GetBool("Send");
  if (send == std::exchange(last_send_, send) || !send) return;
  jobs_.push_back(MakeJob());
  SetValue("ErrStr", "");
}

/// The codes that inputs cause by themselves are those of the block's SMTP client, in the order in
/// which it looks at them.
SendEmailDouble::Job SendEmailDouble::MakeJob() {
  const std::string attachment = GetString("Attachment");
  Job job{{Pieces(GetString("Recipient"), " ;"),
           {{"block", "SEND_EMAIL"},
            {"server", GetString("Server")},
            {"port", GetInt("Port")},
            {"user", GetString("Login")},
            {"from", GetString("SenderMail")},
            {"subject", GetString("Subject")},
            {"text", GetString("Message")},
            {"reply_to", GetString("ReplyToMail")}}},
          0,
          std::nullopt};
  job.mail.record["to"] = job.mail.recipients;
  job.mail.record["attachments"] = Pieces(attachment, "");
  std::error_code error;
  if (GetString("Server").empty()) {
    job.problem = 105;
  } else if (GetString("Login").empty()) {
    job.problem = 204;
  } else if (GetString("Password").empty()) {
    job.problem = 205;
  } else if (GetString("SenderMail").empty()) {
    job.problem = 201;
  } else if (job.mail.recipients.empty()) {
    job.problem = 203;
  } else if (!attachment.empty() && !std::filesystem::is_regular_file(attachment, error)) {
    job.problem = 404;
  }
  return job;
}

void SendEmailDouble::BeginCycle(double clock) {
  if (jobs_.empty()) return;
  Job& job = jobs_.front();
  if (!job.ends) job.ends = clock + World::The().mail.delay;
  if (clock < *job.ends) return;
  results_.push_back(Send(job, clock));
  jobs_.pop_front();
}

int SendEmailDouble::Send(Job& job, double clock) {
  SimulatedMail& mail = World::The().mail;
  if (job.problem == 105) return 105;
  if (mail.away) return 403;
  if (job.problem != 0) return job.problem;
  if (mail.login_refused) return 406;
  for (const std::string& address : job.mail.recipients) {
    if (mail.refused.contains(address)) return 402;  // as docs/blocks/send_email.md says
  }
  if (!mail.refusal.empty()) return 306;
  job.mail.record["recipients"] = job.mail.recipients;
  job.mail.record["clock"] = clock;
  mail.NoteSent(job.mail.record);
  return 0;
}
