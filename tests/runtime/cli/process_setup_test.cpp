// SPDX-License-Identifier: MIT
// The process that runs a program is the same, whoever started it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>

#include "tests/support/command.h"
#include "tests/support/modem_peer.h"
#include "tests/support/temporary_folder.h"

namespace {

using test_support::Command;
using test_support::ModemPeer;
using testing::AnyOf;
using testing::Each;
using testing::StartsWith;

class StandardStreams : public testing::TestWithParam<std::string> {};

TEST_P(StandardStreams, ThatAreClosedLeadNothingIntoTheModem) {
  ModemPeer peer([](ModemPeer& modem, const std::string&) { modem.Send("\r\nOK\r\n"); });
  const test_support::TemporaryFolder folder;
  const std::string program = folder.path() / "program.lua";
  std::ofstream(program) << "local inbox = READ_SMS.new{Port = 1, Read = true}\n"
                            "function cycle()\n"
                            "  inbox() print('printed') plc.log('noted') io.stderr:write('said')\n"
                            "end";
  Command run(
      {"/bin/sh", "-c",
       "exec \"$0\" run \"$1\" --modem \"1=$2\" --cycle 1ms --log-level trace " + GetParam(),
       CORVANE, program, peer.Target()});
  ASSERT_TRUE(peer.WaitForRequests(20));
  EXPECT_THAT(peer.Requests(), Each(AnyOf("AT+CMGF=0\r", StartsWith("AT+CMGL="))));
  run.Signal(SIGTERM);
  EXPECT_EQ(run.Wait().status, 0);
}

INSTANTIATE_TEST_SUITE_P(OfEachCombination, StandardStreams,
                         testing::Values("<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-",
                                         "<&- >&- 2>&-"));

}  // namespace
