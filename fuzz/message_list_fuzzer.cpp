// SPDX-License-Identifier: MIT
// READ_SMS with any octets for the answer to AT+CMGL: every listed index is deleted once, every
// message delivered, and the block returns to idle.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "addins/corvane_fb_lib/corvane_fb_lib.h"
#include "addins/corvane_fb_lib/read_sms.h"
#include "runtime/corvane/lua_environment.h"

// In place of the runtime's driver: every registration succeeds.
int ModemPortDriverRegister(int, void*, PortDriverPriorityFunction, PortDriverRequestFunction,
                            void*) {
  return 0;
}

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

lua_State* TheLuaState() {
  static const int registered = InitAddin();
  static const corvane::LuaEnvironment environment;
  Require(registered == 0);
  return environment.state();
}

/// A new block that stays on the Lua stack, with `Read` TRUE.
ReadSMSFB& NewBlock(lua_State* L) {
  lua_getglobal(L, "READ_SMS");
  lua_getfield(L, -1, "new");
  lua_createtable(L, 0, 1);
  lua_pushboolean(L, 1);
  lua_setfield(L, -2, "Read");
  lua_call(L, 1, 1);
  return *static_cast<ReadSMSFB*>(lua_touserdata(L, -1));
}

/// Whether the block's request is `expected`, or begins with it.
bool Asks(const ReadSMSFB& block, const char* expected) {
  static char buffer[kPortDriverRequestSize];
  PortDriverRequestData request{0, 0};
  PortDriverReplyFunction on_reply = nullptr;
  const int length = block.GetRequestImpl(buffer, &request, &on_reply);
  return length > 0 && std::strncmp(buffer, expected, std::strlen(expected)) == 0;
}

int Reply(ReadSMSFB& block, const std::uint8_t* data, std::size_t size) {
  std::vector<char> reply(data, data + size);
  return block.OnReplyImpl(reply.data(), static_cast<int>(size), 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::uint8_t kOk[] = {'O', 'K'};
  constexpr std::size_t kShortestEntry = 9;  // a prefix, a comma and a line feed
  lua_State* L = TheLuaState();
  ReadSMSFB& block = NewBlock(L);
  block.Execute();
  Require(Asks(block, "AT+CMGF=0\r") && Reply(block, kOk, sizeof kOk) == 1);
  Require(Asks(block, "AT+CMGL=0\r"));
  std::size_t deletes = 0;
  for (int open = Reply(block, data, size); open != 0; ++deletes) {
    Require(Asks(block, "AT+CMGD="));
    open = Reply(block, kOk, sizeof kOk);
  }
  Require(deletes <= size / kShortestEntry);
  for (std::size_t call = 0; call < 2 * deletes + 2; ++call) block.Execute();
  lua_settop(L, 0);
  return 0;
}
