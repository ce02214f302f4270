// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/command.h"
#include "tests/support/deliver_pdu.h"

namespace {

using nlohmann::json;
using test_support::CommandResult;
using test_support::DeliverPdu;
using test_support::RunCommand;
using test_support::TextMessage;
using testing::EndsWith;
using testing::HasSubstr;

CommandResult Pdu(std::vector<std::string> words) {
  words.insert(words.begin(), {CORVANE, "pdu"});
  return RunCommand(words);
}

/// `corvane pdu decode` with `input`, a printf format, on its standard input.
CommandResult DecodeInput(const std::string& input, const std::string& options = "") {
  return RunCommand(
      {"/bin/sh", "-c", "printf '" + input + "' | " CORVANE " pdu decode " + options});
}

TEST(PduDecode, ShowsAMessageAsText) {
  const auto result = Pdu({"decode", DeliverPdu{}.ToHex()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "Number    +15550101234\n"
            "Time      2024-03-05T09:07:03Z\n"
            "Text      Hello\n");
  EXPECT_EQ(result.err, "");
}

TEST(PduDecode, ShowsAMessageAsJson) {
  const auto result = Pdu({"decode", "--json", DeliverPdu{}.ToHex()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(json::parse(result.out), (json{{"status", 0},
                                           {"number", "+15550101234"},
                                           {"time", "2024-03-05T09:07:03Z"},
                                           {"file_time", 133541032230000000},
                                           {"ref", 0},
                                           {"total", 0},
                                           {"seq", 0},
                                           {"text", "Hello"}}));
}

TEST(PduDecode, ShowsATimeAfterTheYear2038) {
  DeliverPdu pdu;
  pdu.time_stamp = {0x99, 0x21, 0x13, 0x32, 0x95, 0x95, 0x00};
  EXPECT_THAT(Pdu({"decode", pdu.ToHex()}).out, HasSubstr("Time      2099-12-31T23:59:59Z\n"));
}

TEST(PduDecode, ShowsThePartOfALongMessage) {
  const std::string hex = test_support::Part(7, 3, 2, "two").ToHex();
  EXPECT_THAT(Pdu({"decode", hex}).out,
              HasSubstr("Part      2 of 3, reference 7\nText      two\n"));
  const json part = json::parse(Pdu({"decode", "--json", hex}).out);
  EXPECT_EQ(part["ref"], 7);
  EXPECT_EQ(part["total"], 3);
  EXPECT_EQ(part["seq"], 2);
}

TEST(PduDecode, KeepsATrailingNulInJson) {
  const auto result = Pdu({"decode", "--json", TextMessage("1234567").ToHex()});
  EXPECT_THAT(result.out, HasSubstr(R"("text":"1234567\u0000")"));
}

TEST(PduDecode, EscapesControlCharactersInText) {
  const std::string nasty("\x1B[2Ja\n\0b", 8);
  EXPECT_THAT(Pdu({"decode", TextMessage(nasty).ToHex()}).out,
              HasSubstr("Text      \\x1B[2Ja\\n\\x00b\n"));
  DeliverPdu c1;
  c1.coding_scheme = 0x08;
  c1.user_data = {0x00, 0x9B, 0x00, 0xFC};
  EXPECT_THAT(Pdu({"decode", c1.ToHex()}).out, HasSubstr("Text      \\x9B\xC3\xBC\n"));
}

TEST(PduDecode, ShowsARejectedPduWithItsReasonAndStatusOne) {
  DeliverPdu pdu;
  pdu.protocol_identifier = 0x41;
  const auto result = Pdu({"decode", pdu.ToHex()});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "Number    +15550101234\n"
            "Rejected  The PDU's TP-PID field must have the value 0x00.\n"
            "Reason    Its protocol identifier is 0x41: READ_SMS accepts only 0x00.\n"
            "Standard  number  +15550101234\n"
            "          time    2024-03-05T09:07:03+00:00\n"
            "          text    Hello\n");
  const auto as_json = Pdu({"decode", "--json", pdu.ToHex()});
  EXPECT_EQ(as_json.status, 1);
  EXPECT_EQ(json::parse(as_json.out)["status"], 5);
  EXPECT_EQ(json::parse(as_json.out)["time"], nullptr);
  EXPECT_EQ(json::parse(as_json.out)["file_time"], 0);
}

TEST(PduDecode, NamesTheReasonOfARejectionThatHasNoText) {
  const auto result = Pdu({"decode", "FF"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "Rejected  The service-centre address has a length above 127.\n"
            "Standard  cannot be read either: octets are missing (octet 2)\n");
  EXPECT_EQ(json::parse(Pdu({"decode", "--json", "FF"}).out)["text"], "");
}

TEST(PduDecode, SaysThatATruncatedPduIsTruncated) {
  EXPECT_EQ(Pdu({"decode", "0004"}).out,
            "Rejected  The PDU is truncated.\n"
            "Standard  cannot be read either: octets are missing (octet 3)\n");
}

TEST(PduDecode, ShowsTheStandardsReadingWhereItDiffersAndWhy) {
  DeliverPdu pdu;
  pdu.address_length = 12;
  pdu.address = {0x94, 0x51, 0x21, 0x43, 0x65, 0x87};
  const auto result = Pdu({"decode", pdu.ToHex()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out,
              EndsWith("Rejected  The PDU's TP-PID field must have the value 0x00.\n"
                       "Reason    The sender's number has an even number of digits, 12: READ_SMS "
                       "reads on into the fields after it.\n"
                       "Standard  number  +491512345678\n"
                       "          time    2024-03-05T09:07:03+00:00\n"
                       "          text    Hello\n"));
  const json as_json = json::parse(Pdu({"decode", "--json", pdu.ToHex()}).out);
  EXPECT_EQ(as_json["standard"]["number"], "+491512345678");
  EXPECT_EQ(as_json["standard"]["text"], "Hello");
  EXPECT_EQ(as_json["causes"].size(), 1U);
}

TEST(PduDecode, AcceptsWhatAModemPrintsAroundThePdu) {
  const std::string hex = DeliverPdu{}.ToHex();  // 24 octets without the service centre
  const std::string hello =
      "Number    +15550101234\nTime      2024-03-05T09:07:03Z\nText      Hello\n";
  const std::string expected = "Header    +CMGL: 1,1,,24\n" + hello;
  EXPECT_EQ(Pdu({"decode", "+CMGL: 1,1,,24", hex}).out, expected);
  EXPECT_EQ(Pdu({"decode", "+CMGL:", "1,1,,24", hex}).out, expected);
  EXPECT_EQ(Pdu({"decode", "+CMGL: 1,1,,24\r\n" + hex + "\r\n\r\nOK\r\n"}).out, expected);
  EXPECT_EQ(DecodeInput("AT+CMGL=4\\r\\n+CMGL: 1,1,,24\\r\\n" + hex + "\\r\\nOK\\r\\n").out,
            expected);
  EXPECT_EQ(DecodeInput(hex + "\\n", "'+CMGL: 1,1,,24'").out, expected);
  const json as_json = json::parse(Pdu({"decode", "--json", "+CMGL: 1,1,,24", hex}).out);
  EXPECT_EQ(as_json["header"], "+CMGL: 1,1,,24");
  EXPECT_EQ(as_json["length"], 24);
  const auto filled = Pdu({"decode", "+CMGL: 1,1,,24", hex + "FFFF"});
  EXPECT_THAT(filled.out, HasSubstr("Length    24 octets are announced, 26 were given: the rest "
                                    "is left out\n" +
                                    hello));
}

TEST(PduDecode, SaysThatAHeaderHasNoPdu) {
  for (const std::string input : {"+CMGL: 1,1,,24", "+CMGL: 1,1,,24\\nOK\\n"}) {
    const auto result = DecodeInput(input);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "corvane: the header '+CMGL: 1,1,,24' has no PDU after it\n");
  }
  EXPECT_EQ(Pdu({"decode", "+CMGL: 1,1,,24", "+CMGL: 2,1,,24", DeliverPdu{}.ToHex()}).err,
            "corvane: PDU 1: it is empty\n");
}

TEST(PduDecode, AcceptsManyPdusInOneCall) {
  const std::string hex = DeliverPdu{}.ToHex();
  const auto text = Pdu({"decode", hex, TextMessage("two").ToHex()});
  EXPECT_EQ(text.status, 0);
  EXPECT_THAT(text.out, HasSubstr("Text      Hello\n\nNumber    +15550101234\n"));
  const auto lines = Pdu({"decode", "--json", hex, TextMessage("two").ToHex()}).out;
  const std::size_t end = lines.find('\n');
  EXPECT_EQ(json::parse(lines.substr(0, end))["text"], "Hello");
  EXPECT_EQ(json::parse(lines.substr(end))["text"], "two");
}

TEST(PduDecode, ReadsPdusFromStandardInputOnePerLine) {
  const std::string hex = DeliverPdu{}.ToHex();
  const auto result = DecodeInput(hex + "\\r\\n\\n  " + hex + "  ", "--json");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
}

TEST(PduDecode, ReadsLowerCase) {
  std::string hex = DeliverPdu{}.ToHex();
  for (char& digit : hex) digit = static_cast<char>(std::tolower(digit));
  EXPECT_EQ(Pdu({"decode", hex}).out, Pdu({"decode", DeliverPdu{}.ToHex()}).out);
}

TEST(PduDecode, SaysWhatIsWrongWithItsInputAndDecodesTheRest) {
  const auto result =
      Pdu({"decode", "00G4", "00040", "", "00 4", DeliverPdu{}.ToHex(), "\xC3\x9F"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "corvane: PDU 1: character 3 is not a hexadecimal digit\n"
            "corvane: PDU 2: it has 5 digits, an odd number; two make an octet\n"
            "corvane: PDU 3: it is empty\n"
            "corvane: PDU 4: character 3 is not a hexadecimal digit\n"
            "corvane: PDU 6: character 1 is not a hexadecimal digit\n");
  EXPECT_THAT(result.out, HasSubstr("Text      Hello\n"));
}

TEST(PduDecode, WithNothingOnStandardInputSaysSo) {
  for (const std::string input : {"", "\\n", "  \\r\\n"}) {
    const auto result = DecodeInput(input);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "corvane: there is no PDU on standard input (try corvane pdu decode HEX)\n");
  }
}

TEST(PduDecode, SurvivesAVeryLongPdu) {
  const std::string hex = DeliverPdu{}.ToHex() + std::string(100'000, '0');
  EXPECT_EQ(Pdu({"decode", "--json", hex}).status, 0);
}

TEST(PduEncode, PrintsThePdu) {
  const auto result = Pdu({"encode", "--to", "15550101234", "Hello"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "0001000B915155101032F4000005C8329BFD06\n");
  EXPECT_EQ(result.err, "");
}

TEST(PduEncode, PrintsThePdusOfALongTextOnePerLine) {
  std::string text;
  for (int i = 0; i < 71; ++i) text += "\xD0\x96";
  const auto result = Pdu({"encode", "--to", "1", text});
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
  EXPECT_THAT(result.out, HasSubstr("050003000201"));
  EXPECT_THAT(result.out, HasSubstr("050003000202"));
}

TEST(PduEncode, JsonHoldsTheLengthsThatAreAnnounced) {
  const auto result = Pdu({"encode", "--json", "--to", "15550101234", "Hello"});
  EXPECT_EQ(json::parse(result.out),
            (json{{"status", 0},
                  {"pdus", json::array({"0001000B915155101032F4000005C8329BFD06"})},
                  {"lengths", json::array({18})},
                  {"ref", 0}}));
}

TEST(PduEncode, OfAnEmptyTextPrintsNoPduAndSaysSo) {
  const auto result = Pdu({"encode", "--to", "1", ""});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "corvane: note: an empty text has no PDU; SEND_SMS sends nothing\n");
}

TEST(PduEncode, OfATextThatCannotBeEncodedSaysWhy) {
  for (const std::string& text : {std::string("\xFF"), std::string(2000, 'x')}) {
    const auto result = Pdu({"encode", "--to", "1", text, "--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "corvane: the text is not valid UTF-8, or has 2000 or more UTF-16 code units (code "
              "11)\n");
    EXPECT_EQ(json::parse(result.out)["status"], 11);
    EXPECT_EQ(json::parse(result.out)["pdus"].size(), 0u);
  }
}

TEST(PduEncode, ToAnEmptyNumberSaysSo) {
  const auto result = Pdu({"encode", "--to", "", "Hello"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "corvane: the receiver's number is empty (code 12)\n");
}

TEST(PduEncode, ToANumberThatSendSmsRefusesPrintsNoPdu) {
  const auto result = Pdu({"encode", "--to", std::string(1100, '1'), "Hello"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "corvane: the receiver's number is too long (code 12)\n");
  const auto as_json = Pdu({"encode", "--json", "--to", std::string(1100, '1'), "Hello"});
  EXPECT_EQ(json::parse(as_json.out)["status"], 12);
  EXPECT_EQ(json::parse(as_json.out)["pdus"].size(), 0u);
}

TEST(PduEncode, WarnsAboutANumberWithOtherCharactersThanDigits) {
  const auto result = Pdu({"encode", "--to", "+4917112345", "Hello"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("has digits only; the other characters in '+4917112345'"));
  EXPECT_THAT(result.out, testing::StartsWith("0001000B91"));
}

TEST(PduCommand, WithoutFurtherWordsIsWrongUsage) {
  for (const auto& words : std::vector<std::vector<std::string>>{
           {}, {"encode"}, {"encode", "Hello"}, {"recode"}, {"decode", "--xml"}}) {
    const auto result = Pdu(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, testing::StartsWith("corvane: "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
}

TEST(PduCommand, HelpNamesBothDirections) {
  const auto result = Pdu({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("decode"));
  EXPECT_THAT(result.out, HasSubstr("encode"));
  EXPECT_THAT(result.out, HasSubstr("Example: corvane pdu encode --to 15550101234"));
}

}  // namespace
