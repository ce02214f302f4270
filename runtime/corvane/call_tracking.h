// SPDX-License-Identifier: MIT
// Where a program is: in which block, and from which line it was called. Kept up to date by the
// thread that runs the Lua state, for one program at a time; any thread may read it.
#pragma once

#include <lua.hpp>
#include <optional>
#include <string>

namespace corvane {

/// A call that the program is in.
struct TrackedCall {
  std::string what;   ///< the block's type, or the function's name
  std::string where;  ///< FILE:LINE of the call; empty when it is not known
};

/// FILE:LINE of the nearest Lua function, from `level` up; empty if there is none.
[[nodiscard]] std::string LuaPosition(lua_State* L, int level);

/// From now on, tracks every call of a block of a registered type in this state. This costs a few
/// nanoseconds per call, and about fifty for the calls whose line is noted: the first kNotedCalls
/// since StartCycle. Raises a Lua error when memory runs out.
void TrackBlockCalls(lua_State* L);

inline constexpr int kNotedCalls = 100;
/// A new cycle begins, outside of any call: the lines of its first calls are noted again.
void StartCycle();

/// The innermost call that the program is in now.
[[nodiscard]] std::optional<TrackedCall> CurrentCall();

/// Records that the program is now in a call that may take long. Not a scope: a Lua error leaves a
/// call without running destructors. A call that is left that way counts as ended when the next
/// cycle begins.
/// @param what a text that lives as long as the process
/// @return for LeaveCall
[[nodiscard]] const char* EnterCall(lua_State* L, const char* what);
void LeaveCall(const char* former);

}  // namespace corvane
