// SPDX-License-Identifier: MIT
// What both process blocks share: the state of a started command.
#pragma once

#include <csignal>

/// While it lives, no signal is blocked on this thread but those that are pending, so that a
/// command started meanwhile does not inherit what its host blocks. (Signals that a handler catches
/// get their default action in the command by themselves.)
class OrdinarySignals {
 public:
  OrdinarySignals();
  OrdinarySignals(const OrdinarySignals&) = delete;
  OrdinarySignals& operator=(const OrdinarySignals&) = delete;
  ~OrdinarySignals();

 private:
  sigset_t before_;
};
