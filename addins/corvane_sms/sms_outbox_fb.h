// SPDX-License-Identifier: MIT
// SMS_OUTBOX: sends a text to one or more telephone numbers, durably.
// Threads: the one that runs the Lua state.
#pragma once

#include <memory>

#include "block/job_fb.h"
#include "block/lua_glue.h"
#include "libs/messages/outbox_job.h"

class SmsOutboxFB : public JobFB<SmsOutboxFB> {
 public:
  using JobFB::JobFB;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kStartsNewJob;
  static const FBMetaEntry* GetMetaTable();

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;
  void AfterEnd() override;

 private:
  /// Queues the message. @return why the inputs cannot work
  std::optional<JobFailure> Queue();
  void ShowCounts();

  std::shared_ptr<const messages::OutboxJob> job_;  // of the last edge; null: none, or refused
};

DECLARE_FUNCTION_BLOCK(SmsOutboxFB)
