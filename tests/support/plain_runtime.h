// SPDX-License-Identifier: MIT
// A runtime with the contract alone, without the additions of ours. A program that links this must
// not link ours.
#pragma once

#include <string>

#include <lua.hpp>

namespace test_support {

/// A Lua state in which the blocks of an add-in can be used.
class PlainRuntime {
 public:
  PlainRuntime() = default;
  PlainRuntime(const PlainRuntime&) = delete;
  PlainRuntime& operator=(const PlainRuntime&) = delete;
  ~PlainRuntime() { Close(); }

  /// Opens the block types that the add-in registers.
  void Load(int (*init_addin)());
  /// Runs a chunk; a Lua error fails the test.
  void Run(const std::string& chunk);
  /// The text of an expression's value.
  std::string Eval(const std::string& expression);
  /// Ends the state, and with it all blocks.
  void Close();

 private:
  lua_State* lua_ = luaL_newstate();
};

}  // namespace test_support
