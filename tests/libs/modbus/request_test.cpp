// SPDX-License-Identifier: MIT
#include "libs/modbus/request.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using namespace modbus;
using testing::ElementsAre;
using testing::HasSubstr;

Inputs Good() {
  return {.server = "plc1"};
}

/// The inputs after a change.
template <class Change>
Plan PlanOf(const Change& change) {
  Inputs inputs = Good();
  change(inputs);
  return PlanFrom(inputs);
}

TEST(ModbusRequest, AServerAloneReadsTheFirstHoldingRegister) {
  const Plan plan = PlanFrom(Good());
  EXPECT_EQ(plan.problem, "");
  EXPECT_EQ(plan.endpoint.Text(), "plc1:502");
  EXPECT_EQ(plan.request.Text(), "reading 1 holding register at address 0");
  EXPECT_EQ(plan.request.unit, 0);
  EXPECT_STREQ(plan.format->name, "UINT");
  EXPECT_EQ(plan.timeout, std::chrono::seconds(3));
}

TEST(ModbusRequest, TablesAreFoundByTheirNames) {
  for (const char* name : {"coils", "Coils", "discrete inputs", "inputs", "input registers",
                           "holding registers", "holding", "HOLDING"}) {
    EXPECT_NE(FindTable(name), nullptr) << name;
  }
  EXPECT_STREQ(FindTable("")->name, "holding registers");
  EXPECT_STREQ(FindTable("inputs")->name, "discrete inputs");
  for (const char* name : {"coil", "registers", "input", "4x", " coils"}) {
    EXPECT_EQ(FindTable(name), nullptr) << name;
  }
}

TEST(ModbusRequest, CountsNumbersOfTheFormat) {
  const Plan plan = PlanOf([](Inputs& in) { in.format = "REAL", in.count = 3, in.address = 100; });
  EXPECT_EQ(plan.problem, "");
  EXPECT_EQ(plan.request.Text(), "reading 6 holding registers from address 100");
}

TEST(ModbusRequest, WritesAsManyNumbersAsThereAreValues) {
  const Plan registers = PlanOf([](Inputs& in) {
    in.write = true, in.format = "DINT", in.order = "CDAB", in.values = "1 -1";
  });
  EXPECT_EQ(registers.problem, "");
  EXPECT_EQ(registers.request.count, 4U);
  EXPECT_THAT(registers.request.registers, ElementsAre(1, 0, 0xFFFF, 0xFFFF));
  const Plan coils = PlanOf(
      [](Inputs& in) { in.write = true, in.table = "coils", in.count = 3, in.values = "1 0 1"; });
  EXPECT_EQ(coils.problem, "");
  EXPECT_THAT(coils.request.bits, ElementsAre(1, 0, 1));
  EXPECT_EQ(coils.request.Text(), "writing 3 coils from address 0");
}

TEST(ModbusRequest, ServersAreNamesAndAddresses) {
  const std::pair<const char*, const char*> cases[] = {
      {"10.0.0.5", "10.0.0.5:1502"},
      {"fe80::1", "[fe80::1]:1502"},
      {"[::1]", "[::1]:1502"},
      {"pumpe-süd.example", "pumpe-süd.example:1502"},
  };
  for (const auto& [server, text] : cases) {
    const Plan plan = PlanOf([&](Inputs& in) { in.server = server, in.port = 1502; });
    EXPECT_EQ(plan.problem, "") << server;
    EXPECT_EQ(plan.endpoint.Text(), text);
  }
}

struct LimitRow {
  const char* table;
  const char* format;
  bool write;
  int most;
};

TEST(ModbusRequest, TheLimitsAreThoseOfTheProtocol) {
  const LimitRow rows[] = {
      {"coils", "", false, 2000},          {"inputs", "", false, 2000},
      {"coils", "", true, 1968},           {"holding", "", false, 125},
      {"input registers", "", false, 125}, {"holding", "", true, 123},
      {"holding", "REAL", false, 62},      {"holding", "REAL", true, 61},
      {"holding", "LINT", false, 31},      {"holding", "LINT", true, 30},
  };
  for (const LimitRow& row : rows) {
    for (const int more : {0, 1}) {
      SCOPED_TRACE(std::string(row.table) + " " + row.format + " " +
                   std::to_string(row.most + more));
      const Plan plan = PlanOf([&](Inputs& in) {
        in.table = row.table, in.format = row.format, in.write = row.write;
        in.count = row.most + more;
        if (!row.write) return;
        for (int i = 0; i < row.most + more; ++i) in.values += "1 ";
      });
      EXPECT_EQ(plan.problem.empty(), more == 0) << plan.problem;
    }
  }
}

TEST(ModbusRequest, AddressesEndAt65535) {
  const auto plan = [](int address, int count, const char* format) {
    return PlanOf([&](Inputs& in) { in.address = address, in.count = count, in.format = format; })
        .problem;
  };
  EXPECT_EQ(plan(65535, 1, ""), "");
  EXPECT_EQ(plan(65534, 1, "REAL"), "");
  EXPECT_THAT(plan(65535, 2, ""), HasSubstr("go beyond 65535"));
  EXPECT_THAT(plan(65535, 1, "REAL"), HasSubstr("2 holding registers from there"));
  EXPECT_THAT(plan(65536, 1, ""), HasSubstr("Address is 65536"));
  EXPECT_THAT(plan(-1, 1, ""), HasSubstr("Address is -1"));
}

struct ProblemRow {
  void (*change)(Inputs&);
  const char* problem;
};

TEST(ModbusRequest, InputsThatCannotWorkAreProblemsThatSayWhatToDo) {
  const ProblemRow rows[] = {
      {[](Inputs& in) { in.server = ""; }, "Server is empty; give the name"},
      {[](Inputs& in) { in.server = "plc1:1502"; }, "number behind the colon as Port"},
      {[](Inputs& in) { in.server = "http://plc1"; }, "Server is 'http://plc1'; give the name"},
      {[](Inputs& in) { in.server = "plc1/tank"; }, "neither a name nor an address"},
      {[](Inputs& in) { in.server = "plc 1"; }, "neither a name nor an address"},
      {[](Inputs& in) { in.server = std::string("plc\0x", 5); }, "'plc\\x00x'"},
      {[](Inputs& in) { in.server = std::string(254, 'x'); }, "neither a name nor an address"},
      {[](Inputs& in) { in.port = -1; }, "Port is -1; give a number up to 65535"},
      {[](Inputs& in) { in.port = 65536; }, "Port is 65536"},
      {[](Inputs& in) { in.unit = -1; }, "Unit is -1; give a number up to 247, or 255"},
      {[](Inputs& in) { in.unit = 248; }, "Unit is 248"},
      {[](Inputs& in) { in.table = "4x"; }, "Table is '4x'; give coils"},
      {[](Inputs& in) { in.write = true, in.table = "inputs"; },
       "nobody can write discrete inputs"},
      {[](Inputs& in) { in.write = true, in.table = "input registers"; }, "only coils and holding"},
      {[](Inputs& in) { in.format = "UINT8"; }, "Format is 'UINT8'; give UINT"},
      {[](Inputs& in) { in.format = "REAL", in.table = "coils"; }, "coils are BOOL"},
      {[](Inputs& in) { in.order = "AB"; }, "Order is 'AB'; give ABCD"},
      {[](Inputs& in) { in.count = -1; }, "Count is -1; give a number above 0"},
      {[](Inputs& in) { in.count = 126; }, "Count is 126; one request can read 125"},
      {[](Inputs& in) { in.count = std::numeric_limits<int>::max(); }, "can read 125 of these"},
      {[](Inputs& in) { in.write = true; }, "Values cannot be written: there is no number"},
      {[](Inputs& in) { in.write = true, in.values = "1 x"; }, "'x' is not a number that fits"},
      {[](Inputs& in) { in.write = true, in.values = "1 2", in.count = 3; },
       "Count is 3, but Values has 2 numbers"},
      {[](Inputs& in) { in.timeout = -1; }, "Timeout is not a duration"},
      {[](Inputs& in) { in.timeout = std::numeric_limits<double>::quiet_NaN(); }, "Timeout"},
  };
  for (const ProblemRow& row : rows) {
    EXPECT_THAT(PlanOf(row.change).problem, HasSubstr(row.problem));
  }
}

TEST(ModbusRequest, BoolIsTheFormatOfBits) {
  EXPECT_EQ(PlanOf([](Inputs& in) { in.table = "coils", in.format = "bool"; }).problem, "");
}

TEST(ModbusRequest, ATimeoutOfAgesIsAnHour) {
  EXPECT_EQ(PlanOf([](Inputs& in) { in.timeout = 1e300; }).timeout, std::chrono::hours(1));
  EXPECT_EQ(PlanOf([](Inputs& in) { in.timeout = 0.25; }).timeout, std::chrono::milliseconds(250));
}

}  // namespace
