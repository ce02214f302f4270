// SPDX-License-Identifier: MIT
// Standard error and output that are full, closed or read too slowly.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "libs/base/descriptor.h"
#include "tests/support/command.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace {

using test_support::Command;
using test_support::CommandResult;
using testing::EndsWith;
using testing::HasSubstr;

class OutputTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.path() / name; }
  std::string Write(const std::string& program) const {
    std::ofstream(Path("program.lua")) << program;
    return Path("program.lua");
  }
  /// Runs `corvane WORDS...` in a shell, with this redirection.
  static CommandResult Shell(const std::string& redirection, const std::string& words) {
    return test_support::RunCommand(
        {"/bin/sh", "-c", "\"$0\" " + words + " " + redirection, CORVANE});
  }

  test_support::TemporaryFolder folder_;
};

/// A decodable PDU in each line. What is printed about all of them is more than stdio keeps in
/// memory, so that writing fails before the end.
void WriteManyPdus(const std::string& file) {
  std::ofstream pdus(file);
  for (int i = 0; i < 5000; ++i) {
    pdus << "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07\n";
  }
}

/// The messages in an error output; the log is not counted.
long LinesFromCorvane(const std::string& err) {
  std::istringstream stream(err);
  long count = 0;
  for (std::string line; std::getline(stream, line);)
    count += line.starts_with("corvane: ") ? 1 : 0;
  return count;
}

TEST_F(OutputTest, ThatIsLostMakesTheStatus1AndPrintsOneMessage) {
  const std::string program = Write("print('x') function cycle() plc.stop() end");
  const std::string talkative = Path("talkative.lua");
  std::ofstream(talkative) << "for i = 1, 1e5 do print(i) end function cycle() plc.stop() end";
  WriteManyPdus(Path("pdus"));
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  const std::string closed = std::string("4<>") + Path("pipe") + " 3>" + Path("pipe") + " 4<&- >&3";
  for (const std::string& words :
       {"run " + program, "run --check " + program, std::string("blocks"),
        std::string("blocks --json"), std::string("pdu decode 00"), "pdu decode <" + Path("pdus"),
        "run " + talkative, std::string("pdu encode --to 12345 x"), std::string("--help"),
        std::string("run --help"), std::string("--version")}) {
    for (const std::string& redirection : {std::string(">/dev/full"), closed}) {
      const CommandResult result = Shell(redirection, words);
      EXPECT_EQ(result.status, 1) << words << redirection << result.err;
      EXPECT_EQ(LinesFromCorvane(result.err), 1) << words << redirection << result.err;
    }
    EXPECT_EQ(Shell(">/dev/full 2>/dev/full", words).status, 1) << words;
  }
}

TEST_F(OutputTest, ThatIsLostLeavesAnotherStatusAsItIs) {
  EXPECT_EQ(Shell(">/dev/full", "run " + Write("print('x') plc.stop(7)")).status, 7);
}

TEST_F(OutputTest, AnErrorThatCannotBeWrittenChangesNoStatus) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  const std::string closed =
      std::string("4<>") + Path("pipe") + " 3>" + Path("pipe") + " 4<&- 2>&3";
  for (const std::string& redirection : {std::string("2>/dev/full"), closed}) {
    EXPECT_EQ(Shell(redirection, "run " + Write("plc.log('x') plc.stop()")).status, 0);
    EXPECT_EQ(Shell(redirection, "run " + Write("error('x')")).status, 1);
    EXPECT_EQ(Shell(redirection, "run /no/such.lua").status, 2);
    EXPECT_EQ(Shell(redirection, "fly").status, 2);
    EXPECT_EQ(Shell(redirection, "modem --tcp nowhere").status, 2);
    EXPECT_EQ(Shell(redirection, "pdu encode x").status, 2);
  }
}

/// A program whose standard error is a pipe that the test reads when it likes.
class SlowReader : public OutputTest {
 protected:
  SlowReader() {
    mkfifo(Path("pipe").c_str(), 0600);
    reader_ = corvane::Descriptor(open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }
  std::vector<std::string> Start(const std::string& program) const {
    // Nothing else is logged: no overruns, and nothing about the Unix socket.
    return {"/bin/sh",
            "-c",
            "exec env XDG_RUNTIME_DIR=\"${2%/*}\" \"$0\" run --cycle 0 \"$1\" 2>\"$2\"",
            CORVANE,
            Write(program),
            Path("pipe")};
  }
  /// Everything that arrives until the other end is closed.
  std::vector<std::string> ReadLines() const {
    fcntl(reader_.get(), F_SETFL, 0);
    std::string text;
    std::array<char, 65536> piece{};
    for (ssize_t count = 1; count > 0;) {
      count = read(reader_.get(), piece.data(), piece.size());
      if (count > 0) text.append(piece.data(), static_cast<std::size_t>(count));
    }
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

 private:
  corvane::Descriptor reader_;
};

constexpr const char* kManyLines =
    "function cycle()\n"
    "  for i = 1, 500 do plc.log(i .. (' '):rep(250)) end\n"
    "  print(plc.cycle)\n";

TEST_F(SlowReader, OfTheLogHoldsNeitherTheCycleNorTheEnd) {
  Command run(Start(std::string(kManyLines) + "if plc.cycle == 40 then plc.stop(4) end end"));
  const CommandResult result = run.Wait();
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.out, EndsWith("\n40\n"));
}

TEST_F(SlowReader, GetsTheCountOfWhatWasDroppedAndTheErrorAtTheEnd) {
  Command run(Start(std::string(kManyLines) +
                    "  if plc.cycle == 40 then io.write('full\\n') error('no sensor') end\nend"));
  ASSERT_TRUE(test_support::WaitFor([&] { return run.out().find("full") != std::string::npos; }));
  unsigned long seen = 0;
  unsigned long dropped = 0;
  std::string all;
  for (const std::string& line : ReadLines()) {
    const std::size_t notice = line.find(" log lines were dropped here");
    if (notice != std::string::npos) {
      dropped += std::stoul(line.substr(line.rfind(' ', notice - 1)));
    } else if (line.find(" info ") != std::string::npos) {
      ++seen;
    }
    all += line + "\n";
  }
  EXPECT_EQ(run.Wait().status, 1);
  EXPECT_GT(dropped, 0u);
  EXPECT_EQ(seen + dropped, 40u * 500 + 1) << "and the statistics";
  EXPECT_THAT(all, HasSubstr("no sensor\nstack traceback:"));
}

TEST_F(OutputTest, ACrashLosesNoLineOfTheLog) {
  const CommandResult result = Shell(
      "", "run " + Write("for i = 1, 1000 do plc.log('line ' .. i) end\n"
                         "os.execute('kill -ABRT ' .. io.open('/proc/self/stat'):read('*n'))"));
  EXPECT_EQ(result.status, 134);
  EXPECT_THAT(result.err, HasSubstr(" line 1000\n"));
}

}  // namespace
