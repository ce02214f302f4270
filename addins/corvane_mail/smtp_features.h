// SPDX-License-Identifier: MIT
// What a mail server offers in its reply to EHLO (RFC 5321 clause 4.1.1.1).
#pragma once

#include <cstdint>
#include <string_view>

namespace corvane_mail {

struct SmtpFeatures {
  bool size = false;           ///< RFC 1870: the size may be announced
  std::uint64_t max_size = 0;  ///< octets of a mail; 0: no limit is known
  bool eight_bit = false;      ///< 8BITMIME, RFC 6152
  bool smtputf8 = false;       ///< RFC 6531
  bool plain = false;          ///< the mechanisms of AUTH, RFC 4954
  bool login = false;
  bool xoauth2 = false;
};

/// Takes one line of the reply, without its code.
void ReadFeature(std::string_view line, SmtpFeatures& features);

}  // namespace corvane_mail
