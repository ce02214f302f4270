// SPDX-License-Identifier: MIT
// A quick way to tell the blocks of a type from all other values. Threads: any; a Lua state belongs
// to one at a time.
#pragma once

#include <atomic>
#include <lua.hpp>
#include <mutex>

/// The metatable of a block type in the Lua state that opened the type last, to recognise its
/// blocks without the search by name that luaL_checkudata makes. Other states, if there are any,
/// rely on that search.
///
/// Its answer holds for a state with this registry: the registry keeps the metatable alive, and
/// a later state whose registry lies at the same address has opened the type itself. A reader that
/// meets a writer may see its own registry with the metatable of another state; both states are
/// alive then, so no object of the reader's has that metatable.
class KnownMetatable {
 public:
  /// Remembers the metatable on top of the stack, and leaves it there. Raises a Lua error when out
  /// of memory.
  void Set(lua_State* L) {
    lua_pushvalue(L, -1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, this);
    const std::lock_guard<std::mutex> guard(mutex_);
    registry_.store(lua_topointer(L, LUA_REGISTRYINDEX), std::memory_order_relaxed);
    metatable_.store(lua_topointer(L, -1), std::memory_order_relaxed);
  }
  /// Whether the value at argument 1 has this metatable.
  [[nodiscard]] bool IsOfArgument1(lua_State* L) const {
    if (lua_getmetatable(L, 1) == 0) return false;
    const void* metatable = lua_topointer(L, -1);
    lua_settop(L, -2);
    return metatable == metatable_.load(std::memory_order_relaxed) &&
           lua_topointer(L, LUA_REGISTRYINDEX) == registry_.load(std::memory_order_relaxed);
  }

 private:
  std::mutex mutex_;
  std::atomic<const void*> registry_{nullptr};
  std::atomic<const void*> metatable_{nullptr};
};

/// The metatable of the block class T.
template <class T>
inline KnownMetatable known_metatable;
