// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_content.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane_mail {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

MailContent Complete() {
  MailContent content;
  content.account.server = "::1";
  content.account.port = 2525;
  content.account.security = Security::kTls;
  content.account.user = "p\xC3\xBCmp";
  content.account.ca_file = "/etc/ca.pem";
  content.account.insecure = true;
  content.account.timeout = std::chrono::milliseconds(1500);
  content.account.final_timeout = std::chrono::milliseconds(2500);
  content.message.from = {"Pump 3", "pump3@plant.example"};
  content.message.to = {{"", "anna@plant.example"}, {"Ben \"B\"", "ben@plant.example"}};
  content.message.cc = {{"", "cc@plant.example"}};
  content.bcc = {{"", "bcc@plant.example"}};
  content.message.reply_to = {{"", "office@plant.example"}};
  content.message.subject = "Level high";
  content.message.text = "3.2 m";
  content.message.html = "<b>3.2 m</b>";
  content.message.message_id = "<1@plant.example>";
  content.message.date = std::chrono::sys_seconds(std::chrono::seconds(1'800'000'000));
  content.message.zone_minutes = -210;
  content.attachments = {{.name = "a.csv", .size = 1ULL << 40, .file = "1/1", .memory = nullptr}};
  return content;
}

TEST(MailContent, ComesBackFromJsonWithAllThatItHad) {
  const MailContent content = Complete();
  const auto read = ReadMailContent(ToJson(content));
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->account.server, content.account.server);
  EXPECT_EQ(read->account.port, content.account.port);
  EXPECT_EQ(read->account.security, content.account.security);
  EXPECT_EQ(read->account.user, content.account.user);
  EXPECT_EQ(read->account.ca_file, content.account.ca_file);
  EXPECT_EQ(read->account.insecure, content.account.insecure);
  EXPECT_EQ(read->account.timeout, content.account.timeout);
  EXPECT_EQ(read->account.final_timeout, content.account.final_timeout);
  EXPECT_EQ(read->message.from, content.message.from);
  EXPECT_EQ(read->message.to, content.message.to);
  EXPECT_EQ(read->message.cc, content.message.cc);
  EXPECT_EQ(read->bcc, content.bcc);
  EXPECT_EQ(read->message.reply_to, content.message.reply_to);
  EXPECT_EQ(read->message.subject, content.message.subject);
  EXPECT_EQ(read->message.text, content.message.text);
  EXPECT_EQ(read->message.html, content.message.html);
  EXPECT_EQ(read->message.message_id, content.message.message_id);
  EXPECT_EQ(read->message.date, content.message.date);
  EXPECT_EQ(read->message.zone_minutes, content.message.zone_minutes);
  ASSERT_EQ(read->attachments.size(), 1U);
  EXPECT_EQ(read->attachments[0].name, "a.csv");
  EXPECT_EQ(read->attachments[0].size, 1ULL << 40);
  EXPECT_EQ(read->attachments[0].file, "1/1");
}

TEST(MailContent, NumbersThatCannotBeAreLimitedAndFractionsRefused) {
  // Each as it is in the JSON of Complete().
  const std::pair<const char*, const char*> numbers[] = {
      {"\"port\":", "2525"},       {"\"timeout_ms\":", "1500"},   {"\"final_timeout_ms\":", "2500"},
      {"\"date\":", "1800000000"}, {"\"zone_minutes\":", "-210"}, {"\"size\":", "1099511627776"}};
  for (const auto& [name, value] : numbers) {
    const auto with = [&name = name, &value = value](const char* other) {
      std::string json = ToJson(Complete());
      const std::string now = std::string(name) + value;
      json.replace(json.find(now), now.size(), name + std::string(other));
      return ReadMailContent(json);
    };
    EXPECT_FALSE(with("1e300")) << name;
    EXPECT_FALSE(with("1.5")) << name;
    EXPECT_FALSE(with("null")) << name;
    for (const char* const extreme : {"9223372036854775807", "-9223372036854775808"}) {
      const auto read = with(extreme);
      ASSERT_TRUE(read) << name;
      EXPECT_GE(read->account.port, 1);
      EXPECT_LE(read->account.port, 65535);
      EXPECT_GE(read->account.timeout.count(), 0);
      EXPECT_LE(read->account.timeout, std::chrono::years(100));
      EXPECT_LE(read->account.final_timeout, std::chrono::years(100));
      EXPECT_LT(read->message.date, std::chrono::sys_days(std::chrono::year(10000) / 1 / 1));
      EXPECT_LT(std::abs(read->message.zone_minutes), 24 * 60);
      EXPECT_EQ(ToJson(*ReadMailContent(ToJson(*read))), ToJson(*read));
    }
  }
}

TEST(MailContent, KeepsEachKindOfSecurity) {
  for (const Security security : {Security::kStartTls, Security::kTls, Security::kNone}) {
    MailContent content = Complete();
    content.account.security = security;
    const auto read = ReadMailContent(ToJson(content));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->account.security, security);
  }
}

TEST(MailContent, KeepsAnyText) {
  const std::string texts[] = {
      "",
      "\"\\/\b\f\n\r\t\x01\x7F",
      "\r\n.\r\nQUIT",
      std::string("a\0b", 3),
      "\xE2\x80\xA8 \xF0\x9F\x92\xA7 \xEF\xBB\xBF",
      "{\"subject\":1}\\u0000",
      std::string(1 << 20, 'x'),
  };
  for (const std::string& text : texts) {
    MailContent content = Complete();
    content.message.subject = content.message.text = content.message.html = text;
    content.account.user = text;
    content.attachments[0].name = text;
    const auto read = ReadMailContent(ToJson(content));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->message.subject, text);
    EXPECT_EQ(read->message.text, text);
    EXPECT_EQ(read->message.html, text);
    EXPECT_EQ(read->account.user, text);
    EXPECT_EQ(read->attachments[0].name, text);
  }
}

TEST(MailContent, ReplacesOctetsThatAreNotUtf8) {
  MailContent content = Complete();
  content.message.text =
      "a\xFF"
      "b";
  const auto read = ReadMailContent(ToJson(content));
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->message.text,
            "a\xEF\xBF\xBD"
            "b");
}

TEST(MailContent, IsNothingIfTheJsonIsCutOrOfAnotherKind) {
  const std::string json = ToJson(Complete());
  for (std::size_t length = 0; length < json.size(); ++length) {
    ASSERT_FALSE(ReadMailContent(json.substr(0, length)).has_value()) << length;
  }
  for (const char* other : {"null", "[]", "{}", "1", "\"x\"", "{\"server\":1}", "\xFF"}) {
    EXPECT_FALSE(ReadMailContent(other).has_value()) << other;
  }
  std::string wrong_type = json;
  const std::string port = "\"port\":2525";
  wrong_type.replace(wrong_type.find(port), port.size(), "\"port\":\"25\"");
  EXPECT_FALSE(ReadMailContent(wrong_type).has_value());
}

TEST(MailContent, EachMailboxGetsTheMailOnce) {
  MailContent content = Complete();
  content.message.cc = {{"Anna", "anna@plant.example"}, {"", "cc@plant.example"}};
  content.bcc = {{"", "cc@plant.example"}, {"", "bcc@plant.example"}};
  EXPECT_THAT(RecipientsOf(content), ElementsAre("anna@plant.example", "ben@plant.example",
                                                 "cc@plant.example", "bcc@plant.example"));
}

TEST(MailSummary, ShowsThreeMailboxesAndCountsTheRest) {
  EXPECT_EQ(Summary({}), "");
  EXPECT_EQ(Summary({"a@x"}), "a@x");
  EXPECT_EQ(Summary({"a@x", "b@x", "c@x"}), "a@x, b@x, c@x");
  EXPECT_EQ(Summary({"a@x", "b@x", "c@x", "d@x", "e@x"}), "a@x, b@x, c@x and 2 more");
}

MailProgress OneOfEach() {
  return {{{RecipientState::kWaiting, "450 later \"please\""},
           {RecipientState::kTaken, ""},
           {RecipientState::kRefused, "550 no such user"}}};
}

TEST(MailProgress, ComesBackFromJson) {
  const MailProgress read = ReadMailProgress(ToJson(OneOfEach()), 3);
  ASSERT_EQ(read.recipients.size(), 3U);
  EXPECT_EQ(read.recipients[0].state, RecipientState::kWaiting);
  EXPECT_EQ(read.recipients[0].reply, "450 later \"please\"");
  EXPECT_EQ(read.recipients[1].state, RecipientState::kTaken);
  EXPECT_EQ(read.recipients[2].state, RecipientState::kRefused);
  EXPECT_EQ(read.recipients[2].reply, "550 no such user");
  EXPECT_EQ(read.Count(RecipientState::kWaiting), 1U);
}

TEST(MailProgress, KeepsReadableWhatAServerSaidInOctetsThatAreNotUtf8) {
  const MailProgress odd = {{{RecipientState::kRefused, "550 no\xFF"}}};
  EXPECT_EQ(RefusedLines({"a@x"}, ReadMailProgress(ToJson(odd), 1)), "a@x: 550 no\xEF\xBF\xBD");
}

TEST(MailProgress, ThatCannotBeReadMeansThatAllWait) {
  for (const char* json : {"", "null", "{}", "{\"recipients\":1}", "{\"recipients\":[1,2]}",
                           R"({"recipients":[{"state":"taken","reply":""},{"state":1}]})"}) {
    const MailProgress read = ReadMailProgress(json, 2);
    EXPECT_EQ(read.Count(RecipientState::kWaiting), 2U) << json;
  }
}

TEST(MailProgress, HasAsManyRecipientsAsTheMail) {
  EXPECT_EQ(ReadMailProgress(ToJson(OneOfEach()), 2).recipients.size(), 2U);
  const MailProgress longer = ReadMailProgress(ToJson(OneOfEach()), 5);
  EXPECT_EQ(longer.recipients.size(), 5U);
  EXPECT_EQ(longer.Count(RecipientState::kWaiting), 3U);
  EXPECT_EQ(longer.Count(RecipientState::kTaken), 1U);
}

TEST(MailProgress, ListsWhoWasRefusedWithTheReply) {
  EXPECT_EQ(RefusedLines({"a@x", "b@x", "c@x"}, OneOfEach()), "c@x: 550 no such user");
  EXPECT_EQ(RefusedLines({"a@x"}, {}), "");
  const MailProgress both = {
      {{RecipientState::kRefused, "550 one"}, {RecipientState::kRefused, "551 two"}}};
  EXPECT_EQ(RefusedLines({"a@x", "b@x"}, both), "a@x: 550 one\nb@x: 551 two");
}

}  // namespace
}  // namespace corvane_mail
