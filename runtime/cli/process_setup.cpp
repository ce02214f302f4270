// SPDX-License-Identifier: MIT
#include "runtime/cli/process_setup.h"

#include <unistd.h>

#include <csignal>

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

void SetUpProcess() {
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);  // an older system without it keeps what it has
  for (int signal = 1; signal < NSIG; ++signal) {
    if (IsIgnored(signal)) Drop(signal);
  }
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // Whether children leave a status behind is for the blocks to rely on.
  std::signal(SIGCHLD, SIG_DFL);
  Drop(SIGPIPE);
}

}  // namespace corvane::cli
