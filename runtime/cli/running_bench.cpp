// SPDX-License-Identifier: MIT
#include "runtime/cli/running_bench.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>
#include <variant>

#include "libs/base/printable.h"
#include "runtime/bench/server/cycle_topic.h"
#include "runtime/bench/server/json_text.h"
#include "runtime/bench/server/log_topic.h"
#include "runtime/bench/server/metrics_text.h"
#include "runtime/bench/server/socket_path.h"
#include "runtime/bench/server/token_file.h"
#include "runtime/bench/server/variable_json.h"
#include "runtime/bench/server/variables_topic.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/corvane/state_folder.h"

namespace corvane::cli {
namespace {

constexpr std::chrono::seconds kLongestCycle(5);
constexpr std::size_t kLongestShownValue = 200;
constexpr const char* kProtected =
    "this needs --web-write, or the Unix socket of the program on its own machine";

std::string MachineName() {
  std::array<char, 256> room{};
  return gethostname(room.data(), room.size() - 1) == 0 ? std::string(room.data()) : "";
}

std::string CheckAddress(const std::string& text) {
  try {
    (void)bench::ParseWebAddress(text);
    return {};
  } catch (const bench::BenchError& error) {
    return error.what();
  }
}

void AddCycleMetrics(bench::MetricsText& metrics, const bench::CycleReport& report) {
  metrics.Begin("corvane_cycles_total", "counter", "Cycles that have ended.");
  metrics.Add(static_cast<double>(report.cycles));
  metrics.Begin("corvane_cycle_overruns_total", "counter",
                "Cycles that were still running when the next one was due.");
  metrics.Add(static_cast<double>(report.overruns));
  metrics.Begin("corvane_cycle_seconds", "histogram", "How long the cycles took.");
  std::uint64_t below = 0;
  for (std::size_t i = 0; i < bench::kCycleBounds.size(); ++i) {
    below += report.histogram.at(i);
    metrics.Add(static_cast<double>(below), {{"le", fmt::format("{}", bench::kCycleBounds.at(i))}},
                "_bucket");
  }
  metrics.Add(static_cast<double>(report.cycles), {{"le", "+Inf"}}, "_bucket");
  metrics.Add(report.sum, {}, "_sum");
  metrics.Add(static_cast<double>(report.cycles), {}, "_count");
}

void AddBlockMetrics(bench::MetricsText& metrics, const bench::BlockCounts& blocks) {
  metrics.Begin("corvane_blocks", "gauge", "Live function blocks by type.");
  for (const auto& [type, count] : blocks) {
    metrics.Add(static_cast<double>(count), {{"type", type}});
  }
}

void AddModemMetrics(bench::MetricsText& metrics, std::vector<bench::ObservedModem>& modems) {
  for (bench::ObservedModem& modem : modems) modem.UpdateFacts();
  metrics.Begin("corvane_modem_signal_dbm", "gauge", "Signal strength; absent while unknown.");
  for (const bench::ObservedModem& modem : modems) {
    const auto signal = modem.facts().signal();
    if (signal) metrics.Add(*signal, {{"port", std::to_string(modem.number())}});
  }
  metrics.Begin("corvane_modem_registered", "gauge",
                "Whether the modem is registered in its network or a foreign one.");
  for (const bench::ObservedModem& modem : modems) {
    const std::string& registration = modem.facts().registration();
    metrics.Add(registration == "home" || registration == "roaming" ? 1 : 0,
                {{"port", std::to_string(modem.number())}});
  }
}

}  // namespace

void AddBenchOptions(CLI::App& command, BenchOptions& options) {
  command
      .add_option("--web", options.address,
                  "[ADDRESS:]PORT: serve a page that shows the running program. Without an\n"
                  "address only this machine reaches it. See docs/bench.md")
      ->check(CheckAddress);
  command.add_option("--web-token-file", options.token_file,
                     "A file with the token that opens the page; needed if --web has an address\n"
                     "of the network");
  command.add_flag("--web-write", options.write,
                   "Let those who reach the page change variables and messages");
}

RunningBench::RunningBench(const BenchOptions& options) : write_(options.write) {
  const bool needs_page = !options.token_file.empty() || options.write;
  if (options.address.empty() && needs_page) {
    throw bench::BenchError("--web-token-file and --web-write are of use with --web PORT only");
  }
  if (options.address.empty()) return;
  address_ = bench::ParseWebAddress(options.address);
  if (!options.token_file.empty()) token_ = bench::ReadTokenFile(options.token_file);
  if (token_.empty() && !address_->IsLoopback()) {
    throw bench::BenchError(fmt::format(
        "other machines reach {}: --web needs --web-token-file with this address, so that not "
        "everybody sees the program",
        address_->Text()));
  }
  tcp_ = bench::ListenOnTcp(*address_);
}

RunningBench::~RunningBench() = default;

void RunningBench::FollowLog() {
  spdlog::default_logger()->sinks().push_back(log_);
}

void RunningBench::Stop() {
  server_.reset();
}

void RunningBench::Start(const ServedProgram& program) {
  program_ = program;
  bench::HttpService service;
  service.machine = MachineName();
  service.token = token_;
  service.metrics = [this] { return Metrics(); };
  service.problem = [this] { return Problem(); };
  if (address_) {
    service.cookie_name = fmt::format("corvane-{}", address_->port);  // cookies ignore ports
    spdlog::info("bench: {}", PageAddress());
  }
  bench::Services services;
  services.http = std::move(service);
  services.topics["log"] = std::make_unique<bench::LogTopic>(log_);
  store_ = std::make_shared<bench::StoreThread>(StateFolder(program.file) / "messages.db");
  store_requests_ = std::make_unique<bench::StoreRequests>(store_);
  services.topics["messages"] = std::make_unique<bench::MessagesTopic>(store_);
  store_metrics_ = std::make_unique<bench::StoreMetrics>(store_);
  if (program.modems != nullptr) {
    for (const auto& port : program.modems->Observe()) {
      modems_.emplace_back(port.number, *port.status);
    }
  }
  services.topics["modem"] = std::make_unique<bench::ModemTopic>(modems_);
  const std::chrono::duration<double> period = program.period;
  services.topics["variables"] = std::make_unique<bench::VariablesTopic>(samples_, variables_);
  services.topics["cycle"] = std::make_unique<bench::CycleTopic>(samples_, period.count());
  serving_since_ = std::chrono::steady_clock::now();
  services.poll = [this] { Poll(); };
  services.hello = [this] { return Hello(); };
  services.handler = [this](const auto& request, const auto& done) { Handle(request, done); };
  server_ = std::make_unique<bench::BenchServer>(bench::Listeners{std::move(tcp_), ListenLocally()},
                                                 std::move(services));
}

/// A program runs on without it. Without a user's runtime folder (in cron, under su) it is not
/// worth a line in every log; a folder that cannot be used is.
std::unique_ptr<bench::UnixListener> RunningBench::ListenLocally() const {
  const std::filesystem::path folder = bench::SocketFolder();
  if (folder.empty()) {
    spdlog::debug(
        "bench: corvane watch cannot show this program: neither RUNTIME_DIRECTORY nor "
        "XDG_RUNTIME_DIR is set");
    return nullptr;
  }
  try {
    return std::make_unique<bench::UnixListener>(folder, ProgramName(program_.file));
  } catch (const bench::BenchError& error) {
    spdlog::warn("bench: corvane watch cannot show this program: {}", error.what());
    return nullptr;
  }
}

void RunningBench::Poll() {
  store_requests_->Poll();
  samples_.Poll();
  const bool hangs = SecondsOfHang().has_value();
  if (std::exchange(hangs_, hangs) != hangs) server_->GreetAll();
}

std::optional<double> RunningBench::SecondsOfHang() const {
  const std::chrono::duration<double> longest =
      std::max<std::chrono::nanoseconds>(kLongestCycle, 3 * program_.period);
  const std::chrono::duration<double> runs = std::chrono::steady_clock::now() - serving_since_;
  const double silent = std::min(samples_.SecondsSinceCycle(), runs.count());
  return silent > longest.count() ? std::optional(silent) : std::nullopt;
}

std::string RunningBench::Problem() const {
  const auto silent = SecondsOfHang();
  return silent ? fmt::format("no cycle has ended for {:.0f} s", *silent) : std::string();
}

std::string RunningBench::Metrics() {
  bench::MetricsText metrics;
  metrics.Begin("corvane_program_info", "gauge", "The program that runs; always 1.");
  metrics.Add(1, {{"program", ProgramName(program_.file)}, {"version", CORVANE_VERSION}});
  metrics.Begin("corvane_start_time_seconds", "gauge", "When the program was started, since 1970.");
  metrics.Add(std::chrono::duration<double>(started_.time_since_epoch()).count());
  AddCycleMetrics(metrics, samples_.Cycles());
  metrics.Begin("corvane_cycle_period_seconds", "gauge",
                "Time from one cycle to the next; 0: no pause.");
  metrics.Add(std::chrono::duration<double>(program_.period).count());
  AddBlockMetrics(metrics, samples_.Blocks());
  AddModemMetrics(metrics, modems_);
  store_metrics_->AddTo(metrics);
  return metrics.text();
}

std::string RunningBench::PageAddress() const {
  return fmt::format("http://{}/", address_->Text());
}

bench::Frame RunningBench::Hello() const {
  const auto level = spdlog::level::to_string_view(spdlog::get_level());
  const std::chrono::duration<double> started = started_.time_since_epoch();
  const std::chrono::duration<double> cycle = program_.period;
  const auto silent = SecondsOfHang();
  return bench::JsonText(
      {{"type", "hello"},
       {"protocol", 1},
       {"program", program_.file.filename().string()},
       {"name", ProgramName(program_.file)},
       {"version", CORVANE_VERSION},
       {"pid", getpid()},
       {"cycle", cycle.count()},
       {"write", write_},
       {"level", std::string_view(level.data(), level.size())},
       {"started", started.count()},
       {"hangs", silent ? nlohmann::json(bench::SecondsNow() - *silent) : nullptr},
       {"page", address_ ? PageAddress() : ""}});
}

void RunningBench::Handle(const bench::ClientRequest& request, const bench::RequestDone& done) {
  const bench::ClientMessage& message = request.message;
  if (const auto* const get = std::get_if<bench::GetRequest>(&message.what)) {
    return Get(*get, done);
  }
  if (!write_ && !request.is_local) return done(kProtected, {});
  if (const auto* const level = std::get_if<bench::LogLevelRequest>(&message.what)) {
    SetLogLevel(request.who, *level, done);
  } else if (const auto* const wish = std::get_if<bench::MessageRequest>(&message.what)) {
    spdlog::info("bench: {} asks to {} message {}", request.who, wish->retry ? "retry" : "cancel",
                 wish->message);
    store_requests_->Ask(*wish, done);
  } else if (const auto* const write = std::get_if<bench::WriteRequest>(&message.what)) {
    Write(request.who, *write, done);
  }
}

void RunningBench::Write(const std::string& who, const bench::WriteRequest& request,
                         const bench::RequestDone& done) {
  const bench::Node* const node = variables_.Find(request.id);
  const auto value = bench::ValueOfJson(request.value);
  if (node == nullptr) return done(fmt::format("there is no variable {}", request.id), {});
  if (!value) return done("null is not a value of a variable", {});
  const std::string shown =
      node->secret ? "(secret)"
                   : PrintableBeginning(bench::JsonText(request.value), kLongestShownValue);
  const std::string what =
      fmt::format("bench: {} sets {} to {}", who, Printable(variables_.Path(request.id)), shown);
  samples_.Write(request.id, *value, [what, done](const std::string& error, const auto&) {
    if (error.empty()) {
      spdlog::info("{}", what);
    } else {
      spdlog::info("{}; refused: {}", what, error);
    }
    done(error, {});
  });
}

void RunningBench::Get(const bench::GetRequest& request, const bench::RequestDone& done) {
  samples_.Get(request.id, [id = request.id, done](const std::string& error, const auto& value) {
    if (!error.empty()) return done(error, {});
    done({}, bench::JsonOfChanges({.added = {}, .values = {{id, value}}, .removed = {}},
                                  bench::SecondsNow()));
  });
}

void RunningBench::SetLogLevel(const std::string& who, const bench::LogLevelRequest& request,
                               const bench::RequestDone& done) {
  const std::string problem = LogLevel()(request.level);
  if (!problem.empty()) return done(problem, {});
  const auto level = spdlog::level::from_str(request.level);
  spdlog::set_level(std::min(spdlog::get_level(), spdlog::level::info));  // this is always logged
  spdlog::info("bench: {} sets the log level to {}", who, request.level);
  spdlog::set_level(level);
  done({}, {});
  server_->GreetAll();
}

}  // namespace corvane::cli
