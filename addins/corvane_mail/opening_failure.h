// SPDX-License-Identifier: MIT
// Why a connection to a mail server could not be opened, as people read it.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string>

#include "addins/corvane_mail/attempt.h"

namespace corvane_mail {

/// What is known when libcurl gives up.
struct OpeningFacts {
  CURLcode code = CURLE_OK;
  std::string detail;      ///< libcurl's own words
  int system_error = 0;    ///< errno of the last connect
  long verify_result = 0;  ///< X509_V_ERR_... of OpenSSL
  Reply last_reply;
  bool asked_for_tls = false;  ///< STARTTLS was the last command
  bool is_remote_login =
      false;  ///< only addresses to which no login may go over a plain connection
};

struct Failure {
  End end = End::kForNow;
  std::string reason;  ///< what, where, what to do
};

[[nodiscard]] Failure DescribeOpening(const Account& account, const OpeningFacts& facts);

}  // namespace corvane_mail
