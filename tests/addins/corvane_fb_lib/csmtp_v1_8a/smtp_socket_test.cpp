// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/smtp_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"
#include "tests/support/failing_calls.h"

namespace {

using test_support::CallsGuard;
using test_support::CodeOf;
using test_support::FailingCalls;
using test_support::OpenDescriptors;
using test_support::ScriptedSmtpServer;
using test_support::SmtpPeer;

int CodeOfConnecting(const std::string& server, unsigned short port) {
  return CodeOf([&] { close(smtp_socket::Connect(server.c_str(), port)); });
}

/// Where a connection would go.
struct Target {
  std::string address;
  int port = 0;
};

/// Connects as far as the system call, which fails.
Target TargetOf(const std::string& server, unsigned short port, FailingCalls calls = {}) {
  Target target;
  calls.connect = [&target](const sockaddr_in& address) {
    target = {inet_ntoa(address.sin_addr), ntohs(address.sin_port)};
    return ENETUNREACH;
  };
  const CallsGuard guard(calls);
  EXPECT_EQ(CodeOfConnecting(server, port), 104);
  return target;
}

TEST(SmtpConnection, IsNonBlockingAndNotInheritedByCommands) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Idle(); });
  const int descriptor = smtp_socket::Connect("127.0.0.1", server.port());
  EXPECT_NE(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  close(descriptor);
}

TEST(SmtpConnection, GoesToAMachineByItsName) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Idle(); });
  EXPECT_EQ(CodeOfConnecting("localhost", server.port()), 0);
}

TEST(SmtpConnection, GoesToThePortAsItIs) {
  const Target target = TargetOf("10.1.2.3", 2525);
  EXPECT_EQ(target.address, "10.1.2.3");
  EXPECT_EQ(target.port, 2525);
}

TEST(SmtpConnection, WithPort0ConnectsToTheMailService) {
  EXPECT_EQ(TargetOf("10.1.2.3", 0).port, 25);
}

TEST(SmtpConnection, WithPort0AndWithoutTheServiceMailGoesToPort25) {
  EXPECT_EQ(TargetOf("10.1.2.3", 0, {.no_mail_service = true}).port, 25);
}

TEST(SmtpConnection, WithPort0AndAnEntryThatFitsInNoBufferGoesToPort25) {
  EXPECT_EQ(TargetOf("10.1.2.3", 0, {.mail_service_never_fits = true}).port, 25);
}

TEST(SmtpConnection, TakesTheBroadcastAddressForAName) {
  EXPECT_EQ(TargetOf("255.255.255.255", 25).address, "255.255.255.255");
}

TEST(SmtpConnection, WithoutASocketIs106) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const int code = CodeOfConnecting("127.0.0.1", 25);
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(code, 106);
}

class UnknownServer : public testing::TestWithParam<std::string> {};

TEST_P(UnknownServer, Is105AndLeavesNoSocketOpen) {
  const auto before = OpenDescriptors();
  EXPECT_EQ(CodeOfConnecting(GetParam(), 25), 105);
  EXPECT_EQ(OpenDescriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(Names, UnknownServer,
                         testing::Values("", " ", "mail server", "no-such-machine.invalid",
                                         "300.1.2.3", std::string(300, 'x'),
                                         std::string(20000, 'y'), "a..b", "%s%n", "\xFF\xFE"));

TEST(SmtpConnection, ThatCannotBeMadeNonBlockingIs108AndClosed) {
  const CallsGuard calls({.ioctl_fails = true});
  const auto before = OpenDescriptors();
  EXPECT_EQ(CodeOfConnecting("127.0.0.1", 25), 108);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(SmtpConnection, ThatTheSystemRefusesToMakeIs104AndClosed) {
  const CallsGuard calls({.connect = [](const sockaddr_in&) { return ENETUNREACH; }});
  const auto before = OpenDescriptors();
  EXPECT_EQ(CodeOfConnecting("127.0.0.1", 25), 104);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(SmtpConnection, WhoseWaitFailsIs109AndClosed) {
  const CallsGuard calls(
      {.poll_fails_after = 0, .connect = [](const sockaddr_in&) { return EINPROGRESS; }});
  const auto before = OpenDescriptors();
  EXPECT_EQ(CodeOfConnecting("127.0.0.1", 25), 109);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(SmtpConnection, WithUrgentDataInsteadOfItsOutcomeIs109AndClosed) {
  const CallsGuard calls(
      {.poll_reports = POLLPRI, .connect = [](const sockaddr_in&) { return EINPROGRESS; }});
  const auto before = OpenDescriptors();
  EXPECT_EQ(CodeOfConnecting("127.0.0.1", 25), 109);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(SmtpConnection, WhoseWaitEndsWithAnErrorIsLeftToTheFirstReply) {
  for (const short event : {short{POLLERR}, short{POLLHUP}, short{POLLOUT}}) {
    const CallsGuard calls(
        {.poll_reports = event, .connect = [](const sockaddr_in&) { return EINPROGRESS; }});
    EXPECT_EQ(CodeOfConnecting("127.0.0.1", 25), 0) << event;
  }
}

TEST(SmtpWait, ForADescriptorThatIsNotOpenIs109) {
  const smtp_socket::WaitBudget budget;
  const int closed = dup(0);
  close(closed);
  EXPECT_EQ(CodeOf([&] { smtp_socket::Wait(closed, smtp_socket::Direction::kRead, budget); }), 109);
}

TEST(SmtpWait, BudgetIsTenSeconds) {
  const smtp_socket::WaitBudget budget;
  EXPECT_LE(budget.Left(), 10000);
  EXPECT_GT(budget.Left(), 5000);
}

}  // namespace
