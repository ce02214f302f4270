// SPDX-License-Identifier: MIT
// The watch view of a program that runs as another process, over its Unix socket. It stays while
// the program does not answer or has ended, and goes on when it runs again.
// Threads: one at a time.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "runtime/bench/client/bench_client.h"
#include "runtime/bench/client/running_programs.h"
#include "runtime/cli/remote_picture.h"

namespace corvane::cli {

/// A picture of the program that follows it over restarts.
class RemoteProgram {
 public:
  /// @param wanted what the user has called it, for FindPrograms after a restart
  RemoteProgram(const bench::RunningProgram& program, std::string wanted);

  /// Takes what has come since the last call, or tries to connect again. Never waits.
  void Update();
  /// With a notice while there is no connection.
  [[nodiscard]] std::shared_ptr<const WatchPicture> Get() const;

 private:
  void Connect();
  void TakeMessages();

  std::string wanted_;
  std::string name_;
  std::filesystem::path socket_;
  RemotePicture picture_;
  std::unique_ptr<bench::BenchClient> client_;  // null: not connected
  bool has_answered_ = false;
  std::string notice_ = "connecting";
  std::chrono::steady_clock::time_point next_try_{};
};

/// Shows it until a key, SIGINT, SIGTERM or SIGHUP ends the view. Only if TerminalProblem() is
/// empty. Throws std::system_error.
void WatchRemotely(const bench::RunningProgram& program, const std::string& wanted);

/// Prints one picture of it. @throws bench::ClientError
void PrintRemotely(const bench::RunningProgram& program);

}  // namespace corvane::cli
