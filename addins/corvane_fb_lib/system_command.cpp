// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/system_command.h"

OrdinarySignals::OrdinarySignals() {
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, &before_);
}

OrdinarySignals::~OrdinarySignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}
