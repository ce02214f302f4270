// SPDX-License-Identifier: MIT
// The block types of an add-in in one table, a row for each: InitAddin registers them, and tests
// go through them. Constant data.
#pragma once

#include <span>

#include "block/lua_glue.h"

/// One row: what is known about a block type without a Lua state.
struct FBTypeEntry {
  const LuaFBUtil& (*util)();         ///< its name
  const FBMetaEntry* (*variables)();  ///< its declaration table
  int (*register_type)();             ///< its RegisterSTLibs function
};

/// The row of a block class that DEFINE_FUNCTION_BLOCK has defined.
#define BLOCK_TYPE(Class)                                     \
  FBTypeEntry {                                               \
    FBUtil<Class>, Class::GetMetaTable, RegisterSTLibs##Class \
  }

/// Registers the types with the runtime, in the order of the table. The runtime's results are
/// ignored.
inline void RegisterBlockTypes(std::span<const FBTypeEntry> types) {
  for (const FBTypeEntry& type : types) type.register_type();
}
