// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_transfer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <stdexcept>

#include "tests/support/temporary_folder.h"

namespace corvane_mail {

void PrintTo(Verdict::Kind kind, std::ostream* out) {
  constexpr const char* kNames[] = {"sent",  "rest",    "for good", "for now",
                                    "route", "account", "unknown",  "withdrawn"};
  *out << kNames[static_cast<int>(kind)];
}

namespace {

using Kind = Verdict::Kind;
using testing::ElementsAre;
using testing::HasSubstr;

const Reply kOk{250, "ok"};
const Reply kNoUser{550, "no such user"};
const Reply kLater{450, "busy"};
const Reply kNotReached{};

class Transfer : public testing::Test {
 protected:
  Transfer() {
    content_.account.server = "mail.example";
    content_.account.port = 587;
    content_.account.user = "pump";
    content_.message.from = {"", "pump3@plant.example"};
    content_.message.to = {{"", "anna@x.example"}, {"", "ben@x.example"}};
    content_.bcc = {{"", "eve@x.example"}};
    content_.message.text = "Level high";
    content_.message.message_id = "<1@plant.example>";
    progress_.recipients.resize(3);
  }

  MailTransfer& Begin() {
    transfer_ = std::make_unique<MailTransfer>(7, content_, progress_, folder_);
    return *transfer_;
  }
  /// What a new attempt's end means.
  Verdict Take(End end, std::vector<Reply> recipients, Reply last = {}) {
    MailTransfer& transfer = Begin();
    return transfer.Take({7, end, std::move(recipients), std::move(last), "the reason"});
  }
  /// What becomes of the recipients, a letter each: waiting, taken, refused.
  [[nodiscard]] std::string States() const {
    std::string states;
    for (const auto& one : transfer_->progress().recipients) {
      states += "wtr"[static_cast<int>(one.state)];
    }
    return states;
  }

  test_support::TemporaryFolder state_;
  AttachmentFolder folder_{state_.path()};
  MailContent content_;
  MailProgress progress_;
  std::unique_ptr<MailTransfer> transfer_;
};

TEST_F(Transfer, TakenForEverybodyIsSent) {
  const Verdict verdict = Take(End::kTaken, {kOk, {251, "will forward"}, kOk}, kOk);
  EXPECT_EQ(verdict.kind, Kind::kSent);
  EXPECT_EQ(verdict.error, ErrorId::kNone);
  EXPECT_EQ(verdict.reason, "");
  EXPECT_EQ(States(), "ttt");
}

TEST_F(Transfer, PartlyRefusedForGoodIsError30WhileTheOthersHaveIt) {
  const Verdict verdict = Take(End::kTaken, {kOk, kNoUser, kOk}, kOk);
  EXPECT_EQ(verdict.kind, Kind::kForGood);
  EXPECT_EQ(verdict.error, ErrorId::kRecipientsRefused);
  EXPECT_EQ(verdict.reason,
            "some recipients were refused, the others have the mail: ben@x.example: 550 no such "
            "user; correct the addresses");
  EXPECT_EQ(States(), "trt");
  EXPECT_EQ(transfer_->refused(), "ben@x.example: 550 no such user");
}

TEST_F(Transfer, EveryRecipientRefusedForGoodIsError30) {
  const Verdict verdict = Take(End::kRefused, {kNoUser, kNoUser, {553, ""}}, {553, ""});
  EXPECT_EQ(verdict.kind, Kind::kForGood);
  EXPECT_EQ(verdict.error, ErrorId::kRecipientsRefused);
  EXPECT_EQ(verdict.reason,
            "all recipients were refused: anna@x.example: 550 no such user;ben@x.example: 550 no "
            "such user;eve@x.example: 553; correct the addresses");
  EXPECT_EQ(States(), "rrr");
}

TEST_F(Transfer, RefusedForNowForOneIsTriedAgainForThatOneAlone) {
  const Verdict verdict = Take(End::kTaken, {kOk, kLater, kNoUser}, kOk);
  EXPECT_EQ(verdict.kind, Kind::kRest);
  EXPECT_EQ(verdict.reason, "refused for now: 450 busy");
  EXPECT_EQ(States(), "twr");
  progress_ = transfer_->progress();
  EXPECT_THAT(Begin().MakeAttempt(nullptr, {}).recipients, ElementsAre("ben@x.example"));
  const Verdict next = transfer_->Take({7, End::kTaken, {kOk}, kOk, ""});
  EXPECT_EQ(States(), "ttr");
  EXPECT_EQ(next.kind, Kind::kForGood) << "of all attempts together, one was refused";
  EXPECT_EQ(next.error, ErrorId::kRecipientsRefused);
}

TEST_F(Transfer, TheRestTakenLaterIsSent) {
  EXPECT_EQ(Take(End::kTaken, {kOk, kLater, kOk}, kOk).kind, Kind::kRest);
  progress_ = transfer_->progress();
  EXPECT_EQ(Take(End::kTaken, {kOk}, kOk).kind, Kind::kSent);
  EXPECT_EQ(States(), "ttt");
}

TEST_F(Transfer, RefusedForGoodAsAWholeIsError34) {
  for (const std::vector<Reply>& recipients :
       {std::vector<Reply>{kOk, kOk, kOk}, {kNotReached, kNotReached, kNotReached}, {}}) {
    const Verdict verdict = Take(End::kRefused, recipients, {554, "spam"});
    EXPECT_EQ(verdict.kind, Kind::kForGood);
    EXPECT_EQ(verdict.error, ErrorId::kMailRefused);
    EXPECT_EQ(verdict.reason, "the reason");
    EXPECT_EQ(States(), "www") << "250 to RCPT is no mail";
    EXPECT_EQ(transfer_->refused(), "");
  }
}

TEST_F(Transfer, TheRestRefusedAsAWholeSaysThatTheOthersHaveIt) {
  progress_.recipients[0].state = RecipientState::kTaken;
  const Verdict verdict = Take(End::kRefused, {kOk, kOk}, {554, "spam"});
  EXPECT_EQ(verdict.error, ErrorId::kMailRefused);
  EXPECT_EQ(verdict.reason, "the reason; the others have it");
}

TEST_F(Transfer, RefusedForNowAsAWholeIsAboutTheMailAlone) {
  for (const int code : {400, 451, 452, 499}) {
    const Verdict verdict = Take(End::kForNow, {kOk, kOk, kOk}, {code, "later"});
    EXPECT_EQ(verdict.kind, Kind::kForNow) << code;
    EXPECT_EQ(verdict.reason, "the reason");
    EXPECT_EQ(States(), "www");
  }
}

TEST_F(Transfer, AShutDownOrNoReplyIsAboutTheRoute) {
  EXPECT_EQ(Take(End::kForNow, {kOk, kNotReached, kNotReached}, {421, "bye"}).kind, Kind::kRoute);
  EXPECT_EQ(Take(End::kForNow, {}, {}).kind, Kind::kRoute);
}

TEST_F(Transfer, RefusalsForGoodStayAlthoughTheRestIsForNow) {
  EXPECT_EQ(Take(End::kForNow, {kNoUser, kLater, kLater}, kLater).kind, Kind::kForNow);
  EXPECT_EQ(States(), "rww");
  progress_ = transfer_->progress();
  EXPECT_EQ(progress_.recipients[1].reply, "450 busy");
  const Verdict verdict = Take(End::kForNow, {kNoUser, kNoUser}, {421, "bye"});
  EXPECT_EQ(verdict.kind, Kind::kForGood) << "nobody is left to try";
  EXPECT_EQ(verdict.error, ErrorId::kRecipientsRefused);
}

TEST_F(Transfer, WhatTheServerAsksOfTheAccountHasItsError) {
  const std::pair<End, ErrorId> cases[] = {{End::kLogin, ErrorId::kLoginRefused},
                                           {End::kCertificate, ErrorId::kCertificate},
                                           {End::kNotOffered, ErrorId::kNotOffered}};
  for (const auto& [end, error] : cases) {
    const Verdict verdict = Take(end, {}, {535, "no"});
    EXPECT_EQ(verdict.kind, Kind::kAccount);
    EXPECT_EQ(verdict.error, error);
    EXPECT_EQ(verdict.reason, "the reason");
    EXPECT_EQ(States(), "www");
  }
}

TEST_F(Transfer, ALostReplyIsAnUnknownEndForThoseWhoWereTaken) {
  const Verdict verdict = Take(End::kUnknown, {kOk, kNoUser, kOk});
  EXPECT_EQ(verdict.kind, Kind::kUnknown);
  EXPECT_EQ(verdict.error, ErrorId::kUnknownEnd);
  EXPECT_EQ(States(), "wrw");
}

TEST_F(Transfer, WithdrawnMeansThatNothingHasHappened) {
  EXPECT_EQ(Take(End::kAborted, {kOk, kNotReached, kNotReached}).kind, Kind::kWithdrawn);
  EXPECT_EQ(States(), "www");
}

TEST_F(Transfer, RepliesBeyondTheRecipientsAreIgnored) {
  EXPECT_EQ(Take(End::kTaken, {kOk, kOk, kOk, kNoUser, kNoUser}, kOk).kind, Kind::kSent);
}

TEST_F(Transfer, TheAttemptIsForThoseWhoWaitAndSaysHowToGetIn) {
  progress_.recipients[1].state = RecipientState::kTaken;
  const Credentials credentials{"mail.example:587 pump", std::make_shared<const Secret>("pw"),
                                true};
  const Attempt attempt = Begin().MakeAttempt(&credentials, [] { return true; });
  EXPECT_EQ(attempt.id, 7);
  EXPECT_EQ(attempt.account.server, "mail.example");
  EXPECT_EQ(attempt.from, "pump3@plant.example");
  EXPECT_THAT(attempt.recipients, ElementsAre("anna@x.example", "eve@x.example"));
  EXPECT_EQ(attempt.secret->text(), "pw");
  EXPECT_TRUE(attempt.is_token);
  EXPECT_FALSE(attempt.has_utf8_addresses);
  EXPECT_TRUE(attempt.may_finish());
  EXPECT_EQ(transfer_->route(), "mail.example:587 pump");
}

TEST_F(Transfer, TellsOfAddressesThatNeedUtf8AlsoOfBlindCopies) {
  content_.bcc = {{"", "j\xC3\xBCrgen@x.example"}};
  EXPECT_TRUE(Begin().MakeAttempt(nullptr, {}).has_utf8_addresses);
  progress_.recipients[2].state = RecipientState::kTaken;
  EXPECT_FALSE(Begin().MakeAttempt(nullptr, {}).has_utf8_addresses) << "no longer for that one";
}

/// Reads the whole mail of an attempt.
std::string MailOf(const Attempt& attempt) {
  const std::uint64_t size = attempt.open(false);
  std::string mail;
  std::array<char, 1000> piece{};
  while (const std::size_t octets = attempt.read(piece)) mail.append(piece.data(), octets);
  EXPECT_EQ(mail.size(), size);
  return mail;
}

TEST_F(Transfer, TheMailIsTheSameEachTimeAndHasNoBlindCopies) {
  const Attempt attempt = Begin().MakeAttempt(nullptr, {});
  const std::string mail = MailOf(attempt);
  EXPECT_THAT(mail, HasSubstr("Level high"));
  EXPECT_THAT(mail, HasSubstr("<1@plant.example>"));
  EXPECT_EQ(mail.find("eve@"), std::string::npos);
  EXPECT_EQ(MailOf(attempt), mail);
}

class TransferOfAttachment : public Transfer {
 protected:
  TransferOfAttachment() {
    const std::string path = state_.Write("report.csv", std::string(100'000, 'x'));
    content_.attachments = folder_.Take("mail1", {path}).attachments;
  }
  const std::filesystem::path copy_ = state_.path() / "attachments" / "mail1" / "1";
};

TEST_F(TransferOfAttachment, HasItInTheMail) {
  EXPECT_EQ(Begin().Problem(), "");
  EXPECT_THAT(MailOf(transfer_->MakeAttempt(nullptr, {})), HasSubstr("report.csv"));
}

TEST_F(TransferOfAttachment, WhoseCopyIsGoneIsAProblemBeforeItIsTried) {
  std::filesystem::remove(copy_);
  EXPECT_EQ(Begin().Problem(),
            "the copy of attachment report.csv is no longer there, or not whole; send the mail "
            "again");
}

TEST_F(TransferOfAttachment, WhoseCopyShrinksMeanwhileIsNeverSentCutShort) {
  const Attempt attempt = Begin().MakeAttempt(nullptr, {});
  attempt.open(false);
  std::array<char, 1000> piece{};
  ASSERT_GT(attempt.read(piece), 0U);
  std::filesystem::resize_file(copy_, 10);
  EXPECT_THROW(
      {
        while (attempt.read(piece) > 0) {
        }
      },
      std::runtime_error);
  const Verdict verdict = transfer_->Take({7, End::kForNow, {kOk, kOk, kOk}, {}, "cut"});
  EXPECT_EQ(verdict.kind, Kind::kForGood);
  EXPECT_EQ(verdict.error, ErrorId::kAttachment);
  EXPECT_THAT(verdict.reason, HasSubstr("check the disk, and send the mail again"));
}

}  // namespace
}  // namespace corvane_mail
