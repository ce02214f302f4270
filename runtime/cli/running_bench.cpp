// SPDX-License-Identifier: MIT
#include "runtime/cli/running_bench.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <array>
#include <exception>
#include <utility>
#include <variant>

#include "runtime/bench/server/json_text.h"
#include "runtime/bench/server/log_topic.h"
#include "runtime/bench/server/socket_path.h"
#include "runtime/bench/server/token_file.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/corvane/state_folder.h"

namespace corvane::cli {
namespace {

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
  service.metrics = [] { return std::string(); };
  service.problem = [] { return std::string(); };
  if (address_) {
    service.cookie_name = fmt::format("corvane-{}", address_->port);  // cookies ignore ports
    spdlog::info("bench: http://{}/", address_->Text());
  }
  bench::Services services;
  services.http = std::move(service);
  services.topics["log"] = std::make_unique<bench::LogTopic>(log_);
  store_ = std::make_shared<bench::StoreReader>(StateFolder(program.file) / "messages.db");
  store_requests_ = std::make_unique<bench::StoreRequests>(store_);
  services.topics["messages"] = std::make_unique<bench::MessagesTopic>(store_);
  services.poll = [this] { store_requests_->Poll(); };
  services.hello = [this] { return Hello(); };
  services.handler = [this](const auto& request, const auto& done) { Handle(request, done); };
  server_ = std::make_unique<bench::BenchServer>(bench::Listeners{std::move(tcp_), ListenLocally()},
                                                 std::move(services));
}

/// A program runs on without it.
std::unique_ptr<bench::UnixListener> RunningBench::ListenLocally() const {
  const std::filesystem::path folder = bench::SocketFolder();
  try {
    if (folder.empty()) {
      throw bench::BenchError("neither RUNTIME_DIRECTORY nor XDG_RUNTIME_DIR is set");
    }
    return std::make_unique<bench::UnixListener>(folder, ProgramName(program_.file));
  } catch (const bench::BenchError& error) {
    spdlog::info("bench: corvane watch cannot show this program: {}", error.what());
    return nullptr;
  }
}

bench::Frame RunningBench::Hello() const {
  const auto level = spdlog::level::to_string_view(spdlog::get_level());
  const std::chrono::duration<double> started = started_.time_since_epoch();
  const std::chrono::duration<double> cycle = program_.period;
  return bench::JsonText({{"type", "hello"},
                          {"protocol", 1},
                          {"program", program_.file.filename().string()},
                          {"name", ProgramName(program_.file)},
                          {"version", CORVANE_VERSION},
                          {"pid", getpid()},
                          {"cycle", cycle.count()},
                          {"write", write_},
                          {"level", std::string_view(level.data(), level.size())},
                          {"started", started.count()}});
}

void RunningBench::Handle(const bench::ClientRequest& request, const bench::RequestDone& done) {
  const bench::ClientMessage& message = request.message;
  if (!write_ && !request.is_local) return done(kProtected, {});
  if (const auto* const level = std::get_if<bench::LogLevelRequest>(&message.what)) {
    SetLogLevel(request.who, *level, done);
  } else if (const auto* const wish = std::get_if<bench::MessageRequest>(&message.what)) {
    spdlog::info("bench: {} asks to {} message {}", request.who, wish->retry ? "retry" : "cancel",
                 wish->message);
    store_requests_->Ask(*wish, done);
  } else {
    done("this program does not do that", {});
  }
}

void RunningBench::SetLogLevel(const std::string& who, const bench::LogLevelRequest& request,
                               const bench::RequestDone& done) {
  const std::string problem = LogLevel()(request.level);
  if (!problem.empty()) return done(problem, {});
  spdlog::info("bench: {} sets the log level to {}", who, request.level);
  spdlog::set_level(spdlog::level::from_str(request.level));
  done({}, {});
  server_->GreetAll();
}

}  // namespace corvane::cli
