// SPDX-License-Identifier: MIT
// READ_SMS with any octets as the answer to AT+CMGL: the messages that it deletes and delivers are
// those that a simpler reader of the list finds, in the same order, and the block returns to idle.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_fb_lib/corvane_fb_lib.h"
#include "addins/corvane_fb_lib/read_sms.h"
#include "fuzz/require.h"
#include "runtime/corvane/lua_environment.h"

// In place of the runtime's driver: every registration succeeds.
int ModemPortDriverRegister(int, void*, PortDriverPriorityFunction, PortDriverRequestFunction,
                            void*) {
  return 0;
}

namespace {

using sms::SMSDelivered;

struct Entry {
  unsigned char index;
  std::string pdu;
};

/// The entries of a list; up to its "OK", or an entry without comma or line feed.
std::vector<Entry> EntriesOf(std::string list) {
  constexpr std::size_t kPrefixLength = 7;  // "+CMGL: "
  std::vector<Entry> entries;
  while (!list.empty() && !list.starts_with("OK")) {
    const std::size_t comma = list.find(',', kPrefixLength);
    if (comma == std::string::npos || list.find('\n', comma) == std::string::npos) break;
    const std::string index = list.substr(kPrefixLength, comma - kPrefixLength);
    list.erase(0, list.find('\n', comma) + 1);
    entries.push_back({static_cast<unsigned char>(std::strtoll(index.c_str(), nullptr, 10)),
                       list.substr(0, list.find('\r'))});
    list.erase(0, entries.back().pdu.size());
    list.erase(0, list.find_first_not_of("\r\n"));
  }
  return entries;
}

std::vector<unsigned char> OctetsOf(const std::string& pdu) {
  const auto value = [](char digit) {
    const std::size_t place = std::string_view("0123456789abcdefABCDEF").find(digit);
    return place == std::string_view::npos ? 0 : place < 16 ? place : place - 6;
  };
  std::vector<unsigned char> octets;
  for (std::size_t i = 0; i + 1 < pdu.size(); i += 2) {
    octets.push_back(static_cast<unsigned char>(value(pdu[i]) * 16 + value(pdu[i + 1])));
  }
  return octets;
}

/// The messages that a list completes. Parts count in listing order.
std::vector<SMSDelivered> MessagesOf(const std::vector<Entry>& entries) {
  std::vector<SMSDelivered> messages;
  std::map<int, SMSDelivered> unfinished;
  for (const Entry& entry : entries) {
    SMSDelivered message(entry.index);
    message.decode(OctetsOf(entry.pdu));
    if (message.status != 0) continue;
    if (message.total < 2) {
      messages.push_back(message);
    } else if (unfinished.count(message.ref) == 0) {
      unfinished.emplace(message.ref, message);
    } else {
      SMSDelivered& joined = unfinished.at(message.ref);
      joined.text += message.text;
      joined.seq = static_cast<unsigned char>(joined.seq + 1);
      if (joined.seq != joined.total) continue;
      messages.push_back(joined);
      unfinished.erase(message.ref);
    }
  }
  return messages;
}

lua_State* TheLuaState() {
  static const int registered = InitAddin();
  static const corvane::LuaEnvironment environment;
  Require(registered == 0);
  return environment.state();
}

/// A new block on top of the Lua stack, with `Read` TRUE.
ReadSMSFB& NewBlock(lua_State* L) {
  lua_getglobal(L, "READ_SMS");
  lua_getfield(L, -1, "new");
  lua_createtable(L, 0, 1);
  lua_pushboolean(L, 1);
  lua_setfield(L, -2, "Read");
  lua_call(L, 1, 1);
  return *static_cast<ReadSMSFB*>(lua_touserdata(L, -1));
}

/// Whether the block on top of the Lua stack has this text in a variable.
bool Holds(lua_State* L, const char* variable, const std::string& text) {
  lua_getfield(L, -1, variable);
  std::size_t length = 0;
  const char* const value = lua_tolstring(L, -1, &length);
  const bool equal = value != nullptr && std::string_view(value, length) == text;
  lua_pop(L, 1);
  return equal;
}

bool IsComplete(lua_State* L) {
  lua_getfield(L, -1, "Complete");
  const bool complete = lua_toboolean(L, -1) != 0;
  lua_pop(L, 1);
  return complete;
}

std::string RequestOf(const ReadSMSFB& block) {
  static char buffer[kPortDriverRequestSize];
  PortDriverRequestData request{0, 0};
  PortDriverReplyFunction on_reply = nullptr;
  const int length = block.GetRequestImpl(buffer, &request, &on_reply);
  return std::string(buffer, static_cast<std::size_t>(length));
}

/// Whether the pass goes on. The reply has its exact size, so that a read past its end is detected.
bool Reply(ReadSMSFB& block, std::string_view text) {
  std::vector<char> reply(text.begin(), text.end());
  return block.OnReplyImpl(reply.data(), static_cast<int>(reply.size()), 0) != 0;
}

/// An answer that is judged by its beginning and does not contain a list.
bool IsResult(std::string_view answer) {
  return answer.starts_with("OK") || answer.starts_with("ERROR") ||
         answer.starts_with("+CMS ERROR: ");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string answer(data, data + size);
  const auto entries = IsResult(answer) ? std::vector<Entry>{} : EntriesOf(answer);
  lua_State* L = TheLuaState();
  ReadSMSFB& block = NewBlock(L);
  block.Execute();
  Require(RequestOf(block) == "AT+CMGF=0\r" && Reply(block, "OK\r\n"));
  Require(RequestOf(block) == "AT+CMGL=0\r");
  Require(Reply(block, answer) == !entries.empty());
  for (const Entry& entry : entries) {
    Require(RequestOf(block) == "AT+CMGD=" + std::to_string(entry.index) + "\r");
    Require(Reply(block, "OK\r\n") == (&entry != &entries.back()));
  }
  Require(block.getPriority() == 0);
  for (const SMSDelivered& message : MessagesOf(entries)) {
    block.Execute();
    Require(IsComplete(L) && Holds(L, "Number", message.number) &&
            Holds(L, "Message", message.text));
    block.Execute();
    Require(!IsComplete(L));
  }
  block.Execute();
  Require(!IsComplete(L));
  lua_settop(L, 0);
  return 0;
}
