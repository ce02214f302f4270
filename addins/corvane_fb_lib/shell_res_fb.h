// SPDX-License-Identifier: MIT
// SysProcessCreateWithResult: runs a shell command line, waits until it has ended, and returns
// its standard output and a status.
#pragma once

#include <cstdio>
#include <string>

#include "block/base_fb.h"
#include "block/lua_glue.h"

class ShellResFB : public BaseFB<ShellResFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();

  /// Runs the command on a rising edge of `Run`; returns when it has ended.
  void Execute() override;

 private:
  /// Sets `Code` and `Output`. Throws std::length_error when the command cannot be started;
  /// the block then stays busy for good, and both keep their values.
  void Run(const std::string& command);
  /// Closes the pipe and sets `Code`.
  void close(FILE* pipe);

  bool busy_ = false;      // true inside Run
  bool last_run_ = false;  // `Run` at the last call
};

DECLARE_FUNCTION_BLOCK(ShellResFB)
