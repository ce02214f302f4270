// SPDX-License-Identifier: MIT
#include "libs/base/private_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temporary_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

TEST(PrivateFolder, IsCreatedWithThoseAboveItForTheOwnerOnly) {
  const test_support::TemporaryFolder folder;
  MakePrivateFolder(folder.path() / "a" / "b");
  EXPECT_EQ(fs::status(folder.path() / "a").permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(folder.path() / "a" / "b").permissions(), fs::perms::owner_all);
}

TEST(PrivateFolder, StaysAsItIsIfItExists) {
  const test_support::TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms::owner_all | fs::perms::group_read);
  MakePrivateFolder(folder.path());
  EXPECT_EQ(fs::status(folder.path()).permissions(), fs::perms::owner_all | fs::perms::group_read);
}

TEST(PrivateFolder, CannotBeCreatedInsideAFile) {
  const test_support::TemporaryFolder folder;
  std::ofstream(folder.path() / "file") << "x";
  EXPECT_THROW(MakePrivateFolder(folder.path() / "file" / "b"), fs::filesystem_error);
}

TEST(PrivateFolder, IsBroughtToTheDiskOnlyIfItExists) {
  const test_support::TemporaryFolder folder;
  EXPECT_NO_THROW(SyncFolder(folder.path()));
  EXPECT_THROW(SyncFolder(folder.path() / "missing"), fs::filesystem_error);
}

}  // namespace
}  // namespace corvane
