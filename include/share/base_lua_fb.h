// SPDX-License-Identifier: MIT
// What every function block gets from its host: the Lua side of its object, and the record that
// names its type. Implemented by corvaneshare.so. Threads: the one that runs the Lua state.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <lua.hpp>

/// The host's part of a block. A block is constructed inside a Lua full userdata.
class BaseLuaFB {
 public:
  /// Attaches the metatable registered under `type_name` to the userdata on top of the stack.
  /// The name must already be in the registry, so that no Lua error can be raised here. Throws a
  /// std::exception when the host accepts no more blocks, as ours does while it closes the state.
  BaseLuaFB(lua_State* L, const char* type_name);
  BaseLuaFB(const BaseLuaFB&) = delete;
  BaseLuaFB& operator=(const BaseLuaFB&) = delete;
  virtual ~BaseLuaFB();
};

/// Lets the host answer a field that it defines itself (`EnO`, the enable output: always true).
/// @return non-zero when it pushed the answer
int CheckIndexProlog(lua_State* L, const char* key, const BaseLuaFB* block);

/// Per block type: its name, and the error text for an argument that is not a block of it. Filled
/// during static initialisation, read-only afterwards.
struct LuaFBUtil {
  static const char* const CheckErrStrPostfix;  ///< second half of the error text

  explicit LuaFBUtil(const char* type_name)
      : typeName(static_cast<char*>(std::malloc(std::strlen(type_name) + 1))),
        errorText(static_cast<char*>(
            std::malloc(std::strlen(type_name) + 4 + std::strlen(CheckErrStrPostfix)))) {
    // Without these few bytes at load time the add-in could not work at all.
    if (typeName == nullptr || errorText == nullptr) std::abort();
    std::strcpy(typeName, type_name);
    std::sprintf(errorText, "%s %s", type_name, CheckErrStrPostfix);
  }
  LuaFBUtil(const LuaFBUtil&) = delete;
  LuaFBUtil& operator=(const LuaFBUtil&) = delete;
  ~LuaFBUtil() {
    std::free(typeName);
    std::free(errorText);
  }

  char* typeName;
  char* errorText;
};
