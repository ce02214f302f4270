// SPDX-License-Identifier: MIT
// A socket in place of systemd's.
#include "runtime/cli/service_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace corvane::cli {
namespace {

class ServiceManagerTest : public testing::Test {
 protected:
  ServiceManagerTest() { Listen(path()); }
  ~ServiceManagerTest() override {
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(name);
  }

  [[nodiscard]] std::string path() const { return (folder_.path() / "notify").string(); }
  void Listen(const std::string& name) {
    socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  /// The message that came first; nothing if there is none.
  std::optional<std::string> Heard() {
    std::array<char, 4096> room{};
    const ssize_t size = recv(socket_.get(), room.data(), room.size(), 0);
    if (size < 0) return std::nullopt;
    return std::string(room.data(), static_cast<std::size_t>(size));
  }

  test_support::TemporaryFolder folder_;
  Descriptor socket_;
};

TEST_F(ServiceManagerTest, HearsWhatTheProtocolSays) {
  ServiceManager service;
  service.TellReady();
  service.TellStatus("two\nlines");
  service.TellStopping();
  EXPECT_EQ(Heard(), "READY=1");
  EXPECT_EQ(Heard(), "STATUS=two\\nlines");
  EXPECT_EQ(Heard(), "STOPPING=1");
  EXPECT_EQ(Heard(), std::nullopt);
}

TEST_F(ServiceManagerTest, MayHaveAnAbstractName) {
  Listen("@corvane-test-" + std::to_string(getpid()));
  ServiceManager service;
  service.TellReady();
  EXPECT_EQ(Heard(), "READY=1");
}

TEST_F(ServiceManagerTest, IsUnknownToTheCommandsThatBlocksStart) {
  setenv("WATCHDOG_USEC", "1000000", 1);
  setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
  const ServiceManager service;
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
    EXPECT_EQ(std::getenv(name), nullptr) << name;
  }
  EXPECT_EQ(service.watchdog(), std::chrono::seconds(1));
}

TEST_F(ServiceManagerTest, HearsThatWeAreAliveOftenEnough) {
  setenv("WATCHDOG_USEC", "400000", 1);
  ServiceManager service;
  service.TellAlive();
  service.TellAlive();
  EXPECT_EQ(Heard(), "WATCHDOG=1");
  EXPECT_EQ(Heard(), std::nullopt) << "not more often than necessary";
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(test_support::WaitFor([&] {
    service.TellAlive();
    return Heard() == "WATCHDOG=1";
  }));
  EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST_F(ServiceManagerTest, HearsTheCycleNowAndThen) {
  ServiceManager service;
  service.TellCycle(0);
  service.TellCycle(1);
  EXPECT_EQ(Heard(), "STATUS=the program's file is running");
  EXPECT_EQ(Heard(), std::nullopt);
}

TEST_F(ServiceManagerTest, WantsNoWatchdogThatIsNotForThisProcessOrMakesNoSense) {
  const std::pair<const char*, const char*> rows[] = {
      {"1000000", "1"}, {"0", ""},
      {"-5", ""},       {"x", ""},
      {"5x", ""},       {"99999999999999999999", ""},
      {"", ""},         {"9223372036854775807", ""}};
  for (const auto& [time, process] : rows) {
    setenv("NOTIFY_SOCKET", path().c_str(), 1);
    setenv("WATCHDOG_USEC", time, 1);
    setenv("WATCHDOG_PID", process, 1);
    ServiceManager service;
    EXPECT_EQ(service.watchdog(), Nanoseconds(0)) << time << " " << process;
    service.TellAlive();
    EXPECT_EQ(Heard(), std::nullopt);
  }
}

TEST_F(ServiceManagerTest, MayBeMissingOrGoneOrSlow) {
  for (const std::string& name : {std::string(), std::string("relative"), std::string("/nowhere"),
                                  "/" + std::string(200, 'x')}) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    ServiceManager service;
    service.TellReady();
  }
  setenv("NOTIFY_SOCKET", path().c_str(), 1);
  ServiceManager service;
  for (int i = 0; i < 10000; ++i) service.TellReady();  // nobody reads
  EXPECT_EQ(Heard(), "READY=1");
  socket_ = Descriptor();
  service.TellReady();
}

}  // namespace
}  // namespace corvane::cli
