// SPDX-License-Identifier: MIT
// Lua values as the bench's values. Runs no code of a program. Threads: the one of the Lua state.
#pragma once

#include <lua.hpp>
#include <string>

#include "runtime/bench/sampling/variables.h"

namespace corvane::bench {

/// Makes `value` that of the Lua value at `index`; anything but a boolean, a number or a text is
/// monostate. @return whether it was another before
bool Update(Value& value, lua_State* L, int index);

/// Pushes a value. Raises a Lua error when memory runs out.
void Push(lua_State* L, const Value& value);

/// What is wrong with storing `value` where a Lua value of this type is; empty: nothing.
[[nodiscard]] std::string TypeProblem(int lua_type, const Value& value);

}  // namespace corvane::bench
