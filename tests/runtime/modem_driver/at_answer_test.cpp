// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/at_answer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using corvane::AtAnswer;
using corvane::LineKind;
using corvane::ModemRequest;
using testing::ElementsAre;

const std::string kList = "AT+CMGL=0\r";
const std::string kPdu =
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
const std::string kText = "0001000B915155101032F4000005E8329BFD06\x1A";

/// What the driver would hand over, and why.
struct Outcome {
  AtAnswer::State state = AtAnswer::State::kOpen;
  std::string text;
  std::size_t octets = 0;  // used until the end was certain
  bool echoed = false;
  std::vector<std::string> foreign;
};

Outcome Answer(const std::string& octets_sent, std::string_view octets,
               std::string_view name = "") {
  Outcome outcome;
  ModemRequest request(octets_sent);
  if (!name.empty()) request.name = name;
  AtAnswer answer(
      request, [&outcome](std::string_view line, LineKind) { outcome.foreign.emplace_back(line); });
  for (const char c : octets) {
    if (answer.state() != AtAnswer::State::kOpen) break;
    answer.Feed(c);
    ++outcome.octets;
  }
  answer.End();
  outcome.state = answer.state();
  outcome.text = answer.text();
  outcome.echoed = answer.echoed();
  return outcome;
}

std::string Text(const std::string& request, std::string_view octets) {
  return Answer(request, octets).text;
}

std::string TextAfterPrompt(std::string_view octets) {
  return Answer(kText, octets, "+CMGS").text;
}

std::string Entry(int index, const std::string& pdu = kPdu) {
  return "+CMGL: " + std::to_string(index) + ",0,,30\r\n" + pdu + "\r\n";
}

TEST(AtAnswer, AFinalResultEndsIt) {
  for (const std::string line : {"OK", "ERROR", "ERROR: no such command", "+CMS ERROR: 321",
                                 "+CME ERROR: 14", "+CMS ERROR: network timeout"}) {
    const Outcome outcome = Answer("AT+CMGF=0\r", "\r\n" + line + "\r\n");
    EXPECT_EQ(outcome.state, AtAnswer::State::kFinal) << line;
    EXPECT_EQ(outcome.text, line + "\r\n");
    EXPECT_EQ(outcome.octets, line.size() + 3) << "it is certain at the CR";
  }
}

TEST(AtAnswer, AFinalResultInAMakersOwnFormIsHandedOverInTheStandardForm) {
  const std::vector<std::pair<std::string, std::string>> forms{
      {"+CMS ERROR:500", "+CMS ERROR: 500"},
      {"+CME ERROR:10", "+CME ERROR: 10"},
      {"+CMS ERROR:  500", "+CMS ERROR: 500"},
      {"+CMS ERROR 500", "+CMS ERROR: 500"},
      {"+CMGS ERROR: 38", "+CMS ERROR: 38"},
      {"COMMAND NOT SUPPORT", "ERROR"},
      {"TOO MANY PARAMETERS", "ERROR"},
      {"+CMS ERROR", "+CMS ERROR"},
      {"+CMS ERROR:SIM busy", "+CMS ERROR: SIM busy"}};
  for (const auto& [line, standard] : forms) {
    const Outcome outcome = Answer("AT+CMGF=0\r", "\r\n" + line + "\r\n");
    EXPECT_EQ(outcome.state, AtAnswer::State::kFinal) << line;
    EXPECT_EQ(outcome.text, standard + "\r\n");
  }
}

TEST(AtAnswer, EveryKindOfLineEndEndsALine) {
  for (const std::string end : {"\r\n", "\r", "\n", "\r\r\n", "\n\r"}) {
    EXPECT_EQ(Text(kList, end + "+CMGL: 1,0,,30" + end + kPdu + end + end + "OK" + end),
              Entry(1) + "OK\r\n");
  }
}

TEST(AtAnswer, AResultWithoutLineEndCountsWhenNothingMoreComes) {
  const Outcome outcome = Answer("AT+CMGF=0\r", "\r\nOK");
  EXPECT_EQ(outcome.state, AtAnswer::State::kFinal);
  EXPECT_EQ(outcome.text, "OK\r\n");
}

TEST(AtAnswer, TheConfirmationOfAMessageDoesNotEndAtItsFirstLine) {
  const Outcome outcome = Answer(kText, "\r\n+CMGS: 12\r\n\r\nOK\r\n", "+CMGS");
  EXPECT_EQ(outcome.state, AtAnswer::State::kFinal);
  EXPECT_EQ(outcome.text, "+CMGS: 12\r\nOK\r\n");
}

TEST(AtAnswer, APromptEndsItWithoutALineEndInEveryForm) {
  for (const std::string prompt : {"\r\n> ", ">", "> \r", "\r\n>\r\n", "AT+CMGS=18\r\r\n> "}) {
    const Outcome outcome = Answer("AT+CMGS=18\r", prompt);
    EXPECT_EQ(outcome.state, AtAnswer::State::kPrompt) << prompt;
    EXPECT_EQ(outcome.text, ">");
    EXPECT_EQ(outcome.octets, prompt.find('>') + 1) << "does not wait for anything after the '>'";
  }
}

TEST(AtAnswer, TheRestOfThePromptIsNotPartOfTheConfirmation) {
  for (const std::string left : {" ", " \r", "\r\n", "> ", "\r\n> "}) {
    EXPECT_EQ(TextAfterPrompt(left + "\r\n+CMGS: 0\r\n\r\nOK\r\n"), "+CMGS: 0\r\nOK\r\n") << left;
    EXPECT_EQ(TextAfterPrompt(left + kText + "\r\n+CMGS: 0\r\n\r\nOK\r\n"), "+CMGS: 0\r\nOK\r\n");
  }
}

TEST(AtAnswer, AnEchoIsNotPartOfIt) {
  const std::string answer = "\r\n" + Entry(1) + "\r\nOK\r\n";
  for (const std::string echo : {"AT+CMGL=0\r", "at+cmgl=0\r", "AT+CMGL=0\rAT+CMGL=0\r",
                                 "T+CMGL=0\r", "AT+CML0\r", "AT+CMGL=0AT+CMGL=0\r"}) {
    const Outcome outcome = Answer(kList, echo + answer);
    EXPECT_EQ(outcome.text, Entry(1) + "OK\r\n") << echo;
    EXPECT_TRUE(outcome.echoed) << echo;
  }
  EXPECT_FALSE(Answer(kList, answer).echoed);
}

TEST(AtAnswer, AnEchoAloneIsNotAnAnswer) {
  for (const std::string echo : {"AT+CMGL=0\r", "AT+CMGL=0\rAT+CMGL=0\r", "T+CGL=0", "\r\n"}) {
    EXPECT_EQ(Text(kList, echo), "") << echo;
  }
}

TEST(AtAnswer, TheEchoOfATextWithItsCtrlZIsNotPartOfIt) {
  EXPECT_EQ(TextAfterPrompt(kText + "\r\n+CMGS: 7\r\n\r\nOK\r\n"), "+CMGS: 7\r\nOK\r\n");
  EXPECT_EQ(TextAfterPrompt(kText + "+CMGS: 7\r\n\r\nOK\r\n"), "+CMGS: 7\r\nOK\r\n");
  EXPECT_EQ(TextAfterPrompt(kText), "");
}

TEST(AtAnswer, AnEchoMayHaveOtherCapitalsAndLackOctets) {
  for (const std::string echo :
       {"0001000b915155101032f4000005e8329bfd06", "0001000B915155101032F4"}) {
    const Outcome outcome = Answer(kText, echo + "\r\n+CMGS: 7\r\n\r\nOK\r\n", "+CMGS");
    EXPECT_EQ(outcome.text, "+CMGS: 7\r\nOK\r\n");
    EXPECT_TRUE(outcome.echoed) << echo;
    EXPECT_THAT(outcome.foreign, ElementsAre()) << echo;
  }
}

TEST(AtAnswer, AnEchoOfATextIsNotAPduOfAList) {
  EXPECT_EQ(Text(kList, kText + "\r\n\r\nOK\r\n"), "OK\r\n");
}

TEST(AtAnswer, UnsolicitedLinesAreRemovedWhereverTheyCome) {
  const std::vector<std::string> lines{"+CMTI: \"SM\",3",
                                       "RING",
                                       "+CREG: 1",
                                       "^RSSI:18",
                                       "+CLIP: \"+4915112345\",145,,,,0",
                                       "Call Ready",
                                       "+CUSD: 0,\"x\",15",
                                       "^DSFLOWRPT:0,0,0",
                                       "#STN: 150,1,\"\"",
                                       "DST: 0"};
  const std::string want = Entry(1) + Entry(2) + "OK\r\n";
  for (const std::string& line : lines) {
    const std::string framed = "\r\n" + line + "\r\n";
    const std::string header = "+CMGL: 1,0,,30\r\n";
    EXPECT_EQ(Text(kList, framed + "\r\n" + Entry(1) + Entry(2) + "\r\nOK\r\n"), want) << line;
    EXPECT_EQ(Text(kList, "\r\n" + header + framed + kPdu + "\r\n" + Entry(2) + "\r\nOK\r\n"),
              want);
    EXPECT_EQ(Text(kList, "\r\n" + Entry(1) + framed + Entry(2) + "\r\nOK\r\n"), want) << line;
    EXPECT_EQ(Text(kList, "\r\n" + Entry(1) + Entry(2) + framed + "\r\nOK\r\n"), want) << line;
    const std::string parted = kPdu.substr(0, 20) + framed + kPdu.substr(20) + "\r\n";
    EXPECT_EQ(Text(kList, "\r\n" + header + parted + Entry(2) + "\r\nOK\r\n"), want) << line;
    EXPECT_THAT(Answer(kList, framed + "\r\nOK\r\n").foreign, ElementsAre(line));
  }
}

TEST(AtAnswer, AnUnsolicitedMessageTakesItsSecondLineWithIt) {
  for (const std::string head : {"+CMT: ,30", "+CDS: 30", "+CBM: 88"}) {
    const std::string pair = "\r\n" + head + "\r\n" + kPdu + "\r\n";
    EXPECT_EQ(Text(kList, pair + "\r\n" + Entry(1) + "\r\nOK\r\n"), Entry(1) + "OK\r\n");
    EXPECT_EQ(Text(kList, "\r\n+CMGL: 1,0,,30\r\n" + pair + kPdu + "\r\n\r\nOK\r\n"),
              Entry(1) + "OK\r\n");
    EXPECT_EQ(Text(kList, pair + "\r\nOK\r\n"), "OK\r\n");
    EXPECT_EQ(Text("AT+CMGD=1\r", "\r\n" + head + "\r\n\r\nOK\r\n"), "OK\r\n")
        << "a result is not a second line";
  }
}

TEST(AtAnswer, AnUnsolicitedMessageKeepsItsSecondLineWhenAnotherLineComesBetween) {
  const std::string parted = "\r\n+CMT: ,30\r\nRING\r\n" + kPdu + "\r\n";
  EXPECT_EQ(Text(kList, "\r\n+CMGL: 1,0,,30\r\n" + parted + kPdu + "\r\n\r\nOK\r\n"),
            Entry(1) + "OK\r\n");
  EXPECT_EQ(Text("AT+CMGF=0\r", parted), "") << "none of it is an answer";
}

TEST(AtAnswer, ALineOfAnotherKindWithTheCommandsOwnNameBelongsToIt) {
  EXPECT_EQ(Text("AT+CPIN?\r", "\r\n+CPIN: READY\r\n\r\nOK\r\n"), "+CPIN: READY\r\nOK\r\n");
  EXPECT_EQ(Text("AT+CREG?\r", "\r\n+CREG: 0,1\r\n\r\nOK\r\n"), "+CREG: 0,1\r\nOK\r\n");
  EXPECT_EQ(Text(kList, "\r\n+CREG: 1\r\n\r\nOK\r\n"), "OK\r\n");
}

TEST(AtAnswer, AnEmptyPduLineReachesTheReaderOfTheList) {
  const std::string empty = "+CMGL: 3,0,,0\r\n\r\n";
  EXPECT_EQ(Text(kList, "\r\n" + empty + Entry(4) + "\r\nOK\r\n"), empty + Entry(4) + "OK\r\n");
  EXPECT_EQ(Text(kList, "\r\n" + Entry(2) + empty + "\r\nOK\r\n"), Entry(2) + empty + "OK\r\n");
}

TEST(AtAnswer, AHeaderAfterWhichTheModemFailedIsNotAnEmptyMessage) {
  EXPECT_EQ(Text(kList, "\r\n" + Entry(1) + "+CMGL: 2,0,,30\r\n\r\n+CMS ERROR: 320\r\n"),
            Entry(1) + "+CMS ERROR: 320\r\n");
}

TEST(AtAnswer, EveryFormOfAHeaderIsAccepted) {
  for (const std::string header :
       {"+CMGL: 1,1,,30", "+CMGL: 1,1,\"\",30", "+CMGL: 1,1,\"616E64,26572\",30", "+CMGL: 17,3,30",
        "+CMGL: 0,1,,78", "+CMGL: 352,1,,999"}) {
    const std::string want = header + "\r\n" + kPdu + "\r\nOK\r\n";
    EXPECT_EQ(Text(kList, "\r\n" + header + "\r\n" + kPdu + "\r\n\r\nOK\r\n"), want);
  }
}

TEST(AtAnswer, ALineOfItsOwnWithoutABlankIsHandedOverWithOne) {
  EXPECT_EQ(Text(kList, "\r\n+CMGL:1,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n"), Entry(1) + "OK\r\n");
  EXPECT_EQ(Text(kList, "\r\n+CMGL:  1,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n"), Entry(1) + "OK\r\n");
  EXPECT_EQ(Text("AT+CMGR=1\r", "\r\n+CMGR:0,23\r\n" + kPdu + "\r\n\r\nOK\r\n"),
            "+CMGR: 0,23\r\n" + kPdu + "\r\nOK\r\n");
  EXPECT_EQ(Text("AT+CPIN?\r", "\r\n+CPIN:READY\r\n\r\nOK\r\n"), "+CPIN: READY\r\nOK\r\n");
  EXPECT_EQ(TextAfterPrompt("\r\n+CMGS:12\r\n\r\nOK\r\n"), "+CMGS: 12\r\nOK\r\n");
}

TEST(AtAnswer, APduWithNoiseInItIsHandedOverAsItCameExceptForItsEnd) {
  const std::string noisy = kPdu.substr(0, 30) + "#" + kPdu.substr(31);
  EXPECT_EQ(Text(kList, "\r\n" + Entry(1, noisy + "`\"~") + "\r\nOK\r\n"),
            Entry(1, noisy) + "OK\r\n");
  const std::string spoiled = "~" + kPdu;
  EXPECT_EQ(Text(kList, "\r\n" + Entry(1, spoiled) + "\r\nOK\r\n"), Entry(1, spoiled) + "OK\r\n");
}

TEST(AtAnswer, APduThatIsFilledUpIsHandedOverWithoutTheFilling) {
  std::string filled = kPdu;
  while (filled.size() < 2 * 176) filled += "FF";
  EXPECT_EQ(Text(kList, "\r\n" + Entry(1, filled) + Entry(2, filled) + "\r\nOK\r\n"),
            Entry(1) + Entry(2) + "OK\r\n");
  const std::string cut = "\r\n+CMGL: 1,0,,30\r\n" + filled;
  EXPECT_EQ(Text(kList, cut), Entry(1)) << "nothing more came";
}

TEST(AtAnswer, ARestartOfTheModemEndsIt) {
  for (const std::string line :
       {"RDY", "APP RDY", "START", "^SYSSTART", "^SYSSTART AIRPLANE MODE"}) {
    const std::string octets = "\r\n" + Entry(1) + "\r\n" + line + "\r\n\r\nOK\r\n";
    const Outcome outcome = Answer(kList, octets);
    EXPECT_EQ(outcome.state, AtAnswer::State::kRestarted) << line;
    EXPECT_EQ(outcome.text, Entry(1)) << "what came before it";
    EXPECT_EQ(outcome.octets, octets.size() - 7) << "at the CR of its line";
    EXPECT_THAT(outcome.foreign, ElementsAre(line));
    EXPECT_EQ(Answer(kText, "\r\n" + line + "\r\n", "+CMGS").state, AtAnswer::State::kRestarted);
    EXPECT_EQ(Answer("AT+CMGS=18\r", line + "\r\n").state, AtAnswer::State::kRestarted);
  }
}

// Half a PDU would be taken for one that cannot be decoded, and deleted from the modem.
TEST(AtAnswer, HalfAPduBeforeARestartOrSilenceIsNotHandedOver) {
  const std::string half = "\r\n" + Entry(1) + "+CMGL: 2,0,,30\r\n" + kPdu.substr(0, 40) + "\r\n";
  EXPECT_EQ(Text(kList, half + "RDY\r\n"), Entry(1));
  EXPECT_EQ(Text(kList, half + "+CREG: 1\r\n"), Entry(1));
}

TEST(AtAnswer, AMessageInTextModeIsHandedOver) {
  const std::string entry =
      "+CMGL: 1,\"REC UNREAD\",\"+49151\",,\"26/11/21,03:00:00+00\"\r\nHello\r\n";
  EXPECT_EQ(Text("AT+CMGL=\"ALL\"\r", "\r\n" + entry + "\r\nOK\r\n"), entry + "OK\r\n");
}

TEST(AtAnswer, ALateConfirmationDoesNotAnswerTheNextAnnouncement) {
  const Outcome outcome = Answer("AT+CMGS=18\r", "\r\n+CMGS: 4\r\n\r\nOK\r\n\r\n> ");
  EXPECT_EQ(outcome.state, AtAnswer::State::kPrompt);
  EXPECT_THAT(outcome.foreign, ElementsAre("+CMGS: 4"));
}

TEST(AtAnswer, UnknownLinesAreHandedOverWhenNothingElseCame) {
  EXPECT_EQ(Text("AT+CMGF=0\r", "AT+CMGF=0\r\r\nwhat?\r\n"), "what?\r\n");
  EXPECT_EQ(Text("AT+CMGF=0\r", "\r\nwhat?\r\n\r\nOK\r\n"), "OK\r\n");
  EXPECT_EQ(Text("AT+CMGF=0\r", "\r\nRING\r\n\r\n+CREG: 1\r\n"), "");
}

TEST(AtAnswer, UnknownLinesAreNeverHandedOverAsAListOrAsTheAnswerToAText) {
  EXPECT_EQ(Text(kList, "\r\nwhat?\r\n"), "");
  EXPECT_EQ(Text(kText, "\r\nLOOK OUT\r\n"), "");
}

TEST(AtAnswer, CountsTheOctetsOfItsOwnLinesEvenWhileOneIsArriving) {
  const ModemRequest list(kList);
  AtAnswer answer(list, [](std::string_view, LineKind) {});
  const auto feed = [&answer](const std::string& octets) {
    for (const char octet : octets) answer.Feed(octet);
    return answer.octets();
  };
  EXPECT_EQ(feed("what?\r\nRING"), 0u);
  EXPECT_EQ(feed("\r\n+CMGL: 1,0,,30\r\n"), 14u);
  EXPECT_EQ(feed("0791"), 18u);
  EXPECT_EQ(feed("\r\n+CMGL: 2,0,,30\r\n"), 14u + 2 + 4 + 2 + 14);
}

TEST(AtAnswer, ACutListKeepsOnlyItsWholeEntries) {
  const std::string whole = "\r\n" + Entry(1) + Entry(2) + "\r\nOK\r\n";
  const std::string first = Entry(1);
  const std::size_t after_first = 2 + first.size() - 2;  // its line end may be missing
  const std::size_t after_second = 2 + 2 * first.size() - 2;
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    const Outcome outcome = Answer(kList, whole.substr(0, cut));
    std::string want;
    if (cut >= after_first) want += Entry(1);
    if (cut >= after_second) want += Entry(2);
    if (cut >= whole.size() - 2) want += "OK\r\n";
    EXPECT_EQ(outcome.text, want) << "cut at " << cut;
  }
}

TEST(AtAnswer, ALineWithoutEndFailsWithBoundedMemory) {
  const std::string megabytes(std::size_t{3} << 20, 'x');
  const Outcome outcome = Answer("AT+CMGF=0\r", megabytes);
  EXPECT_EQ(outcome.state, AtAnswer::State::kTooLong);
  EXPECT_EQ(outcome.octets, AtAnswer::kMaxLine + 1);
  EXPECT_EQ(Answer("AT+CMGF=0\r", megabytes.substr(0, 512)).text,
            megabytes.substr(0, 512) + "\r\n");
}

TEST(AtAnswer, APduInManyLinesFailsWithBoundedMemory) {
  const ModemRequest list(kList);
  AtAnswer answer(list, [](std::string_view, LineKind) {});
  const auto feed = [&answer](const std::string& line) {
    for (const char c : line + "\r\n") answer.Feed(c);
    return answer.state();
  };
  feed("+CMGL: 1,0,,9999");
  for (std::size_t size = 0; size < AtAnswer::kMaxLine; size += 512) {
    EXPECT_EQ(feed(std::string(512, '0')), AtAnswer::State::kOpen) << size;
  }
  EXPECT_EQ(feed("0000000000"), AtAnswer::State::kTooLong);
}

TEST(AtAnswer, AListThatNeverEndsFailsWithBoundedMemory) {
  const ModemRequest list(kList);
  AtAnswer answer(list, [](std::string_view, LineKind) {});
  const std::string entry = Entry(1);
  std::size_t fed = 0;
  while (answer.state() == AtAnswer::State::kOpen && fed < 2 * AtAnswer::kMaxText) {
    for (const char c : entry) answer.Feed(c);
    fed += entry.size();
  }
  EXPECT_EQ(answer.state(), AtAnswer::State::kTooLong);
  EXPECT_LE(answer.text().size(), AtAnswer::kMaxText);
}

TEST(AtAnswer, NoiseIsKeptWithinBounds) {
  std::string noise;
  for (int i = 0; i < 10'000; ++i) noise += "noise " + std::to_string(i) + "\r\n";
  EXPECT_LE(Answer("AT+CMGF=0\r", noise).text.size(), AtAnswer::kMaxUnknown);
}

TEST(AtAnswer, AListOf10000EntriesArrivesWhole) {
  std::string list;
  for (int i = 0; i < 10'000; ++i) list += Entry(i);
  const Outcome outcome = Answer(kList, "\r\n" + list + "\r\nOK\r\n");
  EXPECT_EQ(outcome.state, AtAnswer::State::kFinal);
  EXPECT_EQ(outcome.text, list + "OK\r\n");
}

TEST(AtAnswer, RandomOctetsNeverBreakIt) {
  std::mt19937 random(1);  // the same octets in every run
  const std::string likely = "\r\n\r\nOK>+CMGL: 1,0,,30\x1A\x1B";
  for (int round = 0; round < 3000; ++round) {
    std::string octets;
    const auto length = random() % 400;
    for (unsigned i = 0; i < length; ++i) {
      octets += random() % 2 == 0 ? likely[random() % likely.size()] : static_cast<char>(random());
    }
    for (const std::string& request : {kList, std::string("AT+CMGS=1\r"), kText}) {
      const Outcome outcome = Answer(request, octets, "+CMGL");
      EXPECT_LE(outcome.text.size(), 3 * octets.size() + 8);
    }
  }
}

}  // namespace
