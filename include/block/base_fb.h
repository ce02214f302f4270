// SPDX-License-Identifier: MIT
// BaseFB<T>: a function block in a Lua userdata, whose named variables are OPC UA variants.
// A block lives in memory that Lua owns; `__gc` runs only its destructor.
// Threads: the one that runs the Lua state and, under the runtime's scan lock, that of the modem
// port driver.
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "block/block_time.h"
#include "block/check_fb.h"
#include "block/declaration.h"
#include "block/undeclared.h"
#include "block/variables.h"
#include "share/base_lua_fb.h"
#include "share/lua_value.h"

/// The number that a text begins with, after white space and a sign; 0 if there is none. Unlike
/// strtod, this does not depend on the locale, which a program can change.
inline double NumberAtStart(std::string_view text) {
  const std::size_t start = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  text.remove_prefix(start);
  if (text.starts_with('+')) text.remove_prefix(1);
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// The operations of a block for the Lua glue, and the access to variables for the block's own
/// code.
///
/// A name that is not among the variables is never an error: every operation first adds it with a
/// Null value. A program's assignment to it is reported in the log, once for each name. Inputs and
/// outputs are not distinguished.
///
/// @tparam T the block class; it has `static const FBMetaEntry* GetMetaTable()`
template <class T>
class BaseFB : public BaseLuaFB {
 public:
  /// Attaches the metatable to the userdata on top of the stack and declares the variables.
  BaseFB(lua_State* L, const std::string& type_name) : BaseLuaFB(L, type_name.c_str()) {
    loadInputs();
  }

  /// Stores the initial values from the table below the new userdata (nil: none), then calls
  /// Inited. Keys other than strings and numbers are skipped.
  virtual int Init(lua_State* L);
  /// `__index`, name at -1: pushes the variable's value.
  virtual int getField(lua_State* L);
  /// `__newindex`, name at -2, value at -1: stores it, converted to the variable's current type.
  virtual int setField(lua_State* L);
  /// `__call`: one Execute. The result is whatever is on top of the stack: the last argument.
  virtual int call(lua_State* /*L*/) {
    Execute();
    return 1;
  }
  /// Called once, after the initial values are stored.
  virtual void Inited(lua_State* /*L*/) {}
  /// The block's work, once per call from the program.
  virtual void Execute() {}
  /// Called after the runtime has given the variables the values that were kept from an earlier run
  /// of the program: takes over what the block remembers elsewhere.
  virtual void Restored() {}

  /// Pushes the value of the declared variable of this row.
  void PushDeclared(lua_State* L, const FBMetaEntry& row) {
    WriteLuaValue(FindDeclared(row.name)->value, L);
  }
  /// Stores the value on top, which has the Lua type that PushDeclared pushes for it. Raises a Lua
  /// error if it is out of range. @return 0
  int StoreDeclared(lua_State* L, const FBMetaEntry& row) {
    const OpcUa_BuiltInType type = OpcUa_VariantHlp::GetUaTypeFromName(row.type);
    if (type == OpcUaType_DateTime && lua_tonumber(L, -1) == 0) lua_pushnil(L);  // the null time
    return ReadLuaValueOpcUaVariant(FindDeclared(row.name)->value, L, -1, type);
  }

  /// The Lua chunk that enters the block's name and variables into TYPES.StandardFB.
  static std::string MakeMetadata(const char* type_name);
  /// Whether a program may assign to this name without a warning although the table lacks it. A
  /// block class that reads such a variable hides this function with its own.
  static bool IsKnownUndeclared(std::string_view /*name*/) { return false; }

 protected:
  /// Numbers are true when not zero; text only as "true", "True", "TRUE". Compatibility: a Float is
  /// never true, whatever a program assigns to a REAL (which none of our blocks has).
  bool GetBool(const std::string& name);
  /// The low 32 bits of an integer, the whole part of a Double (saturated, NaN: 0), the number that
  /// a text begins with. Compatibility: an SByte of -1 is 255, a UInt16 of 65535 is -1, a Float is
  /// 0.
  int GetInt(const std::string& name);
  /// The text form; empty when the value has none.
  std::string GetString(const std::string& name);
  /// The number, for every numeric type; 1 or 0 for a Boolean, the number that a text begins with,
  /// otherwise 0. An LREAL may be infinite or NaN.
  double GetReal(const std::string& name);
  /// The point in time of a DATE_AND_TIME; nothing for the null time and for other types.
  std::optional<BlockTime> GetTime(const std::string& name);
  /// The variable is an Int32 afterwards, whatever it was declared as.
  void SetValue(const std::string& name, int value) { Find(name).SetInt32(value); }
  void SetValue(const std::string& name, const std::string& value) {
    Find(name).SetString(value.data(), value.length());
  }
  void SetBool(const std::string& name, bool value) { Find(name).SetBoolean(value); }
  void SetReal(const std::string& name, double value) { Find(name).SetDouble(value); }
  /// Nothing, and a time that a DATE_AND_TIME cannot hold (before 1601), is the null time.
  void SetTime(const std::string& name, std::optional<BlockTime> time) {
    Find(name).SetDateTime(ToDateTime(time));
  }

  /// The variable's value; a name without a variable is added as Null.
  OpcUa_VariantHlp& Find(const std::string& name) { return variables_.Find(name).value; }
  /// The variable if the table declares it, otherwise null.
  FBInput* FindDeclared(std::string_view name) {
    FBInput* variable = variables_.FindExisting(name);
    return variable != nullptr && variable->declared != nullptr ? variable : nullptr;
  }
  /// Gives the variable of this row the null value of its type.
  void ClearVariable(const FBMetaEntry& row) { Clear(Find(row.name), row); }
  /// Pushes the value of a name that belongs to the host or to every block. @return false, and
  /// nothing is pushed, for any other name
  bool PushHostField(lua_State* L, const char* key, std::size_t length) {
    if (CheckIndexProlog(L, key, this) != 0) return true;
    if (std::string_view(key, length) != "__Internal") return false;
    lua_pushboolean(L, 1);
    return true;
  }

 private:
  void loadInputs();
  static void Clear(OpcUa_VariantHlp& value, const FBMetaEntry& row) {
    value.Reset(OpcUa_VariantHlp::GetUaTypeFromName(row.type));
    if (value.Datatype == OpcUaType_String) OpcUa_String_Initialize(&value.Value.String);
  }
  static bool Declares(std::string_view name) { return ::Declares(T::GetMetaTable(), name); }

  BlockVariables variables_;  // declared and reported ones are settled
};

template <class T>
void BaseFB<T>::loadInputs() {
  for (const FBMetaEntry* entry = T::GetMetaTable(); entry->name != nullptr; ++entry) {
    FBInput& variable = variables_.Settle(entry->name);
    variable.declared = entry;
    Clear(variable.value, *entry);
  }
}

template <class T>
int BaseFB<T>::Init(lua_State* L) {
  if (lua_istable(L, -2)) {
    lua_pushvalue(L, -2);
    for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
      if (lua_isstring(L, -2) == 0) continue;
      // setField turns a number key into text; on a copy, the traversal does not notice.
      lua_pushvalue(L, -2);
      lua_insert(L, -2);
      setField(L);
      lua_remove(L, -2);
    }
    lua_pop(L, 1);
  }
  Inited(L);
  return 0;
}

template <class T>
int BaseFB<T>::getField(lua_State* L) {
  std::size_t length = 0;
  const char* key = lua_tolstring(L, -1, &length);
  if (PushHostField(L, key, length)) return 1;
  WriteLuaValue(variables_.Find({key, length}).value, L);
  return 1;
}

template <class T>
int BaseFB<T>::setField(lua_State* L) {
  std::size_t length = 0;
  const char* key = lua_tolstring(L, -2, &length);
  const std::string_view name(key, length);
  if (name == "EnO") return 0;  // the enable output belongs to the host
  const auto store = [L](OpcUa_VariantHlp& value) {
    return ReadLuaValueOpcUaVariant(value, L, -1, static_cast<OpcUa_BuiltInType>(value.Datatype));
  };
  if (FBInput* settled = variables_.FindSettled(name)) return store(settled->value);
  const int results = store(variables_.Find(name).value);
  if (Declares(name)) return results;
  variables_.Settle(name);
  // The last step: it may collect, and a finalizer may destroy this very block.
  if (!T::IsKnownUndeclared(name)) {
    ReportUndeclared(L, -2, FBUtil<T>().typeName, T::GetMetaTable());
  }
  return results;
}

template <class T>
bool BaseFB<T>::GetBool(const std::string& name) {
  const OpcUa_VariantHlp& value = Find(name);
  switch (value.Datatype) {
    case OpcUaType_Boolean: return value.Value.Boolean != 0;
    case OpcUaType_SByte:
    case OpcUaType_Byte:
    case OpcUaType_Int16:
    case OpcUaType_UInt16:
    case OpcUaType_Int32:
    case OpcUaType_UInt32: return value.Value.UInt32 != 0;  // the whole slot counts
    case OpcUaType_Int64:
    case OpcUaType_UInt64: return value.Value.UInt64 != 0;
    case OpcUaType_Double: return value.Value.Double != 0.0;
    case OpcUaType_String: {
      const std::string text = GetString(name);
      return text == "true" || text == "True" || text == "TRUE";
    }
    default: return false;
  }
}

template <class T>
int BaseFB<T>::GetInt(const std::string& name) {
  const OpcUa_VariantHlp& value = Find(name);
  switch (value.Datatype) {
    case OpcUaType_Boolean: return value.Value.Boolean != 0 ? 1 : 0;
    case OpcUaType_SByte:
    case OpcUaType_Byte: return value.Value.Byte;
    case OpcUaType_Int16:
    case OpcUaType_UInt16: return value.Value.Int16;
    case OpcUaType_Int32:
    case OpcUaType_UInt32:
    case OpcUaType_Int64:
    case OpcUaType_UInt64: return value.Value.Int32;
    case OpcUaType_Double: {
      const double number = value.Value.Double;
      if (std::isnan(number)) return 0;
      constexpr double kMin = std::numeric_limits<int>::min();
      constexpr double kMax = std::numeric_limits<int>::max();
      return static_cast<int>(std::fmin(std::fmax(number, kMin), kMax));
    }
    case OpcUaType_String: {
      // Saturates on every machine, as strtol does where long has 32 bits.
      const long long number = std::strtoll(GetString(name).c_str(), nullptr, 10);
      return static_cast<int>(std::clamp<long long>(number, std::numeric_limits<int>::min(),
                                                    std::numeric_limits<int>::max()));
    }
    default: return 0;
  }
}

template <class T>
std::string BaseFB<T>::GetString(const std::string& name) {
  std::string text;
  Find(name).GetString(text);  // without a text form it stays empty
  return text;
}

template <class T>
double BaseFB<T>::GetReal(const std::string& name) {
  const OpcUa_VariantHlp& value = Find(name);
  switch (value.Datatype) {
    case OpcUaType_Boolean: return value.Value.Boolean != 0 ? 1 : 0;
    case OpcUaType_SByte: return value.Value.SByte;
    case OpcUaType_Byte: return value.Value.Byte;
    case OpcUaType_Int16: return value.Value.Int16;
    case OpcUaType_UInt16: return value.Value.UInt16;
    case OpcUaType_Int32: return value.Value.Int32;
    case OpcUaType_UInt32: return value.Value.UInt32;
    case OpcUaType_Int64: return static_cast<double>(value.Value.Int64);
    case OpcUaType_UInt64: return static_cast<double>(value.Value.UInt64);
    case OpcUaType_Float: return value.Value.Float;
    case OpcUaType_Double: return value.Value.Double;
    case OpcUaType_String: return NumberAtStart(GetString(name));
    default: return 0;
  }
}

template <class T>
std::optional<BlockTime> BaseFB<T>::GetTime(const std::string& name) {
  const OpcUa_VariantHlp& value = Find(name);
  if (value.Datatype != OpcUaType_DateTime) return std::nullopt;
  return FromDateTime(value.Value.DateTime);
}

template <class T>
std::string BaseFB<T>::MakeMetadata(const char* type_name) {
  std::ostringstream text;
  text << "TYPES.StandardFB." << type_name;
  text << "= FBMetadata({ Name = '" << type_name << "', Hash = 1001, \n";
  text << "Vars = \n";
  text << "\t{\n";
  const FBMetaEntry* entries = T::GetMetaTable();
  const char* separator = "";
  for (int i = 0; entries[i].name != nullptr; ++i) {
    if (IsHidden(entries[i])) continue;
    text << std::exchange(separator, ",\n");
    text << "\t\t" << entries[i].name << " = { Hash = " << i << ", Type = TYPES.Elementary."
         << entries[i].type << ", Retain = true }";
  }
  text << "\n\t}\n";
  text << "})\n";
  return text.str();
}
