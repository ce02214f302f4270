// SPDX-License-Identifier: MIT
// COUNTDOWN: a job that lasts a number of calls, as a pattern for jobs that last longer.
#pragma once

#include "block/job_fb.h"
#include "block/lua_glue.h"

class CountdownFB : public JobFB<CountdownFB> {
 public:
  using JobFB::JobFB;
  static const FBMetaEntry* GetMetaTable();
  /// A countdown that is under way is not disturbed.
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kIsIgnored;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;

 private:
  int left_ = 0;
};

DECLARE_FUNCTION_BLOCK(CountdownFB)
