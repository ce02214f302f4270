// SPDX-License-Identifier: MIT
#include "runtime/cli/process_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "runtime/cli/commands.h"

namespace corvane::cli {
namespace {

extern "C" void DropSignal(int /*signal*/) {}

void Drop(int signal) {
  struct sigaction action {};
  action.sa_handler = DropSignal;
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

}  // namespace

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void SetUpStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free number is this one.
    if (open("/dev/null", O_RDWR) != stream) std::_Exit(kUsage);  // NOLINT: children inherit it
  }
  Drop(SIGPIPE);
}

void SetUpProcess() {
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);  // an older system without it leaves them open
  for (int signal = 1; signal < NSIG; ++signal) {
    if (IsIgnored(signal)) Drop(signal);
  }
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // The blocks need the exit statuses of their children, which an ignored SIGCHLD would discard.
  std::signal(SIGCHLD, SIG_DFL);
}

}  // namespace corvane::cli
