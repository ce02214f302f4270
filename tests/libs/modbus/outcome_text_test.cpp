// SPDX-License-Identifier: MIT
#include "libs/modbus/outcome_text.h"

#include <gmock/gmock.h>

namespace {

using namespace modbus;
using testing::HasSubstr;

const Endpoint kPlc{"plc1", 502};

Request Reading() {
  return {.table = FindTable("holding"), .unit = 7, .address = 100, .count = 2};
}

TEST(ModbusOutcomeText, ExceptionsAreThoseOfTheProtocol) {
  EXPECT_EQ(ExceptionText(kPlc, Reading(), 2),
            "Modbus server plc1:502, unit 7, refuses reading 2 holding registers from address 100: "
            "ILLEGAL DATA ADDRESS (exception 2); it does not have all of these addresses; correct "
            "Address (the first one is 0) or Count");
  const std::pair<int, const char*> names[] = {
      {1, "ILLEGAL FUNCTION"},
      {3, "ILLEGAL DATA VALUE"},
      {4, "SERVER DEVICE FAILURE"},
      {5, "ACKNOWLEDGE"},
      {6, "SERVER DEVICE BUSY"},
      {8, "MEMORY PARITY ERROR"},
      {10, "GATEWAY PATH UNAVAILABLE"},
      {11, "GATEWAY TARGET DEVICE FAILED TO RESPOND"},
      {7, "not one of the protocol's reasons (exception 7)"},
      {0, "an exception that the protocol does not define"},
  };
  for (const auto& [code, name] : names) {
    EXPECT_THAT(ExceptionText(kPlc, Reading(), code), HasSubstr(name));
  }
}

TEST(ModbusOutcomeText, OnlyWritingLeavesADoubt) {
  Request request = Reading();
  EXPECT_EQ(ClosedText(kPlc, request),
            "Modbus server plc1:502, unit 7, closes the connection instead of answering to reading "
            "2 holding registers from address 100; check Unit, and how many connections the device "
            "allows");
  request.write = true;
  EXPECT_THAT(
      ClosedText(kPlc, request),
      HasSubstr("to writing 2 holding registers from address 100; whether it has written is "
                "not known; check"));
}

TEST(ModbusOutcomeText, TimesAreSeconds) {
  using std::chrono::milliseconds;
  EXPECT_THAT(TimedOutText(kPlc, Reading(), milliseconds(3000)), HasSubstr("within 3 s to"));
  EXPECT_THAT(TimedOutText(kPlc, Reading(), milliseconds(250)), HasSubstr("within 0.25 s"));
  EXPECT_THAT(NotSentText(kPlc, Reading(), milliseconds(10000)), HasSubstr("within 10 s;"));
  EXPECT_THAT(NotNamedText(kPlc, milliseconds(1500)), HasSubstr("within 1.5 s;"));
}

}  // namespace
