// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/sim_pin.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

#include "libs/base/printable.h"

namespace corvane {
namespace {

// The standard's command (3GPP TS 27.007 clause 8.18, file 2FE2 of TS 31.102), then makers' own.
constexpr std::array kAskForCardNumber{"AT+CRSM=176,12258,0,0,10\r", "AT+CCID\r", "AT^ICCID?\r",
                                       "AT+ICCID\r", "AT+QCCID\r"};
/// Digits of a card's number that every command shows; a check digit and filling may follow.
constexpr std::size_t kCardDigits = 18;

/// The tries that a card allows, unless the modem says otherwise.
constexpr int kUsualTries = 3;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::string CardNumberIn(std::string_view answer) {
  while (!answer.empty()) {
    const auto begin = std::find_if(answer.begin(), answer.end(), IsDigit);
    const auto end = std::find_if_not(begin, answer.end(), IsDigit);
    std::string digits(begin, end);
    answer.remove_prefix(static_cast<std::size_t>(end - answer.begin()));
    if (digits.size() < kCardDigits) continue;
    digits.resize(kCardDigits);
    if (digits.starts_with("98")) {  // 89, telecommunication, with its digits swapped
      for (std::size_t i = 0; i < kCardDigits; i += 2) std::swap(digits[i], digits[i + 1]);
    }
    return digits;
  }
  return {};
}

void SimPin::Send(const ModemRequest& command) {
  PinAttempt attempt{exchange_.target().Name(), {}, command.pin};
  if (!IsAskedFor(command, attempt)) return;
  if (!memory_.IsEmpty() && IsTooRisky(command, attempt)) return;
  // Written before sending: if the power fails now, the PIN may have been wrong.
  memory_.Remember(attempt, PinEnd::kUnknown);
  const ExchangeResult result = ask_(command);
  if (result.final_kind == LineKind::kOk) return memory_.Forget(attempt);
  if (exchange_.stopped()) return;
  const bool no_card = result.text.find("+CME ERROR: 10\r") != std::string::npos;
  if (no_card || result.final_kind == LineKind::kSimBusy) {
    memory_.Forget(attempt);
    return NotSent(command, "the modem has no SIM card that is ready");
  }
  if (IsFinal(result.final_kind)) RememberRefused(attempt);
  spdlog::warn(
      "modem port {}: init: {} was {}; the PIN is not sent again, since the "
      "third wrong one locks the SIM",
      exchange_.target().port, command.shown,
      result.answered ? "answered with '" + Printable(command.WithoutPin(result.text)) + "'"
                      : "not answered");
}

bool SimPin::IsAskedFor(const ModemRequest& command, const PinAttempt& attempt) {
  const ExchangeResult asked = ask_(ModemRequest("AT+CPIN?\r"));
  if (asked.text.find("+CPIN: SIM PIN\r") != std::string::npos) return true;
  if (asked.text.find("+CPIN: READY\r") != std::string::npos) {
    // A PIN whose answer was lost has opened the card.
    const auto past = memory_.Recall(attempt);
    if (past == PinEnd::kUnknown) memory_.Forget(attempt);
  } else if (!exchange_.stopped()) {
    NotSent(command,
            "the SIM does not ask for a PIN; AT+CPIN? returns '" + Printable(asked.text) + "'");
  }
  return false;
}

bool SimPin::IsTooRisky(const ModemRequest& command, PinAttempt& attempt) {
  attempt.sim = CardNumber();
  const Tries tries = TriesLeft();
  if (exchange_.state() != ModemExchange::State::kReady) return true;  // the modem does not answer
  const auto past = memory_.Recall(attempt);
  const std::string advice =
      "; correct the option" +
      (memory_.file().empty() ? "" : ", or delete its line in " + memory_.file().string());
  if (past == PinEnd::kRefused) {
    NotSent(command, "the SIM card has refused this PIN" + advice);
  } else if (past == PinEnd::kUnknown && !tries.all_left) {
    NotSent(command, "it was sent before, and no answer came" + advice);
  } else if (tries.left == 0 || tries.left == 1) {
    NotSent(command, "the SIM card has only one try left; enter its PIN by hand once");
  } else {
    return false;
  }
  return true;
}

void SimPin::RememberRefused(PinAttempt attempt) {
  memory_.Remember(attempt, PinEnd::kRefused);
  if (!attempt.sim.empty()) return;
  const std::string number = CardNumber();
  if (number.empty()) return;
  memory_.Forget(attempt);  // from now on the card is known by its number
  attempt.sim = number;
  memory_.Remember(attempt, PinEnd::kRefused);
}

std::string SimPin::CardNumber() {
  for (const char* const command : kAskForCardNumber) {
    const ExchangeResult result = ask_(ModemRequest(command));
    if (!IsFinal(result.final_kind)) return {};
    std::string number = CardNumberIn(result.text);
    if (!number.empty()) return number;
  }
  return {};
}

SimPin::Tries SimPin::TriesLeft() {
  constexpr std::string_view kBegin = "+CPINR: SIM PIN,";
  const std::string answer = ask_(ModemRequest("AT+CPINR=\"SIM PIN\"\r")).text;
  const std::size_t begin = answer.find(kBegin);
  if (begin == std::string::npos) return {};
  Tries tries;
  const char* const end = answer.data() + answer.size();
  const char* const number = answer.data() + begin + kBegin.size();
  const char* const rest = std::from_chars(number, end, tries.left).ptr;
  int all = kUsualTries;
  if (rest != end && *rest == ',') std::from_chars(rest + 1, end, all);
  tries.all_left = tries.left >= all;
  return tries;
}

void SimPin::NotSent(const ModemRequest& command, const std::string& why) const {
  spdlog::warn("modem port {}: {} is not sent: {}", exchange_.target().port, command.shown, why);
}

}  // namespace corvane
