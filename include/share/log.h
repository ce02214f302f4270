// SPDX-License-Identifier: MIT
// The runtime's log, as add-ins write to it. Implemented by corvaneshare.so; any thread may call.
#pragma once

extern "C" {

/// Logs a printf-formatted text, one log line for each of its lines; trailing line ends are
/// dropped. Add-ins log what went wrong, so the level is "warning".
void logMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Logs `line` as it is, without formatting.
void logMsgLn(const char* line);

/// Logs `line` as it is with the level "info": what is worth knowing although nothing went wrong.
/// An addition of this runtime: an add-in refers to it weakly, and skips the call where a runtime
/// does not have it.
void logInfoLn(const char* line) __attribute__((weak));
}
