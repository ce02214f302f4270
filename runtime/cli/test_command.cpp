// SPDX-License-Identifier: MIT
// corvane test: unit tests of control programs.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "libs/base/printable.h"
#include "runtime/cli/addin_loading.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/corvane/duration.h"
#include "runtime/corvane/scan_lock.h"
#include "runtime/program_test/doubles.h"
#include "runtime/program_test/test_file.h"

namespace corvane::cli {
namespace {

using program_test::TestFile;
using program_test::TestResult;

struct TestOptions {
  std::vector<std::string> files;
  std::vector<std::string> addins;
  std::string filter;
  std::string timeout = "30s";
  bool tap = false;
};

/// Prints each test's line when it is known.
class Report {
 public:
  explicit Report(bool tap) : tap_(tap) {}

  void Begin(std::size_t tests) const {
    if (tap_) fmt::print("TAP version 13\n1..{}\n", tests);
  }
  void Add(const std::string& name, const TestResult& result) {
    ++tests_;
    const bool good = result.problem.empty();
    if (!good) ++failed_;
    const std::string line = Printable(name);
    if (tap_) {
      fmt::print("{} {} - {}\n", good ? "ok" : "not ok", tests_, line);
    } else {
      fmt::print("{} {}\n", good ? "ok    " : "FAILED", line);
    }
    if (!good) Explain(result);
    std::fflush(stdout);
  }
  [[nodiscard]] int End() const {
    if (!tap_) {
      fmt::print("{} {}, {} failed\n", tests_, tests_ == 1 ? "test" : "tests", failed_);
    }
    return failed_ == 0 ? kSuccess : kProgramFailed;
  }

 private:
  void Explain(const TestResult& result) const {
    Indented(result.problem);
    std::vector<std::string> said;
    for (const auto& line : result.log) said.push_back("log: " + line.level + " " + line.text);
    for (const std::string& line : result.output) said.push_back("printed: " + line);
    constexpr std::size_t kLast = 10;
    const std::size_t begin = said.size() > kLast ? said.size() - kLast : 0;
    for (std::size_t i = begin; i < said.size(); ++i) Indented(said[i]);
  }
  void Indented(const std::string& text) const {
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      fmt::print("{}{}\n", tap_ ? "# " : "       ", Printable(text.substr(begin, end - begin)));
      begin = end + 1;
    }
  }

  bool tap_;
  int tests_ = 0;
  int failed_ = 0;
};

struct Listed {
  const TestFile* file;
  std::size_t number;  ///< of the test in its file; 0: the file itself has failed
  std::string name;    ///< or what is wrong with the file
};

std::vector<Listed> ListTests(const std::vector<TestFile>& files, const TestOptions& options,
                              std::chrono::milliseconds timeout) {
  std::vector<Listed> tests;
  for (const TestFile& file : files) {
    try {
      const std::vector<std::string> names = file.ReadNames(timeout);
      for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].find(options.filter) == std::string::npos) continue;
        tests.push_back({&file, i + 1, names[i]});
      }
    } catch (const LuaError& error) {
      tests.push_back({&file, 0, error.what()});
    }
  }
  return tests;
}

int RunTests(const std::vector<TestFile>& files, const TestOptions& options) {
  const auto timeout =
      std::chrono::duration_cast<std::chrono::milliseconds>(*ParseDuration(options.timeout));
  const std::lock_guard guard(TheScanLock());  // as for a program that runs
  const std::vector<Listed> tests = ListTests(files, options, timeout);
  if (tests.empty()) {
    PrintError(fmt::format("no test has a name with '{}'; see --filter", options.filter));
    return kUsage;
  }
  Report report(options.tap);
  report.Begin(tests.size());
  for (const Listed& test : tests) {
    const std::string& file = test.file->path();
    if (test.number == 0) {
      report.Add(file, {test.name, {}, {}});
    } else {
      report.Add(file + ": " + test.name, test.file->Run(test.number, timeout));
    }
  }
  return report.End();
}

int Test(const TestOptions& options) {
  SetUpLog("warning");
  std::vector<TestFile> files;
  try {
    for (const std::string& path : options.files) files.emplace_back(path);
  } catch (const LuaError& error) {
    PrintError(error.what());
    return kUsage;
  }
  const auto addins = LoadAddins(options.addins);
  program_test::InstallDoubles();
  return RunTests(files, options);
}

}  // namespace

void AddTestCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<TestOptions>();
  CLI::App* command = app.add_subcommand("test", "Run unit tests of control programs");
  command->add_option("file", options->files, "A file with tests, in Lua, or several")->required();
  command->add_option("--filter", options->filter, "Only tests whose names contain this text")
      ->check(CheckNotEmpty);
  command->add_flag("--tap", options->tap, "Print in the Test Anything Protocol, version 13");
  command->add_option("--timeout", options->timeout, "Longest that a test may take, in real time")
      ->check(CheckDuration)
      ->capture_default_str();
  AddAddinOption(*command, options->addins);
  command->footer(
      "Example: corvane test pump_station_test.lua\n\n"
      "The tests set the time, and what modems, mail servers and commands do; nothing real is "
      "used.\nExit status: 0 if all tests pass; 1 if one fails; 2 for wrong usage or a syntax "
      "error.");
  command->callback([options, &action] { action = [options] { return Test(*options); }; });
}

}  // namespace corvane::cli
