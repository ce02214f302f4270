// SPDX-License-Identifier: MIT
// What a started command inherits.
#include "addins/corvane_fb_lib/system_command.h"

#include "tests/addins/corvane_fb_lib/block_test.h"

namespace {

class StartedCommand : public BlockTest {
 protected:
  std::string Output(const std::string& line) {
    Run("fb = SysProcessCreateWithResult.new{Command = [==[" + line + "]==], Run = true} fb()");
    return Eval("fb.Output");
  }
};

TEST_F(StartedCommand, HasNoSignalBlockedThatItsHostBlocks) {
  sigset_t some;
  sigset_t before;
  sigemptyset(&some);
  for (const int signal : {SIGTERM, SIGINT, SIGUSR1, SIGPIPE}) sigaddset(&some, signal);
  pthread_sigmask(SIG_BLOCK, &some, &before);
  const std::string mask = Output("grep SigBlk /proc/self/status");
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, &before, &after);
  EXPECT_EQ(mask, "SigBlk:\t0000000000000000\n");
  EXPECT_EQ(sigismember(&after, SIGTERM), 1) << "the host's own mask is as before";
}

}  // namespace
