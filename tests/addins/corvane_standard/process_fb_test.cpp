// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/process_fb.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "addins/corvane_standard/process_runner.h"
#include "tests/addins/corvane_standard/standard_block_test.h"
#include "tests/addins/corvane_standard/timing_diagram.h"
#include "tests/support/spawning.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

using namespace std::chrono_literals;
using test_support::WaitFor;

std::string Content(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

bool IsProcess(const std::string& name) {
  return name.find_first_not_of("0123456789") == std::string::npos;
}

/// Processes, zombies included, whose environment or command line says that they are of this test;
/// a zombie has neither, but is a child of ours.
int CountLeft(const std::string& marker) {
  int count = 0;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename();
    if (!IsProcess(name) || name == std::to_string(getpid())) continue;
    const std::string stat = Content(entry.path() / "stat");
    const std::size_t state = stat.rfind(')') + 2;
    const bool is_zombie_child = state < stat.size() && stat[state] == 'Z' &&
                                 stat.substr(state + 2).starts_with(std::to_string(getpid()) + " ");
    if (is_zombie_child || Content(entry.path() / "environ").find(marker) != std::string::npos) {
      ++count;
    }
  }
  return count;
}

std::size_t OpenDescriptors() {
  const auto files = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

class Process : public StandardBlockTest {
 protected:
  Process() {
    setenv("CORVANE_TEST_OF", marker_.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  }
  ~Process() override {
    CloseHost();
    DisposeAddin();
    EXPECT_TRUE(NothingLeft()) << CountLeft(marker_) << " processes are left";
  }

  /// Starts a job with these inputs.
  void Start(const std::string& inputs) {
    Run("fb = PROCESS.new{" + inputs + "} fb.Execute = true fb()");
  }
  bool CallUntil(const std::string& condition) {
    return WaitFor([&] {
      Run("fb()");
      return Eval(condition) == "true";
    });
  }
  /// Runs a job to its end.
  void Complete(const std::string& inputs) {
    Start(inputs);
    EXPECT_TRUE(CallUntil("not fb.Busy"));
  }
  std::string Error() { return Eval("fb.ErrorId .. ' ' .. fb.ErrorText"); }
  bool NothingLeft() {
    return WaitFor([this] { return CountLeft(marker_) == 0; });
  }
  int Left() { return CountLeft(marker_); }
  std::string FileName(const std::string& name) { return folder_.path().string() + "/" + name; }
  /// Waits until a process of the test has made this file.
  bool Appears(const std::string& name) {
    return WaitFor([&] { return std::filesystem::exists(FileName(name)); });
  }

  test_support::TemporaryFolder folder_;

 private:
  const std::string marker_ = "process-test-" + folder_.path().string();
};

TEST_F(Process, RunsACommandAndKeepsItsOutputs) {
  Complete("Command = 'echo out; echo err >&2; exit 3'");
  EXPECT_EQ(Eval("fb.Done"), "true");
  EXPECT_EQ(Eval("fb.Error"), "false");
  EXPECT_EQ(Eval("fb.Output"), "out\n");
  EXPECT_EQ(Eval("fb.ErrorOutput"), "err\n");
  EXPECT_EQ(Eval("fb.ExitCode"), "3");
  EXPECT_EQ(Eval("fb.Signal"), "0");
  EXPECT_EQ(Eval("fb.Pid"), "0");
  EXPECT_EQ(Eval("fb.Truncated"), "false");
  EXPECT_EQ(Eval("fb.Duration > 0 and fb.Duration < 60"), "true");
}

TEST_F(Process, RunsAProgramWithArgumentsThatNoShellSees) {
  Complete(R"(Program = 'printf', Arguments = '[%s]\n$HOME `id`\n\n; echo x')");
  EXPECT_EQ(Eval("fb.Output"), "[$HOME `id`][][; echo x]");
  Complete("Program = 'true'");
  EXPECT_EQ(Eval("fb.ExitCode"), "0");
}

TEST_F(Process, IsBusyInTheCallOfTheEdgeAndShowsItsProcess) {
  Start("Command = 'read line', Input = ''");
  Run("fb2 = PROCESS.new{Command = 'sleep 1000', Execute = true} fb2()");
  EXPECT_EQ(Eval("fb2.Busy"), "true");
  EXPECT_TRUE(WaitFor([this] {
    Run("fb2()");
    return Eval("fb2.Pid > 0 and fb2.Duration > 0") == "true";
  }));
  EXPECT_EQ(Eval("fb2.ExitCode"), "-1");
  Run("fb2.Abort = true");
  EXPECT_TRUE(CallUntil("not fb.Busy"));
}

TEST_F(Process, ReadsItsInputToTheEnd) {
  Complete("Program = 'cat', Input = 'one\\0two'");
  EXPECT_EQ(Eval("fb.Output"), std::string("one\0two", 7));
  Complete("Program = 'cat'");
  EXPECT_EQ(Eval("fb.Output"), "");
  Complete("Program = 'md5sum', Input = ('x'):rep(1048576)");
  EXPECT_EQ(Eval("fb.Output"), "b561f87202d04959e37588ee05cf5b10  -\n");
}

TEST_F(Process, EndsAlthoughNobodyReadsItsInput) {
  Complete("Program = 'true', Input = ('x'):rep(1048576)");
  EXPECT_EQ(Eval("fb.Done"), "true");
  Complete("Command = 'exec <&-; sleep 0.05; echo on', Input = ('x'):rep(1048576)");
  EXPECT_EQ(Eval("fb.Output"), "on\n");
}

TEST_F(Process, RunsInItsFolder) {
  Complete("Command = 'pwd', Folder = '" + folder_.path().string() + "'");
  EXPECT_EQ(Eval("fb.Output"), folder_.path().string() + "\n");
}

TEST_F(Process, KeepsAsMuchOutputAsItMay) {
  Complete("Command = 'printf 12345; printf abcd >&2', MaxOutput = 4");
  EXPECT_EQ(Eval("fb.Output"), "1234");
  EXPECT_EQ(Eval("fb.ErrorOutput"), "abcd");
  EXPECT_EQ(Eval("fb.Truncated"), "true");
  Complete("Command = 'printf abcd', MaxOutput = 4");
  EXPECT_EQ(Eval("fb.Truncated"), "false");
  Complete("Command = 'head -c 65537 /dev/zero'");
  EXPECT_EQ(Eval("#fb.Output"), "65536");
  EXPECT_EQ(Eval("fb.Truncated"), "true");
}

TEST_F(Process, ReadsAndDropsAGigabyte) {
  const std::size_t before = mallinfo2().uordblks;
  Complete("Command = 'head -c 1000000000 /dev/zero; echo done >&2'");
  EXPECT_EQ(Eval("fb.ErrorOutput"), "done\n");
  EXPECT_EQ(Eval("#fb.Output"), "65536");
  EXPECT_LT(mallinfo2().uordblks, before + 10'000'000);
}

TEST_F(Process, SaysWhyItWasNotStarted) {
  if (!test_support::SpawnReportsFailure())
    GTEST_SKIP() << "the emulator's posix_spawn reports no failure";
  const std::string file = FileName("file");
  std::ofstream(file) << "x";
  const auto expect = [this](const std::string& inputs, const std::string& error) {
    Complete(inputs);
    EXPECT_EQ(Error(), error);
    EXPECT_EQ(Eval("fb.Error"), "true");
    EXPECT_EQ(Eval("fb.ExitCode"), "-1");
  };
  expect("Program = 'no-such-program'",
         "40 cannot start 'no-such-program': it is not in PATH; correct Program, or install it");
  expect("Program = '/no/such/program'",
         "40 cannot start '/no/such/program': it, or its interpreter, does not exist; correct "
         "Program, or install it");
  expect("Program = '" + file + "'",
         "40 cannot start '" + file + "': no permission; make it executable, or correct Program");
  expect("Program = 'true', Arguments = ('x'):rep(3000000)",
         "40 cannot start 'true': the arguments are too long; pass the data with Input");
  expect("Program = 'true', Folder = '/no/such/folder'",
         "40 the folder '/no/such/folder' does not exist; create it, or correct Folder");
  expect("Program = 'true', Folder = '" + file + "'",
         "40 the folder '" + file + "' is not a folder; correct Folder");
  chmod(file.c_str(), 0700);
  expect("Program = '" + file + "'", "40 cannot start '" + file +
                                         "': it is not a program; give it a first line such as "
                                         "#!/bin/sh");
}

TEST_F(Process, RefusesInputsThatMakeNoSense) {
  const auto refuses = [this](const std::string& inputs, const std::string& word) {
    Start(inputs);
    EXPECT_EQ(Eval("fb.Busy"), "false") << inputs;
    EXPECT_EQ(Eval("fb.Error"), "true") << inputs;
    EXPECT_THAT(Error(), testing::StartsWith("10 ")) << inputs;
    EXPECT_THAT(Error(), testing::HasSubstr(word)) << inputs;
  };
  refuses("", "neither Command nor Program");
  refuses("Command = 'true', Program = 'true'", "both Command and Program");
  refuses("Command = 'true', Timeout = -1", "Timeout");
  refuses("Command = 'true', Timeout = 0/0", "Timeout");
  refuses("Command = 'true', Timeout = math.huge", "Timeout");
  refuses("Command = 'true', MaxOutput = -1", "MaxOutput");
  refuses("Command = 'true\\0; false'", "NUL");
  refuses("Program = 'true', Arguments = 'a\\0b'", "NUL");
  refuses("Program = 'true', Folder = '/\\0b'", "NUL");
}

TEST_F(Process, TellsTheSignalThatEndedIt) {
  Complete("Command = 'kill -SEGV $$'");
  EXPECT_EQ(Error(),
            "42 ended by signal 11 (SIGSEGV); its ErrorOutput, or the system's log, may tell why");
  EXPECT_EQ(Eval("fb.Signal"), "11");
  EXPECT_EQ(Eval("fb.ExitCode"), "-1");
}

TEST_F(Process, IsEndedWhenItsTimeIsOver) {
  Complete("Command = 'echo begun; sleep 1000', Timeout = 0.05");
  EXPECT_THAT(Error(), testing::StartsWith("41 "));
  EXPECT_EQ(Eval("fb.Output"), "begun\n");
  EXPECT_EQ(Eval("fb.Signal"), "15");
  EXPECT_EQ(Eval("fb.Duration >= 0.05"), "true");
  EXPECT_TRUE(NothingLeft());
}

TEST_F(Process, IsKilledTwoSecondsAfterItIgnoredSigterm) {
  Complete("Command = 'trap \"\" TERM; sleep 1000 & sleep 1001 & wait; wait', Timeout = 0.05");
  EXPECT_THAT(Error(), testing::StartsWith("41 "));
  EXPECT_EQ(Eval("fb.Signal"), "9");
  EXPECT_EQ(Eval("fb.Duration >= 2"), "true");
  EXPECT_TRUE(NothingLeft());
}

TEST_F(Process, TheJobEndsWithItsProcessAndTheGroupIsKilledRegardless) {
  const std::string stubborn = "(trap \"\" TERM; touch " + FileName("ready") + "; sleep 1000) & ";
  Start("Command = '" + stubborn + "sleep 1001', Abort = false");
  ASSERT_TRUE(Appears("ready"));
  Run("fb.Abort = true");
  EXPECT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Error(), "43 ended because Abort was TRUE");
  EXPECT_EQ(Eval("fb.Duration < 2"), "true");
  EXPECT_GT(Left(), 0);
  EXPECT_TRUE(NothingLeft());
}

TEST_F(Process, AStoppedProcessIsEndedAsWell) {
  Complete("Command = 'kill -STOP $$', Timeout = 0.05");
  EXPECT_EQ(Eval("fb.ErrorId"), "41");
  EXPECT_EQ(Eval("fb.Signal"), "15");
}

TEST_F(Process, AbortInTheCallOfTheEdgeStartsNothing) {
  Start("Command = 'touch " + FileName("started") + "', Abort = true");
  EXPECT_EQ(Eval("fb.Busy"), "false");
  EXPECT_EQ(Error(), "43 not started, because Abort is TRUE");
  CloseHost();
  DisposeAddin();
  EXPECT_FALSE(std::filesystem::exists(FileName("started")));
}

TEST_F(Process, AnEdgeWhileBusyIsIgnored) {
  Start("Command = 'read line; echo $line', Input = ''");
  Complete("Command = 'sleep 0.2; echo first'");
  Start("Command = 'sleep 0.2; echo first'");
  Run("fb.Execute = false fb() fb.Command = 'echo second' fb.Execute = true fb()");
  EXPECT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Eval("fb.Output"), "first\n");
  Run("fb.Execute = false fb() fb.Execute = true fb()");
  EXPECT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Eval("fb.Output"), "second\n");
}

TEST_F(Process, LivesOnAfterItHasClosedItsOutput) {
  Start("Command = 'echo out; exec >&- 2>&-; sleep 0.2; touch " + FileName("later") + "'");
  EXPECT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Eval("fb.Output"), "out\n");
  EXPECT_TRUE(std::filesystem::exists(FileName("later")));
}

TEST_F(Process, AGrandchildThatKeepsThePipeDoesNotKeepTheJob) {
  Complete("Command = 'echo out; sleep 1000 & echo later'");
  EXPECT_EQ(Eval("fb.Output"), "out\nlater\n");
  // For a moment, the system shows a process that becomes `sleep` without its environment.
  EXPECT_TRUE(WaitFor([this] { return Left() > 0; }));
}

TEST_F(Process, AGrandchildThatNeverStopsWritingDoesNotKeepTheJob) {
  Complete("Command = 'yes & sleep 0.05'");
  EXPECT_EQ(Eval("fb.Done"), "true");
}

TEST_F(Process, CollectingTheBlockEndsItsProcesses) {
  Start("Command = 'sleep 1000 & exit 0'");
  EXPECT_TRUE(CallUntil("not fb.Busy"));
  Run("fb.Execute = false fb() fb.Command = 'sleep 1001' fb.Execute = true fb()");
  EXPECT_TRUE(CallUntil("fb.Pid > 0"));
  EXPECT_TRUE(WaitFor([this] { return Left() >= 2; }));
  Run("fb = nil");
  Collect();
  EXPECT_TRUE(NothingLeft());
}

TEST_F(Process, TheEndOfTheProgramTakesLessThanASecond) {
  Start("Command = 'trap \"\" TERM; touch " + FileName("ready") +
        "; while true; do sleep 1000; done'");
  ASSERT_TRUE(Appears("ready"));
  CloseHost();
  const auto begin = std::chrono::steady_clock::now();
  DisposeAddin();
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took, 600ms);
  EXPECT_LT(took, 1s * CORVANE_TEST_TIME_FACTOR);
  EXPECT_EQ(Left(), 0);
}

TEST_F(Process, OneThatObeysEndsWithTheProgramAtOnce) {
  Start("Command = 'sleep 1000'");
  EXPECT_TRUE(CallUntil("fb.Pid > 0"));
  CloseHost();
  const auto begin = std::chrono::steady_clock::now();
  DisposeAddin();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 500ms * CORVANE_TEST_TIME_FACTOR);
  EXPECT_EQ(Left(), 0);
}

TEST_F(Process, HasItsOwnGroupOrdinarySignalsAndNoDescriptorOfOurs) {
  const int leaked = socket(AF_UNIX, SOCK_STREAM, 0);  // not close-on-exec
  ASSERT_GE(leaked, 0);
  const auto pipe_handler = std::signal(SIGPIPE, SIG_IGN);
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  sigprocmask(SIG_BLOCK, &usr1, nullptr);
  Complete(
      "Command = 'ls /proc/self/fd; grep -E \"^Sig(Blk|Ign)\" /proc/self/status; "
      "ps -o pgid= -p $$; echo $$'");
  sigprocmask(SIG_UNBLOCK, &usr1, nullptr);
  std::signal(SIGPIPE, pipe_handler);
  close(leaked);
  std::istringstream lines(Eval("fb.Output"));
  std::string text;
  for (std::string word; lines >> word;) text += word + " ";
  // The C library's own two signals may be ignored: 32 and 33, under qemu 34 and 35.
  EXPECT_THAT(text, testing::MatchesRegex("0 1 2 3 SigBlk: 0+ SigIgn: 0000000([01][08]|60)0000000 "
                                          "([0-9]+) [0-9]+ "));
  std::istringstream end(text.substr(text.rfind("SigIgn")));
  std::string name, mask, group, pid;
  end >> name >> mask >> group >> pid;
  EXPECT_EQ(group, pid);
}

TEST_F(Process, IsScheduledAsOthersAre) {
  Complete("Command = 'cut -d \" \" -f 41 /proc/self/stat'");  // proc(5): policy
  EXPECT_EQ(Eval("fb.Output"), std::to_string(SCHED_OTHER) + "\n");
}

TEST_F(Process, WorksInAHostThatIgnoresSigchld) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  Complete("Command = 'echo out; exit 3'");
  std::signal(SIGCHLD, before);
  EXPECT_EQ(Eval("fb.Done"), "true");
  EXPECT_EQ(Eval("fb.Output"), "out\n");
  EXPECT_EQ(Eval("fb.ExitCode"), "-1");
  EXPECT_EQ(Eval("fb.ErrorText"), "its exit code is not known: the host took it");
}

TEST_F(Process, WorksInAHostThatWaitsForAllChildren) {
  Start("Command = 'sleep 0.2'");
  EXPECT_TRUE(CallUntil("fb.Pid > 0"));
  while (waitpid(-1, nullptr, 0) > 0) {
  }
  EXPECT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Eval("fb.Done"), "true");
}

TEST_F(Process, AThousandRunsLeaveNothing) {
  const std::string job =
      "fb.Execute = false fb() fb.Execute = true fb() while fb.Busy do fb() end";
  Run("fb = PROCESS.new{Program = 'echo', Arguments = 'x', Input = 'y'}");
  const auto run = [&](int times) {
    Run("for i = 1, " + std::to_string(times) + " do " + job +
        " assert(fb.Done and fb.Output == 'x\\n', fb.ErrorText) end collectgarbage()");
  };
  run(50);
  const std::size_t descriptors = OpenDescriptors();
  const std::size_t memory = mallinfo2().uordblks;
  run(1000);
  EXPECT_TRUE(WaitFor([&] { return OpenDescriptors() <= descriptors; }));
  EXPECT_LT(mallinfo2().uordblks, memory + 100'000);
  EXPECT_EQ(Left(), 0);
}

TEST_F(Process, ManyRunAtOnce) {
  Run("fbs = {} for i = 1, 50 do fbs[i] = PROCESS.new{Command = 'sleep 0.1; echo ' .. i, "
      "Execute = true} fbs[i]() end");
  EXPECT_TRUE(WaitFor([this] {
    Run("done = 0 for i, fb in ipairs(fbs) do fb() if fb.Done then done = done + 1 "
        "assert(fb.Output == i .. '\\n') end end");
    return Eval("done") == "50";
  }));
}

TEST_F(Process, NoCallWaits) {
  double worst = 0;
  Start("Command = 'sleep 0.1'");
  EXPECT_TRUE(WaitFor([&] {
    const auto begin = std::chrono::steady_clock::now();
    Run("fb()");
    worst = std::max(
        worst, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    return Eval("fb.Busy") == "false";
  }));
  EXPECT_LT(worst, 0.05 * CORVANE_TEST_TIME_FACTOR);  // the process lasts twice as long
}

/// Lets the process of a diagram run for as long as the row `runs` says: it ends when a file
/// appears.
TEST_F(Process, DoesWhatTheDiagramsOfItsPageShow) {
  const std::string waits = "until test -e " + FileName("end") + "; do sleep 0.01; done";
  const auto diagrams = test_support::DiagramsOf(PROJECT_FOLDER "/docs/blocks/process.md");
  EXPECT_FALSE(diagrams.empty());
  for (const test_support::TimingDiagram& diagram : diagrams) {
    Run("fb = PROCESS.new{Command = '" + waits + "'}");
    std::map<std::string, std::vector<std::string>> rows;
    for (const auto& row : diagram.rows) rows[row.name] = row.cells;
    const auto is = [&rows](const std::string& row, std::size_t column) {
      return rows.at(row).at(column) == "█";
    };
    for (std::size_t column = 0; column < rows.at("runs").size(); ++column) {
      if (column > 0 && is("runs", column - 1) && !is("runs", column)) {
        std::ofstream(FileName("end")) << "x";
        ASSERT_TRUE(NothingLeft());
        // The thread begins another one only after it has told the end of this one.
        Run("other = PROCESS.new{Command = 'true', Execute = true}");
        ASSERT_TRUE(WaitFor([this] {
          Run("other()");
          return Eval("other.Done") == "true";
        }));
      }
      if (is("runs", column)) std::filesystem::remove(FileName("end"));
      Run(std::string("fb.Execute = ") + (is("Execute", column) ? "true" : "false") + " fb()");
      for (const char* output : {"Busy", "Done"}) {
        EXPECT_EQ(Eval(std::string("fb.") + output) == "true", is(output, column))
            << output << " in column " << column << " of\n"
            << diagram.text;
      }
    }
  }
}

TEST_F(Process, AJobOfAnEarlierRunIsOver) {
  Start("Command = 'sleep 1000'");
  EXPECT_TRUE(CallUntil("fb.Pid > 0"));
  Run("local kept = debug.getmetatable(fb).__retained(fb) "
      "fb = PROCESS.new() debug.getmetatable(fb).__restore(fb, kept) fb()");
  EXPECT_EQ(Eval("fb.Busy"), "false");
  EXPECT_EQ(Eval("fb.Pid"), "0");
  Collect();
  EXPECT_TRUE(NothingLeft());
}

}  // namespace
