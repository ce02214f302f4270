// SPDX-License-Identifier: MIT
// Conversion between Lua values and variants. No object with a destructor is alive when an
// error is raised, so it also works with a Lua that was compiled as C.
#include "share/lua_value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "runtime/corvaneshare/elementary_types.h"
#include "share/date_time.h"

namespace {

using corvane::kTicksPerSecond;
using corvane::kUnixEpochSeconds;
using corvane::kUnixEpochTicks;

const char* TypeName(OpcUa_BuiltInType type) {
  for (const auto& known : corvane::kElementaryTypes) {
    if (known.built_in == type) return known.name;
  }
  return "a variable";
}

/// The value as a message shows it: a long or binary text is not repeated whole. Every type takes
/// nil, so it is never refused.
const char* Describe(lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TBOOLEAN: return lua_toboolean(L, index) != 0 ? "true" : "false";
    case LUA_TNUMBER:
      lua_pushvalue(L, index);  // lua_tostring would turn the caller's value into a string
      return lua_tostring(L, -1);
    case LUA_TSTRING: {
      constexpr std::size_t kShown = 40;
      std::size_t length = 0;
      const char* text = lua_tolstring(L, index, &length);
      lua_pushlstring(L, text, std::min(length, kShown));
      return lua_pushfstring(L, length > kShown ? "the text \"%s...\"" : "the text \"%s\"",
                             lua_tostring(L, -1));
    }
    default: return lua_pushfstring(L, "a %s", luaL_typename(L, index));
  }
}

/// The variable's name and a separator for the beginning of a message: if the value was assigned to
/// a field, the name is below it on the stack.
const char* NamePrefix(lua_State* L, int index) {
  if (index < 2 || lua_type(L, index - 1) != LUA_TSTRING) return "";
  return lua_pushfstring(L, "%s: ", lua_tostring(L, index - 1));
}

/// Raises the Lua error of a refused assignment; `why` may add a reason.
int Refuse(lua_State* L, int index, OpcUa_BuiltInType type, const char* why) {
  index = lua_absindex(L, index);  // the texts of the message are pushed onto the stack
  return luaL_error(L, "%s%s cannot hold %s%s", NamePrefix(L, index), TypeName(type),
                    Describe(L, index), why);
}

bool IsTrueText(const char* text, std::size_t length) {
  for (const char* spelling : {"true", "True", "TRUE"}) {
    if (length == std::strlen(spelling) && std::memcmp(text, spelling, length) == 0) return true;
  }
  return false;
}

int ReadBoolean(OpcUa_VariantHlp& value, lua_State* L, int index) {
  bool result = false;
  switch (lua_type(L, index)) {
    case LUA_TNIL: break;
    case LUA_TBOOLEAN: result = lua_toboolean(L, index) != 0; break;
    case LUA_TNUMBER: result = lua_tonumber(L, index) != 0; break;
    case LUA_TSTRING: {
      std::size_t length = 0;
      const char* text = lua_tolstring(L, index, &length);
      result = IsTrueText(text, length);
      break;
    }
    default: return Refuse(L, index, OpcUaType_Boolean, "");
  }
  value.SetBoolean(result);
  return 0;
}

/// The value as a number, for integer and real types. Raises the Lua error for anything else.
double CheckNumber(lua_State* L, int index, OpcUa_BuiltInType type) {
  int is_number = 0;
  const double number = lua_tonumberx(L, index, &is_number);  // accepts a string that is a number
  if (is_number != 0) return number;
  if (lua_isboolean(L, index)) return lua_toboolean(L, index) != 0 ? 1 : 0;
  if (!lua_isnil(L, index)) Refuse(L, index, type, "");
  return 0;
}

template <class Integer>
int ReadInteger(OpcUa_VariantHlp& value, lua_State* L, int index, OpcUa_BuiltInType type,
                Integer OpcUa_VariantValue::*slot) {
  const double number = CheckNumber(L, index, type);
  // All bounds are exact as doubles: the upper one is the power of two above the maximum. A
  // fraction is cut off, so everything above the lowest number minus one fits. (At the bounds of 64
  // bits, doubles have no fraction, and that number is not a double.)
  constexpr auto kLowest = static_cast<double>(std::numeric_limits<Integer>::min());
  constexpr Integer kHalf = std::numeric_limits<Integer>::max() / 2 + 1;
  constexpr double kBeyond = 2.0 * static_cast<double>(kHalf);
  constexpr double kBelow = kLowest - 1;
  const bool high_enough = kBelow == kLowest ? number >= kLowest : number > kBelow;
  if (!(high_enough && number < kBeyond)) {  // NaN fails both
    return Refuse(L, index, type, ": out of range");
  }
  value.Reset(type);
  value.Value.*slot = static_cast<Integer>(number);
  return 0;
}

int ReadReal(OpcUa_VariantHlp& value, lua_State* L, int index, OpcUa_BuiltInType type) {
  const double number = CheckNumber(L, index, type);
  if (type == OpcUaType_Double) {
    value.Reset(type);
    value.Value.Double = number;
    return 0;
  }
  if (std::isfinite(number) && std::abs(number) > std::numeric_limits<float>::max()) {
    return Refuse(L, index, type, ": out of range");
  }
  value.Reset(type);
  value.Value.Float = static_cast<float>(number);
  return 0;
}

int StoreText(OpcUa_VariantHlp& value, lua_State* L, const char* text, std::size_t length) {
  OpcUa_Variant before = value;  // bit for bit: put back, or released when the new text is there
  OpcUa_Variant_Initialize(&value);
  if (OpcUa_IsBad(value.SetString(text, length))) {
    static_cast<OpcUa_Variant&>(value) = before;
    return luaL_error(L, "out of memory for a text of %f bytes", static_cast<double>(length));
  }
  OpcUa_Variant_Clear(&before);
  return 0;
}

/// A number in full: integral ones never in exponent form, others with as many digits as they need.
std::size_t FormatNumber(double number, char* out, std::size_t size) {
  const auto format = number == std::trunc(number) && std::isfinite(number)
                          ? std::chars_format::fixed
                          : std::chars_format::general;
  if (number == 0) number = 0;  // no "-0"
  const auto result = std::to_chars(out, out + size, number, format);
  return static_cast<std::size_t>(result.ptr - out);
}

int ReadString(OpcUa_VariantHlp& value, lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TNIL: return StoreText(value, L, "", 0);
    case LUA_TBOOLEAN: {
      const char* text = lua_toboolean(L, index) != 0 ? "true" : "false";
      return StoreText(value, L, text, std::strlen(text));
    }
    case LUA_TNUMBER: {
      char text[std::numeric_limits<double>::max_exponent10 + 16];
      return StoreText(value, L, text, FormatNumber(lua_tonumber(L, index), text, sizeof text));
    }
    case LUA_TSTRING: {
      std::size_t length = 0;
      const char* text = lua_tolstring(L, index, &length);
      return StoreText(value, L, text, length);
    }
    default: return Refuse(L, index, OpcUaType_String, "");
  }
}

int ReadDateTime(OpcUa_VariantHlp& value, lua_State* L, int index) {
  if (lua_isnil(L, index)) {
    value.SetDateTime(0);
    return 0;
  }
  if (lua_type(L, index) != LUA_TNUMBER) return Refuse(L, index, OpcUaType_DateTime, "");
  const double seconds = lua_tonumber(L, index);
  constexpr std::int64_t kLastSecond =
      std::numeric_limits<std::int64_t>::max() / kTicksPerSecond - kUnixEpochSeconds - 1;
  constexpr auto kFirst = -static_cast<double>(kUnixEpochSeconds);
  constexpr auto kLast = static_cast<double>(kLastSecond);
  if (!(seconds >= kFirst && seconds <= kLast)) {
    return Refuse(L, index, OpcUaType_DateTime, ": dates begin in the year 1601");
  }
  const double whole = std::floor(seconds);  // separately, since the ticks need more than 53 bits
  const auto ticks = static_cast<std::int64_t>(whole) * kTicksPerSecond +
                     std::llround((seconds - whole) * static_cast<double>(kTicksPerSecond));
  value.SetDateTime(ticks + kUnixEpochTicks);
  return 0;
}

/// An undeclared variable gets the type of the value that is assigned to it.
int ReadUndeclared(OpcUa_VariantHlp& value, lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TNIL: value.Reset(OpcUaType_Null); return 0;
    case LUA_TBOOLEAN: return ReadBoolean(value, L, index);
    case LUA_TSTRING: return ReadString(value, L, index);
    case LUA_TNUMBER: {
      const double number = lua_tonumber(L, index);
      const bool is_int32 = number == std::trunc(number) &&
                            number >= std::numeric_limits<std::int32_t>::min() &&
                            number <= std::numeric_limits<std::int32_t>::max();
      if (!is_int32) return ReadReal(value, L, index, OpcUaType_Double);
      value.SetInt32(static_cast<OpcUa_Int32>(number));
      return 0;
    }
    default: return Refuse(L, index, OpcUaType_Null, "");
  }
}

/// Bytes that PushCopied pushes.
struct Bytes {
  const char* data;
  std::size_t length;
};

int PushCopied(lua_State* L) {
  const auto& bytes = *static_cast<const Bytes*>(lua_touserdata(L, 1));
  lua_pushlstring(L, bytes.data, bytes.length);
  return 1;
}

/// Pushes the text of a variable. Lua may collect garbage before it copies, and a finalizer may
/// assign to this very variable; so Lua must not copy from the variable's own memory.
void PushText(lua_State* L, const char* text, std::size_t length) {
  char near_copy[512];
  if (length <= sizeof near_copy) {
    std::memcpy(near_copy, text, length);
    lua_pushlstring(L, near_copy, length);
    return;
  }
  char* far_copy = static_cast<char*>(std::malloc(length));
  if (far_copy == nullptr) {
    luaL_error(L, "out of memory for a text of %f bytes", static_cast<double>(length));
    return;  // not reached: luaL_error does not return
  }
  std::memcpy(far_copy, text, length);
  Bytes bytes{far_copy, length};
  lua_pushcfunction(L, PushCopied);
  lua_pushlightuserdata(L, &bytes);
  const int status = lua_pcall(L, 1, 1, 0);
  std::free(far_copy);
  if (status != LUA_OK) lua_error(L);
}

double SecondsSince1970(OpcUa_DateTime ticks) {
  if (ticks == 0) return 0;  // the null time
  const std::int64_t since_1970 = ticks - kUnixEpochTicks;
  const std::int64_t whole = since_1970 / kTicksPerSecond;
  const std::int64_t rest = since_1970 % kTicksPerSecond;
  return static_cast<double>(whole) +
         static_cast<double>(rest) / static_cast<double>(kTicksPerSecond);
}

}  // namespace

int ReadLuaValueOpcUaVariant(OpcUa_VariantHlp& value, lua_State* L, int index,
                             OpcUa_BuiltInType type) {
  using Slots = OpcUa_VariantValue;
  switch (type) {
    case OpcUaType_Null: return ReadUndeclared(value, L, index);
    case OpcUaType_Boolean: return ReadBoolean(value, L, index);
    case OpcUaType_SByte: return ReadInteger(value, L, index, type, &Slots::SByte);
    case OpcUaType_Byte: return ReadInteger(value, L, index, type, &Slots::Byte);
    case OpcUaType_Int16: return ReadInteger(value, L, index, type, &Slots::Int16);
    case OpcUaType_UInt16: return ReadInteger(value, L, index, type, &Slots::UInt16);
    case OpcUaType_Int32: return ReadInteger(value, L, index, type, &Slots::Int32);
    case OpcUaType_UInt32: return ReadInteger(value, L, index, type, &Slots::UInt32);
    case OpcUaType_Int64: return ReadInteger(value, L, index, type, &Slots::Int64);
    case OpcUaType_UInt64: return ReadInteger(value, L, index, type, &Slots::UInt64);
    case OpcUaType_Float:
    case OpcUaType_Double: return ReadReal(value, L, index, type);
    case OpcUaType_String: return ReadString(value, L, index);
    case OpcUaType_DateTime: return ReadDateTime(value, L, index);
    default: return Refuse(L, index, type, "");
  }
}

int WriteLuaValue(const OpcUa_Variant& value, lua_State* L) {
  const OpcUa_VariantValue& v = value.Value;
  if (value.ArrayType != OpcUa_VariantArrayType_Scalar) {
    lua_pushnil(L);
    return 1;
  }
  switch (value.Datatype) {
    case OpcUaType_Boolean: lua_pushboolean(L, v.Boolean != 0 ? 1 : 0); break;
    case OpcUaType_SByte: lua_pushnumber(L, v.SByte); break;
    case OpcUaType_Byte: lua_pushnumber(L, v.Byte); break;
    case OpcUaType_Int16: lua_pushnumber(L, v.Int16); break;
    case OpcUaType_UInt16: lua_pushnumber(L, v.UInt16); break;
    case OpcUaType_Int32: lua_pushnumber(L, v.Int32); break;
    case OpcUaType_UInt32: lua_pushnumber(L, v.UInt32); break;
    case OpcUaType_Int64: lua_pushnumber(L, static_cast<double>(v.Int64)); break;
    case OpcUaType_UInt64: lua_pushnumber(L, static_cast<double>(v.UInt64)); break;
    case OpcUaType_Float: lua_pushnumber(L, static_cast<double>(v.Float)); break;
    case OpcUaType_Double: lua_pushnumber(L, v.Double); break;
    case OpcUaType_String: {
      const char* text = OpcUa_String_GetRawString(&v.String);
      PushText(L, text == nullptr ? "" : text, OpcUa_String_StrLen(&v.String));
      break;
    }
    case OpcUaType_DateTime: lua_pushnumber(L, SecondsSince1970(v.DateTime)); break;
    default: lua_pushnil(L); break;
  }
  return 1;
}
