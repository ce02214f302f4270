// SPDX-License-Identifier: MIT
// The blocks that live in a Lua state, for a runtime that shows them.
// Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

namespace corvane {

/// From now on every block that is created in this state is known. Raises a Lua error when memory
/// runs out.
void TrackBlocks(lua_State* L);

/// Pushes the table of the known blocks, or nil without TrackBlocks. Its `n` is how many have been
/// created; at the index 1..n stands the block as long as it lives. It keeps none alive.
void PushTrackedBlocks(lua_State* L);

}  // namespace corvane
