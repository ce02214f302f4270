// SPDX-License-Identifier: MIT
#include "runtime/bench/server/request_check.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/asio/ip/address.hpp>
#include <charconv>

namespace corvane::bench {
namespace {

using boost::algorithm::iequals;

/// The host without its port; empty: not a Host header.
std::string_view NameOf(std::string_view host) {
  const std::size_t bracket = host.front() == '[' ? host.find(']') : 0;
  if (bracket == std::string_view::npos) return {};
  const std::size_t colon = host.find(':', bracket);
  const std::string_view port = colon == std::string_view::npos ? "0" : host.substr(colon + 1);
  if (port.find_first_not_of("0123456789") != std::string_view::npos) return {};
  return host.substr(0, colon);
}

bool IsAddress(std::string_view name) {
  const bool in_brackets = name.size() > 2 && name.front() == '[' && name.back() == ']';
  if (in_brackets) name = name.substr(1, name.size() - 2);
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(std::string(name), error);
  return !error && address.is_v6() == in_brackets;
}

/// Takes as long for a token that is almost right as for any other.
bool SameSecret(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

/// The value of the first `name=` in a list with such separators; empty: none.
std::string_view ValueIn(std::string_view list, std::string_view name, char separator) {
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(separator), list.size());
    std::string_view item = list.substr(0, end);
    list.remove_prefix(std::min(end + 1, list.size()));
    while (item.starts_with(' ')) item.remove_prefix(1);
    if (item.starts_with(name) && item.substr(name.size()).starts_with('=')) {
      return item.substr(name.size() + 1);
    }
  }
  return {};
}

/// RFC 3986 clause 2.1. What is not a valid escape stays as it is.
std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned octet = 0;
    const char* const digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(digits, digits + 2, octet, 16).ptr == digits + 2) {
      decoded += static_cast<char>(octet);
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

}  // namespace

bool IsOurHost(std::string_view host, std::string_view machine) {
  if (host.empty()) return false;
  const std::string_view name = NameOf(host);
  if (name.empty()) return false;
  if (iequals(name, "localhost") || IsAddress(name)) return true;
  return !machine.empty() &&
         (iequals(name, machine) || iequals(name, std::string(machine) + ".local"));
}

bool IsOurOrigin(std::string_view origin, std::string_view host) {
  if (origin.empty()) return true;
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (origin.starts_with(scheme)) return iequals(origin.substr(scheme.size()), host);
  }
  return false;
}

TokenUse FindToken(const RequestOrigin& request, std::string_view token,
                   std::string_view cookie_name) {
  constexpr std::string_view kBearer = "Bearer ";
  const std::string_view header = request.authorization;
  if (boost::algorithm::istarts_with(header, kBearer) &&
      SameSecret(header.substr(kBearer.size()), token)) {
    return TokenUse::kHeader;
  }
  if (SameSecret(ValueIn(request.cookie, cookie_name, ';'), token)) return TokenUse::kHeader;
  const std::size_t query = request.target.find('?');
  if (query == std::string_view::npos) return TokenUse::kMissing;
  const auto given = PercentDecoded(ValueIn(request.target.substr(query + 1), "token", '&'));
  return SameSecret(given, token) ? TokenUse::kQuery : TokenUse::kMissing;
}

std::string_view PathOf(std::string_view target) {
  return target.substr(0, target.find('?'));
}

}  // namespace corvane::bench
