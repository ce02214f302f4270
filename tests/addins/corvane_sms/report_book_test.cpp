// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/report_book.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <variant>

#include "addins/corvane_sms/sms_text.h"

namespace {

using namespace std::chrono_literals;
using namespace corvane_sms;
using messages::Now;

class ReportBookTest : public testing::Test {
 protected:
  ReportBookTest() { Restart(); }

  /// The program is killed, and starts again with what its store has.
  void Restart() {
    std::deque<messages::Outgoing> rows;
    for (const auto& [id, row] : stored_) {
      if (row.state == messages::OutgoingState::kWaiting || row.report_awaited) rows.push_back(row);
    }
    outbox_ = std::make_unique<messages::Outbox>(
        "sms", messages::Outbox::Disk{[this] { return next_id_++; },
                                      [this](const std::vector<messages::Change>& changes) {
                                        return Store(changes);
                                      }});
    book_ = std::make_unique<ReportBook>(*outbox_);
    outbox_->Load(std::move(rows), {}, {}, std::nullopt, now_);
    while (!outbox_->loaded()) outbox_->Tick(now_);
    for (const std::int64_t id : outbox_->TakeLoadedWithProgress()) book_->ExpectLoaded(id);
  }
  std::uint64_t Store(const std::vector<messages::Change>& changes) {
    for (const messages::Change& change : changes) {
      if (const auto* row = std::get_if<messages::Outgoing>(&change)) stored_[row->id] = *row;
    }
    return ++sequence_;
  }

  /// A message to this receiver whose parts have these references.
  std::shared_ptr<const messages::OutboxJob> Send(const std::string& receiver,
                                                  const std::vector<std::uint8_t>& references) {
    messages::NewJob job{.route = "1", .key = {}, .urgent = true, .valid_for = 1h, .messages = {}};
    job.messages.push_back({receiver, ToJson({.text = "x", .report = true})});
    auto progress = outbox_->Add(std::move(job), now_);
    const std::int64_t id = *outbox_->Next("1", now_);
    outbox_->Begin(id, now_);
    SmsProgress sent;
    for (const std::uint8_t reference : references) {
      book_->Expect("1", reference, id, sent.parts.size());
      sent.parts.push_back({reference, std::nullopt});
    }
    outbox_->Sent(id, ToJson(sent), true, now_);
    return progress;
  }
  bool Report(std::uint8_t reference, const std::string& recipient, std::uint8_t status = 0,
              const std::string& route = "1") {
    gsm::StatusReportPdu report;
    report.message_reference = reference;
    report.recipient = recipient;
    report.status = status;
    return book_->Take(route, report, now_);
  }

  Now now_ = Now::Get();
  std::int64_t next_id_ = 1;
  std::uint64_t sequence_ = 0;
  std::map<std::int64_t, messages::Outgoing> stored_;
  std::unique_ptr<messages::Outbox> outbox_;
  std::unique_ptr<ReportBook> book_;
};

TEST_F(ReportBookTest, AReportBelongsToReferenceReceiverAndPort) {
  const auto job = Send("+4915112345678", {7});
  EXPECT_FALSE(Report(8, "+4915112345678"));
  EXPECT_FALSE(Report(7, "+4915187654321"));
  EXPECT_FALSE(Report(7, "+4915112345678", 0, "2"));
  EXPECT_EQ(job->delivered, 0);
  EXPECT_TRUE(outbox_->AwaitsReport("1"));
  EXPECT_TRUE(Report(7, "+4915112345678"));
  EXPECT_EQ(job->delivered, 1);
  EXPECT_FALSE(outbox_->AwaitsReport("1"));
}

TEST_F(ReportBookTest, AReportThatComesAfterARestartBelongsToTheLoadedMessage) {
  Send("+4915112345678", {7, 8});
  Send("+4915187654321", {9});
  EXPECT_TRUE(Report(7, "+4915112345678"));  // of the first part, before the restart
  Restart();
  EXPECT_TRUE(book_->Awaits("1"));
  EXPECT_FALSE(Report(8, "+4915187654321")) << "of somebody else";
  EXPECT_TRUE(Report(8, "+4915112345678"));
  EXPECT_EQ(stored_.at(1).state, messages::OutgoingState::kSent);
  EXPECT_TRUE(ReadProgress(stored_.at(1).progress).delivered());
  EXPECT_FALSE(stored_.at(1).report_awaited);
  EXPECT_FALSE(ReadProgress(stored_.at(2).progress).reported());
  EXPECT_TRUE(stored_.at(2).report_awaited);
}

TEST_F(ReportBookTest, ALongMessageIsDeliveredWithItsLastPart) {
  const auto job = Send("+4915112345678", {7, 8});
  EXPECT_TRUE(Report(8, "+4915112345678"));
  EXPECT_EQ(job->delivered, 0);
  EXPECT_TRUE(Report(7, "+4915112345678"));
  EXPECT_EQ(job->delivered, 1);
}

TEST_F(ReportBookTest, AReportOfAFailureEndsTheWaitWithoutADelivery) {
  const auto job = Send("+4915112345678", {7});
  EXPECT_TRUE(Report(7, "+4915112345678", 0x46));
  EXPECT_EQ(job->delivered, 0);
  EXPECT_FALSE(outbox_->AwaitsReport("1"));
}

TEST_F(ReportBookTest, AnInterimReportIsFollowedByAnother) {
  const auto job = Send("+4915112345678", {7});
  EXPECT_TRUE(Report(7, "+4915112345678", 0x30));
  EXPECT_TRUE(Report(7, "+4915112345678", 0x00));
  EXPECT_EQ(job->delivered, 1);
}

TEST_F(ReportBookTest, ARepeatedReferenceMeansTheLatestMessage) {
  const auto old = Send("+4915112345678", {7});
  const auto young = Send("+4915112345678", {7});
  EXPECT_TRUE(Report(7, "+4915112345678"));
  EXPECT_EQ(young->delivered, 1);
  EXPECT_TRUE(Report(7, "+4915112345678"));
  EXPECT_EQ(old->delivered, 1);
}

TEST(MayBeSameNumber, KnowsNationalAndInternationalForms) {
  EXPECT_TRUE(MayBeSameNumber("+4915112345678", "+4915112345678"));
  EXPECT_TRUE(MayBeSameNumber("015112345678", "+4915112345678"));
  EXPECT_TRUE(MayBeSameNumber("004915112345678", "+4915112345678"));
  EXPECT_FALSE(MayBeSameNumber("015112345679", "+4915112345678"));
  EXPECT_FALSE(MayBeSameNumber("678", "+4915112345678")) << "a service number";
  EXPECT_TRUE(MayBeSameNumber("4040", "4040"));
  EXPECT_FALSE(MayBeSameNumber("", "+4915112345678"));
}

}  // namespace
