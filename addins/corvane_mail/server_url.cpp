// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/server_url.h"

#include <idn2.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace corvane_mail {
namespace {

/// The name in ASCII (RFC 5890), since libcurl converts names from the locale's encoding, and a
/// control program has the locale C. Empty if it cannot be converted.
std::string AsciiName(const std::string& name) {
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (std::all_of(name.begin(), name.end(), is_ascii)) return name;
  char* ascii = nullptr;
  if (idn2_to_ascii_8z(name.c_str(), &ascii, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL) != IDN2_OK) {
    return {};
  }
  std::string result = ascii;
  idn2_free(ascii);
  return result;
}

bool Set(CURLU* url, CURLUPart part, const std::string& value) {
  return curl_url_set(url, part, value.c_str(), 0) == CURLUE_OK;
}

}  // namespace

ServerUrl MakeServerUrl(const Account& account) {
  const std::string& server = account.server;
  // A name has at most 253 octets in ASCII (RFC 1035 clause 2.3.4), and here perhaps more in UTF-8.
  if (server.size() > 1000 || server.find('\0') != std::string::npos) return nullptr;
  const bool has_colons = server.find(':') != std::string::npos;
  const std::string host = has_colons ? "[" + server + "]" : AsciiName(server);
  ServerUrl url(curl_url());
  const bool is_set =
      url &&
      Set(url.get(), CURLUPART_SCHEME, account.security == Security::kTls ? "smtps" : "smtp") &&
      Set(url.get(), CURLUPART_HOST, host) &&
      Set(url.get(), CURLUPART_PORT, std::to_string(account.port)) &&
      Set(url.get(), CURLUPART_PATH, "/" + EhloName());
  return is_set ? std::move(url) : nullptr;
}

bool IsServerName(const std::string& text) {
  Account account;
  account.server = text;
  account.port = 25;
  return MakeServerUrl(account) != nullptr;
}

std::string EhloName() {
  std::array<char, 256> buffer{};
  gethostname(buffer.data(), buffer.size() - 1);
  const std::string_view name = buffer.data();
  constexpr std::string_view kValid =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-.";
  const std::size_t dot = name.find('.');
  const bool is_complete = dot != std::string_view::npos && dot > 0 && !name.ends_with('.') &&
                           name.find("..") == std::string_view::npos;
  if (is_complete && name.find_first_not_of(kValid) == std::string_view::npos) {
    return std::string(name);
  }
  return "[127.0.0.1]";
}

}  // namespace corvane_mail
