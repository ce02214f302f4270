// SPDX-License-Identifier: MIT
// The bench of `corvane run`: its options, and what it serves about the program that runs.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "runtime/bench/sampling/bench.h"
#include "runtime/bench/sampling/variable_model.h"
#include "runtime/bench/server/bench_server.h"
#include "runtime/bench/server/log_tap.h"
#include "runtime/bench/server/messages_topic.h"
#include "runtime/bench/server/modem_topic.h"
#include "runtime/bench/server/store_metrics.h"
#include "runtime/bench/server/store_requests.h"
#include "runtime/bench/server/store_thread.h"
#include "runtime/modem_driver/modem_port_driver.h"

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
  const ModemPortDriver* modems = nullptr;  ///< outlives the Serving
};

class RunningBench {
 public:
  /// Opens the page's address and reads the token. @throws BenchError
  explicit RunningBench(const BenchOptions& options);
  RunningBench(const RunningBench&) = delete;
  RunningBench& operator=(const RunningBench&) = delete;
  ~RunningBench();

  /// Keeps what is logged from now on for the clients; no other thread logs yet.
  void FollowLog();

  /// What the PLC task tells of the program.
  [[nodiscard]] bench::Bench& samples() { return samples_; }

  /// Shows the variables of this state, in which no program has been loaded yet, while it lives;
  /// the scan lock is held when it begins and ends. Throws LuaError when memory runs out.
  class Following {
   public:
    Following(RunningBench& bench, lua_State* L) : bench_(bench) { bench_.samples_.Follow(L); }
    Following(const Following&) = delete;
    Following& operator=(const Following&) = delete;
    ~Following() { bench_.samples_.Forget(); }

   private:
    RunningBench& bench_;
  };

  /// Serves the page and the Unix socket while it lives. The scan lock must not be held when it
  /// ends.
  class Serving {
   public:
    Serving(RunningBench& bench, const ServedProgram& program) : bench_(bench) {
      bench_.Start(program);
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
    ~Serving() { bench_.Stop(); }

   private:
    RunningBench& bench_;
  };

 private:
  void Start(const ServedProgram& program);
  void Stop();
  [[nodiscard]] std::unique_ptr<bench::UnixListener> ListenLocally() const;
  [[nodiscard]] bench::Frame Hello() const;
  /// "http://127.0.0.1:8080/"; only if there is a page.
  [[nodiscard]] std::string PageAddress() const;
  [[nodiscard]] std::string Metrics();
  /// Why the program is not well; empty: it is.
  /// How long no cycle has ended, if that is too long.
  [[nodiscard]] std::optional<double> SecondsOfHang() const;
  [[nodiscard]] std::string Problem() const;
  void Poll();
  void Handle(const bench::ClientRequest& request, const bench::RequestDone& done);
  void Write(const std::string& who, const bench::WriteRequest& request,
             const bench::RequestDone& done);
  void Get(const bench::GetRequest& request, const bench::RequestDone& done);
  void SetLogLevel(const std::string& who, const bench::LogLevelRequest& request,
                   const bench::RequestDone& done);

  std::optional<bench::WebAddress> address_;
  std::string token_;
  bool write_;
  Descriptor tcp_;
  ServedProgram program_;
  std::shared_ptr<bench::LogTap> log_ = std::make_shared<bench::LogTap>();
  std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
  std::shared_ptr<bench::StoreThread> store_;
  std::unique_ptr<bench::StoreRequests> store_requests_;
  std::unique_ptr<bench::StoreMetrics> store_metrics_;
  std::vector<bench::ObservedModem> modems_;
  bench::Bench samples_;
  bench::VariableModel variables_;
  std::chrono::steady_clock::time_point serving_since_{};
  bool hangs_ = false;  ///< as the clients have been told; used by the server's thread
  std::unique_ptr<bench::BenchServer> server_;
};

}  // namespace corvane::cli
