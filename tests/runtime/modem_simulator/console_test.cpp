// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/console.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <random>

#include "tests/runtime/modem_simulator/fake_host.h"

namespace modem_simulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Records what it is asked to do; the modem is a real one.
class FakeControls : public Controls {
 public:
  Modem& modem() override { return modem_; }
  void Print(std::string_view line) override { Note("print {}", line); }
  void Mute(Duration duration) override { Note("mute {}", duration.count()); }
  void Hold(Duration duration) override { Note("hold {}", duration.count()); }
  void Unplug(Duration duration) override { Note("unplug {}", duration.count()); }
  void Restart() override { Note("restart"); }
  void SendGarbage(int count) override { Note("garbage {}", count); }
  void SetTime(std::optional<gsm::TimeStamp> time) override {
    Note("time {}", time ? gsm::FormatTimeStamp(*time) : "now");
  }
  void After(Duration delay, Action action) override {
    Note("after {}", delay.count());
    action(*this);
  }
  void Quit() override { Note("quit"); }

  FakeHost host;
  std::vector<std::string> notes;

 private:
  template <typename... T>
  void Note(fmt::format_string<T...> format, T&&... values) {
    notes.push_back(fmt::format(format, std::forward<T>(values)...));
  }

  Modem modem_{ModemOptions{}, host};
};

class Console : public testing::Test {
 protected:
  Console() { Ask("ATE0\r"); }

  void Do(std::string_view text) {
    const ConsoleLine line = ParseConsoleLine(text);
    EXPECT_EQ(line.error, "") << text;
    if (line.action) line.action(controls_);
  }
  std::string Ask(std::string_view bytes) {
    return Exchange(controls_.modem(), controls_.host, bytes);
  }

  FakeControls controls_;
};

TEST_F(Console, ReceivesAMessage) {
  Do("receive +4915112345678 Pump 3 has  stopped\\nat once");
  EXPECT_THAT(controls_.host.reports,
              ElementsAre("received, place 1: from +4915112345678 at 2026-01-31T12:00:00+01:00: "
                          "Pump 3 has  stopped\\nat once"));
}

TEST_F(Console, ReceivesAnEmptyMessage) {
  Do("receive Pump");
  EXPECT_THAT(controls_.host.reports.back(), HasSubstr("from Pump"));
}

TEST_F(Console, ReceivesDataAndPdus) {
  Do("binary 4040 00FF");
  EXPECT_THAT(controls_.host.reports.back(), HasSubstr("8-bit data: 00FF"));
  Do("pdu 0011");
  EXPECT_EQ(controls_.host.reports.back(), "received, place 2: PDU 0011");
  Do("pdu");
  EXPECT_EQ(controls_.host.reports.back(), "received, place 3: an empty PDU");
}

TEST_F(Console, OrdersFailures) {
  Do("fail 321");
  Do("fail 500 at+cmgd 2");
  Do("fail error CMGR");
  EXPECT_EQ(Ask("AT+CMGL\r"), "\r\n+CMS ERROR: 321\r\n");
  EXPECT_EQ(Ask("AT+CMGL\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGD=1\r"), "\r\n+CMS ERROR: 500\r\n");
  EXPECT_EQ(Ask("AT+CMGD=1\r"), "\r\n+CMS ERROR: 500\r\n");
  EXPECT_EQ(Ask("AT+CMGD=1\r"), "\r\n+CMS ERROR: 321\r\n") << "the true answer";
  EXPECT_EQ(Ask("AT+CMGR=1\r"), "\r\nERROR\r\n");
  Ask("AT+CMEE=1\r");
  Do("fail cme:14");
  EXPECT_EQ(Ask("AT+CMGL\r"), "\r\n+CME ERROR: 14\r\n");
}

TEST_F(Console, OrdersAnswersAndLines) {
  Do("answer +CMGF \\r\\nCOMMAND NOT SUPPORT\\r\\n");
  EXPECT_EQ(Ask("AT+CMGF=0\r"), "\r\nCOMMAND NOT SUPPORT\r\n");
  Do("answer * ");
  EXPECT_EQ(Ask("AT\r"), "");
  Do("unsolicited +CREG: 1");
  EXPECT_EQ(controls_.host.Take(), "\r\n+CREG: 1\r\n");
  Do("pdu 00112233");
  controls_.host.Take();
  Do("interrupt RING");
  EXPECT_EQ(Ask("AT+CMGR=1\r"), "\r\n+CMGR: 0,,3\r\n0011\r\nRING\r\n2233\r\n\r\nOK\r\n");
}

TEST_F(Console, SetsSignalNetworkAndDelay) {
  Do("signal 7");
  Do("network off");
  Do("delay 2s");
  EXPECT_EQ(Ask("AT+CSQ;+CREG?\r"), "\r\n+CSQ: 7,0\r\n\r\n+CREG: 0,0\r\n\r\nOK\r\n");
  Ask("AT+CMGS=18\r");
  Ask("0001000B915155101032F4000005E8329BFD06\x1A");
  EXPECT_EQ(controls_.host.delay, std::chrono::seconds(2));
}

TEST_F(Console, PlansReports) {
  Ask("AT+CNMI=2,1,0,1\r");
  const auto report = [this] {
    controls_.host.later.clear();
    Ask("AT+CMGS=18\r");
    return Ask("0021000B915155101032F4000005E8329BFD06\x1A");
  };
  Do("report failed after 3s");
  EXPECT_THAT(report(), testing::Not(HasSubstr("+CDS")));
  ASSERT_EQ(controls_.host.later.size(), 1U);
  EXPECT_EQ(controls_.host.later[0].first, std::chrono::seconds(3));
  Do("report after 4s");
  report();
  EXPECT_EQ(controls_.host.later.at(0).first, std::chrono::seconds(4));
  Do("report never");
  EXPECT_THAT(report(), testing::Not(HasSubstr("+CDS")));
  EXPECT_THAT(controls_.host.later, IsEmpty());
  for (const auto& [line, status] :
       {std::pair("report", "00"), std::pair("report delivered", "00"),
        std::pair("report failed", "46"), std::pair("report trying", "21"),
        std::pair("report 65", "41")}) {
    Do(line);
    EXPECT_THAT(report(), testing::EndsWith(std::string(status) + "\r\n")) << line;
  }
}

TEST_F(Console, BringsTheStoreIntoAnyState) {
  Do("parts 2,1 +1555 " + std::string(161, 'x'));
  Do("store read +1555 old");
  Do("fill");
  Do("list");
  EXPECT_THAT(controls_.notes[0], "print store: 20 of 20 places taken");
  EXPECT_THAT(controls_.notes[1], HasSubstr("part 2 of 2"));
  EXPECT_THAT(controls_.notes[2], HasSubstr("part 1 of 2"));
  EXPECT_THAT(controls_.notes[3], HasSubstr("place 3, REC READ: from +1555"));
  Do("parts 3 +1555 short");
  EXPECT_THAT(controls_.notes.back(), HasSubstr("or has fewer parts"));
  Do("store sent +1555 x");
  EXPECT_THAT(controls_.notes.back(), HasSubstr("the store is full"));
}

TEST_F(Console, TakesTheSimOutAndTheNetworkAway) {
  Do("sim out");
  EXPECT_EQ(Ask("AT+CMGL\r"), "\r\n+CMS ERROR: 310\r\n");
  Do("sim in");
  EXPECT_EQ(Ask("AT+CMGL\r"), "\r\nOK\r\n");
  Do("no coverage 30s");
  EXPECT_THAT(controls_.notes, ElementsAre("after 30000000000"));
  EXPECT_THAT(Ask("AT+CREG?\r"), HasSubstr("+CREG: 0,1")) << "these controls do not wait";
}

TEST_F(Console, SetsWhichStepsAreSlow) {
  Do("delay 5s prompt");
  Do("delay 6s delete");
  Do("delay 7s list");
  Do("delay 8s network");
  for (const auto& [command, delay] :
       {std::pair("AT+CMGS=18\r", 5), std::pair("\x1B", 5), std::pair("AT+CMGD=1\r", 6),
        std::pair("AT+CMGL\r", 7), std::pair("AT+CMGR=1\r", 7)}) {
    Ask(command);
    EXPECT_EQ(controls_.host.delay, std::chrono::seconds(delay)) << command;
  }
  Ask("AT+CMGS=18\r");
  Ask("0001000B915155101032F4000005E8329BFD06\x1A");
  EXPECT_EQ(controls_.host.delay, std::chrono::seconds(8));
}

TEST_F(Console, PassesOnWhatConcernsTheLine) {
  for (const char* line : {"mute 5s", "hold 100ms", "unplug 3s", "restart", "garbage", "garbage 7",
                           "time now", "time 2026-01-31T12:00:00Z", "after 1s mute 2s", "quit"}) {
    Do(line);
  }
  EXPECT_THAT(controls_.notes,
              ElementsAre("mute 5000000000", "hold 100000000", "unplug 3000000000", "restart",
                          "garbage 20", "garbage 7", "time now", "time 2026-01-31T12:00:00+00:00",
                          "after 1000000000", "mute 2000000000", "quit"));
}

TEST_F(Console, ListsTheStore) {
  Do("list");
  EXPECT_THAT(controls_.notes, ElementsAre("print store: 0 of 20 places taken"));
}

TEST_F(Console, HelpNamesEveryCommand) {
  for (const char* name : {"receive", "after", "fail", "mute", "unplug", "list", "quit"}) {
    EXPECT_THAT(ConsoleHelp(), HasSubstr(std::string("  ") + name));
  }
}

TEST_F(Console, IgnoresEmptyLinesAndComments) {
  for (const char* line : {"", "   ", "\r", "# receive 1 2", "\t# x"}) Do(line);
  EXPECT_THAT(controls_.notes, IsEmpty());
}

TEST_F(Console, SaysWhatIsWrongAndWhatToWrite) {
  const std::pair<const char*, const char*> cases[] = {
      {"fial 3", "'fial' is not a command; help lists them all"},
      {"receive", "is not a sender; write a number such as"},
      {"receive Twelve-letters x", "'Twelve-letters' is not a sender"},
      {"receive 123 \\q", "a backslash must begin"},
      {"receive 123 \\xFF", "not valid UTF-8"},
      {"binary 123 0", "not pairs of hexadecimal digits"},
      {"pdu 0G", "not pairs of hexadecimal digits"},
      {"fail", "write the number of a +CMS ERROR, such as 321"},
      {"fail x", "write the number of a +CMS ERROR, such as 321"},
      {"fail 321 CMGF", "'CMGF' cannot fail; write CMGS"},
      {"fail 321 CMGS 0", "'0' is not a number of times"},
      {"mute", "'' is not a duration; write one such as 500ms"},
      {"mute 5", "'5' is not a duration"},
      {"unplug soon", "'soon' is not a duration"},
      {"after 2s", "write what to do after the time"},
      {"after soon list", "'soon' is not a duration"},
      {"after 2s after 2s list", "a line can have only one after"},
      {"after 2s fial", "'fial' is not a command"},
      {"delay 5", "'5' is not a duration"},
      {"delay 5s CMGL", "'CMGL' cannot be delayed; write network, prompt, list or delete"},
      {"garbage -1", "'-1' is not a number of bytes"},
      {"answer", "write a command such as +CMGF"},
      {"network maybe", "write network on or network off"},
      {"report maybe", "write delivered, failed, trying, never"},
      {"report 256", "write delivered, failed, trying, never"},
      {"report failed later", "after TIME"},
      {"report after", "'' is not a duration"},
      {"parts 0 123 x", "write the numbers of the parts"},
      {"parts 1,,2 123 x", "write the numbers of the parts"},
      {"parts", "write the numbers of the parts"},
      {"parts 1 Twelve-letters x", "'Twelve-letters' is not a sender"},
      {"store old 123 x", "write unread, read, unsent or sent"},
      {"store read", "is not a sender"},
      {"fill it", "fill takes no arguments"},
      {"no signal", "write no coverage and a time"},
      {"no coverage", "'' is not a duration"},
      {"sim", "write sim out or sim in"},
      {"signal 32", "write a signal from 0 to 31, or 99"},
      {"time noon", "'noon' is not a time; write 2026-01-31T12:00:00+01:00 or now"},
      {"quit now", "quit takes no arguments"}};
  for (const auto& [line, error] : cases) {
    EXPECT_THAT(ParseConsoleLine(line).error, HasSubstr(error)) << line;
    EXPECT_EQ(ParseConsoleLine(line).action, nullptr) << line;
  }
}

TEST_F(Console, SurvivesAnyLine) {
  std::mt19937 random(1);
  const std::vector<std::string> words{"report",   "parts", "1,2",    "store",   "read",  "no",
                                       "coverage", "sim",   "out",    "receive", "after", "2s",
                                       "fail",     "pdu",   "answer", "\\",      "+1555", "*",
                                       "",         "00",    "x",      "time",    "321"};
  int right = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string line;
    for (int i = 0; i < 5; ++i) {
      line +=
          words[random() % words.size()] + static_cast<char>(random() % 3 == 0 ? random() : ' ');
    }
    const ConsoleLine parsed = ParseConsoleLine(line);
    EXPECT_TRUE(!parsed.action || parsed.error.empty()) << line;
    if (!parsed.action) continue;
    parsed.action(controls_);
    ++right;
  }
  EXPECT_GT(right, 100) << "too few lines are valid for this to be a test";
}

}  // namespace
}  // namespace modem_simulator
