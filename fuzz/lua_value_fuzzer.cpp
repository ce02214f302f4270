// SPDX-License-Identifier: MIT
// Assignments to one variable, read from the input one after the other: a type, then a Lua value.
// An accepted value reads back as a simpler rule for the type says, and the value read back,
// assigned again, results in an equal variable. A refused value changes nothing, and the error has
// its name and type.
#include "share/lua_value.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "fuzz/require.h"

namespace {

/// Which numbers a type accepts: none, whole ones of a given number of bits, or any.
enum class Kind { kUndeclared, kBoolean, kSigned, kUnsigned, kReal, kString, kTime, kNone };

struct Type {
  OpcUa_BuiltInType built_in;
  const char* name;
  Kind kind;
  int bits = 0;
};

constexpr std::array<Type, 15> kTypes{{
    {OpcUaType_Null, "a variable", Kind::kUndeclared},
    {OpcUaType_Boolean, "BOOL", Kind::kBoolean},
    {OpcUaType_SByte, "SINT", Kind::kSigned, 8},
    {OpcUaType_Byte, "USINT", Kind::kUnsigned, 8},
    {OpcUaType_Int16, "INT", Kind::kSigned, 16},
    {OpcUaType_UInt16, "UINT", Kind::kUnsigned, 16},
    {OpcUaType_Int32, "DINT", Kind::kSigned, 32},
    {OpcUaType_UInt32, "UDINT", Kind::kUnsigned, 32},
    {OpcUaType_Int64, "LINT", Kind::kSigned, 64},
    {OpcUaType_UInt64, "ULINT", Kind::kUnsigned, 64},
    {OpcUaType_Float, "REAL", Kind::kReal, 32},
    {OpcUaType_Double, "LREAL", Kind::kReal, 64},
    {OpcUaType_String, "STRING", Kind::kString},
    {OpcUaType_DateTime, "DATE_AND_TIME", Kind::kTime},
    {OpcUaType_Guid, "a variable", Kind::kNone},
}};

/// The input from its front; zeros after its end.
class Input {
 public:
  explicit Input(std::string_view left) : left_(left) {}
  [[nodiscard]] bool empty() const { return left_.empty(); }
  unsigned char Octet() {
    const std::string_view octet = Take(1);
    return octet.empty() ? 0 : static_cast<unsigned char>(octet.front());
  }
  double Number() {
    double number = 0;
    const std::string_view octets = Take(sizeof number);
    std::memcpy(&number, octets.data(), octets.size());
    return number;
  }
  std::string_view Text() { return Take(Octet()); }

 private:
  std::string_view Take(std::size_t count) {
    const std::string_view taken = left_.substr(0, count);
    left_.remove_prefix(taken.size());
    return taken;
  }
  std::string_view left_;
};

/// Pushes a Lua value of any type that a program can have.
void PushValue(lua_State* L, Input& input) {
  switch (input.Octet() % 10) {
    case 0: return lua_pushnil(L);
    case 1: return lua_pushboolean(L, 0);
    case 2: return lua_pushboolean(L, 1);
    case 3: return lua_pushnumber(L, static_cast<signed char>(input.Octet()));
    case 4: return lua_pushnumber(L, input.Number());
    case 5: {  // close to a power of two, where the types end
      const double power = std::ldexp(1, input.Octet() % 66);
      const double number = power + static_cast<signed char>(input.Octet()) / 4.0;
      return lua_pushnumber(L, input.Octet() % 2 == 0 ? number : -number);
    }
    case 6: {
      const std::string_view text = input.Text();
      lua_pushlstring(L, text.data(), text.size());
      return;
    }
    case 7: return lua_createtable(L, 0, 0);
    case 8: return lua_pushcfunction(L, [](lua_State*) { return 0; });
    default: return lua_pushlightuserdata(L, L);
  }
}

bool IsText(const OpcUa_VariantHlp& value) {
  return value.Datatype == OpcUaType_String;
}

std::string_view TextOf(const OpcUa_VariantHlp& value) {
  return {value.Value.String.Content, value.Value.String.Length};
}

/// The same type and the same bits; for texts, the same octets.
bool Equal(const OpcUa_VariantHlp& a, const OpcUa_VariantHlp& b) {
  if (a.Datatype != b.Datatype || a.ArrayType != b.ArrayType) return false;
  return IsText(a) ? TextOf(a) == TextOf(b) : std::memcmp(&a.Value, &b.Value, sizeof a.Value) == 0;
}

/// Assigns the Lua value on top of the stack, which stays there, to a variable called "Speed".
/// Returns false if it is refused; then the message is on the stack, too.
bool Assign(lua_State* L, OpcUa_VariantHlp& value, OpcUa_BuiltInType type) {
  struct Target {
    OpcUa_VariantHlp& value;
    OpcUa_BuiltInType type;
  } target{value, type};
  const int top = lua_gettop(L);
  lua_pushcfunction(L, [](lua_State* state) {
    auto& to = *static_cast<Target*>(lua_touserdata(state, 1));
    const int results = ReadLuaValueOpcUaVariant(to.value, state, -1, to.type);
    Require(lua_gettop(state) == 3);
    return results;
  });
  lua_pushlightuserdata(L, &target);
  lua_pushliteral(L, "Speed");
  lua_pushvalue(L, top);
  const bool accepted = lua_pcall(L, 3, 0, 0) == LUA_OK;
  Require(lua_gettop(L) == (accepted ? top : top + 1));
  return accepted;
}

bool IsNumberIn(double number, double first, double beyond) {
  return number >= first && number < beyond;
}

/// Whether the type accepts the Lua value on top of the stack.
bool IsAcceptable(lua_State* L, const Type& type) {
  const int lua_type = ::lua_type(L, -1);
  if (type.kind == Kind::kNone || lua_type == LUA_TTABLE || lua_type == LUA_TFUNCTION ||
      lua_type == LUA_TLIGHTUSERDATA) {
    return false;
  }
  if (lua_type == LUA_TNIL) return true;
  const bool is_number = lua_isnumber(L, -1) != 0;  // or a text that reads as one
  const double number = lua_type == LUA_TBOOLEAN ? lua_toboolean(L, -1) : lua_tonumber(L, -1);
  const bool counts = is_number || lua_type == LUA_TBOOLEAN;
  switch (type.kind) {
    case Kind::kSigned: {
      const double beyond = std::ldexp(1, type.bits - 1);
      return counts && IsNumberIn(std::trunc(number), -beyond, beyond);
    }
    case Kind::kUnsigned:
      return counts && IsNumberIn(std::trunc(number), 0, std::ldexp(1, type.bits));
    case Kind::kReal:
      return counts && (type.bits == 64 || !std::isfinite(number) ||
                        std::abs(number) <= std::numeric_limits<float>::max());
    case Kind::kTime:  // from 1601 as far as 63 bits of ticks reach
      return lua_type == LUA_TNUMBER && number >= -11644473600.0 && number <= 910692730084.0;
    default: return true;
  }
}

/// A number as text: nothing is lost, and whole numbers are all digits.
void CheckDigits(double number, const std::string& text) {
  if (!std::isfinite(number)) return;
  char* end = nullptr;
  Require(std::strtod(text.c_str(), &end) == number && *end == '\0');
  if (number == std::trunc(number)) {
    Require(text.find_first_not_of("-0123456789") == std::string::npos);
  }
}

void CheckText(lua_State* L, std::string_view stored) {
  switch (lua_type(L, -2)) {
    case LUA_TNIL: return Require(stored.empty());
    case LUA_TBOOLEAN: return Require(stored == (lua_toboolean(L, -2) != 0 ? "true" : "false"));
    case LUA_TNUMBER: return CheckDigits(lua_tonumber(L, -2), std::string(stored));
    default: {
      std::size_t length = 0;
      const char* text = lua_tolstring(L, -2, &length);
      Require(stored == std::string_view(text, length));
    }
  }
}

bool IsTrue(lua_State* L, int index) {
  if (lua_type(L, index) == LUA_TNUMBER) return lua_tonumber(L, index) != 0;
  if (lua_type(L, index) != LUA_TSTRING) return lua_toboolean(L, index) != 0;
  std::size_t length = 0;
  const char* text = lua_tolstring(L, index, &length);
  const std::string_view view(text, length);
  return view == "true" || view == "True" || view == "TRUE";
}

void CheckNumber(const Type& type, double given, double read) {
  if (std::isnan(given)) return Require(std::isnan(read));
  switch (type.kind) {
    case Kind::kReal:
      return Require(read ==
                     (type.bits == 64 ? given : static_cast<double>(static_cast<float>(given))));
    case Kind::kTime:  // off by one tick at most, plus the rounding of a double of this size
      return Require(std::abs(read - given) <= 1e-7 + std::abs(given) * std::ldexp(1, -52));
    default: return Require(read == std::trunc(given));
  }
}

/// The type that an undeclared variable gets.
const Type& TypeOfValue(lua_State* L, int index) {
  const double number = lua_tonumber(L, index);
  switch (lua_type(L, index)) {
    case LUA_TBOOLEAN: return kTypes[OpcUaType_Boolean];
    case LUA_TSTRING: return kTypes[OpcUaType_String];
    case LUA_TNUMBER:
      return kTypes[number == std::trunc(number) && std::abs(number + 0.5) < 2147483648.0
                        ? OpcUaType_Int32
                        : OpcUaType_Double];
    default: return kTypes[OpcUaType_Null];
  }
}

/// The assigned value is on the stack, with the value read back above it.
void CheckReading(lua_State* L, const Type& type, const OpcUa_VariantHlp& value) {
  const bool null_time = type.kind == Kind::kTime && value.Value.DateTime == 0;
  switch (type.kind) {
    case Kind::kUndeclared: return Require(lua_isnil(L, -1));
    case Kind::kBoolean:
      return Require(lua_isboolean(L, -1) && (lua_toboolean(L, -1) != 0) == IsTrue(L, -2));
    case Kind::kString: Require(lua_type(L, -1) == LUA_TSTRING); return CheckText(L, TextOf(value));
    default: break;
  }
  Require(lua_type(L, -1) == LUA_TNUMBER);
  const double read = lua_tonumber(L, -1);
  if (null_time) return Require(read == 0);
  const double given = lua_isboolean(L, -2) ? lua_toboolean(L, -2) : lua_tonumber(L, -2);
  CheckNumber(type, given, read);
}

void CheckAccepted(lua_State* L, const Type& declared, const OpcUa_VariantHlp& value) {
  const Type& type = declared.kind == Kind::kUndeclared ? TypeOfValue(L, -1) : declared;
  Require(value.Datatype == type.built_in);
  const int top = lua_gettop(L);
  Require(WriteLuaValue(value, L) == 1 && lua_gettop(L) == top + 1);
  CheckReading(L, type, value);
  OpcUa_VariantHlp again;
  Require(Assign(L, again, declared.built_in));
  const bool null_time = type.kind == Kind::kTime && value.Value.DateTime == 0;  // reads as 1970
  Require(null_time || Equal(value, again));
  const OpcUa_VariantHlp copy(value);
  Require(Equal(copy, value));
  lua_pop(L, 1);
}

void CheckRefused(lua_State* L, const Type& type, const OpcUa_VariantHlp& value,
                  const OpcUa_VariantHlp& before, const void* text_before) {
  Require(Equal(value, before) && (!IsText(value) || value.Value.String.Content == text_before));
  std::size_t length = 0;
  const char* text = lua_tolstring(L, -1, &length);
  const std::string expected = std::string("Speed: ") + type.name + " cannot hold ";
  Require(std::string_view(text, length).starts_with(expected) && length < 150);
  lua_pop(L, 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static lua_State* const L = luaL_newstate();
  const std::string octets(data, data + size);
  Input input(octets);
  OpcUa_VariantHlp value;
  while (!input.empty()) {
    const Type& type = kTypes[input.Octet() % kTypes.size()];
    PushValue(L, input);
    const OpcUa_VariantHlp before(value);
    const void* const text_before = value.Value.String.Content;
    const bool acceptable = IsAcceptable(L, type);
    const bool accepted = Assign(L, value, type.built_in);
    Require(accepted == acceptable);
    if (accepted) {
      CheckAccepted(L, type, value);
    } else {
      CheckRefused(L, type, value, before, text_before);
    }
    lua_settop(L, 0);
  }
  return 0;
}
