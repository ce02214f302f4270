// SPDX-License-Identifier: MIT
// SMS_OUTBOX; the test plays the modem port driver and the modem.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/addins/corvane_sms/sms_block_test.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class SmsOutbox : public SmsBlockTest {
 protected:
  SmsOutbox() {
    Run("fb = SMS_OUTBOX.new { Port = 1, Receiver = '+15550101234', Text = 'Tank 2 is full' }");
  }

  std::string Get(const std::string& name) { return Eval("fb." + name); }
  void Start() { Run("fb.Execute = false fb() fb.Execute = true fb()"); }
  /// `Busy Done Error ErrorId`.
  std::string Outputs() {
    return Get("Busy") + " " + Get("Done") + " " + Get("Error") + " " + Get("ErrorId");
  }
  /// Answers for the modem until a request begins with `beginning`.
  bool AnswerUntil(const std::string& beginning) {
    return test_support::WaitFor([&] {
      Run("fb()");
      const std::string request = port.Poll();
      if (request.empty()) return false;
      if (request.starts_with(beginning)) return true;
      port.Answer(request.starts_with("AT+CMGS") ? ">" : "OK\r\n");
      return false;
    });
  }
  bool Announce() { return AnswerUntil("AT+CMGS="); }
  /// The next text of a message is with the modem.
  bool Text() { return AnswerUntil("00"); }
};

TEST_F(SmsOutbox, SendsAndIsDone) {
  Start();
  EXPECT_EQ(Outputs(), "true false false 0");
  EXPECT_EQ(Get("Parts"), "1");
  EXPECT_EQ(Get("Waiting"), "1");
  EXPECT_EQ(Get("Stored"), "false");
  ASSERT_TRUE(CallUntil("fb.Stored"));
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 1\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Outputs(), "false true false 0");
  EXPECT_EQ(Get("ErrorText"), "");
  EXPECT_EQ(Get("Sent"), "1");
  EXPECT_EQ(Get("Waiting"), "0");
  Run("fb() fb()");
  EXPECT_EQ(Get("Done"), "true") << "while Execute is TRUE";
  Run("fb.Execute = false fb()");
  EXPECT_EQ(Get("Done"), "false");
  EXPECT_EQ(Get("Sent"), "1") << "until the next job";
}

TEST_F(SmsOutbox, LoadingAProgramTouchesNothing) {
  EXPECT_EQ(port.attempts(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(SmsOutbox, NamesAreCheckedAndOutputsAreTheBlocks) {
  EXPECT_THAT(ErrorOf("fb.Reciever = '1'"),
              HasSubstr("SMS_OUTBOX has no variable 'Reciever'; did you mean 'Receiver'?"));
  EXPECT_THAT(ErrorOf("return fb.Strored"), HasSubstr("did you mean 'Stored'?"));
  EXPECT_THAT(ErrorOf("fb.Done = true"), HasSubstr("SMS_OUTBOX: 'Done' is an output"));
  EXPECT_EQ(Get("EnO"), "true");
}

TEST_F(SmsOutbox, InputsThatCannotWorkAreAnErrorInTheSameCall) {
  const std::pair<const char*, const char*> cases[] = {
      {"fb.Receiver = '+491; Pump'", "11"},
      {"fb.Receiver = ''", "11"},
      {"fb.Text = ''", "12"},
      {"fb.Text = 'a\\xFFb'", "12"},
      {"fb.Text = ('x'):rep(3061)", "13"},
      {"fb.Text = ('x'):rep(2^20)", "13"},
      {"fb.Port = 2", "14"},
      {"fb.ValidFor = -1", "10"},
      {"fb.ValidFor = 0/0", "10"},
      {"fb.ValidFor = math.huge", "10"},
      {"fb.Key = ('k'):rep(201)", "10"},
      {"fb.Key = 'a\\nb'", "10"},
      {"fb.Key = '\\xFF'", "10"},
  };
  for (const auto& [input, error] : cases) {
    Run("fb = SMS_OUTBOX.new { Port = 1, Receiver = '+15550101234', Text = 'x' }");
    Run(input);
    Start();
    EXPECT_EQ(Outputs(), std::string("false false true ") + error) << input;
    EXPECT_GT(Get("ErrorText").size(), 20u) << input;
    EXPECT_EQ(Get("Waiting"), "0") << input;
    Run("fb()");
    EXPECT_EQ(Get("Error"), "true") << "while Execute is TRUE";
    Run("fb.Execute = false fb()");
    EXPECT_EQ(Outputs(), "false false false 0");
    EXPECT_EQ(Get("ErrorText"), "");
  }
}

TEST_F(SmsOutbox, AnErrorOfATextNamesTheOctet) {
  Run("fb.Text = 'a\\xFFb'");
  Start();
  EXPECT_THAT(Get("ErrorText"), HasSubstr("octet 2 "));
}

TEST_F(SmsOutbox, OutputsHoldForOneCallIfExecuteFellEarlier) {
  Start();
  Run("fb.Execute = false");
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 1\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Get("Done"), "true");
  Run("fb()");
  EXPECT_EQ(Outputs(), "false false false 0");
}

TEST_F(SmsOutbox, ANewEdgeWhileBusyQueuesAnotherMessage) {
  Start();
  Run("fb.Text = 'second'");
  Start();
  EXPECT_EQ(Get("Waiting"), "2");
  for (int message = 1; message <= 2; ++message) {
    EXPECT_EQ(Get("Done"), "false") << "the outputs follow the second message";
    ASSERT_TRUE(Text());
    port.Answer("+CMGS: 1\r\nOK\r\n");
    Run("fb()");
  }
  EXPECT_EQ(Get("Done"), "true");
  EXPECT_EQ(Get("Sent"), "1");
}

TEST_F(SmsOutbox, SeveralBlocksShareTheOutboxOfAPort) {
  Run("other = SMS_OUTBOX.new { Port = 1, Receiver = '+4915112345678', Text = 'x' }");
  Start();
  Run("other.Execute = true other()");
  EXPECT_EQ(Eval("other.Waiting"), "2");
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 1\r\nOK\r\n");
  Run("fb() other()");
  EXPECT_EQ(Get("Done"), "true");
  EXPECT_EQ(Eval("other.Busy"), "true");
  EXPECT_EQ(port.clients(), 1u);
}

TEST_F(SmsOutbox, ARefusedReceiverIsNamed) {
  Run("fb.Receiver = '+15550101234; +15550101235'");
  Start();
  ASSERT_TRUE(Text());
  port.Answer("+CMS ERROR: 1\r\n");
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 1\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Outputs(), "false false true 21");
  EXPECT_EQ(Get("Sent") + Get("Failed"), "11");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("+15550101234: refused with +CMS ERROR: 1"));
}

TEST_F(SmsOutbox, ExpiresWithoutAModem) {
  port.Refuse(true);
  Run("fb.ValidFor = 0.05");
  Start();
  ASSERT_TRUE(CallUntil("fb.Error"));
  EXPECT_EQ(Get("ErrorId"), "20");
  EXPECT_THAT(Get("ErrorText"), StartsWith("+15550101234: "));
}

TEST_F(SmsOutbox, AKeyIsSentOnce) {
  Run("fb.Key = 'heartbeat'");
  Start();
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 1\r\nOK\r\n");
  ASSERT_TRUE(CallUntil("fb.Done"));
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Get("Sent"), "0");
  Restart();
  Start();
  ASSERT_TRUE(CallUntil("fb.Done")) << "after a restart";
  EXPECT_EQ(Get("Sent"), "0");
  EXPECT_EQ(Get("ErrorText"), "");
}

TEST_F(SmsOutbox, AfterARestartAnyCallSendsWhatWaits) {
  port.Refuse(true);
  Start();
  ASSERT_TRUE(CallUntil("fb.Stored"));
  Restart();
  EXPECT_THAT(test_support::TakeLog(), Contains(HasSubstr("1 message waits")));
  port.Refuse(false);
  Run("fb = SMS_OUTBOX.new {}");
  EXPECT_TRUE(Text()) << "without a port, an edge or a text";
}

TEST_F(SmsOutbox, AModemThatIsPluggedInLaterGetsTheMessage) {
  port.Refuse(true);
  Start();
  Run("for i = 1, 10 do fb() end");
  port.Refuse(false);
  EXPECT_TRUE(Text());
}

TEST_F(SmsOutbox, AStoreThatCannotBeWrittenIsReportedAndTheMessageGoesOut) {
  UseFolder(folder_.Write("file", "no folder can be made here") + "/state");
  Start();
  ASSERT_TRUE(CallUntil("fb.ErrorId == 22"));
  EXPECT_EQ(Outputs(), "true false false 22");
  EXPECT_EQ(Get("Stored"), "false");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("file/state"));
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 1\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Outputs(), "false true false 0");
  EXPECT_EQ(Get("Sent"), "1");
}

TEST_F(SmsOutbox, TheLogSaysOnceWhereMessagesAreKept) {
  ASSERT_TRUE(CallUntil("fb.Waiting == 0"));
  std::vector<std::string> log;
  ASSERT_TRUE(test_support::WaitFor([&] {
    Run("fb()");
    for (std::string& line : test_support::TakeLog()) log.push_back(line);
    return !log.empty();
  }));
  Run("for i = 1, 10 do fb() end");
  EXPECT_THAT(log, testing::ElementsAre("info messages are kept in " +
                                        (folder_.path() / "messages.db").string()));
  EXPECT_THAT(test_support::TakeLog(), IsEmpty());
}

TEST_F(SmsOutbox, AMessageOutlivesItsBlock) {
  Start();
  Run("fb = nil");
  Collect();
  Run("fb = SMS_OUTBOX.new {}");
  EXPECT_TRUE(Text());
}

TEST_F(SmsOutbox, AnUnknownEndIsReportedWithDone) {
  Start();
  ASSERT_TRUE(Text());
  Restart();  // the text is with the modem
  Start();
  ASSERT_TRUE(Text()) << "the first message again";
  port.Answer("+CMGS: 1\r\nOK\r\n");
  ASSERT_TRUE(Text());
  port.Answer("+CMGS: 2\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Outputs(), "false true false 0") << "of the second message";
}

}  // namespace
