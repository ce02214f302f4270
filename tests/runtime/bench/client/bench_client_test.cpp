// SPDX-License-Identifier: MIT
// The other side is a program that does what a real one never would.
#include "runtime/bench/client/bench_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/runtime/bench/client/scripted_program.h"
#include "tests/support/wait_for.h"

namespace corvane::bench {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test_support::kPatience;
using testing::HasSubstr;
using WebSocket = ScriptedProgram::WebSocket;

constexpr auto Say = ScriptedProgram::Say;
constexpr auto Hear = ScriptedProgram::Hear;

class BenchClientTest : public testing::Test {
 protected:
  /// What ends the connection; messages that come before are dropped.
  static std::string EndOf(BenchClient& client) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    try {
      while (std::chrono::steady_clock::now() < end) (void)client.Receive(10ms);
    } catch (const ClientError& error) {
      return error.what();
    }
    return "it has not ended";
  }
  std::string EndOfConnection(std::chrono::milliseconds patience = kPatience) {
    BenchClient client(program_.path(), patience);
    return EndOf(client);
  }
  /// How a client takes this message.
  static std::string EndAfter(const std::string& message) {
    ScriptedProgram program;
    program.RunProtocol([message](WebSocket& client) { Say(client, message); });
    BenchClient client(program.path());
    return EndOf(client);
  }

  ScriptedProgram program_;
};

TEST_F(BenchClientTest, MessagesComeInTheirOrderAndNothingWhileNoneComes) {
  program_.RunProtocol([](WebSocket& client) {
    Hear(client);
    Say(client, R"({"type":"one"})");
    Say(client, R"({"type":"two"})");
  });
  BenchClient client(program_.path());
  EXPECT_FALSE(client.Receive(0ms)) << "nothing has been asked for";
  client.Send({{"type", "go"}});
  EXPECT_EQ(client.Receive(kPatience), json({{"type", "one"}}));
  EXPECT_EQ(client.Receive(kPatience), json({{"type", "two"}}));
  EXPECT_FALSE(client.Receive(1ms));
}

TEST_F(BenchClientTest, WhatIsSentBeforeTheConnectionIsOpenComesInItsOrder) {
  program_.RunProtocol([](WebSocket& client) {
    const std::string first = Hear(client);
    Say(client, R"({"type":"heard","first":)" + first + R"(,"second":)" + Hear(client) + "}");
  });
  BenchClient client(program_.path());
  client.Send(1);
  client.Send(2);
  const auto heard = client.Receive(kPatience);
  EXPECT_EQ(heard, json({{"type", "heard"}, {"first", 1}, {"second", 2}}));
}

TEST_F(BenchClientTest, WhatCameBeforeTheEndIsHandedOutFirst) {
  program_.RunProtocol([](WebSocket& client) {
    Say(client, R"({"type":"last"})");
    client.close(boost::beast::websocket::close_code::normal);
  });
  BenchClient client(program_.path());
  EXPECT_EQ(client.Receive(kPatience), json({{"type", "last"}}));
  EXPECT_EQ(EndOf(client), "it has ended the connection");
  EXPECT_EQ(EndOf(client), "it has ended the connection") << "it stays ended";
}

TEST_F(BenchClientTest, AProgramThatIsKilledHasEndedTheConnection) {
  program_.Run([](ScriptedProgram::Socket& client) {
    WebSocket web_socket(client);
    web_socket.accept();
  });
  EXPECT_EQ(EndOfConnection(), "it has ended the connection");
}

TEST_F(BenchClientTest, AProgramThatTakesTheConnectionAndSaysNothingDoesNotAnswer) {
  program_.Run([](ScriptedProgram::Socket& client) { ScriptedProgram::AwaitEnd(client); });
  EXPECT_EQ(EndOfConnection(50ms), "it does not answer");
}

TEST_F(BenchClientTest, AProgramThatFallsSilentDoesNotAnswer) {
  program_.RunProtocol([](WebSocket& client) {
    Say(client, R"({"type":"hello"})");
    ScriptedProgram::AwaitEnd(client.next_layer());
  });
  BenchClient client(program_.path(), 100ms);
  EXPECT_TRUE(client.Receive(kPatience));
  EXPECT_EQ(EndOf(client), "it does not answer");
}

TEST_F(BenchClientTest, TooManyClientsIsAReasonOfItsOwn) {
  program_.Run([](ScriptedProgram::Socket& client) {
    ScriptedProgram::HearRequest(client);
    ScriptedProgram::SayOctets(client,
                               "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n");
  });
  EXPECT_EQ(EndOfConnection(), "it has too many clients already");
}

TEST_F(BenchClientTest, WhatIsNotTheProtocolIsNotUnderstood) {
  for (const char* const answer :
       {"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", "220 mail.example\r\n\r\n",
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: wrong\r\n\r\n"}) {
    ScriptedProgram program;
    program.Run([answer](ScriptedProgram::Socket& client) {
      ScriptedProgram::HearRequest(client);
      ScriptedProgram::SayOctets(client, answer);
      ScriptedProgram::AwaitEnd(client);
    });
    BenchClient client(program.path());
    EXPECT_EQ(EndOf(client), "it sends what cannot be understood") << answer;
  }
}

TEST_F(BenchClientTest, OnlyAnObjectWithATypeIsAMessage) {
  for (const char* const message :
       {"", "not JSON", "[1]", "{}", R"({"type":1})", R"({"type":"a"} and more)",
        R"({"type":"a","deep":[[[[[[[[[]]]]]]]]]})", "{\"type\":\"\xFF\"}"}) {
    EXPECT_EQ(EndAfter(message), "it sends what cannot be understood") << message;
  }
}

TEST_F(BenchClientTest, AMessageThatAnnouncesMoreThanTheLimitEndsTheConnection) {
  program_.RunProtocol([](WebSocket& client) {
    // A text of 2^40 octets (RFC 6455 clause 5.2), of which none comes.
    ScriptedProgram::SayOctets(client.next_layer(), {"\x81\x7F\0\0\x01\0\0\0\0\0", 10});
    ScriptedProgram::AwaitEnd(client.next_layer());
  });
  EXPECT_EQ(EndOfConnection(200ms), "it sends what cannot be understood");
}

TEST_F(BenchClientTest, ExpectDropsOtherMessages) {
  program_.RunProtocol([](WebSocket& client) {
    Say(client, R"({"type":"log"})");
    Say(client, R"({"type":"hello","program":"pump"})");
  });
  BenchClient client(program_.path());
  EXPECT_EQ(client.Expect("hello", kPatience).at("program"), "pump");
}

TEST_F(BenchClientTest, ExpectEndsInTimeHoweverMuchElseComes) {
  program_.RunProtocol([](WebSocket& client) {
    for (;;) Say(client, R"({"type":"log"})");
  });
  BenchClient client(program_.path());
  EXPECT_THROW((void)client.Expect("hello", 50ms), ClientError);
}

TEST_F(BenchClientTest, ARequestEndsWithTheResultOfItsNumber) {
  program_.RunProtocol([](WebSocket& client) {
    json request = json::parse(Hear(client));
    Say(client, R"({"type":"result","request":99,"ok":false,"error":"another's"})");
    Say(client, json{{"type", "result"}, {"request", request.at("request")}, {"ok", true}}.dump());
    request = json::parse(Hear(client));
    Say(client, json{{"type", "result"},
                     {"request", request.at("request")},
                     {"ok", false},
                     {"error", "no \x1B[2J"}}
                    .dump());
    request = json::parse(Hear(client));
    Say(client, json{{"type", "result"}, {"request", request.at("request")}}.dump());
  });
  BenchClient client(program_.path());
  EXPECT_EQ(client.Ask({{"type", "write"}}, kPatience), "");
  EXPECT_THAT(client.Ask({{"type", "write"}}, kPatience),
              testing::AllOf(HasSubstr("no "), testing::Not(HasSubstr("\x1B"))))
      << "it goes to a terminal";
  EXPECT_EQ(client.Ask({{"type", "write"}}, kPatience), "it refuses");
}

TEST_F(BenchClientTest, ARequestWithoutAResultEndsInTime) {
  program_.RunProtocol([](WebSocket& client) { Hear(client); });
  BenchClient client(program_.path());
  EXPECT_THROW((void)client.Ask({{"type", "write"}}, 50ms), ClientError);
}

TEST_F(BenchClientTest, NobodyListens) {
  try {
    BenchClient client(program_.path().string() + ".missing");
    FAIL() << "it has connected";
  } catch (const ClientError& error) {
    EXPECT_STREQ(error.what(), "it has ended");
  }
}

TEST_F(BenchClientTest, APathThatCannotBeASocketIsNamed) {
  try {
    BenchClient client("/" + std::string(200, 'x'));
    FAIL() << "it has connected";
  } catch (const ClientError& error) {
    EXPECT_THAT(error.what(), HasSubstr("File name too long"));
  }
}

}  // namespace
}  // namespace corvane::bench
