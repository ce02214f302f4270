// SPDX-License-Identifier: MIT
// SEND_SMS; the test plays the modem port driver and the modem.
#include <gmock/gmock.h>

#include <random>

#include "addins/corvane_fb_lib/sms_submit.h"
#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/fake_modem_port.h"

namespace {

using test_support::ModemRequest;
using testing::ElementsAre;
using testing::SizeIs;

const std::string kHello = "0001000B915155101032F4000005C8329BFD06\x1A";

class SendSms : public BlockTest {
 protected:
  SendSms() {
    Run("fb = SEND_SMS.new({Port = 3, Receiver = '15550101234', Message = 'Hello'})");
    sms::SMSSubmit::smsID = 0;
  }

  std::string State() { return Eval("fb.State"); }
  std::string Error() { return Eval("fb.Error"); }
  std::string Sent() { return Eval("fb.Sent"); }
  /// `Queue`, after a call that updates it.
  std::string Queue() {
    Run("fb()");
    return Eval("fb.Queue");
  }
  /// A rising edge of `Send`.
  void Send() { Run("fb.Send = false fb() fb.Send = true fb()"); }

  /// The exchanges of the front message up to its first PDU, all successful.
  void Announce() {
    ASSERT_EQ(port.Exchange("OK\r\n"), "AT+CMGF=0\r");
    ASSERT_EQ(port.Exchange("> ").substr(0, 8), "AT+CMGS=");
  }
  /// Everything that the block asks for, each with the right answer.
  std::vector<std::string> Complete() {
    std::vector<std::string> requests;
    for (std::string text = port.Poll(); !text.empty(); text = port.Poll()) {
      requests.push_back(text);
      port.Answer(text.starts_with("AT+CMGS") ? "> " : "OK\r\n");
    }
    return requests;
  }

  test_support::FakeModemPort port{3};
};

TEST_F(SendSms, WithoutItsPortStaysUnregisteredAndTriesAgain) {
  Run("fb.Port = 4");
  for (int call = 1; call <= 3; ++call) {
    Run("fb.State = 9 fb()");
    EXPECT_EQ(State(), "0");
    EXPECT_EQ(Error(), "0");
    EXPECT_EQ(port.attempts(), call);
  }
  Run("fb.Port = 3 fb()");
  EXPECT_EQ(State(), "1");
}

TEST_F(SendSms, AProgramCannotRemoveTheFinalizer) {
  Run("fb()");
  ASSERT_EQ(port.clients(), 1u);
  Run("local metatable = getmetatable(fb) for name in pairs(metatable) do metatable[name] = nil "
      "end");
  EXPECT_EQ(State(), "1");
  Run("fb = nil");
  Collect();
  EXPECT_EQ(port.clients(), 0u) << "the driver would continue with a block that is gone";
}

/// Copies its argument into the std::string at its upvalue.
int TakeText(lua_State* L) {
  auto& text = *static_cast<std::string*>(lua_touserdata(L, lua_upvalueindex(1)));
  text = luaL_checkstring(L, 1);
  return 0;
}

TEST_F(SendSms, AFinalizerAtTheEndOfTheProgramCreatesNoBlock) {
  std::string error;
  lua_pushlightuserdata(L(), &error);
  lua_pushcclosure(L(), TakeText, 1);
  lua_setglobal(L(), "take");
  Run(R"(last = setmetatable({}, {__gc = function()
           local made, error = pcall(SEND_SMS.new, {Port = 3})
           if made then error() end
           take(error)
         end}))");
  CloseHost();
  EXPECT_EQ(error, "the program has ended, so no more blocks can be created");
  EXPECT_EQ(port.clients(), 0u) << "the driver would continue with a block that is gone";
}

TEST_F(SendSms, QueuesWhileItIsUnregisteredAndSendsLater) {
  port.Refuse(true);
  Send();
  EXPECT_EQ(State(), "0");
  EXPECT_EQ(Queue(), "1");
  port.Refuse(false);
  Run("fb()");
  EXPECT_THAT(Complete(), SizeIs(3));
}

TEST_F(SendSms, IdleWithAnEmptyQueueHasNoPriorityAndStaysIdle) {
  Run("fb()");
  EXPECT_EQ(port.Priority(), 0);
  EXPECT_EQ(port.Priority(), 0);
  EXPECT_EQ(State(), "1");
}

TEST_F(SendSms, IdleAskedForARequestHasNone) {
  Run("fb()");
  const ModemRequest request = port.AskRequest();
  EXPECT_EQ(request.text, "");
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_NE(request.on_reply, nullptr);
}

TEST_F(SendSms, TheFirstPriorityQueryStartsAQueuedMessage) {
  Send();
  EXPECT_EQ(State(), "1");
  EXPECT_EQ(port.Priority(), 16);
  EXPECT_EQ(port.Priority(), 16);
  EXPECT_EQ(port.AskRequest().text, "AT+CMGF=0\r");
}

TEST_F(SendSms, ShowsTheStateOfTheMomentAtTheEdge) {
  Send();
  EXPECT_EQ(port.Priority(), 16);
  EXPECT_EQ(State(), "1") << "as it was at the last edge";
  Send();
  EXPECT_EQ(State(), "16");
}

TEST_F(SendSms, SendsAOnePartMessageInThreeExchanges) {
  Send();
  EXPECT_EQ(Queue(), "1");

  EXPECT_EQ(port.Priority(), 16);
  ModemRequest request = port.AskRequest();
  EXPECT_EQ(request.text, "AT+CMGF=0\r");
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_EQ(request.end_char, 13);
  port.Poll();
  EXPECT_EQ(port.Answer("OK\r\n"), 1);
  EXPECT_EQ(State(), "17");
  EXPECT_EQ(port.Priority(), 17);

  request = port.AskRequest();
  EXPECT_EQ(request.text, "AT+CMGS=18\r");
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_EQ(request.end_char, 0);
  port.Poll();
  EXPECT_EQ(port.Answer("> "), 1);
  EXPECT_EQ(State(), "18");
  EXPECT_EQ(port.Priority(), 18);

  request = port.AskRequest();
  EXPECT_EQ(request.text, kHello);
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_EQ(request.end_char, 13);
  port.Poll();
  EXPECT_EQ(port.Answer("+CMGS: 12\r\n\r\nOK\r\n"), 0);
  EXPECT_EQ(State(), "1");
  EXPECT_EQ(Error(), "0");
  EXPECT_EQ(Sent(), "true");
  EXPECT_EQ(Eval("fb.Queue"), "1");
  EXPECT_EQ(Queue(), "0");
  EXPECT_EQ(Sent(), "true");
  EXPECT_EQ(port.Priority(), 0);
}

TEST_F(SendSms, KeepsSentUntilTheNextAnswer) {
  Send();
  Complete();
  EXPECT_EQ(Sent(), "true");
  Send();
  EXPECT_EQ(Sent(), "true");
  port.Exchange("OK\r\n");
  EXPECT_EQ(Sent(), "false");
}

TEST_F(SendSms, SendsTheTwoPartsOfAMessageAfterOneSwitchOfMode) {
  Run("fb.Message = ('\xD0\x96'):rep(71)");
  Send();
  const auto requests = Complete();
  ASSERT_THAT(requests, SizeIs(5));
  EXPECT_EQ(requests[0], "AT+CMGF=0\r");
  EXPECT_EQ(requests[1], "AT+CMGS=153\r");
  EXPECT_EQ(requests[2].substr(0, 40), "0041000B915155101032F400088C050003000201");
  EXPECT_EQ(requests[3], "AT+CMGS=27\r");
  EXPECT_EQ(requests[4], "0041000B915155101032F400080E0500030002020416041604160416\x1A");
  EXPECT_EQ(Sent(), "true");
}

TEST_F(SendSms, SetsSentOnlyAfterTheLastPart) {
  Run("fb.Message = ('\xD0\x96'):rep(71)");
  Send();
  Announce();
  port.Exchange("OK\r\n");
  EXPECT_EQ(State(), "17");
  EXPECT_EQ(Sent(), "false");
}

TEST_F(SendSms, SendHeldTrueQueuesOnceAndRaisedAgainQueuesAgain) {
  Run("fb.Send = true for i = 1, 10 do fb() end");
  EXPECT_EQ(Queue(), "1");
  Run("fb.Send = false fb() fb.Send = true fb()");
  EXPECT_EQ(Queue(), "2");
}

TEST_F(SendSms, CountsTheQueueBeforeTheCallAddsToIt) {
  Run("fb.Send = true fb()");
  EXPECT_EQ(Eval("fb.Queue"), "0");
  EXPECT_EQ(Queue(), "1");
}

TEST_F(SendSms, CreatedWithSendTrueSendsOnItsFirstCall) {
  Run("fb = SEND_SMS.new({Port = 3, Receiver = '1', Message = 'a', Send = true}) fb()");
  EXPECT_EQ(Queue(), "1");
}

TEST_F(SendSms, QueuesOneMessageForEachReceiver) {
  Run("fb.Receiver = '15550101234, 15550101235'");
  Send();
  EXPECT_EQ(Queue(), "2");
  const auto requests = Complete();
  ASSERT_THAT(requests, SizeIs(6));
  EXPECT_EQ(requests[2], kHello);
  EXPECT_EQ(requests[5], "0001000B915155101032F5000005C8329BFD06\x1A");
}

TEST_F(SendSms, WithAReceiverOfSpacesAndCommasQueuesNothingAndKeepsTheError) {
  Run("fb.Error = 42");
  for (const std::string receiver : {"", " ", ",", " , ,, "}) {
    Run("fb.Receiver = '" + receiver + "'");
    Send();
    EXPECT_EQ(Queue(), "0");
    EXPECT_EQ(Error(), "42");
  }
}

TEST_F(SendSms, WarnsOnceAboutAReceiverThatMayBeOneNumberWrittenWithSpaces) {
  Send();
  EXPECT_THAT(test_support::TakeLog(), testing::IsEmpty());
  Run("fb.Receiver = '+49 151 12345678'");
  Send();
  Send();
  EXPECT_THAT(test_support::TakeLog(),
              testing::ElementsAre(testing::StartsWith(
                  "warning SEND_SMS: Receiver \"+49 151 12345678\" is read as 3 receivers")));
  Run("fb.Receiver = '112'");
  Send();
  EXPECT_THAT(test_support::TakeLog(), testing::SizeIs(1));
}

TEST_F(SendSms, UsesAnotherReferenceForEachReceiver) {
  Run("fb.Message = ('\xD0\x96'):rep(71) fb.Receiver = '1 2'");
  Send();
  const auto requests = Complete();
  ASSERT_THAT(requests, SizeIs(10));
  EXPECT_NE(requests[2].find("050003000201"), std::string::npos);
  EXPECT_NE(requests[7].find("050003010201"), std::string::npos);
}

TEST_F(SendSms, ReportsATextThatCannotBeEncodedAndSendsNothing) {
  Run("fb.Message = '\xFF'");
  Send();
  EXPECT_EQ(Error(), "11");
  EXPECT_EQ(Queue(), "0");
  EXPECT_EQ(port.Priority(), 0);
  Run("fb.Message = ('x'):rep(2000)");
  Run("fb.Error = 0");
  Send();
  EXPECT_EQ(Error(), "11");
}

TEST_F(SendSms, DoesNotClearAnErrorWithANewSend) {
  Run("fb.Error = 42");
  Send();
  EXPECT_EQ(Error(), "42");
}

TEST_F(SendSms, RefusesAReceiverThatDoesNotFitInARequestAndSendsToTheOthers) {
  Run("fb.Receiver = ('1'):rep(5000) .. ' 15550101234'");
  Send();
  EXPECT_EQ(Error(), "12");
  EXPECT_EQ(Queue(), "1");
  EXPECT_EQ(Complete().back(), kHello);
}

TEST_F(SendSms, RefusesWhatIsLongerThanAModemAccepts) {
  // 7 + digits / 2 octets before 140 of text: 164 with 34 digits, 165 with 36
  Run("fb.Message = ('\\208\\174'):rep(70)");
  Run("fb.Receiver = ('1'):rep(34) .. ' ' .. ('1'):rep(36)");
  Send();
  EXPECT_EQ(Error(), "12");
  EXPECT_EQ(Queue(), "1");
  EXPECT_THAT(Complete().back(), SizeIs(2 * 165 + 1));
}

TEST_F(SendSms, WithAnEmptyMessageSendsNothingAndGoesOnWithTheNext) {
  Run("fb.Message = ''");
  Send();
  Run("fb.Message = 'Hello'");
  Send();
  EXPECT_EQ(Queue(), "2");
  EXPECT_EQ(port.Priority(), 16);
  const ModemRequest request = port.AskRequest();
  EXPECT_EQ(request.text, "");
  EXPECT_EQ(request.on_reply, nullptr);
  EXPECT_EQ(Queue(), "1");
  EXPECT_EQ(State(), "1");
  EXPECT_EQ(Sent(), "false");
  EXPECT_EQ(Complete().back(), kHello);
}

TEST_F(SendSms, AnyAnswerWithAGreaterSignIsAPrompt) {
  for (const std::string prompt : {"> ", ">", "\r\n> ", "> \r", "\r\n>\r\n"}) {
    Send();
    port.Exchange("OK\r\n");
    port.Exchange(prompt);
    EXPECT_EQ(State(), "18") << prompt;
    port.Exchange("OK");
  }
}

TEST_F(SendSms, OkIsNotAPromptAndAPromptIsNotOk) {
  Send();
  port.Exchange("> ");
  EXPECT_EQ(Error(), "3");
  EXPECT_EQ(State(), "17");
  port.Exchange("OK\r\n");
  EXPECT_EQ(Error(), "3");
  EXPECT_EQ(State(), "17");
}

TEST_F(SendSms, ReportsTheNumberOfACmsErrorAndAnnouncesAgain) {
  Send();
  Announce();
  port.Poll();
  EXPECT_EQ(port.Answer("+CMS ERROR: 500\r\n"), 1);
  EXPECT_EQ(Error(), "500");
  EXPECT_EQ(State(), "17");
}

TEST_F(SendSms, ReportsThreeForAnyOtherAnswer) {
  for (const std::string answer : {"+CMS ERROR: 0\r\n", "+CMS ERROR: \r\n", "ERROR\r\n", "",
                                   "+CME ERROR: 14\r\n", "\r\n+CMS ERROR: 500\r\n"}) {
    Run("fb = SEND_SMS.new({Port = 3, Receiver = '1', Message = 'a', Send = true}) fb()");
    Collect();
    Announce();
    port.Exchange(answer);
    EXPECT_EQ(Error(), "3") << answer;
    EXPECT_EQ(State(), "17");
  }
}

TEST_F(SendSms, ReportsSixForATimeOut) {
  Send();
  Announce();
  port.Poll();
  EXPECT_EQ(port.TimeOut(), 1);
  EXPECT_EQ(Error(), "6");
  EXPECT_EQ(State(), "17");
}

TEST_F(SendSms, DoesNotLookAtAnAnswerWithANegativeStatus) {
  Send();
  port.Poll();
  port.Answer("OK\r\n", -2);
  EXPECT_EQ(Error(), "6");
}

TEST_F(SendSms, FailingToSwitchTheModeGoesOnWithTheAnnouncement) {
  Send();
  port.Exchange("ERROR\r\n");
  EXPECT_EQ(State(), "17");
  EXPECT_EQ(port.Poll(), "AT+CMGS=18\r");
}

TEST_F(SendSms, DropsTheMessageAfterFourFailedTransfersInARow) {
  Run("fb.Receiver = '15550101234 15550101235'");
  Send();
  EXPECT_EQ(Queue(), "2");
  port.Exchange("OK\r\n");
  for (int failure = 1; failure <= 4; ++failure) {
    EXPECT_EQ(port.Exchange("> "), "AT+CMGS=18\r");
    EXPECT_EQ(port.Exchange("+CMS ERROR: 38\r\n"), kHello);
    EXPECT_EQ(State(), failure < 4 ? "17" : "1");
  }
  EXPECT_EQ(Error(), "38");
  EXPECT_EQ(Sent(), "false");
  EXPECT_EQ(Queue(), "1");
  EXPECT_EQ(Complete().back(), "0001000B915155101032F5000005C8329BFD06\x1A");
}

TEST_F(SendSms, CountsFailuresFromZeroForTheMessageAfterADroppedOne) {
  Run("fb.Receiver = '15550101234 15550101235'");
  Send();
  port.Exchange("OK\r\n");
  for (int failure = 1; failure <= 4; ++failure) {
    port.Exchange("> ");
    port.Exchange("ERROR\r\n");
  }
  EXPECT_EQ(State(), "1");
  Announce();
  port.Exchange("ERROR\r\n");
  EXPECT_EQ(State(), "17");
  EXPECT_EQ(Complete().back(), "0001000B915155101032F5000005C8329BFD06\x1A");
}

TEST_F(SendSms, KeepsTheMessageAfterFourFailedAnnouncementsAndStartsItAgain) {
  Send();
  port.Exchange("OK\r\n");
  for (int failure = 1; failure <= 4; ++failure) {
    EXPECT_EQ(port.Exchange("ERROR\r\n"), "AT+CMGS=18\r");
    EXPECT_EQ(State(), failure < 4 ? "17" : "1");
  }
  EXPECT_EQ(Queue(), "1");
  EXPECT_THAT(Complete(), ElementsAre("AT+CMGF=0\r", "AT+CMGS=18\r", kHello));
}

TEST_F(SendSms, KeepsTheMessageWhenTheFourthFailureIsTheSwitchOfMode) {
  Send();
  port.Exchange("ERROR\r\n");
  for (int failure = 2; failure <= 4; ++failure) port.Exchange("ERROR\r\n");
  EXPECT_EQ(State(), "1");
  EXPECT_EQ(Queue(), "1");
}

TEST_F(SendSms, CountsFailuresAcrossStates) {
  Send();
  port.Exchange("ERROR\r\n");  // mode
  port.Exchange("ERROR\r\n");  // announcement
  port.Exchange("> ");
  port.Exchange("ERROR\r\n");  // transfer
  port.Exchange("> ");
  EXPECT_EQ(State(), "18");
  port.Exchange("ERROR\r\n");  // the fourth, in a transfer: the message is lost
  EXPECT_EQ(State(), "1");
  EXPECT_EQ(Queue(), "0");
}

TEST_F(SendSms, CountsFailuresFromZeroAfterEachConfirmedPdu) {
  Run("fb.Message = ('\xD0\x96'):rep(71)");
  Send();
  Announce();
  for (int failure = 1; failure <= 3; ++failure) {
    port.Exchange("ERROR\r\n");
    port.Exchange("> ");
  }
  port.Exchange("OK\r\n");
  EXPECT_EQ(State(), "17");
  for (int failure = 1; failure <= 3; ++failure) {
    port.Exchange("> ");
    port.Exchange("ERROR\r\n");
    EXPECT_EQ(State(), "17");
  }
  Complete();
  EXPECT_EQ(Sent(), "true");
}

TEST_F(SendSms, SendsOnlyTheRemainingPartAfterAFailure) {
  Run("fb.Message = ('\xD0\x96'):rep(71)");
  Send();
  Announce();
  port.Exchange("OK\r\n");
  port.Exchange("ERROR\r\n");
  EXPECT_THAT(Complete(), ElementsAre("AT+CMGS=27\r", testing::_));
}

TEST_F(SendSms, HasAPriorityBetweenAReaderThatSwitchesTheModeAndOneThatLists) {
  Run("reader = READ_SMS.new({Port = 3, Read = true}) reader()");
  Send();
  EXPECT_EQ(port.Poll(), "AT+CMGF=0\r");
  port.Answer("OK\r\n");
  EXPECT_EQ(State(), "17");
  EXPECT_EQ(Eval("reader.State"), "2");
  Complete();
  EXPECT_EQ(Sent(), "true");

  Run("reader() reader()");
  port.Exchange("OK\r\n");  // the reader's list is next, whatever comes
  Send();
  EXPECT_EQ(port.Poll(), "AT+CMGL=0\r");
}

TEST_F(SendSms, LeavesThePortWhenItIsCollectedWithItsExchangeOpen) {
  Send();
  EXPECT_EQ(port.Poll(), "AT+CMGF=0\r");
  Run("fb = nil");
  Collect();
  EXPECT_EQ(port.clients(), 0u);
}

TEST_F(SendSms, RandomAnswersDoNoHarm) {
  std::mt19937 random(5);
  const std::string answers[] = {"OK\r\n", "> ", "ERROR\r\n", "", "+CMS ERROR: 38\r\n", ">OK"};
  const std::string messages[] = {"'Hello'", "''", "('x'):rep(100)", "('\xD0\x96'):rep(200)"};
  std::uniform_int_distribution<std::size_t> answer(0, std::size(answers) - 1);
  std::uniform_int_distribution<std::size_t> message(0, std::size(messages) - 1);
  for (int i = 0; i < 20'000; ++i) {
    if (i % 10 == 0) {
      Run("fb.Message = " + messages[message(random)]);
      Send();
    }
    if (!port.Poll().empty()) port.Answer(answers[answer(random)], i % 20 == 0 ? -1 : 0);
  }
  while (port.Priority() != 0) Complete();  // an empty message asks for nothing when its turn comes
  EXPECT_EQ(Queue(), "0");
}

TEST_F(SendSms, LogsNothingAboutAMessageThatIsSent) {
  Send();
  Complete();
  EXPECT_TRUE(test_support::TakeLog().empty());
}

}  // namespace
