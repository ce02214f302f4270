// SPDX-License-Identifier: MIT
#include "runtime/program_test/test_file.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <system_error>
#include <utility>

#include "runtime/program_test/deadline.h"
#include "runtime/program_test/embedded_lua.h"
#include "runtime/program_test/nearest_name.h"
#include "runtime/program_test/test_library.h"
#include "runtime/program_test/test_session.h"

namespace corvane::program_test {
namespace {

/// The Lua state in which a test file runs: the standard library and `test`, no blocks.
class TestState {
 public:
  /// Runs the file. Throws LuaError.
  TestState(const std::string& path, const std::filesystem::path& folder, const std::string& text,
            TestSession* session)
      : state_(luaL_newstate()), path_(path), text_(text), session_(session) {
    if (state_ == nullptr) throw LuaError("out of memory for a Lua state");
    EndAtDeadline(state_.get(), "the test");
    Protected([&](lua_State* L) {
      luaL_openlibs(L);
      Open(L, folder);
    });
  }

  std::vector<std::string> Names() {
    std::vector<std::string> names;
    Protected([&](lua_State* L) {
      PushRunner(L, "names");
      lua_call(L, 0, 1);
      for (int i = 1; i <= static_cast<int>(lua_rawlen(L, -1)); ++i) {
        lua_rawgeti(L, -1, i);
        names.emplace_back(lua_tostring(L, -1));
        lua_pop(L, 1);
      }
    });
    return names;
  }

  /// What went wrong; empty: nothing.
  std::string RunTest(std::size_t number) {
    std::string problem;
    Protected([&](lua_State* L) {
      PushRunner(L, "run");
      lua_pushnumber(L, static_cast<lua_Number>(number));
      lua_pushstring(L, path_.c_str());
      lua_call(L, 2, 1);
      problem = TakeText(L);
    });
    return problem;
  }

 private:
  struct Close {
    void operator()(lua_State* L) const { lua_close(L); }
  };

  template <class Work>
  void Protected(const Work& work) {
    lua_pushcfunction(state_.get(), [](lua_State* L) {
      const auto* todo = static_cast<const Work*>(lua_touserdata(L, 1));
      (*todo)(L);
      return 0;
    });
    lua_pushlightuserdata(state_.get(), const_cast<Work*>(&work));
    try {
      ProtectedCall(state_.get(), 1, 0);
    } catch (const LuaError& error) {
      throw LuaError(WithoutTraceback(error.what()));
    }
  }

  static std::string TakeText(lua_State* L) {
    const char* const text = lua_tostring(L, -1);
    return text == nullptr ? "" : text;
  }

  static void PushRunner(lua_State* L, const char* name) {
    lua_getfield(L, LUA_REGISTRYINDEX, "corvane test");
    lua_getfield(L, -1, name);
  }

  /// Makes `test`, and runs the file in protected mode of its own, so that a failure has its place.
  void Open(lua_State* L, const std::filesystem::path& folder) {
    luaL_loadbuffer(L, kTestApi, kTestApiSize, "=corvane test");
    PushTestLibrary(L, session_);
    lua_call(L, 1, 1);
    lua_getfield(L, -1, "test");
    lua_setglobal(L, "test");
    lua_setfield(L, LUA_REGISTRYINDEX, "corvane test");
    lua_getglobal(L, "package");
    lua_getfield(L, -1, "path");
    lua_pushfstring(L, "%s/?.lua;%s", folder.c_str(), lua_tostring(L, -1));
    lua_setfield(L, -3, "path");
    PushRunner(L, "protected");
    if (luaL_loadbufferx(L, text_.data(), text_.size(), ("@" + path_).c_str(), "t") != LUA_OK) {
      lua_error(L);
    }
    lua_pushstring(L, path_.c_str());
    lua_call(L, 2, 1);
    if (!lua_isnil(L, -1)) lua_error(L);
  }

  std::unique_ptr<lua_State, Close> state_;
  const std::string& path_;
  const std::string& text_;
  TestSession* session_;
};

}  // namespace

TestFile::TestFile(const std::string& path)
    : path_(path), folder_(std::filesystem::absolute(path).parent_path()) {
  std::ifstream file(path, std::ios::binary);
  std::error_code error(file ? 0 : errno, std::generic_category());
  if (!error && std::filesystem::is_directory(path, error)) {
    error = std::make_error_code(std::errc::is_a_directory);
  }
  if (error) {
    throw LuaError(path + " cannot be read: " + error.message() +
                   "; name a file with tests, such as pump_test.lua");
  }
  text_.assign(std::istreambuf_iterator<char>(file), {});
  if (text_.starts_with('#')) text_.insert(0, "--");
  const std::unique_ptr<lua_State, void (*)(lua_State*)> lua(luaL_newstate(), lua_close);
  if (luaL_loadbufferx(lua.get(), text_.data(), text_.size(), ("@" + path).c_str(), "t") !=
      LUA_OK) {
    throw LuaError(lua_tostring(lua.get(), -1));
  }
}

std::vector<std::string> TestFile::ReadNames(std::chrono::milliseconds timeout) const {
  SetDeadline(timeout);
  std::vector<std::string> names = TestState(path_, folder_, text_, nullptr).Names();
  if (names.empty()) {
    throw LuaError(path_ + " has no tests; a test is test(\"name\", function() ... end)");
  }
  return names;
}

TestResult TestFile::Run(std::size_t number, std::chrono::milliseconds timeout) const {
  SetDeadline(timeout);
  TestResult result;
  TestSession session(folder_);
  try {
    TestState state(path_, folder_, text_, &session);
    result.problem = state.RunTest(number);
  } catch (const LuaError& error) {
    result.problem = error.what();
  }
  result.log = session.log.lines();
  result.output = session.print.lines();
  return result;
}

}  // namespace corvane::program_test
