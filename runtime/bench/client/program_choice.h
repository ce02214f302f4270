// SPDX-License-Identifier: MIT
// Which of the running programs a user means. Pure functions.
#pragma once

#include <stdexcept>
#include <string>

#include "runtime/bench/client/running_programs.h"

namespace corvane::bench {

/// Says in one line why no program was chosen, and which ones run.
class ChoiceError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// What names the program and no other: its name, or NAME-PID if others have that name, or the path
/// of its socket.
[[nodiscard]] std::string AddressOf(const RunningProgram& program, const FoundPrograms& found);

/// @param name a name, NAME-PID, or the path of a socket, with a slash; empty: the only program
/// that runs. @throws ChoiceError
[[nodiscard]] RunningProgram ChooseProgram(const FoundPrograms& found, const std::string& name);

}  // namespace corvane::bench
