// SPDX-License-Identifier: MIT
// Where a program is: in which block, and from which line it was called. Kept up to date by the
// thread that runs the Lua state, for one program at a time; any thread may look.
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

/// FILE:LINE of the Lua function nearest to the running one, from `level` up; empty without any.
[[nodiscard]] std::string LuaPosition(lua_State* L, int level);

/// Lets every call of a block of a registered type in this state be known. What a call costs more
/// is a few nanoseconds, and some fifty for those whose line is noted: the first kNotedCalls since
/// StartCycle. Raises a Lua error when memory runs out.
void TrackBlockCalls(lua_State* L);

inline constexpr int kNotedCalls = 100;
/// A new cycle: its calls are noted again.
void StartCycle();

/// The innermost call that the program is in now.
[[nodiscard]] std::optional<TrackedCall> CurrentCall();

/// A call of a function of the runtime that may take its time, as long as it lives.
class CallScope {
 public:
  /// @param what a text that lives as long as the process
  CallScope(lua_State* L, const char* what);
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;
  ~CallScope();

 private:
  const char* former_;
};

}  // namespace corvane
