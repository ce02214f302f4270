// SPDX-License-Identifier: MIT
// Where a Lua state is, function by function, without changing it: so this works in a hook, and for
// a state whose thread is held at any point. Threads: see each function.
#pragma once

#include <array>
#include <cstddef>
#include <lua.hpp>
#include <string_view>

namespace corvane {

/// A text of limited size, in plain memory: adding to it never allocates.
class TracebackText {
 public:
  void Add(std::string_view text);
  [[nodiscard]] std::string_view view() const { return {octets_.data(), size_}; }
  [[nodiscard]] bool empty() const { return size_ == 0; }

 private:
  std::array<char, 2048> octets_{};
  std::size_t size_ = 0;
};

/// Adds the functions that the state is in, from the innermost one out, in one line:
/// "pump.lua:12 in function 'wait', pump.lua:20 in function <pump.lua:18>". Of many, the first and
/// the last are shown. Called by the thread that runs the state, or while that thread stands still.
void AddTraceback(lua_State* L, TracebackText& text);

/// The same for a state whose thread stands still at any point of its work, even between two writes
/// that belong together: a crash ends the traceback, not the process. One caller at a time.
void AddTracebackGuarded(lua_State* L, TracebackText& text);

}  // namespace corvane
