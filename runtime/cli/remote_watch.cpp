// SPDX-License-Identifier: MIT
#include "runtime/cli/remote_watch.h"

#include <fmt/format.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <csignal>
#include <system_error>
#include <utility>

#include "libs/base/descriptor.h"
#include "runtime/bench/client/program_choice.h"
#include "runtime/cli/block_lines.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/screen_text.h"
#include "runtime/cli/watch_terminal.h"

namespace corvane::cli {
namespace {

using bench::BenchClient;
using bench::ClientError;
using Clock = std::chrono::steady_clock;
using nlohmann::json;
using std::chrono::milliseconds;

constexpr milliseconds kRetry(500);
constexpr milliseconds kTakeTime(100);  // of one update: keys must not wait
constexpr milliseconds kPoll(100);
constexpr milliseconds kSettled(600);  // without a new variable: all have come
constexpr std::chrono::seconds kLongestSettling(60);
constexpr std::size_t kPrintedWidth = 100;

json Subscription() {
  return {{"type", "subscribe"}, {"topics", {"variables", "cycle", "modem", "log"}}};
}

/// Readable when one of these signals has come, which end nothing any more.
Descriptor EndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  Descriptor descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (descriptor.get() < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  return descriptor;
}

bool HasVariables(const json& message) {
  return message["type"] == "variables" && message.contains("add") && !message["add"].empty();
}

/// Until no variable has been added for a while. Without any, until they would have come: they are
/// read at the end of a cycle.
void TakeEverything(BenchClient& client, RemotePicture& picture) {
  const json hello = client.Expect("hello", BenchClient::kPatience);
  const json period = hello.value("cycle", json());
  const std::chrono::duration<double> cycle(period.is_number() ? period.get<double>() : 0);
  client.Send(Subscription());
  const auto begin = Clock::now();
  auto end =
      begin + std::chrono::duration_cast<Clock::duration>(std::clamp<std::chrono::duration<double>>(
                  2 * cycle + 2 * kSettled, 2 * kSettled, kLongestSettling));
  const auto last_end = begin + kLongestSettling;
  while (Clock::now() < std::min(end, last_end)) {
    const auto message = client.Receive(kPoll);
    if (!message) continue;
    if (HasVariables(*message)) end = Clock::now() + kSettled;
    picture.Take(*message, Clock::now());
  }
}

void PrintLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) fmt::print("{}\n", line);
}

}  // namespace

RemoteProgram::RemoteProgram(const bench::RunningProgram& program, std::string wanted)
    : wanted_(std::move(wanted)),
      name_(program.name),
      socket_(program.socket),
      picture_(program.name) {}

std::shared_ptr<const WatchPicture> RemoteProgram::Get() const {
  auto picture = picture_.Get(Clock::now());
  picture->notice = notice_;
  return picture;
}

void RemoteProgram::Update() {
  try {
    if (client_ == nullptr && Clock::now() >= next_try_) Connect();
    if (client_ != nullptr) TakeMessages();
  } catch (const std::exception& error) {
    client_.reset();
    next_try_ = Clock::now() + kRetry;
    const bool is_strange = dynamic_cast<const ClientError*>(&error) == nullptr;
    notice_ = is_strange ? "it sends what cannot be understood" : error.what();
    notice_ += "; waiting for it:";
  }
}

/// A restart may give it another socket.
void RemoteProgram::Connect() {
  if (wanted_.find('/') == std::string::npos) {
    const auto found = bench::FindPrograms(bench::SocketPlaces::OfThisProcess());
    for (const auto& program : found.programs) {
      if (program.name == name_ && (wanted_.empty() || wanted_ == name_)) socket_ = program.socket;
    }
  }
  client_ = std::make_unique<BenchClient>(socket_);
  client_->Send(Subscription());
  has_answered_ = false;
}

void RemoteProgram::TakeMessages() {
  const auto end = Clock::now() + kTakeTime;
  while (Clock::now() < end) {
    const auto message = client_->Receive(milliseconds(0));
    if (!message) return;
    if (!std::exchange(has_answered_, true)) picture_.Clear();
    notice_.clear();
    picture_.Take(*message, Clock::now());
  }
}

void WatchRemotely(const bench::RunningProgram& program, const std::string& wanted) {
  const Descriptor signals = EndSignals();
  RemoteProgram remote(program, wanted);
  WatchTerminal terminal({.program = program.name,
                          .quit_word = "leave",
                          .quit_meaning = "leave; the program runs on",
                          .output = "Log"});
  WatchTerminal::Events events;
  do {
    remote.Update();
    if (!terminal.Busy()) terminal.Show(remote.Get());
    events = terminal.Wait(signals.get());
  } while (!events.other && !events.end && !events.gone);
  (void)terminal.Leave({});
}

void PrintRemotely(const bench::RunningProgram& program) {
  BenchClient client(program.socket);
  RemotePicture picture(program.name);
  try {
    TakeEverything(client, picture);
  } catch (const json::exception&) {
    throw ClientError("it sends what cannot be understood");
  }
  const auto shown = picture.Get(Clock::now());
  std::string statistics = shown->statistics;
  for (std::size_t at = 0; (at = statistics.find("; ", at)) != std::string::npos;) {
    statistics.replace(at, 2, "\n");
  }
  if (!statistics.empty()) fmt::print("{}\n", statistics);
  for (const std::string& modem : shown->modems) fmt::print("{}\n", ScreenText(modem));
  for (const ScreenLine& line : BlockLines(shown->blocks, kPrintedWidth)) {
    const std::size_t end = line.text.find_last_not_of(' ') + 1;
    fmt::print("{}\n", std::string_view(line.text).substr(0, end));
  }
  PrintLines(shown->output);
}

}  // namespace corvane::cli
