// SPDX-License-Identifier: MIT
// The conversion table between Lua values and variables, type by type.
#include "share/lua_value.h"

#include <string>
#include <vector>

#include "tests/support/lua_host.h"

namespace {

class LuaValue : public test_support::LuaHost {
 protected:
  LuaValue() {
    lua_pushlightuserdata(L(), this);
    lua_pushcclosure(L(), StoreAndRead, 1);
    lua_setglobal(L(), "convert");
  }

  /// convert(type, value): stores the value in the variable and reads it back.
  static int StoreAndRead(lua_State* L) {
    auto& self = *static_cast<LuaValue*>(lua_touserdata(L, lua_upvalueindex(1)));
    const auto type = OpcUa_VariantHlp::GetUaTypeFromName(luaL_checkstring(L, 1));
    lua_settop(L, 2);
    ReadLuaValueOpcUaVariant(self.value_, L, -1, type);
    return WriteLuaValue(self.value_, L);
  }

  std::string Convert(const std::string& type, const std::string& value) {
    return Eval("convert('" + type + "', " + value + ")");
  }
  std::string Refusal(const std::string& type, const std::string& value) {
    return ErrorOf("convert('" + type + "', " + value + ")");
  }

  OpcUa_VariantHlp value_;
};

TEST_F(LuaValue, BoolAcceptsBooleansNumbersAndThreeTexts) {
  EXPECT_EQ(Convert("BOOL", "true"), "true");
  EXPECT_EQ(Convert("BOOL", "false"), "false");
  EXPECT_EQ(Convert("BOOL", "nil"), "false");
  EXPECT_EQ(Convert("BOOL", "0"), "false");
  EXPECT_EQ(Convert("BOOL", "-0.5"), "true");
  for (const char* text : {"'true'", "'True'", "'TRUE'"}) EXPECT_EQ(Convert("BOOL", text), "true");
  for (const char* text : {"'1'", "'yes'", "''", "'tRUE'", "'true\\0'"}) {
    EXPECT_EQ(Convert("BOOL", text), "false") << text;
  }
}

TEST_F(LuaValue, IntegersDropTheFraction) {
  EXPECT_EQ(Convert("DINT", "2.9"), "2");
  EXPECT_EQ(Convert("DINT", "-2.9"), "-2");
  EXPECT_EQ(Convert("USINT", "-0.9"), "0");
  EXPECT_EQ(Convert("USINT", "255.9"), "255");
}

TEST_F(LuaValue, IntegersAcceptNumericTextBooleansAndNil) {
  EXPECT_EQ(Convert("INT", "'12'"), "12");
  EXPECT_EQ(Convert("INT", "' 0x10 '"), "16");
  EXPECT_EQ(Convert("INT", "true"), "1");
  EXPECT_EQ(Convert("INT", "false"), "0");
  EXPECT_EQ(Convert("INT", "nil"), "0");
}

TEST_F(LuaValue, EveryIntegerTypeHoldsItsBoundsAndRefusesValuesBeyondThem) {
  struct Row {
    const char* type;
    const char* lowest;
    const char* highest;
    const char* below;
    const char* above;
  };
  const std::vector<Row> rows{{"SINT", "-128", "127", "-129", "128"},
                              {"USINT", "0", "255", "-1", "256"},
                              {"INT", "-32768", "32767", "-32769", "32768"},
                              {"UINT", "0", "65535", "-1", "65536"},
                              {"DINT", "-2147483648", "2147483647", "-2147483649", "2147483648"},
                              {"UDINT", "0", "4294967295", "-1", "4294967296"},
                              {"LINT", "-2^63", "2^63 - 1024", "-2^63 - 2048", "2^63"},
                              {"ULINT", "0", "2^64 - 2048", "-1", "2^64"}};
  for (const Row& row : rows) {
    EXPECT_EQ(Eval("convert('" + std::string(row.type) + "', " + row.lowest + ") == " + row.lowest),
              "true")
        << row.type;
    EXPECT_EQ(
        Eval("convert('" + std::string(row.type) + "', " + row.highest + ") == " + row.highest),
        "true")
        << row.type;
    for (const char* value : {row.below, row.above, "0/0", "1/0", "-1/0"}) {
      EXPECT_THAT(Refusal(row.type, value),
                  testing::AllOf(testing::HasSubstr(row.type), testing::HasSubstr("out of range")))
          << row.type << " " << value;
    }
  }
}

TEST_F(LuaValue, IntegersRefuseOtherTextAndTypes) {
  EXPECT_EQ(Refusal("DINT", "'abc'"), "test:1: DINT: DINT cannot hold the text \"abc\"");
  EXPECT_EQ(Refusal("DINT", "''"), "test:1: DINT: DINT cannot hold the text \"\"");
  EXPECT_EQ(Refusal("DINT", "{}"), "test:1: DINT: DINT cannot hold a table");
  EXPECT_EQ(Refusal("DINT", "print"), "test:1: DINT: DINT cannot hold a function");
  EXPECT_EQ(Refusal("DINT", "io.stdout"), "test:1: DINT: DINT cannot hold a userdata");
}

TEST_F(LuaValue, ARefusalRepeatsOnlyPartOfALongText) {
  const auto refused = [](const std::string& text) {
    return "test:1: DINT: DINT cannot hold the text \"" + text + "\"";
  };
  EXPECT_EQ(Refusal("DINT", "('x'):rep(40)"), refused(std::string(40, 'x')));
  EXPECT_EQ(Refusal("DINT", "('x'):rep(41)"), refused(std::string(40, 'x') + "..."));
  EXPECT_EQ(Refusal("DINT", "('x'):rep(100000)"), refused(std::string(40, 'x') + "..."));
}

TEST_F(LuaValue, ARefusalShowsTheValueAsTheProgramHasIt) {
  EXPECT_EQ(Refusal("DATE_AND_TIME", "true"),
            "test:1: DATE_AND_TIME: DATE_AND_TIME cannot hold true");
  EXPECT_EQ(Refusal("DATE_AND_TIME", "false"),
            "test:1: DATE_AND_TIME: DATE_AND_TIME cannot hold false");
  EXPECT_THAT(Refusal("SINT", "1000"), testing::HasSubstr("SINT: SINT cannot hold 1000"));
}

TEST_F(LuaValue, RealsKeepTheirFraction) {
  EXPECT_EQ(Convert("LREAL", "2.5"), "2.5");
  EXPECT_EQ(Convert("REAL", "0.5"), "0.5");
  EXPECT_EQ(Convert("REAL", "'1e3'"), "1000");
  EXPECT_EQ(Convert("LREAL", "true"), "1");
  EXPECT_EQ(Convert("LREAL", "1/0"), "inf");
  EXPECT_EQ(Convert("REAL", "-1/0"), "-inf");
  EXPECT_THAT(Refusal("REAL", "1e300"), testing::HasSubstr("out of range"));
  EXPECT_THAT(Refusal("LREAL", "'x'"), testing::HasSubstr("LREAL cannot hold"));
}

TEST_F(LuaValue, StringsAcceptAnyBytes) {
  EXPECT_EQ(Convert("STRING", "'text'"), "text");
  EXPECT_EQ(Eval("convert('STRING', 'a\\0\\255') == 'a\\0\\255'"), "true");
  EXPECT_EQ(Eval("#convert('STRING', ('x'):rep(1000000))"), "1000000");
  EXPECT_EQ(Convert("STRING", "nil"), "");
  EXPECT_EQ(Convert("STRING", "true"), "true");
  EXPECT_EQ(Convert("STRING", "false"), "false");
}

TEST_F(LuaValue, StringsAcceptNumbersInFull) {
  EXPECT_EQ(Convert("STRING", "12"), "12");
  EXPECT_EQ(Convert("STRING", "15550101234567"), "15550101234567");
  EXPECT_EQ(Convert("STRING", "2^53"), "9007199254740992");
  EXPECT_EQ(Convert("STRING", "1e20"), "100000000000000000000");
  EXPECT_EQ(Convert("STRING", "-3"), "-3");
  EXPECT_EQ(Convert("STRING", "-0.0"), "0");
  EXPECT_EQ(Convert("STRING", "0.1"), "0.1");
  EXPECT_EQ(Convert("STRING", "1/3"), "0.3333333333333333");
  EXPECT_EQ(Eval("#convert('STRING', 1.7976931348623157e308)"), "309");
  EXPECT_EQ(Convert("STRING", "1/0"), "inf");
}

TEST_F(LuaValue, StringsRefuseTablesAndFunctions) {
  EXPECT_EQ(Refusal("STRING", "{}"), "test:1: STRING: STRING cannot hold a table");
  EXPECT_EQ(Refusal("STRING", "print"), "test:1: STRING: STRING cannot hold a function");
}

TEST_F(LuaValue, TimesAreSecondsSince1970) {
  EXPECT_EQ(Convert("DATE_AND_TIME", "1030390641"), "1030390641");
  EXPECT_EQ(value_.Value.DateTime, 126748642410000000);
  EXPECT_EQ(Convert("DATE_AND_TIME", "4102444799"), "4102444799");  // in 2099
  EXPECT_EQ(value_.Value.DateTime, 157469183990000000);
  EXPECT_EQ(Convert("DATE_AND_TIME", "0"), "0");
  EXPECT_EQ(value_.Value.DateTime, 116444736000000000);
  EXPECT_EQ(Convert("DATE_AND_TIME", "nil"), "0");
  EXPECT_EQ(value_.Value.DateTime, 0);
}

TEST_F(LuaValue, TimesFrom1601AreKeptWithTheirFraction) {
  EXPECT_EQ(Convert("DATE_AND_TIME", "-0.25"), "-0.25");
  EXPECT_EQ(Convert("DATE_AND_TIME", "-11644473599"), "-11644473599");
  EXPECT_EQ(Convert("DATE_AND_TIME", "4102444799.5"), "4102444799.5");
  EXPECT_EQ(Convert("DATE_AND_TIME", "-11644473600"), "0") << "the first tick is the null time";
}

TEST_F(LuaValue, TimesRefuseWhatIsNotANumberOrOutOfRange) {
  for (const char* value : {"'2024-01-01'", "'12'", "true", "{}", "print", "-11644473601", "1e15",
                            "0/0", "1/0", "-1/0"}) {
    EXPECT_THAT(Refusal("DATE_AND_TIME", value), testing::HasSubstr("DATE_AND_TIME cannot hold"))
        << value;
  }
}

TEST_F(LuaValue, UndeclaredVariablesGetTheTypeOfTheirValue) {
  EXPECT_EQ(Convert("", "true"), "true");
  EXPECT_EQ(value_.Datatype, OpcUaType_Boolean);
  EXPECT_EQ(Convert("", "5"), "5");
  EXPECT_EQ(value_.Datatype, OpcUaType_Int32);
  EXPECT_EQ(Convert("", "5.5"), "5.5");
  EXPECT_EQ(value_.Datatype, OpcUaType_Double);
  EXPECT_EQ(Convert("", "3000000000"), "3000000000");
  EXPECT_EQ(value_.Datatype, OpcUaType_Double);
  EXPECT_EQ(Convert("", "-2147483648"), "-2147483648");
  EXPECT_EQ(value_.Datatype, OpcUaType_Int32);
  EXPECT_EQ(Convert("", "'text'"), "text");
  EXPECT_EQ(value_.Datatype, OpcUaType_String);
  EXPECT_EQ(Convert("", "nil"), "nil");
  EXPECT_EQ(value_.Datatype, OpcUaType_Null);
  EXPECT_EQ(Refusal("", "{}"), "test:1: : a variable cannot hold a table");
}

TEST_F(LuaValue, ARefusedAssignmentChangesNothing) {
  Convert("STRING", "'kept'");
  Refusal("STRING", "{}");
  EXPECT_EQ(Convert("STRING", "'kept'"), "kept");
  Refusal("DINT", "'abc'");
  EXPECT_EQ(value_.Datatype, OpcUaType_String);
  std::string text;
  value_.GetString(text);
  EXPECT_EQ(text, "kept");
}

TEST_F(LuaValue, ShortIntegersLeaveNoOldBitsInTheirSlot) {
  Convert("STRING", "'a text before'");
  Convert("USINT", "0");
  EXPECT_EQ(value_.Value.UInt32, 0u);
}

TEST_F(LuaValue, TypesWithoutALuaFormReadNilAndAcceptNothing) {
  value_.Reset(OpcUaType_Guid);
  WriteLuaValue(value_, L());
  EXPECT_TRUE(lua_isnil(L(), -1));
  lua_pop(L(), 1);
  value_.Reset(OpcUaType_Int32);
  value_.ArrayType = OpcUa_VariantArrayType_Matrix;
  WriteLuaValue(value_, L());
  EXPECT_TRUE(lua_isnil(L(), -1));
  value_.ArrayType = OpcUa_VariantArrayType_Scalar;
}

}  // namespace
