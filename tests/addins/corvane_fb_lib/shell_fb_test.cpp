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

/// Commands write into files in a private folder; each test waits for what they must leave there.
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
  // Each start adds a line; the last start that is expected ends the test, after all others have
  // ended.
  SetCommand("out");
  Run("fb.Run = true fb() fb() fb() fb.Run = false fb()");
  ASSERT_TRUE(test_support::WaitFor([&] { return Content("out") == "line\n"; }));
  Run("fb.Command = 'wait' fb.Run = true fb() fb() fb.Run = false fb()");
  Run("fb.Command = \"echo last >>'" + Path("out") + "'\" fb.Run = true fb()");
  ASSERT_TRUE(test_support::WaitFor([&] { return Content("out").ends_with("last\n"); }));
  EXPECT_EQ(Content("out"), "line\nlast\n");
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

TEST_F(Shell, CommandAndArgsFormOneLineWithOneSpaceBetween) {
  // Within the quotes, which open in one and close in the other, the space counts.
  Run("fb.Command = [[printf '<%s>' ']] fb.Args = [[' >'" + Path("out") + "']] fb.Run = true fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "< >"; }));
}

TEST_F(Shell, ASpaceAndAnAmpersandFollowTheLine) {
  // The backslash makes the space an argument; the ampersand after it is still the shell's.
  Run("fb.Command = \"printf '<%s>' >'" + Path("out") + "'\" fb.Args = '\\\\' fb.Run = true fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "< >"; }));
}

TEST_F(Shell, DoesNotWaitForTheCommand) {
  // The command ends only after the call has returned and the test has created a file.
  Run("fb.Command = \"while ! test -e '" + Path("go") + "'; do sleep 0.01; done; echo went >'" +
      Path("out") + "'\"");
  Run("fb.Command = '{ ' .. fb.Command .. '; }' fb.Run = true fb()");
  EXPECT_FALSE(std::filesystem::exists(Path("out")));
  std::ofstream(Path("go")).put('x');
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "went\n"; }));
}

TEST_F(Shell, TextTrueStartsAndOtherTextDoesNot) {
  SetCommand("out");
  Run("fb.Run = '1' fb() fb.Run = 'true ' fb() fb.Run = 'no' fb()");
  Run("fb.Command = \"echo started >>'" + Path("out") + "'\" fb.Run = 'TRUE' fb()");
  ASSERT_TRUE(
      test_support::WaitFor([&] { return Content("out").find("started") != std::string::npos; }));
  EXPECT_EQ(Content("out"), "started\n");
}

TEST_F(Shell, ACommandThatFailsLeavesTheBlockReadyForTheNext) {
  Run("fb.Command = 'exec 2>/dev/null; /no/such/program' fb.Run = true fb() fb.Run = false fb()");
  SetCommand("out");
  Run("fb.Run = true fb()");
  EXPECT_TRUE(test_support::WaitFor([&] { return Content("out") == "line\n"; }));
}

}  // namespace
