// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_target.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <charconv>
#include <optional>
#include <set>

#include "runtime/corvane/duration.h"
#include "runtime/modem_driver/ascii.h"
#include "runtime/modem_driver/modem_request.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;

constexpr std::string_view kTcp = "tcp:";
constexpr std::array<unsigned, 17> kSpeeds{300,    600,    1200,   2400,    4800,   9600,
                                           19200,  38400,  57600,  115200,  230400, 460800,
                                           500000, 576000, 921600, 1000000, 1500000};

template <class Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

milliseconds ParseTime(std::string_view name, std::string_view text, milliseconds least,
                       milliseconds most) {
  const auto time = ParseDuration(text);
  if (!time || *time < least || *time > most) {
    throw ModemTargetError(fmt::format("{}={} is not a time from {} to {}; an example: {}=2s", name,
                                       text, FormatDuration(least), FormatDuration(most), name));
  }
  return std::chrono::ceil<milliseconds>(*time);
}

void SetBaud(ModemTarget& target, std::string_view value) {
  const auto baud = ParseNumber<unsigned>(value);
  if (!baud || std::find(kSpeeds.begin(), kSpeeds.end(), *baud) == kSpeeds.end()) {
    throw ModemTargetError(fmt::format(
        "baud={} is not a baud rate of a serial line; 9600 and 115200 are usual", value));
  }
  target.baud = *baud;
}

void SetFlow(ModemTarget& target, std::string_view value) {
  if (value != "none" && value != "rtscts") {
    throw ModemTargetError(fmt::format("flow={} is not known; write none or rtscts", value));
  }
  target.flow = value == "rtscts" ? FlowControl::kRtsCts : FlowControl::kNone;
}

void SetInit(ModemTarget& target, std::string_view value) {
  target.init.clear();
  while (!value.empty()) {
    const std::size_t end = std::min(value.find(';'), value.size());
    std::string_view command = value.substr(0, end);
    value.remove_prefix(std::min(end + 1, value.size()));
    while (!command.empty() && command.front() == ' ') command.remove_prefix(1);
    while (!command.empty() && command.back() == ' ') command.remove_suffix(1);
    if (command.empty()) continue;
    const bool is_at = BeginsWithAt(command);
    // After a semicolon a command needs no AT (ITU-T V.250 clause 5.2.3).
    const bool continues = !target.init.empty() && !is_at && command.front() == '+';
    const bool printable =
        std::all_of(command.begin(), command.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (!(is_at || continues) || !printable) {
      throw ModemTargetError(
          fmt::format("init: '{}' is not an AT command; write init=\"AT+CNMI=2,0;AT+CSQ\"",
                      ModemRequest(std::string(command)).shown));
    }
    target.init.push_back((continues ? "AT" : "") + std::string(command));
  }
}

struct Setting {
  std::string_view name;
  void (*set)(ModemTarget&, std::string_view value);
};

constexpr std::array kSettings{
    Setting{"baud", SetBaud},
    Setting{"flow", SetFlow},
    Setting{"poll",
            [](ModemTarget& target, std::string_view value) {
              target.poll = ParseTime("poll", value, milliseconds(1), std::chrono::minutes(1));
            }},
    Setting{"patience",
            [](ModemTarget& target, std::string_view value) {
              target.patience =
                  ParseTime("patience", value, milliseconds(0), std::chrono::minutes(10));
            }},
    Setting{"prompt-pause",
            [](ModemTarget& target, std::string_view value) {
              target.prompt_pause =
                  ParseTime("prompt-pause", value, milliseconds(0), std::chrono::seconds(5));
            }},
    Setting{"init", SetInit},
};

/// Whether a setting, known or mistyped, begins here: a name in small letters and "=".
bool BeginsSetting(std::string_view text) {
  const std::size_t name = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-");
  return name != 0 && name != std::string_view::npos && text[name] == '=';
}

/// The position of the quote that closes the one at the start of `text`; npos: none. A quote after
/// a backslash belongs to the value.
std::size_t ClosingQuote(std::string_view text) {
  std::size_t quote = text.find('"', 1);
  while (quote != std::string_view::npos && text[quote - 1] == '\\')
    quote = text.find('"', quote + 1);
  return quote;
}

/// Where the value at the start of `text` ends: at a comma (for `init`, at one that a setting
/// follows), or after its closing quote.
std::size_t EndOfValue(std::string_view name, std::string_view text) {
  if (!text.empty() && text.front() == '"') {
    const std::size_t quote = ClosingQuote(text);
    const std::size_t end = quote == std::string_view::npos ? text.size() : quote + 1;
    if (quote != std::string_view::npos && (end == text.size() || text[end] == ',')) return end;
    throw ModemTargetError(fmt::format("{}={}: a quote is missing, or something follows it", name,
                                       ModemRequest(std::string(text)).shown));
  }
  std::size_t comma = text.find(',');
  while (name == "init" && comma != std::string_view::npos &&
         !BeginsSetting(text.substr(comma + 1)))
    comma = text.find(',', comma + 1);
  return std::min(comma, text.size());
}

std::string Unquoted(std::string_view value) {
  if (value.size() < 2 || value.front() != '"') return std::string(value);
  return boost::replace_all_copy(std::string(value.substr(1, value.size() - 2)), "\\\"", "\"");
}

void ReadSettings(ModemTarget& target, std::string_view text) {
  std::set<std::string_view> given;
  while (!text.empty()) {
    const std::size_t equals = std::min(text.find('='), text.find(','));
    const std::string_view name = text.substr(0, equals);
    const auto setting = std::find_if(kSettings.begin(), kSettings.end(),
                                      [name](const Setting& s) { return s.name == name; });
    if (setting == kSettings.end() || equals >= text.size() || text[equals] != '=') {
      throw ModemTargetError(
          fmt::format("'{}' is not a setting; the settings are baud=, flow=, poll=, patience=, "
                      "prompt-pause= and init=",
                      name));
    }
    if (!given.insert(setting->name).second) {
      throw ModemTargetError(fmt::format("{}= is given twice; give it once", name));
    }
    text.remove_prefix(equals + 1);
    const std::size_t end = EndOfValue(name, text);
    setting->set(target, Unquoted(text.substr(0, end)));
    if (end + 1 == text.size()) throw ModemTargetError("a setting is missing after the last comma");
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

/// The name appears in the log, where a terminal would obey a control character.
void CheckCharacters(std::string_view name) {
  const auto is_control = [](unsigned char octet) { return octet < 0x20 || octet == 0x7F; };
  if (std::any_of(name.begin(), name.end(), is_control)) {
    throw ModemTargetError(
        fmt::format("'{}' has a control character; write a device such as /dev/ttyUSB0", name));
  }
}

void ReadTcp(ModemTarget& target, std::string_view address) {
  const std::size_t colon = std::min(address.rfind(':'), address.size());
  const int service =
      ParseNumber<int>(address.substr(std::min(colon + 1, address.size()))).value_or(0);
  std::string_view host = address.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);  // an IPv6 address
  }
  const bool is_host = !host.empty() && host.find_first_of("[]") == std::string_view::npos;
  if (service < 1 || service > 65535 || !is_host) {
    throw ModemTargetError(fmt::format(
        "'tcp:{}' is not an address; write tcp:HOST:PORT with a port from 1 to 65535", address));
  }
  target.host = host;
  target.service = std::to_string(service);
}

}  // namespace

std::string ModemTarget::Name() const {
  if (!device.empty()) return device;
  const bool ipv6 = host.find(':') != std::string::npos;
  return fmt::format(fmt::runtime(ipv6 ? "tcp:[{}]:{}" : "tcp:{}:{}"), host, service);
}

ModemTarget ParseModemTarget(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    throw ModemTargetError(
        fmt::format("'{}' does not name a modem; write PORT=DEVICE, such as 1=/dev/ttyUSB0", text));
  }
  ModemTarget target;
  const auto port = ParseNumber<int>(text.substr(0, equals));
  if (!port || *port < 0) {
    throw ModemTargetError(fmt::format(
        "'{}' is not a port number; write the number that the blocks have in `Port`, such as "
        "1=/dev/ttyUSB0",
        text.substr(0, equals)));
  }
  target.port = *port;
  text.remove_prefix(equals + 1);
  const std::size_t end = std::min(text.find(','), text.size());
  const std::string_view where = text.substr(0, end);
  CheckCharacters(where);
  if (where.substr(0, kTcp.size()) == kTcp) {
    ReadTcp(target, where.substr(kTcp.size()));
  } else if (where.empty()) {
    throw ModemTargetError(fmt::format(
        "port {} has no device; write {}=/dev/ttyUSB0 or {}=tcp:HOST:PORT", *port, *port, *port));
  } else {
    target.device = where;
  }
  if (end + 1 == text.size()) throw ModemTargetError("a setting is missing after the last comma");
  ReadSettings(target, text.substr(std::min(end + 1, text.size())));
  return target;
}

std::vector<ModemTarget> ParseModemTargets(const std::vector<std::string>& texts) {
  std::vector<ModemTarget> targets;
  for (const std::string& text : texts) {
    ModemTarget target = ParseModemTarget(text);
    for (const ModemTarget& other : targets) {
      if (other.port == target.port) {
        throw ModemTargetError(fmt::format("port {} is given twice, as {} and as {}", target.port,
                                           other.Name(), target.Name()));
      }
      if (other.Name() == target.Name()) {
        throw ModemTargetError(fmt::format("{} is given twice, for port {} and for port {}",
                                           target.Name(), other.port, target.port));
      }
    }
    targets.push_back(std::move(target));
  }
  return targets;
}

}  // namespace corvane
