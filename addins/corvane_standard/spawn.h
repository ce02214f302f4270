// SPDX-License-Identifier: MIT
// Starts a process with pipes to its standard streams, in a process group of its own, with ordinary
// signals and scheduling, and no other descriptor of ours. Threads: any; the start waits for the
// disk.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "libs/base/descriptor.h"

namespace corvane_standard {

/// What to run, and how.
struct ProcessOrder {
  std::vector<std::string> words;        ///< the program, looked for in PATH, and its arguments
  std::string input;                     ///< for standard input; empty: it reads /dev/null
  std::string folder;                    ///< where it runs; empty: where we do
  std::chrono::milliseconds timeout{0};  ///< 0: none
  std::size_t max_output = 0;            ///< octets kept of each output
};

/// A process that runs, and our ends of its pipes, which do not block.
struct SpawnedProcess {
  pid_t pid = 0;              ///< also that of its process group; 0: not started
  corvane::Descriptor ended;  ///< readable when it has ended; empty where the system has no pidfd
  corvane::Descriptor input;  ///< empty: there is none
  corvane::Descriptor output;
  corvane::Descriptor error_output;
  std::string problem;  ///< why it was not started: a sentence with what to do
};

[[nodiscard]] SpawnedProcess Spawn(const ProcessOrder& order);

}  // namespace corvane_standard
