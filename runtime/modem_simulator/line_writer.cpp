// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/line_writer.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace modem_simulator {
namespace {

constexpr std::size_t kMostAtOnce = 4096;  // a pipe that is ready accepts this much without waiting
constexpr int kOutputPauseMs = 50;
constexpr std::chrono::seconds kReaderPatience{1};

bool IsReady(int descriptor) {
  pollfd state{descriptor, POLLOUT, 0};
  return poll(&state, 1, kOutputPauseMs) > 0;
}

}  // namespace

class LineWriter::Queue {
 public:
  Queue(int descriptor, std::function<void()> on_failure)
      : descriptor_(descriptor), on_failure_(std::move(on_failure)) {}

  void Add(std::string_view line) {
    const std::lock_guard lock(mutex_);
    if (failed_) return;
    if (waiting_.size() + in_flight_ + line.size() >= kMostWaiting) {
      ++left_out_;
      return;
    }
    ReportLeftOut();
    waiting_.append(line) += '\n';
    changed_.notify_all();
  }

  [[nodiscard]] bool HasRoom() const {
    const std::lock_guard lock(mutex_);
    return waiting_.size() + in_flight_ < kMostWaiting / 2;
  }

  [[nodiscard]] bool failed() const {
    const std::lock_guard lock(mutex_);
    return failed_;
  }

  void Run() {
    for (std::string lines = Next(); !lines.empty(); lines = Next()) {
      if (!WriteWhole(lines)) break;
    }
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }

  /// Waits for the thread to write what is left, as long as it makes progress.
  void End() {
    std::unique_lock lock(mutex_);
    ReportLeftOut();
    ending_ = true;
    changed_.notify_all();
    for (std::size_t seen = written_;; seen = written_) {
      if (changed_.wait_for(lock, kReaderPatience, [&] { return ended_ || written_ != seen; })) {
        if (ended_) return;
      } else {
        given_up_ = true;
        return;
      }
    }
  }

 private:
  void ReportLeftOut() {
    if (left_out_ == 0) return;
    waiting_ += fmt::format("{} lines were left out here: nobody read them in time\n", left_out_);
    left_out_ = 0;
  }

  /// Waits for something to write; empty at the end.
  std::string Next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !waiting_.empty() || ending_; });
    in_flight_ = waiting_.size();
    return std::exchange(waiting_, {});
  }

  bool WriteWhole(std::string_view lines) {
    while (!lines.empty()) {
      if (GivenUp()) return false;
      if (!IsReady(descriptor_)) continue;
      const ssize_t size = write(descriptor_, lines.data(), std::min(lines.size(), kMostAtOnce));
      if (size < 0 && errno != EINTR && errno != EAGAIN) return Fail();
      if (size <= 0) continue;
      lines.remove_prefix(static_cast<std::size_t>(size));
      const std::lock_guard lock(mutex_);
      in_flight_ = lines.size();
      written_ += static_cast<std::size_t>(size);
      changed_.notify_all();
    }
    return true;
  }

  bool GivenUp() const {
    const std::lock_guard lock(mutex_);
    return given_up_;
  }

  bool Fail() {
    const std::lock_guard lock(mutex_);
    failed_ = true;
    waiting_.clear();
    // Under the lock, so that nothing is called after End().
    if (!ending_) on_failure_();
    return false;
  }

  int descriptor_;
  std::function<void()> on_failure_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Together at most kMostWaiting, and a line about what was left out.
  std::string waiting_;
  std::size_t in_flight_ = 0;  // taken by the thread, not yet written
  std::size_t left_out_ = 0;
  std::size_t written_ = 0;
  bool failed_ = false;
  bool ending_ = false;
  bool ended_ = false;
  bool given_up_ = false;
};

LineWriter::LineWriter(int descriptor, std::function<void()> on_failure)
    : queue_(std::make_shared<Queue>(descriptor, std::move(on_failure))) {
  // A terminal may never finish a write; such a thread must not keep the program from ending.
  std::thread([queue = queue_] { queue->Run(); }).detach();
}

LineWriter::~LineWriter() {
  queue_->End();
}

void LineWriter::Write(std::string_view line) {
  queue_->Add(line);
}

bool LineWriter::HasRoom() const {
  return queue_->HasRoom();
}

bool LineWriter::failed() const {
  return queue_->failed();
}

}  // namespace modem_simulator
