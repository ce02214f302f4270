// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/tcp_port.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/runtime/modem_simulator/bench.h"

namespace modem_simulator {
namespace {

/// A connected socket on the loopback interface; -1 if the connection is refused.
int Connect(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  void* any = &address;
  if (connect(fd, static_cast<sockaddr*>(any), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

class TcpPortTest : public testing::Test {
 protected:
  TcpPortTest()
      : bench_([] {
          SimulatorOptions options;
          options.pseudo_terminal = false;
          options.tcp = "127.0.0.1:0";
          return options;
        }()) {
    const std::string ready = bench_.AwaitOutput("\n");
    EXPECT_EQ(ready.find("ready tcp=127.0.0.1:"), 0u) << ready;
    port_ = std::stoi(ready.substr(ready.rfind(':') + 1));
  }

  Bench bench_;
  int port_ = 0;
};

TEST_F(TcpPortTest, ServesOneConnectionAfterAnother) {
  for (int i = 0; i < 3; ++i) {
    const Controller controller(Connect(port_));
    EXPECT_EQ(controller.Ask("AT\r"), "AT\r\r\nOK\r\n");
  }
}

TEST_F(TcpPortTest, TurnsASecondConnectionAway) {
  const Controller first(Connect(port_));
  EXPECT_EQ(first.Ask("AT\r"), "AT\r\r\nOK\r\n");
  EXPECT_EQ(Controller(Connect(port_)).ReadToTheEnd(), "");
  EXPECT_EQ(first.Ask("AT\r"), "AT\r\r\nOK\r\n");
}

TEST_F(TcpPortTest, DropsTheConnectionAndRefusesWhileUnplugged) {
  const Controller controller(Connect(port_));
  EXPECT_EQ(controller.Ask("AT\r"), "AT\r\r\nOK\r\n");
  bench_.Do("unplug 300ms");
  EXPECT_EQ(controller.ReadToTheEnd(), "");
  bench_.AwaitOutput("unplugged");
  EXPECT_EQ(Connect(port_), -1);
  bench_.AwaitOutput("plugged in again tcp=127.0.0.1:" + std::to_string(port_));
  EXPECT_EQ(Controller(Connect(port_)).Ask("AT\r"), "AT\r\r\nOK\r\n");
}

TEST(TcpPortAddress, IsRefusedIfItIsNotOne) {
  boost::asio::io_context io;
  for (const char* address :
       {"4001", "", ":4001", "127.0.0.1:", "127.0.0.1:port", "127.0.0.1:1x", "127.0.0.1:-1",
        "127.0.0.1: 1", "127.0.0.1:65536", "127.0.0.1:99999", "127.0.0.1:4294967297", "[::1:4001",
        "::1]:4001", "[]:4001", "no such host:1"}) {
    EXPECT_THROW(TcpPort(io, address, 0, nullptr), std::runtime_error) << address;
  }
}

TEST(TcpPortAddress, MayHaveEveryPort) {
  boost::asio::io_context io;
  for (const char* address : {"127.0.0.1:0", "127.0.0.1:1", "127.0.0.1:65535"}) {
    EXPECT_EQ(TcpPort(io, address, 0, nullptr).Address(), std::string("tcp=") + address);
  }
  EXPECT_EQ(TcpPort(io, "[::1]:4001", 0, nullptr).Address(), "tcp=[::1]:4001");
}

TEST(TcpPortAddress, ThatIsTakenIsAnError) {
  boost::asio::io_context io;
  TcpPort first(io, "127.0.0.1:0", 0, nullptr);
  first.Plug();
  TcpPort second(io, first.Address().substr(4), 0, nullptr);
  EXPECT_THROW(second.Plug(), std::runtime_error);
}

}  // namespace
}  // namespace modem_simulator
