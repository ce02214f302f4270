// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"
#include "tests/support/failing_calls.h"

namespace {

using test_support::CallsGuard;
using test_support::CodeOf;

TEST(NewMail, IsEmptyAndOfNormalPriority) {
  const CSmtp mail;
  EXPECT_STREQ(mail.GetMailFrom(), "");
  EXPECT_STREQ(mail.GetSenderName(), "");
  EXPECT_STREQ(mail.GetSubject(), "");
  EXPECT_STREQ(mail.GetXMailer(), "");
  EXPECT_STREQ(mail.GetReplyTo(), "");
  EXPECT_EQ(mail.GetXPriority(), XPRIORITY_NORMAL);
  EXPECT_EQ(mail.GetRecipientCount(), 0U);
  EXPECT_EQ(mail.GetCCRecipientCount(), 0U);
  EXPECT_EQ(mail.GetBCCRecipientCount(), 0U);
  EXPECT_EQ(mail.GetMsgLines(), 0U);
}

TEST(NewMail, KnowsTheNameOfTheMachine) {
  const CallsGuard guard({.host_name = "plc-7"});
  EXPECT_STREQ(CSmtp().GetLocalHostName(), "plc-7");
}

TEST(NewMailDeathTest, AnAttachmentWithoutAPathEndsTheProcess) {
  CSmtp mail;
  EXPECT_DEATH(mail.AddAttachment(nullptr), "path != nullptr");
}

TEST(NewMail, WithoutANameOfTheMachineIs107) {
  const CallsGuard guard({.host_name_fails = true});
  EXPECT_EQ(CodeOf([] { CSmtp mail; }), 107);
}

TEST(NewMail, WithoutMemoryForEachOfItsBuffersIs408) {
  for (int allocations = 0; allocations < 3; ++allocations) {
    const CallsGuard guard({.array_allocations = allocations});
    EXPECT_EQ(CodeOf([] { CSmtp mail; }), 408) << allocations;
  }
  const CallsGuard guard({.array_allocations = 3});
  EXPECT_EQ(CodeOf([] { CSmtp mail; }), 0);
}

TEST(LocalHostName, IsTheOneOfTheConstructorEvenWhenItHasChanged) {
  const CSmtp mail;
  const std::string name = mail.GetLocalHostName();
  const CallsGuard guard({.host_name = "renamed"});
  EXPECT_EQ(mail.GetLocalHostName(), name);
}

TEST(LocalHostName, IsReadAgainAndFailsWith107Or408) {
  const CSmtp mail;
  {
    const CallsGuard guard({.host_name_fails = true});
    EXPECT_EQ(CodeOf([&] { static_cast<void>(mail.GetLocalHostName()); }), 107);
  }
  const CallsGuard guard({.array_allocations = 0});
  EXPECT_EQ(CodeOf([&] { static_cast<void>(mail.GetLocalHostName()); }), 408);
}

TEST(MailFields, HoldWhatWasSetLast) {
  CSmtp mail;
  mail.SetSenderMail("first@x.example");
  mail.SetSenderMail("a@x.example");
  mail.SetSenderName("Pump");
  mail.SetSubject("Alarm");
  mail.SetXMailer("Corvane");
  mail.SetReplyTo("b@x.example");
  mail.SetXPriority(XPRIORITY_HIGH);
  EXPECT_STREQ(mail.GetMailFrom(), "a@x.example");
  EXPECT_STREQ(mail.GetSenderName(), "Pump");
  EXPECT_STREQ(mail.GetSubject(), "Alarm");
  EXPECT_STREQ(mail.GetXMailer(), "Corvane");
  EXPECT_STREQ(mail.GetReplyTo(), "b@x.example");
  EXPECT_EQ(mail.GetXPriority(), XPRIORITY_HIGH);
}

TEST(Recipients, AreCountedByTheirKind) {
  CSmtp mail;
  mail.AddRecipient("a@x.example");
  mail.AddCCRecipient("b@x.example", "B");
  mail.AddCCRecipient("b@x.example", "B again");
  mail.AddBCCRecipient("no syntax is checked");
  mail.AddBCCRecipient("");
  mail.AddBCCRecipient("c@x.example", nullptr);
  EXPECT_EQ(mail.GetRecipientCount(), 1U);
  EXPECT_EQ(mail.GetCCRecipientCount(), 2U);
  EXPECT_EQ(mail.GetBCCRecipientCount(), 3U);
  mail.DelCCRecipients();
  EXPECT_EQ(mail.GetCCRecipientCount(), 0U);
  mail.DelRecipients();
  mail.DelBCCRecipients();
  EXPECT_EQ(mail.GetRecipientCount() + mail.GetBCCRecipientCount(), 0U);
}

TEST(Recipients, WithoutAnAddressAre206) {
  CSmtp mail;
  EXPECT_EQ(CodeOf([&] { mail.AddRecipient(nullptr, "A"); }), 206);
  EXPECT_EQ(CodeOf([&] { mail.AddCCRecipient(nullptr, "A"); }), 206);
  EXPECT_EQ(CodeOf([&] { mail.AddBCCRecipient(nullptr, nullptr); }), 206);
  EXPECT_EQ(mail.GetRecipientCount() + mail.GetCCRecipientCount() + mail.GetBCCRecipientCount(),
            0U);
}

class MailWithThreeLines : public testing::Test {
 protected:
  MailWithThreeLines() {
    for (const char* line : {"zero", "one", "two"}) mail_.AddMsgLine(line);
  }
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    for (unsigned int i = 0; i < mail_.GetMsgLines(); ++i)
      lines.emplace_back(mail_.GetMsgLineText(i));
    return lines;
  }
  CSmtp mail_;
};

TEST_F(MailWithThreeLines, LosesTheLineThatIsDeleted) {
  mail_.DelMsgLine(1);
  EXPECT_THAT(Lines(), testing::ElementsAre("zero", "two"));
  mail_.DelMsgLine(0);
  EXPECT_THAT(Lines(), testing::ElementsAre("two"));
}

TEST_F(MailWithThreeLines, LosesTheLastLineWhenTheOneAfterItIsDeleted) {
  mail_.DelMsgLine(3);
  EXPECT_THAT(Lines(), testing::ElementsAre("zero", "one"));
}

TEST_F(MailWithThreeLines, RefusesToDeleteALineFurtherOutWith412) {
  EXPECT_EQ(CodeOf([this] { mail_.DelMsgLine(4); }), 412);
  EXPECT_EQ(CodeOf([this] { mail_.DelMsgLine(0xFFFFFFFF); }), 412);
  EXPECT_EQ(mail_.GetMsgLines(), 3U);
}

TEST_F(MailWithThreeLines, HasALineReplaced) {
  mail_.ModMsgLine(2, "second");
  EXPECT_THAT(Lines(), testing::ElementsAre("zero", "one", "second"));
}

TEST_F(MailWithThreeLines, StaysAsItIsForANullText) {
  mail_.ModMsgLine(0, nullptr);
  mail_.ModMsgLine(99, nullptr);
  EXPECT_THAT(Lines(), testing::ElementsAre("zero", "one", "two"));
}

TEST_F(MailWithThreeLines, IsOutOfRangeWhenTheLineAfterTheLastIsReplaced) {
  try {
    mail_.ModMsgLine(3, "text");
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("vector::_M_range_check"));
  }
}

TEST_F(MailWithThreeLines, RefusesToReplaceALineFurtherOutWith412) {
  EXPECT_EQ(CodeOf([this] { mail_.ModMsgLine(4, "text"); }), 412);
}

TEST_F(MailWithThreeLines, IsOutOfRangeWhenTheLineAfterTheLastIsRead) {
  try {
    static_cast<void>(mail_.GetMsgLineText(3));
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("vector::_M_range_check"));
  }
}

TEST_F(MailWithThreeLines, IsEmptyAfterAllLinesAreDeleted) {
  mail_.DelMsgLines();
  EXPECT_EQ(mail_.GetMsgLines(), 0U);
}

TEST(MailWithoutLines, StaysEmptyWhenItsFirstLineIsDeleted) {
  CSmtp mail;
  mail.DelMsgLine(0);
  EXPECT_EQ(mail.GetMsgLines(), 0U);
  mail.AddMsgLine("text");
  EXPECT_STREQ(mail.GetMsgLineText(0), "text");
}

}  // namespace
