// SPDX-License-Identifier: MIT
// Doubles of PROCESS, SysProcessCreate and SysProcessCreateWithResult: the same variables and
// rules, but no command runs. Threads: the one that runs the Lua state.
#pragma once

#include <optional>
#include <string>

#include "block/job_fb.h"
#include "block/lua_glue.h"
#include "runtime/program_test/real_declaration.h"
#include "runtime/program_test/simulated_processes.h"

class ProcessDouble : public JobFB<ProcessDouble>,
                      public corvane::program_test::RealDeclaration<ProcessDouble> {
 public:
  using JobFB::JobFB;
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kIsIgnored;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;

 private:
  std::optional<JobFailure> Check();
  /// The command as one line, for the test.
  std::string CommandLine();
  JobProgress End(std::optional<JobFailure> failure, double now);
  void ShowOutput(const char* variable, const std::string& text);

  corvane::program_test::ProcessAnswer answer_;
  double begins_ = 0;
  int pid_ = 0;
  double timeout_ = 0;  // s, 0: none
  int max_output_ = 0;
};

class ShellDouble : public BaseFB<ShellDouble>,
                    public corvane::program_test::RealDeclaration<ShellDouble> {
 public:
  using BaseFB::BaseFB;
  void Execute() override;

 private:
  bool last_run_ = false;
};

class ShellResultDouble : public BaseFB<ShellResultDouble>,
                          public corvane::program_test::RealDeclaration<ShellResultDouble> {
 public:
  using BaseFB::BaseFB;
  void Execute() override;

 private:
  bool last_run_ = false;
  bool failed_ = false;  // as with the block itself, it starts no more commands then
};

DECLARE_FUNCTION_BLOCK(ProcessDouble)
DECLARE_FUNCTION_BLOCK(ShellDouble)
DECLARE_FUNCTION_BLOCK(ShellResultDouble)
