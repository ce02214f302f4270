// SPDX-License-Identifier: MIT
#include "runtime/program_test/deadline.h"

#include "runtime/corvane/duration.h"

namespace corvane::program_test {
namespace {

// Instructions between two looks at the clock. Primes: a short loop with a pcall in it is then not
// always interrupted at the same place, which may be inside of the pcall.
constexpr int kAtFirst = 10'007;
constexpr int kOnceOver = 997;  // a message handler has done its work by then

std::chrono::steady_clock::time_point deadline;
std::chrono::milliseconds allowed;
const char kWhat = 0;  // its address is a key in the registry

void Look(lua_State* L, lua_Debug* record) {
  if (std::chrono::steady_clock::now() < deadline) return;
  lua_sethook(L, Look, LUA_MASKCOUNT, kOnceOver);
  lua_getinfo(L, "Sl", record);
  // In a function of ours, the place is where a file called it.
  for (int level = 1; record->source[0] != '@' && lua_getstack(L, level, record) != 0; ++level) {
    lua_getinfo(L, "Sl", record);
  }
  lua_rawgetp(L, LUA_REGISTRYINDEX, &kWhat);
  luaL_error(L, "%s:%d: %s does not end: the test has taken %s (--timeout)", record->short_src,
             record->currentline, lua_tostring(L, -1), FormatDuration(allowed).c_str());
}

}  // namespace

void SetDeadline(std::chrono::milliseconds time) {
  allowed = time;
  deadline = std::chrono::steady_clock::now() + time;
}

void EndAtDeadline(lua_State* L, const char* what) {
  lua_pushstring(L, what);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &kWhat);
  lua_sethook(L, Look, LUA_MASKCOUNT, kAtFirst);
}

}  // namespace corvane::program_test
