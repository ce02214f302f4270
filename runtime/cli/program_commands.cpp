// SPDX-License-Identifier: MIT
// corvane list, watch, log-level: programs that run as other processes, over their Unix sockets.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libs/base/printable.h"
#include "runtime/bench/client/bench_client.h"
#include "runtime/bench/client/health_request.h"
#include "runtime/bench/client/program_choice.h"
#include "runtime/bench/client/running_programs.h"
#include "runtime/bench/server/json_text.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/remote_watch.h"
#include "runtime/cli/watch_terminal.h"
#include "runtime/corvane/duration.h"

namespace corvane::cli {
namespace {

using bench::BenchClient;
using bench::ClientError;
using bench::FoundPrograms;
using bench::RunningProgram;
using nlohmann::json;
using nlohmann::ordered_json;

constexpr std::size_t kColumns = 8;
using Row = std::array<std::string, kColumns>;

/// What a program says about itself.
struct ProgramReport {
  RunningProgram program;
  json hello;         ///< null: it has not answered
  std::string state;  ///< "ok", or what is wrong
};

ProgramReport ReportOf(const RunningProgram& program) {
  ProgramReport report{program, {}, {}};
  try {
    BenchClient client(program.socket);
    report.hello = client.Expect("hello", BenchClient::kPatience);
    report.state = bench::AskHealth(program.socket, BenchClient::kPatience);
  } catch (const std::exception& error) {
    report.state = error.what();
  }
  return report;
}

/// All at once: several that do not answer take no longer than one.
std::vector<ProgramReport> ReportsOf(const std::vector<RunningProgram>& programs) {
  std::vector<std::future<ProgramReport>> waiting;
  waiting.reserve(programs.size());
  for (const RunningProgram& program : programs) {
    waiting.push_back(std::async(std::launch::async, ReportOf, program));
  }
  std::vector<ProgramReport> reports;
  reports.reserve(waiting.size());
  for (auto& report : waiting) reports.push_back(report.get());
  return reports;
}

std::string UserName(uid_t user) {
  const passwd* const entry = getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

/// The number, or nothing if it is missing or cannot be one of these.
std::optional<double> Number(const json& hello, const char* name, double highest) {
  const json number = hello.is_object() ? hello.value(name, json()) : json();
  if (!number.is_number()) return std::nullopt;
  const auto value = number.get<double>();
  return value >= 0 && value <= highest ? std::optional(value) : std::nullopt;
}

std::optional<double> StartOf(const json& hello) {
  constexpr double kEndOfYear9999 = 253402300799.0;
  return Number(hello, "started", kEndOfYear9999);
}

std::string StartText(const json& hello) {
  const auto started = StartOf(hello);
  if (!started) return "-";
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(static_cast<std::time_t>(*started)));
}

std::string PeriodText(const json& hello) {
  constexpr double kYear = 366.0 * 86400;
  const auto period = Number(hello, "cycle", kYear);
  if (!period) return "-";
  if (*period == 0) return "0";
  return FormatDuration(
      std::chrono::duration_cast<Nanoseconds>(std::chrono::duration<double>(*period)));
}

std::string PageOf(const json& hello) {
  const json page = hello.is_object() ? hello.value("page", json()) : json();
  return page.is_string() ? page.get<std::string>() : "";
}

Row RowOf(const ProgramReport& report) {
  const RunningProgram& program = report.program;
  const std::string page = PageOf(report.hello);
  return {program.name,
          program.pid > 0 ? std::to_string(program.pid) : "-",
          UserName(program.user),
          StartText(report.hello),
          PeriodText(report.hello),
          program.socket.string(),
          page.empty() ? "-" : page,
          report.state};
}

void PrintTable(std::vector<Row> rows) {
  std::array<std::size_t, kColumns> widths{};
  for (Row& row : rows) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      row.at(i) = PrintableMessage(row.at(i));
      widths.at(i) = std::max(widths.at(i), row.at(i).size());
    }
  }
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i + 1 < kColumns; ++i) {
      line += fmt::format("{:<{}}  ", row.at(i), widths.at(i));
    }
    fmt::print("{}{}\n", line, row.back());
  }
}

ordered_json JsonOf(const ProgramReport& report) {
  const RunningProgram& program = report.program;
  constexpr double kYear = 366.0 * 86400;
  const auto started = StartOf(report.hello);
  const auto cycle = Number(report.hello, "cycle", kYear);
  const std::string page = PageOf(report.hello);
  return {{"name", program.name},
          {"pid", program.pid > 0 ? ordered_json(program.pid) : ordered_json()},
          {"user", UserName(program.user)},
          {"started", started ? ordered_json(*started) : ordered_json()},
          {"cycle", cycle ? ordered_json(*cycle) : ordered_json()},
          {"socket", program.socket.string()},
          {"page", page.empty() ? ordered_json() : ordered_json(Printable(page))},
          {"healthy", report.state == "ok"},
          {"state", report.state}};
}

FoundPrograms Find() {
  return bench::FindPrograms(bench::SocketPlaces::OfThisProcess());
}

int List(bool as_json) {
  const FoundPrograms found = Find();
  for (const std::string& problem : found.problems) PrintError(problem);
  const auto reports = ReportsOf(found.programs);
  if (as_json) {
    for (const auto& report : reports) fmt::print("{}\n", bench::JsonText(JsonOf(report)));
    return kSuccess;
  }
  if (reports.empty()) {
    fmt::print("No program runs.\n");
    return kSuccess;
  }
  std::vector<Row> rows{{"NAME", "PID", "USER", "SINCE", "CYCLE", "SOCKET", "PAGE", "STATE"}};
  std::ranges::transform(reports, std::back_inserter(rows), RowOf);
  PrintTable(std::move(rows));
  return kSuccess;
}

/// Does the work with the program that `name` names.
int WithProgram(const std::string& name, const std::function<void(const RunningProgram&)>& work) {
  try {
    const RunningProgram program = bench::ChooseProgram(Find(), name);
    try {
      work(program);
    } catch (const ClientError& error) {
      PrintError(fmt::format("{}: {}", program.socket.string(), error.what()));
      return kProgramFailed;
    }
  } catch (const bench::ChoiceError& error) {
    PrintError(error.what());
    return kUsage;
  }
  return kSuccess;
}

int Watch(const std::string& name, bool once) {
  if (once) return WithProgram(name, PrintRemotely);
  if (const std::string problem = TerminalProblem("corvane watch"); !problem.empty()) {
    PrintError(problem + "; --once prints one picture");
    return kUsage;
  }
  return WithProgram(name, [&name](const auto& program) { WatchRemotely(program, name); });
}

int SetLogLevel(const std::string& name, const std::string& level) {
  return WithProgram(name, [&level](const RunningProgram& program) {
    BenchClient client(program.socket);
    const std::string refusal =
        client.Ask({{"type", "log-level"}, {"level", level}}, BenchClient::kPatience);
    if (!refusal.empty()) throw ClientError(refusal);
    fmt::print("{} logs from {} on\n", PrintableMessage(program.name), level);
  });
}

}  // namespace

void AddListCommand(CLI::App& app, Action& action) {
  auto as_json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("list", "List the programs that run");
  command->add_flag("--json", *as_json, "Machine-readable, one object per program");
  command->footer(
      "It shows the programs of this user and, as far as this user may connect to them, the\n"
      "services; for root those of every user. See docs/bench.md.");
  command->callback([as_json, &action] { action = [as_json] { return List(*as_json); }; });
}

void AddWatchCommand(CLI::App& app, Action& action) {
  struct WatchOptions {
    std::string name;
    bool once = false;
  };
  auto options = std::make_shared<WatchOptions>();
  CLI::App* command = app.add_subcommand("watch", "Watch a running program in the terminal");
  command->add_option("NAME", options->name,
                      "Name of the program, or the path of its socket, with a slash; needed if\n"
                      "several run");
  command->add_flag("--once", options->once, "Print one picture; needs no terminal");
  command->footer(
      "Example: corvane watch pump\n\n"
      "Keys: arrows, PgUp, PgDn, Home and End move, / filters, p pauses the display, ? lists the\n"
      "keys, q leaves. The program runs on. The view stays while the program is restarted.\n"
      "Exit status: 0; 1 when the program does not answer; 2 when no such program runs.");
  command->callback(
      [options, &action] { action = [options] { return Watch(options->name, options->once); }; });
}

void AddLogLevelCommand(CLI::App& app, Action& action) {
  struct LevelOptions {
    std::string name;
    std::string level;
  };
  auto options = std::make_shared<LevelOptions>();
  CLI::App* command = app.add_subcommand("log-level", "Change what a running program logs");
  command->add_option("NAME", options->name, "Name of the program, or the path of its socket")
      ->required();
  command->add_option("LEVEL", options->level, "Lowest level that is logged from now on")
      ->required()
      ->check(LogLevel());
  command->footer(
      "Example: corvane log-level pump debug\n\n"
      "It lasts until the program ends. Exit status: 0; 1 when the program does not answer or\n"
      "refuses; 2 when no such program runs, or for another level.");
  command->callback([options, &action] {
    action = [options] { return SetLogLevel(options->name, options->level); };
  });
}

}  // namespace corvane::cli
