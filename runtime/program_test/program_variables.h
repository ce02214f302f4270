// SPDX-License-Identifier: MIT
// The variables of a program by their names: globals, local variables of its file that one of its
// functions uses, fields of tables and of blocks. Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace corvane::program_test {

/// What leads to a variable: its name, then names or numbers of fields.
using VariablePath = std::vector<std::variant<std::string, double>>;

/// What is there.
enum class VariableKind { kValue, kTable, kBlock, kFunction };

class ProgramVariables {
 public:
  /// @param file the program, as its chunk is named
  ProgramVariables(lua_State* program, std::string file) : L_(program), file_(std::move(file)) {}

  // All of these throw LuaError for a name that the program does not have (with the nearest one),
  // for a field of something that has none, and when a block refuses.

  /// If a plain value is there, pushes it onto `to`.
  [[nodiscard]] VariableKind Read(const VariablePath& path, lua_State* to);
  /// Pushes a copy of the table or value onto `to`.
  void Copy(const VariablePath& path, lua_State* to);
  /// Stores a copy of the value at `index` of `from`.
  void Write(const VariablePath& path, lua_State* from, int index);
  /// Calls the function with copies of `count` values from `index` on. @return how many copies of
  /// results were pushed onto `test`
  int Call(const VariablePath& path, lua_State* test, int index, int count);

 private:
  struct Upvalue {
    int function;  ///< reference in the registry
    int number;
  };
  struct Access;

  static int Run(lua_State* L);
  void PushVariable(const std::string& name);
  void Push(const VariablePath& path, std::size_t length);
  void Store(const VariablePath& path);
  const Upvalue* Find(const std::string& name);
  void Search();
  void SearchValue(std::vector<const void*>& seen, int depth);
  [[noreturn]] void RaiseUnknown(const std::string& name);
  void Protected(Access& access);

  lua_State* L_;
  std::string file_;
  std::map<std::string, Upvalue> upvalues_;
};

}  // namespace corvane::program_test
