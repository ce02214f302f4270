// SPDX-License-Identifier: MIT
// The add-in as its host sees it: the types that it registers, and their metadata.
#include "addins/corvane_fb_lib/corvane_fb_lib.h"

#include <iterator>

#include "addins/corvane_fb_lib/block_types.h"
#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/every_type.h"

namespace {

class AddinEntry : public BlockTest {};

/// What programs rely on.
constexpr test_support::TypeRow kTypes[] = {
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

TEST_EVERY_TYPE(AddinEntry, kBlockTypes, kTypes);

}  // namespace
