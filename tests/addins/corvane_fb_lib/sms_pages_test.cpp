// SPDX-License-Identifier: MIT
// The programs that the pages of the SMS blocks show; the test plays the modem.
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "runtime/corvane/control_program.h"
#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/deliver_pdu.h"
#include "tests/support/fake_modem_port.h"
#include "tests/support/temporary_folder.h"

namespace {

using testing::HasSubstr;

/// The first fenced Lua block of a page.
std::string ProgramOf(const std::string& page) {
  std::ifstream file(std::string(PROJECT_FOLDER) + "/docs/blocks/" + page);
  std::stringstream text;
  text << file.rdbuf();
  const std::string fence = "```lua\n";
  const std::size_t begin = text.str().find(fence);
  const std::size_t end = text.str().find("```", begin + fence.size());
  EXPECT_NE(end, std::string::npos) << page << " shows no program";
  return text.str().substr(begin + fence.size(), end - begin - fence.size());
}

class SmsPages : public BlockTest {
 protected:
  void Load(const std::string& page) {
    const auto path = folder_.path() / "program.lua";
    std::ofstream(path) << ProgramOf(page);
    program_ = std::make_unique<corvane::ControlProgram>(path, std::vector<std::string>());
    testing::internal::CaptureStdout();
    program_->Load();
  }
  /// One cycle, and in the pause after it one exchange, if the program's block wants one.
  std::string CycleAndAnswer(const std::string& answer) {
    program_->Cycle(++number_);
    std::string request = port_.Poll();
    if (!request.empty()) port_.Answer(answer);
    return request;
  }
  bool stopped() const { return program_->stop_status().has_value(); }
  static std::string Printed() {
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  }

 private:
  test_support::TemporaryFolder folder_;
  test_support::FakeModemPort port_{1};
  std::unique_ptr<corvane::ControlProgram> program_;
  std::uint64_t number_ = 0;
};

TEST_F(SmsPages, TheInboxPrintsEachMessageAndLogsCodes) {
  Load("read_sms.md");
  const std::string pdu = test_support::DeliverPdu{}.ToHex();
  EXPECT_EQ(CycleAndAnswer("ERROR\r\n"), "AT+CMGF=0\r");
  EXPECT_EQ(CycleAndAnswer("OK\r\n"), "AT+CMGF=0\r");
  EXPECT_THAT(test_support::TakeLog(), testing::ElementsAre("info inbox: code 5"));
  EXPECT_EQ(CycleAndAnswer("+CMGL: 1,0,,24\r\n" + pdu + "\r\n\r\nOK\r\n"), "AT+CMGL=0\r");
  EXPECT_EQ(CycleAndAnswer("OK\r\n"), "AT+CMGD=1\r");
  CycleAndAnswer("OK\r\n");
  EXPECT_EQ(Printed(), "2024-03-05 09:07 +15550101234: Hello\n");
}

TEST_F(SmsPages, TheAlarmSendsOneMessageAndStops) {
  Load("send_sms.md");
  std::string requests;
  for (int cycle = 0; cycle < 50 && !stopped(); ++cycle) {
    requests += CycleAndAnswer(requests.ends_with("CMGF=0\r") ? "> " : "OK\r\n");
  }
  EXPECT_TRUE(stopped());
  EXPECT_THAT(requests, testing::StartsWith("AT+CMGF=0\rAT+CMGS="));
  EXPECT_THAT(requests, HasSubstr("\r0001000B915155101032F40000"));
  EXPECT_EQ(Printed(), "the modem has taken the message\n");
}

TEST_F(SmsPages, TheAlarmReportsThatTheMessageIsNotSentYet) {
  Load("send_sms.md");
  for (int cycle = 0; cycle < 8; ++cycle) CycleAndAnswer("+CMS ERROR: 38\r\n");
  EXPECT_FALSE(stopped());
  EXPECT_THAT(Printed(), HasSubstr("not sent yet: code 38\n"));
}

}  // namespace
