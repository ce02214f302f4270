// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/shell_res_fb.h"

#include <cerrno>
#include <new>
#include <stdexcept>
#include <system_error>

DEFINE_FUNCTION_BLOCK(ShellResFB, "SysProcessCreateWithResult")

namespace {

/// Everything up to the end of file, line feeds included. A read error is not the end: a signal may
/// interrupt a read, and the output must not be cut there.
std::string ReadAll(FILE* pipe) {
  std::string text;
  char piece[128];
  while (std::feof(pipe) == 0) {
    // fgets would hide the bytes after a NUL in the output: the NUL that it writes itself is the
    // last one in a piece that was filled with something else before.
    std::memset(piece, '\n', sizeof piece);
    if (std::fgets(piece, sizeof piece, pipe) == nullptr) continue;
    std::size_t end = sizeof piece;
    while (piece[end - 1] != '\0') --end;
    text.append(piece, end - 1);
  }
  return text;
}

}  // namespace

const FBMetaEntry* ShellResFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {{"Command", "STRING"}, {"Args", "STRING"},
                                         {"Run", "BOOL"},       {"Code", "INT"},
                                         {"Output", "STRING"},  {nullptr, nullptr}};
  return _entries;
}

void ShellResFB::Execute() {
  const bool run = GetBool("Run");
  if (run == last_run_) return;
  last_run_ = run;
  if (run && !busy_) Run(GetString("Command") + " " + GetString("Args"));
}

void ShellResFB::Run(const std::string& command) {
  busy_ = true;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    // Compatibility: only this call raises an error. After that the block stays busy: it keeps its
    // outputs and starts no further command.
    throw std::length_error("the command could not be started (" +
                            std::generic_category().message(errno) +
                            "); this block starts no more commands");
  }
  std::string output;
  try {
    output = ReadAll(pipe);
  } catch (const std::bad_alloc&) {  // the output has no upper bound
    close(pipe);
    busy_ = false;
    throw;
  }
  close(pipe);
  SetValue("Output", output);
  busy_ = false;
}

void ShellResFB::close(FILE* pipe) {
  const int status = pclose(pipe);
  // Compatibility: the low byte of the wait status, not the exit code. `Code` is 0 for every
  // command that exits, the signal's number for one that was killed, -1 when there is no status.
  SetValue("Code", status % 256);
}
