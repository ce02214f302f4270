// SPDX-License-Identifier: MIT
// SysProcessCreate: starts a shell command line in the background and reports nothing back.
#pragma once

#include <string>

#include "block/base_fb.h"
#include "block/lua_glue.h"

class ShellFB : public BaseFB<ShellFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();

  /// Starts the command on a rising edge of `Run`.
  void Execute() override;

 private:
  /// `Command`, a space, `Args`, and the ampersand that sends it to the background; nothing quoted.
  std::string getCommand();
  /// @return the result of system(), which is the shell's, not the command's
  int Run(const std::string& command);

  bool busy_ = false;      // true inside Run
  bool last_run_ = false;  // `Run` at the last call
};

DECLARE_FUNCTION_BLOCK(ShellFB)
