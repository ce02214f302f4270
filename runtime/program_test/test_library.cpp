// SPDX-License-Identifier: MIT
#include "runtime/program_test/test_library.h"

#include <fmt/format.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "block/check_fb.h"
#include "runtime/program_test/lua_copy.h"
#include "runtime/program_test/nearest_name.h"

namespace corvane::program_test {
namespace {

using Function = int (*)(lua_State*, TestSession&);

TestSession& Session(lua_State* L) {
  return *static_cast<TestSession*>(lua_touserdata(L, lua_upvalueindex(1)));
}

/// A function of the library: a std::exception becomes a Lua error, with its whole text.
template <Function function>
int Guard(lua_State* L) {
  try {
    return function(L, Session(L));
  } catch (const std::exception& error) {
    lua_pushstring(L, error.what());
  }
  return lua_error(L);
}

TestedProgram& Program(TestSession& session) {
  if (session.program == nullptr) throw LuaError("the test has loaded no program; use test.load");
  return *session.program;
}

std::string Text(lua_State* L, int index) {
  std::size_t length = 0;
  const char* const text = luaL_checklstring(L, index, &length);
  return {text, length};
}

/// The path in the table at `index`.
VariablePath Path(lua_State* L, int index) {
  VariablePath path;
  const auto length = static_cast<int>(lua_rawlen(L, index));
  for (int i = 1; i <= length; ++i) {
    lua_rawgeti(L, index, i);
    if (lua_type(L, -1) == LUA_TNUMBER) {
      path.emplace_back(lua_tonumber(L, -1));
    } else if (lua_type(L, -1) == LUA_TSTRING) {
      path.emplace_back(Text(L, -1));
    } else {
      throw LuaError(fmt::format("a {} is not the name of a variable", luaL_typename(L, -1)));
    }
    lua_pop(L, 1);
  }
  return path;
}

std::vector<std::string> Texts(lua_State* L, int index) {
  std::vector<std::string> texts;
  const auto length = static_cast<int>(lua_rawlen(L, index));
  for (int i = 1; i <= length; ++i) {
    lua_rawgeti(L, index, i);
    std::size_t size = 0;
    const char* const text = lua_tolstring(L, -1, &size);
    if (text == nullptr) throw LuaError("test.load: args must be texts or numbers");
    texts.emplace_back(text, size);
    lua_pop(L, 1);
  }
  return texts;
}

/// load(file, arguments, period, now, ports)
int Load(lua_State* L, TestSession& session) {
  if (session.program != nullptr) {
    throw LuaError("this test has loaded a program already; program:restart() starts it again");
  }
  TestedProgram::Options options{.file = session.test_folder / Text(L, 1),
                                 .arguments = Texts(L, 2),
                                 .period = luaL_checknumber(L, 3),
                                 .now = luaL_checknumber(L, 4),
                                 .state_folder = session.folder.path() / "state"};
  std::error_code error;
  if (!std::filesystem::is_regular_file(options.file, error)) {
    throw LuaError(fmt::format("test.load: there is no program '{}' in {}", Text(L, 1),
                               session.test_folder.string()));
  }
  session.world.modem.ports.clear();
  for (const std::string& port : Texts(L, 5)) session.world.modem.ports.insert(std::stoi(port));
  session.program = std::make_unique<TestedProgram>(std::move(options), session.world);
  return 0;
}

int SetZone(lua_State* L, TestSession& /*session*/) {
  const std::string zone = Text(L, 1);
  if (TestZone::Set(zone)) return 0;
  throw LuaError(
      fmt::format("test.load: there is no time zone '{}'; write one such as Europe/Berlin", zone));
}

int Step(lua_State* /*L*/, TestSession& session) {
  Program(session).Step();
  return 0;
}

int Restart(lua_State* L, TestSession& session) {
  Program(session).Restart(luaL_checknumber(L, 1), lua_toboolean(L, 2) != 0);
  return 0;
}

int Advance(lua_State* L, TestSession& session) {
  Program(session).Advance(luaL_checknumber(L, 1));
  return 0;
}

int SetNow(lua_State* L, TestSession& session) {
  Program(session).SetNow(luaL_checknumber(L, 1));
  return 0;
}

int GetNow(lua_State* L, TestSession& session) {
  lua_pushnumber(L, Program(session).time().now);
  return 1;
}

int GetClock(lua_State* L, TestSession& session) {
  lua_pushnumber(L, Program(session).time().clock);
  return 1;
}

int GetCycle(lua_State* L, TestSession& session) {
  lua_pushnumber(L, static_cast<lua_Number>(Program(session).cycle()));
  return 1;
}

int GetStatus(lua_State* L, TestSession& session) {
  const std::optional<int> status = Program(session).status();
  if (status) lua_pushnumber(L, *status);
  return status ? 1 : 0;
}

int GetLog(lua_State* L, TestSession& session) {
  nlohmann::json lines = nlohmann::json::array();
  for (const LogLine& line : session.log.lines()) {
    lines.push_back({{"level", line.level}, {"text", line.text}});
  }
  PushJson(L, lines);
  return 1;
}

int GetOutput(lua_State* L, TestSession& session) {
  PushJson(L, session.print.lines());
  return 1;
}

int Read(lua_State* L, TestSession& session) {
  lua_settop(L, 1);
  const VariableKind kind = Program(session).variables().Read(Path(L, 1), L);
  switch (kind) {
    case VariableKind::kValue:
      lua_pushstring(L, "value");
      lua_insert(L, 2);
      return 2;
    case VariableKind::kTable: lua_pushstring(L, "table"); return 1;
    case VariableKind::kBlock: lua_pushstring(L, "block"); return 1;
    case VariableKind::kFunction: lua_pushstring(L, "function"); return 1;
  }
  return 0;
}

int Copy(lua_State* L, TestSession& session) {
  Program(session).variables().Copy(Path(L, 1), L);
  return 1;
}

int Write(lua_State* L, TestSession& session) {
  lua_settop(L, 2);
  Program(session).variables().Write(Path(L, 1), L, 2);
  return 0;
}

int Call(lua_State* L, TestSession& session) {
  return Program(session).variables().Call(Path(L, 1), L, 2, lua_gettop(L) - 1);
}

/// receive(port, from, text, time, kind)
int Receive(lua_State* L, TestSession& session) {
  session.world.modem.Receive(static_cast<int>(luaL_checknumber(L, 1)),
                              {.from = Text(L, 2),
                               .text = Text(L, 3),
                               .time = luaL_checknumber(L, 4),
                               .kind = static_cast<int>(luaL_checknumber(L, 5))});
  return 0;
}

int RefuseNumber(lua_State* L, TestSession& session) {
  session.world.modem.refused[Text(L, 1)] = static_cast<int>(luaL_checknumber(L, 2));
  return 0;
}

int Report(lua_State* L, TestSession& session) {
  lua_pushnumber(L, session.world.modem.Report(Text(L, 1)));
  return 1;
}

int RefuseAddress(lua_State* L, TestSession& session) {
  session.world.mail.refused[Text(L, 1)] = Text(L, 2);
  return 0;
}

int Sent(lua_State* L, TestSession& session) {
  const std::string what = Text(L, 1);
  const World& world = session.world;
  PushJson(L, what == "sms"      ? world.modem.sent()
              : what == "mail"   ? world.mail.sent()
              : what == "modbus" ? world.modbus.written()
                                 : world.processes.started());
  return 1;
}

/// The settings that are only a value.
struct Setting {
  std::string_view owner;
  std::string_view name;
  bool* is_on = nullptr;
  double* number = nullptr;
  std::string* text = nullptr;
};

Setting FindSetting(lua_State* L, TestSession& session) {
  SimulatedModem& modem = session.world.modem;
  SimulatedMail& mail = session.world.mail;
  SimulatedModbus& modbus = session.world.modbus;
  const Setting settings[] = {
      {.owner = "modem", .name = "connected", .is_on = &modem.connected},
      {.owner = "modem", .name = "network", .is_on = &modem.network},
      {.owner = "modem", .name = "delay", .number = &modem.delay},
      {.owner = "mail", .name = "away", .is_on = &mail.away},
      {.owner = "mail", .name = "login_refused", .is_on = &mail.login_refused},
      {.owner = "mail", .name = "refusal", .text = &mail.refusal},
      {.owner = "mail", .name = "delay", .number = &mail.delay},
      {.owner = "modbus", .name = "away", .is_on = &modbus.away},
      {.owner = "modbus", .name = "silent", .is_on = &modbus.silent},
      {.owner = "modbus", .name = "delay", .number = &modbus.delay}};
  const std::string owner = Text(L, 1);
  const std::string name = Text(L, 2);
  for (const Setting& setting : settings) {
    if (setting.owner == owner && setting.name == name) return setting;
  }
  throw LuaError("unknown setting " + owner + "." + name);
}

int GetSetting(lua_State* L, TestSession& session) {
  const Setting setting = FindSetting(L, session);
  if (setting.is_on != nullptr) lua_pushboolean(L, *setting.is_on ? 1 : 0);
  if (setting.number != nullptr) lua_pushnumber(L, *setting.number);
  if (setting.text != nullptr) lua_pushlstring(L, setting.text->data(), setting.text->size());
  return 1;
}

int SetSetting(lua_State* L, TestSession& session) {
  const Setting setting = FindSetting(L, session);
  if (setting.is_on != nullptr) *setting.is_on = lua_toboolean(L, 3) != 0;
  if (setting.number != nullptr) *setting.number = luaL_checknumber(L, 3);
  if (setting.text != nullptr) *setting.text = Text(L, 3);
  return 0;
}

double NumberField(lua_State* L, const char* name) {
  lua_getfield(L, 2, name);
  const double number = lua_tonumber(L, -1);
  lua_pop(L, 1);
  return number;
}

std::string TextField(lua_State* L, const char* name) {
  lua_getfield(L, 2, name);
  std::string text = lua_isnil(L, -1) ? "" : Text(L, -1);
  lua_pop(L, 1);
  return text;
}

/// answer(piece of a command, table)
int Answer(lua_State* L, TestSession& session) {
  session.world.processes.Answer(Text(L, 1),
                                 {.output = TextField(L, "output"),
                                  .error_output = TextField(L, "error_output"),
                                  .exit_code = static_cast<int>(NumberField(L, "exit_code")),
                                  .signal = static_cast<int>(NumberField(L, "signal")),
                                  .duration = NumberField(L, "duration"),
                                  .not_started = TextField(L, "not_started")});
  return 0;
}

/// The inputs of a block, as the fields of the second argument.
modbus::Inputs ModbusInputs(lua_State* L) {
  return {.server = TextField(L, "server"),
          .port = static_cast<int>(NumberField(L, "port")),
          .unit = static_cast<int>(NumberField(L, "unit")),
          .table = TextField(L, "table"),
          .address = static_cast<int>(NumberField(L, "address")),
          .count = static_cast<int>(NumberField(L, "count")),
          .format = TextField(L, "format"),
          .order = TextField(L, "order"),
          .values = TextField(L, "values")};
}

/// modbus_get(nil, place): the values as a text
int ModbusGet(lua_State* L, TestSession& session) {
  const std::string values = session.world.modbus.Read(ModbusInputs(L));
  lua_pushlstring(L, values.data(), values.size());
  return 1;
}

/// modbus_set(nil, place)
int ModbusSet(lua_State* L, TestSession& session) {
  modbus::Inputs inputs = ModbusInputs(L);
  inputs.write = true;
  session.world.modbus.Write(inputs);
  return 0;
}

/// modbus_refuse(table, address, exception)
int ModbusRefuse(lua_State* L, TestSession& session) {
  session.world.modbus.Refuse(Text(L, 1), static_cast<int>(luaL_checknumber(L, 2)),
                              static_cast<int>(luaL_checknumber(L, 3)));
  return 0;
}

/// nearest(name, names): needs no session.
int Nearest(lua_State* L) {
  const std::string nearest = NearestOf(Texts(L, 2), Text(L, 1));
  lua_pushlstring(L, nearest.data(), nearest.size());
  return 1;
}

}  // namespace

void PushTestLibrary(lua_State* L, TestSession* session) {
  const luaL_Reg functions[] = {{"load", Guard<Load>},
                                {"set_zone", Guard<SetZone>},
                                {"step", Guard<Step>},
                                {"restart", Guard<Restart>},
                                {"advance", Guard<Advance>},
                                {"set_now", Guard<SetNow>},
                                {"now", Guard<GetNow>},
                                {"clock", Guard<GetClock>},
                                {"cycle", Guard<GetCycle>},
                                {"status", Guard<GetStatus>},
                                {"log", Guard<GetLog>},
                                {"output", Guard<GetOutput>},
                                {"read", Guard<Read>},
                                {"copy", Guard<Copy>},
                                {"write", Guard<Write>},
                                {"call", Guard<Call>},
                                {"receive", Guard<Receive>},
                                {"refuse_number", Guard<RefuseNumber>},
                                {"report", Guard<Report>},
                                {"refuse_address", Guard<RefuseAddress>},
                                {"sent", Guard<Sent>},
                                {"setting", Guard<GetSetting>},
                                {"set", Guard<SetSetting>},
                                {"answer", Guard<Answer>},
                                {"modbus_get", Guard<ModbusGet>},
                                {"modbus_set", Guard<ModbusSet>},
                                {"modbus_refuse", Guard<ModbusRefuse>},
                                {"nearest", Nearest},
                                {nullptr, nullptr}};
  lua_newtable(L);
  lua_pushlightuserdata(L, session);
  luaL_setfuncs(L, functions, 1);
  if (session == nullptr) return;
  lua_pushstring(L, (session->folder.path() / "work").c_str());
  lua_setfield(L, -2, "folder");
}

}  // namespace corvane::program_test
