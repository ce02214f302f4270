// SPDX-License-Identifier: MIT
// The blocks of a running program with their variables, in a form that people read.
// Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>
#include <map>
#include <string>
#include <vector>

namespace corvane {

struct VariableState {
  std::string name;
  /// As text: TRUE, 5, 'text', 2026-11-21 03:00:00, 17 announcing the next PDU; never a password.
  /// At most kLongestValueText octets, with three dots if there were more.
  std::string value;
  bool changed = false;  ///< lately; set by code that compares readings
};

struct BlockState {
  int number = 0;    ///< how many blocks had been created, including this one: unique
  std::string name;  ///< the program's variable that holds it, or "#" and its number
  std::string type;
  std::vector<VariableState> variables;  ///< in the order of their declaration
};

class BlockObserver {
 public:
  /// Knows the blocks that are created from now on. The state must outlive the observer.
  /// Throws LuaError when memory runs out.
  explicit BlockObserver(lua_State* L);

  /// The live blocks, in the order of their creation. Throws LuaError when memory runs out.
  [[nodiscard]] std::vector<BlockState> Read();

 private:
  lua_State* L_;
  std::map<const void*, std::string> names_;
  int named_ = 0;  // how many blocks had been created when names_ was filled
};

}  // namespace corvane
