// SPDX-License-Identifier: MIT
// corvane pdu: what READ_SMS makes of a PDU, and what SEND_SMS makes of a text.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_fb_lib/driver_reply.h"
#include "addins/corvane_fb_lib/sms.h"
#include "addins/corvane_fb_lib/sms_delivered.h"
#include "addins/corvane_fb_lib/sms_submit.h"
#include "libs/base/printable.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/corvaneshare/date_time.h"

namespace corvane::cli {
namespace {

constexpr const char* kHexDigits = "0123456789ABCDEFabcdef";

/// Empty when `hex` is made of octets, else what is wrong with it.
std::string CheckHex(std::string_view hex) {
  if (hex.empty()) return "it is empty";
  const std::size_t wrong = hex.find_first_not_of(kHexDigits);
  if (wrong != hex.npos) return fmt::format("character {} is no hexadecimal digit", wrong + 1);
  if (hex.size() % 2 != 0) {
    return fmt::format("its number of digits, {}, is odd; two make an octet", hex.size());
  }
  return {};
}

std::vector<unsigned char> HexToOctets(std::string_view hex) {
  std::vector<unsigned char> octets(hex.size() / 2);
  sms::pdu_hex2bytes(reinterpret_cast<const unsigned char*>(hex.data()),
                     static_cast<unsigned>(hex.size()), octets.data());
  return octets;
}

std::string OctetsToHex(const std::vector<unsigned char>& octets) {
  std::string hex(2 * octets.size(), '\0');
  sms::TextToAscii(octets, hex.data());
  return hex;
}

/// A time as ISO 8601; nothing for the null time.
std::optional<std::string> IsoTime(std::int64_t file_time) {
  using namespace std::chrono;
  if (file_time == 0) return std::nullopt;
  const sys_seconds time{seconds{file_time / kTicksPerSecond - kUnixEpochSeconds}};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
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

void PrintJson(const sms::SMSDelivered& message) {
  const auto time = IsoTime(message.time);
  const nlohmann::ordered_json object = {
      {"status", message.status},
      {"number", message.number},
      {"time", time ? nlohmann::ordered_json(*time) : nlohmann::ordered_json()},
      {"file_time", message.time},
      {"ref", message.ref},
      {"total", message.total},
      {"seq", message.seq},
      {"text", message.text}};
  fmt::print("{}\n", object.dump());
}

/// Decodes and prints PDUs one after the other.
class Decoding {
 public:
  explicit Decoding(bool json) : json_(json) {}

  void Add(std::string_view hex) {
    ++count_;
    if (const std::string wrong = CheckHex(hex); !wrong.empty()) {
      PrintError(fmt::format("PDU {}: {}", count_, wrong));
      status_ = kUsage;
      return;
    }
    sms::SMSDelivered message(0);
    message.decode(HexToOctets(hex));
    if (message.status != 0 && status_ == kSuccess) status_ = kProgramFailed;
    if (!json_ && count_ > 1) fmt::print("\n");
    json_ ? PrintJson(message) : PrintText(message);
  }
  [[nodiscard]] int count() const { return count_; }
  [[nodiscard]] int status() const { return status_; }

 private:
  bool json_;
  int count_ = 0;
  int status_ = kSuccess;
};

int Decode(const std::vector<std::string>& pdus, bool json) {
  SetUpLog("warning");
  Decoding decoding(json);
  for (const std::string& hex : pdus) decoding.Add(hex);
  if (!pdus.empty()) return decoding.status();
  for (std::string line; std::getline(std::cin, line);) {
    constexpr const char* kBlanks = " \t\r";
    const std::size_t begin = line.find_first_not_of(kBlanks);
    if (begin == line.npos) continue;
    const std::size_t end = line.find_last_not_of(kBlanks) + 1;
    decoding.Add(std::string_view(line).substr(begin, end - begin));
  }
  if (decoding.count() == 0) {
    PrintError("there is no PDU on standard input (try corvane pdu decode HEX)");
    return kUsage;
  }
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
    PrintError(fmt::format(
        "note: SEND_SMS takes digits only for a number; what else stands in '{}' spoils it",
        number));
  }
  if (text.empty()) {
    PrintError("note: an empty text has no PDU; SEND_SMS sends nothing for it");
  }
  sms::SMSSubmit message;
  int status = message.encode(text, number);
  if (status == 0 && !sms::FitsInRequest(message)) {
    status = kNoReceiver;
    message.pdus.clear();
  }
  nlohmann::ordered_json object = {{"status", status},
                                   {"pdus", nlohmann::ordered_json::array()},
                                   {"lengths", nlohmann::ordered_json::array()},
                                   {"ref", message._refNumber}};
  for (const std::vector<unsigned char>& pdu : message.pdus) {
    const std::string hex = OctetsToHex(pdu);
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
  command->add_option("HEX", options->pdus,
                      "PDUs in hexadecimal; without any, one a line from standard input");
  command->add_flag("--json", options->json, "Machine-readable, one object a PDU");
  command->footer(
      "Example: corvane pdu decode "
      "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07\n\n"
      "A rejected PDU is one that READ_SMS deletes from the modem without delivering it.\n"
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
      "Each subcommand has a --help of its own.");
  AddDecodeCommand(*command, action);
  AddEncodeCommand(*command, action);
}

}  // namespace corvane::cli
