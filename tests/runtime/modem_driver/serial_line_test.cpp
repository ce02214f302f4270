// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/serial_line.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "libs/base/descriptor.h"
#include "runtime/modem_driver/read_allowance.h"
#include "tests/support/in_child.h"
#include "tests/support/modem_peer.h"
#include "tests/support/temporary_folder.h"

namespace {

using corvane::LineError;
using corvane::OpenLine;
using corvane::ParseModemTarget;
using corvane::ReadAllowance;
using corvane::WaitLoop;
using test_support::ModemPeer;
using test_support::PeerKind;
using testing::HasSubstr;

class SerialLineTest : public testing::Test {
 protected:
  std::string WhyNot(const std::string& target) {
    try {
      (void)OpenLine(ParseModemTarget("1=" + target), loop_);
    } catch (const LineError& error) {
      EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << "one line";
      return error.what();
    }
    ADD_FAILURE() << target << " was opened";
    return {};
  }
  static corvane::SteadyTime In(int seconds) {
    return std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  }

  WaitLoop loop_;
};

/// Acts as a user without rights while it lives.
class Nobody {
 public:
  Nobody() { EXPECT_EQ(seteuid(65534), 0); }
  Nobody(const Nobody&) = delete;
  Nobody& operator=(const Nobody&) = delete;
  ~Nobody() { EXPECT_EQ(seteuid(0), 0); }
};

TEST_F(SerialLineTest, AMissingDeviceIsNamed) {
  EXPECT_EQ(WhyNot("/dev/no_such_modem"),
            "/dev/no_such_modem does not exist; is the modem plugged in and switched on?");
}

TEST_F(SerialLineTest, WhatIsNotASerialDeviceIsRefused) {
  const test_support::TemporaryFolder folder;
  EXPECT_THAT(WhyNot(folder.path()), HasSubstr("is a folder, not a serial device"));
  std::ofstream(folder.path() / "file") << "x";
  EXPECT_THAT(WhyNot(folder.path() / "file"), HasSubstr("is not a serial device"));
  EXPECT_THAT(WhyNot("/dev/null"), HasSubstr("is not a serial device"));
}

TEST_F(SerialLineTest, ADeviceWithoutPermissionNamesTheGroupToJoin) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a device to a group";
  ModemPeer peer([](ModemPeer&, const std::string&) {});
  // The folder of the peer is private, so that the device itself is named.
  const std::string device = std::filesystem::read_symlink(peer.Target());
  ASSERT_EQ(chown(device.c_str(), 0, 20), 0);  // dialout has this number on Debian
  ASSERT_EQ(chmod(device.c_str(), 0660), 0);
  {
    const Nobody nobody;
    const std::string message = WhyNot(device);
    EXPECT_THAT(message, HasSubstr("no permission for " + device));
    EXPECT_THAT(message, HasSubstr("belongs to group dialout; add the user to that group (sudo "
                                   "usermod -aG dialout USER)"));
  }
  ASSERT_EQ(chmod(device.c_str(), 0600), 0);
  const Nobody nobody;
  EXPECT_THAT(WhyNot(device), HasSubstr("with mode 600; let a udev rule give it"));
}

TEST_F(SerialLineTest, ADeviceIsForOneProgramAlone) {
  ModemPeer peer([](ModemPeer&, const std::string&) {});
  auto first = OpenLine(ParseModemTarget("1=" + peer.Target()), loop_);
  EXPECT_THAT(WhyNot(peer.Target()), HasSubstr("is in use by another program"));
  if (geteuid() == 0) {  // root may open it in spite of the terminal's exclusive mode
    const std::string device = std::filesystem::read_symlink(peer.Target());
    ASSERT_EQ(chmod(device.c_str(), 0666), 0);
    const Nobody nobody;
    EXPECT_EQ(open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), -1) << "a program without locks";
    EXPECT_EQ(errno, EBUSY);
  }
  first.reset();
  EXPECT_NE(OpenLine(ParseModemTarget("1=" + peer.Target()), loop_), nullptr);
}

TEST_F(SerialLineTest, TheLineIsRawWithTheGivenSpeed) {
  ModemPeer peer([](ModemPeer&, const std::string&) {});
  const auto line =
      OpenLine(ParseModemTarget("1=" + peer.Target() + ",baud=9600,flow=rtscts"), loop_);
  const int terminal = open(peer.Target().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) GTEST_SKIP() << "only root may look at an exclusive terminal";
  termios settings{};
  ASSERT_EQ(tcgetattr(terminal, &settings), 0);
  close(terminal);
  EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B9600));
  EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0U);
  EXPECT_EQ(settings.c_iflag & (ICRNL | IXON), 0U);
  EXPECT_EQ(settings.c_oflag & OPOST, 0U);
  EXPECT_EQ(settings.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
  EXPECT_EQ(settings.c_cflag & (PARENB | CSTOPB), 0U);
  EXPECT_NE(settings.c_cflag & CRTSCTS, 0U);
  EXPECT_EQ(settings.c_cflag & (CREAD | CLOCAL), static_cast<tcflag_t>(CREAD | CLOCAL));
}

TEST_F(SerialLineTest, NoDescriptorReachesAStartedCommand) {
  ModemPeer terminal([](ModemPeer&, const std::string&) {});
  ModemPeer server([](ModemPeer&, const std::string&) {}, PeerKind::kTcp);
  const auto one = OpenLine(ParseModemTarget("1=" + terminal.Target()), loop_);
  const auto two = OpenLine(ParseModemTarget("1=" + server.Target()), loop_);
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int number = std::stoi(entry.path().filename());
    const int flags = fcntl(number, F_GETFD);
    if (number <= 2 || flags < 0) continue;
    std::error_code error;
    const std::string target = std::filesystem::read_symlink(entry.path(), error);
    if (target.rfind("/dev/pts/", 0) != 0 && target.rfind("socket:", 0) != 0) continue;
    EXPECT_NE(flags & FD_CLOEXEC, 0) << target;
  }
}

TEST_F(SerialLineTest, ATerminalDoesNotBecomeThatOfTheProgram) {
  ModemPeer peer([](ModemPeer&, const std::string&) {});
  const auto opens = [&] {
    setsid();  // whoever has no terminal gets the first that is opened without O_NOCTTY
    const auto line = OpenLine(ParseModemTarget("1=" + peer.Target()), loop_);
    return line != nullptr && test_support::HasNoTerminal();
  };
  EXPECT_EQ(test_support::InChild(opens), 0);
}

TEST_F(SerialLineTest, ALineMayHaveDescriptorZero) {
  ModemPeer terminal([](ModemPeer&, const std::string&) {});
  ModemPeer server([](ModemPeer&, const std::string&) {}, PeerKind::kTcp);
  for (const std::string& target : {terminal.Target(), server.Target()}) {
    const auto opens = [&] {
      close(0);
      const auto line = OpenLine(ParseModemTarget("1=" + target), loop_);
      return line != nullptr && fcntl(0, F_GETFD) >= 0;
    };
    EXPECT_EQ(test_support::InChild(opens), 0) << target;
  }
}

TEST_F(SerialLineTest, ASerialDeviceServerThatGoesAwayIsFoundByProbes) {
  ModemPeer peer([](ModemPeer&, const std::string&) {}, PeerKind::kTcp);
  const corvane::Descriptor unused(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int expected = fcntl(unused.get(), F_DUPFD_CLOEXEC, 0);  // the lowest free number
  close(expected);
  const auto line = OpenLine(ParseModemTarget("1=" + peer.Target()), loop_);
  const auto option = [expected](int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(expected, level, name, &value, &size), 0);
    return value;
  };
  EXPECT_NE(option(SOL_SOCKET, SO_KEEPALIVE), 0);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 10) << "seconds";
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPINTVL), 5) << "seconds";
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPCNT), 3);
  EXPECT_NE(option(IPPROTO_TCP, TCP_NODELAY), 0) << "a command is not held back";
}

TEST_F(SerialLineTest, OctetsPassUnchangedInBothDirections) {
  std::string all;
  for (int octet = 0; octet < 256; ++octet) {
    if (octet != 0x1B && octet != '\r' && octet != 0x1A) all += static_cast<char>(octet);
  }
  for (const PeerKind kind : {PeerKind::kPseudoTerminal, PeerKind::kTcp}) {
    ModemPeer peer([](ModemPeer& self, const std::string& request) { self.Send(request); }, kind);
    const auto line = OpenLine(ParseModemTarget("1=" + peer.Target()), loop_);
    ASSERT_TRUE(line->Write(all + "\r", In(20)));
    std::string received;
    while (received.size() < all.size() + 1) {
      const auto octets = line->Read(In(20));
      ASSERT_FALSE(octets.empty());
      received += octets;
    }
    EXPECT_EQ(received, all + "\r");
  }
}

TEST_F(SerialLineTest, ALostLineSaysWhy) {
  for (const PeerKind kind : {PeerKind::kPseudoTerminal, PeerKind::kTcp}) {
    ModemPeer peer([](ModemPeer& self, const std::string&) { self.Unplug(); }, kind);
    const auto line = OpenLine(ParseModemTarget("1=" + peer.Target()), loop_);
    EXPECT_EQ(line->loss(), "");
    ASSERT_TRUE(line->Write("AT\r", In(20)));
    EXPECT_EQ(line->Read(In(20)), "");
    EXPECT_NE(line->loss(), "");
    EXPECT_FALSE(line->Write("AT\r", In(20)));
  }
}

TEST_F(SerialLineTest, AWriteThatIsNotAcceptedInTimeFails) {
  ModemPeer peer([](ModemPeer&, const std::string&) {}, PeerKind::kTcp);
  const auto line = OpenLine(ParseModemTarget("1=" + peer.Target()), loop_);
  const std::string much(std::size_t{64} << 20, 'x');
  EXPECT_FALSE(line->Write(much, In(0)));
  EXPECT_EQ(line->loss(), "");
  loop_.Stop();  // nothing is waited for any more
  EXPECT_FALSE(line->Write(much, In(20)));
}

/// A peer that never pauses once it has got a request, and the line to it.
class Flood {
 public:
  Flood(PeerKind kind, WaitLoop& loop)
      : peer_([this](ModemPeer& self, const std::string&) { Pour(self); }, kind),
        line_(OpenLine(ParseModemTarget("1=" + peer_.Target()), loop)) {
    EXPECT_TRUE(line_->Write("AT\r", Later()));
  }
  Flood(const Flood&) = delete;
  Flood& operator=(const Flood&) = delete;
  ~Flood() { stop_ = true; }

  std::string_view Read() { return line_->Read(Later()); }

 private:
  static corvane::SteadyTime Later() {
    return std::chrono::steady_clock::now() + std::chrono::seconds(20);
  }
  void Pour(ModemPeer& peer) const {
    std::string yes;
    while (yes.size() < 4096) yes += "y\n";
    while (!stop_) peer.Send(yes);
  }

  std::atomic<bool> stop_{false};
  ModemPeer peer_;
  std::unique_ptr<corvane::SerialLine> line_;
};

TEST_F(SerialLineTest, APeerThatNeverPausesIsReadAtABoundedRate) {
  for (const PeerKind kind : {PeerKind::kPseudoTerminal, PeerKind::kTcp}) {
    Flood flood(kind, loop_);
    std::size_t octets = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end) octets += flood.Read().size();
    const auto most = ReadAllowance::kAtOnce + 20 * ReadAllowance::kPerSecond;
    EXPECT_LT(octets, most) << "the machine may be slow";
    EXPECT_GT(octets, ReadAllowance::kPerSecond);
  }
}

TEST_F(SerialLineTest, APeerThatNeverPausesDoesNotDelayTheEnd) {
  for (const PeerKind kind : {PeerKind::kPseudoTerminal, PeerKind::kTcp}) {
    WaitLoop loop;
    Flood flood(kind, loop);
    // Far fewer octets than may be read at once, so the limit does not keep them back.
    for (int i = 0; i < 10; ++i) EXPECT_NE(flood.Read(), "");
    loop.Stop();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(flood.Read(), "");
  }
}

TEST_F(SerialLineTest, AServerThatIsNotThereIsNamed) {
  std::string target;
  {
    const ModemPeer peer([](ModemPeer&, const std::string&) {}, PeerKind::kTcp);
    target = peer.Target();  // a port that was free a moment ago
  }
  EXPECT_EQ(WhyNot(target), target + ": Connection refused; is the serial device server running?");
}

}  // namespace
