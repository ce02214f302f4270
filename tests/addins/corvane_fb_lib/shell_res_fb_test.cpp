// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_fb_lib/block_test.h"

namespace {

class ShellResult : public BlockTest {
 protected:
  ShellResult() { Run("fb = SysProcessCreateWithResult.new()"); }
};

TEST_F(ShellResult, GivesTheOutputAndCodeZero) {
  Run("fb.Command = 'echo' fb.Args = 'hello' fb.Run = true fb()");
  EXPECT_EQ(Eval("fb.Output"), "hello\n");
  EXPECT_EQ(Eval("fb.Code"), "0");
}

}  // namespace
