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
}
