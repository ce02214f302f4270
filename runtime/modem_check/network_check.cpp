// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "runtime/modem_check/answer_fields.h"
#include "runtime/modem_check/checks.h"

namespace corvane::modem_check {
namespace {

using std::chrono::steady_clock;

/// <stat> of +CREG (3GPP TS 27.007 clause 7.2).
enum Registration {
  kNotSearching = 0,
  kHome = 1,
  kSearching = 2,
  kDenied = 3,
  kUnknown = 4,
  kRoaming = 5,
  kSmsOnlyHome = 6,
  kSmsOnlyRoaming = 7,
  kEmergencyOnly = 8,
  kCsfbHome = 9,
  kCsfbRoaming = 10,
};

bool IsRegistered(std::optional<int> state) {
  return state == kHome || (state >= kRoaming && state <= kSmsOnlyRoaming) || state == kCsfbHome ||
         state == kCsfbRoaming;
}

/// `+CREG: 0,1`; some modems leave the first number out.
std::optional<int> AskRegistration(ModemTalk& talk, const char* command) {
  const auto fields = SplitFields(talk.Ask(command).line());
  return NumberAt(fields, fields.size() == 1 ? 0 : 1);
}

std::optional<int> AwaitRegistration(ModemTalk& talk, std::chrono::seconds patience) {
  const auto end = steady_clock::now() + patience;
  std::optional<int> state = AskRegistration(talk, "AT+CREG?");
  while (state == kSearching && steady_clock::now() < end) {
    talk.Wait(std::chrono::seconds(1));
    state = AskRegistration(talk, "AT+CREG?");
  }
  return state;
}

/// What is to be said about a modem that is not registered.
Finding NotRegistered(std::optional<int> state) {
  switch (state.value_or(kUnknown)) {
    case kNotSearching:
      return {Grade::kError, "network", "not registered, and not searching",
              "check the antenna; AT+COPS=0 has the modem search (corvane check-modem --console)"};
    case kSearching:
      return {Grade::kError, "network", "still searching",
              "wait a minute and try again; then check the antenna and its plug"};
    case kDenied:
      return {Grade::kError, "network", "the network refuses this SIM card",
              "ask the operator whether it is activated and paid for"};
    case kEmergencyOnly:
      return {Grade::kError, "network", "registered for emergency calls only",
              "ask the operator whether the SIM card is activated and paid for"};
    default:
      return {Grade::kError, "network", "the modem does not know whether it is registered",
              "check the antenna and its plug, and try again in a minute"};
  }
}

/// AT+CFUN (3GPP TS 27.007 clause 8.2): 0 and 4 switch the radio off.
std::optional<Finding> RadioOff(ModemTalk& talk) {
  const auto level = NumberAt(SplitFields(talk.Ask("AT+CFUN?").line()), 0);
  if (level != 0 && level != 4) return std::nullopt;
  return Finding{Grade::kError, "network", fmt::format("the radio is off (AT+CFUN={})", *level),
                 "write init=AT+CFUN=1"};
}

std::string RegistrationName(int state) {
  const bool abroad = state == kRoaming || state == kSmsOnlyRoaming || state == kCsfbRoaming;
  const bool messages_only = state == kSmsOnlyHome || state == kSmsOnlyRoaming;
  return fmt::format("registered {}{}", abroad ? "abroad (roaming)" : "at home",
                     messages_only ? ", for messages only" : "");
}

bool CheckRegistration(ModemTalk& talk, std::chrono::seconds patience, const Report& report) {
  const std::optional<int> state = AwaitRegistration(talk, patience);
  Finding finding;
  if (IsRegistered(state)) {
    finding = {Grade::kOk, "network", RegistrationName(*state)};
  } else if (IsRegistered(AskRegistration(talk, "AT+CEREG?")) ||
             IsRegistered(AskRegistration(talk, "AT+CGREG?"))) {
    finding = {Grade::kWarning, "network", "registered for data only",
               "most networks carry messages there, too: find out with --send NUMBER"};
  } else {
    finding = RadioOff(talk).value_or(NotRegistered(state));
  }
  if (state) finding.values["registration"] = *state;
  report(finding);
  return finding.grade != Grade::kError;
}

/// <AcT> of +COPS (3GPP TS 27.007 clause 7.3).
std::string AccessTechnology(std::optional<int> number) {
  constexpr std::array kNames{"GSM", "GSM", "UMTS",   "EDGE", "HSDPA", "HSUPA", "HSPA+",
                              "LTE", "GSM", "NB-IoT", "LTE",  "5G",    "5G"};
  if (!number || *number < 0 || *number >= static_cast<int>(kNames.size())) return {};
  return fmt::format(", {}", kNames.at(static_cast<std::size_t>(*number)));
}

std::string OperatorName(ModemTalk& talk, const std::vector<std::string>& fields) {
  if (fields.size() < 3) return {};
  const bool ucs2 = SplitFields(talk.Ask("AT+CSCS?").line()).front() == "UCS2";
  return ucs2 ? FromUcs2Digits(fields[2]) : fields[2];
}

void CheckOperator(ModemTalk& talk, const Report& report) {
  const auto fields = SplitFields(talk.Ask("AT+COPS?").line());
  const std::string name = OperatorName(talk, fields);
  Finding finding{Grade::kOk, "operator", name + AccessTechnology(NumberAt(fields, 3))};
  finding.values["operator"] = name;
  if (name.empty()) {
    finding.grade = Grade::kWarning;
    finding.text = "the modem does not name it";
  }
  if (NumberAt(fields, 0) == 1) {
    finding.grade = Grade::kWarning;
    finding.text += ", chosen by hand";
    finding.advice = "AT+COPS=0 lets the modem choose, also when this network is gone";
  }
  report(finding);
}

/// The dBm of <rssi> of +CSQ; nullopt: unknown.
std::optional<int> Dbm(std::optional<int> rssi) {
  if (!rssi || *rssi < 0) return std::nullopt;
  if (*rssi <= 31) return -113 + 2 * *rssi;
  if (*rssi >= 100 && *rssi <= 191) return *rssi - 216;  // some modems, in networks after GSM
  return std::nullopt;
}

void CheckSignal(ModemTalk& talk, bool registered, const Report& report) {
  constexpr int kWeak = -93;  // below it, messages get lost
  const auto rssi = NumberAt(SplitFields(talk.Ask("AT+CSQ").line()), 0);
  const std::optional<int> dbm = Dbm(rssi);
  Finding finding{Grade::kOk, "signal", {}};
  if (dbm) {
    finding.text = fmt::format("{} dBm", *dbm);
    finding.values["dbm"] = *dbm;
  } else {
    finding.grade = Grade::kWarning;
    finding.text = registered ? "the modem does not report it" : "none";
    finding.advice = registered ? "" : "check the antenna and its plug";
  }
  if (dbm && *dbm < kWeak) {
    finding.grade = Grade::kWarning;
    finding.text += ", weak";
    finding.advice = "messages may get lost: move the antenna, or use a better one";
  }
  report(finding);
}

}  // namespace

void CheckNetwork(ModemTalk& talk, bool with_card, std::chrono::seconds patience,
                  const Report& report) {
  const bool registered = with_card && CheckRegistration(talk, patience, report);
  if (registered) CheckOperator(talk, report);
  CheckSignal(talk, registered, report);
}

}  // namespace corvane::modem_check
