// SPDX-License-Identifier: MIT
// SMS_INBOX in the runtime's Lua environment, with a store on the disk; the test plays the modem.
#include "addins/corvane_sms/sms_inbox_fb.h"

#include <filesystem>
#include <map>

#include "tests/addins/corvane_sms/sms_block_test.h"
#include "tests/support/deliver_pdu.h"

namespace {

using testing::HasSubstr;

class SmsInboxTest : public SmsBlockTest {
 protected:
  SmsInboxTest() { Run("inbox = SMS_INBOX.new { Port = 1, Enable = true }"); }

  /// Calls the block, and answers for the modem, until a condition holds.
  bool CallUntil(const std::string& condition) {
    return test_support::WaitFor([&] {
      Run("inbox()");
      AnswerModem();
      return Eval(condition) == "true";
    });
  }
  void AnswerModem() {
    for (std::string request = port.Poll(); !request.empty(); request = port.Poll()) {
      if (request == "AT+CMGL=4\r") {
        std::string list;
        for (const auto& [index, pdu] : store_) {
          list += "+CMGL: " + std::to_string(index) + ",1,,30\r\n" + pdu + "\r\n";
        }
        port.Answer(list + "OK\r\n");
        continue;
      }
      if (request.starts_with("AT+CMGD=")) store_.erase(std::stoi(request.substr(8)));
      port.Answer("OK\r\n");
    }
  }
  void Receive(int index, const std::string& text) {
    store_[index] = test_support::TextMessage(text).ToHex();
    port.Say("+CMTI: \"SM\"," + std::to_string(index));
  }
  [[nodiscard]] bool StoreExists() const {
    return std::filesystem::exists(folder_.path() / "messages.db");
  }

  std::map<int, std::string> store_;
};

TEST_F(SmsInboxTest, TouchesNeitherDiskNorModemBeforeItsFirstCall) {
  Run("other = SMS_INBOX.new {} other() other.Port = 1 other()");
  EXPECT_EQ(port.attempts(), 0);
  EXPECT_FALSE(StoreExists());
  Run("inbox()");
  EXPECT_EQ(port.attempts(), 1);
}

TEST_F(SmsInboxTest, OffersEachMessageUntilItIsAccepted) {
  store_ = {{1, test_support::TextMessage("first").ToHex()},
            {2, test_support::TextMessage("second").ToHex()}};
  ASSERT_TRUE(CallUntil("inbox.Ready and inbox.Waiting == 2"));
  EXPECT_EQ(Eval("inbox.Text .. inbox.From .. inbox.Kind"), "first+155501012340");
  EXPECT_EQ(Eval("inbox.Time"), "1709629623");
  EXPECT_EQ(Eval("inbox.Valid"), "true");
  EXPECT_EQ(Eval("inbox.Error"), "false");
  Run("inbox() inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "true");
  Run("inbox.Accept = true inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "false");
  Run("inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "false") << "for one more call at least";
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  EXPECT_EQ(Eval("inbox.Text"), "second") << "Accept is still TRUE, but that is not an edge";
  Run("inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "true");
  Run("inbox.Accept = false inbox() inbox.Accept = true inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "false");
  ASSERT_TRUE(CallUntil("inbox.Waiting == 0"));
  EXPECT_TRUE(store_.empty());
}

TEST_F(SmsInboxTest, IgnoresAnEdgeOfAcceptWhileNothingIsOffered) {
  Run("inbox.Accept = true");
  Receive(3, "hello");
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  Run("inbox() inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "true");
}

TEST_F(SmsInboxTest, NumbersMessagesAcrossRestarts) {
  Receive(1, "first");
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  EXPECT_EQ(Eval("inbox.Id"), "1");
  Run("inbox = nil");
  Collect();
  Restart();
  Run("inbox = SMS_INBOX.new { Port = 1, Enable = true }");
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  EXPECT_EQ(Eval("inbox.Id .. inbox.Text"), "1first");
  Run("inbox.Accept = true");
  Receive(1, "second");
  ASSERT_TRUE(CallUntil("inbox.Ready and inbox.Text == 'second'"));
  EXPECT_EQ(Eval("inbox.Id"), "2");
}

TEST_F(SmsInboxTest, SaysThatThereIsNoSuchPort) {
  Run("inbox.Port = 7 inbox()");
  EXPECT_EQ(Eval("inbox.Error"), "true");
  EXPECT_EQ(Eval("inbox.ErrorId"), "14");
  EXPECT_THAT(Eval("inbox.ErrorText"), HasSubstr("no modem port 7"));
  Run("inbox.Enable = false inbox()");
  EXPECT_EQ(Eval("inbox.ErrorId"), "0");
  EXPECT_EQ(Eval("inbox.ErrorText"), "");
}

TEST_F(SmsInboxTest, SaysThatTheStoreHasFailedAndLeavesMessagesInTheModem) {
  UseFolder("/proc/self/nothing");
  Receive(1, "hello");
  ASSERT_TRUE(CallUntil("inbox.ErrorId == 22 and inbox.Valid"));
  EXPECT_THAT(Eval("inbox.ErrorText"), HasSubstr("/proc/self/nothing"));
  EXPECT_EQ(store_.size(), 1u);
  EXPECT_EQ(Eval("inbox.Ready"), "false");
}

TEST_F(SmsInboxTest, LeavesMessagesInTheModemOnceItIsDisabledOrCollected) {
  ASSERT_TRUE(CallUntil("inbox.Valid"));
  Run("inbox.Enable = false inbox()");
  EXPECT_EQ(Eval("inbox.Valid"), "false");
  Receive(1, "hello");
  EXPECT_EQ(port.Priority(), 0);
  Run("inbox.Enable = true inbox()");
  EXPECT_GT(port.Priority(), 0);
  Run("inbox = nil");
  Collect();
  EXPECT_EQ(port.Priority(), 0);
}

TEST_F(SmsInboxTest, OffersAMessageToAllBlocksOfItsPortUntilOneAcceptsIt) {
  Run("other = SMS_INBOX.new { Port = 1, Enable = true }");
  Receive(1, "first");
  Receive(2, "second");
  ASSERT_TRUE(
      CallUntil("(other() or true) and inbox.Ready and other.Ready and inbox.Waiting == 2"));
  Run("inbox.Accept, other.Accept = true, true inbox() other()");
  EXPECT_EQ(Eval("inbox.Ready"), "false");
  EXPECT_EQ(Eval("other.Ready"), "false");
  ASSERT_TRUE(CallUntil("(other() or true) and inbox.Ready and other.Ready"));
  EXPECT_EQ(Eval("inbox.Text .. other.Text"), "secondsecond") << "one message for both edges";
}

TEST_F(SmsInboxTest, WithdrawsItsOfferWhenThePortChanges) {
  Receive(1, "hello");
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  Run("inbox.Port, inbox.Accept = 7, true inbox()");
  EXPECT_EQ(Eval("inbox.Ready"), "false");
  Run("inbox.Port = 1");
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  EXPECT_EQ(Eval("inbox.Text"), "hello");
}

TEST_F(SmsInboxTest, EndsWithItsHostOrItsAddin) {
  Receive(1, "hello");
  ASSERT_TRUE(CallUntil("inbox.Ready"));
  Restart();
  Run("inbox = nil");
  Collect();
  EXPECT_EQ(port.clients(), 0u);
  Run("inbox = SMS_INBOX.new { Port = 1, Enable = true } inbox()");
  EXPECT_EQ(port.clients(), 1u);
  CloseHost();
}

TEST_F(SmsInboxTest, HasNoOtherVariables) {
  EXPECT_THAT(ErrorOf("inbox.Prot = 1"),
              HasSubstr("SMS_INBOX has no variable 'Prot'; did you mean 'Port'?"));
  EXPECT_THAT(ErrorOf("inbox.Ready = true"),
              HasSubstr("SMS_INBOX: 'Ready' is an output; only the block sets it"));
}

}  // namespace
