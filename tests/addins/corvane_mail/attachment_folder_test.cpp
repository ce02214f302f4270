// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/attachment_folder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using corvane_mail::AttachmentFolder;
using corvane_mail::StoredAttachment;
using testing::HasSubstr;
using testing::SizeIs;

class AttachmentFolderTest : public testing::Test {
 protected:
  std::string MakeFile(const std::string& name, const std::string& content) {
    const fs::path path = folder_.path() / name;
    std::ofstream(path) << content;
    return path;
  }
  static std::string ContentOf(const AttachmentFolder& attachments, const StoredAttachment& one) {
    const auto octets = attachments.Open(one);
    if (octets == nullptr) return "(not there)";
    std::string content(100, '\0');
    content.resize(octets->Read(content));
    return content;
  }

  test_support::TemporaryFolder folder_;
  const fs::path state_ = folder_.path() / "state";
};

TEST_F(AttachmentFolderTest, KeepsCopiesOfWhatTheFilesWereLike) {
  const std::string report = MakeFile("report.csv", "4.2 m");
  AttachmentFolder attachments(state_);
  const auto taken = attachments.Take("mail1", {report, MakeFile("empty", "")});
  ASSERT_THAT(taken.attachments, SizeIs(2)) << taken.problem;
  fs::remove(report);
  EXPECT_EQ(taken.attachments[0].name, "report.csv");
  EXPECT_EQ(ContentOf(attachments, taken.attachments[0]), "4.2 m");
  EXPECT_EQ(ContentOf(attachments, taken.attachments[1]), "");
  EXPECT_EQ(fs::status(state_ / "attachments").permissions(), fs::perms::owner_all);
  attachments.Remove("mail1");
  EXPECT_EQ(ContentOf(attachments, taken.attachments[0]), "(not there)");
}

TEST_F(AttachmentFolderTest, RefusesWhatIsNotAFileAndLeavesNothing) {
  AttachmentFolder attachments(state_);
  const std::string fifo = folder_.path() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), S_IRUSR | S_IWUSR), 0);
  const std::string good = MakeFile("good", "x");
  for (const std::string& path :
       {fifo, folder_.path().string(), std::string("/dev/null"), std::string("/nowhere/x")}) {
    const auto taken = attachments.Take("mail1", {good, path});
    EXPECT_THAT(taken.problem, HasSubstr(path));
    EXPECT_THAT(taken.attachments, SizeIs(0));
    EXPECT_FALSE(fs::exists(state_ / "attachments" / "mail1"));
  }
}

TEST_F(AttachmentFolderTest, RefusesMoreThanTwentyFiveMegabytesTogether) {
  AttachmentFolder attachments(state_);
  const std::string half = MakeFile("half", "");
  fs::resize_file(half, corvane_mail::kMaxAttachments / 2 + 1);
  EXPECT_THAT(attachments.Take("mail1", {half, half}).problem, HasSubstr("25 MB"));
}

TEST_F(AttachmentFolderTest, KeepsCopiesInMemoryWhereItCannotWrite) {
  std::ofstream(state_) << "a file where the folder should be";
  AttachmentFolder attachments(state_);
  const auto taken = attachments.Take("mail1", {MakeFile("report.csv", "4.2 m")});
  ASSERT_THAT(taken.attachments, SizeIs(1)) << taken.problem;
  EXPECT_NE(taken.attachments[0].memory, nullptr);
  EXPECT_EQ(ContentOf(attachments, taken.attachments[0]), "4.2 m");
  EXPECT_EQ(ContentOf(attachments, taken.attachments[0]), "4.2 m") << "again from the beginning";
}

TEST_F(AttachmentFolderTest, LimitsWhatIsInMemoryAndCountsWhatIsFreed) {
  AttachmentFolder attachments("");
  const std::string large = MakeFile("large", "");
  fs::resize_file(large, corvane_mail::kMaxAttachments);
  std::vector<AttachmentFolder::Taken> kept;
  for (int i = 0; i < 4; ++i) kept.push_back(attachments.Take("mail", {large}));
  EXPECT_EQ(kept.back().problem, "");
  EXPECT_THAT(attachments.Take("mail", {large}).problem, HasSubstr("in memory already"));
  kept.pop_back();
  EXPECT_EQ(attachments.Take("mail", {large}).problem, "");
}

TEST_F(AttachmentFolderTest, OpensNothingButItsOwnCopiesOfTheRightLength) {
  AttachmentFolder attachments(state_);
  const auto taken = attachments.Take("mail1", {MakeFile("report.csv", "4.2 m")});
  ASSERT_THAT(taken.attachments, SizeIs(1)) << taken.problem;
  StoredAttachment one = taken.attachments[0];
  one.size = 6;
  EXPECT_EQ(ContentOf(attachments, one), "(not there)");
  const std::string secret = MakeFile("secret", "12345");
  for (const std::string& name :
       {secret, std::string("../../secret"), std::string("mail1/../../secret"),
        std::string("mail1"), std::string()}) {
    const StoredAttachment other{.name = "x", .size = 5, .file = name, .memory = nullptr};
    EXPECT_EQ(ContentOf(attachments, other), "(not there)") << name;
  }
}

TEST_F(AttachmentFolderTest, RemovesWhatBelongsToNoMail) {
  AttachmentFolder attachments(state_);
  const std::string report = MakeFile("report.csv", "4.2 m");
  ASSERT_EQ(attachments.Take("mail1", {report}).problem, "");
  ASSERT_EQ(attachments.Take("mail2", {report}).problem, "");
  attachments.RemoveOthers({"mail2"});
  EXPECT_FALSE(fs::exists(state_ / "attachments" / "mail1"));
  EXPECT_TRUE(fs::exists(state_ / "attachments" / "mail2" / "1"));
}

}  // namespace
