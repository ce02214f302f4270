// SPDX-License-Identifier: MIT
// Doubles of MAIL_OUTBOX and SEND_EMAIL: the same variables and rules, with simulated servers.
// Threads: the one that runs the Lua state.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string_view>

#include "block/job_fb.h"
#include "block/lua_glue.h"
#include "runtime/program_test/real_declaration.h"
#include "runtime/program_test/simulated_mail.h"
#include "runtime/program_test/world.h"

class MailOutboxDouble : public JobFB<MailOutboxDouble>,
                         public corvane::program_test::RealDeclaration<MailOutboxDouble> {
 public:
  using JobFB::JobFB;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kStartsNewJob;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;
  void AfterEnd() override;

 private:
  using Mail = corvane::program_test::OutgoingMail;
  using Request = corvane::program_test::SimulatedOutbox<Mail>::Request;

  std::optional<JobFailure> Check(Request& request, Mail& mail);
  std::optional<JobFailure> CheckAddresses(Mail& mail);
  std::optional<JobFailure> CheckAttachments(Mail& mail);
  std::string Route();
  /// What every call does: names the secret, and shows what waits.
  void Tick();

  std::shared_ptr<const corvane::program_test::SimulatedJob> job_;  // null: none, or refused
};

class SendEmailDouble : public BaseFB<SendEmailDouble>,
                        public corvane::program_test::RealDeclaration<SendEmailDouble>,
                        private corvane::program_test::CycleClient {
 public:
  using BaseFB::BaseFB;
  /// As for the block itself: `ReplyToMail` is read although it is not declared.
  static bool IsKnownUndeclared(std::string_view name) { return name == "ReplyToMail"; }
  void Execute() override;

 private:
  struct Job {
    corvane::program_test::OutgoingMail mail;
    int problem = 0;  ///< the code that the inputs cause by themselves
    std::optional<double> ends;
  };
  void BeginCycle(double clock) override;
  Job MakeJob();
  [[nodiscard]] static int Send(Job& job, double clock);

  bool last_send_ = false;
  std::deque<Job> jobs_;
  std::deque<int> results_;
};

DECLARE_FUNCTION_BLOCK(MailOutboxDouble)
DECLARE_FUNCTION_BLOCK(SendEmailDouble)
