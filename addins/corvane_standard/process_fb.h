// SPDX-License-Identifier: MIT
// PROCESS: runs a command or a program, without waiting for it.
// Threads: the one that runs the Lua state.
#pragma once

#include <chrono>
#include <memory>

#include "addins/corvane_standard/process_handle.h"
#include "block/job_fb.h"
#include "block/lua_glue.h"

class ProcessFB : public JobFB<ProcessFB> {
 public:
  using JobFB::JobFB;
  /// A process that runs is not disturbed.
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kIsIgnored;
  static const FBMetaEntry* GetMetaTable();

  ~ProcessFB() override;
  void Inited(lua_State* L) override;
  void Restored() override;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;

 private:
  JobProgress Show(corvane_standard::ProcessEnd end);

  std::shared_ptr<const int> owner_ = std::make_shared<int>();  // of all processes of this block
  std::shared_ptr<corvane_standard::ProcessHandle> process_;    // of the last job
  std::chrono::steady_clock::time_point started_;
};

DECLARE_FUNCTION_BLOCK(ProcessFB)
