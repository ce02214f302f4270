// SPDX-License-Identifier: MIT
// The live blocks of a Lua state, for a runtime that shows them, and whether more may be created.
// Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

namespace corvane {

/// From now on, records every block that is created in this state. Raises a Lua error when memory
/// runs out.
void TrackBlocks(lua_State* L);

/// Pushes the table of the known blocks, or nil without TrackBlocks. Its `n` is how many have been
/// created; a block is at its index, 1..n, as long as it lives. The table keeps no block alive.
void PushTrackedBlocks(lua_State* L);

/// From now on, creating a block in this state fails. Called before the state is closed: the memory
/// of a block that a finalizer creates then would be freed without a finalizer call of its own.
void RefuseBlocks(lua_State* L);

[[nodiscard]] bool BlocksRefused(lua_State* L);

}  // namespace corvane
