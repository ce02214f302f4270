// SPDX-License-Identifier: MIT
// The inputs of MAIL_OUTBOX, and what is wrong with them. Pure functions, apart from the current
// folder, to which relative paths refer.
#pragma once

#include <string>
#include <variant>

#include "addins/corvane_mail/account.h"
#include "addins/corvane_mail/mail_desk.h"
#include "block/job_fb.h"

namespace corvane_mail {

/// As the program has set them.
struct MailInputs {
  std::string server;
  int port = 0;
  std::string security;
  std::string user;
  std::string ca_file;
  bool insecure = false;
  std::string from, to, cc, bcc, reply_to;
  std::string subject, text, html;
  std::string attachments;
  bool urgent = false;
  std::string key;
  double valid_for = 0;
  double timeout = 0;
};

/// Where the mail goes; without files and times.
[[nodiscard]] std::variant<Account, JobFailure> ReadAccount(const MailInputs& inputs);

[[nodiscard]] std::variant<MailOrder, JobFailure> ReadOrder(const MailInputs& inputs,
                                                            const messages::Now& now);

}  // namespace corvane_mail
