// SPDX-License-Identifier: MIT
// StrictFB<T>: a block that has only its declared variables, and tells inputs from outputs.
// Threads: as BaseFB.
#pragma once

#include <cstdio>

#include "block/base_fb.h"
#include "block/program_line.h"
#include "share/log.h"

/// Octets of a name that messages show.
inline constexpr int kShownNameOctets = 60;

/// Raises the Lua error about a name that the block type does not declare; it suggests the nearest
/// one of the table. @return never
inline int RaiseUnknownName(lua_State* L, const char* type_name, const FBMetaEntry* table,
                            const char* name) {
  char message[256];
  const char* nearest = NearestName(table, name);
  if (nearest == nullptr) {
    std::snprintf(message, sizeof message, "%s has no variable '%.*s'", type_name, kShownNameOctets,
                  name);
  } else {
    std::snprintf(message, sizeof message, "%s has no variable '%.*s'; did you mean '%s'?",
                  type_name, kShownNameOctets, name, nearest);
  }
  return RaiseAtProgramLine(L, message);
}

/// Raises the Lua error about an assignment to an output. @return never
inline int RaiseOutputAssigned(lua_State* L, const char* type_name, const char* name) {
  char message[256];
  std::snprintf(message, sizeof message, "%s: '%s' is an output; only the block sets it", type_name,
                name);
  return RaiseAtProgramLine(L, message);
}

/// Raises the Lua error about the key at `index` of a table of initial values if it is not
/// a string, as the value of `new{ 1 }` has.
inline void CheckInitialKey(lua_State* L, int index, const char* type_name) {
  if (lua_type(L, index) == LUA_TSTRING) return;
  char message[256];
  if (lua_type(L, index) == LUA_TNUMBER) {
    std::snprintf(message, sizeof message,
                  "%s has no variable '%.14g'; each initial value needs a name", type_name,
                  lua_tonumber(L, index));
  } else {
    std::snprintf(message, sizeof message,
                  "%s: the name of an initial value must be a string, not a %s", type_name,
                  luaL_typename(L, index));
  }
  RaiseAtProgramLine(L, message);
}

/// Logs that the program sets inputs of a block that it does not call.
inline void WarnOfForgottenCall(lua_State* L, const char* type_name, int times) {
  lua_Debug record;
  const bool is_known = FindProgramLine(L, &record);
  logMsg(
      "%s:%d: the inputs of this %s have been set %d times without a call; a block works only when "
      "it is called: call it in each cycle",
      is_known ? record.short_src : "?", is_known ? record.currentline : 0, type_name, times);
}

/// As BaseFB, but a program that reads or assigns a name that is not declared gets a Lua error
/// which names the nearest one, and one that assigns an output gets a Lua error; both also in the
/// table of `new`. `EnO` and `__Internal` are as in BaseFB. The block's own code is not checked.
///
/// @tparam T the block class; the rows of its table state direction and meaning
template <class T>
class StrictFB : public BaseFB<T> {
 public:
  static constexpr bool kStatesDirections = true;  ///< its table does
  using BaseFB<T>::BaseFB;

  /// Inputs set without a call in between that make a warning, one for each block.
  static constexpr int kForgottenCall = 100;

  /// To be called whenever the program has set an input.
  void NoteInput(lua_State* L) {
    if (inputs_since_call_ == kForgottenCall || ++inputs_since_call_ < kForgottenCall) return;
    WarnOfForgottenCall(L, FBUtil<T>().typeName, kForgottenCall);
  }
  /// To be called whenever the program calls the block.
  void NoteCall() {
    if (inputs_since_call_ < kForgottenCall) inputs_since_call_ = 0;
  }

  /// As BaseFB::Init; a key that is not a string is a Lua error.
  int Init(lua_State* L) override {
    if (lua_istable(L, -2)) {
      const int table = lua_absindex(L, -2);
      for (lua_pushnil(L); lua_next(L, table) != 0; lua_pop(L, 1)) {
        CheckInitialKey(L, -2, FBUtil<T>().typeName);
      }
    }
    return BaseFB<T>::Init(L);
  }

  /// `__index`, name at -1: pushes the variable's value.
  int getField(lua_State* L) override {
    std::size_t length = 0;
    const char* key = lua_tolstring(L, -1, &length);
    if (this->PushHostField(L, key, length)) return 1;
    const FBInput* variable = FindVisible({key, length});
    if (variable != nullptr) return WriteLuaValue(variable->value, L);
    return RaiseUnknownName(L, FBUtil<T>().typeName, T::GetMetaTable(), key);
  }

  /// `__newindex`, name at -2, value at -1: stores it, converted to the variable's type.
  int setField(lua_State* L) override {
    std::size_t length = 0;
    const char* key = lua_tolstring(L, -2, &length);
    if (std::string_view(key, length) == "EnO") return 0;  // the enable output belongs to the host
    FBInput* variable = FindVisible({key, length});
    if (variable == nullptr) {
      return RaiseUnknownName(L, FBUtil<T>().typeName, T::GetMetaTable(), key);
    }
    if (variable->declared->direction == FBDirection::kOutput) {
      return RaiseOutputAssigned(L, FBUtil<T>().typeName, variable->declared->name);
    }
    return ReadLuaValueOpcUaVariant(variable->value, L, -1,
                                    static_cast<OpcUa_BuiltInType>(variable->value.Datatype));
  }

 protected:
  /// Gives every declared output the null value of its type.
  void ClearOutputs() {
    for (const FBMetaEntry* row = T::GetMetaTable(); row->name != nullptr; ++row) {
      if (row->direction == FBDirection::kOutput) this->ClearVariable(*row);
    }
  }

 private:
  int inputs_since_call_ = 0;

  /// The declared variable of this name if programs see it, otherwise null.
  FBInput* FindVisible(std::string_view name) {
    FBInput* variable = this->FindDeclared(name);
    return variable != nullptr && !IsHidden(*variable->declared) ? variable : nullptr;
  }
};
