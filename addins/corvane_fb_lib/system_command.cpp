// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/system_command.h"

OrdinarySignals::OrdinarySignals() {
  // One that waits already for the host to fetch it must not strike here instead.
  sigset_t pending;
  sigpending(&pending);
  pthread_sigmask(SIG_SETMASK, &pending, &before_);
}

OrdinarySignals::~OrdinarySignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}
