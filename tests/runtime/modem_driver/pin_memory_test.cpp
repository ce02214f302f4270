// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/pin_memory.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kDevice = "/dev/serial/by-id/usb modem";
const std::string kCard = "894902000012345678";
constexpr PinEnd kRefused = PinEnd::kRefused;

class PinMemoryTest : public testing::Test {
 protected:
  /// The content of the file.
  [[nodiscard]] std::string Content() const {
    std::ostringstream text;
    text << std::ifstream(folder_.path() / "refused-pins").rdbuf();
    return text.str();
  }

  test_support::TemporaryFolder folder_;
  const PinAttempt attempt_{kDevice, kCard, "1234"};
};

TEST_F(PinMemoryTest, RemembersAcrossStarts) {
  {
    PinMemory memory(folder_.path());
    EXPECT_EQ(memory.Recall(attempt_), std::nullopt);
    memory.Remember(attempt_, kRefused);
  }
  PinMemory memory(folder_.path());
  EXPECT_FALSE(memory.IsEmpty());
  EXPECT_EQ(memory.Recall(attempt_), kRefused);
  EXPECT_EQ(memory.Recall({kDevice, kCard, "4321"}), std::nullopt);
  memory.Remember(attempt_, PinEnd::kUnknown);
  EXPECT_EQ(memory.Recall(attempt_), PinEnd::kUnknown) << "the last one counts";
  memory.Forget(attempt_);
  EXPECT_EQ(memory.Recall(attempt_), std::nullopt);
  EXPECT_TRUE(PinMemory(folder_.path()).IsEmpty());
}

TEST_F(PinMemoryTest, TheFileHasADigestAndOnlyItsOwnerCanReadIt) {
  PinMemory memory(folder_.path());
  memory.Remember({kDevice, kCard, "13579246"}, kRefused);
  EXPECT_THAT(Content(), Not(HasSubstr("13579246")));
  EXPECT_THAT(Content(), HasSubstr(" $y$"));
  struct stat status {};
  ASSERT_EQ(stat(memory.file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600u);
  PinMemory other(folder_.path());
  other.Remember({"/dev/ttyS9", "", "13579246"}, kRefused);
  const std::string content = Content();
  const std::size_t first = content.find("$y$");
  const std::size_t second = content.find("$y$", first + 1);
  ASSERT_NE(second, std::string::npos);
  EXPECT_NE(content.substr(first, 40), content.substr(second, 40)) << "each has its own salt";
}

TEST_F(PinMemoryTest, KnowsACardByItsNumberOrElseByItsDevice) {
  for (const bool restarted : {false, true}) {
    PinMemory memory(folder_.path());
    if (!restarted) memory.Remember(attempt_, kRefused);
    EXPECT_TRUE(memory.Recall({"/dev/ttyUSB1", kCard, "1234"})) << "the card has moved";
    EXPECT_FALSE(memory.Recall({kDevice, "894902000099999999", "1234"})) << "another card";
    EXPECT_TRUE(memory.Recall({kDevice, "", "1234"})) << "perhaps the same card";
    EXPECT_FALSE(memory.Recall({"/dev/ttyUSB1", "", "1234"}));
  }
}

TEST_F(PinMemoryTest, ForgetsTheOldestOfTooMany) {
  PinMemory memory({});  // without digests, which take time
  for (std::size_t i = 0; i <= PinMemory::kMost; ++i) {
    memory.Remember({kDevice, kCard, std::to_string(1000 + i)}, kRefused);
  }
  EXPECT_FALSE(memory.Recall({kDevice, kCard, "1000"}));
  EXPECT_TRUE(memory.Recall({kDevice, kCard, "1001"}));
  EXPECT_TRUE(memory.Recall({kDevice, kCard, std::to_string(1000 + PinMemory::kMost)}));
}

TEST_F(PinMemoryTest, SkipsWhatIsDamaged) {
  { PinMemory(folder_.path()).Remember(attempt_, kRefused); }
  const std::string good = Content();
  std::ofstream(folder_.path() / "refused-pins")
      << "\n\nrefused\nrefused - $y$\nrefused - plain /dev/x\n"
      << std::string(100'000, 'x') << "\n"
      << '\0' << "\xFF\n"
      << good << "refused " << kCard;
  PinMemory memory(folder_.path());
  EXPECT_TRUE(memory.Recall(attempt_));
  EXPECT_FALSE(memory.Recall({kDevice, kCard, "4321"}));
}

TEST_F(PinMemoryTest, WithoutAFolderRemembersUntilTheEndAndWarnsOnce) {
  std::ofstream(folder_.path() / "file") << "x";
  test_support::TakeLog();
  PinMemory memory(folder_.path() / "file");
  memory.Remember(attempt_, kRefused);
  memory.Remember({kDevice, kCard, "4321"}, kRefused);
  EXPECT_TRUE(memory.Recall(attempt_));
  EXPECT_TRUE(memory.Recall({kDevice, kCard, "4321"}));
  const auto log = test_support::TakeLog();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_THAT(log[0], HasSubstr("remembered only until the program ends"));
  PinMemory none({});
  none.Remember(attempt_, kRefused);
  EXPECT_TRUE(none.Recall(attempt_));
  EXPECT_TRUE(test_support::TakeLog().empty());
}

}  // namespace
}  // namespace corvane
