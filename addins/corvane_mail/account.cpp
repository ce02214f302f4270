// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/account.h"

namespace corvane_mail {

std::string ServerOf(const Account& account) {
  const bool has_colons = account.server.find(':') != std::string::npos;
  const std::string host = has_colons ? "[" + account.server + "]" : account.server;
  return host + ":" + std::to_string(account.port);
}

std::string RouteOf(const Account& account) {
  return ServerOf(account) + (account.user.empty() ? "" : " ") + account.user;
}

std::string TextOf(std::chrono::milliseconds time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  return whole == time ? std::to_string(whole.count()) + " s"
                       : std::to_string(time.count()) + " ms";
}

}  // namespace corvane_mail
