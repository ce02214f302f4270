// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/shell_fb.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

/// Commands write into files of a private folder; each test waits for what they must leave there.
class Shell : public BlockTest {
 protected:
  Shell() { Run("fb = SysProcessCreate.new()"); }
  std::string Path(const char* name) const { return (folder_.path() / name).string(); }
  std::string Content(const char* name) const {
    std::ifstream file(Path(name));
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  /// Appends one line to the file `name` when it runs.
  void SetCommand(const char* name) { Run("fb.Command = \"echo line >>'" + Path(name) + "'\""); }
  test_support::TemporaryFolder folder_;
};

TEST_F(Shell, RunTrueOnTheFirstCallStartsTheCommandOnce) {
  SetCommand("out");
  Run("fb.Run = true fb() fb() fb()");
  ASSERT_TRUE(test_support::WaitFor([&] { return Content("out") == "line\n"; }));
  // A further start would come before this one, which is a block of its own.
  Run("other = SysProcessCreate.new{Command = \"touch '" + Path("done") +
      "'\", Run = true} other()");
  ASSERT_TRUE(test_support::WaitFor([&] { return std::filesystem::exists(Path("done")); }));
  EXPECT_EQ(Content("out"), "line\n");
}

TEST_F(Shell, FalseThenTrueStartsItAgain) {
  SetCommand("out");
  Run("fb.Run = true fb() fb.Run = false fb() fb.Run = true fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "line\nline\n"; }));
}

TEST_F(Shell, CreatedWithCommandAndRunTrueStartsOnItsFirstCall) {
  Run("fb = SysProcessCreate.new{Command = \"echo line >'" + Path("out") + "'\", Run = true}");
  EXPECT_FALSE(std::filesystem::exists(Path("out")));
  Run("fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "line\n"; }));
}

TEST_F(Shell, CommandAndArgsMakeOneLineWithABlankBetween) {
  Run("fb.Command = 'echo >" + Path("out") + "' fb.Args = 'a b' fb.Run = true fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "a b\n"; }));
}

TEST_F(Shell, DoesNotWaitForTheCommand) {
  // The command ends only after the call has returned and the test has made a file.
  Run("fb.Command = \"while ! test -e '" + Path("go") + "'; do sleep 0.01; done; echo went >'" +
      Path("out") + "'\"");
  Run("fb.Command = '{ ' .. fb.Command .. '; }' fb.Run = true fb()");
  EXPECT_FALSE(std::filesystem::exists(Path("out")));
  std::ofstream(Path("go")).put('x');
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "went\n"; }));
}

TEST_F(Shell, TextTrueStartsAndTextOneDoesNot) {
  SetCommand("out");
  Run("fb.Run = '1' fb() fb.Run = 'no' fb() fb.Run = 'TRUE' fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "line\n"; }));
}

TEST_F(Shell, ACommandThatCannotBeStartedLeavesNoTrace) {
  Run("fb.Command = 'exec 2>/dev/null; /no/such/program' fb.Run = true fb()");
  EXPECT_EQ(Eval("fb.Run"), "true");
  EXPECT_TRUE(test_support::TakeLog().empty());
}

}  // namespace
