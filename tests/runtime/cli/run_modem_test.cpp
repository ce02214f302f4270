// SPDX-License-Identifier: MIT
// `corvane run --modem` as a user starts it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

#include "tests/runtime/cli/usage_error.h"
#include "tests/support/command.h"
#include "tests/support/modem_peer.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

using test_support::Command;
using test_support::CommandResult;
using test_support::ModemPeer;
using testing::HasSubstr;
using testing::StartsWith;

void SayOk(ModemPeer& peer, const std::string& request) {
  peer.Send(request == "AT+CPIN?\r" ? "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n" : "\r\nOK\r\n");
}

class RunModemTest : public testing::Test {
 protected:
  RunModemTest() {
    setenv("XDG_STATE_HOME", folder_.path().c_str(), 1);  // the commands inherit it
  }

  std::vector<std::string> Words(const std::string& program,
                                 const std::vector<std::string>& options) const {
    const std::string path = folder_.path() / ("program" + std::to_string(++programs_) + ".lua");
    std::ofstream(path) << program;
    std::vector<std::string> words{CORVANE, "run", path, "--cycle", "5ms"};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }
  CommandResult Run(const std::vector<std::string>& options,
                    const std::string& program = "function cycle() plc.stop() end") const {
    return test_support::RunCommand(Words(program, options));
  }
  void ExpectUsageError(const std::vector<std::string>& options, const std::string& message) const {
    const CommandResult result = Run(options);
    test_support::ExpectUsageError(result, message);
    EXPECT_THAT(result.err, StartsWith("corvane: --modem: "));
  }

  test_support::TemporaryFolder folder_;
  mutable int programs_ = 0;
};

TEST_F(RunModemTest, AWrongOptionIsOneLineAndStatus2) {
  ExpectUsageError({"--modem", "one=/dev/ttyUSB0"}, "'one' is not a port number");
  ExpectUsageError({"--modem", "/dev/ttyUSB0"}, "does not name a modem");
  ExpectUsageError({"--modem", "1=/dev/ttyUSB0,baud=fast"}, "baud=fast is not a baud rate");
  ExpectUsageError({"--modem", "1=/dev/ttyUSB0,color=red"}, "'color' is not a setting");
  ExpectUsageError({"--modem", "1=/dev/a", "--modem", "1=/dev/b"}, "port 1 is given twice");
  ExpectUsageError({"--modem", "1=" + folder_.path().string()}, "is not a serial device");
  ExpectUsageError({"--modem", "1=" + (folder_.path() / "program1.lua").string()},
                   "is not a serial device");
}

TEST_F(RunModemTest, AnExistingFileThatCannotBeASerialDeviceIsRefused) {
  const std::string pipe = (folder_.path() / "pipe").string();
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& device : {std::string("/dev/null"), pipe}) {
    ExpectUsageError({"--modem", "1=" + device}, device + " is not a serial device");
  }
}

TEST_F(RunModemTest, AMissingDeviceIsNamedInOneLineAndTheProgramRuns) {
  const CommandResult result = Run({"--modem", "1=/dev/no_such_modem"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("modem port 1: /dev/no_such_modem does not exist; is the modem "
                                    "plugged in and switched on?"));
}

TEST_F(RunModemTest, AnotherProgramsDeviceIsNamedAndTheProgramRuns) {
  ModemPeer peer(SayOk);
  const std::string modem = "1=" + peer.Target();
  const Command first(Words("function cycle() end", {"--modem", modem}));
  ASSERT_TRUE(
      test_support::WaitFor([&first] { return first.err().find("is open") != std::string::npos; }));
  const CommandResult second = Run({"--modem", modem});
  EXPECT_EQ(second.status, 0);
  EXPECT_THAT(second.err, HasSubstr("is in use by another program"));
}

TEST_F(RunModemTest, QuotesAroundInitAreOptional) {
  for (const std::string quote : {"\"", ""}) {
    ModemPeer peer(SayOk);
    const Command run(Words("function cycle() end",
                            {"--modem", "1=" + peer.Target() + ",patience=60s,init=" + quote +
                                            "AT+CPIN=1234;AT+CNMI=2,0" + quote}));
    ASSERT_TRUE(peer.WaitForRequests(3));
    EXPECT_THAT(peer.Requests(),
                testing::ElementsAre("AT+CPIN?\r", "AT+CPIN=1234\r", "AT+CNMI=2,0\r"));
  }
}

TEST_F(RunModemTest, DebugShowsExchangesButNoPinAndTraceShowsAll) {
  for (const std::string level : {"debug", "trace"}) {
    ModemPeer peer(SayOk);
    Command run(
        Words("local r = READ_SMS.new{Port = 1, Read = true} function cycle() r() end",
              {"--log-level", level, "--modem", "1=" + peer.Target() + ",init=AT+CPIN=1234"}));
    ASSERT_TRUE(peer.WaitForRequests(4));  // the one after AT+CMGF=0 has arrived
    run.Signal(SIGTERM);
    const CommandResult result = run.Wait();
    EXPECT_THAT(result.err, HasSubstr("modem port 1: AT+CPIN=(secret) -> OK in "));
    EXPECT_THAT(result.err, HasSubstr("modem port 1: AT+CMGF=0 -> OK in "));
    EXPECT_EQ(result.err.find("1234") == std::string::npos, level == "debug");
  }
}

TEST_F(RunModemTest, WhatTheModemSaysReachesNoTerminalAsACommand) {
  for (const std::string level : {"info", "debug", "trace"}) {
    ModemPeer peer([](ModemPeer& modem, const std::string&) {
      modem.Send("\r\n+\x1B[2J\x07\xC2\x9B\r\n\r\n+CMS ERROR: \x1B[2J\x9B\r\n");
    });
    Command run(Words("local r = READ_SMS.new{Port = 1, Read = true} function cycle() r() end",
                      {"--log-level", level, "--modem", "1=" + peer.Target() + ",init=AT+CSQ"}));
    ASSERT_TRUE(peer.WaitForRequests(10));
    run.Signal(SIGTERM);
    const CommandResult result = run.Wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("\\x1B[2J")) << level;
    for (const char* control : {"\x1B", "\x07", "\r", "\xC2\x9B", "\x9B"}) {
      EXPECT_THAT(result.err, testing::Not(HasSubstr(control))) << level;
    }
  }
}

TEST_F(RunModemTest, TheProgramEndsWhileAnExchangeIsOpen) {
  ModemPeer peer([](ModemPeer& self, const std::string& request) {
    if (request != "AT+CMGF=0\r") SayOk(self, request);
  });
  Command run(Words("local r = READ_SMS.new{Port = 1, Read = true} function cycle() r() end",
                    {"--modem", "1=" + peer.Target()}));
  ASSERT_TRUE(peer.WaitForRequests(1));
  run.Signal(SIGTERM);
  const CommandResult result = run.Wait();
  EXPECT_EQ(result.status, 0) << result.err;
}

}  // namespace
