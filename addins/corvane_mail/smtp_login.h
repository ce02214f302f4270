// SPDX-License-Identifier: MIT
// The client's side of AUTH (RFC 4954): PLAIN (RFC 4616), LOGIN, XOAUTH2. What it says is in locked
// memory, and what a server says is searched for the secret before anybody reads it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_mail/secret.h"
#include "addins/corvane_mail/smtp_features.h"

namespace corvane_mail {

enum class Mechanism : std::uint8_t { kNone, kPlain, kLogin, kXoauth2 };

/// The name of a mechanism as AUTH wants it.
[[nodiscard]] const char* NameOf(Mechanism mechanism);

/// The best that the server offers: XOAUTH2 for a token; PLAIN, otherwise LOGIN, for a password.
[[nodiscard]] Mechanism ChooseMechanism(const SmtpFeatures& features, bool is_token);

class SmtpLogin {
 public:
  SmtpLogin(std::string user, std::shared_ptr<const Secret> secret);

  /// Begins, or begins again with another mechanism (not kNone). @return the line to send, with
  /// CRLF; it lives until the next call
  std::string_view Begin(Mechanism mechanism);
  /// What to send after a reply with code 334; empty: the mechanism has nothing more to say.
  std::string_view Continue();
  [[nodiscard]] Mechanism mechanism() const { return mechanism_; }

  /// True if the lines of a reply have the secret in them, as it is or as it was sent, or a piece
  /// of what was sent: some servers repeat a command that they do not like.
  [[nodiscard]] bool IsIn(const std::vector<std::string>& lines) const;

 private:
  [[nodiscard]] LockedMemory PlainMessage() const;
  std::string_view Say(std::string_view command, const LockedMemory& clear);

  std::string user_;
  std::shared_ptr<const Secret> secret_;
  Mechanism mechanism_ = Mechanism::kNone;
  int continued_ = 0;
  LockedMemory line_{0};
  std::vector<LockedMemory> sent_;  // in Base64: the secret, and what had it in it
};

}  // namespace corvane_mail
