// SPDX-License-Identifier: MIT
// The address of a mail server as libcurl wants it.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "addins/corvane_mail/account.h"

namespace corvane_mail {

struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using ServerUrl = std::unique_ptr<CURLU, FreeUrl>;

/// The URL of the server; its path is the name for EHLO. Null if the server's name or its port
/// makes no sense.
[[nodiscard]] ServerUrl MakeServerUrl(const Account& account);

/// True if a connection can be tried at all: an address, or a name without blanks and the like.
[[nodiscard]] bool IsServerName(const std::string& text);

/// How this machine names itself in EHLO (RFC 5321 clause 4.1.4): its name if that is a complete
/// one of valid characters, since servers refuse others; otherwise an address literal.
[[nodiscard]] std::string EhloName();

}  // namespace corvane_mail
