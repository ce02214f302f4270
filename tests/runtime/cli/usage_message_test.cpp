// SPDX-License-Identifier: MIT
// What the command says about words that it cannot use.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/runtime/cli/usage_error.h"
#include "tests/support/command.h"

namespace {

void Expect(const std::vector<std::string>& words, const std::string& message) {
  std::vector<std::string> command{CORVANE};
  command.insert(command.end(), words.begin(), words.end());
  const auto result = test_support::RunCommand(command);
  test_support::ExpectUsageError(result, "");
  EXPECT_EQ(result.err, "corvane: " + message + "\n");
}

TEST(UsageMessage, ForAnOptionGivenTooOften) {
  Expect({"blocks", "--addin", ADDIN_FILE, "--addin"},
         "--addin: its value is missing; write it after the name (try corvane blocks --help)");
  Expect({"modem", "--seed", "1", "--seed", "2"},
         "--seed is given twice; give it once (try corvane modem --help)");
}

TEST(UsageMessage, ForAnOptionWithoutItsValue) {
  Expect({"modem", "--seed"},
         "--seed: its value is missing; write it after the name (try corvane modem --help)");
  Expect({"pdu", "encode", "--to"},
         "--to: its value is missing; write it after the name (try corvane pdu encode --help)");
}

TEST(UsageMessage, ForAValueThatTheOptionDoesNotHave) {
  Expect({"modem", "--seed", "x"},
         "--seed: 'x' is not a whole number from 0 to 4294967295 (try corvane modem --help)");
  Expect({"modem", "--store-size", "10001"},
         "--store-size: '10001' is not a whole number from 1 to 10000 (try corvane modem --help)");
  Expect(
      {"modem", "--baud", "5"},
      "--baud: '5' is not one of 0, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400, "
      "460800, 921600 (try corvane modem --help)");
  Expect({"modem", "--trace=x"}, "--trace takes no value, but got 'x' (try corvane modem --help)");
}

TEST(UsageMessage, ForAWordTooMany) {
  Expect({"modem", "foo"},
         "'foo' is unexpected; put a value with spaces in quotes (try corvane modem --help)");
  Expect({"blocks", "--colour"}, "there is no option --colour (try corvane blocks --help)");
  Expect({"pdu", "decode", "--xml"}, "there is no option --xml (try corvane pdu decode --help)");
}

TEST(UsageMessage, ForAMisspeltOptionWhateverItsValueIsTakenFor) {
  const std::string cycle =
      "there is no option --cylce; did you mean --cycle? (try corvane run --help)";
  Expect({"run", "--cylce", "5ms", "/no/such.lua"}, cycle);
  Expect({"run", "--cylce"}, cycle);
  Expect({"run", "--hlep"},
         "there is no option --hlep; did you mean --help? (try corvane run --help)");
  Expect({"run", "/no/such.lua", "--", "--cylce"},
         "program: program '/no/such.lua' does not exist (try corvane run --help)");
  Expect({"test", "--flter=x"},
         "there is no option --flter=x; did you mean --filter? (try corvane test --help)");
}

TEST(UsageMessage, ForAMissingWord) {
  Expect({"run"}, "program is missing: The control program, a Lua file (try corvane run --help)");
  Expect({"pdu", "encode", "x"},
         "--to is missing: Receiver's number, digits only (try corvane pdu encode --help)");
}

TEST(UsageMessage, ForASubcommand) {
  Expect({}, "a subcommand is missing (try corvane --help)");
  Expect({"fly"},
         "'fly' is not a subcommand; the subcommands are run, blocks, check-modem, list, "
         "log-level, messages, modem, pdu, test, watch (try corvane --help)");
  Expect({"pdu"},
         "a subcommand is missing; the subcommands are decode, encode (try corvane pdu --help)");
  Expect({"pdu", "fly"},
         "'fly' is not a subcommand; the subcommands are decode, encode (try corvane pdu --help)");
}

}  // namespace
