// SPDX-License-Identifier: MIT
// A block's side of one request. Threads: the block's; no call waits.
#pragma once

#include <memory>
#include <optional>

#include "addins/corvane_modbus/exchange.h"
#include "addins/corvane_modbus/modbus_service.h"

namespace corvane_modbus {

class Transfer {
 public:
  /// Hands over the request of a plan without a problem.
  explicit Transfer(const Plan& plan);
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  /// What has not been sent is not sent any more.
  ~Transfer() { (void)exchange_->Abandon(); }

  /// To be called until it returns an outcome, which it does soon after the time-out at the latest.
  [[nodiscard]] std::optional<Outcome> Poll();

 private:
  /// @return why it never can be handed over
  [[nodiscard]] std::optional<Outcome> HandOver();
  [[nodiscard]] Outcome GiveUp();

  const Endpoint endpoint_;
  const std::shared_ptr<Exchange> exchange_;
  bool handed_over_ = false;
};

}  // namespace corvane_modbus
