// SPDX-License-Identifier: MIT
// READ_SMS; the test plays the modem port driver and the modem.
#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <random>

#include "addins/corvane_fb_lib/read_sms.h"
#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/deliver_pdu.h"
#include "tests/support/fake_modem_port.h"

namespace {

using test_support::DeliverPdu;
using test_support::ModemRequest;
using test_support::Part;
using test_support::TextMessage;
using testing::ElementsAre;

/// One entry of a list answer.
std::string Entry(int index, const std::string& pdu_hex) {
  const int length = static_cast<int>(pdu_hex.size() / 2) - 8;
  return "+CMGL: " + std::to_string(index) + ",0,," + std::to_string(length) + "\r\n" + pdu_hex +
         "\r\n";
}

std::string Entry(int index, const DeliverPdu& pdu) {
  return Entry(index, pdu.ToHex());
}

class ReadSms : public BlockTest {
 protected:
  ReadSms() { Run("fb = READ_SMS.new({Port = 3})"); }

  /// Calls the block once. @return `State` afterwards
  std::string Call() {
    Run("fb()");
    return Eval("fb.State");
  }
  std::string Error() { return Eval("fb.Error"); }

  /// Registers the block and brings it to where its next request lists the messages.
  void StartList() {
    Run("fb.Read = true fb()");
    ASSERT_EQ(port.Exchange("OK\r\n"), "AT+CMGF=0\r");
  }
  /// Lets a pass list `answer`, and deletes whatever is to be deleted. @return the deletes
  std::vector<std::string> List(const std::string& answer) {
    StartList();
    EXPECT_EQ(port.Exchange(answer), "AT+CMGL=0\r");
    return port.AnswerAll("OK\r\n");
  }
  /// Calls the block until two calls in a row deliver nothing. @return what was delivered, as
  /// "number|message"
  std::vector<std::string> Deliveries() {
    std::vector<std::string> messages;
    for (int idle = 0; idle < 2; ++idle) {
      Run("fb()");
      if (Eval("fb.Complete") != "true") continue;
      messages.push_back(Eval("fb.Number .. '|' .. fb.Message"));
      idle = -1;
    }
    return messages;
  }

  test_support::FakeModemPort port{3};
};

TEST_F(ReadSms, WithoutItsPortStaysUnregisteredWithErrorOne) {
  Run("fb.Port = 4 fb.Read = true");
  for (int call = 1; call <= 3; ++call) {
    EXPECT_EQ(Call(), "0");
    EXPECT_EQ(Error(), "1");
    EXPECT_EQ(port.attempts(), call);
  }
}

TEST_F(ReadSms, RegistersAsSoonAsThePortExists) {
  port.Refuse(true);
  EXPECT_EQ(Call(), "0");
  port.Refuse(false);
  EXPECT_EQ(Call(), "1");
  EXPECT_EQ(Error(), "0");
  Call();
  EXPECT_EQ(port.attempts(), 2);
}

TEST_F(ReadSms, StartsAPassOnTheCallThatRegistersIt) {
  Run("fb.Read = true");
  EXPECT_EQ(Call(), "2");
  EXPECT_EQ(port.Priority(), 2);
}

TEST_F(ReadSms, WithReadFalseStartsNoPass) {
  EXPECT_EQ(Call(), "1");
  EXPECT_EQ(Call(), "1");
  EXPECT_EQ(port.Priority(), 0);
}

TEST_F(ReadSms, IdleHasNoPriorityAndIfAskedAnywayNoRequestAndNoReplyFunction) {
  Call();
  const ModemRequest request = port.AskRequest();
  EXPECT_EQ(port.Priority(), 0);
  EXPECT_EQ(request.text, "");
  EXPECT_EQ(request.on_reply, nullptr);
  EXPECT_EQ(request.timeout, -1);
  EXPECT_EQ(request.end_char, test_support::kUnwrittenEndChar);
}

TEST_F(ReadSms, AsksInPduModeForTheUnreadMessagesAndDeletesEach) {
  Run("fb.Read = true fb()");
  ModemRequest request = port.AskRequest();
  EXPECT_EQ(request.text, "AT+CMGF=0\r");
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_EQ(request.end_char, 13);
  EXPECT_NE(request.on_reply, nullptr);

  port.Exchange("OK\r\n");
  EXPECT_EQ(port.Priority(), 33);
  EXPECT_EQ(Call(), "33");
  request = port.AskRequest();
  EXPECT_EQ(request.text, "AT+CMGL=0\r");
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_EQ(request.end_char, 0);
  EXPECT_NE(request.on_reply, nullptr);

  port.Exchange(Entry(12, TextMessage("a")) + "\r\nOK\r\n");
  EXPECT_EQ(port.Priority(), 34);
  EXPECT_EQ(Call(), "34");
  request = port.AskRequest();
  EXPECT_EQ(request.text, "AT+CMGD=12\r");
  EXPECT_EQ(request.timeout, 2000);
  EXPECT_EQ(request.end_char, 13);
  EXPECT_NE(request.on_reply, nullptr);
  EXPECT_EQ(port.AskRequest().text, "AT+CMGD=12\r") << "asking changes nothing";
}

TEST_F(ReadSms, ReportsWhetherThePassGoesOn) {
  Run("fb.Read = true fb()");
  port.Poll();
  EXPECT_EQ(port.Answer("OK\r\n"), 1);
  port.Poll();
  EXPECT_EQ(port.Answer(Entry(1, TextMessage("a")) + "OK\r\n"), 1);
  port.Poll();
  EXPECT_EQ(port.Answer("OK\r\n"), 0);
}

TEST_F(ReadSms, OfAnEmptyListGoesStraightToIdle) {
  StartList();
  EXPECT_EQ(port.Exchange("OK\r\n"), "AT+CMGL=0\r");
  EXPECT_EQ(port.Priority(), 0);
  EXPECT_EQ(Error(), "0");
}

TEST_F(ReadSms, StartsTheNextPassOnTheCallAfterTheLastOneHasEnded) {
  List("OK\r\n");
  EXPECT_EQ(Call(), "2");
}

TEST_F(ReadSms, DeletesAndDeliversTwoMessagesInListingOrder) {
  const auto deletes =
      List(Entry(17, TextMessage("first")) + Entry(5, TextMessage("second")) + "\r\nOK\r\n");
  EXPECT_THAT(deletes, ElementsAre("AT+CMGD=17\r", "AT+CMGD=5\r"));
  Run("fb()");
  EXPECT_EQ(Eval("fb.Complete"), "true");
  EXPECT_EQ(Eval("fb.Number"), "+15550101234");
  EXPECT_EQ(Eval("fb.Message"), "first");
  EXPECT_EQ(Eval("fb.DateTime"), "1709629623");  // 2024-03-05 09:07:03 UTC
  Run("fb()");
  EXPECT_EQ(Eval("fb.Complete"), "false");
  EXPECT_EQ(Eval("fb.Message"), "first");
  Run("fb()");
  EXPECT_EQ(Eval("fb.Complete"), "true");
  EXPECT_EQ(Eval("fb.Message"), "second");
  Run("fb()");
  EXPECT_EQ(Eval("fb.Complete"), "false");
  Run("fb()");
  EXPECT_EQ(Eval("fb.Complete"), "false");
}

TEST_F(ReadSms, DeliversWhileThePassStillDeletes) {
  StartList();
  port.Exchange(Entry(1, TextMessage("a")) + Entry(2, TextMessage("b")) + "\r\nOK\r\n");
  EXPECT_EQ(Call(), "34");
  EXPECT_EQ(Eval("fb.Message"), "a");
}

TEST_F(ReadSms, ADeliveryClearsTheError) {
  List(Entry(1, TextMessage("a")) + "\r\nOK\r\n");
  Run("fb.Error = 77 fb()");
  EXPECT_EQ(Eval("fb.Complete"), "true");
  EXPECT_EQ(Error(), "0");
}

TEST_F(ReadSms, WithReadFalseKeepsItsMessagesUntilReadIsTrue) {
  List(Entry(1, TextMessage("a")) + "\r\nOK\r\n");
  Run("fb.Read = false fb() fb()");
  EXPECT_EQ(Eval("fb.Complete"), "false");
  EXPECT_EQ(Eval("fb.State"), "1");
  Run("fb.Read = true fb()");
  EXPECT_EQ(Eval("fb.Complete"), "true");
  EXPECT_EQ(Eval("fb.Message"), "a");
}

TEST_F(ReadSms, WithReadFalseStillLowersComplete) {
  List(Entry(1, TextMessage("a")) + "\r\nOK\r\n");
  Run("fb() fb.Read = false fb()");
  EXPECT_EQ(Eval("fb.Complete"), "false");
}

TEST_F(ReadSms, KeepsTheTrailingNulOfSevenCharacters) {
  List(Entry(1, TextMessage("1234567")) + "\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Eval("#fb.Message"), "8");
  EXPECT_EQ(Eval("fb.Message:byte(8)"), "0");
}

TEST_F(ReadSms, ReportsTheNumberOfACmsErrorAndEndsThePass) {
  StartList();
  port.Exchange("+CMS ERROR: 321\r\n");
  EXPECT_EQ(Error(), "321");
  EXPECT_EQ(port.Priority(), 0);
  Run("fb.Read = false fb()");
  EXPECT_EQ(Eval("fb.State"), "1");
}

TEST_F(ReadSms, ReportsFiveForACmsErrorWithoutANumberAndForError) {
  for (const std::string answer :
       {"+CMS ERROR: 0\r\n", "+CMS ERROR: \r\n", "+CMS ERROR: SIM busy\r\n", "ERROR\r\n"}) {
    StartList();
    port.Exchange(answer);
    EXPECT_EQ(Error(), "5") << answer;
    EXPECT_EQ(port.Priority(), 0);
  }
}

TEST_F(ReadSms, ReportsSixWithoutAnAnswerAndGoesToIdle) {
  Run("fb.Read = true fb()");
  port.Poll();
  EXPECT_EQ(port.TimeOut(), 0);
  EXPECT_EQ(Error(), "6");
  StartList();
  port.Poll();
  EXPECT_EQ(port.TimeOut(), 0);
  EXPECT_EQ(Error(), "6");
}

TEST_F(ReadSms, DoesNotLookAtAnAnswerWithANegativeStatus) {
  Run("fb.Read = true fb()");
  port.Poll();
  port.Answer("OK\r\n", -1);
  EXPECT_EQ(Error(), "6");
}

TEST_F(ReadSms, ReportsThreeForAnUnexpectedAnswer) {
  for (const std::string answer : {"garbage\r\n", "", "O", "+CME ERROR: 14\r\n", "\r\nOK\r\n"}) {
    Run("fb.Read = true fb()");
    port.Exchange(answer);
    EXPECT_EQ(Error(), "3") << answer;
    EXPECT_EQ(port.Priority(), 0);
  }
}

TEST_F(ReadSms, TreatsACmeErrorAsAnEmptyList) {
  EXPECT_THAT(List("+CME ERROR: 14\r\n"), ElementsAre());
  EXPECT_EQ(Error(), "0");
}

TEST_F(ReadSms, AFailedDeleteMovesOnToTheNextMessage) {
  StartList();
  port.Exchange(Entry(1, TextMessage("a")) + Entry(2, TextMessage("b")) + "\r\nOK\r\n");
  EXPECT_EQ(port.Exchange("ERROR\r\n"), "AT+CMGD=1\r");
  EXPECT_EQ(Error(), "5");
  EXPECT_EQ(port.Priority(), 34);
  EXPECT_EQ(port.Exchange("OK\r\n"), "AT+CMGD=2\r");
  EXPECT_EQ(Error(), "0");
  EXPECT_EQ(port.Priority(), 0);
}

TEST_F(ReadSms, AFailedLastDeleteEndsThePassAndKeepsTheError) {
  StartList();
  port.Exchange(Entry(1, TextMessage("a")) + "\r\nOK\r\n");
  EXPECT_EQ(port.Exchange("+CMS ERROR: 321\r\n"), "AT+CMGD=1\r");
  EXPECT_EQ(Error(), "321");
  EXPECT_EQ(port.Priority(), 0);
}

TEST_F(ReadSms, ATimeOutWhileDeletingMovesOnToTheNextMessage) {
  StartList();
  port.Exchange(Entry(1, TextMessage("a")) + Entry(2, TextMessage("b")) + "\r\nOK\r\n");
  port.Poll();
  EXPECT_EQ(port.TimeOut(), 1);
  EXPECT_EQ(Error(), "6");
  EXPECT_EQ(port.Poll(), "AT+CMGD=2\r");
  EXPECT_EQ(port.TimeOut(), 0);
}

TEST_F(ReadSms, JoinsTwoPartsListedInOrder) {
  const auto deletes =
      List(Entry(1, Part(9, 2, 1, "one ")) + Entry(2, Part(9, 2, 2, "two")) + "\r\nOK\r\n");
  EXPECT_THAT(deletes, ElementsAre("AT+CMGD=1\r", "AT+CMGD=2\r"));
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|one two"));
}

TEST_F(ReadSms, NeverDeliversTwoPartsListedInReverseButDeletesThem) {
  const auto deletes =
      List(Entry(1, Part(9, 2, 2, "two")) + Entry(2, Part(9, 2, 1, "one ")) + "\r\nOK\r\n");
  EXPECT_EQ(deletes.size(), 2u);
  EXPECT_THAT(Deliveries(), ElementsAre());
}

TEST_F(ReadSms, JoinsPartsOfSeveralPasses) {
  List(Entry(1, Part(9, 3, 1, "a")) + "\r\nOK\r\n");
  List(Entry(1, Part(9, 3, 2, "b")) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre());
  port.AnswerAll("OK\r\n");  // Deliveries has started a pass
  List(Entry(1, Part(9, 3, 3, "c")) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|abc"));
}

TEST_F(ReadSms, JoinsPartsInListingOrderWhateverTheirNumbers) {
  List(Entry(1, Part(9, 3, 1, "a")) + Entry(2, Part(9, 3, 3, "c")) + Entry(3, Part(9, 3, 2, "b")) +
       "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|acb"));
}

TEST_F(ReadSms, CountsPartsFromTheNumberOfTheFirstListed) {
  List(Entry(1, Part(9, 3, 2, "b")) + Entry(2, Part(9, 3, 1, "a")) + Entry(3, Part(9, 3, 3, "c")) +
       "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|ba")) << "cut and scrambled";
}

TEST_F(ReadSms, NeverDeliversThreePartsListedInReverse) {
  List(Entry(1, Part(9, 3, 3, "c")) + Entry(2, Part(9, 3, 2, "b")) + Entry(3, Part(9, 3, 1, "a")) +
       "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre());
}

TEST_F(ReadSms, JoinsPartsOfOneReferenceWhoeverSentThem) {
  DeliverPdu other = Part(9, 2, 2, "other");
  other.address = {0x94, 0x71, 0x11, 0x32, 0x54, 0xF7};
  List(Entry(1, Part(9, 2, 1, "mine ")) + Entry(2, other) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|mine other"));
}

TEST_F(ReadSms, KeepsMessagesOfDifferentReferencesApart) {
  List(Entry(1, Part(1, 2, 1, "a")) + Entry(2, Part(2, 2, 1, "x")) + Entry(3, Part(2, 2, 2, "y")) +
       Entry(4, Part(1, 2, 2, "b")) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|xy", "+15550101234|ab"));
}

TEST_F(ReadSms, TreatsAReferenceAsNewOnceItsOldMessageIsComplete) {
  List(Entry(1, Part(9, 2, 1, "a")) + Entry(2, Part(9, 2, 2, "b")) + Entry(3, Part(9, 2, 1, "c")) +
       Entry(4, Part(9, 2, 2, "d")) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|ab", "+15550101234|cd"));
}

TEST_F(ReadSms, TreatsATotalOfOneAsASingleMessage) {
  List(Entry(1, Part(1, 1, 1, "single")) + Entry(2, Part(1, 0, 0, "zero")) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|single", "+15550101234|zero"));
}

TEST_F(ReadSms, DeletesARejectedPduAndNeverDeliversIt) {
  DeliverPdu rejected = TextMessage("a");
  rejected.protocol_identifier = 1;
  const auto deletes =
      List(Entry(1, rejected) + Entry(2, "0") + Entry(3, TextMessage("b")) + "\r\nOK\r\n");
  EXPECT_THAT(deletes, ElementsAre("AT+CMGD=1\r", "AT+CMGD=2\r", "AT+CMGD=3\r"));
  EXPECT_EQ(Error(), "0");
  EXPECT_EQ(Deliveries().back(), "+15550101234|b");
}

TEST_F(ReadSms, DeliversATimeAfterTheYear2038) {
  DeliverPdu pdu = TextMessage("late");
  pdu.time_stamp = {0x99, 0x21, 0x13, 0x32, 0x95, 0x95, 0x00};
  List(Entry(1, pdu) + "\r\nOK\r\n");
  Run("fb()");
  EXPECT_EQ(Eval("fb.DateTime"), "4102444799");  // 2099-12-31 23:59:59 UTC
}

TEST_F(ReadSms, DeliversAnEntryWithAnEmptyPduLineAsAnEmptyMessage) {
  const auto deletes = List("+CMGL: 8,0,,0\r\n\r\n" + Entry(9, TextMessage("next")) + "\r\nOK\r\n");
  EXPECT_THAT(deletes, ElementsAre("AT+CMGD=8\r", "AT+CMGD=9\r"));
  Run("fb()");
  EXPECT_EQ(Eval("fb.Complete"), "true");
  EXPECT_EQ(Eval("fb.Number"), "");
  EXPECT_EQ(Eval("fb.Message"), "");
  EXPECT_EQ(Eval("fb.DateTime"), "0");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|next"));
}

TEST_F(ReadSms, DeliversAnEntryThatEndsAfterItsHeaderAsAnEmptyMessage) {
  EXPECT_THAT(List("+CMGL: 8,0,,0\r\n"), ElementsAre("AT+CMGD=8\r"));
  EXPECT_THAT(Deliveries(), ElementsAre("|"));
}

TEST_F(ReadSms, ReadsAPduWithoutALineEndUpToTheEndOfTheAnswer) {
  EXPECT_THAT(List("+CMGL: 8,0,,0\r\n" + TextMessage("end").ToHex()), ElementsAre("AT+CMGD=8\r"));
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|end"));
}

TEST_F(ReadSms, KeepsAnIndexModulo256) {
  const auto deletes =
      List(Entry(300, TextMessage("a")) + Entry(0, TextMessage("b")) +
           Entry(255, TextMessage("c")) + Entry(256, TextMessage("d")) + "\r\nOK\r\n");
  EXPECT_THAT(deletes, ElementsAre("AT+CMGD=44\r", "AT+CMGD=0\r", "AT+CMGD=255\r", "AT+CMGD=0\r"));
}

TEST_F(ReadSms, KeepsAnIndexOfMoreThan32BitsModulo256) {
  const std::string entry = Entry(1, TextMessage("a"));
  EXPECT_THAT(List("+CMGL: 4294967338" + entry.substr(entry.find(','))),
              ElementsAre("AT+CMGD=42\r"));
}

TEST_F(ReadSms, ReadsHeadersOfEveryShape) {
  const std::string pdu = "\r\n" + TextMessage("a").ToHex() + "\r\n";
  const auto deletes = List("+CMGL: 1,1,\"\",18" + pdu + "+CMGL: 2,1,\"Joe, Jr\",23" + pdu +
                            "+CMGL: 17,3,35" + pdu + "+CMGL:  4,1,,39" + pdu + "OK\r\n");
  EXPECT_THAT(deletes, ElementsAre("AT+CMGD=1\r", "AT+CMGD=2\r", "AT+CMGD=17\r", "AT+CMGD=4\r"));
  EXPECT_EQ(Deliveries().size(), 4u);
}

TEST_F(ReadSms, SkipsTheSevenCharactersBeforeTheIndexWhateverTheyAre) {
  const std::string rest = ",0,,24\r\n" + TextMessage("a").ToHex() + "\r\n";
  EXPECT_THAT(List("+CMGL:,5" + rest + "*PREFIX6" + rest + "OK\r\n"),
              ElementsAre("AT+CMGD=5\r", "AT+CMGD=6\r"));
}

TEST_F(ReadSms, ReadsAPduInLowerCase) {
  std::string pdu = Part(0, 1, 1, "low").ToHex();
  for (char& digit : pdu) digit = static_cast<char>(std::tolower(digit));
  List(Entry(1, pdu) + "\r\nOK\r\n");
  EXPECT_THAT(Deliveries(), ElementsAre("+15550101234|low"));
}

TEST_F(ReadSms, AnEntryWithoutItsCommaOrLineFeedEndsTheList) {
  const std::string whole = Entry(1, TextMessage("a"));
  for (const std::string rest : {"+CMGL: 2", "+CMGL: 2,0,,24", "+CMGL", "x", "\r\nO"}) {
    const auto deletes = List(whole + rest);
    EXPECT_THAT(deletes, ElementsAre("AT+CMGD=1\r")) << rest;
    EXPECT_EQ(Error(), "0");
    EXPECT_EQ(Deliveries().size(), 1u);
    port.AnswerAll("OK\r\n");
  }
}

TEST_F(ReadSms, AListCutAnywhereDoesNoHarmAndKeepsWhatIsComplete) {
  const std::string first = Entry(1, TextMessage("a"));
  const std::string list = first + Entry(2, Part(3, 2, 1, "b")) + "\r\nOK\r\n";
  for (std::size_t length = 0; length <= list.size(); ++length) {
    const auto deletes = List(list.substr(0, length));
    const auto messages = Deliveries();
    port.AnswerAll("OK\r\n");
    if (length >= first.size()) {
      ASSERT_FALSE(messages.empty());
      EXPECT_EQ(messages.front(), "+15550101234|a");
      EXPECT_EQ(deletes.front(), "AT+CMGD=1\r");
    }
  }
}

TEST_F(ReadSms, RandomAnswersDoNoHarmInAnyState) {
  std::mt19937 random(11);
  const std::string pieces[] = {"+CMGL: ",
                                "OK",
                                "ERROR",
                                ",",
                                "\r\n",
                                "\n",
                                "\r",
                                "1",
                                "0791",
                                "255",
                                "\xFF",
                                "+CMS ERROR: ",
                                Entry(3, Part(1, 2, 1, "x"))};
  std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1);
  std::uniform_int_distribution<int> count(0, 12);
  Run("fb.Read = true");
  for (int i = 0; i < 20'000; ++i) {
    Run("fb()");
    if (port.Poll().empty()) continue;
    std::string answer = i % 3 == 0 ? "OK\r\n" : "";
    if (i % 3 != 0) {
      for (int left = count(random); left > 0; --left) answer += pieces[piece(random)];
    }
    port.Answer(answer, i % 50 == 0 ? -1 : 0);
  }
  port.AnswerAll("OK\r\n");
  EXPECT_EQ(port.Priority(), 0);
}

TEST_F(ReadSms, ReadsAListOfTenThousandEntriesInLinearTime) {
  const std::string entry = Entry(1, TextMessage("one of many"));
  // Processor time of the fastest of several passes over a list of `entries`, deletes included, so
  // that a busy machine does not distort it.
  const auto best_time = [&](std::size_t entries) {
    std::string answer;
    for (std::size_t i = 0; i < entries; ++i) answer += entry;
    std::clock_t best = std::numeric_limits<std::clock_t>::max();
    for (int i = 0; i < 5; ++i) {
      const std::clock_t start = std::clock();
      EXPECT_EQ(List(answer).size(), entries);
      best = std::min(best, std::clock() - start);
    }
    return best;
  };
  const std::clock_t thousand = best_time(1'000);
  EXPECT_LT(best_time(10'000), thousand * 40);  // a quadratic time would be 100 times as long
}

TEST_F(ReadSms, ReadsMegabytesWithoutALineEndInNoTime) {
  StartList();
  port.Exchange("+CMGL: 1,0,,9" + std::string(4 << 20, 'x'));
  EXPECT_EQ(port.Priority(), 0);
  StartList();
  port.Exchange("+CMGL: " + std::string(4 << 20, ' '));
  EXPECT_EQ(port.Priority(), 0);
  StartList();
  port.Exchange("+CMGL: 1,0,,9\n" + std::string(4 << 20, '0'));
  EXPECT_EQ(port.Priority(), 34);
}

TEST_F(ReadSms, LeavesThePortWhenItIsCollected) {
  Call();
  EXPECT_EQ(port.clients(), 1u);
  Run("fb = nil");
  Collect();
  EXPECT_EQ(port.clients(), 0u);
}

TEST_F(ReadSms, MayBeCollectedWhileItsExchangeIsOpen) {
  Run("fb.Read = true fb()");
  EXPECT_EQ(port.Poll(), "AT+CMGF=0\r");
  Run("fb = nil");
  Collect();
  EXPECT_EQ(port.clients(), 0u);
  EXPECT_EQ(port.Poll(), "");
}

TEST_F(ReadSms, MayOutliveItsPort) {
  Call();
  CloseHost();
  EXPECT_EQ(port.clients(), 0u);
}

TEST_F(ReadSms, SharesAPortWithAnotherOne) {
  Run("other = READ_SMS.new({Port = 3, Read = true}) fb.Read = true fb() other()");
  EXPECT_EQ(port.clients(), 2u);
  EXPECT_EQ(port.Exchange("OK\r\n"), "AT+CMGF=0\r");
  // The one that lists goes before the one that only switches the mode.
  EXPECT_EQ(port.Exchange("OK\r\n"), "AT+CMGL=0\r");
  EXPECT_EQ(port.Exchange("OK\r\n"), "AT+CMGF=0\r");
  EXPECT_EQ(port.Exchange("OK\r\n"), "AT+CMGL=0\r");
  EXPECT_EQ(port.Poll(), "");
}

TEST(ReadSmsOctets, AreAppended) {
  std::vector<unsigned char> octets;
  ReadSMSFB::PDU_h2b("07f0", 4, octets);
  ReadSMSFB::PDU_h2b("A1zz", 4, octets);
  EXPECT_THAT(octets, ElementsAre(0x07, 0xF0, 0xA1, 0x00));
}

TEST_F(ReadSms, LogsNothing) {
  List(Entry(1, TextMessage("a")) + "\r\nOK\r\n");
  Deliveries();
  EXPECT_TRUE(test_support::TakeLog().empty());
}

}  // namespace
