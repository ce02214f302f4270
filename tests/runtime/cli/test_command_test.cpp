// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/temporary_folder.h"

namespace {

using test_support::CommandResult;
using test_support::RunCommand;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kProgram[] = R"lua(
local level = 350
local station = { name = "pump", limits = { 1, 2 } }
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+1 555 010-1234; +1 555 010-5678", ValidFor = 600 }
local inbox = SMS_INBOX.new { Port = 1, Enable = true }
local kept = plc.retain("kept", { starts = 0 })
kept.starts = kept.starts + 1
function starts() return kept.starts end
calls = 0
local function double(x) return 2 * x end
local function level_text() return "level " .. double(level) .. " of " .. station.name end
function cycle()
  calls = calls + 1
  if level == 500 then error("boom") end
  while level == 600 do pcall(double, 1) end
  if level == 700 then plc.stop(3) end
  if level > 400 then sms.Text = level_text() end
  sms.Execute = level > 400
  sms()
  inbox()
  inbox.Accept = inbox.Ready
  if inbox.Ready then print("got " .. inbox.Text); plc.log("from " .. inbox.From) end
end
)lua";

/// Runs tests of kProgram, in files of their own.
class TestCommand : public testing::Test {
 protected:
  CommandResult Run(const std::string& tests, std::vector<std::string> options = {}) {
    folder_.Write("pump.lua", kProgram);
    std::vector<std::string> words{CORVANE, "test", folder_.Write("pump_test.lua", tests)};
    words.insert(words.end(), options.begin(), options.end());
    return RunCommand(words);
  }
  /// The same for the body of one test; expects that it passes.
  void Passes(const std::string& body) {
    const CommandResult result = Run(OneTest(body));
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("1 test, 0 failed\n"));
  }
  /// Expects that it fails with this text.
  void Fails(const std::string& body, const std::string& text,
             const std::vector<std::string>& options = {}) {
    const CommandResult result = Run(OneTest(body), options);
    EXPECT_EQ(result.status, 1) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr(text));
    EXPECT_EQ(result.err, "");
  }
  static std::string OneTest(const std::string& body) {
    return "test('it', function()\nlocal program = test.load('pump.lua')\n" + body + "\nend)\n";
  }

  test_support::TemporaryFolder folder_;
};

TEST_F(TestCommand, PrintsOneLineForEachTestAndSaysWhatWasExpectedWhere) {
  const auto result =
      Run("test('right', function() test.equal(1, 1) end)\n"
          "test('wrong', function()\n  test.equal({ 1, { a = 'x' } }, { 1, {} })\nend)\n");
  EXPECT_EQ(result.status, 1);
  const std::string file = (folder_.path() / "pump_test.lua").string();
  EXPECT_EQ(result.out, "ok     " + file + ": right\nFAILED " + file + ": wrong\n       " + file +
                            ":3: expected { 1, {} }, but got { 1, { a = 'x' } }\n"
                            "2 tests, 1 failed\n");
}

TEST_F(TestCommand, PrintsTap) {
  const auto result =
      Run("test('right', function() test.equal(1, 1) end)\n"
          "test('wrong', function() test.check(false, 'the pump runs') end)\n",
          {"--tap"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out,
              AllOf(StartsWith("TAP version 13\n1..2\nok 1 - "), HasSubstr("\nnot ok 2 - "),
                    HasSubstr("\n# "), HasSubstr("the pump runs: expected a true value")));
}

TEST_F(TestCommand, RunsTheTestsWhoseNamesContainAText) {
  const std::string tests =
      "test('one', function() test.check(true) end)\n"
      "test('two', function() test.check(false) end)\n";
  EXPECT_EQ(Run(tests, {"--filter", "on"}).status, 0);
  const auto none = Run(tests, {"--filter", "three"});
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.err, "corvane: no test has a name with 'three'; see --filter\n");
}

TEST_F(TestCommand, RefusesFilesThatCannotBeUsedBeforeItRunsAnything) {
  EXPECT_THAT(RunCommand({CORVANE, "test"}).err, HasSubstr("file is missing: A file with tests"));
  const auto missing = RunCommand({CORVANE, "test", folder_.path() / "pmup_test.lua"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.err, HasSubstr("pmup_test.lua cannot be read: No such file"));
  const auto folder = RunCommand({CORVANE, "test", folder_.path()});
  EXPECT_EQ(folder.status, 2);
  EXPECT_THAT(folder.err, HasSubstr("cannot be read: Is a directory; name a file with tests"));
  const auto syntax = Run("test('it', function(");
  EXPECT_EQ(syntax.status, 2);
  EXPECT_THAT(syntax.err, HasSubstr("pump_test.lua:1: "));
  EXPECT_EQ(syntax.out, "");
}

TEST_F(TestCommand, CountsAFileThatFailsWhileItIsReadAsAFailedTest) {
  EXPECT_THAT(Run("local x = nil\nx.y = 1\n").out, HasSubstr("pump_test.lua:2: attempt to index"));
  EXPECT_THAT(Run("local x = 1").out, HasSubstr("has no tests; a test is test(\"name\""));
  EXPECT_THAT(Run("test.load('pump.lua')").out, HasSubstr(":1: test.load belongs into a test"));
  EXPECT_THAT(Run("test('a', print) test('a', print)").out, HasSubstr("two tests 'a'"));
  EXPECT_EQ(Run("test(1)").status, 1);
}

TEST_F(TestCommand, StepsCyclesInTheTimeOfTheTest) {
  Passes(R"lua(
    program:step()
    test.equal(program.vars.calls, 1)
    local clock, now = program.clock, program.now
    test.equal(program:run(3600), 36000)
    test.equal(program.cycle, 36001)
    test.near(program.clock - clock, 3600, 0.001)
    test.near(program.now - now, 3600, 0.001)
    program.now = 5e8
    test.equal(program.now, 5e8)
    test.near(program.clock - clock, 3600, 0.001)
    program:advance(60)
    test.near(program.now, 5e8 + 60, 0.001))lua");
}

TEST_F(TestCommand, GivesTheProgramTheTestsTimeInAllItsClocks) {
  folder_.Write("clock.lua",
                "ton = TON and TON.new { PT = 2 }\n"
                "function cycle()\n"
                "  seen = { plc.clock(), plc.now, os.time(), os.date('%H:%M'), plc.cycle }\n"
                "  if ton then ton.IN = true; ton() end\nend\n");
  const auto result = Run(R"lua(
    test("it", function()
      local program = test.load("clock.lua", { now = "2026-07-01 06:30", zone = "Europe/Berlin", cycle = 1 })
      program:step(2)
      local seen = program.vars.seen
      test.equal(seen[1], program.clock)
      test.equal(seen[2], program.now)
      test.equal(seen[3], os.time { year = 2026, month = 7, day = 1, hour = 6, min = 30, sec = 1 })
      test.equal(seen[4], "06:30")
      test.equal(seen[5], 2)
      test.equal(program.vars.ton.Q, false)
      test.equal(program.vars.ton.ET, 1)
      program:step()
      test.equal(program.vars.ton.Q, true)
    end))lua");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_F(TestCommand, ReadsSetsAndCallsWhatTheProgramHas) {
  Passes(R"lua(
    local vars = program.vars
    test.equal(vars.level, 350)
    test.equal(vars.station, { name = "pump", limits = { 1, 2 } })
    test.equal(#vars.station.limits, 2)
    vars.station.limits[3] = 3
    test.equal(vars.station.limits[3], 3)
    vars.station.name = "well"
    vars.level = 1
    test.equal(vars.level_text(), "level 2 of well")
    vars.calls = 7
    program:step()
    test.equal(vars.calls, 8)
    test.equal(vars.sms.Receiver, "+1 555 010-1234; +1 555 010-5678")
    vars.sms.Port = 2
    test.equal(vars.sms.Port, 2)
    test.equal(vars.sms.Busy, false))lua");
}

TEST_F(TestCommand, NamesTheNearestOfAnUnknownName) {
  Fails("test.equals(1, 1)", "test has no function 'equals'; did you mean 'equal'?");
  Fails("program:setp()", "program has no field 'setp'; did you mean 'step'?");
  Fails("test.check(program.vars.levle)",
        ":3: pump.lua has no variable 'levle'; did you mean 'level'?");
  Fails("program.vars.clals = 1", "no variable 'clals'; did you mean 'calls'?");
  Fails("program.vars.sms.Txet = 1", "SMS_OUTBOX has no variable 'Txet'; did you mean 'Text'?");
  Fails("program.vars.sms.Busy = true", "'Busy' is an output; only the block sets it");
  Fails("program.modem.conected = false",
        "modem has no field 'conected'; did you mean 'connected'?");
  Fails("test.load('pump.lua', { argss = {} })", "has no option 'argss'; did you mean 'args'?");
}

TEST_F(TestCommand, ReportsAMistakeOfTheTestsAuthorInOneSentence) {
  Fails("program:step()", "the test checks nothing; use test.equal, test.check or another check");
  Fails("test.load('pump.lua')", "this test has loaded a program already");
  Fails("program.vars.level = 500 program:run(1)", "pump.lua:14: boom");
  Fails("program.vars.level = 500 program:run(1)", ":3: error in cycle 1: ");
  Fails("program.vars.level = 700 program:step() program:step()",
        "pump.lua has ended with status 3 in cycle 1; program:restart() starts it again");
  Fails("program.step()", "call it with a colon: program:step(...)");
  Fails("program:run(-1)", "must be a number of seconds from 0 on, not -1");
  Fails("program:run_until(function() return false end, 2)",
        "the condition was not met within 2 s (20 cycles)");
  Fails("program:run_until(function() return program.vars.levle end)", "no variable 'levle'");
  Fails("program.status = 1", "'status' can only be read");
  Fails("program.vars.station = print", "function cannot be copied");
  Fails("local t = {} t.t = t program.vars.station = t", "a table that contains itself");
  Fails("test.equal(1, 1) local x = nil; x.y = 1", ":3: attempt to index local 'x'");
  const auto missing = Run("test('it', function() test.load('pmup.lua') end)");
  EXPECT_THAT(missing.out, HasSubstr("test.load: there is no program 'pmup.lua' in "));
  folder_.Write("empty.lua", "x = 1");
  EXPECT_THAT(Run("test('it', function() test.load('empty.lua') end)").out,
              HasSubstr("the program has no global function cycle()"));
}

TEST_F(TestCommand, EndsAProgramOrATestThatDoesNotEnd) {
  Fails("program.vars.level = 600 program:step()", "pump.lua:15: the program does not end",
        {"--timeout", "300ms"});
  Fails("while true do end", ":3: the test does not end: the test has taken 300ms (--timeout)",
        {"--timeout", "300ms"});
  Fails("while true do pcall(error, 'x') end", "the test does not end", {"--timeout", "300ms"});
  Fails("while true do program:run(9) end", "does not end: the test has taken 300ms",
        {"--timeout", "300ms"});
}

TEST_F(TestCommand, NamesTheLineOfTheTestAndOfTheFunctionItCalls) {
  const auto result =
      Run("local function check(x)\n  test.equal(x, 1)\nend\n"
          "test('it', function()\n  check(2)\nend)\n");
  EXPECT_THAT(result.out, HasSubstr("pump_test.lua:2: expected 1, but got 2 (called from line 5)"));
}

TEST_F(TestCommand, ChecksOfEachKindPassAndFail) {
  Passes(R"lua(
    test.near(1.05, 1, 0.1)
    test.contains("a long text", "long")
    test.contains({ "one", "two" }, "wo")
    test.fails(function() error("broken") end, "broken")
    test.fails(function() test.equal(1, 2) end, "expected 2, but got 1")
    test.fails(function() test.near(1.2, 1, 0.1) end, "give or take 0.1")
    test.fails(function() test.contains("text", "x1") end, "expected 'x1' in 'text'")
    test.fails(function() test.contains({ "one" }, "two") end, "in one of 1 lines")
    test.fails(function() test.fails(function() end) end, "there was none")
    test.fails(function() test.fails(function() error("a") end, "b") end, "expected a failure with 'b'")
    test.fails(function() test.check(nil, "pump") end, "pump: expected a true value, but got nil")
    test.fails(function() test.equal("a\n", "a") end, [[got 'a\10']]))lua");
}

TEST_F(TestCommand, TheSmsDoublesFollowTheRulesOfJobBlocks) {
  Passes(R"lua(
    local sms = program.vars.sms
    program.vars.level = 401
    program:step()
    test.equal({ sms.Busy, sms.Stored, sms.Done, sms.Waiting, sms.Parts }, { true, false, false, 2, 1 })
    program:step()
    test.equal({ sms.Busy, sms.Stored, sms.Done }, { true, true, false })
    program:step()
    test.equal(#program.modem.sent, 1)
    program:step()
    test.equal({ sms.Busy, sms.Done, sms.Sent, sms.Waiting }, { false, true, 2, 0 })
    program.vars.level = 1
    program:step()
    test.equal(sms.Done, false)
    test.equal(program.modem.sent[2].to, "+15550105678")
    test.equal(program.modem.sent[2].text, "level 802 of pump"))lua");
}

TEST_F(TestCommand, TheNetworkMayBeSlowDeadOrRefuse) {
  Passes(R"lua(
    local sms = program.vars.sms
    program.modem.delay = 5
    program.modem:refuse("+15550105678", 38)
    program.vars.level = 401
    program:run(5)
    test.equal(#program.modem.sent, 0)
    program:run(6)
    test.equal({ sms.Sent, sms.Failed, sms.Error, sms.ErrorId }, { 1, 1, true, 21 })
    test.contains(sms.ErrorText, "+15550105678: +CMS ERROR: 38"))lua");
  Passes(R"lua(
    program.modem.network = false
    program.vars.level = 401
    program:run(599)
    test.equal(program.vars.sms.Busy, true)
    program:run(2)
    test.equal({ program.vars.sms.ErrorId, program.vars.sms.Failed }, { 20, 2 })
    test.contains(program.vars.sms.ErrorText, "expired, after: +15550101234: +CMS ERROR: 331"))lua");
  Passes(R"lua(
    program.modem.connected = false
    program.vars.level = 401
    program:run(100)
    test.equal(program.vars.inbox.ErrorId, 24)
    test.equal(#program.modem.sent, 0)
    program.modem.connected = true
    program:run(1)
    test.equal(#program.modem.sent, 2)
    test.equal(program.vars.inbox.Valid, true))lua");
}

TEST_F(TestCommand, ReportsComeWhenTheTestSaysSo) {
  Passes(R"lua(
    program.vars.sms.Report = true
    program.vars.level = 401
    program:run(1)
    program.modem:report("+15550101234")
    program:step()
    test.equal(program.vars.sms.Delivered, 1)
    test.fails(function() program.modem:report("+15550101234") end, "awaits a report"))lua");
}

TEST_F(TestCommand, IncomingMessagesAreOfferedUntilTheyAreAccepted) {
  Passes(R"lua(
    program.modem:receive("+15550101234", "one")
    program.modem:receive("+15550105678", "two", { time = 86400 })
    program:step()
    test.equal({ program.vars.inbox.Text, program.vars.inbox.Waiting }, { "one", 2 })
    program:step()
    test.equal({ program.vars.inbox.Ready, program.vars.inbox.Waiting }, { false, 1 })
    program:step()
    test.equal(program.vars.inbox.Ready, false)
    program:step()
    test.equal({ program.vars.inbox.Text, program.vars.inbox.Time }, { "two", 86400 })
    test.equal(program.output, { "got one", "got two" })
    test.contains(program.log, "from +15550105678"))lua");
}

TEST_F(TestCommand, InputsThatCannotWorkAreTheErrorsOfARun) {
  Passes(R"lua(
    local function try(name, value)
      program.vars.level = 1
      program:step()
      local before = program.vars.sms[name]
      program.vars.sms[name] = value
      program.vars.level = 401
      program:step()
      program.vars.sms[name] = before
      return program.vars.sms.ErrorId
    end
    test.equal(try("Port", 2), 14)
    test.equal(try("Receiver", "Pump 3"), 11)
    test.equal(try("ValidFor", -1), 10)
    test.equal(try("Key", "two\nlines"), 10)
    program.vars.station.name = ("x"):rep(4000)
    test.equal(try("Port", 1), 13)
    program.vars.station.name = "\255"
    test.equal(try("Port", 1), 12))lua");
}

TEST_F(TestCommand, WhatIsKeptOutlivesARestart) {
  Passes(R"lua(
    test.equal(program.vars.starts(), 1)
    program:run(2)
    program:restart()
    test.equal(program.vars.starts(), 2)
    program:restart { power_cut = true } -- before anything was written
    test.equal(program.vars.starts(), 2)
    program:run(2)
    program:restart { power_cut = true, off = 60 }
    test.equal(program.vars.starts(), 3)
    program.modem:receive("+1", "kept")
    program.vars.inbox.Enable = false
    program:step()
    program:restart()
    program:step()
    test.equal(program.vars.inbox.Text, "kept"))lua");
}

TEST_F(TestCommand, EachTestBeginsAnew) {
  const auto result =
      Run("x = (x or 0) + 1\n"
          "for i = 1, 2 do\n"
          "  test('test ' .. i, function()\n"
          "    local program = test.load('pump.lua')\n"
          "    x = x + 1\n"
          "    test.equal({ x, program.vars.starts(), #program.modem.sent }, { 2, 1, 0 })\n"
          "    program.vars.level = 401\n"
          "    program:run(1)\n"
          "    assert(io.open('file', 'r') == nil)\n"
          "    io.open(test.folder .. '/file', 'w'):close()\n"
          "    assert(io.open('file', 'r'))\n"
          "  end)\n"
          "end\n");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_F(TestCommand, LeavesNothingBehindAndTouchesNothingOfTheUser) {
  const test_support::TemporaryFolder home;
  folder_.Write("pump.lua", kProgram);
  const std::string test =
      folder_.Write("pump_test.lua", OneTest("program:run(5) test.check(true)"));
  const auto result = RunCommand({"/usr/bin/env", "HOME=" + home.path().string(),
                                  "TMPDIR=" + home.path().string(), CORVANE, "test", test});
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_TRUE(std::filesystem::is_empty(home.path()));
}

TEST_F(TestCommand, StartsNoProcess) {
  folder_.Write(
      "starts.lua",
      "local a = SysProcessCreate.new { Command = 'touch', Args = 'a' }\n"
      "local b = SysProcessCreateWithResult.new { Command = 'touch b;', Args = 'echo x' }\n"
      "function cycle()\n"
      "  a.Run, b.Run = true, true\n  a()\n  b()\n"
      "  result = { os.execute('touch c') }\n"
      "  popen = select(2, pcall(io.popen, 'touch d'))\nend\n");
  const auto result = Run(R"lua(
    test("it", function()
      local program = test.load("starts.lua")
      program.processes:answer("touch b", { output = "y", exit_code = 3, signal = 9 })
      program.processes:answer("touch c", { exit_code = 3 })
      program:step()
      test.equal(program.vars.b.Output, "y")
      test.equal(program.vars.b.Code, 9)
      test.equal(program.vars.result[3], 3)
      test.contains(program.vars.popen, "use the block PROCESS")
      local commands = {}
      for i, started in ipairs(program.processes.started) do
        commands[i] = started.block .. ": " .. started.command
      end
      test.equal(commands, { "SysProcessCreate: touch a", "SysProcessCreateWithResult: touch b; echo x",
        "os.execute: touch c" })
      for _, name in ipairs { "a", "b", "c", "d" } do
        test.check(not io.open(test.folder .. "/" .. name))
      end
    end))lua");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_F(TestCommand, AProcessEndsAsTheTestSays) {
  folder_.Write("process.lua", "p = PROCESS.new {}\nfunction cycle() p() end\n");
  const auto result = Run(R"lua(
    test("it", function()
      local program = test.load("process.lua")
      local p = program.vars.p
      local function run(command)
        p.Execute = false
        program:step()
        p.Command, p.Execute = command, true
        program:step()
      end
      program.processes:answer("good", { output = "abc", error_output = "e", exit_code = 3, duration = 2 })
      program.processes:answer("killed", { signal = 9 })
      program.processes:answer("missing", { not_started = "sh: not found" })
      run("good one")
      test.equal({ p.Busy, p.Pid, p.ExitCode }, { true, 0, -1 })
      program:run(1.9)
      test.equal(p.Busy, true)
      test.check(p.Pid > 0)
      program:step()
      test.equal({ p.Done, p.ExitCode, p.Output, p.ErrorOutput, p.Pid }, { true, 3, "abc", "e", 0 })
      test.near(p.Duration, 2, 0.001)
      run("killed one")
      program:step()
      test.equal({ p.Error, p.ErrorId, p.Signal, p.ExitCode }, { true, 42, 9, -1 })
      run("missing one")
      program:step()
      test.equal({ p.ErrorId, p.ErrorText }, { 40, "sh: not found" })
      p.Timeout = 1
      run("good one")
      program:run(1)
      test.equal({ p.ErrorId, p.Signal }, { 41, 15 })
      p.Timeout, p.MaxOutput = 0, 2
      run("good one")
      program:run(2)
      test.equal({ p.Output, p.Truncated }, { "ab", true })
      run("good one")
      p.Abort = true
      program:step()
      test.equal(p.ErrorId, 43)
      p.Abort = false
      run("")
      test.equal(p.ErrorId, 10)
      test.equal(#program.processes.started, 6)
    end))lua");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_F(TestCommand, DoublesHaveTheVariablesOfTheBlocks) {
  const auto blocks = nlohmann::json::parse(RunCommand({CORVANE, "blocks", "--json"}).out);
  std::string program, test = "test('it', function() local program = test.load('all.lua')\n";
  for (const auto& block : blocks) {
    const std::string type = block["name"];
    program += type + "_1 = " + type + ".new()\n";
    test += "test.equal(program.vars.variables." + type + ", '";
    for (const auto& variable : block["variables"]) {
      test += variable["name"].get<std::string>() + " " + variable["type"].get<std::string>() + ",";
    }
    test += "')\n";
  }
  program += R"lua(
    variables = {}
    for name, type in pairs(TYPES.StandardFB) do
      local list = {}
      for variable, declared in pairs(type.Vars) do
        list[#list + 1] = { declared.Hash, variable .. " " .. declared.Type.Name .. "," }
      end
      table.sort(list, function(a, b) return a[1] < b[1] end)
      for i, item in ipairs(list) do list[i] = item[2] end
      variables[name] = table.concat(list)
    end
    function cycle() end)lua";
  folder_.Write("all.lua", program);
  const auto result = Run(test + "end)\n");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

/// A temperature that is read, and a fan that follows it.
constexpr char kFan[] = R"lua(
local temperature = MODBUS_TCP.new { Server = "10.0.0.5", Unit = 1, Address = 10, Format = "REAL", Period = 0.5 }
local fan = MODBUS_TCP.new { Server = "10.0.0.5", Table = "coils", Address = 3, Write = true }
function cycle()
  temperature.Enable = true
  temperature()
  fan.Execute = temperature.Valid and temperature.First > 20
  fan.Values = true
  fan()
end
)lua";

TEST_F(TestCommand, ModbusServersAreTheTests) {
  folder_.Write("fan.lua", kFan);
  const CommandResult result = Run(R"lua(
local place = { server = "10.0.0.5", unit = 1, address = 10, format = "REAL" }
local coil = { server = "10.0.0.5", table = "coils", address = 3 }
test("the fan follows the temperature", function()
  local program = test.load("fan.lua")
  program:step()
  test.equal(program.vars.temperature.Valid, false, "no answer in the cycle of the request")
  program:run(2)
  test.equal(program.vars.temperature.Valid, true)
  test.equal(program.vars.temperature.First, 0)
  program.modbus:set(place, 21.5)
  test.equal(program.modbus:get(place), 21.5)
  local took = program:run_until(function() return program.vars.fan.Done end)
  test.check(took <= 0.9, "within the period, a cycle for the answer and two for the coil")
  test.equal(program.modbus:get(coil), 1)
  local written = program.modbus.written
  test.equal(#written, 1)
  written[1].clock = nil
  test.equal(written[1], { server = "10.0.0.5", port = 502, unit = 0, table = "coils", address = 3, values = "1" })
end)
test("no server", function()
  local program = test.load("fan.lua")
  program.modbus.away = true
  program:run(1)
  test.equal(program.vars.temperature.ErrorId, 50)
  program.modbus.away, program.modbus.silent = false, true
  program:run(2.8)
  test.equal(program.vars.temperature.ErrorId, 50, "the time of the next request is not over")
  program:run(1)
  test.equal(program.vars.temperature.ErrorId, 51)
  test.contains(program.vars.temperature.ErrorText, "within 3 s")
  program.modbus.silent = false
  program:run(4)
  test.equal(program.vars.temperature.Error, false)
  program.modbus.delay = 5
  program:run(4)
  test.equal(program.vars.temperature.ErrorId, 51, "slower than Timeout")
end)
test("exceptions, and several values", function()
  local program = test.load("fan.lua")
  program.modbus:refuse("holding", 11)
  program:run(1)
  test.equal(program.vars.temperature.ErrorId, 52)
  test.equal(program.vars.temperature.Exception, 2)
  program.modbus:refuse("holding", 11, 0)
  program:run(1)
  test.equal(program.vars.temperature.ErrorId, 0)
  program.modbus:set({ server = "a", table = "inputs" , address = 7 }, "1 0 1")
  test.equal(program.modbus:get { server = "a", table = "inputs", address = 6, count = 4 }, "0 1 0 1")
end)
test("mistakes", function()
  local program = test.load("fan.lua")
  test.fails(function() program.modbus:set({ sever = "a" }, 1) end, "did you mean 'server'?")
  test.fails(function() program.modbus:set({ server = "a" }, 65536) end, "Values cannot be written")
  test.fails(function() program.modbus:get { server = "a", table = "coil" } end, "Table is 'coil'")
  test.fails(function() program.modbus:refuse("coil", 1) end, "there is no table 'coil'")
  test.fails(function() program.modbus.slient = true end, "did you mean 'silent'?")
  program.vars.fan.Address = 70000
  program.modbus:set(place, 30)
  program:run_until(function() return program.vars.fan.Error end)
  test.equal(program.vars.fan.ErrorId, 10)
  program.vars.temperature.Enable = false
  test.equal(#program.modbus.written, 0)
end)
)lua");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_THAT(result.out, HasSubstr("4 tests, 0 failed\n"));
}

}  // namespace
