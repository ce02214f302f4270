// SPDX-License-Identifier: MIT
// The blocks that live in a Lua state, for a runtime that shows them, and whether there may be
// more. Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

namespace corvane {

/// From now on every block that is created in this state is known. Raises a Lua error when memory
/// runs out.
void TrackBlocks(lua_State* L);

/// Pushes the table of the known blocks, or nil without TrackBlocks. Its `n` is how many have been
/// created; a block is at its index, 1..n, as long as it lives. It keeps none alive.
void PushTrackedBlocks(lua_State* L);

/// From now on the creation of a block fails in this state, for the time when it is being closed:
/// what a finalizer makes then loses its memory without a finalizer of its own.
void RefuseBlocks(lua_State* L);

[[nodiscard]] bool BlocksRefused(lua_State* L);

}  // namespace corvane
