// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_request.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "runtime/modem_driver/ascii.h"
#include "runtime/modem_driver/line_kind.h"

namespace corvane {
namespace {

// 3GPP TS 27.005 clauses 3.5.1 and 3.5.3: the commands that a text follows.
constexpr std::array<std::string_view, 2> kAnnouncements{"+CMGS", "+CMGW"};
// 3GPP TS 27.005 clauses 3.4.2 and 3.4.3: the commands that messages answer.
constexpr std::array<std::string_view, 2> kLists{"+CMGL", "+CMGR"};

bool BelongsToName(char c) {
  return (c >= '0' && c <= '9') || (Upper(c) >= 'A' && Upper(c) <= 'Z');
}

std::string CommandName(std::string_view octets) {
  if (octets.size() < 3 || Upper(octets[0]) != 'A' || Upper(octets[1]) != 'T') return {};
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

std::string Shown(std::string_view octets, RequestKind kind, bool secret) {
  if (kind == RequestKind::kText) return fmt::format("text of {} characters", octets.size() - 1);
  const std::string_view command = octets.substr(0, octets.find_last_not_of("\r\n") + 1);
  if (!secret) return std::string(command);
  return std::string(command.substr(0, command.find('=') + 1)) + "(secret)";
}

}  // namespace

ModemRequest::ModemRequest(std::string request)
    : octets(std::move(request)),
      name(CommandName(octets)),
      kind(KindOf(octets, name)),
      secret(IsSecretCommand(octets)),
      shown(Shown(octets, kind, secret)) {}

}  // namespace corvane
