// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_inputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>

namespace corvane_mail {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

MailInputs Good() {
  MailInputs inputs;
  inputs.server = "mail.example";
  inputs.from = "Pump 3 <pump3@plant.example>";
  inputs.to = "anna@plant.example";
  inputs.text = "Level high";
  return inputs;
}

using Change = std::function<void(MailInputs&)>;

std::variant<MailOrder, JobFailure> Read(const Change& change) {
  MailInputs inputs = Good();
  change(inputs);
  return ReadOrder(inputs, messages::Now::Get());
}

/// The order; fails the test if the inputs are refused.
MailOrder OrderOf(const Change& change) {
  auto read = Read(change);
  if (const auto* const failure = std::get_if<JobFailure>(&read)) {
    ADD_FAILURE() << failure->text;
    return {};
  }
  return std::get<MailOrder>(std::move(read));
}

JobFailure FailureOf(const Change& change) {
  auto read = Read(change);
  const auto* const failure = std::get_if<JobFailure>(&read);
  return failure == nullptr ? JobFailure{ErrorId::kNone, "(accepted)"} : *failure;
}

struct BadInput {
  Change change;
  ErrorId error;
  const char* where;   ///< what the text names
  const char* remedy;  ///< what it says to do
};

const std::string& Megabyte() {
  static const std::string text(1 << 20, 'x');
  return text;
}

const std::vector<BadInput>& BadInputs() {
  using enum ErrorId;
  using In = MailInputs;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  static const std::string nul("a\0b", 3);
  static const std::vector<BadInput> inputs = {
      {[](In& in) { in.server = ""; }, kBadValue, "Server is empty", "give the name or address"},
      {[](In& in) { in.server = "no name"; }, kBadValue, "Server is no name", "correct it"},
      {[](In& in) { in.server = "a\r\nb"; }, kBadValue, "Server must be one line", "correct it"},
      {[](In& in) { in.server = nul; }, kBadValue, "Server must be one line", "correct it"},
      {[](In& in) { in.server = "\xFF"; }, kBadValue, "Server must be one line", "correct it"},
      {[](In& in) { in.server = Megabyte(); }, kBadValue, "Server must be", "at most 1000 octets"},
      {[](In& in) { in.port = -1; }, kBadValue, "Port is -1", "from 1 to 65535, or 0"},
      {[](In& in) { in.port = 65536; }, kBadValue, "Port is 65536", "from 1 to 65535, or 0"},
      {[](In& in) { in.security = "ssl"; }, kBadValue, "Security is ssl", R"("tls" or "none")"},
      {[](In& in) { in.security = "TLS"; }, kBadValue, "Security is TLS", R"("tls" or "none")"},
      {[](In& in) { in.security = nul; }, kBadValue, "Security is a\\x00b", "must be"},
      {[](In& in) { in.security = Megabyte(); }, kBadValue, "Security is xxx", "must be"},
      {[](In& in) { in.user = "a\nb"; }, kBadValue, "User must be one line", "correct it"},
      {[](In& in) { in.user = nul; }, kBadValue, "User must be one line", "correct it"},
      {[](In& in) { in.user = "\xC3"; }, kBadValue, "User must be one line of UTF-8", "correct it"},
      {[](In& in) { in.user = Megabyte(); }, kBadValue, "User must be", "at most 1000 octets"},
      {[](In& in) { in.ca_file = "a\nb"; }, kBadValue, "CaFile must be one line", "correct it"},
      {[](In& in) { in.ca_file = nul; }, kBadValue, "CaFile must be one line", "correct it"},
      {[](In& in) { in.key = "a\nb"; }, kBadValue, "Key must be one line", "shorten it"},
      {[](In& in) { in.key = std::string(201, 'k'); }, kBadValue, "Key must be", "shorten it"},
      {[](In& in) { in.valid_for = -1; }, kBadValue, "ValidFor must be", "from 0 on"},
      {[](In& in) { in.valid_for = std::nan(""); }, kBadValue, "ValidFor must be", "from 0 on"},
      {[](In& in) { in.valid_for = kInfinity; }, kBadValue, "ValidFor must be", "from 0 on"},
      {[](In& in) { in.timeout = -0.001; }, kBadValue, "Timeout must be", "from 0 on"},
      {[](In& in) { in.timeout = kInfinity; }, kBadValue, "Timeout must be", "from 0 on"},
      {[](In& in) { in.from = ""; }, kReceiver, "From: there is no address",
       "write it as name@domain"},
      {[](In& in) { in.from = "a@x.example, b@x.example"; }, kReceiver, "From: ", "one"},
      {[](In& in) { in.from = "pump3"; }, kReceiver, "From: address 1, 'pump3': there is no @",
       "write it as name@domain"},
      {[](In& in) { in.to = "anna@plant.example; ben"; }, kReceiver,
       "To: address 2, 'ben': there is no @", "write it as name@domain"},
      {[](In& in) { in.cc = "ben@"; }, kReceiver, "Cc: address 1, 'ben@': nothing follows",
       "write it as name@domain"},
      {[](In& in) { in.bcc = nul; }, kReceiver, "Bcc: ", ""},
      {[](In& in) { in.reply_to = "<x"; }, kReceiver, "ReplyTo: ", ""},
      {[](In& in) { in.to = Megabyte(); }, kReceiver, "To: ", ""},
      {[](In& in) { in.to = " ; ,\n"; }, kReceiver, "To, Cc and Bcc are empty", "give an address"},
      {[](In& in) { in.subject = nul; }, kText, "Subject", "octet 2"},
      {[](In& in) { in.subject = "a\xFF"; }, kText, "Subject", "octet 2"},
      {[](In& in) { in.subject = Megabyte(); }, kText, "Subject", "shorten"},
      {[](In& in) { in.text = nul; }, kText, "Text", "octet 2"},
      {[](In& in) { in.text = "a\xFF"; }, kText, "Text", "octet 2"},
      {[](In& in) { in.html = nul; }, kText, "Html", "octet 2"},
      {[](In& in) { in.html = "a\xFF"; }, kText, "Html", "octet 2"},
      {[](In& in) { in.text = ""; }, kText, "Subject, Text, Html and Attachments are all empty",
       "give one of them"},
      {[](In& in) { in.attachments = nul; }, kAttachment, "Attachments has a NUL", "correct it"},
      {[](In& in) {
         for (int i = 0; i < 1001; ++i) in.attachments += "a;";
       },
       kAttachment, "Attachments has more than 1000 paths", "send several mails"},
  };
  return inputs;
}

TEST(MailInputs, EachBadValueHasItsErrorAndATextThatNamesItAndTheRemedy) {
  for (const BadInput& bad : BadInputs()) {
    const JobFailure failure = FailureOf(bad.change);
    SCOPED_TRACE(failure.text);
    EXPECT_EQ(static_cast<int>(failure.id), static_cast<int>(bad.error)) << bad.where;
    EXPECT_THAT(failure.text, HasSubstr(bad.where));
    EXPECT_THAT(failure.text, HasSubstr(bad.remedy));
    EXPECT_LT(failure.text.size(), 1000U);
    EXPECT_EQ(failure.text.find_first_of("\r\n"), std::string::npos) << "one line";
    EXPECT_EQ(failure.text.find('\0'), std::string::npos);
  }
}

TEST(MailInputs, PortZeroIsTheUsualOneOfTheSecurity) {
  const std::tuple<const char*, Security, int> cases[] = {{"", Security::kStartTls, 587},
                                                          {"starttls", Security::kStartTls, 587},
                                                          {"tls", Security::kTls, 465},
                                                          {"none", Security::kNone, 25}};
  for (const auto& [text, security, port] : cases) {
    const Account account =
        OrderOf([text = text](MailInputs& inputs) { inputs.security = text; }).content.account;
    EXPECT_EQ(account.security, security) << text;
    EXPECT_EQ(account.port, port) << text;
  }
  for (const int port : {1, 2525, 65535}) {
    EXPECT_EQ(OrderOf([port](MailInputs& inputs) { inputs.port = port; }).content.account.port,
              port);
  }
}

TEST(MailInputs, AMailIsWorthSendingForFourDaysUnlessValidForSaysOtherwise) {
  const auto valid_for = [](double seconds) {
    return OrderOf([seconds](MailInputs& inputs) { inputs.valid_for = seconds; }).valid_for;
  };
  EXPECT_EQ(valid_for(0), std::chrono::seconds(345'600));
  EXPECT_EQ(valid_for(1.5), milliseconds(1500));
}

TEST(MailInputs, TheServerHas60SecondsForAReplyAnd600ForTheLastOneUnlessTimeoutSaysOtherwise) {
  const Account usual = OrderOf([](MailInputs&) {}).content.account;
  EXPECT_EQ(usual.timeout, std::chrono::seconds(60));
  EXPECT_EQ(usual.final_timeout, std::chrono::seconds(600));
  const Account set = OrderOf([](MailInputs& inputs) { inputs.timeout = 0.25; }).content.account;
  EXPECT_EQ(set.timeout, milliseconds(250));
  EXPECT_EQ(set.final_timeout, milliseconds(250));
}

TEST(MailInputs, AllThatIsSetIsInTheOrder) {
  const messages::Now now = messages::Now::Get();
  MailInputs inputs = Good();
  inputs.user = "pump";
  inputs.insecure = true;
  inputs.cc = "Cc <cc@plant.example>";
  inputs.bcc = "bcc@plant.example\nmore@plant.example";
  inputs.reply_to = "office@plant.example";
  inputs.subject = "S";
  inputs.html = "<b>";
  inputs.urgent = true;
  inputs.key = "key";
  const auto read = ReadOrder(inputs, now);
  const auto& order = std::get<MailOrder>(read);
  EXPECT_EQ(order.content.account.server, "mail.example");
  EXPECT_EQ(order.content.account.user, "pump");
  EXPECT_TRUE(order.content.account.insecure);
  EXPECT_EQ(order.content.message.from, (mail::Address{"Pump 3", "pump3@plant.example"}));
  EXPECT_THAT(order.content.message.to, ElementsAre(mail::Address{"", "anna@plant.example"}));
  EXPECT_THAT(order.content.message.cc, ElementsAre(mail::Address{"Cc", "cc@plant.example"}));
  EXPECT_THAT(order.content.bcc, ElementsAre(mail::Address{"", "bcc@plant.example"},
                                             mail::Address{"", "more@plant.example"}));
  EXPECT_THAT(order.content.message.reply_to,
              ElementsAre(mail::Address{"", "office@plant.example"}));
  EXPECT_EQ(order.content.message.subject, "S");
  EXPECT_EQ(order.content.message.text, "Level high");
  EXPECT_EQ(order.content.message.html, "<b>");
  EXPECT_EQ(order.content.message.date, std::chrono::floor<std::chrono::seconds>(now.wall));
  EXPECT_TRUE(order.urgent);
  EXPECT_EQ(order.key, "key");
  EXPECT_EQ(order.added.steady, now.steady);
}

TEST(MailInputs, OneRecipientAnywhereIsEnough) {
  OrderOf([](MailInputs& inputs) { inputs.to.swap(inputs.cc); });
  OrderOf([](MailInputs& inputs) { inputs.to.swap(inputs.bcc); });
}

TEST(MailInputs, OneOfSubjectTextHtmlAndAttachmentsIsEnough) {
  OrderOf([](MailInputs& inputs) { inputs.text.swap(inputs.subject); });
  OrderOf([](MailInputs& inputs) { inputs.text.swap(inputs.html); });
  OrderOf([](MailInputs& inputs) {
    inputs.text.clear();
    inputs.attachments = "report.csv";
  });
}

TEST(MailInputs, AddressesOfServersMayBeIPv6) {
  EXPECT_EQ(RouteOf(OrderOf([](MailInputs& inputs) { inputs.server = "::1"; }).content.account),
            "[::1]:587");
}

TEST(MailInputs, PathsAreSeparatedBySemicolonsAndLineFeedsAndAbsolute) {
  const fs::path here = fs::current_path();
  const MailOrder order = OrderOf([](MailInputs& inputs) {
    inputs.attachments = " a b.csv ;;/x/y;\r\n\tc,d\r\n\n;";
    inputs.ca_file = "ca.pem";
  });
  EXPECT_THAT(order.attachments,
              ElementsAre((here / "a b.csv").string(), "/x/y", (here / "c,d").string()));
  EXPECT_EQ(order.content.account.ca_file, (here / "ca.pem").string());
  EXPECT_EQ(OrderOf([](MailInputs&) {}).content.account.ca_file, "") << "the system's";
  EXPECT_THAT(OrderOf([](MailInputs&) {}).attachments, IsEmpty());
}

TEST(MailInputs, AThousandPathsAreNotTooMany) {
  const MailOrder order = OrderOf([](MailInputs& inputs) {
    for (int i = 0; i < 1000; ++i) inputs.attachments += "a;";
  });
  EXPECT_EQ(order.attachments.size(), 1000U);
}

TEST(MailInputs, TheAccountIsReadWithoutTheRest) {
  MailInputs inputs;
  inputs.server = "mail.example";
  inputs.user = "pump";
  const auto account = ReadAccount(inputs);
  EXPECT_EQ(RouteOf(std::get<Account>(account)), "mail.example:587 pump");
  inputs.port = -1;
  EXPECT_EQ(std::get<JobFailure>(ReadAccount(inputs)).id, ErrorId::kBadValue);
}

}  // namespace
}  // namespace corvane_mail
