// SPDX-License-Identifier: MIT
// `corvane run` as a user starts it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
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

class RunTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.path() / name).string(); }
  std::string Write(const std::string& text) const {
    const std::string path = Path("program.lua");
    std::ofstream(path) << text;
    return path;
  }
  static std::vector<std::string> Words(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{CORVANE, "run"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
  }
  static CommandResult RunWords(const std::vector<std::string>& arguments) {
    return RunCommand(Words(arguments));
  }
  CommandResult RunText(const std::string& text) const { return RunWords({Write(text)}); }

  test_support::TemporaryFolder folder_;
};

TEST_F(RunTest, RunsTheProgramUntilItStopsWithItsStatus) {
  const auto result = RunText("function cycle() print('cycle ' .. plc.cycle) plc.stop(7) end");
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.out, "cycle 1\n");
  EXPECT_THAT(result.err, HasSubstr("1 cycles, 0 overruns; cycle time min "));
}

TEST_F(RunTest, EndsAfterTheGivenCyclesWithStatus0) {
  const auto result =
      RunWords({Write("function cycle() print(plc.cycle) end"), "--cycles", "3", "--cycle", "1ms"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "1\n2\n3\n");
}

TEST_F(RunTest, PassesTheProgramItsWords) {
  const auto result = RunWords({Write("print(#plc.args, plc.args[1], plc.args[2]) plc.stop()"),
                                "--cycles", "1", "--", "--cycle", "two words"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "2\t--cycle\ttwo words\n");
}

TEST_F(RunTest, HasTheBlocksOfTheAddin) {
  const auto result = RunText(
      "local fb = SysProcessCreateWithResult.new{Command = 'echo', Args = 'hello'}\n"
      "function cycle() fb.Run = true fb() io.write(fb.Output) plc.stop(fb.Code) end");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "hello\n");
}

TEST_F(RunTest, AMissingProgramIsReportedInOneLine) {
  ExpectUsageError(RunWords({"/no/such/program.lua"}),
                   "program '/no/such/program.lua' does not exist");
}

TEST_F(RunTest, AFolderIsNotAProgram) {
  ExpectUsageError(RunWords({folder_.path().string()}), "is a folder, not a control program");
}

TEST_F(RunTest, AnUnreadableProgramIsReportedInOneLine) {
  const std::string path = Path("loop.lua");
  // A link to itself cannot be read, not even by root.
  ASSERT_EQ(symlink(path.c_str(), path.c_str()), 0);
  ExpectUsageError(RunWords({path}), "program " + path + " cannot be read: Too many levels of");
}

TEST_F(RunTest, ASyntaxErrorNamesFileAndLineAndGives2) {
  const auto result = RunText("x = = 1");
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, StartsWith("corvane: " + Path("program.lua") + ":1: unexpected symbol"));
}

TEST_F(RunTest, AProgramWithoutCycleGives2) {
  const auto result = RunText("x = 1");
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("no global function cycle()"));
}

TEST_F(RunTest, AnErrorInCycleGivesTracebackAndStatus1AndLosesNoOutput) {
  const auto result = RunText(
      "io.write('a line\\n', 'half a line')\n"
      "local function level() error('no sensor') end\n"
      "function cycle() level() end");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "a line\nhalf a line");
  EXPECT_THAT(result.err, HasSubstr(":2: no sensor\nstack traceback:"));
  EXPECT_THAT(result.err, HasSubstr("1 cycles"));
}

TEST_F(RunTest, AMissingAddinIsReportedInOneLine) {
  ExpectUsageError(RunWords({Write("plc.stop()"), "--addin", "/no/such.so"}),
                   "add-in /no/such.so does not exist");
}

TEST_F(RunTest, AnAddinThatIsNotALibraryIsReportedInOneLine) {
  std::ofstream(Path("text.so")) << "text";
  ExpectUsageError(RunWords({Write("plc.stop()"), "--addin", Path("text.so")}),
                   "cannot load add-in");
}

TEST_F(RunTest, AnAddinThatIsNotAFileIsReportedInOneLineAndNothingHangs) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  for (const std::string& path :
       {Path("pipe"), folder_.path().string(), std::string("/dev/null")}) {
    ExpectUsageError(RunWords({Write("plc.stop()"), "--addin", path}), path + " is not a file");
  }
}

TEST_F(RunTest, AnAddinThatIsGivenTwiceIsReportedInOneLine) {
  const std::string link = Path("link.so");
  ASSERT_EQ(symlink(ADDIN_FILE, link.c_str()), 0);
  for (const std::string& again : {std::string(ADDIN_FILE), link}) {
    ExpectUsageError(RunWords({Write("plc.stop()"), "--addin", ADDIN_FILE, "--addin", again}),
                     "--addin: " + again + " is given twice; give it once");
  }
}

TEST_F(RunTest, AnAddinWithoutInitAddinIsReportedInOneLine) {
  ExpectUsageError(RunWords({Write("plc.stop()"), "--addin", LIBRARY_FILE}), "it has no InitAddin");
}

TEST_F(RunTest, TheAddinCanBeNamed) {
  const auto result = RunWords({Write("print(SEND_SMS ~= nil) plc.stop()"), "--addin", ADDIN_FILE});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "true\n");
}

TEST_F(RunTest, UnknownOptionsAndWrongValuesAreReportedInOneLineEach) {
  const std::string program = Write("plc.stop()");
  ExpectUsageError(RunWords({program, "--colour"}), "--colour");
  ExpectUsageError(RunWords({program, "--cycle", "abc"}), "'abc' is not a duration");
  ExpectUsageError(RunWords({program, "--cycle", "-5ms"}), "'-5ms' is not a duration");
  ExpectUsageError(RunWords({program, "--cycle", "100"}), "'100' is not a duration");
  ExpectUsageError(RunWords({program, "--cycle"}), "--cycle");
  ExpectUsageError(RunWords({program, "--cycles", "-1"}), "--cycles");
  ExpectUsageError(RunWords({program, "--cycles", "many"}), "--cycles");
  ExpectUsageError(RunWords({program, "--cycles", "99999999999999999999999"}), "--cycles");
  ExpectUsageError(RunWords({program, "--log-level", "loud"}), "--log-level");
  ExpectUsageError(RunWords({}), "program");
  ExpectUsageError(RunCommand({CORVANE}), "subcommand");
  ExpectUsageError(RunCommand({CORVANE, "fly"}), "fly");
}

TEST_F(RunTest, NoMessageSendsControlCharactersToTheTerminal) {
  const std::string program = Write("plc.stop()");
  ExpectUsageError(RunWords({program, "--cycle", "\x1B[2J"}), "'\\x1B[2J' is not a duration");
  ExpectUsageError(RunWords({program, "--\x1B[2J"}), "--\\x1B[2J");
  ExpectUsageError(RunWords({"\x1B\n\x9B.lua"}), "program '\\x1B\\n\\x9B.lua' does not exist");
  ExpectUsageError(RunWords({program, "--modem", "1=/dev/\x1B[2J"}),
                   "'/dev/\\x1B[2J' has a control");
  ExpectUsageError(RunWords({program, "--addin", "\x1B.so"}), "add-in \\x1B.so does not exist");
  const std::string named = Path("\x1B.lua");
  std::ofstream(named) << "error('a\\n\\tb\\27')";
  const auto result = RunWords({named, "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("/\\x1B.lua:1: a\n\tb\\x1B\nstack traceback:\n\t"));
  std::ofstream(named) << "plc.stop()";
  EXPECT_THAT(RunWords({named, "--check"}).out, HasSubstr("\\x1B.lua: ok\n"));
}

TEST_F(RunTest, AVeryLongWordIsShownInPart) {
  const auto result = RunWords({Write("plc.stop()"), "--cycle", std::string(100'000, 'x')});
  ExpectUsageError(result, "is not a duration; write a number and a unit, such as 100ms, 2s or 0");
  EXPECT_LT(result.err.size(), 2000u);
}

TEST_F(RunTest, CheckLoadsTheProgramAndRunsNoCycle) {
  const std::string program = Write("print('loaded') function cycle() print('cycle') end");
  const auto result = RunWords({"--check", program, "--cycles", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "loaded\n" + program + ": ok\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(RunTest, CheckPrintsItsResultAfterTheLog) {
  const std::string program = Write("for i = 1, 1000 do plc.log('noted') end function cycle() end");
  const auto result =
      RunCommand({"/bin/sh", "-c", "\"$0\" run --check \"$1\" 2>&1", CORVANE, program});
  EXPECT_THAT(result.out, testing::EndsWith(" noted\n" + program + ": ok\n"));
}

TEST_F(RunTest, CheckSaysWhatIsWrong) {
  struct Case {
    std::string program;
    int status;
    std::string message;
  };
  for (const Case& c : {Case{"x = = 1", 2, "program.lua:1: unexpected symbol"},
                        Case{"error('no sensor')", 1, "program.lua:1: no sensor"},
                        Case{"x = 1", 2, "no global function cycle()"},
                        Case{"SEND_SMS.new(5)", 1, "table expected"}}) {
    const auto result = RunWords({Write(c.program), "--check"});
    EXPECT_EQ(result.status, c.status) << c.program;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("corvane: "));
    EXPECT_THAT(result.err, HasSubstr(c.message));
  }
}

TEST_F(RunTest, ASecondProgramIsAnErrorThatSaysWhereWordsGo) {
  const std::string program = Write("plc.stop()");
  ExpectUsageError(RunWords({program, program}),
                   "program.lua' is unexpected; words for the program go after --");
  ExpectUsageError(RunWords({program, "word", "--", "word"}), "'word' is unexpected");
}

TEST_F(RunTest, CheckOfAProgramThatStopsWhileItLoadsIsOk) {
  EXPECT_EQ(RunWords({Write("plc.stop(3)"), "--check"}).status, 0);
  EXPECT_EQ(RunWords({Write("os.exit(3)"), "--check"}).status, 0);
  ExpectUsageError(RunWords({"/no/such.lua", "--check"}), "does not exist");
}

TEST_F(RunTest, CheckReportsAMisspeltVariableOfABlock) {
  const auto result =
      RunWords({Write("local sms = SEND_SMS.new { Port = 1 }\n"
                      "local mail = SEND_EMAIL.new { Recepient = 'a@b', ReplyToMail = 'c@d' }\n"
                      "sms.Reciever = '+4912345'\nfunction cycle() end"),
                "--check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("program.lua:2: SEND_EMAIL does not declare \"Recepient\"; the "
                                    "nearest name is \"Recipient\"\n"));
  EXPECT_THAT(result.err, HasSubstr("program.lua:3: SEND_SMS does not declare \"Reciever\"; the "
                                    "nearest name is \"Receiver\"\n"));
  EXPECT_THAT(result.err, testing::Not(HasSubstr("ReplyToMail")));
}

TEST_F(RunTest, HelpShowsAnExampleAndGives0) {
  for (const char* subcommand : {"run", "blocks"}) {
    const auto result = RunCommand({CORVANE, subcommand, "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr(std::string("Example: corvane ") + subcommand));
  }
  EXPECT_EQ(RunCommand({CORVANE, "--version"}).out, "corvane " VERSION "\n");
}

TEST_F(RunTest, InterruptAndTerminateEndItAfterTheRunningCycleWithStatus0) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Command command(Words({Write("function cycle() print('cycle') end"), "--cycle", "5ms"}));
    ASSERT_TRUE(test_support::WaitFor([&] { return !command.out().empty(); }));
    command.Signal(signal);
    const auto result = command.Wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("cycles, "));
    EXPECT_THAT(result.out, testing::EndsWith("cycle\n"));
  }
}

TEST_F(RunTest, ASecondTerminateEndsACycleThatDoesNotEnd) {
  Command command(Words({Write("function cycle() print('cycle') while true do end end")}));
  ASSERT_TRUE(test_support::WaitFor([&] { return !command.out().empty(); }));
  // Two signals that come close together may count as one, so it is sent until it shows.
  ASSERT_TRUE(test_support::WaitFor([&] {
    command.Signal(SIGTERM);
    return command.HasEnded();
  }));
  EXPECT_EQ(command.Wait().status, 128 + SIGTERM);
}

TEST_F(RunTest, ASecondInterruptEndsItAlsoInTheBackgroundOfAScript) {
  const std::string program = Write("function cycle() print('cycle') while true do end end");
  Command command({"/bin/sh", "-c", "trap '' INT; exec \"$0\" run \"$1\"", CORVANE, program});
  ASSERT_TRUE(test_support::WaitFor([&] { return !command.out().empty(); }));
  ASSERT_TRUE(test_support::WaitFor([&] {
    command.Signal(SIGINT);
    return command.HasEnded();
  }));
  EXPECT_EQ(command.Wait().status, 128 + SIGINT);
}

TEST_F(RunTest, AHangupThatIsIgnoredAroundTheRuntimeHasNoEffect) {
  const std::string program = Write("function cycle() print('cycle') end");
  Command command(
      {"/bin/sh", "-c", "trap '' HUP; exec \"$0\" run --cycle 5ms \"$1\"", CORVANE, program});
  ASSERT_TRUE(test_support::WaitFor([&] { return !command.out().empty(); }));
  command.Signal(SIGHUP);
  const std::size_t before = command.out().size();
  ASSERT_TRUE(test_support::WaitFor([&] { return command.out().size() > before + 60; }))
      << "ten cycles";
  command.Signal(SIGTERM);
  EXPECT_EQ(command.Wait().status, 0);
}

TEST_F(RunTest, TheUserSignalLogsTheStatisticsAndGoesOn) {
  Command command(Words({Write("function cycle() print('cycle') end"), "--cycle", "5ms"}));
  ASSERT_TRUE(test_support::WaitFor([&] { return !command.out().empty(); }));
  command.Signal(SIGUSR1);
  ASSERT_TRUE(test_support::WaitFor(
      [&] { return command.err().find("started late p99") != std::string::npos; }));
  const std::size_t before = command.out().size();
  EXPECT_TRUE(test_support::WaitFor([&] { return command.out().size() > before; }));
}

TEST_F(RunTest, OutputLeavesLineByLineWhileItRuns) {
  Command command(Words({Write("io.write('ready\\n') function cycle() end")}));
  EXPECT_TRUE(test_support::WaitFor([&] { return command.out() == "ready\n"; }));
}

TEST_F(RunTest, OsExitEndsWithItsStatusFromAFinalizerOrACoroutineToo) {
  EXPECT_EQ(RunText("function cycle() coroutine.wrap(os.exit)(4) end").status, 4);
  const auto result = RunText(
      "function cycle() setmetatable({}, {__gc = function() os.exit(5) end}) collectgarbage() end");
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.err, testing::Not(HasSubstr("__gc")));
}

TEST_F(RunTest, AnErrorAfterACaughtOsExitIsPrintedAndGives1) {
  for (const char* error : {"error('no sensor')",
                            "setmetatable({}, {__gc = function() error('no sensor') end}) "
                            "collectgarbage()"}) {
    const auto result =
        RunText(std::string("function cycle() pcall(os.exit, 5) ") + error + " end");
    EXPECT_EQ(result.status, 1) << error;
    EXPECT_THAT(result.err, HasSubstr("no sensor"));
  }
}

/// A program that waits for a command, in a process group of its own, as a shell starts one on a
/// terminal, where Ctrl-C reaches all of it.
class InterruptTest : public RunTest, public testing::WithParamInterface<const char*> {
 protected:
  InterruptTest()
      : command_({"/usr/bin/setsid", CORVANE, "run", "--cycle", "1ms",
                  Write(std::string("function cycle() ") + GetParam() + " end")}) {
    started_ = test_support::WaitFor([&] { return command_.out() == "started\n"; });
  }
  ~InterruptTest() override { kill(-command_.pid(), SIGKILL); }

  Command command_;
  bool started_ = false;
};

TEST_P(InterruptTest, EndsTheCommandAndTheProgram) {
  ASSERT_TRUE(started_);
  kill(-command_.pid(), SIGINT);
  ASSERT_TRUE(test_support::WaitFor([&] { return command_.HasEnded(); }));
  EXPECT_EQ(command_.Wait().status, 0);
}

TEST_P(InterruptTest, OfTheProgramAloneEndsItTheSecondTime) {
  ASSERT_TRUE(started_);
  // Two signals that come close together may count as one, so it is sent until it shows.
  EXPECT_TRUE(test_support::WaitFor([&] {
    command_.Signal(SIGINT);
    return command_.HasEnded();
  }));
}

INSTANTIATE_TEST_SUITE_P(
    OfAProgramThatWaits, InterruptTest,
    testing::Values("os.execute('echo started; exec sleep 1000')",
                    "io.popen('echo started >/proc/$PPID/fd/1; exec sleep 1000'):read()"));

TEST_F(RunTest, ACycleThatABlockHoldsIsReportedWithTheLineWhileItLasts) {
  Command command(
      Words({Write("local fb = SysProcessCreateWithResult.new { Command = 'sleep 5', Run = true }\n"
                   "function cycle()\n"
                   "  fb()\n"
                   "end")}));
  EXPECT_TRUE(test_support::WaitFor([&] {
    return command.err().find(": it is in SysProcessCreateWithResult, called at " +
                              Path("program.lua") + ":3\n") != std::string::npos;
  })) << command.err();
  EXPECT_THAT(command.err(), HasSubstr(" warning cycle 1 has been running for 1"));
}

TEST_F(RunTest, AnOverrunIsReportedWhenItHappens) {
  Command command(Words(
      {Write("function cycle() local t = plc.clock() while plc.clock() - t < 0.02 do end end"),
       "--cycle", "10ms"}));
  EXPECT_TRUE(test_support::WaitFor(
      [&] { return command.err().find(" warning overrun: cycle 1 ended ") != std::string::npos; }));
}

TEST_F(RunTest, BlocksAreCollectedBeforeTheProcessEnds) {
  const auto result = RunText(
      "keep = setmetatable({}, {__gc = function() print('collected') end})\n"
      "local ok = pcall(os.exit, 2)\n"
      "function cycle() end");
  EXPECT_EQ(result.out, "collected\n");
  EXPECT_EQ(result.status, 2);
}

/// The signal set after `label` in the text of /proc/self/status.
std::uint64_t SignalSet(const std::string& status, const std::string& label) {
  return std::stoull(status.substr(status.find(label) + label.length()), nullptr, 16);
}

TEST_F(RunTest, AStartedCommandHasOrdinarySignals) {
  const auto result = RunText(
      "local fb = SysProcessCreateWithResult.new{Command = 'cat /proc/self/status', Run = true}\n"
      "fb() io.write(fb.Output) plc.stop()");
  EXPECT_EQ(SignalSet(result.out, "SigBlk:"), 0u);
  // The C library leaves its own two signals, 32 and 33, ignored in every process that it starts;
  // under qemu they are 34 and 35.
  constexpr std::uint64_t kOfTheLibrary = std::uint64_t{0xF} << 31;
  EXPECT_EQ(SignalSet(result.out, "SigIgn:") & ~kOfTheLibrary, 0u);
}

TEST_F(RunTest, AStartedCommandInheritsNoSignalThatIsIgnoredAroundTheRuntime) {
  const std::string program = Write(
      "local fb = SysProcessCreateWithResult.new{Command = 'cat /proc/self/status', Run = true}\n"
      "fb() io.write(fb.Output) plc.stop()");
  const auto result = RunCommand(
      {"/bin/sh", "-c", "trap '' PIPE HUP USR2; exec \"$0\" run \"$1\"", CORVANE, program});
  EXPECT_EQ(SignalSet(result.out, "SigIgn:") & ((std::uint64_t{1} << 31) - 1), 0u) << result.err;
}

TEST_F(RunTest, AStartedCommandInheritsNoSignalThatIsBlockedAroundTheRuntime) {
  sigset_t some;
  sigset_t before;
  sigemptyset(&some);
  for (const int signal : {SIGTERM, SIGALRM, SIGUSR2}) sigaddset(&some, signal);
  pthread_sigmask(SIG_BLOCK, &some, &before);
  const auto result = RunText(
      "local fb = SysProcessCreateWithResult.new{Command = 'cat /proc/self/status', Run = true}\n"
      "fb() io.write(fb.Output) plc.stop()");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(SignalSet(result.out, "SigBlk:"), 0u) << result.err;
}

TEST_F(RunTest, AReaderOfItsOutputThatDiesDoesNotEndTheProgram) {
  const std::string program =
      Write("function cycle() print(('x'):rep(10000)) if plc.cycle == 50 then plc.stop(3) end end");
  const auto result = RunCommand(
      {"/bin/sh", "-c",
       "{ \"$0\" run --cycle 1ms \"$1\"; echo \"ended $?\" >&2; } | head -n 1 >/dev/null", CORVANE,
       program});
  EXPECT_THAT(result.err, HasSubstr("ended 3"));
  EXPECT_THAT(result.err, HasSubstr("corvane: standard output could not be written in full\n"));
}

TEST_F(RunTest, AStartedCommandHasNoDescriptorOfTheRuntime) {
  const auto result = RunText(
      "local fb = SysProcessCreateWithResult.new{Command = 'ls /proc/self/fd', Run = true}\n"
      "fb() io.write(fb.Output) plc.stop()");
  EXPECT_EQ(result.out, "0\n1\n2\n3\n") << "3 is the folder that ls reads";
}

TEST_F(RunTest, LogGoesToStandardErrorFromItsLevelOn) {
  const std::string program = Write("plc.log('noted') plc.stop()");
  const auto shown = RunWords({program});
  EXPECT_EQ(shown.out, "");
  EXPECT_THAT(shown.err, testing::ContainsRegex("[0-9]{4}-.* info    noted\n"));
  EXPECT_EQ(RunWords({program, "--log-level", "off"}).err, "");
}

}  // namespace
