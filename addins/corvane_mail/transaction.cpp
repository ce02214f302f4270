// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/transaction.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include "libs/base/printable.h"

namespace corvane_mail {
namespace {

constexpr std::size_t kPiece = 32768;

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// True if the mailbox would be more than one argument of a command.
bool HasControls(std::string_view mailbox) {
  return std::any_of(mailbox.begin(), mailbox.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

}  // namespace

Transaction::Transaction(Attempt attempt) : attempt_(std::move(attempt)) {}

Transaction::Next Transaction::Begin(const SmtpFeatures& features) {
  features_ = features;
  has_envelope_ = is_read_ = false;
  encoder_ = {};
  recipient_ = 0;
  outcome_ = {};
  outcome_.id = attempt_.id;
  outcome_.recipients.resize(attempt_.recipients.size());
  is_utf8_ = attempt_.has_utf8_addresses && features.smtputf8;
  try {
    return SayMail();
  } catch (const std::exception& error) {
    return Finish(End::kForNow, error.what());
  }
}

Transaction::Next Transaction::SayMail() {
  size_ = attempt_.open(is_utf8_);
  const std::string server = ServerOf(attempt_.account);
  if (features_.max_size > 0 && size_ > features_.max_size) {
    return Finish(End::kRefused, "the mail has " + std::to_string(size_) + " octets, but " +
                                     server + " takes at most " +
                                     std::to_string(features_.max_size) +
                                     "; send smaller attachments");
  }
  if (HasControls(attempt_.from) || (!is_utf8_ && !IsAscii(attempt_.from))) {
    return Finish(End::kRefused, server + " takes no sender such as <" +
                                     corvane::Printable(attempt_.from) +
                                     ">; use an address of plain ASCII as From");
  }
  std::string line = "MAIL FROM:<" + attempt_.from + ">";
  if (features_.size) line += " SIZE=" + std::to_string(size_);
  if (is_utf8_) line += features_.eight_bit ? " BODY=8BITMIME SMTPUTF8" : " SMTPUTF8";
  return Say(Stage::kMail, std::move(line));
}

Transaction::Next Transaction::Say(Stage stage, std::string line) {
  stage_ = stage;
  line_ = std::move(line) + "\r\n";
  return Next::kSay;
}

Transaction::Next Transaction::Finish(End end, std::string reason) {
  was_cut_ = is_in_content();
  stage_ = Stage::kEnded;
  outcome_.end = end;
  outcome_.reason = std::move(reason);
  return Next::kEnd;
}

Transaction::Next Transaction::OnReply(const Reply& reply) {
  outcome_.last = reply;
  switch (stage_) {
    case Stage::kMail: return OnMail(reply);
    case Stage::kRecipients: return OnRecipient(reply);
    case Stage::kData: return OnData(reply);
    case Stage::kContent:
      if (reply.code >= 400) return Refuse(reply, "refused the mail before its end", "");
      return Finish(End::kForNow, ServerOf(attempt_.account) +
                                      " answered before the end of the mail: " + WordsOf(reply));
    case Stage::kFinal: return OnFinal(reply);
    case Stage::kReady:
    case Stage::kEnded: break;
  }
  return Next::kEnd;
}

Transaction::Next Transaction::Refuse(const Reply& reply, const std::string& what,
                                      const std::string& remedy) {
  const bool for_good = reply.code / 100 == 5;
  return Finish(for_good ? End::kRefused : End::kForNow,
                ServerOf(attempt_.account) + " " + what + (for_good ? "" : " for now") + ": " +
                    WordsOf(reply) + (for_good ? remedy : ""));
}

Transaction::Next Transaction::OnMail(const Reply& reply) {
  if (reply.code / 100 == 2) {
    has_envelope_ = true;
    return SayNextRecipient();
  }
  if (reply.code == 530) {  // RFC 4954 clause 6: authentication required
    return Finish(End::kLogin, ServerOf(attempt_.account) + " wants a login: " + WordsOf(reply) +
                                   "; give User and Password, or another Security");
  }
  return Refuse(reply, "refused the sender <" + attempt_.from + ">",
                "; correct From, or ask the operator of the server");
}

Transaction::Next Transaction::SayNextRecipient() {
  for (; recipient_ < attempt_.recipients.size(); ++recipient_) {
    const std::string& mailbox = attempt_.recipients[recipient_];
    if (!HasControls(mailbox) && (is_utf8_ || IsAscii(mailbox))) {
      return Say(Stage::kRecipients, "RCPT TO:<" + mailbox + ">");
    }
    // RFC 6531 clause 3.5: what a server without SMTPUTF8 would say.
    outcome_.recipients[recipient_] = {553, "5.6.7 the server takes addresses of plain ASCII only"};
  }
  const auto& replies = outcome_.recipients;
  const bool some = std::any_of(replies.begin(), replies.end(),
                                [](const Reply& reply) { return reply.code / 100 == 2; });
  return some ? SayData() : EndWithoutRecipients();
}

Transaction::Next Transaction::SayData() {
  // Permission to finish takes a while, such as that of a write to the disk. If the mail goes out
  // in one piece, it comes while the server answers. Earlier, or for a larger one, a program that
  // is killed would take a mail of which the server has nothing for one whose end is not known.
  if (size_ < kPiece && attempt_.will_finish) attempt_.will_finish();
  return Say(Stage::kData, "DATA");
}

Transaction::Next Transaction::OnRecipient(const Reply& reply) {
  outcome_.recipients[recipient_++] = reply;
  if (reply.code == 421) {  // the server closes the connection
    return Refuse(reply, "ended the connection", "");
  }
  if (reply.code / 100 == 3) {
    return Finish(End::kForNow, ServerOf(attempt_.account) +
                                    " does not answer like a mail server (" + WordsOf(reply) + ")");
  }
  return SayNextRecipient();
}

Transaction::Next Transaction::EndWithoutRecipients() {
  const auto& replies = outcome_.recipients;
  const auto for_now = std::find_if(replies.begin(), replies.end(),
                                    [](const Reply& reply) { return reply.code / 100 == 4; });
  const auto shown = for_now == replies.end() ? replies.begin() : for_now;
  const std::string& mailbox =
      attempt_.recipients[static_cast<std::size_t>(shown - replies.begin())];
  const std::string who = replies.size() == 1 ? "" : "all recipients, such as ";
  return Refuse(*shown, "refused " + who + "<" + corvane::Printable(mailbox) + ">",
                "; correct the address");
}

Transaction::Next Transaction::OnData(const Reply& reply) {
  if (reply.code == 354) {
    stage_ = Stage::kContent;
    return Next::kContent;
  }
  if (reply.code >= 400) return Refuse(reply, "does not take the mail", "; do what it asks for");
  return Finish(End::kForNow, ServerOf(attempt_.account) + " does not answer like a mail server (" +
                                  WordsOf(reply) + ")");
}

Transaction::Content Transaction::Fill(std::string& wire) {
  piece_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size_ + 1)));
  try {
    while (!is_read_ && wire.size() < kPiece) {
      const std::size_t octets = attempt_.read(piece_);
      is_read_ = octets == 0;
      encoder_.Encode({piece_.data(), octets}, wire);
    }
    if (!is_read_) return Content::kMore;
    if (attempt_.may_finish && !attempt_.may_finish()) {
      return wire.empty() ? Content::kWaits : Content::kMore;
    }
  } catch (const std::exception& error) {
    Finish(End::kForNow, error.what());
    return Content::kEnd;
  }
  encoder_.Finish(wire);
  return Content::kLast;
}

Transaction::Next Transaction::OnFinal(const Reply& reply) {
  has_envelope_ = false;
  switch (reply.code / 100) {
    case 2: return Finish(End::kTaken, "");
    case 4:
    case 5: return Refuse(reply, "refused the mail", "; do what it asks for, and send it again");
    default:
      return Finish(End::kUnknown, ServerOf(attempt_.account) +
                                       " answered the end of the mail with " + WordsOf(reply) +
                                       ", so it is not known whether it has it");
  }
}

const char* Transaction::Where() const {
  switch (stage_) {
    case Stage::kReady: return "before MAIL";
    case Stage::kMail: return "after MAIL";
    case Stage::kRecipients: return "after RCPT";
    case Stage::kData: return "after DATA";
    case Stage::kContent: return "within the mail";
    case Stage::kFinal:
    case Stage::kEnded: return "after the final dot";
  }
  return "";
}

void Transaction::Stop(End end, const std::string& reason) {
  outcome_.id = attempt_.id;
  outcome_.recipients.resize(attempt_.recipients.size());
  if (is_sent()) {
    Finish(
        End::kUnknown,
        reason + ", after the whole mail had been sent: it is not known whether the server has it");
  } else {
    Finish(end, reason);
  }
}

}  // namespace corvane_mail
