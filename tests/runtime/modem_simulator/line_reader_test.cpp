// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/line_reader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
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
  /// Handles events until so many lines have come.
  void AwaitLines(std::size_t count) {
    const auto work = boost::asio::make_work_guard(io_);
    while (lines_.size() < count && io_.run_one_for(test_support::kPatience) > 0) {
    }
  }

  std::array<int, 2> pipe_{};
  boost::asio::io_context io_;
  std::vector<std::string> lines_;
};

TEST_F(LineReaderTest, GivesLinesAndALastOneWithoutItsEnd) {
  const LineReader reader(io_, pipe_[0], [this](const std::string& l) { lines_.push_back(l); });
  Write("one\n\ntw");
  Write("o\nlast");
  close(pipe_[1]);
  AwaitLines(4);
  EXPECT_THAT(lines_, ElementsAre("one", "", "two", "last"));
}

TEST_F(LineReaderTest, EndsWhileItsInputIsStillOpen) {
  {
    const LineReader reader(io_, pipe_[0], [](const std::string&) {});
  }
  close(pipe_[1]);
}

TEST_F(LineReaderTest, HandsOverALineWithoutEndInPieces) {
  const LineReader reader(io_, pipe_[0], [this](const std::string& l) { lines_.push_back(l); });
  const std::string piece(4096, 'x');
  for (std::size_t sent = 0; sent <= LineReader::kLongestLine; sent += piece.size()) Write(piece);
  AwaitLines(1);
  EXPECT_GE(lines_.front().size(), LineReader::kLongestLine);
  close(pipe_[1]);
}

}  // namespace
}  // namespace modem_simulator
