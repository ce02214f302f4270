// SPDX-License-Identifier: MIT
// `corvane modem` as a user starts it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/runtime/cli/usage_error.h"
#include "tests/support/command.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

using test_support::Command;
using test_support::CommandResult;
using test_support::ExpectUsageError;
using test_support::RunCommand;
using testing::HasSubstr;
using testing::StartsWith;

class ModemCommandTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.path() / name).string(); }
  std::string Scenario(const std::string& text) const {
    const std::string path = Path("scenario.txt");
    std::ofstream(path) << text;
    return path;
  }
  static CommandResult Run(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{CORVANE, "modem"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return RunCommand(words);
  }

  test_support::TemporaryFolder folder_;
};

TEST_F(ModemCommandTest, RunsAScenarioToItsEnd) {
  const auto result =
      Run({"--link", Path("modem"), "--time", "2026-01-31T12:00:00+01:00", "--scenario",
           Scenario("# a message\n"
                    "receive +4915112345678 Pump 3 has stopped\n"
                    "\n"
                    "after 10ms list\n"
                    "after 20ms quit\n")});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("ready link=" + Path("modem") + " device=/dev/"));
  EXPECT_THAT(result.out,
              HasSubstr("received, place 1: from +4915112345678 at 2026-01-31T12:00:00+01:00: Pump "
                        "3 has stopped\n"
                        "store: 1 of 20 places taken\n"
                        "place 1, REC UNREAD: from +4915112345678"));
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(Path("modem"))));
}

TEST_F(ModemCommandTest, EndsWithASignalAndRemovesItsLink) {
  Command modem({CORVANE, "modem", "--link", Path("modem"), "--scenario", Scenario("")});
  ASSERT_TRUE(test_support::WaitFor([&] { return modem.out().find("ready") == 0; }));
  EXPECT_TRUE(std::filesystem::is_symlink(Path("modem")));
  modem.Signal(SIGTERM);
  EXPECT_EQ(modem.Wait().status, 0);
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(Path("modem"))));
}

TEST_F(ModemCommandTest, ListensOnTcpAlone) {
  const auto result = Run({"--tcp", "127.0.0.1:0", "--scenario", Scenario("quit\n")});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, testing::MatchesRegex("ready tcp=127.0.0.1:[0-9]+\n"));
}

TEST_F(ModemCommandTest, NamesTheScenarioLineAtFault) {
  const std::string scenario = Scenario("list\n\nafter 2s fial 321\n");
  ExpectUsageError(Run({"--scenario", scenario}),
                   scenario + ":3: 'fial' is not a command; help lists them all");
}

TEST_F(ModemCommandTest, ShowsNoControlCharacterOfARefusedText) {
  ExpectUsageError(Run({"--scenario", Scenario("mute \x1B[2J\n")}), "'\\x1B[2J' is not a duration");
  ExpectUsageError(Run({"--tcp", "\x1B[2J"}), "'\\x1B[2J' is not an address");
  const auto console = RunCommand({"/bin/sh", "-c",
                                   "printf 'mute \\033[2J\\nquit\\n' | \"$0\" modem --tcp "
                                   "127.0.0.1:0",
                                   CORVANE});
  EXPECT_THAT(console.out, HasSubstr("error: '\\x1B[2J' is not a duration"));
}

TEST_F(ModemCommandTest, RefusesAScenarioThatCannotBeRead) {
  ExpectUsageError(Run({"--scenario", Path("none")}),
                   "scenario " + Path("none") + " cannot be read");
  ExpectUsageError(Run({"--scenario", folder_.path().string()}),
                   "scenario " + folder_.path().string() + " cannot be read");
}

TEST_F(ModemCommandTest, RefusesAScenarioThatIsNotTextOrIsEndless) {
  ExpectUsageError(Run({"--scenario", "/dev/zero"}), "scenario /dev/zero is not a text file");
  ExpectUsageError(
      RunCommand({"/bin/sh", "-c", "yes '#' | \"$0\" modem --scenario /dev/stdin", CORVANE}),
      "scenario /dev/stdin is longer than 16 MiB");
}

TEST_F(ModemCommandTest, SkipsAByteOrderMarkBeforeAScenario) {
  EXPECT_EQ(Run({"--tcp", "127.0.0.1:0", "--scenario", Scenario("\xEF\xBB\xBFquit\n")}).status, 0);
}

TEST_F(ModemCommandTest, ReadsAScenarioFromAPipe) {
  const auto result =
      RunCommand({"/bin/sh", "-c",
                  "echo quit | \"$0\" modem --tcp 127.0.0.1:0 --scenario /dev/stdin", CORVANE});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("ready tcp="));
}

TEST_F(ModemCommandTest, RefusesInvalidOptions) {
  ExpectUsageError(Run({"--store-size", "0"}), "--store-size");
  ExpectUsageError(Run({"--store-size", "10001"}), "--store-size");
  for (const std::string name : {"--link", "--tcp", "--scenario"}) {
    ExpectUsageError(Run({name, ""}), name + ": its value is empty");
  }
  ExpectUsageError(Run({"--pin", "12"}), "a PIN has 4 to 8 digits");
  ExpectUsageError(Run({"--pin", "abcd"}), "a PIN has 4 to 8 digits");
  ExpectUsageError(Run({"--network-delay", "soon"}), "'soon' is not a duration");
  ExpectUsageError(Run({"--baud", "9601"}), "--baud");
  ExpectUsageError(Run({"--quirk", "none"}), "'none' is not a quirk");
  ExpectUsageError(Run({"--time", "noon"}), "'noon' is not a time");
  ExpectUsageError(Run({"--tcp", "4001"}), "'4001' is not an address; write HOST:PORT");
  ExpectUsageError(
      Run({"--tcp", "127.0.0.1:99999"}),
      "'127.0.0.1:99999' is not an address; write HOST:PORT with a port from 0 to 65535");
  ExpectUsageError(Run({"--tcp", "127.0.0.1:65536"}), "'127.0.0.1:65536' is not an address");
}

TEST_F(ModemCommandTest, LeavesAFileWithTheNameOfItsLinkAlone) {
  std::ofstream(Path("file")) << "mine";
  ExpectUsageError(Run({"--link", Path("file")}), Path("file") + " exists and is not a link");
  EXPECT_EQ(std::filesystem::file_size(Path("file")), 4u);
}

TEST_F(ModemCommandTest, HelpShowsAnExample) {
  const auto result = Run({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("Example: corvane modem --link /tmp/modem"));
  EXPECT_THAT(result.out, HasSubstr("receive NUMBER TEXT"));
  EXPECT_THAT(result.out, HasSubstr("echo-always"));
}

}  // namespace
