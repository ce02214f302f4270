// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/attachment_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"
#include "tests/support/in_child.h"

namespace {

using test_support::CodeOf;
using test_support::OpenDescriptors;
using test_support::TemporaryFolder;

int CodeOfOpening(const std::string& path) {
  return CodeOf([&] { AttachmentFile(path).Close(); });
}

TEST(AttachmentFile, IsReadFromItsStartAfterItWasMeasured) {
  const TemporaryFolder folder;
  AttachmentFile file(folder.Write("file", "0123456789"));
  EXPECT_EQ(file.Measure(10), 10U);
  std::array<unsigned char, 7> block;
  EXPECT_EQ(file.Read(block), 7U);
  EXPECT_EQ(block[0], '0');
  EXPECT_EQ(file.Read(block), 3U);
  EXPECT_EQ(block[0], '7');
  EXPECT_EQ(file.Read(block), 0U);
  file.Close();
}

TEST(AttachmentFile, OfWhichTheSystemGivesLessThanWantedIsReadOn) {
  AttachmentFile file("/proc/self/smaps");  // an ordinary file, of which it gives a page at a time
  std::array<unsigned char, 16384> block;
  EXPECT_EQ(file.Read(block), block.size());
  file.Close();
}

TEST(AttachmentFile, IsNotPassedOnToAStartedCommand) {
  const TemporaryFolder folder;
  AttachmentFile file(folder.Write("file", "0123456789"));
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone) != folder.path() / "file") continue;
    ++found;
    EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(found, 1);
  file.Close();
}

TEST(AttachmentFile, ThatShrinksAfterItWasMeasuredEndsEarly) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("log", "0123456789");
  AttachmentFile file(path);
  EXPECT_EQ(file.Measure(100), 10U);
  std::filesystem::resize_file(path, 3);
  std::array<unsigned char, 54> block;
  EXPECT_EQ(file.Read(block), 3U);
  file.Close();
}

TEST(AttachmentFile, AboveTheLimitIs405) {
  const TemporaryFolder folder;
  AttachmentFile file(folder.Write("file", "0123456789"));
  EXPECT_EQ(CodeOf([&] { static_cast<void>(file.Measure(9)); }), 405);
  file.Close();
}

TEST(AttachmentFile, OfATerabyteIs405WithoutBeingReadThrough) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("huge", "");
  if (truncate64(path.c_str(), off64_t{1} << 40) != 0) {
    GTEST_SKIP() << "the file system of " << path << " cannot hold files of 1 TB";
  }
  AttachmentFile file(path);
  EXPECT_EQ(CodeOf([&] { static_cast<void>(file.Measure(5243903)); }), 405);
  file.Close();
}

TEST(AttachmentFile, OfTheYear2100IsRead) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("report", "0123456789");
  constexpr timespec kJanuary1st2100{4102444800, 0};
  const std::array<timespec, 2> times{kJanuary1st2100, kJanuary1st2100};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  if (status.st_mtim.tv_sec != kJanuary1st2100.tv_sec) {
    GTEST_SKIP() << "the file system of " << path << " has no times after 2038";
  }
  AttachmentFile file(path);
  EXPECT_EQ(file.Measure(10), 10U);
  file.Close();
}

TEST(AttachmentFile, ThatIsMissingIs404) {
  const TemporaryFolder folder;
  EXPECT_EQ(CodeOfOpening(folder.path() / "missing"), 404);
  EXPECT_EQ(CodeOfOpening(""), 404);
  EXPECT_EQ(CodeOfOpening(std::string(5000, 'x')), 404);
}

TEST(AttachmentFile, ThatMustNotBeReadIs404) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("secret", "x");
  chmod(path.c_str(), 0);
  chmod(folder.path().c_str(), 0755);
  const auto refused = [&] {
    // As a user without rights, since the administrator may read anything.
    if (getuid() == 0 && setuid(65534) != 0) return false;
    return CodeOfOpening(path) == 404;
  };
  EXPECT_EQ(test_support::InChild(refused), 0);
}

TEST(AttachmentFile, ThatIsAFolderIs404) {
  const TemporaryFolder folder;
  const auto before = OpenDescriptors();
  EXPECT_EQ(CodeOfOpening(folder.path()), 404);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(AttachmentFile, ThatIsAPipeWithoutAWriterIs404AndDoesNotWait) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(CodeOfOpening(path), 404);
}

TEST(AttachmentFile, ThatIsADeviceIs404) {
  EXPECT_EQ(CodeOfOpening("/dev/zero"), 404);
  EXPECT_EQ(CodeOfOpening("/dev/null"), 404);
}

TEST(AttachmentFile, ThatIsATerminalIs404AndDoesNotBecomeThatOfTheProgram) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  const std::string terminal = ptsname(master);
  const auto opens = [&] {
    setsid();  // whoever has no terminal gets the first that is opened without O_NOCTTY
    return CodeOfOpening(terminal) == 404 && test_support::HasNoTerminal();
  };
  EXPECT_EQ(test_support::InChild(opens), 0);
  close(master);
}

TEST(AttachmentFile, ThatGrowsAfterItWasMeasuredReturnsItsNewBytes) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("log", "0123");
  AttachmentFile file(path);
  EXPECT_EQ(file.Measure(100), 4U);
  std::ofstream(path, std::ios::app) << "45";
  std::array<unsigned char, 54> block;
  EXPECT_EQ(file.Read(block), 6U);
  file.Close();
}

TEST(AttachmentFile, ThatIsDeletedWhileItIsReadIsReadToItsEnd) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("log", "0123");
  AttachmentFile file(path);
  std::filesystem::remove(path);
  EXPECT_EQ(file.Measure(100), 4U);
  file.Close();
}

}  // namespace
