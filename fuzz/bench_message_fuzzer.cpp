// SPDX-License-Identifier: MIT
// A message of a client of the bench: either an error with a text, or a request whose parts have
// their bounds.
#include <cstdint>
#include <string_view>
#include <variant>

#include "fuzz/require.h"
#include "runtime/bench/server/client_message.h"
#include "runtime/bench/server/variable_json.h"

using namespace corvane::bench;

namespace {

void Check(const SubscribeRequest& request) {
  Require(request.topics.size() <= 16);
}
void Check(const WriteRequest& request) {
  Require(request.id >= 0);
  Require(ValueOfJson(request.value).has_value() == !request.value.is_null());
}
void Check(const GetRequest& request) {
  Require(request.id >= 0);
}
void Check(const MessageRequest& request) {
  Require(request.message >= 0);
}
void Check(const LogLevelRequest& /*request*/) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const ClientMessage message = ParseClientMessage({reinterpret_cast<const char*>(data), size});
    std::visit([](const auto& request) { Check(request); }, message.what);
  } catch (const ClientMessageError& error) {
    Require(!std::string_view(error.what()).empty());
    Require(!ResultJson(error.request(), error.what()).empty());
  }
  return 0;
}
