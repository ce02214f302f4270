// SPDX-License-Identifier: MIT
// Lua values to OPC UA variants and back. Implemented by corvaneshare.so.
// Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

#include "share/opcua_variant_hlp.h"

/// Pushes the value as Lua sees it: BOOL a boolean, integers and reals a number, STRING a string,
/// DATE_AND_TIME seconds since 1970-01-01 UTC (0 for the null time); anything else nil.
/// @return 1
int WriteLuaValue(const OpcUa_Variant& value, lua_State* L);

// clang-format off
/// Stores the Lua value at `index`, converted to `type`:
///   BOOL           boolean; number (non-zero is true); string: true only for "true", "True", "TRUE"
///   integers       number, fraction cut off; string that is a number; boolean 0/1
///   REAL, LREAL    the same with its fraction
///   STRING         string, any bytes; number in full; boolean "true"/"false"
///   DATE_AND_TIME  number: seconds since 1970-01-01 UTC, from 1601 on
///   Null           the type follows the value: Boolean, Int32 or Double, String
/// nil becomes the type's null value (false, 0, empty, null time, Null).
/// Any other value, and a number outside the type's range, raises a Lua error that names the type
/// and the value; the variable's name, too, when that is the string directly below the value, as it
/// is in an assignment. The variant is then unchanged.
/// @return 0, the number of Lua results
// clang-format on
int ReadLuaValueOpcUaVariant(OpcUa_VariantHlp& value, lua_State* L, int index,
                             OpcUa_BuiltInType type);
