// SPDX-License-Identifier: MIT
// The test plays the modem and the clock; the store is a real one.
#include "addins/corvane_sms/send_task.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvane/modem_port_driver.h"
#include "libs/gsm/hexadecimal.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

using namespace std::chrono_literals;
using namespace corvane_sms;
using messages::Now;
using messages::OutboxJob;
using testing::HasSubstr;
using testing::StartsWith;

class SendTaskTest : public testing::Test {
 protected:
  SendTaskTest() {
    EXPECT_TRUE(test_support::WaitFor([this] { return store_.loaded(); }));
    Load();
  }
  void Load() {
    auto content = store_.TakeContent();
    ASSERT_TRUE(content);
    outbox_.Load(std::move(content->waiting), std::move(content->keys), std::move(content->recent),
                 content->limit_per_hour, now_);
    outbox_.Tick(now_);
  }

  std::shared_ptr<const OutboxJob> Add(const std::string& text, bool report = false,
                                       bool urgent = false) {
    messages::NewJob job{
        .route = "1", .key = {}, .urgent = urgent, .valid_for = 24h, .messages = {}};
    job.messages.push_back(
        {"+15550101234", ToJson({.text = text, .reference = 9, .flash = false, .report = report})});
    return outbox_.Add(std::move(job), now_);
  }
  /// A message as somebody else may have written it into the store.
  std::shared_ptr<const OutboxJob> AddRow(const std::string& receiver, const std::string& content) {
    messages::NewJob job{
        .route = "1", .key = {}, .urgent = false, .valid_for = 24h, .messages = {}};
    job.messages.push_back({receiver, content});
    return outbox_.Add(std::move(job), now_);
  }
  /// The next request of the task, once its attempt is on the disk.
  std::string Ask() {
    if (task_.Priority(now_) > 0) task_.OnBegin(now_);
    EXPECT_TRUE(store_.Flush(test_support::kPatience));
    if (task_.Priority(now_) == 0) return "";
    const auto request = task_.Next(now_);
    if (!request) return "";
    timeout_ = request->timeout;
    return request->octets;
  }
  /// The next part, up to its text. @return the PDU
  gsm::SubmitPdu AskForText() {
    gsm::SubmitPdu pdu;
    EXPECT_THAT(Ask(), StartsWith("AT+CMGS="));
    EXPECT_TRUE(task_.OnAnswer(">", 0, now_));
    const std::string text = Ask();
    EXPECT_EQ(text.back(), '\x1A');
    const auto octets = gsm::FromHexadecimal(text.substr(0, text.size() - 1));
    EXPECT_TRUE(octets && gsm::DecodeSubmit(*octets, pdu));
    return pdu;
  }
  void Pass(std::chrono::milliseconds time) {
    now_.steady += time;
    now_.wall += time;
  }

  test_support::TemporaryFolder folder_;
  Now now_ = Now::Get();
  messages::Store store_{folder_.path(), "sms"};
  messages::Outbox outbox_{
      "sms",
      {[this] { return store_.NewId(); },
       [this](const std::vector<messages::Change>& changes) { return store_.Write(changes); }}};
  ReportBook reports_{outbox_};
  SendTask task_{1, outbox_, store_, reports_};
  std::chrono::milliseconds timeout_{};
};

TEST_F(SendTaskTest, WantsNothingWithoutAMessage) {
  EXPECT_EQ(task_.Priority(now_), 0);
}

TEST_F(SendTaskTest, SendsAMessageWithTheLengthThatTheModemCounts) {
  const auto job = Add("Hello");
  EXPECT_EQ(Ask(), "AT+CMGS=19\r");
  EXPECT_EQ(timeout_, 10s);
  EXPECT_TRUE(task_.OnAnswer(">", 0, now_));
  EXPECT_EQ(Ask(), "0011000B915155101032F40000A705C8329BFD06\x1A");
  EXPECT_EQ(timeout_, 180s);
  EXPECT_FALSE(task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_));
  EXPECT_TRUE(job->ended());
  EXPECT_EQ(job->sent, 1);
}

TEST_F(SendTaskTest, AnUrgentMessageHasAHigherPriority) {
  Add("plain");
  const int plain = task_.Priority(now_);
  task_.End(now_);
  Add("urgent", false, true);
  EXPECT_GT(task_.Priority(now_), plain);
}

TEST_F(SendTaskTest, NoTextGoesToTheModemBeforeItsAttemptIsOnTheDisk) {
  Add("Hello");
  EXPECT_GT(task_.Priority(now_), 0) << "PDU mode can be set meanwhile";
  task_.OnBegin(now_);
  ASSERT_TRUE(test_support::WaitFor([this] { return task_.Priority(now_) > 0; }));
  EXPECT_TRUE(store_.Flush(0ms)) << "the attempt was the last change";
}

TEST_F(SendTaskTest, SendsAllPartsWithOneReference) {
  const auto job = Add(std::string(161, 'a'));
  for (int part = 1; part <= 2; ++part) {
    const gsm::SubmitPdu pdu = AskForText();
    ASSERT_TRUE(pdu.data.header.concatenation);
    EXPECT_EQ(pdu.data.header.concatenation->sequence, part);
    EXPECT_EQ(pdu.data.header.concatenation->reference, 9);
    EXPECT_EQ(task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_), part == 1);
  }
  EXPECT_EQ(job->sent, 1);
}

TEST_F(SendTaskTest, AfterAFailureOnlyTheMissingPartsAreSent) {
  const auto job = Add(std::string(161, 'a'));
  AskForText();
  task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_);
  AskForText();
  EXPECT_FALSE(task_.OnAnswer("+CMS ERROR: 331\r\n", 0, now_));
  EXPECT_EQ(Ask(), "");
  Pass(15s);
  EXPECT_EQ(AskForText().data.header.concatenation->sequence, 2);
  task_.OnAnswer("+CMGS: 4\r\nOK\r\n", 0, now_);
  EXPECT_EQ(job->sent, 1);
}

TEST_F(SendTaskTest, ARefusalForGoodIsTheEnd) {
  const auto job = Add("Hello");
  AskForText();
  EXPECT_FALSE(task_.OnAnswer("+CMS ERROR: 1\r\n", 0, now_));
  EXPECT_EQ(job->error_id, 21);
  EXPECT_THAT(job->errors, HasSubstr("+15550101234: refused with +CMS ERROR: 1"));
}

TEST_F(SendTaskTest, ATextWithoutAConfirmationIsRepeatedOnceUnchanged) {
  const auto job = Add("Hello");
  EXPECT_EQ(AskForText().validity_period, gsm::Octets{167});
  EXPECT_FALSE(task_.OnAnswer("", kPortDriverNoAnswer, now_));
  EXPECT_FALSE(job->ended());
  Pass(6h);  // a new text would be valid for less
  EXPECT_EQ(AskForText().validity_period, gsm::Octets{167})
      << "otherwise the driver would not recognise it";
  task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_);
  EXPECT_EQ(job->sent, 1);
  EXPECT_THAT(job->repeats, HasSubstr("did not confirm"));
}

TEST_F(SendTaskTest, ASecondTextWithoutAConfirmationIsTheEnd) {
  const auto job = Add("Hello");
  AskForText();
  task_.OnAnswer("", kPortDriverNoAnswer, now_);
  Pass(15s);
  AskForText();
  task_.OnAnswer("", kPortDriverNoAnswer, now_);
  EXPECT_EQ(job->error_id, 23);
}

TEST_F(SendTaskTest, ATextThatTheModemNeverSawIsNotAnUnknownEnd) {
  const auto job = Add("Hello");
  AskForText();
  task_.OnAnswer("", kPortDriverNotWritten, now_);
  EXPECT_FALSE(job->ended());
  Pass(15s);
  AskForText();
  task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_);
  EXPECT_EQ(job->repeats, "");
}

TEST_F(SendTaskTest, AModemThatIsNotReadyIsTriedAgainLater) {
  const auto job = Add("Hello");
  ASSERT_GT(task_.Priority(now_), 0);
  task_.OnNotReady("+CME ERROR: 10\r\n", 0, now_);
  EXPECT_EQ(task_.Priority(now_), 0);
  EXPECT_FALSE(job->ended());
  task_.OnLine(kPortDriverRestart, "", now_);
  EXPECT_GT(task_.Priority(now_), 0) << "after a restart at once";
}

TEST_F(SendTaskTest, ADriverThatKeepsAnAnswerHasNotAnswered) {
  const auto job = Add("Hello");
  AskForText();
  EXPECT_FALSE(task_.Next(now_)) << "the driver asks for more without an answer to the text";
  EXPECT_EQ(task_.Priority(now_), 0);
  EXPECT_FALSE(job->ended());
}

TEST_F(SendTaskTest, AtTheEndAnAttemptBeforeItsTextHasNotHappened) {
  const auto job = Add("Hello");
  EXPECT_THAT(Ask(), StartsWith("AT+CMGS="));
  task_.End(now_);
  EXPECT_FALSE(outbox_.Find(job->id)->in_transfer);
}

TEST_F(SendTaskTest, AtTheEndATextThatTheModemHasStaysMarked) {
  const auto job = Add("Hello");
  AskForText();
  task_.End(now_);
  EXPECT_TRUE(outbox_.Find(job->id)->in_transfer);
}

/// A report about reference 3 to +15550101234 with this status.
std::string ReportPdu(std::uint8_t status) {
  gsm::StatusReportPdu report;
  report.message_reference = 3;
  report.recipient = "+15550101234";
  report.status = status;
  return gsm::ToHexadecimal(gsm::EncodeStatusReport(report));
}

TEST_F(SendTaskTest, AReportThatTheModemHandsOnCounts) {
  const auto job = Add("Hello", true);
  EXPECT_TRUE(AskForText().status_report_requested);
  task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_);
  EXPECT_TRUE(job->ended());
  EXPECT_TRUE(outbox_.AwaitsReport("1"));
  task_.OnLine("+CDS: 25", "00", now_);
  task_.OnLine("+CDS: 25", "not hexadecimal", now_);
  task_.OnLine("+CMT: ,25", ReportPdu(0), now_);
  EXPECT_EQ(job->delivered, 0);
  task_.OnLine("+CDS: 25", ReportPdu(0), now_);
  EXPECT_EQ(job->delivered, 1);
}

TEST_F(SendTaskTest, AReportAboutAPartComesWhileTheNextOneIsSent) {
  const auto job = Add(std::string(161, 'a'), true);
  AskForText();
  task_.OnAnswer("+CMGS: 3\r\nOK\r\n", 0, now_);
  task_.OnLine("+CDS: 25", ReportPdu(0), now_);
  AskForText();
  task_.OnAnswer("+CMGS: 4\r\nOK\r\n", 0, now_);
  EXPECT_EQ(job->delivered, 0);
  EXPECT_EQ(ReadProgress(outbox_.Find(job->id)->progress).parts.at(0).status, 0);
}

TEST_F(SendTaskTest, WhatIsNotATextInTheStoreFailsForGood) {
  for (const std::string& content :
       {std::string("{}"), ToJson({.text = std::string(20 * 153 + 1, 'a'),
                           .reference = 9,
                           .flash = false,
                           .report = false})}) {
    const auto progress = AddRow("+15550101234", content);
    EXPECT_EQ(task_.Priority(now_), 0);
    EXPECT_EQ(progress->error_id, 21);
  }
}

TEST_F(SendTaskTest, WhatIsNotANumberInTheStoreFailsForGood) {
  for (const char* const receiver :
       {"", "Anna", "+", "123456789012345678901", "1\r\nAT+CMGD=1,4"}) {
    const auto progress = AddRow(
        receiver, ToJson({.text = "Hello", .reference = 9, .flash = false, .report = false}));
    EXPECT_EQ(task_.Priority(now_), 0) << receiver;
    EXPECT_EQ(progress->error_id, 21);
    EXPECT_THAT(progress->errors, HasSubstr("its receiver in the store cannot be read"));
  }
}

}  // namespace
