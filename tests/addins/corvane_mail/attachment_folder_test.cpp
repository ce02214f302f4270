// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/attachment_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <fstream>

#include "tests/addins/corvane_mail/pread_hook.h"
#include "tests/support/temporary_folder.h"

namespace corvane_mail {
namespace {

namespace fs = std::filesystem;
using test_support::BeforeNextPread;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;

/// What an attachment consists of when it is sent.
std::string ContentOf(const AttachmentFolder& folder, const StoredAttachment& attachment) {
  const auto octets = folder.Open(attachment);
  if (octets == nullptr) return "(it is not there)";
  std::string content;
  std::array<char, 7> piece{};
  while (const std::size_t size = octets->Read(piece)) content.append(piece.data(), size);
  return content;
}

class Attachments : public testing::Test {
 protected:
  /// Takes over files and expects that this succeeds.
  std::vector<StoredAttachment> Take(const std::vector<std::string>& paths,
                                     const std::string& mail = "mail1") {
    AttachmentFolder::Taken taken = folder_.Take(mail, paths);
    EXPECT_EQ(taken.problem, "");
    EXPECT_EQ(taken.attachments.size(), paths.size());
    taken.attachments.resize(paths.size());
    return std::move(taken.attachments);
  }
  /// Why they are not taken over; nothing of them may stay behind.
  std::string ProblemOf(const std::vector<std::string>& paths) {
    const AttachmentFolder::Taken taken = folder_.Take("refused", paths);
    EXPECT_THAT(taken.attachments, IsEmpty());
    EXPECT_FALSE(fs::exists(Copies("refused")));
    return taken.problem;
  }
  /// A file of this size, of which the disk has no octet.
  std::string Large(const std::string& name, std::uint64_t size) {
    std::string path = files_.Write(name, "");
    fs::resize_file(path, size);
    return path;
  }
  [[nodiscard]] fs::path Copies(const std::string& mail) const {
    return state_.path() / "attachments" / mail;
  }

  test_support::TemporaryFolder files_;
  test_support::TemporaryFolder state_;
  AttachmentFolder folder_{state_.path()};
};

TEST_F(Attachments, AreCopiesThatOutliveTheirFiles) {
  const std::string path = files_.Write("report.csv", std::string("a\0b\r\n", 5));
  const auto stored = Take({path, files_.Write("empty", "")});
  fs::remove(path);
  EXPECT_EQ(stored[0].name, "report.csv");
  EXPECT_EQ(stored[0].size, 5U);
  EXPECT_EQ(stored[0].memory, nullptr) << "the disk has it";
  EXPECT_EQ(ContentOf(folder_, stored[0]), std::string("a\0b\r\n", 5));
  EXPECT_EQ(ContentOf(folder_, stored[0]), std::string("a\0b\r\n", 5))
      << "each time from the start";
  EXPECT_EQ(stored[1].size, 0U);
  EXPECT_EQ(ContentOf(folder_, stored[1]), "");
  EXPECT_EQ(ContentOf(AttachmentFolder(state_.path()), stored[0]), std::string("a\0b\r\n", 5))
      << "in the next run";
}

TEST_F(Attachments, AreReadableForTheirOwnerOnly) {
  Take({files_.Write("report.csv", "x")});
  const auto others = fs::perms::group_all | fs::perms::others_all;
  EXPECT_EQ(fs::status(Copies("mail1")).permissions() & others, fs::perms::none);
  EXPECT_EQ(fs::status(Copies("mail1") / "1").permissions() & others, fs::perms::none);
}

TEST_F(Attachments, OfTheSameNameFromTwoFoldersAreTwo) {
  fs::create_directory(files_.path() / "other");
  const auto stored = Take({files_.Write("log", "one"), files_.Write("other/log", "two")});
  EXPECT_EQ(stored[0].name, stored[1].name);
  EXPECT_EQ(ContentOf(folder_, stored[0]), "one");
  EXPECT_EQ(ContentOf(folder_, stored[1]), "two");
}

TEST_F(Attachments, FollowLinks) {
  fs::create_symlink(files_.Write("log.1", "today"), files_.path() / "log");
  const auto stored = Take({files_.path() / "log"});
  EXPECT_EQ(stored[0].name, "log");
  EXPECT_EQ(ContentOf(folder_, stored[0]), "today");
}

TEST_F(Attachments, HaveNamesOnOneLineWhateverTheFilesAreCalled) {
  const std::pair<const char*, const char*> cases[] = {
      {"Pr\xC3\xBC"
       "fbericht 3.csv",
       "Pr\xC3\xBC"
       "fbericht 3.csv"},
      {"a\"b;c,d.txt", "a\"b;c,d.txt"},
      {"a\r\nBcc: x@y.example", "a\\r\\nBcc: x@y.example"},
      {"\xFF.txt", "\\xFF.txt"},
      {"-rf", "-rf"},
      {" ", " "},
  };
  int mail = 0;
  for (const auto& [file, name] : cases) {
    const auto stored = Take({files_.Write(file, "x")}, "mail" + std::to_string(++mail));
    EXPECT_EQ(stored[0].name, name);
    EXPECT_EQ(ContentOf(folder_, stored[0]), "x") << name;
  }
}

TEST_F(Attachments, ThatAreNoFilesAreRefusedWithoutWaiting) {
  const std::string fifo = files_.path() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), S_IRUSR | S_IWUSR), 0);
  fs::create_symlink("/dev/zero", files_.path() / "link");
  for (const std::string& path : {fifo, files_.path().string(), std::string("/dev/zero"),
                                  std::string("/dev/null"), (files_.path() / "link").string()}) {
    EXPECT_EQ(ProblemOf({path}), "attachment " + path +
                                     " is not a file, but a folder, a device or a pipe; name a "
                                     "file");
  }
}

TEST_F(Attachments, ThatAreMissingAreRefusedByName) {
  const std::string missing = files_.path() / "no\nsuch";
  EXPECT_THAT(
      ProblemOf({files_.Write("good", "x"), missing}),
      AllOf(HasSubstr("no\\nsuch cannot be read: No such file"), HasSubstr("correct the path")));
  EXPECT_THAT(ProblemOf({files_.path() / "good" / ""}), HasSubstr("Not a directory"));
  EXPECT_THAT(ProblemOf({std::string(5000, 'x')}), HasSubstr("File name too long"));
}

TEST_F(Attachments, OfTheKernelWhoseSizeIsNotKnownAreRefused) {
  EXPECT_EQ(ProblemOf({"/proc/self/status"}),
            "attachment /proc/self/status does not tell its size; copy it into a file of its own, "
            "and attach that");
}

TEST_F(Attachments, ThatVanishOnceOpenedAreStillWhole) {
  const std::string path = files_.Write("report.csv", "all of it");
  const BeforeNextPread guard([&path] { fs::remove(path); });
  const auto stored = Take({path});
  EXPECT_FALSE(fs::exists(path)) << "the test has removed it meanwhile";
  EXPECT_EQ(ContentOf(folder_, stored[0]), "all of it");
}

TEST_F(Attachments, ThatGrowMeanwhileAreTakenAsLongAsTheyWere) {
  const std::string path = files_.Write("report.csv", "all of it");
  const BeforeNextPread guard(
      [&path] { std::ofstream(path, std::ios::app) << " and a line that came later"; });
  const auto stored = Take({path});
  EXPECT_GT(fs::file_size(path), stored[0].size);
  EXPECT_EQ(ContentOf(folder_, stored[0]), "all of it");
}

TEST_F(Attachments, ThatShrinkMeanwhileAreRefused) {
  const std::string path = files_.Write("report.csv", "all of it");
  const BeforeNextPread guard([&path] { fs::resize_file(path, 3); });
  EXPECT_EQ(ProblemOf({path}),
            "attachment " + path + " became shorter while it was read; send the mail again");
}

TEST_F(Attachments, TwentyFiveMegabytesTogetherAreTakenAndNotAnOctetMore) {
  const std::string most = Large("most", kMaxAttachments - 1);
  const std::string one = files_.Write("one", "x");
  const auto stored = Take({most, one});
  EXPECT_EQ(stored[0].size + stored[1].size, 25 * kMegabyte);
  EXPECT_EQ(fs::file_size(Copies("mail1") / "1"), kMaxAttachments - 1);
  EXPECT_EQ(ProblemOf({most, one, files_.Write("more", "x")}),
            "attachment " + files_.path().string() +
                "/more makes the attachments larger than 25 MB together; send several mails");
  EXPECT_THAT(ProblemOf({Large("huge", std::uint64_t{1} << 40)}), HasSubstr("25 MB"));
}

TEST_F(Attachments, AreNoLongerThereIfTheirCopyIsNotWhole) {
  const auto stored = Take({files_.Write("report.csv", "all of it")});
  const fs::path copy = Copies("mail1") / "1";
  fs::resize_file(copy, 8);
  EXPECT_EQ(folder_.Open(stored[0]), nullptr) << "shorter";
  fs::resize_file(copy, 10);
  EXPECT_EQ(folder_.Open(stored[0]), nullptr) << "longer";
  fs::remove(copy);
  EXPECT_EQ(folder_.Open(stored[0]), nullptr) << "gone";
  fs::create_symlink(files_.path() / "report.csv", copy);
  EXPECT_EQ(folder_.Open(stored[0]), nullptr) << "a link to another file";
  fs::remove(copy);
  ASSERT_EQ(mkfifo(copy.c_str(), S_IRUSR | S_IWUSR), 0);
  EXPECT_EQ(folder_.Open(stored[0]), nullptr) << "a pipe, which would wait";
  EXPECT_EQ(folder_.Open({}), nullptr) << "was in the memory of an earlier run";
}

TEST_F(Attachments, AreTheOnlyFilesThatCanBeOpened) {
  Take({files_.Write("report.csv", "x")});
  const std::string secret = state_.Write("secret", "12345");
  for (const std::string& name :
       {secret, std::string("../secret"), std::string("mail1/../../secret"), std::string("mail1"),
        std::string()}) {
    const StoredAttachment damaged{.name = "x", .size = 5, .file = name, .memory = nullptr};
    EXPECT_EQ(folder_.Open(damaged), nullptr) << name;
  }
}

TEST_F(Attachments, OfAMailAreRemovedTogether) {
  Take({files_.Write("a", "x"), files_.Write("b", "x")}, "mail1");
  Take({files_.Write("a", "x")}, "mail2");
  folder_.Remove("mail1");
  EXPECT_FALSE(fs::exists(Copies("mail1")));
  EXPECT_TRUE(fs::exists(Copies("mail2") / "1"));
  folder_.Remove("mail3");
  folder_.Remove("");
  EXPECT_TRUE(fs::exists(Copies("mail2") / "1")) << "an empty name is not that of the whole folder";
}

TEST_F(Attachments, OfMailsThatNobodyKnowsAreRemoved) {
  Take({files_.Write("a", "x")}, "known");
  Take({files_.Write("a", "x")}, "orphan");
  std::ofstream(Copies("stray")) << "x";
  folder_.RemoveOthers({"known", "elsewhere"});
  EXPECT_TRUE(fs::exists(Copies("known") / "1"));
  EXPECT_FALSE(fs::exists(Copies("orphan")));
  EXPECT_FALSE(fs::exists(Copies("stray")));
  EXPECT_TRUE(fs::exists(files_.path() / "a")) << "the files themselves stay";
}

TEST_F(Attachments, OfOrphansThatAreLinksAreRemovedWithoutFollowingThem) {
  Take({files_.Write("a", "x")}, "known");
  fs::create_directory_symlink(files_.path(), Copies("orphan"));
  folder_.RemoveOthers({});
  EXPECT_FALSE(fs::is_symlink(Copies("orphan")));
  EXPECT_TRUE(fs::exists(files_.path() / "a"));
}

TEST_F(Attachments, RemovingOrphansOfAFolderThatIsNotThereIsNothing) {
  folder_.RemoveOthers({});
  EXPECT_THAT(fs::directory_iterator(state_.path()), fs::directory_iterator());
}

/// The folder cannot be written: a file has its name, which stops root, too.
class AttachmentsInMemory : public Attachments {
 protected:
  AttachmentsInMemory() { state_.Write("attachments", ""); }
};

TEST_F(AttachmentsInMemory, AreWholeAlthoughTheirFilesAreGone) {
  const std::string path = files_.Write("report.csv", "all of it");
  const auto stored = Take({path, files_.Write("empty", "")});
  fs::remove(path);
  EXPECT_NE(stored[0].memory, nullptr);
  EXPECT_EQ(stored[0].file, "mail1/1") << "where it belongs once the disk takes it";
  EXPECT_EQ(ContentOf(folder_, stored[0]), "all of it");
  EXPECT_EQ(ContentOf(folder_, stored[0]), "all of it") << "each time from the start";
  EXPECT_EQ(ContentOf(folder_, stored[1]), "");
}

TEST_F(AttachmentsInMemory, AreSavedOnceTheFolderCanBeWritten) {
  const auto stored = Take({files_.Write("report.csv", "all of it"), files_.Write("b", "more")});
  EXPECT_FALSE(folder_.Save("mail1", stored));
  fs::remove(state_.path() / "attachments");
  ASSERT_TRUE(folder_.Save("mail1", stored));
  const AttachmentFolder next_run(state_.path());
  for (StoredAttachment one : stored) {
    const std::string content = ContentOf(folder_, one);
    one.memory = nullptr;  // as the store has it
    EXPECT_EQ(ContentOf(next_run, one), content);
  }
}

TEST_F(AttachmentsInMemory, ShrinkingOnesAreRefusedAllTheSame) {
  const std::string path = files_.Write("report.csv", "all of it");
  const BeforeNextPread guard([&path] { fs::resize_file(path, 3); });
  EXPECT_THAT(folder_.Take("mail1", {path}).problem, HasSubstr("became shorter"));
}

TEST_F(AttachmentsInMemory, AreAtMost100MegabytesOfAllMailsTogether) {
  const std::string most = Large("most", kMaxAttachments);
  std::vector<std::vector<StoredAttachment>> mails;
  for (int mail = 0; mail < 4; ++mail) mails.push_back(Take({most}));
  const std::string one = files_.Write("one", "x");
  EXPECT_EQ(folder_.Take("mail5", {one}).problem,
            "attachment " + one +
                " cannot be taken over, since the state folder cannot be written, and 100 MB of "
                "attachments are in memory already; check the disk");
  EXPECT_EQ(ContentOf(folder_, mails[0][0]).size(), kMaxAttachments);
  mails.pop_back();
  Take({one});
}

TEST_F(AttachmentsInMemory, ThatWereRefusedHalfwayCountForNothing) {
  const std::string most = Large("most", kMaxAttachments);
  for (int mail = 0; mail < 5; ++mail) {
    const BeforeNextPread guard([&most] { fs::resize_file(most, kMaxAttachments - 1); });
    EXPECT_THAT(folder_.Take("mail1", {most}).problem, HasSubstr("became shorter"));
    fs::resize_file(most, kMaxAttachments);
  }
  Take({most});
}

TEST(AttachmentsWithoutAStateFolder, StayInMemory) {
  const test_support::TemporaryFolder files;
  AttachmentFolder folder{{}};
  const AttachmentFolder::Taken taken = folder.Take("mail1", {files.Write("a", "x")});
  ASSERT_EQ(taken.problem, "");
  EXPECT_EQ(ContentOf(folder, taken.attachments.at(0)), "x");
  folder.Remove("mail1");
  folder.RemoveOthers({});
  EXPECT_EQ(ContentOf(folder, taken.attachments.at(0)), "x");
}

TEST(FolderOfAMail, IsMadeOfTheLettersAndDigitsOfItsMessageId) {
  EXPECT_EQ(FolderOf("<1a-2B.c@plant.example>"), "1a2Bc");
  EXPECT_EQ(FolderOf("<../../etc@x>"), "etc") << "never outside";
  EXPECT_EQ(FolderOf("<\xC3\xBC@x>"), "");
}

}  // namespace
}  // namespace corvane_mail
