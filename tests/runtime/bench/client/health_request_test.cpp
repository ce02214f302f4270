// SPDX-License-Identifier: MIT
#include "runtime/bench/client/health_request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/bench/client/local_socket.h"
#include "tests/runtime/bench/client/scripted_program.h"
#include "tests/support/wait_for.h"

namespace corvane::bench {
namespace {

using namespace std::chrono_literals;
using test_support::kPatience;
using testing::HasSubstr;
using testing::StartsWith;

std::string Response(const std::string& status, const std::string& body) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

class HealthRequest : public testing::Test {
 protected:
  /// What a program that answers with these octets is taken for.
  std::string Health(const std::string& octets, std::chrono::milliseconds patience = kPatience) {
    program_.emplace();
    program_->Run([this, octets](ScriptedProgram::Socket& client) {
      request_ = ScriptedProgram::HearRequest(client);
      ScriptedProgram::SayOctets(client, octets);
      ScriptedProgram::AwaitEnd(client);
    });
    try {
      return AskHealth(program_->path(), patience);
    } catch (const ClientError& error) {
      return std::string("! ") + error.what();
    }
  }

  std::optional<ScriptedProgram> program_;
  std::string request_;
};

TEST_F(HealthRequest, AProgramThatIsWellSaysOk) {
  EXPECT_EQ(Health(Response("200 OK", "ok\n")), "ok");
  program_.reset();  // it has ended, so what it heard can be read
  EXPECT_THAT(request_, StartsWith("GET /healthz HTTP/1.1\r\n"));
}

TEST_F(HealthRequest, OneThatIsNotGivesItsReason) {
  EXPECT_EQ(Health(Response("503 Service Unavailable", "the last cycle began 9 s ago\n\n")),
            "the last cycle began 9 s ago");
}

TEST_F(HealthRequest, AReasonIsOneLineThatATerminalCanShow) {
  const std::string reason = Health(Response("503 No", "a\x1B[2J\nb" + std::string(1000, 'c')));
  EXPECT_LE(reason.size(), 220U);
  EXPECT_EQ(reason.find_first_of("\x1B\n"), std::string::npos) << reason;
}

TEST_F(HealthRequest, WhatIsNotHttpIsNotUnderstood) {
  EXPECT_THAT(Health("220 mail.example\r\n\r\n"), HasSubstr("! it answers what cannot be"));
  EXPECT_THAT(Health(Response("200 OK", std::string(20'000, 'x'))), HasSubstr("! it answers"));
  EXPECT_THAT(Health("HTTP/1.1 200 OK\r\nContent-Length: 1000000000000000000\r\n\r\n"),
              HasSubstr("! it answers"))
      << "no memory is allocated for it";
  EXPECT_THAT(Health("HTTP/1.1 200 OK\r\nX: " + std::string(20'000, 'x')),
              HasSubstr("! it answers"));
}

TEST_F(HealthRequest, AnAnswerThatNeverEndsIsNotWaitedFor) {
  EXPECT_EQ(Health("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nok", 50ms), "! it does not answer");
  EXPECT_EQ(Health("", 50ms), "! it does not answer");
}

TEST_F(HealthRequest, AProgramThatEndsInTheMiddleHasNotAnswered) {
  ScriptedProgram program;
  program.Run([](ScriptedProgram::Socket& client) { ScriptedProgram::HearRequest(client); });
  EXPECT_THROW((void)AskHealth(program.path(), kPatience), ClientError);
}

TEST_F(HealthRequest, NobodyListens) {
  EXPECT_THROW((void)AskHealth("/nonexistent.sock", kPatience), ClientError);
}

}  // namespace
}  // namespace corvane::bench
