// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_content.h"

#include <gmock/gmock.h>

namespace corvane_mail {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

MailContent Example() {
  MailContent content;
  content.account.server = "::1";
  content.account.port = 465;
  content.account.security = Security::kTls;
  content.account.user = "plc";
  content.account.ca_file = "/etc/ca.pem";
  content.account.insecure = true;
  content.account.timeout = std::chrono::seconds(5);
  content.message.from = {"Pump \"3\"", "pump3@plant.example"};
  content.message.to = {{"", "a@plant.example"}, {"B", "b@plant.example"}};
  content.message.cc = {{"", "a@plant.example"}};
  content.bcc = {{"", "c@plant.example"}};
  content.message.subject = "Füllstand\n2";
  content.message.text = "voll";
  content.message.message_id = "<0123@plant.example>";
  content.message.date = std::chrono::sys_seconds(std::chrono::seconds(1'800'000'000));
  content.message.zone_minutes = -330;
  content.attachments = {{.name = "größe.csv", .size = 7, .file = "0123/1", .memory = nullptr}};
  return content;
}

TEST(MailContent, ComesBackFromJsonAsItWas) {
  const MailContent content = Example();
  const std::string json = ToJson(content);
  const auto read = ReadMailContent(json);
  ASSERT_TRUE(read.has_value()) << json;
  EXPECT_EQ(ToJson(*read), json);
  EXPECT_EQ(RouteOf(read->account), "[::1]:465 plc");
  EXPECT_EQ(read->message.from, content.message.from);
  EXPECT_EQ(read->message.subject, content.message.subject);
  EXPECT_EQ(read->message.zone_minutes, -330);
  EXPECT_EQ(read->attachments.front().size, 7U);
}

TEST(MailContent, OfADamagedStoreIsNotRead) {
  const std::string json = ToJson(Example());
  for (const std::string& damaged :
       {std::string(), std::string("{}"), std::string("[1]"), json.substr(0, json.size() - 1)}) {
    EXPECT_FALSE(ReadMailContent(damaged).has_value()) << damaged;
  }
}

TEST(MailContent, SendsToEachMailboxOnce) {
  EXPECT_THAT(RecipientsOf(Example()),
              ElementsAre("a@plant.example", "b@plant.example", "c@plant.example"));
}

TEST(MailContent, SummarisesManyMailboxes) {
  EXPECT_EQ(Summary({"a", "b", "c"}), "a, b, c");
  EXPECT_EQ(Summary({"a", "b", "c", "d", "e"}), "a, b, c and 2 more");
}

TEST(MailProgress, ComesBackFromJsonForAsManyRecipientsAsThereAre) {
  MailProgress progress;
  progress.recipients = {{RecipientState::kTaken, ""}, {RecipientState::kRefused, "550 no\xFF"}};
  const MailProgress read = ReadMailProgress(ToJson(progress), 3);
  EXPECT_EQ(read.Count(RecipientState::kTaken), 1U);
  EXPECT_EQ(read.Count(RecipientState::kRefused), 1U);
  EXPECT_EQ(read.Count(RecipientState::kWaiting), 1U);
  EXPECT_THAT(RefusedLines({"a", "b", "c"}, read), HasSubstr("b: 550 no"));
}

TEST(MailProgress, OfADamagedStoreMeansThatNobodyHasTheMail) {
  EXPECT_EQ(
      ReadMailProgress(R"({"recipients":[{"state":"taken"}]})", 2).Count(RecipientState::kWaiting),
      2U);
}

}  // namespace
}  // namespace corvane_mail
