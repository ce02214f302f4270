// SPDX-License-Identifier: MIT
// corvane pdu: what READ_SMS makes of a PDU, compared with the standard, and what SEND_SMS makes of
// a text.
#include <fmt/format.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "addins/corvane_fb_lib/driver_reply.h"
#include "addins/corvane_fb_lib/sms_delivered.h"
#include "addins/corvane_fb_lib/sms_submit.h"
#include "libs/base/printable.h"
#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/pdu.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/pdu_input.h"
#include "runtime/cli/standard_reading.h"

namespace corvane::cli {
namespace {

/// Empty when `hex` consists of octets, else what is wrong with it.
std::string CheckHex(std::string_view hex) {
  if (hex.empty()) return "it is empty";
  const std::size_t wrong = hex.find_first_not_of(kHexDigits);
  if (wrong != hex.npos) return fmt::format("character {} is not a hexadecimal digit", wrong + 1);
  if (hex.size() % 2 != 0) {
    return fmt::format("it has {} digits, an odd number; two make an octet", hex.size());
  }
  return {};
}

/// A PDU and everything that is shown about it.
struct DecodedPdu {
  /// `octets` are cut to the length that the header announces, as the modem port driver does.
  DecodedPdu(const GivenPdu& given_pdu, std::vector<unsigned char> all_octets)
      : given(given_pdu), octets(std::move(all_octets)), length(gsm::TpduLength(octets)) {
    if (given.announced && *given.announced < length) {
      octets.resize(octets.size() - (length - *given.announced));
    }
    message.decode(octets);
    standard = ReadByStandard(octets);
    differences = Differences(message, standard);
    if (message.status != 0 || !differences.empty()) causes = Causes(octets);
  }
  [[nodiscard]] bool IsReadOtherwise() const {
    return message.status != 0 || !differences.empty() || !standard.problem.empty();
  }

  const GivenPdu& given;
  std::vector<unsigned char> octets;
  std::size_t length;  // octets as given, without the service centre
  sms::SMSDelivered message{0};
  StandardReading standard;
  std::vector<std::string> differences;
  std::vector<std::string> causes;
};

void PrintHeader(const DecodedPdu& pdu) {
  if (pdu.given.header.empty()) return;
  fmt::print("Header    {}\n", Printable(pdu.given.header));
  const std::size_t announced = pdu.given.announced.value_or(pdu.length);
  if (announced == pdu.length) return;
  fmt::print("Length    {} octets are announced, {} were given: {}\n", announced, pdu.length,
             announced < pdu.length ? "the rest is left out" : "the PDU was cut off");
}

void PrintStandard(const DecodedPdu& pdu) {
  if (!pdu.IsReadOtherwise()) return;
  for (const std::string& cause : pdu.causes) fmt::print("Reason    {}\n", cause);
  const char* label = "Standard  ";
  if (!pdu.standard.problem.empty()) {
    fmt::print("{}cannot be read either: {}\n", label, pdu.standard.problem);
  } else if (pdu.standard.kind != "message") {
    fmt::print("{}{}\n", std::exchange(label, "          "), pdu.standard.kind);
  }
  for (const std::string& line : pdu.differences) {
    fmt::print("{}{}\n", std::exchange(label, "          "), line);
  }
}

void PrintText(const sms::SMSDelivered& message) {
  const bool rejected = message.status != 0;
  if (!message.number.empty()) fmt::print("Number    {}\n", Printable(message.number));
  if (const auto time = IsoTime(message.time)) fmt::print("Time      {}\n", *time);
  if (message.total != 0 || message.seq != 0) {
    fmt::print("Part      {} of {}, reference {}\n", message.seq, message.total, message.ref);
  }
  if (rejected && message.text.empty()) {
    fmt::print("Rejected  The service-centre address has a length above 127.\n");
  } else {
    fmt::print("{}{}\n", rejected ? "Rejected  " : "Text      ", Printable(message.text));
  }
}

/// Empty texts are null.
nlohmann::ordered_json OrNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

nlohmann::ordered_json JsonOf(const StandardReading& standard) {
  const auto& part = standard.part;
  return {{"kind", standard.kind},
          {"problem", OrNull(standard.problem)},
          {"number", OrNull(standard.number)},
          {"time", OrNull(standard.time)},
          {"ref", part ? part->reference : 0},
          {"total", part ? part->total : 0},
          {"seq", part ? part->sequence : 0},
          {"text", standard.text}};
}

void PrintJson(const DecodedPdu& pdu) {
  const sms::SMSDelivered& message = pdu.message;
  const auto time = IsoTime(message.time);
  nlohmann::ordered_json object = {
      {"status", message.status},
      {"number", message.number},
      {"time", time ? nlohmann::ordered_json(*time) : nlohmann::ordered_json()},
      {"file_time", message.time},
      {"ref", message.ref},
      {"total", message.total},
      {"seq", message.seq},
      {"text", message.text}};
  if (!pdu.given.header.empty()) {
    object["header"] = pdu.given.header;
    object["length"] = pdu.length;
  }
  if (pdu.IsReadOtherwise()) {
    object["standard"] = JsonOf(pdu.standard);
    object["causes"] = pdu.causes;
  }
  fmt::print("{}\n", object.dump());
}

/// Decodes and prints PDUs one after another.
class Decoding {
 public:
  explicit Decoding(bool json) : json_(json) {}

  void Add(const std::vector<GivenPdu>& pdus) {
    for (const GivenPdu& pdu : pdus) Add(pdu);
  }
  void Add(const GivenPdu& given) {
    ++count_;
    if (const std::string wrong = CheckHex(given.hex); !wrong.empty()) {
      PrintError(fmt::format("PDU {}: {}", count_, wrong));
      status_ = kUsage;
      return;
    }
    const DecodedPdu pdu(given, gsm::FromHexadecimal(given.hex).value());
    if (pdu.message.status != 0 && status_ == kSuccess) status_ = kProgramFailed;
    if (json_) return PrintJson(pdu);
    if (count_ > 1) fmt::print("\n");
    PrintHeader(pdu);
    PrintText(pdu.message);
    PrintStandard(pdu);
  }
  /// At the end of the input.
  void Finish(const PduInput& input) {
    if (!input.waiting().empty()) {
      PrintError(fmt::format("the header '{}' has no PDU after it", input.waiting()));
      status_ = kUsage;
    } else if (count_ == 0) {
      PrintError("there is no PDU on standard input (try corvane pdu decode HEX)");
      status_ = kUsage;
    }
  }
  [[nodiscard]] int status() const { return status_; }

 private:
  bool json_;
  int count_ = 0;
  int status_ = kSuccess;
};

int Decode(const std::vector<std::string>& words, bool json) {
  SetUpLog("warning");
  Decoding decoding(json);
  PduInput input;
  for (const std::string& line : LinesOf(words)) {
    input.Add(line);
    decoding.Add(input.Take());
    if (line.empty()) decoding.Add(GivenPdu{});
  }
  // After a header alone on the command line, its PDU is pasted next.
  const bool read = words.empty() || !input.waiting().empty();
  for (std::string line; read && std::getline(std::cin, line);) {
    input.Add(line);
    decoding.Add(input.Take());
  }
  decoding.Finish(input);
  return decoding.status();
}

/// Why SEND_SMS does not send it.
const char* Refusal(int status, const std::string& number) {
  if (status != kNoReceiver) {
    return "the text is not valid UTF-8, or has 2000 or more UTF-16 code units";
  }
  return number.empty() ? "the receiver's number is empty" : "the receiver's number is too long";
}

int Encode(const std::string& text, const std::string& number, bool json) {
  SetUpLog("warning");
  if (number.find_first_not_of("0123456789") != number.npos) {
    PrintError(
        fmt::format("note: a number for SEND_SMS has digits only; the other characters in '{}' "
                    "make it another number",
                    number));
  }
  if (text.empty()) {
    PrintError("note: an empty text has no PDU; SEND_SMS sends nothing");
  }
  sms::SMSSubmit message;
  int status = message.encode(text, number);
  if (status == 0 && !sms::FitsInTpdus(message)) {
    status = kNoReceiver;
    message.pdus.clear();
  }
  nlohmann::ordered_json object = {{"status", status},
                                   {"pdus", nlohmann::ordered_json::array()},
                                   {"lengths", nlohmann::ordered_json::array()},
                                   {"ref", message._refNumber}};
  for (const std::vector<unsigned char>& pdu : message.pdus) {
    const std::string hex = gsm::ToHexadecimal(pdu);
    object["pdus"].push_back(hex);
    object["lengths"].push_back(pdu.size() - 1);  // without the service-centre octet
    if (!json) fmt::print("{}\n", hex);
  }
  if (json) fmt::print("{}\n", object.dump());
  if (status == 0) return kSuccess;
  PrintError(fmt::format("{} (code {})", Refusal(status, number), status));
  return kProgramFailed;
}

void AddDecodeCommand(CLI::App& pdu, Action& action) {
  struct Options {
    std::vector<std::string> pdus;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = pdu.add_subcommand("decode", "Show what READ_SMS makes of received PDUs");
  command->add_option(
      "HEX", options->pdus,
      "PDUs in hexadecimal, possibly with the header lines of a modem's list; without "
      "any, they are read from standard input, one per line");
  command->add_flag("--json", options->json, "Machine-readable, one object per PDU");
  command->footer(
      "Example: corvane pdu decode "
      "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07\n\n"
      "A rejected PDU is one that READ_SMS deletes from the modem without delivering it. Where "
      "the\n"
      "standard reads a PDU differently, that reading is shown, too, with the reason.\n"
      "Exit status: 0; 1 when a PDU is rejected; 2 for wrong usage.");
  command->callback(
      [options, &action] { action = [options] { return Decode(options->pdus, options->json); }; });
}

void AddEncodeCommand(CLI::App& pdu, Action& action) {
  struct Options {
    std::string number;
    std::string text;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = pdu.add_subcommand("encode", "Show the PDUs that SEND_SMS sends");
  command->add_option("--to", options->number, "Receiver's number, digits only")->required();
  command->add_option("TEXT", options->text, "Text of the message")->required();
  command->add_flag("--json", options->json, "Machine-readable, with the lengths for AT+CMGS");
  command->footer(
      "Example: corvane pdu encode --to 15550101234 \"Boiler 2: pressure low\"\n\n"
      "An empty text has no PDU. Exit status: 0; 1 when the text cannot be encoded; 2 for wrong\n"
      "usage.");
  command->callback([options, &action] {
    action = [options] { return Encode(options->text, options->number, options->json); };
  });
}

}  // namespace

void AddPduCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("pdu", "Decode and encode SMS PDUs");
  command->require_subcommand(1);
  command->footer(
      "Example: corvane pdu encode --to 15550101234 \"Boiler 2: pressure low\"\n\n"
      "Each subcommand has its own --help.");
  AddDecodeCommand(*command, action);
  AddEncodeCommand(*command, action);
}

}  // namespace corvane::cli
