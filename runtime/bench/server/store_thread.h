// SPDX-License-Identifier: MIT
// The program's store of messages, as `corvane messages` sees it, in a thread of its own: a disk
// that does not answer must hold up neither the server nor the end of the program.
// Threads: the server's.
#pragma once

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "libs/messages/store_view.h"

namespace corvane::bench {

/// A store that is opened when its file exists, and again after an error.
class StoreReader {
 public:
  explicit StoreReader(std::filesystem::path file) : file_(std::move(file)) {}

  /// Null while there is no store that can be read.
  [[nodiscard]] messages::StoreView* Open();
  /// After an exception of the store.
  void Close() { view_.reset(); }

 private:
  std::filesystem::path file_;
  std::unique_ptr<messages::StoreView> view_;
};

class StoreThread {
 public:
  /// @param patience how long Ask waits; for ten seconds after a silence, a twentieth of it
  explicit StoreThread(std::filesystem::path file,
                       std::chrono::milliseconds patience = std::chrono::seconds(1));
  StoreThread(const StoreThread&) = delete;
  StoreThread& operator=(const StoreThread&) = delete;
  /// Waits for work that is under way, but not longer than Ask; then it is left behind.
  ~StoreThread();

  /// The result of `work(StoreView*)`, which gets null while there is no store. It may go on after
  /// this function has ended, so it must own what it uses. Throws what is wrong: the error of the
  /// work, or that the disk does not answer; at once while earlier work goes on.
  template <class Work>
  auto Ask(Work work) {
    using Result = std::invoke_result_t<Work, messages::StoreView*>;
    struct Outcome {
      std::optional<Result> result;
      std::string error;
    };
    auto outcome = std::make_shared<Outcome>();
    Run([outcome, work = std::move(work)](StoreReader& reader) {
      try {
        outcome->result = work(reader.Open());
      } catch (const std::exception& error) {
        reader.Close();
        outcome->error = error.what();
      }
    });
    if (!outcome->result) throw std::runtime_error(outcome->error);
    return std::move(*outcome->result);
  }
  [[nodiscard]] const std::filesystem::path& file() const { return file_; }

 private:
  struct Shared;
  void Run(std::function<void(StoreReader&)> work);

  std::filesystem::path file_;
  std::chrono::milliseconds patience_;
  std::chrono::steady_clock::time_point trusted_again_{};  // when a silent disk gets time again
  std::shared_ptr<Shared> shared_;  // also the thread's, which may be left behind
};

}  // namespace corvane::bench
