// SPDX-License-Identifier: MIT
// What the store keeps of a mail: everything but the secret, and what has become of each recipient.
// As JSON, which people read too. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "addins/corvane_mail/account.h"
#include "libs/base/descriptor.h"
#include "libs/mail/message.h"

namespace corvane_mail {

/// A file that was taken over.
struct StoredAttachment {
  std::string name;        ///< as the receiver sees it
  std::uint64_t size = 0;  ///< octets
  std::string file;  ///< relative to the folder of attachments, also while it is only in memory
  std::shared_ptr<const corvane::Descriptor> memory;  ///< not kept in the store
};

struct MailContent {
  Account account;
  mail::Message message;  ///< without attachments
  std::vector<mail::Address> bcc;
  std::vector<StoredAttachment> attachments;
};

[[nodiscard]] std::string ToJson(const MailContent& content);
/// Nothing if it cannot be read.
[[nodiscard]] std::optional<MailContent> ReadMailContent(const std::string& json);

/// Each mailbox that gets the mail, once: To, Cc, Bcc.
[[nodiscard]] std::vector<std::string> RecipientsOf(const MailContent& content);

/// A few mailboxes for one line; the rest as a number.
[[nodiscard]] std::string Summary(const std::vector<std::string>& mailboxes);

enum class RecipientState : std::uint8_t {
  kWaiting,
  kTaken,    ///< the server has the mail for this one
  kRefused,  ///< for good
};

/// In the order of RecipientsOf.
struct MailProgress {
  struct Recipient {
    RecipientState state = RecipientState::kWaiting;
    std::string reply;  ///< why it was refused, or the last time not taken
  };
  std::vector<Recipient> recipients;

  [[nodiscard]] std::size_t Count(RecipientState state) const;
};

[[nodiscard]] std::string ToJson(const MailProgress& progress);
/// As far as it can be read, for so many recipients; others wait.
[[nodiscard]] MailProgress ReadMailProgress(const std::string& json, std::size_t recipients);

/// `address: reply`, a line for each recipient that was refused.
[[nodiscard]] std::string RefusedLines(const std::vector<std::string>& mailboxes,
                                       const MailProgress& progress);

}  // namespace corvane_mail
