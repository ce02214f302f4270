// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/line_writer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <string>

#include "libs/base/descriptor.h"
#include "tests/runtime/modem_simulator/bench.h"
#include "tests/support/wait_for.h"

namespace modem_simulator {
namespace {

class LineWriterTest : public testing::Test {
 protected:
  LineWriterTest() {
    std::signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    reading_ = corvane::Descriptor(ends[0]);
    writing_ = corvane::Descriptor(ends[1]);
  }

  std::unique_ptr<LineWriter> Writer(int descriptor) {
    return std::make_unique<LineWriter>(descriptor, [this] { ++failures_; });
  }

  corvane::Descriptor reading_;
  corvane::Descriptor writing_;
  std::atomic<int> failures_ = 0;
};

TEST_F(LineWriterTest, WritesEveryLineBeforeItEnds) {
  auto writer = Writer(writing_.get());
  for (int i = 0; i < 1000; ++i) writer->Write(fmt::format("line {}", i));
  writer.reset();
  writing_ = corvane::Descriptor();
  const std::string all = ReadUntil(reading_.get(), {});
  EXPECT_TRUE(all.starts_with("line 0\nline 1\n"));
  EXPECT_TRUE(all.ends_with("line 998\nline 999\n"));
}

TEST_F(LineWriterTest, NeitherWaitsNorGrowsWhenNobodyReadsAndSaysWhatIsLeftOut) {
  auto writer = Writer(writing_.get());
  const std::string line(1023, 'x');
  for (std::size_t bytes = 0; bytes < 2 * LineWriter::kMostWaiting; bytes += 1024) {
    writer->Write(line);
  }
  EXPECT_FALSE(writer->HasRoom());
  std::thread end([&writer] { writer.reset(); });
  const std::string all = ReadUntil(reading_.get(), "nobody read them in time\n");
  end.join();
  EXPECT_LE(all.size(), LineWriter::kMostWaiting + 65536U + 100U);
  EXPECT_GE(all.size(), LineWriter::kMostWaiting - 1024U);
  EXPECT_NE(all.find(" lines were left out here"), std::string::npos);
}

TEST_F(LineWriterTest, EndsWhenNobodyReads) {
  auto writer = Writer(writing_.get());
  for (int i = 0; i < 1000; ++i) writer->Write(std::string(1000, 'x'));
  const auto start = std::chrono::steady_clock::now();
  writer.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, test_support::kPatience);
  EXPECT_EQ(failures_, 0);
}

TEST_F(LineWriterTest, ReportsOnceThatItsOutputCannotBeWritten) {
  const corvane::Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  reading_ = corvane::Descriptor();
  for (const int descriptor : {full.get(), writing_.get()}) {
    failures_ = 0;
    auto writer = Writer(descriptor);
    writer->Write("one");
    EXPECT_TRUE(test_support::WaitFor([&] { return writer->failed(); }));
    writer->Write("two");
    writer.reset();
    EXPECT_EQ(failures_, 1);
  }
}

}  // namespace
}  // namespace modem_simulator
