// SPDX-License-Identifier: MIT
// corvane: runs control programs, and offers the other tools that an engineer needs for them.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/cli/commands.h"
#include "runtime/cli/error_output.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/process_setup.h"
#include "runtime/cli/usage_message.h"
#include "runtime/corvane/addin.h"

namespace {

/// "corvane pdu encode".
std::string FullName(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return (parent == nullptr ? "" : FullName(*parent) + " ") + command.get_name();
}

/// Takes the words after `--` off the command line of `corvane run`: they are the program's.
std::vector<std::string> TakeProgramWords(int& argc, char** argv) {
  if (argc < 2 || std::string_view(argv[1]) != "run") return {};
  char** const end = argv + argc;
  char** const mark = std::find_if(argv, end, [](std::string_view word) { return word == "--"; });
  if (mark == end) return {};
  argc = static_cast<int>(mark - argv);
  return {mark + 1, end};
}

int Main(int argc, char** argv) {
  CLI::App app(
      "Runs PLC control programs written in Lua, with blocks for SMS, e-mail and commands.",
      "corvane");
  app.footer(
      "Example: corvane run disk_watch.lua\n\n"
      "Each subcommand has its own --help.");
  app.set_version_flag("--version", "corvane " CORVANE_VERSION);
  app.require_subcommand(0, 1);
  corvane::cli::Action action;
  const std::vector<std::string> words = TakeProgramWords(argc, argv);
  corvane::cli::AddRunCommand(app, words, action);
  corvane::cli::AddBlocksCommand(app, action);
  corvane::cli::AddCheckModemCommand(app, action);
  corvane::cli::AddListCommand(app, action);
  corvane::cli::AddLogLevelCommand(app, action);
  corvane::cli::AddMessagesCommand(app, action);
  corvane::cli::AddModemCommand(app, action);
  corvane::cli::AddPduCommand(app, action);
  corvane::cli::AddTestCommand(app, action);
  corvane::cli::AddWatchCommand(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    corvane::cli::PrintError(fmt::format("{} (try {} --help)",
                                         corvane::cli::UsageMessage(app, error),
                                         FullName(corvane::cli::ChosenCommand(app))));
    return corvane::cli::kUsage;
  }
  if (!action) {
    corvane::cli::PrintError("a subcommand is missing (try corvane --help)");
    return corvane::cli::kUsage;
  }
  try {
    return action();
  } catch (const corvane::AddinError& error) {
    corvane::cli::PrintError(error.what());
    return corvane::cli::kUsage;
  }
}

/// Lost output (a full disk, a closed pipe) is a failure of the command, reported once.
int CheckOutput(int status) {
  const bool lost = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
  if (!lost) return status;
  corvane::cli::PrintError("standard output could not be written in full");
  return status == corvane::cli::kSuccess ? corvane::cli::kProgramFailed : status;
}

int MainWithMessages(int argc, char** argv) {
  try {
    return CheckOutput(Main(argc, argv));
  } catch (const std::exception& error) {
    if (std::ferror(stdout) != 0) return CheckOutput(corvane::cli::kSuccess);  // fmt throws it
    corvane::cli::PrintError(error.what());
    return corvane::cli::kProgramFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  corvane::cli::SetUpStandardStreams();
  const int status = MainWithMessages(argc, argv);
  corvane::cli::DrainErrors(corvane::cli::kLongestDrain);
  return status;
}
