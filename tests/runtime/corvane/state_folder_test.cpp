// SPDX-License-Identifier: MIT
#include "runtime/corvane/state_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "corvane/program.h"
#include "tests/support/temporary_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

/// Sets or removes an environment variable while it lives.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* const before = std::getenv(name)) before_ = before;
    Set(value);
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;
  ~Variable() { Set(before_ ? before_->c_str() : nullptr); }

 private:
  void Set(const char* value) {
    if (value == nullptr) {
      unsetenv(name_);
    } else {
      setenv(name_, value, 1);
    }
  }
  const char* name_;
  std::optional<std::string> before_;
};

std::string Content(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

unsigned Mode(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 0777U;
}

TEST(StateFolder, IsSystemdsIfItProvidesOne) {
  const Variable state("STATE_DIRECTORY", "/var/lib/corvane/pumps");
  const Variable xdg("XDG_STATE_HOME", "/state");
  EXPECT_EQ(StateFolder("/etc/corvane/pumps.lua"), "/var/lib/corvane/pumps");
  const Variable several("STATE_DIRECTORY", "/var/lib/one:/var/lib/two");
  EXPECT_EQ(StateFolder("pumps.lua"), "/var/lib/one");
}

TEST(StateFolder, IsOtherwiseTheUsersAndNamedAfterTheProgram) {
  const Variable state("STATE_DIRECTORY", nullptr);
  const Variable home("HOME", "/users/plc");
  {
    const Variable xdg("XDG_STATE_HOME", "/state");
    EXPECT_EQ(StateFolder("/etc/pumps.lua"), "/state/corvane/pumps");
    EXPECT_EQ(StateFolder("pumps"), "/state/corvane/pumps");
    EXPECT_EQ(StateFolder("pumps.v2.lua"), "/state/corvane/pumps.v2");
    EXPECT_EQ(StateFolder(".lua"), "/state/corvane/.lua");
  }
  const Variable relative("XDG_STATE_HOME", "state");
  EXPECT_EQ(StateFolder("pumps.lua"), "/users/plc/.local/state/corvane/pumps");
  const Variable none("XDG_STATE_HOME", nullptr);
  EXPECT_EQ(StateFolder("pumps.lua"), "/users/plc/.local/state/corvane/pumps");
}

TEST(StateFolder, IsFoundWithoutTheVariableHome) {
  const Variable state("STATE_DIRECTORY", nullptr);
  const Variable xdg("XDG_STATE_HOME", nullptr);
  const Variable home("HOME", nullptr);
  EXPECT_TRUE(StateFolder("pumps.lua").is_absolute()) << "from the list of users";
}

TEST(StateFolder, IsForAddinsTheRunningPrograms) {
  SetStateFolder("/var/lib/corvane/pumps");
  EXPECT_STREQ(CorvaneStateFolder(), "/var/lib/corvane/pumps");
  SetStateFolder("state");
  EXPECT_EQ(CorvaneStateFolder(), fs::absolute("state").string()) << "a program may change folders";
  SetStateFolder({});
  EXPECT_STREQ(CorvaneStateFolder(), "");
}

TEST(WriteStateFile, IsForItsOwnerAloneAndSoAreTheFoldersThatItMakes) {
  const test_support::TemporaryFolder folder;
  const fs::path file = folder.path() / "corvane" / "pumps" / "file";
  const auto before = umask(0);
  WriteStateFile(file, "one\n");
  WriteStateFile(file, "two\n");
  umask(before);
  EXPECT_EQ(Content(file), "two\n");
  EXPECT_EQ(Mode(file), 0600u);
  EXPECT_EQ(Mode(file.parent_path()), 0700u);
  EXPECT_EQ(Mode(file.parent_path().parent_path()), 0700u);
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1) << "nothing else";
}

TEST(WriteStateFile, FailsWhereItCannotWrite) {
  const test_support::TemporaryFolder folder;
  std::ofstream(folder.path() / "no_folder") << "x";
  EXPECT_THROW(WriteStateFile(folder.path() / "no_folder" / "sub" / "file", "x"),
               fs::filesystem_error);
  fs::create_directory(folder.path() / "file");
  EXPECT_THROW(WriteStateFile(folder.path() / "file", "x"), fs::filesystem_error);
}

}  // namespace
}  // namespace corvane
