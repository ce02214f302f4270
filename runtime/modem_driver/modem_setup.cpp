// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_setup.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>

#include "libs/base/printable.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kSetupTimeout(1000);
constexpr milliseconds kInitTimeout(10'000);
constexpr int kSimBusyTries = 30;  // one per second: a SIM needs this long after power-up

ModemRequest EchoOff() {
  return ModemRequest("ATE0V1\r");  // and result codes as words
}

}  // namespace

void ModemSetup::RunOnOpening() {
  constexpr auto kTimeout = 2 * kSetupTimeout;
  if (Run(steady_clock::now() + kTimeout)) return;
  if (exchange_.loss().empty() && !exchange_.stopped()) {
    exchange_.advice().NoteSilence(EchoOff(), kTimeout);
  }
}

bool ModemSetup::Run(SteadyTime deadline) {
  do {
    // At a prompt that an earlier run left open, the command would be taken for a text.
    if (!exchange_.Escape()) return false;
    exchange_.DropUntilQuiet();
    if (SwitchEchoOff(deadline)) {
      exchange_.BecomeReady();
      if (exchange_.needs_init()) RunInit();
      return exchange_.state() == ModemExchange::State::kReady;
    }
  } while (steady_clock::now() < deadline && exchange_.loss().empty() && !exchange_.stopped());
  return false;
}

bool ModemSetup::SwitchEchoOff(SteadyTime deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
  const auto timeout = std::clamp(left, milliseconds(1), kSetupTimeout);
  const LineKind result = exchange_.ResultOf(EchoOff(), timeout);
  if (result != LineKind::kError) return result == LineKind::kOk;
  // Some modems accept the two only one at a time.
  return IsFinal(exchange_.ResultOf(ModemRequest("ATE0\r"), timeout));
}

void ModemSetup::RunInit() {
  exchange_.InitBegins();
  for (const std::string& command : exchange_.target().init) {
    if (exchange_.stopped() || exchange_.state() != ModemExchange::State::kReady) return;
    RunInitCommand(ModemRequest(command + "\r"));
  }
}

void ModemSetup::RunInitCommand(const ModemRequest& command) {
  if (!command.pin.empty()) return pin_.Send(command);
  const ExchangeResult result = TransactOnceSimIsReady(command);
  if (result.final_kind == LineKind::kOk || exchange_.stopped()) return;
  spdlog::warn("modem port {}: init: {} was {}", exchange_.target().port, command.shown,
               result.answered ? "answered with '" + Printable(result.text) + "'" : "not answered");
}

ExchangeResult ModemSetup::TransactOnceSimIsReady(const ModemRequest& command) {
  ExchangeResult result = exchange_.Transact(command, kInitTimeout);
  for (int i = 0; result.final_kind == LineKind::kSimBusy && i < kSimBusyTries; ++i) {
    exchange_.Idle(steady_clock::now() + seconds(1));
    if (exchange_.stopped() || !exchange_.loss().empty()) break;
    result = exchange_.Transact(command, kInitTimeout);
  }
  if (exchange_.state() == ModemExchange::State::kLate) exchange_.GiveUpLate();
  return result;
}

ExchangeResult ModemSetup::AskInStep(const ModemRequest& command) {
  ExchangeResult result = TransactOnceSimIsReady(command);
  if (IsFinal(result.final_kind) || exchange_.stopped() || !exchange_.loss().empty()) return result;
  exchange_.DropUntilQuiet();
  if (SwitchEchoOff(steady_clock::now() + kInitTimeout)) {
    exchange_.BecomeReady();
  }
  return result;
}

}  // namespace corvane
