// SPDX-License-Identifier: MIT
// corvane check-modem: whether messages can be sent with a modem, and what to do if not.
#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "libs/base/printable.h"
#include "libs/gsm/receivers.h"
#include "runtime/cli/at_console.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/modem_check/modem_check.h"

namespace corvane::cli {
namespace {

using modem_check::Finding;
using modem_check::Grade;

struct CheckModemOptions {
  ModemTarget target;
  std::string receiver;
  bool json = false;
  bool console = false;
};

/// Throws CLI::ValidationError for a target that cannot be a modem.
ModemTarget ReadTarget(const std::string& text) {
  try {
    return ParseModemTarget("1=" + text);  // the number is for blocks only
  } catch (const ModemTargetError& error) {
    throw CLI::ValidationError("DEVICE", error.what());
  }
}

std::string ReadReceiver(const std::string& text) {
  const gsm::Receivers read = gsm::ReadReceivers(text);
  if (read.problem.empty() && read.numbers.size() == 1) return read.numbers.front();
  throw CLI::ValidationError(
      "--send", fmt::format("'{}' is not a telephone number; write digits, after a + if the number "
                            "begins with a country code",
                            text));
}

std::string_view NameOf(Grade grade) {
  switch (grade) {
    case Grade::kOk: return "ok";
    case Grade::kWarning: return "warning";
    case Grade::kError: return "error";
  }
  return {};
}

void PrintFinding(const Finding& finding) {
  const std::string advice = finding.advice.empty() ? "" : "; " + finding.advice;
  fmt::print("{:<9}{:<16}{}\n", NameOf(finding.grade), finding.topic,
             Printable(finding.text + advice));
  std::fflush(stdout);  // each as soon as it is known
}

nlohmann::ordered_json JsonOf(const Finding& finding) {
  nlohmann::ordered_json object{
      {"topic", finding.topic}, {"status", NameOf(finding.grade)}, {"text", finding.text}};
  if (!finding.advice.empty()) object["advice"] = finding.advice;
  if (!finding.values.empty()) object["values"] = finding.values;
  return object;
}

int CheckAndPrint(const CheckModemOptions& options, const modem_check::CheckOptions& check) {
  std::string wrong;  // topics
  const bool can_send = CheckModem(options.target, check, [&wrong](const Finding& finding) {
    PrintFinding(finding);
    if (finding.grade == Grade::kError) wrong += (wrong.empty() ? "" : ", ") + finding.topic;
  });
  if (can_send) {
    fmt::print("Messages can be sent.\n");
  } else {
    fmt::print("Messages cannot be sent: {}.\n", wrong);
  }
  return can_send ? kSuccess : kProgramFailed;
}

int CheckAsJson(const CheckModemOptions& options, const modem_check::CheckOptions& check) {
  nlohmann::ordered_json findings = nlohmann::ordered_json::array();
  const bool can_send = CheckModem(
      options.target, check, [&findings](const Finding& f) { findings.push_back(JsonOf(f)); });
  const nlohmann::ordered_json all{
      {"device", options.target.Name()}, {"can_send", can_send}, {"findings", findings}};
  // A modem may send octets that are not UTF-8.
  fmt::print("{}\n", all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
  return can_send ? kSuccess : kProgramFailed;
}

int Console(const CheckModemOptions& options) {
  WaitLoop loop;
  modem_check::ModemTalk talk(options.target, loop);
  if (!FindModem(talk, PrintFinding)) return kProgramFailed;
  try {
    static_cast<void>(talk.Ask("ATE0"));
  } catch (const modem_check::TalkEnded& ended) {
    PrintFinding({Grade::kError, "line", ended.what()});
    return kProgramFailed;
  }
  fmt::print("Type AT commands; quit or Ctrl-D leaves. PINs are neither shown nor kept.\n");
  const std::string loss = RunAtConsole(talk.Borrow());
  if (loss.empty()) return kSuccess;
  PrintFinding({Grade::kError, "line", options.target.Name() + " was lost: " + loss});
  return kProgramFailed;
}

int Check(const CheckModemOptions& options) {
  SetUpLog("error");
  if (options.console) return Console(options);
  modem_check::CheckOptions check;
  check.receiver = options.receiver;
  return options.json ? CheckAsJson(options, check) : CheckAndPrint(options, check);
}

}  // namespace

void AddCheckModemCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<CheckModemOptions>();
  CLI::App* command =
      app.add_subcommand("check-modem", "Find out whether messages can be sent with a modem");
  command
      ->add_option(
          "DEVICE",
          [options](const std::vector<std::string>& words) {
            options->target = ReadTarget(words.back());
            return true;
          },
          "Device or tcp:HOST:PORT, with the settings that corvane run --modem gets")
      ->required();
  CLI::Option* const send = command->add_option(
      "--send",
      [options](const std::vector<std::string>& words) {
        options->receiver = ReadReceiver(words.back());
        return true;
      },
      "Also send a test message to this number");
  CLI::Option* const json = command->add_flag("--json", options->json, "Machine-readable");
  command->add_flag("--console", options->console, "Talk to the modem instead of checking it")
      ->excludes(send)
      ->excludes(json);
  command->footer(
      "Example: corvane check-modem /dev/ttyUSB2,baud=115200 --send +15550101234\n\n"
      "One line for each thing that sending needs: ok, warning or error, and what to do.\n"
      "Stop the program that uses the modem first. Exit status: 0 when messages can be sent;\n"
      "1 when they cannot; 2 for wrong usage.");
  command->callback([options, &action] { action = [options] { return Check(*options); }; });
}

}  // namespace corvane::cli
