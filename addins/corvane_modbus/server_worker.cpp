// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/server_worker.h"

#include <algorithm>
#include <utility>

#include "addins/corvane_modbus/connecting.h"
#include "libs/modbus/outcome_text.h"
#include "share/log.h"

namespace corvane_modbus {
namespace {

using Phase = Exchange::Phase;
using std::chrono::steady_clock;

/// Between attempts to connect; each is twice as long as the one before.
constexpr std::chrono::milliseconds kFirstPause(100);
constexpr std::chrono::milliseconds kLongestPause(2000);

}  // namespace

void ServerWorker::Run() {
  while (const auto exchange = service_.Next(queue_)) exchange->End(Serve(*exchange));
}

Outcome ServerWorker::Serve(Exchange& exchange) {
  const bool in_time = steady_clock::now() < exchange.deadline();
  if (!in_time || !exchange.Enter(Phase::kQueued)) return NotSent(exchange);
  const bool kept = link_ && link_->IsUsable();
  switch (kept ? Opening::kOpen : Open(exchange)) {
    case Opening::kOpen: break;
    case Opening::kAbandoned: return NotSent(exchange);
    case Opening::kFailed: TellOthers(exchange); [[fallthrough]];
    case Opening::kTooSoon: return Outcome::Failed(ErrorId::kNoConnection, problem_);
  }
  if (!exchange.Enter(Phase::kAsking)) return NotSent(exchange);
  Outcome outcome = Ask(exchange, kept);
  // A device may allow few connections, so one that is of no use is closed at once.
  if (link_ && !link_->IsUsable()) link_.reset();
  return outcome;
}

Outcome ServerWorker::NotSent(const Exchange& exchange) const {
  return Outcome::Failed(ErrorId::kNoConnection,
                         NotSentText(queue_.endpoint, exchange.request(), exchange.timeout()));
}

Outcome ServerWorker::Ask(Exchange& exchange, bool kept) {
  ModbusLink::Answer answer = link_->Ask(queue_.endpoint, exchange);
  if (!answer.connection_lost) return std::move(answer.outcome);
  if (queue_.stop.stopped()) {
    LogInterrupted(exchange);
    return std::move(answer.outcome);
  }
  // Reading twice does no harm.
  const bool again = kept && !exchange.request().write && Open(exchange) == Opening::kOpen;
  return again ? link_->Ask(queue_.endpoint, exchange).outcome : std::move(answer.outcome);
}

ServerWorker::Opening ServerWorker::Open(Exchange& exchange) {
  link_.reset();
  if (next_attempt_ >= exchange.deadline()) return Opening::kTooSoon;
  WaitUntil(next_attempt_, queue_.stop);
  const Opening result = Attempt(exchange);
  if (result == Opening::kFailed) {
    pause_ = std::clamp(2 * pause_, kFirstPause, kLongestPause);
    next_attempt_ = steady_clock::now() + pause_;
  } else if (result == Opening::kOpen) {
    pause_ = {};
  }
  return result;
}

ServerWorker::Opening ServerWorker::Attempt(Exchange& exchange) {
  const Endpoint& endpoint = queue_.endpoint;
  if (!exchange.Enter(Phase::kNaming)) return Opening::kAbandoned;
  const Addresses addresses = FindAddresses(endpoint, problem_);
  if (addresses == nullptr) return Opening::kFailed;
  if (!exchange.Enter(Phase::kConnecting)) return Opening::kAbandoned;
  corvane::Descriptor socket =
      Connect(addresses.get(), endpoint, exchange.deadline(), queue_.stop, problem_);
  if (socket.get() < 0) return Opening::kFailed;
  link_.emplace(std::move(socket), queue_.stop);
  return Opening::kOpen;
}

void ServerWorker::TellOthers(const Exchange& exchange) {
  if (steady_clock::now() >= exchange.deadline()) return;
  for (const auto& other : service_.TakeWaiting(queue_)) {
    other->End(Outcome::Failed(ErrorId::kNoConnection, problem_));
  }
}

void ServerWorker::LogInterrupted(const Exchange& exchange) const {
  if (!exchange.request().write) return;
  logMsg(
      "Modbus server %s, unit %d: the program ends while %s; whether it has written is not known",
      queue_.endpoint.Text().c_str(), exchange.request().unit, exchange.request().Text().c_str());
}

}  // namespace corvane_modbus
