// SPDX-License-Identifier: MIT
// MAIL_OUTBOX: sends a mail, durably. Threads: the one that runs the Lua state.
#pragma once

#include <memory>
#include <string>

#include "addins/corvane_mail/mail_desk.h"
#include "addins/corvane_mail/mail_inputs.h"
#include "block/job_fb.h"
#include "block/lua_glue.h"

class MailOutboxFB : public JobFB<MailOutboxFB> {
 public:
  using JobFB::JobFB;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kStartsNewJob;
  static const FBMetaEntry* GetMetaTable();

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;
  void AfterEnd() override;

 private:
  std::optional<JobFailure> Queue();
  void ReadAccountInputs(corvane_mail::MailInputs& inputs);
  corvane_mail::MailInputs ReadInputs();
  /// Hands user and secret to the mails that wait for them, if they are not those of the last call.
  void BringCredentials();
  void ShowState();
  void ShowWaiting();

  /// What identified the account in the last call, and where its mails wait.
  std::string account_inputs_;
  std::string route_;                                   // empty: the inputs make no sense
  std::shared_ptr<const corvane_mail::Secret> secret_;  // brought last; null: none
  bool is_token_ = false;
  std::shared_ptr<corvane_mail::MailTicket> ticket_;      // of the last edge
  std::shared_ptr<const corvane_mail::MailState> shown_;  // what the outputs say
};

DECLARE_FUNCTION_BLOCK(MailOutboxFB)
