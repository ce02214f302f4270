// SPDX-License-Identifier: MIT
#include "runtime/bench/server/listener.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <thread>

#include "runtime/bench/server/socket_path.h"
#include "tests/support/temporary_folder.h"

namespace corvane::bench {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

bool IsListener(const Descriptor& socket) {
  int listens = 0;
  socklen_t size = sizeof listens;
  return getsockopt(socket.get(), SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

/// Commands that blocks start must not keep the port, and accepting must not wait.
void ExpectCloseOnExecAndNonBlocking(const Descriptor& socket) {
  EXPECT_NE(fcntl(socket.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(socket.get(), F_GETFL) & O_NONBLOCK, 0);
}

template <class Action>
std::string ErrorOf(const Action& action) {
  try {
    action();
  } catch (const BenchError& error) {
    return error.what();
  }
  return "";
}

TEST(TcpListener, TakesThePortThatTheSystemChooses) {
  WebAddress address;
  const Descriptor socket = ListenOnTcp(address);
  EXPECT_NE(address.port, 0);
  EXPECT_TRUE(IsListener(socket));
  ExpectCloseOnExecAndNonBlocking(socket);
}

TEST(TcpListener, ListensOnTheSixthVersionToo) {
  WebAddress address{"::1", 0};
  const std::string error = ErrorOf([&] { EXPECT_TRUE(IsListener(ListenOnTcp(address))); });
  if (!error.empty()) GTEST_SKIP() << "this machine has no IPv6: " << error;
}

TEST(TcpListener, SaysWhatToDoAboutAPortThatIsInUse) {
  WebAddress address;
  const Descriptor first = ListenOnTcp(address);
  EXPECT_THAT(ErrorOf([&] { (void)ListenOnTcp(address); }),
              AllOf(HasSubstr("the bench cannot listen on " + address.Text()),
                    HasSubstr("another program uses it: choose another port")));
}

TEST(TcpListener, SaysWhichPortsAreForRootOnly) {
  WebAddress address{"127.0.0.1", 81};
  std::string error;
  std::thread([&] {
    // Without glibc's wrapper, so that only this thread is another user.
    if (geteuid() == 0) {
      ASSERT_EQ(syscall(SYS_setresuid, -1, 65534, -1), 0);
    }
    error = ErrorOf([&] { (void)ListenOnTcp(address); });
  }).join();
  if (error.empty()) GTEST_SKIP() << "net.ipv4.ip_unprivileged_port_start is below 82 here";
  EXPECT_THAT(error, EndsWith("127.0.0.1:81: Permission denied; ports below 1024 are reserved for "
                              "root: choose another, such as 8080"));
}

TEST(TcpListener, SaysThatAnAddressIsNotOneOfThisMachine) {
  WebAddress address{"192.0.2.1", 0};  // RFC 5737: only for documentation
  EXPECT_THAT(ErrorOf([&] { (void)ListenOnTcp(address); }),
              HasSubstr("it is not an address of this machine"));
}

class UnixListenerTest : public testing::Test {
 protected:
  static bool IsThere(const fs::path& path) { return fs::exists(fs::symlink_status(path)); }

  const test_support::TemporaryFolder temporary_;
  const fs::path folder_ = temporary_.path() / "run" / "corvane";
};

TEST_F(UnixListenerTest, MakesASocketForTheOwnerAndItsGroupInAFolderForTheOwner) {
  UnixListener listener(folder_, "pump");
  EXPECT_EQ(listener.path(), folder_ / "pump.sock");
  struct stat status {};
  ASSERT_EQ(lstat(listener.path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777U, 0660U);
  EXPECT_EQ(fs::status(folder_).permissions(), fs::perms::owner_all);
  const Descriptor socket = listener.Take();
  EXPECT_TRUE(IsListener(socket));
  ExpectCloseOnExecAndNonBlocking(socket);
  EXPECT_TRUE(IsListening(listener.path()));
}

TEST_F(UnixListenerTest, RemovesItsSocketAtTheEnd) {
  { const UnixListener listener(folder_, "pump"); }
  EXPECT_FALSE(IsThere(folder_ / "pump.sock"));
}

TEST_F(UnixListenerTest, ASecondProgramOfTheSameNameAddsItsProcess) {
  const UnixListener first(folder_, "pump");
  {
    const UnixListener second(folder_, "pump");
    EXPECT_EQ(second.path(), folder_ / ("pump-" + std::to_string(getpid()) + ".sock"));
  }
  EXPECT_TRUE(IsListening(first.path())) << "the second has not touched it";
}

TEST_F(UnixListenerTest, TakesThePlaceOfAProgramThatWasKilled) {
  {
    UnixListener killed(folder_, "pump");
    fs::create_hard_link(killed.path(), folder_ / "kept");
  }
  fs::rename(folder_ / "kept", folder_ / "pump.sock");  // nobody listens on it any more
  const UnixListener listener(folder_, "pump");
  EXPECT_EQ(listener.path(), folder_ / "pump.sock");
  EXPECT_TRUE(IsListening(listener.path()));
}

TEST_F(UnixListenerTest, NamesTheFolderThatCannotBeMade) {
  std::ofstream(temporary_.path() / "file") << "x";
  EXPECT_THAT(ErrorOf([&] { const UnixListener listener(temporary_.path() / "file/run", "pump"); }),
              HasSubstr("file/run"));
}

TEST_F(UnixListenerTest, NamesTheSocketWhosePlaceIsTaken) {
  fs::create_directories(folder_ / "pump.sock" / "below");
  EXPECT_THAT(ErrorOf([&] { const UnixListener listener(folder_, "pump"); }),
              AllOf(HasSubstr("pump.sock"), HasSubstr("Address already in use")));
}

TEST_F(UnixListenerTest, NamesASocketWhosePathIsTooLong) {
  EXPECT_THAT(ErrorOf([&] { const UnixListener listener(folder_, std::string(120, 'p')); }),
              HasSubstr("File name too long"));
}

class SocketFolderTest : public testing::Test {
 protected:
  SocketFolderTest() { Set(nullptr, nullptr); }
  ~SocketFolderTest() override {
    for (const auto& [name, value] : before_) {
      value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
  }
  static void Set(const char* service, const char* user) {
    service != nullptr ? setenv("RUNTIME_DIRECTORY", service, 1) : unsetenv("RUNTIME_DIRECTORY");
    user != nullptr ? setenv("XDG_RUNTIME_DIR", user, 1) : unsetenv("XDG_RUNTIME_DIR");
  }

 private:
  static std::optional<std::string> Now(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
  }
  const std::pair<const char*, std::optional<std::string>> before_[2] = {
      {"RUNTIME_DIRECTORY", Now("RUNTIME_DIRECTORY")}, {"XDG_RUNTIME_DIR", Now("XDG_RUNTIME_DIR")}};
};

TEST_F(SocketFolderTest, IsTheServicesFirstFolderElseTheUsers) {
  EXPECT_EQ(SocketFolder(), "");
  Set("", "/run/user/1");
  EXPECT_EQ(SocketFolder(), "/run/user/1/corvane");
  Set("/run/a:/run/b", "/run/user/1");
  EXPECT_EQ(SocketFolder(), "/run/a");
}

TEST(ConnectLocally, SaysWhyThereIsNoConnection) {
  const test_support::TemporaryFolder folder;
  EXPECT_LT(ConnectLocally(folder.path() / "none.sock").get(), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_LT(ConnectLocally("/" + std::string(120, 'p')).get(), 0);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_LT(ConnectLocally(folder.Write("file.sock", "x")).get(), 0);
  EXPECT_EQ(errno, ECONNREFUSED);
}

}  // namespace
}  // namespace corvane::bench
