// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_target.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::FlowControl;
using corvane::ModemTarget;
using corvane::ModemTargetError;
using corvane::ParseModemTarget;
using corvane::ParseModemTargets;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

std::string ErrorOf(const std::string& text) {
  try {
    (void)ParseModemTarget(text);
  } catch (const ModemTargetError& error) {
    EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << "one line";
    return error.what();
  }
  ADD_FAILURE() << "no error from " << text;
  return {};
}

TEST(ModemTarget, ADeviceAloneHasTheDefaultSettings) {
  const ModemTarget target = ParseModemTarget("1=/dev/ttyUSB0");
  EXPECT_EQ(target.port, 1);
  EXPECT_EQ(target.device, "/dev/ttyUSB0");
  EXPECT_EQ(target.baud, 115200U);
  EXPECT_EQ(target.flow, FlowControl::kNone);
  EXPECT_EQ(target.poll, milliseconds(20));
  EXPECT_EQ(target.patience, milliseconds(0));
  EXPECT_EQ(target.prompt_pause, milliseconds(0));
  EXPECT_THAT(target.init, ElementsAre());
  EXPECT_EQ(target.Name(), "/dev/ttyUSB0");
}

TEST(ModemTarget, EverySettingIsAccepted) {
  const ModemTarget target = ParseModemTarget(
      "2=/dev/ttyS1,baud=9600,flow=rtscts,poll=5ms,patience=60s,prompt-pause=100ms,"
      "init=\"AT+CPIN=1234; AT+CNMI=2,0\"");
  EXPECT_EQ(target.baud, 9600U);
  EXPECT_EQ(target.flow, FlowControl::kRtsCts);
  EXPECT_EQ(target.poll, milliseconds(5));
  EXPECT_EQ(target.patience, milliseconds(60'000));
  EXPECT_EQ(target.prompt_pause, milliseconds(100));
  EXPECT_THAT(target.init, ElementsAre("AT+CPIN=1234", "AT+CNMI=2,0"));
}

TEST(ModemTarget, TheBaudRatesAreThoseOfSerialLines) {
  for (const unsigned baud :
       {300U, 600U, 1200U, 2400U, 4800U, 9600U, 19200U, 38400U, 57600U, 115200U, 230400U, 460800U,
        500000U, 576000U, 921600U, 1000000U, 1500000U}) {
    const std::string option = "1=/dev/ttyUSB0,baud=";
    EXPECT_EQ(ParseModemTarget(option + std::to_string(baud)).baud, baud);
    EXPECT_THAT(ErrorOf(option + std::to_string(baud - 1)), HasSubstr("is not a baud rate"));
    EXPECT_THAT(ErrorOf(option + std::to_string(baud + 1)), HasSubstr("is not a baud rate"));
  }
}

TEST(ModemTarget, TimesAreAcceptedFromTheirLeastToTheirMost) {
  EXPECT_EQ(ParseModemTarget("1=/dev/a,poll=1ms").poll, milliseconds(1));
  EXPECT_EQ(ParseModemTarget("1=/dev/a,poll=1min").poll, milliseconds(60'000));
  EXPECT_THAT(ErrorOf("1=/dev/a,poll=999us"),
              HasSubstr("poll=999us is not a time from 1ms to 60s"));
  EXPECT_THAT(ErrorOf("1=/dev/a,poll=60001ms"), HasSubstr("is not a time from 1ms to 60s"));
  EXPECT_EQ(ParseModemTarget("1=/dev/a,patience=0s").patience, milliseconds(0));
  EXPECT_EQ(ParseModemTarget("1=/dev/a,patience=10min").patience, milliseconds(600'000));
  EXPECT_THAT(ErrorOf("1=/dev/a,patience=600001ms"), HasSubstr("is not a time from 0s to 600s"));
  EXPECT_EQ(ParseModemTarget("1=/dev/a,prompt-pause=0s").prompt_pause, milliseconds(0));
  EXPECT_EQ(ParseModemTarget("1=/dev/a,prompt-pause=5s").prompt_pause, milliseconds(5'000));
  EXPECT_THAT(ErrorOf("1=/dev/a,prompt-pause=5001ms"), HasSubstr("is not a time from 0s to 5s"));
}

TEST(ModemTarget, InitMayHaveLostItsQuotesInTheShell) {
  const ModemTarget target =
      ParseModemTarget("1=/dev/ttyUSB0,init=AT+CPIN=1234;AT+CNMI=2,0,baud=9600");
  EXPECT_THAT(target.init, ElementsAre("AT+CPIN=1234", "AT+CNMI=2,0"));
  EXPECT_EQ(target.baud, 9600U);
}

TEST(ModemTarget, AnEmptyParameterOfInitIsNotASetting) {
  EXPECT_THAT(ParseModemTarget("1=/dev/ttyUSB0,init=AT+X=1,=2").init, ElementsAre("AT+X=1,=2"));
}

TEST(ModemTarget, AQuotedInitMayContainCommasAndBeFollowedBySettings) {
  const ModemTarget target =
      ParseModemTarget("1=/dev/ttyUSB0,init=\"AT+CNMI=2,0,baud=1\",baud=9600");
  EXPECT_THAT(target.init, ElementsAre("AT+CNMI=2,0,baud=1"));
  EXPECT_EQ(target.baud, 9600U);
}

TEST(ModemTarget, AQuoteWithinAQuotedInitFollowsABackslash) {
  const ModemTarget target =
      ParseModemTarget(R"(1=/dev/x,init="AT+CPMS=\"SM\",\"SM\";AT+CSCA=\"+49\"",baud=9600)");
  EXPECT_THAT(target.init, ElementsAre(R"(AT+CPMS="SM","SM")", R"(AT+CSCA="+49")"));
  EXPECT_EQ(target.baud, 9600U);
  EXPECT_THAT(ErrorOf(R"(1=/dev/x,init="AT+CSCA=\"+49\")"), HasSubstr("a quote is missing"));
}

TEST(ModemTarget, ASerialDeviceServerHasAHostAndAPort) {
  ModemTarget target = ParseModemTarget("7=tcp:gateway.local:4001,poll=50ms");
  EXPECT_EQ(target.device, "");
  EXPECT_EQ(target.host, "gateway.local");
  EXPECT_EQ(target.service, "4001");
  EXPECT_EQ(target.Name(), "tcp:gateway.local:4001");
  target = ParseModemTarget("7=tcp:[::1]:4001");
  EXPECT_EQ(target.host, "::1");
  EXPECT_EQ(target.Name(), "tcp:[::1]:4001");
}

TEST(ModemTarget, AnErrorSaysWhatIsWrongAndWhatToWrite) {
  EXPECT_THAT(ErrorOf(""), HasSubstr("such as 1=/dev/ttyUSB0"));
  EXPECT_THAT(ErrorOf("/dev/ttyUSB0"), HasSubstr("does not name a modem"));
  for (const std::string port : {"x", "-1", "1.5", "99999999999", "", " 1"}) {
    EXPECT_THAT(ErrorOf(port + "=/dev/ttyUSB0"), HasSubstr("'" + port + "' is not a port number"));
  }
  EXPECT_THAT(ErrorOf("1="), HasSubstr("port 1 has no device"));
  for (const std::string address : {"", "host", "host:", "host:0", "host:65536", ":80", "host:x",
                                    "[::1:1", "::1]:1", "[[::1]]:1", "[]:1"}) {
    EXPECT_THAT(ErrorOf("1=tcp:" + address), HasSubstr("'tcp:" + address + "' is not an address"));
  }
  EXPECT_THAT(ErrorOf("1=/dev/\x1B[2J"), HasSubstr("has a control character"));
  EXPECT_THAT(ErrorOf("1=tcp:host\x7F:1"), HasSubstr("has a control character"));
  EXPECT_THAT(ErrorOf("1=/dev/a,"), HasSubstr("missing after the last comma"));
  EXPECT_THAT(ErrorOf("1=/dev/a,baud=9600,"), HasSubstr("missing after the last comma"));
  EXPECT_THAT(ErrorOf("1=/dev/a,speed=9600"),
              HasSubstr("'speed' is not a setting; the settings are baud="));
  EXPECT_THAT(ErrorOf("1=/dev/a,9600"), HasSubstr("'9600' is not a setting"));
  EXPECT_THAT(ErrorOf("1=/dev/a,baud"), HasSubstr("'baud' is not a setting"));
  for (const std::string baud : {"", "12345", "9600x", "-9600"}) {
    EXPECT_THAT(ErrorOf("1=/dev/a,baud=" + baud),
                HasSubstr("baud=" + baud + " is not a baud rate"));
  }
  EXPECT_THAT(ErrorOf("1=/dev/a,baud=9600,baud=1200"), HasSubstr("baud= is given twice"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=AT,init=AT"), HasSubstr("init= is given twice"));
  EXPECT_THAT(ErrorOf("1=/dev/a,flow=xonxoff"), HasSubstr("write none or rtscts"));
  EXPECT_THAT(ErrorOf("1=/dev/a,poll=0"), HasSubstr("poll=0 is not a time from 1ms"));
  EXPECT_THAT(ErrorOf("1=/dev/a,patience=60"), HasSubstr("an example: patience=2s"));
  EXPECT_THAT(ErrorOf("1=/dev/a,patience=11min"), HasSubstr("is not a time"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=\"AT"), HasSubstr("a quote is missing"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=\"AT\"x"), HasSubstr("a quote is missing"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=CNMI"), HasSubstr("'CNMI' is not an AT command"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=AT\r"), HasSubstr("is not an AT command"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=AT+CNMI=2,0,bauds=9600"),
              HasSubstr("'bauds' is not a setting"));
}

TEST(ModemTargets, APortOrADeviceMayBeGivenOnlyOnce) {
  EXPECT_EQ(ParseModemTargets({"1=/dev/a", "2=/dev/b"}).size(), 2U);
  EXPECT_THROW((void)ParseModemTargets({"1=/dev/a", "1=/dev/b"}), ModemTargetError);
  EXPECT_THROW((void)ParseModemTargets({"1=/dev/a", "2=/dev/a,baud=9600"}), ModemTargetError);
  EXPECT_THROW((void)ParseModemTargets({"1=tcp:a:1", "2=tcp:a:1"}), ModemTargetError);
}

TEST(ModemTarget, ACommandAfterASemicolonNeedsNoAt) {
  EXPECT_THAT(ParseModemTarget("1=/dev/a,init=AT+CMEE=1;+CPIN=1234; +CSQ").init,
              testing::ElementsAre("AT+CMEE=1", "AT+CPIN=1234", "AT+CSQ"));
  EXPECT_THAT(ErrorOf("1=/dev/a,init=+CSQ"), HasSubstr("is not an AT command"));
}

TEST(ModemTarget, AnErrorShowsNoPin) {
  for (const std::string init :
       {"init=CPIN;+CPIN=1234", "init=X+CPIN=1234", "init=\"AT+CPIN=1234"}) {
    EXPECT_THAT(ErrorOf("1=/dev/a," + init), testing::Not(HasSubstr("1234"))) << init;
  }
}

}  // namespace
