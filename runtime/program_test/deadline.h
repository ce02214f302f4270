// SPDX-License-Identifier: MIT
// Ends a test, or its program, that does not end by itself. Threads: the one that runs the states.
#pragma once

#include <chrono>
#include <lua.hpp>

namespace corvane::program_test {

/// From now on, a test may run for this long.
void SetDeadline(std::chrono::milliseconds time);

/// Makes the state raise an error, with the line that it is at, when the time is over: again and
/// again, so that no pcall of the program keeps it. @param what that runs, for the message: the
/// program, the test. It must stay valid.
void EndAtDeadline(lua_State* L, const char* what);

}  // namespace corvane::program_test
