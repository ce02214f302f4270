// SPDX-License-Identifier: MIT
#include "runtime/corvane/plc_file.h"

#include "runtime/corvane/cycle_time.h"
#include "tests/support/lua_host.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

using test_support::WaitFor;
using testing::HasSubstr;

class PlcFile : public test_support::LuaHost {
 protected:
  PlcFile() {
    lua_newtable(L());
    corvane::OpenPlcFile(L(), watches_);
    lua_setglobal(L(), "plc");
  }
  ~PlcFile() override { CloseHost(); }
  /// A new cycle begins, `seconds` later.
  void Cycle(double seconds = 1) { corvane::SetCycleTime({clock_ += seconds, 0}); }
  /// Waits until the expression is this, a cycle for each look.
  bool Becomes(const std::string& expression, const std::string& value) {
    return WaitFor([&] {
      Cycle(0.001);
      return Eval(expression) == value;
    });
  }
  void Watch(const std::string& content) {
    Run("f = plc.file('" + folder_.Write("value", content) + "', 0.01)");
  }

  const corvane::StandingTime time_;
  double clock_ = corvane::CycleTime::Read().clock;
  test_support::TemporaryFolder folder_;
  corvane::FileWatches watches_;
};

TEST_F(PlcFile, HasNoValueBeforeItWasRead) {
  Run("f = plc.file('/nowhere') f = {f.text == nil, f.number == nil, f.age == nil, #f.error > 0}");
  EXPECT_EQ(Eval("tostring(f[1]) .. tostring(f[2]) .. tostring(f[3]) .. tostring(f[4])"),
            "truetruetruetrue");
}

TEST_F(PlcFile, GivesTextNumberAndAge) {
  Watch("45123\n");
  ASSERT_TRUE(Becomes("f.text", "45123"));
  EXPECT_EQ(Eval("f.number + 1"), "45124");
  EXPECT_EQ(Eval("f.error"), "nil");
  EXPECT_EQ(Eval("f.path"), (folder_.path() / "value").string());
  std::filesystem::remove(folder_.path() / "value");
  ASSERT_TRUE(Becomes("f.error", "No such file or directory"));
  EXPECT_EQ(Eval("f.number"), "45123");
  Cycle(3600);
  EXPECT_EQ(Eval("f.age > 3599 and f.age < 3700"), "true");
}

TEST_F(PlcFile, ANumberMayHaveBlanksAroundItAndNothingElse) {
  const std::pair<const char*, const char*> rows[] = {{" -1.5e3 \n", "-1500"}, {"0x1F\n", "31"},
                                                      {"12 kB\n", "nil"},      {"nan\n", "nil"},
                                                      {"inf", "nil"},          {"on\n", "nil"}};
  for (const auto& [content, number] : rows) {
    Watch(content);
    ASSERT_TRUE(Becomes("f.text ~= nil", "true"));
    EXPECT_EQ(Eval("f.number"), number) << content;
  }
}

TEST_F(PlcFile, StaysTheSameThroughoutACycle) {
  Watch("1");
  ASSERT_TRUE(Becomes("f.text", "1"));
  const auto other = watches_.Add(folder_.Write("value", "2"), std::chrono::milliseconds(1));
  ASSERT_TRUE(WaitFor([&] { return other->value()->text == "2"; }));
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
  ASSERT_TRUE(WaitFor([&] { return *other->value()->read > until; }));
  EXPECT_EQ(Eval("f.text"), "1");
  EXPECT_TRUE(Becomes("f.text", "2"));
}

TEST_F(PlcFile, RefusesWrongArgumentsAndFields) {
  for (const char* call :
       {"plc.file()", "plc.file('')", "plc.file('a\\0b')", "plc.file({})", "plc.file('a', 0)",
        "plc.file('a', -1)", "plc.file('a', 0/0)", "plc.file('a', 1/0)", "plc.file('a', 'x')"}) {
    EXPECT_THAT(ErrorOf(call), HasSubstr("bad argument #")) << call;
  }
  Run("f = plc.file('a')");
  EXPECT_THAT(ErrorOf("local x = f.value"),
              HasSubstr("plc.file has no field 'value'; there are text"));
  EXPECT_THAT(ErrorOf("f.text = 1"), HasSubstr("cannot be assigned"));
  EXPECT_EQ(Eval("getmetatable(f)"), "false");
}

TEST_F(PlcFile, IsCollected) {
  Run("for i = 1, 100 do plc.file('/nowhere/' .. i) end f = plc.file('x')");
  Collect();
  Run("debug.getmetatable(f).__gc(f)");
  EXPECT_THAT(ErrorOf("local x = f.text"), HasSubstr("attempt to index"));
}

}  // namespace
