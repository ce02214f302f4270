// SPDX-License-Identifier: MIT
// SMS_INBOX: offers the messages that a modem has received, one at a time, until the program has
// accepted them.
// Threads: the one that runs the Lua state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "addins/corvane_sms/sms_service.h"
#include "block/job_fb.h"
#include "block/lua_glue.h"
#include "block/rising_edge.h"
#include "block/strict_fb.h"

class SmsInboxFB : public StrictFB<SmsInboxFB> {
 public:
  using StrictFB::StrictFB;
  ~SmsInboxFB() override;
  static const FBMetaEntry* GetMetaTable();

  void Execute() override;

 private:
  /// Goes to another port, or to none. @return whether there is one now
  bool Use(std::optional<int> port, const messages::Now& now);
  void UpdateReady(corvane_sms::SmsService& service, bool accepts, const messages::Now& now);
  void Offer(const messages::Incoming& message, std::int64_t number);
  void Withdraw();
  void ShowState(const corvane_sms::ModemState& state);

  std::optional<int> port_;  // in use; none while Enable is FALSE
  RisingEdge accept_;
  std::int64_t offered_ = 0;  // id of the message in the outputs while Ready; otherwise 0
  bool pauses_ = false;       // one call with Ready FALSE, so that the program sees it
};

DECLARE_FUNCTION_BLOCK(SmsInboxFB)
