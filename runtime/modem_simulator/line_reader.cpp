// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/line_reader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace modem_simulator {

LineReader::LineReader(boost::asio::io_context& io, int descriptor, OnLine on_line)
    : io_(io),
      descriptor_(descriptor),
      on_line_(std::move(on_line)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  if (stop_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  thread_ = std::thread([this] { Run(); });
}

LineReader::~LineReader() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(stop_, &one, sizeof one);
  thread_.join();
  close(stop_);
}

bool LineReader::AwaitInput() const {
  std::array<pollfd, 2> sources{pollfd{descriptor_, POLLIN, 0}, pollfd{stop_, POLLIN, 0}};
  while (poll(sources.data(), sources.size(), -1) < 0) {
    if (errno != EINTR) return false;
  }
  return sources[1].revents == 0;
}

void LineReader::Run() {
  std::array<char, 4096> input{};
  while (AwaitInput()) {
    const ssize_t size = read(descriptor_, input.data(), input.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    waiting_.append(input.data(), static_cast<std::size_t>(size));
    TakeLines();
  }
  if (!waiting_.empty()) {  // a last line without its end
    boost::asio::post(io_, [this, line = std::move(waiting_)] { on_line_(line); });
  }
}

void LineReader::TakeLines() {
  for (std::size_t end = waiting_.find('\n');
       end != std::string::npos || waiting_.size() > kLongestLine; end = waiting_.find('\n')) {
    std::string line = waiting_.substr(0, end);
    waiting_.erase(0, end == std::string::npos ? end : end + 1);
    boost::asio::post(io_, [this, line = std::move(line)] { on_line_(line); });
  }
}

}  // namespace modem_simulator
