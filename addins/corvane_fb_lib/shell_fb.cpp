// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/shell_fb.h"

#include <cstdlib>

DEFINE_FUNCTION_BLOCK(ShellFB, "SysProcessCreate")

const FBMetaEntry* ShellFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Command", "STRING"}, {"Args", "STRING"}, {"Run", "BOOL"}, {nullptr, nullptr}};
  return _entries;
}

void ShellFB::Execute() {
  const bool run = GetBool("Run");
  if (run == last_run_) return;
  last_run_ = run;
  if (run && !busy_) Run(getCommand());
}

std::string ShellFB::getCommand() {
  return GetString("Command") + " " + GetString("Args") + " &";
}

int ShellFB::Run(const std::string& command) {
  busy_ = true;
  const int result = std::system(command.c_str());
  busy_ = false;
  return result;
}
