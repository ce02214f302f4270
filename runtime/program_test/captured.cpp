// SPDX-License-Identifier: MIT
#include "runtime/program_test/captured.h"

#include <fcntl.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace corvane::program_test {

class CapturedLog::Sink : public spdlog::sinks::base_sink<std::mutex> {
 public:
  std::vector<LogLine> lines() {
    const std::lock_guard guard(mutex_);
    return lines_;
  }

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    const auto level = spdlog::level::to_string_view(message.level);
    lines_.push_back(
        {{level.data(), level.size()}, {message.payload.data(), message.payload.size()}});
  }
  void flush_() override {}

 private:
  std::vector<LogLine> lines_;
};

CapturedLog::CapturedLog() : sink_(std::make_shared<Sink>()), before_(spdlog::default_logger()) {
  spdlog::set_default_logger(std::make_shared<spdlog::logger>("corvane", sink_));
}

CapturedLog::~CapturedLog() {
  spdlog::set_default_logger(before_);
}

std::vector<LogLine> CapturedLog::lines() const {
  return sink_->lines();
}

CapturedPrint::CapturedPrint() {
  std::fflush(stdout);
  file_ = Descriptor(memfd_create("output", MFD_CLOEXEC));
  before_ = Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
  if (file_.get() < 0 || before_.get() < 0 || dup2(file_.get(), STDOUT_FILENO) < 0) {
    throw std::system_error(errno, std::generic_category(), "standard output");
  }
}

CapturedPrint::~CapturedPrint() {
  std::fflush(stdout);
  dup2(before_.get(), STDOUT_FILENO);
}

std::vector<std::string> CapturedPrint::lines() const {
  std::fflush(stdout);
  const off_t size = lseek(file_.get(), 0, SEEK_END);
  std::string text(static_cast<std::size_t>(std::max<off_t>(size, 0)), '\0');
  const ssize_t count = pread(file_.get(), text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

}  // namespace corvane::program_test
