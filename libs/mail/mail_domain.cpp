// SPDX-License-Identifier: MIT
#include "libs/mail/mail_domain.h"

#include <arpa/inet.h>
#include <idn2.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <memory>

#include "libs/base/printable.h"
#include "libs/mail/header_text.h"

namespace mail {
namespace {

constexpr std::size_t kLongestDomain = 255;  // RFC 5321 clause 4.5.3.1.2
constexpr std::size_t kLongestLabel = 63;    // RFC 1035 clause 2.3.4

bool IsInternetAddress(int family, const std::string& text) {
  if (text.find('\0') != text.npos) return false;  // the system would see only what is before it
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return inet_pton(family, text.c_str(), address.data()) == 1;
}

/// In ASCII by IDNA 2008, with capital letters and the like mapped as browsers do (UTS #46).
Domain ToAscii(std::string_view name) {
  if (std::all_of(name.begin(), name.end(), IsAscii)) return {std::string(name), {}};
  char* out = nullptr;
  const std::string terminated(name);
  const int result =
      idn2_to_ascii_8z(terminated.c_str(), &out, IDN2_NONTRANSITIONAL | IDN2_NFC_INPUT);
  const std::unique_ptr<char, void (*)(void*)> owner(out, idn2_free);
  if (result == IDN2_OK) return {out, {}};
  return {{},
          std::string("the domain cannot be a name of the Internet (") + idn2_strerror(result) +
              "); correct it"};
}

std::string LabelProblem(std::string_view label) {
  if (label.empty()) return "there are two dots in a row after the @; remove one";
  const auto wrong = std::find_if(label.begin(), label.end(),
                                  [](char c) { return !IsAlphanumeric(c) && c != '-'; });
  if (wrong != label.end()) {
    return "'" + corvane::Printable({&*wrong, 1}) +
           "' cannot be in a domain; correct what follows the @";
  }
  if (label.starts_with('-') || label.ends_with('-')) {
    return "a part of the domain begins or ends with a hyphen; correct what follows the @";
  }
  if (label.size() > kLongestLabel) {
    return "a part of the domain has more than 63 characters; correct what follows the @";
  }
  return {};
}

std::string NameProblem(std::string_view name) {
  if (name.size() > kLongestDomain) {
    return "the domain has more than 255 characters; correct what follows the @";
  }
  if (name.starts_with('.')) return "a dot follows the @; remove it";
  if (name.ends_with('.')) return "it ends with a dot; remove that";
  if (IsInternetAddress(AF_INET, std::string(name))) {
    return "an IP address must be in square brackets; write @[" + std::string(name) + "]";
  }
  while (true) {
    const std::size_t dot = name.find('.');
    if (std::string problem = LabelProblem(name.substr(0, dot)); !problem.empty()) return problem;
    if (dot == name.npos) return {};
    name.remove_prefix(dot + 1);
  }
}

}  // namespace

Domain ReadDomain(std::string_view name) {
  constexpr std::size_t kLongestInUtf8 = 4 * kLongestDomain;
  if (name.size() > kLongestInUtf8) return {{}, NameProblem(name)};
  Domain domain = ToAscii(name);
  if (domain.problem.empty()) domain.problem = NameProblem(domain.ascii);
  if (!domain.problem.empty()) domain.ascii.clear();
  return domain;
}

Domain ReadAddressLiteral(std::string_view literal) {
  constexpr std::string_view kTag = "IPv6:";
  std::string address(literal.substr(1, literal.size() - 2));
  if (IsInternetAddress(AF_INET, address)) return {std::string(literal), {}};
  const bool tagged = strncasecmp(address.c_str(), kTag.data(), kTag.size()) == 0;
  if (tagged && IsInternetAddress(AF_INET6, address.substr(kTag.size())))
    return {std::string(literal), {}};
  if (IsInternetAddress(AF_INET6, address)) {
    return {{}, "an IPv6 address must be marked; write @[IPv6:" + address + "]"};
  }
  return {{},
          "what is in square brackets is not an IP address; write it as @[192.0.2.1] or "
          "@[IPv6:2001:db8::1]"};
}

}  // namespace mail
