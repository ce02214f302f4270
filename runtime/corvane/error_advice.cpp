// SPDX-License-Identifier: MIT
#include "runtime/corvane/error_advice.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "block/declaration.h"

namespace corvane {
namespace {

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return upper;
}

/// NAME in `before`NAME`after`; empty if `message` does not end like that.
std::string_view NameBetween(std::string_view message, std::string_view before,
                             std::string_view after) {
  if (!message.ends_with(after)) return {};
  message.remove_suffix(after.size());
  const std::size_t found = message.rfind(before);
  return found == message.npos ? std::string_view() : message.substr(found + before.size());
}

/// Pushes the raw field `key` of the value on top, or nil if that is not a table.
void PushRawField(lua_State* L, const char* key) {
  if (!lua_istable(L, -1)) return lua_pushnil(L);
  lua_pushstring(L, key);
  lua_rawget(L, -2);
}

std::vector<std::string> BlockTypes(lua_State* L) {
  const int top = lua_gettop(L);
  std::vector<std::string> types;
  lua_pushglobaltable(L);
  PushRawField(L, "TYPES");
  PushRawField(L, "StandardFB");
  if (lua_istable(L, -1)) {
    for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
      if (lua_type(L, -2) == LUA_TSTRING) types.emplace_back(lua_tostring(L, -2));
    }
  }
  lua_settop(L, top);
  std::sort(types.begin(), types.end());  // so that of several equally near ones it is the same
  return types;
}

/// The block type that `name` is meant to be: capitals do not count, and one letter in four may be
/// wrong. More would make a variable without a value look like a block. Empty if there is none.
std::string MeantType(const std::vector<std::string>& types, std::string_view name) {
  constexpr std::size_t kCostOfLetter = 2;  // in NameDistance
  std::size_t least = name.size() / 4 * kCostOfLetter;
  std::string meant;
  for (const std::string& type : types) {
    const std::size_t distance = NameDistance(Upper(name), Upper(type));
    if (distance > least || (distance == least && !meant.empty())) continue;
    least = distance;
    meant = type;
  }
  return meant;
}

}  // namespace

std::string ErrorAdvice(lua_State* L, std::string_view message) {
  for (const char* before : {"attempt to index global '", "attempt to call global '"}) {
    const std::string_view name = NameBetween(message, before, "' (a nil value)");
    // MAIL_OUTBOX is in a package of its own, which may be missing where the program runs.
    if (name == "MAIL_OUTBOX") {
      return "; its add-in corvane_mail.so is not loaded: install corvane-mail";
    }
    const std::string meant = name.empty() ? "" : MeantType(BlockTypes(L), name);
    if (!meant.empty()) return "; did you mean '" + meant + "'?";
  }
  const std::string name(NameBetween(message, "attempt to call global '", "' (a table value)"));
  if (name.empty()) return "";
  const std::vector<std::string> types = BlockTypes(L);
  if (std::find(types.begin(), types.end(), name) == types.end()) return "";
  return "; " + name + ".new { ... } creates a block";
}

}  // namespace corvane
