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
#include <vector>

namespace modem_simulator {
namespace {

constexpr int kReadinessPauseMs = 20;

void Raise(const corvane::Descriptor& event) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(event.get(), &one, sizeof one);
}

corvane::Descriptor NewEvent() {
  corvane::Descriptor event(eventfd(0, EFD_CLOEXEC));
  if (event.get() < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return event;
}

}  // namespace

LineReader::LineReader(boost::asio::io_context& io, int descriptor, Callbacks callbacks)
    : io_(io),
      descriptor_(descriptor),
      callbacks_(std::move(callbacks)),
      stop_(NewEvent()),
      handled_(NewEvent()),
      thread_([this] { Run(); }) {}

LineReader::~LineReader() {
  Raise(stop_);
  thread_.join();
}

bool LineReader::Await(int descriptor) const {
  std::array<pollfd, 2> sources{pollfd{descriptor, POLLIN, 0}, pollfd{stop_.get(), POLLIN, 0}};
  while (poll(sources.data(), sources.size(), -1) < 0) {
    if (errno != EINTR) return false;
  }
  return sources[1].revents == 0;
}

bool LineReader::AwaitReadiness() const {
  pollfd stop{stop_.get(), POLLIN, 0};
  while (!callbacks_.ready()) {
    if (poll(&stop, 1, kReadinessPauseMs) > 0) return false;
  }
  return true;
}

void LineReader::Run() {
  std::array<char, 4096> input{};
  while (AwaitReadiness() && Await(descriptor_)) {
    const ssize_t size = read(descriptor_, input.data(), input.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    waiting_.append(input.data(), static_cast<std::size_t>(size));
    HandleLines();
  }
  if (!waiting_.empty() && !dropping_) {  // a last line without its line end
    boost::asio::post(io_, [this, line = std::move(waiting_)] { callbacks_.on_line(line); });
  }
}

void LineReader::HandleLines() {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = waiting_.find('\n', begin)) != std::string::npos;
       begin = end + 1) {
    if (!std::exchange(dropping_, false)) lines.push_back(waiting_.substr(begin, end - begin));
  }
  waiting_.erase(0, begin);
  const bool too_long = waiting_.size() > kLongestLine;
  if (too_long || dropping_) waiting_.clear();
  const bool first = too_long && !std::exchange(dropping_, dropping_ || too_long);
  if (lines.empty() && !first) return;
  boost::asio::post(io_, [this, lines = std::move(lines), first] {
    for (const std::string& line : lines) callbacks_.on_line(line);
    if (first) callbacks_.on_long_line();
    Raise(handled_);
  });
  if (!Await(handled_.get())) return;
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t taken = read(handled_.get(), &count, sizeof count);
}

}  // namespace modem_simulator
