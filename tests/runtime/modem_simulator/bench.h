// SPDX-License-Identifier: MIT
// A simulator that runs in a thread, and a controller that talks to it over its real lines.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

#include "libs/base/descriptor.h"
#include "runtime/modem_simulator/console.h"
#include "runtime/modem_simulator/simulator.h"
#include "tests/support/wait_for.h"

namespace modem_simulator {

/// A wait that takes longer has failed.
constexpr int kPatienceMs = std::chrono::milliseconds(test_support::kPatience).count();

/// What can be read from a descriptor until `wanted` has come, the input ends, or the time is over.
inline std::string ReadUntil(int fd, std::string_view wanted) {
  std::string text;
  std::array<char, 4096> input{};
  while (wanted.empty() || text.find(wanted) == std::string::npos) {
    pollfd state{fd, POLLIN, 0};
    if (poll(&state, 1, kPatienceMs) <= 0) {
      ADD_FAILURE() << "timed out after: " << text;
      break;
    }
    const ssize_t size = read(fd, input.data(), input.size());
    if (size <= 0) break;
    text.append(input.data(), static_cast<std::size_t>(size));
  }
  return text;
}

/// A controller's end of a line.
class Controller {
 public:
  explicit Controller(int fd) : fd_(fd) {
    EXPECT_GE(fd, 0) << std::generic_category().message(errno);
  }
  explicit Controller(const std::filesystem::path& device)
      : Controller(open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;
  ~Controller() { close(fd_); }

  void Write(std::string_view bytes) const {
    EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  /// What comes, up to and including `wanted`.
  [[nodiscard]] std::string Read(std::string_view wanted) const { return ReadUntil(fd_, wanted); }
  /// What comes until the line is gone.
  [[nodiscard]] std::string ReadToTheEnd() const { return ReadUntil(fd_, {}); }
  [[nodiscard]] std::string Ask(std::string_view bytes, std::string_view wanted = "OK\r\n") const {
    Write(bytes);
    return Read(wanted);
  }
  [[nodiscard]] int fd() const { return fd_; }

 private:
  int fd_;
};

class Bench {
 public:
  explicit Bench(const SimulatorOptions& options)
      : out_(OpenOutput(), [] {}), simulator_(io_, options, out_) {
    simulator_.Start();
    thread_ = std::thread([this] {
      const auto work = boost::asio::make_work_guard(io_);
      io_.run();
    });
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench() {
    io_.stop();
    thread_.join();
  }

  /// A line of the console.
  void Do(const std::string& text) {
    const ConsoleLine line = ParseConsoleLine(text);
    ASSERT_EQ(line.error, "");
    boost::asio::post(io_, [this, line] { simulator_.Do(line.action); });
  }

  /// Waits for this in the output, and returns everything up to it.
  std::string AwaitOutput(std::string_view wanted) { return ReadUntil(reading_.get(), wanted); }

 private:
  int OpenOutput() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    reading_ = corvane::Descriptor(ends[0]);
    writing_ = corvane::Descriptor(ends[1]);
    return writing_.get();
  }

  corvane::Descriptor reading_;
  corvane::Descriptor writing_;
  LineWriter out_;
  boost::asio::io_context io_;
  Simulator simulator_;
  std::thread thread_;
};

}  // namespace modem_simulator
