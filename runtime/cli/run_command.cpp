// SPDX-License-Identifier: MIT
// corvane run: one control program, cycle after cycle.
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "libs/base/printable.h"
#include "runtime/cli/addin_loading.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/config_file.h"
#include "runtime/cli/error_output.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/process_setup.h"
#include "runtime/cli/running_bench.h"
#include "runtime/cli/service_manager.h"
#include "runtime/cli/terminal_guard.h"
#include "runtime/cli/watch_terminal.h"
#include "runtime/cli/watch_view.h"
#include "runtime/corvane/control_program.h"
#include "runtime/corvane/cycle_watchdog.h"
#include "runtime/corvane/retain_store.h"
#include "runtime/corvane/scan.h"
#include "runtime/corvane/state_folder.h"
#include "runtime/modem_driver/modem_port_driver.h"

namespace corvane::cli {
namespace {

struct RunOptions {
  std::string program;
  std::vector<std::string> arguments;
  std::string period = "100ms";
  std::uint64_t cycles = 0;
  std::vector<std::string> modems;
  std::vector<std::string> addins;
  std::string watchdog;  ///< empty: what the service manager wants
  std::string log_level = "info";
  bool check = false;
  bool watch = false;
  BenchOptions bench;
};

/// Empty when `path` is a program that can be read, else what is wrong with it.
std::string CheckProgram(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    return "program '" + path + "' does not exist";
  }
  if (std::filesystem::is_directory(status))
    return "'" + path + "' is a folder, not a control program";
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file == nullptr) {
    return fmt::format("program {} cannot be read: {}", path,
                       std::generic_category().message(errno));
  }
  return {};
}

/// Whether `device` cannot be a serial line. A device that is missing, or cannot be opened now, may
/// be usable later: the ports wait for it. It is not opened to find out more, since that would
/// raise and drop the line's signals, which restarts some modems.
bool IsNotASerialDevice(const std::string& device) {
  struct stat status {};
  if (stat(device.c_str(), &status) != 0) return false;
  constexpr unsigned kMemoryDevices = 1;  // null, zero, random ..., on every Linux
  return !S_ISCHR(status.st_mode) || major(status.st_rdev) == kMemoryDevices;
}

/// Throws CLI::ValidationError for a target that cannot be a modem.
void CheckModems(const std::vector<std::string>& modems) {
  try {
    for (const ModemTarget& target : ParseModemTargets(modems)) {
      if (IsNotASerialDevice(target.device)) {
        throw ModemTargetError(target.device +
                               " is not a serial device; write a device such as /dev/ttyUSB0");
      }
    }
  } catch (const ModemTargetError& error) {
    throw CLI::ValidationError("--modem", error.what());
  }
}

/// Releases a lock while it lives, and takes it again however the scope ends.
class Unlocked {
 public:
  explicit Unlocked(std::unique_lock<ScanLock>& lock) : lock_(lock) { lock_.unlock(); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;
  ~Unlocked() { lock_.lock(); }

 private:
  std::unique_lock<ScanLock>& lock_;
};

void Load(ControlProgram& program, CycleWatchdog& watchdog) {
  const CycleWatchdog::Cycle file(watchdog, 0);
  program.Load();
}

/// Ends the process from the watchdog's thread: the program cannot be stopped. Add-ins that must
/// not leave anything behind, such as running processes, use std::at_quick_exit.
[[noreturn]] void EndHangingProgram(const std::string& what, RetainStore& retained,
                                    ServiceManager& service) {
  const std::string message = what + "; the program ends";
  spdlog::error("{}", message);
  service.TellStatus(message);
  service.TellStopping();
  retained.WriteNow(kLongestDrain);
  DrainErrors(kLongestDrain);
  LeaveTerminalNow(Printable("corvane: " + message) + "\n");
  std::quick_exit(kCycleTooLong);
}

CycleWatchdog::Options WatchdogOptions(const RunOptions& options, RetainStore& retained,
                                       ServiceManager& service) {
  CycleWatchdog::Options watchdog;
  watchdog.longest =
      options.watchdog.empty() ? service.watchdog() : *ParseDuration(options.watchdog);
  watchdog.end = [&retained, &service](const std::string& what) {
    EndHangingProgram(what, retained, service);
  };
  watchdog.alive = [&service](std::uint64_t number) {
    service.TellAlive();
    service.TellCycle(number);
  };
  return watchdog;
}

/// Loads and runs the program; returns its exit status. Throws LuaError.
int RunProgram(const RunOptions& options, Scan& scan, RetainStore& retained,
               ServiceManager& service, const ModemPortDriver& modems, RunningBench& bench,
               WatchView* view) {
  std::unique_lock lock(TheScanLock());  // the program is created, loaded and closed under it, too
  ControlProgram program(options.program, options.arguments, &retained);
  const RunningBench::Following following(bench, program.lua());
  if (view != nullptr) view->Follow(program.lua());
  CycleWatchdog watchdog(program.lua(), WatchdogOptions(options, retained, service));
  Load(program, watchdog);
  if (view != nullptr) view->Update(scan.statistics());
  service.TellReady();
  if (!program.stop_status()) {
    const Unlocked unlocked(lock);
    const RunningBench::Serving serving(bench,
                                        {options.program, *ParseDuration(options.period), &modems});
    scan.Run(
        [&program, &scan, &watchdog, view](std::uint64_t number) {
          const CycleWatchdog::Cycle cycle(watchdog, number);
          program.Cycle(number);
          if (view != nullptr) view->Update(scan.statistics());
          return !program.stop_status();
        },
        [&scan] { spdlog::info("{}", scan.statistics().Summary()); },
        [&bench](const CycleFacts& facts) { bench.samples().AfterCycle(facts); });
  }
  return program.stop_status().value_or(kSuccess);
}

/// Prints an error in the program, its message and traceback; returns the exit status.
int Fail(const LuaError& error) {
  WriteError(fmt::format("corvane: {}\n", Printable(error.what(), "\n\t")));
  return dynamic_cast<const UnusableProgram*>(&error) != nullptr ? kUsage : kProgramFailed;
}

/// Loads the program and prints whether it could run, without a cycle and without modem ports.
int Check(const RunOptions& options) {
  SetUpLog(options.log_level);
  const auto addins = LoadAddins(options.addins);
  SetStateFolder(StateFolder(options.program));  // so late that no add-in begins to work in it
  try {
    const std::lock_guard guard(TheScanLock());
    ControlProgram(options.program, options.arguments).Load();
  } catch (const LuaError& error) {
    return Fail(error);
  }
  DrainErrors(kLongestDrain);  // if both streams are one, the result follows the log
  fmt::print("{}: ok\n", Printable(options.program));
  return kSuccess;
}

/// The bench, with its page's address open; null after an error, which is printed.
std::unique_ptr<RunningBench> OpenBench(const RunOptions& options) {
  try {
    return std::make_unique<RunningBench>(options.bench);
  } catch (const bench::BenchError& error) {
    PrintError(error.what());
    return nullptr;
  }
}

int Run(const RunOptions& options) {
  using Hangup = SystemScanClock::Hangup;
  const Hangup hangup = IsIgnored(SIGHUP) ? Hangup::kNothing : Hangup::kStop;  // by nohup
  SetUpProcess();
  ServiceManager service;
  const auto bench = OpenBench(options);
  if (bench == nullptr) return kUsage;
  std::unique_ptr<WatchView> view;
  if (options.watch) {
    if (const std::string problem = TerminalProblem("--watch"); !problem.empty()) {
      PrintError(problem);
      return kUsage;
    }
    view = std::make_unique<WatchView>(options.program);
  }
  SystemScanClock clock(hangup);  // from here on the key q, which sends a signal, ends properly
  SetUpLog(options.log_level);
  bench->FollowLog();
  // Output to a file or a pipe is written line by line, too, so a failing program loses none of it.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  SetStateFolder(StateFolder(options.program));
  const auto addins = LoadAddins(options.addins);
  const ModemPortDriver modems(ParseModemTargets(options.modems), TheScanLock(),
                               StateFolder(options.program));
  if (view != nullptr) view->Follow(modems);
  Scan scan({*ParseDuration(options.period), options.cycles}, clock, TheScanLock());
  RetainStore retained(StateFolder(options.program));
  int status = kProgramFailed;
  try {
    status = RunProgram(options, scan, retained, service, modems, *bench, view.get());
  } catch (const LuaError& error) {
    view.reset();  // the message belongs on the restored terminal
    status = Fail(error);
  }
  service.TellStopping();
  view.reset();
  if (scan.statistics().cycles() != 0) spdlog::info("{}", scan.statistics().Summary());
  return status;
}

}  // namespace

void AddRunCommand(CLI::App& app, const std::vector<std::string>& words, Action& action) {
  auto options = std::make_shared<RunOptions>();
  CLI::App* command = app.add_subcommand("run", "Run a control program");
  command->add_option("program", options->program, "The control program, a Lua file")
      ->required()
      ->configurable(false)
      ->check(CheckProgram);
  // For the configuration file; on the command line they follow `--`.
  command->add_option("--args", options->arguments)->group("");
  command->add_option("--cycle", options->period, "Time from one cycle to the next; 0: no pause")
      ->check(CheckDuration)
      ->capture_default_str();
  command->add_option("--cycles", options->cycles, "End after this many cycles; 0: no limit")
      ->check(WholeNumber(0, std::numeric_limits<std::uint64_t>::max()));
  command
      ->add_option_function<std::vector<std::string>>(
          "--modem",
          [options](const std::vector<std::string>& modems) {
            CheckModems(modems);
            options->modems = modems;
          },
          "PORT=DEVICE or PORT=tcp:HOST:PORT, followed by ,SETTING=VALUE (baud, flow,\n"
          "patience, poll, prompt-pause, init): the modem that blocks find under Port;\n"
          "repeatable. See docs/modem.md")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  AddAddinOption(*command, options->addins);
  command
      ->add_option("--watchdog", options->watchdog,
                   "End the program with status 3 when a cycle lasts longer than this; 0: never.\n"
                   "Default: WatchdogSec= of the systemd service")
      ->check(CheckDuration);
  AddLogLevelOption(*command, options->log_level);
  command
      ->add_flag("--check", options->check,
                 "Load the program and look for cycle(), but run no cycle; prints PROGRAM: ok")
      ->configurable(false);
  command->add_flag("--watch", options->watch,
                    "Show the blocks' variables, the modems and the cycle times in the terminal");
  AddBenchOptions(*command, options->bench);
  AddConfigOption(*command);
  command->footer(
      "Example: corvane run disk_watch.lua --cycle 500ms -- /var\n"
      "         corvane run alarm.lua --modem 1=/dev/ttyUSB0,baud=115200,patience=60s\n\n"
      "The file runs once, then its function cycle() once per cycle. The words after -- are for "
      "the\n"
      "program. Ctrl-C ends the program after the running cycle, a second one at once; SIGUSR1 "
      "logs\n"
      "the cycle statistics. Exit status: 0, or what the program passes to plc.stop; 1 after an "
      "error\n"
      "in the program or in writing its output; 2 for wrong usage or a syntax error; 3 when\n"
      "the watchdog has ended the program.");
  command->callback([options, &words, &action] {
    if (!words.empty()) options->arguments = words;
    action = [options] { return options->check ? Check(*options) : Run(*options); };
  });
}

}  // namespace corvane::cli
