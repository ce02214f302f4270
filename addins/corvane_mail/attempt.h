// SPDX-License-Identifier: MIT
// An attempt to hand a mail to a mail server (RFC 5321), and what came of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "addins/corvane_mail/account.h"
#include "addins/corvane_mail/secret.h"
#include "addins/corvane_mail/smtp_reply.h"

namespace corvane_mail {

/// One attempt to hand one mail over. The functions are called by
/// MailCarrier::Poll, and never wait.
struct Attempt {
  std::int64_t id = 0;
  Account account;
  std::shared_ptr<const Secret> secret;  ///< null if `account.user` is empty
  bool is_token = false;                 ///< the secret is an OAuth 2 access token
  std::string from;                      ///< mailbox, `local@domain`, UTF-8; empty: none (`<>`)
  std::vector<std::string> recipients;   ///< mailboxes; at least one
  bool has_utf8_addresses = false;       ///< an address of the envelope or the header is not ASCII
  /// Begins at the first octet (again), and tells the mail's size in octets. `smtputf8`: the server
  /// takes UTF-8 in the header (RFC 6531), and some address needs it.
  std::function<std::uint64_t(bool smtputf8)> open;
  /// The next octets of the mail, lines ended by CRLF, dots not doubled; 0 at its end.
  /// An exception ends the attempt with kForNow and its text.
  std::function<std::size_t(std::span<char>)> read;
  /// Called before the command DATA of a small mail: may_finish is asked soon, and what its answer
  /// takes time for can begin. Throws nothing. May be empty.
  std::function<void()> will_finish;
  /// Asked before the final dot; false: it waits, and asks again at each Poll. Throws nothing. May
  /// be empty.
  std::function<bool()> may_finish;
};

enum class End : std::uint8_t {
  kTaken,        ///< the server has the mail for every recipient whose reply is 2xx
  kRefused,      ///< 5xx for the mail, or for each recipient
  kForNow,       ///< 4xx, the network, the name service; or a server that makes no sense
  kLogin,        ///< user and secret refused, or a login required and none given
  kCertificate,  ///< it cannot be trusted, or `ca_file` cannot be read
  kNotOffered,   ///< the security or the login that is required
  kUnknown,      ///< the connection was lost between the final dot and its reply
  kAborted,      ///< withdrawn by Abort or AbortAll before the final dot
};

struct Outcome {
  std::int64_t id = 0;
  End end = End::kForNow;
  std::vector<Reply> recipients;  ///< the reply to each recipient; code 0: not reached
  Reply last;                     ///< the last reply of the server; code 0: none
  /// What happened, where, and what to do, with the server's words; never the secret. Empty if
  /// the mail was taken.
  std::string reason;
};

}  // namespace corvane_mail
