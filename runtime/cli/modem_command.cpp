// SPDX-License-Identifier: MIT
// corvane modem: a GSM modem in software, with a console.
#include <fmt/format.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "libs/gsm/time_stamp.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/text_file.h"
#include "runtime/corvane/duration.h"
#include "runtime/modem_simulator/console.h"
#include "runtime/modem_simulator/line_reader.h"
#include "runtime/modem_simulator/simulator.h"

namespace corvane::cli {
namespace {

using modem_simulator::ConsoleLine;
using modem_simulator::Simulator;

struct ModemCommandOptions {
  std::string link;
  std::string tcp;
  std::string pin;
  int store_size = 20;
  std::map<std::string_view, std::string> delays;  // by name in the table
  int baud_rate = 0;
  std::vector<std::string> quirks;
  unsigned seed = 1;
  std::string time;
  std::string scenario;
  bool trace = false;
};

std::string CheckTime(const std::string& text) {
  if (gsm::ParseTimeStamp(text)) return {};
  return fmt::format("'{}' is not a time; write it as 2026-01-31T12:00:00+01:00", text);
}

std::string CheckQuirk(const std::string& name) {
  if (modem_simulator::FindQuirk(name)) return {};
  return fmt::format("'{}' is not a quirk; --help lists them", name);
}

modem_simulator::SimulatorOptions MakeOptions(const ModemCommandOptions& options) {
  modem_simulator::SimulatorOptions made;
  made.modem.pin = options.pin;
  made.modem.store_size = options.store_size;
  for (const auto& row : modem_simulator::DelayTable()) {
    made.modem.delays.*row.field = *ParseDuration(options.delays.at(row.name));
  }
  for (const std::string& name : options.quirks) {
    made.modem.quirks.Add(*modem_simulator::FindQuirk(name));
  }
  made.link = options.link;
  made.tcp = options.tcp;
  // A modem only on TCP needs no terminal.
  made.pseudo_terminal = options.tcp.empty() || !options.link.empty();
  made.baud_rate = options.baud_rate;
  made.seed = options.seed;
  if (!options.time.empty()) made.time = gsm::ParseTimeStamp(options.time);
  return made;
}

/// The scenario's actions, in order. Throws std::runtime_error that names the line at fault.
std::vector<modem_simulator::Controls::Action> LoadScenario(const std::string& path) {
  std::vector<modem_simulator::Controls::Action> actions;
  int number = 0;
  for (const std::string& text : ReadLines("scenario", path)) {
    ++number;
    ConsoleLine line = modem_simulator::ParseConsoleLine(text);
    if (!line.error.empty()) {
      throw std::runtime_error(fmt::format("{}:{}: {}", path, number, line.error));
    }
    if (line.action) actions.push_back(std::move(line.action));
  }
  return actions;
}

void ConsoleInput(Simulator& simulator, const std::string& text) {
  const ConsoleLine line = modem_simulator::ParseConsoleLine(text);
  if (!line.error.empty()) simulator.Print("error: " + PrintableMessage(line.error));
  if (line.action) simulator.Do(line.action);
}

modem_simulator::LineReader::Callbacks ConsoleOf(Simulator& simulator,
                                                 const modem_simulator::LineWriter& output) {
  return {[&simulator](const std::string& text) { ConsoleInput(simulator, text); },
          [&simulator] { simulator.Print("error: a line is longer than 1 MiB"); },
          [&output] { return output.HasRoom(); }};
}

/// Runs until quit or a signal. False: it ended because output could not be written.
bool RunModem(const ModemCommandOptions& options) {
  std::vector<modem_simulator::Controls::Action> scenario;
  if (!options.scenario.empty()) scenario = LoadScenario(options.scenario);
  boost::asio::io_context io;
  boost::asio::signal_set signals(io, SIGINT, SIGTERM, SIGHUP);
  signals.async_wait([&io](const auto&, int) { io.stop(); });
  modem_simulator::LineWriter output(STDOUT_FILENO, [&io] { io.stop(); });
  Simulator simulator(io, MakeOptions(options), output);
  simulator.Start();
  for (const auto& action : scenario) simulator.Do(action);
  std::unique_ptr<modem_simulator::LineReader> console;
  if (options.scenario.empty()) {
    console = std::make_unique<modem_simulator::LineReader>(io, STDIN_FILENO,
                                                            ConsoleOf(simulator, output));
  }
  io.run();
  return !output.failed();
}

int Modem(const ModemCommandOptions& options) {
  std::signal(SIGTTIN, SIG_IGN);  // in the background of a terminal, only the console ends
  SetUpLog(options.trace ? "trace" : "warning");
  try {
    if (RunModem(options)) return kSuccess;
  } catch (const std::runtime_error& error) {
    PrintError(error.what());
    return kUsage;
  }
  PrintError("standard output could not be written in full");
  return kProgramFailed;
}

std::string Footer() {
  std::string quirks;
  for (const auto& row : modem_simulator::QuirkTable()) {
    quirks += fmt::format("  {:<29}{}\n", row.name, row.meaning);
  }
  return fmt::format(
      "Example: corvane modem --link /tmp/modem\n"
      "Then, on the console: receive +4915112345678 Pump 3 has stopped\n\n"
      "It prints a line that begins with `ready` when the modem can be opened, and then a line\n"
      "for each message. Without --link and --tcp, the ready line names the terminal. The end of\n"
      "standard input ends the console, not the modem; quit, SIGINT and SIGTERM end both.\n\n"
      "Console and scenario:\n{}\n\nTIME is 500ms, 2s, 1min; TEXT may contain \\r \\n \\t "
      "\\\\ \\xNN.\n\n"
      "Quirks:\n{}",
      modem_simulator::ConsoleHelp(), quirks);
}

}  // namespace

void AddModemCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<ModemCommandOptions>();
  CLI::App* command = app.add_subcommand("modem", "Simulate a GSM modem on a serial line");
  command->add_option("--link", options->link, "Name for the pseudo-terminal: a symbolic link")
      ->check(CheckNotEmpty);
  command->add_option("--tcp", options->tcp, "HOST:PORT to listen on; port 0 means any free one")
      ->check(CheckNotEmpty);
  command->add_option("--pin", options->pin, "PIN that the SIM card asks for")
      ->check([](const std::string& pin) {
        const bool digits = pin.find_first_not_of("0123456789") == std::string::npos;
        return digits && pin.size() >= 4 && pin.size() <= 8 ? "" : "a PIN has 4 to 8 digits";
      });
  command
      ->add_option("--store-size", options->store_size,
                   "Number of messages that the store holds, 1 to 10000")
      ->check(WholeNumber(1, 10000))
      ->capture_default_str();
  for (const auto& row : modem_simulator::DelayTable()) {
    std::string& delay = options->delays[row.name] = "0";
    command
        ->add_option(fmt::format("--{}-delay", row.name), delay,
                     fmt::format("Time for {}", row.meaning))
        ->check(CheckDuration)
        ->capture_default_str();
  }
  command->add_option("--baud", options->baud_rate, "Answer no faster than this; 0: no limit")
      ->check(OneOf({"0", "1200", "2400", "4800", "9600", "19200", "38400", "57600", "115200",
                     "230400", "460800", "921600"}))
      ->capture_default_str();
  command->add_option("--quirk", options->quirks, "Imitate an oddity of some modems; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CheckQuirk);
  command->add_option("--seed", options->seed, "Seed for the random bytes")
      ->check(WholeNumber(0, std::numeric_limits<unsigned>::max()))
      ->capture_default_str();
  command->add_option("--time", options->time, "Stop the service centre's clock at this time")
      ->check(CheckTime);
  command->add_option("--scenario", options->scenario, "Read the console's commands from a file")
      ->check(CheckNotEmpty);
  command->add_flag("--trace", options->trace, "Log every byte with its time");
  command->footer(Footer());
  command->callback([options, &action] { action = [options] { return Modem(*options); }; });
}

}  // namespace corvane::cli
