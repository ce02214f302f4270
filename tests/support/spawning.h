// SPDX-License-Identifier: MIT
// What a test can expect of posix_spawn(3) on the machine that it runs on.
#pragma once

#include <spawn.h>
#include <sys/wait.h>

#include <array>

namespace test_support {

/// Whether posix_spawn says why a program could not be started. It does, except in an emulator that
/// carries out vfork(2) as fork(2): there it always succeeds, and the child ends with status 127.
inline bool SpawnReportsFailure() {
  std::array<char, 18> program{"/no/such/program"};
  const std::array<char*, 2> arguments{program.data(), nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program.data(), nullptr, nullptr, arguments.data(), environ) != 0) {
    return true;
  }
  waitpid(child, nullptr, 0);
  return false;
}

}  // namespace test_support
