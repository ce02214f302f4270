// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/shell_res_fb.h"

#include <sys/resource.h>

#include <csignal>

#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/memory_limit.h"

namespace {

class ShellResult : public BlockTest {
 protected:
  ShellResult() { Run("fb = SysProcessCreateWithResult.new()"); }
  /// Runs a command line with a new rising edge.
  void Command(const std::string& line) {
    Run("fb.Run = false fb() fb.Run = true fb.Command = [==[" + line + "]==] fb()");
  }
};

TEST_F(ShellResult, ReturnsTheOutputAndCodeZero) {
  Run("fb.Command = 'echo' fb.Args = 'hello' fb.Run = true fb()");
  EXPECT_EQ(Eval("fb.Output"), "hello\n");
  EXPECT_EQ(Eval("fb.Code"), "0");
}

TEST_F(ShellResult, ReadsEmptyBeforeTheFirstRun) {
  EXPECT_EQ(Eval("fb.Output"), "");
  EXPECT_EQ(Eval("fb.Code"), "0");
}

TEST_F(ShellResult, SeparatesCommandAndArgsByOneSpaceAndQuotesNothing) {
  Run("fb.Command = \"printf '<%s>'\" fb.Args = 'a  b' fb.Run = true fb()");
  EXPECT_EQ(Eval("fb.Output"), "<a><b>");
}

TEST_F(ShellResult, AnExitStatusIsNotInCode) {
  Command("exit 3");
  EXPECT_EQ(Eval("fb.Code"), "0");
}

TEST_F(ShellResult, CodeIsTheSignalThatKilledTheCommand) {
  Command("kill -9 $$");
  EXPECT_EQ(Eval("fb.Code"), "9");
}

TEST_F(ShellResult, CodeIsMinus1WhenThereIsNoStatus) {
  // If SIGCHLD is ignored, the system keeps no status of a child.
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  Command("echo lost");
  std::signal(SIGCHLD, before);
  EXPECT_EQ(Eval("fb.Code"), "-1");
  EXPECT_EQ(Eval("fb.Output"), "lost\n");
}

TEST_F(ShellResult, RunHeldTrueRunsTheCommandOnce) {
  Run("fb.Command = 'echo $PPID; date +%N' fb.Run = true fb() first = fb.Output fb() fb()");
  EXPECT_EQ(Eval("fb.Output == first"), "true");
  Run("fb.Run = false fb()");
  EXPECT_EQ(Eval("fb.Output == first"), "true") << "the outputs keep their values";
  Run("fb.Run = true fb()");
  EXPECT_EQ(Eval("fb.Output == first"), "false");
}

TEST_F(ShellResult, RunsOnTheFirstCallWhenCreatedWithRunTrue) {
  Run("fb = SysProcessCreateWithResult.new{Command = 'echo', Args = 'now', Run = true} fb()");
  EXPECT_EQ(Eval("fb.Output"), "now\n");
}

TEST_F(ShellResult, ALineLongerThanOnePieceArrivesIntact) {
  for (const int length : {126, 127, 128, 254, 255, 10000}) {
    Command("head -c " + std::to_string(length) + " /dev/zero | tr '\\0' x; echo; echo end");
    EXPECT_EQ(Eval("fb.Output"), std::string(static_cast<std::size_t>(length), 'x') + "\nend\n");
  }
}

TEST_F(ShellResult, OutputWithoutALineEndOrAtAllIsComplete) {
  Command("printf end");
  EXPECT_EQ(Eval("fb.Output"), "end");
  Command("true");
  EXPECT_EQ(Eval("fb.Output"), "");
}

TEST_F(ShellResult, NulBytesOfTheOutputArrive) {
  Command("printf 'a\\0b\\0\\0c\\nd\\0'");
  EXPECT_EQ(Eval("fb.Output == 'a\\0b\\0\\0c\\nd\\0'"), "true");
  Command("head -c 1000 /dev/zero");
  EXPECT_EQ(Eval("fb.Output == ('\\0'):rep(1000)"), "true");
}

TEST_F(ShellResult, AMegabyteOfOutputArrives) {
  Command("head -c 1000000 /dev/zero | tr '\\0' y");
  EXPECT_EQ(Eval("#fb.Output"), "1000000");
}

TEST_F(ShellResult, StandardErrorIsNotCaptured) {
  Command("echo seen; echo '(this line is for standard error)' >&2");
  EXPECT_EQ(Eval("fb.Output"), "seen\n");
}

TEST_F(ShellResult, TextTrueRunsAndTextOneDoesNot) {
  Run("fb.Command = 'echo ran'");
  ASSERT_EQ(Eval("rawequal(fb.Run, false)"), "true");
  Run("fb.Run = '1' fb()");
  EXPECT_EQ(Eval("fb.Output"), "");
  Run("fb.Run = 'TRUE' fb()");
  EXPECT_EQ(Eval("fb.Output"), "ran\n");
}

/// While it exists, the process cannot open any further descriptor, so popen fails.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none{0, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(ShellResult, AFailedPopenIsALuaErrorAndLeavesTheBlockBusyForever) {
  Command("echo before; kill -9 $$");
  Run("fb.Run = false fb() fb.Run = true");
  {
    const NoDescriptors none;
    Run("ok, message = pcall(fb)");
  }
  EXPECT_EQ(Eval("ok"), "false");
  EXPECT_THAT(Eval("message"), testing::HasSubstr("the command could not be started"));
  EXPECT_EQ(Eval("fb.Output"), "before\n");
  EXPECT_EQ(Eval("fb.Code"), "9");
  Command("echo after");
  EXPECT_EQ(Eval("fb.Output"), "before\n") << "a busy block starts nothing";
}

TEST_F(ShellResult, OutputThatDoesNotFitInMemoryIsALuaErrorAndTheBlockKeepsWorking) {
  Command("echo before");
  Run("fb.Run = false fb() fb.Run = true fb.Command = 'head -c 1000000 /dev/zero'");
  {
    const test_support::MemoryLimit limit(100'000);
    Run("ok, message = pcall(fb)");
  }
  EXPECT_EQ(Eval("ok"), "false");
  EXPECT_THAT(Eval("message"), testing::HasSubstr("bad_alloc"));
  EXPECT_EQ(Eval("fb.Output"), "before\n");
  Command("echo after");
  EXPECT_EQ(Eval("fb.Output"), "after\n");
}

TEST_F(ShellResult, AFailedPopenEndsInALengthError) {
  struct Probe : ShellResFB {
    using ShellResFB::SetBool;
    using ShellResFB::ShellResFB;
  };
  lua_newtable(L());  // instead of the userdata
  Probe block(L(), "no such metatable");
  block.SetBool("Run", true);
  const NoDescriptors none;
  EXPECT_THROW(block.Execute(), std::length_error);
}

}  // namespace
