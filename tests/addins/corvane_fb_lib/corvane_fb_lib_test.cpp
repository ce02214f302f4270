// SPDX-License-Identifier: MIT
// The add-in as its host sees it: the types that it registers, and their metadata.
#include "addins/corvane_fb_lib/corvane_fb_lib.h"

#include <algorithm>
#include <iterator>

#include "addins/corvane_fb_lib/block_types.h"
#include "runtime/corvane/st_library.h"
#include "tests/addins/corvane_fb_lib/block_test.h"

namespace {

class AddinEntry : public BlockTest {};

/// What programs rely on: every type with its variables, in the order in which hosts list both.
struct TypeRow {
  const char* name;
  const char* variables;
};
constexpr TypeRow kTypes[] = {
    {"SEND_SMS",
     "Port:DINT Send:BOOL Receiver:STRING Message:STRING Error:DINT State:DINT Sent:BOOL "
     "Queue:DINT"},
    {"READ_SMS",
     "Port:DINT Read:BOOL Complete:BOOL Number:STRING Message:STRING DateTime:DATE_AND_TIME "
     "State:DINT Error:DINT"},
    {"SEND_EMAIL",
     "Port:DINT Send:BOOL Server:STRING Login:STRING Password:STRING Sender:STRING "
     "SenderName:STRING SenderMail:STRING Subject:STRING Recipient:STRING SecurityType:DINT "
     "Message:STRING Attachment:STRING Sent:BOOL Code:DINT ErrStr:STRING"},
    {"SysProcessCreate", "Command:STRING Args:STRING Run:BOOL"},
    {"SysProcessCreateWithResult", "Command:STRING Args:STRING Run:BOOL Code:INT Output:STRING"},
};

TEST_F(AddinEntry, RegistersTheTypesOfTheTableInItsOrder) {
  std::vector<std::string> registered;
  for (const auto& library : corvane::RegisteredStLibraries()) registered.push_back(library.name);
  std::vector<std::string> stated;
  for (const TypeRow& row : kTypes) stated.push_back(row.name);
  EXPECT_EQ(registered, stated) << "each type of block_types.h has a row in kTypes (" __FILE__ ")";
}

TEST_F(AddinEntry, InitAddinReturns0EvenIfTheHostRefuses) {
  EXPECT_EQ(InitAddin(), 0);  // the second time, every name is taken
  EXPECT_EQ(test_support::TakeLog().size(), std::size(kBlockTypes));
}

TEST_F(AddinEntry, DisposeAddinDoesNothing) {
  DisposeAddin();
  EXPECT_EQ(Eval("SysProcessCreate.new().Command"), "");
}

TEST_F(AddinEntry, TheTypeRecordHoldsNameAndErrorText) {
  EXPECT_STREQ(FBUtil<ShellFB>().typeName, "SysProcessCreate");
  EXPECT_STREQ(FBUtil<ShellFB>().errorText,
               (std::string("SysProcessCreate ") + LuaFBUtil::CheckErrStrPostfix).c_str());
}

TEST_F(AddinEntry, MetadataTextOfSysProcessCreate) {
  EXPECT_EQ(ShellFB::MakeMetadata("SysProcessCreate"),
            "TYPES.StandardFB.SysProcessCreate= FBMetadata({ Name = 'SysProcessCreate', Hash = "
            "1001, \n"
            "Vars = \n"
            "\t{\n"
            "\t\tCommand = { Hash = 0, Type = TYPES.Elementary.STRING, Retain = true },\n"
            "\t\tArgs = { Hash = 1, Type = TYPES.Elementary.STRING, Retain = true },\n"
            "\t\tRun = { Hash = 2, Type = TYPES.Elementary.BOOL, Retain = true }\n"
            "\t}\n"
            "})\n");
}

struct OneVariable : BaseFB<OneVariable> {
  static const FBMetaEntry* GetMetaTable() {
    static const FBMetaEntry _entries[] = {{"Only", "DINT"}, {nullptr, nullptr}};
    return _entries;
  }
};

TEST_F(AddinEntry, MetadataOfAOneVariableTableHasNoComma) {
  EXPECT_EQ(OneVariable::MakeMetadata("ONE").find(",\n\t\t"), std::string::npos);
  EXPECT_EQ(OneVariable::MakeMetadata("ONE").find("},\n"), std::string::npos);
}

TEST_F(AddinEntry, TheLastVariableOfSendEmailIsErrStrWithHash15) {
  const std::string text = SendEmailFB::MakeMetadata("SEND_EMAIL");
  EXPECT_THAT(text, testing::HasSubstr("ErrStr = { Hash = 15, "));
  EXPECT_THAT(text, testing::EndsWith("})\n"));
}

/// What every type in the table of block types does.
class EveryType : public BlockTest, public testing::WithParamInterface<FBTypeEntry> {
 protected:
  static std::string Name() { return GetParam().util().typeName; }
};

TEST_P(EveryType, MetadataListsItsVariablesInOrder) {
  Run(R"(
    function variables(name)
      local rows = {}
      for variable, meta in pairs(TYPES.StandardFB[name].Vars) do
        rows[meta.Hash + 1] = variable .. ':' .. meta.Type.Name
        assert(meta.Retain == true)
      end
      return table.concat(rows, ' ')
    end)");
  const std::string name = Name();
  const auto* row = std::find_if(std::begin(kTypes), std::end(kTypes),
                                 [&name](const TypeRow& each) { return each.name == name; });
  ASSERT_NE(row, std::end(kTypes)) << name << " needs a row in kTypes (" __FILE__ ")";
  EXPECT_EQ(Eval("variables('" + name + "')"), row->variables);
  EXPECT_EQ(Eval("TYPES.StandardFB." + name + ".Name"), name);
  EXPECT_EQ(Eval("TYPES.StandardFB." + name + ".Hash"), "1001");
}

TEST_P(EveryType, IsCreatedWithInitialValuesThatReadBackBeforeTheFirstCall) {
  Run("fb = " + Name() + ".new{Port = 3, Command = 'none', extra = 'x'}");
  EXPECT_EQ(Eval("fb.Port"), "3");
  EXPECT_EQ(Eval("fb.Command"), "none");
  EXPECT_EQ(Eval("fb.extra"), "x");
}

TEST_P(EveryType, ReadsUnknownNamesAsNil) {
  Run("fb = " + Name() + ".new()");
  EXPECT_EQ(Eval("fb.NoSuchVariable"), "nil");
  EXPECT_EQ(Eval("fb.__Internal"), "true");
  EXPECT_EQ(Eval("fb.EnO"), "true");
}

TEST_P(EveryType, IsCalledAndReturnsItself) {
  Run("fb = " + Name() + ".new()");
  EXPECT_EQ(Eval("fb() == fb"), "true");
}

TEST_P(EveryType, IsCollectedAndLivesUntilTheHostCloses) {
  Run("local fb = " + Name() + ".new() fb()");
  Collect();
  Run("fb = " + Name() + ".new() fb()");
  CloseHost();
}

TEST_P(EveryType, RefusesABlockOfAnotherType) {
  const std::string name = Name();
  const std::string other = name == "READ_SMS" ? "SEND_SMS" : "READ_SMS";
  EXPECT_THAT(ErrorOf(name + ".get(" + other + ".new(), 'Port')"),
              testing::HasSubstr("bad argument #1"));
}

INSTANTIATE_TEST_SUITE_P(Types, EveryType, testing::ValuesIn(kBlockTypes),
                         [](const auto& row) { return std::string(row.param.util().typeName); });

}  // namespace
