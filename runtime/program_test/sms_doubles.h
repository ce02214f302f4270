// SPDX-License-Identifier: MIT
// Doubles of SMS_OUTBOX and SMS_INBOX: the same variables and rules, with simulated modems.
// Threads: the one that runs the Lua state.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "block/job_fb.h"
#include "block/lua_glue.h"
#include "block/rising_edge.h"
#include "runtime/program_test/real_declaration.h"
#include "runtime/program_test/simulated_modem.h"
#include "runtime/program_test/simulated_outbox.h"

class SmsOutboxDouble : public JobFB<SmsOutboxDouble>,
                        public corvane::program_test::RealDeclaration<SmsOutboxDouble> {
 public:
  using JobFB::JobFB;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kStartsNewJob;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;
  void AfterEnd() override { ShowCounts(); }

 private:
  std::optional<JobFailure> Queue();
  void ShowCounts();

  std::shared_ptr<const corvane::program_test::SimulatedJob> job_;  // null: none, or refused
};

class SmsInboxDouble : public StrictFB<SmsInboxDouble>,
                       public corvane::program_test::RealDeclaration<SmsInboxDouble> {
 public:
  using StrictFB::StrictFB;
  void Execute() override;

 private:
  void Serve(int port);
  void UpdateReady(std::deque<corvane::program_test::IncomingSms>& inbox, bool accepts);
  void Offer(const corvane::program_test::IncomingSms& message);
  void Withdraw();
  void ShowError(ErrorId id, const std::string& text);

  RisingEdge accept_;
  std::int64_t offered_ = 0;  // id of the message in the outputs while Ready; otherwise 0
  int port_ = 0;              // where that message came in
  bool pauses_ = false;       // one call with Ready FALSE, so that the program sees it
};

DECLARE_FUNCTION_BLOCK(SmsOutboxDouble)
DECLARE_FUNCTION_BLOCK(SmsInboxDouble)
