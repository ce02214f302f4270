// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_request.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <string_view>
#include <utility>

#include "runtime/modem_driver/ascii.h"

namespace corvane {
namespace {

// 3GPP TS 27.005 clauses 3.5.1 and 3.5.3: the commands that are followed by a text.
constexpr std::array<std::string_view, 2> kAnnouncements{"+CMGS", "+CMGW"};
// 3GPP TS 27.005 clauses 3.4.2 and 3.4.3: the commands that are answered with messages.
constexpr std::array<std::string_view, 2> kLists{"+CMGL", "+CMGR"};

constexpr std::string_view kPinCommand = "+CPIN=";
/// What follows these is a PIN or a password.
constexpr std::array<std::string_view, 5> kSecrets{kPinCommand,
                                                   "+CPIN2=", "+CPWD=", "+CLCK=", "+CGAUTH="};

bool BelongsToName(char c) {
  return (c >= '0' && c <= '9') || (Upper(c) >= 'A' && Upper(c) <= 'Z');
}

std::string CommandName(std::string_view octets) {
  if (octets.size() < 3 || !BeginsWithAt(octets)) return {};
  const std::string_view rest = octets.substr(2);
  if (std::string_view("+^*#$%_&").find(rest.front()) == std::string_view::npos) return {};
  std::string name(rest.begin(), std::find_if_not(rest.begin() + 1, rest.end(), BelongsToName));
  std::transform(name.begin(), name.end(), name.begin(), Upper);
  return name;
}

RequestKind KindOf(std::string_view octets, std::string_view name) {
  if (!octets.empty() && octets.back() == kCtrlZ) return RequestKind::kText;
  const auto is_one_of = [name](const auto& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  if (is_one_of(kLists)) return RequestKind::kList;
  const bool sets = octets.find('=') != octets.npos && octets.find('?') == octets.npos;
  return sets && is_one_of(kAnnouncements) ? RequestKind::kAnnouncement : RequestKind::kCommand;
}

/// Where the parameters of the command with this name begin, anywhere in the line; npos: it is not
/// there. V.250 clause 5.2.1 allows blanks anywhere in a command line.
std::size_t ParametersOf(std::string_view name, std::string_view octets) {
  for (std::size_t begin = 0; begin < octets.size(); ++begin) {
    std::size_t matched = 0;
    std::size_t next = begin;
    for (; next < octets.size() && matched < name.size(); ++next) {
      if (octets[next] == ' ') continue;
      if (Upper(octets[next]) != name[matched]) break;
      ++matched;
    }
    if (matched == name.size()) return next;
  }
  return std::string_view::npos;
}

std::string PinIn(std::string_view octets) {
  const std::size_t begin = ParametersOf(kPinCommand, octets);
  if (begin == octets.npos) return {};
  std::string pin(octets.substr(begin, octets.find_first_of(",;\r\n", begin) - begin));
  std::erase_if(pin, [](char c) { return c == '"' || c == ' '; });
  return pin;
}

std::string Shown(std::string_view octets, RequestKind kind) {
  if (kind == RequestKind::kText) return fmt::format("text of {} characters", octets.size() - 1);
  const std::string_view command = octets.substr(0, octets.find_last_not_of("\r\n") + 1);
  std::size_t secret = command.npos;
  for (const std::string_view name : kSecrets)
    secret = std::min(secret, ParametersOf(name, command));
  if (secret == command.npos) return std::string(command);
  return std::string(command.substr(0, secret)) + "(secret)";
}

}  // namespace

ModemRequest::ModemRequest(std::string request)
    : octets(std::move(request)),
      name(CommandName(octets)),
      kind(KindOf(octets, name)),
      pin(PinIn(octets)),
      shown(Shown(octets, kind)) {}

std::string ModemRequest::WithoutPin(const std::string& line) const {
  return pin.empty() ? line : boost::replace_all_copy(line, pin, "(secret)");
}

}  // namespace corvane
