// SPDX-License-Identifier: MIT
// A program with retained values, started again and again in one folder.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/corvane/control_program.h"
#include "runtime/corvane/retain_store.h"
#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"

namespace corvane {

class RetainTest : public testing::Test {
 protected:
  RetainTest() { test_support::TakeLog(); }

  [[nodiscard]] std::filesystem::path state() const { return folder_.path() / "state"; }
  [[nodiscard]] std::filesystem::path file() const { return state() / "retain.json"; }
  [[nodiscard]] std::string Content() const {
    std::ostringstream text;
    text << std::ifstream(file(), std::ios::binary).rdbuf();
    return text.str();
  }

  /// Runs the text as a program, and this many empty cycles of it, from start to end; `result` is
  /// what it left in the global of that name.
  std::string Run(const std::string& text, int cycles = 1) {
    RetainStore store(state());
    return RunWith(&store, text, cycles);
  }
  std::string RunWith(RetainStore* store, const std::string& text, int cycles = 1) {
    std::ofstream(program_) << text << "\ncycle = cycle or function() end";
    ControlProgram program(program_, {}, store);
    program.Load();
    for (int i = 1; i <= cycles; ++i) program.Cycle(static_cast<std::uint64_t>(i));
    lua_getglobal(program.lua(), "result");
    const std::string result = luaL_tolstring(program.lua(), -1, nullptr);
    lua_pop(program.lua(), 2);
    return result;
  }
  /// The first line of the error that the program ends with.
  std::string ErrorOf(const std::string& text, int cycles = 1) {
    try {
      Run(text, cycles);
    } catch (const LuaError& error) {
      const std::string message = error.what();
      return message.substr(0, message.find('\n'));
    }
    ADD_FAILURE() << "no error: " << text;
    return {};
  }

  test_support::TemporaryFolder folder_;
  const std::filesystem::path program_ = folder_.path() / "program.lua";
};

}  // namespace corvane
