// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_transfer.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace corvane_mail {
namespace {

constexpr int kShuttingDown = 421;  // RFC 5321 clause 3.8: about the connection, not the mail

bool IsForGood(const Reply& reply) {
  return reply.code >= 500;
}

bool HasUtf8(const std::vector<std::string>& mailboxes) {
  return std::ranges::any_of(mailboxes, [](const std::string& mailbox) {
    return mail::NeedsSmtpUtf8(mail::Address{"", mailbox});
  });
}

}  // namespace

MailTransfer::MailTransfer(std::int64_t id, MailContent content, MailProgress progress,
                           const AttachmentFolder& attachments)
    : id_(id),
      content_(std::move(content)),
      recipients_(RecipientsOf(content_)),
      progress_(std::move(progress)),
      message_(content_.message) {
  for (const StoredAttachment& one : content_.attachments) {
    message_.attachments.push_back(
        {.name = one.name, .size = one.size, .open = [&attachments, &one] {
           return attachments.Open(one);
         }});
  }
  for (std::size_t i = 0; i < recipients_.size(); ++i) {
    if (progress_.recipients[i].state == RecipientState::kWaiting) waiting_.push_back(i);
  }
}

std::string MailTransfer::Problem() const {
  for (const mail::Attachment& one : message_.attachments) {
    if (one.open() == nullptr) {
      return "the copy of attachment " + one.name +
             " is no longer there, or not whole; send the mail again";
    }
  }
  return {};
}

Attempt MailTransfer::MakeAttempt(const Credentials* credentials,
                                  std::function<bool()> may_finish) {
  Attempt attempt;
  attempt.id = id_;
  attempt.account = content_.account;
  if (credentials != nullptr) {
    attempt.secret = secret = credentials->secret;
    attempt.is_token = credentials->is_token;
  }
  attempt.from = message_.from.mailbox;
  for (const std::size_t i : waiting_) attempt.recipients.push_back(recipients_[i]);
  attempt.has_utf8_addresses = mail::NeedsSmtpUtf8(message_) || HasUtf8(attempt.recipients);
  attempt.open = [this](bool smtputf8) {
    composer_.emplace(message_, smtputf8);
    return composer_->size();
  };
  attempt.read = [this](std::span<char> buffer) {
    const std::size_t size = composer_->Read(buffer);
    attachment_lost_ = composer_->failed();
    if (attachment_lost_) throw std::runtime_error("an attachment cannot be read");
    return size;
  };
  attempt.may_finish = std::move(may_finish);
  return attempt;
}

void MailTransfer::NoteReplies(const Outcome& outcome) {
  for (std::size_t i = 0; i < std::min(waiting_.size(), outcome.recipients.size()); ++i) {
    const Reply& reply = outcome.recipients[i];
    MailProgress::Recipient& recipient = progress_.recipients[waiting_[i]];
    const bool is_taken = outcome.end == End::kTaken && reply.code >= 200 && reply.code < 300;
    if (is_taken) {
      recipient = {RecipientState::kTaken, ""};
    } else if (reply.code >= 400) {
      recipient = {IsForGood(reply) ? RecipientState::kRefused : RecipientState::kWaiting,
                   WordsOf(reply)};
    }
  }
}

Verdict MailTransfer::Take(const Outcome& outcome) {
  using enum Verdict::Kind;
  if (attachment_lost_) {
    return {
        kForGood, ErrorId::kAttachment,
        "the copy of an attachment is no longer whole; check the disk, and send the mail again"};
  }
  NoteReplies(outcome);
  switch (outcome.end) {
    case End::kTaken: return VerdictOfTaken(outcome);
    case End::kRefused: return VerdictOfRefused(outcome);
    case End::kForNow: break;
    case End::kLogin: return {kAccount, ErrorId::kLoginRefused, outcome.reason};
    case End::kCertificate: return {kAccount, ErrorId::kCertificate, outcome.reason};
    case End::kNotOffered: return {kAccount, ErrorId::kNotOffered, outcome.reason};
    case End::kUnknown: return {kUnknown, ErrorId::kUnknownEnd, outcome.reason};
    case End::kAborted: return {kWithdrawn, ErrorId::kNone, outcome.reason};
  }
  if (progress_.Count(RecipientState::kWaiting) == 0) return SomeRefused();
  const bool is_about_route = outcome.last.code == 0 || outcome.last.code == kShuttingDown;
  return {is_about_route ? kRoute : kForNow, ErrorId::kNone, outcome.reason};
}

Verdict MailTransfer::VerdictOfTaken(const Outcome& outcome) const {
  using enum Verdict::Kind;
  if (progress_.Count(RecipientState::kWaiting) > 0) {
    std::string reason = outcome.reason;
    for (const MailProgress::Recipient& one : progress_.recipients) {
      if (one.state == RecipientState::kWaiting) reason = "refused for now: " + one.reply;
    }
    return {kRest, ErrorId::kNone, std::move(reason)};
  }
  if (progress_.Count(RecipientState::kRefused) > 0) return SomeRefused();
  return {kSent, ErrorId::kNone, ""};
}

Verdict MailTransfer::VerdictOfRefused(const Outcome& outcome) const {
  if (progress_.Count(RecipientState::kWaiting) == 0) return SomeRefused();
  std::string reason = outcome.reason;
  if (progress_.Count(RecipientState::kTaken) > 0) reason += "; the others have it";
  return {Verdict::Kind::kForGood, ErrorId::kMailRefused, std::move(reason)};
}

Verdict MailTransfer::SomeRefused() const {
  const bool some_have_it = progress_.Count(RecipientState::kTaken) > 0;
  std::string lines = refused();
  std::ranges::replace(lines, '\n', ';');
  return {Verdict::Kind::kForGood, ErrorId::kRecipientsRefused,
          std::string(some_have_it ? "some recipients were refused, the others have the mail"
                                   : "all recipients were refused") +
              ": " + lines + "; correct the addresses"};
}

}  // namespace corvane_mail
