// SPDX-License-Identifier: MIT
// Where mails go, and how: a server, its port, how the connection is secured, and who logs in.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace corvane_mail {

enum class Security : std::uint8_t {
  kStartTls,  ///< plain at first, then TLS (RFC 3207); no mail without it
  kTls,       ///< TLS from the first octet on (RFC 8314)
  kNone,
};

struct Account {
  std::string server;  ///< name, IPv4 or IPv6 address (without brackets)
  int port = 0;        ///< 1 to 65535
  Security security = Security::kStartTls;
  std::string user;       ///< UTF-8; empty: no login
  std::string ca_file;    ///< certificates to trust, PEM; empty: the system's
  bool insecure = false;  ///< a login may go over a plain connection to another machine
  std::chrono::milliseconds timeout{60'000};         ///< for connecting, and for each reply
  std::chrono::milliseconds final_timeout{600'000};  ///< for the reply to the final dot
};

/// The server's name as people read it: `mail.example:587`, `[::1]:25`.
[[nodiscard]] std::string ServerOf(const Account& account);

/// What one connection serves: `SERVER:PORT`, followed by a blank and the user if there is one.
[[nodiscard]] std::string RouteOf(const Account& account);

/// A time as people read it: `60 s`, `1500 ms`.
[[nodiscard]] std::string TextOf(std::chrono::milliseconds time);

}  // namespace corvane_mail
