// SPDX-License-Identifier: MIT
// The server with real clients, over its Unix socket.
#include "runtime/bench/server/bench_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <optional>
#include <stdexcept>

#include "runtime/bench/client/bench_client.h"
#include "runtime/bench/server/connection.h"
#include "runtime/bench/server/socket_path.h"
#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace corvane::bench {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test_support::kPatience;
using test_support::WaitFor;
using testing::StartsWith;

constexpr const char* kMetrics = "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n";

/// Has a frame of this size at each tick.
class LargeTopic : public Topic {
 public:
  explicit LargeTopic(std::size_t size) : frame_("\"" + std::string(size, 'x') + "\"") {}
  void SetWatched(bool /*watched*/) override {}
  std::vector<Frame> Changes() override { return {frame_}; }
  std::vector<Frame> Complete() override { return {frame_}; }

 private:
  Frame frame_;
};

class BenchServerTest : public testing::Test {
 protected:
  BenchServerTest() { test_support::CaptureLog(); }

  /// @param handler runs on the server's thread
  void Serve(Hub::RequestHandler handler = [](const ClientRequest&, const RequestDone& done) {
    done("", "");
  }) {
    auto listener = std::make_unique<UnixListener>(folder_.path(), "pump");
    socket_ = listener->path();
    Hub::Topics topics;
    topics["log"] = std::make_unique<LargeTopic>(std::size_t{4} << 20U);
    server_.emplace(Listeners{{}, std::move(listener)},
                    Services{.topics = std::move(topics),
                             .http = {.machine = "plc1",
                                      .token = {},
                                      .cookie_name = "corvane",
                                      .metrics = [] { return "metrics\n"; },
                                      .problem = [] { return ""; }},
                             .hello = [this] { return Hello(); },
                             .handler = std::move(handler),
                             .poll = [this] { ++polls_; }});
  }
  Frame Hello() { return R"({"type":"hello","greeting":)" + std::to_string(++greetings_) + "}"; }

  /// What the server answers to these octets, until it has nothing more to say.
  [[nodiscard]] std::string Answer(const std::string& octets) const {
    const Descriptor connection = ConnectLocally(socket_);
    (void)send(connection.get(), octets.data(), octets.size(), MSG_NOSIGNAL);  // it may be closed
    shutdown(connection.get(), SHUT_WR);
    std::string answer;
    char buffer[4096];
    pollfd readable{connection.get(), POLLIN, 0};
    while (poll(&readable, 1, std::chrono::milliseconds(kPatience).count()) > 0) {
      const ssize_t size = read(connection.get(), buffer, sizeof buffer);
      if (size <= 0) return answer;
      answer.append(buffer, static_cast<std::size_t>(size));
    }
    ADD_FAILURE() << "the server keeps the connection open";
    return answer;
  }
  /// Whether this has been logged, sooner or later.
  bool IsLogged(const std::string& text) {
    return WaitFor([&] {
      for (const std::string& line : test_support::TakeLog()) log_ += line + "\n";
      return log_.find(text) != std::string::npos;
    });
  }
  static std::string EndOf(BenchClient& client) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    try {
      while (std::chrono::steady_clock::now() < end) (void)client.Receive(10ms);
    } catch (const ClientError& error) {
      return error.what();
    }
    return "it has not ended";
  }
  void ExpectThatItServes() const {
    BenchClient client(socket_);
    EXPECT_EQ(client.Expect("hello", kPatience).at("type"), "hello");
  }

  const test_support::TemporaryFolder folder_;
  std::filesystem::path socket_;
  std::atomic<int> polls_{0};
  int greetings_ = 0;
  std::string log_;
  std::optional<BenchServer> server_;
};

TEST_F(BenchServerTest, GreetsAndPollsAndEndsTheConnectionsAtItsEnd) {
  Serve();
  BenchClient client(socket_);
  EXPECT_EQ(client.Expect("hello", kPatience).at("greeting"), 1);
  EXPECT_TRUE(WaitFor([this] { return polls_ > 0; }));
  server_->Post([this] { server_->GreetAll(); });
  EXPECT_EQ(client.Expect("hello", kPatience).at("greeting"), 2);
  server_.reset();
  EXPECT_EQ(EndOf(client), "it has ended the connection");
  EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST_F(BenchServerTest, AnswersSeveralRequestsOfOneConnection) {
  Serve();
  const std::string answers = Answer(std::string(kMetrics) + kMetrics);
  const std::size_t second = answers.find("HTTP/1.1 200", 1);
  EXPECT_THAT(answers, StartsWith("HTTP/1.1 200"));
  EXPECT_NE(second, std::string::npos) << answers;
}

TEST_F(BenchServerTest, WhatIsNotHttpOrTooLongEndsTheConnectionOnly) {
  Serve();
  EXPECT_EQ(Answer("\r\n\x01 garbage\r\n\r\n"), "");
  EXPECT_EQ(Answer("GET / HTTP/1.1\r\nX: " + std::string(10'000, 'x') + "\r\n\r\n"), "");
  EXPECT_EQ(Answer("GET / HT"), "");
  ExpectThatItServes();
}

TEST_F(BenchServerTest, ARequestThatThrowsDoesNotEndTheProgram) {
  Serve([](const ClientRequest&, const RequestDone&) { throw std::runtime_error("no memory"); });
  BenchClient client(socket_);
  (void)client.Expect("hello", kPatience);
  client.Send({{"type", "write"}, {"request", 1}, {"id", 1}, {"value", 1}});
  EXPECT_TRUE(IsLogged("bench: no memory")) << log_;
  ExpectThatItServes();
}

TEST_F(BenchServerTest, AMessageThatIsTooLongEndsItsClientOnly) {
  Serve();
  BenchClient client(socket_);
  BenchClient other(socket_);
  (void)other.Expect("hello", kPatience);
  client.Send(std::string(kLongestClientMessage + 1, 'x'));
  EXPECT_EQ(EndOf(client), "it has ended the connection");
  EXPECT_EQ(other.Ask({{"type", "cancel"}, {"message", 1}}, kPatience), "");
}

TEST_F(BenchServerTest, MoreThanSixteenClientsAreRefusedUntilOneHasGone) {
  Serve();
  std::deque<BenchClient> clients;
  for (std::size_t i = 0; i < ConnectionsShared::kMostClients; ++i) {
    (void)clients.emplace_back(socket_).Expect("hello", kPatience);
  }
  BenchClient refused(socket_);
  EXPECT_EQ(EndOf(refused), "it has too many clients already");
  EXPECT_TRUE(IsLogged("was refused: there are 16 clients already")) << log_;
  clients.pop_front();
  EXPECT_TRUE(WaitFor([this] {
    BenchClient next(socket_);
    try {
      return next.Expect("hello", kPatience).contains("greeting");
    } catch (const ClientError&) {
      return false;  // the server has not noticed yet that one has gone
    }
  }));
}

TEST_F(BenchServerTest, MoreThanSixtyFourConnectionsAreClosedAtOnce) {
  Serve();
  std::vector<Descriptor> idle;
  for (int i = 0; i < ConnectionsShared::kMostConnections; ++i) {
    idle.push_back(ConnectLocally(socket_));
    ASSERT_GE(idle.back().get(), 0);
  }
  EXPECT_EQ(Answer(kMetrics), "");
  idle.clear();
  EXPECT_TRUE(WaitFor([this] { return !Answer(kMetrics).empty(); })) << "when they have gone";
}

TEST_F(BenchServerTest, AClientThatReadsNothingIsDisconnectedAndOthersAreServed) {
  Serve();
  BenchClient slow(socket_);
  (void)slow.Expect("hello", kPatience);
  slow.Send({{"type", "subscribe"}, {"topics", {"log"}}});
  EXPECT_TRUE(IsLogged("reads too slowly and was disconnected")) << log_;
  ExpectThatItServes();
}

}  // namespace
}  // namespace corvane::bench
