// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/line_reader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <string_view>
#include <vector>

#include "tests/support/wait_for.h"

namespace modem_simulator {
namespace {

using testing::ElementsAre;

class LineReaderTest : public testing::Test {
 protected:
  LineReaderTest() { EXPECT_EQ(pipe2(pipe_.data(), O_CLOEXEC), 0); }
  ~LineReaderTest() override { close(pipe_[0]); }

  void Write(std::string_view text) const {
    EXPECT_EQ(write(pipe_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  LineReader::Callbacks Collect() {
    return {[this](const std::string& line) { lines_.push_back(line); },
            [this] { lines_.emplace_back("too long"); }, [this] { return ready_.load(); }};
  }
  /// Handles events until this many lines have come.
  void AwaitLines(std::size_t count) {
    const auto work = boost::asio::make_work_guard(io_);
    while (lines_.size() < count && io_.run_one_for(test_support::kPatience) > 0) {
    }
  }

  std::array<int, 2> pipe_{};
  boost::asio::io_context io_;
  std::vector<std::string> lines_;
  std::atomic<bool> ready_ = true;
};

TEST_F(LineReaderTest, ReturnsLinesAndALastOneWithoutItsEnd) {
  const LineReader reader(io_, pipe_[0], Collect());
  Write("one\n\ntw");
  Write("o\nlast");
  close(pipe_[1]);
  AwaitLines(4);
  EXPECT_THAT(lines_, ElementsAre("one", "", "two", "last"));
}

TEST_F(LineReaderTest, EndsWhileItsInputIsStillOpen) {
  { const LineReader reader(io_, pipe_[0], Collect()); }
  close(pipe_[1]);
}

TEST_F(LineReaderTest, ReportsALineThatIsTooLongOnceAndGoesOnAfterIt) {
  const LineReader reader(io_, pipe_[0], Collect());
  std::thread writer([this] {
    const std::string piece(4096, 'x');
    for (std::size_t sent = 0; sent <= 3 * LineReader::kLongestLine; sent += piece.size()) {
      Write(piece);
    }
    Write("\nnext\n");
  });
  AwaitLines(2);
  writer.join();
  close(pipe_[1]);
  EXPECT_THAT(lines_, ElementsAre("too long", "next"));
}

/// What the pipe accepts before somebody reads.
std::size_t FillPipe(int descriptor) {
  EXPECT_EQ(fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
  std::size_t taken = 0;
  while (taken < (1U << 20) && write(descriptor, "\n", 1) == 1) ++taken;
  return taken;
}

TEST_F(LineReaderTest, ReadsNoFurtherThanItsLinesAreHandled) {
  const LineReader reader(io_, pipe_[0], Collect());
  const std::size_t first = FillPipe(pipe_[1]);
  EXPECT_GT(first, 0U);
  // Nothing is handled, so it has read one piece at most, however much time it had.
  EXPECT_LE(first + FillPipe(pipe_[1]), 65536U + 4096U);
  AwaitLines(first);
  EXPECT_GE(lines_.size(), first);
  close(pipe_[1]);
}

TEST_F(LineReaderTest, ReadsNothingUntilLinesCanBeTaken) {
  ready_ = false;
  const LineReader reader(io_, pipe_[0], Collect());
  Write("one\n");
  {
    const auto work = boost::asio::make_work_guard(io_);  // otherwise it would not wait
    EXPECT_EQ(io_.run_for(std::chrono::milliseconds(100)), 0U);
  }
  io_.restart();
  ready_ = true;
  AwaitLines(1);
  close(pipe_[1]);
}

}  // namespace
}  // namespace modem_simulator
