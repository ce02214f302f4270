// SPDX-License-Identifier: MIT
#include "runtime/corvane/addin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "runtime/corvane/st_library.h"
#include "tests/support/temporary_folder.h"

namespace {

using corvane::Addin;
using corvane::AddinError;

std::string LoadError(const std::filesystem::path& file) {
  try {
    const Addin addin(file);
  } catch (const AddinError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error from " << file;
  return {};
}

TEST(AddinLoading, RegistersTheTypesOfTheAddin) {
  const Addin addin(ADDIN_FILE);
  ASSERT_GE(corvane::RegisteredStLibraries().size(), 5u);
  EXPECT_EQ(corvane::RegisteredStLibraries()[0].name, "SEND_SMS");
  EXPECT_EQ(corvane::RegisteredStLibraries()[4].name, "SysProcessCreateWithResult");
}

TEST(AddinLoading, AMissingFileIsNamed) {
  EXPECT_EQ(LoadError("/no/such/addin.so"),
            "add-in /no/such/addin.so does not exist; check the path");
}

TEST(AddinLoading, AFileThatIsNotALibraryIsNamedWithTheReason) {
  const test_support::TemporaryFolder folder;
  const auto file = folder.path() / "text.so";
  std::ofstream(file) << "not a library";
  EXPECT_THAT(LoadError(file), testing::StartsWith("cannot load add-in " + file.string() + ": "));
}

TEST(AddinLoading, AMissingLibraryIsNamedWithTheDebianPackageThatHasIt) {
  EXPECT_EQ(LoadError(LACKING_ADDIN),
            "cannot load add-in " LACKING_ADDIN
            ": it needs libcorvane_absent.so.7, which is not installed (on Debian: apt install "
            "libcorvane-absent7)");
}

TEST(AddinLoading, AFolderIsNotAnAddin) {
  EXPECT_THAT(LoadError("/tmp"), testing::StartsWith("cannot load add-in /tmp: "));
}

TEST(AddinLoading, ALibraryWithoutInitAddinIsNotAnAddin) {
  EXPECT_THAT(LoadError(LIBRARY_FILE),
              testing::HasSubstr("but not a Corvane add-in: it has no InitAddin"));
}

}  // namespace
