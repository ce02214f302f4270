// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/pseudo_terminal.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <fstream>

#include "tests/runtime/modem_simulator/bench.h"
#include "tests/support/temporary_folder.h"

namespace modem_simulator {
namespace {

namespace fs = std::filesystem;

class PseudoTerminalTest : public testing::Test {
 protected:
  SimulatorOptions Options() const {
    SimulatorOptions options;
    options.link = link_;
    return options;
  }

  test_support::TemporaryFolder folder_;
  fs::path link_ = folder_.path() / "modem";
};

TEST_F(PseudoTerminalTest, HasAStableNameWhileItExists) {
  {
    Bench bench(Options());
    EXPECT_EQ(bench.AwaitOutput("\n"), "ready link=" + link_.string() +
                                           " device=" + fs::read_symlink(link_).string() + "\n");
    const Controller controller(link_);
    EXPECT_EQ(controller.Ask("AT\r"), "AT\r\r\nOK\r\n");
  }
  EXPECT_FALSE(fs::exists(fs::symlink_status(link_)));
}

TEST_F(PseudoTerminalTest, TakesOverALinkThatWasLeftBehind) {
  fs::create_symlink("/nowhere", link_);
  Bench bench(Options());
  EXPECT_EQ(Controller(link_).Ask("AT\r"), "AT\r\r\nOK\r\n");
}

TEST_F(PseudoTerminalTest, LeavesAFileThatIsNotALinkAlone) {
  std::ofstream(link_) << "mine";
  boost::asio::io_context io;
  LineWriter out(STDOUT_FILENO, [] {});
  Simulator simulator(io, Options(), out);
  EXPECT_THROW(simulator.Start(), std::runtime_error);
  EXPECT_EQ(fs::file_size(link_), 4u);
}

TEST_F(PseudoTerminalTest, SaysWhenItsNameCannotBeMade) {
  boost::asio::io_context io;
  LineWriter out(STDOUT_FILENO, [] {});
  SimulatorOptions options;
  options.link = folder_.path() / "none/modem";
  Simulator simulator(io, options, out);
  try {
    simulator.Start();
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "link " + options.link.string() + ": No such file or directory");
  }
}

TEST_F(PseudoTerminalTest, LosesWhatItSendsWhileNoProgramListens) {
  Bench bench(Options());
  bench.Do("receive +1555 unheard");
  bench.AwaitOutput("unheard");
  EXPECT_EQ(Controller(link_).Ask("AT\r"), "AT\r\r\nOK\r\n");
}

TEST_F(PseudoTerminalTest, IsIdleWhenItsProgramHasLeft) {
  boost::asio::io_context io;
  LineWriter out(STDOUT_FILENO, [] {});
  Simulator simulator(io, Options(), out);
  simulator.Start();
  {
    const Controller program(link_);
    program.Write("AT\r");
    io.run_for(std::chrono::milliseconds(100));
  }
  // A poll every ten milliseconds, plus the handlers for the rest of the answer.
  EXPECT_LT(io.run_for(std::chrono::milliseconds(200)), 40u);
}

TEST_F(PseudoTerminalTest, HidesOneProgramsAnswersFromTheNext) {
  Bench bench(Options());
  {
    const Controller first(link_);
    first.Write("ATE0;+CGMI\r");
    pollfd answered{first.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&answered, 1, kPatienceMs), 1);
  }
  // The modem needs a moment without a program to notice that the first has left.
  int unread = 1;
  for (int i = 0; i < 1000 && unread > 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(i));
    const Controller next(link_);
    ASSERT_EQ(ioctl(next.fd(), FIONREAD, &unread), 0);
    if (unread > 0) continue;
    EXPECT_EQ(next.Ask("AT\r"), "\r\nOK\r\n");
  }
  EXPECT_EQ(unread, 0);
}

TEST_F(PseudoTerminalTest, DisappearsAndReturnsUnderTheSameName) {
  Bench bench(Options());
  bench.Do("receive +1555 kept");
  bench.AwaitOutput("kept");
  const Controller before(link_);
  EXPECT_EQ(before.Ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
  bench.Do("unplug 100ms");
  EXPECT_EQ(before.ReadToTheEnd(), "");
  bench.AwaitOutput("unplugged for 100ms");
  bench.AwaitOutput("plugged in again");
  const Controller after(link_);
  EXPECT_EQ(after.Ask("AT+CMGF=0\r"), "AT+CMGF=0\r\r\nOK\r\n") << "echo is on again";
  EXPECT_NE(after.Ask("AT+CMGL=0\r").find("+CMGL: 1,0"), std::string::npos);
}

TEST_F(PseudoTerminalTest, SendsNoFasterThanItsBaudRate) {
  SimulatorOptions options = Options();
  options.baud_rate = 4800;
  Bench bench(options);
  const Controller controller(link_);
  const auto start = std::chrono::steady_clock::now();
  const std::string answer = controller.Ask("ATE0;+CGMI;+CGMM;+CGSN;+CGMR;+CPMS?\r");
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GT(answer.size(), 100u);
  EXPECT_GE(elapsed, std::chrono::milliseconds(1000 * answer.size() / 480 * 9 / 10));
}

}  // namespace
}  // namespace modem_simulator
