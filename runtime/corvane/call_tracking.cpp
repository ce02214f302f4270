// SPDX-License-Identifier: MIT
#include "runtime/corvane/call_tracking.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <utility>

#include "runtime/corvane/st_library.h"

namespace corvane {
namespace {

std::atomic<const char*> current_call{nullptr};
std::atomic<bool> position_noted{false};
std::atomic<int> notes_left{kNotedCalls};

/// Plain memory, since storing it must neither fail nor allocate.
struct Position {
  std::mutex mutex;
  std::array<char, LUA_IDSIZE> source{};
  int line = 0;
};
Position position;

/// Finds the nearest Lua function from `level` up. False: there is none.
bool FindLuaFunction(lua_State* L, int level, lua_Debug& found) {
  for (; lua_getstack(L, level, &found) != 0; ++level) {
    lua_getinfo(L, "Sl", &found);
    if (found.currentline > 0) return true;
  }
  return false;
}

void NotePosition(lua_State* L) {
  lua_Debug caller{};
  const bool found = FindLuaFunction(L, 1, caller);
  const std::lock_guard guard(position.mutex);
  position.line = found ? caller.currentline : 0;
  std::copy(std::begin(caller.short_src), std::end(caller.short_src), position.source.begin());
}

struct Slot {
  const char* type = nullptr;
  lua_CFunction call = nullptr;
};
constexpr std::size_t kSlots = 64;  // further types are called untracked
std::array<Slot, kSlots> slots;

/// The `__call` of the slot's type, recorded while it lasts. A separate function for each type
/// costs less than looking the type up.
template <std::size_t Number>
int CallTracked(lua_State* L) {
  const char* const former = EnterCall(L, slots[Number].type);
  const int results = slots[Number].call(L);
  LeaveCall(former);
  return results;
}

template <std::size_t... Numbers>
constexpr std::array<lua_CFunction, kSlots> MakeCalls(std::index_sequence<Numbers...>) {
  return {CallTracked<Numbers>...};
}
constexpr auto kCalls = MakeCalls(std::make_index_sequence<kSlots>());

/// Replaces the C function `key` of the table on top with the tracked one. A function with upvalues
/// stays, since it needs them where Lua puts them.
void Replace(lua_State* L, const char* key, std::size_t number) {
  lua_pushstring(L, key);
  lua_rawget(L, -2);
  const lua_CFunction call = lua_tocfunction(L, -1);
  const bool plain = call != nullptr && lua_getupvalue(L, -1, 1) == nullptr;
  lua_settop(L, 1);
  if (!plain || call == kCalls[number]) return;
  slots[number] = {RegisteredStLibraries()[number].name.c_str(), call};
  lua_pushstring(L, key);
  lua_pushcfunction(L, kCalls[number]);
  lua_rawset(L, 1);
}

}  // namespace

std::string LuaPosition(lua_State* L, int level) {
  lua_Debug function{};
  if (!FindLuaFunction(L, level, function)) return {};
  return fmt::format("{}:{}", static_cast<const char*>(function.short_src), function.currentline);
}

void TrackBlockCalls(lua_State* L) {
  const std::size_t types = std::min(RegisteredStLibraries().size(), kSlots);
  for (std::size_t number = 0; number < types; ++number) {
    const char* type = RegisteredStLibraries()[number].name.c_str();
    lua_settop(L, 0);
    luaL_getmetatable(L, type);
    if (lua_istable(L, 1)) Replace(L, "__call", number);
    lua_settop(L, 0);
    lua_getglobal(L, type);
    if (lua_istable(L, 1)) Replace(L, "call", number);
  }
  lua_settop(L, 0);
}

void StartCycle() {
  current_call = nullptr;
  notes_left = kNotedCalls;
}

std::optional<TrackedCall> CurrentCall() {
  const char* what = current_call;
  if (what == nullptr) return std::nullopt;
  TrackedCall call{what, {}};
  const std::lock_guard guard(position.mutex);
  if (position_noted && position.line > 0) {
    call.where = fmt::format("{}:{}", position.source.data(), position.line);
  }
  return call;
}

const char* EnterCall(lua_State* L, const char* what) {
  const int left = notes_left.load(std::memory_order_relaxed);
  if (left > 0) {
    notes_left.store(left - 1, std::memory_order_relaxed);
    NotePosition(L);
  }
  position_noted.store(left > 0, std::memory_order_relaxed);
  const char* const former = current_call.load(std::memory_order_relaxed);
  current_call.store(what, std::memory_order_release);
  return former;
}

void LeaveCall(const char* former) {
  current_call.store(former, std::memory_order_relaxed);
}

}  // namespace corvane
