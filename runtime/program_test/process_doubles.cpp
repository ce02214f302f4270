// SPDX-License-Identifier: MIT
#include "runtime/program_test/process_doubles.h"

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "runtime/program_test/world.h"

DEFINE_FUNCTION_BLOCK(ProcessDouble, "PROCESS")
DEFINE_FUNCTION_BLOCK(ShellDouble, "SysProcessCreate")
DEFINE_FUNCTION_BLOCK(ShellResultDouble, "SysProcessCreateWithResult")

namespace {

using namespace corvane::program_test;

constexpr int kDefaultMaxOutput = 65536;

/// A number of its own for each process that "runs".
int NextPid() {
  static int pid = 100'000;
  return ++pid;
}

}  // namespace

std::optional<JobFailure> ProcessDouble::Check() {
  if (GetString("Command").empty() == GetString("Program").empty()) {
    return JobFailure{ErrorId::kBadValue, "give either Command or Program"};
  }
  timeout_ = GetReal("Timeout");
  if (!std::isfinite(timeout_) || timeout_ < 0) {
    return JobFailure{ErrorId::kBadValue, "Timeout must be a number of seconds from 0 on; 0: none"};
  }
  if (GetBool("Abort")) {
    return JobFailure{ErrorId::kAborted, "not started, because Abort is TRUE"};
  }
  max_output_ = GetInt("MaxOutput");
  if (max_output_ < 0) {
    return JobFailure{ErrorId::kBadValue, "MaxOutput must be a number of bytes from 0 on"};
  }
  if (max_output_ == 0) max_output_ = kDefaultMaxOutput;
  return std::nullopt;
}

std::string ProcessDouble::CommandLine() {
  std::string line = GetString("Command");
  if (!line.empty()) return line;
  line = GetString("Program");
  const std::string arguments = GetString("Arguments");
  for (std::size_t begin = 0; begin < arguments.size();) {
    const std::size_t end = std::min(arguments.find('\n', begin), arguments.size());
    line += " " + arguments.substr(begin, end - begin);
    begin = end + 1;
  }
  return line;
}

std::optional<JobFailure> ProcessDouble::Start() {
  SetValue("ExitCode", -1);
  if (auto failure = Check()) return failure;
  World& world = World::The();
  begins_ = world.time().clock;
  answer_ = world.processes.Start({{"block", "PROCESS"},
                                   {"command", CommandLine()},
                                   {"input", GetString("Input")},
                                   {"folder", GetString("Folder")},
                                   {"clock", begins_}});
  const std::string folder = GetString("Folder");
  std::error_code error;
  if (!folder.empty() && !std::filesystem::is_directory(folder, error)) {
    answer_.not_started = "Folder: " + folder + " is not a folder";
  }
  pid_ = NextPid();
  return std::nullopt;
}

JobProgress ProcessDouble::Poll() {
  const double now = World::The().time().clock;
  const double ran = now - begins_;
  if (!answer_.not_started.empty()) {
    return JobProgress::Failed({ErrorId::kNotStarted, answer_.not_started});
  }
  SetValue("Pid", pid_);
  SetReal("Duration", ran);
  if (ran >= answer_.duration && !(timeout_ > 0 && answer_.duration > timeout_)) {
    if (answer_.signal == 0) return End(std::nullopt, now);
    return End(JobFailure{ErrorId::kEndedBySignal,
                          "signal " + std::to_string(answer_.signal) + " ended the program"},
               now);
  }
  if (GetBool("Abort")) {
    answer_.signal = 15;
    return End(JobFailure{ErrorId::kAborted, "the program was ended because Abort was TRUE"}, now);
  }
  if (timeout_ > 0 && ran >= timeout_) {
    answer_.signal = 15;
    return End(JobFailure{ErrorId::kTimedOut, "the program ran longer than Timeout"}, now);
  }
  return JobProgress::Busy();
}

JobProgress ProcessDouble::End(std::optional<JobFailure> failure, double now) {
  SetValue("Pid", 0);
  SetReal("Duration", now - begins_);
  SetValue("ExitCode", answer_.signal == 0 ? answer_.exit_code : -1);
  SetValue("Signal", answer_.signal);
  ShowOutput("Output", answer_.output);
  ShowOutput("ErrorOutput", answer_.error_output);
  return failure ? JobProgress::Failed(std::move(*failure)) : JobProgress::Done();
}

void ProcessDouble::ShowOutput(const char* variable, const std::string& text) {
  const auto room = static_cast<std::size_t>(max_output_);
  SetValue(variable, text.substr(0, room));
  if (text.size() > room) SetBool("Truncated", true);
}

void ShellDouble::Execute() {
  const bool run = GetBool("Run");
  if (run == std::exchange(last_run_, run) || !run) return;
  World& world = World::The();
  world.processes.Start({{"block", "SysProcessCreate"},
                         {"command", GetString("Command") + " " + GetString("Args")},
                         {"clock", world.time().clock}});
}

void ShellResultDouble::Execute() {
  const bool run = GetBool("Run");
  if (run == std::exchange(last_run_, run) || !run || failed_) return;
  World& world = World::The();
  const ProcessAnswer answer =
      world.processes.Start({{"block", "SysProcessCreateWithResult"},
                             {"command", GetString("Command") + " " + GetString("Args")},
                             {"clock", world.time().clock}});
  if (!answer.not_started.empty()) {
    failed_ = true;
    throw std::length_error("the command could not be started (" + answer.not_started +
                            "); this block starts no more commands");
  }
  SetValue("Code", answer.signal);  // the exit code is not in it
  SetValue("Output", answer.output);
}
