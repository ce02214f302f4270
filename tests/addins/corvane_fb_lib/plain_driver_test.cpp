// SPDX-License-Identifier: MIT
// The SMS blocks with a driver that cannot forget a client, since its runtime has only the
// contract.
#include <gtest/gtest.h>

#include "addins/corvane_fb_lib/corvane_fb_lib.h"
#include "tests/support/fake_modem_port.h"
#include "tests/support/plain_runtime.h"

namespace {

class PlainDriver : public testing::Test {
 protected:
  PlainDriver() { runtime_.Load(InitAddin); }

  void Run(const std::string& chunk) { runtime_.Run(chunk); }
  void MakeReader() { Run("fb = READ_SMS.new { Port = 1, Read = true } fb()"); }
  void MakeSender() {
    Run("fb = SEND_SMS.new { Port = 1, Receiver = '110', Message = 'fire' } fb()");
    Run("fb.Send = true fb()");
  }
  void Collect() { Run("fb = nil collectgarbage()"); }

  test_support::FakeModemPort port_{1};
  test_support::PlainRuntime runtime_;
};

TEST_F(PlainDriver, HasNoWayToWithdraw) {
  EXPECT_TRUE(ModemPortDriverUnregister == nullptr);
}

TEST_F(PlainDriver, MayCallAReaderThatWasCollected) {
  MakeReader();
  ASSERT_EQ(port_.Poll(), "AT+CMGF=0\r");
  Collect();
  EXPECT_EQ(port_.Answer("OK\r\n"), 0);
  EXPECT_EQ(port_.Priority(), 0);
  EXPECT_EQ(port_.AskRequest().text, "");
  EXPECT_EQ(port_.AskRequest().on_reply, nullptr);
}

TEST_F(PlainDriver, MayCallASenderThatWasCollected) {
  MakeSender();
  ASSERT_EQ(port_.Poll(), "AT+CMGF=0\r");
  Collect();
  EXPECT_EQ(port_.Answer("OK\r\n"), 0);
  EXPECT_EQ(port_.Priority(), 0);
  EXPECT_EQ(port_.AskRequest().text, "");
  EXPECT_EQ(port_.AskRequest().on_reply, nullptr);
}

TEST_F(PlainDriver, MayCallTheBlocksOfAStateThatHasEnded) {
  MakeReader();
  MakeSender();
  runtime_.Close();
  EXPECT_EQ(port_.Poll(), "");
}

TEST_F(PlainDriver, GoesOnWithTheOtherBlocks) {
  MakeReader();
  Collect();
  MakeSender();
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CMGF=0\r");
  EXPECT_EQ(port_.Poll().substr(0, 8), "AT+CMGS=");
}

}  // namespace
