// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_check/answer_fields.h"
#include "runtime/modem_check/checks.h"
#include "runtime/modem_check/driver_warnings.h"

namespace corvane::modem_check {
namespace {

/// How a modem reports the tries left for the PIN: the standard's command, then makers' own.
struct TriesRow {
  const char* command;
  std::size_t field;  // of its answer
};
constexpr std::array kTriesCommands{
    TriesRow{"AT+CPINR=\"SIM PIN\"", 1},  // +CPINR: SIM PIN,3,3
    TriesRow{"AT+QPINC=\"SC\"", 1},       // +QPINC: "SC",3,10 (Quectel)
    TriesRow{"AT+SPIC", 0},               // +SPIC: 3,10,3,10 (SIMCom)
    TriesRow{"AT^SPIC", 0},               // ^SPIC: 3 (Siemens, Cinterion)
    TriesRow{"AT#PCT", 0},                // #PCT: 3 (Telit)
};

std::optional<int> TriesLeft(ModemTalk& talk) {
  for (const TriesRow& row : kTriesCommands) {
    const Reply reply = talk.Ask(row.command);
    if (!reply.ok()) continue;
    if (const auto left = NumberAt(SplitFields(reply.line()), row.field)) return left;
  }
  // ^CPIN: READY,,10,3,10,3, or ^CPIN: SIM PIN,3,10,3,10,3 (Huawei)
  const Reply reply = talk.Ask("AT^CPIN?");
  return reply.ok() ? NumberAt(SplitFields(reply.line()), 1) : std::nullopt;
}

std::string CardState(ModemTalk& talk) {
  const Reply reply = talk.AskOnceReady("AT+CPIN?");
  if (!reply.lines.empty()) return SplitFields(reply.line()).front();
  return reply.refusal;
}

/// What is wrong with a card in this state, and what to do.
Finding CardFinding(const std::string& state) {
  const auto is = [&state](std::string_view text) { return state.starts_with(text); };
  if (state == "READY") return {Grade::kOk, "SIM card", "ready; no PIN is asked for"};
  if (is("SIM PIN2") || is("SIM PUK2")) {
    return {Grade::kOk, "SIM card",
            "ready; its " + state.substr(4) + " is not needed for messages"};
  }
  if (is("SIM PIN")) {
    return {Grade::kError, "SIM card", "it asks for its PIN",
            "write init=\"AT+CPIN=1234\" with its PIN, or switch the PIN off in a telephone"};
  }
  if (is("SIM PUK")) {
    return {Grade::kError, "SIM card", "it is locked, since wrong PINs were entered",
            "unlock it in a telephone, with the PUK that came with it"};
  }
  if (is("PH-")) {
    return {Grade::kError, "SIM card", "the modem takes only another operator's cards: " + state,
            "use such a card, or have the modem unlocked"};
  }
  if (is("+CME ERROR: 13") || is("+CME ERROR: 15")) {
    return {Grade::kError, "SIM card", "the modem cannot read it: " + state,
            "clean its contacts, and try it in a telephone"};
  }
  if (is("+CME ERROR: 14") || is("+CMS ERROR: 314") || state.find("busy") != state.npos) {
    return {Grade::kError, "SIM card", "it has been busy for half a minute",
            "switch the modem off and on, and try the card in a telephone"};
  }
  if (state.empty()) {
    return {Grade::kError, "SIM card", "the modem does not say whether it has one",
            "switch the modem off and on"};
  }
  return {Grade::kError, "SIM card", "there is none, or it cannot be read: " + state,
          "insert it the right way round, clean its contacts, and switch the modem off and on"};
}

Finding TriesFinding(std::optional<int> left, bool asks) {
  Finding finding{Grade::kOk, "PIN tries", "the modem does not report how many are left"};
  if (left) {
    finding.text = fmt::format("{} left", *left);
    finding.values["left"] = *left;
  }
  if (left && *left <= 1) {
    finding.grade = Grade::kWarning;
    finding.advice = "another wrong PIN locks the card: enter the right one in a telephone";
  } else if (!left && asks) {
    finding.grade = Grade::kWarning;
    finding.advice = "make sure of the PIN: the third wrong one locks the card";
  }
  return finding;
}

bool HasPin(const std::vector<std::string>& init) {
  return std::any_of(init.begin(), init.end(), [](const std::string& command) {
    return !ModemRequest(command + "\r").pin.empty();
  });
}

void RunInit(ModemTalk& talk, WaitLoop& loop, const Report& report) {
  const std::vector<std::string> warnings = SetUpByDriver(talk, loop);
  for (const std::string& warning : warnings) {
    report({Grade::kWarning, "init", warning, "correct init="});
  }
  talk.Wait(std::chrono::milliseconds(0));
  if (warnings.empty()) {
    report({Grade::kOk, "init",
            fmt::format("all {} commands were accepted", talk.target().init.size())});
  }
}

}  // namespace

bool CheckCard(ModemTalk& talk, WaitLoop& loop, const Report& report) {
  const Reply detail = talk.Ask("AT+CMEE?");
  (void)talk.Ask("AT+CMEE=1");  // "no SIM card" instead of ERROR
  std::string state = CardState(talk);
  const bool asks = state == "SIM PIN";
  const bool present = asks || state == "READY" || state == "SIM PUK";
  const std::optional<int> left = present ? TriesLeft(talk) : std::nullopt;
  const auto& init = talk.target().init;
  const bool too_risky = asks && HasPin(init) && left && *left <= 1;
  if (!init.empty() && !too_risky) {
    RunInit(talk, loop, report);
    state = CardState(talk);
  }
  if (const auto level = NumberAt(SplitFields(detail.line()), 0)) {
    (void)talk.Ask(fmt::format("AT+CMEE={}", *level));
  }
  Finding finding = CardFinding(state);
  if (asks && state == "READY") finding.text = "ready; its PIN was accepted";
  if (too_risky) finding.advice = "the PIN was not sent, since only one try is left";
  finding.values["state"] = state;
  report(finding);
  if (present) report(TriesFinding(left, asks && state != "READY"));
  return finding.grade != Grade::kError;
}

}  // namespace corvane::modem_check
