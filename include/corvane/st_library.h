// SPDX-License-Identifier: MIT
// How an add-in brings block types into the runtime. Implemented by corvane.so.
#pragma once

#include <lua.hpp>

extern "C" {

/// Registers a block type under `name` (copied). The runtime calls `opener` once for every Lua
/// state that it prepares; a negative result means that the type could not be opened there.
/// A name that is already registered is refused. Called from the add-in's InitAddin only.
/// @return 0, or non-zero when refused
int RegisterExternalSTLib(const char* name, lua_CFunction opener);

/// What one value of a block's variable means, in a few words.
struct STValueMeaning {
  const char* variable;  ///< null ends a table of these
  int value;
  const char* meaning;  ///< UTF-8
};

/// Says what values of a block type's variables mean, for people who watch a program. The words
/// come from the block, since nothing else knows its states; they are passed by this function and
/// not in the metadata, which hosts check and programs see. `meanings` is copied. Called from the
/// add-in's InitAddin only. An addition of this runtime: an add-in refers to it weakly and skips
/// the call where a runtime does not have it.
void DescribeExternalSTLibValues(const char* name, const STValueMeaning* meanings)
    __attribute__((weak));

/// Who sets a variable of a block.
enum STDirection { kSTInput = 1, kSTOutput = 2 };

/// What one variable of a block is for.
struct STVariable {
  const char* variable;  ///< null ends a table of these
  int direction;         ///< an STDirection; 0: not stated
  const char* meaning;   ///< in one line of UTF-8, with the unit; null: not stated
};

/// Says what the variables of a block type are for, to people who list or watch blocks.
/// `variables` is copied. Called from the add-in's InitAddin only. An addition of this runtime,
/// used as DescribeExternalSTLibValues is.
void DescribeExternalSTLibVariables(const char* name, const STVariable* variables)
    __attribute__((weak));
}
