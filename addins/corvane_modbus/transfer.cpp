// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/transfer.h"

#include "libs/modbus/outcome_text.h"

namespace corvane_modbus {
namespace {

using Phase = Exchange::Phase;
using Submitted = ModbusService::Submitted;

/// How much later than the worker the block gives up; only a worker that hangs needs so long.
constexpr std::chrono::milliseconds kGrace(250);

Outcome NotHandedOver(Submitted why) {
  return Outcome::Failed(
      ErrorId::kNoConnection,
      why == Submitted::kTooMany
          ? "the program uses " + std::to_string(ModbusService::kMostServers) +
                " Modbus servers already, which is the limit; use fewer at a time"
          : "the system cannot start another thread for a Modbus server; use fewer, or raise the "
            "limit of the service");
}

}  // namespace

Transfer::Transfer(const Plan& plan)
    : endpoint_(plan.endpoint), exchange_(std::make_shared<Exchange>(plan.request, plan.timeout)) {
  (void)HandOver();  // Poll tries again, and tells
}

std::optional<Outcome> Transfer::Poll() {
  if (!handed_over_) {
    if (auto failure = HandOver()) return failure;
  }
  if (exchange_->phase() == Phase::kEnded) return exchange_->outcome();
  if (std::chrono::steady_clock::now() < exchange_->deadline() + kGrace) return std::nullopt;
  return GiveUp();
}

std::optional<Outcome> Transfer::HandOver() {
  const Submitted submitted = ModbusService::The().Submit(endpoint_, exchange_);
  handed_over_ = submitted == Submitted::kYes;
  if (handed_over_ || submitted == Submitted::kLater) return std::nullopt;
  return NotHandedOver(submitted);
}

Outcome Transfer::GiveUp() {
  switch (exchange_->Abandon()) {
    case Phase::kEnded: return exchange_->outcome();
    case Phase::kAsking:
      return Outcome::Failed(ErrorId::kNoAnswer,
                             TimedOutText(endpoint_, exchange_->request(), exchange_->timeout()));
    case Phase::kNaming:
      return Outcome::Failed(ErrorId::kNoConnection, NotNamedText(endpoint_, exchange_->timeout()));
    case Phase::kQueued:
    case Phase::kConnecting: break;
  }
  return Outcome::Failed(ErrorId::kNoConnection,
                         NotSentText(endpoint_, exchange_->request(), exchange_->timeout()));
}

}  // namespace corvane_modbus
