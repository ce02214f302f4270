// SPDX-License-Identifier: MIT
// MODBUS_TCP as a control program has it, with a server that misbehaves where a test wants it to.
#include "addins/corvane_modbus/modbus_tcp_fb.h"

#include <gmock/gmock.h>

#include <atomic>

#include "tests/addins/corvane_modbus/modbus_block_test.h"

namespace {

using test_support::WaitFor;
using testing::AllOf;
using testing::HasSubstr;

using Peer = test_support::ModbusServer::Peer;

class ModbusTcp : public ModbusBlockTest {
 protected:
  ModbusTcp() {
    Run("fb = MODBUS_TCP.new { Server = '127.0.0.1', Port = port, Unit = 1, Timeout = 20 }");
    SetRegister(0, 215);
  }

  std::string Get(const std::string& name) { return Eval("fb." + name); }
  void Start() { Run("fb.Execute = false fb() fb.Execute = true fb()"); }
  /// `Busy Done Error ErrorId`.
  std::string Outputs() {
    return Get("Busy") + " " + Get("Done") + " " + Get("Error") + " " + Get("ErrorId");
  }
  /// `Valid Error ErrorId`.
  std::string State() { return Get("Valid") + " " + Get("Error") + " " + Get("ErrorId"); }
  void SetRegister(int address, int value) {
    server_.WithTables([&](modbus_mapping_t& tables) {
      tables.tab_registers[address] = static_cast<std::uint16_t>(value);
    });
  }
  int Register(int address) {
    return server_.WithTables(
        [&](modbus_mapping_t& tables) { return int{tables.tab_registers[address]}; });
  }
};

// The job.

TEST_F(ModbusTcp, ReadsAtTheEdge) {
  Start();
  EXPECT_EQ(Outputs(), "true false false 0");
  EXPECT_EQ(Get("Result"), "");
  ASSERT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Outputs(), "false true false 0");
  EXPECT_EQ(Get("Result"), "215");
  EXPECT_EQ(Get("First"), "215");
  Run("fb()");
  EXPECT_EQ(Get("Done"), "true") << "while Execute is TRUE";
  Run("fb.Execute = false fb()");
  EXPECT_EQ(Outputs(), "false false false 0");
  EXPECT_EQ(Get("Result"), "215") << "until the next job";
  EXPECT_EQ(Get("Valid"), "false") << "belongs to Enable";
}

TEST_F(ModbusTcp, LoadingAProgramTouchesNoServer) {
  Run("fb.Enable = true");
  EXPECT_EQ(server_.connections(), 0);
}

TEST_F(ModbusTcp, ReadsNumbersOfAFormat) {
  SetRegister(10, 0);
  SetRegister(11, 0x41AC);
  Run("fb.Address = 10 fb.Format = 'REAL' fb.Order = 'CDAB'");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Get("Result"), "21.5");
  EXPECT_EQ(Get("First"), "21.5");
}

TEST_F(ModbusTcp, ReadsCoils) {
  server_.WithTables([](modbus_mapping_t& tables) { tables.tab_bits[1] = 1; });
  Run("fb.Table = 'coils' fb.Count = 3");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Get("Result"), "0 1 0");
  EXPECT_EQ(Get("First"), "0");
}

TEST_F(ModbusTcp, WritesNumbersAndBooleansOfAProgram) {
  Run("fb.Write = true fb.Address = 20 fb.Values = 42");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Register(20), 42);
  EXPECT_EQ(Get("Result"), "");
  Run("fb.Values = table.concat({ 1, 2.0, 3 }, ' ')");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Register(22), 3);
  Run("fb.Table = 'coils' fb.Values = true");
  Start();
  ASSERT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Get("ErrorText"), "");
  EXPECT_EQ(server_.WithTables([](modbus_mapping_t& tables) { return int{tables.tab_bits[20]}; }),
            1);
}

TEST_F(ModbusTcp, TheInputsAreThoseOfTheEdge) {
  Run("fb.Write = true fb.Values = 1 fb.Address = 30");
  Start();
  Run("fb.Values = 2 fb.Address = 31 fb.Format = 'nonsense'");
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Register(30), 1);
  EXPECT_EQ(Register(31), 0);
}

TEST_F(ModbusTcp, InputsThatCannotWorkAreAnErrorInTheSameCall) {
  Run("fb.Count = 126");
  Start();
  EXPECT_EQ(Outputs(), "false false true 10");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("Count is 126; one request can read 125"));
  EXPECT_EQ(server_.connections(), 0);
}

TEST_F(ModbusTcp, AnExceptionHasItsNumber) {
  Run("fb.Address = 5000");
  Start();
  ASSERT_TRUE(CallUntil("not fb.Busy"));
  EXPECT_EQ(Outputs(), "false false true 52");
  EXPECT_EQ(Get("Exception"), "2");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("ILLEGAL DATA ADDRESS"));
  Run("fb.Address = 0");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Get("Exception"), "0");
}

TEST_F(ModbusTcp, AnEdgeWhileBusyIsIgnored) {
  std::atomic<bool> released{false};
  server_.React([&](const Peer& peer) {
    WaitFor([&] { return released.load(); });
    peer.reply();
  });
  Start();
  Start();
  EXPECT_EQ(Get("Busy"), "true");
  released = true;
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(server_.requests(), 1);
}

// The cycle.

TEST_F(ModbusTcp, PollsWhileEnabled) {
  Run("fb.Enable = true fb.Period = 5");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  EXPECT_EQ(Outputs(), "false false false 0");
  EXPECT_EQ(Get("Result"), "215");
  EXPECT_EQ(Get("Age"), "0");
  SetRegister(0, 216);
  SetClock(1004.9);
  Run("fb()");
  EXPECT_EQ(server_.requests(), 1) << "not yet";
  EXPECT_NEAR(std::stod(Get("Age")), 4.9, 1e-6);
  EXPECT_EQ(Get("Valid"), "true");
  SetClock(1005);
  ASSERT_TRUE(CallUntil("fb.Result == '216'"));
  EXPECT_EQ(server_.requests(), 2);
  SetClock(1023);  // what was missed is not made up for
  ASSERT_TRUE(CallUntil("fb.Age == 0"));
  Run("fb() fb()");
  EXPECT_EQ(server_.requests(), 3);
}

TEST_F(ModbusTcp, ThePeriodIsASecondIfNoneIsGiven) {
  Run("fb.Enable = true");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  SetClock(1000.9);
  Run("fb()");
  SetClock(1001);
  ASSERT_TRUE(CallUntil("fb.Age == 0"));
  EXPECT_EQ(server_.requests(), 2);
}

TEST_F(ModbusTcp, WritesAgainAndAgain) {
  Run("fb.Enable = true fb.Write = true fb.Address = 40 fb.Values = 1");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  EXPECT_EQ(Register(40), 1);
  Run("fb.Values = 2");
  SetClock(1001);
  ASSERT_TRUE(WaitFor([&] {
    Run("fb()");
    return Register(40) == 2;
  }));
}

TEST_F(ModbusTcp, KeepsTheLastResultWhileTheServerIsGone) {
  Run("fb.Enable = true");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  server_.React([](const Peer& peer) {
    peer.SendAnswer({static_cast<std::uint8_t>(peer.request[7] | 0x80), 6});
  });
  SetClock(1001);
  ASSERT_TRUE(CallUntil("fb.Error"));
  EXPECT_EQ(State(), "false true 52");
  EXPECT_EQ(Get("Exception"), "6");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("SERVER DEVICE BUSY"));
  EXPECT_EQ(Get("Result"), "215");
  Run("fb()");
  EXPECT_EQ(State(), "false true 52") << "until the next exchange has ended";
  EXPECT_EQ(Get("Age"), "1");
  server_.React({});
  SetClock(1002);
  ASSERT_TRUE(CallUntil("fb.Valid"));
  EXPECT_EQ(State(), "true false 0");
  EXPECT_EQ(Get("Exception"), "0");
  EXPECT_EQ(Get("Age"), "0");
}

TEST_F(ModbusTcp, AgeBeginsWithEnable) {
  server_.React([](const Peer&) {});
  Run("fb.Enable = true fb()");
  SetClock(1012);
  Run("fb()");
  EXPECT_EQ(Get("Age"), "12");
  EXPECT_EQ(State(), "false false 0");
}

TEST_F(ModbusTcp, EndsWithEnable) {
  Run("fb.Enable = true fb.Count = 126 fb()");
  EXPECT_EQ(State(), "false true 10");
  Run("fb.Enable = false fb()");
  EXPECT_EQ(State(), "false false 0");
  EXPECT_EQ(Get("ErrorText"), "");
  Run("fb.Enable = true fb.Count = 1");
  ASSERT_TRUE(CallUntil("fb.Valid")) << "at once";
  Run("fb.Enable = false fb()");
  EXPECT_EQ(Get("Valid"), "false");
  EXPECT_EQ(Get("Result"), "215");
}

TEST_F(ModbusTcp, InputsThatCannotWorkAreCorrectedWhileEnabled) {
  Run("fb.Enable = true fb.Period = -1 fb()");
  EXPECT_EQ(State(), "false true 10");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("Period is not a duration"));
  Run("fb.Period = 1");
  SetClock(1001);
  ASSERT_TRUE(CallUntil("fb.Valid"));
}

TEST_F(ModbusTcp, AnEdgeWhileEnabledIsAJobInBetween) {
  Run("fb.Enable = true fb.Period = 100");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  SetRegister(0, 217);
  Start();
  EXPECT_EQ(Outputs(), "true false false 0");
  EXPECT_EQ(State(), "false false 0");
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Get("Result"), "217");
  EXPECT_EQ(State(), "true false 0");
  Run("fb.Execute = false fb()");
  EXPECT_EQ(Get("Done"), "false");
  EXPECT_EQ(Get("Valid"), "true");
  SetClock(1100);
  ASSERT_TRUE(CallUntil("fb.Age == 0"));
  EXPECT_EQ(server_.requests(), 3);
}

TEST_F(ModbusTcp, AnErrorOfTheCycleEndsADoneThatIsHeld) {
  Run("fb.Enable = true");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done"));
  Run("fb.Count = 126");
  SetClock(1001);
  Run("fb()");
  SetClock(1003);
  ASSERT_TRUE(CallUntil("fb.Error"));
  EXPECT_EQ(Outputs(), "false false true 10");
  Run("fb.Count = 1");
  SetClock(1005);
  ASSERT_TRUE(CallUntil("fb.Valid"));
  EXPECT_EQ(Outputs(), "false false false 0");
}

// Several blocks, and ends.

TEST_F(ModbusTcp, AHundredBlocksShareTheConnection) {
  Run("blocks = {} for i = 1, 100 do blocks[i] = MODBUS_TCP.new { Server = '127.0.0.1', Port = "
      "port,"
      " Enable = true, Address = i - 1, Timeout = 20 } end");
  ASSERT_TRUE(WaitFor([&] {
    Run("good = 0 for _, b in ipairs(blocks) do b() good = good + (b.Valid and 1 or 0) end");
    return Eval("good") == "100";
  }));
  EXPECT_EQ(server_.connections(), 1);
  EXPECT_EQ(Eval("blocks[1].Result"), "215");
}

TEST_F(ModbusTcp, ABlockMayBeCollectedWhileItsRequestIsUnderWay) {
  std::atomic<bool> released{false};
  server_.React([&](const Peer& peer) {
    WaitFor([&] { return released.load(); });
    peer.reply();
  });
  Start();
  ASSERT_TRUE(WaitFor([&] { return server_.requests() == 1; }));
  Run("fb = nil");
  Collect();
  released = true;
  Run("fb = MODBUS_TCP.new { Server = '127.0.0.1', Port = port, Enable = true, Timeout = 20 }");
  EXPECT_TRUE(CallUntil("fb.Valid"));
}

TEST_F(ModbusTcp, AnotherServerIsUsedAsSoonAsItIsGiven) {
  Run("fb.Enable = true");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  test_support::ModbusServer other(AF_INET6);
  other.WithTables([](modbus_mapping_t& tables) { tables.tab_registers[0] = 999; });
  Run("fb.Server = '::1' fb.Port = " + std::to_string(other.port()));
  SetClock(1001);
  EXPECT_TRUE(CallUntil("fb.Result == '999'"));
}

TEST_F(ModbusTcp, AfterARestartAJobHasEndedAndNothingIsValid) {
  Run("fb.Enable = true");
  ASSERT_TRUE(CallUntil("fb.Valid"));
  Run("kept = debug.getmetatable(fb).__retained(fb) other = MODBUS_TCP.new()"
      " debug.getmetatable(other).__restore(other, kept)");
  EXPECT_EQ(Eval("other.Valid"), "false");
  EXPECT_EQ(Eval("other.Result"), "215");
  Run("fb = other");
  EXPECT_TRUE(CallUntil("fb.Valid"));
}

}  // namespace
