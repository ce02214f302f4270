// SPDX-License-Identifier: MIT
#include "runtime/bench/server/client_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::bench {
namespace {

TEST(ClientMessageTest, ReadsEachType) {
  const auto subscribe = ParseClientMessage(R"({"type":"subscribe","topics":["log","x"]})");
  EXPECT_EQ(std::get<SubscribeRequest>(subscribe.what).topics,
            (std::vector<std::string>{"log", "x"}));
  EXPECT_FALSE(subscribe.request);
  const auto write = ParseClientMessage(R"({"type":"write","request":7,"id":3,"value":1.5})");
  EXPECT_EQ(write.request, 7);
  EXPECT_EQ(std::get<WriteRequest>(write.what).id, 3);
  EXPECT_EQ(std::get<WriteRequest>(write.what).value, 1.5);
  EXPECT_EQ(std::get<GetRequest>(ParseClientMessage(R"({"type":"get","id":9})").what).id, 9);
  EXPECT_TRUE(
      std::get<MessageRequest>(ParseClientMessage(R"({"type":"retry","message":4})").what).retry);
  EXPECT_EQ(
      std::get<LogLevelRequest>(ParseClientMessage(R"({"type":"log-level","level":"x"})").what)
          .level,
      "x");
}

/// What is wrong with a message, with the number of the request.
std::string ProblemOf(const std::string& text) {
  try {
    (void)ParseClientMessage(text);
  } catch (const ClientMessageError& error) {
    return std::to_string(error.request().value_or(-1)) + " " + error.what();
  }
  return "none";
}

TEST(ClientMessageTest, SaysWhatIsWrong) {
  EXPECT_EQ(ProblemOf("{"), "-1 not a JSON object");
  EXPECT_EQ(ProblemOf(R"({"request":5})"), R"(5 "type" is missing)");
  EXPECT_EQ(ProblemOf(R"({"type":"fly","request":5})"), R"(5 "fly" is not a type of message)");
  EXPECT_EQ(ProblemOf(R"({"type":"get","id":9223372036854775808})"),
            R"(-1 "id" is not a number of one)");
  EXPECT_EQ(ProblemOf(R"({"type":"get","id":18446744073709551615})"),
            R"(-1 "id" is not a number of one)");
  EXPECT_EQ(ProblemOf(R"({"type":"write","id":1,"value":[]})"),
            R"(-1 "value" is not a number, a boolean, a text or null)");
  EXPECT_EQ(ProblemOf(R"({"type":"write","id":1,"value":{"special":"x"}})"),
            R"(-1 "value" is not a number, a boolean, a text or null)");
  EXPECT_EQ(ProblemOf(R"({"type":"write","id":1,"value":{"special":"nan"}})"), "none");
}

TEST(ClientMessageTest, AResultRepeatsTheNumber) {
  EXPECT_EQ(ResultJson(3, ""), R"({"type":"result","request":3,"ok":true})");
  EXPECT_EQ(ResultJson({}, "no"), R"({"type":"result","request":null,"ok":false,"error":"no"})");
}

}  // namespace
}  // namespace corvane::bench
