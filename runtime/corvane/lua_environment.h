// SPDX-License-Identifier: MIT
// A Lua state for control programs: the standard library, the table TYPES with FBMetadata, and
// every registered block type. Threads: one thread at a time uses it.
#pragma once

#include <exception>
#include <lua.hpp>
#include <memory>
#include <stdexcept>

namespace corvane {

/// Something in Lua failed; what() is the message for the user, with a traceback if there is one.
class LuaError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An error in a finalizer. Lua passes on its message, but no other value.
class FinalizerError : public LuaError {
 public:
  using LuaError::LuaError;
  /// Whether the value raised was not a text.
  [[nodiscard]] bool LostItsValue() const;
};

/// A program asked to end at once. Raised in Lua as the light userdata &kExitRequest.
class ExitRequest : public std::exception {};
extern const char kExitRequest;

/// Calls the function below its `arguments` on the stack, in protected mode, and leaves `results`
/// values. Throws LuaError with the message and the traceback, or ExitRequest; the stack is then as
/// before, without function and arguments.
void ProtectedCall(lua_State* L, int arguments, int results);

class LuaEnvironment {
 public:
  /// Throws LuaError when a block type cannot be opened.
  LuaEnvironment();

  [[nodiscard]] lua_State* state() const { return state_.get(); }

 private:
  struct Close {
    void operator()(lua_State* L) const;
  };
  std::unique_ptr<lua_State, Close> state_;
};

}  // namespace corvane
