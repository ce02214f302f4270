// SPDX-License-Identifier: MIT
// What must not happen to the test program itself, such as losing its terminal.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace test_support {

/// The status with which a child process ends in which `does` has run: 0 if it returned true.
template <class Does>
int InChild(const Does& does) {
  const pid_t child = fork();
  if (child == 0) _exit(does() ? 0 : 1);
  int status = -1;
  return waitpid(child, &status, 0) == child ? status : -1;
}

/// For a process that has called setsid(): whether it still has no controlling terminal.
inline bool HasNoTerminal() {
  return open("/dev/tty", O_RDWR | O_CLOEXEC) < 0 && errno == ENXIO;
}

}  // namespace test_support
