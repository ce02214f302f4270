// SPDX-License-Identifier: MIT
// A Lua state with the runtime's environment, in which tests run chunks.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "runtime/corvane/lua_environment.h"

namespace test_support {

/// Fixture with an environment in which every registered block type is open.
class LuaHost : public testing::Test {
 public:
  LuaHost();

  lua_State* L() const { return environment_->state(); }
  /// Runs a chunk. Throws corvane::LuaError.
  void Run(const std::string& chunk);
  /// Runs `return <expression>` and returns tostring() of its first result.
  std::string Eval(const std::string& expression);
  /// The first line of the error that the chunk ends with; fails the test if it succeeds.
  std::string ErrorOf(const std::string& chunk);
  /// Two full collections: finalizers have run, and what they held is gone.
  void Collect();
  /// Closes the state while its blocks still exist.
  void CloseHost() { environment_.reset(); }

 private:
  std::unique_ptr<corvane::LuaEnvironment> environment_;
};

}  // namespace test_support
