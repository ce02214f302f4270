// SPDX-License-Identifier: MIT
// What an add-in may know about the program that is running. Implemented by corvane.so.
// Threads: any.
#pragma once

extern "C" {

/// The folder in which the running program keeps data beyond its end: an absolute path in UTF-8,
/// which the runtime keeps. The folder need not exist yet; whoever writes into it creates it, with
/// access for its owner only. Null or empty: there is none, as when no program runs. The answer
/// stays the same while a program runs.
/// An addition of this runtime: an add-in refers to it weakly; where a runtime does not have it,
/// $STATE_DIRECTORY is the folder, or else one named after the process under
/// $XDG_STATE_HOME/corvane or ~/.local/state/corvane.
const char* CorvaneStateFolder() __attribute__((weak));

/// The time at which the current cycle began, in seconds on a clock that is never set (plc.clock).
/// It stays the same until the next cycle begins; while the program's file itself runs, it is the
/// time at which that began. When no program runs, the clock itself is read.
/// An addition of this runtime: an add-in refers to it weakly; where a runtime does not have it, it
/// reads std::chrono::steady_clock.
double CorvaneCycleClock() __attribute__((weak));

/// The same as the time of day: seconds since 1970-01-01 UTC (plc.now). It follows the system's
/// clock, so it may jump from one cycle to the next, also backwards.
/// An addition of this runtime, as CorvaneCycleClock; elsewhere std::chrono::system_clock.
double CorvaneCycleNow() __attribute__((weak));
}
