// SPDX-License-Identifier: MIT
// The composed message, byte for byte.
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"
#include "tests/support/failing_calls.h"

namespace {

using test_support::CallsGuard;
using test_support::CodeOf;
using testing::HasSubstr;
using testing::Not;

constexpr std::time_t kMarch5th2024 = 1709629623;  // 09:07:03 UTC

class MailHeader : public testing::Test {
 protected:
  MailHeader() : calls_({.time = kMarch5th2024}) {
    setenv("TZ", "UTC", 1);
    mail_.SetSenderMail("pump3@plant.example");
    mail_.SetSenderName("Pump 3");
    mail_.SetSubject("Alarm");
    mail_.AddRecipient("a@x.example", nullptr);
  }
  std::string Header() const {
    std::vector<char> header(CSmtp::kBufferSize, '#');  // on the heap, where a sanitizer looks
    mail_.FormatHeader(header.data());
    return header.data();
  }

  CSmtp mail_;

 private:
  CallsGuard calls_;
};

TEST_F(MailHeader, OfAPlainMessageIsThis) {
  EXPECT_EQ(Header(),
            "Date: 5 Mar 2024 9:7:3\r\n"
            "From: Pump 3 <pump3@plant.example>\r\n"
            "X-Priority: 3 (Normal)\r\n"
            "To: <a@x.example>\r\n"
            "Subject: Alarm\r\n"
            "MIME-Version: 1.0\r\n"
            "Content-type: text/plain; charset=utf-8\r\n"
            "Content-Transfer-Encoding: 7bit\r\n"
            "\r\n");
}

TEST_F(MailHeader, OfAMessageWithEverythingIsThis) {
  mail_.SetXMailer("Corvane");
  mail_.SetReplyTo("desk@plant.example");
  mail_.SetXPriority(XPRIORITY_HIGH);
  mail_.AddRecipient("b@x.example", "Bert");
  mail_.AddCCRecipient("c@x.example", "");
  mail_.AddCCRecipient("d@x.example", "Dora");
  mail_.AddBCCRecipient("e@x.example");
  mail_.AddAttachment("report.csv");
  EXPECT_EQ(Header(),
            "Date: 5 Mar 2024 9:7:3\r\n"
            "From: Pump 3 <pump3@plant.example>\r\n"
            "X-Mailer: Corvane\r\n"
            "Reply-To: desk@plant.example\r\n"
            "X-Priority: 2 (High)\r\n"
            "To: <a@x.example>,Bert<b@x.example>\r\n"
            "Cc: <c@x.example>,Dora<d@x.example>\r\n"
            "Bcc: <e@x.example>\r\n"
            "Subject: Alarm\r\n"
            "MIME-Version: 1.0\r\n"
            "Content-Type: multipart/mixed; boundary=\"__MESSAGE__ID__54yg6f6h6y456345\"\r\n"
            "\r\n"
            "--__MESSAGE__ID__54yg6f6h6y456345\r\n"
            "Content-type: text/plain; charset=US-ASCII\r\n"
            "Content-Transfer-Encoding: 7bit\r\n"
            "\r\n");
}

TEST_F(MailHeader, JoinsRecipientsWithoutNamesWithJustAComma) {
  mail_.AddRecipient("b@x.example", nullptr);
  EXPECT_THAT(Header(), HasSubstr("\r\nTo: <a@x.example>,<b@x.example>\r\n"));
}

TEST_F(MailHeader, PutsARecipientsNameRightBeforeItsAddress) {
  mail_.DelRecipients();
  mail_.AddRecipient("b@x.example", "Bert");
  EXPECT_THAT(Header(), HasSubstr("\r\nTo: Bert<b@x.example>\r\n"));
}

TEST_F(MailHeader, HasTwoSpacesForAnEmptySubject) {
  mail_.SetSubject("");
  EXPECT_THAT(Header(), HasSubstr("\r\nSubject:  \r\n"));
}

TEST_F(MailHeader, HasAPlaceholderAsTheSenderWithoutASenderName) {
  mail_.SetSenderName("");
  EXPECT_THAT(Header(), HasSubstr("\r\nFrom:  <sender@example.com>\r\n"));
  EXPECT_THAT(Header(), Not(HasSubstr("pump3@plant.example")));
}

TEST_F(MailHeader, NamesThePriorityAndCountsUnknownOnesAsNormal) {
  mail_.SetXPriority(XPRIORITY_LOW);
  EXPECT_THAT(Header(), HasSubstr("\r\nX-Priority: 4 (Low)\r\n"));
  for (const int unknown : {0, 1, 3, 5, 7}) {
    mail_.SetXPriority(static_cast<CSmptXPriority>(unknown));
    EXPECT_THAT(Header(), HasSubstr("\r\nX-Priority: 3 (Normal)\r\n"));
  }
}

TEST_F(MailHeader, AcceptsAnyTextAsItIs) {
  mail_.SetSubject(
      "Gr\xC3\xBC\xC3\x9F"
      "e %s%n\r\nX-Own: field");
  EXPECT_THAT(Header(), HasSubstr("\r\nSubject: Gr\xC3\xBC\xC3\x9F"
                                  "e %s%n\r\nX-Own: field\r\n"));
}

TEST_F(MailHeader, HasTheDateInLocalTime) {
  setenv("TZ", "XYZ-5:30", 1);
  EXPECT_THAT(Header(), HasSubstr("Date: 5 Mar 2024 14:37:3\r\n"));
}

TEST_F(MailHeader, HasADateAfterTheYear2038) {
  constexpr std::time_t kJanuary1st2100 = 4102444800;
  const CallsGuard calls({.time = kJanuary1st2100});
  EXPECT_THAT(Header(), HasSubstr("Date: 1 Jan 2100 0:0:0\r\n"));
}

TEST_F(MailHeader, NamesEveryMonth) {
  const std::vector<std::string> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm day{};
  day.tm_year = 124;
  day.tm_mday = 15;
  for (day.tm_mon = 0; day.tm_mon < 12; ++day.tm_mon) {
    const CallsGuard calls({.time = timegm(&day)});
    EXPECT_THAT(Header(), HasSubstr("Date: 15 " + months[static_cast<std::size_t>(day.tm_mon)] +
                                    " 2024 0:0:0\r\n"));
  }
}

TEST_F(MailHeader, WithoutATimeIs409EvenIfRecipientAndSenderAreAlsoMissing) {
  mail_.DelRecipients();
  mail_.SetSenderMail("");
  for (const std::time_t time : {std::time_t{0}, std::time_t{-1}}) {
    const CallsGuard calls({.time = time});
    EXPECT_EQ(CodeOf([this] { Header(); }), 409);
  }
}

TEST_F(MailHeader, WithoutARecipientIs203EvenIfTheSenderIsAlsoMissing) {
  mail_.DelRecipients();
  mail_.SetSenderMail("");
  EXPECT_EQ(CodeOf([this] { Header(); }), 203);
}

TEST_F(MailHeader, WithoutASenderIs201) {
  mail_.SetSenderMail("");
  EXPECT_EQ(CodeOf([this] { Header(); }), 201);
}

TEST_F(MailHeader, ThatJustFitsTheBufferIsWrittenAndALongerOneIs408) {
  const std::size_t fits = CSmtp::kBufferSize - 1 - Header().size() + std::strlen("Alarm");
  mail_.SetSubject(std::string(fits, 's').c_str());
  EXPECT_EQ(Header().size(), CSmtp::kBufferSize - 1);
  mail_.SetSubject(std::string(fits + 1, 's').c_str());
  EXPECT_EQ(CodeOf([this] { Header(); }), 408);
}

TEST_F(MailHeader, IsRightOnManyThreadsAtOnce) {
  const std::string expected = Header();
  std::vector<std::thread> threads;
  std::vector<std::string> headers(4);
  for (std::string& header : headers) {
    threads.emplace_back([this, &header] {
      const CallsGuard calls({.time = kMarch5th2024});
      for (int i = 0; i < 200; ++i) header = Header();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(headers, testing::Each(expected));
}

}  // namespace
