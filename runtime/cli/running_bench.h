// SPDX-License-Identifier: MIT
// The bench of `corvane run`: its options, and what it serves about the program that runs.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "runtime/bench/server/bench_server.h"
#include "runtime/bench/server/log_tap.h"

namespace corvane::cli {

struct BenchOptions {
  std::string address;     ///< [ADDRESS:]PORT; empty: no page
  std::string token_file;  ///< empty: no token is needed
  bool write = false;      ///< those who reach the page may write
};

/// Adds --web, --web-token-file and --web-write.
void AddBenchOptions(CLI::App& command, BenchOptions& options);

/// What the clients are told of the program.
struct ServedProgram {
  std::filesystem::path file;
  std::chrono::nanoseconds period{};
};

class RunningBench {
 public:
  /// Opens the page's address and reads the token. @throws BenchError
  explicit RunningBench(const BenchOptions& options);
  RunningBench(const RunningBench&) = delete;
  RunningBench& operator=(const RunningBench&) = delete;
  ~RunningBench();

  /// Serves the page and the Unix socket from now on; the log has been set up, and no other thread
  /// logs yet.
  void Start(const ServedProgram& program);

 private:
  [[nodiscard]] std::unique_ptr<bench::UnixListener> ListenLocally() const;
  [[nodiscard]] bench::Frame Hello() const;
  void Handle(const bench::ClientRequest& request, const bench::RequestDone& done);

  std::optional<bench::WebAddress> address_;
  std::string token_;
  bool write_;
  Descriptor tcp_;
  ServedProgram program_;
  std::shared_ptr<bench::LogTap> log_;
  std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
  std::unique_ptr<bench::BenchServer> server_;
};

}  // namespace corvane::cli
