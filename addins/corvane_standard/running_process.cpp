// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/running_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <new>

#include "addins/corvane_standard/process_group.h"

namespace corvane_standard {
namespace {

using namespace std::chrono_literals;

constexpr auto kGrace = 2s;                             // between SIGTERM and SIGKILL
constexpr std::chrono::milliseconds kLookAtGroup = 1s;  // how often
constexpr std::chrono::milliseconds kLookAtEnd = 20ms;  // the same, while it is ended
constexpr auto kLookAtProcess = 10ms;  // how often, where the system does not tell us
constexpr std::size_t kChunk = 65536;
constexpr int kMostChunks = 16;  // the most that a pipe holds without privileges is 1 MiB

}  // namespace

RunningProcess::RunningProcess(ProcessOrder order, std::shared_ptr<ProcessHandle> handle,
                               std::weak_ptr<const void> owner)
    : order_(std::move(order)),
      handle_(std::move(handle)),
      owner_(std::move(owner)),
      started_(Clock::now()) {
  if (handle_->aborted() || owner_.expired()) {
    ProcessEnd end;
    end.kind = ProcessEnd::Kind::kAborted;
    Finish(std::move(end), started_);
    return;
  }
  process_ = Spawn(order_);
  if (process_.pid == 0) {
    ProcessEnd end;
    end.kind = ProcessEnd::Kind::kNotStarted;
    end.problem = std::move(process_.problem);
    Finish(std::move(end), started_);
    return;
  }
  handle_->SetPid(process_.pid);
}

void RunningProcess::Advance(Clock::time_point now) {
  ProcessEnd end;
  if (handle_ != nullptr && Reap(end)) Finish(std::move(end), now);
  if (gone_) return;
  if (owner_.expired() || (handle_ != nullptr && handle_->aborted())) {
    Stop(ProcessEnd::Kind::kAborted, kGrace, now);
  } else if (handle_ != nullptr && order_.timeout.count() > 0 && now - started_ >= order_.timeout) {
    Stop(ProcessEnd::Kind::kTimedOut, kGrace, now);
  }
  if (now >= kill_at_ && !killed_) {
    Signal(SIGKILL);
    killed_ = true;
  }
  if (handle_ == nullptr && now >= look_at_) {
    gone_ = !GroupRuns(process_.pid);
    // One that was killed and does not end is in a dead disk.
    look_at_ = now + (stopping_ && now < kill_at_ + kGrace ? kLookAtEnd : kLookAtGroup);
  }
}

void RunningProcess::Stop(ProcessEnd::Kind why, std::chrono::milliseconds grace,
                          Clock::time_point now) {
  if (gone_) return;
  if (!stopping_) {
    stopping_ = true;
    why_ = why;
    Signal(SIGTERM);
    Signal(SIGCONT);  // one that is stopped would not notice
  }
  kill_at_ = std::min(kill_at_, now + grace);
}

RunningProcess::Clock::time_point RunningProcess::due() const {
  if (handle_ == nullptr) return killed_ ? look_at_ : std::min(kill_at_, look_at_);
  Clock::time_point at = killed_ ? Clock::time_point::max() : kill_at_;
  if (!stopping_ && order_.timeout.count() > 0) at = std::min(at, started_ + order_.timeout);
  if (process_.ended.get() < 0) at = std::min(at, Clock::now() + kLookAtProcess);
  return at;
}

void RunningProcess::AddTo(std::vector<pollfd>& descriptors) const {
  const auto add = [&descriptors](const corvane::Descriptor& descriptor, short events) {
    if (descriptor.get() >= 0) descriptors.push_back({descriptor.get(), events, 0});
  };
  add(process_.ended, POLLIN);
  add(process_.input, POLLOUT);
  add(process_.output, POLLIN);
  add(process_.error_output, POLLIN);
}

void RunningProcess::Transfer() {
  WriteInput();
  Read(process_.output, output_);
  Read(process_.error_output, error_output_);
}

void RunningProcess::WriteInput() {
  if (process_.input.get() < 0) return;
  const ssize_t written = write(process_.input.get(), order_.input.data() + input_written_,
                                order_.input.size() - input_written_);
  if (written < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (written > 0) input_written_ += static_cast<std::size_t>(written);
  if (written < 0 || input_written_ == order_.input.size()) {
    process_.input = {};  // it reads to the end, or does not read any more
    order_.input = {};
  }
}

void RunningProcess::Read(corvane::Descriptor& from, Kept& kept) const {
  if (from.get() < 0) return;
  static thread_local std::array<char, kChunk> chunk;
  const ssize_t count = read(from.get(), chunk.data(), chunk.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) {
    from = {};
    return;
  }
  const auto length = static_cast<std::size_t>(count);
  std::size_t fits = std::min(length, order_.max_output - kept.text.size());
  try {
    kept.text.append(chunk.data(), fits);
  } catch (const std::bad_alloc&) {
    fits = 0;  // what MaxOutput allows and the machine does not have
  }
  kept.truncated = kept.truncated || fits < length;
}

bool RunningProcess::Reap(ProcessEnd& end) const {
  siginfo_t info{};
  if (waitid(P_PID, static_cast<id_t>(process_.pid), &info, WEXITED | WNOHANG) != 0) {
    return errno == ECHILD;  // a host that ignores SIGCHLD, or waits for all, has taken the status
  }
  if (info.si_pid == 0) return false;
  if (info.si_code == CLD_EXITED) {
    end.exit_code = info.si_status;
  } else {
    end.signal = info.si_status;
    end.kind = ProcessEnd::Kind::kSignalled;
  }
  return true;
}

void RunningProcess::Finish(ProcessEnd end, Clock::time_point now) {
  // What it wrote is in the pipes. Whoever else has them open may write for ever.
  for (int i = 0; i < kMostChunks; ++i) {
    Read(process_.output, output_);
    Read(process_.error_output, error_output_);
  }
  process_.ended = {};
  process_.input = {};
  process_.output = {};
  process_.error_output = {};
  if (stopping_) end.kind = why_;
  end.duration = std::chrono::duration<double>(now - started_).count();
  end.truncated = output_.truncated || error_output_.truncated;
  end.output = std::move(output_.text);
  end.error_output = std::move(error_output_.text);
  handle_->Finish(std::move(end));
  handle_ = nullptr;
  gone_ = process_.pid == 0;
  look_at_ = now;
}

void RunningProcess::Signal(int number) const {
  kill(-process_.pid, number);
}

}  // namespace corvane_standard
