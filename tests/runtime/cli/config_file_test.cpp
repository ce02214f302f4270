// SPDX-License-Identifier: MIT
#include "runtime/cli/config_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/runtime/cli/usage_error.h"
#include "tests/support/command.h"
#include "tests/support/temporary_folder.h"

namespace {

using test_support::CommandResult;
using test_support::ExpectUsageError;

class ConfigFileTest : public testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& text) const {
    const std::string path = (folder_.path() / name).string();
    std::ofstream(path) << text;
    return path;
  }
  /// Runs a program that shows its arguments and cycles, with `config` and further words.
  CommandResult RunWith(const std::string& config, std::vector<std::string> words = {}) const {
    const std::vector<std::string> head{
        CORVANE, "run",
        Write("program.lua",
              "print(table.concat(plc.args, '|')) function cycle() print(plc.cycle) "
              "end"),
        "--config", Write("options.conf", config)};
    words.insert(words.begin(), head.begin(), head.end());
    return test_support::RunCommand(words);
  }
  test_support::TemporaryFolder folder_;
};

TEST_F(ConfigFileTest, HoldsOptionsUnderTheirNames) {
  const auto result = RunWith("# a comment\n\n  cycle = 1ms\ncycles=2\r\nlog-level = \"off\"\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "\n1\n2\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(ConfigFileTest, TheLastLineNeedsNoLineFeedAndAnEmptyFileSetsNothing) {
  EXPECT_EQ(RunWith("cycle = 1ms\ncycles = 1").out, "\n1\n");
  EXPECT_EQ(RunWith("", {"--cycles", "1"}).out, "\n1\n");
}

TEST_F(ConfigFileTest, AByteOrderMarkAtTheStartIsIgnored) {
  EXPECT_EQ(RunWith("\xEF\xBB\xBF"
                    "cycles = 1\n")
                .out,
            "\n1\n");
}

TEST_F(ConfigFileTest, TheCommandLineWins) {
  const auto result = RunWith("cycles = 5\ncycle = 1ms\n", {"--cycles", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "\n1\n");
}

TEST_F(ConfigFileTest, ValuesThatTheCommandLineReplacesAreNotChecked) {
  EXPECT_EQ(RunWith("cycles = many\n", {"--cycles", "1"}).status, 0);
}

TEST_F(ConfigFileTest, TheProgramsArgumentsHaveALineEachAndKeepSpacesCommasAndHashes) {
  EXPECT_EQ(RunWith("cycles = 1\nargs = one two\nargs = 1=/dev/x,baud=9600 # 5\n").out,
            "one two|1=/dev/x,baud=9600 # 5\n1\n");
  EXPECT_EQ(RunWith("cycles = 1\nargs = one\n", {"--", "two"}).out, "two\n1\n");
}

TEST_F(ConfigFileTest, ARepeatableOptionHasALineForEachValue) {
  const auto result = RunWith("addin = " ADDIN_FILE "\naddin = /no/such.so\n");
  ExpectUsageError(result, "options.conf:2: --addin: add-in /no/such.so does not exist");
}

TEST_F(ConfigFileTest, AWrongModemOrAddinIsNamedWithItsLine) {
  ExpectUsageError(RunWith("modem = 1=/dev/x, patience=60s\n"),
                   "options.conf:1: --modem: ' patience' is not a setting");
  ExpectUsageError(RunWith("modem = 1=/dev/x\nmodem = 1=/dev/y\n"),
                   "options.conf:2: --modem: port 1 is given twice, as /dev/x and as /dev/y");
  ExpectUsageError(
      RunWith("\nmodem = 1=" + folder_.path().string() + "\n"),
      "options.conf:2: --modem: " + folder_.path().string() + " is not a serial device");
  ExpectUsageError(RunWith("addin = /no/such.so\n"),
                   "options.conf:1: --addin: add-in /no/such.so does not exist");
}

TEST_F(ConfigFileTest, AQuoteWithinQuotesNeedsABackslash) {
  EXPECT_EQ(RunWith("cycles = 1\nargs = \"say \\\"on\\\"\"\nargs = say \\\"off\\\"\n").out,
            "say \"on\"|say \\\"off\\\"\n1\n");
  const auto result =
      RunWith("cycles = 1\nmodem = 1=/dev/no_such_modem,init=\"AT+CPMS=\\\"SM\\\",\\\"SM\\\"\"\n");
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(ConfigFileTest, AnUnknownNameIsReportedInOneLineWithTheName) {
  ExpectUsageError(RunWith("cycles = 1\ncolour = red\n"),
                   "options.conf:2: there is no option 'colour'");
  ExpectUsageError(RunWith("c = 1\n"), "options.conf:1: there is no option 'c'");
  ExpectUsageError(RunWith("cylce = 1s\n"), "there is no option 'cylce'; did you mean cycle?");
  ExpectUsageError(RunWith("= 1\n"), "there is no option ''");
  ExpectUsageError(RunWith("a.b = 1\n"), "there is no option 'a.b'");
}

TEST_F(ConfigFileTest, ALineOfTheWrongFormIsReportedInOneLine) {
  ExpectUsageError(RunWith("[run]\n"), "options.conf:1: '[run]' is not of the form name = value");
  ExpectUsageError(RunWith("cycles\n"), "'cycles' is not of the form name = value");
}

TEST_F(ConfigFileTest, AValueThatTheOptionRefusesIsReportedInOneLine) {
  ExpectUsageError(RunWith("\ncycle = abc\n"), "options.conf:2: --cycle: 'abc' is not a duration");
  ExpectUsageError(RunWith("log-level = loud\n"), "--log-level");
  ExpectUsageError(RunWith("cycles =\n"), "--cycles");
}

TEST_F(ConfigFileTest, ASingleOptionMayNotBeGivenTwice) {
  ExpectUsageError(RunWith("cycle = 1ms\ncycle = 2ms\n"),
                   "options.conf:2: --cycle is given twice; give it once");
}

TEST_F(ConfigFileTest, WhatBelongsOnTheCommandLineIsRefused) {
  for (const char* name : {"program", "config", "check", "help"}) {
    ExpectUsageError(RunWith(std::string(name) + " = x\n"), "belongs on the command line");
  }
}

TEST_F(ConfigFileTest, AFileThatCannotBeReadIsReportedInOneLine) {
  const std::string program = Write("program.lua", "plc.stop()");
  for (const std::string& path : {std::string("/no/such.conf"), folder_.path().string()}) {
    ExpectUsageError(test_support::RunCommand({CORVANE, "run", program, "--config", path}),
                     "configuration " + path + " cannot be read: ");
  }
}

TEST_F(ConfigFileTest, AnEmptyNameIsReportedInOneLine) {
  const std::string program = Write("program.lua", "plc.stop()");
  ExpectUsageError(test_support::RunCommand({CORVANE, "run", program, "--config", ""}),
                   "--config: its value is empty; give one, or leave the option out");
  ExpectUsageError(RunWith("addin =\n"), "options.conf:1: --addin: its value is empty");
}

TEST_F(ConfigFileTest, AFileThatIsNotTextOrIsEndlessIsReportedInOneLine) {
  const std::string program = Write("program.lua", "plc.stop()");
  ExpectUsageError(test_support::RunCommand({CORVANE, "run", program, "--config", "/dev/zero"}),
                   "configuration /dev/zero is not a text file");
  ExpectUsageError(
      test_support::RunCommand(
          {"/bin/sh", "-c", "yes | \"$0\" run \"$1\" --config /dev/stdin", CORVANE, program}),
      "configuration /dev/stdin is longer than 16 MiB");
}

TEST_F(ConfigFileTest, ItsControlCharactersNeverReachATerminal) {
  ExpectUsageError(RunWith("\x7F"
                           "ELF\x1B[2J\n"),
                   "'\\x7F"
                   "ELF\\x1B[2J' is not of the form name = value");
}

TEST_F(ConfigFileTest, MayBeAPipe) {
  const std::string program = Write("program.lua", "function cycle() print(plc.cycle) end");
  const auto result = test_support::RunCommand(
      {"/bin/sh", "-c",
       "printf 'cycles = 2\\ncycle = 1ms\\n' | \"$0\" run \"$1\" --config /dev/stdin", CORVANE,
       program});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "1\n2\n");
}

}  // namespace
