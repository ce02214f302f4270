// SPDX-License-Identifier: MIT
// Fixture for tests of this add-in's blocks: a time that the test sets.
#pragma once

#include "addins/corvane_standard/corvane_standard.h"
#include "runtime/corvane/cycle_time.h"
#include "tests/support/lua_host.h"

/// Registers the add-in's types once, before any environment is created.
struct RegisteredStandardAddin {
  RegisteredStandardAddin() { [[maybe_unused]] static const int once = InitAddin(); }
};

class StandardBlockTest : private RegisteredStandardAddin, public test_support::LuaHost {
 protected:
  StandardBlockTest() { corvane::SetCycleTime(time_); }

  /// Lets time pass: the next calls belong to a later cycle.
  void Pass(double seconds) {
    time_.clock += seconds;
    time_.now += seconds;
    corvane::SetCycleTime(time_);
  }
  /// Sets the time of day, as a user or a time server does.
  void SetNow(double now) {
    time_.now = now;
    corvane::SetCycleTime(time_);
  }

 private:
  corvane::StandingTime standing_;
  corvane::CycleTime time_{.clock = 1000, .now = 1.8e9};
};
