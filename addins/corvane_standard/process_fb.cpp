// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/process_fb.h"

#include <algorithm>
#include <cstring>

#include "addins/corvane_standard/process_runner.h"
#include "block/duration_input.h"

DEFINE_FUNCTION_BLOCK(ProcessFB, "PROCESS")

namespace {

using corvane_standard::ProcessEnd;
using corvane_standard::ProcessOrder;
using corvane_standard::ProcessRunner;

constexpr int kDefaultMaxOutput = 65536;
constexpr std::chrono::years kLongestTimeout(100);  // a clock of nanoseconds can count that far

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

JobFailure BadValue(std::string text) {
  return {ErrorId::kBadValue, std::move(text)};
}

std::string SignalName(int number) {
  const char* name = sigabbrev_np(number);
  return std::to_string(number) + (name == nullptr ? "" : " (SIG" + std::string(name) + ")");
}

}  // namespace

const FBMetaEntry* ProcessFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      plcopen::kExecute,
      {"Command", "STRING", kInput, "run by /bin/sh -c"},
      {"Program", "STRING", kInput, "instead of Command: a program, looked for in PATH; no shell"},
      {"Arguments", "STRING", kInput, "of Program, one a line"},
      {"Input", "STRING", kInput, "what it reads on standard input; empty: nothing"},
      {"Folder", "STRING", kInput, "where it runs; empty: where the runtime runs"},
      {"Timeout", "LREAL", kInput, "s after which it is ended, 0: none"},
      {"Abort", "BOOL", kInput, "TRUE ends it"},
      {"MaxOutput", "DINT", kInput, "octets kept of each output, 0: 65536"},
      plcopen::kBusy,
      plcopen::kDone,
      plcopen::kError,
      plcopen::kErrorId,
      plcopen::kErrorText,
      {"Output", "STRING", kOutput, "what it wrote to standard output"},
      {"ErrorOutput", "STRING", kOutput, "what it wrote to standard error"},
      {"Truncated", "BOOL", kOutput, "it wrote more than MaxOutput"},
      {"ExitCode", "DINT", kOutput, "its exit code, -1: none"},
      {"Signal", "DINT", kOutput, "the signal that ended it, 0: none"},
      {"Pid", "DINT", kOutput, "its process id, 0: it is not running"},
      {"Duration", "LREAL", kOutput, "s that it has run"},
      {nullptr, nullptr}};
  return entries;
}

ProcessFB::~ProcessFB() {
  owner_ = nullptr;
  if (process_ != nullptr) ProcessRunner::WakeIfAny();
}

void ProcessFB::Inited(lua_State* /*L*/) {
  SetValue("ExitCode", -1);
  ProcessRunner::The();  // starts its thread now, and not in the first cycle with a job
}

void ProcessFB::Restored() {
  JobFB::Restored();
  SetValue("Pid", 0);
}

std::optional<JobFailure> ProcessFB::Start() {
  SetValue("ExitCode", -1);
  const std::string command = GetString("Command");
  const std::string program = GetString("Program");
  ProcessOrder order;
  if (command.empty() == program.empty()) {
    return BadValue(command.empty() ? "neither Command nor Program is given; give one of them"
                                    : "both Command and Program are given; give one of them");
  }
  order.words = {"/bin/sh", "-c", command};
  if (command.empty()) {
    order.words = Lines(GetString("Arguments"));
    order.words.insert(order.words.begin(), program);
  }
  order.folder = GetString("Folder");
  for (const std::string& word : order.words) {
    if (word.find('\0') != std::string::npos || order.folder.find('\0') != std::string::npos) {
      return BadValue(
          "Command, Program, Arguments and Folder cannot contain a NUL; pass it with Input");
    }
  }
  const auto timeout = DurationInput(GetReal("Timeout"), std::chrono::milliseconds(0));
  if (!timeout) return BadValue("Timeout must be a number of seconds from 0 on; 0 means none");
  order.timeout = std::min<std::chrono::milliseconds>(*timeout, kLongestTimeout);
  const int max_output = GetInt("MaxOutput");
  if (max_output < 0) return BadValue("MaxOutput must be from 0 on; 0 means 65536");
  order.max_output = static_cast<std::size_t>(max_output == 0 ? kDefaultMaxOutput : max_output);
  if (GetBool("Abort")) {
    return JobFailure{ErrorId::kAborted, "not started, because Abort is TRUE"};
  }
  order.input = GetString("Input");
  process_ = ProcessRunner::The().Start(std::move(order), owner_);
  started_ = std::chrono::steady_clock::now();
  return std::nullopt;
}

JobProgress ProcessFB::Poll() {
  if (GetBool("Abort") && !process_->aborted()) {
    process_->Abort();
    ProcessRunner::The().Wake();
  }
  if (std::optional<ProcessEnd> end = process_->TakeEnd()) return Show(std::move(*end));
  SetValue("Pid", process_->pid());
  const auto since_start = std::chrono::steady_clock::now() - started_;
  SetReal("Duration", std::chrono::duration<double>(since_start).count());
  return JobProgress::Busy();
}

JobProgress ProcessFB::Show(ProcessEnd end) {
  SetValue("Output", end.output);
  SetValue("ErrorOutput", end.error_output);
  SetBool("Truncated", end.truncated);
  SetValue("ExitCode", end.exit_code);
  SetValue("Signal", end.signal);
  SetValue("Pid", 0);
  SetReal("Duration", end.duration);
  using enum ProcessEnd::Kind;
  switch (end.kind) {
    case kExited:
      if (end.exit_code >= 0) return JobProgress::Done();
      return JobProgress::Done("its exit code is not known: the host took it");
    case kNotStarted: return JobProgress::Failed({ErrorId::kNotStarted, std::move(end.problem)});
    case kTimedOut:
      return JobProgress::Failed(
          {ErrorId::kTimedOut,
           "ended because it ran longer than Timeout; find out what it waits for, or allow more"});
    case kSignalled:
      return JobProgress::Failed(
          {ErrorId::kEndedBySignal, "ended by signal " + SignalName(end.signal) +
                                        "; its ErrorOutput, or the system's log, may tell why"});
    case kAborted: return JobProgress::Failed({ErrorId::kAborted, "ended because Abort was TRUE"});
  }
  return JobProgress::Done();  // not reached
}
