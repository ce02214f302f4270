// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_outbox_fb.h"

#include <string>
#include <utility>
#include <variant>

#include "addins/corvane_mail/mail_service.h"
#include "addins/corvane_mail/secret.h"

DEFINE_FUNCTION_BLOCK(MailOutboxFB, "MAIL_OUTBOX")

using corvane_mail::Account;
using corvane_mail::MailInputs;
using corvane_mail::MailOrder;
using corvane_mail::MailService;
using messages::Now;

const FBMetaEntry* MailOutboxFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      plcopen::kExecute,
      {"Server", "STRING", kInput, "name or address of the mail server"},
      {"Port", "DINT", kInput, "0: 587 for \"starttls\", 465 for \"tls\", 25 for \"none\""},
      {"Security", "STRING", kInput, "\"starttls\" (also if empty), \"tls\" or \"none\""},
      {"User", "STRING", kInput, "empty: no login"},
      {"Password", "STRING", kInput, "of the user", true},
      {"Token", "STRING", kInput, "OAuth 2 access token, used instead of the password", true},
      {"CaFile", "STRING", kInput, "certificates to trust, PEM; empty: the system's"},
      {"Insecure", "BOOL", kInput, "allow a login over a plain connection"},
      {"From", "STRING", kInput, "address of the sender, with or without a name"},
      {"To", "STRING", kInput, "addresses, separated by ; , or line feeds"},
      {"Cc", "STRING", kInput, "addresses, as in To"},
      {"Bcc", "STRING", kInput, "addresses that the others do not see"},
      {"ReplyTo", "STRING", kInput, "addresses for answers"},
      {"Subject", "STRING", kInput, "UTF-8"},
      {"Text", "STRING", kInput, "UTF-8"},
      {"Html", "STRING", kInput, "the same text as HTML; may be empty"},
      {"Attachments", "STRING", kInput, "paths, separated by ; or line feeds; 25 MB together"},
      {"Urgent", "BOOL", kInput, "goes before others, and is not held by the hourly limit"},
      {"Key", "STRING", kInput, "while a mail with this key waits or was sent, no other is queued"},
      {"ValidFor", "LREAL", kInput, "s for which it is worth sending, 0: 345600"},
      {"Timeout", "LREAL", kInput, "s for connecting and for each reply, 0: 60, at the end 600"},
      plcopen::kBusy,
      plcopen::kDone,
      plcopen::kError,
      plcopen::kErrorId,
      plcopen::kErrorText,
      {"Stored", "BOOL", kOutput, "the mail is on the disk"},
      {"Refused", "STRING", kOutput, "a line for each refused address: address: reply"},
      {"Waiting", "DINT", kOutput, "mails of this server and user that wait"},
      {nullptr, nullptr}};
  return entries;
}

void MailOutboxFB::ReadAccountInputs(MailInputs& inputs) {
  inputs.server = GetString("Server");
  inputs.port = GetInt("Port");
  inputs.security = GetString("Security");
  inputs.user = GetString("User");
}

MailInputs MailOutboxFB::ReadInputs() {
  MailInputs inputs;
  ReadAccountInputs(inputs);
  inputs.ca_file = GetString("CaFile");
  inputs.insecure = GetBool("Insecure");
  inputs.from = GetString("From");
  inputs.to = GetString("To");
  inputs.cc = GetString("Cc");
  inputs.bcc = GetString("Bcc");
  inputs.reply_to = GetString("ReplyTo");
  inputs.subject = GetString("Subject");
  inputs.text = GetString("Text");
  inputs.html = GetString("Html");
  inputs.attachments = GetString("Attachments");
  inputs.urgent = GetBool("Urgent");
  inputs.key = GetString("Key");
  inputs.valid_for = GetReal("ValidFor");
  inputs.timeout = GetReal("Timeout");
  return inputs;
}

std::optional<JobFailure> MailOutboxFB::Start() {
  ticket_.reset();
  shown_.reset();
  BringCredentials();
  std::optional<JobFailure> failure = Queue();
  ShowWaiting();
  return failure;
}

std::optional<JobFailure> MailOutboxFB::Queue() {
  auto order = corvane_mail::ReadOrder(ReadInputs(), Now::Get());
  if (auto* const failure = std::get_if<JobFailure>(&order)) return std::move(*failure);
  ticket_ = MailService::The().desk().Submit(std::move(std::get<MailOrder>(order)));
  if (ticket_ != nullptr) return std::nullopt;
  return JobFailure{ErrorId::kBadValue,
                    "10,000 mails wait to be taken over, so this one is not queued; send fewer, or "
                    "check the disk"};
}

JobProgress MailOutboxFB::Poll() {
  BringCredentials();
  ShowState();
  ShowWaiting();
  return shown_->progress;
}

void MailOutboxFB::AfterEnd() {
  BringCredentials();
  if (ticket_ != nullptr) ShowState();
  ShowWaiting();
}

void MailOutboxFB::BringCredentials() {
  MailInputs inputs;
  ReadAccountInputs(inputs);
  std::string identity = inputs.server + '\n' + std::to_string(inputs.port) + '\n' +
                         inputs.security + '\n' + inputs.user;
  if (identity != account_inputs_) {
    account_inputs_ = std::move(identity);
    const auto account = corvane_mail::ReadAccount(inputs);
    const auto* const valid = std::get_if<Account>(&account);
    route_ = valid == nullptr ? "" : corvane_mail::RouteOf(*valid);
    secret_.reset();
  }
  MailService& service = MailService::The();  // so that what waits goes out
  if (route_.empty() || inputs.user.empty()) return;
  std::string token = GetString("Token");
  const bool is_token = !token.empty();
  std::string secret = is_token ? std::move(token) : GetString("Password");
  if (secret_ == nullptr || is_token != is_token_ || secret_->text() != secret) {
    secret_ = std::make_shared<const corvane_mail::Secret>(secret);
    is_token_ = is_token;
    service.desk().Bring({route_, secret_, is_token});
  }
  corvane_mail::Wipe(secret);
}

void MailOutboxFB::ShowState() {
  auto state = MailService::The().desk().StateOf(*ticket_);
  if (state == shown_) return;
  shown_ = std::move(state);
  SetBool("Stored", shown_->stored);
  SetValue("Refused", shown_->refused);
}

void MailOutboxFB::ShowWaiting() {
  SetValue("Waiting", route_.empty() ? 0 : MailService::The().desk().Waiting(route_));
}
