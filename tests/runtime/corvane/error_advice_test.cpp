// SPDX-License-Identifier: MIT
#include "runtime/corvane/error_advice.h"

#include "runtime/corvane/lua_environment.h"
#include "tests/support/lua_host.h"

namespace {

class ErrorAdvice : public test_support::LuaHost {
 protected:
  ErrorAdvice() { Run("TYPES.StandardFB = { SMS_OUTBOX = {}, R_TRIG = {}, TON = {}, TOF = {} }"); }
};

TEST_F(ErrorAdvice, AProgramThatNeedsMailSaysWhichPackageIsMissing) {
  const std::string missing =
      " (a nil value); its add-in corvane_mail.so is not loaded: install corvane-mail";
  EXPECT_THAT(ErrorOf("mail = MAIL_OUTBOX.new{}"),
              testing::EndsWith("attempt to index global 'MAIL_OUTBOX'" + missing));
  EXPECT_THAT(ErrorOf("x = OTHER.new{}"), testing::Not(testing::HasSubstr("install")));
  EXPECT_THAT(ErrorOf("error()"), testing::Not(testing::HasSubstr("install")));
}

TEST_F(ErrorAdvice, AMisspeltBlockTypeIsReportedWithTheOneThatWasMeant) {
  EXPECT_THAT(ErrorOf("x = SMS_OUTBX.new{}"),
              testing::EndsWith("global 'SMS_OUTBX' (a nil value); did you mean 'SMS_OUTBOX'?"));
  EXPECT_THAT(ErrorOf("x = RTRIG.new{}"), testing::EndsWith("; did you mean 'R_TRIG'?"));
  EXPECT_THAT(ErrorOf("x = ton.new{}"), testing::EndsWith("; did you mean 'TON'?"));
  EXPECT_THAT(ErrorOf("x = Sms_Outbox{}"), testing::EndsWith("; did you mean 'SMS_OUTBOX'?"));
}

TEST_F(ErrorAdvice, AVariableWithoutAValueIsNotTakenForABlock) {
  for (const char* name : {"x", "tow", "level", "toff_time", "outbox"}) {
    EXPECT_THAT(ErrorOf("y = " + std::string(name) + ".z"), testing::EndsWith("(a nil value)"));
  }
}

TEST_F(ErrorAdvice, ATypeThatIsCalledSaysHowABlockIsCreated) {
  Run("SMS_OUTBOX = {} settings = {}");
  EXPECT_THAT(ErrorOf("x = SMS_OUTBOX{}"),
              testing::EndsWith("(a table value); SMS_OUTBOX.new { ... } creates a block"));
  EXPECT_THAT(ErrorOf("x = settings{}"), testing::EndsWith("(a table value)"));
}

TEST_F(ErrorAdvice, AProgramThatHasReplacedTheTypesGetsLuasOwnWords) {
  for (const char* types : {"nil", "5", "{}", "{ StandardFB = 5 }", "{ StandardFB = { 1, 2 } }",
                            "setmetatable({}, { __index = function() error('asked') end })"}) {
    Run(std::string("TYPES = ") + types);
    EXPECT_THAT(ErrorOf("x = SMS_OUTBX.new{}"), testing::EndsWith("(a nil value)")) << types;
  }
}

}  // namespace
