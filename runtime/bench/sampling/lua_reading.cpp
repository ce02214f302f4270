// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/lua_reading.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <string_view>

#include "libs/base/printable.h"

namespace corvane::bench {
namespace {

template <class T>
bool Replace(Value& value, T now) {
  const T* const before = std::get_if<T>(&value);
  if (before != nullptr && *before == now) return false;
  value = std::move(now);
  return true;
}

bool ReplaceNumber(Value& value, double now) {
  const double* const before = std::get_if<double>(&value);
  if (before != nullptr && std::isnan(*before) && std::isnan(now)) return false;
  return Replace(value, now);
}

/// A text of many megabytes must not hold the cycle.
LongText Shortened(std::string_view text) {
  constexpr std::size_t kDigested = std::size_t{64} * 1024;
  const std::hash<std::string_view> hash;
  const std::size_t digest =
      hash(text.substr(0, kDigested)) + 31 * hash(text.substr(text.size() - kLongestText));
  return {std::string(WholeCharacters(text, kLongestText)), text.size(), digest};
}

bool ReplaceText(Value& value, std::string_view now) {
  if (now.size() > kLongestText) return Replace(value, Shortened(now));
  const auto* const before = std::get_if<std::string>(&value);
  if (before != nullptr && *before == now) return false;
  value = std::string(now);
  return true;
}

}  // namespace

bool Update(Value& value, lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TBOOLEAN: return Replace(value, lua_toboolean(L, index) != 0);
    case LUA_TNUMBER: return ReplaceNumber(value, lua_tonumber(L, index));
    case LUA_TSTRING: {
      std::size_t length = 0;
      const char* const text = lua_tolstring(L, index, &length);
      return ReplaceText(value, {text, length});
    }
    default: return Replace(value, std::monostate());
  }
}

void Push(lua_State* L, const Value& value) {
  if (const auto* boolean = std::get_if<bool>(&value)) {
    lua_pushboolean(L, *boolean ? 1 : 0);
  } else if (const auto* number = std::get_if<double>(&value)) {
    lua_pushnumber(L, *number);
  } else if (const auto* integer = std::get_if<std::int64_t>(&value)) {
    lua_pushnumber(L, static_cast<lua_Number>(*integer));
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    lua_pushlstring(L, text->data(), text->size());
  } else {
    lua_pushnil(L);
  }
}

std::string TypeProblem(int lua_type, const Value& value) {
  const bool is_number =
      std::holds_alternative<double>(value) || std::holds_alternative<std::int64_t>(value);
  switch (lua_type) {
    case LUA_TBOOLEAN:
      return std::holds_alternative<bool>(value) ? "" : "the variable takes TRUE or FALSE";
    case LUA_TNUMBER: return is_number ? "" : "the variable takes a number";
    case LUA_TSTRING:
      return std::holds_alternative<std::string>(value) ? "" : "the variable takes a text";
    default: return "the variable has gone";
  }
}

}  // namespace corvane::bench
